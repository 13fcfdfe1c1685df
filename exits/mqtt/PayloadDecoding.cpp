#include "mqtt/PayloadDecoding.h"

#include <QTextCodec>

#include <algorithm>

#include <pb_decode.h>
#include <sparkplug.pb.h>

namespace {

struct Problem
{
    QString text;
};

[[noreturn]] void refuse(const char *text)
{
    throw Problem{QString::fromLatin1(text)};
}

/// The fields of one message, one after the other.
class Fields
{
public:
    explicit Fields(const QByteArray &bytes)
        : m_bytes(bytes)
        , m_stream(pb_istream_from_buffer(reinterpret_cast<const pb_byte_t *>(m_bytes.constData()),
                                          static_cast<size_t>(m_bytes.size())))
    {
    }

    /// False behind the last one.
    bool next()
    {
        bool isEnd = false;
        if (!pb_decode_tag(&m_stream, &m_wireType, &m_tag, &isEnd) && isEnd) {
            return false;
        }
        if (m_tag == 0) {
            refuse("a field has no valid number");
        }
        return true;
    }

    quint32 tag() const { return m_tag; }

    quint64 number()
    {
        uint64_t number = 0;
        require(PB_WT_VARINT);
        check(pb_decode_varint(&m_stream, &number));
        return number;
    }
    /// As the encoding wants it: higher bits are dropped.
    quint32 shortNumber() { return static_cast<quint32>(number()); }
    float floatNumber()
    {
        float number = 0;
        require(PB_WT_32BIT);
        check(pb_decode_fixed32(&m_stream, &number));
        return number;
    }
    double doubleNumber()
    {
        double number = 0;
        require(PB_WT_64BIT);
        check(pb_decode_fixed64(&m_stream, &number));
        return number;
    }
    QByteArray bytes()
    {
        pb_istream_t inner{};
        require(PB_WT_STRING);
        check(pb_make_string_substream(&m_stream, &inner));
        QByteArray content(static_cast<int>(inner.bytes_left), '\0');
        check(pb_read(&inner, reinterpret_cast<pb_byte_t *>(content.data()), inner.bytes_left));
        check(pb_close_string_substream(&m_stream, &inner));
        return content;
    }
    QString text()
    {
        const QByteArray content = bytes();
        // U+FEFF at the beginning is a part of it.
        QTextCodec::ConverterState state(QTextCodec::IgnoreHeader);
        const QString text = QTextCodec::codecForName("UTF-8")->toUnicode(content.constData(),
                                                                          content.size(), &state);
        if (state.invalidChars > 0 || state.remainingChars > 0) {
            refuse("a text is no UTF-8");
        }
        return text;
    }
    void skip() { check(pb_skip_field(&m_stream, m_wireType)); }

private:
    void require(pb_wire_type_t type) const
    {
        if (m_wireType != type) {
            refuse("a field has another encoding than its number says");
        }
    }
    static void check(bool isRead)
    {
        if (!isRead) {
            refuse("a field is cut off");
        }
    }

    QByteArray m_bytes;
    pb_istream_t m_stream;
    pb_wire_type_t m_wireType = PB_WT_VARINT;
    quint32 m_tag = 0;
};

MetricProperty readProperty(const QByteArray &bytes)
{
    MetricProperty property;
    Fields fields(bytes);
    while (fields.next()) {
        switch (fields.tag()) {
        case tessel_PropertyValue_type_tag:
            property.type = static_cast<DataType>(fields.shortNumber());
            break;
        case tessel_PropertyValue_int_value_tag: property.value = fields.shortNumber(); break;
        case tessel_PropertyValue_long_value_tag:
            property.value = QVariant::fromValue<qulonglong>(fields.number());
            break;
        case tessel_PropertyValue_float_value_tag: property.value = fields.floatNumber(); break;
        case tessel_PropertyValue_double_value_tag: property.value = fields.doubleNumber(); break;
        case tessel_PropertyValue_boolean_value_tag: property.value = fields.number() != 0; break;
        case tessel_PropertyValue_string_value_tag: property.value = fields.text(); break;
        default: fields.skip(); break;
        }
    }
    return property;
}

/// As many as have a key and a value.
QVector<MetricProperty> readProperties(const QByteArray &bytes)
{
    QStringList keys;
    QVector<MetricProperty> properties;
    Fields fields(bytes);
    while (fields.next()) {
        switch (fields.tag()) {
        case tessel_PropertySet_keys_tag: keys.append(fields.text()); break;
        case tessel_PropertySet_values_tag: properties.append(readProperty(fields.bytes())); break;
        default: fields.skip(); break;
        }
    }
    properties.resize(std::min(properties.size(), keys.size()));
    for (int i = 0; i < properties.size(); ++i) {
        properties[i].key = keys[i];
    }
    return properties;
}

Metric readMetric(const QByteArray &bytes)
{
    Metric metric;
    Fields fields(bytes);
    while (fields.next()) {
        switch (fields.tag()) {
        case tessel_Metric_name_tag: metric.name = fields.text(); break;
        case tessel_Metric_alias_tag: metric.alias = fields.number(); break;
        case tessel_Metric_timestamp_tag: metric.timestamp = fields.number(); break;
        case tessel_Metric_datatype_tag:
            metric.type = static_cast<DataType>(fields.shortNumber());
            break;
        case tessel_Metric_is_historical_tag: metric.isHistorical = fields.number() != 0; break;
        case tessel_Metric_is_null_tag: metric.isNull = fields.number() != 0; break;
        case tessel_Metric_properties_tag:
            metric.properties = readProperties(fields.bytes());
            break;
        case tessel_Metric_int_value_tag: metric.value = fields.shortNumber(); break;
        case tessel_Metric_long_value_tag:
            metric.value = QVariant::fromValue<qulonglong>(fields.number());
            break;
        case tessel_Metric_float_value_tag: metric.value = fields.floatNumber(); break;
        case tessel_Metric_double_value_tag: metric.value = fields.doubleNumber(); break;
        case tessel_Metric_boolean_value_tag: metric.value = fields.number() != 0; break;
        case tessel_Metric_string_value_tag: metric.value = fields.text(); break;
        default: fields.skip(); break;
        }
    }
    return metric;
}

Payload readPayload(const QByteArray &bytes)
{
    Payload payload;
    Fields fields(bytes);
    while (fields.next()) {
        switch (fields.tag()) {
        case tessel_Payload_timestamp_tag: payload.timestamp = fields.number(); break;
        case tessel_Payload_seq_tag: payload.seq = fields.number(); break;
        case tessel_Payload_metrics_tag:
            if (payload.metrics.size() >= PayloadBounds::mostMetrics) {
                refuse("more metrics than are taken at once");
            }
            payload.metrics.append(readMetric(fields.bytes()));
            break;
        default: fields.skip(); break;
        }
    }
    return payload;
}

} // namespace

DecodedPayload decodePayload(const QByteArray &bytes, int most)
{
    if (bytes.size() > most) {
        return {{}, QStringLiteral("more bytes than are taken at once")};
    }
    try {
        return {readPayload(bytes), {}};
    } catch (const Problem &problem) {
        return {{}, problem.text};
    }
}
