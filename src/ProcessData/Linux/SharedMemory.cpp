#include "ProcessData/Linux/SharedMemory.h"

#include "Companion/Exchange/Identity_p.h"

#include <QDebug>

#include <cerrno>
#include <cstring>
#include <limits>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr mode_t modeForEverybody = 0666;
constexpr mode_t modeReadOnly = 0444;

/// An open descriptor, closed at the end of its life.
class Descriptor
{
public:
    explicit Descriptor(int fd) : m_fd(fd) { }
    ~Descriptor()
    {
        if (isOpen()) {
            ::close(m_fd);
        }
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;

    bool isOpen() const { return m_fd >= 0; }
    int get() const { return m_fd; }

private:
    int m_fd;
};

const char *reasonText(int code)
{
    // NOLINTNEXTLINE(concurrency-mt-unsafe): the text of a known code is a constant in glibc.
    return std::strerror(code);
}

/// Gives the object its size and the memory behind it; errno says why not.
bool reserveMemory(int fd, int size)
{
    if (::ftruncate(fd, size) != 0) {
        return false;
    }
    // A size alone takes no memory: on a full /dev/shm the first access to a page would end the
    // process with SIGBUS, today or in the middle of a measurement. So all pages are taken now.
    int result = 0;
    do {
        result = ::fallocate(fd, 0, 0, size);
    } while (result != 0 && errno == EINTR);
    // Other failures say that the memory could not be reserved in advance (not supported, no size
    // at all), not that it is missing: then everything goes on as it would without this step.
    return result == 0 || (errno != ENOSPC && errno != EFBIG && errno != ENOMEM && errno != EDQUOT);
}

/// Tells an object from those that bear its name before and after it, as long as it exists: the file
/// system counts its objects. 0 for none. The folder is always the same, so that its last 32 bits will
/// do.
quint32 objectNumber(const struct stat &status)
{
    const auto number = static_cast<quint32>(status.st_ino);
    return number == 0 ? 1 : number;
}

quint32 numberOfOpenObject(int fd)
{
    struct stat status = {};
    return ::fstatat(fd, "", &status, AT_EMPTY_PATH) == 0 ? objectNumber(status) : 0;
}

/// Asked for by its path, as it takes no descriptor and does not wait if somebody put a pipe there.
quint32 numberOfNamedObject(const QByteArray &key)
{
    struct stat status = {};
    const QByteArray path = QByteArrayLiteral("/dev/shm/") + key;
    return ::fstatat(AT_FDCWD, path.constData(), &status, AT_SYMLINK_NOFOLLOW) == 0
               ? objectNumber(status)
               : 0;
}

/// Of two things under one name at two moments this tells the first: no more than a rule against what was
/// left there by mistake.
bool isNamedPipe(const QByteArray &key)
{
    struct stat status = {};
    const QByteArray path = QByteArrayLiteral("/dev/shm/") + key;
    return ::fstatat(AT_FDCWD, path.constData(), &status, AT_SYMLINK_NOFOLLOW) == 0
           && S_ISFIFO(status.st_mode);
}

} // namespace

SharedMemory::~SharedMemory()
{
    // The name first: nobody can attach any more to a memory whose creator is leaving. Not the name
    // of a creator that came later, nor that of the process from which this one was forked.
    const bool isOwnName = m_PrivateData.m_created && m_PrivateData.m_createdObject != 0
                           && m_PrivateData.m_process == Identity::generation()
                           && m_PrivateData.m_createdObject
                                  == numberOfNamedObject(m_PrivateData.m_key);
    if (isOwnName && !m_PrivateData.m_key.isEmpty()) {
        ::shm_unlink(m_PrivateData.m_key.constData());
    }
    unmap();
}

bool SharedMemory::isWritable() const
{
    return m_PrivateData.m_data != nullptr && (m_PrivateData.m_access & IsMappedWritable) != 0;
}

void SharedMemory::setKey(const QString &key)
{
    m_PrivateData.m_key = key.toLocal8Bit();
}

bool SharedMemory::create(int size)
{
    Q_ASSERT(!m_PrivateData.m_created);
    m_PrivateData.m_created = true;
    m_PrivateData.m_process = Identity::generation();
    unmap();

    const Descriptor descriptor(openForCreation());
    if (!descriptor.isOpen()) {
        return false;
    }
    m_PrivateData.m_createdObject = numberOfOpenObject(descriptor.get());
    // The umask may have narrowed the mode.
    if (::fchmod(descriptor.get(), modeForEverybody) != 0) {
        qWarning() << "Could not change shared memory rights to 666:" << reasonText(errno);
    }
    if (!reserveMemory(descriptor.get(), size)) {
        recordFailure("SharedMemory::create: ftruncate failed: ", errno);
        return false;
    }
    return mapDescriptor(descriptor.get(), size, PROT_READ | PROT_WRITE);
}

bool SharedMemory::attach(SharedMemory::AccessMode mode)
{
    Q_ASSERT(!m_PrivateData.m_created);
    unmap();

    const bool writable = mode != ReadOnly;
    // Opened for reading alone it waits for a writer. So it ends where that for both ends, without the wait.
    if (!writable && isNamedPipe(m_PrivateData.m_key)) {
        recordFailure("SharedMemory::attach: mmap failed: ", EINVAL);
        return false;
    }
    const Descriptor descriptor(::shm_open(m_PrivateData.m_key.constData(),
                                           (writable ? O_RDWR : O_RDONLY) | O_EXCL,
                                           writable ? modeForEverybody : modeReadOnly));
    if (!descriptor.isOpen()) {
        recordFailure("SharedMemory::attach: shm_open failed: ", errno);
        return false;
    }
    struct stat status = {};
    if (::fstat(descriptor.get(), &status) != 0) {
        recordFailure("SharedMemory::attach: fstat failed: ", errno);
        return false;
    }
    // Whoever made this object did not do it through create(), whose size is an int.
    if (status.st_size > std::numeric_limits<qint32>::max()) {
        recordFailure("SharedMemory::attach: size is out of range: ", EFBIG);
        return false;
    }
    return mapDescriptor(descriptor.get(), static_cast<qint32>(status.st_size),
                         writable ? PROT_READ | PROT_WRITE : PROT_READ);
}

void SharedMemory::recordFailure(const char *what, int code)
{
    m_PrivateData.m_data = nullptr;
    m_PrivateData.m_size = 0;
    m_PrivateData.m_error = code;
    m_PrivateData.m_errorString = QString::fromLatin1(what)
                                  + QString::fromLocal8Bit(reasonText(code));
}

int SharedMemory::openForCreation()
{
    const char *key = m_PrivateData.m_key.constData();
    const int fd = ::shm_open(key, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, modeForEverybody);
    if (fd >= 0) {
        return fd;
    }

    const int code = errno;
    recordFailure("SharedMemory::create: shm_open O_CLOEXEC failed: ", code);
    // What is there was left behind, or belongs to a creator that is being replaced.
    if (code == EEXIST && ::shm_unlink(key) != 0) {
        recordFailure("SharedMemory::create: shm_unlink failed: ", errno);
    }
    // For every other reason too: a system may refuse nothing but the flag O_CLOEXEC.
    const int retriedFd = ::shm_open(key, O_RDWR | O_CREAT | O_EXCL, modeForEverybody);
    if (retriedFd < 0) {
        recordFailure("SharedMemory::create: shm_open failed: ", errno);
    }
    return retriedFd;
}

bool SharedMemory::mapDescriptor(int fd, qint32 size, int protection)
{
    void *data = ::mmap(nullptr, static_cast<std::size_t>(size), protection, MAP_SHARED, fd, 0);
    if (data == MAP_FAILED || data == nullptr) {
        recordFailure("SharedMemory::attach: mmap failed: ", errno);
        return false;
    }
    m_PrivateData.m_data = data;
    m_PrivateData.m_size = size;
    const auto others = static_cast<quint8>(m_PrivateData.m_access & ~IsMappedWritable);
    m_PrivateData.m_access = (protection & PROT_WRITE) != 0
                                 ? static_cast<quint8>(others | IsMappedWritable)
                                 : others;
    return true;
}

void SharedMemory::unmap()
{
    if (m_PrivateData.m_data == nullptr) {
        return;
    }
    if (::munmap(m_PrivateData.m_data, static_cast<std::size_t>(m_PrivateData.m_size)) != 0) {
        qWarning() << "~SharedMemory: munmap failed: " << reasonText(errno);
    }
    m_PrivateData.m_data = nullptr;
    m_PrivateData.m_size = 0;
}
