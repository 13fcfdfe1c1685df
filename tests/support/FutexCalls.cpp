#include "support/FutexCalls.h"

#include <QtGlobal>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <ctime>

#include <dlfcn.h>
#include <linux/futex.h>
#include <sys/syscall.h>

namespace {

std::atomic<int> waitCount{0};
std::atomic<int> wakeCount{0};
std::atomic<int> sleeperCount{0};
std::atomic<int> runOutCount{0};
std::atomic<qint64> longestNanoseconds{0};
std::atomic<long> lostWord{0}; // the address
thread_local const std::atomic<quint32> *wordOfWait = nullptr;

using SystemCall = long (*)(long, long, long, long, long, long, long);

/// Without a static object, whose guard makes system calls of its own where two threads meet.
SystemCall original()
{
    static std::atomic<SystemCall> known{nullptr};
    SystemCall function = known.load(std::memory_order_relaxed);
    if (function == nullptr) {
        function = reinterpret_cast<SystemCall>(dlsym(RTLD_NEXT, "syscall"));
        known.store(function, std::memory_order_relaxed);
    }
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

/// Whether the word lies in a program or library: the guards of static objects are no less than the words
/// of a region without the flag of those that reach no other process.
bool isStatic(long word)
{
    Dl_info information;
    return dladdr(reinterpret_cast<const void *>(word), &information) != 0;
}

constexpr qint64 second = 1000000000;

qint64 steadyNow()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return qint64{now.tv_sec} * second + now.tv_nsec;
}

/// The bound of a wait. The older call has one of two longs, which is another one than that of the C library
/// where a time is longer than a long.
class Bound
{
public:
    Bound(long number, long given) : m_isOfLongs(isOfLongs(number))
    {
        if (m_isOfLongs) {
            const auto *const bound = reinterpret_cast<const long *>(given);
            m_bound = {bound[0], bound[1]};
        } else {
            m_bound = *reinterpret_cast<const timespec *>(given);
        }
        const qint64 nanoseconds = qint64{m_bound.tv_sec} * second + m_bound.tv_nsec;
        qint64 longest = longestNanoseconds;
        while (longest < nanoseconds
               && !longestNanoseconds.compare_exchange_weak(longest, nanoseconds)) { }
        if (FutexCalls::boundOfAll.count() > 0) {
            m_bound = {static_cast<time_t>(FutexCalls::boundOfAll.count()), 0};
        }
        m_longs[0] = static_cast<long>(m_bound.tv_sec);
        m_longs[1] = static_cast<long>(m_bound.tv_nsec);
    }
    qint64 nanoseconds() const { return qint64{m_bound.tv_sec} * second + m_bound.tv_nsec; }
    long argument() const
    {
        return m_isOfLongs ? reinterpret_cast<long>(m_longs) : reinterpret_cast<long>(&m_bound);
    }

private:
    static bool isOfLongs([[maybe_unused]] long number)
    {
#ifdef SYS_futex_time64
        return number != SYS_futex_time64;
#else
        return true;
#endif
    }

    bool m_isOfLongs;
    timespec m_bound{};
    long m_longs[2]{};
};

long wake(long number, long word)
{
    const long woken = original()(number, word, FUTEX_WAKE, INT_MAX, 0, 0, 0);
    if (FutexCalls::afterWake) {
        FutexCalls::afterWake(woken);
    }
    return woken;
}

void tell(std::atomic<int> &counter, const std::function<void()> &listener)
{
    ++counter;
    if (listener) {
        listener();
    }
}

} // namespace

std::chrono::seconds FutexCalls::boundOfAll{0};
std::function<void()> FutexCalls::beforeWake;
std::function<void()> FutexCalls::beforeWait;
std::function<void(const FutexCalls::EndedWait &)> FutexCalls::afterWait;
std::function<void(long)> FutexCalls::afterWake;
std::atomic<bool> FutexCalls::areWakesLost{false};

quint32 FutexCalls::currentWord()
{
    return wordOfWait->load();
}

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

std::chrono::nanoseconds FutexCalls::longestBound()
{
    return std::chrono::nanoseconds(longestNanoseconds);
}

int FutexCalls::runOuts()
{
    return runOutCount;
}

void FutexCalls::wakeBelatedly()
{
    const long word = lostWord.exchange(0);
    if (word != 0) {
        tell(wakeCount, beforeWake);
        wake(SYS_futex, word);
    }
}

void FutexCalls::tellNobody()
{
    boundOfAll = {};
    beforeWake = nullptr;
    beforeWait = nullptr;
    afterWait = nullptr;
    afterWake = nullptr;
    areWakesLost = false;
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
    // Those of a process alone mostly have a flag beside the operation.
    const int operation = isFutex(number) ? static_cast<int>(arguments[1]) : -1;
    if (operation == FUTEX_WAIT && !isStatic(arguments[0])) {
        const auto *const word = reinterpret_cast<std::atomic<quint32> *>(arguments[0]);
        wordOfWait = word;
        tell(waitCount, FutexCalls::beforeWait);
        const Bound bound(number, arguments[3]);
        arguments[3] = bound.argument();
        ++sleeperCount;
        const qint64 begin = steadyNow();
        const long result = call();
        const int reason = errno;
        const bool isTimedOut = result != 0 && reason == ETIMEDOUT;
        runOutCount += isTimedOut ? 1 : 0;
        --sleeperCount;
        if (FutexCalls::afterWait) {
            FutexCalls::afterWait({begin, bound.nanoseconds(), isTimedOut, word->load()});
        }
        errno = reason;
        return result;
    }
    if (operation == FUTEX_WAKE && !isStatic(arguments[0])) {
        tell(wakeCount, FutexCalls::beforeWake);
        if (FutexCalls::areWakesLost) {
            lostWord = arguments[0];
            return 0;
        }
        return wake(number, arguments[0]);
    }
    return call();
}
