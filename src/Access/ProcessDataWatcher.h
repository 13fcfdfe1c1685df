#pragma once

#include "ProcessDataManagement/ProcessDataManager.h"

#include <QtGlobal>

#include <chrono>
#include <memory>

/// Sleeps until a set of a region is published.
///
/// Costs the publisher nothing while nobody waits, and one system call a set while somebody does, which
/// wakes one thread a process: all watchers of a region share the one that sleeps in the kernel. A
/// generation is the number of swaps of the region so far: a program asks for it once, and hands
/// wait() the one that it has seen, so that a set that was published before the call ends it at
/// once. The newest set counts: of several that were published meanwhile a waiter hears once.
///
/// Publishers do not hear of a manager whose access mode is SharedMemory::ReadOnly, and it costs them
/// nothing at all: its watchers, the descriptor too, look for new sets by themselves. They find one at most
/// an eighth of the time late that has gone by since the set before, within 0.2 to 20 milliseconds, and less
/// where sets come regularly.
///
/// Only for double buffers; with a single buffer everything answers NotSupported or 0. The manager
/// must live longer than the watcher, and keep its region. All operations may be called from any
/// thread. In a forked child a watcher of the parent answers NotSupported: make one there.
class TESSEL_EXPORT ProcessDataWatcher
{
public:
    /// Why wait() came back.
    enum class Result {
        NewSet,      ///< the generation is another one than was seen
        TimedOut,    ///< the bound is over
        Stopped,     ///< stop() was called
        RegionGone,  ///< the name of the memory was removed, or leads to a later region
        NotSupported ///< there is no double buffer
    };

    /// Follows the region that @p manager has now.
    explicit ProcessDataWatcher(ProcessDataManager &manager);
    /// Ends every wait and the thread behind getDescriptor().
    ~ProcessDataWatcher();

    ProcessDataWatcher(const ProcessDataWatcher &) = delete;
    ProcessDataWatcher &operator=(const ProcessDataWatcher &) = delete;

    /// How often the region was swapped so far.
    quint64 getGeneration() const;
    /// Sleeps until the generation is another than @p seen, which is then set to it. A negative
    /// @p bound waits without one. Checks once a second whether the region is still there, also while
    /// each call finds a new set. Once it is gone, whoever has not seen the set that was the newest
    /// when that was found out is told of one first; of what is published into it later nobody is.
    ProcessDataWatcher::Result wait(quint64 &seen, std::chrono::milliseconds bound);
    /// Ends all waits, from now on at once as well.
    void stop();

    /// A descriptor for poll() and epoll: readable as soon as there is a set which acknowledge() has
    /// not told yet, beginning with the one that is published already, and for good when the region
    /// is gone or stop() was called. The watcher owns it. -1 if there is none to be had, with the
    /// reason in the log. Starts a thread that waits.
    int getDescriptor();
    /// Makes the descriptor wait for the next set, and tells what it had to say: @p seen as with
    /// wait(), TimedOut if there was no newer set. The thread arms anew only now, so that a slow
    /// program is woken as often as it comes.
    ProcessDataWatcher::Result acknowledge(quint64 &seen);

private:
    class Q_DECL_HIDDEN Private;
    std::unique_ptr<Private> m_private;
};
