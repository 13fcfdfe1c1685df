#include "soak/SoakBoard.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace Soak {

SoakBoard::SoakBoard(const QString &fileName, int slot) : m_slot(slot)
{
    const int fd = open(qPrintable(fileName), O_RDWR | O_CLOEXEC);
    void *const start = mmap(nullptr, sm_words * sizeof(Word), PROT_READ | PROT_WRITE, MAP_SHARED,
                             fd, 0);
    close(fd);
    if (start == MAP_FAILED) {
        qFatal("no board in %s: start script/soak-library", qPrintable(fileName));
    }
    m_words = static_cast<Word *>(start);
}

SoakBoard::~SoakBoard()
{
    munmap(m_words, sm_words * sizeof(Word));
}

} // namespace Soak
