#pragma once

#include "Companion/BufferHandlerInterface.h"
#include "Companion/SystemVSemaphoreBaseClass.h"

#include <memory>

class BufferLock;

/// A single buffer: what is written is visible at once, and readers and writers exclude each other.
///
/// Readers do not exclude each other. Once the semaphores are gone, because a new creator began
/// with a new set, no writer can come any more: reading goes on without a lock, writing fails.
class TESSEL_EXPORT SingleBufferHandler : public BufferHandlerInterface
{
public:
    /// Takes an address into a mapping that must outlive every lock. From a null address the
    /// handler is made all the same, and its locks fail.
    SingleBufferHandler(unsigned char *buffer, SystemVSemaphoreBaseClass::CreationType type,
                        unsigned int size, const QString &semaphoreKey);
    ~SingleBufferHandler() override;

    BufferPointer lockForRead() override;
    /// @p repeat is always false: no writer was inside.
    bool unlockForRead(BufferPointer buffer, bool &repeat) override;
    BufferPointer lockForWrite() override;
    /// Readers come in again. What was written has been visible all along.
    bool unlockForWrite(BufferPointer buffer) override;
    BufferPointer readBufferPointer() override { return m_buffer; }
    BufferPointer writeBufferPointer() override { return m_buffer; }
    /// True and without effect: there is nothing to exchange.
    bool swapBuffers() override { return true; }
    quint32 bufferSize() override { return m_size; }

private:
    friend class SingleReadingHandler;
    friend class HandlerNumber;

    BufferPointer m_buffer;
    quint32 m_size;
    quint64 m_number; ///< of this handler, for what threads note about it
    std::unique_ptr<BufferLock> m_lock;
};
