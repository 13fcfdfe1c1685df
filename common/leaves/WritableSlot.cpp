#include "leaves/WritableSlot.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "leaves/ShortestText.h"

#include <algorithm>

namespace {

using Definitions = ConfigurationAndProcessDataDefinitions;

QString problemOfText(const QString &text, quint32 size)
{
    if (text.contains(QChar::Null)) {
        return QStringLiteral("a text ends where its first zero character is");
    }
    // UTF-16 with a zero unit behind it.
    const int capacity = std::max(static_cast<int>(size / sizeof(ushort)) - 1, 0);
    return text.size() > capacity ? QStringLiteral("a text of %1 characters does not fit; %2 do")
                                        .arg(text.size())
                                        .arg(capacity)
                                  : QString();
}

bool isErrorState(float number)
{
    return ProcessValueErrorTypeMapDefinitions::getMapFloatValueToStateType().contains(number);
}

} // namespace

WritableSlot WritableSlot::of(const ProcessDataValue &element)
{
    const QString type = element.getProperty(Definitions::getKeyDataPropertyType()).toString();
    return {type,
            Definitions::getBasicDataTypeMapForProcessData().value(type, QMetaType::UnknownType),
            element.getProperty(Definitions::getKeyDataPropertySizeValue()).toUInt(),
            element.getProperty(Definitions::getKeyDataPropertySizeMetadata()).toUInt() != 0,
            element.getProperty(Definitions::getKeyDataPropertyBitmask()).toUInt()};
}

bool WritableSlot::isBit() const
{
    return metaType == QMetaType::Bool && type != Definitions::getKeyDataTypeBoolean();
}

bool WritableSlot::carriesErrorState() const
{
    return hasState || metaType == QMetaType::Float;
}

QString WritableSlot::problemOf(const QVariant &value) const
{
    if (metaType == QMetaType::QString) {
        return problemOfText(value.toString(), size);
    }
    if (metaType == QMetaType::Float && !hasState && isErrorState(value.toFloat())) {
        return QStringLiteral("%1 would read back as an error state, which this slot keeps in the "
                              "number")
            .arg(shortestText(value));
    }
    return isBit() && (bitmask & 0xFFU) == 0
               ? QStringLiteral("the mask of this bit names no bit of its byte")
               : QString();
}

QString WritableSlot::problemOfState() const
{
    return carriesErrorState()
               ? QString()
               : QStringLiteral("a %1 without metadata cannot carry an error state").arg(type);
}
