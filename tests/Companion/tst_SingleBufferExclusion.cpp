#include "Companion/SingleBufferHandler.h"
#include "support/ChildProcess.h"
#include "support/SemaphoreCalls.h"
#include "support/SingleBuffer.h"

#include <QtTest>

#include <atomic>
#include <thread>

namespace {

ChildProcess::Body holdsAReadLock(const SingleBuffer &buffer)
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

ChildProcess::Body holdsAWriteLock(const SingleBuffer &buffer)
{
    return [&buffer](const ChildSide &parent) {
        const auto handler = buffer.attach();
        CHILD_VERIFY(handler->lockForWrite() != nullptr);
        parent.say();
        parent.waitForWord();
        CHILD_VERIFY(handler->unlockForWrite(buffer.start()));
        return 0;
    };
}

ChildProcess::Body reads(const SingleBuffer &buffer)
{
    return [&buffer](const ChildSide &parent) {
        const SemaphoreCalls::PatientWaits patient;
        const auto handler = buffer.attach();
        CHILD_VERIFY(readOnce(*handler));
        parent.say();
        return 0;
    };
}

ChildProcess::Body writes(const SingleBuffer &buffer)
{
    return [&buffer](const ChildSide &parent) {
        const SemaphoreCalls::PatientWaits patient;
        const auto handler = buffer.attach();
        CHILD_VERIFY(writeOnce(*handler));
        parent.say();
        return 0;
    };
}

} // namespace

class tst_SingleBufferExclusion : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void readersDoNotExcludeEachOther();
    void writerWaitsForAReader();
    void writerWaitsForTheLastReader();
    void readerWaitsForAWriter();
    void writerWaitsForAWriter();
    void threadsExcludeEachOther();
    void writerGetsInBetweenReadersThatOverlap();
    void writeInsideAReadWaitsForOtherReaders();
    void readThatOutlivesItsWriteKeepsWritersOut();
    void writeThatOutlivesItsReadKeepsReadersOut();
    void nestedReadDoesNotWaitBehindAWaitingWriter();
    void killedReaderLocksNobodyOut();
    void killedWriterLocksNobodyOut();
    void killedWaitingWriterLocksNobodyOut();
    void stoppedReaderMakesWriteLocksFailAndNotHang();
    void forkedChildDoesNotUnlockForItsParent();
};

void tst_SingleBufferExclusion::readersDoNotExcludeEachOther()
{
    const SingleBuffer buffer;
    const auto handler = buffer.create();
    ChildProcess one(holdsAReadLock(buffer));
    ChildProcess two(holdsAReadLock(buffer));

    QVERIFY(one.waitUntilReady());
    QVERIFY(two.waitUntilReady());

    QCOMPARE(buffer.semaphores.readers(), 2);
    QVERIFY(handler->lockForRead() != nullptr);
    QCOMPARE(buffer.semaphores.readers(), 3);
    one.tell();
    two.tell();
    QCOMPARE(one.waitForExit(), 0);
    QCOMPARE(two.waitForExit(), 0);
    QVERIFY(unlockRead(*handler));
    QCOMPARE(buffer.semaphores.readers(), 0);
}

void tst_SingleBufferExclusion::writerWaitsForAReader()
{
    const SingleBuffer buffer;
    const auto handler = buffer.create();
    QVERIFY(handler->lockForRead() != nullptr);
    ChildProcess writer(writes(buffer));

    QVERIFY(buffer.semaphores.waitUntilBlockedByReaders());

    QVERIFY(!writer.hasSpoken());
    QVERIFY(unlockRead(*handler));
    QCOMPARE(writer.waitForExit(), 0);
    QVERIFY(!buffer.semaphores.isWriteLocked());
}

void tst_SingleBufferExclusion::writerWaitsForTheLastReader()
{
    const SingleBuffer buffer;
    const auto handler = buffer.create();
    QVERIFY(handler->lockForRead() != nullptr);
    ChildProcess reader(holdsAReadLock(buffer));
    QVERIFY(reader.waitUntilReady());
    ChildProcess writer(writes(buffer));
    QVERIFY(buffer.semaphores.waitUntilBlockedByReaders());

    QVERIFY(unlockRead(*handler));

    QVERIFY(buffer.semaphores.waitUntilBlockedByReaders());
    QVERIFY(!writer.hasSpoken());
    reader.tell();
    QCOMPARE(reader.waitForExit(), 0);
    QCOMPARE(writer.waitForExit(), 0);
}

void tst_SingleBufferExclusion::readerWaitsForAWriter()
{
    const SingleBuffer buffer;
    const auto handler = buffer.create();
    QVERIFY(handler->lockForWrite() != nullptr);
    ChildProcess reader(reads(buffer));

    QVERIFY(buffer.semaphores.waitUntilBlockedByWriter());

    QVERIFY(!reader.hasSpoken());
    QVERIFY(handler->unlockForWrite(buffer.start()));
    QCOMPARE(reader.waitForExit(), 0);
    QCOMPARE(buffer.semaphores.readers(), 0);
}

void tst_SingleBufferExclusion::writerWaitsForAWriter()
{
    const SingleBuffer buffer;
    const auto handler = buffer.create();
    QVERIFY(handler->lockForWrite() != nullptr);
    ChildProcess writer(writes(buffer));

    QVERIFY(buffer.semaphores.waitUntilBlockedByWriter());

    QVERIFY(!writer.hasSpoken());
    QVERIFY(handler->unlockForWrite(buffer.start()));
    QCOMPARE(writer.waitForExit(), 0);
    QVERIFY(!buffer.semaphores.isWriteLocked());
}

void tst_SingleBufferExclusion::threadsExcludeEachOther()
{
    const SingleBuffer buffer;
    const auto handler = buffer.create();
    std::atomic<int> ended{0};
    int endedWhenUnlocked = -1;
    QVERIFY(handler->lockForWrite() != nullptr);
    bool isForeignUnlock = true;
    std::thread([&] { isForeignUnlock = handler->unlockForWrite(buffer.start()); }).join();
    std::thread reader([&] { ended += readOnce(*handler) ? 1 : 100; });
    std::thread writer([&] { ended += writeOnce(*handler) ? 1 : 100; });

    const bool areBlocked = buffer.semaphores.waitUntilBlockedByWriter(2);
    endedWhenUnlocked = ended;
    const bool isUnlocked = handler->unlockForWrite(buffer.start());
    reader.join();
    writer.join();

    QVERIFY(!isForeignUnlock);
    QVERIFY(areBlocked);
    QCOMPARE(endedWhenUnlocked, 0);
    QVERIFY(isUnlocked);
    QCOMPARE(ended.load(), 2);
}

void tst_SingleBufferExclusion::writerGetsInBetweenReadersThatOverlap()
{
    const SingleBuffer buffer;
    const auto handler = buffer.create();
    // Two readers that hand over to each other, so that one of them is always inside.
    ChildProcess one(holdsAReadLock(buffer));
    QVERIFY(one.waitUntilReady());
    ChildProcess writer(writes(buffer));
    QVERIFY(buffer.semaphores.waitUntilBlockedByReaders());
    ChildProcess two(holdsAReadLock(buffer));

    // The second one has to stand behind the writer that waits already.
    QVERIFY(buffer.semaphores.waitUntilBlockedByWriter());
    QVERIFY(!two.hasSpoken());
    QVERIFY(!writer.hasSpoken());
    QCOMPARE(buffer.semaphores.readers(), 1);
    one.tell();

    QCOMPARE(one.waitForExit(), 0);
    QCOMPARE(writer.waitForExit(), 0);
    QVERIFY(two.waitUntilReady());
    two.tell();
    QCOMPARE(two.waitForExit(), 0);
}

void tst_SingleBufferExclusion::writeInsideAReadWaitsForOtherReaders()
{
    const SingleBuffer buffer;
    const auto handler = buffer.create();
    ChildProcess reader(holdsAReadLock(buffer));
    QVERIFY(reader.waitUntilReady());
    ChildProcess upgrader([&buffer](const ChildSide &parent) {
        const SemaphoreCalls::PatientWaits patient;
        const auto childHandler = buffer.attach();
        CHILD_VERIFY(childHandler->lockForRead() != nullptr);
        CHILD_VERIFY(childHandler->lockForWrite() != nullptr);
        parent.say();
        parent.waitForWord();
        CHILD_VERIFY(childHandler->unlockForWrite(buffer.start()));
        CHILD_VERIFY(unlockRead(*childHandler));
        return 0;
    });
    QVERIFY(buffer.semaphores.waitUntilBlockedByReaders());
    QVERIFY(!upgrader.hasSpoken());
    QCOMPARE(buffer.semaphores.readers(), 2);

    reader.tell();

    QCOMPARE(reader.waitForExit(), 0);
    QVERIFY(upgrader.waitUntilReady());
    QCOMPARE(buffer.semaphores.readers(), 1);
    upgrader.tell();
    QCOMPARE(upgrader.waitForExit(), 0);
    QCOMPARE(buffer.semaphores.readers(), 0);
    QVERIFY(!buffer.semaphores.isWriteLocked());
}

void tst_SingleBufferExclusion::readThatOutlivesItsWriteKeepsWritersOut()
{
    const SingleBuffer buffer;
    const auto handler = buffer.create();
    QVERIFY(handler->lockForWrite() != nullptr);
    QVERIFY(handler->lockForRead() != nullptr);

    QVERIFY(handler->unlockForWrite(buffer.start()));

    ChildProcess writer(writes(buffer));
    QVERIFY(buffer.semaphores.waitUntilBlockedByReaders());
    QVERIFY(!writer.hasSpoken());
    QVERIFY(unlockRead(*handler));
    QCOMPARE(writer.waitForExit(), 0);
}

void tst_SingleBufferExclusion::writeThatOutlivesItsReadKeepsReadersOut()
{
    const SingleBuffer buffer;
    const auto handler = buffer.create();
    QVERIFY(handler->lockForRead() != nullptr);
    QVERIFY(handler->lockForWrite() != nullptr);

    QVERIFY(unlockRead(*handler));

    QCOMPARE(buffer.semaphores.readers(), 0);
    ChildProcess reader(reads(buffer));
    QVERIFY(buffer.semaphores.waitUntilBlockedByWriter());
    QVERIFY(!reader.hasSpoken());
    QVERIFY(handler->unlockForWrite(buffer.start()));
    QCOMPARE(reader.waitForExit(), 0);
}

void tst_SingleBufferExclusion::nestedReadDoesNotWaitBehindAWaitingWriter()
{
    const SingleBuffer buffer;
    const auto handler = buffer.create();
    QVERIFY(handler->lockForRead() != nullptr);
    ChildProcess writer(writes(buffer));
    QVERIFY(buffer.semaphores.waitUntilBlockedByReaders());

    QVERIFY(handler->lockForRead() != nullptr);
    QVERIFY(unlockRead(*handler));

    QVERIFY(!writer.hasSpoken());
    QVERIFY(unlockRead(*handler));
    QCOMPARE(writer.waitForExit(), 0);
}

void tst_SingleBufferExclusion::killedReaderLocksNobodyOut()
{
    const SingleBuffer buffer;
    const auto handler = buffer.create();
    ChildProcess reader(holdsAReadLock(buffer));
    QVERIFY(reader.waitUntilReady());

    QVERIFY(reader.kill());

    QCOMPARE(buffer.semaphores.readers(), 0);
    QVERIFY(writeOnce(*handler));
}

void tst_SingleBufferExclusion::killedWriterLocksNobodyOut()
{
    const SingleBuffer buffer;
    const auto handler = buffer.create();
    ChildProcess writer(holdsAWriteLock(buffer));
    QVERIFY(writer.waitUntilReady());

    QVERIFY(writer.kill());

    QVERIFY(!buffer.semaphores.isWriteLocked());
    QVERIFY(readOnce(*handler));
    QVERIFY(writeOnce(*handler));
}

void tst_SingleBufferExclusion::killedWaitingWriterLocksNobodyOut()
{
    const SingleBuffer buffer;
    const auto handler = buffer.create();
    QVERIFY(handler->lockForRead() != nullptr);
    ChildProcess writer(writes(buffer));
    QVERIFY(buffer.semaphores.waitUntilBlockedByReaders());
    QVERIFY(buffer.semaphores.isWriteLocked());

    QVERIFY(writer.kill());

    QVERIFY(!buffer.semaphores.isWriteLocked());
    ChildProcess reader(reads(buffer));
    QCOMPARE(reader.waitForExit(), 0);
    QVERIFY(unlockRead(*handler));
    QVERIFY(writeOnce(*handler));
}

void tst_SingleBufferExclusion::stoppedReaderMakesWriteLocksFailAndNotHang()
{
    const SingleBuffer buffer;
    const auto handler = buffer.create();
    ChildProcess reader(holdsAReadLock(buffer));
    QVERIFY(reader.waitUntilReady());
    QVERIFY(reader.stop());

    QCOMPARE(handler->lockForWrite(), nullptr);

    // The place among the writers is given back, so that readers come in again.
    QVERIFY(!buffer.semaphores.isWriteLocked());
    QVERIFY(!handler->unlockForWrite(buffer.start()));
    QVERIFY(readOnce(*handler));
    reader.resume();
    reader.tell();
    QCOMPARE(reader.waitForExit(), 0);
    QVERIFY(writeOnce(*handler));
}

void tst_SingleBufferExclusion::forkedChildDoesNotUnlockForItsParent()
{
    const SingleBuffer buffer;
    auto handler = buffer.create();
    QVERIFY(handler->lockForRead() != nullptr);
    QVERIFY(handler->lockForWrite() != nullptr);
    // The child looks itself, before the kernel gives back what it may have taken.
    ChildProcess child([&](const ChildSide &) {
        handler.reset();
        CHILD_VERIFY(buffer.semaphores.isWriteLocked());
        CHILD_VERIFY(buffer.semaphores.readers() == 1);
        return 0;
    });

    QCOMPARE(child.waitForExit(), 0);

    QVERIFY(buffer.semaphores.isWriteLocked());
    QCOMPARE(buffer.semaphores.readers(), 1);
    QVERIFY(handler->unlockForWrite(buffer.start()));
    QVERIFY(unlockRead(*handler));
    QVERIFY(writeOnce(*handler));
}

QTEST_GUILESS_MAIN(tst_SingleBufferExclusion)
#include "tst_SingleBufferExclusion.moc"
