#include "torture/SleepNote.h"
#include "torture/TorturePeer.h"

// Sleeping until somebody publishes, and what publishers tell those who sleep.

namespace Torture {

namespace {

void increase(std::atomic<quint64> &counter)
{
    counter.fetch_add(1, std::memory_order_relaxed);
}

} // namespace

void TorturePeer::prepareWaiting()
{
    FutexCalls::areWakesLost = isPlanted(Plant::Unwoken) || isPlanted(Plant::Belated);
    if (m_role == Role::Waiter || m_role == Role::Poller) {
        FutexCalls::beforeWait = [this] { noteBegin(); };
        FutexCalls::afterWait = [this](const FutexCalls::EndedWait &wait) { noteSleep(wait); };
    } else {
        FutexCalls::beforeWake = [this] { noteSleepers(); };
        FutexCalls::afterWake = [this](long woken) { judgeWake(woken); };
    }
}

void TorturePeer::waitForSet()
{
    // Waits from the newest one sleep; those from the last one end at once if there was another.
    if (random(2) == 0) {
        m_region->awaited = m_region->watcher->getGeneration();
    }
    if (waitBehind(m_region->awaited) == ProcessDataWatcher::Result::NewSet && random(4) == 0) {
        readSet();
    }
}

ProcessDataWatcher::Result TorturePeer::waitBehind(quint64 &seen)
{
    const quint64 former = seen;
    const auto result = inLedger(
        former, [this, &seen] { return m_region->watcher->wait(seen, sm_waitBound); });
    judgeResult(result, former, seen);
    return result;
}

void TorturePeer::judgeResult(ProcessDataWatcher::Result result, quint64 former, quint64 seen)
{
    switch (result) {
    case ProcessDataWatcher::Result::NewSet:
        if (seen <= former) {
            fail(QStringLiteral("back in time: a wait behind swap %1 tells of swap %2")
                     .arg(former)
                     .arg(seen));
        }
        increase(m_entry.wait.setsAwaited);
        return;
    case ProcessDataWatcher::Result::TimedOut: return;
    case ProcessDataWatcher::Result::Stopped: fail(QStringLiteral("a wait that nobody stopped"));
    case ProcessDataWatcher::Result::RegionGone:
    case ProcessDataWatcher::Result::NotSupported:
        if (!isDisturbed()) {
            fail(QStringLiteral("refused without a reason: a wait"));
        }
        sleepFor(millisecond);
        return;
    }
}

/// Before each sleep in the kernel.
void TorturePeer::noteBegin()
{
    SleepNote note(m_entry.wait.sleep);
    WakeDue due(m_entry.wait.due);
    if (std::this_thread::get_id() != m_ownThread && isResting()) {
        due.beginRest(note.nextNumber());
    } else {
        // It is armed already: a set behind the one of this moment ends it, or does not let it begin.
        due.begin(note.nextNumber(), FutexCalls::currentWord());
    }
    note.begin();
}

/// Behind each sleep in the kernel.
void TorturePeer::noteSleep(const FutexCalls::EndedWait &wait)
{
    SleepNote note(m_entry.wait.sleep);
    const auto due = WakeDue(m_entry.wait.due).swapOf(SleepNote::number(note.current()));
    const bool isSlice = wait.isTimedOut && due && wait.word != *due;
    increase(m_entry.wait.sleeps);
    if (isSlice) {
        increase(m_entry.wait.slices);
    }
    if (isSlice && note.isPublishedBefore(wait.begin + wait.bound)) {
        fail(QStringLiteral(
                 "a wake-up is lost: a sleep behind swap %1 ran out beside a set that was "
                 "published to its end")
                 .arg(*due));
    }
    note.end();
}

/// Before a swap: from here on this process may be one that has swapped and not woken yet.
void TorturePeer::beginPublishing()
{
    m_entry.publishing = m_region->generation;
}

/// Behind the unlock that wakes. Whoever still sleeps though there is a newer set is told when that was.
void TorturePeer::endPublishing()
{
    if (m_entry.publishing.exchange(0) == 0) {
        return;
    }
    // First the number, then who may not have woken for it: another one is at a later swap.
    const quint64 published = m_region->watcher->getGeneration();
    if (isAnybodyPublishing() || published <= m_ledger.region(m_region->generation).brokenThrough) {
        return;
    }
    for (int slot = m_ledger.peerCount; slot < m_ledger.slotCount; ++slot) {
        tellWaiter(m_ledger.peers[slot].wait, m_region->generation, published);
    }
    if (isPlanted(Plant::Belated)) {
        FutexCalls::wakeBelatedly();
    }
}

bool TorturePeer::isAnybodyPublishing() const
{
    for (int slot = 0; slot < m_ledger.peerCount; ++slot) {
        if (m_ledger.peers[slot].publishing == m_region->generation) {
            return true;
        }
    }
    return false;
}

void TorturePeer::noteSleepers()
{
    for (int slot = m_ledger.peerCount; slot < m_ledger.slotCount; ++slot) {
        m_sleepers[slot - m_ledger.peerCount] =
            SleepNote(m_ledger.peers[slot].wait.sleep).current();
    }
}

/// Whoever had been told before this wake that a set was published to its end, and still sleeps, was
/// woken then and has not got a processor yet, or was forgotten. This wake has not found it asleep unless
/// it was forgotten; the others it may have found.
void TorturePeer::judgeWake(long woken)
{
    long others = 0;
    for (int slot = m_ledger.peerCount; slot < m_ledger.slotCount; ++slot) {
        const quint64 before = m_sleepers[slot - m_ledger.peerCount];
        const bool hasChanged = SleepNote(m_ledger.peers[slot].wait.sleep).current() != before;
        others += hasChanged || SleepNote::isOpen(before) ? 1 : 0;
    }
    if (woken > others) {
        fail(QStringLiteral(
                 "a wake-up is lost: of %1 that a publisher found asleep at most %2 had not "
                 "been due before")
                 .arg(woken)
                 .arg(others));
    }
}

void TorturePeer::tellWaiter(WaitEntry &waiter, quint64 region, quint64 published)
{
    SleepNote note(waiter.sleep);
    const quint64 current = note.current();
    const auto due = WakeDue(waiter.due).swapOf(SleepNote::number(current));
    if (SleepNote::isOpen(current) && waiter.region == region && due
        && *due < static_cast<quint32>(published)) {
        note.note(current, steadyNow());
    }
}

} // namespace Torture
