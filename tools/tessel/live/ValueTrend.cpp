#include "live/ValueTrend.h"

#include <algorithm>
#include <cmath>

namespace {

using Part = ValueTrend::Part;

void include(Part &part, const TrendPoint &point)
{
    part.isKnown = part.isKnown || point.state.has_value();
    part.hasError = part.hasError || point.isErroneous();
    if (!point.isNumber()) {
        return;
    }
    part.least = std::min(part.least.value_or(point.value), point.value);
    part.most = std::max(part.most.value_or(point.value), point.value);
    part.first = part.first.value_or(point.value);
    part.last = point.value;
}

} // namespace

bool TrendPoint::isErroneous() const
{
    return state && *state != ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID;
}

bool TrendPoint::isNumber() const
{
    return state && !isErroneous() && std::isfinite(value);
}

ValueTrend::ValueTrend(int mostPoints)
    : m_mostPoints(static_cast<std::size_t>(std::max(mostPoints, 1)))
{
}

void ValueTrend::add(Time time, const ProcessValue &value)
{
    TrendPoint point{time, value.getErrorType()};
    if (point.isErroneous()) {
        ++m_erroneous;
    } else {
        ++m_valid;
        point.value = value.getValue().toDouble();
    }
    if (point.isNumber()) {
        ++m_numbers;
        // Never leaves the range, however great the numbers are.
        const auto count = static_cast<double>(m_numbers);
        m_mean += point.value / count - m_mean / count;
        m_least = std::min(m_least.value_or(point.value), point.value);
        m_most = std::max(m_most.value_or(point.value), point.value);
    }
    append(point);
}

void ValueTrend::addGap(Time time)
{
    append({time, std::nullopt});
}

std::optional<double> ValueTrend::mean() const
{
    return m_numbers > 0 ? std::make_optional(m_mean) : std::nullopt;
}

QVector<Part> ValueTrend::parts(Time from, Time to, int count) const
{
    QVector<Part> all;
    const Time span = std::max(to - from, Time(1));
    auto point = std::upper_bound(m_points.begin(), m_points.end(), from,
                                  [](Time time, const TrendPoint &it) { return time < it.time; });
    for (int i = 0; i < count; ++i) {
        const bool isLast = i + 1 == count;
        const Time end = isLast ? to : from + span * (i + 1) / count;
        const auto first = point;
        Part part;
        while (point != m_points.end() && (isLast ? point->time <= end : point->time < end)) {
            include(part, *point++);
        }
        // Where no set came, what was before holds on.
        if (first != m_points.begin() && first == point) {
            include(part, *std::prev(first));
        }
        all.append(part);
    }
    return all;
}

QVector<TrendColumn> ValueTrend::columns(Time from, Time to, int count) const
{
    QVector<TrendColumn> columns;
    const QVector<Part> all = parts(from, to, count);
    for (const auto &part : all) {
        if (part.hasError) {
            columns.append(TrendColumn{TrendColumn::What::Error});
        } else if (part.most) {
            columns.append(TrendColumn{TrendColumn::What::Value, *part.most});
        } else {
            columns.append(TrendColumn());
        }
    }
    return columns;
}

void ValueTrend::append(const TrendPoint &point)
{
    if (m_points.size() == m_mostPoints) {
        m_points.pop_front();
    }
    m_points.push_back(point);
}
