#pragma once

#include "DisplayedPlant.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QHash>

#include <algorithm>
#include <ctime>

#include <sys/resource.h>
#include <unistd.h>

/// Turns of the display's event loop, and how long its thread stood still inside one of them.
///
/// Time in which it worked, or in which it or a thread that it may have to wait for was ready and others had the
/// processor, does not count: a machine with much to do makes nobody wait for a lock.
class DisplayTurns
{
public:
    /// Whatever the thread does at once, such as a write that is to be queued.
    template <class Action>
    bool measure(const Action &action)
    {
        const Moment begin = Moment::now();
        const bool isDone = action();
        const Moment end = Moment::now();
        // Without a sleep it was at most held up by others.
        if (end.sleeps > begin.sleeps) {
            const double elsewhere = end.worked - begin.worked + end.queuedSince(begin);
            m_longest = std::max(m_longest, end.clock - begin.clock - elsewhere);
        }
        return isDone;
    }
    /// Until @p condition holds. False if it does not come to that.
    template <class Condition>
    bool until(const Condition &condition)
    {
        QElapsedTimer timer;
        timer.start();
        const auto turn = [] {
            QCoreApplication::processEvents();
            return true;
        };
        while (!condition() && timer.elapsed() < longestWait) {
            measure(turn);
            usleep(100);
        }
        return condition();
    }
    double longestMilliseconds() const { return m_longest * 1e3; }

private:
    /// Seconds, of the thread but for the clock.
    struct Moment
    {
        double clock;
        double worked;
        QHash<QString, double> queued; ///< of each thread: ready to run, while others ran
        long sleeps;

        static Moment now()
        {
            rusage usage = {};
            getrusage(RUSAGE_THREAD, &usage);
            return {seconds(CLOCK_MONOTONIC), seconds(CLOCK_THREAD_CPUTIME_ID), queuedThreads(),
                    usage.ru_nvcsw};
        }
        double queuedSince(const Moment &begin) const
        {
            double sum = 0;
            for (auto thread = queued.cbegin(); thread != queued.cend(); ++thread) {
                sum += thread.value() - begin.queued.value(thread.key(), 0);
            }
            return sum;
        }
        static QHash<QString, double> queuedThreads()
        {
            QHash<QString, double> queued;
            const QDir folder(QStringLiteral("/proc/self/task"));
            const QStringList threads = folder.entryList(QDir::Dirs | QDir::NoDotAndDotDot);
            for (const auto &thread : threads) {
                QFile file(folder.filePath(thread + QStringLiteral("/schedstat")));
                // One that has ended meanwhile is waited for by nobody.
                if (file.open(QIODevice::ReadOnly)) {
                    queued.insert(thread, file.readAll().split(' ').value(1).toDouble() * 1e-9);
                }
            }
            return queued;
        }
        static double seconds(clockid_t clock)
        {
            timespec time = {};
            clock_gettime(clock, &time);
            return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
        }
    };

    double m_longest = 0;
};
