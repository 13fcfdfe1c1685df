#pragma once

#include "torture/SharedLedger.h"

#include <deque>

namespace Torture {

/// How the processes stood at one moment.
struct Sample
{
    qint64 time = 0;
    /// Since the start, in nanoseconds: how long each process was ready to run and got no processor.
    qint64 starved[maximumSlots] = {};
    bool isStopped[maximumSlots] = {};
    int holder = -1; ///< the process inside the exclusive lock, -1 if none is known
    bool isHolderStopped = false;
    qint64 overslept = 0; ///< since the sample before, by which the watchdog itself woke up late
};

/// Which standing still counts as a reason.
enum class Excuse {
    AnyStop, ///< that of the waiting process and that of a holder
    OwnStop  ///< only its own: bounds hold behind a stopped holder as well
};

/// Tells how much of a wait nothing explains.
///
/// Explained is the time in which the waiting process itself or somebody inside the lock was
/// stopped. Of the rest so much is explained as the machine was too busy: the time in which the
/// waiting process, or the one that held the lock, was ready and got no processor, as the kernel
/// counts it for each process, and the time by which the watchdog came too late. The time in which
/// a holder really ran is never explained.
class WaitJudge
{
public:
    /// Samples come in the order of their times.
    void add(const Sample &sample);
    /// Nanoseconds of the wait of @p slot that remain without a reason.
    qint64 unexplained(int slot, qint64 begin, qint64 end, Excuse excuse = Excuse::AnyStop) const;

private:
    std::deque<Sample> m_samples;
};

} // namespace Torture
