#pragma once

#include "Companion/PingPongBufferHandler.h"
#include "HeapBuffers.h"

#include <QString>

#include <cstring>

/// The library's own double buffer over heap blocks of exactly its size, with the same content as
/// other buffers. Its semaphores are nobody's, so that only what takes no lock works.
class DoubleBufferOnHeap
{
public:
    explicit DoubleBufferOnHeap(quint32 size)
        : m_size(size)
        , m_management()
        , m_read(new unsigned char[size])
        , m_write(new unsigned char[size])
        , m_handler(&m_management, m_read.get(), m_write.get(),
                    SystemVSemaphoreBaseClass::CreationTypeAttach, size,
                    QStringLiteral("tessel-fuzz-nobody"))
    {
    }

    BufferHandlerInterface &handler() { return m_handler; }
    /// Takes both contents over.
    void copyFrom(const HeapBuffers &other)
    {
        std::memcpy(m_read.get(), other.published().constData(), m_size);
        std::memcpy(m_write.get(), other.written().constData(), m_size);
    }
    /// The write buffer as it is now.
    QByteArray written() const
    {
        return {reinterpret_cast<const char *>(m_write.get()), static_cast<int>(m_size)};
    }

private:
    quint32 m_size;
    PingPongBufferHandler::ManagementBuffer m_management;
    std::unique_ptr<unsigned char[]> m_read;
    std::unique_ptr<unsigned char[]> m_write;
    PingPongBufferHandler m_handler;
};
