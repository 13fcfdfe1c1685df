#include "Inspection/RegionFile_p.h"

#include <algorithm>
#include <cerrno>
#include <limits>
#include <new>

#include <dirent.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

/// Of all shared-memory objects.
constexpr char objectFolder[] = "/dev/shm/";

int openForReading(const QString &name)
{
    // Without waiting, if somebody put a pipe there.
    return ::shm_open(name.toLocal8Bit().constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC, 0);
}

/// As shm_open() has it: slashes in front do not count. Empty for a name that it refuses.
QByteArray pathOf(const QString &name)
{
    const QByteArray text = name.toLocal8Bit().constData(); // ends at a zero
    const auto begin = std::find_if(text.cbegin(), text.cend(), [](char c) { return c != '/'; });
    const bool isRefused = begin == text.cend()
                           || std::find(begin, text.cend(), '/') != text.cend();
    return isRefused ? QByteArray() : objectFolder + QByteArray(begin);
}

/// Without a descriptor, of which there may be none left. A link stands for itself, as it is not followed.
bool findStatus(const QString &name, struct stat &status)
{
    const QByteArray path = pathOf(name);
    if (path.isEmpty()) {
        errno = EINVAL;
        return false;
    }
    return ::lstat(path.constData(), &status) == 0;
}

/// Whether something has the name though it could not be opened, for the reason @p error. Where even that
/// is not to be had it may.
bool isThere(const QString &name, int error, struct stat &status)
{
    return error != EINVAL && error != ENAMETOOLONG
           && (findStatus(name, status) || errno != ENOENT);
}

/// Whether an entry of the folder of all objects is a file, or may be one that is not shown. A link to one counts.
bool mayBeFile(const QString &name)
{
    struct stat status = {};
    const QByteArray path = pathOf(name);
    return ::stat(path.constData(), &status) == 0 ? S_ISREG(status.st_mode)
                                                  : errno != ENOENT && errno != ELOOP;
}

/// Why it can be no region; 0 if it can. An empty file may become one.
int errorOf(const struct stat &status)
{
    if (!S_ISREG(status.st_mode) || status.st_size == 0) {
        return EINVAL;
    }
    return status.st_size > std::numeric_limits<qint32>::max() ? EFBIG : 0;
}

} // namespace

RegionFile::RegionFile(const QString &name)
{
    // Asked before as well, as to open a device may set it going.
    struct stat named = {};
    if (findStatus(name, named) && !S_ISREG(named.st_mode) && !S_ISLNK(named.st_mode)) {
        m_error = errorOf(named);
        m_isFound = true;
        m_identity = {named.st_dev, named.st_ino};
        return;
    }
    m_fd = openForReading(name);
    if (m_fd < 0) {
        m_error = errno;
        struct stat status = {};
        m_isFound = isThere(name, m_error, status);
        m_identity = {status.st_dev, status.st_ino};
        return;
    }
    m_isFound = true;
    struct stat status = {};
    if (::fstat(m_fd, &status) != 0) {
        m_error = errno;
    } else {
        m_error = errorOf(status);
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
    // Nor is there a QByteArray of so many: it would ask for all the memory there is.
    constexpr quint32 largest = std::numeric_limits<int>::max() - 64;
    if (count > largest || offset + count > size()) {
        return {};
    }
    try {
        QByteArray bytes(static_cast<int>(count), Qt::Uninitialized);
        return read(bytes.data(), count, offset) ? bytes : QByteArray();
    } catch (const std::bad_alloc &) {
        return {};
    }
}

int RegionFile::findNames(QStringList &names)
{
    names.clear();
    // Qt's own walk takes a folder that cannot be read for an empty one.
    DIR *const folder = ::opendir("/dev/shm");
    if (folder == nullptr) {
        return errno;
    }
    errno = 0;
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nobody else has this stream.
    for (const dirent *entry = ::readdir(folder); entry != nullptr; entry = ::readdir(folder)) {
        const QString name = QString::fromLocal8Bit(entry->d_name);
        // One that is no text in this locale leads nowhere.
        if (mayBeFile(name)) {
            names.append(name);
        }
        errno = 0;
    }
    const int error = errno;
    ::closedir(folder);
    return error;
}

bool RegionFile::find(const QString &name, FileIdentity &identity)
{
    struct stat status = {};
    const bool isFound = findStatus(name, status);
    identity = {status.st_dev, status.st_ino};
    return isFound;
}

QByteArray RegionFile::pathInTable(const QString &name)
{
    // A line break would end the line.
    return pathOf(name).replace('\n', "\\012");
}

QString RegionFile::nameInTable(QByteArray path)
{
    constexpr int size = sizeof objectFolder - 1;
    const bool isObject = path.startsWith(objectFolder) && path.indexOf('/', size) < 0;
    return isObject ? QString::fromLocal8Bit(path.remove(0, size).replace("\\012", "\n"))
                    : QString();
}

dev_t RegionFile::deviceOfAll()
{
    struct stat status = {};
    return ::stat("/dev/shm", &status) == 0 ? status.st_dev : 0;
}
