#pragma once

#include <QtGlobal>

#include <optional>

#include <sys/types.h>

/// Looks for the process that made a region.
namespace CreatorSearch {

/// Whether the process runs that has the id @p pid in its own namespace and was started at @p start, as
/// /proc/PID/stat says it. None if it may run where this process cannot see it.
std::optional<bool> isAlive(pid_t pid, quint64 start);

} // namespace CreatorSearch
