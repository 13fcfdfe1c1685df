#pragma once

#include "live/LiveRegion.h"
#include "simulation/SimulatedLeaf.h"
#include "text/SignalWait.h"

#include <array>
#include <chrono>

/// What a simulation has published so far.
struct SimulationReport
{
    quint64 sets = 0;
    quint64 late = 0; ///< that came more than an interval behind their time
    /// Values by the number of their state.
    std::array<quint64, 10> states{};
    std::chrono::milliseconds time{0};

    quint64 values() const;
    quint64 erroneous() const;
};

/// Publishes made-up values until it has had enough, is asked to end, or has lost its region.
class SimulationRun
{
public:
    /// When it has had enough; nothing of both: never.
    struct Bounds
    {
        std::optional<quint64> sets;
        std::optional<std::chrono::microseconds> time;
    };

    /// @p rate in sets per second.
    SimulationRun(LiveRegion &region, const QString &key, const QVector<SimulatedLeaf> &leaves,
                  double rate);

    /// Ends within a second of the signal, also where another process holds the lock of the region. False if the
    /// name of the region does not lead to it any more.
    bool run(SignalWait &signals, const Bounds &bounds);
    const SimulationReport &report() const { return m_report; }
    /// Removed, replaced, or still there.
    RegionInspection::Name regionName() const { return m_look.getName(); }

private:
    using Clock = std::chrono::steady_clock;

    enum class Lock { Free, Ended };

    Lock waitForLock(SignalWait &signals);
    void publish();
    Clock::time_point dueTime();

    LiveRegion &m_region;
    RegionInspection m_look;
    QVector<SimulatedLeaf> m_leaves;
    double m_rate;
    SimulationReport m_report;
    Clock::time_point m_begin;
};
