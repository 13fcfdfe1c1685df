#include "Access/WatchedRegion.h"
#include "support/ChildProcess.h"
#include "support/LogCapture.h"
#include "support/MappedRegion.h"
#include "support/ResourceLimit.h"

#include <QDir>
#include <QtTest>

#include <limits>
#include <list>

#include <poll.h>
#include <pthread.h>
#include <unistd.h>

using Result = ProcessDataWatcher::Result;

namespace {

constexpr int noWait = 0;
constexpr int longWait = 60000; // milliseconds

bool isReadable(int descriptor, int bound = longWait)
{
    pollfd request{descriptor, POLLIN, 0};
    return poll(&request, 1, bound) == 1 && (request.revents & POLLIN) != 0;
}

int countOf(const char *directory)
{
    return QDir(QString::fromLatin1(directory))
        .entryList(QDir::NoDotAndDotDot | QDir::AllEntries | QDir::System)
        .size();
}

/// Lets no thread be started as long as it lives: each would get more stack than there are addresses.
class NoThreads
{
public:
    NoThreads()
    {
        pthread_attr_t endless;
        pthread_attr_init(&endless);
        pthread_attr_setstacksize(&endless, std::numeric_limits<std::size_t>::max() / 2 + 1);
        if (pthread_getattr_default_np(&m_former) != 0
            || pthread_setattr_default_np(&endless) != 0) {
            qFatal("the usual stack stays as it is");
        }
        pthread_attr_destroy(&endless);
    }
    ~NoThreads()
    {
        pthread_setattr_default_np(&m_former);
        pthread_attr_destroy(&m_former);
    }

    NoThreads(const NoThreads &) = delete;
    NoThreads &operator=(const NoThreads &) = delete;

private:
    pthread_attr_t m_former{};
};

} // namespace

/// What a program with a loop of its own sees of the sets.
class tst_WatcherDescriptor : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { m_ownThreads = countOf("/proc/self/task"); }
    void cleanup() { FutexCalls::tellNobody(); }
    void tellsOfTheSetThatIsThere();
    void tellsOfASetOnce();
    void stillDescriptorCostsThePublisherNothing();
    void threadInTheKernelIsArmedByTheAcknowledgement();
    void otherWaitersDriveTheThreadOutOnce();
    void descriptorsOfOneRegionShareASleeper();
    void acknowledgingTooOftenIsHarmless();
    void tellsOfEverySetInTheEnd();
    void isReadableForGoodWhenTheRegionIsGone();
    void isReadableForGoodAfterStop();
    void isTheSameEachTime();
    void needsADescriptor();
    void needsAThread();
    void leavesNothing();

private:
    int m_ownThreads = 0; ///< those of the test itself
};

void tst_WatcherDescriptor::tellsOfTheSetThatIsThere()
{
    WatchedRegion region;
    QVERIFY(region.publish());
    ProcessDataWatcher watcher(region.manager());
    quint64 seen = 0;

    const int descriptor = watcher.getDescriptor();

    QVERIFY(isReadable(descriptor));
    QCOMPARE(watcher.acknowledge(seen), Result::NewSet);
    QCOMPARE(seen, watcher.getGeneration());
    QVERIFY(!isReadable(descriptor, noWait));
}

void tst_WatcherDescriptor::tellsOfASetOnce()
{
    WatchedRegion region;
    ProcessDataWatcher watcher(region.manager());
    const int descriptor = watcher.getDescriptor();
    quint64 seen = 0;
    QVERIFY(isReadable(descriptor));
    QCOMPARE(watcher.acknowledge(seen), Result::NewSet);
    QVERIFY(waitFor([] { return FutexCalls::sleepers() == 1; }));
    QVERIFY(!isReadable(descriptor, noWait));

    QVERIFY(region.publish());
    QVERIFY(isReadable(descriptor));
    QVERIFY(region.publish());
    QVERIFY(isReadable(descriptor));
    QCOMPARE(watcher.acknowledge(seen), Result::NewSet);

    QCOMPARE(seen, watcher.getGeneration());
    QVERIFY(waitFor([] { return FutexCalls::sleepers() == 1; }));
    QVERIFY(!isReadable(descriptor, noWait));
}

void tst_WatcherDescriptor::stillDescriptorCostsThePublisherNothing()
{
    WatchedRegion region;
    ProcessDataWatcher watcher(region.manager());
    const int descriptor = watcher.getDescriptor();
    quint64 seen = 0;
    QVERIFY(isReadable(descriptor));
    QCOMPARE(watcher.acknowledge(seen), Result::NewSet);
    QVERIFY(waitFor([] { return FutexCalls::sleepers() == 1; }));
    QVERIFY(region.publish());
    QVERIFY(isReadable(descriptor));
    const int wakes = FutexCalls::wakes();

    for (int i = 0; i < 1000; ++i) {
        QVERIFY(region.publish(i));
    }

    QCOMPARE(FutexCalls::wakes(), wakes);
    quint64 signalCount = 0;
    QCOMPARE(read(descriptor, &signalCount, sizeof signalCount), ssize_t{sizeof signalCount});
    QCOMPARE(signalCount, quint64{1}); // and the thread behind it was idle
}

void tst_WatcherDescriptor::threadInTheKernelIsArmedByTheAcknowledgement()
{
    WatchedRegion region;
    FutexCalls::boundOfAll = longBound; // so that it stays there until it is acknowledged
    MappedRegion block(region.description.segment);
    QVERIFY(block.attach());
    ProcessDataWatcher watcher(region.manager());
    const int descriptor = watcher.getDescriptor();
    quint64 seen = 0;
    QVERIFY(isReadable(descriptor));
    QVERIFY(waitFor([] { return FutexCalls::sleepers() == 1; }));
    QVERIFY(block.management()->armed != watcher.getGeneration() + 1);
    const int waits = FutexCalls::waits();

    QCOMPARE(watcher.acknowledge(seen), Result::NewSet);

    QCOMPARE(block.management()->armed.load(), seen + 1);
    QCOMPARE(FutexCalls::waits(), waits);
    QVERIFY(region.publish());
    QVERIFY(isReadable(descriptor));
}

void tst_WatcherDescriptor::otherWaitersDriveTheThreadOutOnce()
{
    WatchedRegion region;
    MappedRegion block(region.description.segment);
    QVERIFY(block.attach());
    const auto publishArmed = [&] {
        block.management()->armed = block.management()->swapCount + 1;
        return region.publish();
    };
    std::atomic<bool> isDrivenOut{false};
    std::atomic<int> laterWaits{0};
    FutexCalls::beforeWait = [&] { laterWaits += isDrivenOut ? 1 : 0; };
    ProcessDataWatcher watcher(region.manager());
    const int descriptor = watcher.getDescriptor();
    QVERIFY(isReadable(descriptor));
    QVERIFY(waitFor([] { return FutexCalls::sleepers() == 1; }));

    isDrivenOut = true;
    for (int i = 0; i < 1000; ++i) {
        QVERIFY(publishArmed());
    }

    QVERIFY(waitFor([] { return FutexCalls::sleepers() == 0; }));
    QCOMPARE(laterWaits.load(), 0);
    quint64 seen = 0;
    QCOMPARE(watcher.acknowledge(seen), Result::NewSet);
    QVERIFY(waitFor([] { return FutexCalls::sleepers() == 1; }));
    QVERIFY(region.publish());
    QVERIFY(isReadable(descriptor));
}

void tst_WatcherDescriptor::descriptorsOfOneRegionShareASleeper()
{
    WatchedRegion region;
    std::atomic<bool> isAlone{true};
    FutexCalls::beforeWait = [&] {
        if (FutexCalls::sleepers() > 0) {
            isAlone = false;
        }
    };
    std::list<ProcessDataWatcher> watchers;
    for (int i = 0; i < 10; ++i) {
        QVERIFY(watchers.emplace_back(region.manager()).getDescriptor() >= 0);
    }

    for (int i = 0; i < 100; ++i) {
        QVERIFY(region.publish());
        for (ProcessDataWatcher &watcher : watchers) {
            QVERIFY(isReadable(watcher.getDescriptor()));
            quint64 seen = watcher.getGeneration() - 1;
            QCOMPARE(watcher.acknowledge(seen), Result::NewSet);
        }
    }

    QVERIFY(isAlone);
}

void tst_WatcherDescriptor::acknowledgingTooOftenIsHarmless()
{
    WatchedRegion region;
    ProcessDataWatcher watcher(region.manager());
    quint64 seen = watcher.getGeneration();

    QCOMPARE(watcher.acknowledge(seen), Result::TimedOut); // before there is a descriptor
    const int descriptor = watcher.getDescriptor();
    QCOMPARE(watcher.acknowledge(seen), Result::TimedOut);
    QCOMPARE(watcher.acknowledge(seen), Result::TimedOut);

    QVERIFY(region.publish());
    QVERIFY(isReadable(descriptor));
    QCOMPARE(watcher.acknowledge(seen), Result::NewSet);
}

void tst_WatcherDescriptor::tellsOfEverySetInTheEnd()
{
    constexpr quint64 sets = 3000;
    WatchedRegion region;
    ProcessDataWatcher watcher(region.manager());
    const quint64 last = watcher.getGeneration() + sets;
    ChildProcess publisher([&](const ChildSide &parent) {
        LiveRegion own(region.description, ProcessDataManager::InitTypeSharedMemoryAttach);
        parent.say();
        for (quint64 i = 0; i < sets; ++i) {
            CHILD_VERIFY(WatchedRegion::publishThrough(own, static_cast<int>(i)));
        }
        return 0;
    });
    QVERIFY(publisher.waitUntilReady());
    const int descriptor = watcher.getDescriptor();

    quint64 seen = 0;
    while (seen < last) {
        QVERIFY(isReadable(descriptor));
        const quint64 former = seen;
        QCOMPARE(watcher.acknowledge(seen), Result::NewSet);
        QVERIFY(seen > former);
    }

    QCOMPARE(seen, last);
    QCOMPARE(publisher.waitForExit(), 0);
}

void tst_WatcherDescriptor::isReadableForGoodWhenTheRegionIsGone()
{
    WatchedRegion region;
    ProcessDataWatcher watcher(region.manager());
    const int descriptor = watcher.getDescriptor();
    quint64 seen = 0;
    QVERIFY(isReadable(descriptor));
    QCOMPARE(watcher.acknowledge(seen), Result::NewSet);

    QVERIFY(region.description.segment.remove());

    for (int i = 0; i < 3; ++i) {
        QVERIFY(isReadable(descriptor));
        QCOMPARE(watcher.acknowledge(seen), Result::RegionGone);
    }
}

void tst_WatcherDescriptor::isReadableForGoodAfterStop()
{
    WatchedRegion region;
    ProcessDataWatcher watcher(region.manager());
    const int descriptor = watcher.getDescriptor();
    quint64 seen = 0;
    QVERIFY(isReadable(descriptor));
    QCOMPARE(watcher.acknowledge(seen), Result::NewSet);

    watcher.stop();

    for (int i = 0; i < 3; ++i) {
        QVERIFY(isReadable(descriptor));
        QCOMPARE(watcher.acknowledge(seen), Result::Stopped);
    }
}

void tst_WatcherDescriptor::isTheSameEachTime()
{
    WatchedRegion region;
    ProcessDataWatcher watcher(region.manager());

    const int descriptor = watcher.getDescriptor();

    QVERIFY(descriptor >= 0);
    QCOMPARE(watcher.getDescriptor(), descriptor);
}

void tst_WatcherDescriptor::needsADescriptor()
{
    WatchedRegion region;
    ProcessDataWatcher watcher(region.manager());
    LogCapture log;
    int descriptor = 0;
    {
        const ResourceLimit none(RLIMIT_NOFILE, 0);
        descriptor = watcher.getDescriptor();
    }

    QCOMPARE(descriptor, -1);
    COMPARE_LOG(log, warning(QStringLiteral("No descriptor for waiting: Too many open files")));
    QVERIFY(watcher.getDescriptor() >= 0);
}

void tst_WatcherDescriptor::needsAThread()
{
    WatchedRegion region;
    ProcessDataWatcher watcher(region.manager());
    const int descriptorCount = countOf("/proc/self/fd");

    int descriptor = 0;
    LogCapture log;
    {
        const NoThreads narrow;
        descriptor = watcher.getDescriptor();
    }

    QCOMPARE(descriptor, -1);
    COMPARE_LOG(log, warning(QStringLiteral(
                         "No descriptor for waiting: Resource temporarily unavailable")));
    QCOMPARE(countOf("/proc/self/fd"), descriptorCount);
    QVERIFY(isReadable(watcher.getDescriptor())); // as soon as there are threads again
}

void tst_WatcherDescriptor::leavesNothing()
{
    WatchedRegion region;
    const int descriptors = countOf("/proc/self/fd");
    // The kernel lists a thread for a moment after it was joined.
    const auto hasThreadsBeside = [this](int more) {
        return waitFor([&] { return countOf("/proc/self/task") == m_ownThreads + more; });
    };
    QVERIFY(hasThreadsBeside(0));

    for (int i = 0; i < 5; ++i) {
        ProcessDataWatcher watcher(region.manager());
        QVERIFY(isReadable(watcher.getDescriptor()));
        QCOMPARE(countOf("/proc/self/fd"), descriptors + 1);
        QVERIFY(hasThreadsBeside(1));
    }

    QCOMPARE(countOf("/proc/self/fd"), descriptors);
    QVERIFY(hasThreadsBeside(0));
}

QTEST_GUILESS_MAIN(tst_WatcherDescriptor)
#include "tst_WatcherDescriptor.moc"
