#pragma once

#include <QString>

#include <optional>

/// The hottest of the machine's thermal zones.
struct ThermalZone
{
    QString name;
    double degreesCelsius;
};

/// Whether the machine has a thermal zone at all, and what the hottest one says.
struct ThermalZones
{
    bool isAny = false;
    /// Nothing if no zone could be read.
    std::optional<ThermalZone> hottest;

    /// @p directory is /sys/class/thermal, or one like it.
    static ThermalZones read(const QString &directory);
};
