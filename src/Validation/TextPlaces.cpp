#include "Validation/TextPlaces_p.h"

#include <algorithm>

TextPlaces::TextPlaces(const QByteArray &text) : m_text(text)
{
    startAnew();
}

void TextPlaces::startAnew()
{
    m_offset = m_text.startsWith("\xef\xbb\xbf") ? 3 : 0;
    m_place = {};
}

TextPlaces::Place TextPlaces::placeOf(int offset)
{
    if (offset < m_offset) {
        startAnew();
    }
    const char *const bytes = m_text.constData();
    const int end = std::min(offset, m_text.size());
    for (; m_offset < end; ++m_offset) {
        if (bytes[m_offset] == '\n') {
            ++m_place.line;
            m_place.column = 1;
        } else if ((static_cast<uchar>(bytes[m_offset]) & 0xc0) != 0x80) {
            // Every byte of a character but its first one continues it.
            ++m_place.column;
        }
    }
    return m_place;
}
