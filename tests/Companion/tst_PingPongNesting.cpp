#include "Companion/PingPongBufferHandler.h"
#include "support/DoubleBuffer.h"
#include "support/SemaphoreCalls.h"

#include <QtTest>

#include <atomic>
#include <functional>
#include <thread>

namespace {

/// Runs beside the test and is joined at the latest with its end.
class Thread
{
public:
    template <class Function>
    explicit Thread(Function &&function) : m_thread(std::forward<Function>(function))
    {
    }
    ~Thread() { join(); }

    Thread(const Thread &) = delete;
    Thread &operator=(const Thread &) = delete;

    void join()
    {
        if (m_thread.joinable()) {
            m_thread.join();
        }
    }

private:
    std::thread m_thread;
};

} // namespace

class tst_PingPongNesting : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void eachReadLockHasItsOwnRepeat_data();
    void eachReadLockHasItsOwnRepeat();
    void readLocksOfOneBufferHaveTheirOwnRepeat();
    void writeInsideARead();
    void readInsideAWrite();
    void innerWriteUnlockDoesNotEndTheOuterLock();
    void finishingTheInnerWriteDoesNotFinishTheSet();
    void swapInsideAWritePublishesWhatIsWrittenSoFar();
    void swapInsideAWriteDisturbsReadersOfBefore();
    void swapsInsideAWriteGoOnWithWhatWasPublished();
    void tooManyUnlocksFail();

    void readLockBelongsToItsThread();
    void writeLockBelongsToItsThread();
    void threadsExcludeEachOtherAsWriters();
    void swapOfAnotherThreadWaitsForTheWriter();
    void twoHandlersOfOneThreadHaveTheirOwnLocks();
};

void tst_PingPongNesting::eachReadLockHasItsOwnRepeat_data()
{
    QTest::addColumn<bool>("isOuterFirst");

    QTest::newRow("inner ends first") << false;
    QTest::newRow("outer ends first") << true;
}

void tst_PingPongNesting::eachReadLockHasItsOwnRepeat()
{
    QFETCH(bool, isOuterFirst);
    const DoubleBuffer buffer;
    const auto handler = buffer.create();
    unsigned char *const outer = handler->lockForRead();
    QVERIFY(handler->swapBuffers());
    unsigned char *const inner = handler->lockForRead();
    QVERIFY(inner != outer);

    QVERIFY(writeSet(*handler, 1));

    if (isOuterFirst) {
        QCOMPARE(finishRead(*handler, outer), ReadResult::Repeat);
        QCOMPARE(finishRead(*handler, inner), ReadResult::Reliable);
    } else {
        QCOMPARE(finishRead(*handler, inner), ReadResult::Reliable);
        QCOMPARE(finishRead(*handler, outer), ReadResult::Repeat);
    }
}

void tst_PingPongNesting::readLocksOfOneBufferHaveTheirOwnRepeat()
{
    const DoubleBuffer buffer;
    const auto handler = buffer.create();
    unsigned char *const outer = handler->lockForRead();
    QVERIFY(publishSet(*handler, 1));
    unsigned char *const middle = handler->lockForRead();
    QVERIFY(publishSet(*handler, 2));

    unsigned char *const inner = handler->lockForRead();

    QCOMPARE(inner, outer);
    QCOMPARE(finishRead(*handler, inner), ReadResult::Reliable);
    QCOMPARE(finishRead(*handler, middle), ReadResult::Reliable);
    QCOMPARE(finishRead(*handler, outer), ReadResult::Repeat);
    QCOMPARE(finishRead(*handler, outer), ReadResult::Failed);
}

void tst_PingPongNesting::writeInsideARead()
{
    const DoubleBuffer buffer;
    const auto handler = buffer.create();
    unsigned char *const read = handler->lockForRead();

    unsigned char *const written = handler->lockForWrite();

    QVERIFY(written != nullptr && written != read);
    QCOMPARE(finishRead(*handler, read), ReadResult::Reliable);
    QVERIFY(buffer.semaphores.isWriteLocked());
    QVERIFY(handler->unlockForWrite(written));
    QVERIFY(!buffer.semaphores.isWriteLocked());
}

void tst_PingPongNesting::readInsideAWrite()
{
    const DoubleBuffer buffer;
    const auto handler = buffer.create();
    QVERIFY(publishSet(*handler, 3));
    unsigned char *const written = handler->lockForWrite();
    fillBuffer(written, buffer.size(), 4);

    unsigned char *const read = handler->lockForRead();

    QVERIFY(read != written);
    QVERIFY(isFilledWith(read, buffer.size(), 3));
    QCOMPARE(finishRead(*handler, read), ReadResult::Reliable);
    QVERIFY(buffer.semaphores.isWriteLocked());
    QVERIFY(handler->unlockForWrite(written));
}

void tst_PingPongNesting::innerWriteUnlockDoesNotEndTheOuterLock()
{
    const DoubleBuffer buffer;
    const auto handler = buffer.create();
    unsigned char *const outer = handler->lockForWrite();
    QCOMPARE(handler->lockForWrite(), outer);
    QCOMPARE(handler->lockForWrite(), outer);

    QVERIFY(handler->unlockForWrite(outer));
    QVERIFY(buffer.semaphores.isWriteLocked());
    QVERIFY(handler->unlockForWrite(outer));
    QVERIFY(buffer.semaphores.isWriteLocked());
    QVERIFY(handler->unlockForWrite(outer));

    QVERIFY(!buffer.semaphores.isWriteLocked());
}

void tst_PingPongNesting::finishingTheInnerWriteDoesNotFinishTheSet()
{
    const DoubleBuffer buffer;
    auto handler = buffer.create();
    const auto other = buffer.attach();
    unsigned char *const locked = handler->lockForWrite();
    fillBuffer(locked, buffer.size() / 2, 9);
    QVERIFY(writeSet(*handler, 9));

    // As if its process had died.
    handler.reset();

    QVERIFY(other->swapBuffers());
    QVERIFY(isFilledWith(other->readBufferPointer(), buffer.size(), 0));
}

void tst_PingPongNesting::swapInsideAWritePublishesWhatIsWrittenSoFar()
{
    const DoubleBuffer buffer;
    const auto handler = buffer.create();
    unsigned char *const before = handler->lockForWrite();
    fillBuffer(before, buffer.size(), 1);

    QVERIFY(handler->swapBuffers());

    QVERIFY(buffer.semaphores.isWriteLocked());
    QCOMPARE(handler->readBufferPointer(), before);
    unsigned char *const after = handler->lockForWrite();
    QVERIFY(after != before);
    // The thread goes on from what it has published.
    QVERIFY(isFilledWith(after, buffer.size(), 1));
    fillBuffer(after, buffer.size() / 2, 2);
    unsigned char *const read = handler->lockForRead();
    QVERIFY(isFilledWith(read, buffer.size(), 1));
    QCOMPARE(finishRead(*handler, read), ReadResult::Reliable);
    QVERIFY(handler->unlockForWrite(after));
    QVERIFY(handler->unlockForWrite(before));
    QVERIFY(!buffer.semaphores.isWriteLocked());
}

void tst_PingPongNesting::swapInsideAWriteDisturbsReadersOfBefore()
{
    const DoubleBuffer buffer;
    const auto handler = buffer.create();
    const auto reader = buffer.attach();
    unsigned char *const written = handler->lockForWrite();
    unsigned char *const read = reader->lockForRead();

    QVERIFY(handler->swapBuffers());

    // The writer may write on without another lock, into what is read here.
    QCOMPARE(handler->writeBufferPointer(), read);
    QCOMPARE(finishRead(*reader, read), ReadResult::Repeat);
    QVERIFY(handler->unlockForWrite(written));
}

void tst_PingPongNesting::swapsInsideAWriteGoOnWithWhatWasPublished()
{
    const DoubleBuffer buffer;
    const auto handler = buffer.create();
    unsigned char *const locked = handler->lockForWrite();
    for (unsigned char value = 1; value < 7; ++value) {
        unsigned char *const written = handler->writeBufferPointer();
        written[value] = value;
        QVERIFY(handler->swapBuffers());

        for (unsigned char i = 0; i < 8; ++i) {
            QCOMPARE(int{handler->readBufferPointer()[i]}, i <= value ? int{i} : 0);
            QCOMPARE(int{handler->writeBufferPointer()[i]}, i <= value ? int{i} : 0);
        }
    }

    QVERIFY(handler->unlockForWrite(locked));
    QVERIFY(!buffer.semaphores.isWriteLocked());
}

void tst_PingPongNesting::tooManyUnlocksFail()
{
    const DoubleBuffer buffer;
    const auto handler = buffer.create();
    unsigned char *const locked = handler->lockForWrite();
    QCOMPARE(handler->lockForWrite(), locked);

    QVERIFY(handler->unlockForWrite(locked));
    QVERIFY(handler->unlockForWrite(locked));
    QVERIFY(!handler->unlockForWrite(locked));
    QVERIFY(!handler->unlockForWrite(locked));

    QCOMPARE(buffer.semaphores.value(SemaphoreSet::Names::SemaphoreWriteLock), 0);
    QVERIFY(publishSet(*handler, 1));
}

void tst_PingPongNesting::readLockBelongsToItsThread()
{
    const DoubleBuffer buffer;
    const auto handler = buffer.create();
    unsigned char *const locked = handler->lockForRead();
    ReadResult result = ReadResult::Reliable;

    Thread([&] { result = finishRead(*handler, locked); }).join();

    QCOMPARE(result, ReadResult::Failed);
    QCOMPARE(finishRead(*handler, locked), ReadResult::Reliable);
}

void tst_PingPongNesting::writeLockBelongsToItsThread()
{
    const DoubleBuffer buffer;
    const auto handler = buffer.create();
    unsigned char *const locked = handler->lockForWrite();
    bool isUnlocked = true;

    Thread([&] { isUnlocked = handler->unlockForWrite(locked); }).join();

    QVERIFY(!isUnlocked);
    QVERIFY(buffer.semaphores.isWriteLocked());
    QVERIFY(handler->unlockForWrite(locked));
    QVERIFY(!buffer.semaphores.isWriteLocked());
}

void tst_PingPongNesting::threadsExcludeEachOtherAsWriters()
{
    const SemaphoreCalls::PatientWaits patient;
    const DoubleBuffer buffer;
    const auto handler = buffer.create();
    unsigned char *const locked = handler->lockForWrite();
    QCOMPARE(handler->lockForWrite(), locked);
    std::atomic<bool> isInside{false};
    Thread other([&] {
        unsigned char *const own = handler->lockForWrite();
        isInside = own != nullptr;
        handler->unlockForWrite(own);
    });

    QVERIFY(buffer.semaphores.waitUntilBlockedByWriter());
    QVERIFY(handler->unlockForWrite(locked));

    // One level is left, and who waits goes on waiting.
    QVERIFY(buffer.semaphores.waitUntilBlockedByWriter());
    QVERIFY(!isInside);
    QVERIFY(handler->unlockForWrite(locked));
    other.join();
    QVERIFY(isInside);
    QVERIFY(!buffer.semaphores.isWriteLocked());
}

void tst_PingPongNesting::swapOfAnotherThreadWaitsForTheWriter()
{
    const SemaphoreCalls::PatientWaits patient;
    const DoubleBuffer buffer;
    const auto handler = buffer.create();
    unsigned char *const locked = handler->lockForWrite();
    fillBuffer(locked, buffer.size() / 2, 6);
    std::atomic<bool> isSwapped{false};
    Thread other([&] { isSwapped = handler->swapBuffers(); });

    QVERIFY(buffer.semaphores.waitUntilBlockedByWriter());
    QVERIFY(!isSwapped);
    QVERIFY(handler->readBufferPointer() != locked);
    fillBuffer(locked, buffer.size(), 6);
    QVERIFY(handler->unlockForWrite(locked));

    other.join();
    QVERIFY(isSwapped);
    QCOMPARE(handler->readBufferPointer(), locked);
    QVERIFY(isFilledWith(locked, buffer.size(), 6));
}

void tst_PingPongNesting::twoHandlersOfOneThreadHaveTheirOwnLocks()
{
    const DoubleBuffer buffer;
    const DoubleBuffer otherBuffer;
    const auto handler = buffer.create();
    const auto other = otherBuffer.create();
    unsigned char *const written = handler->lockForWrite();
    unsigned char *const read = handler->lockForRead();

    QVERIFY(!other->unlockForWrite(written));
    QCOMPARE(finishRead(*other, read), ReadResult::Failed);
    QVERIFY(!otherBuffer.semaphores.isWriteLocked());
    QVERIFY(publishSet(*other, 1));

    QCOMPARE(finishRead(*handler, read), ReadResult::Reliable);
    QVERIFY(handler->unlockForWrite(written));
}

QTEST_GUILESS_MAIN(tst_PingPongNesting)
#include "tst_PingPongNesting.moc"
