#include "Configuration/ConfigurationDataValue.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"

using Definitions = ConfigurationAndProcessDataDefinitions;
using SetValueStatus = ConfigurationAndProcessDataBase::SetValueStatus;

ConfigurationDataValue::ConfigurationDataValue(const QJsonObject &json, QObject *parent)
    : ConfigurationAndProcessDataBase(json, parent)
{
}

ConfigurationDataValue::ConfigurationDataValue(const DescribedElement &described)
    : ConfigurationAndProcessDataBase(described)
{
}

ConfigurationDataValue::~ConfigurationDataValue() = default;

QVariant ConfigurationDataValue::getValue() const
{
    return getProperty(Definitions::getKeyDataPropertyValue());
}

SetValueStatus ConfigurationDataValue::setValue(const QVariant &value)
{
    return setProperty(Definitions::getKeyDataPropertyValue(), value);
}

SetValueStatus ConfigurationDataValue::setValueNoSignalEmit(const QVariant &value)
{
    return setPropertyNoSignalEmit(Definitions::getKeyDataPropertyValue(), value);
}

SetValueStatus ConfigurationDataValue::setProperty(const QString &key, const QVariant &value)
{
    const SetValueStatus status = ConfigurationAndProcessDataBase::setProperty(key, value);
    if (status == SetValueChanged && key == Definitions::getKeyDataPropertyValue()) {
        Q_EMIT valueChanged(value);
    }
    return status;
}

SetValueStatus ConfigurationDataValue::setPropertyNoSignalEmit(const QString &key,
                                                               const QVariant &value)
{
    return ConfigurationAndProcessDataBase::setPropertyNoSignalEmit(key, value);
}
