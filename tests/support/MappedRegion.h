#pragma once

#include "Companion/PingPongBufferHandler.h"
#include "Companion/SingleBufferHandler.h"
#include "ProcessData/Linux/SharedMemory.h"
#include "support/SegmentFile.h"

#include <memory>

/// One mapping of a region in /dev/shm, as a process has it.
class MappedRegion
{
public:
    explicit MappedRegion(const SegmentFile &segment) { m_memory.setKey(segment.name()); }

    bool create() { return m_memory.create(static_cast<int>(regionSize())); }
    bool attach() { return m_memory.attach(SharedMemory::ReadWrite); }

    std::unique_ptr<PingPongBufferHandler> handler(SystemVSemaphoreBaseClass::CreationType type,
                                                   const QString &key)
    {
        return std::make_unique<PingPongBufferHandler>(
            management(), first(), first() + sm_bufferSize, type, sm_bufferSize, key);
    }
    PingPongBufferHandler::ManagementBuffer *management()
    {
        return reinterpret_cast<PingPongBufferHandler::ManagementBuffer *>(start());
    }
    std::unique_ptr<SingleBufferHandler> singleHandler(SystemVSemaphoreBaseClass::CreationType type,
                                                       const QString &key)
    {
        return std::make_unique<SingleBufferHandler>(first(), type, sm_bufferSize, key);
    }

private:
    static constexpr quint32 sm_bufferSize = 64;

    static quint32 regionSize()
    {
        return PingPongBufferHandler::getSizeManagementBuffer() + 2 * sm_bufferSize;
    }
    unsigned char *start() { return static_cast<unsigned char *>(m_memory.data()); }
    unsigned char *first() { return start() + PingPongBufferHandler::getSizeManagementBuffer(); }

    SharedMemory m_memory;
};
