#include "Companion/SingleBufferHandler.h"
#include "ProcessData/Linux/SharedMemory.h"
#include "ProcessDataManagement/ProcessDataBufferHandler.h"
#include "support/LogCapture.h"
#include "support/SegmentFile.h"
#include "support/SemaphoreSet.h"

#include <QtTest>

namespace {

using Management = PingPongBufferHandler::ManagementBuffer;

const bool single = false;
const bool twofold = true;

unsigned int managementSize()
{
    return PingPongBufferHandler::getSizeManagementBuffer();
}

unsigned char *bytesOf(SharedMemory &memory)
{
    return static_cast<unsigned char *>(memory.data());
}

} // namespace

class tst_ProcessDataBufferHandler : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void singleRegionIsTheBufferAlone();
    void doubleRegionIsManagementAndTwoBuffers();
    void doubleRegionOfEmptyBuffersIsTheManagement();
    void regionThatCannotBeCountedDoesNotWrapAround_data();
    void regionThatCannotBeCountedDoesNotWrapAround();

    void pointersFollowTheLayout();
    void unmappedMemoryLeavesThePointers();
    void missingOutputLeavesTheOthers();
    void eachNullPointerIsReportedInOrder();
    void eachNullPointerIsReportedByItself_data();
    void eachNullPointerIsReportedByItself();
    void fourPointersPassInSilence();

    void doubleHandlerUsesBothBuffersBehindTheManagement();
    void singleHandlerUsesTheWholeRegion();
    void handlersOwnTheSemaphoresOfTheirKey_data();
    void handlersOwnTheSemaphoresOfTheirKey();
    void creatingHandlerBeginsWithNewSemaphores_data();
    void creatingHandlerBeginsWithNewSemaphores();
    void attachingHandlerJoinsTheSemaphores_data();
    void attachingHandlerJoinsTheSemaphores();
    void doubleHandlerIsMadeOfUnmappedMemory();
    void singleHandlerIsMadeOfUnmappedMemory();
};

void tst_ProcessDataBufferHandler::singleRegionIsTheBufferAlone()
{
    const ProcessDataBufferHandler layout(single);

    QCOMPARE(layout.calculateSizeSharedMemory(100), 100U);
    QCOMPARE(layout.calculateSizeSharedMemory(0), 0U);
    QCOMPARE(layout.calculateSizeSharedMemory(4294967295U), 4294967295U);
}

void tst_ProcessDataBufferHandler::doubleRegionIsManagementAndTwoBuffers()
{
    const ProcessDataBufferHandler layout(twofold);

    QCOMPARE(layout.calculateSizeSharedMemory(100), managementSize() + 200);
    QCOMPARE(layout.calculateSizeSharedMemory(1), managementSize() + 2);
}

void tst_ProcessDataBufferHandler::doubleRegionOfEmptyBuffersIsTheManagement()
{
    QCOMPARE(ProcessDataBufferHandler(twofold).calculateSizeSharedMemory(0), managementSize());
}

void tst_ProcessDataBufferHandler::regionThatCannotBeCountedDoesNotWrapAround_data()
{
    QTest::addColumn<unsigned int>("size");
    QTest::addColumn<unsigned int>("region");

    const unsigned int largest = (4294967295U - managementSize()) / 2;
    QTest::newRow("largest") << largest << managementSize() + 2 * largest;
    QTest::newRow("one more") << largest + 1 << 4294967295U;
    QTest::newRow("largest number") << 4294967295U << 4294967295U;
}

void tst_ProcessDataBufferHandler::regionThatCannotBeCountedDoesNotWrapAround()
{
    QFETCH(unsigned int, size);

    QTEST(ProcessDataBufferHandler(twofold).calculateSizeSharedMemory(size), "region");
}

void tst_ProcessDataBufferHandler::pointersFollowTheLayout()
{
    const SegmentFile segment;
    SharedMemory memory;
    memory.setKey(segment.name());
    QVERIFY(memory.create(static_cast<int>(managementSize() + 2 * 77)));
    Management *management = nullptr;
    unsigned char *first = nullptr;
    unsigned char *second = nullptr;
    LogCapture log;

    ProcessDataBufferHandler(twofold).calculatePointerForPingPongBuffer(&management, &first,
                                                                        &second, 77, memory);

    QCOMPARE(static_cast<void *>(management), memory.data());
    QCOMPARE(first - bytesOf(memory), std::ptrdiff_t(managementSize()));
    QCOMPARE(second - first, std::ptrdiff_t(77));
    COMPARE_LOG(log);
}

void tst_ProcessDataBufferHandler::unmappedMemoryLeavesThePointers()
{
    SharedMemory memory;
    Management *management = nullptr;
    unsigned char *first = nullptr;
    unsigned char other = 0;
    unsigned char *second = &other;
    LogCapture log;

    ProcessDataBufferHandler(twofold).calculatePointerForPingPongBuffer(&management, &first,
                                                                        &second, 77, memory);

    COMPARE_LOG(log, warning(QStringLiteral("Basepointer to shared memory is nullptr")));
    QVERIFY(management == nullptr);
    QVERIFY(first == nullptr);
    QVERIFY(second == &other);
}

void tst_ProcessDataBufferHandler::missingOutputLeavesTheOthers()
{
    const SegmentFile segment;
    SharedMemory memory;
    memory.setKey(segment.name());
    QVERIFY(memory.create(static_cast<int>(managementSize() + 2 * 77)));
    Management *management = nullptr;
    unsigned char *second = nullptr;
    LogCapture log;

    ProcessDataBufferHandler(twofold).calculatePointerForPingPongBuffer(&management, nullptr,
                                                                        &second, 77, memory);

    COMPARE_LOG(log, warning(QStringLiteral("Pointer to first part shared memory is nullptr")));
    QVERIFY(management == nullptr);
    QVERIFY(second == nullptr);
}

void tst_ProcessDataBufferHandler::eachNullPointerIsReportedInOrder()
{
    const ProcessDataBufferHandler layout(twofold);
    LogCapture log;

    QVERIFY(!layout.checkPointerOfPingPongBuffer(nullptr, nullptr, nullptr, nullptr));

    COMPARE_LOG(log, warning(QStringLiteral("Basepointer to shared memory is nullptr")),
                warning(QStringLiteral("Pointer to managmentbuffer is nullptr")),
                warning(QStringLiteral("Pointer to first part shared memory is nullptr")),
                warning(QStringLiteral("Pointer to second part shared memory is nullptr")));
}

void tst_ProcessDataBufferHandler::eachNullPointerIsReportedByItself_data()
{
    QTest::addColumn<int>("missing");
    QTest::addColumn<QString>("message");

    QTest::newRow("base") << 0 << QStringLiteral("Basepointer to shared memory is nullptr");
    QTest::newRow("management") << 1 << QStringLiteral("Pointer to managmentbuffer is nullptr");
    QTest::newRow("first") << 2 << QStringLiteral("Pointer to first part shared memory is nullptr");
    QTest::newRow("second") << 3
                            << QStringLiteral("Pointer to second part shared memory is nullptr");
}

void tst_ProcessDataBufferHandler::eachNullPointerIsReportedByItself()
{
    QFETCH(int, missing);
    QFETCH(QString, message);
    const ProcessDataBufferHandler layout(twofold);
    Management *management = nullptr;
    unsigned char *buffer = nullptr;
    unsigned char base = 0;
    LogCapture log;

    QVERIFY(!layout.checkPointerOfPingPongBuffer(
        missing == 1 ? nullptr : &management, missing == 2 ? nullptr : &buffer,
        missing == 3 ? nullptr : &buffer, missing == 0 ? nullptr : &base));

    COMPARE_LOG(log, warning(message));
}

void tst_ProcessDataBufferHandler::fourPointersPassInSilence()
{
    const ProcessDataBufferHandler layout(twofold);
    // What they point at is of no interest.
    Management *management = nullptr;
    unsigned char *buffer = nullptr;
    unsigned char base = 0;
    LogCapture log;

    QVERIFY(layout.checkPointerOfPingPongBuffer(&management, &buffer, &buffer, &base));

    COMPARE_LOG(log);
}

void tst_ProcessDataBufferHandler::doubleHandlerUsesBothBuffersBehindTheManagement()
{
    const SegmentFile segment;
    const SemaphoreSet semaphores(segment.name());
    SharedMemory memory;
    memory.setKey(segment.name());
    QVERIFY(memory.create(static_cast<int>(managementSize() + 2 * 40)));
    LogCapture log;

    const auto handler = ProcessDataBufferHandler(twofold).initBufferHandler(
        ProcessDataBufferHandler::InitTypeBufferCreate, semaphores.key(), 40, memory);

    COMPARE_LOG(log);
    QVERIFY(handler.dynamicCast<PingPongBufferHandler>());
    QCOMPARE(handler->bufferSize(), 40U);
    // After creation readers see the first buffer.
    QVERIFY(handler->readBufferPointer() == bytesOf(memory) + managementSize());
    QVERIFY(handler->writeBufferPointer() == bytesOf(memory) + managementSize() + 40);
    QVERIFY(handler->swapBuffers());
    QVERIFY(handler->readBufferPointer() == bytesOf(memory) + managementSize() + 40);
}

void tst_ProcessDataBufferHandler::singleHandlerUsesTheWholeRegion()
{
    const SegmentFile segment;
    const SemaphoreSet semaphores(segment.name());
    SharedMemory memory;
    memory.setKey(segment.name());
    QVERIFY(memory.create(40));
    LogCapture log;

    const auto handler = ProcessDataBufferHandler(single).initBufferHandler(
        ProcessDataBufferHandler::InitTypeBufferCreate, semaphores.key(), 40, memory);

    COMPARE_LOG(log);
    QVERIFY(handler.dynamicCast<SingleBufferHandler>());
    QCOMPARE(handler->bufferSize(), 40U);
    QVERIFY(handler->readBufferPointer() == bytesOf(memory));
    QVERIFY(handler->writeBufferPointer() == bytesOf(memory));
}

void tst_ProcessDataBufferHandler::handlersOwnTheSemaphoresOfTheirKey_data()
{
    QTest::addColumn<bool>("isDouble");

    QTest::newRow("single buffer") << single;
    QTest::newRow("double buffer") << twofold;
}

void tst_ProcessDataBufferHandler::handlersOwnTheSemaphoresOfTheirKey()
{
    QFETCH(bool, isDouble);
    const SegmentFile segment;
    const SemaphoreSet semaphores(segment.name());
    SharedMemory memory;
    memory.setKey(segment.name());
    QVERIFY(memory.create(4096));

    auto handler = ProcessDataBufferHandler(isDouble).initBufferHandler(
        ProcessDataBufferHandler::InitTypeBufferCreate, semaphores.key(), 40, memory);

    QCOMPARE(semaphores.users(), 1);
    QVERIFY(handler->lockForWrite() != nullptr);
    QVERIFY(semaphores.isWriteLocked());
    handler->unlockForWrite(handler->writeBufferPointer());
    QVERIFY(!semaphores.isWriteLocked());
    handler.clear();
    QVERIFY(!semaphores.exists());
}

void tst_ProcessDataBufferHandler::creatingHandlerBeginsWithNewSemaphores_data()
{
    handlersOwnTheSemaphoresOfTheirKey_data();
}

void tst_ProcessDataBufferHandler::creatingHandlerBeginsWithNewSemaphores()
{
    QFETCH(bool, isDouble);
    const SegmentFile segment;
    const SemaphoreSet semaphores(segment.name());
    SharedMemory memory;
    memory.setKey(segment.name());
    QVERIFY(memory.create(4096));
    ProcessDataBufferHandler layout(isDouble);
    const auto former = layout.initBufferHandler(ProcessDataBufferHandler::InitTypeBufferCreate,
                                                 semaphores.key(), 40, memory);
    const int formerId = semaphores.id();

    const auto handler = layout.initBufferHandler(ProcessDataBufferHandler::InitTypeBufferCreate,
                                                  semaphores.key(), 40, memory);

    QVERIFY(semaphores.id() != formerId);
    QCOMPARE(semaphores.users(), 1);
}

void tst_ProcessDataBufferHandler::attachingHandlerJoinsTheSemaphores_data()
{
    handlersOwnTheSemaphoresOfTheirKey_data();
}

void tst_ProcessDataBufferHandler::attachingHandlerJoinsTheSemaphores()
{
    QFETCH(bool, isDouble);
    const SegmentFile segment;
    const SemaphoreSet semaphores(segment.name());
    SharedMemory memory;
    memory.setKey(segment.name());
    QVERIFY(memory.create(4096));
    ProcessDataBufferHandler layout(isDouble);
    const auto former = layout.initBufferHandler(ProcessDataBufferHandler::InitTypeBufferCreate,
                                                 semaphores.key(), 40, memory);
    const int formerId = semaphores.id();

    const auto handler = layout.initBufferHandler(ProcessDataBufferHandler::InitTypeBufferAttach,
                                                  semaphores.key(), 40, memory);

    QCOMPARE(semaphores.id(), formerId);
    QCOMPARE(semaphores.users(), 2);
    QVERIFY(handler->readBufferPointer() == former->readBufferPointer());
}

void tst_ProcessDataBufferHandler::doubleHandlerIsMadeOfUnmappedMemory()
{
    const SemaphoreSet semaphores(SemaphoreSet::uniqueKey(QStringLiteral("unmapped")));
    SharedMemory memory;
    LogCapture log;

    const auto handler = ProcessDataBufferHandler(twofold).initBufferHandler(
        ProcessDataBufferHandler::InitTypeBufferCreate, semaphores.key(), 40, memory);

    COMPARE_LOG(log, warning(QStringLiteral("Basepointer to shared memory is nullptr")));
    QVERIFY(handler.dynamicCast<PingPongBufferHandler>());
    QCOMPARE(handler->bufferSize(), 40U);
    QVERIFY(handler->lockForRead() == nullptr);
    QVERIFY(handler->writeBufferPointer() == nullptr);
}

void tst_ProcessDataBufferHandler::singleHandlerIsMadeOfUnmappedMemory()
{
    const SemaphoreSet semaphores(SemaphoreSet::uniqueKey(QStringLiteral("unmapped")));
    SharedMemory memory;
    LogCapture log;

    const auto handler = ProcessDataBufferHandler(single).initBufferHandler(
        ProcessDataBufferHandler::InitTypeBufferAttach, semaphores.key(), 40, memory);

    COMPARE_LOG(log, warning(QStringLiteral("Pointer to shared memory is nullptr")));
    QVERIFY(handler.dynamicCast<SingleBufferHandler>());
    QCOMPARE(handler->bufferSize(), 40U);
    QVERIFY(handler->lockForRead() == nullptr);
    QVERIFY(handler->writeBufferPointer() == nullptr);
}

QTEST_GUILESS_MAIN(tst_ProcessDataBufferHandler)

#include "tst_ProcessDataBufferHandler.moc"
