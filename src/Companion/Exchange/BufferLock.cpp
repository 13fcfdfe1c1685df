#include "Companion/Exchange/BufferLock_p.h"
#include "Companion/Exchange/Identity_p.h"
#include "Companion/Exchange/MappedName_p.h"
#include "Companion/Exchange/ShortWait_p.h"

#include <QDebug>

#include <algorithm>
#include <ctime>
#include <thread>

#include <sys/sem.h>

namespace {

using Milliseconds = std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

/// A process that waits for the owner of a lease looks so often whether he was stopped between leaving
/// and seeing that somebody waits.
constexpr Milliseconds waitingSlice{20};

/// As long as it takes to be woken. Each look is a system call, for which the holder may have to wait.
constexpr std::chrono::nanoseconds shortestPause{250};
constexpr std::chrono::nanoseconds longestPause{2000};
constexpr std::chrono::nanoseconds pausesBeforeSleep{16000};

/// From one attempt to join a set to the next.
constexpr Milliseconds setPause{1};

/// An owner does not hear of a set that somebody removes by hand. It looks so often, while it locks.
constexpr qint64 setLookInterval = 100;

/// A clock that costs no more than a load.
qint64 coarseMilliseconds()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return qint64{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

/// The places among the readers that a thread has itself.
short placesOf(BufferLock::OwnReading own)
{
    return own == BufferLock::OwnReading::WithPlace ? 1 : 0;
}

} // namespace

BufferLock::BufferLock(const QString &key, CreationType type, const void *memory,
                       WriteLease::Words *lease)
    : SystemVSemaphoreBaseClass(key, type)
    , m_key(key)
    , m_memory(memory)
    , m_lease(lease)
{
    if (type == CreationTypeCreate && isValid()) {
        m_lease.setSemaphores(setId());
    }
}

BufferLock::~BufferLock()
{
    if (!belongsToThisProcess()) {
        return;
    }
    if (m_depth.load(std::memory_order_relaxed) > 0) {
        if (m_isByLease.load(std::memory_order_relaxed)) {
            giveLeaseBack();
        } else {
            giveBackExclusive();
        }
    }
    // A lease that nobody is inside by delays nobody, and its word may be gone with the memory.
    for (int i = m_sharedCount.load(std::memory_order_relaxed); i > 0; --i) {
        unlockShared();
    }
}

bool BufferLock::lock(std::chrono::milliseconds bound)
{
    if (isHeldHere()) {
        changeDepth(1);
        return true;
    }
    const bool isByLease = enterByLease();
    if (!isByLease) {
        m_inside.fetch_add(1);
        if (report(takeWriteLock(bound)) != Outcome::Done) {
            m_inside.fetch_sub(1);
            return false;
        }
    }
    m_isByLease.store(isByLease, std::memory_order_relaxed);
    becomeHolder();
    return true;
}

bool BufferLock::enterByLease()
{
    if (!m_lease.enter()) {
        return false;
    }
    const qint64 now = coarseMilliseconds();
    const bool isFresh = now - m_lastLookAtSet.load(std::memory_order_relaxed) < setLookInterval;
    if (!m_lease.isClosed() && (isFresh || isThere(m_leaseSet))) {
        if (!isFresh) {
            m_lastLookAtSet.store(now, std::memory_order_relaxed);
        }
        return true;
    }
    // Now the semaphores say what became of the region.
    m_lease.forget();
    giveLeaseBack();
    return false;
}

void BufferLock::leaveByLease()
{
    if (m_lease.leave() == WriteLease::Leaving::GiveBack) {
        giveLeaseBack();
    }
}

/// In the set in which it was taken: this object may be about to join another one.
void BufferLock::giveLeaseBack()
{
    sembuf operation{SemaphoreLease, -1, SEM_UNDO};
    operateOn(m_leaseSet, &operation, 1, Milliseconds::zero());
}

/// Gives the write semaphore back and goes on owning the lock. False if nothing has changed.
bool BufferLock::makeLease()
{
    // Before the word: of an owner whose lease was taken away by a process that died over it, the
    // semaphore may still be 1. Behind the word, a second death would leave all others waiting for it.
    clearLeaseSemaphore();
    m_leaseSet = setId();
    m_lease.begin(m_leaseSet);
    sembuf operations[] = {
        {SemaphoreLease, 0, 0}, {SemaphoreLease, 1, SEM_UNDO}, {SemaphoreWriteLock, -1, SEM_UNDO}};
    if (operate(operations, 3, Milliseconds::zero()) != Outcome::Done) {
        m_lease.forget();
        m_lease.clearLeftOver();
        return false;
    }
    m_lastLookAtSet.store(coarseMilliseconds(), std::memory_order_relaxed);
    leaveByLease();
    return true;
}

/// The write semaphore, where no process keeps the lock without it.
BufferLock::Outcome BufferLock::takeWriteLock(Milliseconds bound)
{
    const Clock::time_point deadline = Clock::now() + bound;
    sembuf operations[] = {{SemaphoreWriteLock, 0, 0}, {SemaphoreWriteLock, 1, SEM_UNDO}};
    const Outcome outcome = enter(operations, 2, bound);
    return outcome != Outcome::Done || isFreeOfLeases() ? outcome : waitForOwner(deadline);
}

/// With the write semaphore. False if a process is inside without it.
bool BufferLock::isFreeOfLeases()
{
    const WriteLease::Finding finding = m_lease.look(setId());
    if (finding == WriteLease::Finding::Revoked) {
        clearLeaseSemaphore();
    } else if (finding == WriteLease::Finding::OfOtherSet && isThere(setId())) {
        // A process that was stopped with the semaphore until its set was replaced must not take the
        // lease of those who are in the next one away.
        m_lease.clearOfOtherSet(setId());
    }
    return finding != WriteLease::Finding::OwnerInside;
}

/// Gives the write semaphore back, so that nobody waits for a process that is stopped while it waits.
BufferLock::Outcome BufferLock::waitForOwner(Clock::time_point deadline)
{
    bool isHeld = true;
    for (;;) {
        if (isHeld) {
            giveBackExclusive();
        }
        const auto left = std::chrono::duration_cast<Milliseconds>(deadline - Clock::now());
        sembuf bothFree[] = {
            {SemaphoreWriteLock, 0, 0}, {SemaphoreLease, 0, 0}, {SemaphoreWriteLock, 1, SEM_UNDO}};
        Outcome outcome = operate(bothFree, 3,
                                  std::clamp(left, Milliseconds::zero(), waitingSlice));
        if (outcome == Outcome::Done) {
            m_lease.clearLeftOver();
        } else if (outcome == Outcome::Failed
                   || (outcome == Outcome::WouldWait && left <= Milliseconds::zero())) {
            return outcome;
        } else {
            sembuf writeFree[] = {{SemaphoreWriteLock, 0, 0}, {SemaphoreWriteLock, 1, SEM_UNDO}};
            outcome = enter(writeFree, 2, Milliseconds::zero());
        }
        isHeld = outcome == Outcome::Done;
        if (isHeld ? isFreeOfLeases() : outcome != Outcome::WouldWait) {
            return outcome;
        }
    }
}

bool BufferLock::lockAgainstReaders(OwnReading own, std::chrono::milliseconds bound)
{
    if (isHeldHere()) {
        changeDepth(1);
        return true;
    }
    m_inside.fetch_add(1);
    if (report(takeExclusive(own, bound)) != Outcome::Done) {
        m_inside.fetch_sub(1);
        return false;
    }
    becomeHolder();
    return true;
}

BufferLock::Outcome BufferLock::takeExclusive(OwnReading own, std::chrono::milliseconds bound)
{
    const short ownReaders = placesOf(own);
    // In one step if nobody is inside.
    sembuf operations[] = {{SemaphoreWriteLock, 0, 0},
                           {SemaphoreWriteLock, 1, SEM_UNDO},
                           {SemaphoreReaders, static_cast<short>(-ownReaders), SEM_UNDO},
                           {SemaphoreReaders, 0, 0},
                           {SemaphoreReaders, ownReaders, SEM_UNDO}};
    const std::size_t count = ownReaders == 0 ? 3 : 5;
    if (ownReaders == 0) {
        operations[2] = {SemaphoreReaders, 0, 0};
    }
    const Outcome outcome = enter(operations, count, Milliseconds::zero(), own);
    return outcome == Outcome::WouldWait ? takeStepByStep(own, bound) : outcome;
}

BufferLock::Outcome BufferLock::takeStepByStep(OwnReading own, std::chrono::milliseconds bound)
{
    const short ownReaders = placesOf(own);
    // First the writers' place, which no further reader passes, then the end of those inside:
    // waiting for both at once, a writer would starve behind readers that take turns.
    const Clock::time_point deadline = Clock::now() + bound;
    sembuf place[] = {{SemaphoreWriteLock, 0, 0}, {SemaphoreWriteLock, 1, SEM_UNDO}};
    const Outcome placed = enter(place, 2, bound, own);
    if (placed != Outcome::Done) {
        return placed;
    }
    const auto left = std::chrono::duration_cast<Milliseconds>(deadline - Clock::now());
    sembuf readersGone[] = {{SemaphoreReaders, 0, 0}, {}, {}};
    std::size_t count = 1;
    if (ownReaders != 0) {
        readersGone[0] = {SemaphoreReaders, static_cast<short>(-ownReaders), SEM_UNDO};
        readersGone[1] = {SemaphoreReaders, 0, 0};
        readersGone[2] = {SemaphoreReaders, ownReaders, SEM_UNDO};
        count = 3;
    }
    // What took the place took its time: one look more, unless nobody is to be waited for at all.
    const Outcome emptied = operate(readersGone, count,
                                    std::clamp(left, std::min(bound, Milliseconds(1)), bound));
    if (emptied != Outcome::Done) {
        giveBackExclusive();
    }
    return emptied;
}

/// The first step into a lock: in the set that there is now.
BufferLock::Outcome BufferLock::enter(sembuf *operations, std::size_t count, Milliseconds bound,
                                      OwnReading own)
{
    const int set = setId();
    // Nearly always nobody is inside, and nobody has to look at a clock.
    const Outcome outcome = operate(operations, count, Milliseconds::zero());
    return outcome == Outcome::WouldWait || outcome == Outcome::Gone
               ? enterAfterWait(set, operations, count, bound, own)
               : outcome;
}

BufferLock::Outcome BufferLock::enterAfterWait(int set, sembuf *operations, std::size_t count,
                                               Milliseconds bound, OwnReading own)
{
    const Clock::time_point deadline = Clock::now() + bound;
    const Outcome outcome = bound > Milliseconds::zero() ? operateSoon(operations, count, bound)
                                                         : operate(operations, count, bound);
    if (outcome != Outcome::Gone || own == OwnReading::WithoutPlace || !followRegion(set)) {
        return outcome;
    }
    // Both waits together keep the bound.
    const auto left = std::chrono::duration_cast<Milliseconds>(deadline - Clock::now());
    return operate(operations, count, std::max(left, Milliseconds::zero()));
}

/// Without a sleep if the others leave in the time that one would take.
BufferLock::Outcome BufferLock::operateSoon(sembuf *operations, std::size_t count,
                                            Milliseconds bound)
{
    ShortWait wait(shortestPause, longestPause, pausesBeforeSleep);
    while (wait.passOn()) {
        const Outcome outcome = operate(operations, count, Milliseconds::zero());
        if (outcome != Outcome::WouldWait) {
            return outcome;
        }
    }
    return operate(operations, count, bound);
}

bool BufferLock::followRegion(int removedSet)
{
    // In a forked child the mutex may be held by a thread that has stayed behind in the parent.
    if (!belongsToThisProcess()) {
        return false;
    }
    const std::lock_guard<std::mutex> guard(m_following);
    if (setId() != removedSet) {
        return true;
    }
    // What another thread took in the removed set it would give back to the new one. Its lease it may
    // have lost to somebody in the new one, and be inside all the same.
    if (m_inside.load() != 1 || m_isByLease.load() || m_lease.isOwnerInside()) {
        return false;
    }
    if (m_lease.endIfIdle()) {
        giveLeaseBack();
    } else if (m_lease.isOwnerInside()) {
        return false;
    }
    // A creator makes its memory before it removes the set that it finds. Where the region still
    // has its name after joining, the set is not that of a later region.
    const auto isRegionCurrent = [this] { return hasMappedName(m_memory); };
    return isRegionCurrent() && joinAgain(m_key, isRegionCurrent);
}

bool BufferLock::unlock()
{
    if (!isHeldHere()) {
        return false;
    }
    if (changeDepth(-1) > 0) {
        return true;
    }
    // Before the semaphore: afterwards the next holder writes its name here.
    m_holder.store(0, std::memory_order_relaxed);
    if (m_isByLease.load(std::memory_order_relaxed)) {
        m_isByLease.store(false, std::memory_order_relaxed);
        leaveByLease();
        return true;
    }
    if (!m_lease.isDue(setId()) || !makeLease()) {
        giveBackExclusive();
    }
    m_inside.fetch_sub(1);
    return true;
}

BufferLock::Sharing BufferLock::lockShared(std::chrono::milliseconds bound)
{
    sembuf operations[] = {{SemaphoreWriteLock, 0, 0}, {SemaphoreReaders, 1, SEM_UNDO}};
    // A thread that writes lets itself in, and stays in as a reader after its write lock.
    const bool ownWriter = isHeldHere();
    m_inside.fetch_add(1);
    const Outcome outcome = report(
        enter(ownWriter ? operations + 1 : operations, ownWriter ? 1 : 2, bound));
    if (outcome == Outcome::Done) {
        m_sharedCount.fetch_add(1, std::memory_order_relaxed);
        return Sharing::Shared;
    }
    m_inside.fetch_sub(1);
    return outcome == Outcome::Gone ? Sharing::Unneeded : Sharing::Failed;
}

BufferLock::Sharing BufferLock::lockSharedIfThere(std::chrono::milliseconds bound)
{
    const Clock::time_point deadline = Clock::now() + bound;
    Milliseconds left = bound;
    for (; left > Milliseconds::zero() && !isRefused();
         left = std::chrono::duration_cast<Milliseconds>(deadline - Clock::now())) {
        if (!isValid()) {
            m_inside.fetch_add(1);
            followRegion(setId());
            m_inside.fetch_sub(1);
        }
        const Sharing sharing = isValid() ? lockShared(left) : Sharing::Unneeded;
        if (sharing != Sharing::Unneeded) {
            return sharing;
        }
        const std::optional<bool> isThere = isSetThere();
        if (!isThere) {
            qWarning() << "It cannot be told whether the semaphores of" << m_key
                       << "are those of this memory: /proc/thread-self/maps cannot be read. Close"
                          " descriptors, or raise their limit (ulimit -n).";
            return Sharing::Failed;
        }
        if (!*isThere) {
            return sharing;
        }
        // It was made just now, its last user is leaving it, or another thread still holds the former one.
        std::this_thread::sleep_for(setPause);
    }
    return Sharing::Failed;
}

std::optional<bool> BufferLock::isSetThere() const
{
    // That of a later region says nothing of this one.
    return canBeJoined(m_key) ? findMappedName(m_memory) : false;
}

void BufferLock::unlockShared()
{
    m_sharedCount.fetch_sub(1, std::memory_order_relaxed);
    sembuf operation{SemaphoreReaders, -1, SEM_UNDO};
    report(operate(&operation, 1, Milliseconds::zero()));
    m_inside.fetch_sub(1);
}

void BufferLock::closeFormer(const QString &key, WriteLease::Words &lease)
{
    bool isInside = WriteLease::close(lease);
    const int set = findSet(key);
    const Clock::time_point deadline = Clock::now() + sm_creationWaitBound;
    while (isInside && set >= 0 && Clock::now() < deadline) {
        // Free as soon as the owner has given it back, or has died.
        sembuf leaseFree{SemaphoreLease, 0, 0};
        isInside = operateOn(set, &leaseFree, 1, waitingSlice) == Outcome::WouldWait
                   && WriteLease::isOwnerInside(lease);
    }
}

void BufferLock::giveBackExclusive()
{
    sembuf operation{SemaphoreWriteLock, -1, SEM_UNDO};
    report(operate(&operation, 1, Milliseconds::zero()));
}

BufferLock::Outcome BufferLock::report(Outcome outcome)
{
    if (outcome == Outcome::Gone && !m_removalReported.exchange(true, std::memory_order_relaxed)) {
        qWarning() << "The semaphores of this process data memory were removed: nobody can write"
                      " any more. Attach again.";
    }
    return outcome;
}
