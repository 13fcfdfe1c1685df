#include "Companion/PingPongBufferHandler.h"
#include "support/DoubleBuffer.h"
#include "support/LogCapture.h"

#include <algorithm>

namespace {

using ManagementBuffer = PingPongBufferHandler::ManagementBuffer;

LogLine removalWarning()
{
    return warning(QStringLiteral("The semaphores of this process data memory were removed: nobody "
                                  "can write any more. Attach again."));
}

bool isZero(const ManagementBuffer *management, std::size_t begin, std::size_t end)
{
    const auto *const bytes = reinterpret_cast<const unsigned char *>(management);
    return std::all_of(bytes + begin, bytes + end, [](unsigned char byte) { return byte == 0; });
}

} // namespace

class tst_PingPongBufferHandler : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void zeroedBlockShowsReadersTheFirstBuffer();
    void lockForReadGivesTheReadBuffer();
    void lockForWriteGivesTheWriteBuffer();
    void swapExchangesTheRoles();
    void swapCopiesNothing();
    void swapWithoutAWriteShowsTheOtherBufferAsItIs();
    void rolesLieInTheRegion();
    void barePointersNeedNoLock();
    void bufferSizeIsThatOfOneBuffer();
    void handlerIsAnInterface();

    void nullAddressesMakeAHandlerWhoseLocksFail_data();
    void nullAddressesMakeAHandlerWhoseLocksFail();
    void unlockWithoutALockFails();
    void unlockOfAnotherPointerFails();
    void unlockForReadAlwaysSetsRepeat();

    void destructorDoesNotTouchTheMapping();
    void destructorGivesBackTheWriteLock();
    void destructorGivesBackTheLockOfAHeldRead();

    void removedSemaphoresStopWritersOnly();
    void removedSemaphoresLetTheWriterInsideEnd();
    void removedSemaphoresLetAHeldReadThrough();
    void newCreatorStartsCleanAndTheOldRegionIsReadOn();

    void managementBlockIsLaidOutAsDrawn();
    void reservedWordsStayZero();
};

void tst_PingPongBufferHandler::zeroedBlockShowsReadersTheFirstBuffer()
{
    const DoubleBuffer buffer;
    const auto handler = buffer.create();

    QCOMPARE(handler->readBufferPointer(), buffer.first());
    QCOMPARE(handler->writeBufferPointer(), buffer.second());
    QCOMPARE(buffer.management()->swapCount.load(), quint64{0});
    QVERIFY(isZero(buffer.management(), 16, 172));
    QVERIFY(isZero(buffer.management(), 176, sizeof(ManagementBuffer)));
}

void tst_PingPongBufferHandler::lockForReadGivesTheReadBuffer()
{
    const DoubleBuffer buffer;
    const auto handler = buffer.create();

    unsigned char *const locked = handler->lockForRead();

    QCOMPARE(locked, buffer.first());
    bool repeat = true;
    QVERIFY(handler->unlockForRead(locked, repeat));
    QVERIFY(!repeat);
}

void tst_PingPongBufferHandler::lockForWriteGivesTheWriteBuffer()
{
    const DoubleBuffer buffer;
    const auto handler = buffer.create();

    unsigned char *const locked = handler->lockForWrite();

    QCOMPARE(locked, buffer.second());
    QVERIFY(buffer.semaphores.isWriteLocked());
    QVERIFY(handler->unlockForWrite(locked));
    QVERIFY(!buffer.semaphores.isWriteLocked());
}

void tst_PingPongBufferHandler::swapExchangesTheRoles()
{
    const DoubleBuffer buffer;
    const auto handler = buffer.create();
    unsigned char *const buffers[] = {buffer.first(), buffer.second()};

    for (int swaps = 1; swaps <= 5; ++swaps) {
        QVERIFY(handler->swapBuffers());

        QCOMPARE(handler->readBufferPointer(), buffers[swaps % 2]);
        QCOMPARE(handler->writeBufferPointer(), buffers[(swaps + 1) % 2]);
        unsigned char *const read = handler->lockForRead();
        QCOMPARE(read, buffers[swaps % 2]);
        QCOMPARE(finishRead(*handler, read), ReadResult::Reliable);
    }
    QVERIFY(!buffer.semaphores.isWriteLocked());
}

void tst_PingPongBufferHandler::swapCopiesNothing()
{
    const DoubleBuffer buffer;
    const auto handler = buffer.create();
    fillBuffer(buffer.first(), buffer.size(), 1);
    fillBuffer(buffer.second(), buffer.size(), 2);

    for (int swaps = 0; swaps < 3; ++swaps) {
        QVERIFY(handler->swapBuffers());

        QVERIFY(buffer.isFirst(1));
        QVERIFY(buffer.isSecond(2));
    }
}

void tst_PingPongBufferHandler::swapWithoutAWriteShowsTheOtherBufferAsItIs()
{
    const DoubleBuffer buffer;
    const auto handler = buffer.create();
    QVERIFY(publishSet(*handler, 7));
    QVERIFY(isFilledWith(handler->readBufferPointer(), buffer.size(), 7));

    QVERIFY(handler->swapBuffers());

    QVERIFY(isFilledWith(handler->readBufferPointer(), buffer.size(), 0));
}

void tst_PingPongBufferHandler::rolesLieInTheRegion()
{
    const DoubleBuffer buffer;
    const auto one = buffer.create();
    QVERIFY(publishSet(*one, 7));

    const auto other = buffer.attach();

    QCOMPARE(other->readBufferPointer(), buffer.second());
    QVERIFY(other->swapBuffers());
    QCOMPARE(one->readBufferPointer(), buffer.first());
}

void tst_PingPongBufferHandler::barePointersNeedNoLock()
{
    const DoubleBuffer buffer;
    const auto writer = buffer.create();
    const auto handler = buffer.attach();
    QVERIFY(writer->lockForWrite() != nullptr);

    QCOMPARE(handler->readBufferPointer(), buffer.first());
    QCOMPARE(handler->writeBufferPointer(), buffer.second());

    QVERIFY(writer->unlockForWrite(buffer.second()));
    buffer.semaphores.remove();
    QCOMPARE(handler->readBufferPointer(), buffer.first());
    QCOMPARE(handler->writeBufferPointer(), buffer.second());
}

void tst_PingPongBufferHandler::bufferSizeIsThatOfOneBuffer()
{
    const DoubleBuffer buffer(1001);

    QCOMPARE(buffer.create()->bufferSize(), 1001U);
}

void tst_PingPongBufferHandler::handlerIsAnInterface()
{
    const DoubleBuffer buffer;
    {
        const BufferHandlerInterface::HandlerSharedPointer handler(buffer.create().release());
        QCOMPARE(handler->lockForRead(), buffer.first());
        QVERIFY(buffer.semaphores.exists());
    }

    QVERIFY(!buffer.semaphores.exists());
}

void tst_PingPongBufferHandler::nullAddressesMakeAHandlerWhoseLocksFail_data()
{
    QTest::addColumn<bool>("hasManagement");
    QTest::addColumn<bool>("hasFirst");
    QTest::addColumn<bool>("hasSecond");

    QTest::newRow("no management block") << false << true << true;
    QTest::newRow("no first buffer") << true << false << true;
    QTest::newRow("no second buffer") << true << true << false;
    QTest::newRow("nothing") << false << false << false;
}

void tst_PingPongBufferHandler::nullAddressesMakeAHandlerWhoseLocksFail()
{
    QFETCH(bool, hasManagement);
    QFETCH(bool, hasFirst);
    QFETCH(bool, hasSecond);
    const DoubleBuffer buffer;
    LogCapture log;
    {
        PingPongBufferHandler handler(
            hasManagement ? buffer.management() : nullptr, hasFirst ? buffer.first() : nullptr,
            hasSecond ? buffer.second() : nullptr, SystemVSemaphoreBaseClass::CreationTypeCreate,
            buffer.size(), buffer.semaphores.key());

        QCOMPARE(handler.lockForRead(), nullptr);
        bool repeat = true;
        QVERIFY(!handler.unlockForRead(nullptr, repeat));
        QVERIFY(!repeat);
        QCOMPARE(handler.lockForWrite(), nullptr);
        QVERIFY(!handler.unlockForWrite(nullptr));
        QVERIFY(!handler.swapBuffers());
        QCOMPARE(handler.readBufferPointer(), nullptr);
        QCOMPARE(handler.writeBufferPointer(), nullptr);
        QCOMPARE(handler.bufferSize(), buffer.size());
        QVERIFY(!buffer.semaphores.isWriteLocked());
    }

    QVERIFY(!buffer.semaphores.exists());
    QVERIFY(isZero(buffer.management(), 0, sizeof(ManagementBuffer)));
    QCOMPARE(log.take(), QList<LogLine>());
}

void tst_PingPongBufferHandler::unlockWithoutALockFails()
{
    const DoubleBuffer buffer;
    const auto handler = buffer.create();

    bool repeat = true;
    QVERIFY(!handler->unlockForRead(buffer.first(), repeat));
    QVERIFY(!repeat);
    QVERIFY(!handler->unlockForWrite(buffer.second()));

    QVERIFY(handler->unlockForWrite(handler->lockForWrite()));
    QVERIFY(!handler->unlockForWrite(buffer.second()));
    QCOMPARE(readOnce(*handler), ReadResult::Reliable);
    QVERIFY(!handler->unlockForRead(buffer.first(), repeat));
    QVERIFY(publishSet(*handler, 1));
}

void tst_PingPongBufferHandler::unlockOfAnotherPointerFails()
{
    const DoubleBuffer buffer;
    const auto handler = buffer.create();
    unsigned char *const locked = handler->lockForRead();

    for (unsigned char *const wrong :
         {buffer.second(), buffer.first() + 1, static_cast<unsigned char *>(nullptr)}) {
        bool repeat = true;
        QVERIFY(!handler->unlockForRead(wrong, repeat));
        QVERIFY(!repeat);
    }

    QCOMPARE(finishRead(*handler, locked), ReadResult::Reliable);
    unsigned char *const written = handler->lockForWrite();
    QVERIFY(!handler->unlockForWrite(nullptr));
    QVERIFY(buffer.semaphores.isWriteLocked());
    QVERIFY(handler->unlockForWrite(written));
}

void tst_PingPongBufferHandler::unlockForReadAlwaysSetsRepeat()
{
    const DoubleBuffer buffer;
    const auto handler = buffer.create();

    bool repeat = true;
    QVERIFY(handler->unlockForRead(handler->lockForRead(), repeat));
    QVERIFY(!repeat);

    unsigned char *const locked = handler->lockForRead();
    QVERIFY(handler->swapBuffers());
    QVERIFY(writeSet(*handler, 1));
    QVERIFY(handler->unlockForRead(locked, repeat));
    QVERIFY(repeat);
}

void tst_PingPongBufferHandler::destructorDoesNotTouchTheMapping()
{
    DoubleBuffer buffer;
    LogCapture log;
    auto handler = buffer.create();
    QVERIFY(publishSet(*handler, 1));
    QVERIFY(handler->lockForRead() != nullptr);
    QVERIFY(handler->lockForWrite() != nullptr);

    buffer.region.unmap();
    handler.reset();

    QVERIFY(!buffer.semaphores.exists());
    QCOMPARE(log.take(), QList<LogLine>());
}

void tst_PingPongBufferHandler::destructorGivesBackTheWriteLock()
{
    const DoubleBuffer buffer;
    const auto other = buffer.create();
    QVERIFY(publishSet(*other, 5));
    auto handler = buffer.attach();
    unsigned char *const locked = handler->lockForWrite();
    QVERIFY(locked != nullptr);
    QCOMPARE(handler->lockForWrite(), locked);
    locked[0] = 9;
    QVERIFY(buffer.semaphores.isWriteLocked());

    handler.reset();

    QVERIFY(!buffer.semaphores.isWriteLocked());
    // The set was not finished, so that nothing of it is published.
    QCOMPARE(other->lockForWrite(), locked);
    QVERIFY(isFilledWith(locked, buffer.size(), 5));
}

void tst_PingPongBufferHandler::destructorGivesBackTheLockOfAHeldRead()
{
    const DoubleBuffer buffer;
    const auto other = buffer.create();
    auto handler = buffer.attach();
    QCOMPARE(readWithDisturbance(*handler), ReadResult::Repeat);
    QCOMPARE(readWithDisturbance(*handler), ReadResult::Repeat);
    QVERIFY(handler->lockForRead() != nullptr);
    QVERIFY(buffer.semaphores.isWriteLocked());

    handler.reset();

    QVERIFY(!buffer.semaphores.isWriteLocked());
    QVERIFY(publishSet(*other, 1));
}

void tst_PingPongBufferHandler::removedSemaphoresStopWritersOnly()
{
    const DoubleBuffer buffer;
    LogCapture log;
    const auto handler = buffer.create();
    QVERIFY(publishSet(*handler, 3));

    QVERIFY(buffer.semaphores.remove());

    QCOMPARE(handler->lockForWrite(), nullptr);
    COMPARE_LOG(log, removalWarning());
    QCOMPARE(handler->lockForWrite(), nullptr);
    QVERIFY(!handler->swapBuffers());
    QCOMPARE(handler->readBufferPointer(), buffer.second());
    for (int i = 0; i < 3; ++i) {
        unsigned char *const locked = handler->lockForRead();
        QVERIFY(isFilledWith(locked, buffer.size(), 3));
        QCOMPARE(finishRead(*handler, locked), ReadResult::Reliable);
    }
    QCOMPARE(log.take(), QList<LogLine>());
}

void tst_PingPongBufferHandler::removedSemaphoresLetTheWriterInsideEnd()
{
    const DoubleBuffer buffer;
    LogCapture log;
    const auto handler = buffer.create();
    unsigned char *const locked = handler->lockForWrite();

    QVERIFY(buffer.semaphores.remove());

    QCOMPARE(handler->lockForWrite(), locked);
    QVERIFY(handler->swapBuffers());
    QVERIFY(handler->unlockForWrite(locked));
    QCOMPARE(log.take(), QList<LogLine>());
    QVERIFY(handler->unlockForWrite(locked));
    QVERIFY(!handler->unlockForWrite(locked));
    COMPARE_LOG(log, removalWarning());
}

void tst_PingPongBufferHandler::removedSemaphoresLetAHeldReadThrough()
{
    const DoubleBuffer buffer;
    LogCapture log;
    const auto handler = buffer.create();
    QCOMPARE(readWithDisturbance(*handler), ReadResult::Repeat);
    QCOMPARE(readWithDisturbance(*handler), ReadResult::Repeat);

    QVERIFY(buffer.semaphores.remove());

    QCOMPARE(readOnce(*handler), ReadResult::Reliable);
    COMPARE_LOG(log, removalWarning());
}

void tst_PingPongBufferHandler::newCreatorStartsCleanAndTheOldRegionIsReadOn()
{
    const DoubleBuffer buffer;
    const SharedRegion newRegion(SharedRegion::Layout::Double, buffer.size());
    LogCapture log;
    auto old = buffer.create();
    QVERIFY(publishSet(*old, 1));

    PingPongBufferHandler creator(newRegion.management(), newRegion.first(), newRegion.second(),
                                  SystemVSemaphoreBaseClass::CreationTypeCreate, buffer.size(),
                                  buffer.semaphores.key());

    QCOMPARE(log.take(), QList<LogLine>());
    QCOMPARE(creator.readBufferPointer(), newRegion.first());
    QVERIFY(publishSet(creator, 2));
    QCOMPARE(old->lockForWrite(), nullptr);
    QVERIFY(!old->swapBuffers());
    COMPARE_LOG(log, removalWarning());
    QCOMPARE(readOnce(*old), ReadResult::Reliable);
    QVERIFY(isFilledWith(old->readBufferPointer(), buffer.size(), 1));
    QVERIFY(isFilledWith(creator.readBufferPointer(), buffer.size(), 2));
    old.reset();
    QVERIFY(publishSet(creator, 3));
    QCOMPARE(log.take(), QList<LogLine>());
}

void tst_PingPongBufferHandler::managementBlockIsLaidOutAsDrawn()
{
    QCOMPARE(PingPongBufferHandler::getSizeManagementBuffer(), 512U);
    QCOMPARE(sizeof(ManagementBuffer), std::size_t{512});
    QCOMPARE(offsetof(ManagementBuffer, swapCount), std::size_t{0});
    QCOMPARE(offsetof(ManagementBuffer, armed), std::size_t{16});
    QCOMPARE(offsetof(ManagementBuffer, lastSwap), std::size_t{24});
    QCOMPARE(offsetof(ManagementBuffer, writeEpoch), std::size_t{64});
    QCOMPARE(offsetof(ManagementBuffer, copiedEpoch), std::size_t{128});
    QCOMPARE(offsetof(ManagementBuffer, finishedCount), std::size_t{136});
    QCOMPARE(offsetof(ManagementBuffer, writerPid), std::size_t{144});
    QVERIFY(std::atomic<quint64>::is_always_lock_free);
    QVERIFY(std::atomic<quint32>::is_always_lock_free);
}

void tst_PingPongBufferHandler::reservedWordsStayZero()
{
    const DoubleBuffer buffer;
    LogCapture log;
    const auto handler = buffer.create();
    for (int i = 0; i < 4; ++i) {
        QVERIFY(publishSet(*handler, 0xFF));
        QCOMPARE(readWithDisturbance(*handler), ReadResult::Repeat);
        QCOMPARE(readOnce(*handler), ReadResult::Reliable);
    }
    QVERIFY(handler->swapBuffers());
    QVERIFY(writeSet(*handler, 0xFF));
    buffer.management()->writerPid = 0xFFFFFFFFU;
    QVERIFY(!handler->swapBuffers());
    QVERIFY(handler->lockForWrite() != nullptr);

    QVERIFY(buffer.management()->swapCount != 0);
    QVERIFY(buffer.management()->writeEpoch[0] != 0);
    QVERIFY(buffer.management()->writeEpoch[1] != 0);
    QVERIFY(buffer.management()->copiedEpoch != 0);
    QVERIFY(buffer.management()->writerPid != 0);
    QVERIFY(buffer.management()->lastSwap != 0);
    QVERIFY(isZero(buffer.management(), 16, 24)); // nobody waits
    QVERIFY(isZero(buffer.management(), 32, 64));
    QVERIFY(isZero(buffer.management(), 80, 128));
    QVERIFY(isZero(buffer.management(), 148, 152));
    QVERIFY(isZero(buffer.management(), 176, 512));
    QVERIFY(buffer.region.isGuardUntouched());
}

QTEST_GUILESS_MAIN(tst_PingPongBufferHandler)
#include "tst_PingPongBufferHandler.moc"
