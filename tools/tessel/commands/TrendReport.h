#pragma once

#include "live/ValueTrend.h"
#include "text/CellText.h"
#include "values/LeafSlot.h"

#include <QString>
#include <QStringList>
#include <QVector>

/// All that `tessel trend` has seen.
struct TrendReport
{
    struct Course
    {
        Leaf leaf;
        ValueTrend trend;
    };

    QString key;
    QVector<TrendReport::Course> courses;
    ValueTrend::Time time{0}; ///< for which it was watched
};

/// For people: of each value a line of figures, and bars in @p barLines lines below.
QStringList linesOf(const TrendReport &report, int columns, int barLines, Characters characters);
/// For scripts: of each set a line with the values alone and tabs between.
QString terseText(const TrendReport &report);
/// For programs.
QString jsonOf(const TrendReport &report);
/// As SVG, a field a value.
QByteArray pictureOf(const TrendReport &report);
