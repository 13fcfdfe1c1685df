#include "region/WriteCheck.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"

#include <cmath>

namespace {

using Definitions = ConfigurationAndProcessDataDefinitions;

bool isFloating(const QVariant &value)
{
    return value.userType() == QMetaType::Float || value.userType() == QMetaType::Double;
}

bool isLess(const QVariant &left, const QVariant &right)
{
    if (isFloating(left)) {
        return left.toDouble() < right.toDouble();
    }
    return left.userType() == QMetaType::ULongLong ? left.toULongLong() < right.toULongLong()
                                                   : left.toLongLong() < right.toLongLong();
}

/// Of a limit that is no number of the type there is nothing to hold to.
std::optional<QVariant> asTypeOf(const QVariant &value, const std::optional<QVariant> &limit)
{
    QVariant converted = limit.value_or(QVariant());
    return converted.isValid() && converted.convert(value.userType())
               ? std::make_optional(converted)
               : std::nullopt;
}

QString problemOfLimits(const FollowedLeaf &leaf, const QVariant &value)
{
    const auto least = asTypeOf(value, leaf.minLimit);
    if (least && isLess(value, *least)) {
        return QStringLiteral("%1 is below the lower limit, %2")
            .arg(value.toString(), least->toString());
    }
    const auto most = asTypeOf(value, leaf.maxLimit);
    if (most && isLess(*most, value)) {
        return QStringLiteral("%1 is above the upper limit, %2")
            .arg(value.toString(), most->toString());
    }
    return {};
}

quint32 slotNumber(const FollowedLeaf &leaf, const QString &key)
{
    return leaf.element->getProperty(key).toUInt();
}

QString problemOfText(const FollowedLeaf &leaf, const QString &text)
{
    if (text.contains(QChar::Null)) {
        return QStringLiteral("a text ends where its first zero character is");
    }
    // UTF-16 with a zero unit behind it.
    const int units = static_cast<int>(slotNumber(leaf, Definitions::getKeyDataPropertySizeValue())
                                       / sizeof(ushort));
    const int capacity = std::max(units - 1, 0);
    return text.size() > capacity ? QStringLiteral("a text of %1 characters does not fit; %2 do")
                                        .arg(text.size())
                                        .arg(capacity)
                                  : QString();
}

QString problemOfNumber(const FollowedLeaf &leaf, const QVariant &value)
{
    if (isFloating(value) && !std::isfinite(value.toDouble())) {
        return QStringLiteral("%1 is no finite number").arg(value.toString());
    }
    const bool hasState = slotNumber(leaf, Definitions::getKeyDataPropertySizeMetadata()) != 0;
    if (value.userType() == QMetaType::Float && !hasState
        && ProcessValueErrorTypeMapDefinitions::getMapFloatValueToStateType().contains(
            value.toFloat())) {
        return QStringLiteral("%1 would read back as an error state, which this slot keeps in the "
                              "number")
            .arg(value.toString());
    }
    return problemOfLimits(leaf, value);
}

QString problemOfLeaf(const FollowedLeaf &leaf)
{
    if (!leaf.element) {
        return QStringLiteral("its region is away, or it has no usable slot");
    }
    return leaf.isReadOnly ? QStringLiteral("it is read-only; only the process that created the "
                                            "region writes it")
                           : QString();
}

} // namespace

QString problemOfStateWrite(const FollowedLeaf &leaf, ProcessDataDefinitions::ErrorTypes state)
{
    const QString problem = problemOfLeaf(leaf);
    if (!problem.isEmpty()) {
        return problem;
    }
    if (state == ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID) {
        return QStringLiteral("'valid' is no error; give a value instead");
    }
    const bool hasState = slotNumber(leaf, Definitions::getKeyDataPropertySizeMetadata()) != 0;
    const bool isFloat = Definitions::getBasicDataTypeMapForProcessData().value(leaf.type)
                         == QMetaType::Float;
    return hasState || isFloat
               ? QString()
               : QStringLiteral("a %1 without metadata cannot carry an error state").arg(leaf.type);
}

QString problemOfWrite(const FollowedLeaf &leaf, const QVariant &value)
{
    const QString problem = problemOfLeaf(leaf);
    if (!problem.isEmpty()) {
        return problem;
    }
    switch (leaf.kind) {
    case FollowedLeaf::Kind::Text: return problemOfText(leaf, value.toString());
    case FollowedLeaf::Kind::Number: return problemOfNumber(leaf, value);
    case FollowedLeaf::Kind::Boolean: break;
    }
    const quint32 mask = slotNumber(leaf, Definitions::getKeyDataPropertyBitmask());
    return leaf.type != Definitions::getKeyDataTypeBoolean() && (mask & 0xFFU) == 0
               ? QStringLiteral("the mask of this bit names no bit of its byte")
               : QString();
}
