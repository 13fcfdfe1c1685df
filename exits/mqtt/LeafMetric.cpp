#include "mqtt/LeafMetric.h"

#include "mqtt/WireValue.h"
#include "states/StateTable.h"

namespace {

void addLimit(Metric &metric, const char *key, const std::optional<QVariant> &limit)
{
    bool isNumber = false;
    const double number = limit ? limit->toDouble(&isNumber) : 0;
    if (isNumber) {
        metric.properties.append({QString::fromLatin1(key), DataType::Double, number});
    }
}

/// `Quality` of Sparkplug B.
int qualityOf(ProcessDataDefinitions::ErrorTypes state)
{
    constexpr int good = 192;
    constexpr int stale = 500;
    constexpr int bad = 0;
    switch (state) {
    case ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID: return good;
    case ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_TIMEOUT: return stale;
    default: return bad;
    }
}

MetricProperty qualityOf(const ProcessValue &value)
{
    return {QStringLiteral("Quality"), DataType::Int32,
            wireValueOf(DataType::Int32, qualityOf(value.getErrorType()))};
}

} // namespace

QString LeafMetric::statePrefix()
{
    return QStringLiteral("State/");
}

Metric LeafMetric::birthOf(const FollowedLeaf &leaf, const ProcessValue &value, quint64 time)
{
    Metric metric = dataOf(leaf, value, time);
    metric.type = dataTypeOf(leaf.type);
    if (!leaf.unit.isEmpty()) {
        metric.properties.append({QStringLiteral("engUnit"), DataType::String, leaf.unit});
    }
    if (leaf.kind == FollowedLeaf::Kind::Number) {
        addLimit(metric, "engLow", leaf.minLimit);
        addLimit(metric, "engHigh", leaf.maxLimit);
    }
    return metric;
}

Metric LeafMetric::birthOfState(const FollowedLeaf &leaf, const ProcessValue &value, quint64 time)
{
    Metric metric = dataOfState(leaf, value, time);
    metric.type = DataType::String;
    return metric;
}

Metric LeafMetric::dataOf(const FollowedLeaf &leaf, const ProcessValue &value, quint64 time)
{
    Metric metric;
    metric.name = leaf.urlInDevice;
    metric.timestamp = time;
    if (StateTable::rowOf(value.getErrorType()).hasValue) {
        metric.value = wireValueOf(dataTypeOf(leaf.type), value.getValue());
    }
    metric.isNull = !metric.value.isValid();
    metric.properties.append(qualityOf(value));
    return metric;
}

Metric LeafMetric::dataOfState(const FollowedLeaf &leaf, const ProcessValue &value, quint64 time)
{
    Metric metric;
    metric.name = statePrefix() + leaf.urlInDevice;
    metric.timestamp = time;
    metric.value = StateTable::nameOf(value.getErrorType());
    return metric;
}
