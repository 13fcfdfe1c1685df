#pragma once

#include "ProcessDataManagement/ProcessDataManager.h"

/// What the guards and readers of the library need of a manager beside its locks.
class ManagerAccess
{
public:
    /// Keeps the threads of the manager apart from lock to unlock; recursive.
    static QMutex &mutex(ProcessDataManager &manager) { return manager.m_bufferMutex; }
    static const BufferHandlerInterface *handler(const ProcessDataManager &manager)
    {
        return manager.m_bufferHandler.data();
    }
};
