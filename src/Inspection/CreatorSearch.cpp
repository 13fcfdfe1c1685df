#include "Inspection/CreatorSearch_p.h"
#include "ProcessDataManagement/ProcessStart_p.h"

#include <QDir>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <vector>

namespace {

/// That of the machine itself, from where all processes are to be seen: the kernel never gives it another
/// number.
constexpr quint64 firstNamespace = 0xEFFFFFFC;

/// Of all namespaces that are to be seen from here.
std::vector<pid_t> findProcesses()
{
    std::vector<pid_t> processes;
    for (const auto &entry : QDir(QStringLiteral("/proc")).entryList(QDir::Dirs)) {
        bool isProcess = false;
        const auto number = static_cast<pid_t>(entry.toInt(&isProcess));
        if (isProcess) {
            processes.push_back(number);
        }
    }
    return processes;
}

/// True as well where a namespace is unknown.
bool isInNamespace(pid_t process, quint64 pidNamespace)
{
    const quint64 found = ProcessStart::namespaceOf(process);
    return found == 0 || pidNamespace == 0 || found == pidNamespace;
}

/// Whether a creator that was not found would have been, if it ran.
bool wouldBeSeen(const CreatorSearch::Creator &creator, const std::vector<pid_t> &processes)
{
    const quint64 own = ProcessStart::ownNamespace();
    if (own == firstNamespace || (own != 0 && own == creator.pidNamespace)) {
        return true;
    }
    return creator.pidNamespace != 0
           && std::any_of(processes.cbegin(), processes.cend(), [&](pid_t process) {
                  return ProcessStart::namespaceOf(process) == creator.pidNamespace;
              });
}

/// A process that is there, but not shown to other users.
bool isHidden(pid_t process)
{
    return ProcessStart::of(process).ticks == 0 && ::kill(process, 0) != 0 && errno == EPERM;
}

} // namespace

std::optional<bool> CreatorSearch::isAlive(const Creator &creator)
{
    if (creator.pid <= 0 || creator.start == 0) {
        return {};
    }
    const auto isCreator = [&](const ProcessStart &found, pid_t process) {
        return found.ticks == creator.start && ProcessStart::ownPid(process) == creator.pid
               && isInNamespace(process, creator.pidNamespace);
    };
    // Nearly always it is where its id says.
    const ProcessStart likely = ProcessStart::of(creator.pid);
    if (isCreator(likely, creator.pid)) {
        return likely.isRunning();
    }
    const std::vector<pid_t> processes = findProcesses();
    for (const pid_t process : processes) {
        const ProcessStart found = ProcessStart::of(process);
        if (isCreator(found, process)) {
            return found.isRunning();
        }
    }
    return wouldBeSeen(creator, processes) && !isHidden(creator.pid) ? std::optional<bool>(false)
                                                                     : std::nullopt;
}
