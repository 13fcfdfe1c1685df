#pragma once

#include "Companion/Exchange/LockNotes_p.h"
#include "Companion/PingPongReadingHandler_p.h"

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
    /// 0 where isPossible(), for whoever joins it with conditions of his own.
    static quint32 obstacles() { return LockNotes::business(); }

    /// The words that a caller who reads again and again may keep, as long as the handler lives.
    using Management = PingPongBufferHandler::ManagementBuffer;
    static const Management *management(const PingPongBufferHandler &handler)
    {
        return handler.m_management;
    }
    static unsigned char *buffer(const PingPongBufferHandler &handler, quint64 epoch)
    {
        return handler.buffer(epoch);
    }
    static quint64 epoch(const Management &management)
    {
        return management.swapCount.load(std::memory_order_acquire);
    }
    static bool isReliable(const Management &management, quint64 epoch)
    {
        std::atomic_thread_fence(std::memory_order_acquire);
        // By a pointer, so that the compiler finds the one instruction that adds all of it up.
        const std::atomic<quint64> *const writeEpochs = management.writeEpoch;
        return writeEpochs[epoch & 1].load(std::memory_order_relaxed) <= epoch;
    }

    explicit OptimisticRead(const PingPongBufferHandler &handler)
        : m_handler(handler)
        , m_epoch(epoch(*handler.m_management))
    {
    }

    unsigned char *buffer() const { return m_handler.buffer(m_epoch); }

    /// Whether no writer began to write into the buffer that was read.
    bool isReliable() const { return isReliable(*m_handler.m_management, m_epoch); }

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

    /// The epoch of this thread's newest read lock of the handler; nothing if it holds none.
    static std::optional<quint64> lockedEpoch(const PingPongBufferHandler &handler)
    {
        const auto note = LockNotes::newest(handler.m_number);
        return note ? std::make_optional(note->epoch) : std::nullopt;
    }

    /// What readBufferPointer() gives where that takes no call; null where this thread's newest read
    /// lock is one of another handler.
    static unsigned char *readBufferAtOnce(const PingPongBufferHandler &handler)
    {
        // Nearly always inside the read lock. No handler has the number of none.
        const LockNotes::Summary &summary = LockNotes::summary;
        if (__builtin_expect(static_cast<long>(summary.newestHandler == handler.m_number), 1L)
            != 0) {
            return summary.newestBuffer;
        }
        return summary.noteCount == 0 ? handler.buffer(epoch(*handler.m_management)) : nullptr;
    }

    /// What readBufferPointer() gives.
    static unsigned char *readBuffer(const PingPongBufferHandler &handler)
    {
        unsigned char *const locked = lockedBuffer(handler);
        return locked != nullptr ? locked
                                 : handler.buffer(handler.m_management->swapCount.load(
                                     std::memory_order_acquire));
    }

    /// Whether writeBufferPointer() has nothing to note, as inside the write lock.
    static bool isNotedAsWritten(const PingPongBufferHandler &handler)
    {
        return LockNotes::isNotedAsWritten(handler.m_number);
    }
    /// What it gives then.
    static unsigned char *notedWriteBuffer(const PingPongBufferHandler &handler)
    {
        return handler.buffer(epoch(*handler.m_management) + 1);
    }

    /// What writeBufferPointer() gives, and notes; null, with a warning, where nothing may be written.
    static unsigned char *writeBuffer(const PingPongBufferHandler &handler)
    {
        const quint64 current = epoch(*handler.m_management);
        // Nearly always inside the write lock, which has noted it already.
        if (__builtin_expect(static_cast<long>(LockNotes::isNotedAsWritten(handler.m_number)), 1L)
            == 0) {
            if (PingPongReadingHandler::isOne(handler)) {
                PingPongReadingHandler::refuse(handler);
                return nullptr;
            }
            LockNotes::noteBareWrite(handler.m_number, current);
        }
        return handler.buffer(current + 1);
    }

private:
    const PingPongBufferHandler &m_handler;
    quint64 m_epoch;
};
