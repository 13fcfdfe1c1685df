#include "region/WriteCheck.h"

#include "leaves/NumberLimits.h"
#include "leaves/ShortestText.h"

#include <cmath>

namespace {

bool isFloating(const QVariant &value)
{
    return value.userType() == QMetaType::Float || value.userType() == QMetaType::Double;
}

QString problemOfNumber(const FollowedLeaf &leaf, const QVariant &value)
{
    if (isFloating(value) && !std::isfinite(value.toDouble())) {
        return QStringLiteral("%1 is no finite number").arg(shortestText(value));
    }
    return limitProblem(value, leaf.minLimit.value_or(QVariant()),
                        leaf.maxLimit.value_or(QVariant()));
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
    return WritableSlot::of(*leaf.element).problemOfState();
}

QString problemOfWrite(const FollowedLeaf &leaf, const QVariant &value)
{
    QString problem = problemOfLeaf(leaf);
    if (problem.isEmpty()) {
        problem = WritableSlot::of(*leaf.element).problemOf(value);
    }
    return problem.isEmpty() && leaf.kind == FollowedLeaf::Kind::Number
               ? problemOfNumber(leaf, value)
               : problem;
}
