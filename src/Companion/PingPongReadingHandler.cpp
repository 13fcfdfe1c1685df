#include "Companion/Exchange/BufferLock_p.h"
#include "Companion/Exchange/LockNotes_p.h"
#include "Companion/Exchange/ShortWait_p.h"
#include "Companion/PingPongReadingHandler_p.h"

#include <QDebug>

#include <chrono>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;

/// A publisher that needs longer for a set gives time enough for a read that begins anywhere.
constexpr std::chrono::milliseconds swapBound{20};
/// To see the swap of one that hurries it takes a look without a sleep.
constexpr std::chrono::nanoseconds shortestPause{100};
constexpr std::chrono::nanoseconds longestPause{1000};
constexpr std::chrono::microseconds pausesBeforeSleep{200};
constexpr std::chrono::microseconds sleepBetweenLooks{50};

} // namespace

void warnOfReadingAlone(const QString &semaphoreKey)
{
    qWarning() << "The memory of" << semaphoreKey
               << "is attached for reading alone: nothing is written. Attach with"
                  " SharedMemory::ReadWrite to write.";
}

PingPongReadingHandler::PingPongReadingHandler(ManagementBuffer *management, unsigned char *first,
                                               unsigned char *second, unsigned int size,
                                               const QString &semaphoreKey)
    : PingPongBufferHandler(management, first, second, size, semaphoreKey)
    , m_semaphoreKey(semaphoreKey)
{
}

BufferHandlerInterface::BufferPointer PingPongReadingHandler::lockForRead()
{
    if (!isUsable()) {
        return nullptr;
    }
    const int depth = LockNotes::count(m_number);
    if (LockNotes::repeatsInARow(m_number, depth) >= sm_optimisticAttempts) {
        awaitSwap();
    }
    const quint64 epoch = m_management->swapCount.load(std::memory_order_acquire);
    LockNotes::add({m_number, buffer(epoch), epoch, depth, false});
    return buffer(epoch);
}

/// If the publisher was stopped there is no swap to come, and nobody writes into what is read then.
void PingPongReadingHandler::awaitSwap() const
{
    const quint64 epoch = m_management->swapCount.load(std::memory_order_acquire);
    const auto isSame = [&] {
        return m_management->swapCount.load(std::memory_order_acquire) == epoch;
    };
    const Clock::time_point deadline = Clock::now() + swapBound;
    ShortWait wait(shortestPause, longestPause, pausesBeforeSleep);
    while (isSame() && wait.passOn()) { }
    while (isSame() && Clock::now() < deadline) {
        std::this_thread::sleep_for(sleepBetweenLooks);
    }
}

BufferHandlerInterface::BufferPointer PingPongReadingHandler::lockForWrite()
{
    warnOfReadingAlone(m_semaphoreKey);
    return nullptr;
}

bool PingPongReadingHandler::unlockForWrite(BufferPointer /*buffer*/)
{
    // Nothing was locked, and whoever tried has been told.
    return false;
}

BufferHandlerInterface::BufferPointer PingPongReadingHandler::writeBufferPointer()
{
    warnOfReadingAlone(m_semaphoreKey);
    return nullptr;
}

bool PingPongReadingHandler::swapBuffers()
{
    warnOfReadingAlone(m_semaphoreKey);
    return false;
}

void PingPongReadingHandler::refuse(const PingPongBufferHandler &handler)
{
    warnOfReadingAlone(static_cast<const PingPongReadingHandler &>(handler).m_semaphoreKey);
}
