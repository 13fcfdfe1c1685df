#include "ProcessData/Linux/ProcessDataValue.h"
#include "ProcessDataManagement/ManagedHandler.h"
#include "ProcessDataManagement/ProcessDescription.h"
#include "support/LogCapture.h"

#include <QtTest>

class tst_ProcessDataManagerLocking : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void newManagerHasNoBuffer();
    void everythingSucceedsWithoutAHandler();
    void readLockHoldsBufferAndMutex();
    void writeLockHoldsBufferAndMutex();
    void unlockReadGivesTheResultOfTheHandler_data();
    void unlockReadGivesTheResultOfTheHandler();
    void unlockWriteIgnoresTheResultOfTheHandler();
    void readLockWithoutPointerFailsAtTheUnlock();
    void writeLockWithoutPointerFailsAtTheUnlock();
    void failedLockCanBeTriedAgain();
    void secondReadLockOfAThreadIsRefused();
    void secondWriteLockOfAThreadIsRefused();
    void refusedLockNeedsAnUnlockOfItsOwn_data();
    void refusedLockNeedsAnUnlockOfItsOwn();
    void oneThreadHoldsBothKindsOfLock();
    void unlockWithoutLockFails();
    void swapGivesTheResultOfTheHandler_data();
    void swapGivesTheResultOfTheHandler();
    void swapWorksInsideAWriteLock();
    void failedSwapKeepsTheWritePointer();
    void writeBehindASwapInsideTheLockIsNotSeen();
    void swapOutsideALockLeavesThePointersNull();
    void sizeIsThatOfOneBuffer_data();
    void sizeIsThatOfOneBuffer();
    void overtakenReadIsNotRepeatedByTheManager();
    void setIsPublishedAtOnce();
};

void tst_ProcessDataManagerLocking::newManagerHasNoBuffer()
{
    const ProcessDataManager manager;

    QVERIFY(!manager.isBufferValid());
    QVERIFY(manager.getPointerReadBuffer() == nullptr);
    QVERIFY(manager.getPointerWriteBuffer() == nullptr);
}

void tst_ProcessDataManagerLocking::everythingSucceedsWithoutAHandler()
{
    ProcessDataManager manager;
    LogCapture log;

    QVERIFY(manager.lockReadBuffer());
    QVERIFY(manager.lockReadBuffer());
    QVERIFY(manager.lockWriteBuffer());
    QVERIFY(manager.lockWriteBuffer());
    QVERIFY(manager.getPointerReadBuffer() == nullptr);
    QVERIFY(manager.getPointerWriteBuffer() == nullptr);
    QVERIFY(manager.swapReadAndWriteBuffer());
    QVERIFY(manager.unlockWriteBuffer());
    QVERIFY(manager.unlockWriteBuffer());
    bool repeat = true;
    QVERIFY(manager.unlockReadBuffer(repeat));
    QVERIFY(manager.unlockReadBuffer(repeat));

    QVERIFY(repeat);
    QVERIFY(!ManagerInternals(manager).isMutexHeld());
    COMPARE_LOG(log);
}

void tst_ProcessDataManagerLocking::readLockHoldsBufferAndMutex()
{
    ManagedHandler managed;
    LogCapture log;

    QVERIFY(managed.manager.lockReadBuffer());

    QVERIFY(managed.manager.getPointerReadBuffer() == managed.handler->readBytes());
    QVERIFY(managed.manager.getPointerWriteBuffer() == nullptr);
    QVERIFY(managed.internals.isMutexHeld());

    bool repeat = true;
    QVERIFY(managed.manager.unlockReadBuffer(repeat));
    QVERIFY(!repeat);
    QVERIFY(managed.manager.getPointerReadBuffer() == nullptr);
    QVERIFY(!managed.internals.isMutexHeld());
    QCOMPARE(managed.handler->takeCalls(),
             QStringList(
                 {QStringLiteral("lockForRead"), QStringLiteral("unlockForRead of read buffer")}));
    COMPARE_LOG(log);
}

void tst_ProcessDataManagerLocking::writeLockHoldsBufferAndMutex()
{
    ManagedHandler managed;
    LogCapture log;

    QVERIFY(managed.manager.lockWriteBuffer());

    QVERIFY(managed.manager.getPointerWriteBuffer() == managed.handler->writeBytes());
    QVERIFY(managed.manager.getPointerReadBuffer() == nullptr);
    QVERIFY(managed.internals.isMutexHeld());

    QVERIFY(managed.manager.unlockWriteBuffer());
    QVERIFY(managed.manager.getPointerWriteBuffer() == nullptr);
    QVERIFY(!managed.internals.isMutexHeld());
    QCOMPARE(managed.handler->takeCalls(),
             QStringList({QStringLiteral("lockForWrite"),
                          QStringLiteral("unlockForWrite of write buffer")}));
    COMPARE_LOG(log);
}

void tst_ProcessDataManagerLocking::unlockReadGivesTheResultOfTheHandler_data()
{
    QTest::addColumn<bool>("unlocked");
    QTest::addColumn<bool>("repeat");

    QTest::newRow("reliable") << true << false;
    QTest::newRow("to be repeated") << true << true;
    QTest::newRow("failed") << false << false;
    QTest::newRow("failed and to be repeated") << false << true;
}

void tst_ProcessDataManagerLocking::unlockReadGivesTheResultOfTheHandler()
{
    QFETCH(bool, unlocked);
    QFETCH(bool, repeat);
    ManagedHandler managed;
    managed.handler->readUnlocks.enqueue({unlocked, repeat});
    LogCapture log;
    QVERIFY(managed.manager.lockReadBuffer());

    bool mustRepeat = !repeat;
    QCOMPARE(managed.manager.unlockReadBuffer(mustRepeat), unlocked);

    QCOMPARE(mustRepeat, repeat);
    QVERIFY(managed.manager.getPointerReadBuffer() == nullptr);
    QVERIFY(!managed.internals.isMutexHeld());
    // Once only, whatever came of it.
    QCOMPARE(managed.handler->takeCalls().size(), 2);
    COMPARE_LOG(log);
}

void tst_ProcessDataManagerLocking::unlockWriteIgnoresTheResultOfTheHandler()
{
    ManagedHandler managed;
    managed.handler->writeUnlockFails = true;
    LogCapture log;
    QVERIFY(managed.manager.lockWriteBuffer());

    QVERIFY(managed.manager.unlockWriteBuffer());

    QVERIFY(managed.manager.getPointerWriteBuffer() == nullptr);
    QVERIFY(!managed.internals.isMutexHeld());
    COMPARE_LOG(log);
}

void tst_ProcessDataManagerLocking::readLockWithoutPointerFailsAtTheUnlock()
{
    ManagedHandler managed;
    managed.handler->readLocks.enqueue(false);
    LogCapture log;

    QVERIFY(managed.manager.lockReadBuffer());
    QVERIFY(managed.manager.getPointerReadBuffer() == nullptr);
    QVERIFY(managed.internals.isMutexHeld());
    bool repeat = true;
    QVERIFY(!managed.manager.unlockReadBuffer(repeat));

    QVERIFY(repeat);
    QVERIFY(!managed.internals.isMutexHeld());
    QCOMPARE(managed.handler->takeCalls(), QStringList({QStringLiteral("lockForRead")}));
    COMPARE_LOG(log);
}

void tst_ProcessDataManagerLocking::writeLockWithoutPointerFailsAtTheUnlock()
{
    ManagedHandler managed;
    managed.handler->writeLockFails = true;
    LogCapture log;

    QVERIFY(managed.manager.lockWriteBuffer());
    QVERIFY(managed.manager.getPointerWriteBuffer() == nullptr);
    QVERIFY(managed.internals.isMutexHeld());
    QVERIFY(!managed.manager.unlockWriteBuffer());

    QVERIFY(!managed.internals.isMutexHeld());
    QCOMPARE(managed.handler->takeCalls(), QStringList({QStringLiteral("lockForWrite")}));
    COMPARE_LOG(log);
}

void tst_ProcessDataManagerLocking::failedLockCanBeTriedAgain()
{
    ManagedHandler managed;
    managed.handler->readLocks.enqueue(false);
    LogCapture log;
    QVERIFY(managed.manager.lockReadBuffer());

    // The pointer is still null, so that this is no second lock.
    QVERIFY(managed.manager.lockReadBuffer());

    QVERIFY(managed.manager.getPointerReadBuffer() != nullptr);
    bool repeat = false;
    QVERIFY(managed.manager.unlockReadBuffer(repeat));
    QVERIFY(managed.internals.isMutexHeld());
    QVERIFY(!managed.manager.unlockReadBuffer(repeat));
    QVERIFY(!managed.internals.isMutexHeld());
    COMPARE_LOG(log);
}

void tst_ProcessDataManagerLocking::secondReadLockOfAThreadIsRefused()
{
    ManagedHandler managed;
    QVERIFY(managed.manager.lockReadBuffer());
    const auto *const buffer = managed.manager.getPointerReadBuffer();
    LogCapture log;

    QVERIFY(!managed.manager.lockReadBuffer());

    COMPARE_LOG(log, warning(QStringLiteral("Buffer is already locked.")));
    QVERIFY(managed.manager.getPointerReadBuffer() == buffer);
    QCOMPARE(managed.handler->takeCalls(), QStringList({QStringLiteral("lockForRead")}));
    bool repeat = false;
    managed.manager.unlockReadBuffer(repeat);
    managed.manager.unlockReadBuffer(repeat);
}

void tst_ProcessDataManagerLocking::secondWriteLockOfAThreadIsRefused()
{
    ManagedHandler managed;
    QVERIFY(managed.manager.lockWriteBuffer());
    const auto *const buffer = managed.manager.getPointerWriteBuffer();
    LogCapture log;

    QVERIFY(!managed.manager.lockWriteBuffer());

    COMPARE_LOG(log, warning(QStringLiteral("Buffer is already locked.")));
    QVERIFY(managed.manager.getPointerWriteBuffer() == buffer);
    QCOMPARE(managed.handler->takeCalls(), QStringList({QStringLiteral("lockForWrite")}));
    managed.manager.unlockWriteBuffer();
    managed.manager.unlockWriteBuffer();
}

void tst_ProcessDataManagerLocking::refusedLockNeedsAnUnlockOfItsOwn_data()
{
    QTest::addColumn<bool>("forWriting");

    QTest::newRow("read locks") << false;
    QTest::newRow("write locks") << true;
}

void tst_ProcessDataManagerLocking::refusedLockNeedsAnUnlockOfItsOwn()
{
    QFETCH(bool, forWriting);
    ManagedHandler managed;
    ProcessDataManager &manager = managed.manager;
    const auto lock = [&] {
        return forWriting ? manager.lockWriteBuffer() : manager.lockReadBuffer();
    };
    const auto unlock = [&] {
        bool repeat = false;
        return forWriting ? manager.unlockWriteBuffer() : manager.unlockReadBuffer(repeat);
    };
    LogCapture log;
    QVERIFY(lock());
    QVERIFY(!lock());
    QVERIFY(!lock());
    managed.handler->takeCalls();

    QVERIFY(unlock());
    QCOMPARE(managed.handler->takeCalls().size(), 1);
    QVERIFY(managed.internals.isMutexHeld());
    QVERIFY(!unlock());
    QVERIFY(managed.internals.isMutexHeld());
    QVERIFY(!unlock());
    QVERIFY(!managed.internals.isMutexHeld());
    QCOMPARE(managed.handler->takeCalls(), QStringList());
}

void tst_ProcessDataManagerLocking::oneThreadHoldsBothKindsOfLock()
{
    ManagedHandler managed;
    LogCapture log;

    QVERIFY(managed.manager.lockReadBuffer());
    QVERIFY(managed.manager.lockWriteBuffer());

    QVERIFY(managed.manager.getPointerReadBuffer() == managed.handler->readBytes());
    QVERIFY(managed.manager.getPointerWriteBuffer() == managed.handler->writeBytes());
    bool repeat = false;
    QVERIFY(managed.manager.unlockReadBuffer(repeat));
    QVERIFY(managed.manager.getPointerWriteBuffer() == managed.handler->writeBytes());
    QVERIFY(managed.internals.isMutexHeld());
    QVERIFY(managed.manager.unlockWriteBuffer());
    QVERIFY(!managed.internals.isMutexHeld());
    COMPARE_LOG(log);
}

void tst_ProcessDataManagerLocking::unlockWithoutLockFails()
{
    ManagedHandler managed;
    LogCapture log;

    bool repeat = false;
    QVERIFY(!managed.manager.unlockReadBuffer(repeat));
    QVERIFY(!managed.manager.unlockWriteBuffer());

    QCOMPARE(managed.handler->takeCalls(), QStringList());
    COMPARE_LOG(log);
}

void tst_ProcessDataManagerLocking::swapGivesTheResultOfTheHandler_data()
{
    QTest::addColumn<bool>("succeeds");

    QTest::newRow("swapped") << true;
    QTest::newRow("failed") << false;
}

void tst_ProcessDataManagerLocking::swapGivesTheResultOfTheHandler()
{
    QFETCH(bool, succeeds);
    ManagedHandler managed;
    managed.handler->swapFails = !succeeds;
    LogCapture log;

    QCOMPARE(managed.manager.swapReadAndWriteBuffer(), succeeds);

    QCOMPARE(managed.handler->takeCalls(), QStringList({QStringLiteral("swapBuffers")}));
    COMPARE_LOG(log);
}

void tst_ProcessDataManagerLocking::swapWorksInsideAWriteLock()
{
    ManagedHandler managed;
    QVERIFY(managed.manager.lockWriteBuffer());
    const auto *const written = managed.manager.getPointerWriteBuffer();

    QVERIFY(managed.manager.swapReadAndWriteBuffer());

    QVERIFY(managed.handler->readBytes() == written);
    // The lock goes on in the buffer that readers do not see.
    QVERIFY(managed.manager.getPointerWriteBuffer() == managed.handler->writeBytes());
    QVERIFY(managed.internals.isMutexHeld());
    QVERIFY(managed.manager.unlockWriteBuffer());
    QVERIFY(!managed.internals.isMutexHeld());
}

void tst_ProcessDataManagerLocking::failedSwapKeepsTheWritePointer()
{
    ManagedHandler managed;
    managed.handler->swapFails = true;
    QVERIFY(managed.manager.lockWriteBuffer());
    const auto *const written = managed.manager.getPointerWriteBuffer();

    QVERIFY(!managed.manager.swapReadAndWriteBuffer());

    QVERIFY(managed.manager.getPointerWriteBuffer() == written);
    QVERIFY(managed.manager.unlockWriteBuffer());
}

void tst_ProcessDataManagerLocking::writeBehindASwapInsideTheLockIsNotSeen()
{
    const ProcessDescription description(8, true);
    LogCapture log;
    ProcessDataManager manager;
    QVERIFY(manager.createProcessData(description.parse(),
                                      ProcessDataManager::InitTypeSharedMemoryCreate));
    QVERIFY(manager.lockWriteBuffer());
    manager.getPointerWriteBuffer()[0] = 1;
    QVERIFY(manager.swapReadAndWriteBuffer());
    QVERIFY(manager.lockReadBuffer());

    manager.getPointerWriteBuffer()[0] = 2;

    QCOMPARE(manager.getPointerReadBuffer()[0], static_cast<unsigned char>(1));
    bool repeat = true;
    QVERIFY(manager.unlockReadBuffer(repeat));
    QVERIFY(!repeat);
    QVERIFY(manager.unlockWriteBuffer());
}

void tst_ProcessDataManagerLocking::swapOutsideALockLeavesThePointersNull()
{
    ManagedHandler managed;

    QVERIFY(managed.manager.swapReadAndWriteBuffer());

    QVERIFY(managed.manager.getPointerWriteBuffer() == nullptr);
    QVERIFY(managed.manager.getPointerReadBuffer() == nullptr);
    QVERIFY(!managed.internals.isMutexHeld());
}

void tst_ProcessDataManagerLocking::sizeIsThatOfOneBuffer_data()
{
    QTest::addColumn<bool>("doubleBuffer");

    QTest::newRow("single buffer") << false;
    QTest::newRow("double buffer") << true;
}

void tst_ProcessDataManagerLocking::sizeIsThatOfOneBuffer()
{
    QFETCH(bool, doubleBuffer);
    ProcessDescription description(24, doubleBuffer);
    description.leaves.insert(QStringLiteral("a"), int32Slot(0));
    ProcessDataManager manager;
    LogCapture log;

    QVERIFY(manager.createProcessData(description.parse(),
                                      ProcessDataManager::InitTypeSharedMemoryCreate));

    QVERIFY(manager.isBufferValid());
    QCOMPARE(manager.getSizeBuffer(), 24U);
}

void tst_ProcessDataManagerLocking::overtakenReadIsNotRepeatedByTheManager()
{
    ProcessDescription description(8, true);
    description.leaves.insert(QStringLiteral("a"), int32Slot(0));
    LogCapture log;
    ProcessDataManager writer;
    ProcessDataManager reader;
    QVERIFY(writer.createProcessData(description.parse(),
                                     ProcessDataManager::InitTypeSharedMemoryCreate));
    QVERIFY(reader.createProcessData(description.parse(),
                                     ProcessDataManager::InitTypeSharedMemoryAttach));
    bool repeat = false;
    QVERIFY(reader.lockReadBuffer());
    // The buffer that is being read becomes the one that is written, and a writer begins.
    QVERIFY(writer.swapReadAndWriteBuffer());
    QVERIFY(writer.lockWriteBuffer());
    QVERIFY(writer.unlockWriteBuffer());

    QVERIFY(reader.unlockReadBuffer(repeat));

    QVERIFY(repeat);
    QVERIFY(reader.getPointerReadBuffer() == nullptr);
    QVERIFY(reader.lockReadBuffer());
    QVERIFY(reader.unlockReadBuffer(repeat));
    QVERIFY(!repeat);
}

void tst_ProcessDataManagerLocking::setIsPublishedAtOnce()
{
    ProcessDescription description(16, true);
    description.leaves.insert(QStringLiteral("a"), int32Slot(0));
    description.leaves.insert(QStringLiteral("b"), int32Slot(8));
    LogCapture log;
    ProcessDataManager manager;
    const auto root = manager.createProcessData(description.parse(),
                                                ProcessDataManager::InitTypeSharedMemoryCreate);
    QVERIFY(root);
    const auto a = root->getLeafProcessDataValue(QStringLiteral("a"));
    const auto b = root->getLeafProcessDataValue(QStringLiteral("b"));
    using ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE;
    using ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID;
    const auto readBoth = [&] {
        ProcessValue first(PROCESS_VALUE_ERROR_TYPE_VALID);
        ProcessValue second(PROCESS_VALUE_ERROR_TYPE_VALID);
        bool repeat = true;
        while (repeat) {
            manager.lockReadBuffer();
            a->getValueNoLock(first);
            b->getValueNoLock(second);
            manager.unlockReadBuffer(repeat);
        }
        return QVariantList{first.getErrorType(), first.getValue(), second.getErrorType(),
                            second.getValue()};
    };

    QVERIFY(manager.lockWriteBuffer());
    QVERIFY(a->setValueNoLock({QVariant(11), PROCESS_VALUE_ERROR_TYPE_VALID}));
    QVERIFY(b->setValueNoLock({QVariant(22), PROCESS_VALUE_ERROR_TYPE_VALID}));
    QVERIFY(manager.unlockWriteBuffer());

    QCOMPARE(readBoth(), QVariantList({3, QVariant(), 3, QVariant()}));
    QVERIFY(manager.swapReadAndWriteBuffer());
    QCOMPARE(readBoth(), QVariantList({0, 11, 0, 22}));
}

QTEST_GUILESS_MAIN(tst_ProcessDataManagerLocking)

#include "tst_ProcessDataManagerLocking.moc"
