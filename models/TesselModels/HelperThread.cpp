#include "TesselModels/HelperThread_p.h"

#include <QCoreApplication>
#include <QDeadlineTimer>

#include <algorithm>
#include <mutex>
#include <vector>

namespace {

/// Threads that were started, for the end of the application.
struct StartedThreads
{
    std::mutex mutex; ///< held for a moment alone
    std::vector<QThread *> threads;
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
    std::vector<QThread *> threads;
    {
        const std::lock_guard<std::mutex> lock(started().mutex);
        threads.swap(started().threads);
        started().isEndRegistered = false;
    }
    for (auto *const thread : threads) {
        thread->quit();
    }
    for (auto *const thread : threads) {
        // One that hangs nevertheless is left to the end of the process.
        if (thread->wait(QDeadlineTimer(longestEnd))) {
            delete thread;
        }
    }
}

void remember(QThread *thread)
{
    const std::lock_guard<std::mutex> lock(started().mutex);
    auto &threads = started().threads;
    const auto ended = std::partition(threads.begin(), threads.end(),
                                      [](const QThread *other) { return !other->isFinished(); });
    std::for_each(ended, threads.end(), [](QThread *other) { delete other; });
    threads.erase(ended, threads.end());
    threads.push_back(thread);
    if (!started().isEndRegistered) {
        started().isEndRegistered = true;
        qAddPostRoutine(waitForAll);
    }
}

} // namespace

HelperThread::HelperThread(QObject *worker) : m_worker(worker), m_thread(new QThread)
{
    m_thread->setObjectName(QStringLiteral("TesselModels"));
    worker->moveToThread(m_thread);
    // Carried out by the thread itself, as the last that it does.
    QObject::connect(m_thread, &QThread::finished, worker, &QObject::deleteLater);
    remember(m_thread);
    m_thread->start();
}

HelperThread::~HelperThread()
{
    if (m_thread) {
        m_thread->quit();
    }
}
