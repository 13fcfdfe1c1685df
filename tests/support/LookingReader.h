#pragma once

#include "Inspection/RegionInspection.h"
#include "Inspection/RegionUsers.h"
#include "support/ProcessState.h"

#include <QDir>
#include <QFile>
#include <QMap>

#include <chrono>
#include <utility>

#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

/// Another process that reads a region and leaves no word there: what it has seen is told by its threads.
///
/// The one that looks for sets sleeps from one look to the next, with a bound. It does not while the last set
/// that it found was not taken up.
class LookingReader
{
public:
    explicit LookingReader(QString key) : m_key(std::move(key)) { }

    /// Until the process that has the region mapped, beside this one, has taken up all that was published
    /// before the call. False if it does not come to that.
    static bool waitUntilSeen(const QString &key)
    {
        using Clock = std::chrono::steady_clock;
        const Clock::time_point deadline = Clock::now() + std::chrono::seconds(60);
        LookingReader reader(key);
        while (!reader.hasSeen()) {
            if (Clock::now() > deadline) {
                return false;
            }
            sched_yield();
        }
        return true;
    }

    /// Whether it has taken up all that was published before this was asked for the first time.
    bool hasSeen()
    {
        // The first look may have begun before, and so may the sleep behind it.
        constexpr qint64 sleeps = 3;
        m_reader = m_reader == 0 ? findReader(m_key) : m_reader;
        if (m_reader == 0) {
            return false;
        }
        const QString folder = QStringLiteral("/proc/%1/task").arg(m_reader);
        const QStringList threads = QDir(folder).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
        for (const auto &thread : threads) {
            const QString path = folder + QLatin1Char('/') + thread;
            const qint64 count = sleepsOf(path);
            if (sleepsWithABound(path)) {
                const qint64 number = thread.toLongLong();
                if (!m_first.contains(number)) {
                    m_first.insert(number, count);
                }
                if (count >= m_first[number] + sleeps) {
                    return true;
                }
            }
        }
        return false;
    }

private:
    static QByteArray contentOf(const QString &path)
    {
        QFile file(path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

    /// 0 if there is none yet.
    static qint64 findReader(const QString &key)
    {
        const auto users = RegionUsers().getUsersOf(RegionInspection(key));
        for (const auto &user : users) {
            if (user.pid != getpid()) {
                return user.pid;
            }
        }
        return 0;
    }

    /// How often a thread has gone to sleep by itself.
    static qint64 sleepsOf(const QString &folder)
    {
        const QByteArray status = contentOf(folder + QStringLiteral("/status"));
        const QByteArray name = QByteArrayLiteral("\nvoluntary_ctxt_switches:");
        const int begin = status.indexOf(name) + name.size();
        return status.mid(begin, status.indexOf('\n', begin) - begin).trimmed().toLongLong();
    }

    /// "NUMBER 0xADDRESS 0xOPERATION 0xVALUE 0xBOUND ...", or "running".
    static bool sleepsWithABound(const QString &folder)
    {
        const QList<QByteArray> fields = contentOf(folder + QStringLiteral("/syscall")).split(' ');
        constexpr int boundField = 4;
        bool isNumber = false;
        const long number = fields.first().toLong(&isNumber);
        bool isFutex = false;
#ifdef SYS_futex
        isFutex = number == SYS_futex;
#endif
#ifdef SYS_futex_time64
        isFutex = isFutex || number == SYS_futex_time64;
#endif
        return isNumber && isFutex && fields.value(boundField, "0x0") != "0x0";
    }

    QString m_key;
    qint64 m_reader = 0; ///< 0 until there is one
    QMap<qint64, qint64>
        m_first; ///< of each thread, how often it had slept when it was first seen asleep
};
