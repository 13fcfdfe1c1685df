#pragma once

#include <QtGlobal>

#include <atomic>
#include <chrono>
#include <functional>

/// The futex calls of this program, its library included, that reach beyond the process. The program
/// needs support/FutexCalls.cpp among its sources, which stands in front of the system's syscall().
namespace FutexCalls {

/// Of all threads so far.
int waits();
int wakes();
/// Threads that are inside such a wait now.
int sleepers();
/// The longest bound that a wait was given so far, and the waits that ran into theirs.
std::chrono::nanoseconds longestBound();
int runOuts();

/// Instead of the bound that a wait is given, so that nothing but a wake ends it in the time of a test;
/// 0: as it is given. Not set while other threads call.
extern std::chrono::seconds boundOfAll;
/// Called from the calling thread before each wake or wait. Not set while other threads call.
extern std::function<void()> beforeWake;
extern std::function<void()> beforeWait;
/// Inside beforeWait: what the word is at this moment.
quint32 currentWord();

/// A wait that is over. Times in nanoseconds of the steady clock.
struct EndedWait
{
    qint64 begin; ///< before the call
    qint64 bound; ///< of the call
    bool isTimedOut;
    quint32 word; ///< behind the call
};
/// Called from the calling thread, which sees `errno` as the call left it.
extern std::function<void(const EndedWait &)> afterWait;
/// Called from the calling thread with the number of threads that a wake has found asleep.
extern std::function<void(long)> afterWake;
/// Wakes do not reach the kernel.
extern std::atomic<bool> areWakesLost;
/// Makes the last wake that was lost, if there was one since the last call.
void wakeBelatedly();

/// Everything as without this file from now on.
void tellNobody();

} // namespace FutexCalls
