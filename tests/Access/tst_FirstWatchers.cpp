// One function alone: the first watchers of a process are there but once.

#include "Access/WatchedRegion.h"

#include <QtTest>

#include <atomic>
#include <memory>
#include <thread>

using Result = ProcessDataWatcher::Result;

class tst_FirstWatchers : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void watcherOfAThreadFindsWhatThatOfAnotherOneHasMade();
};

void tst_FirstWatchers::watcherOfAThreadFindsWhatThatOfAnotherOneHasMade()
{
    WatchedRegion region;
    std::atomic<bool> isFirstMade{false};
    std::unique_ptr<ProcessDataWatcher> second;
    // No order but that of the library itself lies between the first watcher and this thread.
    std::thread other([&] {
        while (!isFirstMade.load(std::memory_order_relaxed)) {
            std::this_thread::yield();
        }
        second = std::make_unique<ProcessDataWatcher>(region.manager());
    });

    ProcessDataWatcher first(region.manager());
    isFirstMade.store(true, std::memory_order_relaxed);
    other.join();

    const quint64 before = first.getGeneration();
    QCOMPARE(second->getGeneration(), before);
    QVERIFY(region.publish());
    quint64 seen = before;
    QCOMPARE(first.wait(seen, longBound), Result::NewSet);
    seen = before;
    QCOMPARE(second->wait(seen, longBound), Result::NewSet);
    QCOMPARE(seen, before + 1);
}

QTEST_GUILESS_MAIN(tst_FirstWatchers)
#include "tst_FirstWatchers.moc"
