#pragma once

#include "Companion/TesselExport.h"

#include <QSharedPointer>

/// The door to a region of process values in shared memory: who may read or write it, and where.
///
/// A handler holds plain addresses into a mapping that it does not own. Any thread may call it;
/// threads exclude each other as processes do, and one thread may hold several locks of one
/// handler at once. No wait is without a bound: one that runs out counts as a failed lock.
class TESSEL_EXPORT BufferHandlerInterface
{
public:
    /// Start of one buffer.
    using BufferPointer = unsigned char *;
    /// In which a handler travels: the manager owns it, elements only point at it.
    using HandlerSharedPointer = QSharedPointer<BufferHandlerInterface>;

    /// Never touches the mapped region, which may be gone by then.
    virtual ~BufferHandlerInterface();

    /// Locks the buffer that readers see. Null on failure; nothing is held then.
    virtual BufferPointer lockForRead() = 0;
    /// Releases what lockForRead() gave. False if the release failed. @p repeat is always set: true
    /// if what was read under this lock is not reliable and must be read again.
    virtual bool unlockForRead(BufferPointer buffer, bool &repeat) = 0;

    /// Locks the buffer that writers fill. Null on failure; nothing is held then.
    virtual BufferPointer lockForWrite() = 0;
    /// Releases what lockForWrite() gave. False if the release failed; publishes nothing.
    virtual bool unlockForWrite(BufferPointer buffer) = 0;

    /// The read buffer, without taking any lock: inside a read lock of this thread the buffer of
    /// that lock, else the one that readers see now.
    virtual BufferPointer readBufferPointer() = 0;
    /// The write buffer as it is now, without any lock.
    virtual BufferPointer writeBufferPointer() = 0;

    /// Publishes what was written: the two buffers exchange their roles. False if they did not.
    virtual bool swapBuffers() = 0;

    /// Size of one buffer in bytes.
    virtual quint32 bufferSize() = 0;

protected:
    BufferHandlerInterface() = default;

private:
    Q_DISABLE_COPY(BufferHandlerInterface)
};
