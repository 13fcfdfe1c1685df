#pragma once

#include <QtGlobal>

#include <chrono>
#include <optional>

/// Finds out how long nothing was published into a region, from looks at how often it was: by a clock that nobody sets.
class SilenceWatch
{
public:
    using Clock = std::chrono::steady_clock;

    /// Counts from @p now on, when @p count sets were published.
    void begin(quint64 count, Clock::time_point now);
    /// How long it is until nothing was published for @p bound; none: it is so already. @p heard: when somebody heard of
    /// the newest set, which is set @p count. Without that, a set counts from the look that found it.
    std::optional<std::chrono::milliseconds> look(quint64 count,
                                                  std::optional<Clock::time_point> heard,
                                                  Clock::time_point now,
                                                  std::chrono::milliseconds bound);

private:
    quint64 m_count = 0;
    Clock::time_point m_since{};
};
