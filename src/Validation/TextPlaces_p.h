#pragma once

#include <QByteArray>

/// Line and column of a byte of a UTF-8 text, both from 1.
///
/// A line ends at a line feed. Columns count characters, of which a byte order mark at the beginning of the
/// text is none. Bytes that are asked for in ascending order are found without going back. Not thread-safe.
class TextPlaces
{
public:
    struct Place
    {
        int line = 1;
        int column = 1;
    };

    explicit TextPlaces(const QByteArray &text);

    /// An offset behind the end stands for the end.
    Place placeOf(int offset);

private:
    void startAnew();

    QByteArray m_text;
    int m_offset = 0;
    Place m_place;
};
