#include "ProcessData/ProcessValue.h"

#include "Companion/ConvertInteger32Bit.h"
#include "Companion/StringConversionsDefinitions.h"
#include "Companion/VEXOConvertDouble.h"

#include <cmath>

using ProcessDataDefinitions::ErrorTypes;

namespace {

void report(bool success, bool *ok)
{
    if (ok != nullptr) {
        *ok = success;
    }
}

ErrorTypes stateFor(const QVariant &value, ErrorTypes errorType)
{
    return value.isValid() ? errorType
                           : ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE;
}

/// Whether the states let a number out at all; the conversion itself may still fail.
bool isConvertible(const ProcessValue &value, QMetaType::Type type)
{
    return value.getErrorType() == ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID
           && value.getValue().canConvert(type);
}

/// Equality of two variants of the floating-point type @p Number, in which NaN equals NaN.
template <class Number>
bool areEqualNumbers(const QVariant &left, const QVariant &right)
{
    const bool isLeftNaN = std::isnan(qvariant_cast<Number>(left));
    const bool isRightNaN = std::isnan(qvariant_cast<Number>(right));
    if (isLeftNaN || isRightNaN) {
        return isLeftNaN && isRightNaN;
    }
    return left == right;
}

bool areEqualContents(const QVariant &left, const QVariant &right)
{
    switch (static_cast<QMetaType::Type>(left.type())) {
    case QMetaType::Float: return areEqualNumbers<float>(left, right);
    case QMetaType::Double: return areEqualNumbers<double>(left, right);
    default: return left == right;
    }
}

QString integerText(int number)
{
    QString text;
    ConvertInteger32Bit().qint32ToString(number, text);
    return text;
}

QString doubleText(double number)
{
    QString text;
    VEXOConvertDouble().doubleToString(number, text);
    return text;
}

const QString &booleanText(bool isTrue)
{
    return isTrue ? StringConversionsDefinitions::getBoolValueTrue()
                  : StringConversionsDefinitions::getBoolValueFalse();
}

} // namespace

ProcessValue::ProcessValue(ErrorTypes errorType) : m_errorType(errorType) { }

ProcessValue::ProcessValue(const QVariant &value, ErrorTypes errorType)
    : m_value(value)
    , m_errorType(stateFor(value, errorType))
{
}

ProcessValue::ProcessValue(const QVariant &value, unsigned int tag, ErrorTypes errorType)
    : m_value(value)
    , m_errorType(stateFor(value, errorType))
    , m_tag(tag)
{
}

ProcessValue::~ProcessValue() = default;

bool ProcessValue::operator==(const ProcessValue &other) const
{
    if (m_value.type() != other.m_value.type()) {
        return false;
    }
    if (m_errorType != ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID
        || other.m_errorType != ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID) {
        return m_errorType == other.m_errorType;
    }
    if (m_namurState != other.m_namurState) {
        return false;
    }
    return areEqualContents(m_value, other.m_value);
}

bool ProcessValue::operator!=(const ProcessValue &other) const
{
    return !(*this == other);
}

bool ProcessValue::operator<(const ProcessValue &other) const
{
    // The toolkit deprecates its ordering of variants and has no other; the ordering of process
    // values is part of the interface and stays the toolkit's.
    QT_WARNING_PUSH
    QT_WARNING_DISABLE_DEPRECATED
    return m_value < other.m_value;
    QT_WARNING_POP
}

double ProcessValue::toDouble(bool *ok) const
{
    bool success = false;
    const double number = isConvertible(*this, QMetaType::Double) ? m_value.toDouble(&success)
                                                                  : 0.0;
    report(success, ok);
    return number;
}

float ProcessValue::toFloat(bool *ok) const
{
    bool success = false;
    const float number = isConvertible(*this, QMetaType::Float) ? m_value.toFloat(&success) : 0.0F;
    report(success, ok);
    return number;
}

int ProcessValue::toInt(bool *ok) const
{
    bool success = false;
    const int number = isConvertible(*this, QMetaType::Int) ? m_value.toInt(&success) : 0;
    report(success, ok);
    return number;
}

bool ProcessValue::toBool(bool *ok) const
{
    const bool success = isConvertible(*this, QMetaType::Bool);
    report(success, ok);
    return success && m_value.toBool();
}

QString ProcessValue::toString(bool *ok) const
{
    bool success = true;
    QString text;
    switch (m_errorType) {
    case ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID:
        text = toStringForValidProcessValue(success);
        break;
    case ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_UNDERRANGE:
        text = StringConversionsDefinitions::getErrorUnderrangeSign();
        break;
    case ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_OVERRANGE:
        text = StringConversionsDefinitions::getErrorOverrangeSign();
        break;
    case ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE:
        text = StringConversionsDefinitions::getErrorNoInputValueSign();
        break;
    default: text = StringConversionsDefinitions::getErrorNaNSign(); break;
    }
    report(success, ok);
    return text;
}

QString ProcessValue::toStringForValidProcessValue(bool &ok) const
{
    switch (m_value.type()) {
    case QVariant::Int: {
        const int number = toInt(&ok);
        return ok ? integerText(number) : QString();
    }
    case QVariant::Double: {
        const double number = toDouble(&ok);
        return ok ? doubleText(number) : QString();
    }
    case QVariant::Bool: {
        const bool isTrue = toBool(&ok);
        return ok ? booleanText(isTrue) : QString();
    }
    default:
        ok = false;
        qWarning() << "String conversion from type " << m_value.type() << "not implemented";
        return {};
    }
}

ProcessValueContainerTemplate<double> ProcessValue::getAnalogProcessValueContainer()
{
    if (!m_value.canConvert(QMetaType::Double)) {
        return {0.0, ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE,
                ProcessDataDefinitions::NAMUR_STATE_TYPE_NONE};
    }
    return {m_value.toDouble(), m_errorType, m_namurState};
}

void ProcessValue::setAnalogProcessValueContainer(
    const ProcessValueContainerTemplate<double> &container)
{
    m_value = QVariant(container.value);
    m_errorType = container.errorType;
    m_namurState = container.namurState;
}

QDebug operator<<(QDebug debug, const ProcessValue &value)
{
    debug << value.getValue() << getProcessValueStateTypeAsString(value.getErrorType())
          << value.getTag();
    return debug;
}
