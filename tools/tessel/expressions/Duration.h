#pragma once

#include <QString>

#include <chrono>
#include <optional>

/// The longest time that a text can mean: 30 days.
constexpr std::chrono::hours longestDuration{24 * 30};

/// A time such as 500ms, 1.5s, 2min or 1h, to the microsecond. Nothing if it is none, has no unit, or is
/// longer than the longest one.
std::optional<std::chrono::microseconds> durationFromText(const QString &text);
/// The same of an option, where a number alone counts seconds.
std::optional<std::chrono::microseconds> durationFromOption(const QString &text);
/// "500 ms", "1.5 s", "2 min"
QString durationText(std::chrono::microseconds duration);
