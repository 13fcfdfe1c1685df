#pragma once

#include "Companion/BufferHandlerInterface.h"

#include <QByteArray>
#include <QQueue>
#include <QStringList>

#include <algorithm>
#include <cstring>
#include <functional>
#include <iterator>
#include <optional>
#include <utility>
#include <vector>

/// A buffer handler that does what a test tells it and writes down what it was asked for.
///
/// Its buffers start out zero and lie between guard bytes. Unless told otherwise every operation
/// succeeds and no read has to be repeated.
class FakeBufferHandler : public BufferHandlerInterface
{
public:
    /// What one unlockForRead() answers.
    struct UnlockAnswer
    {
        bool unlocked = true;
        /// Nothing: the caller's flag stays untouched.
        std::optional<bool> repeat = false;
    };

    explicit FakeBufferHandler(quint32 size)
        : m_size(size)
        , m_memory{guardedBuffer(size), guardedBuffer(size)}
    {
    }

    /// Lets readers and writers use one and the same buffer.
    void useSingleBuffer() { m_writeIndex = m_readIndex; }

    // The script.
    /// For each lockForRead() in turn, whether it succeeds; afterwards all do.
    QQueue<bool> readLocks;
    /// For each unlockForRead() in turn; afterwards all succeed without a repetition.
    QQueue<UnlockAnswer> readUnlocks;
    /// Called at the end of each lockForRead(), with the number of such calls so far.
    std::function<void(int)> onLockForRead;
    bool writeLockFails = false;
    bool writeUnlockFails = false;
    bool hasReadBuffer = true;
    bool hasWriteBuffer = true;

    /// The operations called since the last take, locks and pointers only.
    QStringList takeCalls() { return std::exchange(m_calls, {}); }

    BufferPointer readBytes() { return start(m_readIndex); }
    BufferPointer writeBytes() { return start(m_writeIndex); }
    /// Whole content of a buffer, for comparisons.
    QByteArray readContent() { return content(m_readIndex); }
    QByteArray writeContent() { return content(m_writeIndex); }
    /// @p count bytes of the write buffer in hexadecimal.
    QByteArray writtenHex(quint32 offset, quint32 count)
    {
        return writeContent().mid(static_cast<int>(offset), static_cast<int>(count)).toHex();
    }
    template <class T>
    void put(quint32 offset, T value)
    {
        std::memcpy(readBytes() + offset, &value, sizeof(T));
    }
    bool areGuardsIntact() const
    {
        const auto isGuard = [](unsigned char byte) { return byte == sm_guardByte; };
        return std::all_of(std::begin(m_memory), std::end(m_memory), [&](const Memory &memory) {
            return std::all_of(memory.begin(), memory.begin() + sm_guardSize, isGuard)
                   && std::all_of(memory.end() - sm_guardSize, memory.end(), isGuard);
        });
    }

    BufferPointer lockForRead() override
    {
        m_calls.append(QStringLiteral("lockForRead"));
        const bool locked = readLocks.isEmpty() || readLocks.dequeue();
        ++m_readLockCount;
        if (onLockForRead) {
            onLockForRead(m_readLockCount);
        }
        return locked ? readBytes() : nullptr;
    }
    bool unlockForRead(BufferPointer buffer, bool &repeat) override
    {
        m_calls.append(QStringLiteral("unlockForRead of ") + nameOf(buffer));
        const UnlockAnswer answer = readUnlocks.isEmpty() ? UnlockAnswer() : readUnlocks.dequeue();
        repeat = answer.repeat.value_or(repeat);
        return answer.unlocked;
    }
    BufferPointer lockForWrite() override
    {
        m_calls.append(QStringLiteral("lockForWrite"));
        return writeLockFails ? nullptr : writeBytes();
    }
    bool unlockForWrite(BufferPointer buffer) override
    {
        m_calls.append(QStringLiteral("unlockForWrite of ") + nameOf(buffer));
        return !writeUnlockFails;
    }
    BufferPointer readBufferPointer() override
    {
        m_calls.append(QStringLiteral("readBufferPointer"));
        return hasReadBuffer ? readBytes() : nullptr;
    }
    BufferPointer writeBufferPointer() override
    {
        m_calls.append(QStringLiteral("writeBufferPointer"));
        return hasWriteBuffer ? writeBytes() : nullptr;
    }
    bool swapBuffers() override
    {
        m_calls.append(QStringLiteral("swapBuffers"));
        std::swap(m_readIndex, m_writeIndex);
        return true;
    }
    quint32 bufferSize() override { return m_size; }

private:
    using Memory = std::vector<unsigned char>;

    // A multiple of 16, so that a buffer is aligned as its memory is.
    static constexpr int sm_guardSize = 64;
    static constexpr unsigned char sm_guardByte = 0x5A;

    static Memory guardedBuffer(quint32 size)
    {
        Memory memory(sm_guardSize, sm_guardByte);
        memory.resize(sm_guardSize + size, 0);
        memory.resize(sm_guardSize + size + sm_guardSize, sm_guardByte);
        return memory;
    }
    BufferPointer start(int index) { return m_memory[index].data() + sm_guardSize; }
    QByteArray content(int index)
    {
        return {reinterpret_cast<const char *>(start(index)), static_cast<int>(m_size)};
    }
    QString nameOf(const unsigned char *buffer)
    {
        if (buffer == readBytes()) {
            return QStringLiteral("read buffer");
        }
        return buffer == writeBytes() ? QStringLiteral("write buffer")
                                      : QStringLiteral("no buffer");
    }

    quint32 m_size;
    Memory m_memory[2];
    int m_readIndex = 0;
    int m_writeIndex = 1;
    int m_readLockCount = 0;
    QStringList m_calls;
};
