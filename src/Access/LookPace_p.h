#pragma once

#include <QtGlobal>

#include <chrono>

/// How often somebody looks for a new set whom its publishers do not know of.
///
/// A look comes late by an eighth of the age of the set at most. Where sets come at a steady interval, looks
/// are closer together around the moment at which the next one is due.
class LookPace
{
public:
    using Clock = std::chrono::steady_clock;
    using Nanoseconds = std::chrono::nanoseconds;

    static constexpr Nanoseconds sm_shortest{200000};
    static constexpr Nanoseconds sm_longest{20000000};

    explicit LookPace(Clock::time_point begin) : m_since(begin) { }

    /// @p generation is what a look has found @p now.
    void note(quint64 generation, Clock::time_point now);
    /// From @p now to the next look.
    Nanoseconds pause(Clock::time_point now) const;

private:
    quint64 m_generation = 0;
    Clock::time_point m_since;  ///< when that was first seen
    Nanoseconds m_interval{-1}; ///< between the sets before; negative while it is not known
    bool m_hasSeenOne = false;
};
