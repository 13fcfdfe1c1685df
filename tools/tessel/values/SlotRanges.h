#pragma once

#include "values/LeafSlot.h"

#include <QStringList>

#include <optional>
#include <vector>

/// Which bytes the leaves of a description have, and who shares some without being bits with masks of
/// their own. Made once for many questions.
class SlotRanges
{
public:
    /// The leaves have to live as long as this.
    explicit SlotRanges(const QVector<Leaf> &leaves);

    /// One line for each pair of slots that share a byte, for the first 1000 of them.
    QStringList overlaps() const;
    /// The same of one leaf and all others, whose URLs it names: "byte 4 with 'n/speed'". Each once.
    QStringList sharedBytes(const Leaf &leaf) const;

private:
    /// Bytes that belong to one leaf, or bits of one byte.
    struct Range
    {
        quint64 begin;
        quint64 end;
        quint32 bits; ///< 0 for whole bytes
        int leaf;
    };

    static std::vector<Range> rangesOf(const Leaf &leaf, int number);
    static bool collide(const Range &left, const Range &right);

    /// In the order of the leaves, each once.
    std::vector<int> neighboursOf(const std::vector<Range> &own) const;
    std::optional<QString> sharedByte(const std::vector<Range> &own, bool isOfOneLeaf,
                                      int other) const;

    const QVector<Leaf> &m_leaves;
    std::vector<Range> m_ranges; ///< by their first bytes
    quint64 m_longest = 0;       ///< of them
};
