#pragma once

#include "Companion/PingPongBufferHandler.h"

#include <QtGlobal>

/// The words of a write lock that stays with its writer, as a stranger reads them who knows the
/// format of the memory.
struct LeaseWords
{
    using Words = PingPongBufferHandler::ManagementBuffer::LeaseWords;

    enum State : quint64 { Idle = 1, Inside = 2 };
    enum Wanted : quint32 { NobodyWaits = 0, SomebodyWaits = 1, Closed = 2 };

    explicit LeaseWords(PingPongBufferHandler::ManagementBuffer *management)
        : words(management->lease)
    {
    }

    static quint64 make(int set, quint32 number, quint64 state)
    {
        return (quint64{0x2C5D} << 50) | (static_cast<quint64>(set) & 0xFFFF) << 34
               | quint64{number} << 2 | state;
    }
    bool isNone() const { return words.word == 0; }
    bool isIdle() const { return isIn(Idle); }
    bool isInside() const { return isIn(Inside); }
    quint64 word() const { return words.word; }

    Words &words;

private:
    bool isIn(quint64 state) const
    {
        const quint64 word = words.word;
        return word >> 50 == 0x2C5D && (word & 3) == state;
    }
};

/// One lock and unlock that leaves the buffer as it is.
inline bool lockOnce(PingPongBufferHandler &handler)
{
    return handler.unlockForWrite(handler.lockForWrite());
}

/// Locks until the lock stays with the handler. False if it does not after far more than enough.
inline bool becomeOwner(PingPongBufferHandler &handler,
                        PingPongBufferHandler::ManagementBuffer *management)
{
    constexpr int farMoreThanEnough = 100;
    for (int i = 0; i < farMoreThanEnough; ++i) {
        if (!lockOnce(handler)) {
            return false;
        }
        if (LeaseWords(management).isIdle()) {
            return true;
        }
    }
    return false;
}
