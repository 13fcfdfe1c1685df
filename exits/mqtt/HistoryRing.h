#pragma once

#include <QByteArray>
#include <QString>

#include <deque>
#include <memory>

class QFile;
class QLockFile;

/// Messages that could not be sent, the oldest dropped where they would be too many bytes.
///
/// With a folder, which is this one's alone, they are on the disk as well, so that they are still there after
/// a restart: in two files, the older of which goes when the newer one is full. What a crash cuts off at the
/// end of a file is dropped when it is read.
class HistoryRing
{
public:
    struct Entry
    {
        QString device;
        QByteArray payload;
    };

    /// @p folder empty: in memory alone. Throws a Refusal for one that cannot be used.
    explicit HistoryRing(qint64 mostBytes, const QString &folder = {});
    ~HistoryRing();

    bool isEmpty() const { return m_entries.empty(); }
    int count() const { return static_cast<int>(m_entries.size()); }
    qint64 bytes() const { return m_bytes; }
    /// How many were dropped so far for want of room.
    qint64 dropped() const { return m_dropped; }

    /// An entry that alone has more bytes than the ring may is dropped.
    void add(const Entry &entry);
    const Entry &first() const { return m_entries.front(); }
    /// Of the disk it goes when all have gone.
    void removeFirst();
    void clear();

private:
    QString olderFile() const;
    QString newerFile() const;
    void takeFolder();
    void readFile(const QString &path);
    qint64 readRecords(QFile &file);
    void addToMemory(const Entry &entry);
    void addToDisk(const Entry &entry);
    void makeRoom(qint64 bytes) const;
    void removeFiles() const;

    qint64 m_most;
    QString m_folder;
    std::deque<Entry> m_entries;
    qint64 m_bytes = 0;
    qint64 m_dropped = 0;
    std::unique_ptr<QLockFile> m_lock; ///< of the folder
    bool m_isFailureTold = false;
};
