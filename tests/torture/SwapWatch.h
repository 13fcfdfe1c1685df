#pragma once

#include "torture/SwapHistory.h"

#include <QString>

#include <deque>

namespace Torture {

/// Looks from outside how often the newest regions of a run were swapped.
///
/// Maps them for reading only, and keeps that mapping when others have taken their name.
class SwapWatch
{
public:
    SwapWatch(Ledger &ledger, const QString &path) : m_ledger(ledger), m_path(path) { }
    ~SwapWatch();

    SwapWatch(const SwapWatch &) = delete;
    SwapWatch &operator=(const SwapWatch &) = delete;

    /// Looks once.
    void look();
    /// When there was first a set newer than @p seen in the region of that generation; nothing if there
    /// is none, or the region is not known.
    std::optional<qint64> firstBeyond(quint64 generation, quint64 seen) const;
    /// At most this many swaps were there when this was called; the greatest number if that is not known.
    quint64 swapsSoFar(quint64 generation) const;

private:
    struct Region
    {
        quint64 generation;
        const void *start;
        SwapHistory history;
    };

    void mapNewest();
    static void unmap(const Region &region);
    static quint64 swapCount(const Region &region);
    const Region *find(quint64 generation) const;

    Ledger &m_ledger;
    const QString m_path;
    std::deque<Region> m_regions;
};

} // namespace Torture
