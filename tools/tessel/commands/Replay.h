#pragma once

#include "live/LiveRegion.h"
#include "recordings/RecordedLeaves.h"
#include "recordings/RecordingReader.h"
#include "text/SignalWait.h"

#include <QSet>

/// Publishes the sets of a recording into a region, each by one swap, at the times at which they came.
///
/// A run begins as soon as the one before has ended. Sets that come too late for their time are published at once.
class Replay
{
public:
    enum class End { Whole, Interrupted };

    /// @p leaves are those of the recorded values; null elements are left out. @p speed 2 takes half the time.
    Replay(RecordingReader &reader, LiveRegion &region, const QVector<Leaf> &leaves, double speed);

    /// A Failure where the region is gone or does not take a set.
    Replay::End run(SignalWait &signals);

    quint64 sets() const { return m_sets; }
    /// Of those that were recorded before the end, sets that the recorder had no time for.
    quint64 dropped() const { return m_dropped; }
    std::chrono::microseconds time() const;
    /// How late a set came at most.
    std::chrono::microseconds lag() const { return m_lag; }

private:
    using Clock = std::chrono::steady_clock;

    bool waitFor(const RecordedSet &set, SignalWait &signals);
    void publish(const RecordedSet &set);
    /// To the writes; a text as much of it as can be written.
    void append(int index);
    void noteOnce(const Leaf &leaf, const QString &what);

    RecordingReader &m_reader;
    LiveRegion &m_region;
    const QVector<Leaf> &m_leaves;
    double m_speed;
    RecordedLeaves m_values;
    QSet<QString> m_noted; ///< URLs
    QVector<LeafWrite> m_writes;
    quint64 m_sets = 0;
    quint64 m_dropped = 0;
    std::chrono::microseconds m_lag{0};
    const Clock::time_point m_begin = Clock::now();
    Clock::time_point m_runBegin = m_begin;
    quint64 m_runElapsed = 0; ///< of the first set of the run
    Clock::time_point m_nextLook = m_begin;
};
