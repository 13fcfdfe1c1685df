#pragma once

#include "Access/ProcessDataSnapshot.h"
#include "Inspection/RegionInspection.h"
#include "ProcessDataManagement/ProcessDataManager.h"
#include "region/DescriptionTree.h"
#include "regions/CreatorWatch.h"

#include <QDateTime>
#include <QElapsedTimer>
#include <QObject>
#include <QStringList>
#include <QTimer>

#include <memory>
#include <optional>

class ProcessDataNotifier;

/// One region, followed for as long as a program runs: through its end, its return and a changed
/// description.
///
/// It is looked for at a bounded rate while it is not there. Once attached, the follower is woken by the
/// sets that are published, and finds out within two seconds that the region has gone, has been replaced,
/// or has lost its creator: the region of a creator that has died counts as gone until somebody
/// publishes into it again. Values are taken as whole sets and decoded from the copy.
///
/// Belongs to the thread and the event loop of its maker. Each change is told in the log, once.
class RegionFollower : public QObject
{
    Q_OBJECT

public:
    /// What it is for. A region that is only read is mapped so that it cannot be written, and its publishers do
    /// not hear of this program. One that is watched is not written either, but its publishers wake this program,
    /// which takes a mapping that could be; a user without the right to that reads.
    enum class Use { Reading, Watching, Writing };

    /// Reads the description at @p path and looks for its region at once. @p leastInterval: milliseconds from
    /// one setPublished() to the next at least. Throws a Refusal that says what is wrong with the
    /// description; that there is no region is no reason.
    explicit RegionFollower(const QString &path, int leastInterval = 0, Use use = Use::Writing,
                            QObject *parent = nullptr);
    ~RegionFollower() override;

    const QString &path() const { return m_path; }
    Use use() const { return m_use; }
    /// Memory key of the description.
    const QString &key() const { return m_tree.key; }
    /// Whether there are values to be had.
    bool isUp() const { return m_manager != nullptr && !m_creator.isLeft(); }
    /// Why there are none, for a person; empty while there are.
    const QString &absence() const { return m_absence; }

    /// What the description holds, also while the region is away; see leavesChanged().
    const QVector<FollowedLeaf> &leaves() const { return m_tree.leaves; }
    /// The devices of the leaves, each once, in their order.
    QStringList devices() const;

    /// Looks at once whether an attached region is still there, beside the looks that are made by themselves:
    /// for whoever tells others how things stand now.
    void lookNow();
    /// Copies the newest set. False if the region is away or no consistent set was to be had, with the
    /// reason in the log; there is no set then. Of a single buffer it needs the lock: see isLockFree().
    bool takeSet();
    /// Without a set, or of a leaf that has no usable slot, NO_VALID_INPUT_VALUE.
    ProcessValue value(int leaf) const;
    /// The last set that was taken, to be compared with others; decoding needs the region to be up.
    const ProcessDataSnapshot &set() const { return m_set; }

    /// How often the region was swapped when that set was published; none without one, and of a single buffer.
    std::optional<quint64> setCount() const;
    /// When it was published; none as well where sets come faster than they can be looked at.
    const std::optional<QDateTime> &setTime() const { return m_setTime; }

    /// How often the region was swapped; none while it is away, and of a single buffer.
    std::optional<quint64> swapCount() const;
    /// When that was done last.
    std::optional<QDateTime> lastSwap() const;

    /// What the lock of the region is wanted for. Of a double buffer readers need none.
    enum class Access { Reading, Writing };
    /// Whether nobody is inside the lock who would make this thread wait, as somebody who was stopped there
    /// would, for seconds each time. Gives one that is at work some milliseconds to leave. The region has to
    /// be attached.
    bool isLockFree(RegionFollower::Access access);
    /// Who is inside and does not leave, for a person.
    QString lockProblem() const;

    /// For writing, if it is for that; null while the region is away, and gone with it.
    ProcessDataManager *manager() const { return m_manager.get(); }

Q_SIGNALS:
    /// isUp() has another answer than before.
    void upChanged(bool isUp);
    /// manager() is gone after this, and was perhaps up: the last time for other threads to leave it.
    void aboutToDetach();
    /// absence() is another one, and not empty.
    void absenceChanged();
    /// There is a newer set. Of a single buffer, which tells nobody, there may be one: once in each least
    /// interval, or ten times a second.
    void setPublished();
    /// leaves() are others: the description was read anew. Whoever keeps leaves takes them again.
    void leavesChanged();

private:
    void look();
    void lookForRegion();
    void lookAfterRegion();
    void lookAfterCreator();
    QString unpublishedText() const;
    bool readAgain();
    void attach();
    bool mayBeWoken() const;
    void checkSlots();
    void watch();
    bool takeSetWithTime();
    void noteLock(bool isFree);
    void detach(const QString &why);
    bool isCreatorDead() const;
    void tellReturn();
    void tellAbsence(const QString &why);
    void tellMissing();
    void handlePublished();

    QString m_path;
    int m_leastInterval;
    Use m_use;
    QString m_stamp;
    DescriptionTree m_tree;
    bool m_isBound = false; ///< the tree, to a memory that may have gone
    QString m_absence;
    bool m_isMissingTold = false;
    QTimer m_timer;
    QTimer m_poll; ///< of a single buffer
    int m_failures = 0;
    CreatorWatch m_creator;
    QElapsedTimer m_sinceLockHeld; ///< by somebody who did not leave; invalid while nobody is
    bool m_isLockTold = false;
    ProcessDataSnapshot m_set;
    std::optional<QDateTime> m_setTime;
    // Destroyed from the last to the first.
    std::optional<RegionInspection> m_region;
    std::unique_ptr<ProcessDataManager> m_manager;
    ProcessDataNotifier *m_notifier = nullptr;
};
