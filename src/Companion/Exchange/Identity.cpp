#include "Companion/Exchange/Identity_p.h"

#include <pthread.h>
#include <unistd.h>

__thread quint64 Identity::Words::thread = 0;
std::atomic<quint32> Identity::Words::process{0};
std::atomic<quint16> Identity::Words::generation{1};

namespace {

std::atomic<quint64> lastThread{0};
constexpr quint16 lastGeneration = 0x7FFF;

void beginAnew()
{
    Identity::Words::thread = 0;
    Identity::Words::process.store(static_cast<quint32>(getpid()), std::memory_order_relaxed);
    const quint16 former = Identity::Words::generation.load(std::memory_order_relaxed);
    Identity::Words::generation.store(former == lastGeneration ? quint16{1}
                                                               : static_cast<quint16>(former + 1),
                                      std::memory_order_relaxed);
}

/// Once in a process and all that are forked from it.
int beginOnce()
{
    static const int result = pthread_atfork(nullptr, nullptr, beginAnew);
    return result;
}

// When the library is loaded, if no static object was quicker: the handlers of a fork that the
// program has registered find a child that knows itself.
[[maybe_unused]] const int watching = beginOnce();

} // namespace

quint64 Identity::Words::newThread()
{
    beginOnce();
    thread = lastThread.fetch_add(1, std::memory_order_relaxed) + 1;
    return thread;
}

quint32 Identity::Words::newProcess()
{
    beginOnce();
    const auto id = static_cast<quint32>(getpid());
    process.store(id, std::memory_order_relaxed);
    return id;
}
