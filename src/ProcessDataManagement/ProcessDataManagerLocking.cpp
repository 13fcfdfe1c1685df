#include "ProcessDataManagement/ManagerAccess_p.h"

#include <QDebug>

// Every lock call, a refused one too, leaves the mutex one level deeper and every unlock call takes
// one level back. So callers pair their calls without asking which of them were granted. The mutex
// is always taken before the handler and given back after it.

bool ProcessDataManager::lockReadBuffer()
{
    ManagerAccess::mutex(*this).lock();
    if (m_bufferHandler.isNull()) {
        return true;
    }
    if (m_pointerReadBuffer != nullptr) {
        qWarning() << "Buffer is already locked.";
        return false;
    }
    m_pointerReadBuffer = m_bufferHandler->lockForRead();
    return true;
}

bool ProcessDataManager::unlockReadBuffer(bool &repeat)
{
    ManagerAccess::beginInThisProcess(*this);
    if (m_bufferHandler.isNull()) {
        m_bufferMutex.unlock();
        return true;
    }
    if (m_pointerReadBuffer == nullptr) {
        m_bufferMutex.unlock();
        return false;
    }
    const bool unlocked = m_bufferHandler->unlockForRead(m_pointerReadBuffer, repeat);
    m_pointerReadBuffer = nullptr;
    m_bufferMutex.unlock();
    return unlocked;
}

bool ProcessDataManager::lockWriteBuffer()
{
    ManagerAccess::mutex(*this).lock();
    if (m_bufferHandler.isNull()) {
        return true;
    }
    if (m_pointerWriteBuffer != nullptr) {
        qWarning() << "Buffer is already locked.";
        return false;
    }
    m_pointerWriteBuffer = m_bufferHandler->lockForWrite();
    return true;
}

bool ProcessDataManager::unlockWriteBuffer()
{
    ManagerAccess::beginInThisProcess(*this);
    if (m_bufferHandler.isNull()) {
        m_bufferMutex.unlock();
        return true;
    }
    if (m_pointerWriteBuffer == nullptr) {
        m_bufferMutex.unlock();
        return false;
    }
    m_bufferHandler->unlockForWrite(m_pointerWriteBuffer);
    m_pointerWriteBuffer = nullptr;
    m_bufferMutex.unlock();
    return true;
}

bool ProcessDataManager::swapReadAndWriteBuffer()
{
    if (m_bufferHandler.isNull()) {
        return true;
    }
    if (!m_bufferHandler->swapBuffers()) {
        return false;
    }
    // What a thread writes into from inside its lock readers see now; it goes on in the other buffer.
    // Only a thread that is inside, or finds nobody there, gets the mutex without waiting.
    QMutex &mutex = ManagerAccess::mutex(*this);
    if (mutex.tryLock()) {
        if (m_pointerWriteBuffer != nullptr) {
            m_pointerWriteBuffer = m_bufferHandler->writeBufferPointer();
        }
        mutex.unlock();
    }
    return true;
}

BufferHandlerInterface::BufferPointer ProcessDataManager::getPointerReadBuffer() const
{
    return ManagerAccess::isInherited(*this) ? nullptr : m_pointerReadBuffer;
}

BufferHandlerInterface::BufferPointer ProcessDataManager::getPointerWriteBuffer() const
{
    return ManagerAccess::isInherited(*this) ? nullptr : m_pointerWriteBuffer;
}

unsigned int ProcessDataManager::getSizeBuffer() const
{
    return m_bufferHandler->bufferSize();
}

bool ProcessDataManager::isBufferValid() const
{
    return !m_bufferHandler.isNull();
}
