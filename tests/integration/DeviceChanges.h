#pragma once

#include "Configuration/ConfigurationDataAndProcessDescriptionAccess.h"
#include "ProcessDataManagement/DescriptionDirectory.h"

#include <QJsonValue>
#include <QList>
#include <QString>

/// What an application changes in one configuration file of the example device.
struct DeviceChange
{
    QString file;
    QString leaf;
    QJsonValue value;

    /// The URL of the file's subtree.
    QString fileUrl() const;
    QString url() const;
};

/// One change for every configuration file, in the order of the walk.
QList<DeviceChange> deviceChanges(const QString &location = QStringLiteral("Pump house"));

ConfigurationAndProcessDataBase::BaseClassSharedPointer readDevice(
    const DescriptionDirectory &directory);
/// False if one of them was refused.
bool applyChanges(const QList<DeviceChange> &changes,
                  const ConfigurationAndProcessDataBase::BaseClassSharedPointer &root);
/// The tree of the directory with all changes; null if one of them was refused.
ConfigurationAndProcessDataBase::BaseClassSharedPointer readChangedDevice(
    const DescriptionDirectory &directory);
bool writeDeviceBack(const DescriptionDirectory &directory,
                     const ConfigurationAndProcessDataBase::BaseClassSharedPointer &root);

/// What the text of a file becomes by its change, with an empty date.
QByteArray changedText(const QByteArray &text, const DeviceChange &change,
                       const QString &modifiedBy);
/// Without the date that a write-back sets. The files of the example are laid out with blanks, so
/// that one of them stays as it is, to the byte.
QByteArray undated(const QByteArray &text);
