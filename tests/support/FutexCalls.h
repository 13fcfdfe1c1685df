#pragma once

#include <functional>

/// The futex calls of this program, its library included, that reach beyond the process. The program
/// needs support/FutexCalls.cpp among its sources, which stands in front of the system's syscall().
namespace FutexCalls {

/// Of all threads so far.
int waits();
int wakes();
/// Threads that are inside such a wait now.
int sleepers();

/// Called from the calling thread before each wake or wait. Not set while other threads call.
extern std::function<void()> beforeWake;
extern std::function<void()> beforeWait;
void tellNobody();

} // namespace FutexCalls
