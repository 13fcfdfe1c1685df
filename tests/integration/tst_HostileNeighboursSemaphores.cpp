#include "Companion/PingPongBufferHandler.h"
#include "integration/HostileDescription.h"
#include "support/ChildProcess.h"
#include "support/DoubleBuffer.h"
#include "support/SemaphoreCalls.h"
#include "support/SingleBuffer.h"

#include <algorithm>

namespace {

constexpr int largestValue = 32767;

std::vector<unsigned short> allEqual(unsigned short value)
{
    return std::vector<unsigned short>(SemaphoreSet::Names::SemaphoreCount, value);
}

} // namespace

/// Semaphores that somebody removes or sets while a region is in use.
class tst_HostileNeighboursSemaphores : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void removalIsToldOnceAndStopsWritersOnly_data();
    void removalIsToldOnceAndStopsWritersOnly();
    void removalEndsTheWaitOfAWriter();
    void removalEndsTheWaitOfASwap();
    void newUserBringsTheOthersBack();
    void spoiltCountOfUsersDoesNotKeepAnybodyFromLeaving_data();
    void spoiltCountOfUsersDoesNotKeepAnybodyFromLeaving();
    void writeLockThatNobodyHoldsMakesWritersFail();
    void spoiltCountOfReadersMakesLocksFail();
    void spoiltFingerprintIsNotFollowed();
    void setOfAnotherSizeIsRefused();
};

void tst_HostileNeighboursSemaphores::removalIsToldOnceAndStopsWritersOnly_data()
{
    QTest::addColumn<bool>("doubleBuffer");

    QTest::newRow("single buffer") << false;
    QTest::newRow("double buffer") << true;
}

void tst_HostileNeighboursSemaphores::removalIsToldOnceAndStopsWritersOnly()
{
    QFETCH(bool, doubleBuffer);
    const HostileDescription description(doubleBuffer);
    {
        HostileUser user(description, hostileCreate);
        QVERIFY(user.publish(4));
        QVERIFY(description.semaphores.remove());
        LogCapture log;

        QVERIFY(!user.write(5));
        COMPARE_LOG(log, removedWarning(), nullWrite());
        QVERIFY(!user.write(6));
        COMPARE_LOG(log, nullWrite());
        QCOMPARE(user.manager.swapReadAndWriteBuffer(), !doubleBuffer);
        QVERIFY(user.manager.lockWriteBuffer());
        QVERIFY(!user.manager.unlockWriteBuffer());
        QCOMPARE(user.read(), 4);
        COMPARE_LOG(log);
    }
    QVERIFY(!description.segment.exists());
    QVERIFY(!description.semaphores.exists());
}

void tst_HostileNeighboursSemaphores::removalEndsTheWaitOfAWriter()
{
    const DoubleBuffer buffer;
    const auto handler = buffer.create();
    unsigned char *const locked = handler->lockForWrite();
    ChildProcess writer([&buffer](const ChildSide &) {
        const SemaphoreCalls::PatientWaits patient;
        const auto childHandler = buffer.attach();
        LogCapture log;
        CHILD_VERIFY(childHandler->lockForWrite() == nullptr);
        CHILD_VERIFY(log.take() == QList<LogLine>{removedWarning()});
        return 0;
    });
    QVERIFY(buffer.semaphores.waitUntilBlockedByWriter());

    QVERIFY(buffer.semaphores.remove());

    QCOMPARE(writer.waitForExit(), 0);
    LogCapture log;
    // The writer inside ends its set as ever, and is told.
    QVERIFY(handler->unlockForWrite(locked));
    COMPARE_LOG(log, removedWarning());
}

void tst_HostileNeighboursSemaphores::removalEndsTheWaitOfASwap()
{
    const DoubleBuffer buffer;
    const auto handler = buffer.create();
    QVERIFY(handler->lockForWrite() != nullptr);
    ChildProcess swapper([&buffer](const ChildSide &) {
        const SemaphoreCalls::PatientWaits patient;
        const auto childHandler = buffer.attach();
        LogCapture log;
        CHILD_VERIFY(!childHandler->swapBuffers());
        CHILD_VERIFY(log.take() == QList<LogLine>{removedWarning()});
        return 0;
    });
    QVERIFY(buffer.semaphores.waitUntilBlockedByWriter());

    QVERIFY(buffer.semaphores.remove());

    QCOMPARE(swapper.waitForExit(), 0);
    QCOMPARE(buffer.management()->swapCount.load(), quint64{0});
}

void tst_HostileNeighboursSemaphores::newUserBringsTheOthersBack()
{
    const HostileDescription description;
    HostileUser user(description, hostileCreate);
    QVERIFY(user.publish(4));
    QVERIFY(description.semaphores.remove());
    LogCapture log;
    QVERIFY(!user.write(5));
    COMPARE_LOG(log, removedWarning(), nullWrite());

    HostileUser late(description, hostileAttach);

    QVERIFY(user.publish(6));
    QCOMPARE(late.read(), 6);
    QVERIFY(late.publish(7));
    QCOMPARE(user.read(), 7);
    QCOMPARE(description.semaphores.users(), 2);
    COMPARE_LOG(log, attachedLine(description.key));
}

void tst_HostileNeighboursSemaphores::spoiltCountOfUsersDoesNotKeepAnybodyFromLeaving_data()
{
    QTest::addColumn<int>("users");

    QTest::newRow("nobody") << 0;
    QTest::newRow("too many") << largestValue;
}

void tst_HostileNeighboursSemaphores::spoiltCountOfUsersDoesNotKeepAnybodyFromLeaving()
{
    QFETCH(int, users);
    const DoubleBuffer buffer;
    LogCapture log;
    auto handler = buffer.create();
    QVERIFY(buffer.semaphores.setValue(SemaphoreSet::Names::SemaphoreUsers, users));

    handler.reset();

    QVERIFY(buffer.semaphores.exists());
    // The next creator makes all well.
    handler = buffer.create();
    QCOMPARE(buffer.semaphores.users(), 1);
    handler.reset();
    QVERIFY(!buffer.semaphores.exists());
    QCOMPARE(log.take(), QList<LogLine>());
}

void tst_HostileNeighboursSemaphores::writeLockThatNobodyHoldsMakesWritersFail()
{
    const HostileDescription description;
    HostileUser user(description, hostileCreate);
    QVERIFY(user.publish(4));
    QVERIFY(description.semaphores.setValue(SemaphoreSet::Names::SemaphoreWriteLock, 1));
    LogCapture log;

    QVERIFY(!user.write(5));

    COMPARE_LOG(log, nullWrite());
    QCOMPARE(user.read(), 4);
    QVERIFY(description.semaphores.setValue(SemaphoreSet::Names::SemaphoreWriteLock, 0));
    QVERIFY(user.publish(6));
    QCOMPARE(user.read(), 6);
    COMPARE_LOG(log);
}

void tst_HostileNeighboursSemaphores::spoiltCountOfReadersMakesLocksFail()
{
    const SingleBuffer buffer;
    LogCapture log;
    const auto handler = buffer.create();
    QVERIFY(buffer.semaphores.setValue(SemaphoreSet::Names::SemaphoreReaders, largestValue));

    QCOMPARE(handler->lockForRead(), nullptr);
    QCOMPARE(handler->lockForWrite(), nullptr);

    QVERIFY(!buffer.semaphores.isWriteLocked());
    QVERIFY(buffer.semaphores.setValue(SemaphoreSet::Names::SemaphoreReaders, 0));
    QVERIFY(readOnce(*handler));
    QVERIFY(writeOnce(*handler));
    QCOMPARE(log.take(), QList<LogLine>());
}

void tst_HostileNeighboursSemaphores::spoiltFingerprintIsNotFollowed()
{
    const HostileDescription description;
    HostileUser user(description, hostileCreate);
    QVERIFY(user.publish(4));
    QVERIFY(description.semaphores.remove());
    QVERIFY(description.semaphores.make(allEqual(1)) >= 0);
    LogCapture log;

    QVERIFY(!user.write(5));

    COMPARE_LOG(log, removedWarning(), nullWrite());
    QCOMPARE(description.semaphores.values(), allEqual(1));
}

void tst_HostileNeighboursSemaphores::setOfAnotherSizeIsRefused()
{
    const HostileDescription description;
    const int id = description.semaphores.make({1, 2, 3});
    QVERIFY(id >= 0);
    LogCapture log;

    HostileUser user(description, hostileCreate);

    QVERIFY(user.isAttached());
    COMPARE_LOG(
        log, createdLine(description.key),
        warning(QStringLiteral("The semaphores of \"%1\" can't be used: System V key %2 belongs to "
                               "somebody else (ipcs -s). Choose another memory key.")
                    .arg(description.semaphores.key())
                    .arg(SystemVSemaphoreBaseClass::systemVKey(description.semaphores.key()))),
        warning(QStringLiteral("Can't unlock sharedMemroy after initialisation")),
        warning(QStringLiteral("Can't swap sharedMemory after initialisation")));
    QVERIFY(!user.write(5));
    COMPARE_LOG(log, nullWrite());
    QCOMPARE(description.semaphores.id(), id);
}

QTEST_GUILESS_MAIN(tst_HostileNeighboursSemaphores)
#include "tst_HostileNeighboursSemaphores.moc"
