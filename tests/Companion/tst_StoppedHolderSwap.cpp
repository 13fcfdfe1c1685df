#include "Companion/PingPongBufferHandler.h"
#include "support/DoubleBuffer.h"
#include "support/LogCapture.h"
#include "support/StoppedProcess.h"

namespace {

/// Stops with the write lock and without a mark in the region, as a process does that was stopped
/// inside swapBuffers(), before or behind its store.
ChildProcess::Body stopsInsideASwap(const DoubleBuffer &buffer, bool hasSwapped)
{
    return [&buffer, hasSwapped](const ChildSide &parent) {
        using Names = SemaphoreSet::Names;
        sembuf take[] = {{Names::SemaphoreWriteLock, 0, 0},
                         {Names::SemaphoreWriteLock, 1, SEM_UNDO}};
        CHILD_VERIFY(semop(buffer.semaphores.id(), take, 2) == 0);
        if (hasSwapped) {
            ++buffer.management()->swapCount;
        }
        parent.say();
        parent.waitForWord();
        if (!hasSwapped) {
            ++buffer.management()->swapCount;
        }
        sembuf giveBack{Names::SemaphoreWriteLock, -1, SEM_UNDO};
        CHILD_VERIFY(semop(buffer.semaphores.id(), &giveBack, 1) == 0);
        return 0;
    };
}

} // namespace

/// A process that stands still inside a swap.
class tst_StoppedHolderSwap : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void stoppedSwapLosesNothing_data();
    void stoppedSwapLosesNothing();
};

void tst_StoppedHolderSwap::stoppedSwapLosesNothing_data()
{
    QTest::addColumn<bool>("hasSwapped");
    QTest::addColumn<bool>("byDeath");

    QTest::newRow("before its store, goes on") << false << false;
    QTest::newRow("before its store, is killed") << false << true;
    QTest::newRow("behind its store, is killed") << true << true;
}

void tst_StoppedHolderSwap::stoppedSwapLosesNothing()
{
    QFETCH(bool, hasSwapped);
    QFETCH(bool, byDeath);
    const DoubleBuffer buffer;
    LogCapture log;
    const auto handler = buffer.create();
    QVERIFY(publishSet(*handler, 1));
    QVERIFY(writeSet(*handler, 2));
    StoppedProcess swapper(stopsInsideASwap(buffer, hasSwapped));
    QVERIFY(swapper.isStopped());

    QVERIFY(!handler->swapBuffers());

    QVERIFY(isPublished(*handler, hasSwapped ? 2 : 1));
    QVERIFY(swapper.end(byDeath));
    QVERIFY(isPublished(*handler, hasSwapped || !byDeath ? 2 : 1));
    QVERIFY(writeSet(*handler, 2));
    QVERIFY(handler->swapBuffers());
    QVERIFY(isPublished(*handler, 2));
    QCOMPARE(log.take(), QList<LogLine>());
}

QTEST_GUILESS_MAIN(tst_StoppedHolderSwap)
#include "tst_StoppedHolderSwap.moc"
