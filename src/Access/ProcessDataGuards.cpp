#include "Access/ProcessDataGuards.h"

#include "Access/ConsistentReading_p.h"
#include "Companion/Exchange/Identity_p.h"
#include "Companion/Exchange/LockWait_p.h"
#include "ProcessDataManagement/ManagerAccess_p.h"

#include <QDebug>
#include <QMutexLocker>

// The manager counts its locks by the levels of its mutex, and the first unlock ends the real lock.
// A second guard of one thread that went through the manager would be refused with a warning and
// would, at its end, take the lock of the first one away. So an inner guard holds the mutex alone.

ProcessDataReadGuard::ProcessDataReadGuard(ProcessDataManager &manager)
    : m_manager(manager)
    , m_process(Identity::generation())
{
    QMutex &mutex = ManagerAccess::mutex(manager);
    mutex.lock();
    m_isNested = manager.getPointerReadBuffer() != nullptr;
    if (m_isNested) {
        m_isLocked = true;
        return;
    }
    manager.lockReadBuffer();
    mutex.unlock();
    m_isLocked = !manager.isBufferValid() || manager.getPointerReadBuffer() != nullptr;
}

ProcessDataReadGuard::~ProcessDataReadGuard()
{
    unlock();
}

bool ProcessDataReadGuard::isLocked() const
{
    return m_isLocked && m_process == Identity::generation();
}

bool ProcessDataReadGuard::unlock()
{
    if (m_isEnded) {
        return m_isReliable;
    }
    m_isEnded = true;
    if (m_process != Identity::generation()) {
        return false;
    }
    if (m_isNested) {
        ManagerAccess::mutex(m_manager).unlock();
        m_isReliable = true;
        return true;
    }
    m_isReliable = m_manager.unlockReadBuffer(m_mustRepeat) && !m_mustRepeat;
    return m_isReliable;
}

ProcessDataWriteGuard::ProcessDataWriteGuard(ProcessDataManager &manager)
    : m_manager(manager)
    , m_process(Identity::generation())
{
    lock();
}

ProcessDataWriteGuard::ProcessDataWriteGuard(ProcessDataManager &manager,
                                             std::chrono::milliseconds longestWait)
    : m_manager(manager)
    , m_isBounded(true)
    , m_process(Identity::generation())
{
    const LockWait wait(longestWait);
    lock();
}

ProcessDataWriteGuard::~ProcessDataWriteGuard()
{
    unlock();
}

void ProcessDataWriteGuard::lock()
{
    QMutex &mutex = ManagerAccess::mutex(m_manager);
    mutex.lock();
    m_isNested = m_manager.getPointerWriteBuffer() != nullptr;
    if (m_isNested) {
        m_isLocked = true;
        return;
    }
    m_manager.lockWriteBuffer();
    mutex.unlock();
    m_isLocked = !m_manager.isBufferValid() || m_manager.getPointerWriteBuffer() != nullptr;
}

bool ProcessDataWriteGuard::isLocked() const
{
    return m_isLocked && m_process == Identity::generation();
}

bool ProcessDataWriteGuard::publish()
{
    if (m_isEnded) {
        return false;
    }
    const bool mayPublish = isLocked() && !m_isNested;
    if (mayPublish && m_isBounded) {
        // Behind the lock somebody could be inside who stays there.
        const bool isPublished = m_manager.swapReadAndWriteBuffer();
        unlock();
        return isPublished;
    }
    unlock();
    return mayPublish && m_manager.swapReadAndWriteBuffer();
}

void ProcessDataWriteGuard::unlock()
{
    if (m_isEnded) {
        return;
    }
    m_isEnded = true;
    if (m_process != Identity::generation()) {
        return;
    }
    if (m_isNested) {
        ManagerAccess::mutex(m_manager).unlock();
        return;
    }
    m_manager.unlockWriteBuffer();
}

bool readConsistently(ProcessDataManager &manager, const std::function<void()> &read)
{
    return ConsistentReading::repeatUntilReliable(manager, read);
}
