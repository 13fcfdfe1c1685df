#include "Companion/PingPongBufferHandler.h"
#include "support/DoubleBuffer.h"
#include "support/LogCapture.h"
#include "support/StoppedProcess.h"

namespace {

/// Stops in the middle of a set, and publishes it when it goes on.
ChildProcess::Body publishesInTwoSteps(const DoubleBuffer &buffer, unsigned char value)
{
    return [&buffer, value](const ChildSide &parent) {
        const auto handler = buffer.attach();
        unsigned char *const locked = handler->lockForWrite();
        CHILD_VERIFY(locked != nullptr);
        fillBuffer(locked, buffer.size() / 2, value);
        parent.say();
        parent.waitForWord();
        fillBuffer(locked, buffer.size(), value);
        CHILD_VERIFY(handler->unlockForWrite(locked));
        CHILD_VERIFY(handler->swapBuffers());
        return 0;
    };
}

/// Stops inside a read that holds writers off.
ChildProcess::Body readsForTheThirdTime(const DoubleBuffer &buffer)
{
    return [&buffer](const ChildSide &parent) {
        const auto handler = buffer.attach();
        CHILD_VERIFY(readWithDisturbance(*handler) == ReadResult::Repeat);
        CHILD_VERIFY(readWithDisturbance(*handler) == ReadResult::Repeat);
        unsigned char *const locked = handler->lockForRead();
        CHILD_VERIFY(buffer.semaphores.isWriteLocked());
        parent.say();
        parent.waitForWord();
        CHILD_VERIFY(finishRead(*handler, locked) == ReadResult::Reliable);
        return 0;
    };
}

/// Tries a write lock that must fail.
ChildProcess::Body locksInVain(const DoubleBuffer &buffer)
{
    return [&buffer](const ChildSide &) {
        const auto handler = buffer.attach();
        CHILD_VERIFY(handler->lockForWrite() == nullptr);
        CHILD_VERIFY(!handler->unlockForWrite(handler->writeBufferPointer()));
        return 0;
    };
}

} // namespace

/// A process that stands still inside a lock of a double buffer: everybody's wait ends, nothing is
/// lost, and all is well as soon as that process goes on or dies.
class tst_StoppedHolderDouble : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void setOfAStoppedWriterIsPublishedWholeOrNotAtAll_data() { addWaysToEnd(); }
    void setOfAStoppedWriterIsPublishedWholeOrNotAtAll();
    void setThatWaitsForItsSwapIsNotLost();
    void stoppedHeldReaderKeepsWritersOutUntilItEnds();
};

void tst_StoppedHolderDouble::setOfAStoppedWriterIsPublishedWholeOrNotAtAll()
{
    QFETCH(bool, byDeath);
    const DoubleBuffer buffer;
    LogCapture log;
    const auto handler = buffer.create();
    QVERIFY(publishSet(*handler, 1));
    StoppedProcess writer(publishesInTwoSteps(buffer, 2));
    QVERIFY(writer.isStopped());
    ChildProcess locker(locksInVain(buffer));

    QVERIFY(!handler->swapBuffers());
    QCOMPARE(locker.waitForExit(), 0);

    QVERIFY(isPublished(*handler, 1));
    QVERIFY(writer.end(byDeath));
    QVERIFY(isPublished(*handler, byDeath ? 1 : 2));
    QVERIFY(publishSet(*handler, 3));
    QVERIFY(isPublished(*handler, 3));
    QCOMPARE(log.take(), QList<LogLine>());
}

void tst_StoppedHolderDouble::setThatWaitsForItsSwapIsNotLost()
{
    const DoubleBuffer buffer;
    LogCapture log;
    const auto handler = buffer.create();
    unsigned char *const locked = handler->lockForWrite();
    fillBuffer(locked, buffer.size(), 5);
    QVERIFY(handler->unlockForWrite(locked));
    // Somebody who adds one byte to the set and publishes nothing.
    StoppedProcess writer([&buffer](const ChildSide &parent) {
        const auto childHandler = buffer.attach();
        unsigned char *const own = childHandler->lockForWrite();
        CHILD_VERIFY(own != nullptr);
        parent.say();
        parent.waitForWord();
        own[0] = 6;
        CHILD_VERIFY(childHandler->unlockForWrite(own));
        return 0;
    });
    QVERIFY(writer.isStopped());

    QVERIFY(!handler->swapBuffers());

    QVERIFY(isPublished(*handler, 0));
    QCOMPARE(writer.goOn(), 0);
    QVERIFY(handler->swapBuffers());
    QCOMPARE(int{handler->readBufferPointer()[0]}, 6);
    QVERIFY(isFilledWith(handler->readBufferPointer() + 1, buffer.size() - 1, 5));
    QCOMPARE(log.take(), QList<LogLine>());
}

void tst_StoppedHolderDouble::stoppedHeldReaderKeepsWritersOutUntilItEnds()
{
    const DoubleBuffer buffer;
    LogCapture log;
    const auto handler = buffer.create();
    // Both buffers, since what disturbs the reader is swaps.
    QVERIFY(publishSet(*handler, 1));
    QVERIFY(publishSet(*handler, 1));
    StoppedProcess reader(readsForTheThirdTime(buffer));
    QVERIFY(reader.isStopped());

    QCOMPARE(handler->lockForWrite(), nullptr);

    QVERIFY(isPublished(*handler, 1));
    QCOMPARE(reader.goOn(), 0);
    QVERIFY(publishSet(*handler, 2));
    QVERIFY(isPublished(*handler, 2));
    QCOMPARE(log.take(), QList<LogLine>());
}

QTEST_GUILESS_MAIN(tst_StoppedHolderDouble)
#include "tst_StoppedHolderDouble.moc"
