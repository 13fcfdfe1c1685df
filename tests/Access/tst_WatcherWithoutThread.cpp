#include "Access/NumberRegion.h"
#include "Access/ProcessDataWatcher.h"
#include "support/LogCapture.h"

#include <QDir>
#include <QtTest>

#include <limits>

#include <pthread.h>

namespace {

/// While one lives, the system gives no stack for a further thread.
class NoMoreThreads
{
public:
    NoMoreThreads()
    {
        pthread_attr_t attributes;
        pthread_getattr_default_np(&attributes);
        pthread_attr_getstacksize(&attributes, &m_formerSize);
        m_isSet = setStackSize(std::numeric_limits<std::size_t>::max() / 4);
    }
    ~NoMoreThreads() { setStackSize(m_formerSize); }

    NoMoreThreads(const NoMoreThreads &) = delete;
    NoMoreThreads &operator=(const NoMoreThreads &) = delete;

    bool isSet() const { return m_isSet; }

private:
    static bool setStackSize(std::size_t size)
    {
        pthread_attr_t attributes;
        const bool isDone = pthread_attr_init(&attributes) == 0
                            && pthread_attr_setstacksize(&attributes, size) == 0
                            && pthread_setattr_default_np(&attributes) == 0;
        pthread_attr_destroy(&attributes);
        return isDone;
    }

    std::size_t m_formerSize = 0;
    bool m_isSet = false;
};

QStringList openDescriptors()
{
    return QDir(QStringLiteral("/proc/self/fd"))
        .entryList(QDir::NoDotAndDotDot | QDir::AllEntries | QDir::System);
}

} // namespace

/// A watcher of which the descriptor needs a thread that the system does not give.
class tst_WatcherWithoutThread : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void hasNoDescriptorAndSaysWhy();
};

void tst_WatcherWithoutThread::hasNoDescriptorAndSaysWhy()
{
    ProcessDescription description(8, true);
    description.leaves.insert(QStringLiteral("number"), int32Slot(0));
    LiveRegion region(description);
    ProcessDataWatcher watcher(region.manager);
    const QStringList before = openDescriptors();
    LogCapture log;
    {
        const NoMoreThreads nothing;
        QVERIFY(nothing.isSet());

        QCOMPARE(watcher.getDescriptor(), -1);
    }
    COMPARE_LOG(log, warning(QStringLiteral(
                         "No descriptor for waiting: Resource temporarily unavailable")));
    QCOMPARE(openDescriptors(), before);

    // Nothing of that stays.
    QVERIFY(watcher.getDescriptor() >= 0);
    COMPARE_LOG(log);
}

QTEST_GUILESS_MAIN(tst_WatcherWithoutThread)
#include "tst_WatcherWithoutThread.moc"
