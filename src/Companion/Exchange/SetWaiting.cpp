#include "Companion/Exchange/SetWaiting_p.h"

#include <QtEndian>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <ctime>

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

// Why no wake-up is lost. Waiters that have seen epoch r sleep on the low half of swapCount.
//
//   publisher, outside its lock                 waiter
//     P1  swapCount = e + 1   (release)           W1  c = armed                    (acquire)
//     P2  fence(seq_cst)                          W2  swapCount != r: there is a new set
//     P3  a = armed; 0: done                      W3  c != r + 1: exchange c for r + 1, else W1
//     P4  s = swapCount                           W4  fence(seq_cst)
//     P5  wake all                                    swapCount != r: there is a new set
//     P6  a != s + 1: exchange a for 0            W5  sleep while the low half is r, 1 s at most; W1
//
// Between P1 and P3, as between W3 and W5, there is a full fence: either P3 sees that somebody waits,
// or the look behind W4 sees the new epoch. Who sleeps himself would hear of it by W5 as well; where a
// thread sleeps already and another one arms for it, there is that look alone. P6 must leave the word
// of a waiter for a later epoch alone: it compares, and what it compares with was read before P5. A
// word that says the epoch which lasts stays, since its waiter may not have come to W5 yet; the swap
// that ends the epoch clears it.

namespace {

/// A third process that writes over the word all the time must not keep a waiter from its sleep.
constexpr int armingAttempts = 16;

quint32 *lowHalf(SetWaiting::Management &management)
{
    auto *const halves = reinterpret_cast<quint32 *>(&management.swapCount);
    return Q_BYTE_ORDER == Q_BIG_ENDIAN ? halves + 1 : halves;
}

/// Neither call is private to the process: the kernel finds the waiters by the file.
void futexWake(quint32 *word)
{
#ifdef SYS_futex
    syscall(SYS_futex, word, FUTEX_WAKE, INT_MAX, nullptr, nullptr, 0);
#else
    syscall(SYS_futex_time64, word, FUTEX_WAKE, INT_MAX, nullptr, nullptr, 0);
#endif
}

void futexWait(quint32 *word, quint32 expected, const timespec &bound)
{
#if defined(SYS_futex_time64)
    // Where a long has 32 bits and a time has 64, the older call reads another structure. A kernel
    // before 5.1 knows that one alone.
    if constexpr (sizeof(time_t) > sizeof(long)) {
        if (syscall(SYS_futex_time64, word, FUTEX_WAIT, expected, &bound, nullptr, 0) == 0
            || errno != ENOSYS) {
            return;
        }
    }
#endif
#if defined(SYS_futex)
    const struct
    {
        long seconds;
        long nanoseconds;
    } former{static_cast<long>(bound.tv_sec), static_cast<long>(bound.tv_nsec)};
    syscall(SYS_futex, word, FUTEX_WAIT, expected, &former, nullptr, 0);
#endif
}

} // namespace

bool SetWaiting::arm(Management &management, quint64 epoch)
{
    for (int attempt = 0; attempt < armingAttempts; ++attempt) {
        quint64 armed = management.armed.load(std::memory_order_acquire);
        if (management.swapCount.load(std::memory_order_acquire) != epoch) {
            return false;
        }
        if (armed == epoch + 1 || management.armed.compare_exchange_strong(armed, epoch + 1)) {
            break;
        }
    }
    std::atomic_thread_fence(std::memory_order_seq_cst);
    // A swap may have come between the look and the word: then its publisher has not seen the word.
    return management.swapCount.load(std::memory_order_acquire) == epoch;
}

void SetWaiting::sleepThrough(Management &management, quint64 epoch, std::chrono::nanoseconds bound)
{
    if (bound.count() > 0 && arm(management, epoch)) {
        sleepUnarmed(management, epoch, bound);
    }
}

void SetWaiting::sleepUnarmed(Management &management, quint64 epoch, std::chrono::nanoseconds bound)
{
    const std::chrono::nanoseconds slice = std::min<std::chrono::nanoseconds>(bound, sm_slice);
    constexpr qint64 second = 1000000000;
    const timespec kernelBound{static_cast<time_t>(slice.count() / second),
                               static_cast<long>(slice.count() % second)};
    futexWait(lowHalf(management), static_cast<quint32>(epoch), kernelBound);
}

void SetWaiting::wakeAll(Management &management)
{
    futexWake(lowHalf(management));
}

void SetWaiting::wakeWaiters(Management &management, quint64 armed)
{
    const quint64 epoch = management.swapCount.load(std::memory_order_acquire);
    futexWake(lowHalf(management));
    if (armed != epoch + 1) {
        management.armed.compare_exchange_strong(armed, 0);
    }
}
