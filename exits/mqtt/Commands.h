#pragma once

#include "mqtt/NodeValues.h"
#include "region/SetWriting.h"
#include "service/BoundedLog.h"

/// What commands of the plant do to values.
class Commands
{
public:
    /// All have to live longer.
    Commands(RegionFollower &follower, NodeValues &values, const NodeSettings &settings)
        : m_follower(follower)
        , m_values(values)
        , m_settings(settings)
    {
    }

    /// Writes what @p payload asks of @p device, as one set. What is refused is told in the log; it and what
    /// was written is told to the plant with the next report.
    void write(const QString &device, const Payload &payload);
    /// Whether @p payload asks for new births. What else is in it is told in the log.
    bool isRebirth(const Payload &payload);
    /// Tells in the log why a command is none.
    void refuse(const QString &line) { m_log.warning(line); }

    /// The metric that asks for new births.
    static QString rebirthName() { return QStringLiteral("Node Control/Rebirth"); }

private:
    /// Empty with a leaf and a value in @p write; the leaf is -1 if there is none.
    QString problemOf(const QString &device, const Metric &metric, LeafWrite &write) const;

    RegionFollower &m_follower;
    NodeValues &m_values;
    const NodeSettings &m_settings;
    BoundedLog m_log{60, std::chrono::seconds(60), QStringLiteral("commands that are refused")};
};
