#pragma once

#include "Companion/PingPongBufferHandler.h"

#include <QtGlobal>

#include <cstddef>
#include <cstring>

#include <sys/mman.h>

/// Zeroed memory that forked children share.
class SharedMapping
{
public:
    explicit SharedMapping(std::size_t size)
        : m_size(size)
        , m_start(mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))
    {
        if (m_start == MAP_FAILED) {
            qFatal("no memory to share");
        }
    }
    ~SharedMapping() { unmap(); }

    SharedMapping(const SharedMapping &) = delete;
    SharedMapping &operator=(const SharedMapping &) = delete;

    unsigned char *start() const { return static_cast<unsigned char *>(m_start); }

    /// From here on every access to the memory is a crash.
    void unmap()
    {
        if (m_start != nullptr) {
            munmap(m_start, m_size);
            m_start = nullptr;
        }
    }

private:
    std::size_t m_size;
    void *m_start;
};

/// A region of process data: a single buffer, or a management block with two buffers behind it. The
/// parts lie back to back, so that an odd size gives the second buffer an odd address.
class SharedRegion
{
public:
    enum class Layout { Single, Double };

    SharedRegion(Layout layout, quint32 size)
        : m_size(size)
        , m_first(layout == Layout::Double ? PingPongBufferHandler::getSizeManagementBuffer() : 0)
        , m_end(layout == Layout::Double ? m_first + 2 * std::size_t{size} : size)
        , m_mapping(m_end + sm_guardSize)
    {
    }

    quint32 bufferSize() const { return m_size; }
    PingPongBufferHandler::ManagementBuffer *management() const
    {
        return reinterpret_cast<PingPongBufferHandler::ManagementBuffer *>(m_mapping.start());
    }
    unsigned char *first() const { return m_mapping.start() + m_first; }
    unsigned char *second() const { return first() + m_size; }

    /// False if somebody wrote behind the last buffer.
    bool isGuardUntouched() const
    {
        const unsigned char zeros[sm_guardSize]{};
        return std::memcmp(m_mapping.start() + m_end, zeros, sm_guardSize) == 0;
    }

    void unmap() { m_mapping.unmap(); }

private:
    static constexpr std::size_t sm_guardSize = 64;

    quint32 m_size;
    std::size_t m_first;
    std::size_t m_end;
    SharedMapping m_mapping;
};

inline void fillBuffer(unsigned char *buffer, quint32 size, unsigned char value)
{
    std::memset(buffer, value, size);
}

inline bool isFilledWith(const unsigned char *buffer, quint32 size, unsigned char value)
{
    for (quint32 i = 0; i < size; ++i) {
        if (buffer[i] != value) {
            return false;
        }
    }
    return true;
}
