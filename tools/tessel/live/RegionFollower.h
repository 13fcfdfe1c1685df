#pragma once

#include "Access/ProcessDataSnapshot.h"
#include "Access/ProcessDataWatcher.h"
#include "live/LiveRegion.h"

#include <QDateTime>
#include <QString>

#include <optional>

/// Takes whole sets of a region that may fall silent, go, and come back.
///
/// Never waits: not for a writer who is inside a lock, and not for a set that is being written. While the
/// region is gone the last set of it stays.
class RegionFollower
{
public:
    /// A Failure if there is no region now, or a wrong one.
    explicit RegionFollower(const DescriptionSource &description);

    RegionFollower(const RegionFollower &) = delete;
    RegionFollower &operator=(const RegionFollower &) = delete;

    /// Readable when take() has something to tell; -1 with a single buffer, or while the region is gone.
    int descriptor();
    /// Copies the newest set, if there is one that was not copied yet; of a single buffer, what is there. True
    /// if there is a new one.
    bool take();
    /// Whether there is a set that take() has heard of and could not copy.
    bool isOwed() const { return isThere() && m_isOwed; }
    /// Looks whether the region is still there, or there again: then attaches to it.
    void look();

    /// Whether the region that is attached is the one that its name leads to.
    bool isThere() const { return m_absence.isEmpty(); }
    /// Why it is not there, in words; empty if it is.
    const QString &absence() const { return m_absence; }
    /// Why no set could be taken though there is one, in words; empty if it could.
    const QString &hindrance() const { return m_hindrance; }

    /// The set that was taken last, of which leaves are decoded; empty without one.
    const ProcessDataSnapshot &set() const { return m_set; }
    /// Of the attached region: when a set was published last. None with a single buffer.
    std::optional<QDateTime> lastSwap() const;
    /// Who made the attached region.
    RegionCreator creator() const;
    /// The region that is attached, for what is to be known of it. Not to be kept
    /// over a look().
    const LiveRegion &region() const { return *m_region; }
    /// How often it has attached so far.
    int attachments() const { return m_attachments; }

private:
    void attach();
    void attachAgain();
    void lose();
    bool isWriterInside() const;
    bool copy();

    const DescriptionSource &m_description;
    std::optional<LiveRegion> m_region;
    std::optional<ProcessDataWatcher> m_watcher; ///< ends before the region
    ProcessDataSnapshot m_set;
    ProcessDataSnapshot m_next;
    quint64 m_seen = 0;
    bool m_isOwed = true; ///< There is a set that was told of and not copied.
    QString m_absence;
    QString m_hindrance;
    int m_attachments = 0;
};
