#pragma once

#include "mqtt/NodeSettings.h"
#include "mqtt/Payload.h"
#include "region/RegionFollower.h"

#include <QElapsedTimer>
#include <QHash>

#include <functional>

/// The values of a region as the metrics of devices: what is told at a birth, and what is news since.
class NodeValues
{
public:
    /// Gives a message on; false if it could not.
    using Send = std::function<bool(const QString &device, const Payload &payload)>;

    /// Both have to live longer.
    NodeValues(RegionFollower &follower, const NodeSettings &settings);

    /// Takes the leaves of the follower anew.
    void takeLeaves();
    /// Those whose names can be a part of a topic.
    const QStringList &devices() const { return m_devices; }

    /// Milliseconds of a clock that goes on whatever is done to the time of day.
    qint64 now() const { return m_clock.elapsed(); }

    /// Everything of a device, which counts as told from then on.
    Payload birthOf(const QString &device);
    /// Has @p send have what is news, a message a device; what it could not give on stays news. With the
    /// names of the metrics, whatever the settings say of aliases. Gives the time of now() at which more
    /// will be news without a newer set; none if nothing waits.
    std::optional<qint64> report(qint64 now, const Send &send);
    /// Has everything count as told: what was so at the beginning is told at the birth, and no history.
    void takeAsTold();
    /// Has a leaf told with the next report, whatever its value is.
    void ask(int leaf) { m_reported[leaf].ask(); }

    /// The leaf that a metric of a command means, by its name or alias; -1 if there is none.
    int leafOf(const QString &device, const Metric &metric) const;
    /// What was born under names is told under aliases, where the settings want that. Drops metrics that
    /// were not born.
    Payload asData(const QString &device, const Payload &named) const;

private:
    void takeDevices();
    bool isStateNameTaken(const FollowedLeaf &leaf) const;
    Payload newsOf(const QString &device, qint64 now, QVector<int> &told,
                   std::optional<qint64> &next);
    quint64 timeOfSet() const;
    void warnOfNames() const;

    RegionFollower &m_follower;
    const NodeSettings &m_settings;
    QElapsedTimer m_clock;
    QStringList m_devices;
    QHash<QString, QVector<int>> m_leavesOf;
    /// By device and name.
    QHash<QPair<QString, QString>, int> m_leafByName;
    QVector<ReportedLeaf> m_reported;
};
