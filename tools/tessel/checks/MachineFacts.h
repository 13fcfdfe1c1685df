#pragma once

#include "checks/SemaphoreTable.h"

#include <QString>

#include <optional>

#include <sys/types.h>

/// How much there is of something, and how much of it is taken.
struct Fill
{
    quint64 taken;
    quint64 most; ///< 0: no limit
};

/// What becomes of the memory and semaphores of a user whose last session ends.
struct RemovedIpc
{
    bool isOn;
    QString file; ///< where it says so
};

/// What of the machine decides whether regions can be made and stay.
///
/// Only reads. What could not be had is an empty optional.
struct MachineFacts
{
    /// `kernel.sem`
    struct SemaphoreLimits
    {
        qint64 perSet;
        qint64 all;
        qint64 operations; ///< in one call
        qint64 sets;
    };

    /// Below @p root stands what is otherwise below /; for what a machine would say that is not this one.
    static MachineFacts of(const QString &root = {});

    std::optional<Fill> memory;       ///< bytes of /dev/shm
    std::optional<Fill> files;        ///< names in /dev/shm
    bool isMemoryReadOnly = false;    ///< the mount of /dev/shm
    std::optional<mode_t> memoryMode; ///< permissions of /dev/shm
    std::optional<SemaphoreLimits> semaphoreLimits;
    std::optional<SemaphoreTable> semaphores;
    /// Whether somebody looks after sessions at all; then removedIpc is what its files say.
    bool hasSessions = false;
    std::optional<RemovedIpc> removedIpc;
    uid_t lastSystemUser; ///< Users up to here are spared, and so is root.
};

/// Whether a user's memory and semaphores stay although his last session has ended: what runs for him
/// goes on without one.
bool lingers(const QString &userName, const QString &root = {});
