#include "Companion/PingPongBufferHandler.h"
#include "support/ChildProcess.h"
#include "support/DoubleBuffer.h"
#include "support/SemaphoreCalls.h"

#include <QtTest>

#include <thread>

#include <linux/seccomp.h>
#include <sys/syscall.h>

namespace {

/// Whether the next read holds writers off.
bool isNextReadHeld(const DoubleBuffer &buffer, PingPongBufferHandler &handler)
{
    unsigned char *const locked = handler.lockForRead();
    const bool isHeld = buffer.semaphores.isWriteLocked();
    return finishRead(handler, locked) == ReadResult::Reliable && isHeld;
}

template <class Function>
void inAnotherThread(const Function &function)
{
    std::thread(function).join();
}

} // namespace

class tst_PingPongReadRepeat : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void noWriterIsNoReason();
    void swapsAloneAreNoReason();
    void writeLockAfterASwapIsAReason();
    void writeLockInTheOtherBufferIsNoReason();
    void writeBeforeTheReadIsNoReason();
    void writeSomeEpochsLaterIsAReason();
    void ordinaryReadMakesNoSystemCall();

    void thirdReadAfterTwoRepetitionsHoldsWritersOff();
    void heldReadKeepsAnotherProcessOutUntilItsEnd();
    void streakEndsWithASuccess();
    void streakIsThatOfAThread();
    void streakIsThatOfAHandler();
    void successInsideDoesNotEndTheStreakOutside();
    void repetitionInsideIsNoneOutside();
    void failedUnlockIsNoRepetition();
    void heldReadLetsItsOwnThreadWrite();
    void heldReadDoesNotHangBehindAStoppedWriter();
    void killedHeldReaderLocksNobodyOut();
};

void tst_PingPongReadRepeat::noWriterIsNoReason()
{
    const DoubleBuffer buffer;
    const auto handler = buffer.create();

    for (int epoch = 0; epoch < 4; ++epoch) {
        QCOMPARE(readOnce(*handler), ReadResult::Reliable);
        QVERIFY(publishSet(*handler, 1));
    }
}

void tst_PingPongReadRepeat::swapsAloneAreNoReason()
{
    const DoubleBuffer buffer;
    const auto handler = buffer.create();

    for (int swaps = 0; swaps < 5; ++swaps) {
        unsigned char *const locked = handler->lockForRead();
        for (int i = 0; i < swaps; ++i) {
            QVERIFY(handler->swapBuffers());
        }
        QCOMPARE(finishRead(*handler, locked), ReadResult::Reliable);
        QVERIFY(publishSet(*handler, 1));
    }
}

void tst_PingPongReadRepeat::writeLockAfterASwapIsAReason()
{
    const DoubleBuffer buffer;
    const auto handler = buffer.create();

    for (int epoch = 0; epoch < 4; ++epoch) {
        unsigned char *const locked = handler->lockForRead();
        QVERIFY(handler->swapBuffers());
        QCOMPARE(handler->lockForWrite(), locked);

        // The writer need not have come to its end.
        QCOMPARE(finishRead(*handler, locked), ReadResult::Repeat);
        QVERIFY(handler->unlockForWrite(locked));
        QCOMPARE(readOnce(*handler), ReadResult::Reliable);
    }
}

void tst_PingPongReadRepeat::writeLockInTheOtherBufferIsNoReason()
{
    const DoubleBuffer buffer;
    const auto handler = buffer.create();

    for (int epoch = 0; epoch < 3; ++epoch) {
        unsigned char *const locked = handler->lockForRead();
        QVERIFY(writeSet(*handler, 1));
        QVERIFY(handler->swapBuffers());
        QVERIFY(handler->swapBuffers());
        QVERIFY(writeSet(*handler, 2));

        QCOMPARE(finishRead(*handler, locked), ReadResult::Reliable);
        QVERIFY(handler->swapBuffers());
    }
}

void tst_PingPongReadRepeat::writeBeforeTheReadIsNoReason()
{
    const DoubleBuffer buffer;
    const auto handler = buffer.create();

    for (unsigned char value = 1; value < 6; ++value) {
        QVERIFY(publishSet(*handler, value));
        unsigned char *const written = handler->lockForWrite();

        unsigned char *const locked = handler->lockForRead();
        QVERIFY(isFilledWith(locked, buffer.size(), value));
        QCOMPARE(finishRead(*handler, locked), ReadResult::Reliable);
        QVERIFY(handler->unlockForWrite(written));
    }
}

void tst_PingPongReadRepeat::writeSomeEpochsLaterIsAReason()
{
    const DoubleBuffer buffer;
    const auto handler = buffer.create();
    unsigned char *const locked = handler->lockForRead();
    for (unsigned char value = 1; value < 8; ++value) {
        QVERIFY(publishSet(*handler, value));
    }

    QCOMPARE(finishRead(*handler, locked), ReadResult::Repeat);
}

void tst_PingPongReadRepeat::ordinaryReadMakesNoSystemCall()
{
    const DoubleBuffer buffer;
    ChildProcess child([&buffer](const ChildSide &parent) {
        const auto handler = buffer.attach();
        CHILD_VERIFY(readOnce(*handler) == ReadResult::Reliable);
        // From here on every call but read(), write() and exit() kills.
        if (prctl(PR_SET_SECCOMP, SECCOMP_MODE_STRICT) != 0) {
            return ChildProcess::sm_cannotTry;
        }
        unsigned char *const outer = handler->lockForRead();
        const bool isReliable = readOnce(*handler) == ReadResult::Reliable
                                && finishRead(*handler, outer) == ReadResult::Reliable;
        parent.say();
        syscall(SYS_exit, isReliable ? 0 : 1);
        return 1;
    });

    COMPARE_EXIT(child.waitForExit(), "seccomp");
}

void tst_PingPongReadRepeat::thirdReadAfterTwoRepetitionsHoldsWritersOff()
{
    const DoubleBuffer buffer;
    const auto handler = buffer.create();
    QVERIFY(!isNextReadHeld(buffer, *handler));
    QCOMPARE(readWithDisturbance(*handler), ReadResult::Repeat);
    unsigned char *const second = handler->lockForRead();
    QVERIFY(!buffer.semaphores.isWriteLocked());
    QVERIFY(handler->swapBuffers());
    QVERIFY(writeSet(*handler, 1));
    QCOMPARE(finishRead(*handler, second), ReadResult::Repeat);

    unsigned char *const third = handler->lockForRead();

    QVERIFY(buffer.semaphores.isWriteLocked());
    QCOMPARE(third, handler->readBufferPointer());
    QCOMPARE(finishRead(*handler, third), ReadResult::Reliable);
    QVERIFY(!buffer.semaphores.isWriteLocked());
}

void tst_PingPongReadRepeat::heldReadKeepsAnotherProcessOutUntilItsEnd()
{
    const DoubleBuffer buffer;
    const auto handler = buffer.create();
    QCOMPARE(readWithDisturbance(*handler), ReadResult::Repeat);
    QCOMPARE(readWithDisturbance(*handler), ReadResult::Repeat);
    const auto writes = [&buffer](const ChildSide &parent) {
        const SemaphoreCalls::PatientWaits patient;
        const auto writer = buffer.attach();
        CHILD_VERIFY(writeSet(*writer, 8));
        parent.say();
        return 0;
    };

    unsigned char *const locked = handler->lockForRead();
    ChildProcess one(writes);
    ChildProcess two(writes);
    QVERIFY(buffer.semaphores.waitUntilBlockedByWriter(2));

    QVERIFY(!one.hasSpoken());
    QVERIFY(!two.hasSpoken());
    QCOMPARE(finishRead(*handler, locked), ReadResult::Reliable);
    QCOMPARE(one.waitForExit(), 0);
    QCOMPARE(two.waitForExit(), 0);
    QVERIFY(isFilledWith(handler->writeBufferPointer(), buffer.size(), 8));
}

void tst_PingPongReadRepeat::streakEndsWithASuccess()
{
    const DoubleBuffer buffer;
    const auto handler = buffer.create();

    QCOMPARE(readWithDisturbance(*handler), ReadResult::Repeat);
    QCOMPARE(readOnce(*handler), ReadResult::Reliable);
    QCOMPARE(readWithDisturbance(*handler), ReadResult::Repeat);
    QVERIFY(!isNextReadHeld(buffer, *handler));

    QCOMPARE(readWithDisturbance(*handler), ReadResult::Repeat);
    QCOMPARE(readWithDisturbance(*handler), ReadResult::Repeat);
    QVERIFY(isNextReadHeld(buffer, *handler));
    QVERIFY(!isNextReadHeld(buffer, *handler));
}

void tst_PingPongReadRepeat::streakIsThatOfAThread()
{
    const DoubleBuffer buffer;
    const auto handler = buffer.create();
    QCOMPARE(readWithDisturbance(*handler), ReadResult::Repeat);
    QCOMPARE(readWithDisturbance(*handler), ReadResult::Repeat);

    bool isHeldInOther = true;
    inAnotherThread([&] { isHeldInOther = isNextReadHeld(buffer, *handler); });

    QVERIFY(!isHeldInOther);
    QVERIFY(isNextReadHeld(buffer, *handler));
}

void tst_PingPongReadRepeat::streakIsThatOfAHandler()
{
    const DoubleBuffer buffer;
    const DoubleBuffer otherBuffer;
    const auto handler = buffer.create();
    const auto other = otherBuffer.create();
    QCOMPARE(readWithDisturbance(*handler), ReadResult::Repeat);
    QCOMPARE(readWithDisturbance(*other), ReadResult::Repeat);
    QCOMPARE(readWithDisturbance(*handler), ReadResult::Repeat);

    QVERIFY(!isNextReadHeld(otherBuffer, *other));
    QVERIFY(isNextReadHeld(buffer, *handler));
}

void tst_PingPongReadRepeat::successInsideDoesNotEndTheStreakOutside()
{
    const DoubleBuffer buffer;
    const auto handler = buffer.create();
    for (int i = 0; i < 2; ++i) {
        unsigned char *const outer = handler->lockForRead();
        QVERIFY(handler->swapBuffers());
        QVERIFY(writeSet(*handler, 1));
        QCOMPARE(readOnce(*handler), ReadResult::Reliable);
        QCOMPARE(finishRead(*handler, outer), ReadResult::Repeat);
    }

    QVERIFY(isNextReadHeld(buffer, *handler));
}

void tst_PingPongReadRepeat::repetitionInsideIsNoneOutside()
{
    const DoubleBuffer buffer;
    const auto handler = buffer.create();
    unsigned char *const outer = handler->lockForRead();
    QCOMPARE(readWithDisturbance(*handler), ReadResult::Repeat);
    QCOMPARE(readWithDisturbance(*handler), ReadResult::Repeat);
    QVERIFY(isNextReadHeld(buffer, *handler));
    QCOMPARE(readWithDisturbance(*handler), ReadResult::Repeat);
    QCOMPARE(readWithDisturbance(*handler), ReadResult::Repeat);
    QCOMPARE(finishRead(*handler, outer), ReadResult::Repeat);

    QVERIFY(!isNextReadHeld(buffer, *handler));
}

void tst_PingPongReadRepeat::failedUnlockIsNoRepetition()
{
    const DoubleBuffer buffer;
    const auto handler = buffer.create();
    QCOMPARE(readWithDisturbance(*handler), ReadResult::Repeat);
    QCOMPARE(finishRead(*handler, nullptr), ReadResult::Failed);
    QVERIFY(!isNextReadHeld(buffer, *handler));

    QCOMPARE(readWithDisturbance(*handler), ReadResult::Repeat);
    QCOMPARE(readWithDisturbance(*handler), ReadResult::Repeat);
    QCOMPARE(finishRead(*handler, nullptr), ReadResult::Failed);
    QVERIFY(isNextReadHeld(buffer, *handler));
}

void tst_PingPongReadRepeat::heldReadLetsItsOwnThreadWrite()
{
    const DoubleBuffer buffer;
    const auto handler = buffer.create();
    QCOMPARE(readWithDisturbance(*handler), ReadResult::Repeat);
    QCOMPARE(readWithDisturbance(*handler), ReadResult::Repeat);
    unsigned char *const held = handler->lockForRead();

    unsigned char *const written = handler->lockForWrite();

    QVERIFY(written != nullptr && written != held);
    // No write lock is left over, only what the read holds.
    QVERIFY(handler->unlockForWrite(written));
    QVERIFY(!handler->unlockForWrite(written));
    QVERIFY(buffer.semaphores.isWriteLocked());
    QCOMPARE(finishRead(*handler, held), ReadResult::Reliable);
    QVERIFY(!buffer.semaphores.isWriteLocked());
}

void tst_PingPongReadRepeat::heldReadDoesNotHangBehindAStoppedWriter()
{
    const DoubleBuffer buffer;
    const auto handler = buffer.create();
    ChildProcess writer([&buffer](const ChildSide &parent) {
        const auto childHandler = buffer.attach();
        parent.waitForWord();
        unsigned char *const locked = childHandler->lockForWrite();
        CHILD_VERIFY(locked != nullptr);
        fillBuffer(locked, buffer.size() / 2, 5);
        parent.say();
        parent.waitForWord();
        fillBuffer(locked, buffer.size(), 5);
        CHILD_VERIFY(childHandler->unlockForWrite(locked));
        return 0;
    });
    QCOMPARE(readWithDisturbance(*handler), ReadResult::Repeat);
    QCOMPARE(readWithDisturbance(*handler), ReadResult::Repeat);
    QVERIFY(publishSet(*handler, 4));
    writer.tell();
    QVERIFY(writer.waitUntilReady());
    QVERIFY(writer.stop());

    const auto before = SemaphoreCalls::sumOfBounds();
    unsigned char *const locked = handler->lockForRead();

    QVERIFY(locked != nullptr);
    QVERIFY(SemaphoreCalls::sumOfBounds() > before);
    QVERIFY(SemaphoreCalls::sumOfBounds() - before < SystemVSemaphoreBaseClass::sm_lockWaitBound);
    QVERIFY(buffer.semaphores.isWriteLocked());
    QVERIFY(isFilledWith(locked, buffer.size(), 4));
    QCOMPARE(finishRead(*handler, locked), ReadResult::Reliable);
    QVERIFY(buffer.semaphores.isWriteLocked());
    writer.resume();
    writer.tell();
    QCOMPARE(writer.waitForExit(), 0);
    QVERIFY(!buffer.semaphores.isWriteLocked());
}

void tst_PingPongReadRepeat::killedHeldReaderLocksNobodyOut()
{
    const DoubleBuffer buffer;
    const auto handler = buffer.create();
    QVERIFY(publishSet(*handler, 4));
    QVERIFY(writeSet(*handler, 5));
    ChildProcess reader([&buffer](const ChildSide &parent) {
        const auto childHandler = buffer.attach();
        CHILD_VERIFY(readWithDisturbance(*childHandler) == ReadResult::Repeat);
        CHILD_VERIFY(readWithDisturbance(*childHandler) == ReadResult::Repeat);
        CHILD_VERIFY(writeSet(*childHandler, 6));
        CHILD_VERIFY(childHandler->lockForRead() != nullptr);
        parent.say();
        parent.waitForWord();
        return 0;
    });
    QVERIFY(reader.waitUntilReady());
    QVERIFY(buffer.semaphores.isWriteLocked());

    QVERIFY(reader.kill());

    QVERIFY(!buffer.semaphores.isWriteLocked());
    // It was reading: what others have written stays.
    QVERIFY(handler->swapBuffers());
    QVERIFY(isFilledWith(handler->readBufferPointer(), buffer.size(), 6));
}

QTEST_GUILESS_MAIN(tst_PingPongReadRepeat)
#include "tst_PingPongReadRepeat.moc"
