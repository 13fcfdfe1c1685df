#include "Access/WaitingThread.h"
#include "support/LogCapture.h"
#include "support/ResourceLimit.h"

#include <QtTest>

#include <optional>

#include <poll.h>

using namespace std::chrono_literals;
using Result = ProcessDataWatcher::Result;

namespace {

/// Long enough for two looks at the name, with a second between them.
constexpr std::chrono::milliseconds severalLooks = 20s;

constexpr int longWait = 60000; // milliseconds

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
    void goneRegionIsToldBesideNewSets();
    void goneRegionIsToldByTheDescriptorBesideNewSets();
    void setsOfAGoneRegionAreNotTold();
    void whoIsBehindHearsOfTheLastSetOnce();
    void whoIsBehindHearsOfNoLaterSet();
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

/// As for a reader that is slower than a publisher who does not know of the end either.
void tst_WatcherRecovery::goneRegionIsToldBesideNewSets()
{
    WatchedRegion region;
    ProcessDataWatcher watcher(region.manager());
    quint64 seen = watcher.getGeneration();
    const auto publishAndWait = [&] {
        return region.publish() ? watcher.wait(seen, longBound) : Result::Stopped;
    };
    QCOMPARE(publishAndWait(), Result::NewSet);
    Result result = Result::NewSet;

    QVERIFY(region.description.segment.remove());

    QVERIFY(waitFor([&] {
        result = publishAndWait();
        return result != Result::NewSet;
    }));
    QCOMPARE(result, Result::RegionGone);
}

void tst_WatcherRecovery::goneRegionIsToldByTheDescriptorBesideNewSets()
{
    WatchedRegion region;
    ProcessDataWatcher watcher(region.manager());
    const int descriptor = watcher.getDescriptor();
    quint64 seen = 0;
    const auto publishAndAcknowledge = [&] {
        pollfd request{descriptor, POLLIN, 0};
        const bool isReadable = region.publish() && poll(&request, 1, longWait) == 1;
        return isReadable ? watcher.acknowledge(seen) : Result::Stopped;
    };
    QCOMPARE(publishAndAcknowledge(), Result::NewSet);
    Result result = Result::NewSet;

    QVERIFY(region.description.segment.remove());

    QVERIFY(waitFor([&] {
        result = publishAndAcknowledge();
        return result != Result::NewSet && result != Result::TimedOut;
    }));
    QCOMPARE(result, Result::RegionGone);
    QCOMPARE(publishAndAcknowledge(), Result::RegionGone);
}

void tst_WatcherRecovery::setsOfAGoneRegionAreNotTold()
{
    WatchedRegion region;
    ProcessDataWatcher watcher(region.manager());
    quint64 seen = watcher.getGeneration();
    QVERIFY(region.description.segment.remove());
    QCOMPARE(watcher.wait(seen, severalLooks), Result::RegionGone);
    const quint64 last = seen;

    QVERIFY(region.publish());

    QCOMPARE(watcher.wait(seen, endless), Result::RegionGone);
    QCOMPARE(watcher.acknowledge(seen), Result::RegionGone);
    QCOMPARE(seen, last);
    QCOMPARE(watcher.getGeneration(), last + 1); // and it can be read
}

void tst_WatcherRecovery::whoIsBehindHearsOfTheLastSetOnce()
{
    WatchedRegion region;
    ProcessDataWatcher watcher(region.manager());
    quint64 behind = watcher.getGeneration();
    quint64 alsoBehind = behind;
    QVERIFY(region.publish());
    quint64 seen = watcher.getGeneration();
    QVERIFY(region.description.segment.remove());
    QCOMPARE(watcher.wait(seen, severalLooks), Result::RegionGone);

    QCOMPARE(watcher.wait(behind, endless), Result::NewSet);
    QCOMPARE(watcher.acknowledge(alsoBehind), Result::NewSet);

    QCOMPARE(behind, seen);
    QCOMPARE(alsoBehind, seen);
    QVERIFY(region.publish());
    QCOMPARE(watcher.wait(behind, endless), Result::RegionGone);
    QCOMPARE(watcher.acknowledge(alsoBehind), Result::RegionGone);
}

void tst_WatcherRecovery::whoIsBehindHearsOfNoLaterSet()
{
    WatchedRegion region;
    ProcessDataWatcher watcher(region.manager());
    quint64 behind = watcher.getGeneration();
    quint64 alsoBehind = behind;
    QVERIFY(region.publish());
    quint64 seen = watcher.getGeneration();
    const quint64 last = seen;
    QVERIFY(region.description.segment.remove());
    QCOMPARE(watcher.wait(seen, severalLooks), Result::RegionGone);

    QVERIFY(region.publish());

    QCOMPARE(watcher.wait(behind, endless), Result::NewSet);
    QCOMPARE(behind, last);
    QCOMPARE(watcher.acknowledge(alsoBehind), Result::NewSet);
    QCOMPARE(alsoBehind, last);
    QCOMPARE(watcher.wait(behind, endless), Result::RegionGone);
    QCOMPARE(watcher.acknowledge(alsoBehind), Result::RegionGone);
}

QTEST_GUILESS_MAIN(tst_WatcherRecovery)
#include "tst_WatcherRecovery.moc"
