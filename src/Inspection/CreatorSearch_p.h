#pragma once

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
};

/// Whether that process runs. None if it may run where this process cannot see it.
std::optional<bool> isAlive(const Creator &creator);

} // namespace CreatorSearch
