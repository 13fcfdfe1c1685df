#include "PowerSupplies.h"

#include "TextFile.h"

#include <QDir>

PowerSupplies PowerSupplies::read(const QString &directory)
{
    PowerSupplies supplies;
    const QDir dir(directory);
    const auto names = dir.entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name);
    for (const auto &name : names) {
        const QString supply = dir.filePath(name);
        const QString type = readLine(supply + QStringLiteral("/type")).value_or(QString());
        if (type == QLatin1String("Mains")) {
            const auto online = readLine(supply + QStringLiteral("/online"));
            if (online) {
                supplies.isOnMains = supplies.isOnMains.value_or(false)
                                     || *online == QLatin1String("1");
            }
        } else if (type == QLatin1String("Battery") && !supplies.batteryPercent) {
            bool ok = false;
            const int percent =
                readLine(supply + QStringLiteral("/capacity")).value_or(QString()).toInt(&ok);
            if (ok) {
                supplies.batteryPercent = percent;
            }
        }
    }
    return supplies;
}
