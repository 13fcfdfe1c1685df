#pragma once

#include "ProcessData/ProcessValue.h"
#include "text/TrendBars.h"

#include <QVector>

#include <chrono>
#include <deque>
#include <optional>

/// What a value was at one moment.
struct TrendPoint
{
    using Time = std::chrono::microseconds;

    Time time; ///< since the beginning of the trend
    /// None where nothing was known, as the region had gone.
    std::optional<ProcessDataDefinitions::ErrorTypes> state;
    double value = 0; ///< of a valid one; may be NaN or infinite

    /// Whether it can be drawn as a number.
    bool isNumber() const;
    bool isErroneous() const;
};

/// The course of one value, set by set. A value holds until the next set.
///
/// Numbers of 64 bits are rounded to those that a double has.
class ValueTrend
{
public:
    using Time = TrendPoint::Time;

    /// All that a value was during a part of the time.
    struct Part
    {
        bool isKnown = false;
        bool hasError = false;
        /// Of its numbers; none if it had none.
        std::optional<double> least;
        std::optional<double> most;
        std::optional<double> first;
        std::optional<double> last;
    };

    /// Keeps so many points, the newest.
    explicit ValueTrend(int mostPoints);

    void add(Time time, const ProcessValue &value);
    /// From now on nothing is known, until the next value.
    void addGap(Time time);

    const std::deque<TrendPoint> &points() const { return m_points; }
    quint64 valid() const { return m_valid; }
    quint64 erroneous() const { return m_erroneous; }

    // Of all numbers that were added, also of those that are kept no more.
    std::optional<double> least() const { return m_least; }
    std::optional<double> most() const { return m_most; }
    /// Each set counts the same.
    std::optional<double> mean() const;

    /// The time in equal parts.
    QVector<ValueTrend::Part> parts(Time from, Time to, int count) const;
    /// The same as bars, each of the greatest number in its part.
    QVector<TrendColumn> columns(Time from, Time to, int count) const;

private:
    void append(const TrendPoint &point);

    std::size_t m_mostPoints;
    std::deque<TrendPoint> m_points;
    quint64 m_valid = 0;
    quint64 m_erroneous = 0;
    quint64 m_numbers = 0;
    double m_mean = 0;
    std::optional<double> m_least;
    std::optional<double> m_most;
};
