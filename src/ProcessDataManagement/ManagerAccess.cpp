#include "ProcessDataManagement/ManagerAccess_p.h"

#include <new>
#include <thread>

namespace {

/// Beside the number of a process: one of its threads is just making the manager its own.
constexpr quint16 isBeginning = 0x8000;

} // namespace

void ManagerAccess::leaveParent(ProcessDataManager &manager)
{
    const quint16 own = Identity::generation();
    const auto beginning = static_cast<quint16>(own | isBeginning);
    SharedMemory::PrivateData &segment = manager.m_sharedMemory.m_PrivateData;
    quint16 found = segment.m_process.load(std::memory_order_acquire);
    while (found != own) {
        if (found == beginning) {
            std::this_thread::yield();
            found = segment.m_process.load(std::memory_order_acquire);
        } else if (segment.m_process.compare_exchange_weak(found, beginning,
                                                           std::memory_order_acquire)) {
            segment.m_created = false;
            manager.m_pointerReadBuffer = nullptr;
            manager.m_pointerWriteBuffer = nullptr;
            // Without an end to the former one: a thread that has stayed behind may hold it.
            new (&manager.m_bufferMutex) QMutex(QMutex::Recursive);
            segment.m_process.store(own, std::memory_order_release);
            return;
        }
    }
}
