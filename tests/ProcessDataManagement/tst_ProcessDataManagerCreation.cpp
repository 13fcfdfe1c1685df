#include "Companion/PingPongBufferHandler.h"
#include "Configuration/ConfigurationAndProcessDataTreeNode.h"
#include "ProcessData/Linux/ProcessDataValue.h"
#include "ProcessDataManagement/ProcessDataManager.h"
#include "ProcessDataManagement/ProcessDescription.h"
#include "support/LogCapture.h"

#include <QtTest>

#include <memory>

using namespace ProcessDataDefinitions;

namespace {

const auto create = ProcessDataManager::InitTypeSharedMemoryCreate;
const auto attach = ProcessDataManager::InitTypeSharedMemoryAttach;

LogLine creationLine(const ProcessDescription &description)
{
    return debugLine(
        QStringLiteral("Create: Key for shared memory ( \"%1\" )!").arg(description.key));
}

LogLine attachmentLine(const ProcessDescription &description)
{
    return debugLine(
        QStringLiteral("Attach: Key for shared memory ( \"%1\" )!").arg(description.key));
}

/// One number `a`, and a read-only one `b`.
struct TwoNumbers : ProcessDescription
{
    explicit TwoNumbers(bool hasDoubleBuffer) : ProcessDescription(16, hasDoubleBuffer)
    {
        leaves.insert(QStringLiteral("a"), int32Slot(0));
        leaves.insert(QStringLiteral("b"), int32Slot(8, true));
    }
};

ProcessValue valueOf(const ProcessDescription::Root &root, const char *url)
{
    ProcessValue value(PROCESS_VALUE_ERROR_TYPE_VALID);
    root->getLeafProcessDataValue(QString::fromLatin1(url))->getValue(value);
    return value;
}

bool write(const ProcessDescription::Root &root, const char *url, int number)
{
    const ProcessValue value(QVariant(number), PROCESS_VALUE_ERROR_TYPE_VALID);
    return root->getLeafProcessDataValue(QString::fromLatin1(url))->setValue(value);
}

} // namespace

class tst_ProcessDataManagerCreation : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void creatorMakesSegmentAndSemaphores_data();
    void creatorMakesSegmentAndSemaphores();
    void creationIsOneDebugLine();
    void attachmentIsOneDebugLine();
    void rootComesBackBound();
    void leftOverSegmentIsReplaced();
    void largerSegmentIsAttached();

    void descriptionWithoutMemoryStaysUnbound_data();
    void descriptionWithoutMemoryStaysUnbound();
    void descriptionWithoutMemoryReleasesTheHandler();

    void processesExchangeValues_data();
    void processesExchangeValues();
    void attacherLeavesTheValues();
    void readOnlyLeafIsWritableByTheCreatorOnly();
    void leafOfAnotherClassIsPassedOver();
    void descriptionWithoutLeavesIsCreated();

    void creatorRemovesSegmentAndSemaphores();
    void attacherLeavesSegmentAndSemaphores();
    void attacherOutlivesTheCreator();
    void managerMayCreateAfterAFailedAttachment();
    void managerMayAttachAgain();
};

void tst_ProcessDataManagerCreation::creatorMakesSegmentAndSemaphores_data()
{
    QTest::addColumn<bool>("doubleBuffer");
    QTest::addColumn<qint64>("regionSize");

    QTest::newRow("single buffer") << false << qint64(16);
    QTest::newRow("double buffer")
        << true << qint64(PingPongBufferHandler::getSizeManagementBuffer()) + 32;
}

void tst_ProcessDataManagerCreation::creatorMakesSegmentAndSemaphores()
{
    QFETCH(bool, doubleBuffer);
    const TwoNumbers description(doubleBuffer);
    ProcessDataManager manager;
    const LogCapture log;

    QVERIFY(manager.createProcessData(description.parse(), create));

    QTEST(description.segment.size(), "regionSize");
    QCOMPARE(description.segment.mode(), 0666);
    QCOMPARE(description.semaphores.users(), 1);
    QVERIFY(manager.isBufferValid());
    QCOMPARE(manager.getSizeBuffer(), 16U);
}

void tst_ProcessDataManagerCreation::creationIsOneDebugLine()
{
    const TwoNumbers description(true);
    ProcessDataManager manager;
    LogCapture log;

    QVERIFY(manager.createProcessData(description.parse(), create));

    COMPARE_LOG(log, creationLine(description));
}

void tst_ProcessDataManagerCreation::attachmentIsOneDebugLine()
{
    const TwoNumbers description(true);
    ProcessDataManager creator;
    ProcessDataManager manager;
    LogCapture log;
    QVERIFY(creator.createProcessData(description.parse(), create));
    log.take();

    QVERIFY(manager.createProcessData(description.parse(), attach));

    COMPARE_LOG(log, attachmentLine(description));
    QCOMPARE(description.semaphores.users(), 2);
}

void tst_ProcessDataManagerCreation::rootComesBackBound()
{
    const TwoNumbers description(false);
    const auto root = description.parse();
    ProcessDataManager manager;
    LogCapture log;

    const auto result = manager.createProcessData(root, create);

    QCOMPARE(result, root);
    log.take();
    QVERIFY(write(root, "a", 5));
    QCOMPARE(valueOf(root, "a").getValue(), QVariant(5));
    COMPARE_LOG(log);
}

void tst_ProcessDataManagerCreation::leftOverSegmentIsReplaced()
{
    const TwoNumbers description(true);
    QVERIFY(description.segment.make(QByteArray(100000, 'x')));
    // Somebody still uses the old one.
    QFile former(description.segment.path());
    QVERIFY(former.open(QIODevice::ReadOnly));
    const quint64 formerInode = description.segment.inode();
    ProcessDataManager manager;
    LogCapture log;

    const auto root = manager.createProcessData(description.parse(), create);

    QVERIFY(root);
    COMPARE_LOG(log, creationLine(description));
    QVERIFY(description.segment.inode() != formerInode);
    const QByteArray region = description.segment.content();
    QCOMPARE(region.size(), int(PingPongBufferHandler::getSizeManagementBuffer()) + 32);
    // A single one may stand in the times and numbers of the block.
    QVERIFY(!region.contains(QByteArray(4, 'x')));
    QCOMPARE(valueOf(root, "a").getErrorType(), PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE);
    QCOMPARE(valueOf(root, "b").getErrorType(), PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE);
    QCOMPARE(former.readAll(), QByteArray(100000, 'x'));
}

void tst_ProcessDataManagerCreation::largerSegmentIsAttached()
{
    const TwoNumbers description(false);
    QVERIFY(description.segment.make(QByteArray(17, '\0')));
    ProcessDataManager manager;
    LogCapture log;

    const auto root = manager.createProcessData(description.parse(), attach);

    QVERIFY(root);
    COMPARE_LOG(log, attachmentLine(description));
    QCOMPARE(manager.getSizeBuffer(), 16U);
}

void tst_ProcessDataManagerCreation::descriptionWithoutMemoryStaysUnbound_data()
{
    QTest::addColumn<qint64>("size");

    QTest::newRow("no bytes") << qint64(0);
    QTest::newRow("negative") << qint64(-1);
}

void tst_ProcessDataManagerCreation::descriptionWithoutMemoryStaysUnbound()
{
    QFETCH(qint64, size);
    ProcessDescription description(size);
    description.leaves.insert(QStringLiteral("a"), int32Slot(0));
    const auto root = description.parse();
    ProcessDataManager manager;
    LogCapture log;

    QCOMPARE(manager.createProcessData(root, create), root);
    QCOMPARE(manager.createProcessData(root, attach), root);

    COMPARE_LOG(log);
    QVERIFY(!manager.isBufferValid());
    QVERIFY(!description.segment.exists());
    QVERIFY(!description.semaphores.exists());
    QVERIFY(!write(root, "a", 5));
    COMPARE_LOG(log, warning(QStringLiteral("No BufferHandlerInterface!")));
}

void tst_ProcessDataManagerCreation::descriptionWithoutMemoryReleasesTheHandler()
{
    const TwoNumbers description(false);
    const auto root = ProcessDescription(0).parse();
    root->removeProperties(
        {ProcessDescription::Definitions::getKeyDataPropertySizeOfSharedMemory()});
    ProcessDataManager manager;
    LogCapture log;
    QVERIFY(manager.createProcessData(description.parse(), create));
    log.take();

    QCOMPARE(manager.createProcessData(root, create), root);

    COMPARE_LOG(log);
    QVERIFY(!manager.isBufferValid());
    QVERIFY(!description.semaphores.exists());
}

void tst_ProcessDataManagerCreation::processesExchangeValues_data()
{
    QTest::addColumn<bool>("doubleBuffer");

    QTest::newRow("single buffer") << false;
    QTest::newRow("double buffer") << true;
}

void tst_ProcessDataManagerCreation::processesExchangeValues()
{
    QFETCH(bool, doubleBuffer);
    const TwoNumbers description(doubleBuffer);
    ProcessDataManager creator;
    ProcessDataManager attacher;
    LogCapture log;
    const auto created = creator.createProcessData(description.parse(), create);
    const auto attached = attacher.createProcessData(description.parse(), attach);
    QVERIFY(created && attached);

    QVERIFY(write(attached, "a", 41));
    QVERIFY(attacher.swapReadAndWriteBuffer());
    QVERIFY(write(created, "b", 42));
    QVERIFY(creator.swapReadAndWriteBuffer());

    for (const auto &root : {created, attached}) {
        QCOMPARE(valueOf(root, "a").getValue(), QVariant(41));
        QCOMPARE(valueOf(root, "b").getValue(), QVariant(42));
    }
}

void tst_ProcessDataManagerCreation::attacherLeavesTheValues()
{
    const TwoNumbers description(true);
    ProcessDataManager creator;
    ProcessDataManager attacher;
    const LogCapture log;
    const auto created = creator.createProcessData(description.parse(), create);
    QVERIFY(created && write(created, "a", 7));
    QVERIFY(creator.swapReadAndWriteBuffer());
    const QByteArray region = description.segment.content();

    QVERIFY(attacher.createProcessData(description.parse(), attach));

    QCOMPARE(description.segment.content(), region);
}

void tst_ProcessDataManagerCreation::readOnlyLeafIsWritableByTheCreatorOnly()
{
    const TwoNumbers description(false);
    ProcessDataManager creator;
    ProcessDataManager attacher;
    LogCapture log;
    const auto created = creator.createProcessData(description.parse(), create);
    const auto attached = attacher.createProcessData(description.parse(), attach);
    QVERIFY(created && attached);
    log.take();

    QVERIFY(write(created, "b", 1));
    COMPARE_LOG(log);
    QVERIFY(!write(attached, "b", 2));
    QVERIFY(log.take().first().text.startsWith(
        QLatin1String("ProcessValue hasn't written because it is readOnly.")));

    QCOMPARE(valueOf(attached, "b").getValue(), QVariant(1));
    QVERIFY(write(attached, "a", 3));
}

void tst_ProcessDataManagerCreation::leafOfAnotherClassIsPassedOver()
{
    ProcessDescription description(16);
    description.leaves.insert(QStringLiteral("z"), int32Slot(0));
    const auto root = description.parse();
    QJsonObject json = int32Slot(8).toJson();
    json.insert(ProcessDescription::Definitions::getKeyDataPropertyDisplayPosition(), 0);
    const auto configuration = ConfigurationAndProcessDataParser().createNode(
        json, PropertyManagerConst::getConfigFileExtension());
    root.dynamicCast<ConfigurationAndProcessDataTreeNode>()->addElement(QStringLiteral("a"),
                                                                        configuration);
    ProcessDataManager manager;
    LogCapture log;

    QCOMPARE(manager.createProcessData(root, create), root);

    COMPARE_LOG(log, creationLine(description),
                warning(QStringLiteral("Cannot cast to process element.")),
                warning(QStringLiteral("Nullpointer access. Can't cast BaseClassSharedPointer to "
                                       "ProcessDataValueSharedPointer")));
    QCOMPARE(valueOf(root, "z").getErrorType(), PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE);
    QVERIFY(write(root, "z", 5));
}

void tst_ProcessDataManagerCreation::descriptionWithoutLeavesIsCreated()
{
    const ProcessDescription description(16, true);
    const auto root = description.parse();
    ProcessDataManager manager;
    LogCapture log;

    QCOMPARE(manager.createProcessData(root, create), root);

    COMPARE_LOG(log, creationLine(description), warning(QStringLiteral("Node has no childs!")),
                warning(QStringLiteral("Node has no childs!")));
    QVERIFY(manager.isBufferValid());
}

void tst_ProcessDataManagerCreation::creatorRemovesSegmentAndSemaphores()
{
    const TwoNumbers description(true);
    auto manager = std::make_unique<ProcessDataManager>();
    LogCapture log;
    QVERIFY(manager->createProcessData(description.parse(), create));
    log.take();

    manager.reset();

    QVERIFY(!description.segment.exists());
    QVERIFY(!description.semaphores.exists());
    QCOMPARE(description.segment.mappings(), QList<QByteArray>());
    COMPARE_LOG(log);
}

void tst_ProcessDataManagerCreation::attacherLeavesSegmentAndSemaphores()
{
    const TwoNumbers description(true);
    ProcessDataManager creator;
    auto attacher = std::make_unique<ProcessDataManager>();
    const LogCapture log;
    QVERIFY(creator.createProcessData(description.parse(), create));
    QVERIFY(attacher->createProcessData(description.parse(), attach));

    attacher.reset();

    QVERIFY(description.segment.exists());
    QCOMPARE(description.semaphores.users(), 1);
}

void tst_ProcessDataManagerCreation::attacherOutlivesTheCreator()
{
    const TwoNumbers description(true);
    auto creator = std::make_unique<ProcessDataManager>();
    ProcessDataManager attacher;
    LogCapture log;
    QVERIFY(creator->createProcessData(description.parse(), create));
    const auto root = attacher.createProcessData(description.parse(), attach);
    QVERIFY(root);
    log.take();

    creator.reset();

    QVERIFY(!description.segment.exists());
    QVERIFY(write(root, "a", 9));
    QVERIFY(attacher.swapReadAndWriteBuffer());
    QCOMPARE(valueOf(root, "a").getValue(), QVariant(9));
    COMPARE_LOG(log);
}

void tst_ProcessDataManagerCreation::managerMayCreateAfterAFailedAttachment()
{
    const TwoNumbers description(true);
    ProcessDataManager manager;
    LogCapture log;
    QVERIFY(!manager.createProcessData(description.parse(), attach));
    log.take();

    QVERIFY(manager.createProcessData(description.parse(), create));

    COMPARE_LOG(log, creationLine(description));
    QVERIFY(manager.isBufferValid());
}

void tst_ProcessDataManagerCreation::managerMayAttachAgain()
{
    const TwoNumbers description(true);
    ProcessDataManager creator;
    ProcessDataManager manager;
    const LogCapture log;
    QVERIFY(creator.createProcessData(description.parse(), create));
    QVERIFY(manager.createProcessData(description.parse(), attach));
    QVERIFY(creator.swapReadAndWriteBuffer());

    const auto root = manager.createProcessData(description.parse(), attach);

    QVERIFY(root);
    QVERIFY(write(root, "a", 12));
    QCOMPARE(description.semaphores.users(), 2);
    // One of the creator and one of the manager.
    QCOMPARE(description.segment.mappings().size(), 2);
}

QTEST_GUILESS_MAIN(tst_ProcessDataManagerCreation)

#include "tst_ProcessDataManagerCreation.moc"
