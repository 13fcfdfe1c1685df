#include "Access/WaitingThread.h"
#include "support/RunTogether.h"

#include <QtTest>

#include <list>
#include <memory>
#include <vector>

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using Result = ProcessDataWatcher::Result;

namespace {

/// A watcher of its own mapping of a region.
struct AttachedWatcher
{
    explicit AttachedWatcher(const WatchedRegion &region)
        : live(region.description, ProcessDataManager::InitTypeSharedMemoryAttach)
        , watcher(live.manager)
    {
    }

    LiveRegion live;
    ProcessDataWatcher watcher;
};

} // namespace

/// Several watchers of one region in one process: whichever of them waits, one thread sleeps in the
/// kernel for all.
class tst_SharedWaiting : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { m_isAlone = true; }
    void cleanup() { FutexCalls::tellNobody(); }
    void aHundredWatchersAreOneSleeper();
    void watchersOfSeveralMappingsAreOneSleeper();
    void everySetReachesAllWatchers();
    void otherRegionHasASleeperOfItsOwn();
    void stopOfOneBehindTheSleeperWakesNobodyInTheKernel();
    void stopOfTheSleeperHandsOver();
    void destructionOfTheSleeperHandsOver();
    void boundOfTheSleeperHandsOver();
    void removedNameReachesAllWatchers();
    void nameIsLookedForAfterTheEndOfTheFirstMapping();
    void setReachesASleeperAfterTheEndOfTheFirstMapping();
    void watcherThatComesLaterLooksForTheNameAtOnce();
    void placeIsLeftWithItsLastWatcher();

private:
    void noteCompany()
    {
        FutexCalls::beforeWait = [this] {
            if (FutexCalls::sleepers() > 0) {
                m_isAlone = false;
            }
        };
    }

    std::atomic<bool> m_isAlone{true};
};

void tst_SharedWaiting::aHundredWatchersAreOneSleeper()
{
    WatchedRegion region;
    noteCompany();
    std::list<ProcessDataWatcher> watchers;
    std::list<WaitingThread> threads;
    for (int i = 0; i < 100; ++i) {
        threads.emplace_back(watchers.emplace_back(region.manager()));
    }
    QVERIFY(isAsleep());
    for (const WaitingThread &thread : threads) {
        QVERIFY(waitFor([&] { return thread.isAsleep(); }));
    }
    const int wakes = FutexCalls::wakes();

    const bool isPublished = region.publish();
    for (WaitingThread &thread : threads) {
        thread.join();
        QCOMPARE(thread.result, Result::NewSet);
    }

    QVERIFY(isPublished);
    QVERIFY(m_isAlone);
    QCOMPARE(FutexCalls::wakes(), wakes + 1);
}

void tst_SharedWaiting::watchersOfSeveralMappingsAreOneSleeper()
{
    WatchedRegion region;
    noteCompany();
    std::list<AttachedWatcher> watchers;
    std::list<WaitingThread> threads;
    for (int i = 0; i < 5; ++i) {
        threads.emplace_back(watchers.emplace_back(region).watcher);
    }
    QVERIFY(isAsleep());

    const bool isPublished = region.publish();
    for (WaitingThread &thread : threads) {
        thread.join();
        QCOMPARE(thread.result, Result::NewSet);
    }

    QVERIFY(isPublished);
    QVERIFY(m_isAlone);
}

void tst_SharedWaiting::everySetReachesAllWatchers()
{
    constexpr quint64 sets = 200;
    WatchedRegion region;
    std::list<ProcessDataWatcher> watchers;
    std::vector<std::function<void()>> bodies;
    std::atomic<int> failures{0};
    noteCompany();
    for (int i = 0; i < 8; ++i) {
        ProcessDataWatcher &watcher = watchers.emplace_back(region.manager());
        bodies.emplace_back([&, last = watcher.getGeneration() + sets] {
            for (quint64 seen = watcher.getGeneration(); seen < last;) {
                failures += watcher.wait(seen, endless) == Result::NewSet ? 0 : 1;
            }
        });
    }
    bodies.emplace_back([&] {
        for (quint64 i = 0; i < sets; ++i) {
            // Each set meets a sleeper, or the others would have nobody to hear from.
            waitFor([] { return FutexCalls::sleepers() == 1; });
            failures += region.publish() ? 0 : 1;
        }
    });

    runTogether(bodies);

    QCOMPARE(failures.load(), 0);
    QVERIFY(m_isAlone);
}

void tst_SharedWaiting::otherRegionHasASleeperOfItsOwn()
{
    WatchedRegion region;
    WatchedRegion other;
    ProcessDataWatcher watcher(region.manager());
    ProcessDataWatcher otherWatcher(other.manager());
    WaitingThread waiting(watcher);
    WaitingThread otherWaiting(otherWatcher);

    QVERIFY(waitFor([] { return FutexCalls::sleepers() == 2; }));
    QVERIFY(other.publish());
    otherWaiting.join();

    QCOMPARE(otherWaiting.result, Result::NewSet);
    QCOMPARE(FutexCalls::sleepers(), 1);
    QVERIFY(region.publish());
    waiting.join();
    QCOMPARE(waiting.result, Result::NewSet);
}

void tst_SharedWaiting::stopOfOneBehindTheSleeperWakesNobodyInTheKernel()
{
    WatchedRegion region;
    ProcessDataWatcher watcher(region.manager());
    ProcessDataWatcher behind(region.manager());
    WaitingThread waiting(watcher);
    QVERIFY(isAsleep());
    WaitingThread waitingBehind(behind);
    QVERIFY(waitFor([&] { return waitingBehind.isAsleep(); }));
    const int wakes = FutexCalls::wakes();

    behind.stop();
    waitingBehind.join();

    QCOMPARE(waitingBehind.result, Result::Stopped);
    QCOMPARE(FutexCalls::wakes(), wakes);
    QVERIFY(region.publish());
    waiting.join();
    QCOMPARE(waiting.result, Result::NewSet);
}

void tst_SharedWaiting::stopOfTheSleeperHandsOver()
{
    WatchedRegion region;
    ProcessDataWatcher watcher(region.manager());
    ProcessDataWatcher behind(region.manager());
    WaitingThread waiting(watcher);
    QVERIFY(isAsleep());
    WaitingThread waitingBehind(behind);
    QVERIFY(waitFor([&] { return waitingBehind.isAsleep(); }));

    watcher.stop();
    waiting.join();

    QCOMPARE(waiting.result, Result::Stopped);
    QVERIFY(isAsleep());
    QVERIFY(region.publish());
    waitingBehind.join();
    QCOMPARE(waitingBehind.result, Result::NewSet);
}

void tst_SharedWaiting::destructionOfTheSleeperHandsOver()
{
    WatchedRegion region;
    auto watcher = std::make_unique<ProcessDataWatcher>(region.manager());
    ProcessDataWatcher behind(region.manager());
    WaitingThread waiting(*watcher);
    QVERIFY(isAsleep());
    WaitingThread waitingBehind(behind);
    QVERIFY(waitFor([&] { return waitingBehind.isAsleep(); }));

    watcher.reset();
    waiting.join();

    QCOMPARE(waiting.result, Result::Stopped);
    QVERIFY(isAsleep());
    QVERIFY(region.publish());
    waitingBehind.join();
    QCOMPARE(waitingBehind.result, Result::NewSet);
}

void tst_SharedWaiting::boundOfTheSleeperHandsOver()
{
    WatchedRegion region;
    ProcessDataWatcher watcher(region.manager());
    ProcessDataWatcher behind(region.manager());
    std::unique_ptr<WaitingThread> waitingBehind;
    bool isBehind = false;
    FutexCalls::beforeWait = [&] {
        // From the first thread, which is about to sleep for all: seen from outside its sleep could be over.
        if (!waitingBehind) {
            waitingBehind = std::make_unique<WaitingThread>(behind);
            isBehind = waitFor([&] { return waitingBehind->isAsleep(); });
        }
    };
    quint64 seen = watcher.getGeneration();

    QCOMPARE(watcher.wait(seen, 250ms), Result::TimedOut);

    QVERIFY(isBehind);
    QVERIFY(isAsleep());
    QVERIFY(region.publish());
    waitingBehind->join();
    QCOMPARE(waitingBehind->result, Result::NewSet);
}

void tst_SharedWaiting::removedNameReachesAllWatchers()
{
    WatchedRegion region;
    ProcessDataWatcher watcher(region.manager());
    AttachedWatcher other(region);
    WaitingThread waiting(watcher, longBound);
    QVERIFY(isAsleep());
    WaitingThread waitingBehind(other.watcher, longBound);
    QVERIFY(waitFor([&] { return waitingBehind.isAsleep(); }));

    QVERIFY(region.description.segment.remove());
    waiting.join();
    waitingBehind.join();

    QCOMPARE(waiting.result, Result::RegionGone);
    QCOMPARE(waitingBehind.result, Result::RegionGone);
}

/// What lies at its address then is no longer the region.
void tst_SharedWaiting::nameIsLookedForAfterTheEndOfTheFirstMapping()
{
    WatchedRegion region;
    auto first = std::make_unique<AttachedWatcher>(region);
    AttachedWatcher second(region);
    const quint64 before = second.watcher.getGeneration();
    first.reset();
    QVERIFY(region.publish());
    QVERIFY(region.description.segment.remove());

    quint64 seen = before;
    QCOMPARE(second.watcher.wait(seen, 0ms), Result::NewSet);
    QCOMPARE(seen, before + 1);
    QCOMPARE(second.watcher.wait(seen, longBound), Result::RegionGone);
}

void tst_SharedWaiting::setReachesASleeperAfterTheEndOfTheFirstMapping()
{
    WatchedRegion region;
    auto first = std::make_unique<AttachedWatcher>(region);
    AttachedWatcher second(region);
    AttachedWatcher third(region);
    WaitingThread waitingFirst(first->watcher);
    QVERIFY(isAsleep());
    WaitingThread waiting(second.watcher);
    WaitingThread waitingBehind(third.watcher);
    QVERIFY(waitFor([&] { return waiting.isAsleep() && waitingBehind.isAsleep(); }));

    first->watcher.stop();
    waitingFirst.join();
    first.reset();
    QVERIFY(isAsleep());
    const bool isPublished = region.publish();
    waiting.join();
    waitingBehind.join();

    QVERIFY(isPublished);
    QCOMPARE(waiting.result, Result::NewSet);
    QCOMPARE(waitingBehind.result, Result::NewSet);
}

void tst_SharedWaiting::watcherThatComesLaterLooksForTheNameAtOnce()
{
    WatchedRegion region;
    ProcessDataWatcher watcher(region.manager());
    quint64 seen = watcher.getGeneration();
    QCOMPARE(watcher.wait(seen, 1ms), Result::TimedOut); // has just looked
    QVERIFY(region.description.segment.remove());
    ProcessDataWatcher later(region.manager());
    const int waits = FutexCalls::waits();

    QCOMPARE(later.wait(seen, longBound), Result::RegionGone);

    QCOMPARE(FutexCalls::waits(), waits);
}

/// The next watcher of a region begins anew, without what was found out about a former one.
void tst_SharedWaiting::placeIsLeftWithItsLastWatcher()
{
    WatchedRegion region;
    quint64 seen = 0;
    {
        ProcessDataWatcher watcher(region.manager());
        seen = watcher.getGeneration();
        QVERIFY(region.description.segment.remove());
        QCOMPARE(watcher.wait(seen, longBound), Result::RegionGone);
    }
    region.region = std::make_unique<LiveRegion>(region.description);
    ProcessDataWatcher watcher(region.manager());
    seen = watcher.getGeneration();

    QCOMPARE(watcher.wait(seen, 1ms), Result::TimedOut);
}

QTEST_GUILESS_MAIN(tst_SharedWaiting)
#include "tst_SharedWaiting.moc"
