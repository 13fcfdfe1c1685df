// The write lock between two processes: what a lock that stays with its writer costs where it has to
// change hands, beside the same lock as an operation of the semaphore each time.

#include "Companion/PingPongBufferHandler.h"
#include "ForkedChild.h"
#include "MedianOfSamples.h"
#include "PlainWriteLock.h"
#include "support/SharedRegion.h"

#include <QString>

#include <algorithm>
#include <array>
#include <atomic>
#include <new>
#include <optional>

#include <benchmark/benchmark.h>
#include <semaphore.h>
#include <unistd.h>

namespace {

using CreationType = SystemVSemaphoreBaseClass::CreationType;

constexpr quint32 bufferSize = 16;

/// What the two processes share beside the lock.
struct Shared
{
    Shared() { sem_init(&ready, 1, 0); }

    sem_t ready;
    /// Only under the lock, but looked at without.
    alignas(64) std::atomic<quint64> lockCount{0};
    alignas(64) std::atomic<quint64> turn{0};
};

/// The region, from before the second process is there.
class Ground
{
public:
    Shared &shared() { return *m_shared; }
    SharedRegion &region() { return m_region; }

private:
    SharedMapping m_mapping{sizeof(Shared)};
    Shared *m_shared{new (m_mapping.start()) Shared};
    SharedRegion m_region{SharedRegion::Layout::Double, bufferSize};
};

QString semaphoreKey(int creatorProcess)
{
    return QStringLiteral("tesselBenchmarkLock%1").arg(creatorProcess);
}

/// The write lock of the library's double buffer.
class LeasedLock
{
public:
    LeasedLock(SharedRegion &region, CreationType type, int creatorProcess)
        : m_handler(region.management(), region.first(), region.second(), type, bufferSize,
                    semaphoreKey(creatorProcess))
    {
    }

    bool lock()
    {
        m_buffer = m_handler.lockForWrite();
        return m_buffer != nullptr;
    }
    bool unlock() { return m_handler.unlockForWrite(m_buffer); }

private:
    PingPongBufferHandler m_handler;
    BufferHandlerInterface::BufferPointer m_buffer = nullptr;
};

/// Without a region of its own.
class SemaphoreLock : public PlainWriteLock
{
public:
    SemaphoreLock(SharedRegion & /*region*/, CreationType type, int creatorProcess)
        : PlainWriteLock(semaphoreKey(creatorProcess), type)
    {
    }
};

/// Counts a lock of its own. False if it was not had.
template <class Lock>
bool lockOnce(Lock &lock, Shared &shared)
{
    if (!lock.lock()) {
        return false;
    }
    shared.lockCount.store(shared.lockCount.load(std::memory_order_relaxed) + 1,
                           std::memory_order_relaxed);
    return lock.unlock();
}

// What a second process does, and what this one does until so many locks are counted. Both give false if
// a lock was not had. A sample is long enough to hold all that happens in turn; where every lock is like
// the others it is short, and the median leaves those out in which a process was put aside.

struct AsFastAsTheyCan
{
    static constexpr quint64 locksInASample = 5000;
    static constexpr int samples = 1;

    template <class Lock>
    static bool workBeside(Lock &lock, Shared &shared)
    {
        return lockOnce(lock, shared);
    }
    template <class Lock>
    static bool work(Lock &lock, Shared &shared, quint64 last)
    {
        while (shared.lockCount.load(std::memory_order_relaxed) < last) {
            if (!lockOnce(lock, shared)) {
                return false;
            }
        }
        return true;
    }
};

/// Each waits outside the lock until the other has had it.
struct InTurnOfTwo
{
    static constexpr quint64 locksInASample = 20;
    static constexpr int samples = MedianOfSamples::count;

    template <class Lock>
    static bool lockInTurn(Lock &lock, Shared &shared, quint64 mine)
    {
        while (shared.turn.load(std::memory_order_acquire) != mine) { }
        const bool wasHad = lockOnce(lock, shared);
        shared.turn.store(1 - mine, std::memory_order_release);
        return wasHad;
    }
    template <class Lock>
    static bool workBeside(Lock &lock, Shared &shared)
    {
        return lockInTurn(lock, shared, 1);
    }
    template <class Lock>
    static bool work(Lock &lock, Shared &shared, quint64 last)
    {
        while (shared.lockCount.load(std::memory_order_relaxed) < last) {
            if (!lockInTurn(lock, shared, 0)) {
                return false;
            }
        }
        return true;
    }
};

/// One locks without a pause, the other once in so many locks, and meets him where he is.
struct WithARareSecond
{
    static constexpr quint64 locksInASample = 20000;
    static constexpr int samples = 1;
    static constexpr quint64 locksBetween = 1000;

    template <class Lock>
    static bool workBeside(Lock &lock, Shared &shared)
    {
        const quint64 due = shared.lockCount.load(std::memory_order_relaxed) + locksBetween;
        while (shared.lockCount.load(std::memory_order_relaxed) < due) { }
        return lockOnce(lock, shared);
    }
    template <class Lock>
    static bool work(Lock &lock, Shared &shared, quint64 last)
    {
        return AsFastAsTheyCan::work(lock, shared, last);
    }
};

/// Seconds of one sample. Nothing if a lock was not had.
template <class Work, class Lock>
std::optional<double> takeSample(Lock &lock, Shared &shared)
{
    const quint64 last = shared.lockCount.load(std::memory_order_relaxed) + Work::locksInASample;
    const auto begin = MedianOfSamples::Clock::now();
    return Work::work(lock, shared, last) ? std::make_optional(MedianOfSamples::secondsSince(begin))
                                          : std::nullopt;
}

/// Times the locks of both processes together, each with its unlock.
template <class Lock, class Work>
void twoProcesses(benchmark::State &state)
{
    Ground ground;
    Shared &shared = ground.shared();
    Lock lock(ground.region(), CreationType::CreationTypeCreate, getpid());
    const ForkedChild second([&ground, &shared] {
        Lock own(ground.region(), CreationType::CreationTypeAttach, getppid());
        sem_post(&shared.ready);
        while (Work::workBeside(own, shared)) { }
    });
    while (sem_wait(&shared.ready) != 0) { }
    std::array<double, Work::samples> times{};
    while (state.KeepRunningBatch(Work::locksInASample)) {
        for (double &time : times) {
            const auto taken = takeSample<Work>(lock, shared);
            if (!taken) {
                state.SkipWithError("a lock was not had");
                return;
            }
            time = *taken;
        }
        std::nth_element(times.begin(), times.begin() + Work::samples / 2, times.end());
        state.SetIterationTime(times[Work::samples / 2]);
    }
}

} // namespace

// So many samples, or medians of samples, in a repetition.
BENCHMARK(twoProcesses<LeasedLock, AsFastAsTheyCan>)
    ->Name("lock/twoProcesses/tessel")
    ->UseManualTime()
    ->Iterations(2 * AsFastAsTheyCan::locksInASample);
BENCHMARK(twoProcesses<SemaphoreLock, AsFastAsTheyCan>)
    ->Name("lock/twoProcesses/floor-plain")
    ->UseManualTime()
    ->Iterations(2 * AsFastAsTheyCan::locksInASample);
BENCHMARK(twoProcesses<LeasedLock, InTurnOfTwo>)
    ->Name("lock/alternating/tessel")
    ->UseManualTime()
    ->Iterations(10 * InTurnOfTwo::locksInASample);
BENCHMARK(twoProcesses<SemaphoreLock, InTurnOfTwo>)
    ->Name("lock/alternating/floor-plain")
    ->UseManualTime()
    ->Iterations(10 * InTurnOfTwo::locksInASample);
BENCHMARK(twoProcesses<LeasedLock, WithARareSecond>)
    ->Name("lock/dominant/tessel")
    ->UseManualTime()
    ->Iterations(5 * WithARareSecond::locksInASample);
BENCHMARK(twoProcesses<SemaphoreLock, WithARareSecond>)
    ->Name("lock/dominant/floor-plain")
    ->UseManualTime()
    ->Iterations(5 * WithARareSecond::locksInASample);
