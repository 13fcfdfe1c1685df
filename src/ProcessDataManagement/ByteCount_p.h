#pragma once

#include <QtGlobal>

/// Arithmetic on offsets and sizes, which descriptions hold as 32-bit signed numbers.
namespace ByteCount {

/// The sum, wrapped around beyond 32 bits: absurd numbers in a file must not be undefined
/// behaviour, and what comes of them is refused when the memory is made.
inline int addWrapping(int left, int right)
{
    return static_cast<int>(static_cast<unsigned int>(left) + static_cast<unsigned int>(right));
}

/// The next multiple of 4; a multiple stays as it is.
inline int roundUpToFour(int count)
{
    const unsigned int remainder = static_cast<unsigned int>(count) % 4;
    return remainder == 0 ? count : addWrapping(count, static_cast<int>(4 - remainder));
}

} // namespace ByteCount
