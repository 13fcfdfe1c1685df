#pragma once

#include "ProcessDataManagement/DescriptionDirectory.h"
#include "ToolProcess.h"

#include <QCoreApplication>
#include <QtTest>

#include <linux/capability.h>
#include <sys/prctl.h>
#include <unistd.h>

/// Begins the memory keys of this test program.
inline QString keyPrefix()
{
    return QStringLiteral("tesselToolTest%1x").arg(QCoreApplication::applicationPid());
}

inline ToolResult runBuild(const QString &path, const QStringList &options = {})
{
    return runTool(QStringList{QStringLiteral("build"), QStringLiteral("--prefix"), keyPrefix()}
                   + options + QStringList(path));
}

inline QByteArray compact(const QJsonObject &json)
{
    return QJsonDocument(json).toJson(QJsonDocument::Compact);
}

/// From now on also root's programs are refused what the permissions of a file refuse. False if the
/// system does not let it.
inline bool makePermissionsCount()
{
    return ::geteuid() != 0
           || (::prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE, 0, 0, 0) == 0
               && ::prctl(PR_CAPBSET_DROP, CAP_DAC_READ_SEARCH, 0, 0, 0) == 0);
}

/// Takes away permissions and gives them back, so that the directory can be removed.
class NarrowPermissions
{
public:
    NarrowPermissions(const QString &path, QFile::Permissions permissions)
        : m_path(path)
        , m_former(QFile::permissions(path))
    {
        QFile::setPermissions(path, permissions);
    }
    ~NarrowPermissions() { QFile::setPermissions(m_path, m_former); }

    NarrowPermissions(const NarrowPermissions &) = delete;
    NarrowPermissions &operator=(const NarrowPermissions &) = delete;

private:
    QString m_path;
    QFile::Permissions m_former;
};
