#pragma once

#include "Configuration/ConfigurationAndProcessDataBase.h"

/// A leaf of a configuration: its value lives in the tree.
class TESSEL_EXPORT ConfigurationDataValue : public ConfigurationAndProcessDataBase
{
    Q_OBJECT

public:
    /// A leaf with the properties of @p json.
    ConfigurationDataValue(const QJsonObject &json, QObject *parent);
    ~ConfigurationDataValue() override;

    /// The value as it is held; a null variant where nothing has been entered.
    QVariant getValue() const;
    /// Stores the variant as it is, without conversion and without a look at the limits.
    SetValueStatus setValue(const QVariant &value);
    /// The same without signals.
    SetValueStatus setValueNoSignalEmit(const QVariant &value);

    SetValueStatus setProperty(const QString &key, const QVariant &value) override;
    SetValueStatus setPropertyNoSignalEmit(const QString &key, const QVariant &value) override;

Q_SIGNALS:
    /// Emitted after both propertyChanged() signals, when the value as a whole was changed.
    void valueChanged(const QVariant &value);

private:
    friend struct DescribedElement;
    Q_DISABLE_COPY(ConfigurationDataValue)

    Q_DECL_HIDDEN explicit ConfigurationDataValue(const DescribedElement &described);
};
