#include "expressions/ExpressionExcerpt.h"

#include "text/Output.h"

#include <algorithm>

namespace {

constexpr int mostBefore = 40;
constexpr int mostBehind = 40;
const QLatin1String cutMark("...");

/// As many columns as characters outside of the basic plane take.
int width(const QString &text)
{
    return text.toUcs4().size();
}

} // namespace

QStringList markedExcerpt(const QString &text, const TextPlace &place)
{
    const int begin = place.begin > mostBefore ? place.begin - mostBefore : 0;
    const int end = std::min(text.size(), place.begin + mostBehind);
    const QString front = begin > 0 ? QString(cutMark) : QString();
    const QString before = front + printable(text.mid(begin, place.begin - begin));
    const QString shown = before + printable(text.mid(place.begin, end - place.begin))
                          + (end < text.size() ? QString(cutMark) : QString());
    const int marked = width(
        printable(text.mid(place.begin, std::min(place.end, end) - place.begin)));
    return {QStringLiteral("  ") + shown,
            QStringLiteral("  ") + QString(width(before), QLatin1Char(' ')) + QLatin1Char('^')
                + QString(std::max(marked - 1, 0), QLatin1Char('~'))};
}

int columnOf(const QString &text, const TextPlace &place)
{
    return width(text.left(place.begin)) + 1;
}
