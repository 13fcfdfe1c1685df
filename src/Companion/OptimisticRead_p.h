#pragma once

#include "Companion/LockNotes_p.h"
#include "Companion/PingPongBufferHandler.h"

/// One attempt at reading a double buffer, by a thread that is about nothing else: what lockForRead()
/// and unlockForRead() do for a first attempt, without a note in between that nobody would look at.
///
/// Only where isPossible() says so, since nested reads and repeated ones go by the notes of the
/// thread; and only with a handler whose locks can be had at all (isUsable()). The steps R1 to R4 are
/// those of PingPongBufferHandler.cpp.
class OptimisticRead
{
public:
    static bool isUsable(const PingPongBufferHandler &handler) { return handler.isUsable(); }
    static bool isPossible() { return LockNotes::isIdle(); }

    explicit OptimisticRead(const PingPongBufferHandler &handler)
        : m_handler(handler)
        , m_epoch(handler.m_management->swapCount.load(std::memory_order_acquire))
    {
    }

    unsigned char *buffer() const { return m_handler.buffer(m_epoch); }

    /// Whether no writer began to write into the buffer that was read.
    bool isReliable() const
    {
        std::atomic_thread_fence(std::memory_order_acquire);
        return m_handler.m_management->writeEpoch[m_epoch & 1].load(std::memory_order_relaxed)
               <= m_epoch;
    }

    /// Lets an unreliable attempt count as one that was made under a lock.
    static void noteRepetition(const PingPongBufferHandler &handler)
    {
        LockNotes::noteOutcome(handler.m_number, 0, true);
    }

    /// The buffer of this thread's newest read lock of the handler; null if it holds none.
    static unsigned char *lockedBuffer(const PingPongBufferHandler &handler)
    {
        const LockNotes::Summary &summary = LockNotes::summary;
        if (summary.noteCount == 0 || summary.newestHandler == handler.m_number) {
            return summary.newestBuffer;
        }
        return LockNotes::newestBuffer(handler.m_number);
    }

    /// What readBufferPointer() gives.
    static unsigned char *readBuffer(const PingPongBufferHandler &handler)
    {
        unsigned char *const locked = lockedBuffer(handler);
        return locked != nullptr ? locked
                                 : handler.buffer(handler.m_management->swapCount.load(
                                     std::memory_order_acquire));
    }

    /// What writeBufferPointer() gives.
    static unsigned char *writeBuffer(const PingPongBufferHandler &handler)
    {
        return handler.buffer(handler.m_management->swapCount.load(std::memory_order_acquire) + 1);
    }

private:
    const PingPongBufferHandler &m_handler;
    quint64 m_epoch;
};
