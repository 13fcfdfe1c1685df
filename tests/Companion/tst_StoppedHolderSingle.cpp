#include "Companion/SingleBufferHandler.h"
#include "support/LogCapture.h"
#include "support/SingleBuffer.h"
#include "support/StoppedProcess.h"

namespace {

ChildProcess::Body readsInTwoSteps(const SingleBuffer &buffer)
{
    return [&buffer](const ChildSide &parent) {
        const auto handler = buffer.attach();
        CHILD_VERIFY(handler->lockForRead() != nullptr);
        parent.say();
        parent.waitForWord();
        CHILD_VERIFY(unlockRead(*handler));
        return 0;
    };
}

/// Stops between the first and the second half of what it writes.
ChildProcess::Body writesInTwoSteps(const SingleBuffer &buffer, unsigned char value)
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
        return 0;
    };
}

} // namespace

/// A process that stands still inside a lock of a single buffer.
class tst_StoppedHolderSingle : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void stoppedWriterMakesAllLocksFail_data() { addWaysToEnd(); }
    void stoppedWriterMakesAllLocksFail();
    void stoppedReaderMakesAReaderStayAReader();
    void twoReadersThatWantToWriteBothComeBack();
};

void tst_StoppedHolderSingle::stoppedWriterMakesAllLocksFail()
{
    QFETCH(bool, byDeath);
    const SingleBuffer buffer;
    LogCapture log;
    const auto handler = buffer.create();
    StoppedProcess writer(writesInTwoSteps(buffer, 7));
    QVERIFY(writer.isStopped());
    ChildProcess otherWriter([&buffer](const ChildSide &) {
        const auto childHandler = buffer.attach();
        CHILD_VERIFY(childHandler->lockForWrite() == nullptr);
        CHILD_VERIFY(!childHandler->unlockForWrite(buffer.start()));
        return 0;
    });

    QCOMPARE(handler->lockForRead(), nullptr);

    bool repeat = true;
    QVERIFY(!handler->unlockForRead(buffer.start(), repeat));
    QVERIFY(!repeat);
    QCOMPARE(otherWriter.waitForExit(), 0);
    QVERIFY(writer.end(byDeath));
    QVERIFY(readOnce(*handler));
    QVERIFY(isFilledWith(buffer.start(), buffer.size() / 2, 7));
    QVERIFY(isFilledWith(buffer.start() + buffer.size() / 2, buffer.size() / 2, byDeath ? 0 : 7));
    QVERIFY(writeOnce(*handler));
    QCOMPARE(buffer.semaphores.readers(), 0);
    QCOMPARE(log.take(), QList<LogLine>());
}

void tst_StoppedHolderSingle::stoppedReaderMakesAReaderStayAReader()
{
    const SingleBuffer buffer;
    LogCapture log;
    const auto handler = buffer.create();
    StoppedProcess reader(readsInTwoSteps(buffer));
    QVERIFY(reader.isStopped());
    QVERIFY(handler->lockForRead() != nullptr);

    QCOMPARE(handler->lockForWrite(), nullptr);

    // Its place among the readers is what it was, and writers have theirs again.
    QCOMPARE(buffer.semaphores.readers(), 2);
    QVERIFY(!buffer.semaphores.isWriteLocked());
    QVERIFY(reader.die());
    QCOMPARE(handler->lockForWrite(), buffer.start());
    QVERIFY(handler->unlockForWrite(buffer.start()));
    QVERIFY(unlockRead(*handler));
    QCOMPARE(buffer.semaphores.readers(), 0);
    QCOMPARE(log.take(), QList<LogLine>());
}

void tst_StoppedHolderSingle::twoReadersThatWantToWriteBothComeBack()
{
    const SingleBuffer buffer;
    const auto handler = buffer.create();
    ChildProcess other([&buffer](const ChildSide &parent) {
        const auto childHandler = buffer.attach();
        CHILD_VERIFY(childHandler->lockForRead() != nullptr);
        parent.say();
        parent.waitForWord();
        if (childHandler->lockForWrite() != nullptr) {
            CHILD_VERIFY(childHandler->unlockForWrite(buffer.start()));
        }
        CHILD_VERIFY(unlockRead(*childHandler));
        return 0;
    });
    QVERIFY(other.waitUntilReady());
    QVERIFY(handler->lockForRead() != nullptr);
    other.tell();

    // Each waits for the end of the other's read, so that one of the waits runs out at least.
    if (handler->lockForWrite() != nullptr) {
        QVERIFY(handler->unlockForWrite(buffer.start()));
    }

    QVERIFY(unlockRead(*handler));
    QCOMPARE(other.waitForExit(), 0);
    QCOMPARE(buffer.semaphores.readers(), 0);
    QVERIFY(writeOnce(*handler));
}

QTEST_GUILESS_MAIN(tst_StoppedHolderSingle)
#include "tst_StoppedHolderSingle.moc"
