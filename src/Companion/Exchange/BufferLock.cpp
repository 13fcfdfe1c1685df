#include "Companion/Exchange/BufferLock_p.h"
#include "Companion/Exchange/Identity_p.h"
#include "Companion/Exchange/MappedName_p.h"

#include <QDebug>

#include <algorithm>

#include <sys/sem.h>

namespace {

using Milliseconds = std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

/// The places among the readers that a thread has itself.
short placesOf(BufferLock::OwnReading own)
{
    return own == BufferLock::OwnReading::WithPlace ? 1 : 0;
}

} // namespace

BufferLock::BufferLock(const QString &key, CreationType type, const void *memory)
    : SystemVSemaphoreBaseClass(key, type)
    , m_key(key)
    , m_memory(memory)
{
}

BufferLock::~BufferLock()
{
    if (!belongsToThisProcess()) {
        return;
    }
    if (m_depth.load(std::memory_order_relaxed) > 0) {
        giveBackExclusive();
    }
    for (int i = m_sharedCount.load(std::memory_order_relaxed); i > 0; --i) {
        unlockShared();
    }
}

bool BufferLock::lock(std::chrono::milliseconds bound)
{
    if (isHeldHere()) {
        m_depth.fetch_add(1, std::memory_order_relaxed);
        return true;
    }
    sembuf operations[] = {{SemaphoreWriteLock, 0, 0}, {SemaphoreWriteLock, 1, SEM_UNDO}};
    m_inside.fetch_add(1);
    if (report(enter(operations, 2, bound)) != Outcome::Done) {
        m_inside.fetch_sub(1);
        return false;
    }
    becomeHolder();
    return true;
}

bool BufferLock::lockAgainstReaders(OwnReading own, std::chrono::milliseconds bound)
{
    if (isHeldHere()) {
        m_depth.fetch_add(1, std::memory_order_relaxed);
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
    const Outcome emptied = operate(readersGone, count, std::max(left, Milliseconds(1)));
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
    const Outcome outcome = operate(operations, count, bound);
    if (outcome != Outcome::Gone || own == OwnReading::WithoutPlace || !followRegion(set)) {
        return outcome;
    }
    // Both waits together keep the bound.
    const auto left = std::chrono::duration_cast<Milliseconds>(deadline - Clock::now());
    return operate(operations, count, std::max(left, Milliseconds::zero()));
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
    // What another thread took in the removed set it would give back to the new one.
    if (m_inside.load() != 1) {
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
    if (m_depth.fetch_sub(1, std::memory_order_relaxed) > 1) {
        return true;
    }
    // Before the semaphore: afterwards the next holder writes its name here.
    m_holder.store(0, std::memory_order_relaxed);
    giveBackExclusive();
    m_inside.fetch_sub(1);
    return true;
}

bool BufferLock::isHeldHere() const
{
    return m_holder.load(std::memory_order_relaxed) == Identity::threadNumber();
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

void BufferLock::unlockShared()
{
    m_sharedCount.fetch_sub(1, std::memory_order_relaxed);
    sembuf operation{SemaphoreReaders, -1, SEM_UNDO};
    report(operate(&operation, 1, Milliseconds::zero()));
    m_inside.fetch_sub(1);
}

void BufferLock::becomeHolder()
{
    m_holder.store(Identity::threadNumber(), std::memory_order_relaxed);
    m_depth.store(1, std::memory_order_relaxed);
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
