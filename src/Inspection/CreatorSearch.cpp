#include "Inspection/CreatorSearch_p.h"
#include "ProcessDataManagement/ProcessStart_p.h"

#include <algorithm>
#include <cerrno>
#include <csignal>

namespace {

/// True as well where a namespace is unknown.
bool isInNamespace(pid_t process, quint64 pidNamespace)
{
    const quint64 found = ProcessStart::namespaceOf(process);
    return found == 0 || pidNamespace == 0 || found == pidNamespace;
}

enum class Match {
    No, ///< It is another one.
    Maybe,
    Yes
};

/// Whether a process is the creator, whose start it has as this process sees it.
Match matchByStart(const CreatorSearch::Creator &creator, pid_t process)
{
    const pid_t ownPid = ProcessStart::ownPid(process);
    if (ownPid == 0) {
        return Match::Maybe;
    }
    return ownPid == creator.pid && isInNamespace(process, creator.pidNamespace) ? Match::Yes
                                                                                 : Match::No;
}

/// Whether a process with another start may be the creator: one in another time noted another start.
Match matchInOtherTime(const CreatorSearch::Creator &creator, const ProcessStart &found,
                       pid_t process)
{
    if (!found.isRunning() || ProcessStart::hasOwnTime(process)
        || !isInNamespace(process, creator.pidNamespace)) {
        return Match::No;
    }
    const pid_t ownPid = ProcessStart::ownPid(process);
    return ownPid == 0 || ownPid == creator.pid ? Match::Maybe : Match::No;
}

Match matchOf(const CreatorSearch::Creator &creator, const ProcessStart &found, pid_t process)
{
    if (found.ticks == 0) {
        return ProcessStart::isNamed(process) ? Match::Maybe : Match::No;
    }
    return found.ticks == creator.start ? matchByStart(creator, process)
                                        : matchInOtherTime(creator, found, process);
}

/// Whether what a list says of a process leaves open that it is the creator.
bool isCandidate(const CreatorSearch::Creator &creator, const ProcessList::Process &process)
{
    const bool isElsewhere = process.pidNamespace != 0 && creator.pidNamespace != 0
                             && process.pidNamespace != creator.pidNamespace;
    return process.start == creator.start
           || (!process.hasOwnTime && !isElsewhere
               && (process.ownPid == 0 || process.ownPid == creator.pid));
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
    if (own == ProcessStart::sm_firstNamespace || (own != 0 && own == creator.pidNamespace)) {
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
    bool isOpen = !wouldBeSeen(creator, *list);
    for (const auto &process : list->processes()) {
        if (!isCandidate(creator, process)) {
            continue;
        }
        const ProcessStart found = ProcessStart::of(process.pid);
        const Match match = matchOf(creator, found, process.pid);
        if (match == Match::Yes) {
            return found.isRunning();
        }
        isOpen = isOpen || match == Match::Maybe;
    }
    return isOpen ? std::nullopt : std::optional<bool>(false);
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
    const Match match = matchOf(creator, likely, creator.pid);
    if (match == Match::Yes) {
        return likely.isRunning();
    }
    const quint64 own = ProcessStart::ownNamespace();
    const bool isOwnNumber = own != 0 && own == creator.pidNamespace;
    if (isOwnNumber && !isNumberInUse(creator.pid)) {
        return false;
    }
    if (isOwnNumber && ProcessStart::areOwnNumbers()) {
        const bool isOther = likely.ticks != 0 && match == Match::No;
        return isOther ? std::optional<bool>(false) : std::nullopt;
    }
    // A process of that number that does not show itself may be the one.
    const bool isHidden = likely.ticks == 0 && isNumberInUse(creator.pid);
    return isHidden ? std::nullopt : findAnywhere(creator, time);
}
