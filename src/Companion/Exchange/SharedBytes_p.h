#pragma once

#include <QtGlobal>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

// Every access to the bytes of a shared buffer goes through these functions. Readers may overlap a
// writer of another thread or process and discard what they read when the handler tells them to;
// the language calls a plain access in such an overlap a data race, with any consequence. A relaxed
// atomic access is free of that and compiles to the same instruction. Order between accesses is the
// business of the handlers' locks.
//
// Slots lie back to back and need not be aligned: what one access cannot do is done in pieces, each
// the largest that its address allows.

#if defined(__has_feature)
# define TESSEL_HAS_FEATURE(feature) __has_feature(feature)
#else
# define TESSEL_HAS_FEATURE(feature) 0
#endif
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)                                  \
    || TESSEL_HAS_FEATURE(thread_sanitizer) || TESSEL_HAS_FEATURE(address_sanitizer)
# define TESSEL_IS_WATCHED 1
#else
# define TESSEL_IS_WATCHED 0
#endif

namespace SharedBytes {

/// Whether one instruction reaches a word at any address. The language knows no such access that may
/// overlap another; a volatile one is compiled to just that instruction, by both compilers. The
/// sanitizers understand atomic ones only, and are given the pieces to look at.
#if defined(__x86_64__) && !TESSEL_IS_WATCHED
constexpr bool isAnyAddressOneAccess = true;
#else
constexpr bool isAnyAddressOneAccess = false;
#endif

// The unsigned integer of a size, which may lie over an object of any type; Anywhere without
// alignment.
template <std::size_t size>
struct Word;
template <>
struct Word<1>
{
    using Type [[gnu::may_alias]] = std::uint8_t;
    struct [[gnu::packed, gnu::may_alias]] Anywhere { std::uint8_t word; };
};
template <>
struct Word<2>
{
    using Type [[gnu::may_alias]] = std::uint16_t;
    struct [[gnu::packed, gnu::may_alias]] Anywhere { std::uint16_t word; };
};
template <>
struct Word<4>
{
    using Type [[gnu::may_alias]] = std::uint32_t;
    struct [[gnu::packed, gnu::may_alias]] Anywhere { std::uint32_t word; };
};
template <>
struct Word<8>
{
    using Type [[gnu::may_alias]] = std::uint64_t;
    struct [[gnu::packed, gnu::may_alias]] Anywhere { std::uint64_t word; };
};

template <std::size_t size>
typename Word<size>::Type loadWord(const unsigned char *source)
{
    using Type = typename Word<size>::Type;
    return __atomic_load_n(reinterpret_cast<const Type *>(source), __ATOMIC_RELAXED);
}

template <std::size_t size>
void storeWord(unsigned char *destination, typename Word<size>::Type word)
{
    using Type = typename Word<size>::Type;
    __atomic_store_n(reinterpret_cast<Type *>(destination), word, __ATOMIC_RELAXED);
}

/// Loads a word at any address. Only where isAnyAddressOneAccess.
template <std::size_t size>
[[gnu::always_inline]] inline typename Word<size>::Type loadAtOnce(const unsigned char *source)
{
    return reinterpret_cast<const volatile typename Word<size>::Anywhere *>(source)->word;
}

/// Stores a word at any address. Only where isAnyAddressOneAccess.
template <std::size_t size>
// NOLINTNEXTLINE(readability-non-const-parameter): the bytes behind it are what is stored into.
[[gnu::always_inline]] inline void storeAtOnce(unsigned char *destination,
                                               typename Word<size>::Type word)
{
    reinterpret_cast<volatile typename Word<size>::Anywhere *>(destination)->word = word;
}

inline bool isAligned(const unsigned char *address, std::size_t size)
{
    return reinterpret_cast<quintptr>(address) % size == 0; // cppcheck-suppress zerodiv ; never 0
}

/// One number from its two halves, as they lie one behind the other.
template <std::size_t size>
typename Word<size>::Type joinHalves(typename Word<size / 2>::Type first,
                                     typename Word<size / 2>::Type second)
{
    using Type = typename Word<size>::Type;
    constexpr int halfBits = static_cast<int>(size * 4);
    const bool isFirstHigh = Q_BYTE_ORDER == Q_BIG_ENDIAN;
    const Type high = isFirstHigh ? first : second;
    const Type low = isFirstHigh ? second : first;
    return static_cast<Type>((high << halfBits) | low);
}

/// Loads the word at @p source in pieces, the largest that its address allows. They are joined in
/// registers: stored one by one and loaded as a whole they would have to reach the cache first.
template <std::size_t size>
[[gnu::noinline]] typename Word<size>::Type loadInPieces(const unsigned char *source)
{
    if constexpr (size > 1) {
        if (!isAligned(source, size)) {
            return joinHalves<size>(loadInPieces<size / 2>(source),
                                    loadInPieces<size / 2>(source + size / 2));
        }
    }
    return loadWord<size>(source);
}

/// Whether a word of that size at @p address takes one access, or two of four bytes each.
template <std::size_t size>
bool isOnWords(const unsigned char *address)
{
    return isAnyAddressOneAccess || isAligned(address, size == 8 ? 4 : size);
}

/// Loads the word at @p source, which isOnWords().
template <std::size_t size>
[[gnu::always_inline]] inline typename Word<size>::Type loadOnWords(const unsigned char *source)
{
    if constexpr (isAnyAddressOneAccess) {
        return loadAtOnce<size>(source);
    } else if constexpr (size == 8) {
        if (!isAligned(source, size)) {
            return joinHalves<size>(loadWord<size / 2>(source),
                                    loadWord<size / 2>(source + size / 2));
        }
    }
    return loadWord<size>(source);
}

/// Loads the word at @p source, aligned or not.
template <std::size_t size>
[[gnu::always_inline]] inline typename Word<size>::Type loadAnywhere(const unsigned char *source)
{
    if constexpr (isAnyAddressOneAccess) {
        return loadAtOnce<size>(source);
    } else {
        return isOnWords<size>(source) ? loadOnWords<size>(source) : loadInPieces<size>(source);
    }
}

/// The half of a number that lies in front, and the one behind it.
template <std::size_t size>
typename Word<size / 2>::Type halfOf(typename Word<size>::Type word, bool isFirst)
{
    constexpr int halfBits = static_cast<int>(size * 4);
    const bool isHigh = isFirst == (Q_BYTE_ORDER == Q_BIG_ENDIAN);
    return static_cast<typename Word<size / 2>::Type>(isHigh ? word >> halfBits : word);
}

/// Stores @p word in pieces, the largest that the address allows.
template <std::size_t size>
[[gnu::noinline]] void storeInPieces(unsigned char *destination, typename Word<size>::Type word)
{
    if constexpr (size > 1) {
        if (!isAligned(destination, size)) {
            storeInPieces<size / 2>(destination, halfOf<size>(word, true));
            storeInPieces<size / 2>(destination + size / 2, halfOf<size>(word, false));
            return;
        }
    }
    storeWord<size>(destination, word);
}

/// Stores @p word, at an aligned address or not.
template <std::size_t size>
[[gnu::always_inline]] inline void storeAnywhere(unsigned char *destination,
                                                 typename Word<size>::Type word)
{
    if (isAnyAddressOneAccess) {
        storeAtOnce<size>(destination, word);
        return;
    }
    if (isAligned(destination, size)) {
        storeWord<size>(destination, word);
        return;
    }
    if constexpr (size == 8) {
        if (isOnWords<size>(destination)) {
            storeWord<size / 2>(destination, halfOf<size>(word, true));
            storeWord<size / 2>(destination + size / 2, halfOf<size>(word, false));
            return;
        }
    }
    storeInPieces<size>(destination, word);
}

/// Loads the word at @p source for a copy, by one access where the processor can.
template <std::size_t size>
[[gnu::always_inline]] inline typename Word<size>::Type loadForCopy(const unsigned char *source)
{
    if constexpr (isAnyAddressOneAccess) {
        return loadAtOnce<size>(source);
    } else {
        return loadInPieces<size>(source);
    }
}

/// Copies the next one, two or four bytes: as many as the destination's address and @p count allow,
/// so that no number that is aligned there is cut. Returns how many.
inline std::size_t copyPiece(unsigned char *destination, const unsigned char *source,
                             std::size_t count)
{
    if (count >= 4 && isAligned(destination, 4)) {
        storeWord<4>(destination, loadForCopy<4>(source));
        return 4;
    }
    if (count >= 2 && isAligned(destination, 2)) {
        storeWord<2>(destination, loadForCopy<2>(source));
        return 2;
    }
    storeWord<1>(destination, loadWord<1>(source));
    return 1;
}

/// Copies whole words between addresses that are aligned alike.
inline void copyAlike(unsigned char *destination, const unsigned char *source, std::size_t count)
{
    for (const unsigned char *const end = source + count; source != end;
         source += 8, destination += 8) {
        storeWord<8>(destination, loadWord<8>(source));
    }
}

/// The word that begins @p bits behind the start of the first of two neighbours; not 0.
inline Word<8>::Type joinNeighbours(Word<8>::Type first, Word<8>::Type second, unsigned bits)
{
    return Q_BYTE_ORDER == Q_BIG_ENDIAN ? (first << bits) | (second >> (64 - bits))
                                        : (first >> bits) | (second << (64 - bits));
}

/// Copies whole words to an aligned address from one that is not. Aligned words of the source are
/// loaded once each and put together anew; the first and the last word of the destination, whose
/// neighbours may lie outside of the source, come from pieces.
inline void copyShifted(unsigned char *destination, const unsigned char *source, std::size_t count)
{
    if (count == 0) {
        return;
    }
    const unsigned char *const end = source + count;
    const std::size_t lead = 8 - reinterpret_cast<quintptr>(source) % 8;
    storeWord<8>(destination, loadInPieces<8>(source));
    destination += 8;
    if (count >= 24) {
        const auto bits = static_cast<unsigned>(8 * (8 - lead));
        const unsigned char *next = source + lead;
        auto first = loadWord<8>(next);
        for (next += 8; static_cast<std::size_t>(end - next) >= 8; next += 8, destination += 8) {
            const auto second = loadWord<8>(next);
            storeWord<8>(destination, joinNeighbours(first, second, bits));
            first = second;
        }
    }
    if (count > 8) {
        storeWord<8>(destination, loadInPieces<8>(end - 8));
    }
}

/// Two words that one instruction moves, at any address.
using Pair [[gnu::vector_size(16)]] = long long;
struct [[gnu::packed, gnu::may_alias]] PairAnywhere
{
    Pair pair;
};

/// Copies whole words to an aligned address from any. Only where isAnyAddressOneAccess. A pair may
/// reach into the next line of the cache, and is then stored in two parts; they meet between its
/// words.
inline void copyPairs(unsigned char *destination, const unsigned char *source, std::size_t count)
{
    constexpr std::size_t blockSize = 4 * sizeof(Pair);
    const unsigned char *const end = source + count;
    for (; static_cast<std::size_t>(end - source) >= blockSize;
         source += blockSize, destination += blockSize) {
        const auto *const from = reinterpret_cast<const volatile PairAnywhere *>(source);
        auto *const to = reinterpret_cast<volatile PairAnywhere *>(destination);
        const Pair first = from[0].pair;
        const Pair second = from[1].pair;
        const Pair third = from[2].pair;
        const Pair fourth = from[3].pair;
        to[0].pair = first;
        to[1].pair = second;
        to[2].pair = third;
        to[3].pair = fourth;
    }
    for (; source != end; source += 8, destination += 8) {
        storeAtOnce<8>(destination, loadAtOnce<8>(source));
    }
}

/// Copies whole words to an aligned address by accesses that any processor has.
inline void copyWords(unsigned char *destination, const unsigned char *source, std::size_t count)
{
    if (isAligned(source, 8)) {
        copyAlike(destination, source, count);
    } else {
        copyShifted(destination, source, count);
    }
}

/// Copies by @p copyWhole, and what lies in front of and behind the aligned words of the destination
/// in pieces.
template <class CopyWhole>
void copyByDestination(unsigned char *destination, const unsigned char *source, std::size_t size,
                       const CopyWhole &copyWhole)
{
    while (size > 0 && !isAligned(destination, 8)) {
        const std::size_t count = copyPiece(destination, source, size);
        destination += count;
        source += count;
        size -= count;
    }
    const std::size_t whole = size - size % 8;
    copyWhole(destination, source, whole);
    destination += whole;
    source += whole;
    size -= whole;
    while (size > 0) {
        const std::size_t count = copyPiece(destination, source, size);
        destination += count;
        source += count;
        size -= count;
    }
}

inline void copyAligned(unsigned char *destination, const unsigned char *source, std::size_t size)
{
    copyByDestination(destination, source, size, copyWords);
}

} // namespace SharedBytes

/// How the address of a value is aligned, where its reader has looked.
enum class SharedAlignment {
    Any,
    Words ///< SharedBytes::isOnWords()
};

/// The value at an address in a shared buffer.
template <class T, SharedAlignment alignment = SharedAlignment::Any>
[[gnu::always_inline]] inline T loadShared(const unsigned char *source)
{
    static_assert(std::is_trivially_copyable_v<T> && !std::is_same_v<T, bool>,
                  "any bytes must make a value");
    typename SharedBytes::Word<sizeof(T)>::Type word = 0;
    if constexpr (alignment == SharedAlignment::Words) {
        word = SharedBytes::loadOnWords<sizeof(T)>(source);
    } else {
        word = SharedBytes::loadAnywhere<sizeof(T)>(source);
    }
    T value{};
    std::memcpy(&value, &word, sizeof(T));
    return value;
}

/// Puts the value at an address in a shared buffer, aligned or not.
template <class T>
[[gnu::always_inline]] inline void storeShared(unsigned char *destination, T value)
{
    static_assert(std::is_trivially_copyable_v<T>);
    typename SharedBytes::Word<sizeof(T)>::Type word = 0;
    std::memcpy(&word, &value, sizeof(T));
    SharedBytes::storeAnywhere<sizeof(T)>(destination, word);
}

/// Copies between shared buffers that do not overlap, wherever they lie.
///
/// A number that is aligned at the destination is stored whole: its readers see the former one or the
/// new one. It is loaded whole where it is aligned at the source too, or lies inside a line of the
/// cache on x86-64. Elsewhere a source that changes meanwhile gives a mixture; the handlers copy from
/// the buffer that nobody writes into.
inline void copyShared(unsigned char *destination, const unsigned char *source, std::size_t size)
{
    if constexpr (SharedBytes::isAnyAddressOneAccess) {
        SharedBytes::copyByDestination(destination, source, size, SharedBytes::copyPairs);
    } else {
        SharedBytes::copyAligned(destination, source, size);
    }
}
