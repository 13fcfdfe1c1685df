#include "values/SlotRanges.h"

#include <algorithm>

namespace {

/// Of leaves that all share one byte there are more pairs than anybody reads, or has memory for.
constexpr int mostPairs = 1000;

QString lineOfMore()
{
    return QStringLiteral("and more: only the first %1 pairs are named").arg(mostPairs);
}

} // namespace

SlotRanges::SlotRanges(const QVector<Leaf> &leaves) : m_leaves(leaves)
{
    for (int i = 0; i < leaves.size(); ++i) {
        for (const Range &range : rangesOf(leaves.at(i), i)) {
            m_longest = std::max(m_longest, range.end - range.begin);
            m_ranges.push_back(range);
        }
    }
    std::sort(m_ranges.begin(), m_ranges.end(),
              [](const Range &left, const Range &right) { return left.begin < right.begin; });
}

QStringList SlotRanges::overlaps() const
{
    QStringList found;
    for (auto left = m_ranges.cbegin(); left != m_ranges.cend(); ++left) {
        for (auto right = left + 1; right != m_ranges.cend() && right->begin < left->end; ++right) {
            if (!collide(*left, *right)) {
                continue;
            }
            if (found.size() == mostPairs) {
                found.append(lineOfMore());
                return found;
            }
            found.append(QStringLiteral("%1 and %2 share byte %3")
                             .arg(m_leaves.at(left->leaf).url, m_leaves.at(right->leaf).url,
                                  QString::number(right->begin)));
        }
    }
    return found;
}

QStringList SlotRanges::sharedBytes(const Leaf &leaf) const
{
    const std::vector<Range> own = rangesOf(leaf, -1);
    QStringList found;
    for (const int other : neighboursOf(own)) {
        const bool isOfOneLeaf = m_leaves.at(other).url == leaf.url;
        if (const auto text = sharedByte(own, isOfOneLeaf, other)) {
            found.append(*text);
        }
    }
    return found;
}

std::vector<SlotRanges::Range> SlotRanges::rangesOf(const Leaf &leaf, int number)
{
    const LeafSlot slot = slotOf(leaf);
    std::vector<Range> ranges{
        {slot.offset, slot.valueEnd(), slot.isBit() ? slot.bitmask : 0, number}};
    if (slot.hasMetadata()) {
        ranges.push_back(
            {slot.stateBegin(), slot.stateBegin() + LeafSlot::sm_metadataWidth, 0, number});
    }
    return ranges;
}

bool SlotRanges::collide(const Range &left, const Range &right)
{
    if (left.end <= right.begin || right.end <= left.begin) {
        return false;
    }
    return left.bits == 0 || right.bits == 0 || (left.bits & right.bits) != 0;
}

std::vector<int> SlotRanges::neighboursOf(const std::vector<Range> &own) const
{
    std::vector<int> found;
    for (const Range &mine : own) {
        const quint64 first = mine.begin - std::min(mine.begin, m_longest);
        auto range = std::lower_bound(
            m_ranges.cbegin(), m_ranges.cend(), first,
            [](const Range &candidate, quint64 byte) { return candidate.begin < byte; });
        for (; range != m_ranges.cend() && range->begin < mine.end; ++range) {
            if (collide(mine, *range)) {
                found.push_back(range->leaf);
            }
        }
    }
    std::sort(found.begin(), found.end());
    found.erase(std::unique(found.begin(), found.end()), found.end());
    return found;
}

std::optional<QString> SlotRanges::sharedByte(const std::vector<Range> &own, bool isOfOneLeaf,
                                              int other) const
{
    const std::vector<Range> theirs = rangesOf(m_leaves.at(other), other);
    for (const Range &mine : own) {
        const auto range = std::find_if(theirs.cbegin(), theirs.cend(), [&](const Range &their) {
            // Of one leaf the value and the state behind it.
            return (!isOfOneLeaf || their.begin > mine.begin) && collide(mine, their);
        });
        if (range != theirs.cend()) {
            return QStringLiteral("byte %1 with '%2'")
                .arg(std::max(mine.begin, range->begin))
                .arg(m_leaves.at(other).url);
        }
    }
    return std::nullopt;
}
