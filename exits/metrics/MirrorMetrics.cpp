#include "metrics/MirrorMetrics.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMap>

#include <optional>

#include <fcntl.h>

namespace {

/// It is written each second; one that is as old is of a program that has ended or hangs. So is one as far
/// ahead, behind a clock that was set back.
constexpr qint64 oldestFile = 10000; // ms
constexpr qint64 mostBytes = qint64{4} * 1024 * 1024;
constexpr double millisecondsPerSecond = 1000;

using Objects = QMap<QByteArray, QJsonObject>; ///< by their labels

/// Whoever opens a pipe waits for its other end, and so would all who ask for metrics.
bool openWithoutWaiting(QFile &file, const QString &path)
{
    const int descriptor = ::open(QFile::encodeName(path).constData(),
                                  O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    return descriptor >= 0
           && file.open(descriptor, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle);
}

std::optional<QJsonObject> contentOf(const QString &path)
{
    QFile file;
    const QDateTime written = QFileInfo(path).lastModified();
    if (!written.isValid() || qAbs(written.msecsTo(QDateTime::currentDateTime())) > oldestFile
        || !QFileInfo(path).isFile() || !openWithoutWaiting(file, path)) {
        return {};
    }
    const QJsonDocument document = QJsonDocument::fromJson(file.read(mostBytes));
    return document.isObject() ? std::make_optional(document.object()) : std::nullopt;
}

QByteArray labelsOf(const QJsonObject &object, std::initializer_list<const char *> names)
{
    QByteArray labels;
    for (const char *const name : names) {
        labels += (labels.isEmpty() ? "" : ",")
                  + MetricsWriter::label(name, object.value(QLatin1String(name)).toString());
    }
    return labels;
}

void collect(const QJsonArray &array, std::initializer_list<const char *> names, Objects &objects)
{
    for (const auto &value : array) {
        const QJsonObject object = value.toObject();
        const QByteArray labels = labelsOf(object, names);
        if (!objects.contains(labels)) {
            objects.insert(labels, object);
        }
    }
}

/// One number of each object; those that have none are left out.
void writeNumber(MetricsWriter &writer, const Objects &objects, const char *key, double unit)
{
    for (auto object = objects.cbegin(); object != objects.cend(); ++object) {
        const QJsonValue number = object->value(QLatin1String(key));
        if (number.isDouble()) {
            writer.line(object.key(), MetricsWriter::shortest(number.toDouble() / unit));
        }
    }
}

void writeSources(MetricsWriter &writer, const Objects &sources)
{
    writer.family("tessel_mirror_source_state", "", "stateset",
                  "The state of a source by its name.");
    for (auto source = sources.cbegin(); source != sources.cend(); ++source) {
        const QString said = source->value(QLatin1String("state")).toString();
        for (const char *const state :
             {"live", "creator-gone", "region-replaced", "silent", "unknown"}) {
            writer.line(source.key() + ",tessel_mirror_source_state=\"" + state + '"',
                        said == QLatin1String(state) ? "1" : "0");
        }
    }
    writer.family("tessel_mirror_source_generation", "", "gauge",
                  "Swaps of the region of a source when it sent the newest.");
    writeNumber(writer, sources, "generation", 1);
    writer.family("tessel_mirror_source_rate", "", "gauge",
                  "Swaps of the region of a source a second, by its clock.");
    writeNumber(writer, sources, "rate", 1);
    writer.family("tessel_mirror_source_set_bytes", "", "gauge",
                  "Of the newest set of a source; 0 unless it is live.");
    writeNumber(writer, sources, "bytes", 1);
}

void writeReceivers(MetricsWriter &writer, const Objects &receivers)
{
    writer.family("tessel_mirror_receiver", "_info", "info",
                  "Which source a mirror shows; empty while all values are timeout.");
    for (auto receiver = receivers.cbegin(); receiver != receivers.cend(); ++receiver) {
        writer.line(receiver.key() + ',' + labelsOf(*receiver, {"source"}), "1");
    }
    writer.family("tessel_mirror_receiver_up", "", "gauge",
                  "1 while a mirror shows a source, else 0.");
    for (auto receiver = receivers.cbegin(); receiver != receivers.cend(); ++receiver) {
        writer.line(receiver.key(),
                    receiver->value(QLatin1String("source")).isString() ? "1" : "0");
    }
    writer.family("tessel_mirror_receiver_generation", "", "gauge",
                  "At the source, of the set that a mirror showed last.");
    writeNumber(writer, receivers, "generation", 1);
    writer.family("tessel_mirror_receiver_rate", "", "gauge",
                  "Sets that a mirror shows a second, by its clock.");
    writeNumber(writer, receivers, "rate", 1);
    writer.family("tessel_mirror_receiver_sets", "_total", "counter",
                  "Sets that a mirror has shown since its receiver was started.");
    writeNumber(writer, receivers, "sets", 1);
    writer.family("tessel_mirror_receiver_losses", "_total", "counter",
                  "Sets of a source between two that a mirror has shown.");
    writeNumber(writer, receivers, "losses", 1);
    writer.family("tessel_mirror_receiver_lag_seconds", "", "gauge",
                  "From reading the newest set at the source to its coming, by both clocks.");
    writeNumber(writer, receivers, "lag", millisecondsPerSecond);
}

} // namespace

void writeMirrors(MetricsWriter &writer, const QStringList &files)
{
    if (files.isEmpty()) {
        return;
    }
    Objects sources;
    Objects receivers;
    writer.family("tessel_mirror_up", "", "gauge",
                  "1 while the status file of a mirror is there and not old, else 0.");
    for (const auto &file : files) {
        const auto content = contentOf(file);
        writer.line(MetricsWriter::label("file", file), content ? "1" : "0");
        if (content) {
            collect(content->value(QLatin1String("sources")).toArray(),
                    {"region", "source", "host"}, sources);
            collect(content->value(QLatin1String("receivers")).toArray(),
                    {"region", "receiver", "host", "mirror"}, receivers);
        }
    }
    writeSources(writer, sources);
    writeReceivers(writer, receivers);
}
