#include "leaves/NumberLimits.h"

#include "leaves/ShortestText.h"

namespace {

bool isLess(const QVariant &left, const QVariant &right)
{
    switch (left.userType()) {
    case QMetaType::UInt:
    case QMetaType::ULongLong: return left.toULongLong() < right.toULongLong();
    case QMetaType::Float:
    case QMetaType::Double: return left.toDouble() < right.toDouble();
    default: return left.toLongLong() < right.toLongLong();
    }
}

} // namespace

QVariant limitOf(QVariant property, int metaType)
{
    return !property.isNull() && property.convert(metaType) ? property : QVariant();
}

QString limitProblem(const QVariant &value, const QVariant &minLimit, const QVariant &maxLimit)
{
    if (value.userType() == QMetaType::QString || value.userType() == QMetaType::Bool) {
        return {};
    }
    const QVariant least = limitOf(minLimit, value.userType());
    if (least.isValid() && isLess(value, least)) {
        return QStringLiteral("%1 is below the lower limit, %2")
            .arg(shortestText(value), shortestText(least));
    }
    const QVariant most = limitOf(maxLimit, value.userType());
    if (most.isValid() && isLess(most, value)) {
        return QStringLiteral("%1 is above the upper limit, %2")
            .arg(shortestText(value), shortestText(most));
    }
    return {};
}
