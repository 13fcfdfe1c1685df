#include "torture/TortureDriver.h"

#include <algorithm>

// What the driver makes of those who wait for sets.

namespace Torture {

namespace {

/// The longest sleep in the kernel, with a tenth of a second for what comes behind it.
constexpr qint64 lateBound = 1100 * millisecond;
/// As for calls: in a wait that is not over the kernel does not count yet what it lacked.
constexpr qint64 sleepBound = 9 * second;

QString seconds(qint64 nanoseconds)
{
    return QString::number(static_cast<double>(nanoseconds) / second, 'f', 3) + QLatin1String(" s");
}

} // namespace

void TortureDriver::judgeWaits()
{
    for (int slot = m_options.processes; slot < slotCount(); ++slot) {
        const WaitEntry &entry = m_ledger->peers[slot].wait;
        Child &child = m_children[slot];
        const quint32 count = entry.waitCount;
        // What was overwritten is lost; the ring holds more than a second of such waits.
        child.seenWaits = std::max(child.seenWaits, count - std::min(count, callCapacity));
        for (; child.seenWaits != count; ++child.seenWaits) {
            const LongWait &wait = entry.waits[child.seenWaits % callCapacity];
            // What it lacked until its end is known with the sample behind that.
            if (wait.end > m_lastSample) {
                break;
            }
            judgeWait(slot, wait);
        }
        judgeOpenWait(slot);
    }
}

void TortureDriver::judgeWait(int slot, const LongWait &wait)
{
    const qint64 late = lateness(slot, wait);
    m_figures.latestWaiter = std::max(m_figures.latestWaiter, late);
    if (late > lateBound) {
        fail(slot, QStringLiteral("late: a waiter came %1 behind a set").arg(seconds(late)));
    }
}

void TortureDriver::judgeOpenWait(int slot)
{
    const WaitEntry &entry = m_ledger->peers[slot].wait;
    const qint64 begin = entry.begin;
    const LongWait wait{begin, steadyNow(), entry.region, entry.seen};
    if (!m_children[slot].process.isAlive() || begin == 0 || entry.begin != begin) {
        return;
    }
    const qint64 late = lateness(slot, wait);
    if (late > sleepBound) {
        fail(slot, QStringLiteral("hangs: a waiter sleeps for %1 beside a set").arg(seconds(late)));
    }
}

/// How long a waiter was behind the first set that it had not seen, without the time in which it was
/// stopped or got no processor. When that set came is seen by the driver, a tick late at most.
qint64 TortureDriver::lateness(int slot, const LongWait &wait) const
{
    const std::optional<qint64> published = m_swaps.firstBeyond(wait.region, wait.seen);
    if (!published || *published >= wait.end) {
        return 0;
    }
    return m_judge.unexplained(slot, std::max(*published, wait.begin), wait.end, Excuse::OwnStop);
}

/// One that was killed before it could wake anybody leaves that to the next one, or to the end of the
/// sleeps. Nobody else is inside a swap for it any more.
void TortureDriver::noteDeathOfPublisher(int slot)
{
    PeerEntry &entry = m_ledger->peers[slot];
    const quint64 region = entry.publishing;
    if (region != 0) {
        m_ledger->region(region).brokenThrough = m_swaps.swapsSoFar(region);
        entry.publishing = 0;
    }
}

} // namespace Torture
