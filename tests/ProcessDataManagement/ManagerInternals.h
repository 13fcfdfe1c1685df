#pragma once

#include "ProcessDataManagement/ProcessDataManager.h"

#include <QMutex>

#include <thread>

namespace ManagerMembers {

/// Opens one private member to the tests: an explicit instantiation may name it.
template <class Name, typename Name::Type member>
struct PrivateMember
{
    friend typename Name::Type find(Name) { return member; }
};

using Manager = ProcessDataManager;
using Root = ProcessDataManager::BaseClassSharedPointer;
using InitType = ProcessDataManager::InitTypeSharedMemory;

struct BufferHandler
{
    using Type = BufferHandlerInterface::HandlerSharedPointer Manager::*;
    friend Type find(BufferHandler);
};
struct BufferMutex
{
    using Type = QMutex Manager::*;
    friend Type find(BufferMutex);
};
struct CreateProcessDataMemory
{
    using Type = bool (Manager::*)(const Root &, InitType);
    friend Type find(CreateProcessDataMemory);
};
struct InitSharedMemory
{
    using Type = bool (Manager::*)(InitType, const QString &, unsigned int);
    friend Type find(InitSharedMemory);
};
struct SetPointerToBufferHandler
{
    using Type = bool (Manager::*)(const Root &, InitType);
    friend Type find(SetPointerToBufferHandler);
};
struct InitSharedMemoryValues
{
    using Type = void (Manager::*)(const Root &, InitType);
    friend Type find(InitSharedMemoryValues);
};

template struct PrivateMember<BufferHandler, &ProcessDataManager::m_bufferHandler>;
template struct PrivateMember<BufferMutex, &ProcessDataManager::m_bufferMutex>;
template struct PrivateMember<CreateProcessDataMemory,
                              &ProcessDataManager::createProcessDataMemory>;
template struct PrivateMember<InitSharedMemory, &ProcessDataManager::initSharedMemory>;
template struct PrivateMember<SetPointerToBufferHandler,
                              &ProcessDataManager::setPointerToBufferHandler>;
template struct PrivateMember<InitSharedMemoryValues, &ProcessDataManager::initSharedMemoryValues>;

} // namespace ManagerMembers

/// The inner steps of a manager, and its handler and mutex, which no application gets to see.
class ManagerInternals
{
public:
    using Root = ManagerMembers::Root;
    using InitType = ManagerMembers::InitType;

    explicit ManagerInternals(ProcessDataManager &manager) : m_manager(manager) { }

    void setBufferHandler(const BufferHandlerInterface::HandlerSharedPointer &handler)
    {
        m_manager.*find(ManagerMembers::BufferHandler()) = handler;
    }

    /// Whether any thread holds the mutex, as a thread sees it that does not.
    bool isMutexHeld()
    {
        QMutex &mutex = m_manager.*find(ManagerMembers::BufferMutex());
        bool isHeld = true;
        std::thread([&] {
            if (mutex.tryLock()) {
                mutex.unlock();
                isHeld = false;
            }
        }).join();
        return isHeld;
    }

    bool createProcessDataMemory(const Root &root, InitType type)
    {
        return (m_manager.*find(ManagerMembers::CreateProcessDataMemory()))(root, type);
    }
    bool initSharedMemory(InitType type, const QString &key, unsigned int size)
    {
        return (m_manager.*find(ManagerMembers::InitSharedMemory()))(type, key, size);
    }
    bool setPointerToBufferHandler(const Root &root, InitType type)
    {
        return (m_manager.*find(ManagerMembers::SetPointerToBufferHandler()))(root, type);
    }
    void initSharedMemoryValues(const Root &root, InitType type)
    {
        (m_manager.*find(ManagerMembers::InitSharedMemoryValues()))(root, type);
    }

private:
    ProcessDataManager &m_manager;
};
