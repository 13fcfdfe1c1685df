#include "values/LeafSlot.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "text/LogCollector.h"

#include <algorithm>

namespace {

using Definitions = ConfigurationAndProcessDataDefinitions;

} // namespace

bool LeafSlot::isBit() const
{
    return metaType == QMetaType::Bool && type != Definitions::getKeyDataTypeBoolean();
}

bool LeafSlot::carriesErrorState() const
{
    return hasMetadata() || metaType == QMetaType::Float;
}

quint64 LeafSlot::end() const
{
    // Of a bit only the one byte is touched, whatever size the description gives.
    const quint64 valueEnd = quint64(offset) + (isBit() ? 1 : size);
    const quint64 wordEnd = quint64(offset) + relativeOffsetMetadata + sm_metadataWidth;
    return hasMetadata() ? std::max(valueEnd, wordEnd) : valueEnd;
}

LeafSlot slotOf(const Leaf &leaf)
{
    const auto number = [&leaf](const QString &key) {
        return leaf.element->getProperty(key).toUInt();
    };
    const QString type = textProperty(leaf, Definitions::getKeyDataPropertyType());
    return {number(Definitions::getKeyDataPropertyOffsetSharedMemory()),
            number(Definitions::getKeyDataPropertySizeValue()),
            number(Definitions::getKeyDataPropertyRelativeOffsetMetadata()),
            number(Definitions::getKeyDataPropertySizeMetadata()),
            number(Definitions::getKeyDataPropertyBitmask()),
            type,
            Definitions::getBasicDataTypeMapForProcessData().value(type, QMetaType::UnknownType),
            leaf.element->getProperty(Definitions::getKeyDataPropertyReadOnly()).toBool()};
}

QString textProperty(const Leaf &leaf, const QString &key)
{
    return leaf.element->getProperty(key).toString();
}

QString slotProblem(const Leaf &leaf, quint32 bufferSize)
{
    LogCollector::takeReasons();
    if (!leaf.element->isObjectValid()) {
        return LogCollector::takeReasons();
    }
    const LeafSlot slot = slotOf(leaf);
    if (slot.end() > bufferSize) {
        return QStringLiteral("its slot ends at byte %1 of a buffer of %2")
            .arg(slot.end())
            .arg(bufferSize);
    }
    return {};
}
