#pragma once

#include "ProcessData/ProcessValueErrorTypes.h"

#include <QDebug>
#include <QString>
#include <QVariant>

/// A measured value with its states, without the weight of a QVariant.
template <class T>
struct ProcessValueContainerTemplate
{
    /// the number, without meaning unless the error state is valid
    T value;
    /// error state of the value
    ProcessDataDefinitions::ErrorTypes errorType;
    /// status signal of the device
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
    /// All parts are copied.
    ProcessValue(const ProcessValue &other) = default;
    /// All parts are taken over.
    ProcessValue(ProcessValue &&other) = default;
    /// All parts are copied.
    ProcessValue &operator=(const ProcessValue &other) = default;
    /// All parts are taken over.
    ProcessValue &operator=(ProcessValue &&other) = default;
    virtual ~ProcessValue();

    /// Erroneous values are equal if their error states are; valid ones need the same type, content
    /// and NAMUR state, and NaN equals NaN.
    virtual bool operator==(const ProcessValue &other) const;
    /// The opposite of equal.
    virtual bool operator!=(const ProcessValue &other) const;
    /// By content alone, whatever the states.
    virtual bool operator<(const ProcessValue &other) const;

    /// The content; without meaning where the error state is not valid.
    const QVariant &getValue() const { return m_value; }
    /// Replaces the content alone; both states stay as they are.
    void setValue(const QVariant &value) { m_value = value; }
    /// The error state, which travels through shared memory with the value.
    ProcessDataDefinitions::ErrorTypes getErrorType() const { return m_errorType; }
    /// Replaces the error state alone; the content stays.
    void setErrorType(ProcessDataDefinitions::ErrorTypes errorType) { m_errorType = errorType; }
    /// The status signal, which stays in this process.
    ProcessDataDefinitions::NamurStateTypes getNamurState() const { return m_namurState; }
    /// Replaces the status signal alone.
    void setNamurState(ProcessDataDefinitions::NamurStateTypes state) { m_namurState = state; }
    /// The number given at construction, 0 without one.
    quint32 getTag() const { return m_tag; }

    // Conversions: 0 or false for an erroneous value, with *ok false. @p ok may be null.
    /// The content as a double.
    double toDouble(bool *ok = nullptr) const;
    /// The content as a float, without a check of its range.
    float toFloat(bool *ok = nullptr) const;
    /// The content as an int.
    int toInt(bool *ok = nullptr) const;
    /// The content as a boolean.
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
    friend class ProcessDataValue; // puts numbers in place, without a QVariant in between

    QVariant m_value;
    ProcessDataDefinitions::ErrorTypes m_errorType;
    ProcessDataDefinitions::NamurStateTypes m_namurState =
        ProcessDataDefinitions::NAMUR_STATE_TYPE_NONE;
    quint32 m_tag = 0;
};

TESSEL_EXPORT QDebug operator<<(QDebug debug, const ProcessValue &value);
