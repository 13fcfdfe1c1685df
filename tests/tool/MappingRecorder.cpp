// Preloaded into a program: writes a line for each mapping of a file in /dev/shm, "r--s" or "rw-s", into the file that
// the environment names.

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

bool isSharedMemory(int fd)
{
    constexpr char folder[] = "/dev/shm/";
    char link[64];
    char path[sizeof folder] = {};
    std::snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
    return fd >= 0 && ::readlink(link, path, sizeof path - 1) > 0
           && std::strncmp(path, folder, sizeof folder - 1) == 0;
}

void record(int protection)
{
    const char *const path = std::getenv("MAPPING_RECORD");
    const int fd = path != nullptr ? ::open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600)
                                   : -1;
    if (fd >= 0) {
        const char *const line = (protection & PROT_WRITE) != 0 ? "rw-s\n" : "r--s\n";
        [[maybe_unused]] const ssize_t written = ::write(fd, line, std::strlen(line));
        ::close(fd);
    }
}

} // namespace

extern "C" [[gnu::visibility("default")]] void *mmap(void *address, size_t size, int protection,
                                                     int flags, int fd, off_t offset) noexcept
{
    if ((flags & MAP_SHARED) != 0 && isSharedMemory(fd)) {
        record(protection);
    }
#ifdef SYS_mmap2
    constexpr off_t unit = 4096;
    return reinterpret_cast<void *>(
        ::syscall(SYS_mmap2, address, size, protection, flags, fd, offset / unit));
#else
    return reinterpret_cast<void *>(
        ::syscall(SYS_mmap, address, size, protection, flags, fd, offset));
#endif
}

extern "C" [[gnu::visibility("default")]] void *mmap64(void *address, size_t size, int protection,
                                                       int flags, int fd, off64_t offset) noexcept
{
    return mmap(address, size, protection, flags, fd, static_cast<off_t>(offset));
}
