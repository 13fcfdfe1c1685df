#include "expressions/Duration.h"

#include "expressions/ExactNumber.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace {

struct Unit
{
    const char *name;
    double microseconds;
};

/// The longer names first: each is the end of the text.
constexpr std::array<Unit, 4> units{{{"min", 60e6}, {"ms", 1e3}, {"h", 3600e6}, {"s", 1e6}}};

} // namespace

std::optional<std::chrono::microseconds> durationFromText(const QString &text)
{
    constexpr int mostCharacters = 40;
    const auto unit = std::find_if(units.cbegin(), units.cend(), [&](const Unit &each) {
        return text.endsWith(QLatin1String(each.name));
    });
    if (unit == units.cend() || text.size() > mostCharacters) {
        return {};
    }
    const auto number = ExactNumber::fromText(text.chopped(QLatin1String(unit->name).size()));
    if (!number || number->isNegative()) {
        return {};
    }
    const double length = std::round(number->toDouble() * unit->microseconds);
    const std::chrono::microseconds most = longestDuration;
    if (length > static_cast<double>(most.count())) {
        return {};
    }
    return std::chrono::microseconds(static_cast<std::int64_t>(length));
}

std::optional<std::chrono::microseconds> durationFromOption(const QString &text)
{
    const bool isBare = text.isEmpty() || text.at(text.size() - 1).isDigit();
    return durationFromText(isBare ? text + QLatin1Char('s') : text);
}

QString durationText(std::chrono::microseconds duration)
{
    const auto length = static_cast<double>(duration.count());
    const auto text = [&](const Unit &unit) {
        return QStringLiteral("%1 %2")
            .arg(length / unit.microseconds)
            .arg(QLatin1String(unit.name));
    };
    const bool isMinutes = duration.count() != 0 && duration.count() % 60000000 == 0;
    const bool isShort = duration.count() != 0 && duration < std::chrono::seconds(1);
    return isMinutes ? text(units[0]) : isShort ? text(units[1]) : text(units[3]);
}
