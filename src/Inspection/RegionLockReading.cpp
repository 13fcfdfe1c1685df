#include "Inspection/RegionLockReading_p.h"

#include <algorithm>

#include <sys/sem.h>

namespace {

/// The argument of semctl(), which its caller has to declare.
union SemaphoreArgument {
    int value;
    semid_ds *status;
    unsigned short *values;
};

/// The process of the last operation that was carried out: while the value is 1, whoever made it so.
std::optional<qint64> lastProcess(int set, unsigned short semaphore)
{
    const int process = semctl(set, semaphore, GETPID);
    return process > 0 ? std::optional<qint64>(process) : std::nullopt;
}

int sleepers(int set, unsigned short semaphore)
{
    return std::max(semctl(set, semaphore, GETNCNT), 0)
           + std::max(semctl(set, semaphore, GETZCNT), 0);
}

} // namespace

/// Negative if there is none, or one that belongs to another text.
int RegionLockReading::findOwnSet(const QString &semaphoreKey)
{
    const int set = findSet(semaphoreKey);
    const auto expected = initialValues(semaphoreKey);
    auto values = expected;
    semid_ds status{};
    SemaphoreArgument argument{};
    argument.status = &status;
    if (set < 0 || semctl(set, 0, IPC_STAT, argument) != 0 || status.sem_nsems != values.size()) {
        return -1;
    }
    argument.values = values.data();
    const bool isRead = semctl(set, 0, GETALL, argument) == 0;
    return isRead
                   && std::equal(values.cbegin() + SemaphoreFingerprint, values.cend(),
                                 expected.cbegin() + SemaphoreFingerprint)
               ? set
               : -1;
}

bool RegionLockReading::hasSet(const QString &semaphoreKey)
{
    return findOwnSet(semaphoreKey) >= 0;
}

RegionLock RegionLockReading::read(const QString &semaphoreKey, bool isOwnerInside)
{
    RegionLock lock;
    const int set = findOwnSet(semaphoreKey);
    if (set < 0) {
        return lock;
    }
    lock.state = RegionLock::State::Free;
    // A lease counts only as long as its semaphore is taken: the kernel gives that back at a death.
    const bool isKept = semctl(set, SemaphoreLease, GETVAL) == 1;
    if (isKept && isOwnerInside) {
        lock.state = RegionLock::State::Held;
        lock.holder = lastProcess(set, SemaphoreLease);
    } else if (semctl(set, SemaphoreWriteLock, GETVAL) == 1) {
        lock.state = RegionLock::State::Held;
        lock.holder = lastProcess(set, SemaphoreWriteLock);
    } else if (isKept) {
        lock.state = RegionLock::State::Kept;
        lock.holder = lastProcess(set, SemaphoreLease);
    }
    lock.readers = std::max(semctl(set, SemaphoreReaders, GETVAL), 0);
    lock.waiters = sleepers(set, SemaphoreWriteLock) + sleepers(set, SemaphoreReaders)
                   + sleepers(set, SemaphoreLease);
    return lock;
}
