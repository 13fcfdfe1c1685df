#pragma once

#include "Configuration/ConfigurationDataValue.h"

#include <QJsonObject>
#include <QStringList>

/// A leaf that notes how it is reached.
class RecordingLeaf : public ConfigurationDataValue
{
public:
    explicit RecordingLeaf(const QJsonObject &json) : ConfigurationDataValue(json, nullptr) { }

    QVariant getProperty(const QString &key) const override
    {
        m_calls.append("getProperty " + key);
        return ConfigurationDataValue::getProperty(key);
    }
    bool hasProperty(const QString &key) const override
    {
        m_calls.append("hasProperty " + key);
        return ConfigurationDataValue::hasProperty(key);
    }
    SetValueStatus setProperty(const QString &key, const QVariant &value) override
    {
        m_calls.append("setProperty " + key);
        return ConfigurationDataValue::setProperty(key, value);
    }
    SetValueStatus setPropertyNoSignalEmit(const QString &key, const QVariant &value) override
    {
        m_calls.append("setPropertyNoSignalEmit " + key);
        return ConfigurationDataValue::setPropertyNoSignalEmit(key, value);
    }

    QStringList takeCalls()
    {
        QStringList calls;
        calls.swap(m_calls);
        return calls;
    }

private:
    mutable QStringList m_calls;
};
