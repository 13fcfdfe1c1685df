#include "Access/ProcessDataGuards.h"
#include "TesselModels/LeafWriting_p.h"
#include "leaves/NumberLimits.h"
#include "leaves/TypedValue.h"

#include <cmath>
#include <limits>

namespace {

using TesselModels::WriteError;

bool isFloating(QMetaType::Type type)
{
    return type == QMetaType::Float || type == QMetaType::Double;
}

/// What a person would have typed. QML has no other numbers than doubles: 5.0 is a whole number there.
QString textOf(const QVariant &given, QMetaType::Type content)
{
    // Up to here each whole number is a double of its own.
    constexpr double mostExact = 9007199254740992.0;
    const auto type = static_cast<QMetaType::Type>(given.userType());
    if (!isFloating(type)) {
        return given.toString();
    }
    const double number = given.toDouble();
    if (!isFloating(content) && std::trunc(number) == number && std::abs(number) <= mostExact) {
        return QString::number(static_cast<qint64>(number));
    }
    return QString::number(number, 'g', std::numeric_limits<double>::max_digits10);
}

QString about(const QString &url, const QString &problem)
{
    return QStringLiteral("'%1': %2").arg(url, problem);
}

} // namespace

std::optional<WriteProblem> LeafWriting::check(const QVariant &given, QVariant &value) const
{
    if (!given.isValid() || given.isNull() || !given.canConvert<QString>()) {
        return WriteProblem{WriteError::WrongType,
                            about(leaf.url, QStringLiteral("what was given is no value"))};
    }
    const WritableSlot slot = WritableSlot::of(element);
    const TypedValue typed = TypedValue::fromText(slot, textOf(given, leaf.content), {});
    const QString problem = typed.problem.isEmpty() ? slot.problemOf(typed.value) : typed.problem;
    if (!problem.isEmpty()) {
        return WriteProblem{WriteError::WrongType, about(leaf.url, problem)};
    }
    value = typed.value;
    return checkLimits(value);
}

std::optional<WriteProblem> LeafWriting::checkLimits(const QVariant &value) const
{
    const QString problem = limitProblem(value, leaf.minimum, leaf.maximum);
    return problem.isEmpty()
               ? std::nullopt
               : std::make_optional(WriteProblem{WriteError::OutOfRange, about(leaf.url, problem)});
}

std::optional<WriteProblem> LeafWriting::publish(ProcessDataManager &manager,
                                                 const QVariant &given) const
{
    if (leaf.isReadOnly) {
        return WriteProblem{WriteError::ReadOnly,
                            QStringLiteral("'%1' is read-only; only the process that created the "
                                           "region writes it")
                                .arg(leaf.url)};
    }
    QVariant value;
    if (const auto problem = check(given, value)) {
        return problem;
    }
    const ProcessDataWriteGuard guard(manager);
    if (!guard.isLocked()) {
        return WriteProblem{WriteError::NotPublished,
                            QStringLiteral("'%1': no lock on the region was to be had; a writer "
                                           "stands still inside, 'tessel info' tells which")
                                .arg(leaf.url)};
    }
    ProcessValue former(ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE);
    element.getValueNoLock(former);
    const ProcessValue wanted(value, ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID);
    if (!element.setValueNoLock(wanted)) {
        return WriteProblem{
            WriteError::NotPublished,
            QStringLiteral("'%1' was not written; the log has the reason").arg(leaf.url)};
    }
    // Inside the lock: what is not published is taken back before anybody's next set takes it along.
    if (!manager.swapReadAndWriteBuffer()) {
        element.setValueNoLock(former);
        return WriteProblem{
            WriteError::NotPublished,
            QStringLiteral("'%1' was not published; the log has the reason").arg(leaf.url)};
    }
    return std::nullopt;
}
