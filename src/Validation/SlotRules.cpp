#include "Companion/PingPongBufferHandler.h"
#include "Validation/SlotOverlaps_p.h"
#include "Validation/SlotRules_p.h"
#include "Validation/ValueShown_p.h"

#include <algorithm>
#include <climits>
#include <limits>

namespace {

using Key = DescribedKey;

constexpr quint32 byteMask = 0xff;

void checkSize(const CheckedElement &leaf, const ProcessSlot &slot)
{
    const DescribedType &type = leaf.type();
    const QString &name = leaf.typeName();
    if (type.isText) {
        if (slot.size < 2) {
            leaf.report(Rule::StringSize, Key::SizeValue,
                        QStringLiteral("%1 bytes hold no text").arg(slot.size));
        } else if (slot.size % 2 != 0) {
            leaf.report(Rule::StringSizeOdd, Key::SizeValue,
                        QStringLiteral("the last of %1 bytes is never used").arg(slot.size));
        }
    } else if (!type.isBit && slot.size != static_cast<quint32>(type.slotSize)) {
        leaf.report(
            Rule::SizeOfType, Key::SizeValue,
            QStringLiteral("%1 bytes, and %2 has %3").arg(slot.size).arg(name).arg(type.slotSize));
    }
}

void checkMetadata(const CheckedElement &leaf, const ProcessSlot &slot)
{
    if (slot.hasMetadata() && slot.sizeMetadata != ProcessSlot::sm_stateSize) {
        leaf.report(Rule::SizeOfMetadata, Key::SizeMetadata,
                    QStringLiteral("%1 bytes, and an error state has %2")
                        .arg(slot.sizeMetadata)
                        .arg(ProcessSlot::sm_stateSize));
    }
    if (!slot.hasMetadata() && leaf.type().metaType != QMetaType::Float) {
        leaf.report(Rule::NoErrorState, Key::Type,
                    QStringLiteral("a slot of %1 without metadata carries no error state")
                        .arg(leaf.typeName()));
    }
}

void checkMask(const CheckedElement &leaf, const ProcessSlot &slot)
{
    if (!slot.isBit()) {
        return;
    }
    if ((slot.mask & byteMask) == 0) {
        leaf.report(Rule::MaskEmpty, Key::Bitmask,
                    leaf.has(Key::Bitmask)
                        ? QStringLiteral("%1 has none of the bits 1 to 128").arg(slot.mask)
                        : QStringLiteral("the bit has no 'bitmask'"));
    } else if (slot.mask > byteMask) {
        leaf.report(Rule::MaskBeyondByte, Key::Bitmask,
                    QStringLiteral("%1 is used as %2").arg(slot.mask).arg(slot.mask & byteMask));
    }
}

void checkEnd(CheckedFile &file, const ProcessSlot &slot, quint32 bufferSize)
{
    if (slot.valueEnd() > bufferSize) {
        file.report(Rule::SlotOutsideBuffer, slot.offsetAt, slot.url,
                    QStringLiteral("the value ends at byte %1 of a buffer of %2")
                        .arg(slot.valueEnd())
                        .arg(bufferSize));
    } else if (slot.hasMetadata() && slot.stateEnd() > bufferSize) {
        file.report(Rule::MetadataOutsideBuffer, slot.distanceAt, slot.url,
                    QStringLiteral("the error state ends at byte %1 of a buffer of %2")
                        .arg(slot.stateEnd())
                        .arg(bufferSize));
    } else if (slot.countedEnd() > bufferSize) {
        file.report(Rule::MetadataOutsideBuffer, slot.sizeMetadataAt, slot.url,
                    QStringLiteral("%1 bytes of metadata are counted from byte %2 of a buffer of "
                                   "%3, and the value is not bound")
                        .arg(slot.sizeMetadata)
                        .arg(slot.offset)
                        .arg(bufferSize));
    }
}

bool isConvenient(QChar character)
{
    const ushort unit = character.unicode();
    return (unit >= 'a' && unit <= 'z') || (unit >= 'A' && unit <= 'Z')
           || (unit >= '0' && unit <= '9') || unit == '-' || unit == '_';
}

/// Both halves and the block in front of them, if there are two.
quint64 regionSize(quint32 bufferSize, bool isDouble)
{
    return isDouble ? PingPongBufferHandler::getSizeManagementBuffer() + quint64(bufferSize) * 2
                    : bufferSize;
}

void checkBufferSize(const CheckedElement &root)
{
    const quint32 size = root.count(Key::SizeOfSharedMemory);
    const quint64 region = regionSize(size, root.flag(Key::DoubleBuffer));
    if (region > quint64(std::numeric_limits<int>::max())) {
        root.report(Rule::BufferSize, Key::SizeOfSharedMemory,
                    QStringLiteral("a region of %1 bytes is too large").arg(region));
    }
}

} // namespace

void SlotRules::checkLeaf(const CheckedElement &leaf, const ProcessSlot &slot)
{
    checkSize(leaf, slot);
    checkMetadata(leaf, slot);
    checkMask(leaf, slot);
}

void SlotRules::checkRegion(const CheckedElement &root, const QVector<ProcessSlot> &leaves)
{
    if (!root.has(Key::SizeOfSharedMemory)) {
        root.report(
            Rule::NoMemory, Key::SizeOfSharedMemory,
            QStringLiteral("the description has no '%1'").arg(textOf(Key::SizeOfSharedMemory)));
    } else {
        checkBufferSize(root);
        checkMemoryKey(root);
        for (const ProcessSlot &slot : leaves) {
            checkEnd(root.file(), slot, root.count(Key::SizeOfSharedMemory));
        }
    }
    checkOverlaps(root.file(), leaves);
}

void SlotRules::checkForBuild(CheckedFile &file, const QVector<ProcessSlot> &leaves)
{
    for (const ProcessSlot &slot : leaves) {
        // Whatever the type has, the size alone is what a build gives to the value.
        const quint64 given = quint64(slot.size) + slot.sizeMetadata;
        const quint64 value = slot.valueEnd() - slot.offset;
        if (!slot.hasMetadata()) {
            continue;
        }
        if (slot.distance < value) {
            file.report(Rule::DistanceIntoSlot, slot.distanceAt, slot.url,
                        QStringLiteral("the error state begins in its own value, at byte %1 of %2")
                            .arg(slot.distance)
                            .arg(value));
        } else if (quint64(slot.distance) + ProcessSlot::sm_stateSize > given) {
            file.report(Rule::DistanceOutsideSlot, slot.distanceAt, slot.url,
                        QStringLiteral("the error state ends at byte %1 of a slot of %2")
                            .arg(quint64(slot.distance) + ProcessSlot::sm_stateSize)
                            .arg(given));
        }
    }
}

bool SlotRules::checkLeafForBuild(const CheckedElement &leaf)
{
    const auto keys = {Key::OffsetSharedMemory, Key::SizeValue, Key::SizeMetadata};
    for (const Key key : keys) {
        if (!leaf.has(key)) {
            leaf.report(Rule::MissingBuildKey, key,
                        QStringLiteral("a build needs '%1'").arg(textOf(key)));
            return false;
        }
    }
    return true;
}

bool SlotRules::checkRootForBuild(const CheckedElement &root)
{
    const auto keys = {Key::SizeOfSharedMemory, Key::KeyProcessDataMemory, Key::DoubleBuffer};
    for (const Key key : keys) {
        if (!root.has(key)) {
            root.report(Rule::MissingBuildKey, key,
                        QStringLiteral("a folder's description needs '%1'").arg(textOf(key)));
            return false;
        }
    }
    return true;
}

void SlotRules::checkMemoryKey(const CheckedElement &root)
{
    // The name of the memory begins with a slash, and has to be a name of a file.
    constexpr int longestKey = NAME_MAX - static_cast<int>(sizeof("/SharedMemory") - 1);
    if (!root.has(Key::KeyProcessDataMemory)) {
        root.report(
            Rule::MissingKey, Key::KeyProcessDataMemory,
            QStringLiteral("the region has no '%1'").arg(textOf(Key::KeyProcessDataMemory)));
        return;
    }
    const QString key = root.value(Key::KeyProcessDataMemory).toVariant().toString();
    const QByteArray name = key.toUtf8();
    if (key.isEmpty() || name.contains('/') || name.contains('\0') || name.size() > longestKey) {
        root.report(Rule::MemoryKey, Key::KeyProcessDataMemory,
                    QStringLiteral("no region can be called %1").arg(quoted(key)));
    } else if (!std::all_of(key.cbegin(), key.cend(), isConvenient)) {
        root.report(Rule::MemoryKeyCharacters, Key::KeyProcessDataMemory,
                    QStringLiteral("%1 becomes part of the name of a file").arg(quoted(key)));
    }
}
