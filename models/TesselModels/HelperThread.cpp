#include "TesselModels/HelperThread_p.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QThread>

#include <algorithm>
#include <mutex>
#include <vector>

namespace {

/// A thread, and what lives in it for as long as it exists.
struct StartedThread
{
    QThread *thread;
    QObject *ender;

    void askToEnd() const
    {
        QMetaObject::invokeMethod(
            ender, [asked = thread] { asked->quit(); }, Qt::QueuedConnection);
    }
    /// Only after its end.
    void remove() const
    {
        delete ender;
        delete thread;
    }
};

/// Threads that were started, for the end of the application.
struct StartedThreads
{
    std::mutex mutex; ///< held for a moment alone
    std::vector<StartedThread> threads;
    bool isEndRegistered = false;
};

/// Lives on after static objects: a source may be one.
StartedThreads &started()
{
    static auto *const all = new StartedThreads;
    return *all;
}

/// Long against the bounds of all locks that a thread may be waiting for.
constexpr int longestEnd = 60000; // milliseconds

void waitForAll()
{
    std::vector<StartedThread> threads;
    {
        const std::lock_guard<std::mutex> lock(started().mutex);
        threads.swap(started().threads);
        started().isEndRegistered = false;
    }
    for (const auto &one : threads) {
        one.askToEnd();
    }
    for (const auto &one : threads) {
        // One that hangs nevertheless is left to the end of the process.
        if (one.thread->wait(QDeadlineTimer(longestEnd))) {
            one.remove();
        }
    }
}

void remember(const StartedThread &begun)
{
    const std::lock_guard<std::mutex> lock(started().mutex);
    auto &threads = started().threads;
    const auto ended = std::partition(threads.begin(), threads.end(), [](const auto &other) {
        return !other.thread->isFinished();
    });
    std::for_each(ended, threads.end(), [](const auto &other) { other.remove(); });
    threads.erase(ended, threads.end());
    threads.push_back(begun);
    if (!started().isEndRegistered) {
        started().isEndRegistered = true;
        qAddPostRoutine(waitForAll);
    }
}

} // namespace

HelperThread::HelperThread(QObject *worker) : m_worker(worker), m_ender(new QObject)
{
    auto *const thread = new QThread;
    thread->setObjectName(QStringLiteral("TesselModels"));
    worker->moveToThread(thread);
    m_ender->moveToThread(thread);
    // Carried out by the thread itself, as the last that it does.
    QObject::connect(thread, &QThread::finished, worker, &QObject::deleteLater);
    remember({thread, m_ender});
    thread->start();
}

HelperThread::~HelperThread()
{
    if (m_ender) {
        QMetaObject::invokeMethod(
            m_ender.data(), [] { QThread::currentThread()->quit(); }, Qt::QueuedConnection);
    }
}
