#include "Companion/SingleBufferHandler.h"
#include "support/LogCapture.h"
#include "support/SingleBuffer.h"

namespace {

LogLine removalWarning()
{
    return warning(QStringLiteral("The semaphores of this process data memory were removed: nobody "
                                  "can write any more. Attach again."));
}

} // namespace

class tst_SingleBufferHandler : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void allPointersAreTheBuffer();
    void bufferSizeIsThatOfTheBuffer();
    void swapIsTrueAndWithoutEffect();
    void unlockForReadAlwaysSetsRepeatToFalse();
    void unlockWithoutALockFails();
    void nullBufferMakesAHandlerWhoseLocksFail();
    void destructorDoesNotTouchTheMapping();
    void destructorGivesBackAllLocks();
    void removedSemaphoresStopWritersOnly();
    void refusedSetMakesAllLocksFail();

    void readInsideARead();
    void writeInsideARead();
    void readInsideAWrite();
    void innerWriteUnlockDoesNotEndTheOuterLock();
};

void tst_SingleBufferHandler::allPointersAreTheBuffer()
{
    const SingleBuffer buffer;
    const auto handler = buffer.create();

    QCOMPARE(handler->readBufferPointer(), buffer.start());
    QCOMPARE(handler->writeBufferPointer(), buffer.start());
    QCOMPARE(handler->lockForRead(), buffer.start());
    QVERIFY(unlockRead(*handler));
    QCOMPARE(handler->lockForWrite(), buffer.start());
    QVERIFY(handler->unlockForWrite(buffer.start()));
    QVERIFY(isFilledWith(buffer.start(), buffer.size(), 0));
}

void tst_SingleBufferHandler::bufferSizeIsThatOfTheBuffer()
{
    const SingleBuffer buffer;

    QCOMPARE(buffer.create()->bufferSize(), 64U);
}

void tst_SingleBufferHandler::swapIsTrueAndWithoutEffect()
{
    const SingleBuffer buffer;
    const auto handler = buffer.create();
    const auto other = buffer.attach();
    unsigned char *const locked = handler->lockForWrite();
    fillBuffer(locked, buffer.size(), 3);

    QVERIFY(handler->swapBuffers());
    QVERIFY(other->swapBuffers());

    QCOMPARE(handler->readBufferPointer(), buffer.start());
    QCOMPARE(handler->writeBufferPointer(), buffer.start());
    QVERIFY(isFilledWith(buffer.start(), buffer.size(), 3));
    QVERIFY(buffer.semaphores.isWriteLocked());
    QVERIFY(handler->unlockForWrite(locked));
    QVERIFY(handler->swapBuffers());
}

void tst_SingleBufferHandler::unlockForReadAlwaysSetsRepeatToFalse()
{
    const SingleBuffer buffer;
    const auto handler = buffer.create();

    bool repeat = true;
    QVERIFY(handler->unlockForRead(handler->lockForRead(), repeat));
    QVERIFY(!repeat);
    repeat = true;
    QVERIFY(!handler->unlockForRead(buffer.start(), repeat));
    QVERIFY(!repeat);
    repeat = true;
    QVERIFY(!handler->unlockForRead(nullptr, repeat));
    QVERIFY(!repeat);

    // Also for what the own thread wrote meanwhile.
    unsigned char *const read = handler->lockForRead();
    QVERIFY(writeOnce(*handler));
    repeat = true;
    QVERIFY(handler->unlockForRead(read, repeat));
    QVERIFY(!repeat);
}

void tst_SingleBufferHandler::unlockWithoutALockFails()
{
    const SingleBuffer buffer;
    const auto handler = buffer.create();

    QVERIFY(!unlockRead(*handler));
    QVERIFY(!handler->unlockForWrite(buffer.start()));
    QVERIFY(handler->lockForRead() != nullptr);
    bool repeat = true;
    QVERIFY(!handler->unlockForRead(buffer.start() + 1, repeat));
    QVERIFY(!handler->unlockForWrite(buffer.start()));
    QCOMPARE(buffer.semaphores.readers(), 1);
    QVERIFY(unlockRead(*handler));
    QVERIFY(!unlockRead(*handler));
    QVERIFY(handler->lockForWrite() != nullptr);
    QVERIFY(!handler->unlockForWrite(nullptr));
    QVERIFY(buffer.semaphores.isWriteLocked());
    QVERIFY(handler->unlockForWrite(buffer.start()));

    QCOMPARE(buffer.semaphores.readers(), 0);
    QVERIFY(!buffer.semaphores.isWriteLocked());
}

void tst_SingleBufferHandler::nullBufferMakesAHandlerWhoseLocksFail()
{
    const SemaphoreSet set(SemaphoreSet::uniqueKey(QStringLiteral("null")));
    LogCapture log;
    {
        SingleBufferHandler handler(nullptr, SystemVSemaphoreBaseClass::CreationTypeCreate, 64,
                                    set.key());

        QCOMPARE(handler.lockForRead(), nullptr);
        QVERIFY(!unlockRead(handler));
        QCOMPARE(handler.lockForWrite(), nullptr);
        QVERIFY(!handler.unlockForWrite(nullptr));
        QCOMPARE(handler.readBufferPointer(), nullptr);
        QCOMPARE(handler.writeBufferPointer(), nullptr);
        QVERIFY(handler.swapBuffers());
        QCOMPARE(handler.bufferSize(), 64U);
        QCOMPARE(set.readers(), 0);
        QVERIFY(!set.isWriteLocked());
    }

    QVERIFY(!set.exists());
    QCOMPARE(log.take(), QList<LogLine>());
}

void tst_SingleBufferHandler::destructorDoesNotTouchTheMapping()
{
    SingleBuffer buffer;
    LogCapture log;
    auto handler = buffer.create();
    QVERIFY(handler->lockForRead() != nullptr);
    QVERIFY(handler->lockForWrite() != nullptr);

    buffer.region.unmap();
    handler.reset();

    QVERIFY(!buffer.semaphores.exists());
    QCOMPARE(log.take(), QList<LogLine>());
}

void tst_SingleBufferHandler::destructorGivesBackAllLocks()
{
    const SingleBuffer buffer;
    const auto other = buffer.create();
    auto handler = buffer.attach();
    QVERIFY(handler->lockForRead() != nullptr);
    QVERIFY(handler->lockForWrite() != nullptr);
    QVERIFY(handler->lockForWrite() != nullptr);
    QCOMPARE(buffer.semaphores.readers(), 1);
    QVERIFY(buffer.semaphores.isWriteLocked());

    handler.reset();

    QCOMPARE(buffer.semaphores.readers(), 0);
    QVERIFY(!buffer.semaphores.isWriteLocked());
    QVERIFY(writeOnce(*other));
    QCOMPARE(buffer.semaphores.users(), 1);
}

void tst_SingleBufferHandler::removedSemaphoresStopWritersOnly()
{
    const SingleBuffer buffer;
    LogCapture log;
    const auto handler = buffer.create();
    fillBuffer(buffer.start(), buffer.size(), 5);

    QVERIFY(buffer.semaphores.remove());

    QCOMPARE(handler->lockForWrite(), nullptr);
    COMPARE_LOG(log, removalWarning());
    QVERIFY(!handler->unlockForWrite(buffer.start()));
    QVERIFY(readOnce(*handler));
    QCOMPARE(handler->lockForRead(), buffer.start());
    QCOMPARE(handler->lockForRead(), buffer.start());
    QCOMPARE(handler->lockForWrite(), nullptr);
    QVERIFY(unlockRead(*handler));
    QVERIFY(unlockRead(*handler));
    QVERIFY(!unlockRead(*handler));
    QVERIFY(isFilledWith(buffer.start(), buffer.size(), 5));
    QCOMPARE(log.take(), QList<LogLine>());
}

void tst_SingleBufferHandler::refusedSetMakesAllLocksFail()
{
    const SingleBuffer buffer;
    QVERIFY(buffer.semaphores.make({1}) >= 0);
    LogCapture log;
    const auto handler = buffer.create();
    QCOMPARE(log.take().size(), 1);

    // Somebody may be writing whom nothing can keep out.
    QCOMPARE(handler->lockForRead(), nullptr);
    QVERIFY(!unlockRead(*handler));
    QCOMPARE(handler->lockForWrite(), nullptr);
    QVERIFY(handler->swapBuffers());

    QCOMPARE(log.take(), QList<LogLine>());
}

void tst_SingleBufferHandler::readInsideARead()
{
    const SingleBuffer buffer;
    const auto handler = buffer.create();
    QVERIFY(handler->lockForRead() != nullptr);
    QVERIFY(handler->lockForRead() != nullptr);
    QVERIFY(handler->lockForRead() != nullptr);

    QVERIFY(unlockRead(*handler));
    QVERIFY(buffer.semaphores.readers() > 0);
    QVERIFY(unlockRead(*handler));
    QVERIFY(buffer.semaphores.readers() > 0);
    QVERIFY(unlockRead(*handler));

    QCOMPARE(buffer.semaphores.readers(), 0);
    QVERIFY(!unlockRead(*handler));
}

void tst_SingleBufferHandler::writeInsideARead()
{
    const SingleBuffer buffer;
    const auto handler = buffer.create();
    for (int depth = 1; depth < 4; ++depth) {
        QVERIFY(handler->lockForRead() != nullptr);

        QVERIFY(handler->lockForWrite() != nullptr);

        QVERIFY(buffer.semaphores.isWriteLocked());
        QVERIFY(buffer.semaphores.readers() > 0);
        QVERIFY(handler->unlockForWrite(buffer.start()));
        QVERIFY(!buffer.semaphores.isWriteLocked());
        QVERIFY(buffer.semaphores.readers() > 0);
    }
    for (int depth = 1; depth < 4; ++depth) {
        QVERIFY(unlockRead(*handler));
    }
    QCOMPARE(buffer.semaphores.readers(), 0);
}

void tst_SingleBufferHandler::readInsideAWrite()
{
    const SingleBuffer buffer;
    const auto handler = buffer.create();
    QVERIFY(handler->lockForWrite() != nullptr);

    QCOMPARE(handler->lockForRead(), buffer.start());
    QVERIFY(unlockRead(*handler));

    QVERIFY(buffer.semaphores.isWriteLocked());
    QVERIFY(handler->unlockForWrite(buffer.start()));
    QCOMPARE(buffer.semaphores.readers(), 0);
    QVERIFY(!buffer.semaphores.isWriteLocked());
}

void tst_SingleBufferHandler::innerWriteUnlockDoesNotEndTheOuterLock()
{
    const SingleBuffer buffer;
    const auto handler = buffer.create();
    QVERIFY(handler->lockForWrite() != nullptr);
    QVERIFY(handler->lockForWrite() != nullptr);

    QVERIFY(handler->unlockForWrite(buffer.start()));

    QVERIFY(buffer.semaphores.isWriteLocked());
    QVERIFY(handler->unlockForWrite(buffer.start()));
    QVERIFY(!buffer.semaphores.isWriteLocked());
    QVERIFY(!handler->unlockForWrite(buffer.start()));
}

QTEST_GUILESS_MAIN(tst_SingleBufferHandler)
#include "tst_SingleBufferHandler.moc"
