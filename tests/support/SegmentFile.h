#pragma once

#include "support/SemaphoreSet.h"

#include <QByteArray>
#include <QFile>
#include <QString>

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

/// A shared-memory object as a stranger sees it, who knows its name. Removes what a test left.
class SegmentFile
{
public:
    explicit SegmentFile(const QString &name = SemaphoreSet::uniqueKey(QStringLiteral("segment")))
        : m_name(name)
    {
    }
    ~SegmentFile() { remove(); }

    SegmentFile(const SegmentFile &) = delete;
    SegmentFile &operator=(const SegmentFile &) = delete;

    QString name() const { return m_name; }
    QString path() const { return QStringLiteral("/dev/shm/") + m_name; }

    bool exists() const { return QFile::exists(path()); }
    /// -1 if there is none, as for the other numbers.
    qint64 size() const { return exists() ? status().st_size : -1; }
    int mode() const { return exists() ? static_cast<int>(status().st_mode & 0777) : -1; }
    quint64 inode() const { return status().st_ino; }
    qint64 reservedBytes() const { return qint64{status().st_blocks} * 512; }

    QByteArray content() const
    {
        QFile file(path());
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }
    /// Makes an object of somebody else under this name.
    bool make(const QByteArray &content) const
    {
        QFile file(path());
        return file.open(QIODevice::WriteOnly) && file.write(content) == content.size();
    }
    /// The same, without any memory behind it.
    bool makeSparse(qint64 size) const { return make(QByteArray()) && QFile::resize(path(), size); }
    bool remove() const { return QFile::remove(path()); }

    /// The lines of this process's table of mappings that show the object, removed ones included.
    QList<QByteArray> mappings() const
    {
        QFile table(QStringLiteral("/proc/self/maps"));
        QList<QByteArray> lines;
        if (table.open(QIODevice::ReadOnly)) {
            const QList<QByteArray> all = table.readAll().split('\n');
            std::copy_if(all.cbegin(), all.cend(), std::back_inserter(lines),
                         [this](const QByteArray &line) { return line.contains(path().toUtf8()); });
        }
        return lines;
    }

private:
    struct stat status() const
    {
        struct stat status = {};
        ::stat(path().toLocal8Bit().constData(), &status);
        return status;
    }

    QString m_name;
};
