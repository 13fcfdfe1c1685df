#pragma once

#include "Companion/Exchange/Identity_p.h"
#include "Companion/Exchange/WriteLease_p.h"
#include "Companion/SystemVSemaphoreBaseClass.h"

#include <QString>

#include <atomic>
#include <mutex>
#include <optional>

/// The locks of one region: writers exclude each other, and readers where there is only one buffer.
///
/// The exclusive lock belongs to a thread, which may take it again while it holds it. Whatever a
/// process holds when it dies is given back by the kernel. The members are atomic only because
/// threads look whether they are the holder; the semaphores alone exclude.
///
/// Where the set was removed and another one stands under the key, the next lock joins that one, if
/// the region is still the one that others open under its name: so it is for whoever attached after
/// a creator made its memory and before it made its semaphores. Who hangs on a region that was
/// replaced stays out.
///
/// In a forked child the object holds nothing of what it holds in the parent, and joins no other set.
class BufferLock : public SystemVSemaphoreBaseClass
{
public:
    /// @p memory is any address inside the region. @p lease lies there as well, or is null where
    /// nobody keeps the lock.
    BufferLock(const QString &key, CreationType type, const void *memory,
               WriteLease::Words *lease = nullptr);
    /// Gives back what is still held; in a forked child nothing, since the parent holds it.
    ~BufferLock() override;

    /// Keeps other writers out. False if the wait ran out or the semaphores are gone.
    bool lock(std::chrono::milliseconds bound);
    /// The read lock that the calling thread is inside.
    enum class OwnReading {
        None,
        WithPlace,   ///< lockShared() gave Sharing::Shared.
        WithoutPlace ///< It gave Sharing::Unneeded.
    };
    /// Keeps writers and readers out. A place of this thread among the readers does not stand in its
    /// own way. A thread that reads without one does not join another set meanwhile: those inside that
    /// set know nothing of it.
    bool lockAgainstReaders(OwnReading own, std::chrono::milliseconds bound);
    /// For a creator that is about to replace the region of the words @p lease: nobody keeps its lock
    /// any more. Waits up to sm_creationWaitBound for an owner inside.
    static void closeFormer(const QString &key, WriteLease::Words &lease);
    /// One level back. False if this thread does not hold the lock.
    bool unlock();
    /// Whether the calling thread is inside the exclusive lock.
    bool isHeldHere() const
    {
        return m_holder.load(std::memory_order_relaxed) == Identity::threadNumber();
    }
    /// Whether the exclusive lock that the calling thread is inside was taken just once.
    bool isOutermost() const { return m_depth.load(std::memory_order_relaxed) == 1; }

    /// Whether a thread of this process is inside the exclusive lock.
    bool isHeldInThisProcess() const
    {
        return isHeldHere()
               || (belongsToThisProcess() && m_depth.load(std::memory_order_relaxed) > 0);
    }
    /// Whether somebody is to be woken if this object ends inside the lock. For whoever wakes: this class
    /// keeps the answer alone, and it means nothing behind the lock.
    void setWakesAtEnd(bool wakes) { m_wakesAtEnd.store(wakes, std::memory_order_relaxed); }
    bool wakesAtEnd() const { return m_wakesAtEnd.load(std::memory_order_relaxed); }

    enum class Sharing {
        Shared,   ///< Writers are kept out until unlockShared().
        Unneeded, ///< The semaphores were removed: no writer can come in any more.
        Failed
    };
    /// Keeps writers out, but not readers.
    Sharing lockShared(std::chrono::milliseconds bound);
    void unlockShared();
    /// For an object that was made with CreationTypeJoin: as lockShared(), in the set that there is by now.
    /// Unneeded where there is none either.
    Sharing lockSharedIfThere(std::chrono::milliseconds bound);
    /// Whether others have a set for this region, be it the one of this object or not. Nothing where there is a
    /// set, and it cannot be told whether it is that of this region.
    std::optional<bool> isSetThere() const;
    using SystemVSemaphoreBaseClass::isRefused;

private:
    void becomeHolder()
    {
        m_holder.store(Identity::threadNumber(), std::memory_order_relaxed);
        m_depth.store(1, std::memory_order_relaxed);
    }
    /// By the holder, which nobody comes between. Returns the new depth.
    int changeDepth(int levels)
    {
        const int depth = m_depth.load(std::memory_order_relaxed) + levels;
        m_depth.store(depth, std::memory_order_relaxed);
        return depth;
    }
    Outcome enter(sembuf *operations, std::size_t count, std::chrono::milliseconds bound,
                  OwnReading own = OwnReading::None);
    Outcome enterAfterWait(int set, sembuf *operations, std::size_t count,
                           std::chrono::milliseconds bound, OwnReading own);
    Outcome operateSoon(sembuf *operations, std::size_t count, std::chrono::milliseconds bound);
    bool followRegion(int removedSet);
    Outcome takeWriteLock(std::chrono::milliseconds bound);
    bool isFreeOfLeases();
    Outcome waitForOwner(std::chrono::steady_clock::time_point deadline);
    bool enterByLease();
    void leaveByLease();
    void giveLeaseBack();
    bool makeLease();
    Outcome takeExclusive(OwnReading own, std::chrono::milliseconds bound);
    Outcome takeStepByStep(OwnReading own, std::chrono::milliseconds bound);
    void giveBackExclusive();
    Outcome report(Outcome outcome);

    const QString m_key;
    const void *const m_memory;
    std::mutex m_following;
    std::atomic<int> m_inside{0};     ///< locks that threads hold or are about to take
    std::atomic<quint64> m_holder{0}; ///< number of a thread; 0 if none
    std::atomic<int> m_depth{0};
    std::atomic<int> m_sharedCount{0};
    std::atomic<bool> m_removalReported{false};
    std::atomic<bool> m_wakesAtEnd{false};
    WriteLease m_lease;
    std::atomic<int> m_leaseSet{-1};        ///< set in which the last lease was made
    std::atomic<bool> m_isByLease{false};   ///< how the holder is inside
    std::atomic<qint64> m_lastLookAtSet{0}; ///< milliseconds of the coarse clock
};
