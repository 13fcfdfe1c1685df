#pragma once

#include "Inspection/RegionFile_p.h"

#include <QByteArray>

#include <optional>
#include <vector>

#include <sys/types.h>

/// The shared memory that a process has mapped.
struct ProcessMappings
{
    struct Mapping
    {
        FileIdentity memory;
        QByteArray path;   ///< that it had when it was mapped
        bool isUnwritable; ///< at one place at least
    };

    /// Of @p process, without what does not lie on @p device. None if it may not be looked at; empty if it
    /// has ended.
    static std::optional<ProcessMappings> of(pid_t process, dev_t device);

    std::vector<Mapping> mappings; ///< each memory once
    /// Of the process in /proc, or of a thread: one whose main thread has ended is told of by another.
    QByteArray folder;
};
