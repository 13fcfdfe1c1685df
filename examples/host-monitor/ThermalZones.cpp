#include "ThermalZones.h"

#include "TextFile.h"

#include <QDir>

ThermalZones ThermalZones::read(const QString &directory)
{
    constexpr double millidegreesInDegree = 1000.0;
    ThermalZones zones;
    const QDir dir(directory);
    const auto names = dir.entryList({QStringLiteral("thermal_zone*")}, QDir::Dirs);
    for (const auto &name : names) {
        zones.isAny = true;
        const QString zone = dir.filePath(name);
        bool ok = false;
        const double temperature =
            readLine(zone + QStringLiteral("/temp")).value_or(QString()).toDouble(&ok)
            / millidegreesInDegree;
        if (ok && (!zones.hottest || temperature > zones.hottest->degreesCelsius)) {
            const QString type = readLine(zone + QStringLiteral("/type")).value_or(name);
            zones.hottest = ThermalZone{type, temperature};
        }
    }
    return zones;
}
