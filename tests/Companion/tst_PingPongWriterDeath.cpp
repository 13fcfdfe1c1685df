#include "Companion/PingPongBufferHandler.h"
#include "support/ChildProcess.h"
#include "support/DoubleBuffer.h"
#include "support/ExchangeMessages.h"
#include "support/HalfSet.h"
#include "support/LogCapture.h"
#include "support/SemaphoreCalls.h"

class tst_PingPongWriterDeath : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void nextWriteLockSucceedsAndFindsWhatWasPublished();
    void nextSwapPublishesNothingOfTheHalfSet();
    void swapThatTakesBackAFinishedSetFails();
    void swapOfASetThatSomebodyElseTookBackFails();
    void swapOfASetThatWasTakenBackPublishesWhatWasFinishedSince();
    void swapTriedAgainAfterTakingBackBringsNothingOldBack();
    void swapAfterAFailedWriteLockBringsNothingOldBack();
    void writeLockThatTakesBackAFinishedSetWarns();
    void setThatWasPublishedIsNotTakenBack();
    void finishedSetOfADeadProcessMayBePublished();
    void deathAfterASwapInsideTheLockKeepsWhatWasPublished();
    void secondDeathIsTakenBackToo();
    void deathInTheMiddleOfCatchingUp_data();
    void deathInTheMiddleOfCatchingUp();
    void deathBetweenSwapAndCatchingUp();
    void takingBackDisturbsReadersOfTheBuffer();
    void handlerThatGoesInTheMiddleOfASetIsLikeADeath();
    void survivorThatWaitsGetsTheLock();
    void stoppedAndKilledWriterLocksNobodyOut();
    void deathAtAnyMomentLeavesWholeSets();
};

void tst_PingPongWriterDeath::nextWriteLockSucceedsAndFindsWhatWasPublished()
{
    const DoubleBuffer buffer;
    LogCapture log;
    const auto handler = buffer.create();
    for (unsigned char value = 1; value < 4; ++value) {
        QVERIFY(publishSet(*handler, value));
        QVERIFY(dieInTheMiddleOfASet(buffer, 99));

        unsigned char *const locked = handler->lockForWrite();

        QVERIFY(locked != nullptr);
        QVERIFY(isFilledWith(locked, buffer.size(), value));
        QVERIFY(isPublished(*handler, value));
        QVERIFY(handler->unlockForWrite(locked));
        QVERIFY(handler->swapBuffers());
        QVERIFY(isPublished(*handler, value));
    }
    QCOMPARE(log.take(), QList<LogLine>());
}

void tst_PingPongWriterDeath::nextSwapPublishesNothingOfTheHalfSet()
{
    const DoubleBuffer buffer;
    LogCapture log;
    const auto handler = buffer.create();
    for (unsigned char value = 1; value < 4; ++value) {
        QVERIFY(publishSet(*handler, value));
        unsigned char *const readBefore = handler->readBufferPointer();
        QVERIFY(dieInTheMiddleOfASet(buffer, 99));

        QVERIFY(handler->swapBuffers());

        QVERIFY(handler->readBufferPointer() != readBefore);
        QVERIFY(isPublished(*handler, value));
        QVERIFY(handler->swapBuffers());
        QVERIFY(isPublished(*handler, value));
    }
    QCOMPARE(log.take(), QList<LogLine>());
}

void tst_PingPongWriterDeath::swapThatTakesBackAFinishedSetFails()
{
    const DoubleBuffer buffer;
    LogCapture log;
    const auto handler = buffer.create();
    QVERIFY(publishSet(*handler, 1));
    QVERIFY(writeSet(*handler, 2));
    unsigned char *const readBefore = handler->readBufferPointer();
    QVERIFY(dieInTheMiddleOfASet(buffer, 99));

    QVERIFY(!handler->swapBuffers());

    COMPARE_LOG(log, takenBackWarning());
    QCOMPARE(handler->readBufferPointer(), readBefore);
    QVERIFY(isPublished(*handler, 1));
    QVERIFY(!buffer.semaphores.isWriteLocked());
    // Said once, and all is well again.
    QVERIFY(handler->swapBuffers());
    QVERIFY(isPublished(*handler, 1));
    QVERIFY(publishSet(*handler, 3));
    QVERIFY(isPublished(*handler, 3));
    QCOMPARE(log.take(), QList<LogLine>());
}

void tst_PingPongWriterDeath::swapOfASetThatSomebodyElseTookBackFails()
{
    const DoubleBuffer buffer;
    LogCapture log;
    const auto handler = buffer.create();
    const auto other = buffer.attach();
    QVERIFY(publishSet(*handler, 1));
    QVERIFY(writeSet(*handler, 2));
    unsigned char *const readBefore = handler->readBufferPointer();
    QVERIFY(dieInTheMiddleOfASet(buffer, 99));
    QVERIFY(!other->swapBuffers());
    COMPARE_LOG(log, takenBackWarning());

    QVERIFY(!handler->swapBuffers());

    // Said to each of them once, and all is well again.
    QCOMPARE(handler->readBufferPointer(), readBefore);
    QVERIFY(isPublished(*handler, 1));
    QVERIFY(!buffer.semaphores.isWriteLocked());
    QVERIFY(publishSet(*handler, 3));
    QVERIFY(isPublished(*handler, 3));
    QCOMPARE(log.take(), QList<LogLine>());
}

void tst_PingPongWriterDeath::swapOfASetThatWasTakenBackPublishesWhatWasFinishedSince()
{
    const DoubleBuffer buffer;
    LogCapture log;
    const auto handler = buffer.create();
    const auto other = buffer.attach();
    QVERIFY(publishSet(*handler, 1));
    QVERIFY(writeSet(*handler, 2));
    QVERIFY(dieInTheMiddleOfASet(buffer, 99));
    QVERIFY(writeSet(*other, 3));
    COMPARE_LOG(log, takenBackWarning());

    QVERIFY(handler->swapBuffers());

    QVERIFY(isPublished(*handler, 3));
    QCOMPARE(log.take(), QList<LogLine>());
}

void tst_PingPongWriterDeath::swapTriedAgainAfterTakingBackBringsNothingOldBack()
{
    const DoubleBuffer buffer;
    LogCapture log;
    const auto handler = buffer.create();
    const auto other = buffer.attach();
    QVERIFY(publishSet(*handler, 1));
    QVERIFY(writeSet(*handler, 2));
    QVERIFY(dieInTheMiddleOfASet(buffer, 99));
    QVERIFY(!handler->swapBuffers());
    COMPARE_LOG(log, takenBackWarning());
    QVERIFY(publishSet(*other, 3));

    QVERIFY(handler->swapBuffers());

    QVERIFY(isPublished(*handler, 3));
}

void tst_PingPongWriterDeath::swapAfterAFailedWriteLockBringsNothingOldBack()
{
    const DoubleBuffer buffer;
    const auto handler = buffer.create();
    const auto other = buffer.attach();
    QVERIFY(publishSet(*handler, 1));
    unsigned char *const locked = other->lockForWrite();
    QVERIFY(locked != nullptr);
    QVERIFY(handler->lockForWrite() == nullptr);
    fillBuffer(locked, buffer.size(), 2);
    QVERIFY(other->unlockForWrite(locked));
    QVERIFY(other->swapBuffers());

    QVERIFY(handler->swapBuffers());

    QVERIFY(isPublished(*handler, 2));
}

void tst_PingPongWriterDeath::writeLockThatTakesBackAFinishedSetWarns()
{
    const DoubleBuffer buffer;
    LogCapture log;
    const auto handler = buffer.create();
    QVERIFY(publishSet(*handler, 1));
    QVERIFY(writeSet(*handler, 2));
    QVERIFY(dieInTheMiddleOfASet(buffer, 99));

    unsigned char *const locked = handler->lockForWrite();

    COMPARE_LOG(log, takenBackWarning());
    QVERIFY(isFilledWith(locked, buffer.size(), 1));
    fillBuffer(locked, buffer.size(), 3);
    QVERIFY(handler->unlockForWrite(locked));
    QVERIFY(handler->swapBuffers());
    QVERIFY(isPublished(*handler, 3));
    QCOMPARE(log.take(), QList<LogLine>());
}

void tst_PingPongWriterDeath::setThatWasPublishedIsNotTakenBack()
{
    const DoubleBuffer buffer;
    LogCapture log;
    const auto handler = buffer.create();
    QVERIFY(writeSet(*handler, 2));
    QVERIFY(handler->swapBuffers());
    QVERIFY(dieInTheMiddleOfASet(buffer, 99));

    QVERIFY(handler->swapBuffers());

    QVERIFY(isPublished(*handler, 2));
    QCOMPARE(log.take(), QList<LogLine>());
}

void tst_PingPongWriterDeath::finishedSetOfADeadProcessMayBePublished()
{
    const DoubleBuffer buffer;
    LogCapture log;
    const auto handler = buffer.create();
    ChildProcess child([&buffer](const ChildSide &parent) {
        const auto childHandler = buffer.attach();
        CHILD_VERIFY(writeSet(*childHandler, 6));
        parent.say();
        parent.waitForWord();
        return 0;
    });
    QVERIFY(child.waitUntilReady());
    QVERIFY(child.kill());

    QVERIFY(handler->swapBuffers());

    QVERIFY(isPublished(*handler, 6));
    QCOMPARE(log.take(), QList<LogLine>());
}

void tst_PingPongWriterDeath::deathAfterASwapInsideTheLockKeepsWhatWasPublished()
{
    const DoubleBuffer buffer;
    LogCapture log;
    const auto handler = buffer.create();
    ChildProcess child([&buffer](const ChildSide &parent) {
        const auto childHandler = buffer.attach();
        unsigned char *const locked = childHandler->lockForWrite();
        CHILD_VERIFY(locked != nullptr);
        fillBuffer(locked, buffer.size(), 6);
        CHILD_VERIFY(childHandler->swapBuffers());
        fillBuffer(childHandler->writeBufferPointer(), buffer.size() / 2, 99);
        parent.say();
        parent.waitForWord();
        return 0;
    });
    QVERIFY(child.waitUntilReady());
    QVERIFY(child.kill());
    QVERIFY(isPublished(*handler, 6));

    unsigned char *const locked = handler->lockForWrite();

    QVERIFY(isFilledWith(locked, buffer.size(), 6));
    QVERIFY(isPublished(*handler, 6));
    QCOMPARE(log.take(), QList<LogLine>());
}

void tst_PingPongWriterDeath::secondDeathIsTakenBackToo()
{
    const DoubleBuffer buffer;
    LogCapture log;
    const auto handler = buffer.create();
    QVERIFY(publishSet(*handler, 1));
    QVERIFY(dieInTheMiddleOfASet(buffer, 98));
    QVERIFY(dieInTheMiddleOfASet(buffer, 99));

    QVERIFY(handler->swapBuffers());

    QVERIFY(isPublished(*handler, 1));
    QVERIFY(handler->swapBuffers());
    QVERIFY(isPublished(*handler, 1));
    QCOMPARE(log.take(), QList<LogLine>());
}

void tst_PingPongWriterDeath::deathInTheMiddleOfCatchingUp_data()
{
    QTest::addColumn<bool>("isNextASwap");

    QTest::newRow("write lock comes next") << false;
    QTest::newRow("swap comes next") << true;
}

void tst_PingPongWriterDeath::deathInTheMiddleOfCatchingUp()
{
    QFETCH(bool, isNextASwap);
    const DoubleBuffer buffer;
    LogCapture log;
    const auto handler = buffer.create();
    for (unsigned char value = 1; value < 5; ++value) {
        QVERIFY(publishSet(*handler, value));
        // Half of the copy is made, and the writer has left its mark.
        fillBuffer(handler->writeBufferPointer(), buffer.size() / 2, value);
        buffer.management()->writerPid = 4711;

        if (isNextASwap) {
            QVERIFY(handler->swapBuffers());
        } else {
            unsigned char *const locked = handler->lockForWrite();
            QVERIFY(isFilledWith(locked, buffer.size(), value));
            QVERIFY(handler->unlockForWrite(locked));
        }

        QVERIFY(buffer.isFirst(value));
        QVERIFY(buffer.isSecond(value));
        QCOMPARE(buffer.management()->writerPid.load(), 0U);
    }
    QCOMPARE(log.take(), QList<LogLine>());
}

void tst_PingPongWriterDeath::deathBetweenSwapAndCatchingUp()
{
    const DoubleBuffer buffer;
    LogCapture log;
    const auto handler = buffer.create();
    unsigned char *const locked = handler->lockForWrite();
    fillBuffer(locked, buffer.size(), 8);
    QVERIFY(handler->unlockForWrite(locked));
    // A writer that swapped inside its lock and died before it could begin the next set.
    buffer.management()->writerPid = 4711;
    buffer.management()->swapCount = 1;

    QVERIFY(isPublished(*handler, 8));
    QVERIFY(handler->swapBuffers());

    QVERIFY(isPublished(*handler, 8));
    QCOMPARE(log.take(), QList<LogLine>());
}

void tst_PingPongWriterDeath::takingBackDisturbsReadersOfTheBuffer()
{
    const DoubleBuffer buffer;
    LogCapture log;
    const auto handler = buffer.create();
    const auto reader = buffer.attach();
    QVERIFY(publishSet(*handler, 1));
    unsigned char *const read = reader->lockForRead();
    QVERIFY(handler->swapBuffers());
    // The writer died before it could tell the readers that it had begun.
    buffer.management()->writerPid = 4711;

    QVERIFY(handler->swapBuffers());

    QCOMPARE(finishRead(*reader, read), ReadResult::Repeat);
    QCOMPARE(log.take(), QList<LogLine>());
}

void tst_PingPongWriterDeath::handlerThatGoesInTheMiddleOfASetIsLikeADeath()
{
    const DoubleBuffer buffer;
    LogCapture log;
    const auto handler = buffer.create();
    QVERIFY(publishSet(*handler, 1));
    auto other = buffer.attach();
    unsigned char *const locked = other->lockForWrite();
    fillBuffer(locked, buffer.size() / 2, 99);

    other.reset();

    QVERIFY(handler->swapBuffers());
    QVERIFY(isPublished(*handler, 1));
    QCOMPARE(log.take(), QList<LogLine>());
}

void tst_PingPongWriterDeath::survivorThatWaitsGetsTheLock()
{
    const DoubleBuffer buffer;
    const auto handler = buffer.create();
    QVERIFY(publishSet(*handler, 1));
    ChildProcess writer([&buffer](const ChildSide &parent) {
        const auto childHandler = buffer.attach();
        unsigned char *const locked = childHandler->lockForWrite();
        CHILD_VERIFY(locked != nullptr);
        fillBuffer(locked, buffer.size() / 2, 99);
        parent.say();
        parent.waitForWord();
        return 0;
    });
    QVERIFY(writer.waitUntilReady());
    ChildProcess survivor([&buffer](const ChildSide &) {
        const SemaphoreCalls::PatientWaits patient;
        const auto childHandler = buffer.attach();
        unsigned char *const locked = childHandler->lockForWrite();
        CHILD_VERIFY(locked != nullptr);
        CHILD_VERIFY(isFilledWith(locked, buffer.size(), 1));
        CHILD_VERIFY(childHandler->unlockForWrite(locked));
        return 0;
    });
    QVERIFY(buffer.semaphores.waitUntilBlockedByWriter());

    QVERIFY(writer.kill());

    QCOMPARE(survivor.waitForExit(), 0);
}

void tst_PingPongWriterDeath::stoppedAndKilledWriterLocksNobodyOut()
{
    const DoubleBuffer buffer;
    const auto handler = buffer.create();
    QVERIFY(publishSet(*handler, 1));
    ChildProcess writer([&buffer](const ChildSide &parent) {
        const auto childHandler = buffer.attach();
        CHILD_VERIFY(childHandler->lockForWrite() != nullptr);
        parent.say();
        parent.waitForWord();
        return 0;
    });
    QVERIFY(writer.waitUntilReady());
    QVERIFY(writer.stop());
    QVERIFY(writer.kill());

    QVERIFY(publishSet(*handler, 2));

    QVERIFY(isPublished(*handler, 2));
}

void tst_PingPongWriterDeath::deathAtAnyMomentLeavesWholeSets()
{
    const DoubleBuffer buffer(20001);
    LogCapture log;
    const auto handler = buffer.create();
    for (int round = 0; round < 100; ++round) {
        ChildProcess writer([&buffer](const ChildSide &parent) {
            const auto childHandler = buffer.attach();
            parent.say();
            for (unsigned char value = 1;; ++value) {
                CHILD_VERIFY(publishSet(*childHandler, value));
            }
        });
        QVERIFY(writer.waitUntilReady());
        const quint64 swapsBefore = buffer.management()->swapCount;
        while (buffer.management()->swapCount < swapsBefore + 3) {
            QVERIFY(!writer.hasEnded());
        }
        QVERIFY(writer.kill());

        QVERIFY(!buffer.semaphores.isWriteLocked());
        QVERIFY(isPublished(*handler, handler->readBufferPointer()[0]));
        QVERIFY(handler->swapBuffers());
        QVERIFY(isPublished(*handler, handler->readBufferPointer()[0]));
        unsigned char *const locked = handler->lockForWrite();
        QVERIFY(locked != nullptr);
        QVERIFY(isFilledWith(locked, buffer.size(), handler->readBufferPointer()[0]));
        QVERIFY(handler->unlockForWrite(locked));
    }
    QCOMPARE(buffer.semaphores.users(), 1);
    QCOMPARE(log.take(), QList<LogLine>());
}

QTEST_GUILESS_MAIN(tst_PingPongWriterDeath)
#include "tst_PingPongWriterDeath.moc"
