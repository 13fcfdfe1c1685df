#pragma once

#include "Access/ReadPlant.h"
#include "support/StoppedProcess.h"

#include <optional>

/// Goes into the write lock with half a set, and leaves it when it is told to.
inline ChildProcess::Body staysInside(const ReadPlant &plant)
{
    return [&plant](const ChildSide &parent) {
        LogCapture log;
        LiveRegion writer(plant, attach);
        ProcessDataWriteGuard guard(writer.manager);
        CHILD_VERIFY(guard.isLocked());
        CHILD_VERIFY(writer.leaf(number)->setValueNoLock(valid(2)));
        parent.say();
        parent.waitForWord();
        CHILD_VERIFY(guard.publish());
        return 0;
    };
}

/// Publishes as often as makes the lock stay with it, and stays outside, or inside with half a set.
inline ChildProcess::Body keepsTheLock(const ReadPlant &plant, bool isInside)
{
    return [&plant, isInside](const ChildSide &parent) {
        LogCapture log;
        LiveRegion writer(plant, attach);
        for (int i = 0; i < 100; ++i) {
            CHILD_VERIFY(publish(writer, 1));
        }
        std::optional<ProcessDataWriteGuard> guard;
        if (isInside) {
            guard.emplace(writer.manager);
            CHILD_VERIFY(writer.leaf(number)->setValueNoLock(valid(2)));
        }
        parent.say();
        parent.waitForWord();
        return !isInside || guard->publish() ? 0 : 1;
    };
}

inline int numberIn(LiveRegion &region)
{
    ProcessValue value(ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
    region.leaf(number)->getValue(value);
    return value.getValue().toInt();
}
