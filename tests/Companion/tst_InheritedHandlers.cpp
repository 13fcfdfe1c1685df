#include "Companion/PingPongBufferHandler.h"
#include "support/ChildProcess.h"
#include "support/DoubleBuffer.h"
#include "support/SemaphoreCalls.h"
#include "support/SingleBuffer.h"

#include <QtTest>

/// A forked child finds the handlers of its parent, and none of the locks behind them.
class tst_InheritedHandlers : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void childTakesLocksOfItsOwn();
    void childDoesNotTakePartInTheWriteLockOfItsParent();
    void childEndsNoWriteLockOfItsParent();
    void childEndsNoReadLockOfItsParent();
    void childBeginsItsOwnSet();
    void childReadsUnderALockOfItsOwn();
};

void tst_InheritedHandlers::childTakesLocksOfItsOwn()
{
    const DoubleBuffer buffer;
    const auto handler = buffer.create();
    QVERIFY(publishSet(*handler, 1));
    ChildProcess child([&](const ChildSide &parent) {
        unsigned char *const locked = handler->lockForWrite();
        CHILD_VERIFY(locked != nullptr);
        fillBuffer(locked, buffer.size() / 2, 99);
        parent.say();
        parent.waitForWord();
        return 0;
    });
    QVERIFY(child.waitUntilReady());
    QVERIFY(buffer.semaphores.isWriteLocked());

    QVERIFY(child.kill());

    QVERIFY(!buffer.semaphores.isWriteLocked());
    QVERIFY(handler->swapBuffers());
    QVERIFY(isFilledWith(handler->readBufferPointer(), buffer.size(), 1));
}

void tst_InheritedHandlers::childDoesNotTakePartInTheWriteLockOfItsParent()
{
    const DoubleBuffer buffer;
    const auto handler = buffer.create();
    unsigned char *const locked = handler->lockForWrite();
    ChildProcess child([&](const ChildSide &parent) {
        const SemaphoreCalls::PatientWaits patient;
        const bool isLocked = handler->lockForWrite() != nullptr;
        parent.say();
        CHILD_VERIFY(isLocked);
        return 0;
    });

    QVERIFY(buffer.semaphores.waitUntilBlockedByWriter());

    QVERIFY(!child.hasSpoken());
    QVERIFY(handler->unlockForWrite(locked));
    QCOMPARE(child.waitForExit(), 0);
}

void tst_InheritedHandlers::childEndsNoWriteLockOfItsParent()
{
    const DoubleBuffer buffer;
    const auto handler = buffer.create();
    unsigned char *const locked = handler->lockForWrite();
    ChildProcess child([&](const ChildSide &) {
        CHILD_VERIFY(!handler->unlockForWrite(locked));
        CHILD_VERIFY(buffer.semaphores.isWriteLocked());
        CHILD_VERIFY(buffer.management()->writerPid != 0);
        return 0;
    });

    QCOMPARE(child.waitForExit(), 0);

    QVERIFY(handler->unlockForWrite(locked));
}

void tst_InheritedHandlers::childEndsNoReadLockOfItsParent()
{
    const SingleBuffer buffer;
    const auto handler = buffer.create();
    QVERIFY(handler->lockForRead() != nullptr);
    ChildProcess child([&](const ChildSide &) {
        bool repeat = true;
        CHILD_VERIFY(!handler->unlockForRead(buffer.start(), repeat));
        CHILD_VERIFY(buffer.semaphores.readers() == 1);
        return 0;
    });

    QCOMPARE(child.waitForExit(), 0);

    QVERIFY(unlockRead(*handler));
    QCOMPARE(buffer.semaphores.readers(), 0);
}

void tst_InheritedHandlers::childBeginsItsOwnSet()
{
    const DoubleBuffer buffer;
    const auto handler = buffer.create();
    QVERIFY(publishSet(*handler, 1));
    unsigned char *const locked = handler->lockForWrite();
    ChildProcess child([&](const ChildSide &parent) {
        parent.say();
        parent.waitForWord();
        unsigned char *const own = handler->lockForWrite();
        CHILD_VERIFY(own != nullptr);
        // As any writer: marked, and brought up to date.
        CHILD_VERIFY(buffer.management()->writerPid == static_cast<quint32>(getpid()));
        CHILD_VERIFY(isFilledWith(own, buffer.size(), 2));
        fillBuffer(own, buffer.size(), 3);
        CHILD_VERIFY(handler->unlockForWrite(own));
        CHILD_VERIFY(buffer.management()->writerPid == 0);
        CHILD_VERIFY(handler->swapBuffers());
        return 0;
    });
    QVERIFY(child.waitUntilReady());
    fillBuffer(locked, buffer.size(), 2);
    QVERIFY(handler->unlockForWrite(locked));
    QVERIFY(handler->swapBuffers());

    child.tell();

    QCOMPARE(child.waitForExit(), 0);
    QVERIFY(isFilledWith(handler->readBufferPointer(), buffer.size(), 3));
}

void tst_InheritedHandlers::childReadsUnderALockOfItsOwn()
{
    const SingleBuffer buffer;
    const auto handler = buffer.create();
    QVERIFY(handler->lockForRead() != nullptr);
    ChildProcess child([&](const ChildSide &parent) {
        CHILD_VERIFY(handler->lockForRead() != nullptr);
        CHILD_VERIFY(buffer.semaphores.readers() == 2);
        parent.say();
        parent.waitForWord();
        CHILD_VERIFY(unlockRead(*handler));
        return 0;
    });
    QVERIFY(child.waitUntilReady());

    QVERIFY(unlockRead(*handler));

    QCOMPARE(buffer.semaphores.readers(), 1);
    child.tell();
    QCOMPARE(child.waitForExit(), 0);
    QCOMPARE(buffer.semaphores.readers(), 0);
}

QTEST_GUILESS_MAIN(tst_InheritedHandlers)
#include "tst_InheritedHandlers.moc"
