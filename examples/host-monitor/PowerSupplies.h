#pragma once

#include <QString>

#include <optional>

/// Where the machine's power comes from.
struct PowerSupplies
{
    /// Whether it runs on mains; nothing if it has no supply that would tell.
    std::optional<bool> isOnMains;
    /// Charge of the first battery in percent; nothing without a battery.
    std::optional<int> batteryPercent;

    /// @p directory is /sys/class/power_supply, or one like it.
    static PowerSupplies read(const QString &directory);
};
