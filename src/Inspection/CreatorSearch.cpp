#include "Inspection/CreatorSearch_p.h"
#include "ProcessDataManagement/ProcessStart_p.h"

#include <QDir>

#include <algorithm>
#include <cerrno>
#include <csignal>

namespace {

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
        return found.ticks == start && found.isRunning() && ProcessStart::ownPid(number) == pid;
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
