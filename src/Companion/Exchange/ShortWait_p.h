#pragma once

#include <algorithm>
#include <chrono>

/// A wait on the processor for somebody who is about to leave, in front of a sleep in the kernel.
///
/// To be woken takes some ten microseconds, many times as long as most locks last. Two who want the lock
/// without a pause wake each other for every single one, once both of them sleep. Whoever waits as long
/// as a sleep would have cost at least loses no more than half by it.
class ShortWait
{
public:
    using Nanoseconds = std::chrono::nanoseconds;

    /// Looks at first every @p shortest, then ever more rarely down to every @p longest, and @p bound long
    /// altogether.
    ShortWait(Nanoseconds shortest, Nanoseconds longest, Nanoseconds bound)
        : m_next(shortest)
        , m_longest(longest)
        , m_left(bound)
    {
    }

    /// Passes the time to the next look. False, at once, if it is time to sleep, or where there is but one
    /// processor: nobody leaves while it is taken.
    bool passOn()
    {
        if (m_next > m_left || !hasSeveralProcessors()) {
            return false;
        }
        const auto end = std::chrono::steady_clock::now() + m_next;
        while (std::chrono::steady_clock::now() < end) { }
        m_left -= m_next;
        m_next = std::min(2 * m_next, m_longest);
        return true;
    }

private:
    static bool hasSeveralProcessors();

    Nanoseconds m_next;
    Nanoseconds m_longest;
    Nanoseconds m_left;
};
