#pragma once

#include "Companion/BufferHandlerInterface.h"
#include "Companion/PingPongBufferHandler.h"

#include <QString>

class SharedMemory;

/// Divides one region into its buffers and makes the handler that guards them.
///
/// A double-buffered region is a management block followed by two equal buffers; a single one is
/// the buffer alone. Lives for one call and owns nothing.
class TESSEL_EXPORT ProcessDataBufferHandler
{
public:
    /// Whether the handler begins with clean semaphores or joins those of the creator.
    enum InitTypeBuffer { InitTypeBufferCreate = 0, InitTypeBufferAttach = 1 };

    /// Describes the layout of a double or of a single buffer.
    explicit ProcessDataBufferHandler(bool doubleBuffer);
    virtual ~ProcessDataBufferHandler();

    /// Bytes of the whole region for buffers of @p size bytes.
    unsigned int calculateSizeSharedMemory(unsigned int size) const;

    /// The addresses of a double buffer in @p memory; left alone if any pointer is null.
    void calculatePointerForPingPongBuffer(PingPongBufferHandler::ManagementBuffer **management,
                                           unsigned char **first, unsigned char **second,
                                           unsigned int size, SharedMemory &memory);
    /// False if any of the four pointers is null; each one that is gets a warning.
    bool checkPointerOfPingPongBuffer(PingPongBufferHandler::ManagementBuffer **management,
                                      unsigned char **first, unsigned char **second,
                                      unsigned char *base) const;

    /// Makes the handler over @p memory, which must be mapped already and outlive every use of it. Over one
    /// that is mapped for reading alone it refuses to write, and joins semaphores, but makes none. Never
    /// null: over an unmapped memory, and where a single buffer has semaphores that may not be altered by who
    /// reads alone, the handler's locks fail.
    BufferHandlerInterface::HandlerSharedPointer initBufferHandler(
        ProcessDataBufferHandler::InitTypeBuffer type, const QString &semaphoreKey,
        unsigned int size, SharedMemory &memory);

private:
    bool m_doubleBuffer;
};
