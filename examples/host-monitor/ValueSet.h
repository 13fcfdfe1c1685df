#pragma once

#include "ProcessData/ProcessValue.h"

#include <QPair>
#include <QString>
#include <QVariant>
#include <QVector>

#include <optional>

/// The values of one round, by URL.
class ValueSet
{
public:
    using ErrorTypes = ProcessDataDefinitions::ErrorTypes;

    void add(const QString &url, const QVariant &value)
    {
        add(url, ProcessValue(value, ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID));
    }
    void addError(const QString &url, ErrorTypes state) { add(url, ProcessValue(state)); }
    /// A missing value is published with the state that says why it is missing.
    template <class T>
    void add(const QString &url, const std::optional<T> &value,
             ErrorTypes whenMissing =
                 ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE)
    {
        if (value) {
            add(url, QVariant(*value));
        } else {
            addError(url, whenMissing);
        }
    }
    /// A number that its slot cannot hold is published as out of range instead of cut off.
    void addWithin(const QString &url, const std::optional<qint64> &number, qint64 least,
                   qint64 most);
    void add(const QString &url, const ProcessValue &value) { m_values.append({url, value}); }

    const QVector<QPair<QString, ProcessValue>> &values() const { return m_values; }

private:
    QVector<QPair<QString, ProcessValue>> m_values;
};
