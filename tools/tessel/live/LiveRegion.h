#pragma once

#include "Access/ProcessDataWatcher.h"
#include "Inspection/RegionInspection.h"
#include "ProcessDataManagement/ProcessDataManager.h"
#include "descriptions/DescriptionSource.h"

#include <QVector>

#include <functional>
#include <optional>

/// Whether the region of that key is one of another version of the memory format, to which nobody can attach.
bool hasOtherFormat(const RegionInspection &region);
/// Refuses such a region, by a Failure.
[[noreturn]] void refuseFormat(const DescriptionSource &description);

/// Refuses, by a Failure, a region that is not there, cannot be opened, or was made from another
/// description.
void requireMatchingRegion(const RegionInspection &region, const DescriptionSource &description);

/// The leaves of @p leaves, which were found at @p urls, without texts of fewer than @p leastBytes. Refuses one that
/// was asked for, by a Failure; if everything was asked for, leaves it out with a note.
QVector<Leaf> withTextsFrom(quint32 leastBytes, const QVector<Leaf> &leaves,
                            const QStringList &urls, const DescriptionSource &description);

/// What is to be written into one leaf.
struct LeafWrite
{
    Leaf leaf;
    ProcessValue value;
};

/// A description bound to its region in shared memory.
///
/// The leaves of the description read and write through this object and must not be used after it.
/// Every operation throws a Failure.
class LiveRegion
{
public:
    enum class Opening {
        Create, ///< Makes the region with its lock; it is removed with this object.
        Attach, ///< Joins a region that another process has made, to write into it.
        Read    ///< The same, in a mapping that cannot be written: nobody there hears of it.
    };

    LiveRegion(const DescriptionSource &description, Opening opening);

    /// The leaves of @p leaves to read, which were found at @p urls. Refuses one that was asked for
    /// and cannot be used; if everything was asked for, leaves it out with a note.
    QVector<Leaf> readable(const QVector<Leaf> &leaves, const QStringList &urls) const;
    /// Those of the leaves that can be used. A note on standard error names each of the others.
    QVector<Leaf> usable(const QVector<Leaf> &leaves) const;
    /// Refuses leaves of which one cannot be used.
    void requireUsable(const QVector<Leaf> &leaves) const;

    /// The values of one consistent set, in the order of the leaves.
    QVector<ProcessValue> read(const QVector<Leaf> &leaves);
    /// The same of a double buffer, and how often it was swapped when the set was published.
    QVector<ProcessValue> read(const QVector<Leaf> &leaves, quint64 &generation);
    /// Whether a set was ever published. A single buffer counts none: what is written there is seen at once.
    bool isPublished() const;
    /// Refuses the set of that generation if it is none: before the first one readers find memory that nobody
    /// has written, which would pass for valid zeros.
    void requirePublished(quint64 generation) const;
    /// Writes values under one lock and publishes them by one swap: readers see all of them or none. What
    /// was published before comes back, in the same order.
    QVector<ProcessValue> write(const QVector<LeafWrite> &writes);

    /// The descriptor by which @p watcher, of this region, tells of sets. Refuses, as an attachment does, where the
    /// system has none to give.
    int descriptorOf(ProcessDataWatcher &watcher) const;

    /// For what the library offers beside this class; not for its locks.
    ProcessDataManager &manager() { return m_manager; }

    /// For what is to be known of an attachment beside its values.
    const RegionInspection &inspection() const { return *m_region; }
    /// Whether the region's name still leads to it.
    bool isCurrent() const;
    /// Refuses to go on when the region's name has been removed or stands for another region now.
    void requireCurrent() const;
    /// Says that the lock of the region was not to be had, for which somebody has waited so long.
    [[noreturn]] void refuseLock(qint64 waitedMilliseconds) const;

private:
    void requireLock() const;
    void readInLock(const std::function<void()> &take);
    [[noreturn]] void refuseOvertaken() const;

    const DescriptionSource &m_description;
    std::optional<RegionInspection> m_region; ///< of an attachment
    ProcessDataManager m_manager;
};
