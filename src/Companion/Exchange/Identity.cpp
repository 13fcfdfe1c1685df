#include "Companion/Exchange/Identity_p.h"

#include <atomic>

#include <pthread.h>
#include <unistd.h>

namespace {

std::atomic<quint64> lastThread{0};
thread_local quint64 ownThread = 0;
std::atomic<quint32> ownProcess{0};
std::atomic<quint16> forkCount{0};
constexpr quint16 lastGeneration = 0x7FFF;

void beginAnew()
{
    ownThread = 0;
    ownProcess.store(static_cast<quint32>(getpid()), std::memory_order_relaxed);
    forkCount.fetch_add(1, std::memory_order_relaxed);
}

quint32 watchForks()
{
    pthread_atfork(nullptr, nullptr, beginAnew);
    return static_cast<quint32>(getpid());
}

/// Once in a process and all that are forked from it.
quint32 beginOnce()
{
    static const quint32 first = watchForks();
    quint32 none = 0;
    ownProcess.compare_exchange_strong(none, first, std::memory_order_relaxed);
    return first;
}

// When the library is loaded, if no static object was quicker: the handlers of a fork that the
// program has registered find a child that knows itself.
[[maybe_unused]] const quint32 watching = beginOnce();

} // namespace

quint64 Identity::threadNumber()
{
    if (ownThread == 0) {
        beginOnce();
        ownThread = lastThread.fetch_add(1, std::memory_order_relaxed) + 1;
    }
    return ownThread;
}

quint32 Identity::processId()
{
    if (ownProcess.load(std::memory_order_relaxed) == 0) {
        beginOnce();
    }
    return ownProcess.load(std::memory_order_relaxed);
}

quint16 Identity::generation()
{
    if (ownProcess.load(std::memory_order_relaxed) == 0) {
        beginOnce();
    }
    const quint16 count = forkCount.load(std::memory_order_relaxed);
    return static_cast<quint16>(1 + count % lastGeneration);
}
