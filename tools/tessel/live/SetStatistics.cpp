#include "live/SetStatistics.h"

#include <algorithm>
#include <cmath>

void SetStatistics::add(quint64 generation, Clock::time_point time)
{
    if (generation <= m_generation) {
        return;
    }
    const quint64 sets = generation - m_generation;
    m_generation = generation;
    m_sets += sets;
    ++m_wakes;
    if (m_last) {
        const auto passed = std::chrono::duration_cast<Interval>(time - *m_last);
        m_intervals[passed / static_cast<qint64>(sets)] += sets;
        m_count += sets;
    }
    m_last = time;
}

std::optional<SetStatistics::Interval> SetStatistics::least() const
{
    return m_intervals.empty() ? std::nullopt : std::make_optional(m_intervals.cbegin()->first);
}

std::optional<SetStatistics::Interval> SetStatistics::most() const
{
    return m_intervals.empty() ? std::nullopt : std::make_optional(m_intervals.crbegin()->first);
}

/// The lower one of two in the middle.
std::optional<SetStatistics::Interval> SetStatistics::median() const
{
    quint64 below = 0;
    for (const auto &[interval, count] : m_intervals) {
        below += count;
        if (2 * below >= m_count) {
            return interval;
        }
    }
    return {};
}

std::optional<SetStatistics::Interval> SetStatistics::jitter() const
{
    if (m_intervals.empty()) {
        return {};
    }
    double sum = 0;
    for (const auto &[interval, count] : m_intervals) {
        sum += double(interval.count()) * double(count);
    }
    const double mean = sum / double(m_count);
    double squares = 0;
    for (const auto &[interval, count] : m_intervals) {
        const double distance = double(interval.count()) - mean;
        squares += distance * distance * double(count);
    }
    return Interval(std::llround(std::sqrt(squares / double(m_count))));
}

QVector<SetStatistics::Bar> SetStatistics::bars(int count) const
{
    if (m_intervals.empty()) {
        return {};
    }
    const qint64 begin = least()->count();
    const qint64 span = most()->count() - begin + 1;
    const qint64 parts = std::min<qint64>(count, span);
    QVector<Bar> bars;
    for (qint64 part = 0; part < parts; ++part) {
        // Rounded up, so that whatever falls into a part is not below where it begins.
        bars.append({Interval(begin + (span * part + parts - 1) / parts), 0});
    }
    for (const auto &[interval, seen] : m_intervals) {
        bars[static_cast<int>((interval.count() - begin) * parts / span)].count += seen;
    }
    return bars;
}
