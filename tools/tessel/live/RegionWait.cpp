#include "live/RegionWait.h"

#include "Access/ProcessDataWatcher.h"
#include "live/LiveRegion.h"
#include "regions/DescribedRegion.h"
#include "text/Failure.h"

#include <algorithm>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;

/// What is not there yet has no word to sleep on, and a single buffer has none at all.
constexpr std::chrono::milliseconds pollInterval{20};

/// A single buffer has no count of sets: what is written there is seen at once.
bool isPublished(const RegionInspection &region, const DescriptionSource &description)
{
    return description.isDoubleBuffered() ? region.getSwapCount().value_or(0) > 0
                                          : region.getLock().state != RegionLock::State::Unknown;
}

RegionProgress look(const DescriptionSource &description)
{
    // What the description says of its leaves is worth a look only where there is something to compare.
    if (DescribedRegion::isMissing(RegionInspection(description.key()), description.key())) {
        return RegionProgress::Missing;
    }
    const RegionInspection region(description.root());
    if (DescribedRegion::isMissing(region, description.key())) {
        return RegionProgress::Missing;
    }
    if (hasOtherFormat(region)) {
        refuseFormat(description);
    }
    requireMatchingRegion(region, description);
    return isPublished(region, description) ? RegionProgress::Published : RegionProgress::Silent;
}

/// Whether its management block is complete, so that there is somebody to hear from.
bool tellsOfSets(const DescriptionSource &description)
{
    return description.isDoubleBuffered()
           && RegionInspection(description.key()).getSwapCount().has_value();
}

/// Until the first set, or until the region is replaced.
void sleepUntilTold(const DescriptionSource &description, Clock::duration bound)
{
    try {
        LiveRegion region(description, LiveRegion::Opening::Read);
        ProcessDataWatcher watcher(region.manager());
        quint64 seen = 0;
        watcher.wait(seen, std::chrono::ceil<std::chrono::milliseconds>(bound));
    } catch (const Failure &) {
        // It may have gone since it was looked at, and then it is missing again.
        if (RegionInspection(description.key()).exists()) {
            throw;
        }
    }
}

} // namespace

RegionProgress waitUntilPublished(const DescriptionSource &description, Clock::time_point deadline)
{
    while (true) {
        const RegionProgress progress = look(description);
        const Clock::duration left = deadline - Clock::now();
        if (progress == RegionProgress::Published || left <= Clock::duration::zero()) {
            return progress;
        }
        if (progress == RegionProgress::Silent && tellsOfSets(description)) {
            sleepUntilTold(description, left);
        } else {
            std::this_thread::sleep_for(std::min<Clock::duration>(left, pollInterval));
        }
    }
}
