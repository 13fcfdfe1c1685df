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

/// Loads from @p source into memory that nobody else sees.
template <std::size_t size>
void loadBytes(unsigned char *destination, const unsigned char *source)
{
    if constexpr (size > 1) {
        if (!isAligned(source, size)) {
            loadBytes<size / 2>(destination, source);
            loadBytes<size / 2>(destination + size / 2, source + size / 2);
            return;
        }
    }
    const auto word = loadWord<size>(source);
    std::memcpy(destination, &word, size);
}

/// Stores to @p destination from memory that nobody else sees.
template <std::size_t size>
void storeBytes(unsigned char *destination, const unsigned char *source)
{
    if constexpr (size > 1) {
        if (!isAligned(destination, size)) {
            storeBytes<size / 2>(destination, source);
            storeBytes<size / 2>(destination + size / 2, source + size / 2);
            return;
        }
    }
    typename Word<size>::Type word = 0;
    std::memcpy(&word, source, size);
    storeWord<size>(destination, word);
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

/// The value at an address in a shared buffer, aligned or not.
template <class T>
T loadShared(const unsigned char *source)
{
    static_assert(std::is_trivially_copyable_v<T> && !std::is_same_v<T, bool>,
                  "any bytes must make a value");
    unsigned char bytes[sizeof(T)];
    SharedBytes::loadBytes<sizeof(T)>(bytes, source);
    T value{};
    std::memcpy(&value, bytes, sizeof(T));
    return value;
}

/// Puts the value at an address in a shared buffer, aligned or not.
template <class T>
void storeShared(unsigned char *destination, T value)
{
    static_assert(std::is_trivially_copyable_v<T>);
    unsigned char bytes[sizeof(T)];
    std::memcpy(bytes, &value, sizeof(T));
    SharedBytes::storeBytes<sizeof(T)>(destination, bytes);
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
