#pragma once

#include "Companion/PingPongBufferHandler.h"

#include <QString>

/// A double buffer in a mapping that cannot be written.
///
/// Reads as PingPongBufferHandler does, but for a read that has been overtaken twice in a row: it holds
/// nobody off, since the words of the lock lie in the mapping, and begins right behind a swap instead. From
/// there it has the time that the publisher takes for a whole set. Makes, joins and needs no semaphores.
class PingPongReadingHandler : public PingPongBufferHandler
{
public:
    PingPongReadingHandler(ManagementBuffer *management, unsigned char *first,
                           unsigned char *second, unsigned int size, const QString &semaphoreKey);

    BufferPointer lockForRead() override;
    // All of these are refused, with a warning.
    BufferPointer lockForWrite() override;
    bool unlockForWrite(BufferPointer buffer) override;
    BufferPointer writeBufferPointer() override;
    bool swapBuffers() override;

    /// Whether @p handler is one of these. For any other this is one look at a pointer.
    static bool isOne(const PingPongBufferHandler &handler) { return handler.m_lock == nullptr; }
    /// The warning of one of these.
    static void refuse(const PingPongBufferHandler &handler);

private:
    void awaitSwap() const;

    const QString m_semaphoreKey;
};

/// What every handler over such a mapping says when it is asked to write.
void warnOfReadingAlone(const QString &semaphoreKey);
