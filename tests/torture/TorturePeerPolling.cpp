#include "Companion/PingPongBufferHandler.h"
#include "torture/SleepNote.h"
#include "torture/TorturePeer.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <unistd.h>

// Waiting through the descriptor of a watcher. The thread behind it sleeps in the kernel also while nobody
// wants to hear of a set, which is a rest that no publisher needs to end. Acknowledging, and waiting
// beside it, arm for a thread that sleeps already.

namespace Torture {

namespace {

void increase(std::atomic<quint64> &counter)
{
    counter.fetch_add(1, std::memory_order_relaxed);
}

bool isReadable(int descriptor, std::chrono::milliseconds bound)
{
    pollfd polled{descriptor, POLLIN, 0};
    return poll(&polled, 1, static_cast<int>(bound.count())) > 0;
}

} // namespace

void TorturePeer::beginPolling(Region &region)
{
    m_descriptor = -1;
    m_descriptor = region.watcher->getDescriptor();
    if (m_descriptor < 0) {
        fail(QStringLiteral("refused without a reason: a descriptor"));
    }
}

void TorturePeer::pollForSet()
{
    const bool isTold = inLedger(m_region->told,
                                 [this] { return isReadable(m_descriptor, sm_waitBound); });
    if (isTold && random(3) == 0) {
        waitBesideRest();
    }
    acknowledge();
    if (random(8) == 0) {
        readSet();
    }
}

void TorturePeer::acknowledge()
{
    const quint64 former = m_region->told;
    m_isAcknowledging = true;
    const quint32 sleep = SleepNote::number(SleepNote(m_entry.wait.sleep).current());
    const auto result = m_region->watcher->acknowledge(m_region->told);
    plantLostArming();
    m_isAcknowledging = false;
    // Of a sleep that begins behind this its own thread says for which sets it is.
    WakeDue(m_entry.wait.due).arm(sleep, static_cast<quint32>(m_region->told));
    if (result == ProcessDataWatcher::Result::NewSet) {
        increase(m_entry.wait.setsPolled);
    }
    judgeResult(result, former, m_region->told);
}

/// As another thread would that is interested in the newest set, while nobody has acknowledged the last.
void TorturePeer::waitBesideRest()
{
    m_region->awaited = m_region->watcher->getGeneration();
    increase(m_entry.wait.waitsBesides);
    waitBehind(m_region->awaited);
}

/// By the thread behind the descriptor, before it sleeps: whether there is something that nobody has
/// acknowledged yet, or is about to. It may come so far before the descriptor is known here: whoever made it
/// has acknowledged nothing until then.
bool TorturePeer::isResting() const
{
    const int descriptor = m_descriptor;
    // In this order: an acknowledgement that was not there to be seen has armed by then.
    return descriptor < 0 || isReadable(descriptor, std::chrono::milliseconds{0})
           || m_isAcknowledging;
}

/// As if the acknowledgement had not reached the publishers.
void TorturePeer::plantLostArming() const
{
    using Words = PingPongBufferHandler::ManagementBuffer;
    if (!isPlanted(Plant::Unarmed)) {
        return;
    }
    const QString path = QStringLiteral("/dev/shm/%1SharedMemory").arg(m_start.key);
    const int fd = open(qPrintable(path), O_RDWR | O_CLOEXEC);
    void *start = mmap(nullptr, sizeof(Words), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    close(fd);
    if (start != MAP_FAILED) {
        static_cast<Words *>(start)->armed = 0;
        munmap(start, sizeof(Words));
    }
}

} // namespace Torture
