#include "ProcessData/Linux/SegmentWord_p.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

quint64 segmentWord(const QString &key, int offset)
{
    // Without waiting, if somebody put a pipe there.
    const int fd = ::shm_open(key.toLocal8Bit().constData(), O_RDONLY | O_NONBLOCK, 0);
    if (fd < 0) {
        return 0;
    }
    struct stat status = {};
    quint64 word = 0;
    const bool isSegment = ::fstat(fd, &status) == 0 && S_ISREG(status.st_mode);
    const bool isRead = isSegment
                        && ::pread(fd, &word, sizeof word, offset)
                               == static_cast<ssize_t>(sizeof word);
    ::close(fd);
    return isRead ? word : 0;
}
