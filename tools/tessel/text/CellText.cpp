#include "text/CellText.h"

#include "text/Output.h"

#include <QVector>

#include <algorithm>
#include <cwchar>

#include <langinfo.h>

namespace {

constexpr uint lastAscii = 0x7e;

QString escapeOf(uint character)
{
    return character > 0xffff ? QStringLiteral("\\U%1").arg(character, 8, 16, QLatin1Char('0'))
                              : QStringLiteral("\\u%1").arg(character, 4, 16, QLatin1Char('0'));
}

int widthOf(uint character)
{
    return character <= lastAscii ? 1 : std::max(::wcwidth(static_cast<wchar_t>(character)), 1);
}

/// As much from the beginning as fits.
QString cutTo(const QString &text, int cells)
{
    const QVector<uint> characters = text.toUcs4();
    int count = 0;
    for (int used = 0; count < characters.size(); ++count) {
        used += widthOf(characters[count]);
        if (used > cells) {
            break;
        }
    }
    return QString::fromUcs4(characters.constData(), count);
}

QString shortened(const QString &text, int cells, Characters characters)
{
    if (cells <= 0) {
        return {};
    }
    if (cellWidth(text) <= cells) {
        return text;
    }
    constexpr ushort ellipsis = 0x2026;
    const QChar mark = characters == Characters::Unicode ? QChar(ellipsis) : QLatin1Char('~');
    return cutTo(text, cells - 1) + mark;
}

QString blanksFor(const QString &text, int cells)
{
    return QString(std::max(cells - cellWidth(text), 0), QLatin1Char(' '));
}

} // namespace

Characters charactersOfLocale()
{
    // NOLINTNEXTLINE(concurrency-mt-unsafe): glibc's is, while nobody sets the locale; Qt does once, at the start.
    return QLatin1String(nl_langinfo(CODESET)) == QLatin1String("UTF-8") ? Characters::Unicode
                                                                         : Characters::Ascii;
}

QString cellText(const QString &text, Characters characters)
{
    // An accent of its own becomes one character with its letter where there is such a one.
    const QVector<uint> all = printable(text.normalized(QString::NormalizationForm_C)).toUcs4();
    QString result;
    result.reserve(all.size());
    for (const uint character : all) {
        if (character <= lastAscii) {
            result += QChar(character);
        } else if (characters == Characters::Ascii) {
            result += QLatin1Char('?');
        } else if (::wcwidth(static_cast<wchar_t>(character)) <= 0) {
            result += escapeOf(character);
        } else {
            result += QString::fromUcs4(&character, 1);
        }
    }
    return result;
}

int cellWidth(const QString &text)
{
    const QVector<uint> characters = text.toUcs4();
    int width = 0;
    for (const uint character : characters) {
        width += widthOf(character);
    }
    return width;
}

QString leftInCells(const QString &text, int cells, Characters characters)
{
    const QString shown = shortened(text, cells, characters);
    return shown + blanksFor(shown, cells);
}

QString rightInCells(const QString &text, int cells, Characters characters)
{
    const QString shown = shortened(text, cells, characters);
    return blanksFor(shown, cells) + shown;
}
