#pragma once

#include "Companion/BufferHandlerInterface.h"

#include <QByteArray>

#include <memory>
#include <utility>

/// Two buffers, each in a heap block of exactly its size, so that the address sanitizer sees every
/// access outside.
class HeapBuffers : public BufferHandlerInterface
{
public:
    /// Both hold @p content over and over.
    HeapBuffers(quint32 size, const QByteArray &content)
        : m_size(size)
        , m_read(make(size, content))
        , m_write(make(size, content))
    {
    }

    /// The write buffer as it is now.
    QByteArray written() const
    {
        return {reinterpret_cast<const char *>(m_write.get()), static_cast<int>(m_size)};
    }
    /// The read buffer as it is now.
    QByteArray published() const
    {
        return {reinterpret_cast<const char *>(m_read.get()), static_cast<int>(m_size)};
    }
    bool isReleased() const { return m_lockCount == 0; }

    BufferPointer lockForRead() override
    {
        ++m_lockCount;
        return m_read.get();
    }
    bool unlockForRead(BufferPointer /*buffer*/, bool &repeat) override
    {
        --m_lockCount;
        repeat = false;
        return true;
    }
    BufferPointer lockForWrite() override
    {
        ++m_lockCount;
        return m_write.get();
    }
    bool unlockForWrite(BufferPointer /*buffer*/) override
    {
        --m_lockCount;
        return true;
    }
    BufferPointer readBufferPointer() override { return m_read.get(); }
    BufferPointer writeBufferPointer() override { return m_write.get(); }
    bool swapBuffers() override
    {
        std::swap(m_read, m_write);
        return true;
    }
    quint32 bufferSize() override { return m_size; }

private:
    using Block = std::unique_ptr<unsigned char[]>;

    static Block make(quint32 size, const QByteArray &content)
    {
        Block block(new unsigned char[size]());
        for (quint32 i = 0; !content.isEmpty() && i < size; ++i) {
            block[i] = static_cast<unsigned char>(content.at(static_cast<int>(i) % content.size()));
        }
        return block;
    }

    quint32 m_size;
    Block m_read;
    Block m_write;
    int m_lockCount = 0;
};
