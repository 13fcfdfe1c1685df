#include "torture/SwapHistory.h"

#include <algorithm>

namespace Torture {

void SwapHistory::add(qint64 time, quint64 swapCount)
{
    // Longer than any wait that is judged.
    constexpr qint64 memory = 60 * second;

    if (m_entries.empty() || m_entries.back().swapCount != swapCount) {
        m_entries.push_back({time, swapCount});
    }
    while (m_entries.front().time < time - memory && m_entries.size() > 1) {
        m_entries.pop_front();
    }
}

std::optional<qint64> SwapHistory::firstBeyond(quint64 seen) const
{
    const auto found = std::upper_bound(
        m_entries.cbegin(), m_entries.cend(), seen,
        [](quint64 count, const Entry &entry) { return count < entry.swapCount; });
    return found == m_entries.cend() ? std::nullopt : std::make_optional(found->time);
}

} // namespace Torture
