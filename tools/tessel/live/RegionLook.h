#pragma once

#include "Inspection/RegionInspection.h"
#include "descriptions/DescriptionSource.h"
#include "values/SlotBytes.h"

#include <QDateTime>
#include <QString>
#include <QVector>

#include <optional>

/// The slot of a leaf in one buffer.
struct BufferedSlot
{
    RegionInspection::Buffer buffer = RegionInspection::Buffer::First;
    bool isRead = true; ///< readers see this one
    SlotBytes bytes;
    /// With the content that stands beside an error state.
    ProcessValue value{ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID};
};

/// A region as it is at one moment, without taking part in it.
///
/// Waits up to a second, and only if somebody is inside the write lock, to see whether he leaves.
class RegionLook
{
public:
    /// How far it can be used with the description, if one is known.
    enum class Fit { Missing, Unreadable, OtherFormat, OtherSize, OtherLayout, Fits };

    explicit RegionLook(const DescriptionSource &description);
    /// Of the memory key alone.
    explicit RegionLook(const QString &key);

    const RegionInspection &region() const { return m_region; }
    Fit fit() const { return m_fit; }
    const RegionCreator &creator() const { return m_creator; }
    const RegionLock &lock() const { return m_lock; }
    /// Whether one process was inside the write lock all the time of the look.
    bool isLockStuck() const { return m_isLockStuck; }
    const QVector<RegionUser> &users() const { return m_users; }
    bool areUsersComplete() const { return m_areUsersComplete; }
    const std::optional<quint64> &swapCount() const { return m_swapCount; }
    const std::optional<QDateTime> &lastSwap() const { return m_lastSwap; }
    /// When it was made; invalid if that is not to be had.
    const QDateTime &made() const { return m_made; }
    /// Since the last set, in milliseconds; negative if the clock was set back since.
    std::optional<qint64> silence() const;
    /// From one set to the next on the average since the creation, in milliseconds; none for a few sets.
    std::optional<double> usualInterval() const;

    /// The slot in each buffer, from one set. Empty where the region does not fit.
    QVector<BufferedSlot> slotsOf(const Leaf &leaf) const;
    /// "measure 4711", or the id alone.
    QString nameOf(qint64 pid) const;

private:
    void look();
    void watchLock();

    RegionInspection m_region;
    Fit m_fit;
    RegionCreator m_creator;
    RegionLock m_lock;
    bool m_isLockStuck = false;
    QVector<RegionUser> m_users;
    bool m_areUsersComplete = true;
    std::optional<quint64> m_swapCount;
    std::optional<QDateTime> m_lastSwap;
    QDateTime m_made;
    QDateTime m_time;
};
