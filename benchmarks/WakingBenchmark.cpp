// From process to process: how soon a reader that sleeps has what was published.

#include "Access/ProcessDataWatcher.h"
#include "Access/ProcessDoubleHandle.h"
#include "ForkedChild.h"
#include "HandOver.h"
#include "LiveDoubles.h"

#include <climits>
#include <memory>
#include <random>
#include <thread>

#include <linux/futex.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

using ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID;
using std::chrono::microseconds;

/// Less than a HandOver waits, so that a reader sees its end.
constexpr std::chrono::milliseconds longestSleep{1000};

/// How long a reader that has answered takes to fall asleep, and a processor to rest.
constexpr microseconds untilAsleep{100};
constexpr microseconds pollingInterval{1000};

LiveDoubles makeCreator()
{
    return {QStringLiteral("Waking"), 1, ProcessDataManager::InitTypeSharedMemoryCreate, getpid()};
}

void rest(microseconds time)
{
    const auto begin = std::chrono::steady_clock::now();
    while (std::chrono::steady_clock::now() - begin < time) { }
}

/// What all readers of a region have.
class AttachedReader
{
public:
    quint64 value()
    {
        double value = 0;
        ProcessDataDefinitions::ErrorTypes state = PROCESS_VALUE_ERROR_TYPE_VALID;
        m_handle.read(value, state);
        return static_cast<quint64>(value);
    }
    ProcessDataManager &manager() { return m_doubles->manager(); }

private:
    std::unique_ptr<LiveDoubles> m_doubles = std::make_unique<LiveDoubles>(
        QStringLiteral("Waking"), 1, ProcessDataManager::InitTypeSharedMemoryAttach, getppid());
    ProcessDoubleHandle m_handle{m_doubles->leaves().first()};
};

class WaitingReader
{
public:
    quint64 operator()()
    {
        m_watcher->wait(m_seen, longestSleep);
        return m_reader.value();
    }

private:
    AttachedReader m_reader;
    std::unique_ptr<ProcessDataWatcher> m_watcher = std::make_unique<ProcessDataWatcher>(
        m_reader.manager());
    quint64 m_seen = m_watcher->getGeneration();
};

class DescriptorReader
{
public:
    quint64 operator()()
    {
        pollfd request{m_watcher->getDescriptor(), POLLIN, 0};
        ::poll(&request, 1, static_cast<int>(longestSleep.count()));
        m_watcher->acknowledge(m_seen);
        return m_reader.value();
    }

private:
    AttachedReader m_reader;
    std::unique_ptr<ProcessDataWatcher> m_watcher = std::make_unique<ProcessDataWatcher>(
        m_reader.manager());
    quint64 m_seen = 0;
};

class PollingReader
{
public:
    quint64 operator()()
    {
        usleep(static_cast<useconds_t>(pollingInterval.count()));
        return m_reader.value();
    }

private:
    AttachedReader m_reader;
};

template <class Reader, class Rest>
void measureWaking(benchmark::State &state, const Rest &restBefore)
{
    LiveDoubles doubles = makeCreator();
    doubles.publishAll(0);
    HandOver handOver([] { return Reader(); });
    measureHandOver(
        state, handOver,
        [&](quint64 number) {
            doubles.writeAll(static_cast<double>(number));
            restBefore();
        },
        [&](quint64) { doubles.manager().swapReadAndWriteBuffer(); });
}

void wakeWaiter(benchmark::State &state)
{
    measureWaking<WaitingReader>(state, [] { rest(untilAsleep); });
}

void wakeDescriptor(benchmark::State &state)
{
    measureWaking<DescriptorReader>(state, [] { rest(untilAsleep); });
}

void pollEachMillisecond(benchmark::State &state)
{
    std::minstd_rand random; // the set may come anywhere between two looks
    std::uniform_int_distribution<int> delay(0, static_cast<int>(pollingInterval.count()));
    measureWaking<PollingReader>(state, [&] { rest(untilAsleep + microseconds(delay(random))); });
}

void futex(std::atomic<quint32> &word, int operation, quint32 value, const timespec *bound)
{
    syscall(SYS_futex, &word, operation, value, bound, nullptr, 0);
}

/// One word in shared memory, and the two system calls.
void wakeByFutex(benchmark::State &state)
{
    const SharedMapping memory(64);
    auto &word = *new (memory.start()) std::atomic<quint32>(0);
    HandOver handOver([&word] {
        return [&word, seen = quint32{0}]() mutable {
            const timespec bound{longestSleep.count() / 1000, 0};
            futex(word, FUTEX_WAIT, seen, &bound);
            seen = word.load(std::memory_order_acquire);
            return quint64{seen};
        };
    });
    measureHandOver(
        state, handOver, [](quint64) { rest(untilAsleep); },
        [&word](quint64 number) {
            word.store(static_cast<quint32>(number), std::memory_order_release);
            futex(word, FUTEX_WAKE, INT_MAX, nullptr);
        });
}

/// The same word with a thread between, which tells a descriptor: the two hops of a reader whose loop
/// cannot sleep on the word itself.
class TwoHopReader
{
public:
    explicit TwoHopReader(std::atomic<quint32> &word) : m_word(word)
    {
        std::thread([&word, descriptor = m_descriptor] {
            for (quint32 seen = 0;;) {
                futex(word, FUTEX_WAIT, seen, nullptr);
                const quint32 found = word.load(std::memory_order_acquire);
                if (found != seen) {
                    seen = found;
                    eventfd_write(descriptor, 1);
                }
            }
        }).detach();
    }
    quint64 operator()()
    {
        pollfd request{m_descriptor, POLLIN, 0};
        ::poll(&request, 1, static_cast<int>(longestSleep.count()));
        eventfd_t count = 0;
        eventfd_read(m_descriptor, &count);
        return m_word.load(std::memory_order_acquire);
    }

private:
    std::atomic<quint32> &m_word;
    int m_descriptor = eventfd(0, EFD_NONBLOCK);
};

void wakeByTwoHops(benchmark::State &state)
{
    const SharedMapping memory(64);
    auto &word = *new (memory.start()) std::atomic<quint32>(0);
    HandOver handOver([&word] { return TwoHopReader(word); });
    measureHandOver(
        state, handOver, [](quint64) { rest(untilAsleep); },
        [&word](quint64 number) {
            word.store(static_cast<quint32>(number), std::memory_order_release);
            futex(word, FUTEX_WAKE, INT_MAX, nullptr);
        });
}

} // namespace

BENCHMARK(wakeWaiter)->Name("exchange/wakeReader/tessel")->UseManualTime()->Iterations(20);
BENCHMARK(wakeByFutex)->Name("exchange/wakeReader/floor")->UseManualTime()->Iterations(20);
BENCHMARK(pollEachMillisecond)
    ->Name("exchange/wakeReader/floor-polling")
    ->UseManualTime()
    ->Iterations(2);
BENCHMARK(wakeDescriptor)->Name("exchange/wakeDescriptor/tessel")->UseManualTime()->Iterations(20);
BENCHMARK(wakeByFutex)->Name("exchange/wakeDescriptor/floor")->UseManualTime()->Iterations(20);
BENCHMARK(wakeByTwoHops)
    ->Name("exchange/wakeDescriptor/floor-hops")
    ->UseManualTime()
    ->Iterations(20);
