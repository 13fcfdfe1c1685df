#pragma once

#include "Access/NumberRegion.h"
#include "Access/ProcessDataGuards.h"
#include "Access/ProcessDataWatcher.h"
#include "support/FutexCalls.h"

#include <thread>

/// A region of one number, to publish sets and to wait for them.
struct WatchedRegion
{
    explicit WatchedRegion(bool hasDoubleBuffer = true) : description(8, hasDoubleBuffer)
    {
        description.leaves.insert(QStringLiteral("number"), int32Slot(0));
        region = std::make_unique<LiveRegion>(description);
    }

    bool publish(int number = 1) { return publishThrough(*region, number); }
    static bool publishThrough(LiveRegion &live, int number)
    {
        ProcessDataWriteGuard guard(live.manager);
        live.leaf(QStringLiteral("number"))
            ->setValueNoLock(ProcessValue(QVariant(number),
                                          ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID));
        return guard.publish();
    }
    ProcessDataManager &manager() { return region->manager; }

    ProcessDescription description;
    std::unique_ptr<LiveRegion> region;
};

constexpr std::chrono::seconds longBound{60};

/// Until @p condition holds; false after a time that no honest run takes.
template <class Condition>
bool waitFor(const Condition &condition)
{
    const auto begin = std::chrono::steady_clock::now();
    while (!condition()) {
        if (std::chrono::steady_clock::now() - begin > longBound) {
            return false;
        }
        std::this_thread::yield();
    }
    return true;
}
