#include "Companion/PingPongBufferHandler.h"
#include "support/ChildProcess.h"
#include "support/DoubleBuffer.h"

#include <QtTest>

#include <memory>
#include <vector>

namespace {

/// A byte for each place, so that a place that was left out or mixed up shows.
unsigned char pattern(quint32 index, int seed)
{
    return static_cast<unsigned char>(1 + (index * 7 + static_cast<quint32>(seed)) % 251);
}

void fillWithPattern(unsigned char *buffer, quint32 size, int seed)
{
    for (quint32 i = 0; i < size; ++i) {
        buffer[i] = pattern(i, seed);
    }
}

bool hasPattern(const unsigned char *buffer, quint32 size, int seed)
{
    for (quint32 i = 0; i < size; ++i) {
        if (buffer[i] != pattern(i, seed)) {
            return false;
        }
    }
    return true;
}

/// Publishes a set that changes one byte only.
bool publishByte(PingPongBufferHandler &handler, quint32 index, unsigned char value)
{
    unsigned char *const locked = handler.lockForWrite();
    if (locked == nullptr) {
        return false;
    }
    locked[index] = value;
    return handler.unlockForWrite(locked) && handler.swapBuffers();
}

} // namespace

class tst_PingPongCatchUp : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void firstWriteLockAfterASwapBringsTheBufferUpToDate();
    void furtherWriteLocksKeepWhatIsNotPublishedYet();
    void swapsWithoutAWriteAreCaughtUpWithToo();
    void leafLeftOutKeepsItsLastPublishedValue();
    void twoWritersThatEachWriteHalfDisturbNothing();
    void twoProcessesThatEachWriteHalfDisturbNothing();
    void everyByteIsCopiedAndNoOther_data();
    void everyByteIsCopiedAndNoOther();
    void buffersMayLieAnywhere_data();
    void buffersMayLieAnywhere();
    void publishedSetIsNotTouched();
    void swapsOfWritersThatFinishedTogetherPublishOnce();
    void aSwapWithoutASetOfItsOwnExchanges();
    void aSetFinishedAfterTheOthersSwapIsPublished();
    void swapsOfManyRegionsPublishOnce();
    void bareWriteAfterTheOthersSwapIsPublished();
    void bareWriteInTheEpochOfTheSetIsPublishedByTheOther();
    void bareWriteBesideAFailedLockIsPublished_data();
    void bareWriteBesideAFailedLockIsPublished();
};

void tst_PingPongCatchUp::firstWriteLockAfterASwapBringsTheBufferUpToDate()
{
    const DoubleBuffer buffer;
    const auto handler = buffer.create();

    for (unsigned char value = 1; value < 6; ++value) {
        QVERIFY(publishSet(*handler, value));
        QVERIFY(isFilledWith(handler->writeBufferPointer(), buffer.size(),
                             static_cast<unsigned char>(value - 1)));

        unsigned char *const locked = handler->lockForWrite();

        QVERIFY(isFilledWith(locked, buffer.size(), value));
        QVERIFY(handler->unlockForWrite(locked));
    }
}

void tst_PingPongCatchUp::furtherWriteLocksKeepWhatIsNotPublishedYet()
{
    const DoubleBuffer buffer;
    const auto handler = buffer.create();
    const auto other = buffer.attach();

    for (unsigned char value = 1; value < 5; ++value) {
        QVERIFY(writeSet(*handler, value));

        for (PingPongBufferHandler *const next : {handler.get(), other.get()}) {
            unsigned char *const locked = next->lockForWrite();
            QVERIFY(isFilledWith(locked, buffer.size(), value));
            QVERIFY(next->unlockForWrite(locked));
        }
        QVERIFY(other->swapBuffers());
        QVERIFY(isFilledWith(handler->readBufferPointer(), buffer.size(), value));
    }
}

void tst_PingPongCatchUp::swapsWithoutAWriteAreCaughtUpWithToo()
{
    const DoubleBuffer buffer;
    const auto handler = buffer.create();
    QVERIFY(publishSet(*handler, 1));
    QVERIFY(publishSet(*handler, 2));
    QVERIFY(handler->swapBuffers());
    QVERIFY(isFilledWith(handler->readBufferPointer(), buffer.size(), 1));

    // What readers see counts, old as it is.
    unsigned char *const locked = handler->lockForWrite();

    QVERIFY(isFilledWith(locked, buffer.size(), 1));
    QVERIFY(handler->unlockForWrite(locked));
}

void tst_PingPongCatchUp::leafLeftOutKeepsItsLastPublishedValue()
{
    const DoubleBuffer buffer(5);
    const auto handler = buffer.create();
    unsigned char expected[5] = {0, 0, 0, 0, 0};

    for (unsigned char round = 1; round < 60; ++round) {
        const quint32 index = (round * 3U) % 5U;
        expected[index] = round;
        QVERIFY(publishByte(*handler, index, round));

        unsigned char *const locked = handler->lockForRead();
        QVERIFY(std::equal(expected, expected + 5, locked));
        QCOMPARE(finishRead(*handler, locked), ReadResult::Reliable);
    }
}

void tst_PingPongCatchUp::twoWritersThatEachWriteHalfDisturbNothing()
{
    const DoubleBuffer buffer(2);
    const auto one = buffer.create();
    const auto two = buffer.attach();

    for (unsigned char round = 1; round < 20; ++round) {
        QVERIFY(publishByte(*one, 0, round));
        QVERIFY(publishByte(*two, 1, static_cast<unsigned char>(round + 100)));

        QCOMPARE(int{one->readBufferPointer()[0]}, int{round});
        QCOMPARE(int{one->readBufferPointer()[1]}, round + 100);
    }
}

void tst_PingPongCatchUp::twoProcessesThatEachWriteHalfDisturbNothing()
{
    const DoubleBuffer buffer(2);
    const auto handler = buffer.create();
    ChildProcess child([&buffer](const ChildSide &parent) {
        const auto childHandler = buffer.attach();
        for (unsigned char round = 1; round < 20; ++round) {
            parent.waitForWord();
            CHILD_VERIFY(publishByte(*childHandler, 1, static_cast<unsigned char>(round + 100)));
            parent.say();
        }
        return 0;
    });

    for (unsigned char round = 1; round < 20; ++round) {
        QVERIFY(publishByte(*handler, 0, round));
        child.tell();
        QVERIFY(child.waitUntilReady());

        QCOMPARE(int{handler->readBufferPointer()[0]}, int{round});
        QCOMPARE(int{handler->readBufferPointer()[1]}, round + 100);
    }
    QCOMPARE(child.waitForExit(), 0);
}

void tst_PingPongCatchUp::everyByteIsCopiedAndNoOther_data()
{
    QTest::addColumn<quint32>("size");

    for (const quint32 size :
         {1U, 2U, 3U, 4U, 5U, 7U, 8U, 9U, 15U, 16U, 17U, 63U, 64U, 65U, 1001U, 4099U, 100001U}) {
        QTest::addRow("%u bytes", size) << size;
    }
}

void tst_PingPongCatchUp::everyByteIsCopiedAndNoOther()
{
    QFETCH(quint32, size);
    const DoubleBuffer buffer(size);
    const auto handler = buffer.create();

    for (int seed = 1; seed < 4; ++seed) {
        unsigned char *const written = handler->lockForWrite();
        fillWithPattern(written, size, seed);
        QVERIFY(handler->unlockForWrite(written));
        QVERIFY(handler->swapBuffers());

        unsigned char *const next = handler->lockForWrite();

        QVERIFY(next != written);
        QVERIFY(hasPattern(next, size, seed));
        QVERIFY(hasPattern(written, size, seed));
        QVERIFY(handler->unlockForWrite(next));
        QVERIFY(buffer.region.isGuardUntouched());
    }
}

void tst_PingPongCatchUp::buffersMayLieAnywhere_data()
{
    QTest::addColumn<int>("firstOffset");
    QTest::addColumn<int>("secondOffset");

    for (int first = 0; first < 8; ++first) {
        for (int second = 0; second < 8; ++second) {
            QTest::addRow("%d and %d", first, second) << first << second;
        }
    }
}

void tst_PingPongCatchUp::buffersMayLieAnywhere()
{
    QFETCH(int, firstOffset);
    QFETCH(int, secondOffset);
    constexpr quint32 size = 45;
    const DoubleBuffer buffer(80);
    unsigned char *const first = buffer.first() + 8 + firstOffset;
    unsigned char *const second = buffer.second() + 8 + secondOffset;
    PingPongBufferHandler handler(buffer.management(), first, second,
                                  SystemVSemaphoreBaseClass::CreationTypeCreate, size,
                                  buffer.semaphores.key());

    for (int seed = 1; seed < 3; ++seed) {
        unsigned char *const written = handler.lockForWrite();
        fillWithPattern(written, size, seed);
        QVERIFY(handler.unlockForWrite(written));
        QVERIFY(handler.swapBuffers());
        QVERIFY(handler.unlockForWrite(handler.lockForWrite()));

        for (const unsigned char *const copy : {first, second}) {
            QVERIFY(hasPattern(copy, size, seed));
            QVERIFY(isFilledWith(copy - 8, 8, 0));
            QVERIFY(isFilledWith(copy + size, 8, 0));
        }
    }
}

void tst_PingPongCatchUp::publishedSetIsNotTouched()
{
    const DoubleBuffer buffer;
    const auto handler = buffer.create();
    QVERIFY(publishSet(*handler, 1));
    unsigned char *const read = handler->lockForRead();

    unsigned char *const written = handler->lockForWrite();
    fillBuffer(written, buffer.size(), 2);

    QVERIFY(isFilledWith(read, buffer.size(), 1));
    QVERIFY(handler->unlockForWrite(written));
    QVERIFY(isFilledWith(read, buffer.size(), 1));
    QCOMPARE(finishRead(*handler, read), ReadResult::Reliable);
}

void tst_PingPongCatchUp::swapsOfWritersThatFinishedTogetherPublishOnce()
{
    const DoubleBuffer buffer;
    const auto one = buffer.create();
    const auto other = buffer.attach();
    QVERIFY(publishSet(*one, 1));
    QVERIFY(writeSet(*one, 2));
    QVERIFY(writeSet(*other, 3));

    QVERIFY(one->swapBuffers());
    QVERIFY(other->swapBuffers());

    QVERIFY(isFilledWith(one->readBufferPointer(), buffer.size(), 3));
    QCOMPARE(buffer.management()->swapCount.load(), quint64(2));
    // And the next set grows out of what is published.
    QVERIFY(other->unlockForWrite(other->lockForWrite()));
    QVERIFY(other->swapBuffers());
    QVERIFY(isFilledWith(one->readBufferPointer(), buffer.size(), 3));
}

void tst_PingPongCatchUp::aSwapWithoutASetOfItsOwnExchanges()
{
    const DoubleBuffer buffer;
    const auto one = buffer.create();
    const auto other = buffer.attach();
    QVERIFY(publishSet(*one, 1));
    QVERIFY(publishSet(*one, 2));

    QVERIFY(other->swapBuffers());
    QVERIFY(isFilledWith(one->readBufferPointer(), buffer.size(), 1));
    QVERIFY(one->swapBuffers());
    QVERIFY(isFilledWith(one->readBufferPointer(), buffer.size(), 2));
}

void tst_PingPongCatchUp::aSetFinishedAfterTheOthersSwapIsPublished()
{
    const DoubleBuffer buffer;
    const auto one = buffer.create();
    const auto other = buffer.attach();
    QVERIFY(writeSet(*one, 1));
    QVERIFY(other->swapBuffers());
    QVERIFY(writeSet(*other, 2));

    // Its own set is published already, but there is a finished one of the other.
    QVERIFY(one->swapBuffers());

    QVERIFY(isFilledWith(one->readBufferPointer(), buffer.size(), 2));
}

void tst_PingPongCatchUp::swapsOfManyRegionsPublishOnce()
{
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
        QVERIFY(region.buffer->attach()->swapBuffers());
    }

    for (const Region &region : regions) {
        QVERIFY(region.handler->swapBuffers());
        QVERIFY(isFilledWith(region.handler->readBufferPointer(), region.buffer->size(), 2));
    }
}

void tst_PingPongCatchUp::bareWriteAfterTheOthersSwapIsPublished()
{
    const DoubleBuffer buffer;
    const auto handler = buffer.create();
    const auto other = buffer.attach();
    QVERIFY(writeSet(*handler, 1));
    QVERIFY(other->swapBuffers());
    fillBuffer(handler->writeBufferPointer(), buffer.size(), 2);

    QVERIFY(handler->swapBuffers());

    QVERIFY(isFilledWith(handler->readBufferPointer(), buffer.size(), 2));
}

void tst_PingPongCatchUp::bareWriteInTheEpochOfTheSetIsPublishedByTheOther()
{
    const DoubleBuffer buffer;
    const auto handler = buffer.create();
    const auto other = buffer.attach();
    QVERIFY(publishSet(*handler, 1));
    QVERIFY(writeSet(*handler, 2));
    fillBuffer(handler->writeBufferPointer(), buffer.size(), 3);
    QVERIFY(other->swapBuffers());
    QVERIFY(isFilledWith(handler->readBufferPointer(), buffer.size(), 3));

    QVERIFY(handler->swapBuffers());

    QVERIFY(isFilledWith(handler->readBufferPointer(), buffer.size(), 3));
    QCOMPARE(buffer.management()->swapCount.load(), quint64(2));
}

void tst_PingPongCatchUp::bareWriteBesideAFailedLockIsPublished_data()
{
    QTest::addColumn<bool>("isWrittenFirst");

    QTest::newRow("behind the lock") << false;
    QTest::newRow("in front of the lock") << true;
}

void tst_PingPongCatchUp::bareWriteBesideAFailedLockIsPublished()
{
    QFETCH(bool, isWrittenFirst);
    const DoubleBuffer buffer;
    const auto handler = buffer.create();
    QVERIFY(publishSet(*handler, 1));
    const auto write = [&] { fillBuffer(handler->writeBufferPointer(), buffer.size(), 2); };
    if (isWrittenFirst) {
        write();
    }
    // Somebody is inside, and goes without having written.
    QVERIFY(buffer.semaphores.setValue(SemaphoreSet::Names::SemaphoreWriteLock, 1));
    QVERIFY(handler->lockForWrite() == nullptr);
    QVERIFY(buffer.semaphores.setValue(SemaphoreSet::Names::SemaphoreWriteLock, 0));
    if (!isWrittenFirst) {
        write();
    }

    QVERIFY(handler->swapBuffers());

    QVERIFY(isFilledWith(handler->readBufferPointer(), buffer.size(), 2));
}

QTEST_GUILESS_MAIN(tst_PingPongCatchUp)
#include "tst_PingPongCatchUp.moc"
