#include "Companion/Exchange/Identity_p.h"
#include "Companion/Exchange/ShortWait_p.h"
#include "Companion/Exchange/WriteLease_p.h"

// Owner and comer each leave a word and then look at the other's: the owner's exchange of the lease word
// comes before its look at `wanted`, the comer's exchange of `wanted` before its second look at the
// lease word. All four are sequentially consistent, so that one of the two sees the other: either the
// comer finds the owner outside and takes the lease away, or the owner finds that somebody waits. The
// owner has no fence of its own beside its exchange, which is one on the way of every lock. The same goes
// for a creator that closes the memory, and the exchange by which the owner comes in: either the creator
// finds it inside, or the owner finds the memory closed. docs/protocol/weak-lease.pml is the proof.

namespace {

// The lease word: magic 14 bits | set 16 bits | number 32 bits | state 2 bits. Anything without the
// magic is no lease, so that garbage does no harm.
constexpr quint64 magic = 0x2C5D;
constexpr int magicShift = 50;
constexpr int setShift = 34;
constexpr int numberShift = 2;
constexpr quint64 setMask = 0xFFFF;
constexpr quint64 stateMask = 3;

/// A lease saves its owner two system calls a lock, and costs whoever comes next two more. So many
/// locks in a row make it likely that nobody comes.
constexpr int locksInARow = 16;

/// An owner that writes a single value is outside again before it could be told of a wish. Not longer:
/// whoever looks has the write semaphore.
constexpr std::chrono::nanoseconds lookInterval{50};
constexpr std::chrono::nanoseconds timeOfLooking{1000};

quint64 idleWord(int setId, quint32 number)
{
    return (magic << magicShift) | ((static_cast<quint64>(setId) & setMask) << setShift)
           | (quint64{number} << numberShift) | Lease::idle;
}

bool isLease(quint64 word)
{
    const quint64 state = word & stateMask;
    return word >> magicShift == magic && (state == Lease::idle || state == Lease::inside);
}

bool isInside(quint64 word)
{
    return isLease(word) && (word & stateMask) == Lease::inside;
}

bool isOfSet(quint64 word, int setId)
{
    return ((word >> setShift) & setMask) == (static_cast<quint64>(setId) & setMask);
}

/// Distinguishes "no set yet" from the set of number 0.
quint32 setWord(int setId)
{
    return static_cast<quint32>(setId) + 1;
}

} // namespace

bool WriteLease::isOwnerInside() const
{
    const quint64 word = m_own.load(std::memory_order_relaxed);
    return word != 0 && isOwn()
           && m_words->word.load(std::memory_order_relaxed) == word + Lease::idleToInside;
}

WriteLease::Leaving WriteLease::endFromOutside(quint64 ownIdle)
{
    // Whoever gives a lease back owns its word: else the lease could be another's by then.
    if (!m_words->word.compare_exchange_strong(ownIdle, ownIdle + Lease::idleToInside)) {
        // Nothing to forget: another thread may be inside by this lease, or by a later one.
        return Leaving::Lost;
    }
    return endAs(Leaving::GiveBack);
}

bool WriteLease::endIfIdle()
{
    if (!enter()) {
        return false;
    }
    forget();
    return true;
}

WriteLease::Finding WriteLease::look(int setId)
{
    if (m_words == nullptr) {
        return Finding::Free;
    }
    quint64 word = m_words->word.load(std::memory_order_acquire);
    ShortWait wait(lookInterval, lookInterval, timeOfLooking);
    while (isLease(word)) {
        if (!isOfSet(word, setId)) {
            return Finding::OfOtherSet;
        }
        if (!isInside(word)) {
            if (m_words->word.compare_exchange_strong(word, 0)) {
                return Finding::Revoked;
            }
            continue;
        }
        if (wait.passOn()) {
            word = m_words->word.load(std::memory_order_acquire);
            continue;
        }
        quint32 none = Lease::nobodyWaits;
        m_words->wanted.compare_exchange_strong(none, Lease::somebodyWaits);
        std::atomic_thread_fence(std::memory_order_seq_cst);
        const quint64 seen = word;
        word = m_words->word.load();
        if (word == seen) {
            return Finding::OwnerInside;
        }
    }
    return Finding::Free;
}

void WriteLease::clearOfOtherSet(int setId)
{
    quint64 word = m_words->word.load(std::memory_order_acquire);
    while (isLease(word) && !isOfSet(word, setId)
           && !m_words->word.compare_exchange_strong(word, 0)) { }
}

void WriteLease::clearLeftOver()
{
    if (m_words == nullptr) {
        return;
    }
    quint64 word = m_words->word.load(std::memory_order_relaxed);
    if (isInside(word)) {
        m_words->word.compare_exchange_strong(word, 0);
    }
}

quint32 WriteLease::newNumber()
{
    const quint32 number = m_words->lastNumber.fetch_add(1, std::memory_order_relaxed) + 1;
    return number != 0 ? number : m_words->lastNumber.fetch_add(1, std::memory_order_relaxed) + 1;
}

bool WriteLease::isDue(int setId)
{
    if (m_words == nullptr) {
        return false;
    }
    if (!isOwn() || m_locker == 0) {
        // Numbers of the parent are not those of its child.
        m_locker = newNumber();
        m_own.store(0, std::memory_order_relaxed);
        m_process.store(Identity::generation(), std::memory_order_relaxed);
    }
    if (m_words->lastLocker.load(std::memory_order_relaxed) != m_locker) {
        m_words->lastLocker.store(m_locker, std::memory_order_relaxed);
        m_inARow = 0;
    }
    ++m_inARow;
    return m_inARow > locksInARow && m_words->set.load(std::memory_order_relaxed) == setWord(setId)
           && m_words->wanted.load(std::memory_order_relaxed) != Lease::closed;
}

void WriteLease::begin(int setId)
{
    m_inARow = 0;
    const quint64 word = idleWord(setId, newNumber());
    // Closed stays closed.
    quint32 left = Lease::somebodyWaits;
    m_words->wanted.compare_exchange_strong(left, Lease::nobodyWaits);
    m_words->word.store(word + Lease::idleToInside, std::memory_order_release);
    m_own.store(word, std::memory_order_relaxed);
}

void WriteLease::setSemaphores(int setId)
{
    if (m_words != nullptr) {
        m_words->set.store(setWord(setId), std::memory_order_relaxed);
    }
}

bool WriteLease::isOwnerInside(const Words &words)
{
    return isInside(words.word.load(std::memory_order_acquire));
}

bool WriteLease::close(Words &words)
{
    words.wanted.store(Lease::closed);
    std::atomic_thread_fence(std::memory_order_seq_cst);
    return isOwnerInside(words);
}
