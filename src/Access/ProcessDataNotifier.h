#pragma once

#include "Access/ProcessDataWatcher.h"

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

class QSocketNotifier;

/// Tells an event loop when a set of a region is published.
///
/// Belongs to the thread that makes it, as every QObject with timers, and is not to be moved. Signals
/// come from the event loop of that thread. The manager must live longer, and keep its region. With
/// a single buffer nothing is ever told, with the reason in the log. In a forked child it is as silent.
class TESSEL_EXPORT ProcessDataNotifier : public QObject
{
    Q_OBJECT

public:
    /// Follows the region that @p manager has now.
    explicit ProcessDataNotifier(ProcessDataManager &manager, QObject *parent = nullptr);
    ~ProcessDataNotifier() override;

    /// Whether there is something to be told: a double buffer whose region is not gone.
    bool isActive() const;

    /// See setLeastInterval().
    int getLeastInterval() const { return m_leastInterval; }
    /// Milliseconds from one published() to the next at least, but for the last one before regionGone();
    /// of the sets in between only the newest is told. The publisher is not woken meanwhile. 0, the
    /// default: as often as the loop comes to it; a negative number counts as 0. From the next signal on.
    void setLeastInterval(int milliseconds);

Q_SIGNALS:
    /// There is a newer set than was told, beginning with the one that is there already. @p generation
    /// is how often the region was swapped so far.
    void published(quint64 generation);
    /// The name of the memory was removed or leads to a later region: nothing more is told. Found out
    /// within a second or two, whatever the least interval and though somebody may go on publishing:
    /// a set that is held back then comes before it.
    void regionGone();

private:
    void onReadable();
    void tell();
    void end();

    ProcessDataWatcher m_watcher;
    QSocketNotifier *m_readable = nullptr; ///< null when there is nothing more to tell
    QTimer m_interval;
    QElapsedTimer m_sinceLast;
    quint64 m_seen = 0;
    int m_leastInterval = 0;
};
