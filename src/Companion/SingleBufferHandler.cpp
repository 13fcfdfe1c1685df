#include "Companion/SingleBufferHandler.h"

#include "Companion/BufferLock_p.h"
#include "Companion/LockNotes_p.h"

SingleBufferHandler::SingleBufferHandler(unsigned char *buffer,
                                         SystemVSemaphoreBaseClass::CreationType type,
                                         unsigned int size, const QString &semaphoreKey)
    : m_buffer(buffer)
    , m_size(size)
    , m_number(LockNotes::newHandlerNumber())
    , m_lock(std::make_unique<BufferLock>(semaphoreKey, type, buffer))
{
}

SingleBufferHandler::~SingleBufferHandler()
{
    LockNotes::forget(m_number);
}

BufferHandlerInterface::BufferPointer SingleBufferHandler::lockForRead()
{
    if (m_buffer == nullptr) {
        return nullptr;
    }
    const int depth = LockNotes::count(m_number);
    bool holdsSemaphore = false;
    // One place among the readers serves all read locks of a thread: asking for a second one would
    // wait behind a writer that waits for the first.
    if (depth == 0) {
        const BufferLock::Sharing sharing = m_lock->lockShared(
            SystemVSemaphoreBaseClass::sm_lockWaitBound);
        if (sharing == BufferLock::Sharing::Failed) {
            return nullptr;
        }
        holdsSemaphore = sharing == BufferLock::Sharing::Shared;
    }
    LockNotes::add({m_number, m_buffer, 0, depth, holdsSemaphore});
    return m_buffer;
}

bool SingleBufferHandler::unlockForRead(BufferPointer buffer, bool &repeat)
{
    repeat = false;
    const std::optional<ReadLockNote> note = LockNotes::take(m_number, buffer);
    if (!note) {
        return false;
    }
    if (note->holdsSemaphore) {
        m_lock->unlockShared();
    }
    return true;
}

BufferHandlerInterface::BufferPointer SingleBufferHandler::lockForWrite()
{
    if (m_buffer == nullptr) {
        return nullptr;
    }
    const short ownReaders = LockNotes::count(m_number) > 0 ? 1 : 0;
    const bool isLocked = m_lock->lockAgainstReaders(ownReaders,
                                                     SystemVSemaphoreBaseClass::sm_lockWaitBound);
    return isLocked ? m_buffer : nullptr;
}

bool SingleBufferHandler::unlockForWrite(BufferPointer buffer)
{
    return buffer != nullptr && m_lock->unlock();
}
