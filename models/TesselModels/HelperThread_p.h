#pragma once

#include <QMetaObject>
#include <QObject>
#include <QPointer>

#include <utility>

/// A thread with an event loop in which one object lives that may wait for files, locks and regions.
///
/// Whoever owns the thread never waits for it: its end only asks it to end, behind what was posted. What has
/// not ended by then is waited for when the application object goes.
class HelperThread
{
public:
    /// Takes @p worker over, which must have no parent, and starts.
    explicit HelperThread(QObject *worker);
    ~HelperThread();

    HelperThread(const HelperThread &) = delete;
    HelperThread &operator=(const HelperThread &) = delete;

    /// Calls @p function in the thread, after what was posted before.
    template <class Function>
    void post(Function &&function)
    {
        // Behind the end of the application there is none.
        if (m_worker) {
            QMetaObject::invokeMethod(m_worker.data(), std::forward<Function>(function),
                                      Qt::QueuedConnection);
        }
    }

private:
    QPointer<QObject> m_worker; ///< owned by the thread
    /// In the thread; whoever calls for the end does it through this. Outlives this object until the thread
    /// has ended.
    QPointer<QObject> m_ender;
};
