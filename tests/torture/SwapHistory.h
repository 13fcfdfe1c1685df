#pragma once

#include "torture/SharedLedger.h"

#include <deque>
#include <optional>

namespace Torture {

/// When a region was seen to have been swapped how often.
class SwapHistory
{
public:
    /// What is seen at @p time, in the order of the times.
    void add(qint64 time, quint64 swapCount);
    /// The number of swaps so far.
    quint64 newest() const { return m_entries.empty() ? 0 : m_entries.back().swapCount; }
    /// When there was first a set newer than @p seen; nothing if there is none. Older than a minute it
    /// is forgotten, and the oldest one that is known stands for it.
    std::optional<qint64> firstBeyond(quint64 seen) const;

private:
    struct Entry
    {
        qint64 time;
        quint64 swapCount;
    };
    std::deque<Entry> m_entries;
};

} // namespace Torture
