#pragma once

#include <QVector>
#include <QtGlobal>

#include <chrono>
#include <map>
#include <optional>

/// How regularly sets come, from what a waiter sees: at which moment he was woken, and how many sets there
/// were by then. Takes as much memory as there are different intervals, in microseconds.
class SetStatistics
{
public:
    using Clock = std::chrono::steady_clock;
    using Interval = std::chrono::microseconds;

    /// Intervals from @p from on, up to the next bar.
    struct Bar
    {
        Interval from;
        quint64 count;
    };

    /// Begins with what was published before, which counts for nothing.
    explicit SetStatistics(quint64 generation) : m_generation(generation) { }

    /// Woken at @p time, by when so many sets had been published. Several that came since the wake before
    /// share the time in equal parts.
    void add(quint64 generation, Clock::time_point time);

    quint64 sets() const { return m_sets; }
    quint64 wakes() const { return m_wakes; }
    /// Sets that a later one had replaced before they were seen.
    quint64 missed() const { return m_sets - m_wakes; }

    // Of the intervals, of which there are none before the second wake.
    std::optional<Interval> least() const;
    std::optional<Interval> median() const;
    std::optional<Interval> most() const;
    /// Standard deviation.
    std::optional<Interval> jitter() const;
    /// From the least to the most in as many equal parts, or in fewer if they would be below a microsecond.
    QVector<Bar> bars(int count) const;

private:
    quint64 m_generation;
    quint64 m_sets = 0;
    quint64 m_wakes = 0;
    std::optional<Clock::time_point> m_last;
    std::map<Interval, quint64> m_intervals; ///< how often each was seen
    quint64 m_count = 0;                     ///< of all intervals
};
