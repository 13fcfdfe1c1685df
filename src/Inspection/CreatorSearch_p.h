#pragma once

#include "Inspection/ProcessList_p.h"

#include <QtGlobal>

#include <optional>

#include <sys/types.h>

/// Looks for the process that made a region.
namespace CreatorSearch {

/// What a creator leaves of itself.
struct Creator
{
    pid_t pid;            ///< in its own namespace
    quint64 start;        ///< as /proc/PID/stat says it; 0: unknown
    quint64 pidNamespace; ///< inode of /proc/PID/ns/pid; 0: unknown

    bool operator==(const Creator &other) const
    {
        return pid == other.pid && start == other.start && pidNamespace == other.pidNamespace;
    }
};

/// Whether that process, which ran at @p time or before, still does. None if it may run where this process
/// cannot see it.
std::optional<bool> isAlive(const Creator &creator, ProcessList::Clock::time_point time);

} // namespace CreatorSearch
