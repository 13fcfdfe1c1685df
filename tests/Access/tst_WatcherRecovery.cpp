#include "Access/WaitingThread.h"
#include "support/LogCapture.h"
#include "support/ResourceLimit.h"

#include <QtTest>

#include <optional>

using namespace std::chrono_literals;
using Result = ProcessDataWatcher::Result;

namespace {

/// Long enough for two looks at the name, with a second between them.
constexpr std::chrono::milliseconds severalLooks = 20s;

/// So that this process can open nothing.
std::optional<ResourceLimit> withoutDescriptors()
{
    return std::optional<ResourceLimit>(std::in_place, RLIMIT_NOFILE, 0);
}

} // namespace

/// Watchers beside publishers and a system that let them down for a while.
class tst_WatcherRecovery : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup() { FutexCalls::tellNobody(); }
    void managerThatEndsInsideItsLockWakes();
    void nameIsFoundAsSoonAsThereAreDescriptors();
    void nameThatWentMeanwhileIsGone();
    void nameThatWasReplacedMeanwhileIsGone();
    void regionWhoseNameIsNotKnownIsNotGone();
};

void tst_WatcherRecovery::managerThatEndsInsideItsLockWakes()
{
    WatchedRegion region;
    auto publisher = std::make_unique<LiveRegion>(region.description,
                                                  ProcessDataManager::InitTypeSharedMemoryAttach);
    ProcessDataWatcher watcher(region.manager());
    const LogCapture log; // of a mutex that is destroyed while it is locked
    FutexCalls::boundOfAll = 10s;
    const int runOuts = FutexCalls::runOuts();
    WaitingThread waiting(watcher, longBound);
    QVERIFY(isAsleep());
    QVERIFY(publisher->manager.lockWriteBuffer());
    QVERIFY(publisher->manager.swapReadAndWriteBuffer());

    publisher.reset();
    waiting.join();

    QCOMPARE(waiting.result, Result::NewSet);
    QCOMPARE(FutexCalls::runOuts(), runOuts);
}

void tst_WatcherRecovery::nameIsFoundAsSoonAsThereAreDescriptors()
{
    WatchedRegion region;
    auto limit = withoutDescriptors();
    ProcessDataWatcher watcher(region.manager());
    quint64 seen = watcher.getGeneration();
    const Result without = watcher.wait(seen, 1ms);
    limit.reset();
    const Result with = watcher.wait(seen, 1ms);

    QVERIFY(region.description.segment.remove());

    QCOMPARE(without, Result::TimedOut);
    QCOMPARE(with, Result::TimedOut);
    QCOMPARE(watcher.wait(seen, severalLooks), Result::RegionGone);
}

void tst_WatcherRecovery::nameThatWentMeanwhileIsGone()
{
    WatchedRegion region;
    auto limit = withoutDescriptors();
    ProcessDataWatcher watcher(region.manager());
    limit.reset();
    QVERIFY(region.description.segment.remove());
    quint64 seen = watcher.getGeneration();

    QCOMPARE(watcher.wait(seen, severalLooks), Result::RegionGone);
}

void tst_WatcherRecovery::nameThatWasReplacedMeanwhileIsGone()
{
    WatchedRegion region;
    auto limit = withoutDescriptors();
    ProcessDataWatcher watcher(region.manager());
    limit.reset();
    const LiveRegion later(region.description);
    quint64 seen = watcher.getGeneration();

    QCOMPARE(watcher.wait(seen, severalLooks), Result::RegionGone);
}

/// Nobody can tell, and a region that is there is the rule.
void tst_WatcherRecovery::regionWhoseNameIsNotKnownIsNotGone()
{
    WatchedRegion region;
    const auto limit = withoutDescriptors();
    ProcessDataWatcher watcher(region.manager());
    const int waits = FutexCalls::waits();
    WaitingThread waiting(watcher, longBound);
    const bool hasSlept = waitFor([waits] { return FutexCalls::waits() > waits + 1; });

    const bool isPublished = region.publish();
    waiting.join();

    QVERIFY(hasSlept);
    QVERIFY(isPublished);
    QCOMPARE(waiting.result, Result::NewSet);
}

QTEST_GUILESS_MAIN(tst_WatcherRecovery)
#include "tst_WatcherRecovery.moc"
