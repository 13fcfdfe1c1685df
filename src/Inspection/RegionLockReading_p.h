#pragma once

#include "Companion/SystemVSemaphoreBaseClass.h"
#include "Inspection/RegionLock.h"

#include <array>
#include <optional>

/// Looks at the semaphores of a region without using them.
class RegionLockReading : private SystemVSemaphoreBaseClass
{
public:
    /// Of the set with the text @p semaphoreKey. @p isOwnerInside: what the lease in the management
    /// block says of its owner.
    static RegionLock read(const QString &semaphoreKey, bool isOwnerInside);
    /// Whether there is a set of semaphores with that text; never for an empty one.
    static bool hasSet(const QString &semaphoreKey);

private:
    /// A set as it was at one moment: it may be changed or removed behind each look.
    struct OwnSet
    {
        int id;
        std::array<unsigned short, SemaphoreCount> values;
    };

    /// None if there is none, or one that belongs to another text.
    static std::optional<OwnSet> findOwnSet(const QString &semaphoreKey);
};
