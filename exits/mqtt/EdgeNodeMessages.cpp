// What an edge node tells the plant: births, data, what has waited for the broker.

#include "mqtt/EdgeNode.h"
#include "mqtt/PayloadDecoding.h"
#include "mqtt/PayloadEncoding.h"

#include <QDateTime>

#include <algorithm>
#include <limits>

namespace {

/// Metrics of an entry of the ring, which is dropped as a whole.
constexpr int mostKeptTogether = 250;

} // namespace

void EdgeNode::giveBirth()
{
    m_stage = Stage::Born;
    m_isRebirthDue = false;
    m_sequence = 0;
    m_sinceBirth.start();
    Payload birth;
    birth.metrics.append(sessionMetric());
    Metric rebirth;
    rebirth.name = Commands::rebirthName();
    rebirth.type = DataType::Boolean;
    rebirth.value = false;
    rebirth.timestamp = birth.metrics.first().timestamp;
    birth.metrics.append(rebirth);
    publish("NBIRTH", {}, birth, std::numeric_limits<qint64>::max());
    tellStatus(QStringLiteral("connected to broker %1").arg(brokerName()));
    giveBirthToDevices();
}

void EdgeNode::giveBirthToDevices()
{
    m_bornDevices.clear();
    if (!m_follower.isUp() || !m_follower.takeSet()) {
        return;
    }
    m_isFirstSet = false;
    for (const auto &device : m_values.devices()) {
        publish("DBIRTH", device, m_values.birthOf(device), std::numeric_limits<qint64>::max());
        m_bornDevices.append(device);
    }
    sendHistory();
}

void EdgeNode::tellDevicesDead()
{
    for (const auto &device : std::as_const(m_bornDevices)) {
        publish("DDEATH", device, {}, std::numeric_limits<qint64>::max());
    }
    m_bornDevices.clear();
}

void EdgeNode::report()
{
    const bool isLeaving = m_stage == Stage::Leaving || m_stage == Stage::Finishing;
    if (isLeaving || m_isRebirthDue || !m_follower.isUp() || !m_follower.takeSet()) {
        return;
    }
    // A device that is up and was not born had no consistent set then.
    if (m_stage == Stage::Born && m_bornDevices.isEmpty()) {
        giveBirthToDevices();
        return;
    }
    if (m_stage != Stage::Born && m_isFirstSet) {
        m_isFirstSet = false;
        m_values.takeAsTold();
        return;
    }
    const qint64 now = m_values.now();
    m_isHeldBack = false;
    const auto next = m_values.report(now, [this](const QString &device, const Payload &news) {
        if (m_stage == Stage::Born) {
            const bool isSent = publish("DDATA", device, m_values.asData(device, news),
                                        m_settings.queueBytes);
            m_isHeldBack = m_isHeldBack || !isSent;
            return isSent;
        }
        keep(device, news);
        return true;
    });
    if (next) {
        m_later.start(static_cast<int>(std::max(*next - now, qint64{1})));
    }
}

void EdgeNode::keep(const QString &device, const Payload &news)
{
    for (int from = 0; from < news.metrics.size(); from += mostKeptTogether) {
        Payload piece;
        piece.metrics = news.metrics.mid(from, mostKeptTogether);
        for (auto &metric : piece.metrics) {
            metric.isHistorical = true;
        }
        m_history.add({device, encodePayload(piece)});
    }
}

void EdgeNode::sendHistory()
{
    while (m_stage == Stage::Born && !m_isRebirthDue && !m_history.isEmpty()
           && !m_bornDevices.isEmpty()) {
        const HistoryRing::Entry &entry = m_history.first();
        // Of its own making: what others may send is bounded further.
        const DecodedPayload decoded = decodePayload(entry.payload, entry.payload.size());
        const Payload payload = decoded.payload ? m_values.asData(entry.device, *decoded.payload)
                                                : Payload();
        // Of a device that the description does not have any more, nothing is left.
        const bool isKnown = m_bornDevices.contains(entry.device) && !payload.metrics.isEmpty();
        if (isKnown && !publish("DDATA", entry.device, payload, m_settings.queueBytes)) {
            return;
        }
        m_history.removeFirst();
    }
}

QString EdgeNode::topic(const char *type, const QString &device) const
{
    const QString name = QStringLiteral("spBv1.0/%1/%2/%3")
                             .arg(m_settings.group, QString::fromLatin1(type), m_settings.node);
    return device.isEmpty() ? name : name + QLatin1Char('/') + device;
}

Metric EdgeNode::sessionMetric() const
{
    Metric metric;
    metric.name = QStringLiteral("bdSeq");
    metric.type = DataType::Int64;
    metric.timestamp = quint64(QDateTime::currentMSecsSinceEpoch());
    metric.value = static_cast<qulonglong>(m_session);
    return metric;
}

bool EdgeNode::publish(const char *type, const QString &device, Payload payload, qint64 mostQueued)
{
    constexpr int numbers = 256;
    payload.timestamp = quint64(QDateTime::currentMSecsSinceEpoch());
    payload.seq = quint64(m_sequence);
    if (!m_connection
        || !m_connection->publish({topic(type, device), encodePayload(payload), 0}, mostQueued)) {
        return false;
    }
    m_sequence = (m_sequence + 1) % numbers;
    return true;
}
