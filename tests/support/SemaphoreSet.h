#pragma once

#include "Companion/SystemVSemaphoreBaseClass.h"

#include <QString>

#include <chrono>
#include <vector>

#include <sched.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <unistd.h>

/// A set of semaphores as a stranger sees it, who knows its key. Removes what a test left behind.
class SemaphoreSet
{
public:
    /// Gives the names of the single semaphores away.
    struct Names : SystemVSemaphoreBaseClass
    {
        using SystemVSemaphoreBaseClass::SemaphoreClosed;
        using SystemVSemaphoreBaseClass::SemaphoreCount;
        using SystemVSemaphoreBaseClass::SemaphoreLease;
        using SystemVSemaphoreBaseClass::SemaphoreReaders;
        using SystemVSemaphoreBaseClass::SemaphoreUsers;
        using SystemVSemaphoreBaseClass::SemaphoreWriteLock;
    };

    explicit SemaphoreSet(const QString &key) : m_key(key) { }
    ~SemaphoreSet() { remove(); }

    SemaphoreSet(const SemaphoreSet &) = delete;
    SemaphoreSet &operator=(const SemaphoreSet &) = delete;

    /// A key that no other test program uses at the same time.
    static QString uniqueKey(const QString &topic)
    {
        static int number = 0;
        return QStringLiteral("tessel-test-%1-%2-%3").arg(topic).arg(getpid()).arg(++number);
    }

    QString key() const { return m_key; }
    /// -1 if there is none.
    int id() const { return semget(SystemVSemaphoreBaseClass::systemVKey(m_key), 0, 0); }
    bool exists() const { return id() >= 0; }

    /// Makes a set of somebody else under this key.
    int make(const std::vector<unsigned short> &values) const
    {
        const int made = semget(SystemVSemaphoreBaseClass::systemVKey(m_key),
                                static_cast<int>(values.size()), IPC_CREAT | IPC_EXCL | 0666);
        return made >= 0 && setValues(made, values) ? made : -1;
    }
    static bool setValues(int id, std::vector<unsigned short> values)
    {
        Argument argument{};
        argument.values = values.data();
        return semctl(id, 0, SETALL, argument) == 0;
    }
    std::vector<unsigned short> values() const
    {
        std::vector<unsigned short> all(Names::SemaphoreCount);
        Argument argument{};
        argument.values = all.data();
        semctl(id(), 0, GETALL, argument);
        return all;
    }
    int value(int semaphore) const { return semctl(id(), semaphore, GETVAL); }
    bool setValue(int semaphore, int value) const
    {
        Argument argument{};
        argument.value = value;
        return semctl(id(), semaphore, SETVAL, argument) == 0;
    }
    bool remove() const { return exists() && semctl(id(), 0, IPC_RMID) == 0; }

    int users() const { return value(Names::SemaphoreUsers); }
    bool isWriteLocked() const { return value(Names::SemaphoreWriteLock) == 1; }
    /// Whether a process keeps the write lock, inside it or not.
    bool isKept() const { return value(Names::SemaphoreLease) == 1; }
    int readers() const { return value(Names::SemaphoreReaders); }

    /// Until so many are asleep in the kernel because of the semaphore, however long that takes
    /// them. False if it does not come to that.
    bool waitUntilBlocked(int semaphore, int count) const
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (std::chrono::steady_clock::now() < deadline) {
            if (semctl(id(), semaphore, GETZCNT) + semctl(id(), semaphore, GETNCNT) >= count) {
                return true;
            }
            sched_yield();
        }
        return false;
    }
    bool waitUntilBlockedByWriter(int count = 1) const
    {
        return waitUntilBlocked(Names::SemaphoreWriteLock, count);
    }
    bool waitUntilBlockedByReaders(int count = 1) const
    {
        return waitUntilBlocked(Names::SemaphoreReaders, count);
    }

private:
    /// The argument of semctl(), which its caller has to declare.
    union Argument {
        int value;
        semid_ds *status;
        unsigned short *values;
    };

    QString m_key;
};
