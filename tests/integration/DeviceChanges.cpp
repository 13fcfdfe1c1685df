#include "integration/DeviceChanges.h"

#include "Configuration/ConfigurationAndProcessDataTools.h"

#include <QRegularExpression>

namespace {

using Access = ConfigurationDataAndProcessDescriptionAccess;
using Definitions = ConfigurationAndProcessDataDefinitions;
using Root = ConfigurationAndProcessDataBase::BaseClassSharedPointer;
using Tools = ConfigurationAndProcessDataTools;

} // namespace

QString DeviceChange::fileUrl() const
{
    return file.section('.', 0, 0);
}

QString DeviceChange::url() const
{
    return fileUrl() + '/' + leaf;
}

QList<DeviceChange> deviceChanges(const QString &location)
{
    return {{"counters/counters.config.json", "pulseValue", 3.75},
            {"device.config.json", "location", location},
            {"diagnosis/diagnosis.config.json", "contact", "night shift"},
            {"digital/digital.config.json", "debounce", 40},
            {"inputs/calibration.config.json", "technician", "B. Jones"},
            {"inputs/channel1.config.json", "filter", 1.25},
            {"inputs/channel2.config.json", "filter", 2.25},
            {"inputs/channel3.config.json", "filter", 3.25},
            {"inputs/channel4.config.json", "filter", 4.25}};
}

Root readDevice(const DescriptionDirectory &directory)
{
    const QFileInfo instance(directory.path());
    return Access::getParsedConfigurationProcessDescription(instance.dir(), instance.fileName(),
                                                            false);
}

bool applyChanges(const QList<DeviceChange> &changes, const Root &root)
{
    for (const DeviceChange &change : changes) {
        Tools::setConfigValue(change.url(), root, change.value.toVariant());
        if (Tools::extractConfigValue(change.url(), root) != change.value.toVariant()) {
            return false;
        }
    }
    return true;
}

Root readChangedDevice(const DescriptionDirectory &directory)
{
    const Root root = readDevice(directory);
    return !root.isNull() && applyChanges(deviceChanges(), root) ? root : Root();
}

bool writeDeviceBack(const DescriptionDirectory &directory, const Root &root)
{
    const QFileInfo instance(directory.path());
    return Access::setParsedConfigurationProcessDescription(instance.dir(), "module", "object",
                                                            instance.fileName(), root, false);
}

QByteArray changedText(const QByteArray &text, const DeviceChange &change,
                       const QString &modifiedBy)
{
    QJsonObject json = QJsonDocument::fromJson(text).object();
    QJsonObject leaves = json.value(Definitions::getKeyDataPropertyValue()).toObject();
    leaves.insert(change.leaf,
                  Description::with(leaves.value(change.leaf).toObject(),
                                    Definitions::getKeyDataPropertyValue(), change.value));
    json.insert(Definitions::getKeyDataPropertyValue(), leaves);
    json.insert(Definitions::getKeyDataPropertyModifiedBy(), modifiedBy);
    json.insert(Definitions::getKeyDataPropertyLastModified(), QString());
    return QJsonDocument(json).toJson(QJsonDocument::Compact);
}

QByteArray undated(const QByteArray &text)
{
    static const QRegularExpression date("\"lastModified\":\"[^\"]*\"");
    return QString::fromUtf8(text).replace(date, "\"lastModified\":\"\"").toUtf8();
}
