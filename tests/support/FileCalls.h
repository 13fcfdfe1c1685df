#pragma once

#include <functional>

/// The calls with which this program, its library included, opens shared memory and reads from a place of a
/// file. The program needs support/FileCalls.cpp among its sources, which stands in front of the system's
/// functions.
///
/// Each is told before it is made, to the thread that has set the function and makes the call. The calls that
/// the function makes are not told.
namespace FileCalls {

extern thread_local std::function<void()> beforeRead;
/// @p flags as shm_open() takes them.
extern thread_local std::function<void(int flags)> beforeOpen;
void tellNobody();

} // namespace FileCalls
