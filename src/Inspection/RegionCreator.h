#pragma once

#include <QtGlobal>

#include <optional>

/// Who made a region. Only the management block of a double buffer says it.
struct RegionCreator
{
    /// Process id in the creator's own namespace of them, above 0; none: unknown.
    std::optional<qint64> pid;
    /// Whether that process still runs: by its id and the time of its start, since ids come back. None:
    /// unknown, or not to be seen by this process, or in another time namespace, where starts are told
    /// otherwise.
    std::optional<bool> isAlive;
};
