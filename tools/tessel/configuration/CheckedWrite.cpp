#include "configuration/CheckedWrite.h"

#include "Configuration/ConfigurationAndProcessDataTools.h"
#include "leaves/NumberLimits.h"
#include "text/Failure.h"
#include "text/LogCollector.h"

namespace {

using Base = ConfigurationAndProcessDataBase;
using Status = Base::SetValueStatus;

/// Tries it on the tree in memory and takes it back.
Status statusOf(const ConfigurationSource &source, const ConfigurationTarget &target,
                const QVariant &value)
{
    const QVariant former = target.leaf.element->getValue();
    const Status status = ConfigurationAndProcessDataTools::setConfigValueWithStatus(
        target.url, source.root(), value);
    if (status == Base::SetValueChanged) {
        target.leaf.element->setValueNoSignalEmit(former);
    }
    // That the pattern does not match is told by the status.
    LogCollector::takeReasons();
    return status;
}

QString refusalOf(Status status, const ConfigurationTarget &target)
{
    switch (status) {
    case Base::SetValueChanged:
    case Base::SetValueUnchanged:
        return target.rules.isReadOnly ? QStringLiteral("it is read-only") : QString();
    case Base::SetValueTargetMissing: return QStringLiteral("there is no such element");
    case Base::SetValueRegularExpressionMismatch:
        return QStringLiteral("the text does not match the pattern");
    case Base::SetValuePropertyPathInvalid: break;
    }
    return QStringLiteral("the element has no value that could be set");
}

/// Without the URL in front, which stands at the top of the screen.
QString reasonOf(const Failure &failure, const ConfigurationTarget &target)
{
    const QString place = QStringLiteral("'%1': ").arg(target.url);
    return failure.reason.startsWith(place) ? failure.reason.mid(place.size()) : failure.reason;
}

bool isWholeArray(const ConfigurationTarget &target)
{
    return !target.isCell && target.leaf.isArray();
}

} // namespace

QString statusText(Status status)
{
    switch (status) {
    case Base::SetValueChanged: return QStringLiteral("changed");
    case Base::SetValueUnchanged: return QStringLiteral("unchanged");
    case Base::SetValueTargetMissing: return QStringLiteral("target missing");
    case Base::SetValueRegularExpressionMismatch:
        return QStringLiteral("regular expression mismatch");
    case Base::SetValuePropertyPathInvalid: break;
    }
    return QStringLiteral("property path invalid");
}

QString limitProblemOf(const ConfigurationTarget &target)
{
    QVariant number = target.value;
    const bool isNumber = target.rules.isNumber() && !number.isNull()
                          && number.convert(target.rules.metaType);
    return isNumber ? limitProblem(number, target.rules.minLimit, target.rules.maxLimit)
                    : QString();
}

CheckedWrite writeOfPresentValue(const ConfigurationSource &source,
                                 const ConfigurationTarget &target)
{
    CheckedWrite write{statusOf(source, target, target.value), {}};
    write.refusal = refusalOf(write.status, target);
    if (write.refusal.isEmpty()) {
        write.refusal = limitProblemOf(target);
    }
    return write;
}

CheckedWrite writeOfText(const ConfigurationSource &source, const ConfigurationTarget &target,
                         const QString &text)
{
    ConfigurationValueRules withoutLimits = target.rules;
    withoutLimits.minLimit = {};
    withoutLimits.maxLimit = {};
    QVariant value = text;
    QString refusal = isWholeArray(target) ? QStringLiteral("it is an array") : QString();
    try {
        if (refusal.isEmpty()) {
            value = configurationValue(text, withoutLimits, target.url);
            configurationValue(text, target.rules, target.url);
        }
    } catch (const Failure &failure) {
        refusal = reasonOf(failure, target);
    }
    const Status status = statusOf(source, target,
                                   target.isCell ? asCell(value, target.rules) : value);
    const QString ofStatus = refusalOf(status, target);
    return {status, ofStatus.isEmpty() ? refusal : ofStatus};
}
