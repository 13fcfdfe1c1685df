#include "mqtt/HistoryRing.h"

#include "service/Refusal.h"
#include "service/ServiceLog.h"

#include <QDataStream>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLockFile>

namespace {

/// What an entry costs beside its payload, about.
constexpr qint64 overhead = 64;

qint64 sizeOf(const HistoryRing::Entry &entry)
{
    return overhead + entry.device.size() * qint64{2} + entry.payload.size();
}

quint16 sumOf(const QByteArray &content)
{
    return qChecksum(content.constData(), static_cast<uint>(content.size()));
}

QByteArray bytesOf(const HistoryRing::Entry &entry)
{
    QByteArray content;
    QDataStream fields(&content, QIODevice::WriteOnly);
    fields << entry.device << entry.payload;
    QByteArray record;
    QDataStream parts(&record, QIODevice::WriteOnly);
    parts << content << sumOf(content);
    return record;
}

} // namespace

HistoryRing::HistoryRing(qint64 mostBytes, const QString &folder)
    : m_most(mostBytes)
    , m_folder(folder)
{
    if (m_folder.isEmpty()) {
        return;
    }
    takeFolder();
    readFile(olderFile());
    readFile(newerFile());
}

HistoryRing::~HistoryRing() = default;

void HistoryRing::takeFolder()
{
    if (!QDir().mkpath(m_folder) || !QFileInfo(m_folder).isWritable()) {
        throw Refusal{ExitCode::NoAccess,
                      QStringLiteral("%1: this folder for what waits to be sent cannot be written "
                                     "to; name another one with 'history-dir'")
                          .arg(m_folder)};
    }
    m_lock = std::make_unique<QLockFile>(QDir(m_folder).filePath(QStringLiteral("lock")));
    m_lock->setStaleLockTime(0);
    // On a full disk there is no lock, and nobody else has the folder.
    if (!m_lock->tryLock() && m_lock->error() == QLockFile::LockFailedError) {
        throw Refusal{ExitCode::NoAccess,
                      QStringLiteral("%1: another node keeps what waits to be sent in this folder "
                                     "already; name another one with 'history-dir'")
                          .arg(m_folder)};
    }
}

void HistoryRing::add(const Entry &entry)
{
    if (sizeOf(entry) > m_most) {
        ++m_dropped;
        return;
    }
    addToMemory(entry);
    if (!m_folder.isEmpty()) {
        addToDisk(entry);
    }
}

void HistoryRing::removeFirst()
{
    m_bytes -= sizeOf(m_entries.front());
    m_entries.pop_front();
    if (m_entries.empty()) {
        removeFiles();
    }
}

void HistoryRing::clear()
{
    m_entries.clear();
    m_bytes = 0;
    removeFiles();
}

// Which is the older one is said by their names: a clock may have been set back in between.

QString HistoryRing::olderFile() const
{
    return QDir(m_folder).filePath(QStringLiteral("history.0"));
}

QString HistoryRing::newerFile() const
{
    return QDir(m_folder).filePath(QStringLiteral("history.1"));
}

void HistoryRing::readFile(const QString &path)
{
    QFile file(path);
    if (file.open(QIODevice::ReadWrite | QIODevice::ExistingOnly)) {
        // What is added later would never be found behind the rest of a record.
        file.resize(readRecords(file));
    }
}

/// Gives where the last whole record ends. A length that is wrong has no more read than the file holds.
qint64 HistoryRing::readRecords(QFile &file)
{
    QDataStream records(&file);
    qint64 end = 0;
    while (!records.atEnd()) {
        QByteArray content;
        quint16 sum = 0;
        records >> content >> sum;
        if (records.status() != QDataStream::Ok || sum != sumOf(content)) {
            break;
        }
        end = file.pos();
        Entry entry;
        QDataStream fields(content);
        fields >> entry.device >> entry.payload;
        addToMemory(entry);
    }
    return end;
}

void HistoryRing::addToMemory(const Entry &entry)
{
    m_entries.push_back(entry);
    m_bytes += sizeOf(entry);
    while (m_bytes > m_most) {
        m_bytes -= sizeOf(m_entries.front());
        m_entries.pop_front();
        ++m_dropped;
    }
}

void HistoryRing::addToDisk(const Entry &entry)
{
    const QByteArray record = bytesOf(entry);
    makeRoom(record.size());
    QFile file(newerFile());
    const qint64 before = QFileInfo(file).size();
    const bool isWritten = file.open(QIODevice::WriteOnly | QIODevice::Append)
                           && file.write(record) == record.size() && file.flush();
    if (!isWritten && !m_isFailureTold) {
        ServiceLog::error(QStringLiteral("%1: %2; what waits to be sent is in memory alone")
                              .arg(file.fileName(), file.errorString()));
    }
    if (!isWritten && file.isOpen()) {
        // The beginning of an entry would hide what comes behind it.
        file.close();
        QFile::resize(newerFile(), before);
    }
    m_isFailureTold = !isWritten;
}

/// For an entry of @p bytes: each file has half of what is allowed, unless one entry alone has more.
void HistoryRing::makeRoom(qint64 bytes) const
{
    if (QFileInfo(newerFile()).size() + bytes > m_most / 2) {
        QFile::remove(olderFile());
        QFile::rename(newerFile(), olderFile());
    }
    if (QFileInfo(olderFile()).size() + bytes > m_most) {
        QFile::remove(olderFile());
    }
}

void HistoryRing::removeFiles() const
{
    if (!m_folder.isEmpty()) {
        QFile::remove(olderFile());
        QFile::remove(newerFile());
    }
}
