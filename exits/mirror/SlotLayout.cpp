#include "mirror/SlotLayout.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "ProcessDataManagement/LayoutFingerprint.h"

#include <algorithm>
#include <tuple>

namespace {

using Definitions = ConfigurationAndProcessDataDefinitions;

LeafSlot slotOf(const FollowedLeaf &leaf)
{
    const auto number = [&](const QString &key) {
        return static_cast<quint32>(leaf.element->getProperty(key).toUInt());
    };
    return {leaf.url,
            leaf.type,
            number(Definitions::getKeyDataPropertyOffsetSharedMemory()),
            number(Definitions::getKeyDataPropertySizeValue()),
            number(Definitions::getKeyDataPropertyRelativeOffsetMetadata()),
            number(Definitions::getKeyDataPropertySizeMetadata()),
            number(Definitions::getKeyDataPropertyBitmask())};
}

auto rankOf(const LeafSlot &leaf)
{
    return std::tie(leaf.offset, leaf.url, leaf.type, leaf.sizeValue, leaf.relativeOffsetMetadata,
                    leaf.sizeMetadata, leaf.mask);
}

QString textOf(const LeafSlot &leaf)
{
    return QStringLiteral("'%1', type %2 at offset %3, %4 bytes, error state %5, mask %6")
        .arg(leaf.url, leaf.type, QString::number(leaf.offset), QString::number(leaf.sizeValue),
             leaf.sizeMetadata == 0 ? QStringLiteral("none")
                                    : QStringLiteral("%1 behind").arg(leaf.relativeOffsetMetadata),
             QString::number(leaf.mask));
}

} // namespace

bool LeafSlot::operator==(const LeafSlot &other) const
{
    return rankOf(*this) == rankOf(other);
}

bool LeafSlot::carriesState() const
{
    // Of the encodings inside a value only that of a float is recognised by readers.
    return sizeMetadata != 0
           || Definitions::getBasicDataTypeMapForProcessData().value(type, QMetaType::UnknownType)
                  == QMetaType::Float;
}

SlotLayout SlotLayout::of(const DescriptionTree &tree)
{
    SlotLayout layout;
    layout.fingerprint = LayoutFingerprint(tree.root).getValue();
    layout.bufferSize =
        tree.root->getProperty(Definitions::getKeyDataPropertySizeOfSharedMemory()).toUInt();
    layout.leaves.reserve(tree.leaves.size());
    for (const auto &leaf : tree.leaves) {
        layout.leaves.append(slotOf(leaf));
    }
    std::sort(
        layout.leaves.begin(), layout.leaves.end(),
        [](const LeafSlot &left, const LeafSlot &right) { return rankOf(left) < rankOf(right); });
    return layout;
}

QStringList SlotLayout::withoutState() const
{
    QStringList urls;
    for (const auto &leaf : leaves) {
        if (!leaf.carriesState()) {
            urls.append(leaf.url);
        }
    }
    return urls;
}

QString SlotLayout::firstDifference(const SlotLayout &source) const
{
    const int both = std::min(leaves.size(), source.leaves.size());
    for (int i = 0; i < both; ++i) {
        if (leaves[i] != source.leaves[i]) {
            return QStringLiteral("the source has %1; here it is %2")
                .arg(textOf(source.leaves[i]), textOf(leaves[i]));
        }
    }
    if (leaves.size() > both) {
        return QStringLiteral("the source has no %1").arg(textOf(leaves[both]));
    }
    if (source.leaves.size() > both) {
        return QStringLiteral("only the source has %1").arg(textOf(source.leaves[both]));
    }
    return {};
}
