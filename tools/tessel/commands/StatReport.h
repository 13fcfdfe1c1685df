#pragma once

#include "live/SetStatistics.h"

#include <QString>
#include <QStringList>

/// All that `tessel stat` has seen of a region.
struct StatReport
{
    QString key;
    SetStatistics sets;
    std::chrono::microseconds time{0}; ///< for which it was watched
    quint64 reads = 0;                 ///< sets that were read as a reader does
    quint64 repeats = 0;               ///< that had to be read again
    quint64 looks = 0;                 ///< at the write lock
    quint64 waits = 0;                 ///< looks at which somebody waited for it
};

/// For people, with bars of at most @p columns characters a line; of @p mark each.
QStringList linesOf(const StatReport &report, int columns, QChar mark);
/// For programs.
QString jsonOf(const StatReport &report);
