#pragma once

#include "Companion/BufferHandlerInterface.h"
#include "Companion/PingPongBufferHandler.h"
#include "support/SegmentFile.h"
#include "support/SemaphoreSet.h"

#include <memory>

namespace Torture {

/// A region with a name, mapped before the processes that share it are forked.
///
/// A set is a number from 1 to 255 that stands in every byte of a buffer: half of one shows, and so
/// does half of a value. Removes all that is there when it goes.
class NamedRegion
{
public:
    using Handler = std::unique_ptr<BufferHandlerInterface>;

    static constexpr int sm_mixed = -3;

    NamedRegion(const QString &key, bool isDoubleBuffer);
    ~NamedRegion();

    NamedRegion(const NamedRegion &) = delete;
    NamedRegion &operator=(const NamedRegion &) = delete;

    /// Zeros, buffers of @p size bytes, and no semaphores.
    void reset(quint32 size) const;

    Handler makeHandler(SystemVSemaphoreBaseClass::CreationType type) const;

    bool isDoubleBuffer() const { return m_isDoubleBuffer; }
    quint32 size() const;
    PingPongBufferHandler::ManagementBuffer *management() const;
    /// Of a single buffer both are the same.
    unsigned char *buffer(quint64 index) const;
    /// The number of the set that readers see, sm_mixed if it is none.
    int published() const { return numberIn(buffer(management()->swapCount)); }
    int numberIn(const unsigned char *buffer) const;
    /// False if an aligned value of eight bytes in one of the buffers is half of one set.
    bool isEveryValueWhole() const;

    const SemaphoreSet &semaphores() const { return m_semaphores; }
    const SegmentFile &segment() const { return m_segment; }

private:
    bool m_isDoubleBuffer;
    SemaphoreSet m_semaphores;
    SegmentFile m_segment;
    unsigned char *m_start;
};

/// Writes a set by stores of whole values. Stops half way where it shall.
void fillBuffer(unsigned char *buffer, quint32 size, int number, bool isHalf = false);

} // namespace Torture
