#pragma once

#include <QtGlobal>

#include <chrono>

/// How long the calling thread waits for a write lock of a region: SystemVSemaphoreBaseClass::sm_lockWaitBound, and
/// less while an object of this class lives in it.
///
/// Of the thread, and no argument on the way to the lock: those who make handlers of their own know their
/// operations as they are.
class LockWait
{
public:
    /// @p longest: none where it is below 0; no more than before.
    explicit LockWait(std::chrono::milliseconds longest);
    ~LockWait() { s_bound = m_former; }
    Q_DISABLE_COPY(LockWait)

    static std::chrono::milliseconds bound() { return std::chrono::milliseconds(s_bound); }

private:
    static __thread int s_bound __attribute__((tls_model("initial-exec"))); ///< milliseconds

    const int m_former;
};
