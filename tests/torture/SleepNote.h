#pragma once

#include "torture/SharedLedger.h"

#include <atomic>
#include <optional>

namespace Torture {

/// The word by which publishers tell a waiter that it should be awake by now.
///
/// Lost is a wake-up exactly when somebody sleeps in the kernel although a set was published to its end
/// since then. That shows in two ways. The sleep runs out although somebody had come to the end of his
/// publishing before it could: both moments are read from one clock, each on the side that makes the loss
/// look smaller. Or a later publisher finds more asleep than there are without a note. How long anybody
/// had to wait for a processor plays no part in either.
///
///     63            44 43                       0
///     | number of the  | units of 10 us, 0: none |
///     | sleep          | yet                     |
class SleepNote
{
public:
    explicit SleepNote(std::atomic<quint64> &word) : m_word(word) { }

    /// By the waiter, before the call that sleeps.
    void begin() { m_word = ((m_word >> sm_timeBits) + 1) << sm_timeBits; }
    /// By the waiter, before begin().
    quint32 nextNumber() const { return number(((m_word >> sm_timeBits) + 1) << sm_timeBits); }
    /// By the waiter, behind it: nobody notes anything from now on.
    void end() { m_word.fetch_or(sm_timeMask); }
    /// By the waiter, between the two: whether somebody was done before @p time.
    bool isPublishedBefore(qint64 time) const
    {
        const quint64 noted = m_word & sm_timeMask;
        return noted != 0 && static_cast<qint64>(noted) * sm_unit < time;
    }

    /// By a publisher: what it hands to note(), before it looks at what the waiter has seen.
    quint64 current() const { return m_word; }
    static quint32 number(quint64 current) { return static_cast<quint32>(current >> sm_timeBits); }
    static bool isOpen(quint64 current) { return (current & sm_timeMask) == 0; }
    /// By a publisher that was done at @p time. Nothing if the sleep is another one by now.
    void note(quint64 current, qint64 time)
    {
        const auto rounded = static_cast<quint64>(time / sm_unit + 1);
        m_word.compare_exchange_strong(current, current | (rounded & sm_timeMask));
    }

private:
    static constexpr int sm_timeBits = 44;
    static constexpr quint64 sm_timeMask = (quint64{1} << sm_timeBits) - 1;
    static constexpr qint64 sm_unit = millisecond / 100;

    std::atomic<quint64> &m_word;
};

/// The word that says which sets are to end a sleep.
///
/// The thread behind a descriptor sleeps also while nobody wants to hear of a set. That rest no publisher
/// has to end, until another thread arms for it.
///
///     63                 33 32   31                  0
///     | number of the      |    | the sets behind     |
///     | sleep + 1          |rest| this swap           |
class WakeDue
{
public:
    explicit WakeDue(std::atomic<quint64> &word) : m_word(word) { }

    /// By the thread that sleeps, before it does.
    void begin(quint32 sleep, quint32 swap) { m_word = word(sleep) | swap; }
    void beginRest(quint32 sleep) { m_word = word(sleep) | sm_rest; }
    /// By another thread, which has armed for the sets behind @p swap. Nothing if the sleep is another one.
    void arm(quint32 sleep, quint32 swap)
    {
        quint64 current = m_word;
        if ((current & ~(sm_rest | sm_swap)) == word(sleep)) {
            m_word.compare_exchange_strong(current, word(sleep) | swap);
        }
    }
    /// Nothing if no set has to end the sleep.
    std::optional<quint32> swapOf(quint32 sleep) const
    {
        const quint64 current = m_word;
        return (current & ~sm_swap) == word(sleep)
                   ? std::make_optional(static_cast<quint32>(current & sm_swap))
                   : std::nullopt;
    }

private:
    static constexpr quint64 sm_swap = 0xFFFFFFFF;
    static constexpr quint64 sm_rest = quint64{1} << 32;

    static quint64 word(quint32 sleep) { return (quint64{sleep} + 1) << 33; }

    std::atomic<quint64> &m_word;
};

} // namespace Torture
