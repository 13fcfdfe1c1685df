// Values in shared memory under the locks that a user would take instead: each row takes the one
// lock, copies the 12 bytes of the next slot and gives the lock back. Nobody else holds it.

#include "InTurn.h"
#include "PlainSlot.h"
#include "support/SharedRegion.h"

#include <QSharedMemory>

#include <stdexcept>

#include <benchmark/benchmark.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <unistd.h>

#include <boost/interprocess/managed_shared_memory.hpp>
#include <boost/interprocess/sync/interprocess_mutex.hpp>

namespace {

namespace interprocess = boost::interprocess;

constexpr int slotsSize = InTurn::count * static_cast<int>(PlainSlot::size);

template <class Lock>
struct SlotsUnderLock
{
    Lock lock;
    unsigned char slots[slotsSize];
};

class BoostInterprocess
{
public:
    BoostInterprocess()
        : m_name("tesselBenchmarkBoost" + std::to_string(getpid()))
        , m_memory(interprocess::create_only, m_name.c_str(), 65536)
        , m_shared(m_memory.construct<SlotsUnderLock<interprocess::interprocess_mutex>>("slots")())
    {
    }
    ~BoostInterprocess() { interprocess::shared_memory_object::remove(m_name.c_str()); }

    void take() { m_shared->lock.lock(); }
    void giveBack() { m_shared->lock.unlock(); }
    unsigned char *slots() { return m_shared->slots; }

private:
    std::string m_name;
    interprocess::managed_shared_memory m_memory;
    SlotsUnderLock<interprocess::interprocess_mutex> *m_shared;
};

class QtSharedMemory
{
public:
    QtSharedMemory() : m_memory(QStringLiteral("tesselBenchmarkQt%1").arg(getpid()))
    {
        if (!m_memory.create(slotsSize)) {
            throw std::runtime_error("no QSharedMemory");
        }
    }

    void take() { m_memory.lock(); }
    void giveBack() { m_memory.unlock(); }
    unsigned char *slots() { return static_cast<unsigned char *>(m_memory.data()); }

private:
    QSharedMemory m_memory;
};

/// A lock of the C library in memory that processes share.
template <class Lock>
class InMapping
{
public:
    unsigned char *slots() { return shared()->slots; }

protected:
    Lock *lock() { return &shared()->lock; }

private:
    SlotsUnderLock<Lock> *shared()
    {
        return reinterpret_cast<SlotsUnderLock<Lock> *>(m_mapping.start());
    }

    SharedMapping m_mapping{sizeof(SlotsUnderLock<Lock>)};
};

template <int Robustness>
class PthreadMutex : public InMapping<pthread_mutex_t>
{
public:
    PthreadMutex()
    {
        pthread_mutexattr_t attributes;
        pthread_mutexattr_init(&attributes);
        pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
        pthread_mutexattr_setrobust(&attributes, Robustness);
        pthread_mutex_init(lock(), &attributes);
        pthread_mutexattr_destroy(&attributes);
    }
    ~PthreadMutex() { pthread_mutex_destroy(lock()); }

    void take() { pthread_mutex_lock(lock()); }
    void giveBack() { pthread_mutex_unlock(lock()); }
};

using PlainPthreadMutex = PthreadMutex<PTHREAD_MUTEX_STALLED>;
using RobustPthreadMutex = PthreadMutex<PTHREAD_MUTEX_ROBUST>;

class PosixSemaphore : public InMapping<sem_t>
{
public:
    PosixSemaphore() { sem_init(lock(), 1, 1); }
    ~PosixSemaphore() { sem_destroy(lock()); }

    void take() { sem_wait(lock()); }
    void giveBack() { sem_post(lock()); }
};

class SystemVSemaphore
{
public:
    SystemVSemaphore() : m_id(semget(IPC_PRIVATE, 1, IPC_CREAT | 0600)) { }
    ~SystemVSemaphore() { semctl(m_id, 0, IPC_RMID); }

    void take()
    {
        sembuf operations[] = {{0, 0, 0}, {0, 1, SEM_UNDO}};
        semop(m_id, operations, 2);
    }
    void giveBack()
    {
        sembuf operations[] = {{0, -1, SEM_UNDO}};
        semop(m_id, operations, 1);
    }
    unsigned char *slots() { return m_mapping.start(); }

private:
    int m_id;
    SharedMapping m_mapping{slotsSize};
};

template <class Peer>
unsigned char *slotOf(Peer &peer, int number)
{
    return peer.slots() + static_cast<std::size_t>(number) * PlainSlot::size;
}

template <class Peer>
void readUnderLock(benchmark::State &state)
{
    Peer peer;
    InTurn::measure(state, [&peer](int number) {
        peer.take();
        benchmark::DoNotOptimize(PlainSlot::load(slotOf(peer, number)));
        peer.giveBack();
    });
}

template <class Peer>
void writeUnderLock(benchmark::State &state)
{
    Peer peer;
    PlainSlot::Value value = {1.25, ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID};
    InTurn::measure(state, [&](int number) {
        benchmark::DoNotOptimize(value);
        peer.take();
        PlainSlot::store(slotOf(peer, number), value);
        peer.giveBack();
        benchmark::ClobberMemory();
    });
}

} // namespace

BENCHMARK(readUnderLock<BoostInterprocess>)->Name("value/getValueLocked/peer-boost-mutex");
BENCHMARK(readUnderLock<QtSharedMemory>)->Name("value/getValueLocked/peer-qsharedmemory");
BENCHMARK(readUnderLock<PlainPthreadMutex>)->Name("value/getValueLocked/peer-pthread-mutex");
BENCHMARK(readUnderLock<RobustPthreadMutex>)->Name("value/getValueLocked/peer-pthread-robust");
BENCHMARK(readUnderLock<PosixSemaphore>)->Name("value/getValueLocked/peer-posix-semaphore");
BENCHMARK(readUnderLock<SystemVSemaphore>)->Name("value/getValueLocked/peer-systemv-semaphore");
BENCHMARK(writeUnderLock<BoostInterprocess>)->Name("value/setValueLocked/peer-boost-mutex");
BENCHMARK(writeUnderLock<QtSharedMemory>)->Name("value/setValueLocked/peer-qsharedmemory");
BENCHMARK(writeUnderLock<PlainPthreadMutex>)->Name("value/setValueLocked/peer-pthread-mutex");
BENCHMARK(writeUnderLock<RobustPthreadMutex>)->Name("value/setValueLocked/peer-pthread-robust");
BENCHMARK(writeUnderLock<PosixSemaphore>)->Name("value/setValueLocked/peer-posix-semaphore");
BENCHMARK(writeUnderLock<SystemVSemaphore>)->Name("value/setValueLocked/peer-systemv-semaphore");
