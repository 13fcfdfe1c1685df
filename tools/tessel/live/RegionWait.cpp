#include "live/RegionWait.h"

#include "live/LiveRegion.h"

#include <algorithm>
#include <cerrno>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;

/// What is not there yet has no word to sleep on.
constexpr std::chrono::milliseconds pollInterval{20};

/// A single buffer has no count of sets: what is written there is seen at once.
bool isPublished(const RegionInspection &region, const DescriptionSource &description)
{
    return description.isDoubleBuffered() ? region.getSwapCount().value_or(0) > 0
                                          : region.getLock().state != RegionLock::State::Unknown;
}

RegionProgress look(const DescriptionSource &description)
{
    const RegionInspection region(description.root());
    // Between its making and its sizing a region is an empty file.
    if (!region.exists() || region.getError() == EINVAL) {
        return RegionProgress::Missing;
    }
    requireMatchingRegion(region, description);
    return isPublished(region, description) ? RegionProgress::Published : RegionProgress::Silent;
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
        std::this_thread::sleep_for(std::min<Clock::duration>(left, pollInterval));
    }
}
