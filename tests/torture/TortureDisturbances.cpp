#include "torture/TortureDriver.h"

// What the driver does to its processes.

namespace Torture {

namespace {

/// Between two disturbances at most; on the average half of it.
constexpr qint64 longestPeace = 80 * millisecond;
constexpr qint64 longestAbsence = 100 * millisecond;
/// Beyond the bounds of all locks.
constexpr qint64 longestStop = 8 * second;
constexpr qint64 mediumStop = 1500 * millisecond;
constexpr qint64 shortStop = 50 * millisecond;
/// So many processes are stopped to find the one that is inside the lock.
constexpr int holderTries = 40;

} // namespace

void TortureDriver::disturb()
{
    if (steadyNow() < m_nextDisturbance) {
        return;
    }
    m_nextDisturbance = steadyNow() + randomTime(longestPeace);
    const qint64 choice = randomTime(1000);
    const int slot = randomSlot();
    if (choice < 3) {
        killAll();
    } else if (choice < 400) {
        // A stop that shall outlast the bounds of the locks must not be cut short.
        if (!m_children[slot].process.isStopped()) {
            kill(slot);
        }
    } else if (choice < 500) {
        askToEnd(slot);
    } else if (choice < 600 && m_options.isKilling) {
        killHolder();
    } else if (choice < 615) {
        stopHolder();
    } else if (choice < 650) {
        stop(slot, randomTime(mediumStop));
    } else {
        stop(slot, randomTime(shortStop));
    }
}

void TortureDriver::kill(int slot)
{
    Child &child = m_children[slot];
    if (!child.process.isAlive()) {
        return;
    }
    if (!m_options.isKilling) {
        askToEnd(slot);
        return;
    }
    const bool isInside = m_ledger->peers[slot].phase == Phase::Writing
                          || (child.process.isStopped() && findHolder() == slot);
    // Before: whoever is refused something from then on must know that somebody died.
    ++m_ledger->killCount;
    if (!child.process.kill()) {
        return;
    }
    noteDeathOfPublisher(slot);
    ++m_figures.kills;
    m_figures.killsInside += isInside ? 1 : 0;
    child.askedToEndAt = 0;
    scheduleStart(slot);
}

void TortureDriver::killAll()
{
    for (int slot = 0; slot < slotCount(); ++slot) {
        kill(slot);
    }
}

void TortureDriver::stop(int slot, qint64 duration)
{
    Child &child = m_children[slot];
    if (!child.process.isAlive() || child.process.isStopped() || !child.process.stop()) {
        return;
    }
    child.resumeAt = steadyNow() + duration;
    ++m_figures.stops;
    m_figures.stopsInside += findHolder() == slot ? 1 : 0;
    takeSample(0);
}

void TortureDriver::killHolder()
{
    const int slot = catchHolder();
    if (slot >= 0) {
        kill(slot);
    }
}

void TortureDriver::stopHolder()
{
    const int slot = catchHolder();
    if (slot < 0) {
        return;
    }
    ++m_figures.stops;
    ++m_figures.stopsInside;
    const bool isLong = randomTime(2) == 0;
    m_children[slot].resumeAt = steadyNow() + randomTime(isLong ? longestStop : mediumStop);
    takeSample(0);
}

/// Stops processes until one of them stands still inside the lock. -1 if none was found there.
int TortureDriver::catchHolder()
{
    for (int i = 0; i < holderTries; ++i) {
        const int slot = randomSlot();
        PeerProcess &process = m_children[slot].process;
        if (!process.isAlive() || process.isStopped() || !process.stop()) {
            continue;
        }
        if (findHolder() == slot) {
            return slot;
        }
        process.resume();
    }
    return -1;
}

void TortureDriver::resume(int slot)
{
    // The time until here is one of standing still.
    takeSample(0);
    m_children[slot].resumeAt = 0;
    m_children[slot].process.resume();
}

void TortureDriver::askToEnd(int slot)
{
    Child &child = m_children[slot];
    if (child.process.isAlive() && child.askedToEndAt == 0) {
        child.askedToEndAt = steadyNow();
        m_ledger->peers[slot].isAskedToEnd = true;
    }
}

int TortureDriver::randomSlot()
{
    const auto slot = static_cast<int>(m_random() % static_cast<quint64>(slotCount()));
    // A new creator begins a new region and ends all waits in the old one. With too many of them no
    // wait would ever come to its bound.
    return slot == 0 ? (m_random() % 12 == 0 ? 0 : 1) : slot;
}

qint64 TortureDriver::randomTime(qint64 bound)
{
    return static_cast<qint64>(m_random() % static_cast<quint64>(bound));
}

void TortureDriver::scheduleStart(int slot)
{
    m_children[slot].resumeAt = 0;
    m_children[slot].startAt = steadyNow() + randomTime(longestAbsence) + 1;
}

} // namespace Torture
