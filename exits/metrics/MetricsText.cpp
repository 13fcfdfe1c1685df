#include "metrics/MetricsText.h"

#include "metrics/MetricsWriter.h"
#include "metrics/MirrorMetrics.h"
#include "states/StateTable.h"

#include <cmath>
#include <utility>
#include <vector>

namespace {

/// A decoded leaf of the set, with what all its lines begin with.
struct Sample
{
    const FollowedLeaf *leaf;
    QByteArray url; ///< url="..."
    ProcessValue value;
};

template <class Number>
QByteArray floatingText(Number number)
{
    if (std::isnan(number)) {
        return {};
    }
    if (std::isinf(number)) {
        return number < 0 ? "-Inf" : "+Inf";
    }
    return MetricsWriter::shortest(number);
}

/// Empty for what is no number.
QByteArray numberText(const QVariant &content)
{
    switch (content.userType()) {
    case QMetaType::Bool: return content.toBool() ? "1" : "0";
    case QMetaType::Float: return floatingText(content.toFloat());
    case QMetaType::Double: return floatingText(content.toDouble());
    case QMetaType::Int:
    case QMetaType::LongLong: return QByteArray::number(content.toLongLong());
    case QMetaType::UInt:
    case QMetaType::ULongLong: return QByteArray::number(content.toULongLong());
    default: return {};
    }
}

void writeRegion(MetricsWriter &writer, const RegionFollower &region)
{
    const QByteArray labels = MetricsWriter::label("region", region.key());
    writer.family("tessel_region_up", "", "gauge",
                  "1 while the region is there and its creator lives, else 0.");
    writer.line(labels, region.isUp() ? "1" : "0");
    // With the values of a set stand the count and the time of the same set.
    const bool hasSet = !region.set().isEmpty();
    if (const auto count = hasSet ? region.setCount() : region.swapCount()) {
        writer.family("tessel_region_swaps", "_total", "counter",
                      "Sets that were published into the region since it was made.");
        writer.line(labels, QByteArray::number(*count));
    }
    if (const auto time = hasSet ? region.setTime() : region.lastSwap()) {
        constexpr double millisecondsPerSecond = 1000;
        writer.family("tessel_region_last_swap_timestamp_seconds", "", "gauge",
                      "When the last set was published, in seconds since 1970.");
        writer.line(labels, MetricsWriter::shortest(double(time->toMSecsSinceEpoch())
                                                    / millisecondsPerSecond));
    }
}

QByteArray limitText(const std::optional<QVariant> &limit)
{
    return limit ? numberText(*limit) : QByteArray();
}

void writeLeaves(MetricsWriter &writer, const RegionFollower &region, const QVector<int> &leaves)
{
    writer.family("tessel_leaf", "_info", "info", "What the description says of the leaf.");
    for (const int index : leaves) {
        const FollowedLeaf &leaf = region.leaves()[index];
        QByteArray labels = MetricsWriter::label("url", leaf.url) + ','
                            + MetricsWriter::label("type", leaf.type) + ','
                            + MetricsWriter::label("unit", leaf.unit) + ','
                            + MetricsWriter::label("label", leaf.label);
        labels += ",read_only=\"" + QByteArray(leaf.isReadOnly ? "yes" : "no") + '"';
        labels += ",min=\"" + limitText(leaf.minLimit) + "\",max=\"" + limitText(leaf.maxLimit)
                  + "\",view_start=\"" + limitText(leaf.viewStart) + "\",view_end=\""
                  + limitText(leaf.viewEnd) + '"';
        writer.line(labels, "1");
    }
}

void writeValues(MetricsWriter &writer, const std::vector<Sample> &samples)
{
    writer.family("tessel_value", "", "gauge",
                  "The process value, in its unit; left out while it is not valid.");
    for (const auto &sample : samples) {
        const bool isValid = StateTable::rowOf(sample.value.getErrorType()).hasValue;
        const QByteArray number = isValid ? numberText(sample.value.getValue()) : QByteArray();
        if (!number.isEmpty()) {
            writer.line(sample.url + ',' + MetricsWriter::label("unit", sample.leaf->unit), number);
        }
    }
}

void writeStates(MetricsWriter &writer, const std::vector<Sample> &samples)
{
    writer.family("tessel_value_state", "", "stateset", "The error state by its name.");
    for (const auto &sample : samples) {
        for (const auto &row : StateTable::rows()) {
            writer.line(sample.url + ",tessel_value_state=\"" + row.name + '"',
                        row.state == sample.value.getErrorType() ? "1" : "0");
        }
    }
    writer.family("tessel_value_state_code", "", "gauge",
                  "The error state by its number, 0 for valid.");
    for (const auto &sample : samples) {
        writer.line(sample.url, QByteArray::number(static_cast<int>(sample.value.getErrorType())));
    }
}

std::vector<Sample> decode(const RegionFollower &region, const QVector<int> &leaves)
{
    std::vector<Sample> samples;
    samples.reserve(static_cast<std::size_t>(leaves.size()));
    for (const int index : leaves) {
        const FollowedLeaf &leaf = region.leaves()[index];
        if (leaf.element) {
            samples.push_back({&leaf, MetricsWriter::label("url", leaf.url), region.value(index)});
        }
    }
    return samples;
}

/// A media range of an Accept header.
struct MediaRange
{
    QByteArray type;
    QByteArray version;
    double quality = 1;
};

MediaRange rangeOf(const QByteArray &text)
{
    const QList<QByteArray> pieces = text.split(';');
    MediaRange range;
    range.type = pieces.first().trimmed().toLower();
    for (int i = 1; i < pieces.size(); ++i) {
        const int equals = pieces[i].indexOf('=');
        const QByteArray name = pieces[i].left(std::max(equals, 0)).trimmed().toLower();
        const QByteArray value = pieces[i].mid(equals + 1).trimmed().replace('"', "");
        bool isNumber = false;
        const double number = value.toDouble(&isNumber);
        if (name == "q") {
            range.quality = isNumber ? number : 0;
        } else if (name == "version") {
            range.version = value;
        }
    }
    return range;
}

/// 0: it does not take the plain text.
int closenessToPlain(const QByteArray &type)
{
    constexpr const char *types[] = {"*/*", "text/*", "text/plain"};
    for (int i = 0; i < 3; ++i) {
        if (type == types[i]) {
            return i + 1;
        }
    }
    return 0;
}

} // namespace

MetricsForm formAccepted(const QByteArray &accept)
{
    double open = 0;
    double plain = 0;
    int closest = 0;
    const QList<QByteArray> pieces = accept.split(',');
    for (const auto &piece : pieces) {
        const MediaRange range = rangeOf(piece);
        if (range.type == "application/openmetrics-text") {
            if (range.version.isEmpty() || range.version == "1.0.0") {
                open = std::max(open, range.quality);
            }
            continue;
        }
        // What names the type itself wins over what takes it among others.
        const int closeness = closenessToPlain(range.type);
        if (closeness > closest) {
            closest = closeness;
            plain = 0;
        }
        if (closeness > 0 && closeness == closest) {
            plain = std::max(plain, range.quality);
        }
    }
    return open > 0 && open >= plain ? MetricsForm::OpenMetrics : MetricsForm::Prometheus;
}

QByteArray contentTypeOf(MetricsForm form)
{
    return form == MetricsForm::OpenMetrics
               ? "application/openmetrics-text; version=1.0.0; charset=utf-8"
               : "text/plain; version=0.0.4; charset=utf-8";
}

bool MetricsChoice::holds(const QString &url) const
{
    return (taken.isEmpty() || taken.leadsTo(url)) && !left.leadsTo(url);
}

QVector<int> chosenLeaves(const RegionFollower &region, const MetricsChoice &choice)
{
    QVector<int> chosen;
    for (int i = 0; i < region.leaves().size(); ++i) {
        if (choice.holds(region.leaves()[i].url)) {
            chosen.append(i);
        }
    }
    return chosen;
}

QByteArray metricsText(RegionFollower &region, const QVector<int> &leaves, MetricsForm form,
                       const QStringList &mirrors)
{
    MetricsWriter writer(form);
    if (region.takeSet()) {
        const std::vector<Sample> samples = decode(region, leaves);
        writeValues(writer, samples);
        writeStates(writer, samples);
    }
    writeLeaves(writer, region, leaves);
    writeRegion(writer, region);
    writeMirrors(writer, mirrors);
    return writer.finish();
}
