#pragma once

#include "mirror/SourceState.h"

#include <chrono>
#include <optional>

/// Decides for one source what is said of its region, and when: each set once, as often as the rate allows, and the newest
/// again each second, which counts as a set by the rate.
///
/// Knows neither clock nor engine: callers say what time it is. For one thread at a time.
class SendingPlan
{
public:
    using Clock = std::chrono::steady_clock;

    /// @p leastInterval: from one set to the next.
    explicit SendingPlan(std::chrono::milliseconds leastInterval) : m_leastInterval(leastInterval)
    {
    }

    /// What comes is of a region that was not followed before.
    void beginRegion();

    enum class Answer {
        Leave, ///< It was said already, or came before the silence that was told.
        Say,   ///< It is the newest, and the publisher is at work.
        Revive ///< The same, of a publisher who was told to be silent.
    };
    /// The newest set was read at @p now.
    Answer take(quint64 generation, Clock::time_point now);
    void tell(SourceState state) { m_state = state; }
    /// Nobody has published behind @p generation. False, and nothing changed, if that is no longer so.
    bool tellSilent(quint64 generation);
    /// It was said, or there was no room for it.
    void noteSaid(bool hasFoundRoom, Clock::time_point now);

    SourceState state() const { return m_state; }
    quint32 attachment() const { return m_attachment; }
    /// Of the set that is said.
    quint64 generation() const { return m_generation; }
    /// When that was read; none of another one.
    std::optional<Clock::time_point> readAt(quint64 generation) const;

    /// Until then no set may be said, by the rate, nor before the interval behind @p since is over.
    Clock::time_point nextTurn(Clock::time_point since) const;
    /// When what was said last is said again. @p newest: generation of the newest set; one that waits for its turn goes
    /// first, unless it does not come.
    Clock::time_point nextAgain(quint64 newest) const;

private:
    std::chrono::milliseconds m_leastInterval;
    SourceState m_state = SourceState::CreatorGone;
    quint32 m_attachment = 0;
    quint64 m_generation = 0;
    quint64 m_silentBehind = 0; ///< while the state is Silent
    Clock::time_point m_readAt{};
    Clock::time_point m_setSaidAt{};
    Clock::time_point m_saidAt{}; ///< be it a set or not
    bool m_isWaitingForRoom = false;
};
