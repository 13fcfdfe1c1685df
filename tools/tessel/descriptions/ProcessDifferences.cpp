#include "descriptions/ProcessDifferences.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "ProcessDataManagement/LayoutFingerprint.h"
#include "values/NewSharers.h"
#include "values/SizeOnlyBuffer.h"

#include <QMap>

#include <algorithm>
#include <limits>
#include <optional>
#include <set>
#include <vector>

namespace {

using Definitions = ConfigurationAndProcessDataDefinitions;
using Properties = ConfigurationAndProcessDataBase::PropertyMap;

bool hasStateOnValue(const LeafSlot &slot)
{
    return slot.hasMetadata() && slot.stateBegin() < slot.valueEnd();
}

/// The slot as bytes that others may have as well: of a leaf whose error state lies on its value one piece, as it
/// shares them with itself.
LeafSlot bytesOf(const LeafSlot &slot)
{
    if (!hasStateOnValue(slot)) {
        return slot;
    }
    const quint64 size = std::min<quint64>(slot.end() - slot.offset,
                                           std::numeric_limits<quint32>::max());
    return {slot.offset, static_cast<quint32>(size), 0, 0, 0, {}, QMetaType::UnknownType, false};
}

/// The leaves of one description by URL. Keys with a slash inside may give several of them one URL.
class Leaves
{
public:
    struct Entry
    {
        Leaf leaf;
        LeafSlot slot;
        int number; ///< among all leaves
    };

    explicit Leaves(const DescriptionSource &description)
    {
        for (const Leaf &leaf : description.leaves()) {
            m_leaves[leaf.url].append({leaf, slotOf(leaf), m_count++});
        }
    }

    const QMap<QString, QVector<Entry>> &entries() const { return m_leaves; }
    int count() const { return m_count; }

private:
    QMap<QString, QVector<Entry>> m_leaves;
    int m_count = 0;
};

/// A leaf in both descriptions, or in one of them.
struct LeafPair
{
    const Leaves::Entry *former;
    const Leaves::Entry *now;
};

/// Of several leaves with one URL those belong together that lie at one place, and else as they follow each other.
void pairUp(std::vector<LeafPair> &pairs, const QVector<Leaves::Entry> &former,
            const QVector<Leaves::Entry> &now)
{
    std::vector<const Leaves::Entry *> left;
    for (const auto &leaf : now) {
        left.push_back(&leaf);
    }
    std::vector<const Leaves::Entry *> moved;
    for (const auto &formerLeaf : former) {
        const auto same = std::find_if(left.begin(), left.end(), [&](const auto *leaf) {
            return leaf->slot.offset == formerLeaf.slot.offset;
        });
        if (same == left.end()) {
            moved.push_back(&formerLeaf);
        } else {
            pairs.push_back({&formerLeaf, *same});
            left.erase(same);
        }
    }
    for (std::size_t i = 0; i < std::max(moved.size(), left.size()); ++i) {
        pairs.push_back(
            {i < moved.size() ? moved[i] : nullptr, i < left.size() ? left[i] : nullptr});
    }
}

/// By URL.
std::vector<LeafPair> pairsOf(const Leaves &former, const Leaves &now)
{
    std::vector<LeafPair> pairs;
    for (auto leaf = former.entries().cbegin(); leaf != former.entries().cend(); ++leaf) {
        const auto other = now.entries().constFind(leaf.key());
        static const QVector<Leaves::Entry> none;
        pairUp(pairs, *leaf, other == now.entries().cend() ? none : *other);
    }
    for (auto leaf = now.entries().cbegin(); leaf != now.entries().cend(); ++leaf) {
        if (!former.entries().contains(leaf.key())) {
            pairUp(pairs, {}, *leaf);
        }
    }
    return pairs;
}

/// The URL of who has got bytes of a leaf of now, by its number; empty if nobody has.
std::vector<QString> newSharersOf(const std::vector<LeafPair> &pairs, const Leaves &now)
{
    const auto count = static_cast<std::size_t>(now.count());
    std::vector<LeafSlot> present(count);
    std::vector<std::optional<LeafSlot>> former(count);
    std::vector<QString> urls(count);
    for (const LeafPair &pair : pairs) {
        if (pair.now != nullptr) {
            const auto number = static_cast<std::size_t>(pair.now->number);
            present[number] = bytesOf(pair.now->slot);
            urls[number] = pair.now->leaf.url;
            former[number] = pair.former == nullptr
                                 ? std::nullopt
                                 : std::make_optional(bytesOf(pair.former->slot));
        }
    }
    std::vector<QString> sharers(count);
    const std::vector<int> found = newSharers(present, former);
    for (std::size_t i = 0; i < count; ++i) {
        sharers[i] = found[i] == noSharer ? QString() : urls[static_cast<std::size_t>(found[i])];
    }
    return sharers;
}

/// What is no other place or size, but tells a process of the former description that the layout is another.
QString fingerprintReason()
{
    return QStringLiteral("the layout has another fingerprint");
}

void addBreaking(Difference &difference, const QString &what, const QVariant &former,
                 const QVariant &now, const QString &reason)
{
    difference.changes.append({what, former, now, Verdict::Breaking, reason});
}

void addAttach(Difference &difference, const QString &what, const QVariant &former,
               const QVariant &now, const QString &reason)
{
    difference.changes.append({what, former, now, Verdict::Attach, reason});
}

/// The slot of a leaf. All of it is in the fingerprint, also what nobody looks at.
void addSlotChange(Difference &difference, const QString &key, const QVariant &former,
                   const QVariant &now, const LeafSlot &formerSlot, const LeafSlot &slot)
{
    const QString moved = QStringLiteral("it lies elsewhere");
    if (key == Definitions::getKeyDataPropertySizeValue()) {
        if (slot.metaType == QMetaType::QString && slot.size < formerSlot.size) {
            addBreaking(difference, key, former, now,
                        QStringLiteral("texts that had room are refused"));
        } else {
            addAttach(difference, key, former, now, QStringLiteral("it has another size"));
        }
    } else if (key == Definitions::getKeyDataPropertySizeMetadata()) {
        if (formerSlot.carriesErrorState() && !slot.carriesErrorState()) {
            addBreaking(difference, key, former, now,
                        QStringLiteral("it no longer carries an error state"));
        } else {
            addAttach(difference, key, former, now,
                      QStringLiteral("its error state has another size"));
        }
    } else if (key == Definitions::getKeyDataPropertyRelativeOffsetMetadata()) {
        if (slot.hasMetadata() && formerSlot.hasMetadata()) {
            addAttach(difference, key, former, now,
                      QStringLiteral("its error state lies elsewhere"));
        } else {
            addAttach(difference, key, former, now, fingerprintReason());
        }
    } else if (key == Definitions::getKeyDataPropertyBitmask() && !slot.isBit()) {
        addAttach(difference, key, former, now, fingerprintReason());
    } else {
        addAttach(difference, key, former, now, moved);
    }
}

void addProperty(Difference &difference, const QString &key, const QVariant &former,
                 const QVariant &now, const Leaves::Entry &formerLeaf, const Leaves::Entry &leaf)
{
    if (key == Definitions::getKeyDataPropertyType()) {
        addBreaking(difference, key, former, now, QStringLiteral("it has another type"));
    } else if (key == Definitions::getKeyDataPropertyUnit()
               || key == Definitions::getKeyDataPropertyUnitType()) {
        addUnit(difference, key, former, now);
    } else if (key == Definitions::getKeyDataPropertyReadOnly() && now.toBool() != former.toBool()
               && now.toBool()) {
        addBreaking(difference, key, former, now,
                    QStringLiteral("only the process that creates the region writes it"));
    } else if (key == QLatin1String("selectionList")) {
        addSelectionList(difference, former, now);
    } else if (isSlotKey(key)) {
        addSlotChange(difference, key, former, now, formerLeaf.slot, leaf.slot);
    } else {
        addCompatible(difference, key, former, now);
    }
}

QString problemOf(const Leaf &leaf, quint32 bufferSize)
{
    SizeOnlyBuffer buffer(bufferSize);
    leaf.element->setBufferHandlerInterface(&buffer, false);
    return slotProblem(leaf, bufferSize);
}

/// What the changes of slots, or of the buffer, have done to a leaf.
void addFaults(Difference &difference, const Leaves::Entry &formerLeaf, const Leaves::Entry &leaf,
               const QString &newSharer, const DescriptionSource &former,
               const DescriptionSource &now)
{
    if (!newSharer.isEmpty()) {
        addBreaking(difference, QStringLiteral("sharesWith"), {}, newSharer,
                    QStringLiteral("to write one changes the other"));
    }
    if (hasStateOnValue(leaf.slot) && !hasStateOnValue(formerLeaf.slot)) {
        addBreaking(difference, QStringLiteral("fault"), {},
                    QStringLiteral("its error state begins in its own value"),
                    QStringLiteral("to write one changes the other"));
    }
    if (now.bufferSize() == 0 || former.bufferSize() == 0) {
        return;
    }
    const QString problem = problemOf(leaf.leaf, now.bufferSize());
    if (!problem.isEmpty() && problemOf(formerLeaf.leaf, former.bufferSize()).isEmpty()) {
        addBreaking(difference, QStringLiteral("fault"), {}, problem,
                    QStringLiteral("its slot cannot be used"));
    }
}

void addRemoved(QVector<Difference> &differences, const Leaves::Entry &former)
{
    Difference difference{Difference::Kind::Process, former.leaf.url, {}};
    addBreaking(difference, QStringLiteral("removed"), former.slot.type, {},
                QStringLiteral("there is nothing at its URL"));
    differences.append(difference);
}

void addAdded(QVector<Difference> &differences, const Leaves::Entry &leaf)
{
    Difference difference{Difference::Kind::Process, leaf.leaf.url, {}};
    addAttach(difference, QStringLiteral("added"), {}, leaf.slot.type, fingerprintReason());
    differences.append(difference);
}

Difference regionDifference(const DescriptionSource &former, const DescriptionSource &now)
{
    Difference difference{Difference::Kind::Process, {}, {}};
    if (former.key() != now.key()) {
        const QString &key = Definitions::getStrKeyProcessDataMemory();
        if (former.key().isEmpty()) {
            addCompatible(difference, key, {}, now.key());
        } else {
            addBreaking(difference, key, former.key(), now.key(),
                        QStringLiteral("there is no region of the former key"));
        }
    }
    if (former.isDoubleBuffered() != now.isDoubleBuffered()) {
        addBreaking(difference, Definitions::getKeyDataPropertyDoubleBuffer(),
                    former.isDoubleBuffered(), now.isDoubleBuffered(),
                    now.isDoubleBuffered() ? QStringLiteral("what is not swapped is not seen")
                                           : QStringLiteral("nobody can wait for sets"));
    }
    if (former.bufferSize() != now.bufferSize()) {
        const QString &key = Definitions::getKeyDataPropertySizeOfSharedMemory();
        if (now.bufferSize() == 0) {
            addBreaking(difference, key, former.bufferSize(), now.bufferSize(),
                        QStringLiteral("no memory is described"));
        } else {
            addAttach(difference, key, former.bufferSize(), now.bufferSize(),
                      QStringLiteral("the region has another size"));
        }
    }
    return difference;
}

/// What no leaf has told.
void addFingerprint(QVector<Difference> &differences, const DescriptionSource &former,
                    const DescriptionSource &now)
{
    const quint64 formerValue = LayoutFingerprint(former.root()).getValue();
    const quint64 value = LayoutFingerprint(now.root()).getValue();
    const bool isTold = std::any_of(
        differences.cbegin(), differences.cend(),
        [](const Difference &difference) { return difference.verdict() != Verdict::Compatible; });
    if (formerValue == value || isTold) {
        return;
    }
    if (differences.isEmpty() || !differences.constFirst().url.isEmpty()) {
        differences.prepend({Difference::Kind::Process, {}, {}});
    }
    const auto text = [](quint64 number) {
        return QStringLiteral("%1").arg(number, 16, 16, QLatin1Char('0'));
    };
    addAttach(differences.first(), QStringLiteral("fingerprint"), text(formerValue), text(value),
              fingerprintReason());
}

/// The keys of both, in ascending order.
std::set<QString> keysOf(const Properties &former, const Properties &now)
{
    std::set<QString> keys;
    for (const Properties &properties : {former, now}) {
        for (auto property = properties.cbegin(); property != properties.cend(); ++property) {
            keys.insert(property.key());
        }
    }
    return keys;
}

void addLeaf(QVector<Difference> &differences, const LeafPair &pair, const QString &newSharer,
             const DescriptionSource &former, const DescriptionSource &now)
{
    Difference difference{Difference::Kind::Process, pair.now->leaf.url, {}};
    const Properties formerProperties = pair.former->leaf.element->getProperties();
    const Properties properties = pair.now->leaf.element->getProperties();
    for (const QString &key : keysOf(formerProperties, properties)) {
        const QVariant before = formerProperties.value(key);
        const QVariant after = properties.value(key);
        if (!isReadAlike(key, before, after)) {
            addProperty(difference, key, before, after, *pair.former, *pair.now);
        }
    }
    addFaults(difference, *pair.former, *pair.now, newSharer, former, now);
    if (!difference.changes.isEmpty()) {
        differences.append(difference);
    }
}

} // namespace

QVector<Difference> processDifferences(const DescriptionSource &former,
                                       const DescriptionSource &now)
{
    const Leaves formerLeaves(former);
    const Leaves leaves(now);
    QVector<Difference> differences;
    const Difference region = regionDifference(former, now);
    if (!region.changes.isEmpty()) {
        differences.append(region);
    }
    const std::vector<LeafPair> pairs = pairsOf(formerLeaves, leaves);
    const std::vector<QString> sharers = newSharersOf(pairs, leaves);
    for (const LeafPair &pair : pairs) {
        if (pair.now == nullptr) {
            addRemoved(differences, *pair.former);
        } else if (pair.former == nullptr) {
            addAdded(differences, *pair.now);
        } else {
            addLeaf(differences, pair, sharers[static_cast<std::size_t>(pair.now->number)], former,
                    now);
        }
    }
    addFingerprint(differences, former, now);
    return differences;
}
