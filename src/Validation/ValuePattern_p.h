#pragma once

#include "Configuration/ConfigurationDataValue.h"

#include <QSharedPointer>
#include <QString>

/// The regular expression of texts, judged by the check of a write itself, which compiles it as it does.
class ValuePattern
{
public:
    /// Matches everything.
    ValuePattern() = default;
    explicit ValuePattern(const QString &pattern);

    /// Why it does not compile; empty if it does.
    const QString &error() const { return m_error; }
    const QString &text() const { return m_text; }
    /// One that does not compile matches nothing.
    bool matches(const QString &value) const;

private:
    QString m_text;
    QString m_error;
    QSharedPointer<ConfigurationDataValue> m_element;
};
