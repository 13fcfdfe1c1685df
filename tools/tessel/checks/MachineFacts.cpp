#include "checks/MachineFacts.h"

#include "checks/SessionSettings.h"

#include <QFile>
#include <QFileInfo>
#include <QList>

#include <sys/stat.h>
#include <sys/statvfs.h>

namespace {

std::optional<QByteArray> contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? std::make_optional(file.readAll()) : std::nullopt;
}

void lookAtMemory(MachineFacts &facts, const QString &path)
{
    const QByteArray name = QFile::encodeName(path);
    struct statvfs status = {};
    if (::statvfs(name.constData(), &status) == 0) {
        facts.memory = Fill{quint64{status.f_blocks - status.f_bfree} * status.f_frsize,
                            quint64{status.f_blocks} * status.f_frsize};
        facts.files = Fill{quint64{status.f_files - status.f_ffree}, quint64{status.f_files}};
        facts.isMemoryReadOnly = (status.f_flag & ST_RDONLY) != 0;
    }
    constexpr mode_t permissions = 07777;
    struct stat folder = {};
    if (::stat(name.constData(), &folder) == 0) {
        facts.memoryMode = folder.st_mode & permissions;
    }
}

std::optional<MachineFacts::SemaphoreLimits> readLimits(const QString &path)
{
    constexpr int count = 4;
    const QList<QByteArray> fields = contentOf(path).value_or(QByteArray()).simplified().split(' ');
    bool areNumbers = fields.size() == count;
    qint64 numbers[count] = {};
    for (int i = 0; i < count && areNumbers; ++i) {
        numbers[i] = fields[i].toLongLong(&areNumbers);
    }
    return areNumbers ? std::make_optional(
               MachineFacts::SemaphoreLimits{numbers[0], numbers[1], numbers[2], numbers[3]})
                      : std::nullopt;
}

} // namespace

MachineFacts MachineFacts::of(const QString &root)
{
    MachineFacts facts;
    lookAtMemory(facts, root + QStringLiteral("/dev/shm"));
    facts.semaphoreLimits = readLimits(root + QStringLiteral("/proc/sys/kernel/sem"));
    const auto table = contentOf(root + QStringLiteral("/proc/sysvipc/sem"));
    facts.semaphores = table ? SemaphoreTable::parse(*table) : std::nullopt;
    // The first is there where systemd has started the machine, the second where it knows of users. In a
    // container either may be left from its making.
    const auto isFolder = [&root](const char *path) {
        return QFileInfo(root + QLatin1String(path)).isDir();
    };
    facts.hasSessions = isFolder("/run/systemd/system") && isFolder("/run/systemd/users");
    facts.removedIpc = SessionSettings::readRemovedIpc(root);
    facts.lastSystemUser = SessionSettings::readLastSystemUser(root);
    return facts;
}

bool lingers(const QString &userName, const QString &root)
{
    return !userName.isEmpty()
           && QFileInfo::exists(root + QStringLiteral("/var/lib/systemd/linger/") + userName);
}
