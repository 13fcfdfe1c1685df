#pragma once

#include "Configuration/ConfigurationAndProcessDataBase.h"

#include <QFileInfo>
#include <QList>
#include <QString>
#include <QStringList>

/// A folder of process descriptions as the command line names it.
///
/// Every operation throws a Failure that names the path and the reason.
class DescriptionFolder
{
public:
    /// Refuses a folder that is missing, unreadable or without process descriptions, and one with a
    /// description that cannot be read.
    explicit DescriptionFolder(const QString &path);

    /// As the command line has it.
    const QString &path() const { return m_path; }
    /// Absolute, and ending in the folder's name, which becomes part of a memory key.
    const QString &absolutePath() const { return m_absolutePath; }
    /// The process descriptions in the order in which they share the region, each under one name.
    const QList<QFileInfo> &files() const { return m_files; }
    QStringList filePaths() const;
    /// A file's path within the folder.
    QString relativePath(const QString &filePath) const;

    /// All files as one tree, its top level with the facts of the memory.
    ConfigurationAndProcessDataBase::BaseClassSharedPointer parse() const;

private:
    QString m_path;
    QString m_absolutePath;
    QList<QFileInfo> m_files;
};
