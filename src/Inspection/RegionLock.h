#pragma once

#include <QtGlobal>

#include <optional>

/// How it stands with the write lock of a region, at the moment of the look.
struct RegionLock
{
    /// What keeps writers out.
    enum class State {
        /// There are no semaphores for the region, they may not be looked at, or they are those of another
        /// region, which has replaced it.
        Unknown,
        Free, ///< Nobody is inside.
        Kept, ///< A process that writes often keeps the lock, but is outside: nobody waits for it.
        Held  ///< A writer is inside, or a reader who holds writers off.
    };

    /// See State.
    State state = State::Unknown;
    /// Who holds or keeps the lock, as the looking process sees it; none: nobody, or not to be seen.
    std::optional<qint64> holder;
    /// Threads that sleep until somebody leaves.
    int waiters = 0;
    /// Readers inside; of a single buffer only, whose readers keep writers out.
    int readers = 0;
};
