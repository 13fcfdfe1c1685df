#pragma once

#include "Companion/BufferHandlerInterface.h"

/// Stands for a buffer of a given size without any memory, so that slots can be checked while no
/// region is there.
class SizeOnlyBuffer : public BufferHandlerInterface
{
public:
    explicit SizeOnlyBuffer(quint32 size) : m_size(size) { }

    BufferPointer lockForRead() override { return nullptr; }
    bool unlockForRead(BufferPointer /*buffer*/, bool &repeat) override
    {
        repeat = false;
        return false;
    }
    BufferPointer lockForWrite() override { return nullptr; }
    bool unlockForWrite(BufferPointer /*buffer*/) override { return false; }
    BufferPointer readBufferPointer() override { return nullptr; }
    BufferPointer writeBufferPointer() override { return nullptr; }
    bool swapBuffers() override { return false; }
    quint32 bufferSize() override { return m_size; }

private:
    quint32 m_size;
};
