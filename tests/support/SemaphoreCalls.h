#pragma once

#include <chrono>
#include <cstddef>
#include <functional>

struct sembuf;

/// The calls to semaphores that this program makes, its library included. The program needs
/// support/SemaphoreCalls.cpp among its sources, which stands in front of the system's functions.
namespace SemaphoreCalls {

struct Call
{
    int set;
    int semaphore;            ///< of a semctl(), or of the first operation
    int command;              ///< of a semctl(); sm_operation for the others
    const sembuf *operations; ///< null for a semctl()
    std::size_t count;
    bool mayWait;

    static constexpr int sm_operation = -1;

    bool isOperation() const { return command == sm_operation; }
    /// Whether it changes the semaphore by the amount.
    bool changes(int number, int amount) const;
};

/// Of all threads so far.
int operations();
/// The operations among them that were allowed to wait.
int waits();
/// How long all waits so far were allowed to last together, and the one that was allowed the most. Says
/// what has to be waited for, whatever else the machine does meanwhile.
std::chrono::nanoseconds sumOfBounds();
std::chrono::nanoseconds longestBound();

/// Instead of the bound that a wait is given, so that nothing but the semaphore ends it in the time of a
/// test; 0: as it is given. Not set while other threads call.
extern std::chrono::seconds boundOfAll;

/// While one lives, nothing but the semaphore ends a wait: for who waits for somebody who may not get a
/// processor for longer than the bound of a lock. Not made or destroyed while other threads call.
class PatientWaits
{
public:
    PatientWaits() { boundOfAll = std::chrono::seconds(60); }
    ~PatientWaits() { boundOfAll = std::chrono::seconds(0); }

    PatientWaits(const PatientWaits &) = delete;
    PatientWaits &operator=(const PatientWaits &) = delete;
};

/// Called before each call, and after each one that has succeeded, from its thread. The calls that
/// they make are not told. For one thread; not set while others call.
extern std::function<void(const Call &)> before;
extern std::function<void(const Call &)> after;
void tellNobody();

} // namespace SemaphoreCalls
