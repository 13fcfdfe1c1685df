#include "torture/SharedLedger.h"

#include <ctime>

#include <sys/mman.h>
#include <unistd.h>

namespace Torture {

qint64 steadyNow()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return qint64{now.tv_sec} * second + now.tv_nsec;
}

void sleepFor(qint64 nanoseconds)
{
    const timespec pause{static_cast<time_t>(nanoseconds / second),
                         static_cast<long>(nanoseconds % second)};
    nanosleep(&pause, nullptr);
}

LedgerMapping::LedgerMapping() : m_fd(memfd_create("torture-ledger", 0))
{
    if (m_fd < 0 || ftruncate(m_fd, sizeof(Ledger)) != 0) {
        qFatal("no memory for the ledger");
    }
    map();
}

LedgerMapping::LedgerMapping(int fd) : m_fd(fd)
{
    map();
}

LedgerMapping::~LedgerMapping()
{
    munmap(m_ledger, sizeof(Ledger));
    close(m_fd);
}

void LedgerMapping::map()
{
    void *start = mmap(nullptr, sizeof(Ledger), PROT_READ | PROT_WRITE, MAP_SHARED, m_fd, 0);
    if (start == MAP_FAILED) {
        qFatal("the ledger cannot be mapped");
    }
    m_ledger = static_cast<Ledger *>(start);
}

const char *roleName(Role role)
{
    switch (role) {
    case Role::Creator: return "creator";
    case Role::BulkWriter: return "bulk writer";
    case Role::SingleWriter: return "single writer";
    case Role::BulkReader: return "bulk reader";
    case Role::SingleReader: return "single reader";
    case Role::Waiter: return "waiter";
    case Role::Poller: return "poller";
    }
    return "";
}

} // namespace Torture
