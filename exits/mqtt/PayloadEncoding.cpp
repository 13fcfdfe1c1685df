#include "mqtt/PayloadEncoding.h"

#include <limits>

#include <pb_encode.h>
#include <sparkplug.pb.h>

namespace {

/// Numbers of the fields that hold a value, in a metric or in a property.
struct ValueTags
{
    quint32 ofInt;
    quint32 ofLong;
    quint32 ofFloat;
    quint32 ofDouble;
    quint32 ofBoolean;
    quint32 ofString;
};

constexpr ValueTags metricTags{tessel_Metric_int_value_tag,     tessel_Metric_long_value_tag,
                               tessel_Metric_float_value_tag,   tessel_Metric_double_value_tag,
                               tessel_Metric_boolean_value_tag, tessel_Metric_string_value_tag};

constexpr ValueTags propertyTags{
    tessel_PropertyValue_int_value_tag,     tessel_PropertyValue_long_value_tag,
    tessel_PropertyValue_float_value_tag,   tessel_PropertyValue_double_value_tag,
    tessel_PropertyValue_boolean_value_tag, tessel_PropertyValue_string_value_tag};

/// A stream of the encoder that grows as it is written to, so that nothing can fail for want of room.
class Bytes
{
public:
    Bytes()
    {
        m_stream.callback = [](pb_ostream_t *stream, const pb_byte_t *bytes, size_t count) {
            static_cast<QByteArray *>(stream->state)
                ->append(reinterpret_cast<const char *>(bytes), static_cast<int>(count));
            return true;
        };
        m_stream.state = &m_bytes;
        m_stream.max_size = std::numeric_limits<size_t>::max();
    }

    Bytes(const Bytes &) = delete;
    Bytes &operator=(const Bytes &) = delete;

    const QByteArray &taken() const { return m_bytes; }

    void addNumber(quint32 tag, quint64 number)
    {
        pb_encode_tag(&m_stream, PB_WT_VARINT, tag);
        pb_encode_varint(&m_stream, number);
    }
    void addFloat(quint32 tag, float number)
    {
        pb_encode_tag(&m_stream, PB_WT_32BIT, tag);
        pb_encode_fixed32(&m_stream, &number);
    }
    void addDouble(quint32 tag, double number)
    {
        pb_encode_tag(&m_stream, PB_WT_64BIT, tag);
        pb_encode_fixed64(&m_stream, &number);
    }
    void addBytes(quint32 tag, const QByteArray &bytes)
    {
        pb_encode_tag(&m_stream, PB_WT_STRING, tag);
        pb_encode_string(&m_stream, reinterpret_cast<const pb_byte_t *>(bytes.constData()),
                         static_cast<size_t>(bytes.size()));
    }
    void addText(quint32 tag, const QString &text) { addBytes(tag, text.toUtf8()); }
    void addValue(const ValueTags &tags, const QVariant &value)
    {
        switch (value.userType()) {
        case QMetaType::UInt: addNumber(tags.ofInt, value.toUInt()); break;
        case QMetaType::ULongLong: addNumber(tags.ofLong, value.toULongLong()); break;
        case QMetaType::Float: addFloat(tags.ofFloat, value.toFloat()); break;
        case QMetaType::Double: addDouble(tags.ofDouble, value.toDouble()); break;
        case QMetaType::Bool: addNumber(tags.ofBoolean, value.toBool() ? 1 : 0); break;
        case QMetaType::QString: addText(tags.ofString, value.toString()); break;
        default: break;
        }
    }

private:
    QByteArray m_bytes;
    pb_ostream_t m_stream{};
};

QByteArray encodeProperties(const QVector<MetricProperty> &properties)
{
    Bytes bytes;
    for (const auto &property : properties) {
        bytes.addText(tessel_PropertySet_keys_tag, property.key);
    }
    for (const auto &property : properties) {
        Bytes value;
        value.addNumber(tessel_PropertyValue_type_tag, static_cast<quint32>(property.type));
        value.addValue(propertyTags, property.value);
        bytes.addBytes(tessel_PropertySet_values_tag, value.taken());
    }
    return bytes.taken();
}

QByteArray encodeMetric(const Metric &metric)
{
    Bytes bytes;
    if (!metric.name.isEmpty()) {
        bytes.addText(tessel_Metric_name_tag, metric.name);
    }
    if (metric.alias) {
        bytes.addNumber(tessel_Metric_alias_tag, *metric.alias);
    }
    if (metric.timestamp) {
        bytes.addNumber(tessel_Metric_timestamp_tag, *metric.timestamp);
    }
    if (metric.type != DataType::Unknown) {
        bytes.addNumber(tessel_Metric_datatype_tag, static_cast<quint32>(metric.type));
    }
    if (metric.isHistorical) {
        bytes.addNumber(tessel_Metric_is_historical_tag, 1);
    }
    if (metric.isNull) {
        bytes.addNumber(tessel_Metric_is_null_tag, 1);
    }
    if (!metric.properties.isEmpty()) {
        bytes.addBytes(tessel_Metric_properties_tag, encodeProperties(metric.properties));
    }
    if (!metric.isNull) {
        bytes.addValue(metricTags, metric.value);
    }
    return bytes.taken();
}

} // namespace

QByteArray encodePayload(const Payload &payload)
{
    Bytes bytes;
    if (payload.timestamp) {
        bytes.addNumber(tessel_Payload_timestamp_tag, *payload.timestamp);
    }
    for (const auto &metric : payload.metrics) {
        bytes.addBytes(tessel_Payload_metrics_tag, encodeMetric(metric));
    }
    if (payload.seq) {
        bytes.addNumber(tessel_Payload_seq_tag, *payload.seq);
    }
    return bytes.taken();
}
