#include "recordings/Crc32.h"

#include <array>

namespace {

constexpr std::size_t lanes = 8;
using Tables = std::array<std::array<quint32, 256>, lanes>;

constexpr Tables makeTables()
{
    Tables made{};
    for (quint32 byte = 0; byte < 256; ++byte) {
        quint32 rest = byte;
        for (int bit = 0; bit < 8; ++bit) {
            rest = (rest & 1U) != 0 ? 0xEDB88320U ^ (rest >> 1U) : rest >> 1U;
        }
        made[0][byte] = rest;
    }
    for (std::size_t lane = 1; lane < lanes; ++lane) {
        for (std::size_t byte = 0; byte < 256; ++byte) {
            const quint32 former = made[lane - 1][byte];
            made[lane][byte] = made[0][former & 0xFFU] ^ (former >> 8U);
        }
    }
    return made;
}

constexpr Tables tables = makeTables();

} // namespace

quint32 crc32(const void *bytes, std::size_t size, quint32 former)
{
    const auto *byte = static_cast<const unsigned char *>(bytes);
    quint32 rest = ~former;
    // Eight bytes a step: one at a time would be felt with every set of a large device.
    for (; size >= lanes; size -= lanes, byte += lanes) {
        const quint32 low = rest
                            ^ (quint32(byte[0]) | quint32(byte[1]) << 8U | quint32(byte[2]) << 16U
                               | quint32(byte[3]) << 24U);
        rest = tables[7][low & 0xFFU] ^ tables[6][(low >> 8U) & 0xFFU]
               ^ tables[5][(low >> 16U) & 0xFFU] ^ tables[4][low >> 24U] ^ tables[3][byte[4]]
               ^ tables[2][byte[5]] ^ tables[1][byte[6]] ^ tables[0][byte[7]];
    }
    for (; size > 0; --size, ++byte) {
        rest = tables[0][(rest ^ *byte) & 0xFFU] ^ (rest >> 8U);
    }
    return ~rest;
}
