#include "Companion/Exchange/BufferLock_p.h"
#include "Companion/Exchange/LockNotes_p.h"
#include "Companion/PingPongReadingHandler_p.h"
#include "Companion/SingleReadingHandler_p.h"

SingleReadingHandler::SingleReadingHandler(unsigned char *buffer, unsigned int size,
                                           const QString &semaphoreKey)
    : SingleBufferHandler(buffer, SystemVSemaphoreBaseClass::CreationTypeJoin, size, semaphoreKey)
    , m_semaphoreKey(semaphoreKey)
{
}

bool SingleReadingHandler::isRefused() const
{
    return m_lock->isRefused();
}

BufferHandlerInterface::BufferPointer SingleReadingHandler::lockForRead()
{
    const std::optional<ReadLockNote> outer = LockNotes::newest(m_number);
    if (outer) {
        LockNotes::add({m_number, m_buffer, 0, outer->depth + 1, outer->holdsSemaphore});
        return m_buffer;
    }
    const BufferLock::Sharing sharing = m_lock->lockSharedIfThere(
        SystemVSemaphoreBaseClass::sm_lockWaitBound);
    if (sharing == BufferLock::Sharing::Failed) {
        return nullptr;
    }
    LockNotes::add({m_number, m_buffer, 0, 0, sharing == BufferLock::Sharing::Shared});
    return m_buffer;
}

bool SingleReadingHandler::unlockForRead(BufferPointer buffer, bool &repeat)
{
    repeat = false;
    const std::optional<ReadLockNote> note = LockNotes::take(m_number, buffer);
    if (!note) {
        return false;
    }
    if (!note->holdsSemaphore) {
        // There were none at the lock: whoever has made them since may have written.
        repeat = m_lock->isSetThere() != false;
    } else if (note->depth == 0) {
        m_lock->unlockShared();
    }
    return true;
}

BufferHandlerInterface::BufferPointer SingleReadingHandler::lockForWrite()
{
    warnOfReadingAlone(m_semaphoreKey);
    return nullptr;
}

bool SingleReadingHandler::unlockForWrite(BufferPointer /*buffer*/)
{
    // Nothing was locked, and whoever tried has been told.
    return false;
}

BufferHandlerInterface::BufferPointer SingleReadingHandler::writeBufferPointer()
{
    warnOfReadingAlone(m_semaphoreKey);
    return nullptr;
}

bool SingleReadingHandler::swapBuffers()
{
    warnOfReadingAlone(m_semaphoreKey);
    return false;
}
