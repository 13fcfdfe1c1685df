#pragma once

#include <QtGlobal>

#include <chrono>

/// How long the calling thread waits for its next write lock of a region: SystemVSemaphoreBaseClass::sm_lockWaitBound,
/// and less where an object of this class has said so.
///
/// Of the thread, and no argument on the way to the lock: those who make handlers of their own know their
/// operations as they are. Of one lock: what a lock logs may go to somebody who writes into another region, and
/// is in no such hurry.
class LockWait
{
public:
    /// @p longest: none where it is below 0; no more than before.
    explicit LockWait(std::chrono::milliseconds longest);
    ~LockWait() { s_bound = m_former; }
    Q_DISABLE_COPY(LockWait)

    /// For the lock that is about to be taken. The one behind it waits as ever.
    static std::chrono::milliseconds takeBound();

private:
    static __thread int s_bound __attribute__((tls_model("initial-exec"))); ///< milliseconds

    const int m_former;
};
