#include "soak/SoakLeaks.h"

#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/sem.h>
#include <unistd.h>

namespace Soak {

namespace {

constexpr std::size_t leakedBytes = 1 << 20;

void leakMemory()
{
    // Nobody shall find out that it is never read.
    static void *volatile newest = nullptr;
    newest = std::malloc(leakedBytes);
    if (newest != nullptr) {
        std::memset(newest, 1, leakedBytes);
    }
}

void leakMapping(quint64 period)
{
    // The kernel makes one mapping of neighbours that are alike.
    const int access = period % 2 == 0 ? PROT_READ : PROT_READ | PROT_WRITE;
    mmap(nullptr, static_cast<std::size_t>(sysconf(_SC_PAGESIZE)), access,
         MAP_SHARED | MAP_ANONYMOUS, -1, 0);
}

} // namespace

SoakLeaks::SoakLeaks(const QStringList &kinds, const QString &key) : m_kinds(kinds), m_key(key) { }

SoakLeaks::~SoakLeaks()
{
    for (const int semaphores : m_semaphores) {
        semctl(semaphores, 0, IPC_RMID);
    }
    for (const QString &segment : qAsConst(m_segments)) {
        shm_unlink(qPrintable(segment));
    }
}

void SoakLeaks::leak(quint64 period)
{
    if (m_period == period) {
        return;
    }
    m_period = period;
    if (m_kinds.contains(QLatin1String("memory"))) {
        leakMemory();
    }
    if (m_kinds.contains(QLatin1String("descriptor"))) {
        open("/dev/null", O_RDONLY | O_CLOEXEC);
    }
    if (m_kinds.contains(QLatin1String("mapping"))) {
        leakMapping(period);
    }
    if (m_kinds.contains(QLatin1String("semaphore"))) {
        m_semaphores.push_back(semget(IPC_PRIVATE, 1, 0600));
    }
    if (m_kinds.contains(QLatin1String("segment"))) {
        leakSegment();
    }
}

void SoakLeaks::leakSegment()
{
    m_segments.append(QStringLiteral("%1Leak%2").arg(m_key).arg(m_period));
    const int fd = shm_open(qPrintable(m_segments.last()), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    close(fd);
}

} // namespace Soak
