#pragma once

#include <QtGlobal>

#include <sys/types.h>

/// When a process was started. With its id it names a process for good: ids come back, but not at the
/// same time.
struct ProcessStart
{
    /// The namespace of the machine itself, from where all processes are to be seen: the kernel never gives
    /// it another number.
    static constexpr quint64 sm_firstNamespace = 0xEFFFFFFC;

    quint64 ticks = 0; ///< since the boot, field 22 of /proc/PID/stat; 0: not to be had
    char state = 0;    ///< of the main thread, field 3, such as 'S'; 0: not to be had
    int threads = 0;   ///< field 20; 0: not to be had

    /// Of @p process as this process sees it.
    static ProcessStart of(pid_t process);
    /// Of this process, also where /proc shows those of another namespace, in which its id is another's.
    static ProcessStart own();
    /// The id that @p process, as this process sees it, has in its own namespace; 0: not to be had.
    static pid_t ownPid(pid_t process);
    /// The namespace of that id, by its inode; 0: not to be had.
    static quint64 namespaceOf(pid_t process);
    static quint64 ownNamespace();
    /// Whether @p process lives in the time of this one: the kernel tells a start in the time namespace of
    /// whoever asks, so that others note another one of themselves. False as well where it is not to be had.
    static bool hasOwnTime(pid_t process);
    /// Whether /proc names @p process, be its start to be had or not.
    static bool isNamed(pid_t process);
    /// Whether the numbers in /proc are those of this process's namespace, and not of one above.
    static bool areOwnNumbers();

    // Id and start in one word, which changes at once.
    static quint64 wordOf(pid_t process, const ProcessStart &start)
    {
        return quint64{static_cast<quint32>(process)} << 32 | (start.ticks & 0xFFFFFFFF);
    }
    static pid_t pidOf(quint64 word) { return static_cast<pid_t>(word >> 32); }

    /// An ended process that nobody has waited for yet has a number and a start, but no memory. One whose
    /// main thread alone has ended looks like it, and has other threads.
    bool isRunning() const { return ticks != 0 && ((state != 'Z' && state != 'X') || threads > 1); }
};
