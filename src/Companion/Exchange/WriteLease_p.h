#pragma once

#include "Companion/Exchange/Identity_p.h"
#include "Companion/PingPongBufferHandler.h"

#include <atomic>

/// What stands in the words of a lease.
namespace Lease {

// The state in the lease word.
constexpr quint64 idle = 1;
constexpr quint64 inside = 2;
constexpr quint64 idleToInside = inside - idle;

// In `wanted`.
constexpr quint32 nobodyWaits = 0;
constexpr quint32 somebodyWaits = 1;
constexpr quint32 closed = 2;

} // namespace Lease

/// The words of a write lock that stays with a process which writes alone.
///
/// Whoever has taken the write lock many times with nobody between makes a lease of it: from then on
/// it goes in and out by one exchange of a word in the management block, without a system call, until
/// somebody else wants to write. The semaphores go on being what excludes: the set has one that is 1
/// while a lease lives, in the owner's name, so that the kernel takes it back at a death.
///
/// This class knows the words alone; the calls to the semaphores stand in BufferLock, and between
/// which of them each operation belongs is told at the operation. All changes of the lease word
/// need the write semaphore, except those by its owner. docs/protocol/write-lock.pml is the proof.
///
/// In a forked child the object owns nothing.
class WriteLease
{
public:
    using Words = PingPongBufferHandler::ManagementBuffer::LeaseWords;

    /// @p words null: there are no leases, and every operation says so.
    explicit WriteLease(Words *words) : m_words(words) { }

    /// Without any semaphore. True if this object owns a lease and the calling thread is inside by it.
    bool enter()
    {
        quint64 word = m_own.load(std::memory_order_relaxed);
        // Another thread of this process may be inside by it; taken away it does not come back. In one
        // order with isClosed().
        return word != 0 && isOwn()
               && m_words->word.compare_exchange_strong(word, word + Lease::idleToInside,
                                                        std::memory_order_seq_cst,
                                                        std::memory_order_relaxed);
    }

    /// What the owner has to do at its unlock.
    enum class Leaving {
        Left,     ///< Nothing: the lease stays, nobody waits.
        GiveBack, ///< Take the lease semaphore back: somebody waits, and the lease has ended.
        Lost ///< Nothing: the lease was taken away, as a set of semaphores that was removed is.
    };
    Leaving leave()
    {
        const quint64 idle = m_own.load(std::memory_order_relaxed);
        if (m_words->wanted.load(std::memory_order_relaxed) != Lease::nobodyWaits) {
            return endAs(Leaving::GiveBack);
        }
        quint64 inside = idle + Lease::idleToInside;
        if (!m_words->word.compare_exchange_strong(inside, idle)) {
            return endAs(Leaving::Lost);
        }
        return m_words->wanted.load() == Lease::nobodyWaits ? Leaving::Left : endFromOutside(idle);
    }
    /// Ends a lease of this object that nobody is inside by. What the calling thread has to do then;
    /// nothing if it returns false, because another thread is inside or there is no lease.
    bool endIfIdle();
    /// Whether a thread of this process is inside by a lease of this object.
    bool isOwnerInside() const;
    /// For the owner: the lease is over, whatever its word says.
    void forget() { m_own.store(0, std::memory_order_relaxed); }
    /// Whether another creator has replaced this region. Only of an owner, behind enter().
    bool isClosed() const { return m_words->wanted.load() == Lease::closed; }

    /// What the word says to a process that has taken the write semaphore of the set @p setId.
    enum class Finding {
        Free,       ///< No lease: the write semaphore is all that it takes.
        Revoked,    ///< A lease was taken away from an idle owner: clear the lease semaphore.
        OfOtherSet, ///< Of a removed set, if that of the asking process is still there.
        OwnerInside ///< Wait until write and lease semaphore are free. The owner knows of the wish.
    };
    /// Looks for a moment before it takes an owner for one that stays inside.
    Finding look(int setId);
    /// With the write semaphore of a set that is there: a lease of any other keeps nobody out.
    void clearOfOtherSet(int setId);
    /// With the write semaphore, after the lease semaphore was seen free: the word of an owner that
    /// gave its lease back or died inside ends here.
    void clearLeftOver();

    /// With the write semaphore: one more lock was taken by it. True if so many were taken by this
    /// object in a row, in the set that was made for this memory, that a lease is worth its making.
    bool isDue(int setId);
    /// With the write semaphore, the lease semaphore cleared: this object is the owner, and inside,
    /// as soon as it has the lease semaphore.
    void begin(int setId);

    /// The set of semaphores that is made for this memory; there are no leases in any other.
    void setSemaphores(int setId);
    /// Nobody makes a lease of this memory any more or goes in by one. True while an owner is still
    /// inside.
    static bool close(Words &words);
    static bool isOwnerInside(const Words &words);

private:
    bool isOwn() const
    {
        return m_process.load(std::memory_order_relaxed) == Identity::generation();
    }
    Leaving endAs(Leaving how)
    {
        forget();
        return how;
    }
    Leaving endFromOutside(quint64 idle);
    quint32 newNumber();

    Words *m_words;
    std::atomic<quint64> m_own{0}; ///< the word of the own lease with its owner outside; 0: none
    std::atomic<quint16> m_process{0}; ///< generation of the process that drew the numbers
    // Atomic only because a thread sanitizer does not know what semaphores order.
    std::atomic<quint32> m_locker{0}; ///< number of this object among those that lock
    std::atomic<int> m_inARow{0};     ///< locks that were taken with nobody between
};
