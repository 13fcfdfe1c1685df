#include "values/ValueLimits.h"

#include "values/ValueText.h"

namespace {

bool isLess(const QVariant &left, const QVariant &right)
{
    switch (left.userType()) {
    case QMetaType::ULongLong: return left.toULongLong() < right.toULongLong();
    case QMetaType::Float:
    case QMetaType::Double: return left.toDouble() < right.toDouble();
    default: return left.toLongLong() < right.toLongLong();
    }
}

QString numberText(const QVariant &number)
{
    return valueText({number, ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID});
}

} // namespace

QVariant limitOf(QVariant property, int metaType)
{
    return !property.isNull() && property.convert(metaType) ? property : QVariant();
}

QString limitProblem(const QVariant &value, const QVariant &least, const QVariant &most)
{
    if (least.isValid() && isLess(value, least)) {
        return QStringLiteral("%1 is below the lower limit, %2")
            .arg(numberText(value), numberText(least));
    }
    if (most.isValid() && isLess(most, value)) {
        return QStringLiteral("%1 is above the upper limit, %2")
            .arg(numberText(value), numberText(most));
    }
    return {};
}
