#include "commands/StatReport.h"

#include "live/RegionText.h"
#include "text/Counted.h"
#include "text/JsonText.h"

#include <algorithm>

namespace {

using Interval = SetStatistics::Interval;

constexpr int bars = 10;

double millisecondsOf(Interval interval)
{
    return std::chrono::duration<double, std::milli>(interval).count();
}

double secondsOf(std::chrono::microseconds time)
{
    return std::chrono::duration<double>(time).count();
}

QString intervalText(const std::optional<Interval> &interval)
{
    return interval ? QStringLiteral("%1 ms").arg(millisecondsOf(*interval), 0, 'f', 3)
                    : QStringLiteral("-");
}

QString jsonInterval(const std::optional<Interval> &interval)
{
    return interval ? QString::number(millisecondsOf(*interval), 'f', 3) : jsonNull();
}

double rateOf(const StatReport &report)
{
    return report.time.count() > 0 ? double(report.sets.sets()) / secondsOf(report.time) : 0;
}

QStringList histogram(const StatReport &report, int columns, QChar mark)
{
    const QVector<SetStatistics::Bar> all = report.sets.bars(bars);
    quint64 highest = 0;
    int countWidth = 1;
    for (const auto &bar : all) {
        highest = std::max(highest, bar.count);
        countWidth = std::max(countWidth, QString::number(bar.count).size());
    }
    constexpr int intervalWidth = 14;
    const int width = std::max(columns - intervalWidth - countWidth - 2, 1);
    QStringList lines;
    for (const auto &bar : all) {
        // Whatever was seen shows.
        const auto length = static_cast<int>((bar.count * quint64(width) + highest - 1) / highest);
        const QString line = QStringLiteral("%1 %2 %3")
                                 .arg(intervalText(bar.from), intervalWidth)
                                 .arg(bar.count, countWidth)
                                 .arg(QString(length, mark));
        lines.append(length == 0 ? line.chopped(1) : line);
    }
    return lines;
}

} // namespace

QStringList linesOf(const StatReport &report, int columns, QChar mark)
{
    const SetStatistics &sets = report.sets;
    QStringList lines{
        QStringLiteral("%1: %2 in %3 s, %4 sets/s")
            .arg(report.key, counted(sets.sets(), QStringLiteral("set"), QStringLiteral("sets")),
                 QString::number(secondsOf(report.time), 'f', 1),
                 QString::number(rateOf(report), 'f', 1)),
        QStringLiteral("Interval  min %1, median %2, max %3, jitter %4")
            .arg(intervalText(sets.least()), intervalText(sets.median()), intervalText(sets.most()),
                 intervalText(sets.jitter())),
        QStringLiteral("Missed    %1 in ").arg(sets.missed())
            + counted(sets.wakes(), QStringLiteral("wake"), QStringLiteral("wakes")),
        QStringLiteral("Repeats   %1 in ").arg(report.repeats)
            + counted(report.reads, QStringLiteral("read"), QStringLiteral("reads")),
        QStringLiteral("Waits     %1 in ").arg(report.waits)
            + counted(report.looks, QStringLiteral("look"), QStringLiteral("looks"))
            + QStringLiteral(" at the lock"),
    };
    const QStringList drawn = histogram(report, columns, mark);
    return drawn.isEmpty() ? lines : lines + QStringList(QString()) + drawn;
}

QString jsonOf(const StatReport &report)
{
    const SetStatistics &sets = report.sets;
    QStringList drawn;
    const QVector<SetStatistics::Bar> all = sets.bars(bars);
    for (const auto &bar : all) {
        drawn.append(jsonObject({{QStringLiteral("from"), jsonInterval(bar.from)},
                                 {QStringLiteral("count"), QString::number(bar.count)}}));
    }
    return jsonObject({
        {QStringLiteral("key"), jsonString(report.key)},
        {QStringLiteral("seconds"), QString::number(secondsOf(report.time), 'f', 3)},
        {QStringLiteral("sets"), QString::number(sets.sets())},
        {QStringLiteral("setsPerSecond"), QString::number(rateOf(report), 'f', 3)},
        {QStringLiteral("wakes"), QString::number(sets.wakes())},
        {QStringLiteral("missed"), QString::number(sets.missed())},
        {QStringLiteral("intervalMin"), jsonInterval(sets.least())},
        {QStringLiteral("intervalMedian"), jsonInterval(sets.median())},
        {QStringLiteral("intervalMax"), jsonInterval(sets.most())},
        {QStringLiteral("jitter"), jsonInterval(sets.jitter())},
        {QStringLiteral("reads"), QString::number(report.reads)},
        {QStringLiteral("repeats"), QString::number(report.repeats)},
        {QStringLiteral("looks"), QString::number(report.looks)},
        {QStringLiteral("waits"), QString::number(report.waits)},
        {QStringLiteral("histogram"),
         QLatin1Char('[') + drawn.join(QStringLiteral(", ")) + QLatin1Char(']')},
    });
}
