#pragma once

#include "Configuration/ConfigurationAndProcessDataBase.h"

/// A leaf of a configuration: its value lives in the tree.
class TESSEL_EXPORT ConfigurationDataValue : public ConfigurationAndProcessDataBase
{
    Q_OBJECT

public:
    ConfigurationDataValue(const QJsonObject &json, QObject *parent);
    ~ConfigurationDataValue() override;

    QVariant getValue() const;
    /// Stores the variant as it is, without conversion and without a look at the limits.
    SetValueStatus setValue(const QVariant &value);
    SetValueStatus setValueNoSignalEmit(const QVariant &value);

    SetValueStatus setProperty(const QString &key, const QVariant &value) override;
    SetValueStatus setPropertyNoSignalEmit(const QString &key, const QVariant &value) override;

Q_SIGNALS:
    /// Emitted after both propertyChanged() signals, when the value as a whole was changed.
    void valueChanged(const QVariant &value);

private:
    Q_DISABLE_COPY(ConfigurationDataValue)
};
