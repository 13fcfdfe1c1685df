#include "commands/SimulationRun.h"

#include "Companion/SystemVSemaphoreBaseClass.h"

#include <algorithm>
#include <numeric>

namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;

/// Readers inside a lock give way to whoever waits for it, unless they are stopped.
constexpr milliseconds mostForReaders{500};
constexpr milliseconds lookInterval{10};

} // namespace

quint64 SimulationReport::values() const
{
    return std::accumulate(states.cbegin(), states.cend(), quint64(0));
}

quint64 SimulationReport::erroneous() const
{
    return values() - states[ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID];
}

SimulationRun::SimulationRun(LiveRegion &region, const QString &key,
                             const QVector<SimulatedLeaf> &leaves, double rate)
    : m_region(region)
    , m_look(key)
    , m_leaves(leaves)
    , m_rate(rate)
{
}

bool SimulationRun::run(SignalWait &signals, const Bounds &bounds)
{
    m_begin = Clock::now();
    const Clock::time_point start = m_begin;
    bool isThere = true;
    while (!bounds.sets || m_report.sets < *bounds.sets) {
        const Clock::time_point due = dueTime();
        const bool isLast = bounds.time && due - start >= *bounds.time;
        if (signals.waitUntil(isLast ? start + *bounds.time : due) == SignalWait::Event::End
            || isLast) {
            break;
        }
        isThere = regionName() == RegionInspection::Name::Current;
        if (!isThere || waitForLock(signals) == Lock::Ended) {
            break;
        }
        publish();
    }
    m_report.time = std::chrono::duration_cast<milliseconds>(Clock::now() - start);
    return isThere;
}

/// The lock itself would not hear a signal as long as it waits.
SimulationRun::Lock SimulationRun::waitForLock(SignalWait &signals)
{
    const Clock::time_point begin = Clock::now();
    while (true) {
        const RegionLock lock = m_look.getLock();
        const auto waited = std::chrono::duration_cast<milliseconds>(Clock::now() - begin);
        const bool isHeld = lock.state == RegionLock::State::Held;
        if (!isHeld && (lock.readers == 0 || waited >= mostForReaders)) {
            return Lock::Free;
        }
        if (isHeld && waited >= SystemVSemaphoreBaseClass::sm_lockWaitBound) {
            m_region.refuseLock(waited.count());
        }
        if (signals.waitUntil(Clock::now() + lookInterval) == SignalWait::Event::End) {
            return Lock::Ended;
        }
    }
}

void SimulationRun::publish()
{
    const double seconds = static_cast<double>(m_report.sets) / m_rate;
    QVector<LeafWrite> writes;
    writes.reserve(m_leaves.size());
    for (auto &leaf : m_leaves) {
        writes.append({leaf.leaf(), leaf.next(seconds)});
        ++m_report.states.at(static_cast<std::size_t>(writes.constLast().value.getErrorType()));
    }
    m_region.write(writes);
    ++m_report.sets;
}

/// A set that is late moves all that follow: they keep their distance, and none is made up for.
SimulationRun::Clock::time_point SimulationRun::dueTime()
{
    const auto interval = std::chrono::duration<double>(1 / m_rate);
    const auto offset = std::chrono::duration_cast<Clock::duration>(
        interval * static_cast<double>(m_report.sets));
    const Clock::time_point now = Clock::now();
    const auto delay = now - (m_begin + offset);
    if (delay > interval) {
        ++m_report.late;
        m_begin += delay;
    }
    return m_begin + offset;
}
