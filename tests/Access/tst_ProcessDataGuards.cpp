#include "Access/ProcessDataGuards.h"
#include "ProcessDataManagement/ManagedHandler.h"
#include "support/LogCapture.h"

#include <QtTest>

namespace {

const QString lockRead = QStringLiteral("lockForRead");
const QString unlockRead = QStringLiteral("unlockForRead of read buffer");
const QString lockWrite = QStringLiteral("lockForWrite");
const QString unlockWrite = QStringLiteral("unlockForWrite of write buffer");
const QString swapCall = QStringLiteral("swapBuffers");

} // namespace

class tst_ProcessDataGuards : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void readGuardLocksUntilItsEnd();
    void readGuardTellsWhetherToRepeat();
    void innerReadGuardLeavesTheOuterLockAlone();
    void readGuardInsideALockByHand();
    void failedReadLockIsGivenBack();
    void writeGuardPublishesOnDemandOnly();
    void innerWriteGuardDoesNotPublish();
    void failedWriteLockPublishesNothing();
    void failedSwapIsToldByPublish();
    void guardsWithoutMemoryHoldTheMutexAlone();
    void consistentReadingRepeatsAsOftenAsNeeded();
    void consistentReadingEndsAfterElevenAttempts();
    void consistentReadingWithoutALockCallsNothing();
    void consistentReadingInsideALockCallsOnce();
    void failedUnlockIsNoSuccess();
};

void tst_ProcessDataGuards::readGuardLocksUntilItsEnd()
{
    ManagedHandler managed;
    {
        const ProcessDataReadGuard guard(managed.manager);
        QVERIFY(guard.isLocked());
        QVERIFY(managed.internals.isMutexHeld());
        QCOMPARE(managed.handler->takeCalls(), QStringList{lockRead});
    }
    QCOMPARE(managed.handler->takeCalls(), QStringList{unlockRead});
    QVERIFY(!managed.internals.isMutexHeld());
}

void tst_ProcessDataGuards::readGuardTellsWhetherToRepeat()
{
    ManagedHandler managed;
    managed.handler->readUnlocks.enqueue({true, true});

    ProcessDataReadGuard first(managed.manager);
    QVERIFY(!first.unlock());
    QVERIFY(first.mustRepeat());
    ProcessDataReadGuard second(managed.manager);
    QVERIFY(second.unlock());
    QVERIFY(!second.mustRepeat());

    managed.handler->takeCalls();
    QVERIFY(!first.unlock());
    QVERIFY(second.unlock());
    QCOMPARE(managed.handler->takeCalls(), QStringList());
    QVERIFY(!managed.internals.isMutexHeld());
}

void tst_ProcessDataGuards::innerReadGuardLeavesTheOuterLockAlone()
{
    ManagedHandler managed;
    LogCapture log;
    ProcessDataReadGuard outer(managed.manager);
    {
        ProcessDataReadGuard inner(managed.manager);
        QVERIFY(inner.isLocked());
        QVERIFY(inner.unlock());
    }
    QVERIFY(managed.manager.getPointerReadBuffer() != nullptr);
    QCOMPARE(managed.handler->takeCalls(), QStringList{lockRead});
    QVERIFY(outer.unlock());

    QCOMPARE(managed.handler->takeCalls(), QStringList{unlockRead});
    QVERIFY(!managed.internals.isMutexHeld());
    COMPARE_LOG(log);
}

void tst_ProcessDataGuards::readGuardInsideALockByHand()
{
    ManagedHandler managed;
    LogCapture log;
    managed.manager.lockReadBuffer();
    {
        const ProcessDataReadGuard guard(managed.manager);
        QVERIFY(guard.isLocked());
    }
    bool repeat = true;
    QVERIFY(managed.manager.unlockReadBuffer(repeat));
    QVERIFY(!managed.internals.isMutexHeld());
    COMPARE_LOG(log);
}

void tst_ProcessDataGuards::failedReadLockIsGivenBack()
{
    ManagedHandler managed;
    managed.handler->readLocks.enqueue(false);
    {
        ProcessDataReadGuard guard(managed.manager);
        QVERIFY(!guard.isLocked());
        QVERIFY(!guard.unlock());
        QVERIFY(!guard.mustRepeat());
    }
    QCOMPARE(managed.handler->takeCalls(), QStringList{lockRead});
    QVERIFY(!managed.internals.isMutexHeld());
}

void tst_ProcessDataGuards::writeGuardPublishesOnDemandOnly()
{
    ManagedHandler managed;
    {
        const ProcessDataWriteGuard guard(managed.manager);
        QVERIFY(guard.isLocked());
        QVERIFY(managed.internals.isMutexHeld());
    }
    QVERIFY(!managed.internals.isMutexHeld());
    const QStringList unpublished{lockWrite, unlockWrite};
    QCOMPARE(managed.handler->takeCalls(), unpublished);
    {
        ProcessDataWriteGuard guard(managed.manager);
        QVERIFY(guard.publish());
        QVERIFY(!managed.internals.isMutexHeld());
        QVERIFY(!guard.publish());
    }
    QCOMPARE(managed.handler->takeCalls(), unpublished + QStringList{swapCall});
}

void tst_ProcessDataGuards::innerWriteGuardDoesNotPublish()
{
    ManagedHandler managed;
    LogCapture log;
    ProcessDataWriteGuard outer(managed.manager);
    {
        ProcessDataWriteGuard inner(managed.manager);
        QVERIFY(inner.isLocked());
        QVERIFY(!inner.publish());
    }
    QVERIFY(managed.internals.isMutexHeld());
    QCOMPARE(managed.handler->takeCalls(), QStringList{lockWrite});
    QVERIFY(outer.publish());

    const QStringList expected{unlockWrite, swapCall};
    QCOMPARE(managed.handler->takeCalls(), expected);
    QVERIFY(!managed.internals.isMutexHeld());
    COMPARE_LOG(log);
}

void tst_ProcessDataGuards::failedWriteLockPublishesNothing()
{
    ManagedHandler managed;
    managed.handler->writeLockFails = true;
    ProcessDataWriteGuard guard(managed.manager);
    QVERIFY(!guard.isLocked());
    QVERIFY(!guard.publish());
    QCOMPARE(managed.handler->takeCalls(), QStringList{lockWrite});
    QVERIFY(!managed.internals.isMutexHeld());
}

void tst_ProcessDataGuards::failedSwapIsToldByPublish()
{
    ManagedHandler managed;
    managed.handler->swapFails = true;
    ProcessDataWriteGuard guard(managed.manager);
    QVERIFY(!guard.publish());
}

void tst_ProcessDataGuards::guardsWithoutMemoryHoldTheMutexAlone()
{
    ProcessDataManager manager;
    ManagerInternals internals(manager);
    ProcessDataReadGuard reading(manager);
    ProcessDataWriteGuard writing(manager);
    QVERIFY(reading.isLocked() && writing.isLocked());
    QVERIFY(internals.isMutexHeld());
    QVERIFY(writing.publish());
    QVERIFY(reading.unlock());
    QVERIFY(!internals.isMutexHeld());
}

void tst_ProcessDataGuards::consistentReadingRepeatsAsOftenAsNeeded()
{
    ManagedHandler managed;
    LogCapture log;
    for (int i = 0; i < 10; ++i) {
        managed.handler->readUnlocks.enqueue({true, true});
    }
    int calls = 0;
    QVERIFY(readConsistently(managed.manager, [&] {
        ++calls;
        QVERIFY(managed.manager.getPointerReadBuffer() != nullptr);
    }));
    QCOMPARE(calls, 11);
    QVERIFY(!managed.internals.isMutexHeld());
    COMPARE_LOG(log);
}

void tst_ProcessDataGuards::consistentReadingEndsAfterElevenAttempts()
{
    ManagedHandler managed;
    LogCapture log;
    for (int i = 0; i < 12; ++i) {
        managed.handler->readUnlocks.enqueue({true, true});
    }
    int calls = 0;
    QVERIFY(!readConsistently(managed.manager, [&] { ++calls; }));
    QCOMPARE(calls, 11);
    QVERIFY(!managed.internals.isMutexHeld());
    COMPARE_LOG(log, warning(QStringLiteral("No consistent set of process data in 11 attempts.")));
}

void tst_ProcessDataGuards::consistentReadingWithoutALockCallsNothing()
{
    ManagedHandler managed;
    LogCapture log;
    managed.handler->readLocks.enqueue(false);
    int calls = 0;
    QVERIFY(!readConsistently(managed.manager, [&] { ++calls; }));
    QCOMPARE(calls, 0);
    QVERIFY(!managed.internals.isMutexHeld());
    COMPARE_LOG(log, warning(QStringLiteral("Can't lock the process data for reading.")));
}

void tst_ProcessDataGuards::consistentReadingInsideALockCallsOnce()
{
    ManagedHandler managed;
    managed.handler->readUnlocks.enqueue({true, true});
    int calls = 0;
    ProcessDataReadGuard outer(managed.manager);
    QVERIFY(readConsistently(managed.manager, [&] { ++calls; }));
    QCOMPARE(calls, 1);
    QVERIFY(!outer.unlock());
    QVERIFY(outer.mustRepeat());
}

void tst_ProcessDataGuards::failedUnlockIsNoSuccess()
{
    ManagedHandler managed;
    LogCapture log;
    managed.handler->readUnlocks.enqueue({false, false});
    int calls = 0;
    QVERIFY(!readConsistently(managed.manager, [&] { ++calls; }));
    QCOMPARE(calls, 1);
    COMPARE_LOG(log, warning(QStringLiteral("Can't unlock the process data after reading.")));
}

QTEST_GUILESS_MAIN(tst_ProcessDataGuards)

#include "tst_ProcessDataGuards.moc"
