#include "Access/ProcessDataNotifier.h"
#include "Access/ReadingRegion.h"
#include "Access/WaitingThread.h"
#include "support/ChildProcess.h"

#include <QSignalSpy>
#include <QtTest>

#include <poll.h>

using namespace std::chrono_literals;
using Result = ProcessDataWatcher::Result;

namespace {

bool isReadable(int descriptor, int bound)
{
    pollfd input{descriptor, POLLIN, 0};
    return poll(&input, 1, bound) == 1 && (input.revents & POLLIN) != 0;
}

constexpr int longPoll = 60000;

} // namespace

/// Watchers of a region that cannot be written: whoever stores into it ends this program.
class tst_ReadingWatcher : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup() { FutexCalls::tellNobody(); }
    void singleBufferIsNotSupported();
    void setBeforeTheCallEndsItAtOnce();
    void publishedSetEndsTheWait();
    void setOfAnotherProcessEndsTheWait();
    void nobodyIsTold();
    void boundRunsOut();
    void stopEndsTheWait();
    void destructionEndsTheWait();
    void manyThreadsHearOfASet();
    void watchersOfBothKindsHearOfASet();
    void descriptorTellsOfSets();
    void descriptorTellsOfStop();
    void notifierTellsOfSets();
    void removedNameIsNoticed();
    void replacedRegionIsNoticed();
};

void tst_ReadingWatcher::singleBufferIsNotSupported()
{
    const WatchedRegion region(false);
    ReadingRegion reader(region.description);
    ProcessDataWatcher watcher(reader.manager());
    quint64 seen = 5;

    QCOMPARE(watcher.wait(seen, endless), Result::NotSupported);
    QCOMPARE(watcher.getGeneration(), quint64{0});
}

void tst_ReadingWatcher::setBeforeTheCallEndsItAtOnce()
{
    WatchedRegion region;
    ReadingRegion reader(region.description);
    ProcessDataWatcher watcher(reader.manager());
    quint64 seen = watcher.getGeneration();
    QCOMPARE(seen, quint64{1});
    QVERIFY(region.publish());
    QVERIFY(region.publish());

    QCOMPARE(watcher.wait(seen, endless), Result::NewSet);
    QCOMPARE(seen, quint64{3});
}

void tst_ReadingWatcher::publishedSetEndsTheWait()
{
    WatchedRegion region;
    ReadingRegion reader(region.description);
    ProcessDataWatcher watcher(reader.manager());
    for (quint64 generation = 2; generation < 6; ++generation) {
        WaitingThread waiting(watcher);
        QVERIFY(waitFor([&] { return waiting.isAsleep(); }));

        const bool isPublished = region.publish();
        waiting.join();

        QVERIFY(isPublished);
        QCOMPARE(waiting.result, Result::NewSet);
        QCOMPARE(waiting.seen, generation);
    }
}

void tst_ReadingWatcher::setOfAnotherProcessEndsTheWait()
{
    const WatchedRegion region;
    ReadingRegion reader(region.description);
    ChildProcess publisher([&region](const ChildSide &parent) {
        parent.waitForWord();
        LiveRegion other(region.description, ProcessDataManager::InitTypeSharedMemoryAttach);
        return WatchedRegion::publishThrough(other, 5) ? 0 : 1;
    });
    ProcessDataWatcher watcher(reader.manager());
    WaitingThread waiting(watcher);
    QVERIFY(waitFor([&] { return waiting.isAsleep(); }));

    publisher.tell();
    waiting.join();

    QCOMPARE(publisher.waitForExit(), 0);
    QCOMPARE(waiting.result, Result::NewSet);
    QCOMPARE(reader.number(QStringLiteral("number")), 5);
}

void tst_ReadingWatcher::nobodyIsTold()
{
    WatchedRegion region;
    ReadingRegion reader(region.description);
    ProcessDataWatcher watcher(reader.manager());
    const int waits = FutexCalls::waits();
    const int wakes = FutexCalls::wakes();
    const QByteArray memory = region.description.segment.content();
    {
        WaitingThread waiting(watcher);
        QVERIFY(waitFor([&] { return waiting.isAsleep(); }));
        QVERIFY(watcher.getDescriptor() >= 0);
        QCOMPARE(region.description.segment.content(), memory);
        QVERIFY(region.publish());
        waiting.join();
        QVERIFY(isReadable(watcher.getDescriptor(), longPoll));
    }
    watcher.stop();

    QCOMPARE(FutexCalls::waits(), waits);
    QCOMPARE(FutexCalls::wakes(), wakes);
}

void tst_ReadingWatcher::boundRunsOut()
{
    const WatchedRegion region;
    ReadingRegion reader(region.description);
    ProcessDataWatcher watcher(reader.manager());
    quint64 seen = watcher.getGeneration();
    QElapsedTimer timer;
    timer.start();

    QCOMPARE(watcher.wait(seen, 0ms), Result::TimedOut);
    QCOMPARE(watcher.wait(seen, 50ms), Result::TimedOut);
    QVERIFY(timer.elapsed() >= 50);
    QCOMPARE(seen, quint64{1});
}

void tst_ReadingWatcher::stopEndsTheWait()
{
    const WatchedRegion region;
    ReadingRegion reader(region.description);
    ProcessDataWatcher watcher(reader.manager());
    WaitingThread waiting(watcher);
    QVERIFY(waitFor([&] { return waiting.isAsleep(); }));

    watcher.stop();
    waiting.join();

    QCOMPARE(waiting.result, Result::Stopped);
    quint64 seen = 0;
    QCOMPARE(watcher.wait(seen, endless), Result::Stopped);
}

void tst_ReadingWatcher::destructionEndsTheWait()
{
    const WatchedRegion region;
    ReadingRegion reader(region.description);
    auto watcher = std::make_unique<ProcessDataWatcher>(reader.manager());
    WaitingThread waiting(*watcher);
    QVERIFY(waitFor([&] { return waiting.isAsleep(); }));

    watcher.reset();
    waiting.join();

    QCOMPARE(waiting.result, Result::Stopped);
}

void tst_ReadingWatcher::manyThreadsHearOfASet()
{
    WatchedRegion region;
    ReadingRegion reader(region.description);
    ProcessDataWatcher watcher(reader.manager());
    std::vector<std::unique_ptr<WaitingThread>> all;
    for (int i = 0; i < 5; ++i) {
        all.push_back(std::make_unique<WaitingThread>(watcher));
    }

    const bool isPublished = region.publish();
    for (const auto &waiting : all) {
        waiting->join();
    }

    QVERIFY(isPublished);
    for (const auto &waiting : all) {
        QCOMPARE(waiting->result, Result::NewSet);
        QCOMPARE(waiting->seen, quint64{2});
    }
}

/// Both kinds wait at the same place of the process; a wake of the one is not to be lost to the other.
void tst_ReadingWatcher::watchersOfBothKindsHearOfASet()
{
    WatchedRegion region;
    ReadingRegion reader(region.description);
    LiveRegion attached(region.description, ProcessDataManager::InitTypeSharedMemoryAttach);
    ProcessDataWatcher reading(reader.manager());
    ProcessDataWatcher other(attached.manager);
    for (quint64 generation = 2; generation < 12; ++generation) {
        WaitingThread first(reading);
        WaitingThread second(other);
        WaitingThread third(reading);
        QVERIFY(waitFor([&] { return first.isAsleep() && third.isAsleep(); }) && isAsleep());

        const bool isPublished = region.publish();
        first.join();
        second.join();
        third.join();

        QVERIFY(isPublished);
        QCOMPARE(first.seen, generation);
        QCOMPARE(second.seen, generation);
        QCOMPARE(third.seen, generation);
    }
}

void tst_ReadingWatcher::descriptorTellsOfSets()
{
    WatchedRegion region;
    ReadingRegion reader(region.description);
    ProcessDataWatcher watcher(reader.manager());
    const int descriptor = watcher.getDescriptor();
    QVERIFY(descriptor >= 0);
    quint64 seen = 0;
    QVERIFY(isReadable(descriptor, longPoll));
    QCOMPARE(watcher.acknowledge(seen), Result::NewSet);
    QCOMPARE(seen, quint64{1});
    QVERIFY(!isReadable(descriptor, 0));
    QCOMPARE(watcher.acknowledge(seen), Result::TimedOut);

    for (quint64 generation = 2; generation < 7; ++generation) {
        QVERIFY(region.publish());
        QVERIFY(isReadable(descriptor, longPoll));
        QCOMPARE(watcher.acknowledge(seen), Result::NewSet);
        QCOMPARE(seen, generation);
        QVERIFY(!isReadable(descriptor, 0));
    }
}

void tst_ReadingWatcher::descriptorTellsOfStop()
{
    const WatchedRegion region;
    ReadingRegion reader(region.description);
    ProcessDataWatcher watcher(reader.manager());
    const int descriptor = watcher.getDescriptor();
    quint64 seen = 0;
    QCOMPARE(watcher.acknowledge(seen), Result::NewSet);

    watcher.stop();

    QVERIFY(isReadable(descriptor, longPoll));
    QCOMPARE(watcher.acknowledge(seen), Result::Stopped);
}

void tst_ReadingWatcher::notifierTellsOfSets()
{
    WatchedRegion region;
    ReadingRegion reader(region.description);
    ProcessDataNotifier notifier(reader.manager());
    QSignalSpy published(&notifier, &ProcessDataNotifier::published);
    QVERIFY(notifier.isActive());
    QTRY_COMPARE_WITH_TIMEOUT(published.size(), 1, longPoll);

    QVERIFY(region.publish());

    QTRY_COMPARE_WITH_TIMEOUT(published.size(), 2, longPoll);
    QCOMPARE(published.last().first().toULongLong(), quint64{2});
}

void tst_ReadingWatcher::removedNameIsNoticed()
{
    WatchedRegion region;
    ReadingRegion reader(region.description);
    ProcessDataWatcher watcher(reader.manager());
    quint64 seen = watcher.getGeneration();
    region.region.reset();

    QCOMPARE(watcher.wait(seen, endless), Result::RegionGone);
    QCOMPARE(reader.number(QStringLiteral("number")), -1);
}

void tst_ReadingWatcher::replacedRegionIsNoticed()
{
    WatchedRegion region;
    ReadingRegion reader(region.description);
    ProcessDataWatcher watcher(reader.manager());
    WaitingThread waiting(watcher);
    QVERIFY(waitFor([&] { return waiting.isAsleep(); }));

    const LiveRegion next(region.description);
    waiting.join();

    QCOMPARE(waiting.result, Result::RegionGone);
}

QTEST_GUILESS_MAIN(tst_ReadingWatcher)
#include "tst_ReadingWatcher.moc"
