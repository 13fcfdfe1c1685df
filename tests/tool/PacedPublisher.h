#pragma once

#include "Companion/PingPongBufferHandler.h"
#include "DoctoredPlant.h"
#include "ProcessData/Linux/SharedMemory.h"
#include "support/LookingReader.h"
#include "support/ProcessState.h"

#include <chrono>

#include <sched.h>

/// Whether it comes to that, however long it takes.
template <class Condition>
bool waitUntil(const Condition &condition)
{
    using Clock = std::chrono::steady_clock;
    const Clock::time_point deadline = Clock::now() + std::chrono::seconds(60);
    while (!condition()) {
        if (Clock::now() > deadline) {
            return false;
        }
        sched_yield();
    }
    return true;
}

/// A region of this process, which sees when somebody has seen all of its sets and waits for the next one.
class PacedPublisher
{
public:
    explicit PacedPublisher(const DoctoredPlant &plant)
        : m_region(plant.file)
        , m_key(plant.key())
        , m_url(plant.url)
    {
        m_memory.setKey(plant.segment().name());
        m_isReady = m_memory.attach(SharedMemory::ReadWrite);
    }

    bool isReady() const { return m_isReady && block().swapCount == 1; }
    HeldRegion &region() { return m_region; }
    bool publish() { return publish(validValue(++m_number)); }
    bool publish(const ProcessValue &value) { return m_region.publish(m_url, value); }
    /// A set that somebody has slept for.
    bool publishToASleeper() { return waitUntilSomebodySleeps() && publish(); }
    /// Until all that was published before was seen.
    bool waitUntilSomebodySleeps() const { return LookingReader::waitUntilSeen(m_key); }
    /// Until the process has done what it does with all that was published before.
    bool waitUntilDone(qint64 pid) const
    {
        return waitUntilSomebodySleeps()
               && waitUntil([pid] { return processState(static_cast<pid_t>(pid)) == 'S'; });
    }
    /// A set of which the process is through.
    bool publishTo(qint64 pid, const ProcessValue &value)
    {
        return waitUntilDone(pid) && publish(value) && waitUntilDone(pid);
    }

private:
    const PingPongBufferHandler::ManagementBuffer &block() const
    {
        return *static_cast<const PingPongBufferHandler::ManagementBuffer *>(m_memory.data());
    }

    HeldRegion m_region;
    SharedMemory m_memory;
    QString m_key;
    QString m_url;
    int m_number = 0;
    bool m_isReady = false;
};
