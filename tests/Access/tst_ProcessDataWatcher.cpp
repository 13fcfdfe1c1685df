#include "Access/WaitingThread.h"
#include "support/ChildProcess.h"
#include "support/LogCapture.h"
#include "support/RunTogether.h"

#include <QtTest>

#include <algorithm>
#include <atomic>
#include <memory>
#include <vector>

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using Result = ProcessDataWatcher::Result;

class tst_ProcessDataWatcher : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup() { FutexCalls::tellNobody(); }
    void singleBufferIsNotSupported();
    void managerWithoutMemoryIsNotSupported();
    void generationCountsSwaps();
    void setBeforeTheCallEndsItAtOnce();
    void publishedSetEndsTheWait();
    void setOfAnotherProcessEndsTheWait();
    void boundRunsOut();
    void boundOfNothingOnlyLooks();
    void boundThatNoClockHoldsIsNone();
    void idleWaiterSleepsASecondAtATime();
    void stopWakesTheSleeper();
    void stopMayEndTheOwnerOfTheWatcher();
    void stopReachesAThreadOnItsWayToSleep();
    void stopEndsLaterWaitsToo();
    void destructionEndsTheWait();
    void threadsOfAWatcherShareOneSleeper();
    void threadWhoseBoundEndsHandsOver();
    void removedNameIsNoticed();
    void replacedRegionIsNoticed();
    void lastSetComesBeforeTheEndOfTheRegion();
};

void tst_ProcessDataWatcher::singleBufferIsNotSupported()
{
    WatchedRegion region(false);
    ProcessDataWatcher watcher(region.manager());
    quint64 seen = 5;
    LogCapture log;

    QCOMPARE(watcher.getGeneration(), quint64{0});
    QCOMPARE(watcher.wait(seen, endless), Result::NotSupported);
    QCOMPARE(watcher.acknowledge(seen), Result::NotSupported);
    watcher.stop();
    COMPARE_LOG(log);
    QCOMPARE(watcher.getDescriptor(), -1);
    COMPARE_LOG(log,
                warning(QStringLiteral(
                    "Waiting for sets needs a double buffer, and a watcher of this process.")));
    QCOMPARE(seen, quint64{5});
}

void tst_ProcessDataWatcher::managerWithoutMemoryIsNotSupported()
{
    ProcessDataManager manager;
    ProcessDataWatcher watcher(manager);
    quint64 seen = 5;

    QCOMPARE(watcher.getGeneration(), quint64{0});
    QCOMPARE(watcher.wait(seen, endless), Result::NotSupported);
    QCOMPARE(seen, quint64{5});
}

void tst_ProcessDataWatcher::generationCountsSwaps()
{
    WatchedRegion region;
    const ProcessDataWatcher watcher(region.manager());
    const quint64 begin = watcher.getGeneration();

    QVERIFY(region.publish());
    QVERIFY(region.publish());

    QCOMPARE(watcher.getGeneration(), begin + 2);
}

void tst_ProcessDataWatcher::setBeforeTheCallEndsItAtOnce()
{
    WatchedRegion region;
    ProcessDataWatcher watcher(region.manager());
    quint64 seen = watcher.getGeneration();
    QVERIFY(region.publish());
    QVERIFY(region.publish());
    const int waits = FutexCalls::waits();

    QCOMPARE(watcher.wait(seen, endless), Result::NewSet);

    QCOMPARE(seen, watcher.getGeneration());
    QCOMPARE(FutexCalls::waits(), waits);
}

void tst_ProcessDataWatcher::publishedSetEndsTheWait()
{
    WatchedRegion region;
    ProcessDataWatcher watcher(region.manager());
    WaitingThread waiting(watcher);
    QVERIFY(isAsleep());

    const bool isPublished = region.publish();
    waiting.join();

    QVERIFY(isPublished);
    QCOMPARE(waiting.result, Result::NewSet);
    QCOMPARE(waiting.seen, watcher.getGeneration());
}

void tst_ProcessDataWatcher::setOfAnotherProcessEndsTheWait()
{
    WatchedRegion region;
    ProcessDataWatcher watcher(region.manager());
    ChildProcess publisher([&](const ChildSide &parent) {
        LiveRegion own(region.description, ProcessDataManager::InitTypeSharedMemoryAttach);
        parent.say();
        parent.waitForWord();
        CHILD_VERIFY(WatchedRegion::publishThrough(own, 3));
        return 0;
    });
    QVERIFY(publisher.waitUntilReady());
    WaitingThread waiting(watcher);
    QVERIFY(isAsleep());

    publisher.tell();
    waiting.join();

    QCOMPARE(publisher.waitForExit(), 0);
    QCOMPARE(waiting.result, Result::NewSet);
}

void tst_ProcessDataWatcher::boundRunsOut()
{
    WatchedRegion region;
    ProcessDataWatcher watcher(region.manager());
    const quint64 generation = watcher.getGeneration();
    quint64 seen = generation;
    const auto begin = Clock::now();

    QCOMPARE(watcher.wait(seen, 30ms), Result::TimedOut);

    QVERIFY(Clock::now() - begin >= 30ms);
    QCOMPARE(seen, generation);
}

void tst_ProcessDataWatcher::boundOfNothingOnlyLooks()
{
    WatchedRegion region;
    ProcessDataWatcher watcher(region.manager());
    quint64 seen = watcher.getGeneration();
    const int waits = FutexCalls::waits();

    QCOMPARE(watcher.wait(seen, 0ms), Result::TimedOut);

    QCOMPARE(FutexCalls::waits(), waits);
}

void tst_ProcessDataWatcher::boundThatNoClockHoldsIsNone()
{
    WatchedRegion region;
    ProcessDataWatcher watcher(region.manager());
    WaitingThread waiting(watcher, std::chrono::milliseconds::max());
    QVERIFY(isAsleep());

    QVERIFY(region.publish());
    waiting.join();

    QCOMPARE(waiting.result, Result::NewSet);
}

void tst_ProcessDataWatcher::idleWaiterSleepsASecondAtATime()
{
    WatchedRegion region;
    ProcessDataWatcher watcher(region.manager());
    quint64 seen = watcher.getGeneration();
    const int waits = FutexCalls::waits();

    QCOMPARE(watcher.wait(seen, 2500ms), Result::TimedOut);

    // Fewer on a busy machine, where a sleep lasts longer than its bound.
    const int made = FutexCalls::waits() - waits;
    QVERIFY2(made <= 3, qPrintable(QString::number(made)));
    QVERIFY(FutexCalls::longestBound() == 1s);
}

void tst_ProcessDataWatcher::stopWakesTheSleeper()
{
    WatchedRegion region;
    FutexCalls::boundOfAll = longBound;
    const int runOuts = FutexCalls::runOuts();
    for (int i = 0; i < 11; ++i) {
        ProcessDataWatcher watcher(region.manager());
        WaitingThread waiting(watcher);
        QVERIFY(isAsleep());

        watcher.stop();
        waiting.join();

        QCOMPARE(waiting.result, Result::Stopped);
        // Not by the end of its sleep, however long this machine took.
        QCOMPARE(FutexCalls::runOuts(), runOuts);
    }
}

/// The thread that waits takes the watcher with it, while the one that stops it is still inside.
void tst_ProcessDataWatcher::stopMayEndTheOwnerOfTheWatcher()
{
    WatchedRegion region;
    for (int i = 0; i < 50; ++i) {
        auto watcher = std::make_unique<ProcessDataWatcher>(region.manager());
        ProcessDataWatcher &stopped = *watcher;
        Result result = Result::NotSupported;
        std::thread owner([&] {
            quint64 seen = watcher->getGeneration();
            result = watcher->wait(seen, endless);
            watcher.reset();
        });
        QVERIFY(isAsleep());

        stopped.stop();
        owner.join();

        QCOMPARE(result, Result::Stopped);
    }
}

void tst_ProcessDataWatcher::stopReachesAThreadOnItsWayToSleep()
{
    WatchedRegion region;
    ProcessDataWatcher watcher(region.manager());
    FutexCalls::boundOfAll = longBound;
    const int runOuts = FutexCalls::runOuts();
    std::thread stopping;
    FutexCalls::beforeWait = [&] {
        if (stopping.joinable()) {
            return;
        }
        const int wakes = FutexCalls::wakes();
        stopping = std::thread([&] { watcher.stop(); });
        waitFor([&] { return FutexCalls::wakes() > wakes; }); // which has woken nobody
    };
    quint64 seen = watcher.getGeneration();

    const Result result = watcher.wait(seen, endless);
    stopping.join();

    QCOMPARE(result, Result::Stopped);
    QCOMPARE(FutexCalls::runOuts(), runOuts);
}

void tst_ProcessDataWatcher::stopEndsLaterWaitsToo()
{
    WatchedRegion region;
    ProcessDataWatcher watcher(region.manager());
    quint64 seen = watcher.getGeneration();

    watcher.stop();

    QCOMPARE(watcher.wait(seen, endless), Result::Stopped);
    QVERIFY(region.publish());
    QCOMPARE(watcher.wait(seen, endless), Result::Stopped);
    QCOMPARE(watcher.getGeneration(), seen + 1);
}

void tst_ProcessDataWatcher::destructionEndsTheWait()
{
    WatchedRegion region;
    auto watcher = std::make_unique<ProcessDataWatcher>(region.manager());
    WaitingThread waiting(*watcher);
    QVERIFY(isAsleep());

    watcher.reset();
    waiting.join();

    QCOMPARE(waiting.result, Result::Stopped);
}

void tst_ProcessDataWatcher::threadsOfAWatcherShareOneSleeper()
{
    constexpr quint64 sets = 200;
    WatchedRegion region;
    ProcessDataWatcher watcher(region.manager());
    const quint64 last = watcher.getGeneration() + sets;
    std::atomic<bool> isAlone{true};
    std::atomic<int> failures{0};
    FutexCalls::beforeWait = [&] {
        if (FutexCalls::sleepers() > 0) {
            isAlone = false;
        }
    };
    const auto waitForAll = [&] {
        for (quint64 seen = watcher.getGeneration(); seen < last;) {
            failures += watcher.wait(seen, endless) == Result::NewSet ? 0 : 1;
        }
    };
    std::vector<std::function<void()>> bodies(8, waitForAll);
    bodies.emplace_back([&] {
        for (quint64 i = 0; i < sets; ++i) {
            // Each set meets a sleeper, or the others would have nobody to hear from.
            waitFor([] { return FutexCalls::sleepers() == 1; });
            failures += region.publish() ? 0 : 1;
        }
    });

    runTogether(bodies);

    QCOMPARE(failures.load(), 0);
    QVERIFY(isAlone);
}

void tst_ProcessDataWatcher::threadWhoseBoundEndsHandsOver()
{
    WatchedRegion region;
    ProcessDataWatcher watcher(region.manager());
    const int waits = FutexCalls::waits();
    std::unique_ptr<WaitingThread> second;
    bool isBehind = false;
    FutexCalls::beforeWait = [&] {
        // From the first thread, which is about to sleep for all.
        if (!second) {
            second = std::make_unique<WaitingThread>(watcher, longBound);
            isBehind = waitFor([&] { return second->isAsleep(); });
        }
    };
    quint64 seen = watcher.getGeneration();

    QCOMPARE(watcher.wait(seen, 50ms), Result::TimedOut);

    QVERIFY(isBehind);
    QVERIFY(waitFor([&] { return FutexCalls::waits() > waits + 1; }));
    QVERIFY(region.publish());
    second->join();
    QCOMPARE(second->result, Result::NewSet);
}

void tst_ProcessDataWatcher::removedNameIsNoticed()
{
    WatchedRegion region;
    ProcessDataWatcher watcher(region.manager());
    WaitingThread waiting(watcher, longBound);
    QVERIFY(isAsleep());

    QVERIFY(region.description.segment.remove());
    waiting.join();

    QCOMPARE(waiting.result, Result::RegionGone);
    QCOMPARE(watcher.wait(waiting.seen, endless), Result::RegionGone);
}

void tst_ProcessDataWatcher::replacedRegionIsNoticed()
{
    WatchedRegion region;
    ProcessDataWatcher watcher(region.manager());
    WaitingThread waiting(watcher, longBound);
    QVERIFY(isAsleep());

    const LiveRegion later(region.description);
    waiting.join();

    QCOMPARE(waiting.result, Result::RegionGone);
}

void tst_ProcessDataWatcher::lastSetComesBeforeTheEndOfTheRegion()
{
    WatchedRegion region;
    ProcessDataWatcher watcher(region.manager());
    quint64 seen = watcher.getGeneration();
    QVERIFY(region.publish());
    QVERIFY(region.description.segment.remove());

    QCOMPARE(watcher.wait(seen, longBound), Result::NewSet);
    QCOMPARE(watcher.wait(seen, longBound), Result::RegionGone);
}

QTEST_GUILESS_MAIN(tst_ProcessDataWatcher)
#include "tst_ProcessDataWatcher.moc"
