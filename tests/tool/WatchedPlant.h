#pragma once

#include "HeldRegion.h"
#include "TmuxTerminal.h"

#include <memory>

/// A plant of which the test is the publisher.
class WatchedPlant
{
public:
    WatchedPlant()
    {
        const auto unit = [](const char *text) {
            return QJsonObject{{QStringLiteral("unit"), QString::fromUtf8(text)}};
        };
        m_description.add(QStringLiteral("pump/speed"), QStringLiteral("int32"),
                          ToolDescription::Metadata::ErrorState, 4, unit("rpm"));
        m_description.add(QStringLiteral("pump/flow"), QStringLiteral("double"),
                          ToolDescription::Metadata::ErrorState, 8, unit("m³/h"));
        m_description.add(QStringLiteral("tank/name"), QStringLiteral("string"),
                          ToolDescription::Metadata::ErrorState, 64);
        file = m_description.write();
        open();
    }

    void open()
    {
        m_region = std::make_unique<HeldRegion>(file);
        for (const char *url : {"pump/speed", "pump/flow"}) {
            m_region->write(QLatin1String(url), validValue(1));
        }
        m_region->write(QStringLiteral("tank/name"), validValue(QStringLiteral("east")));
        m_region->manager().swapReadAndWriteBuffer();
    }
    void close() { m_region.reset(); }

    bool publish(int speed)
    {
        return m_region->publish(QStringLiteral("pump/speed"), validValue(speed));
    }
    bool publish(const QString &url, const ProcessValue &value)
    {
        return m_region->publish(url, value);
    }
    QString key() const { return m_description.key(); }

    QString file;

private:
    ToolDescription m_description;
    std::unique_ptr<HeldRegion> m_region;
};

/// The full screen on it, in a shell that tells how it ended.
inline QString screenCommand(const WatchedPlant &plant)
{
    return QStringLiteral("'%1' watch --tui '%2'; echo ended $?")
        .arg(QStringLiteral(TESSEL_TOOL), plant.file);
}
