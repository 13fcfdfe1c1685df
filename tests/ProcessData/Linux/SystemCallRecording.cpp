#include "ProcessData/Linux/SystemCallRecording.h"

#include <QHash>
#include <QQueue>
#include <QString>

#include <cerrno>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

/// The calls since recording began, and for each function what its next calls do.
struct Script
{
    bool isRecording = false;
    QStringList calls;
    /// An error number each; 0 lets the call through, and so do all calls behind the last number.
    QHash<QString, QQueue<int>> outcomes;
};

Script &script()
{
    // Never destroyed: memory is given back until the very end of the program.
    static auto *const script = new Script;
    return *script;
}

/// Writes the call down. The error with which it has to fail, if it has to.
int outcomeOf(const QString &function, const QString &arguments)
{
    if (!script().isRecording) {
        return 0;
    }
    script().calls.append(function + QLatin1Char('(') + arguments + QLatin1Char(')'));
    QQueue<int> &outcomes = script().outcomes[function];
    return outcomes.isEmpty() ? 0 : outcomes.dequeue();
}

/// The replaced functions are those with file sizes of 64 bits: on 32 bits they have names of their
/// own, which the headers of the system put in, elsewhere both names mean the same.
template <class Function>
Function original(const char *name)
{
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

/// Maps without the functions of the C library, which are replaced.
long mapDirectly(void *address, size_t size, int protection, int flags, int fd, off_t offset)
{
#ifdef SYS_mmap2
    constexpr off_t unitOfOffset = 4096;
    return syscall(SYS_mmap2, address, size, protection, flags, fd, offset / unitOfOffset);
#else
    return syscall(SYS_mmap, address, size, protection, flags, fd, offset);
#endif
}

/// The rest of a replaced function: fails, or does what was asked for.
template <class Action>
auto failOr(int error, const Action &action) -> decltype(action())
{
    if (error != 0) {
        errno = error;
        return -1;
    }
    return action();
}

} // namespace

SystemCallRecording::SystemCallRecording()
{
    script() = {};
    script().isRecording = true;
}

SystemCallRecording::~SystemCallRecording()
{
    script() = {};
}

void SystemCallRecording::letFail(const char *function, std::initializer_list<int> errors)
{
    QQueue<int> &outcomes = script().outcomes[QString::fromLatin1(function)];
    for (const int error : errors) {
        outcomes.enqueue(error);
    }
}

QStringList SystemCallRecording::take()
{
    QStringList calls;
    calls.swap(script().calls);
    return calls;
}

#define REPLACED extern "C" Q_DECL_EXPORT

REPLACED int shm_open(const char *name, int flags, mode_t mode)
{
    const int error = outcomeOf(QStringLiteral("shm_open"),
                                QStringLiteral("flags %1, mode 0%2").arg(flags).arg(mode, 0, 8));
    return failOr(error, [&] {
        return original<int (*)(const char *, int, mode_t)>("shm_open")(name, flags, mode);
    });
}

REPLACED int shm_unlink(const char *name)
{
    const int error = outcomeOf(QStringLiteral("shm_unlink"), QString::fromLocal8Bit(name));
    return failOr(error, [&] { return original<int (*)(const char *)>("shm_unlink")(name); });
}

REPLACED int fchmod(int fd, mode_t mode) noexcept
{
    const int error = outcomeOf(QStringLiteral("fchmod"), QStringLiteral("0%1").arg(mode, 0, 8));
    return failOr(error, [&] { return original<int (*)(int, mode_t)>("fchmod")(fd, mode); });
}

REPLACED int ftruncate(int fd, off_t size) noexcept
{
    const int error = outcomeOf(QStringLiteral("ftruncate"), QString::number(size));
    return failOr(error, [&] { return original<int (*)(int, off_t)>("ftruncate64")(fd, size); });
}

REPLACED int fallocate(int fd, int mode, off_t offset, off_t size)
{
    const int error = outcomeOf(QStringLiteral("fallocate"),
                                QStringLiteral("%1, %2, %3").arg(mode).arg(offset).arg(size));
    return failOr(error, [&] {
        return original<int (*)(int, int, off_t, off_t)>("fallocate64")(fd, mode, offset, size);
    });
}

REPLACED int fstat(int fd, struct stat *status) noexcept
{
    const int error = outcomeOf(QStringLiteral("fstat"), QString());
    return failOr(error,
                  [&] { return original<int (*)(int, struct stat *)>("fstat64")(fd, status); });
}

REPLACED void *mmap(void *address, size_t size, int protection, int flags, int fd,
                    off_t offset) noexcept
{
    // Anonymous memory is asked for by everybody, at any time.
    const int error = (flags & MAP_ANONYMOUS) != 0
                          ? 0
                          : outcomeOf(QStringLiteral("mmap"),
                                      QStringLiteral("size %1, protection %2, flags %3, offset %4")
                                          .arg(size)
                                          .arg(protection)
                                          .arg(flags)
                                          .arg(offset));
    return reinterpret_cast<void *>(
        failOr(error, [&] { return mapDirectly(address, size, protection, flags, fd, offset); }));
}

REPLACED int munmap(void *address, size_t size) noexcept
{
    const int error = outcomeOf(QStringLiteral("munmap"), QString::number(size));
    return failOr(error, [&] { return static_cast<int>(syscall(SYS_munmap, address, size)); });
}

REPLACED int close(int fd)
{
    const int error = outcomeOf(QStringLiteral("close"), QString());
    return failOr(error, [&] { return static_cast<int>(syscall(SYS_close, fd)); });
}
