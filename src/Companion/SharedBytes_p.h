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

namespace SharedBytes {

// The unsigned integer of a size, which may lie over an object of any type.
template <std::size_t size>
struct Word;
template <>
struct Word<1>
{
    using Type [[gnu::may_alias]] = std::uint8_t;
};
template <>
struct Word<2>
{
    using Type [[gnu::may_alias]] = std::uint16_t;
};
template <>
struct Word<4>
{
    using Type [[gnu::may_alias]] = std::uint32_t;
};
template <>
struct Word<8>
{
    using Type [[gnu::may_alias]] = std::uint64_t;
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

inline bool isAligned(const unsigned char *address, std::size_t size)
{
    return reinterpret_cast<quintptr>(address) % size == 0;
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
    return isAligned(address, size == 8 ? 4 : size);
}

/// Loads the word at @p source, which isOnWords().
template <std::size_t size>
[[gnu::always_inline]] inline typename Word<size>::Type loadOnWords(const unsigned char *source)
{
    if constexpr (size == 8) {
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
    return isOnWords<size>(source) ? loadOnWords<size>(source) : loadInPieces<size>(source);
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

/// Copies between two addresses that are aligned alike; their ends byte by byte.
template <std::size_t size>
void copyWords(unsigned char *destination, const unsigned char *source, std::size_t count)
{
    const unsigned char *const end = source + count;
    for (; source != end && !isAligned(source, size); ++source, ++destination) {
        storeWord<1>(destination, loadWord<1>(source));
    }
    for (; static_cast<std::size_t>(end - source) >= size; source += size, destination += size) {
        storeWord<size>(destination, loadWord<size>(source));
    }
    for (; source != end; ++source, ++destination) {
        storeWord<1>(destination, loadWord<1>(source));
    }
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

/// Copies between shared buffers that do not overlap, in the largest words (up to 8 bytes) in which
/// both addresses are aligned alike.
inline void copyShared(unsigned char *destination, const unsigned char *source, std::size_t size)
{
    const quintptr difference = reinterpret_cast<quintptr>(destination)
                                ^ reinterpret_cast<quintptr>(source);
    if (difference % 8 == 0) {
        SharedBytes::copyWords<8>(destination, source, size);
    } else if (difference % 4 == 0) {
        SharedBytes::copyWords<4>(destination, source, size);
    } else if (difference % 2 == 0) {
        SharedBytes::copyWords<2>(destination, source, size);
    } else {
        SharedBytes::copyWords<1>(destination, source, size);
    }
}
