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

std::optional<RegionLockReading::OwnSet> RegionLockReading::findOwnSet(const QString &semaphoreKey)
{
    const int set = semaphoreKey.isEmpty() ? -1 : findSet(semaphoreKey);
    const auto expected = initialValues(semaphoreKey);
    OwnSet found{set, expected};
    semid_ds status{};
    SemaphoreArgument argument{};
    argument.status = &status;
    if (set < 0 || semctl(set, 0, IPC_STAT, argument) != 0 || status.sem_nsems != expected.size()) {
        return {};
    }
    argument.values = found.values.data();
    const bool isRead = semctl(set, 0, GETALL, argument) == 0;
    return isRead
                   && std::equal(found.values.cbegin() + SemaphoreFingerprint, found.values.cend(),
                                 expected.cbegin() + SemaphoreFingerprint)
               ? std::optional<OwnSet>(found)
               : std::nullopt;
}

bool RegionLockReading::hasSet(const QString &semaphoreKey)
{
    return findOwnSet(semaphoreKey).has_value();
}

RegionLock RegionLockReading::read(const QString &semaphoreKey, bool isOwnerInside)
{
    RegionLock lock;
    const std::optional<OwnSet> own = findOwnSet(semaphoreKey);
    if (!own) {
        return lock;
    }
    // Who waits for it waits for 0: a number that somebody else has written keeps everybody out as well.
    const auto isTaken = [&own](unsigned short semaphore) { return own->values[semaphore] != 0; };
    lock.state = RegionLock::State::Free;
    // A lease counts only as long as its semaphore is taken: the kernel gives that back at a death.
    if (isTaken(SemaphoreLease) && isOwnerInside) {
        lock.state = RegionLock::State::Held;
        lock.holder = lastProcess(own->id, SemaphoreLease);
    } else if (isTaken(SemaphoreWriteLock)) {
        lock.state = RegionLock::State::Held;
        lock.holder = lastProcess(own->id, SemaphoreWriteLock);
    } else if (isTaken(SemaphoreLease)) {
        lock.state = RegionLock::State::Kept;
        lock.holder = lastProcess(own->id, SemaphoreLease);
    }
    lock.readers = own->values[SemaphoreReaders];
    lock.waiters = sleepers(own->id, SemaphoreWriteLock) + sleepers(own->id, SemaphoreReaders)
                   + sleepers(own->id, SemaphoreLease);
    return lock;
}
