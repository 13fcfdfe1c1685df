#include "Companion/SingleBufferHandler.h"

#include "Companion/Exchange/BufferLock_p.h"
#include "Companion/Exchange/LockNotes_p.h"
#include "Companion/Exchange/LockWait_p.h"

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
    // One place among the readers serves all read locks of a thread: asking for a second one would
    // wait behind a writer that waits for the first.
    const std::optional<ReadLockNote> outer = LockNotes::newest(m_number);
    bool holdsSemaphore = outer && outer->holdsSemaphore;
    if (!outer) {
        const BufferLock::Sharing sharing = m_lock->lockShared(
            SystemVSemaphoreBaseClass::sm_lockWaitBound);
        if (sharing == BufferLock::Sharing::Failed) {
            return nullptr;
        }
        holdsSemaphore = sharing == BufferLock::Sharing::Shared;
    }
    LockNotes::add({m_number, m_buffer, 0, outer ? outer->depth + 1 : 0, holdsSemaphore});
    return m_buffer;
}

bool SingleBufferHandler::unlockForRead(BufferPointer buffer, bool &repeat)
{
    repeat = false;
    const std::optional<ReadLockNote> note = LockNotes::take(m_number, buffer);
    if (!note) {
        return false;
    }
    if (note->holdsSemaphore && note->depth == 0) {
        m_lock->unlockShared();
    }
    return true;
}

BufferHandlerInterface::BufferPointer SingleBufferHandler::lockForWrite()
{
    if (m_buffer == nullptr) {
        return nullptr;
    }
    // A read lock that was taken while there were no semaphores has no place among the readers of
    // those that came later: what stands there is somebody else's.
    BufferLock::OwnReading own = BufferLock::OwnReading::None;
    if (const std::optional<ReadLockNote> note = LockNotes::newest(m_number)) {
        own = note->holdsSemaphore ? BufferLock::OwnReading::WithPlace
                                   : BufferLock::OwnReading::WithoutPlace;
    }
    return m_lock->lockAgainstReaders(own, LockWait::takeBound()) ? m_buffer : nullptr;
}

bool SingleBufferHandler::unlockForWrite(BufferPointer buffer)
{
    return buffer != nullptr && m_lock->unlock();
}
