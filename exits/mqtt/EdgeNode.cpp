#include "mqtt/EdgeNode.h"

#include "mqtt/PayloadDecoding.h"
#include "mqtt/PayloadEncoding.h"
#include "service/Refusal.h"
#include "service/ServiceLog.h"

#include <limits>

namespace {

/// A session that stood for so long was a good one: the next attempt is made soon.
constexpr qint64 goodSession = 10000;
/// From one telling of all births to the next that somebody asks for.
constexpr int leastBirthInterval = 1000;
/// For the death and the leave to get through.
constexpr int longestLeave = 500;

void warnOfUnused(const QStringList &patterns, const char *key, const RegionFollower &region)
{
    QStringList urls;
    for (const auto &leaf : region.leaves()) {
        urls.append(leaf.url);
    }
    const QString unused = UrlChoice(patterns).findUnused(urls);
    if (!unused.isEmpty()) {
        ServiceLog::warning(QStringLiteral("%1 '%2' leads to no leaf of %3; 'tessel get' shows "
                                           "their URLs")
                                .arg(QLatin1String(key), unused, region.path()));
    }
}

} // namespace

EdgeNode::EdgeNode(RegionFollower &follower, const NodeSettings &settings, BirthCounter &counter,
                   HistoryRing &history, QObject *parent)
    : QObject(parent)
    , m_follower(follower)
    , m_settings(settings)
    , m_counter(counter)
    , m_history(history)
    , m_values(follower, settings)
    , m_commands(follower, m_values, settings)
    , m_backoff(settings.leastDelay, settings.longestDelay)
{
    for (QTimer *const timer : {&m_reconnect, &m_later, &m_rebirth, &m_leaving}) {
        timer->setSingleShot(true);
    }
    connect(&m_reconnect, &QTimer::timeout, this, &EdgeNode::connectToBroker);
    connect(&m_later, &QTimer::timeout, this, &EdgeNode::report);
    connect(&m_rebirth, &QTimer::timeout, this, &EdgeNode::giveBirthAgain);
    connect(&m_leaving, &QTimer::timeout, this,
            [this] { handleEnded(QStringLiteral("it did not take leave in time"), true); });
    connect(&follower, &RegionFollower::upChanged, this, &EdgeNode::handleUp);
    connect(&follower, &RegionFollower::setPublished, this, &EdgeNode::report);
    connect(&follower, &RegionFollower::leavesChanged, this, [this] { m_values.takeLeaves(); });
}

EdgeNode::~EdgeNode() = default;

void EdgeNode::start()
{
    warnOfUnused(m_settings.writablePatterns, "allow-write", m_follower);
    warnOfUnused(m_settings.rulePatterns, "report", m_follower);
    report();
    connectToBroker();
}

void EdgeNode::finish()
{
    if (m_stage == Stage::Finishing) {
        return;
    }
    m_reconnect.stop();
    leave(Stage::Finishing);
}

void EdgeNode::connectToBroker()
{
    m_session = m_counter.next();
    m_host.forget();
    Payload death;
    death.metrics.append(sessionMetric());
    const BrokerMessage will{topic("NDEATH"), encodePayload(death), 1};
    try {
        m_connection = std::make_unique<BrokerConnection>(broker(), will);
    } catch (const Refusal &refusal) {
        // Files may be mended while the program runs.
        handleEnded(refusal.text, false);
        return;
    }
    const BrokerConnection *const connection = m_connection.get();
    connect(connection, &BrokerConnection::connected, this, &EdgeNode::handleConnected);
    connect(connection, &BrokerConnection::subscribed, this, &EdgeNode::handleSubscribed);
    connect(connection, &BrokerConnection::received, this, &EdgeNode::handleMessage);
    connect(connection, &BrokerConnection::sent, this, &EdgeNode::handleSent);
    connect(connection, &BrokerConnection::ended, this, &EdgeNode::handleEnded);
}

void EdgeNode::handleConnected()
{
    if (m_stage != Stage::Away) {
        return;
    }
    QStringList topics{topic("NCMD"), topic("DCMD", QStringLiteral("+"))};
    if (!m_settings.primaryHost.isEmpty()) {
        topics.append(QStringLiteral("spBv1.0/STATE/") + m_settings.primaryHost);
    }
    m_connection->subscribe(topics);
}

void EdgeNode::handleSubscribed(bool isGranted)
{
    if (m_stage != Stage::Away) {
        return;
    }
    if (!isGranted) {
        ServiceLog::error(QStringLiteral("broker %1 does not let this node subscribe to its "
                                         "commands; give its user the right to")
                              .arg(brokerName()));
        leave(Stage::Leaving);
        return;
    }
    m_toldReason.clear();
    ServiceLog::notice(QStringLiteral("connected to broker %1 as node '%2' of group '%3'")
                           .arg(brokerName(), m_settings.node, m_settings.group));
    if (m_settings.primaryHost.isEmpty() || m_host.isOnline()) {
        giveBirth();
        return;
    }
    m_stage = Stage::Waiting;
    tellStatus(QStringLiteral("connected to broker %1, waiting for host '%2'")
                   .arg(brokerName(), m_settings.primaryHost));
}

void EdgeNode::handleEnded(const QString &reason, bool wasSent)
{
    // The object may be the sender of what is handled here.
    if (m_connection) {
        m_connection->disconnect(this);
        m_connection.release()->deleteLater();
    }
    m_leaving.stop();
    m_rebirth.stop();
    m_isRebirthDue = false;
    if (!wasSent) {
        m_counter.takeBack();
    }
    m_bornDevices.clear();
    if (m_stage == Stage::Finishing) {
        Q_EMIT finished();
        return;
    }
    if (m_stage == Stage::Born && m_sinceBirth.hasExpired(goodSession)) {
        m_backoff.reset();
    }
    const bool wasIntended = m_stage == Stage::Leaving;
    m_stage = Stage::Away;
    const QString said =
        QStringLiteral("no connection to broker %1: %2; trying again").arg(brokerName(), reason);
    if (!wasIntended && said != m_toldReason) {
        m_toldReason = said;
        ServiceLog::warning(said);
    }
    tellStatus(QStringLiteral("no connection to broker %1").arg(brokerName()));
    m_broker = (m_broker + 1) % m_settings.brokers.size();
    m_reconnect.start(m_backoff.next());
}

void EdgeNode::handleMessage(const QString &name, const QByteArray &bytes)
{
    if (m_stage == Stage::Leaving || m_stage == Stage::Finishing) {
        return;
    }
    if (name == QStringLiteral("spBv1.0/STATE/") + m_settings.primaryHost) {
        handleHost(m_host.take(bytes));
        return;
    }
    const bool isOfNode = name == topic("NCMD");
    const QString device = name.section(QLatin1Char('/'), 4);
    const DecodedPayload decoded = decodePayload(bytes);
    if (!decoded.payload) {
        m_commands.refuse(QStringLiteral("a command on %1 is no payload of Sparkplug B: %2")
                              .arg(name.left(200), decoded.problem));
    } else if (isOfNode) {
        handleNodeCommand(*decoded.payload);
    } else if (m_stage == Stage::Born && m_bornDevices.contains(device)) {
        m_commands.write(device, *decoded.payload);
        report();
    } else {
        m_commands.refuse(QStringLiteral("a command is refused: there is no device '%1' now")
                              .arg(device.left(200)));
    }
}

void EdgeNode::handleNodeCommand(const Payload &payload)
{
    if (!m_commands.isRebirth(payload) || m_stage != Stage::Born || m_rebirth.isActive()) {
        return;
    }
    // Until then no data is told.
    m_isRebirthDue = true;
    const qint64 elapsed = m_sinceBirth.elapsed();
    m_rebirth.start(elapsed >= leastBirthInterval ? 0 : int(leastBirthInterval - elapsed));
}

void EdgeNode::handleHost(HostState::Change change)
{
    if (change == HostState::Change::Online && m_stage == Stage::Waiting) {
        giveBirth();
        return;
    }
    // Where it can be waited for at one broker alone, it is waited for there.
    const bool isToBeLeft = m_stage == Stage::Born
                            || (m_stage == Stage::Waiting && m_settings.brokers.size() > 1);
    if (change == HostState::Change::Offline && isToBeLeft) {
        ServiceLog::notice(QStringLiteral("host '%1' went offline; leaving broker %2")
                               .arg(m_settings.primaryHost, brokerName()));
        leave(Stage::Leaving);
    }
}

void EdgeNode::handleSent()
{
    if (m_stage == Stage::Leaving || m_stage == Stage::Finishing) {
        // The death was the last message: what waits behind nothing has got through.
        if (m_connection && m_connection->queuedBytes() == 0) {
            m_connection->disconnectInOrder();
        }
        return;
    }
    // What found no room before.
    if (m_connection->queuedBytes() == 0 || !m_history.isEmpty()) {
        sendHistory();
        if (m_isHeldBack) {
            report();
        }
    }
}

void EdgeNode::giveBirthAgain()
{
    // Births are queued however much waits already; those that somebody asks for wait themselves.
    if (m_connection->queuedBytes() > m_settings.queueBytes) {
        m_rebirth.start(leastBirthInterval);
        return;
    }
    giveBirth();
}

void EdgeNode::leave(Stage next)
{
    const bool wasBorn = m_stage == Stage::Born;
    m_stage = next;
    m_rebirth.stop();
    if (!m_connection) {
        handleEnded({}, true);
        return;
    }
    m_leaving.start(longestLeave);
    Payload death;
    death.metrics.append(sessionMetric());
    const bool isTold = wasBorn
                        && m_connection->publish({topic("NDEATH"), encodePayload(death), 1},
                                                 std::numeric_limits<qint64>::max());
    if (!isTold) {
        m_connection->disconnectInOrder();
    }
}

void EdgeNode::handleUp(bool isUp)
{
    if (m_stage != Stage::Born) {
        return;
    }
    if (isUp) {
        giveBirthToDevices();
    } else {
        tellDevicesDead();
    }
}

QString EdgeNode::brokerName() const
{
    return QStringLiteral("%1:%2").arg(broker().host, QString::number(broker().port));
}

void EdgeNode::tellStatus(const QString &status)
{
    Q_EMIT statusChanged(status);
}
