#pragma once

#include "Companion/SystemVSemaphoreBaseClass.h"
#include "Inspection/RegionLock.h"

/// Looks at the semaphores of a region without using them.
class RegionLockReading : private SystemVSemaphoreBaseClass
{
public:
    /// Of the set with the text @p semaphoreKey. @p isOwnerInside: what the lease in the management
    /// block says of its owner.
    static RegionLock read(const QString &semaphoreKey, bool isOwnerInside);
    /// Whether there is a set of semaphores with that text.
    static bool hasSet(const QString &semaphoreKey);

private:
    static int findOwnSet(const QString &semaphoreKey);
};
