#pragma once

#include "ProcessDataManagement/ProcessDataBuilder.h"

#include <QDirIterator>
#include <QProcess>
#include <QTemporaryDir>

/// A directory of process descriptions that has never been built, gone with the object.
class DeviceDirectory
{
public:
    DeviceDirectory(int fileCount, int leavesPerFile)
        : m_path(m_parent.filePath(QStringLiteral("device")))
    {
        QProcess::execute(QStringLiteral(MAKE_DIRECTORY),
                          {m_path, QString::number(fileCount), QString::number(leavesPerFile)});
    }

    const QString &path() const { return m_path; }

    bool build() const
    {
        QString key;
        return ProcessDataBuilder().buildProcessDataFromDir(QStringLiteral("benchmark"), m_path,
                                                            key);
    }

    QStringList files() const
    {
        QStringList paths;
        QDirIterator walk(m_path, {QStringLiteral("*.process.json")}, QDir::Files,
                          QDirIterator::Subdirectories);
        while (walk.hasNext()) {
            paths.append(walk.next());
        }
        paths.sort();
        return paths;
    }

private:
    QTemporaryDir m_parent;
    QString m_path;
};
