#include "Access/WatchedRegion.h"
#include "support/ChildProcess.h"
#include "support/ProcessState.h"

#include <QtTest>

#include <fcntl.h>
#include <sched.h>

using namespace std::chrono_literals;
using Result = ProcessDataWatcher::Result;

namespace {

constexpr auto endless = std::chrono::milliseconds(-1);

/// Says so in @p toOuter when it is about to sleep. Nothing but a wake ends that.
int waitAsFirstProcess(const WatchedRegion &region, int toOuter)
{
    LiveRegion own(region.description, ProcessDataManager::InitTypeSharedMemoryAttach);
    ProcessDataWatcher watcher(own.manager);
    quint64 seen = watcher.getGeneration();
    FutexCalls::boundOfAll = longBound;
    FutexCalls::beforeWait = [toOuter] {
        [[maybe_unused]] const ssize_t written = write(toOuter, "w", 1);
    };
    CHILD_VERIFY(watcher.wait(seen, longBound) == Result::NewSet);
    CHILD_VERIFY(FutexCalls::runOuts() == 0);
    CHILD_VERIFY(getpid() == 1);
    return 0;
}

} // namespace

/// What a child finds that was forked while its parent waits for sets.
class tst_WatcherForks : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void inheritedWatcherWaitsForNothing();
    void inheritedWatcherMayBeDestroyed();
    void childMakesAWatcherOfItsOwn();
    void childSleepsForItself();
    void parentGoesOnBesideItsChild();
    void waiterInOtherNamespacesIsWoken();

private:
    /// With a thread that sleeps in the kernel.
    std::unique_ptr<ProcessDataWatcher> busyWatcher(WatchedRegion &region)
    {
        auto watcher = std::make_unique<ProcessDataWatcher>(region.manager());
        m_seen = 0;
        if (watcher->getDescriptor() < 0 || watcher->acknowledge(m_seen) != Result::NewSet
            || !waitFor([] { return FutexCalls::sleepers() == 1; })) {
            return {};
        }
        return watcher;
    }

    quint64 m_seen = 0;
};

void tst_WatcherForks::inheritedWatcherWaitsForNothing()
{
    WatchedRegion region;
    const auto watcher = busyWatcher(region);
    QVERIFY(watcher);

    ChildProcess child([&](const ChildSide &) {
        quint64 seen = 0;
        CHILD_VERIFY(watcher->getGeneration() == 0);
        CHILD_VERIFY(watcher->wait(seen, endless) == Result::NotSupported);
        CHILD_VERIFY(watcher->acknowledge(seen) == Result::NotSupported);
        CHILD_VERIFY(watcher->getDescriptor() == -1);
        CHILD_VERIFY(seen == 0);
        watcher->stop();
        return 0;
    });

    QCOMPARE(child.waitForExit(), 0);
}

void tst_WatcherForks::inheritedWatcherMayBeDestroyed()
{
    WatchedRegion region;
    auto watcher = busyWatcher(region);
    QVERIFY(watcher);
    const int descriptor = watcher->getDescriptor();

    ChildProcess child([&](const ChildSide &) {
        watcher.reset();
        CHILD_VERIFY(fcntl(descriptor, F_GETFD) == -1);
        return 0;
    });

    QCOMPARE(child.waitForExit(), 0);
}

void tst_WatcherForks::childMakesAWatcherOfItsOwn()
{
    WatchedRegion region;
    const auto watcher = busyWatcher(region);
    QVERIFY(watcher);

    ChildProcess child([&](const ChildSide &) {
        quint64 seen = 0;
        ProcessDataWatcher own(region.manager());
        CHILD_VERIFY(own.wait(seen, longBound) == Result::NewSet);
        CHILD_VERIFY(own.wait(seen, 10ms) == Result::TimedOut);
        CHILD_VERIFY(own.getDescriptor() >= 0);
        return 0;
    });

    QCOMPARE(child.waitForExit(), 0);
}

/// Though a thread of its parent sleeps in the kernel for all of the parent's.
void tst_WatcherForks::childSleepsForItself()
{
    WatchedRegion region;
    const auto watcher = busyWatcher(region);
    QVERIFY(watcher);
    ChildProcess child([&](const ChildSide &parent) {
        ProcessDataWatcher own(region.manager());
        quint64 seen = own.getGeneration();
        FutexCalls::beforeWait = [&parent] { parent.say(); };
        CHILD_VERIFY(own.wait(seen, longBound) == Result::NewSet);
        return 0;
    });
    QVERIFY(child.waitUntilReady());

    QVERIFY(region.publish());

    QCOMPARE(child.waitForExit(), 0);
    QCOMPARE(watcher->wait(m_seen, longBound), Result::NewSet);
}

void tst_WatcherForks::parentGoesOnBesideItsChild()
{
    WatchedRegion region;
    const auto watcher = busyWatcher(region);
    QVERIFY(watcher);
    ChildProcess child([&](const ChildSide &parent) {
        watcher->stop();
        parent.say();
        parent.waitForWord();
        return 0;
    });
    QVERIFY(child.waitUntilReady());

    QVERIFY(region.publish());

    QCOMPARE(watcher->wait(m_seen, longBound), Result::NewSet);
    child.tell();
    QCOMPARE(child.waitForExit(), 0);
}

void tst_WatcherForks::waiterInOtherNamespacesIsWoken()
{
    WatchedRegion region;
    ChildProcess child([&](const ChildSide &parent) {
        if (unshare(CLONE_NEWUSER | CLONE_NEWPID) != 0) {
            return ChildProcess::sm_cannotTry;
        }
        int fromInner[2] = {-1, -1};
        CHILD_VERIFY(pipe(fromInner) == 0);
        const pid_t waiter = fork();
        if (waiter == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            _exit(waitAsFirstProcess(region, fromInner[1]));
        }
        close(fromInner[1]);
        char word = 0;
        CHILD_VERIFY(read(fromInner[0], &word, 1) == 1);
        CHILD_VERIFY(waitFor([&] { return processState(waiter) == 'S'; }));
        parent.say();
        int status = 0;
        CHILD_VERIFY(waitpid(waiter, &status, 0) == waiter && WIFEXITED(status));
        return WEXITSTATUS(status);
    });
    if (!child.waitUntilReady()) {
        COMPARE_EXIT(child.waitForExit(), "namespaces of its own");
    }

    QVERIFY(region.publish());

    QCOMPARE(child.waitForExit(), 0);
}

QTEST_GUILESS_MAIN(tst_WatcherForks)
#include "tst_WatcherForks.moc"
