#include "Inspection/RegionFile_p.h"

#include <cerrno>
#include <limits>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

int openForReading(const QString &name)
{
    // Without waiting, if somebody put a pipe there.
    return ::shm_open(name.toLocal8Bit().constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC, 0);
}

} // namespace

RegionFile::RegionFile(const QString &name) : m_fd(openForReading(name))
{
    if (m_fd < 0) {
        m_error = errno;
        return;
    }
    struct stat status = {};
    if (::fstat(m_fd, &status) != 0) {
        m_error = errno;
    } else if (!S_ISREG(status.st_mode) || status.st_size == 0) {
        m_error = EINVAL;
    } else if (status.st_size > std::numeric_limits<qint32>::max()) {
        m_error = EFBIG;
    }
    m_identity = {status.st_dev, status.st_ino};
    if (m_error != 0) {
        ::close(m_fd);
        m_fd = -1;
    }
}

RegionFile::~RegionFile()
{
    if (m_fd >= 0) {
        ::close(m_fd);
    }
}

qint64 RegionFile::size() const
{
    struct stat status = {};
    return m_fd >= 0 && ::fstat(m_fd, &status) == 0 ? status.st_size : 0;
}

bool RegionFile::read(void *target, std::size_t size, qint64 offset) const
{
    ssize_t count = -1;
    do {
        count = ::pread(m_fd, target, size, static_cast<off_t>(offset));
    } while (count < 0 && errno == EINTR);
    return count == static_cast<ssize_t>(size);
}

QByteArray RegionFile::read(qint64 offset, quint32 count) const
{
    // Before there is room for them: a description may say anything of its sizes.
    if (offset + count > size()) {
        return {};
    }
    QByteArray bytes(static_cast<int>(count), Qt::Uninitialized);
    return read(bytes.data(), count, offset) ? bytes : QByteArray();
}

bool RegionFile::find(const QString &name, FileIdentity &identity)
{
    const int fd = openForReading(name);
    struct stat status = {};
    const bool isFound = fd >= 0 && ::fstat(fd, &status) == 0;
    identity = {status.st_dev, status.st_ino};
    if (fd >= 0) {
        ::close(fd);
    }
    return isFound;
}

dev_t RegionFile::deviceOfAll()
{
    struct stat status = {};
    return ::stat("/dev/shm", &status) == 0 ? status.st_dev : 0;
}
