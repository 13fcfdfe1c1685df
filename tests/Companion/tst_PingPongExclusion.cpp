#include "Companion/PingPongBufferHandler.h"
#include "support/ChildProcess.h"
#include "support/DoubleBuffer.h"
#include "support/SemaphoreCalls.h"

#include <QtTest>

#include <array>

namespace {

/// Holds the write lock until it is told to end its set.
ChildProcess::Body writesUntilTold(const DoubleBuffer &buffer, unsigned char value)
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

class tst_PingPongExclusion : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void writerWaitsForTheWriterOfAnotherProcess();
    void swapWaitsForTheWriterOfAnotherProcess();
    void innerUnlockKeepsAnotherProcessOut();
    void readerDoesNotWaitForAWriter();
    void waitingWritersAllGetTheirTurn();
    void setsOfManyWritersAreNeverMixed();
    void interruptionsDoNotEndAWait();
    void stoppedWriterMakesLocksFailAndNotHang();
    void forkedChildDoesNotUnlockForItsParent();
    void forkedChildDoesNotUnlockAHeldReadOfItsParent();
};

void tst_PingPongExclusion::writerWaitsForTheWriterOfAnotherProcess()
{
    const DoubleBuffer buffer;
    const auto handler = buffer.create();
    unsigned char *const locked = handler->lockForWrite();
    ChildProcess child([&buffer](const ChildSide &parent) {
        const SemaphoreCalls::PatientWaits patient;
        const auto childHandler = buffer.attach();
        unsigned char *const own = childHandler->lockForWrite();
        parent.say();
        CHILD_VERIFY(own != nullptr);
        CHILD_VERIFY(isFilledWith(own, buffer.size(), 3));
        CHILD_VERIFY(childHandler->unlockForWrite(own));
        return 0;
    });

    QVERIFY(buffer.semaphores.waitUntilBlockedByWriter());
    QVERIFY(!child.hasSpoken());
    fillBuffer(locked, buffer.size(), 3);
    QVERIFY(!child.hasSpoken());
    QVERIFY(handler->unlockForWrite(locked));

    QCOMPARE(child.waitForExit(), 0);
    QVERIFY(!buffer.semaphores.isWriteLocked());
}

void tst_PingPongExclusion::swapWaitsForTheWriterOfAnotherProcess()
{
    const DoubleBuffer buffer;
    const auto handler = buffer.create();
    unsigned char *const locked = handler->lockForWrite();
    fillBuffer(locked, buffer.size() / 2, 3);
    ChildProcess child([&buffer](const ChildSide &parent) {
        const SemaphoreCalls::PatientWaits patient;
        const auto childHandler = buffer.attach();
        const bool isSwapped = childHandler->swapBuffers();
        parent.say();
        CHILD_VERIFY(isSwapped);
        CHILD_VERIFY(isFilledWith(childHandler->readBufferPointer(), buffer.size(), 3));
        return 0;
    });

    QVERIFY(buffer.semaphores.waitUntilBlockedByWriter());
    QVERIFY(!child.hasSpoken());
    QCOMPARE(handler->writeBufferPointer(), locked);
    fillBuffer(locked, buffer.size(), 3);
    QVERIFY(handler->unlockForWrite(locked));

    QCOMPARE(child.waitForExit(), 0);
    QCOMPARE(handler->readBufferPointer(), locked);
}

void tst_PingPongExclusion::innerUnlockKeepsAnotherProcessOut()
{
    const DoubleBuffer buffer;
    const auto handler = buffer.create();
    unsigned char *const locked = handler->lockForWrite();
    QCOMPARE(handler->lockForWrite(), locked);
    ChildProcess child([&buffer](const ChildSide &parent) {
        const SemaphoreCalls::PatientWaits patient;
        const auto childHandler = buffer.attach();
        CHILD_VERIFY(writeSet(*childHandler, 1));
        parent.say();
        return 0;
    });
    QVERIFY(buffer.semaphores.waitUntilBlockedByWriter());

    QVERIFY(handler->unlockForWrite(locked));
    QVERIFY(handler->swapBuffers());

    QVERIFY(buffer.semaphores.waitUntilBlockedByWriter());
    QVERIFY(!child.hasSpoken());
    QVERIFY(handler->unlockForWrite(locked));
    QCOMPARE(child.waitForExit(), 0);
}

void tst_PingPongExclusion::readerDoesNotWaitForAWriter()
{
    const DoubleBuffer buffer;
    const auto handler = buffer.create();
    QVERIFY(publishSet(*handler, 1));
    ChildProcess writer(writesUntilTold(buffer, 2));
    QVERIFY(writer.waitUntilReady());
    QVERIFY(writer.stop());

    for (int i = 0; i < 5; ++i) {
        unsigned char *const locked = handler->lockForRead();
        QVERIFY(isFilledWith(locked, buffer.size(), 1));
        QCOMPARE(finishRead(*handler, locked), ReadResult::Reliable);
    }
    writer.resume();
    writer.tell();
    QCOMPARE(writer.waitForExit(), 0);
}

void tst_PingPongExclusion::waitingWritersAllGetTheirTurn()
{
    const DoubleBuffer buffer(4);
    const auto handler = buffer.create();
    unsigned char *const locked = handler->lockForWrite();
    const auto writesPlace = [&buffer](quint32 place) {
        return [&buffer, place](const ChildSide &) {
            const SemaphoreCalls::PatientWaits patient;
            const auto childHandler = buffer.attach();
            unsigned char *const own = childHandler->lockForWrite();
            CHILD_VERIFY(own != nullptr);
            own[place] = static_cast<unsigned char>(place + 1);
            CHILD_VERIFY(childHandler->unlockForWrite(own));
            return 0;
        };
    };
    ChildProcess one(writesPlace(0));
    ChildProcess two(writesPlace(1));
    ChildProcess three(writesPlace(2));
    QVERIFY(buffer.semaphores.waitUntilBlockedByWriter(3));

    QVERIFY(handler->unlockForWrite(locked));

    QCOMPARE(one.waitForExit(), 0);
    QCOMPARE(two.waitForExit(), 0);
    QCOMPARE(three.waitForExit(), 0);
    const std::array<unsigned char, 4> expected{1, 2, 3, 0};
    QVERIFY(std::equal(expected.cbegin(), expected.cend(), handler->writeBufferPointer()));
}

void tst_PingPongExclusion::setsOfManyWritersAreNeverMixed()
{
    const DoubleBuffer buffer(3001);
    const auto handler = buffer.create();
    const auto publishes = [&buffer](unsigned char value) {
        return [&buffer, value](const ChildSide &) {
            const auto childHandler = buffer.attach();
            for (int i = 0; i < 2000; ++i) {
                CHILD_VERIFY(publishSet(*childHandler, value));
            }
            return 0;
        };
    };
    ChildProcess one(publishes(1));
    ChildProcess two(publishes(2));

    int attempts = 0;
    for (int reads = 0; reads < 5000; ++reads) {
        unsigned char *const locked = handler->lockForRead();
        QVERIFY(locked != nullptr);
        const bool isWhole = isFilledWith(locked, buffer.size(), locked[0]);
        const ReadResult result = finishRead(*handler, locked);
        QVERIFY(result != ReadResult::Failed);
        QVERIFY(isWhole || result == ReadResult::Repeat);
        attempts = result == ReadResult::Repeat ? attempts + 1 : 0;
        QVERIFY(attempts < 3);
    }

    QCOMPARE(one.waitForExit(), 0);
    QCOMPARE(two.waitForExit(), 0);
}

void tst_PingPongExclusion::interruptionsDoNotEndAWait()
{
    const DoubleBuffer buffer;
    const auto handler = buffer.create();
    unsigned char *const locked = handler->lockForWrite();
    ChildProcess child([&buffer](const ChildSide &) {
        const SemaphoreCalls::PatientWaits patient;
        const auto childHandler = buffer.attach();
        CHILD_VERIFY(writeSet(*childHandler, 7));
        return 0;
    });

    for (int i = 0; i < 3; ++i) {
        QVERIFY(buffer.semaphores.waitUntilBlockedByWriter());
        // Ends the system call, like a signal with a handler.
        QVERIFY(child.stop());
        child.resume();
    }
    QVERIFY(buffer.semaphores.waitUntilBlockedByWriter());
    QVERIFY(handler->unlockForWrite(locked));

    QCOMPARE(child.waitForExit(), 0);
    QVERIFY(isFilledWith(handler->writeBufferPointer(), buffer.size(), 7));
}

void tst_PingPongExclusion::stoppedWriterMakesLocksFailAndNotHang()
{
    const DoubleBuffer buffer;
    const auto handler = buffer.create();
    QVERIFY(publishSet(*handler, 1));
    ChildProcess writer(writesUntilTold(buffer, 2));
    QVERIFY(writer.waitUntilReady());
    QVERIFY(writer.stop());
    // Both at the same time, since each wait lasts as long as its bound.
    ChildProcess locker([&buffer](const ChildSide &parent) {
        const auto childHandler = buffer.attach();
        CHILD_VERIFY(childHandler->lockForWrite() == nullptr);
        CHILD_VERIFY(!childHandler->unlockForWrite(buffer.first()));
        parent.say();
        parent.waitForWord();
        CHILD_VERIFY(writeSet(*childHandler, 3));
        return 0;
    });
    ChildProcess swapper([&buffer](const ChildSide &parent) {
        const auto childHandler = buffer.attach();
        CHILD_VERIFY(!childHandler->swapBuffers());
        parent.say();
        parent.waitForWord();
        CHILD_VERIFY(childHandler->swapBuffers());
        return 0;
    });

    QVERIFY(locker.waitUntilReady());
    QVERIFY(swapper.waitUntilReady());
    QVERIFY(isFilledWith(handler->readBufferPointer(), buffer.size(), 1));
    QVERIFY(buffer.semaphores.isWriteLocked());
    writer.resume();
    writer.tell();
    QCOMPARE(writer.waitForExit(), 0);

    locker.tell();
    QCOMPARE(locker.waitForExit(), 0);
    swapper.tell();
    QCOMPARE(swapper.waitForExit(), 0);
    QVERIFY(isFilledWith(handler->readBufferPointer(), buffer.size(), 3));
}

void tst_PingPongExclusion::forkedChildDoesNotUnlockForItsParent()
{
    const DoubleBuffer buffer;
    auto handler = buffer.create();
    unsigned char *const locked = handler->lockForWrite();
    // The child looks itself, before the kernel gives back what it may have taken.
    ChildProcess child([&](const ChildSide &) {
        handler.reset();
        CHILD_VERIFY(buffer.semaphores.isWriteLocked());
        return 0;
    });

    QCOMPARE(child.waitForExit(), 0);

    QVERIFY(buffer.semaphores.isWriteLocked());
    QCOMPARE(buffer.semaphores.users(), 1);
    QVERIFY(handler->unlockForWrite(locked));
    QVERIFY(!buffer.semaphores.isWriteLocked());
    QVERIFY(publishSet(*handler, 1));
}

void tst_PingPongExclusion::forkedChildDoesNotUnlockAHeldReadOfItsParent()
{
    const DoubleBuffer buffer;
    auto handler = buffer.create();
    QCOMPARE(readWithDisturbance(*handler), ReadResult::Repeat);
    QCOMPARE(readWithDisturbance(*handler), ReadResult::Repeat);
    unsigned char *const locked = handler->lockForRead();
    ChildProcess child([&](const ChildSide &) {
        handler.reset();
        CHILD_VERIFY(buffer.semaphores.isWriteLocked());
        return 0;
    });

    QCOMPARE(child.waitForExit(), 0);

    QVERIFY(buffer.semaphores.isWriteLocked());
    QCOMPARE(finishRead(*handler, locked), ReadResult::Reliable);
    QVERIFY(!buffer.semaphores.isWriteLocked());
}

QTEST_GUILESS_MAIN(tst_PingPongExclusion)
#include "tst_PingPongExclusion.moc"
