#include "Companion/RegularFile_p.h"

#include <QDebug>
#include <QFileInfo>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr QIODevice::OpenMode readingText = QIODevice::ReadOnly | QIODevice::Text;

bool refuse(const QFileInfo &entry, const QString &reason)
{
    qWarning() << "Can't open file " << entry.filePath() << " IO Error: " << reason;
    return false;
}

bool refuseOther(const QFileInfo &entry, mode_t mode)
{
    if (S_ISDIR(mode)) {
        // The toolkit's own words for it.
        return refuse(entry, QIODevice::tr("file to open is a directory"));
    }
    qWarning() << "Not a regular file and not read:" << entry.filePath();
    return false;
}

int openRepeated(const char *path, int flags)
{
    int fd = -1;
    do {
        fd = ::open(path, flags | O_NOCTTY | O_CLOEXEC);
    } while (fd < 0 && errno == EINTR);
    return fd;
}

/// Waits for whoever has a lease on the file, as a file server has, to give it back. The system bounds
/// the wait. Of nothing but a file: the path is followed once, and what it leads to is held.
int openLeased(const char *path)
{
    const int place = openRepeated(path, O_PATH);
    struct stat status = {};
    int fd = -1;
    errno = EWOULDBLOCK;
    if (place >= 0 && ::fstat(place, &status) == 0 && S_ISREG(status.st_mode)) {
        const QByteArray name = QByteArrayLiteral("/proc/self/fd/") + QByteArray::number(place);
        fd = openRepeated(name.constData(), O_RDONLY);
    }
    if (place >= 0) {
        const int reason = errno;
        ::close(place);
        errno = reason;
    }
    return fd;
}

/// A FIFO that took the place of the file meanwhile is opened without waiting for its writer.
int openForReadingOnly(const char *path)
{
    const int fd = openRepeated(path, O_RDONLY | O_NONBLOCK);
    return fd < 0 && errno == EWOULDBLOCK ? openLeased(path) : fd;
}

} // namespace

bool RegularFile::openForReading(const QString &path, QFile &file)
{
    const QFileInfo entry(path);
    if (!entry.isNativePath()) {
        // A resource of the program, or no name at all.
        file.setFileName(path);
        return file.open(readingText) || refuse(entry, file.errorString());
    }
    const QByteArray name = QFile::encodeName(entry.filePath());
    struct stat status = {};
    if (::stat(name.constData(), &status) != 0) {
        return refuse(entry, qt_error_string(errno));
    }
    // Asked before as well, as to open a device may set it going.
    if (!S_ISREG(status.st_mode)) {
        return refuseOther(entry, status.st_mode);
    }
    const int fd = openForReadingOnly(name.constData());
    if (fd < 0) {
        return refuse(entry, qt_error_string(errno));
    }
    const bool isKnown = ::fstat(fd, &status) == 0;
    if (isKnown && S_ISREG(status.st_mode) && file.open(fd, readingText, QFile::AutoCloseHandle)) {
        return true;
    }
    ::close(fd);
    return isKnown && !S_ISREG(status.st_mode) ? refuseOther(entry, status.st_mode)
                                               : refuse(entry, file.errorString());
}

QByteArray RegularFile::readText(QFile &file)
{
    // In text mode the toolkit looks at one byte after the other.
    file.setTextModeEnabled(false);
    QByteArray text = file.readAll();
    // Few files have one.
    if (std::memchr(text.constData(), '\r', static_cast<std::size_t>(text.size())) != nullptr) {
        text.truncate(static_cast<int>(std::remove(text.begin(), text.end(), '\r') - text.begin()));
    }
    return text;
}

bool RegularFile::isSomethingElse(const QString &path)
{
    const QFileInfo entry(path);
    return entry.exists() && !entry.isFile() && !entry.isDir();
}
