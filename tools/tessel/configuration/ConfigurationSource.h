#pragma once

#include "Configuration/ConfigurationAndProcessDataBase.h"
#include "Configuration/ConfigurationDataValue.h"
#include "descriptions/LinkedFolders.h"

#include <QFileInfo>
#include <QSharedPointer>
#include <QString>
#include <QStringList>
#include <QVector>

/// A value of a configuration and where it stands in the tree.
struct ConfigurationLeaf
{
    QString url;
    QSharedPointer<ConfigurationDataValue> element;

    /// A text property, such as the type or the unit; empty if there is none.
    QString text(const QString &property) const;
    bool isArray() const;
};

/// One file of a configuration, and what it takes to write it back alone.
struct ConfigurationFile
{
    /// URL of the file's tree in the whole; empty if the file is the whole.
    QString url;
    QFileInfo entry;
    /// Names of the directories and of the file, from the configuration's own name on.
    QString instanceName;
    /// The node that holds the file's tree under the file's name.
    ConfigurationAndProcessDataBase::BaseClassSharedPointer directory;
    ConfigurationAndProcessDataBase::BaseClassSharedPointer root;
};

/// A configuration as the command line names it: an instance directory, or one configuration file.
///
/// Every operation throws a Failure that names the path and the reason.
class ConfigurationSource
{
public:
    explicit ConfigurationSource(const QString &path);

    const QString &path() const { return m_path; }
    /// The name under which a change is recorded: that of the directory, also for a single file.
    const QString &objectName() const { return m_objectName; }
    const ConfigurationAndProcessDataBase::BaseClassSharedPointer &root() const { return m_root; }

    /// The leaves at and below the URL, in the order of their display positions; all of them for an
    /// empty URL.
    QVector<ConfigurationLeaf> leavesAt(const QString &url) const;
    /// Whether the URL is the whole one of a leaf, stars in it being those of names.
    bool hasLeaf(const QString &url) const;
    /// The one leaf at a URL.
    ConfigurationLeaf leafAt(const QString &url) const;
    /// The file that the leaf came from.
    const ConfigurationFile &fileOf(const ConfigurationLeaf &leaf) const;

private:
    void openFile();
    void openDirectory();
    void listFiles(const QFileInfo &directory, const QString &url, LinkedFolders &links);
    void addFile(const QFileInfo &entry, const QString &url, const QString &directoryUrl);
    [[noreturn]] void refuseUrl(const QString &url) const;

    QString m_path;
    QString m_objectName;
    ConfigurationAndProcessDataBase::BaseClassSharedPointer m_root;
    QVector<ConfigurationFile> m_files;
    QVector<ConfigurationLeaf> m_leaves;
};
