#pragma once

#include <QtGlobal>

#include <chrono>
#include <memory>
#include <vector>

#include <sys/types.h>

/// The processes that are to be seen in /proc, by one walk. Never changes: whoever is told of one looks
/// whether it is still there.
class ProcessList
{
public:
    using Clock = std::chrono::steady_clock;

    struct Process
    {
        pid_t pid; ///< as this process sees it
        quint64 start;
        quint64 pidNamespace; ///< inode of /proc/PID/ns/pid; 0: not to be had
        bool hasOwnTime;      ///< Otherwise it may itself tell another start.
        pid_t ownPid;         ///< only then; 0: not to be had
    };

    /// A list that was begun at @p time or later. The last one is kept, so that whoever asks for many
    /// things that were so at one time costs one walk.
    static std::shared_ptr<const ProcessList> takenSince(Clock::time_point time);

    const std::vector<Process> &processes() const { return m_processes; }
    /// Whether it holds all that ran from the first moment of the walk to its end.
    bool isComplete() const { return m_isComplete; }

    /// The numbers of all processes, in ascending order.
    static std::vector<pid_t> findNumbers();
    /// Whether that leaves none out: /proc may be mounted so that it names a process only to those who
    /// may look at it.
    static bool areAllNamed();

private:
    ProcessList();

    Clock::time_point m_begin;
    dev_t m_device;         ///< of /proc, which is another one in another world
    quint64 m_pidNamespace; ///< of this process
    std::vector<Process> m_processes;
    bool m_isComplete;
};
