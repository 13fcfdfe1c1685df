#pragma once

#include "Companion/PingPongBufferHandler.h"

#include <chrono>

/// What lets a process sleep until the next swap, at no system call for the publisher while nobody does.
///
/// Knows the words and the system call alone: how the threads of one process wait together is told in
/// ProcessDataWatcher. docs/protocol/waking.pml is the proof.
class SetWaiting
{
public:
    using Management = PingPongBufferHandler::ManagementBuffer;

    /// The longest sleep in the kernel. It heals what nobody can tell: a publisher that died between
    /// its swap and its look, and words that somebody has written over.
    static constexpr std::chrono::milliseconds sm_slice{1000};

    /// For a publisher, behind its swap and right behind its unlock.
    static void wakeAfterSwap(Management &management)
    {
#if defined(__x86_64__) || defined(__i386__)
        // The unlock is an exchange or a system call: either is a full fence on these processors.
        std::atomic_signal_fence(std::memory_order_seq_cst);
#else
        std::atomic_thread_fence(std::memory_order_seq_cst);
#endif
        const quint64 armed = management.armed.load(std::memory_order_acquire);
        if (__builtin_expect(static_cast<long>(armed != 0), 0L) != 0) {
            wakeWaiters(management, armed);
        }
    }
    /// Sleeps at most @p bound, and at most sm_slice, while @p epoch lasts. May come back before.
    static void sleepThrough(Management &management, quint64 epoch, std::chrono::nanoseconds bound);
    /// Tells the publishers that somebody sleeps until the end of @p epoch. False if it is over.
    static bool arm(Management &management, quint64 epoch);
    /// As sleepThrough(), but wakes only if somebody else arms.
    static void sleepUnarmed(Management &management, quint64 epoch, std::chrono::nanoseconds bound);
    /// Whether a handler that is about to end is inside its write lock, behind a swap, so that nobody has
    /// been woken for that yet.
    static bool hasSwappedInside(const PingPongBufferHandler &handler);
    /// For such a handler, as long as it has its region.
    static void wakeBeforeTheEnd(const PingPongBufferHandler &handler);
    /// Wakes whoever sleeps in the kernel, though nothing was published. They look and sleep on.
    static void wakeAll(Management &management);

    /// For a publisher that has just swapped, inside its lock: the time, and that somebody is to be woken.
    static void noteSwap(PingPongBufferHandler &handler);

    /// The words of a handler; null if its locks cannot be had.
    static Management *words(const PingPongBufferHandler &handler)
    {
        return handler.isUsable() ? handler.m_management : nullptr;
    }

private:
    static void noteTime(Management &management);
    static bool isAwaited(const Management &management);
    static void wakeWaiters(Management &management, quint64 armed);
};
