#include "screen/TrendMemory.h"

#include <algorithm>

namespace {

/// Thirty a second for more than what the widest terminal shows.
constexpr int mostPoints = 2048;

} // namespace

void TrendMemory::follow(int leaf, const QVector<int> &kept)
{
    m_order.removeOne(leaf);
    m_order.append(leaf);
    m_trends.try_emplace(leaf, mostPoints);
    if (m_order.size() <= sm_mostTrends) {
        return;
    }
    const auto forgotten = std::find_if(m_order.begin(), m_order.end(), [&](int other) {
        return other != leaf && !kept.contains(other);
    });
    if (forgotten != m_order.end()) {
        m_trends.erase(*forgotten);
        m_order.erase(forgotten);
    }
}

const ValueTrend *TrendMemory::trend(int leaf) const
{
    const auto found = m_trends.find(leaf);
    return found == m_trends.end() ? nullptr : &found->second;
}

void TrendMemory::add(ValueTrend::Time time, const ShownValues &values)
{
    for (const int leaf : std::as_const(m_order)) {
        add(leaf, time, values);
    }
}

void TrendMemory::add(int leaf, ValueTrend::Time time, const ShownValues &values)
{
    const auto found = m_trends.find(leaf);
    if (found == m_trends.end()) {
        return;
    }
    if (const auto value = values.value(leaf)) {
        found->second.add(time, *value);
    } else {
        found->second.addGap(time);
    }
}

void TrendMemory::addGap(ValueTrend::Time time)
{
    for (auto &trend : m_trends) {
        trend.second.addGap(time);
    }
}
