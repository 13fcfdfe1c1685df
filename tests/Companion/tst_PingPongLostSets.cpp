#include "Companion/PingPongBufferHandler.h"
#include "support/ChildProcess.h"
#include "support/DoubleBuffer.h"
#include "support/ExchangeMessages.h"
#include "support/HalfSet.h"
#include "support/LogCapture.h"

#include <csignal>
#include <memory>
#include <vector>

/// Finished sets that are taken back with the half set of a dead writer: who gets to know of it.
class tst_PingPongLostSets : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void failedWriteLockKeepsWhatIsKnownOfTheSet();
    void setsOfManyRegionsThatWereTakenBackAreAllKnown();
    void warningOfALostSetSurvivesASecondDeath_data();
    void warningOfALostSetSurvivesASecondDeath();
    void warningMayComeToSomebodyWhoWrites_data();
    void warningMayComeToSomebodyWhoWrites();
};

void tst_PingPongLostSets::failedWriteLockKeepsWhatIsKnownOfTheSet()
{
    const DoubleBuffer buffer;
    LogCapture log;
    const auto handler = buffer.create();
    const auto other = buffer.attach();
    QVERIFY(publishSet(*handler, 1));
    QVERIFY(writeSet(*handler, 2));
    QVERIFY(dieInTheMiddleOfASet(buffer, 99));
    QVERIFY(!other->swapBuffers());
    COMPARE_LOG(log, takenBackWarning());
    // Somebody who is inside, and goes without a trace.
    QVERIFY(buffer.semaphores.setValue(SemaphoreSet::Names::SemaphoreWriteLock, 1));
    QVERIFY(handler->lockForWrite() == nullptr);
    QVERIFY(buffer.semaphores.setValue(SemaphoreSet::Names::SemaphoreWriteLock, 0));

    QVERIFY(!handler->swapBuffers());

    QVERIFY(isPublished(*handler, 1));
    QCOMPARE(log.take(), QList<LogLine>());
}

void tst_PingPongLostSets::setsOfManyRegionsThatWereTakenBackAreAllKnown()
{
    LogCapture log;
    struct Region
    {
        std::unique_ptr<DoubleBuffer> buffer = std::make_unique<DoubleBuffer>();
        DoubleBuffer::Handler handler = buffer->create();
    };
    const std::vector<Region> regions(40);
    for (const Region &region : regions) {
        QVERIFY(publishSet(*region.handler, 1));
        QVERIFY(writeSet(*region.handler, 2));
    }
    for (const Region &region : regions) {
        region.buffer->management()->writerPid = 4711;
        QVERIFY(!region.buffer->attach()->swapBuffers());
        COMPARE_LOG(log, takenBackWarning());
    }

    for (const Region &region : regions) {
        QVERIFY(!region.handler->swapBuffers());
        QVERIFY(isPublished(*region.handler, 1));
    }
}

void tst_PingPongLostSets::warningOfALostSetSurvivesASecondDeath_data()
{
    QTest::addColumn<bool>("isFirstASwap");

    QTest::newRow("dies in a write lock") << false;
    QTest::newRow("dies in a swap") << true;
}

void tst_PingPongLostSets::warningOfALostSetSurvivesASecondDeath()
{
    QFETCH(bool, isFirstASwap);
    const DoubleBuffer buffer;
    LogCapture log;
    const auto handler = buffer.create();
    QVERIFY(publishSet(*handler, 1));
    QVERIFY(writeSet(*handler, 2));
    QVERIFY(dieInTheMiddleOfASet(buffer, 99));
    ChildProcess second([&buffer, isFirstASwap](const ChildSide &) {
        // Dies with the message on its lips.
        qInstallMessageHandler(
            [](QtMsgType, const QMessageLogContext &, const QString &) { raise(SIGKILL); });
        const auto childHandler = buffer.attach();
        if (isFirstASwap) {
            childHandler->swapBuffers();
        } else {
            childHandler->lockForWrite();
        }
        return 0;
    });
    QCOMPARE(second.waitForExit(), -SIGKILL);

    unsigned char *const locked = handler->lockForWrite();

    COMPARE_LOG(log, takenBackWarning());
    QVERIFY(isFilledWith(locked, buffer.size(), 1));
    QVERIFY(handler->unlockForWrite(locked));
}

void tst_PingPongLostSets::warningMayComeToSomebodyWhoWrites_data()
{
    QTest::addColumn<bool>("isFirstASwap");
    QTest::addColumn<bool>("swapsInside");

    QTest::newRow("write lock, writes") << false << false;
    QTest::newRow("write lock, publishes") << false << true;
    QTest::newRow("swap, writes") << true << false;
    QTest::newRow("swap, publishes") << true << true;
}

void tst_PingPongLostSets::warningMayComeToSomebodyWhoWrites()
{
    QFETCH(bool, isFirstASwap);
    QFETCH(bool, swapsInside);
    const DoubleBuffer buffer;
    const auto handler = buffer.create();
    QVERIFY(publishSet(*handler, 1));
    QVERIFY(writeSet(*handler, 2));
    QVERIFY(dieInTheMiddleOfASet(buffer, 99));
    static PingPongBufferHandler *target = nullptr;
    static int warnings = 0;
    static bool publishes = false;
    target = handler.get();
    publishes = swapsInside;
    warnings = 0;
    const auto former = qInstallMessageHandler(
        [](QtMsgType, const QMessageLogContext &, const QString &) {
            if (++warnings > 3) {
                return; // it would go on for ever
            }
            writeSet(*target, 5);
            if (publishes) {
                target->swapBuffers();
            }
        });

    unsigned char *locked = nullptr;
    const bool isSwapped = isFirstASwap && handler->swapBuffers();
    if (!isFirstASwap) {
        locked = handler->lockForWrite();
    }
    qInstallMessageHandler(former);

    QCOMPARE(warnings, 1);
    QVERIFY(!isSwapped);
    QVERIFY(isPublished(*handler, swapsInside ? 5 : 1));
    if (locked != nullptr) {
        QVERIFY(locked != handler->readBufferPointer());
        QVERIFY(handler->unlockForWrite(locked));
    }
    QVERIFY(!buffer.semaphores.isWriteLocked());
    QVERIFY(publishSet(*handler, 6));
    QVERIFY(isPublished(*handler, 6));
}

QTEST_GUILESS_MAIN(tst_PingPongLostSets)
#include "tst_PingPongLostSets.moc"
