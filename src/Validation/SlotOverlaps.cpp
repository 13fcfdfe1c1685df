#include "Validation/SlotOverlaps_p.h"
#include "Validation/ValueShown_p.h"

#include <QPair>
#include <QSet>

#include <algorithm>
#include <vector>

namespace {

/// The bytes of a value or of an error state.
struct Bytes
{
    quint64 begin;
    quint64 end;
    const ProcessSlot *leaf;
    bool isState;

    bool isBit() const { return !isState && leaf->isBit(); }
};

std::vector<Bytes> bytesOf(const QVector<ProcessSlot> &leaves)
{
    std::vector<Bytes> all;
    for (const ProcessSlot &leaf : leaves) {
        if (leaf.valueEnd() > leaf.offset) {
            all.push_back({leaf.offset, leaf.valueEnd(), &leaf, false});
        }
        if (leaf.hasMetadata()) {
            all.push_back({leaf.stateBegin(), leaf.stateEnd(), &leaf, true});
        }
    }
    std::stable_sort(all.begin(), all.end(), [](const Bytes &left, const Bytes &right) {
        return left.begin < right.begin;
    });
    return all;
}

/// Of two that have a byte in common, which bits may share.
bool collide(const Bytes &left, const Bytes &right)
{
    return !left.isBit() || !right.isBit() || (left.leaf->mask & right.leaf->mask & 0xff) != 0;
}

/// In leaves that stand in the order of the text.
class Report
{
public:
    explicit Report(CheckedFile &file) : m_file(file) { }

    void add(const Bytes &left, const Bytes &right)
    {
        const bool isRightAtFault = isAtFault(right, left);
        const Bytes &fault = isRightAtFault ? right : left;
        const Bytes &other = isRightAtFault ? left : right;
        // Values that lie on each other mostly have their states on each other as well.
        const auto pair = std::minmax(fault.leaf, other.leaf);
        const QPair<const ProcessSlot *, const ProcessSlot *> leaves(pair.first, pair.second);
        if (m_told.contains(leaves)) {
            return;
        }
        m_told.insert(leaves);
        const quint64 byte = std::max(left.begin, right.begin);
        if (fault.isState && !isUsualState(fault)) {
            addState(fault, other, byte);
        } else if (fault.isBit() && other.isBit()) {
            addMask(fault, other);
        } else {
            m_file.report(
                Rule::SlotsOverlap, fault.leaf->offsetAt, fault.leaf->url,
                QStringLiteral("byte %1 belongs to the %2 as well").arg(byte).arg(nameOf(other)));
        }
    }

private:
    static bool isUsualState(const Bytes &bytes)
    {
        return bytes.isState && bytes.leaf->stateBegin() == bytes.leaf->valueEnd();
    }

    /// A state right behind its value is where it belongs, so that the other one is at fault. Of two that
    /// may be it, the later one in the text.
    static bool isAtFault(const Bytes &one, const Bytes &other)
    {
        const bool isOdd = one.isState && !isUsualState(one);
        const bool isOtherOdd = other.isState && !isUsualState(other);
        return isOdd == isOtherOdd ? one.leaf > other.leaf : isOdd;
    }

    static QString nameOf(const Bytes &bytes)
    {
        return (bytes.isState ? QStringLiteral("error state of ") : QStringLiteral("value of "))
               + quoted(bytes.leaf->url);
    }

    void addState(const Bytes &fault, const Bytes &other, quint64 byte)
    {
        const QString owner = fault.leaf == other.leaf ? QStringLiteral("its own value")
                                                       : QStringLiteral("the ") + nameOf(other);
        m_file.report(
            Rule::DistanceIntoSlot, fault.leaf->distanceAt, fault.leaf->url,
            QStringLiteral("byte %1 of the buffer is in the error state and belongs to %2 "
                           "as well")
                .arg(byte)
                .arg(owner));
    }

    void addMask(const Bytes &fault, const Bytes &other)
    {
        m_file.report(Rule::MasksOverlap, fault.leaf->maskAt, fault.leaf->url,
                      QStringLiteral("bits of byte %1 belong to %2 as well")
                          .arg(fault.begin)
                          .arg(quoted(other.leaf->url)));
    }

    CheckedFile &m_file;
    QSet<QPair<const ProcessSlot *, const ProcessSlot *>> m_told;
};

} // namespace

void checkOverlaps(CheckedFile &file, const QVector<ProcessSlot> &leaves)
{
    Report report(file);
    // Those that reach behind the begin of the one that is looked at.
    std::vector<Bytes> reaching;
    for (const Bytes &bytes : bytesOf(leaves)) {
        reaching.erase(
            std::remove_if(reaching.begin(), reaching.end(),
                           [&bytes](const Bytes &other) { return other.end <= bytes.begin; }),
            reaching.end());
        const auto other = std::find_if(
            reaching.begin(), reaching.end(),
            [&bytes](const Bytes &candidate) { return collide(candidate, bytes); });
        if (other != reaching.end()) {
            report.add(*other, bytes);
        }
        // One that collides adds nothing unless it reaches farther: thousands in one place stay few.
        if (other == reaching.end() || bytes.end > other->end) {
            reaching.push_back(bytes);
        }
    }
}
