#include "mqtt/NodeValues.h"

#include "mqtt/LeafMetric.h"
#include "mqtt/TopicName.h"
#include "service/ServiceLog.h"

#include <QDateTime>

#include <algorithm>

namespace {

// Of the whole node, as aliases have to be: an even one of the value of a leaf, an odd one of its state.

quint64 aliasOfValue(int leaf)
{
    return quint64(leaf) * 2;
}

quint64 aliasOfState(int leaf)
{
    return aliasOfValue(leaf) + 1;
}

} // namespace

NodeValues::NodeValues(RegionFollower &follower, const NodeSettings &settings)
    : m_follower(follower)
    , m_settings(settings)
{
    m_clock.start();
    takeLeaves();
}

void NodeValues::takeLeaves()
{
    takeDevices();
    m_leavesOf.clear();
    m_leafByName.clear();
    m_reported.clear();
    const auto &leaves = m_follower.leaves();
    for (int i = 0; i < leaves.size(); ++i) {
        m_leavesOf[leaves[i].device].append(i);
        m_leafByName.insert({leaves[i].device, leaves[i].urlInDevice}, i);
        m_reported.append(ReportedLeaf(m_settings.rules.ruleOf(leaves[i].url)));
    }
    warnOfNames();
}

Payload NodeValues::birthOf(const QString &device)
{
    Payload payload;
    const quint64 time = timeOfSet();
    const qint64 now = this->now();
    const QVector<int> leaves = m_leavesOf.value(device);
    for (const int i : leaves) {
        const FollowedLeaf &leaf = m_follower.leaves()[i];
        const ProcessValue value = m_follower.value(i);
        Metric metric = LeafMetric::birthOf(leaf, value, time);
        Metric state = LeafMetric::birthOfState(leaf, value, time);
        if (m_settings.hasAliases) {
            metric.alias = aliasOfValue(i);
            state.alias = aliasOfState(i);
        }
        payload.metrics.append(metric);
        if (!isStateNameTaken(leaf)) {
            payload.metrics.append(state);
        }
        m_reported[i].markTold(value, now);
    }
    return payload;
}

std::optional<qint64> NodeValues::report(qint64 now, const Send &send)
{
    std::optional<qint64> next;
    for (const auto &device : std::as_const(m_devices)) {
        QVector<int> told;
        const Payload payload = newsOf(device, now, told, next);
        if (told.isEmpty() || !send(device, payload)) {
            continue;
        }
        for (const int i : std::as_const(told)) {
            m_reported[i].markTold(m_follower.value(i), now);
        }
    }
    return next;
}

void NodeValues::takeAsTold()
{
    const qint64 now = this->now();
    for (int i = 0; i < m_reported.size(); ++i) {
        m_reported[i].markTold(m_follower.value(i), now);
    }
}

int NodeValues::leafOf(const QString &device, const Metric &metric) const
{
    if (!metric.name.isEmpty()) {
        return m_leafByName.value({device, metric.name}, -1);
    }
    const quint64 alias = metric.alias.value_or(1);
    const auto &leaves = m_follower.leaves();
    const bool isOfValue = m_settings.hasAliases && alias % 2 == 0
                           && alias / 2 < quint64(leaves.size())
                           && leaves[int(alias / 2)].device == device;
    return isOfValue ? int(alias / 2) : -1;
}

Payload NodeValues::asData(const QString &device, const Payload &named) const
{
    Payload payload = named;
    payload.metrics.clear();
    for (Metric metric : named.metrics) {
        int leaf = m_leafByName.value({device, metric.name}, -1);
        quint64 alias = aliasOfValue(leaf);
        if (leaf < 0 && metric.name.startsWith(LeafMetric::statePrefix())) {
            leaf = m_leafByName.value({device, metric.name.mid(LeafMetric::statePrefix().size())},
                                      -1);
            alias = aliasOfState(leaf);
        }
        if (leaf < 0) {
            continue;
        }
        if (m_settings.hasAliases) {
            metric.name.clear();
            metric.alias = alias;
        }
        payload.metrics.append(metric);
    }
    return payload;
}

bool NodeValues::isStateNameTaken(const FollowedLeaf &leaf) const
{
    return m_leafByName.contains({leaf.device, LeafMetric::statePrefix() + leaf.urlInDevice});
}

Payload NodeValues::newsOf(const QString &device, qint64 now, QVector<int> &told,
                           std::optional<qint64> &next)
{
    Payload payload;
    const quint64 time = timeOfSet();
    const QVector<int> leaves = m_leavesOf.value(device);
    for (const int i : leaves) {
        const ProcessValue value = m_follower.value(i);
        const auto due = m_reported[i].dueTime(value);
        if (!due) {
            continue;
        }
        if (*due > now) {
            next = std::min(next.value_or(*due), *due);
            continue;
        }
        const FollowedLeaf &leaf = m_follower.leaves()[i];
        const auto &former = m_reported[i].told();
        const bool isOtherState = !former || former->getErrorType() != value.getErrorType();
        payload.metrics.append(LeafMetric::dataOf(leaf, value, time));
        if (isOtherState && !isStateNameTaken(leaf)) {
            payload.metrics.append(LeafMetric::dataOfState(leaf, value, time));
        }
        told.append(i);
    }
    return payload;
}

quint64 NodeValues::timeOfSet() const
{
    const auto &time = m_follower.setTime();
    return quint64(time ? time->toMSecsSinceEpoch() : QDateTime::currentMSecsSinceEpoch());
}

void NodeValues::takeDevices()
{
    m_devices.clear();
    const QStringList devices = m_follower.devices();
    for (const auto &device : devices) {
        const QString problem = TopicName::problemOf(device);
        if (problem.isEmpty()) {
            m_devices.append(device);
        } else {
            ServiceLog::warning(QStringLiteral("device '%1' of %2 is left out: its name %3; give "
                                               "its file or folder another one")
                                    .arg(device, m_follower.path(), problem));
        }
    }
}

void NodeValues::warnOfNames() const
{
    QHash<QPair<QString, QString>, QString> seen;
    for (const auto &leaf : m_follower.leaves()) {
        const QPair<QString, QString> folded{leaf.device, leaf.urlInDevice.toCaseFolded()};
        if (seen.contains(folded)) {
            ServiceLog::warning(
                QStringLiteral("'%1' and '%2' differ in upper and lower case alone; "
                               "a host may take them for one metric")
                    .arg(seen.value(folded), leaf.url));
        }
        seen.insert(folded, leaf.url);
        if (isStateNameTaken(leaf)) {
            ServiceLog::warning(
                QStringLiteral("the state of '%1' is not told: another leaf has its "
                               "name, '%2%3'")
                    .arg(leaf.url, LeafMetric::statePrefix(), leaf.urlInDevice));
        }
    }
}
