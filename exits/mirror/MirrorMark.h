#pragma once

#include <QString>
#include <QStringList>

/// Says beside the region of a mirror that it is one, and of whom: a file `/dev/shm/KEYMirror`, which
/// docs/memory-format.md describes. Removes it at its end. Without the right to write there the mirror
/// works all the same, and a line in the log says so once.
class MirrorMark
{
public:
    /// @p key: of the mirror, whose memory is there. @p region: key at the source.
    MirrorMark(const QString &key, const QString &region, const QStringList &commands);
    ~MirrorMark();
    Q_DISABLE_COPY(MirrorMark)

    /// Who is mirrored.
    void setSource(const QString &host, const QString &address);
    /// Nobody is.
    void clearSource();

private:
    void write(const QString &host, const QString &address);

    QString m_key;
    QString m_region;
    QStringList m_commands;
    QString m_path;
    quint64 m_memory; ///< number of the file of the region
    bool m_isTold = false;
};
