#include "descriptions/ProcessDifferences.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "ProcessDataManagement/LayoutFingerprint.h"
#include "values/BufferMap.h"
#include "values/SizeOnlyBuffer.h"

#include <QMap>

#include <algorithm>
#include <limits>
#include <set>

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

/// The leaves of one description by URL, with those of which others have bytes as well.
class Leaves
{
public:
    explicit Leaves(const DescriptionSource &description)
    {
        QVector<LeafSlot> all;
        for (const Leaf &leaf : description.leaves()) {
            all.append(bytesOf(slotOf(leaf)));
        }
        const BufferMap map(all, description.bufferSize());
        QVector<QString> sharers(all.size());
        for (const auto &piece : map.pieces()) {
            if (piece.sharedWith != BufferMap::none) {
                const auto &other = map.pieces()[static_cast<std::size_t>(piece.sharedWith)];
                sharers[piece.leaf] = description.leaves()[other.leaf].url;
            }
        }
        for (int i = 0; i < all.size(); ++i) {
            m_leaves.insert(description.leaves()[i].url,
                            {description.leaves()[i], slotOf(description.leaves()[i]), sharers[i]});
        }
    }

    struct Entry
    {
        Leaf leaf;
        LeafSlot slot;
        /// Who has bytes of it as well; empty if nobody has.
        QString sharer;
    };

    const QMap<QString, Entry> &entries() const { return m_leaves; }

private:
    QMap<QString, Entry> m_leaves;
};

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
               const DescriptionSource &former, const DescriptionSource &now)
{
    if (formerLeaf.sharer.isEmpty() && !leaf.sharer.isEmpty()) {
        addBreaking(difference, QStringLiteral("sharesWith"), {}, leaf.sharer,
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

/// What no leaf has told, such as a change of one of two leaves with one URL.
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
    for (const auto &formerLeaf : formerLeaves.entries()) {
        const auto leaf = leaves.entries().constFind(formerLeaf.leaf.url);
        if (leaf == leaves.entries().cend()) {
            addRemoved(differences, formerLeaf);
            continue;
        }
        Difference difference{Difference::Kind::Process, formerLeaf.leaf.url, {}};
        const Properties formerProperties = formerLeaf.leaf.element->getProperties();
        const Properties properties = leaf->leaf.element->getProperties();
        for (const QString &key : keysOf(formerProperties, properties)) {
            const QVariant before = formerProperties.value(key);
            const QVariant after = properties.value(key);
            if (!isReadAlike(key, before, after)) {
                addProperty(difference, key, before, after, formerLeaf, *leaf);
            }
        }
        addFaults(difference, formerLeaf, *leaf, former, now);
        if (!difference.changes.isEmpty()) {
            differences.append(difference);
        }
    }
    for (const auto &leaf : leaves.entries()) {
        if (!formerLeaves.entries().contains(leaf.leaf.url)) {
            addAdded(differences, leaf);
        }
    }
    addFingerprint(differences, former, now);
    return differences;
}
