// From process to process: how soon a polling reader has what was published, and what a bulk reader
// gets from a writer that never pauses.

#include "Access/ProcessDoubleHandle.h"
#include "ForkedChild.h"
#include "HandOver.h"
#include "LiveDoubles.h"
#include "PlainSlot.h"

#include <memory>
#include <vector>

namespace {

using ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID;

constexpr int bulkCount = 10000;

LiveDoubles makeCreator(int count)
{
    return {QStringLiteral("Exchange"), count, ProcessDataManager::InitTypeSharedMemoryCreate,
            getpid()};
}

LiveDoubles makeAttached(int count)
{
    return {QStringLiteral("Exchange"), count, ProcessDataManager::InitTypeSharedMemoryAttach,
            getppid()};
}

/// Reads the one value of an attached description as an application polls it: through a handle.
class AttachedReader
{
public:
    AttachedReader()
        : m_doubles(std::make_unique<LiveDoubles>(QStringLiteral("Exchange"), 1,
                                                  ProcessDataManager::InitTypeSharedMemoryAttach,
                                                  getppid()))
    {
    }

    quint64 operator()()
    {
        double value = 0;
        ProcessDataDefinitions::ErrorTypes state = PROCESS_VALUE_ERROR_TYPE_VALID;
        m_handle.read(value, state);
        return static_cast<quint64>(value);
    }

private:
    std::unique_ptr<LiveDoubles> m_doubles;
    ProcessDoubleHandle m_handle{m_doubles->leaves().first()};
};

/// To publish is to swap. Who is in a hurry does so inside the write lock, as here.
void publishToReader(benchmark::State &state)
{
    LiveDoubles doubles = makeCreator(1);
    doubles.publishAll(0);
    ProcessDataManager &manager = doubles.manager();
    HandOver handOver([] { return AttachedReader(); });
    manager.lockWriteBuffer();
    measureHandOver(
        state, handOver,
        [&doubles, &manager](quint64 number) {
            // The lock of the set before ends here, where the clock stands still.
            manager.unlockWriteBuffer();
            manager.lockWriteBuffer();
            doubles.writeAllNoLock(static_cast<double>(number));
        },
        [&manager](quint64) { manager.swapReadAndWriteBuffer(); });
    manager.unlockWriteBuffer();
}

/// The same with a set that was finished before: the swap takes the lock for itself.
void swapToReader(benchmark::State &state)
{
    LiveDoubles doubles = makeCreator(1);
    doubles.publishAll(0);
    HandOver handOver([] { return AttachedReader(); });
    measureHandOver(
        state, handOver,
        [&doubles](quint64 number) { doubles.writeAll(static_cast<double>(number)); },
        [&doubles](quint64) { doubles.manager().swapReadAndWriteBuffer(); });
}

/// The whole road of a value: written inside a lock, published, read.
void writeAndPublish(benchmark::State &state)
{
    LiveDoubles doubles = makeCreator(1);
    doubles.publishAll(0);
    HandOver handOver([] { return AttachedReader(); });
    measureHandOver(
        state, handOver, [](quint64) {},
        [&doubles](quint64 number) { doubles.publishAll(static_cast<double>(number)); });
}

/// One cache line goes from one processor to the other.
void handOverCacheLine(benchmark::State &state)
{
    const SharedMapping memory(64);
    auto *word = new (memory.start()) std::atomic<quint64>(0);
    HandOver handOver([word] { return [word] { return word->load(std::memory_order_acquire); }; });
    measureHandOver(
        state, handOver, [](quint64) {},
        [word](quint64 number) { word->store(number, std::memory_order_release); });
}

[[noreturn]] void writeWithoutPause(sem_t &ready)
{
    LiveDoubles doubles = makeAttached(bulkCount);
    sem_post(&ready);
    for (double number = 2;; ++number) {
        doubles.publishAll(number);
    }
}

/// Attempts until a whole set was accepted.
int readSet(LiveDoubles &doubles, std::vector<ProcessValue> &values)
{
    int attempts = 0;
    bool repeat = false;
    do {
        doubles.manager().lockReadBuffer();
        auto value = values.begin();
        for (const auto &leaf : doubles.leaves()) {
            leaf->getValueNoLock(*value++);
        }
        doubles.manager().unlockReadBuffer(repeat);
        ++attempts;
    } while (repeat);
    return attempts;
}

void readAgainstWriter(benchmark::State &state)
{
    LiveDoubles doubles = makeCreator(bulkCount);
    const SharedMapping memory(sizeof(sem_t));
    auto *ready = reinterpret_cast<sem_t *>(memory.start());
    sem_init(ready, 1, 0);
    const ForkedChild writer([ready] { writeWithoutPause(*ready); });
    sem_wait(ready);
    std::vector<ProcessValue> values(bulkCount, ProcessValue(PROCESS_VALUE_ERROR_TYPE_VALID));
    int mostAttempts = 0;
    double attempts = 0;
    for (auto _ : state) {
        const int taken = readSet(doubles, values);
        mostAttempts = std::max(mostAttempts, taken);
        attempts += taken;
    }
    state.counters["mostAttempts"] = mostAttempts;
    state.counters["meanAttempts"] = attempts / static_cast<double>(state.iterations());
}

void readWithoutWriter(benchmark::State &state)
{
    LiveDoubles doubles = makeCreator(bulkCount);
    std::vector<ProcessValue> values(bulkCount, ProcessValue(PROCESS_VALUE_ERROR_TYPE_VALID));
    for (auto _ : state) {
        readSet(doubles, values);
    }
}

} // namespace

// A sample holds 101 hand-overs, so that few iterations are enough.
BENCHMARK(publishToReader)
    ->Name("exchange/publishToReader/tessel")
    ->UseManualTime()
    ->Iterations(20);
BENCHMARK(swapToReader)->Name("exchange/swapToReader/tessel")->UseManualTime()->Iterations(20);
BENCHMARK(writeAndPublish)
    ->Name("exchange/writeAndPublish/tessel")
    ->UseManualTime()
    ->Iterations(20);
BENCHMARK(handOverCacheLine)
    ->Name("exchange/publishToReader/floor")
    ->UseManualTime()
    ->Iterations(20);
BENCHMARK(handOverCacheLine)->Name("exchange/swapToReader/floor")->UseManualTime()->Iterations(20);
BENCHMARK(handOverCacheLine)
    ->Name("exchange/writeAndPublish/floor")
    ->UseManualTime()
    ->Iterations(20);
BENCHMARK(readAgainstWriter)->Name("exchange/bulkReader10000/tessel")->UseRealTime();
BENCHMARK(readWithoutWriter)->Name("exchange/bulkReader10000/floor")->UseRealTime();
