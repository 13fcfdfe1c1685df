// Put before a program with LD_PRELOAD: notes from where in this project each call comes that the system
// may refuse, or refuses one of them. See failing_calls.py, which plays every one of them once.
//
// FAILING_NOTES=FILE      adds a line `CALL OBJECT+OFFSET` for each place that calls for the first time
// FAILING_PLACE=that line refuses the first call from this place, with FAILING_ERROR, a number of errno

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <set>
#include <string>

#include <dlfcn.h>
#include <execinfo.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/sem.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

/// The walk over the stack calls some of these itself.
thread_local bool isLooking = false;

std::string fromEnvironment(const char *name)
{
    const char *const value = std::getenv(name);
    return value ? value : "";
}

bool isOfThisProject(const char *path)
{
    const char *const slash = std::strrchr(path, '/');
    const char *const name = slash ? slash + 1 : path;
    return std::strncmp(name, "libTessel", 9) == 0 || std::strncmp(name, "tessel", 6) == 0;
}

/// A program that is built with one has functions of the system's names in it, which pass the call on.
bool isOfASanitizer(const Dl_info &info)
{
    return info.dli_sname
           && dlsym(RTLD_DEFAULT, (std::string("__interceptor_") + info.dli_sname).c_str())
                  == info.dli_saddr;
}

std::string nameOf(const void *address)
{
    Dl_info info = {};
    if (dladdr(address, &info) == 0 || !info.dli_fname || !isOfThisProject(info.dli_fname)
        || isOfASanitizer(info)) {
        return {};
    }
    const char *const slash = std::strrchr(info.dli_fname, '/');
    std::array<char, 24> offset = {};
    std::snprintf(offset.data(), offset.size(), "+%#tx",
                  static_cast<const char *>(address) - static_cast<const char *>(info.dli_fbase));
    return std::string(slash ? slash + 1 : info.dli_fname) + offset.data();
}

/// The innermost frame that is of this project, below those of libraries that it called.
std::string innermostPlace()
{
    std::array<void *, 40> frames = {};
    const int count = backtrace(frames.data(), static_cast<int>(frames.size()));
    for (int i = 0; i < count; ++i) {
        std::string name = nameOf(frames[static_cast<std::size_t>(i)]);
        if (!name.empty()) {
            return name;
        }
    }
    return {};
}

class Plan
{
public:
    Plan()
        : m_place(fromEnvironment("FAILING_PLACE"))
        , m_error(std::atoi(fromEnvironment("FAILING_ERROR").c_str()))
    {
        const std::string notes = fromEnvironment("FAILING_NOTES");
        if (!notes.empty()) {
            m_notes = static_cast<int>(syscall(SYS_openat, AT_FDCWD, notes.c_str(),
                                               O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644));
        }
        // Loads what the walk needs, outside of any call that is looked at.
        std::array<void *, 1> frame = {};
        backtrace(frame.data(), 1);
    }

    bool isIdle() const { return m_notes < 0 && m_place.empty(); }

    /// Whether the call from @p place is to be refused.
    bool refuses(const char *call, const std::string &place)
    {
        if (place.empty()) {
            return false;
        }
        const std::string line = std::string(call) + ' ' + place;
        if (m_notes >= 0) {
            note(line);
        }
        return line == m_place && !m_isDone.exchange(true);
    }

    int error() const { return m_error; }

private:
    void note(const std::string &line)
    {
        while (m_isNoting.test_and_set()) { }
        const bool isNew = m_noted.insert(line).second;
        m_isNoting.clear();
        if (isNew) {
            const std::string text = line + '\n';
            syscall(SYS_write, m_notes, text.data(), text.size());
        }
    }

    std::string m_place;
    int m_error;
    int m_notes = -1;
    std::atomic<bool> m_isDone = false;
    std::atomic_flag m_isNoting = ATOMIC_FLAG_INIT;
    std::set<std::string> m_noted;
};

Plan &plan()
{
    static Plan *const only = new (std::nothrow) Plan;
    return *only;
}

/// Whether a call is refused; errno says why then. @p caller: the place, where it is known already.
bool isRefused(const char *call, const void *caller = nullptr)
{
    if (isLooking) {
        return false;
    }
    isLooking = true;
    const int former = errno;
    bool refused = false;
    if (!plan().isIdle()) {
        refused = plan().refuses(call, caller ? nameOf(caller) : innermostPlace());
    }
    errno = refused ? plan().error() : former;
    isLooking = false;
    return refused;
}

template <typename Function>
Function *next(const char *name)
{
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

mode_t modeOf(int flags, va_list arguments)
{
    return (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
}

} // namespace

#define PASS_ON(name, ...)                                                                         \
 static auto *const original = next<decltype(name)>(#name);                                        \
 return original(__VA_ARGS__)

#define REFUSE_OR_PASS_ON(name, refusal, ...)                                                      \
 if (isRefused(#name)) {                                                                           \
  return refusal;                                                                                  \
 }                                                                                                 \
 PASS_ON(name, __VA_ARGS__)

extern "C" {

int open(const char *path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeOf(flags, arguments);
    va_end(arguments);
    REFUSE_OR_PASS_ON(open, -1, path, flags, mode);
}

int open64(const char *path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeOf(flags, arguments);
    va_end(arguments);
    REFUSE_OR_PASS_ON(open64, -1, path, flags, mode);
}

int openat(int folder, const char *path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeOf(flags, arguments);
    va_end(arguments);
    REFUSE_OR_PASS_ON(openat, -1, folder, path, flags, mode);
}

int shm_open(const char *name, int flags, mode_t mode)
{
    REFUSE_OR_PASS_ON(shm_open, -1, name, flags, mode);
}

int ftruncate(int file, off_t length) noexcept
{
    REFUSE_OR_PASS_ON(ftruncate, -1, file, length);
}

int ftruncate64(int file, off64_t length) noexcept
{
    REFUSE_OR_PASS_ON(ftruncate64, -1, file, length);
}

int posix_fallocate(int file, off_t offset, off_t length)
{
    // Alone among them it gives the reason back.
    REFUSE_OR_PASS_ON(posix_fallocate, errno, file, offset, length);
}

int fallocate(int file, int mode, off_t offset, off_t length)
{
    REFUSE_OR_PASS_ON(fallocate, -1, file, mode, offset, length);
}

void *mmap(void *address, size_t length, int protection, int flags, int file, off_t offset) noexcept
{
    REFUSE_OR_PASS_ON(mmap, MAP_FAILED, address, length, protection, flags, file, offset);
}

void *mmap64(void *address, size_t length, int protection, int flags, int file,
             off64_t offset) noexcept
{
    REFUSE_OR_PASS_ON(mmap64, MAP_FAILED, address, length, protection, flags, file, offset);
}

int semget(key_t key, int count, int flags) noexcept
{
    REFUSE_OR_PASS_ON(semget, -1, key, count, flags);
}

int semop(int set, sembuf *operations, size_t count) noexcept
{
    REFUSE_OR_PASS_ON(semop, -1, set, operations, count);
}

int semtimedop(int set, sembuf *operations, size_t count, const timespec *bound) noexcept
{
    REFUSE_OR_PASS_ON(semtimedop, -1, set, operations, count, bound);
}

ssize_t write(int file, const void *bytes, size_t count)
{
    REFUSE_OR_PASS_ON(write, -1, file, bytes, count);
}

int fsync(int file)
{
    REFUSE_OR_PASS_ON(fsync, -1, file);
}

int fdatasync(int file)
{
    REFUSE_OR_PASS_ON(fdatasync, -1, file);
}

int rename(const char *from, const char *to) noexcept
{
    REFUSE_OR_PASS_ON(rename, -1, from, to);
}

int renameat(int fromFolder, const char *from, int toFolder, const char *to) noexcept
{
    REFUSE_OR_PASS_ON(renameat, -1, fromFolder, from, toFolder, to);
}

int renameat2(int fromFolder, const char *from, int toFolder, const char *to,
              unsigned flags) noexcept
{
    REFUSE_OR_PASS_ON(renameat2, -1, fromFolder, from, toFolder, to, flags);
}

int linkat(int fromFolder, const char *from, int toFolder, const char *to, int flags) noexcept
{
    REFUSE_OR_PASS_ON(linkat, -1, fromFolder, from, toFolder, to, flags);
}

} // extern "C"

// A sanitizer keeps its own books of what is asked for and given back.
#ifndef FAILING_WITHOUT_NEW

/// Memory that this project asks for itself. What Qt asks for ends the program, as Qt has it.
void *operator new(std::size_t size)
{
    if (isRefused("new", __builtin_return_address(0))) {
        throw std::bad_alloc();
    }
    void *const memory = std::malloc(std::max<std::size_t>(size, 1));
    if (!memory) {
        throw std::bad_alloc();
    }
    return memory;
}

void operator delete(void *memory) noexcept
{
    std::free(memory);
}

void operator delete(void *memory, std::size_t) noexcept
{
    std::free(memory);
}

#endif
