#pragma once

#include "expressions/Expectation.h"
#include "live/LiveRegion.h"

#include <chrono>
#include <optional>

/// For how long something is to hold, and for how long it is waited for.
struct ExpectationBounds
{
    std::chrono::microseconds hold{0};
    /// None: what does not hold ends it at once.
    std::optional<std::chrono::microseconds> timeout;
};

/// How a watch ended.
struct ExpectationOutcome
{
    enum class End { Met, NotMet, TimedOut };

    End end;
    /// The set that was looked at last.
    ExpectedSet set;
    ExpectationResult result;
    std::optional<quint64> generation; ///< of the set, in a double buffer
    /// How long it had held without a break when it ended.
    std::chrono::microseconds held{0};
};

/// Looks at an expectation, set after set, until it is met or cannot be met any more.
///
/// Comes with each set that is published, and, where nobody tells of what changes, again and again. A region
/// that is missing, removed or replaced is waited for only within a timeout.
class ExpectationWatch
{
public:
    ExpectationWatch(const DescriptionSource &description, const Expectation &expectation,
                     const ExpectationBounds &bounds);

    /// A Failure where there was no set to look at.
    ExpectationOutcome run();

private:
    using Clock = std::chrono::steady_clock;

    void awaitRegion() const;
    bool mayHaveVanished(ExitCode code) const;
    std::optional<ExpectationOutcome> follow(LiveRegion &region);
    ExpectationOutcome look(LiveRegion &region);
    void awaitLock(const LiveRegion &region) const;
    void readWithAge(LiveRegion &region, ExpectedSet &set, Clock::time_point formerLook);
    bool isEnd(ExpectationOutcome &seen);
    Clock::time_point nextLook() const;

    const DescriptionSource &m_description;
    const Expectation &m_expectation;
    const ExpectationBounds m_bounds;
    const bool m_isPolled;
    const Clock::time_point m_deadline;
    std::optional<Clock::time_point> m_holdsSince;

    Clock::time_point m_lookBegan;
    quint64 m_generation = 0; ///< of the last look
    /// When the set before that one was still seen.
    std::optional<Clock::time_point> m_publishedAfter;
};
