#include "mirror/MirrorMark.h"

#include "service/ServiceLog.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cerrno>
#include <cstdio>

#include <sys/stat.h>

namespace {

quint64 numberOfMemory(const QString &key)
{
    struct stat status = {};
    const QByteArray path = QFile::encodeName(QStringLiteral("/dev/shm/%1SharedMemory").arg(key));
    return ::stat(path.constData(), &status) == 0 ? status.st_ino : 0;
}

} // namespace

MirrorMark::MirrorMark(const QString &key, const QString &region, const QStringList &commands)
    : m_key(key)
    , m_region(region)
    , m_commands(commands)
    , m_path(QStringLiteral("/dev/shm/%1Mirror").arg(key))
    , m_memory(numberOfMemory(key))
{
    clearSource();
}

MirrorMark::~MirrorMark()
{
    // Another receiver may have taken the key meanwhile; what it says is not ours to remove.
    const quint64 memory = numberOfMemory(m_key);
    if (memory == 0 || memory == m_memory) {
        QFile::remove(m_path);
    }
}

void MirrorMark::setSource(const QString &host, const QString &address)
{
    write(host, address);
}

void MirrorMark::clearSource()
{
    write({}, {});
}

void MirrorMark::write(const QString &host, const QString &address)
{
    // Whoever removed the region meanwhile has removed this with it.
    if (numberOfMemory(m_key) != m_memory) {
        return;
    }
    const QJsonObject source{{QStringLiteral("host"), host}, {QStringLiteral("address"), address}};
    const QJsonObject mark{{QStringLiteral("region"), m_region},
                           {QStringLiteral("source"), host.isEmpty() ? QJsonValue() : source},
                           {QStringLiteral("commands"), QJsonArray::fromStringList(m_commands)},
                           {QStringLiteral("memory"), QString::number(m_memory)}};
    const QByteArray text = QJsonDocument(mark).toJson(QJsonDocument::Compact) + '\n';
    // Nobody sees half of it, and a link of somebody else is replaced and not followed.
    // What one that was killed here has left is the next one's to remove, or that of tessel rm.
    QFile file(m_path + QLatin1String(".new"));
    file.remove();
    const bool isWritten = file.open(QIODevice::WriteOnly | QIODevice::NewOnly)
                           && file.write(text) == text.size() && file.flush()
                           && ::fchmod(file.handle(), 0644) == 0
                           && ::rename(QFile::encodeName(file.fileName()).constData(),
                                       QFile::encodeName(m_path).constData())
                                  == 0;
    if (!isWritten) {
        const QString reason = qt_error_string(errno);
        file.remove();
        if (!m_isTold) {
            ServiceLog::warning(
                QStringLiteral("%1 cannot be written: %2; the tools do not say that "
                               "this region is a mirror")
                    .arg(m_path, reason));
        }
        m_isTold = true;
    }
}
