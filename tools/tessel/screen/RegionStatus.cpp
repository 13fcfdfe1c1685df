#include "screen/RegionStatus.h"

#include "live/RegionText.h"

namespace {

/// As `tessel explain` judges it; a publisher whose interval is not known yet gets longer.
bool isSilent(const RegionFacts &facts)
{
    constexpr qint64 shortest = 2000;
    constexpr qint64 longestUnknown = 10000;
    constexpr qint64 mostIntervals = 5;
    if (!facts.age || *facts.age <= shortest) {
        return false;
    }
    return facts.usualInterval ? *facts.age / mostIntervals > *facts.usualInterval
                               : *facts.age > longestUnknown;
}

} // namespace

RegionStatus statusOf(const RegionFacts &facts)
{
    using Level = RegionStatus::Level;
    if (!facts.absence.isEmpty()) {
        return {Level::Bad, facts.absence + QStringLiteral("; waiting for it to come back")};
    }
    if (isSilent(facts)) {
        const QString usual =
            facts.usualInterval
                ? QStringLiteral(", usually every %1").arg(durationText(*facts.usualInterval))
                : QString();
        return {Level::Bad,
                QStringLiteral("publisher silent for %1%2").arg(durationText(*facts.age), usual)};
    }
    if (!facts.hindrance.isEmpty()) {
        return {Level::Doubtful, facts.hindrance};
    }
    if (facts.deadCreator) {
        return {Level::Doubtful,
                QStringLiteral("live, but its creator %1 has died").arg(*facts.deadCreator)};
    }
    return {Level::Good, QStringLiteral("live")};
}
