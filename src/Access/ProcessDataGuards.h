#pragma once

#include "Companion/TesselExport.h"

#include <QtGlobal>

#include <chrono>
#include <functional>

class ProcessDataManager;

/// A read lock of a whole region, from construction to unlock() or destruction.
///
/// The manager must outlive the guard, and the thread that made a guard ends it. Where this thread
/// holds a read lock of the manager already, the guard reads on inside that one: it takes nothing,
/// gives nothing back, and whether the data were reliable shows at the end of the outer lock.
/// In a forked child a guard of the parent holds nothing and its end does nothing.
class TESSEL_EXPORT ProcessDataReadGuard
{
public:
    /// Takes the lock, waiting where ProcessDataManager::lockReadBuffer() does.
    explicit ProcessDataReadGuard(ProcessDataManager &manager);
    /// Ends the lock, if unlock() has not.
    ~ProcessDataReadGuard();

    /// False if the lock could not be had; there is nothing to read then.
    bool isLocked() const;
    /// Ends the lock. True if what was read under it is one consistent set. A second call repeats
    /// the answer of the first.
    bool unlock();
    /// After unlock(): whether reading again is what helps.
    bool mustRepeat() const { return m_mustRepeat; }

private:
    Q_DISABLE_COPY(ProcessDataReadGuard)

    ProcessDataManager &m_manager;
    bool m_isNested = false;
    bool m_isLocked = false;
    bool m_isEnded = false;
    bool m_isReliable = false;
    bool m_mustRepeat = false;
    quint16 m_process;
};

/// A write lock of a whole region, from construction to publish(), unlock() or destruction.
///
/// What was written and not published is not taken back: the next swap, be it another writer's,
/// publishes it. Lifetime, threads and nesting are those of ProcessDataReadGuard.
class TESSEL_EXPORT ProcessDataWriteGuard
{
public:
    /// Takes the lock, waiting where ProcessDataManager::lockWriteBuffer() does.
    explicit ProcessDataWriteGuard(ProcessDataManager &manager);
    /// The same, but waits no longer than @p longestWait for other processes that are inside, and not at all
    /// where it is 0 or less; never longer than the other either. For whoever has something better to do
    /// than to wait for a process that was stopped there: its publish() waits for nobody. Threads that hold a
    /// lock of this very manager are waited for until they leave.
    ProcessDataWriteGuard(ProcessDataManager &manager, std::chrono::milliseconds longestWait);
    /// Ends the lock without publishing, if nothing else has ended it.
    ~ProcessDataWriteGuard();

    /// False if the lock could not be had; nothing may be written then.
    bool isLocked() const;
    /// Ends the lock and lets readers see what was written. False if they do not; so it is inside
    /// an outer write lock of this thread, whose set is not complete, and after unlock().
    bool publish();
    /// Ends the lock without publishing.
    void unlock();

private:
    Q_DISABLE_COPY(ProcessDataWriteGuard)

    Q_DECL_HIDDEN void lock();

    ProcessDataManager &m_manager;
    bool m_isNested = false;
    bool m_isLocked = false;
    bool m_isEnded = false;
    bool m_isBounded = false; ///< may wait for nobody behind its lock
    quint16 m_process;
};

/// Calls @p read under a read lock, again and again until no writer came in between, and at most 11
/// times. What it reads with the operations without lock is then one consistent set. False, with a
/// warning, if it was not to be had; what the last call read must not be used then. Inside a read
/// lock of this thread one call is made and the outer lock decides.
TESSEL_EXPORT bool readConsistently(ProcessDataManager &manager, const std::function<void()> &read);
