#pragma once

#include "Access/WatchedRegion.h"
#include "support/ProcessState.h"

#include <atomic>

#include <unistd.h>

constexpr auto endless = std::chrono::milliseconds(-1);

/// A thread that waits, and what came of it.
class WaitingThread
{
public:
    explicit WaitingThread(ProcessDataWatcher &watcher, std::chrono::milliseconds bound = endless)
        : seen(watcher.getGeneration())
        , m_watcher(watcher)
        , m_thread([this, &watcher, bound] {
            m_number = static_cast<pid_t>(gettid());
            result = watcher.wait(seen, bound);
        })
    {
    }
    /// Ends the wait of a test that has failed.
    ~WaitingThread()
    {
        if (m_thread.joinable()) {
            m_watcher.stop();
            join();
        }
    }

    void join()
    {
        if (m_thread.joinable()) {
            m_thread.join();
        }
    }

    /// Whether it sleeps, in the kernel or behind another thread.
    bool isAsleep() const { return m_number != 0 && processState(m_number) == 'S'; }

    quint64 seen;
    ProcessDataWatcher::Result result = ProcessDataWatcher::Result::NotSupported;

private:
    ProcessDataWatcher &m_watcher;
    std::atomic<pid_t> m_number{0};
    std::thread m_thread;
};

/// Until one thread of this program sleeps in the kernel.
inline bool isAsleep()
{
    return waitFor([] { return FutexCalls::sleepers() == 1; });
}
