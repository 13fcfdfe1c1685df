#pragma once

#include <QString>
#include <QStringList>

#include <optional>

/// What the receiver of a mirror says beside its region, in `/dev/shm/KEYMirror`: see docs/memory-format.md.
struct MirrorNote
{
    QString key;     ///< of the mirror
    QString region;  ///< key at the source
    QString host;    ///< of the source; empty: there is none now
    QString address; ///< of the source; empty: unknown
    QStringList
        commands; ///< URL patterns of the leaves of which the source is asked for what is written here

    /// None if the region of that key is no mirror, or is not there. What others than the owner of its memory say of
    /// it does not count, nor what was said of a former memory of that name.
    static std::optional<MirrorNote> find(const QString &key);

    /// Of whom it is, such as `mirror of 'plant' of device (192.0.2.7)`.
    QString text() const;
};

/// The note of the region of that key as a member of JSON output; null if it is no mirror.
QString mirrorJson(const QString &key);

/// Says on standard error what becomes of what was just written into a region that is a mirror; nothing of
/// another region.
void noteWriteIntoMirror(const QString &key);
