#include "recordings/RecordingHead.h"

#include "recordings/SetImage.h"
#include "text/WrittenJson.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cmath>

namespace {

QString textIn(const QJsonObject &object, const char *key)
{
    return object.value(QLatin1String(key)).toString();
}

/// Nothing if it is no whole number from 0 to @p most.
std::optional<quint64> numberIn(const QJsonObject &object, const char *key, double most)
{
    const double number = object.value(QLatin1String(key)).toDouble(-1);
    const bool isOne = number >= 0 && number <= most && std::floor(number) == number;
    return isOne ? std::make_optional(static_cast<quint64>(number)) : std::nullopt;
}

QJsonObject jsonOf(const RecordedValue &value)
{
    return {{QStringLiteral("url"), value.url},
            {QStringLiteral("type"), value.type},
            {QStringLiteral("unit"), value.unit},
            {QStringLiteral("size"), static_cast<double>(value.size)},
            {QStringLiteral("stateSize"), static_cast<double>(value.stateSize)},
            {QStringLiteral("bitmask"), static_cast<double>(value.bitmask)}};
}

std::optional<RecordedValue> valueFrom(const QJsonObject &json)
{
    const auto size = numberIn(json, "size", RecordingFormat::longestRecord);
    const auto stateSize = numberIn(json, "stateSize", RecordingFormat::stateSize);
    const auto bitmask = numberIn(json, "bitmask", 0xFFFFFFFFU);
    const bool hasStateSize = stateSize == 0U || stateSize == RecordingFormat::stateSize;
    if (size.value_or(0) == 0 || !hasStateSize || !bitmask) {
        return {};
    }
    return RecordedValue{textIn(json, "url"),
                         textIn(json, "type"),
                         textIn(json, "unit"),
                         static_cast<quint32>(*size),
                         static_cast<quint32>(*stateSize),
                         static_cast<quint32>(*bitmask)};
}

} // namespace

QByteArray headJson(const RecordingHead &head)
{
    QJsonArray values;
    for (const auto &value : head.values) {
        values.append(jsonOf(value));
    }
    const QJsonValue interval = head.interval
                                    ? QJsonValue(static_cast<double>(head.interval->count()))
                                    : QJsonValue(QJsonValue::Null);
    const QJsonObject object{{QStringLiteral("key"), head.key},
                             {QStringLiteral("fingerprint"), head.fingerprint},
                             {QStringLiteral("started"), head.started},
                             {QStringLiteral("urls"), QJsonArray::fromStringList(head.urls)},
                             {QStringLiteral("interval"), interval},
                             {QStringLiteral("values"), values}};
    return WrittenJson::withEscapedMarks(QJsonDocument(object).toJson(QJsonDocument::Compact));
}

std::optional<RecordingHead> headFromJson(const QByteArray &json)
{
    const QJsonDocument document = QJsonDocument::fromJson(json);
    const QJsonObject object = document.object();
    if (!document.isObject() || !object.value(QLatin1String("values")).isArray()) {
        return {};
    }
    RecordingHead head;
    head.key = textIn(object, "key");
    head.fingerprint = textIn(object, "fingerprint");
    head.started = textIn(object, "started");
    const QJsonArray urls = object.value(QLatin1String("urls")).toArray();
    for (const auto &url : urls) {
        head.urls.append(url.toString());
    }
    constexpr double longestInterval = 1e15;
    if (const auto interval = numberIn(object, "interval", longestInterval)) {
        head.interval = std::chrono::microseconds(*interval);
    }
    const QJsonArray values = object.value(QLatin1String("values")).toArray();
    for (const auto &value : values) {
        const auto known = valueFrom(value.toObject());
        if (!known) {
            return {};
        }
        head.values.append(*known);
    }
    return ImageLayout(head.values).size() <= ImageLayout::sm_mostBytes ? std::make_optional(head)
                                                                        : std::nullopt;
}
