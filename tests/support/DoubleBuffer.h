#pragma once

#include "Companion/PingPongBufferHandler.h"
#include "support/SemaphoreSet.h"
#include "support/SharedRegion.h"

#include <memory>

/// A double-buffered region and its key, for handlers of any number of threads and processes.
struct DoubleBuffer
{
    using Handler = std::unique_ptr<PingPongBufferHandler>;

    explicit DoubleBuffer(quint32 size = 64)
        : semaphores(SemaphoreSet::uniqueKey(QStringLiteral("double")))
        , region(SharedRegion::Layout::Double, size)
    {
    }

    Handler create() const { return make(SystemVSemaphoreBaseClass::CreationTypeCreate); }
    Handler attach() const { return make(SystemVSemaphoreBaseClass::CreationTypeAttach); }

    PingPongBufferHandler::ManagementBuffer *management() const { return region.management(); }
    unsigned char *first() const { return region.first(); }
    unsigned char *second() const { return region.second(); }
    quint32 size() const { return region.bufferSize(); }
    bool isFirst(unsigned char value) const { return isFilledWith(first(), size(), value); }
    bool isSecond(unsigned char value) const { return isFilledWith(second(), size(), value); }

    SemaphoreSet semaphores;
    SharedRegion region;

private:
    Handler make(SystemVSemaphoreBaseClass::CreationType type) const
    {
        return std::make_unique<PingPongBufferHandler>(region.management(), region.first(),
                                                       region.second(), type, region.bufferSize(),
                                                       semaphores.key());
    }
};

/// Writes a whole set without publishing it.
inline bool writeSet(PingPongBufferHandler &handler, unsigned char value)
{
    unsigned char *const buffer = handler.lockForWrite();
    if (buffer == nullptr) {
        return false;
    }
    fillBuffer(buffer, handler.bufferSize(), value);
    return handler.unlockForWrite(buffer);
}

inline bool publishSet(PingPongBufferHandler &handler, unsigned char value)
{
    return writeSet(handler, value) && handler.swapBuffers();
}

enum class ReadResult { Reliable, Repeat, Failed };

inline ReadResult finishRead(PingPongBufferHandler &handler, unsigned char *buffer)
{
    bool repeat = false;
    if (!handler.unlockForRead(buffer, repeat)) {
        return ReadResult::Failed;
    }
    return repeat ? ReadResult::Repeat : ReadResult::Reliable;
}

inline ReadResult readOnce(PingPongBufferHandler &handler)
{
    return finishRead(handler, handler.lockForRead());
}

/// Whether a reader sees a whole set of this value, undisturbed.
inline bool isPublished(PingPongBufferHandler &handler, unsigned char value)
{
    unsigned char *const locked = handler.lockForRead();
    const bool isWhole = isFilledWith(locked, handler.bufferSize(), value);
    return finishRead(handler, locked) == ReadResult::Reliable && isWhole;
}

/// A read that has to be repeated: a writer begins to write into what is read.
inline ReadResult readWithDisturbance(PingPongBufferHandler &handler)
{
    unsigned char *const buffer = handler.lockForRead();
    handler.swapBuffers();
    handler.unlockForWrite(handler.lockForWrite());
    return finishRead(handler, buffer);
}
