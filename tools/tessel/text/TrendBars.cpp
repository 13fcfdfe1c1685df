#include "text/TrendBars.h"

#include <algorithm>
#include <cmath>

namespace {

/// From the blank to the full cell.
QString stepsOf(Characters characters)
{
    return characters == Characters::Unicode
               ? QStringLiteral(" \u2581\u2582\u2583\u2584\u2585\u2586\u2587\u2588")
               : QStringLiteral(" .:#");
}

/// From 1 to @p full.
int heightOf(double value, double least, double most, int full)
{
    // Halves: the distance of the greatest numbers is none.
    const double range = most / 2 - least / 2;
    const double part = range > 0 ? (value / 2 - least / 2) / range : 0.5;
    const auto height = static_cast<int>(std::lround(1 + std::clamp(part, 0.0, 1.0) * (full - 1)));
    return std::clamp(height, 1, full);
}

} // namespace

QStringList trendBars(const QVector<TrendColumn> &columns, double least, double most, int lines,
                      Characters characters)
{
    const QString steps = stepsOf(characters);
    const int perLine = steps.size() - 1;
    QStringList result;
    for (int line = lines - 1; line >= 0; --line) {
        QString text;
        for (const auto &column : columns) {
            if (column.what == TrendColumn::What::Value) {
                const int height = heightOf(column.value, least, most, lines * perLine);
                text += steps[std::clamp(height - line * perLine, 0, perLine)];
            } else {
                const bool isMarked = column.what == TrendColumn::What::Error && line == 0;
                text += QLatin1Char(isMarked ? 'x' : ' ');
            }
        }
        result.append(text);
    }
    return result;
}
