#include "support/SemaphoreCalls.h"

#include <QtGlobal>

#include <atomic>
#include <cstdarg>
#include <ctime>

#include <dlfcn.h>
#include <sys/sem.h>

namespace {

std::atomic<int> operationCount{0};
std::atomic<int> waitCount{0};
std::atomic<qint64> sumOfNanoseconds{0};
std::atomic<qint64> longestNanoseconds{0};
thread_local bool isTelling = false;

template <class Function>
Function original(const char *name)
{
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

void tell(const std::function<void(const SemaphoreCalls::Call &)> &listener,
          const SemaphoreCalls::Call &call)
{
    if (!listener || isTelling) {
        return;
    }
    // A copy: the listener may take itself away.
    const auto called = listener;
    isTelling = true;
    called(call);
    isTelling = false;
}

template <class Function>
int tellOf(const SemaphoreCalls::Call &call, const Function &function)
{
    tell(SemaphoreCalls::before, call);
    const int result = function();
    if (result >= 0) {
        tell(SemaphoreCalls::after, call);
    }
    return result;
}

SemaphoreCalls::Call makeCall(int set, const sembuf *operations, std::size_t count)
{
    ++operationCount;
    const bool mayWait = count > 0 && (operations[0].sem_flg & IPC_NOWAIT) == 0;
    waitCount += mayWait ? 1 : 0;
    return {set,    operations[0].sem_num, SemaphoreCalls::Call::sm_operation, operations, count,
            mayWait};
}

void noteBound(const timespec &bound)
{
    constexpr qint64 second = 1000000000;
    const qint64 nanoseconds = qint64{bound.tv_sec} * second + bound.tv_nsec;
    sumOfNanoseconds += nanoseconds;
    qint64 longest = longestNanoseconds;
    while (longest < nanoseconds
           && !longestNanoseconds.compare_exchange_weak(longest, nanoseconds)) { }
}

} // namespace

std::chrono::seconds SemaphoreCalls::boundOfAll{0};
std::function<void(const SemaphoreCalls::Call &)> SemaphoreCalls::before;
std::function<void(const SemaphoreCalls::Call &)> SemaphoreCalls::after;

bool SemaphoreCalls::Call::changes(int number, int amount) const
{
    for (std::size_t i = 0; i < count && isOperation(); ++i) {
        if (operations[i].sem_num == number && operations[i].sem_op == amount) {
            return true;
        }
    }
    return false;
}

int SemaphoreCalls::operations()
{
    return operationCount;
}

int SemaphoreCalls::waits()
{
    return waitCount;
}

std::chrono::nanoseconds SemaphoreCalls::sumOfBounds()
{
    return std::chrono::nanoseconds(sumOfNanoseconds);
}

std::chrono::nanoseconds SemaphoreCalls::longestBound()
{
    return std::chrono::nanoseconds(longestNanoseconds);
}

void SemaphoreCalls::tellNobody()
{
    boundOfAll = {};
    before = nullptr;
    after = nullptr;
}

#define REPLACED extern "C" Q_DECL_EXPORT

REPLACED int semctl(int id, int number, int command, ...) noexcept
{
    va_list arguments;
    va_start(arguments, command);
    void *const argument = va_arg(arguments, void *);
    va_end(arguments);
    const SemaphoreCalls::Call call{id, number, command, nullptr, 0, false};
    return tellOf(call, [&] {
        return original<int (*)(int, int, int, ...)>("semctl")(id, number, command, argument);
    });
}

REPLACED int semop(int id, sembuf *operations, size_t count) noexcept
{
    return tellOf(makeCall(id, operations, count), [&] {
        return original<int (*)(int, sembuf *, size_t)>("semop")(id, operations, count);
    });
}

REPLACED int semtimedop(int id, sembuf *operations, size_t count, const timespec *bound) noexcept
{
    const SemaphoreCalls::Call call = makeCall(id, operations, count);
    timespec allowed = *bound;
    if (call.mayWait) {
        noteBound(allowed);
    }
    if (SemaphoreCalls::boundOfAll.count() > 0) {
        allowed = {static_cast<time_t>(SemaphoreCalls::boundOfAll.count()), 0};
    }
    return tellOf(call, [&] {
        return original<int (*)(int, sembuf *, size_t, const timespec *)>("semtimedop")(
            id, operations, count, &allowed);
    });
}
