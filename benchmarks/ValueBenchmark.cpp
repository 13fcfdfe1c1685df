// Reading and writing process values, singly and in bulk, beside what the same bytes cost without
// the library. The peers of the single accesses stand in peers/ and run in this program as well.

#include "LiveDoubles.h"
#include "MedianOfSamples.h"
#include "PlainSlot.h"
#include "support/SharedRegion.h"

#include <atomic>
#include <vector>

#include <benchmark/benchmark.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <unistd.h>

namespace {

using ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID;

constexpr int bulkCount = 1000;

LiveDoubles makeLive(int count)
{
    return {QStringLiteral("Value"), count, ProcessDataManager::InitTypeSharedMemoryCreate,
            getpid()};
}

bool skipUnlessLive(benchmark::State &state, const LiveDoubles &doubles)
{
    if (!doubles.isLive()) {
        state.SkipWithError("the description cannot be made live");
    }
    return doubles.isLive();
}

// One value, each read or write with its own lock.

void getValueLocked(benchmark::State &state)
{
    LiveDoubles doubles = makeLive(1);
    if (!skipUnlessLive(state, doubles)) {
        return;
    }
    const auto leaf = doubles.leaves().first();
    ProcessValue value(PROCESS_VALUE_ERROR_TYPE_VALID);
    for (auto _ : state) {
        leaf->getValue(value);
        benchmark::DoNotOptimize(value);
    }
}

/// The least that a consistent read without a lock can be: 12 bytes between two looks at a counter.
struct SequenceLock
{
    std::atomic<quint32> sequence;
    unsigned char slot[PlainSlot::size];
};

PlainSlot::Value readUnderSequence(const SequenceLock &lock)
{
    PlainSlot::Value value{};
    quint32 before = 0;
    quint32 after = 0;
    do {
        before = lock.sequence.load(std::memory_order_acquire);
        value = PlainSlot::load(lock.slot);
        std::atomic_thread_fence(std::memory_order_acquire);
        after = lock.sequence.load(std::memory_order_relaxed);
    } while (before != after || (before & 1U) != 0);
    return value;
}

void bareSequenceLock(benchmark::State &state)
{
    const SharedMapping memory(sizeof(SequenceLock));
    const auto *lock = reinterpret_cast<const SequenceLock *>(memory.start());
    for (auto _ : state) {
        benchmark::DoNotOptimize(readUnderSequence(*lock));
        benchmark::ClobberMemory();
    }
}

void setValueLocked(benchmark::State &state)
{
    LiveDoubles doubles = makeLive(1);
    if (!skipUnlessLive(state, doubles)) {
        return;
    }
    const auto leaf = doubles.leaves().first();
    const ProcessValue value(1.25, PROCESS_VALUE_ERROR_TYPE_VALID);
    for (auto _ : state) {
        benchmark::DoNotOptimize(leaf->setValue(value));
    }
}

/// What locking between processes costs where the kernel gives back the lock of a dead process.
void bareSemaphorePair(benchmark::State &state)
{
    const int semaphore = semget(IPC_PRIVATE, 1, IPC_CREAT | 0600);
    sembuf take[] = {{0, 0, 0}, {0, 1, SEM_UNDO}};
    sembuf giveBack[] = {{0, -1, SEM_UNDO}};
    for (auto _ : state) {
        semop(semaphore, take, 2);
        semop(semaphore, giveBack, 1);
    }
    semctl(semaphore, 0, IPC_RMID);
}

// A whole set inside one lock.

void bulkRead(benchmark::State &state)
{
    LiveDoubles doubles = makeLive(bulkCount);
    if (!skipUnlessLive(state, doubles)) {
        return;
    }
    std::vector<ProcessValue> values(bulkCount, ProcessValue(PROCESS_VALUE_ERROR_TYPE_VALID));
    bool repeat = false;
    for (auto _ : state) {
        doubles.manager().lockReadBuffer();
        auto value = values.begin();
        for (const auto &leaf : doubles.leaves()) {
            leaf->getValueNoLock(*value++);
        }
        doubles.manager().unlockReadBuffer(repeat);
        benchmark::DoNotOptimize(values.data());
        benchmark::ClobberMemory();
    }
}

void plainReadLoop(benchmark::State &state)
{
    LiveDoubles doubles = makeLive(bulkCount);
    doubles.manager().lockReadBuffer();
    const unsigned char *buffer = doubles.manager().getPointerReadBuffer();
    std::vector<PlainSlot::Value> values(bulkCount);
    for (auto _ : state) {
        benchmark::DoNotOptimize(buffer);
        for (std::size_t i = 0; i < bulkCount; ++i) {
            values[i] = PlainSlot::load(buffer + i * PlainSlot::size);
        }
        benchmark::DoNotOptimize(values.data());
        benchmark::ClobberMemory();
    }
    bool repeat = false;
    doubles.manager().unlockReadBuffer(repeat);
}

void bulkWrite(benchmark::State &state)
{
    LiveDoubles doubles = makeLive(bulkCount);
    if (!skipUnlessLive(state, doubles)) {
        return;
    }
    std::vector<ProcessValue> values;
    for (int i = 0; i < bulkCount; ++i) {
        values.emplace_back(0.5 * i, PROCESS_VALUE_ERROR_TYPE_VALID);
    }
    for (auto _ : state) {
        doubles.manager().lockWriteBuffer();
        auto value = values.cbegin();
        for (const auto &leaf : doubles.leaves()) {
            leaf->setValueNoLock(*value++);
        }
        doubles.manager().unlockWriteBuffer();
    }
}

void plainWriteLoop(benchmark::State &state)
{
    LiveDoubles doubles = makeLive(bulkCount);
    doubles.manager().lockWriteBuffer();
    unsigned char *buffer = doubles.manager().getPointerWriteBuffer();
    std::vector<PlainSlot::Value> values(bulkCount);
    for (auto _ : state) {
        benchmark::DoNotOptimize(values.data());
        benchmark::DoNotOptimize(buffer);
        for (std::size_t i = 0; i < bulkCount; ++i) {
            PlainSlot::store(buffer + i * PlainSlot::size, values[i]);
        }
        benchmark::ClobberMemory();
    }
    doubles.manager().unlockWriteBuffer();
}

// The swap. Its copy is made by the first write lock behind it, which is therefore timed with it.

void swapAfterBulk(benchmark::State &state)
{
    LiveDoubles doubles = makeLive(bulkCount);
    if (!skipUnlessLive(state, doubles)) {
        return;
    }
    double number = 0;
    MedianOfSamples::measure(state, [&doubles, &number] {
        doubles.writeAll(++number);
        const auto begin = MedianOfSamples::Clock::now();
        doubles.manager().swapReadAndWriteBuffer();
        doubles.manager().lockWriteBuffer();
        const double seconds = MedianOfSamples::secondsSince(begin);
        doubles.manager().unlockWriteBuffer();
        return seconds;
    });
}

void bulkWriteBetweenSwaps(benchmark::State &state)
{
    LiveDoubles doubles = makeLive(bulkCount);
    if (!skipUnlessLive(state, doubles)) {
        return;
    }
    double number = 0;
    MedianOfSamples::measure(state, [&doubles, &number] {
        doubles.manager().swapReadAndWriteBuffer();
        doubles.manager().lockWriteBuffer();
        doubles.manager().unlockWriteBuffer();
        const auto begin = MedianOfSamples::Clock::now();
        doubles.writeAll(++number);
        return MedianOfSamples::secondsSince(begin);
    });
}

} // namespace

BENCHMARK(getValueLocked)->Name("value/getValueLocked/tessel");
BENCHMARK(bareSequenceLock)->Name("value/getValueLocked/floor");
BENCHMARK(setValueLocked)->Name("value/setValueLocked/tessel");
BENCHMARK(bareSemaphorePair)->Name("value/setValueLocked/floor");
BENCHMARK(bulkRead)->Name("value/bulkRead1000/tessel");
BENCHMARK(plainReadLoop)->Name("value/bulkRead1000/floor");
BENCHMARK(bulkWrite)->Name("value/bulkWrite1000/tessel");
BENCHMARK(plainWriteLoop)->Name("value/bulkWrite1000/floor");
// An iteration holds a hundred samples, so that few are enough.
BENCHMARK(swapAfterBulk)->Name("value/swapAfterBulk1000/tessel")->UseManualTime()->Iterations(20);
BENCHMARK(bulkWriteBetweenSwaps)
    ->Name("value/swapAfterBulk1000/floor")
    ->UseManualTime()
    ->Iterations(20);
