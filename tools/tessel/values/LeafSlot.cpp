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
    return hasMetadata() ? std::max(valueEnd(), stateBegin() + sm_metadataWidth) : valueEnd();
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

QString typeText(const LeafSlot &slot)
{
    return slot.isBit()
               ? QStringLiteral("%1 0x%2").arg(slot.type).arg(slot.bitmask, 2, 16, QLatin1Char('0'))
               : slot.type;
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
