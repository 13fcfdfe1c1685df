#include "ProcessDataManagement/ProcessDataBufferHandler.h"

#include "Companion/PingPongReadingHandler_p.h"
#include "Companion/SingleReadingHandler_p.h"
#include "ProcessData/Linux/SharedMemory.h"

#include <QDebug>

#include <limits>

namespace {

SystemVSemaphoreBaseClass::CreationType creationType(ProcessDataBufferHandler::InitTypeBuffer type)
{
    return type == ProcessDataBufferHandler::InitTypeBufferCreate
               ? SystemVSemaphoreBaseClass::CreationTypeCreate
               : SystemVSemaphoreBaseClass::CreationTypeAttach;
}

bool isForReading(const SharedMemory &memory)
{
    return memory.data() != nullptr && !memory.isWritable();
}

bool checkPointer(const void *pointer, const char *warning)
{
    if (pointer == nullptr) {
        qWarning() << warning;
        return false;
    }
    return true;
}

} // namespace

ProcessDataBufferHandler::ProcessDataBufferHandler(bool doubleBuffer) : m_doubleBuffer(doubleBuffer)
{
}

ProcessDataBufferHandler::~ProcessDataBufferHandler() = default;

unsigned int ProcessDataBufferHandler::calculateSizeSharedMemory(unsigned int size) const
{
    if (!m_doubleBuffer) {
        return size;
    }
    // Wrapped around, an absurd size would look like a small one that can be had.
    const quint64 total = PingPongBufferHandler::getSizeManagementBuffer() + 2 * quint64{size};
    constexpr quint64 largest = std::numeric_limits<unsigned int>::max();
    return static_cast<unsigned int>(qMin(total, largest));
}

// NOLINTNEXTLINE(readability-make-member-function-const): the signature is public and stays
void ProcessDataBufferHandler::calculatePointerForPingPongBuffer(
    PingPongBufferHandler::ManagementBuffer **management, unsigned char **first,
    unsigned char **second, unsigned int size, SharedMemory &memory)
{
    auto *base = static_cast<unsigned char *>(memory.data());
    if (!checkPointerOfPingPongBuffer(management, first, second, base)) {
        return;
    }
    // The mapping starts at a page, which is more than the management block needs.
    *management = reinterpret_cast<PingPongBufferHandler::ManagementBuffer *>(base);
    *first = base + PingPongBufferHandler::getSizeManagementBuffer();
    *second = *first + size;
}

bool ProcessDataBufferHandler::checkPointerOfPingPongBuffer(
    PingPongBufferHandler::ManagementBuffer **management, unsigned char **first,
    unsigned char **second, unsigned char *base) const
{
    // No short cut: each null pointer is reported.
    const bool hasBase = checkPointer(base, "Basepointer to shared memory is nullptr");
    const bool hasManagement = checkPointer(management, "Pointer to managmentbuffer is nullptr");
    const bool hasFirst = checkPointer(first, "Pointer to first part shared memory is nullptr");
    const bool hasSecond = checkPointer(second, "Pointer to second part shared memory is nullptr");
    return hasBase && hasManagement && hasFirst && hasSecond;
}

BufferHandlerInterface::HandlerSharedPointer ProcessDataBufferHandler::initBufferHandler(
    ProcessDataBufferHandler::InitTypeBuffer type, const QString &semaphoreKey, unsigned int size,
    SharedMemory &memory)
{
    if (m_doubleBuffer) {
        PingPongBufferHandler::ManagementBuffer *management = nullptr;
        unsigned char *first = nullptr;
        unsigned char *second = nullptr;
        calculatePointerForPingPongBuffer(&management, &first, &second, size, memory);
        if (isForReading(memory)) {
            return QSharedPointer<PingPongReadingHandler>::create(management, first, second, size,
                                                                  semaphoreKey);
        }
        return QSharedPointer<PingPongBufferHandler>::create(
            management, first, second, creationType(type), size, semaphoreKey);
    }

    auto *buffer = static_cast<unsigned char *>(memory.data());
    checkPointer(buffer, "Pointer to shared memory is nullptr");
    if (isForReading(memory)) {
        return QSharedPointer<SingleReadingHandler>::create(buffer, size, semaphoreKey);
    }
    return QSharedPointer<SingleBufferHandler>::create(buffer, creationType(type), size,
                                                       semaphoreKey);
}
