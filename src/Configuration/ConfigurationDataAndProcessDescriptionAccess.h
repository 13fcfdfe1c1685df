#pragma once

#include "Configuration/ConfigurationAndProcessDataBase.h"

#include <QDir>
#include <QFileInfo>
#include <QList>
#include <QSharedPointer>
#include <QString>
#include <QVariant>

/// Descriptions on disk: single files, and instance directories that become one tree.
///
/// An instance is named without extension. It is a directory of that name or, if there is none, one
/// description file. In the tree of a directory every sub-directory is a node under its whole name
/// and every description file a subtree under the text before the first dot of its name. Two
/// threads may work on different directories at once.
class TESSEL_EXPORT ConfigurationDataAndProcessDescriptionAccess
{
public:
    /// In which trees travel; null means failure.
    using BaseClassSharedPointer = ConfigurationAndProcessDataBase::BaseClassSharedPointer;

    ConfigurationDataAndProcessDescriptionAccess() = default;
    virtual ~ConfigurationDataAndProcessDescriptionAccess();

    // What lies in a directory.
    /// Files and directories by name, case-sensitively; hidden entries are left out.
    static QList<QFileInfo> generateDirectoryInfoList(const QDir &directory);
    /// True if the listing holds a directory, or a file whose name ends in @p ending.
    static bool containsFileOrDir(const QList<QFileInfo> &entries, const QString &ending);
    /// The origin text of changes made through this class.
    static QString getOrigin();
    /// Sets @p path only if the configuration file of the instance exists.
    static bool createConfigurationFilePath(const QDir &directory, const QString &instanceName,
                                            QString &path);
    /// The same for a process description file.
    static bool createProcessDescriptionFilePath(const QDir &directory, const QString &instanceName,
                                                 QString &path);
    /// One member of the folder description file in @p path; @p value is left alone on failure.
    static void readFolderDescription(const QString &path, const QString &key, QVariant &value);

    // From the disk into a tree.
    /// Hangs the entry into @p root, or makes it the root where that is null. False only where a
    /// file has no tree to go into.
    static bool parseDir(QSharedPointer<ConfigurationAndProcessDataBase> &root,
                         const QFileInfo &entry, const QString &extension);
    /// parseDir() for configuration files.
    static bool parseConfigDir(QSharedPointer<ConfigurationAndProcessDataBase> &root,
                               const QFileInfo &entry);
    /// A process directory, with double buffer, size and key of its memory on the root. False if
    /// its files do not agree on these.
    static bool parseProcessDir(QSharedPointer<ConfigurationAndProcessDataBase> &root,
                                const QFileInfo &entry);
    /// Null on failure, with the reason in the log.
    static BaseClassSharedPointer getParsedConfigurationProcessDescription(
        const QDir &directory, const QString &instanceName, bool isProcessDescription);
    /// Compact JSON of the instance; empty on failure.
    static QString getConfiguration(const QDir &directory, const QString &instanceName);
    /// The same for an instance named by its whole path.
    static QString getConfiguration(const QFileInfo &instance);

    // From a tree back to the disk.
    /// Stamps and writes the tree into the files that are there; none is made or removed. True if
    /// everything was written. There is no way back after a failure.
    static bool setParsedConfigurationProcessDescription(
        const QDir &directory, const QString &moduleName, const QString &objectName,
        const QString &instanceName, QSharedPointer<ConfigurationAndProcessDataBase> root,
        bool isProcessDescription);
    /// One step of the walk. @p element is the node of the directory: of the entry itself if that
    /// is one, else of the directory that holds the file.
    static bool frameConfigDir(const QSharedPointer<ConfigurationAndProcessDataBase> &element,
                               const QString &moduleName, const QString &objectName,
                               const QFileInfo &entry, const QString &instanceName);

    // Questions asked of files before anything else.
    /// Compact JSON of a dependency file; empty on failure.
    static QString getDependency(const QDir &directory, const QString &instanceName);
    /// Double buffer, size in bytes and key of the first good process file below @p directory. True
    /// if all files were readable and agree.
    static bool getSharedMemoryInfoFromDir(const QFileInfo &directory, bool &doubleBuffer,
                                           int &size, QString &key);
};
