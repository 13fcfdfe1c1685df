// Reading and writing process values, singly and in bulk, beside what the same bytes cost without
// the library. The peers of the single accesses stand in peers/ and run in this program as well.

#include "Access/ProcessBulkReader.h"
#include "Access/ProcessDataSnapshot.h"
#include "Access/ProcessDoubleHandle.h"
#include "InTurn.h"
#include "LiveDoubles.h"
#include "MedianOfSamples.h"
#include "PlainSlot.h"
#include "SequenceLock.h"
#include "support/SharedRegion.h"

#include <cstring>
#include <numeric>
#include <vector>

#include <benchmark/benchmark.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <unistd.h>

namespace {

using ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID;

constexpr int bulkCount = 1000;
constexpr int snapshotCount = 10000;

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

// One value, each read or write with its own lock, of so many in turn.

void getValueLocked(benchmark::State &state)
{
    LiveDoubles doubles = makeLive(InTurn::count);
    if (!skipUnlessLive(state, doubles)) {
        return;
    }
    ProcessValue value(PROCESS_VALUE_ERROR_TYPE_VALID);
    const auto *const leaves = doubles.leaves().constData();
    InTurn::measure(state, [&](int number) {
        leaves[number]->getValue(value);
        benchmark::DoNotOptimize(value);
    });
}

void readThroughHandle(benchmark::State &state)
{
    LiveDoubles doubles = makeLive(InTurn::count);
    if (!skipUnlessLive(state, doubles)) {
        return;
    }
    const std::vector<ProcessDoubleHandle> handles(doubles.leaves().cbegin(),
                                                   doubles.leaves().cend());
    const ProcessDoubleHandle *const first = handles.data();
    InTurn::measure(state, [first](int number) {
        PlainSlot::Value value;
        first[number].read(value.value, value.errorType);
        benchmark::DoNotOptimize(value);
    });
}

template <class Read>
void bareSequenceLock(benchmark::State &state, const Read &read)
{
    const SharedMapping memory(InTurn::count * sizeof(SequenceLock));
    // A program looks its values up once and keeps where they are.
    std::vector<const SequenceLock *> locks(InTurn::count);
    std::iota(locks.begin(), locks.end(), reinterpret_cast<const SequenceLock *>(memory.start()));
    const SequenceLock *const *const first = locks.data();
    InTurn::measure(state, [&](int number) { benchmark::DoNotOptimize(read(first[number])); });
}

void sequenceLockCalled(benchmark::State &state)
{
    bareSequenceLock(state, readBySequence);
}

void sequenceLockInPlace(benchmark::State &state)
{
    bareSequenceLock(state, [](const SequenceLock *lock) { return readInPlace(lock); });
}

void setValueLocked(benchmark::State &state)
{
    LiveDoubles doubles = makeLive(InTurn::count);
    if (!skipUnlessLive(state, doubles)) {
        return;
    }
    const ProcessValue value(1.25, PROCESS_VALUE_ERROR_TYPE_VALID);
    const auto *const leaves = doubles.leaves().constData();
    InTurn::measure(state,
                    [&](int number) { benchmark::DoNotOptimize(leaves[number]->setValue(value)); });
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

/// Into plain arrays, one for the values and one for the states.
void bulkReadPlain(benchmark::State &state)
{
    LiveDoubles doubles = makeLive(bulkCount);
    if (!skipUnlessLive(state, doubles)) {
        return;
    }
    ProcessBulkReader reader(&doubles.manager(), doubles.leaves());
    std::vector<double> values(bulkCount);
    std::vector<ProcessDataDefinitions::ErrorTypes> states(bulkCount);
    for (auto _ : state) {
        benchmark::DoNotOptimize(reader.read(values.data(), states.data()));
        benchmark::DoNotOptimize(values.data());
        benchmark::DoNotOptimize(states.data());
        benchmark::ClobberMemory();
    }
}

void plainLoopIntoArrays(benchmark::State &state)
{
    LiveDoubles doubles = makeLive(bulkCount);
    doubles.manager().lockReadBuffer();
    const unsigned char *buffer = doubles.manager().getPointerReadBuffer();
    std::vector<double> values(bulkCount);
    std::vector<ProcessDataDefinitions::ErrorTypes> states(bulkCount);
    for (auto _ : state) {
        benchmark::DoNotOptimize(buffer);
        for (std::size_t i = 0; i < bulkCount; ++i) {
            const PlainSlot::Value value = PlainSlot::load(buffer + i * PlainSlot::size);
            values[i] = value.value;
            states[i] = value.errorType;
        }
        benchmark::DoNotOptimize(values.data());
        benchmark::DoNotOptimize(states.data());
        benchmark::ClobberMemory();
    }
    bool repeat = false;
    doubles.manager().unlockReadBuffer(repeat);
}

// The swap, inside the write lock: the copy for the next set belongs to it.

void swapAfterBulk(benchmark::State &state)
{
    LiveDoubles doubles = makeLive(bulkCount);
    if (!skipUnlessLive(state, doubles)) {
        return;
    }
    ProcessDataManager &manager = doubles.manager();
    double number = 0;
    MedianOfSamples::measure(state, [&doubles, &manager, &number] {
        manager.lockWriteBuffer();
        doubles.writeAllNoLock(++number);
        const auto begin = MedianOfSamples::Clock::now();
        manager.swapReadAndWriteBuffer();
        const double swap = MedianOfSamples::secondsSince(begin);
        manager.unlockWriteBuffer();
        return swap;
    });
}

// The swap behind the lock. Its copy is made by the first write lock after it, which is therefore
// timed with it; what a write lock takes that makes no copy is the next set's, and taken off again.

double timeOfWriteLock(ProcessDataManager &manager)
{
    const auto begin = MedianOfSamples::Clock::now();
    manager.lockWriteBuffer();
    const double seconds = MedianOfSamples::secondsSince(begin);
    manager.unlockWriteBuffer();
    return seconds;
}

void swapAfterUnlock(benchmark::State &state)
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
        const double swap = MedianOfSamples::secondsSince(begin);
        const double lockWithCopy = timeOfWriteLock(doubles.manager());
        return swap + lockWithCopy - timeOfWriteLock(doubles.manager());
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

// A whole set as its bytes.

void takeSnapshot(benchmark::State &state)
{
    LiveDoubles doubles = makeLive(snapshotCount);
    if (!skipUnlessLive(state, doubles)) {
        return;
    }
    ProcessDataSnapshot snapshot;
    for (auto _ : state) {
        snapshot.take(doubles.manager());
        benchmark::DoNotOptimize(snapshot.getBytes());
        benchmark::ClobberMemory();
    }
}

void copyBuffer(benchmark::State &state)
{
    LiveDoubles doubles = makeLive(snapshotCount);
    if (!skipUnlessLive(state, doubles)) {
        return;
    }
    doubles.manager().lockReadBuffer();
    const unsigned char *buffer = doubles.manager().getPointerReadBuffer();
    std::vector<unsigned char> bytes(doubles.manager().getSizeBuffer());
    for (auto _ : state) {
        benchmark::DoNotOptimize(buffer);
        std::memcpy(bytes.data(), buffer, bytes.size());
        benchmark::DoNotOptimize(bytes.data());
        benchmark::ClobberMemory();
    }
    bool repeat = false;
    doubles.manager().unlockReadBuffer(repeat);
}

} // namespace

BENCHMARK(getValueLocked)->Name("value/getValueLocked/tessel");
BENCHMARK(sequenceLockCalled)->Name("value/getValueLocked/floor");
BENCHMARK(sequenceLockInPlace)->Name("value/getValueLocked/floor-in-place");
BENCHMARK(readThroughHandle)->Name("access/double/tessel");
BENCHMARK(sequenceLockCalled)->Name("access/double/floor");
BENCHMARK(sequenceLockInPlace)->Name("access/double/floor-in-place");
BENCHMARK(setValueLocked)->Name("value/setValueLocked/tessel");
BENCHMARK(bareSemaphorePair)->Name("value/setValueLocked/floor");
BENCHMARK(bulkRead)->Name("value/bulkRead1000/tessel");
BENCHMARK(plainReadLoop)->Name("value/bulkRead1000/floor");
BENCHMARK(bulkReadPlain)->Name("access/bulk/tessel");
BENCHMARK(plainLoopIntoArrays)->Name("access/bulk/floor");
BENCHMARK(bulkWrite)->Name("value/bulkWrite1000/tessel");
BENCHMARK(plainWriteLoop)->Name("value/bulkWrite1000/floor");
BENCHMARK(takeSnapshot)->Name("snapshot/take/tessel");
BENCHMARK(copyBuffer)->Name("snapshot/take/floor");
// An iteration holds a hundred samples, so that few are enough.
BENCHMARK(swapAfterBulk)->Name("value/swapAfterBulk1000/tessel")->UseManualTime()->Iterations(20);
BENCHMARK(bulkWriteBetweenSwaps)
    ->Name("value/swapAfterBulk1000/floor")
    ->UseManualTime()
    ->Iterations(20);
BENCHMARK(swapAfterUnlock)
    ->Name("value/swapAfterUnlock1000/tessel")
    ->UseManualTime()
    ->Iterations(20);
BENCHMARK(bulkWriteBetweenSwaps)
    ->Name("value/swapAfterUnlock1000/floor")
    ->UseManualTime()
    ->Iterations(20);
