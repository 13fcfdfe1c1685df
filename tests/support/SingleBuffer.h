#pragma once

#include "Companion/SingleBufferHandler.h"
#include "support/SemaphoreSet.h"
#include "support/SharedRegion.h"

#include <memory>

/// A single buffer and its key, for handlers of any number of threads and processes.
struct SingleBuffer
{
    using Handler = std::unique_ptr<SingleBufferHandler>;

    explicit SingleBuffer(quint32 size = 64)
        : semaphores(SemaphoreSet::uniqueKey(QStringLiteral("single")))
        , region(SharedRegion::Layout::Single, size)
    {
    }

    Handler create() const { return make(SystemVSemaphoreBaseClass::CreationTypeCreate); }
    Handler attach() const { return make(SystemVSemaphoreBaseClass::CreationTypeAttach); }
    unsigned char *start() const { return region.first(); }
    quint32 size() const { return region.bufferSize(); }

    SemaphoreSet semaphores;
    SharedRegion region;

private:
    Handler make(SystemVSemaphoreBaseClass::CreationType type) const
    {
        return std::make_unique<SingleBufferHandler>(region.first(), type, region.bufferSize(),
                                                     semaphores.key());
    }
};

/// True if the release worked and asked for no repetition.
inline bool unlockRead(SingleBufferHandler &handler)
{
    bool repeat = true;
    return handler.unlockForRead(handler.readBufferPointer(), repeat) && !repeat;
}

inline bool readOnce(SingleBufferHandler &handler)
{
    return handler.lockForRead() != nullptr && unlockRead(handler);
}

inline bool writeOnce(SingleBufferHandler &handler)
{
    return handler.unlockForWrite(handler.lockForWrite());
}
