#pragma once

#include "Access/LookPace_p.h"
#include "Companion/Exchange/MappedName_p.h"
#include "Companion/Exchange/SetWaiting_p.h"

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>

/// Where all threads of this process sleep that wait for the sets of one region, whatever watcher they
/// use and however often the region is mapped.
///
/// One of them sleeps in the kernel, which costs the publisher as much as a single waiter. The others
/// sleep until it tells them what it has found, or that another one has to go there.
class SleepingPlace
{
public:
    /// That of the region behind @p words. A forked child has places of its own.
    static std::shared_ptr<SleepingPlace> of(const SetWaiting::Management *words);

    explicit SleepingPlace(MappedName name) : m_name(std::move(name)) { }

    /// Of all that follows, and of the words of the watchers here.
    std::mutex mutex;
    /// Somebody has left the kernel, or a watcher has changed.
    std::condition_variable changed;
    /// Of those whom publishers do not know of, who do not go to the kernel for others.
    LookPace pace{LookPace::Clock::now()};

    /// False if somebody is in the kernel already. @p watcher is the one of the calling thread.
    bool enterKernel(const void *watcher);
    void leaveKernel();
    bool isInKernel(const void *watcher) const { return m_sleeper == watcher; }

    /// Whether the name of the memory was removed or leads elsewhere. Looks once a second, and as long as
    /// the name could not be found out, for want of a descriptor, for that first. In between it costs
    /// a look at the clock. @p words are those of the watcher that asks: the mapping of any other may have
    /// ended.
    bool isRegionGone(const SetWaiting::Management &words);
    /// Whether that was found out, and whoever has seen generation @p seen has seen all that was published
    /// until then. A publisher who knows of no end may go on, and nobody is to follow him.
    bool isOverAt(quint64 seen) const { return m_isRegionGone && seen >= m_lastGeneration; }

    /// What is told where the region has come to generation @p current.
    quint64 toldOf(quint64 current) const { return m_isRegionGone ? m_lastGeneration : current; }

private:
    Q_DISABLE_COPY(SleepingPlace)

    using Clock = std::chrono::steady_clock;

    MappedName m_name;
    const void *m_sleeper = nullptr; ///< whose thread sleeps in the kernel for all
    bool m_isRegionGone = false;
    quint64 m_lastGeneration = 0;                ///< when it was found gone
    Clock::time_point m_nextLook = Clock::now(); ///< at the name
};
