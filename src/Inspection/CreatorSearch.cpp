#include "Inspection/CreatorSearch_p.h"
#include "ProcessDataManagement/ProcessStart_p.h"

#include <QDir>
#include <QFile>

#include <algorithm>
#include <cerrno>
#include <csignal>

namespace {

/// The id that a process has in the innermost namespace: the last number of "NSpid:\t4711\t12".
pid_t innermostPid(const QString &process)
{
    QFile status(QStringLiteral("/proc/%1/status").arg(process));
    if (!status.open(QIODevice::ReadOnly)) {
        return 0;
    }
    for (QByteArray line = status.readLine(); !line.isEmpty(); line = status.readLine()) {
        if (line.startsWith("NSpid:")) {
            return static_cast<pid_t>(line.simplified().split(' ').constLast().toInt());
        }
    }
    return 0;
}

bool runsInOtherNamespace(pid_t pid, quint64 start)
{
    const QStringList entries = QDir(QStringLiteral("/proc")).entryList(QDir::Dirs);
    return std::any_of(entries.cbegin(), entries.cend(), [&](const QString &entry) {
        bool isProcess = false;
        const auto number = static_cast<pid_t>(entry.toInt(&isProcess));
        if (!isProcess) {
            return false;
        }
        const ProcessStart found = ProcessStart::of(number);
        return found.ticks == start && found.isRunning() && innermostPid(entry) == pid;
    });
}

} // namespace

std::optional<bool> CreatorSearch::isAlive(pid_t pid, quint64 start)
{
    if (pid <= 0 || start == 0) {
        return {};
    }
    const ProcessStart found = ProcessStart::of(pid);
    if (found.ticks == start) {
        return found.isRunning();
    }
    if (runsInOtherNamespace(pid, start)) {
        return true;
    }
    // There, but not shown to other users.
    const bool isHidden = found.ticks == 0 && ::kill(pid, 0) != 0 && errno == EPERM;
    return isHidden ? std::nullopt : std::optional<bool>(false);
}
