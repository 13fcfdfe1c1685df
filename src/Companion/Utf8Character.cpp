#include "Companion/Utf8Character_p.h"

namespace {

/// The bounds of the byte behind @p first, which keep longer forms than needed, surrogates and what is
/// above the last character out.
bool isSecondByte(uchar first, uchar second)
{
    switch (first) {
    case 0xe0: return second >= 0xa0 && second <= 0xbf;
    case 0xed: return second >= 0x80 && second <= 0x9f;
    case 0xf0: return second >= 0x90 && second <= 0xbf;
    case 0xf4: return second >= 0x80 && second <= 0x8f;
    default: return second >= 0x80 && second <= 0xbf;
    }
}

int sizeByFirstByte(uchar first)
{
    if (first < 0xc2 || first > 0xf4) {
        return 0;
    }
    return first < 0xe0 ? 2 : (first < 0xf0 ? 3 : 4);
}

} // namespace

int Utf8Character::sizeOf(const char *at, const char *end)
{
    const auto first = static_cast<uchar>(*at);
    const int size = sizeByFirstByte(first);
    if (size == 0 || end - at < size || !isSecondByte(first, static_cast<uchar>(at[1]))) {
        return 0;
    }
    for (int i = 2; i < size; ++i) {
        if ((static_cast<uchar>(at[i]) & 0xc0) != 0x80) {
            return 0;
        }
    }
    return size;
}

uint Utf8Character::codePoint(const char *at, int size)
{
    // What the first byte has to give behind the marks of the size.
    uint character = static_cast<uchar>(*at) & (0xffU >> (size + 1));
    for (int i = 1; i < size; ++i) {
        character = (character << 6) | (static_cast<uchar>(at[i]) & 0x3fU);
    }
    return character;
}
