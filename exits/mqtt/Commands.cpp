#include "mqtt/Commands.h"

#include "mqtt/WireValue.h"
#include "region/WriteCheck.h"

namespace {

/// Lines in the log for one message.
constexpr int mostLines = 5;

QString nameOf(const Metric &metric)
{
    if (!metric.name.isEmpty()) {
        return QLatin1Char('\'') + metric.name.left(200) + QLatin1Char('\'');
    }
    return metric.alias ? QStringLiteral("alias %1").arg(*metric.alias)
                        : QStringLiteral("a metric without name");
}

class RefusalLines
{
public:
    explicit RefusalLines(BoundedLog &log) : m_log(log) { }
    void add(const QString &line)
    {
        if (++m_count <= mostLines) {
            m_log.warning(line);
        }
    }
    ~RefusalLines()
    {
        if (m_count > mostLines) {
            m_log.warning(QStringLiteral("a command: %1 more metrics of it are refused")
                              .arg(m_count - mostLines));
        }
    }

    RefusalLines(const RefusalLines &) = delete;
    RefusalLines &operator=(const RefusalLines &) = delete;

private:
    BoundedLog &m_log;
    int m_count = 0;
};

} // namespace

void Commands::write(const QString &device, const Payload &payload)
{
    QVector<LeafWrite> writes;
    RefusalLines refused(m_log);
    for (const auto &metric : payload.metrics) {
        LeafWrite write{-1, {ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID}};
        const QString problem = problemOf(device, metric, write);
        if (problem.isEmpty()) {
            writes.append(write);
        } else {
            refused.add(QStringLiteral("a command to write %1 of device '%2' is refused: %3")
                            .arg(nameOf(metric), device, problem));
        }
        if (write.leaf >= 0) {
            m_values.ask(write.leaf);
        }
    }
    const SetWriting writing = writes.isEmpty() ? SetWriting()
                                                : SetWriting::publish(m_follower, writes);
    if (!writing.problem.isEmpty()) {
        m_log.error(
            QStringLiteral("a command to write %1 values of device '%2' could not be carried "
                           "out: %3")
                .arg(writes.size())
                .arg(device, writing.problem));
    }
}

bool Commands::isRebirth(const Payload &payload)
{
    bool isAsked = false;
    RefusalLines refused(m_log);
    for (const auto &metric : payload.metrics) {
        if (metric.name == rebirthName() && metric.value.userType() == QMetaType::Bool) {
            isAsked = isAsked || metric.value.toBool();
        } else {
            refused.add(
                QStringLiteral("a command to the node is refused: %1 is none that it knows; "
                               "'%2', a boolean, is")
                    .arg(nameOf(metric), rebirthName()));
        }
    }
    return isAsked;
}

QString Commands::problemOf(const QString &device, const Metric &metric, LeafWrite &write) const
{
    write.leaf = m_values.leafOf(device, metric);
    if (write.leaf < 0) {
        return QStringLiteral("there is no such leaf");
    }
    const FollowedLeaf &leaf = m_follower.leaves()[write.leaf];
    if (!m_settings.writable.leadsTo(leaf.url)) {
        return QStringLiteral("the configuration does not allow it; 'allow-write = %1' does")
            .arg(leaf.url);
    }
    const DataType type = dataTypeOf(leaf.type);
    const QVariant value = metric.isNull ? QVariant() : valueOfWire(type, metric.value);
    write.value = {value, ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID};
    const bool isOtherType = metric.type != DataType::Unknown && metric.type != type;
    if (!value.isValid() || isOtherType) {
        return QStringLiteral("it holds no value of type %1").arg(dataTypeName(type));
    }
    return problemOfWrite(leaf, value);
}
