#include "support/FutexCalls.h"

#include <QtGlobal>

#include <atomic>
#include <cstdarg>

#include <dlfcn.h>
#include <linux/futex.h>
#include <sys/syscall.h>

namespace {

std::atomic<int> waitCount{0};
std::atomic<int> wakeCount{0};
std::atomic<int> sleeperCount{0};

using SystemCall = long (*)(long, long, long, long, long, long, long);

SystemCall original()
{
    static const auto function = reinterpret_cast<SystemCall>(dlsym(RTLD_NEXT, "syscall"));
    return function;
}

bool isFutex(long number)
{
#ifdef SYS_futex_time64
    if (number == SYS_futex_time64) {
        return true;
    }
#endif
    return number == SYS_futex;
}

void tell(std::atomic<int> &counter, const std::function<void()> &listener)
{
    ++counter;
    if (listener) {
        listener();
    }
}

} // namespace

std::function<void()> FutexCalls::beforeWake;
std::function<void()> FutexCalls::beforeWait;

int FutexCalls::waits()
{
    return waitCount;
}

int FutexCalls::wakes()
{
    return wakeCount;
}

int FutexCalls::sleepers()
{
    return sleeperCount;
}

void FutexCalls::tellNobody()
{
    beforeWake = nullptr;
    beforeWait = nullptr;
}

extern "C" Q_DECL_EXPORT long syscall(long number, ...) noexcept
{
    va_list list;
    va_start(list, number);
    long arguments[6];
    for (long &argument : arguments) {
        argument = va_arg(list, long);
    }
    va_end(list);
    const auto call = [&] {
        return original()(number, arguments[0], arguments[1], arguments[2], arguments[3],
                          arguments[4], arguments[5]);
    };
    // Those of a process alone have a flag beside the operation.
    if (isFutex(number) && static_cast<int>(arguments[1]) == FUTEX_WAIT) {
        tell(waitCount, FutexCalls::beforeWait);
        ++sleeperCount;
        const long result = call();
        --sleeperCount;
        return result;
    }
    if (isFutex(number) && static_cast<int>(arguments[1]) == FUTEX_WAKE) {
        tell(wakeCount, FutexCalls::beforeWake);
    }
    return call();
}
