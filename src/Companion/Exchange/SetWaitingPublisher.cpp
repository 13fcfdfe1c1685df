#include "Companion/Exchange/BufferLock_p.h"
#include "Companion/Exchange/SetWaiting_p.h"

#include <ctime>

void SetWaiting::noteSwap(PingPongBufferHandler &handler)
{
    noteTime(*handler.m_management);
    // Of a swap outside the write lock the unlock follows at once.
    if (!handler.m_lock->isOutermost()) {
        const bool wakesAlready = handler.m_hasSwapped.load(std::memory_order_relaxed)
                                  && handler.m_lock->wakesAtEnd();
        handler.m_lock->setWakesAtEnd(wakesAlready || isAwaited(*handler.m_management));
    }
    handler.m_hasSwapped.store(true, std::memory_order_relaxed);
}

bool SetWaiting::hasSwappedInside(const PingPongBufferHandler &handler)
{
    return handler.m_lock != nullptr && handler.m_lock->isHeldInThisProcess()
           && handler.m_hasSwapped.load(std::memory_order_relaxed);
}

void SetWaiting::wakeBeforeTheEnd(const PingPongBufferHandler &handler)
{
    if (hasSwappedInside(handler)) {
        // Behind the fence of noteSwap().
        wakeAfterSwap(*handler.m_management);
    }
}

/// P2 and P3 of a publisher that may not be able to look behind its unlock.
bool SetWaiting::isAwaited(const Management &management)
{
    std::atomic_thread_fence(std::memory_order_seq_cst);
    return management.armed.load(std::memory_order_acquire) != 0;
}

void SetWaiting::noteTime(Management &management)
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME_COARSE, &now);
    management.lastSwap.store(qint64{now.tv_sec} * 1000000000 + now.tv_nsec,
                              std::memory_order_relaxed);
}
