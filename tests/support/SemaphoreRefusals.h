#pragma once

#include <cstddef>
#include <functional>

/// What becomes of a set of semaphores between two calls, and what the system refuses: other processes remove and
/// make sets while one opens them. The program needs support/SemaphoreRefusals.cpp among its sources, which stands in
/// front of the system's functions that open sets, and is linked to ${CMAKE_DL_LIBS}. For one thread.
namespace SemaphoreRefusals {

enum class Call { Make, Find, Status, Values, FillIn, Remove, Operate, Wait };

/// Asked before each call: its errno if it is to be refused, otherwise 0. The calls that it makes itself are
/// not told.
extern std::function<int(Call)> refuse;
/// Of this program, so far. None takes time.
extern int pauses;

/// As in the beginning.
void forget();
/// Refuses so many of these calls, and no more.
void refuseFirst(Call refused, int error, int times = 1);
/// Ends what is refused, and says how often it was.
int takeRefusedCalls();

} // namespace SemaphoreRefusals
