#pragma once

#include "Access/ProcessDataSnapshot.h"
#include "Inspection/RegionInspection.h"
#include "ProcessDataManagement/ProcessDataManager.h"
#include "TesselModels/SetMailbox_p.h"
#include "TesselModels/SourceDescription_p.h"
#include "regions/CreatorWatch.h"

#include <QObject>
#include <QTimer>

#include <memory>
#include <optional>

class ProcessDataNotifier;

/// What a source does in its thread: follows one region through its end, its return and a changed
/// description, and hands over what is to be shown.
///
/// The region is looked for at a bounded rate while it is not there; once attached it is found out within two
/// seconds that it has gone, has been replaced or has lost its creator. The region of a creator that has died
/// counts as gone until somebody publishes into it again. All operations belong to the thread.
class RegionWorker : public QObject
{
    Q_OBJECT

public:
    explicit RegionWorker(std::shared_ptr<SetMailbox> mailbox);
    ~RegionWorker() override;

    void setPath(const QString &path);
    void setEnabled(bool isEnabled);
    void setUpdateInterval(int milliseconds);
    void write(const QString &url, const QVariant &value);

Q_SIGNALS:
    /// There is a set in the mailbox, which was empty.
    void delivered();
    void writeFailed(const QString &url, int code, const QString &text);

private:
    void look();
    void lookForRegion();
    void lookAfterRegion();
    void lookAfterCreator();
    bool readAgain();
    void attach();
    void watch();
    void detach();
    bool isCreatorDead() const;
    void showChangedCreator();
    bool isUp() const { return m_manager != nullptr && !m_creator.isLeft(); }

    void handlePublished();
    void showNewest();
    void showMissing();
    void showAbsence(const QString &why);
    void deliver(const std::shared_ptr<ShownSet> &set);

    const std::shared_ptr<SetMailbox> m_mailbox;
    QString m_path;
    bool m_isEnabled = true;
    int m_updateInterval = 0;
    QString m_stamp;
    DescriptionReading m_reading;
    /// Of the last reading that differed from the one before.
    std::shared_ptr<const SourceDescription> m_description;
    bool m_isBound = false; ///< the tree, to a memory that may have gone
    QTimer m_timer;
    QTimer m_pollTimer; ///< a single buffer tells nobody
    int m_failures = 0;
    bool m_hasGone = false; ///< the region that was attached last
    CreatorWatch m_creator;
    ProcessDataSnapshot m_snapshot;
    std::shared_ptr<ShownSet> m_decoded; ///< from m_snapshot
    std::shared_ptr<const ShownSet> m_delivered;
    std::shared_ptr<const ShownSet> m_shown; ///< what the display has taken last
    // Destroyed from the last to the first.
    std::optional<RegionInspection> m_region;
    std::unique_ptr<ProcessDataManager> m_manager;
    ProcessDataNotifier *m_notifier = nullptr;
};
