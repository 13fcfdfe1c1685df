#include "Access/WaitingThread.h"
#include "support/SemaphoreCalls.h"

#include <QtTest>

#include <dlfcn.h>
#include <sys/stat.h>

using namespace std::chrono_literals;
using Result = ProcessDataWatcher::Result;

namespace {

std::atomic<int> statusCalls{0};

/// Calls that this program makes for waiting and waking.
int futexCalls()
{
    return FutexCalls::waits() + FutexCalls::wakes();
}

/// From then on the write lock stays with this process.
bool publishUntilOwner(WatchedRegion &region)
{
    int before = -1;
    return waitFor([&] {
        before = SemaphoreCalls::operations();
        return !region.publish() || SemaphoreCalls::operations() == before;
    });
}

} // namespace

extern "C" Q_DECL_EXPORT int stat(const char *path, struct stat *status) noexcept
{
    static const auto original = reinterpret_cast<int (*)(const char *, struct stat *)>(
        dlsym(RTLD_NEXT, "stat"));
    ++statusCalls;
    return original(path, status);
}

/// System calls of those who publish and of those who wait.
class tst_WaitingCosts : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void setsThatNobodyWaitsForMakeNoCall();
    void setsOfAProcessThatDoesNotKeepTheLockMakeTheCallsOfTheLock();
    void waiterCostsOneWakeAndNoOperation();
    void idleWaiterMakesTwoCallsASecond();
    void readerBesideNewSetsMakesOneCallASecond();
};

void tst_WaitingCosts::setsThatNobodyWaitsForMakeNoCall()
{
    WatchedRegion region;
    QVERIFY(publishUntilOwner(region));
    const int operations = SemaphoreCalls::operations();
    const int futexes = futexCalls();

    for (int i = 0; i < 1000; ++i) {
        QVERIFY(region.publish(i));
    }

    QCOMPARE(SemaphoreCalls::operations(), operations);
    QCOMPARE(futexCalls(), futexes);
}

void tst_WaitingCosts::setsOfAProcessThatDoesNotKeepTheLockMakeTheCallsOfTheLock()
{
    WatchedRegion region;
    LiveRegion other(region.description, ProcessDataManager::InitTypeSharedMemoryAttach);
    QVERIFY(region.publish());
    QVERIFY(WatchedRegion::publishThrough(other, 1));
    const int operations = SemaphoreCalls::operations();
    const int futexes = futexCalls();

    for (int i = 0; i < 500; ++i) {
        QVERIFY(region.publish(i));
        QVERIFY(WatchedRegion::publishThrough(other, i));
    }

    // To lock and unlock, for the values and for the swap.
    QCOMPARE(SemaphoreCalls::operations() - operations, 4 * 1000);
    QCOMPARE(futexCalls(), futexes);
}

void tst_WaitingCosts::waiterCostsOneWakeAndNoOperation()
{
    WatchedRegion region;
    QVERIFY(publishUntilOwner(region));
    ProcessDataWatcher watcher(region.manager());
    WaitingThread waiting(watcher);
    QVERIFY(isAsleep());
    const int operations = SemaphoreCalls::operations();
    const int wakes = FutexCalls::wakes();

    QVERIFY(region.publish());
    waiting.join();
    QVERIFY(region.publish());

    QCOMPARE(SemaphoreCalls::operations(), operations);
    QCOMPARE(FutexCalls::wakes(), wakes + 1);
}

void tst_WaitingCosts::idleWaiterMakesTwoCallsASecond()
{
    WatchedRegion region;
    ProcessDataWatcher watcher(region.manager());
    quint64 seen = watcher.getGeneration();
    const int futexes = futexCalls();
    const int looks = statusCalls;
    const auto begin = std::chrono::steady_clock::now();

    QCOMPARE(watcher.wait(seen, 2500ms), Result::TimedOut);

    // Longer than asked for on a busy machine.
    const auto taken = std::chrono::steady_clock::now() - begin;
    QVERIFY(futexCalls() - futexes > 0);
    QVERIFY(futexCalls() - futexes <= 3);
    // At the beginning and after each whole second.
    QVERIFY(statusCalls - looks > 0);
    QVERIFY(statusCalls - looks <= 1 + taken / 1s);
}

void tst_WaitingCosts::readerBesideNewSetsMakesOneCallASecond()
{
    constexpr int sets = 1000;
    WatchedRegion region;
    ProcessDataWatcher watcher(region.manager());
    quint64 seen = watcher.getGeneration();
    const int futexes = futexCalls();
    const int looks = statusCalls;
    const auto begin = std::chrono::steady_clock::now();

    for (int i = 0; i < sets; ++i) {
        QVERIFY(region.publish(i));
        QCOMPARE(watcher.wait(seen, endless), Result::NewSet);
        QVERIFY(region.publish(i));
        QCOMPARE(watcher.acknowledge(seen), Result::NewSet);
    }

    const auto taken = std::chrono::steady_clock::now() - begin;
    QCOMPARE(futexCalls(), futexes);
    QVERIFY(statusCalls - looks > 0);
    QVERIFY(statusCalls - looks <= 1 + taken / 1s);
}

QTEST_GUILESS_MAIN(tst_WaitingCosts)
#include "tst_WaitingCosts.moc"
