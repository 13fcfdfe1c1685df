#pragma once

#include "Access/ProcessDataWatcher.h"
#include "native/ForkMark.h"

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>

class OpenRegion;

/// A way to wait for the sets of a region, in a call or by a descriptor.
///
/// Any thread may use it, several at once. It ends with its region, or before.
class SetWait
{
public:
    enum class Outcome { NewSet, TimedOut, Ended };

    SetWait(std::shared_ptr<OpenRegion> region, ProcessDataManager &manager);
    /// As end().
    ~SetWait();

    SetWait(const SetWait &) = delete;
    SetWait &operator=(const SetWait &) = delete;

    /// As ProcessDataWatcher::wait(). Throws a Failure if the region went away.
    Outcome wait(quint64 &seen, std::chrono::milliseconds bound);
    /// See ProcessDataWatcher::getDescriptor(). Throws a Failure if there is none to be had.
    int descriptor();
    /// Whether descriptor() was asked for.
    bool hasDescriptor() const;
    /// As ProcessDataWatcher::acknowledge().
    Outcome acknowledge(quint64 &seen);
    /// Has everybody who waits come back, and waits for them.
    void end();

private:
    class Use;

    Outcome outcomeOf(ProcessDataWatcher::Result result) const;

    ForkMark m_fork;
    std::shared_ptr<OpenRegion> m_region;
    mutable std::mutex m_mutex;
    std::condition_variable m_left;
    int m_users = 0;
    bool m_isEnded = false;
    int m_descriptor = -1;
    std::unique_ptr<ProcessDataWatcher> m_watcher;
};
