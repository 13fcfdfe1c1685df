#pragma once

#include "Configuration/ConfigurationAndProcessDataBase.h"

#include <QDir>
#include <QFileInfo>
#include <QList>

/// The operations on instance directories, as plainly as the format can be read.
///
/// To compare the library with: slow, without caches, every file is opened and parsed each time it
/// is asked for. Only single files are left to the library's parser and single elements to the
/// elements themselves. Names, results and messages are those of
/// ConfigurationDataAndProcessDescriptionAccess.
class PlainDirectories
{
public:
    using BaseClassSharedPointer = ConfigurationAndProcessDataBase::BaseClassSharedPointer;

    PlainDirectories() = delete;

    static QList<QFileInfo> generateDirectoryInfoList(const QDir &directory);
    static bool containsFileOrDir(const QList<QFileInfo> &entries, const QString &ending);
    static bool createConfigurationFilePath(const QDir &directory, const QString &instanceName,
                                            QString &path);
    static bool createProcessDescriptionFilePath(const QDir &directory, const QString &instanceName,
                                                 QString &path);
    static void readFolderDescription(const QString &path, const QString &key, QVariant &value);

    static bool parseDir(BaseClassSharedPointer &root, const QFileInfo &entry,
                         const QString &extension);
    static bool parseConfigDir(BaseClassSharedPointer &root, const QFileInfo &entry);
    static bool parseProcessDir(BaseClassSharedPointer &root, const QFileInfo &entry);
    static BaseClassSharedPointer getParsedConfigurationProcessDescription(
        const QDir &directory, const QString &instanceName, bool isProcessDescription);
    static QString getConfiguration(const QDir &directory, const QString &instanceName);
    static QString getConfiguration(const QFileInfo &instance);

    static bool setParsedConfigurationProcessDescription(
        const QDir &directory, const QString &moduleName, const QString &objectName,
        const QString &instanceName, BaseClassSharedPointer root, bool isProcessDescription);
    static bool frameConfigDir(const BaseClassSharedPointer &element, const QString &moduleName,
                               const QString &objectName, const QFileInfo &entry,
                               const QString &instanceName);

    static QString getDependency(const QDir &directory, const QString &instanceName);
    static bool getSharedMemoryInfoFromDir(const QFileInfo &directory, bool &doubleBuffer,
                                           int &size, QString &key);

    /// What a walk finds in @p directory: folders and regular files, in the order of the listing.
    static QList<QFileInfo> entriesOf(const QFileInfo &directory);
    /// The process descriptions at and below @p path, in the order in which a build lays them out.
    static QList<QFileInfo> processDescriptionsBelow(const QString &path);
};
