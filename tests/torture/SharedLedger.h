#pragma once

#include <QtGlobal>

#include <atomic>
#include <cstddef>

namespace Torture {

constexpr int maximumPeers = 8; ///< that write and read
constexpr int maximumWaiters = 4;
constexpr int maximumSlots = maximumPeers + maximumWaiters;
constexpr int textCapacity = 400;
constexpr quint32 callCapacity = 64;
constexpr quint64 regionCapacity = 16;

/// What a process is there for.
enum class Role : quint32 {
    Creator,
    BulkWriter,
    SingleWriter,
    BulkReader,
    SingleReader,
    Waiter,
    Poller ///< waits through the descriptor of a watcher
};

/// Where a process is, for whoever has to judge its sleep or its death.
enum class Phase : quint32 {
    Outside,
    Calling, ///< in a call of the library that may wait for a lock
    Reading, ///< between lock and unlock
    Writing
};

/// Faults on purpose, each to see that it is found.
enum class Plant : quint32 {
    None,
    Mixed,      ///< one leaf of a set belongs to another set
    Backward,   ///< a set from before is written again
    Nobody,     ///< a set with a number that was never given out
    Wait,       ///< a writer stays inside its lock
    Beyond,     ///< a call behind a stopped holder lasts longer than its bound
    Hang,       ///< a call does not come back
    Starved,    ///< a reader has to repeat again and again
    Refused,    ///< the semaphores disappear
    Detached,   ///< the segment disappears under a process that attaches
    Signal,     ///< a process dies by a signal of its own
    Exit,       ///< a process ends without being asked
    Segment,    ///< the creator ends without removing anything
    Semaphores, ///< a set of semaphores stays
    Stubborn,   ///< a process does not end when it is asked
    Unwoken,    ///< publishers wake nobody
    Belated,    ///< publishers wake when they are done long since
    Unarmed,    ///< an acknowledgement does not tell the publishers that somebody sleeps
    Late,       ///< a waiter goes on sleeping beside a new set
    // Of the modes.
    Halved,    ///< a value of eight bytes is written in two halves
    Locked,    ///< a lock outlives its process
    Unwarned,  ///< nobody says that a finished set was lost
    Accepted,  ///< a read that has to be repeated says that it is whole
    Forgotten, ///< a swap says true although the set was taken back
    Shared,    ///< a writer comes in beside a reader
    Inherited, ///< a child sees the lock of its parent
    Unlinked,  ///< a child removes the name of its parent's memory
    Kept,      ///< a lock stays with a process that has died
    Twice,     ///< the same with the second one that dies
    Uncleared, ///< a lease lives on in the semaphores when it was taken away
    LeftOver   ///< a lease begins while the semaphores still have another one
};

/// A call that took long. Times in nanoseconds of the steady clock.
struct LongCall
{
    qint64 begin;
    qint64 end;
    quint32 phase; ///< reading or writing
};

/// A wait for a set that was long. Times in nanoseconds of the steady clock.
struct LongWait
{
    qint64 begin;
    qint64 end;
    quint64 region; ///< generation in the ledger
    quint64 seen;   ///< the number of swaps that the waiter had seen
};

/// What a waiter tells, and what those who publish meanwhile tell it.
struct WaitEntry
{
    std::atomic<qint64> begin; ///< 0 outside waits; what follows belongs to this wait
    std::atomic<quint64> region;
    std::atomic<quint64> seen;
    /// The number of a sleep in the kernel, and when the first set was published to the end since it
    /// began: see SleepNote.
    std::atomic<quint64> sleep;
    /// Which sets are to end that sleep: see WakeDue.
    std::atomic<quint64> due;

    std::atomic<quint32> waitCount;
    LongWait waits[callCapacity]; ///< a ring

    std::atomic<quint64> setsAwaited;
    std::atomic<quint64> setsPolled;   ///< of them through a descriptor
    std::atomic<quint64> waitsBesides; ///< that began while the thread behind a descriptor rested
    std::atomic<quint64> sleeps;
    std::atomic<quint64> slices; ///< sleeps that ran out beside a new set
};

/// What one process tells about itself. Only that process writes it while it lives.
struct PeerEntry
{
    std::atomic<bool> isAskedToEnd;
    std::atomic<Phase> phase;
    std::atomic<qint64> callBegin; ///< 0 outside calls
    std::atomic<quint32> callCount;
    LongCall calls[callCapacity]; ///< a ring

    std::atomic<quint64> setsWritten;
    std::atomic<quint64> valuesWritten;
    std::atomic<quint64> setsRead;
    std::atomic<quint64> valuesRead;
    std::atomic<quint64> repeats;
    std::atomic<quint64> longestStreak; ///< attempts for one set
    std::atomic<quint64> refusedLocks;
    std::atomic<quint64> refusedSwaps;
    std::atomic<quint64> regions; ///< attached or made
    std::atomic<quint64> phasesAlone;
    /// The region in which it may have swapped and not woken yet; 0: none.
    std::atomic<quint64> publishing;
    WaitEntry wait;

    std::atomic<bool> hasFailed;
    char failure[textCapacity];
    char lastMessage[textCapacity]; ///< of the library
};

struct RegionEntry
{
    /// Single buffers only: groups whose writer has begun and not ended. Changed and read under the
    /// locks of the region that they belong to.
    std::atomic<bool> isIncomplete[2];
    /// Of its memory, for whoever knows the name only.
    std::atomic<quint64> inode;
    /// So many swaps at least were there when somebody last died who may not have woken for his own.
    std::atomic<quint64> brokenThrough;
};

/// Memory between the driver and all its processes, which outlives each of them. All zero at first.
struct Ledger
{
    /// Odd while a creator is at work, even and above zero while others may attach.
    std::atomic<quint64> generation;
    /// Sets that were given a number.
    std::atomic<quint64> setCount;
    /// Processes that the driver killed.
    std::atomic<quint64> killCount;
    std::atomic<bool> isEnding;
    /// So long the other writers leave one alone, whatever has become of it: the write lock stays with
    /// it meanwhile.
    std::atomic<qint64> aloneUntil;
    std::atomic<int> lonelySlot;
    /// For Plant::Beyond: somebody stands still inside the lock.
    std::atomic<bool> isHolderCaught;
    Plant plant;
    Role roles[maximumSlots];
    int peerCount; ///< without waiters
    int slotCount; ///< waiters have the last ones
    RegionEntry regions[regionCapacity];
    PeerEntry peers[maximumSlots];

    RegionEntry &region(quint64 number) { return regions[number / 2 % regionCapacity]; }
};

/// Nanoseconds of a clock that nobody sets and that all processes share.
qint64 steadyNow();
void sleepFor(qint64 nanoseconds);

constexpr qint64 millisecond = 1000000;
constexpr qint64 second = 1000 * millisecond;

/// The mapping of a ledger that lies in memory without a name.
class LedgerMapping
{
public:
    /// Makes a new one.
    LedgerMapping();
    /// Maps the one behind an inherited descriptor, which is taken over.
    explicit LedgerMapping(int fd);
    ~LedgerMapping();

    LedgerMapping(const LedgerMapping &) = delete;
    LedgerMapping &operator=(const LedgerMapping &) = delete;

    int fd() const { return m_fd; }
    Ledger &operator*() const { return *m_ledger; }
    Ledger *operator->() const { return m_ledger; }

private:
    void map();

    int m_fd;
    Ledger *m_ledger = nullptr;
};

const char *roleName(Role role);

} // namespace Torture
