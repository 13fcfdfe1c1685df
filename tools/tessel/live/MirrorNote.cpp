#include "live/MirrorNote.h"

#include "live/RegionText.h"
#include "text/JsonText.h"
#include "text/Output.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

/// More than anybody has to say there.
constexpr qint64 mostBytes = 64 * 1024;

QByteArray nameOf(const QString &key, const char *ending)
{
    return QFile::encodeName(QStringLiteral("/dev/shm/%1%2").arg(key, QLatin1String(ending)));
}

/// The content of a file that belongs to the owner of @p memory; empty if there is none.
QByteArray readBeside(const struct stat &memory, const QByteArray &name)
{
    // Neither a link nor something that waits for whoever opens it.
    const int descriptor = ::open(name.constData(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    if (descriptor < 0) {
        return {};
    }
    QFile file;
    struct stat status = {};
    const bool isUsable = file.open(descriptor, QIODevice::ReadOnly, QFile::AutoCloseHandle)
                          && ::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode)
                          && status.st_uid == memory.st_uid;
    // cppcheck-suppress resourceLeak ; the file closes it: a descriptor is always taken for reading
    return isUsable ? file.read(mostBytes) : QByteArray();
}

QStringList textsOf(const QJsonArray &values)
{
    QStringList texts;
    for (const auto &value : values) {
        texts.append(value.toString());
    }
    return texts;
}

} // namespace

std::optional<MirrorNote> MirrorNote::find(const QString &key)
{
    struct stat memory = {};
    if (key.isEmpty() || key.contains(QLatin1Char('/'))
        || ::lstat(nameOf(key, "SharedMemory").constData(), &memory) != 0) {
        return std::nullopt;
    }
    const QJsonObject said =
        QJsonDocument::fromJson(readBeside(memory, nameOf(key, "Mirror"))).object();
    if (said.value(QLatin1String("memory")).toString() != QString::number(memory.st_ino)) {
        return std::nullopt;
    }
    const QJsonObject source = said.value(QLatin1String("source")).toObject();
    return MirrorNote{key, said.value(QLatin1String("region")).toString(),
                      source.value(QLatin1String("host")).toString(),
                      source.value(QLatin1String("address")).toString(),
                      textsOf(said.value(QLatin1String("commands")).toArray())};
}

QString MirrorNote::text() const
{
    if (host.isEmpty()) {
        return QStringLiteral("mirror of '%1', whose source is not there").arg(region);
    }
    return address.isEmpty()
               ? QStringLiteral("mirror of '%1' of %2").arg(region, host)
               : QStringLiteral("mirror of '%1' of %2 (%3)").arg(region, host, address);
}

QString mirrorJson(const QString &key)
{
    const auto mirror = MirrorNote::find(key);
    if (!mirror) {
        return jsonNull();
    }
    QStringList patterns;
    for (const auto &pattern : mirror->commands) {
        patterns.append(jsonString(pattern));
    }
    const auto textOrNull = [](const QString &text) {
        return text.isEmpty() ? jsonNull() : jsonString(text);
    };
    return jsonObject({
        {QStringLiteral("region"), jsonString(mirror->region)},
        {QStringLiteral("host"), textOrNull(mirror->host)},
        {QStringLiteral("address"), textOrNull(mirror->address)},
        {QStringLiteral("commands"),
         QLatin1Char('[') + patterns.join(QStringLiteral(", ")) + QLatin1Char(']')},
    });
}

void noteWriteIntoMirror(const QString &key)
{
    const auto mirror = MirrorNote::find(key);
    if (!mirror) {
        return;
    }
    writeErrorLine(
        QStringLiteral("tessel: note: '%1' is the %2: %3")
            .arg(
                key, mirror->text(),
                mirror->commands.isEmpty()
                    ? QStringLiteral("what was written stays here until the next set of the source")
                    : QStringLiteral("the source is asked for what was written into %1; the log of "
                                     "'tessel mirror receive' has its answer")
                          .arg(mirror->commands.join(QLatin1String(", ")))));
}
