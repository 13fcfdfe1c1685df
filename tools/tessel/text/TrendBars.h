#pragma once

#include "text/CellText.h"

#include <QStringList>
#include <QVector>

/// One column of a trend on a terminal.
struct TrendColumn
{
    enum class What {
        Nothing, ///< Not known at that time.
        Value,
        Error ///< There was a state other than valid, which leaves a gap with a mark.
    };

    What what = What::Nothing;
    double value = 0;
};

/// Bars from @p least to @p most in so many lines, the uppermost first, a character a column: of eight steps a
/// line, or of three in ASCII. The least value still has a step.
QStringList trendBars(const QVector<TrendColumn> &columns, double least, double most, int lines,
                      Characters characters);
