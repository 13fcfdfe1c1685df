#pragma once

#include "Companion/Exchange/Identity_p.h"
#include "ProcessDataManagement/ProcessDataManager.h"

#include <atomic>

/// What the guards and readers of the library need of a manager beside its locks.
class ManagerAccess
{
public:
    /// Keeps the threads of the manager apart from lock to unlock; recursive.
    static QMutex &mutex(ProcessDataManager &manager)
    {
        beginInThisProcess(manager);
        return manager.m_bufferMutex;
    }
    /// Whether the manager is still as a forked child has found it.
    static bool isInherited(const ProcessDataManager &manager)
    {
        return process(manager).load(std::memory_order_acquire) != Identity::generation();
    }
    /// Makes the manager that a forked child has inherited one of its own: without the locks that
    /// threads of the parent hold, and without the name of the segment. Any thread may call it, at
    /// any time; nothing changes in the process that has made the manager.
    static void beginInThisProcess(ProcessDataManager &manager)
    {
        if (isInherited(manager)) {
            leaveParent(manager);
        }
    }
    /// The same for a manager that is just being made, and has nothing to leave behind.
    static void makeInThisProcess(ProcessDataManager &manager)
    {
        manager.m_sharedMemory.m_PrivateData.m_process.store(Identity::generation(),
                                                             std::memory_order_release);
    }
    /// How the manager maps the memory that it attaches to. The word lies in the segment, where there was
    /// room for it.
    static SharedMemory::AccessMode accessMode(const ProcessDataManager &manager)
    {
        const quint8 access = manager.m_sharedMemory.m_PrivateData.m_access;
        return (access & SharedMemory::IsForReading) != 0 ? SharedMemory::ReadOnly
                                                          : SharedMemory::ReadWrite;
    }
    static void setAccessMode(ProcessDataManager &manager, SharedMemory::AccessMode mode)
    {
        quint8 &access = manager.m_sharedMemory.m_PrivateData.m_access;
        access = mode == SharedMemory::ReadOnly
                     ? static_cast<quint8>(access | SharedMemory::IsForReading)
                     : static_cast<quint8>(access & ~SharedMemory::IsForReading);
    }
    static const BufferHandlerInterface *handler(const ProcessDataManager &manager)
    {
        return manager.m_bufferHandler.data();
    }

private:
    /// Lies in the segment, where there was room for it.
    static const std::atomic<quint16> &process(const ProcessDataManager &manager)
    {
        return manager.m_sharedMemory.m_PrivateData.m_process;
    }
    static void leaveParent(ProcessDataManager &manager);
};
