#include "Companion/PingPongBufferHandler.h"
#include "ProcessData/Linux/ProcessDataValue.h"
#include "ProcessDataManagement/ManagedHandler.h"
#include "ProcessDataManagement/ProcessDescription.h"
#include "support/LogCapture.h"

#include <QtTest>

using namespace ProcessDataDefinitions;

namespace {

const auto create = ProcessDataManager::InitTypeSharedMemoryCreate;
const auto attach = ProcessDataManager::InitTypeSharedMemoryAttach;

LogLine creationLine(const ProcessDescription &description)
{
    return debugLine(
        QStringLiteral("Create: Key for shared memory ( \"%1\" )!").arg(description.key));
}

/// A leaf of the type at the start of the buffer.
SlotDescription slotOf(const QString &type, quint32 sizeValue, bool hasMetadata)
{
    SlotDescription slot;
    slot.type = type;
    slot.sizeValue = sizeValue;
    slot.sizeMetadata = hasMetadata ? 4 : 0;
    slot.relativeOffsetMetadata = hasMetadata ? sizeValue : 0;
    slot.bitmask = type == QLatin1String("bit") ? 0x10 : 0;
    return slot;
}

/// Two numbers, one behind the other.
struct TwoNumbers : ProcessDescription
{
    TwoNumbers() : ProcessDescription(16)
    {
        leaves.insert(QStringLiteral("a"), int32Slot(0));
        leaves.insert(QStringLiteral("b"), int32Slot(8));
    }
};

} // namespace

class tst_ProcessDataManagerFilling : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void everyLeafBeginsWithoutValidInput_data();
    void everyLeafBeginsWithoutValidInput();
    void stateOfASlotWithoutMetadataLiesInTheNumber_data();
    void stateOfASlotWithoutMetadataLiesInTheNumber();
    void readersSeeTheFilledBufferAndTheOtherStaysZero();
    void valuesOfTheDescriptionStayOutOfTheMemory();
    void invalidLeafIsSkipped();
    void leavesAreBoundByDisplayPosition();

    void fillIsOneWriteLockAndASwap();
    void attachingFillsNothing();
    void refusedLockStopsTheFill();
    void fillGoesOnWithoutTheLockOfTheHandler();
    void failedSwapIsReported();
    void bindingNeedsOneProcessLeaf();
};

void tst_ProcessDataManagerFilling::everyLeafBeginsWithoutValidInput_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<quint32>("size");

    QTest::newRow("boolean") << QStringLiteral("boolean") << 1U;
    QTest::newRow("bit") << QStringLiteral("bit") << 1U;
    QTest::newRow("int8") << QStringLiteral("int8") << 1U;
    QTest::newRow("int16") << QStringLiteral("int16") << 2U;
    QTest::newRow("int32") << QStringLiteral("int32") << 4U;
    QTest::newRow("int64") << QStringLiteral("int64") << 8U;
    QTest::newRow("uint8") << QStringLiteral("uint8") << 1U;
    QTest::newRow("uint16") << QStringLiteral("uint16") << 2U;
    QTest::newRow("uint32") << QStringLiteral("uint32") << 4U;
    QTest::newRow("uint64") << QStringLiteral("uint64") << 8U;
    QTest::newRow("float") << QStringLiteral("float") << 4U;
    QTest::newRow("double") << QStringLiteral("double") << 8U;
    QTest::newRow("string") << QStringLiteral("string") << 20U;
}

void tst_ProcessDataManagerFilling::everyLeafBeginsWithoutValidInput()
{
    QFETCH(QString, type);
    QFETCH(quint32, size);
    ProcessDescription description(size + 4, true);
    description.leaves.insert(QStringLiteral("leaf"), slotOf(type, size, true));
    ProcessDataManager manager;
    LogCapture log;

    const auto root = manager.createProcessData(description.parse(), create);

    QVERIFY(root);
    COMPARE_LOG(log, creationLine(description));
    ProcessValue value(QVariant(1), PROCESS_VALUE_ERROR_TYPE_VALID);
    root->getLeafProcessDataValue(QStringLiteral("leaf"))->getValue(value, false);
    QCOMPARE(value.getErrorType(), PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE);
    QVERIFY(!value.getValue().isValid());
    QVERIFY(manager.lockReadBuffer());
    const QByteArray slot(reinterpret_cast<const char *>(manager.getPointerReadBuffer()),
                          static_cast<int>(size + 4));
    bool repeat = false;
    QVERIFY(manager.unlockReadBuffer(repeat));
    QCOMPARE(slot, QByteArray(static_cast<int>(size), '\0') + QByteArray("\3\0\0\0", 4));
    COMPARE_LOG(log);
}

void tst_ProcessDataManagerFilling::stateOfASlotWithoutMetadataLiesInTheNumber_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<quint32>("size");
    QTest::addColumn<QByteArray>("slot");

    // As they lie in memory, low byte first.
    QTest::newRow("float") << QStringLiteral("float") << 4U << QByteArrayLiteral("528eb47d");
    QTest::newRow("double") << QStringLiteral("double") << 8U
                            << QByteArrayLiteral("030000000000f87f");
    QTest::newRow("int32") << QStringLiteral("int32") << 4U << QByteArrayLiteral("00000000");
}

void tst_ProcessDataManagerFilling::stateOfASlotWithoutMetadataLiesInTheNumber()
{
    QFETCH(QString, type);
    QFETCH(quint32, size);
    ProcessDescription description(size);
    description.leaves.insert(QStringLiteral("leaf"), slotOf(type, size, false));
    ProcessDataManager manager;
    const LogCapture log;

    QVERIFY(manager.createProcessData(description.parse(), create));

    QTEST(description.segment.content().toHex(), "slot");
}

void tst_ProcessDataManagerFilling::readersSeeTheFilledBufferAndTheOtherStaysZero()
{
    TwoNumbers description;
    description.doubleBuffer = true;
    ProcessDataManager manager;
    const LogCapture log;

    QVERIFY(manager.createProcessData(description.parse(), create));

    const int management = static_cast<int>(PingPongBufferHandler::getSizeManagementBuffer());
    const QByteArray region = description.segment.content();
    QCOMPARE(region.mid(management, 16), QByteArray(16, '\0'));
    QCOMPARE(region.mid(management + 16).toHex(),
             QByteArrayLiteral("00000000030000000000000003000000"));
}

void tst_ProcessDataManagerFilling::valuesOfTheDescriptionStayOutOfTheMemory()
{
    const TwoNumbers description;
    QJsonObject json = description.toJson();
    const QString valueKey = ProcessDescription::Definitions::getKeyDataPropertyValue();
    QJsonObject children = json.value(valueKey).toObject();
    QJsonObject leaf = children.value(QStringLiteral("a")).toObject();
    leaf.insert(valueKey, 17);
    children.insert(QStringLiteral("a"), leaf);
    json.insert(valueKey, children);
    ProcessDataManager manager;
    const LogCapture log;

    const auto root = manager.createProcessDataFromJson(
        QJsonDocument(json).toJson(),
        PropertyManagerConst::getProcessDataDescriptionFileExtension(), create);

    QVERIFY(root);
    QCOMPARE(root->getLeaf(QStringLiteral("a"))->getProperty(valueKey), QVariant(17));
    QCOMPARE(description.segment.content().toHex(),
             QByteArrayLiteral("00000000030000000000000003000000"));
}

void tst_ProcessDataManagerFilling::invalidLeafIsSkipped()
{
    TwoNumbers description;
    description.leaves[QStringLiteral("a")].type = QStringLiteral("int33");
    ProcessDataManager manager;
    LogCapture log;

    const auto root = manager.createProcessData(description.parse(), create);

    QVERIFY(root);
    COMPARE_LOG(log, creationLine(description),
                warning(QStringLiteral("Data type not OK  \"int33\"")),
                warning(QStringLiteral("Object is not valid.")),
                warning(QStringLiteral("Object is not valid")));
    QCOMPARE(description.segment.content().toHex(),
             QByteArrayLiteral("00000000000000000000000003000000"));
}

void tst_ProcessDataManagerFilling::leavesAreBoundByDisplayPosition()
{
    ProcessDescription description(8);
    QList<LogLine> expected{creationLine(description)};
    // Positions follow the names.
    for (int i = 10; i < 30; ++i) {
        const QString type = QStringLiteral("unknown%1").arg(i);
        description.leaves.insert(type, slotOf(type, 4, false));
        expected.append(warning(QStringLiteral("Data type not OK  \"%1\"").arg(type)));
    }
    ProcessDataManager manager;
    LogCapture log;

    QVERIFY(manager.createProcessData(description.parse(), create));

    QCOMPARE(log.take().mid(0, expected.size()), expected);
}

void tst_ProcessDataManagerFilling::fillIsOneWriteLockAndASwap()
{
    ManagedHandler managed;
    const auto root = TwoNumbers().parse();
    LogCapture log;
    QVERIFY(managed.internals.setPointerToBufferHandler(root, create));

    managed.internals.initSharedMemoryValues(root, create);

    const QStringList leaf{QStringLiteral("readBufferPointer"),
                           QStringLiteral("writeBufferPointer")};
    QCOMPARE(managed.handler->takeCalls(),
             QStringList(QStringLiteral("lockForWrite")) + leaf + leaf
                 + QStringList({QStringLiteral("unlockForWrite of write buffer"),
                                QStringLiteral("swapBuffers")}));
    QCOMPARE(managed.handler->readContent().toHex(),
             QByteArrayLiteral("00000000030000000000000003000000"));
    QVERIFY(managed.manager.getPointerWriteBuffer() == nullptr);
    QVERIFY(!managed.internals.isMutexHeld());
    COMPARE_LOG(log);
}

void tst_ProcessDataManagerFilling::attachingFillsNothing()
{
    ManagedHandler managed;
    const auto root = TwoNumbers().parse();
    LogCapture log;
    QVERIFY(managed.internals.setPointerToBufferHandler(root, attach));

    managed.internals.initSharedMemoryValues(root, attach);

    QCOMPARE(managed.handler->takeCalls(), QStringList());
    COMPARE_LOG(log);
}

void tst_ProcessDataManagerFilling::refusedLockStopsTheFill()
{
    ManagedHandler managed;
    const auto root = TwoNumbers().parse();
    LogCapture log;
    QVERIFY(managed.internals.setPointerToBufferHandler(root, create));
    QVERIFY(managed.manager.lockWriteBuffer());
    managed.handler->takeCalls();

    managed.internals.initSharedMemoryValues(root, create);

    COMPARE_LOG(
        log, warning(QStringLiteral("Buffer is already locked.")),
        warning(QStringLiteral("Can't initialisize shared memory (can't lock sharedMemory)")));
    QCOMPARE(managed.handler->takeCalls(), QStringList());
    // The lock of before stands, and its one unlock frees the mutex.
    QVERIFY(managed.internals.isMutexHeld());
    QVERIFY(managed.manager.unlockWriteBuffer());
    QVERIFY(!managed.internals.isMutexHeld());
}

void tst_ProcessDataManagerFilling::fillGoesOnWithoutTheLockOfTheHandler()
{
    ManagedHandler managed;
    managed.handler->writeLockFails = true;
    const auto root = TwoNumbers().parse();
    LogCapture log;
    QVERIFY(managed.internals.setPointerToBufferHandler(root, create));

    managed.internals.initSharedMemoryValues(root, create);

    COMPARE_LOG(log, warning(QStringLiteral("Can't unlock sharedMemroy after initialisation")));
    QCOMPARE(managed.handler->readContent().toHex(),
             QByteArrayLiteral("00000000030000000000000003000000"));
    QVERIFY(!managed.internals.isMutexHeld());
}

void tst_ProcessDataManagerFilling::failedSwapIsReported()
{
    ManagedHandler managed;
    managed.handler->swapFails = true;
    const auto root = TwoNumbers().parse();
    LogCapture log;
    QVERIFY(managed.internals.setPointerToBufferHandler(root, create));

    managed.internals.initSharedMemoryValues(root, create);

    COMPARE_LOG(log, warning(QStringLiteral("Can't swap sharedMemory after initialisation")));
}

void tst_ProcessDataManagerFilling::bindingNeedsOneProcessLeaf()
{
    ManagedHandler managed;
    LogCapture log;
    const auto processRoot = TwoNumbers().parse();
    const auto configurationRoot = ConfigurationAndProcessDataParser().createNode(
        TwoNumbers().toJson(), PropertyManagerConst::getConfigFileExtension());

    QVERIFY(managed.internals.setPointerToBufferHandler(processRoot, attach));
    COMPARE_LOG(log);
    QVERIFY(!managed.internals.setPointerToBufferHandler(configurationRoot, attach));
    COMPARE_LOG(log, warning(QStringLiteral("Cannot cast to process element.")),
                warning(QStringLiteral("Cannot cast to process element.")));
}

QTEST_GUILESS_MAIN(tst_ProcessDataManagerFilling)

#include "tst_ProcessDataManagerFilling.moc"
