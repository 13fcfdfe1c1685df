#include "mirror/SilenceWatch.h"

void SilenceWatch::begin(quint64 count, Clock::time_point now)
{
    m_count = count;
    m_since = now;
}

std::optional<std::chrono::milliseconds> SilenceWatch::look(quint64 count,
                                                            std::optional<Clock::time_point> heard,
                                                            Clock::time_point now,
                                                            std::chrono::milliseconds bound)
{
    if (count != m_count) {
        begin(count, heard.value_or(now));
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(m_since + bound - now);
    return left > left.zero() ? std::make_optional(left) : std::nullopt;
}
