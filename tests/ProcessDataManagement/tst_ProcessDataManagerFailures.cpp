#include "Companion/PingPongBufferHandler.h"
#include "ProcessDataManagement/ManagerInternals.h"
#include "ProcessDataManagement/ProcessDescription.h"
#include "support/ChildProcess.h"
#include "support/LogCapture.h"
#include "support/ResourceLimit.h"

#include <QtTest>

#include <signal.h>

namespace {
const auto create = ProcessDataManager::InitTypeSharedMemoryCreate;
const auto attach = ProcessDataManager::InitTypeSharedMemoryAttach;

struct OneNumber : ProcessDescription
{
    explicit OneNumber(qint64 sizeOfBuffer = 8, bool hasDoubleBuffer = false)
        : ProcessDescription(sizeOfBuffer, hasDoubleBuffer)
    {
        leaves.insert(QStringLiteral("a"), int32Slot(0));
    }
};

LogLine noSharedMemory()
{
    return warning(QStringLiteral("Can not initialize shared memory."));
}

LogLine noProcessDataMemory()
{
    return warning(QStringLiteral("Can not create process data memory."));
}

} // namespace

class tst_ProcessDataManagerFailures : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void nullRootIsRefused();
    void nullRootHasNoMemory();
    void emptyKeyIsRefused_data();
    void emptyKeyIsRefused();
    void emptyKeyHasNoSegment();
    void attachmentNeedsASegment();
    void segmentThatCannotBeCreatedIsReported();
    void smallSegmentIsRefused_data();
    void smallSegmentIsRefused();
    void smallSegmentMayBeReplacedByTheRightOne();
    void regionAboveTwoGigabytesIsRefused_data();
    void regionAboveTwoGigabytesIsRefused();
    void segmentAboveTwoGigabytesIsRefused();
    void failureReleasesTheHandler();
    void secondCreationIsAsserted();
};

void tst_ProcessDataManagerFailures::nullRootIsRefused()
{
    ProcessDataManager manager;
    LogCapture log;

    QVERIFY(!manager.createProcessData({}, create));
    COMPARE_LOG(log, warning(QStringLiteral("RootElement nullpointer!")));
    QVERIFY(!manager.createProcessData({}, attach));
    COMPARE_LOG(log, warning(QStringLiteral("RootElement nullpointer!")));
    QVERIFY(!manager.isBufferValid());
}

void tst_ProcessDataManagerFailures::nullRootHasNoMemory()
{
    ProcessDataManager manager;
    LogCapture log;

    QVERIFY(!ManagerInternals(manager).createProcessDataMemory({}, create));

    COMPARE_LOG(log, warning(QStringLiteral("Pointer to root object is null!")));
}

void tst_ProcessDataManagerFailures::emptyKeyIsRefused_data()
{
    QTest::addColumn<bool>("hasProperty");
    QTest::addColumn<bool>("creates");

    QTest::newRow("empty, create") << true << true;
    QTest::newRow("empty, attach") << true << false;
    QTest::newRow("missing, create") << false << true;
    QTest::newRow("missing, attach") << false << false;
}

void tst_ProcessDataManagerFailures::emptyKeyIsRefused()
{
    QFETCH(bool, hasProperty);
    QFETCH(bool, creates);
    OneNumber description;
    description.key.clear();
    const auto root = description.parse();
    if (!hasProperty) {
        root->removeProperties({ProcessDescription::Definitions::getStrKeyProcessDataMemory()});
    }
    ProcessDataManager manager;
    LogCapture log;

    QVERIFY(!manager.createProcessData(root, creates ? create : attach));

    COMPARE_LOG(log, warning(QStringLiteral("Key for process data memory is empty.")),
                noProcessDataMemory());
    QVERIFY(!manager.isBufferValid());
    QVERIFY(!QFile::exists(QStringLiteral("/dev/shm/SharedMemory")));
}

void tst_ProcessDataManagerFailures::emptyKeyHasNoSegment()
{
    ProcessDataManager manager;
    LogCapture log;

    QVERIFY(!ManagerInternals(manager).initSharedMemory(create, QString(), 64));

    COMPARE_LOG(log, warning(QStringLiteral("Key for process data is empty.")));
    QVERIFY(!QFile::exists(QStringLiteral("/dev/shm/SharedMemory")));
}

void tst_ProcessDataManagerFailures::attachmentNeedsASegment()
{
    const OneNumber description;
    ProcessDataManager manager;
    LogCapture log;

    QVERIFY(!manager.createProcessData(description.parse(), attach));

    COMPARE_LOG(log,
                warning(QStringLiteral("Attach to shared memory( \"%1\" ) fails "
                                       "\"SharedMemory::attach: shm_open failed: "
                                       "No such file or directory\" , 2")
                            .arg(description.key)),
                noSharedMemory(), noProcessDataMemory());
    QVERIFY(!manager.isBufferValid());
    QVERIFY(!description.segment.exists());
    QVERIFY(!description.semaphores.exists());
}

void tst_ProcessDataManagerFailures::segmentThatCannotBeCreatedIsReported()
{
    const OneNumber description;
    QVERIFY(QDir().mkdir(description.segment.path()));
    ProcessDataManager manager;
    LogCapture log;

    QVERIFY(!manager.createProcessData(description.parse(), create));

    COMPARE_LOG(log,
                warning(QStringLiteral("Error on creating shared memory: "
                                       "\"SharedMemory::create: shm_open failed: File exists\" , "
                                       "17 ! You can delete all sharedMemories with the command: "
                                       "ipcrm -a")),
                noSharedMemory(), noProcessDataMemory());
    QVERIFY(!manager.isBufferValid());
    QVERIFY(!description.semaphores.exists());
    QVERIFY(QDir().rmdir(description.segment.path()));
}

void tst_ProcessDataManagerFailures::smallSegmentIsRefused_data()
{
    QTest::addColumn<bool>("doubleBuffer");
    QTest::addColumn<int>("neededSize");

    QTest::newRow("single buffer") << false << 8;
    QTest::newRow("double buffer")
        << true << int(PingPongBufferHandler::getSizeManagementBuffer()) + 16;
}

void tst_ProcessDataManagerFailures::smallSegmentIsRefused()
{
    QFETCH(bool, doubleBuffer);
    QFETCH(int, neededSize);
    const OneNumber description(8, doubleBuffer);
    const QByteArray content(neededSize - 1, 'x');
    QVERIFY(description.segment.make(content));
    ProcessDataManager manager;
    LogCapture log;

    QVERIFY(!manager.createProcessData(description.parse(), attach));

    COMPARE_LOG(log,
                warning(QStringLiteral("Shared memory \"%1\" is too small: it has %2 bytes, the "
                                       "process description needs %3 . Start the creating process "
                                       "anew with the same description.")
                            .arg(description.key)
                            .arg(neededSize - 1)
                            .arg(neededSize)),
                noSharedMemory(), noProcessDataMemory());
    QVERIFY(!manager.isBufferValid());
    QVERIFY(!description.semaphores.exists());
    QCOMPARE(description.segment.content(), content);

    QVERIFY(description.segment.make(QByteArray(neededSize, '\0')));
    QVERIFY(manager.createProcessData(description.parse(), attach));
}

void tst_ProcessDataManagerFailures::smallSegmentMayBeReplacedByTheRightOne()
{
    const OneNumber description;
    QVERIFY(description.segment.make(QByteArray(3, 'x')));
    ProcessDataManager manager;
    const LogCapture log;
    QVERIFY(!manager.createProcessData(description.parse(), attach));

    QVERIFY(manager.createProcessData(description.parse(), create));

    QCOMPARE(description.segment.size(), qint64(8));
    QCOMPARE(description.segment.mappings().size(), 1);
}

void tst_ProcessDataManagerFailures::regionAboveTwoGigabytesIsRefused_data()
{
    QTest::addColumn<qint64>("size");

    // In 32 bits these come out above the largest int, as nothing, and as a small number.
    const qint64 management = PingPongBufferHandler::getSizeManagementBuffer();
    QTest::newRow("one byte above") << (2147483648 - management) / 2;
    QTest::newRow("wraps to nothing") << (4294967296 - management) / 2;
    QTest::newRow("largest") << qint64(2147483647);
}

void tst_ProcessDataManagerFailures::regionAboveTwoGigabytesIsRefused()
{
    QFETCH(qint64, size);
    const OneNumber description(size, true);
    ProcessDataManager manager;
    LogCapture log;
    const auto refusal = warning(
        QStringLiteral("Shared memory \"%1\" would be larger than 2147483647 bytes: reduce the "
                       "size in the process description.")
            .arg(description.key));

    QVERIFY(!manager.createProcessData(description.parse(), create));
    COMPARE_LOG(log, refusal, noSharedMemory(), noProcessDataMemory());
    QVERIFY(!manager.createProcessData(description.parse(), attach));
    COMPARE_LOG(log, refusal, noSharedMemory(), noProcessDataMemory());

    QVERIFY(!manager.isBufferValid());
    QVERIFY(!description.segment.exists());
}

void tst_ProcessDataManagerFailures::segmentAboveTwoGigabytesIsRefused()
{
    const OneNumber description;
    QVERIFY(description.segment.makeSparse((qint64(1) << 32) + 8));
    ProcessDataManager manager;
    LogCapture log;

    QVERIFY(!manager.createProcessData(description.parse(), attach));

    COMPARE_LOG(log,
                warning(QStringLiteral("Attach to shared memory( \"%1\" ) fails "
                                       "\"SharedMemory::attach: size is out of range: "
                                       "File too large\" , 27")
                            .arg(description.key)),
                noSharedMemory(), noProcessDataMemory());
}

void tst_ProcessDataManagerFailures::failureReleasesTheHandler()
{
    const OneNumber description;
    OneNumber other;
    other.key.clear();
    ProcessDataManager manager;
    const LogCapture log;
    QVERIFY(manager.createProcessData(description.parse(), create));
    QVERIFY(manager.isBufferValid());

    QVERIFY(!manager.createProcessData(other.parse(), create));

    QVERIFY(!manager.isBufferValid());
    QVERIFY(!description.semaphores.exists());
    // The segment belongs to the manager until its end.
    QVERIFY(description.segment.exists());
}

void tst_ProcessDataManagerFailures::secondCreationIsAsserted()
{
    const OneNumber description;
    ChildProcess child([&description](const ChildSide &) {
        const ResourceLimit noCoreFile(RLIMIT_CORE, 0);
        signal(SIGABRT, SIG_DFL);
        const LogCapture log;
        ProcessDataManager manager;
        CHILD_VERIFY(manager.createProcessData(description.parse(), create));
        manager.createProcessData(description.parse(), create);
        return 0;
    });

    QCOMPARE(child.waitForExit(), -SIGABRT);
}

QTEST_GUILESS_MAIN(tst_ProcessDataManagerFailures)

#include "tst_ProcessDataManagerFailures.moc"
