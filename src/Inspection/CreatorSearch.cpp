#include "Inspection/CreatorSearch_p.h"
#include "ProcessDataManagement/ProcessStart_p.h"

#include <algorithm>
#include <cerrno>
#include <csignal>

namespace {

/// That of the machine itself, from where all processes are to be seen: the kernel never gives it another
/// number.
constexpr quint64 firstNamespace = 0xEFFFFFFC;

/// True as well where a namespace is unknown.
bool isInNamespace(pid_t process, quint64 pidNamespace)
{
    const quint64 found = ProcessStart::namespaceOf(process);
    return found == 0 || pidNamespace == 0 || found == pidNamespace;
}

bool isCreator(const CreatorSearch::Creator &creator, const ProcessStart &found, pid_t process)
{
    return found.ticks == creator.start && ProcessStart::ownPid(process) == creator.pid
           && isInNamespace(process, creator.pidNamespace);
}

/// Whether there is such a process for this one, be it shown or not.
bool isNumberInUse(pid_t process)
{
    return ::kill(process, 0) == 0 || errno != ESRCH;
}

/// Whether a creator that was not found would have been, if it ran.
bool wouldBeSeen(const CreatorSearch::Creator &creator, const ProcessList &list)
{
    const quint64 own = ProcessStart::ownNamespace();
    if (!list.isComplete()) {
        return false;
    }
    if (own == firstNamespace || (own != 0 && own == creator.pidNamespace)) {
        return true;
    }
    const auto &processes = list.processes();
    return creator.pidNamespace != 0
           && std::any_of(processes.cbegin(), processes.cend(), [&](const auto &process) {
                  return process.pidNamespace == creator.pidNamespace;
              });
}

/// Among all processes, whatever numbers they have here.
std::optional<bool> findAnywhere(const CreatorSearch::Creator &creator,
                                 ProcessList::Clock::time_point time)
{
    const auto list = ProcessList::takenSince(time);
    for (const auto &process : list->processes()) {
        if (process.start != creator.start) {
            continue;
        }
        const ProcessStart found = ProcessStart::of(process.pid);
        if (isCreator(creator, found, process.pid)) {
            return found.isRunning();
        }
    }
    return wouldBeSeen(creator, *list) ? std::optional<bool>(false) : std::nullopt;
}

} // namespace

std::optional<bool> CreatorSearch::isAlive(const Creator &creator,
                                           ProcessList::Clock::time_point time)
{
    if (creator.pid <= 0 || creator.start == 0) {
        return {};
    }
    // Nearly always it is where its id says.
    const ProcessStart likely = ProcessStart::of(creator.pid);
    if (isCreator(creator, likely, creator.pid)) {
        return likely.isRunning();
    }
    const quint64 own = ProcessStart::ownNamespace();
    const bool isOwnNumber = own != 0 && own == creator.pidNamespace;
    if (isOwnNumber && !isNumberInUse(creator.pid)) {
        return false;
    }
    if (isOwnNumber && ProcessStart::areOwnNumbers()) {
        return likely.ticks == 0 ? std::nullopt : std::optional<bool>(false);
    }
    // A process of that number that does not show itself may be the one.
    const bool isHidden = likely.ticks == 0 && isNumberInUse(creator.pid);
    return isHidden ? std::nullopt : findAnywhere(creator, time);
}
