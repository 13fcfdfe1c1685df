#pragma once

#include "ProcessData/ProcessValueErrorTypes.h"

#include <QDebug>
#include <QString>
#include <QVariant>

/// A measured value with its states, without the weight of a QVariant.
template <class T>
struct ProcessValueContainerTemplate
{
    T value;
    ProcessDataDefinitions::ErrorTypes errorType;
    ProcessDataDefinitions::NamurStateTypes namurState;
};

/// A process value as an application reads and writes it: a typed value with its error state.
///
/// Knows nothing of shared memory. Conversions refuse to give a number for an erroneous value.
class TESSEL_EXPORT ProcessValue
{
public:
    /// A value without content, in the given state.
    // NOLINTNEXTLINE(google-explicit-constructor): a state alone stands for a value in that state.
    ProcessValue(ProcessDataDefinitions::ErrorTypes errorType);
    /// An invalid variant makes it NO_VALID_INPUT_VALUE, whatever @p errorType says.
    ProcessValue(const QVariant &value, ProcessDataDefinitions::ErrorTypes errorType);
    /// The same with a number that the library stores and prints and gives no other meaning.
    ProcessValue(const QVariant &value, unsigned int tag,
                 ProcessDataDefinitions::ErrorTypes errorType);
    ProcessValue(const ProcessValue &other) = default;
    ProcessValue(ProcessValue &&other) = default;
    ProcessValue &operator=(const ProcessValue &other) = default;
    ProcessValue &operator=(ProcessValue &&other) = default;
    virtual ~ProcessValue();

    /// Erroneous values are equal if their error states are; valid ones need the same type, content
    /// and NAMUR state, and NaN equals NaN.
    virtual bool operator==(const ProcessValue &other) const;
    virtual bool operator!=(const ProcessValue &other) const;
    /// By content alone, whatever the states.
    virtual bool operator<(const ProcessValue &other) const;

    const QVariant &getValue() const { return m_value; }
    void setValue(const QVariant &value) { m_value = value; }
    ProcessDataDefinitions::ErrorTypes getErrorType() const { return m_errorType; }
    void setErrorType(ProcessDataDefinitions::ErrorTypes errorType) { m_errorType = errorType; }
    ProcessDataDefinitions::NamurStateTypes getNamurState() const { return m_namurState; }
    void setNamurState(ProcessDataDefinitions::NamurStateTypes state) { m_namurState = state; }
    quint32 getTag() const { return m_tag; }

    // Conversions: 0 or false for an erroneous value, with *ok false. @p ok may be null.
    double toDouble(bool *ok = nullptr) const;
    float toFloat(bool *ok = nullptr) const;
    int toInt(bool *ok = nullptr) const;
    bool toBool(bool *ok = nullptr) const;
    /// Text for display. An erroneous value yields the sign of its state, with *ok true.
    QString toString(bool *ok = nullptr) const;
    /// Text of the content alone; only 32-bit signed integers, doubles and booleans have one.
    QString toStringForValidProcessValue(bool &ok) const;

    /// The value as a plain double; NO_VALID_INPUT_VALUE if the content is no number.
    ProcessValueContainerTemplate<double> getAnalogProcessValueContainer();
    /// Takes value and states over without a check; the tag stays.
    void setAnalogProcessValueContainer(const ProcessValueContainerTemplate<double> &container);

private:
    QVariant m_value;
    ProcessDataDefinitions::ErrorTypes m_errorType;
    ProcessDataDefinitions::NamurStateTypes m_namurState =
        ProcessDataDefinitions::NAMUR_STATE_TYPE_NONE;
    quint32 m_tag = 0;
};

TESSEL_EXPORT QDebug operator<<(QDebug debug, const ProcessValue &value);
