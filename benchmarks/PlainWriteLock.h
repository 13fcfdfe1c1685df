#pragma once

#include "Companion/SystemVSemaphoreBaseClass.h"

#include <sys/sem.h>

/// The write lock without a lease: every lock and unlock is an operation of the semaphore, as it is in
/// the library for whoever does not write alone.
class PlainWriteLock : public SystemVSemaphoreBaseClass
{
public:
    using SystemVSemaphoreBaseClass::SystemVSemaphoreBaseClass;

    bool lock()
    {
        sembuf operations[] = {{SemaphoreWriteLock, 0, 0}, {SemaphoreWriteLock, 1, SEM_UNDO}};
        return operate(operations, 2, sm_lockWaitBound) == Outcome::Done;
    }
    bool unlock()
    {
        sembuf operation{SemaphoreWriteLock, -1, SEM_UNDO};
        return operate(&operation, 1, std::chrono::milliseconds::zero()) == Outcome::Done;
    }
};
