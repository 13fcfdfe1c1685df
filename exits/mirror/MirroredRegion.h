#pragma once

#include "Inspection/RegionInspection.h"
#include "ProcessDataManagement/ProcessDataManager.h"
#include "mirror/ByteOrder.h"
#include "mirror/LocalWrites.h"
#include "mirror/SlotLayout.h"
#include "region/UrlChoice.h"

#include <memory>
#include <optional>

class LibraryReasons;

/// The region of a receiver: what a source has, or `timeout` everywhere. Each change is one swap.
///
/// Creates the region and removes it at its end, after a last set of `timeout`.
class MirroredRegion
{
public:
    /// @p key: another memory key than that of the description; empty: that one. Throws a Refusal: a
    /// description that cannot be mirrored, a region whose creator lives, leaves without an error state
    /// that @p withoutState does not name.
    MirroredRegion(const QString &path, const QString &key, const UrlChoice &withoutState);
    ~MirroredRegion();
    Q_DISABLE_COPY(MirroredRegion)

    /// The key of the source.
    const QString &sourceKey() const { return m_tree.key; }
    /// The key of the region here.
    const QString &key() const { return m_key; }
    const QString &path() const { return m_path; }
    const SlotLayout &layout() const { return m_layout; }

    /// @p bytes: a whole buffer. False, with the reason in the log, if nobody sees it, as where somebody stays inside
    /// the lock of the region: he is not waited for.
    bool show(const unsigned char *bytes, ByteOrder::Order order);
    /// All leaves at once. The same; what cannot be shown now is due.
    bool showTimeout();
    /// Tries that again, unless something else was shown since; and tells if others have taken the region away.
    void lookAfter();
    /// What was shown last, in place of what others have written since; with watchWrites() alone. The same.
    bool showAgain();

    /// Has what others write looked after from now on.
    void watchWrites();
    /// Null without watchWrites().
    LocalWrites *writes() const { return m_writes.get(); }
    ProcessDataManager &manager() const { return *m_manager; }

private:
    template <typename Fill>
    bool publish(const Fill &fill);
    void refuseLeavesWithoutState(const UrlChoice &withoutState) const;
    void refuseRegionInUse() const;
    void tellUnpublished(const LibraryReasons &reasons);

    QString m_path;
    DescriptionTree m_tree;
    QString m_key;
    SlotLayout m_layout;
    ByteOrder m_order;
    std::unique_ptr<ProcessDataManager> m_manager;
    std::optional<RegionInspection> m_inspection;
    std::unique_ptr<LocalWrites> m_writes;
    bool m_isHeldUp = false;     ///< somebody stayed inside the lock for long
    bool m_isTimeoutDue = false; ///< it could not be shown
    bool m_isUnpublishedTold = false;
    bool m_isTakenTold = false;
};
