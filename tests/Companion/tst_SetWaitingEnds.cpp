#include "support/ChildProcess.h"
#include "support/DoubleBuffer.h"
#include "support/FutexCalls.h"
#include "support/LeaseWords.h"

#include <QtTest>

/// Handlers that end inside their own lock, behind a swap that somebody waits for.
class tst_SetWaitingEnds : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup() { FutexCalls::tellNobody(); }
    void endInsideTheLockWakesBehindIt_data();
    void endInsideTheLockWakesBehindIt();
    void endWakesForEachSetOfTheLock();
    void endMakesNoCallWhileNobodyWaits();
    void endWithoutASwapWakesNobody();
    void endBehindTheLockWakesNobodyOnceMore();
    void endBehindTheMemoryIsHarmless();
    void endOfAnInheritedHandlerWakesNobody();
};

void tst_SetWaitingEnds::endInsideTheLockWakesBehindIt_data()
{
    QTest::addColumn<bool>("isOwner");
    QTest::addColumn<int>("depth");
    QTest::newRow("by the semaphore") << false << 1;
    QTest::newRow("by the semaphore, twice") << false << 2;
    QTest::newRow("by a lease") << true << 1;
}

void tst_SetWaitingEnds::endInsideTheLockWakesBehindIt()
{
    QFETCH(bool, isOwner);
    QFETCH(int, depth);
    const DoubleBuffer memory;
    const auto creator = memory.create();
    auto handler = memory.attach();
    QVERIFY(!isOwner || becomeOwner(*handler, memory.management()));
    memory.management()->armed.store(1);
    QList<bool> wasLocked;
    FutexCalls::beforeWake = [&] {
        wasLocked.append(memory.semaphores.isWriteLocked() || memory.semaphores.isKept());
    };
    for (int i = 0; i < depth; ++i) {
        QVERIFY(handler->lockForWrite() != nullptr);
    }
    QVERIFY(handler->swapBuffers());
    QCOMPARE(wasLocked, QList<bool>{});

    handler.reset();

    QCOMPARE(wasLocked, QList<bool>{false});
}

/// Only the first one finds somebody armed.
void tst_SetWaitingEnds::endWakesForEachSetOfTheLock()
{
    const DoubleBuffer memory;
    auto handler = memory.create();
    memory.management()->armed.store(1);
    QVERIFY(handler->lockForWrite() != nullptr);
    QVERIFY(handler->swapBuffers());
    memory.management()->armed.store(0);
    QVERIFY(handler->swapBuffers());
    const int wakes = FutexCalls::wakes();

    handler.reset();

    QCOMPARE(FutexCalls::wakes(), wakes + 1);
}

void tst_SetWaitingEnds::endMakesNoCallWhileNobodyWaits()
{
    const DoubleBuffer memory;
    auto handler = memory.create();
    const int wakes = FutexCalls::wakes();
    QVERIFY(handler->lockForWrite() != nullptr);
    QVERIFY(handler->swapBuffers());

    handler.reset();

    QCOMPARE(FutexCalls::wakes(), wakes);
}

void tst_SetWaitingEnds::endWithoutASwapWakesNobody()
{
    const DoubleBuffer memory;
    auto handler = memory.create();
    QVERIFY(handler->lockForWrite() != nullptr);
    QVERIFY(handler->swapBuffers());
    QVERIFY(handler->unlockForWrite(handler->writeBufferPointer()));
    memory.management()->armed.store(2);
    const int wakes = FutexCalls::wakes();
    QVERIFY(handler->lockForWrite() != nullptr);

    handler.reset();

    QCOMPARE(FutexCalls::wakes(), wakes);
}

void tst_SetWaitingEnds::endBehindTheLockWakesNobodyOnceMore()
{
    const DoubleBuffer memory;
    auto handler = memory.create();
    memory.management()->armed.store(1);
    const int wakes = FutexCalls::wakes();
    QVERIFY(handler->lockForWrite() != nullptr);
    QVERIFY(handler->swapBuffers());
    QVERIFY(handler->unlockForWrite(handler->writeBufferPointer()));

    handler.reset();

    QCOMPARE(FutexCalls::wakes(), wakes + 1);
}

/// A handler may outlive the mapping.
void tst_SetWaitingEnds::endBehindTheMemoryIsHarmless()
{
    DoubleBuffer memory;
    auto handler = memory.create();
    memory.management()->armed.store(1);
    QVERIFY(handler->lockForWrite() != nullptr);
    QVERIFY(handler->swapBuffers());
    memory.region.unmap();

    handler.reset();

    QVERIFY(!memory.semaphores.exists());
}

void tst_SetWaitingEnds::endOfAnInheritedHandlerWakesNobody()
{
    const DoubleBuffer memory;
    auto handler = memory.create();
    memory.management()->armed.store(1);
    unsigned char *const locked = handler->lockForWrite();
    QVERIFY(locked != nullptr);
    QVERIFY(handler->swapBuffers());
    const int wakes = FutexCalls::wakes();

    ChildProcess child([&](const ChildSide &) {
        handler.reset();
        return FutexCalls::wakes() - wakes;
    });

    QCOMPARE(child.waitForExit(), 0);
    QVERIFY(memory.semaphores.isWriteLocked());
    QVERIFY(handler->unlockForWrite(locked));
    QCOMPARE(FutexCalls::wakes(), wakes + 1);
}

QTEST_GUILESS_MAIN(tst_SetWaitingEnds)
#include "tst_SetWaitingEnds.moc"
