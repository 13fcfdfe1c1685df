#include "ProcessData/Linux/ProcessDataValue.h"
#include "support/FakeBufferHandler.h"
#include "support/LogCapture.h"
#include "support/SlotDescription.h"

using namespace ProcessDataDefinitions;

namespace {

const quint32 bufferSize = 64;

SlotDescription int32At(quint32 offset)
{
    return {QStringLiteral("int32"), offset, 4};
}

} // namespace

class tst_ProcessDataValueValidity : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void endOfMemoryCountsOffsetAndMetadata_data();
    void endOfMemoryCountsOffsetAndMetadata();
    void endOfMemoryLeavesTheValueOut();
    void endOfMemoryLeavesTheRelativeOffsetOut();
    void endOfMemoryIsComputedIn32Bits();
    void unknownDataTypeIsReportedAtBinding_data();
    void unknownDataTypeIsReportedAtBinding();
    void textOfAnySizeIsValid_data();
    void textOfAnySizeIsValid();
    void wrongSizeOfDataTypeIsReported_data();
    void wrongSizeOfDataTypeIsReported();
    void bitsOfAnySizeAreValid_data();
    void bitsOfAnySizeAreValid();
    void onlyTheFirstFailureIsReported();
    void dataTypeSizes_data();
    void dataTypeSizes();
};

void tst_ProcessDataValueValidity::endOfMemoryCountsOffsetAndMetadata_data()
{
    QTest::addColumn<quint32>("offset");
    QTest::addColumn<quint32>("sizeMetadata");
    QTest::addColumn<bool>("isValid");

    QTest::newRow("metadata up to the end") << 60U << 4U << true;
    QTest::newRow("metadata one byte more") << 61U << 4U << false;
    QTest::newRow("metadata of another size up to the end") << 56U << 8U << true;
    QTest::newRow("metadata of another size one byte more") << 57U << 8U << false;
    QTest::newRow("offset at the end") << 64U << 0U << true;
    QTest::newRow("offset behind the end") << 65U << 0U << false;
}

void tst_ProcessDataValueValidity::endOfMemoryCountsOffsetAndMetadata()
{
    QFETCH(quint32, offset);
    QFETCH(quint32, sizeMetadata);
    QFETCH(bool, isValid);
    SlotDescription description = int32At(offset);
    description.sizeMetadata = sizeMetadata;
    ProcessDataValue element(description.toJson(), nullptr);
    FakeBufferHandler handler(bufferSize);
    LogCapture log;

    element.setBufferHandlerInterface(&handler, true);

    QList<LogLine> expected;
    if (!isValid) {
        expected.append(
            warning(QStringLiteral("End of memory reached %1 %2").arg(offset).arg(sizeMetadata)));
    }
    QCOMPARE(log.take(), expected);
    QCOMPARE(element.isObjectValid(), isValid);
    QCOMPARE(log.take(), expected);
}

void tst_ProcessDataValueValidity::endOfMemoryLeavesTheValueOut()
{
    ProcessDataValue element(SlotDescription{QStringLiteral("double"), 60, 8}.toJson(), nullptr);
    FakeBufferHandler handler(bufferSize);
    LogCapture log;

    element.setBufferHandlerInterface(&handler, true);

    QCOMPARE(element.isObjectValid(), true);
    COMPARE_LOG(log);
}

void tst_ProcessDataValueValidity::endOfMemoryLeavesTheRelativeOffsetOut()
{
    const SlotDescription description{QStringLiteral("int32"), 0, 4, 4, 1000};
    ProcessDataValue element(description.toJson(), nullptr);
    FakeBufferHandler handler(bufferSize);
    LogCapture log;

    element.setBufferHandlerInterface(&handler, true);

    QCOMPARE(element.isObjectValid(), true);
    COMPARE_LOG(log);
}

void tst_ProcessDataValueValidity::endOfMemoryIsComputedIn32Bits()
{
    const SlotDescription description{QStringLiteral("int32"), 0xFFFFFFFEU, 4, 4, 4};
    ProcessDataValue element(description.toJson(), nullptr);
    FakeBufferHandler handler(bufferSize);
    LogCapture log;

    element.setBufferHandlerInterface(&handler, true);

    QCOMPARE(element.isObjectValid(), true);
    COMPARE_LOG(log);
}

void tst_ProcessDataValueValidity::unknownDataTypeIsReportedAtBinding_data()
{
    QTest::addColumn<QString>("type");

    QTest::newRow("no name") << QString();
    QTest::newRow("unknown name") << QStringLiteral("nonsense");
    QTest::newRow("other case") << QStringLiteral("Int32");
    QTest::newRow("array") << ConfigurationAndProcessDataDefinitions::getKeyDataTypeArray();
    QTest::newRow("tree node") << ConfigurationAndProcessDataDefinitions::getKeyDataTypeTreeNode();
}

void tst_ProcessDataValueValidity::unknownDataTypeIsReportedAtBinding()
{
    QFETCH(QString, type);
    const SlotDescription description{type, 0, 4};
    ProcessDataValue element(description.toJson(), nullptr);
    FakeBufferHandler handler(bufferSize);
    LogCapture log;

    element.setBufferHandlerInterface(&handler, true);

    COMPARE_LOG(log, warning(QStringLiteral("Data type not OK  \"%1\"").arg(type)));
    QCOMPARE(element.setValue({1, PROCESS_VALUE_ERROR_TYPE_VALID}), false);
    COMPARE_LOG(log, warning(QStringLiteral("Object is not valid")));
}

void tst_ProcessDataValueValidity::textOfAnySizeIsValid_data()
{
    QTest::addColumn<quint32>("sizeValue");

    QTest::newRow("none") << 0U;
    QTest::newRow("one") << 1U;
    QTest::newRow("some") << 40U;
    QTest::newRow("more than the buffer") << 4000U;
}

void tst_ProcessDataValueValidity::textOfAnySizeIsValid()
{
    QFETCH(quint32, sizeValue);
    const SlotDescription description{QStringLiteral("string"), 0, sizeValue};
    ProcessDataValue element(description.toJson(), nullptr);
    FakeBufferHandler handler(bufferSize);
    LogCapture log;

    element.setBufferHandlerInterface(&handler, true);

    QCOMPARE(element.isObjectValid(), true);
    COMPARE_LOG(log);
}

void tst_ProcessDataValueValidity::wrongSizeOfDataTypeIsReported_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<quint32>("sizeValue");
    QTest::addColumn<int>("expectedSize");

    QTest::newRow("double in 4 bytes") << QStringLiteral("double") << 4U << 8;
    QTest::newRow("boolean in 4 bytes") << QStringLiteral("boolean") << 4U << 1;
    QTest::newRow("int16 in 1 byte") << QStringLiteral("int16") << 1U << 2;
    QTest::newRow("uint32 in 2 bytes") << QStringLiteral("uint32") << 2U << 4;
    QTest::newRow("float without size") << QStringLiteral("float") << 0U << 4;
    QTest::newRow("int64 in too many bytes") << QStringLiteral("int64") << 0xFFFFFFFFU << 8;
}

void tst_ProcessDataValueValidity::wrongSizeOfDataTypeIsReported()
{
    QFETCH(QString, type);
    QFETCH(quint32, sizeValue);
    QFETCH(int, expectedSize);
    const SlotDescription description{type, 0, sizeValue};
    ProcessDataValue element(description.toJson(), nullptr);
    FakeBufferHandler handler(bufferSize);
    LogCapture log;

    element.setBufferHandlerInterface(&handler, true);

    COMPARE_LOG(log, warning(QStringLiteral("Wrong size of data type in Json:  %1  !=  %2 \"%3\"")
                                 .arg(sizeValue)
                                 .arg(expectedSize)
                                 .arg(type)));
    QCOMPARE(element.setValue({1, PROCESS_VALUE_ERROR_TYPE_VALID}), false);
    COMPARE_LOG(log, warning(QStringLiteral("Object is not valid")));
}

void tst_ProcessDataValueValidity::bitsOfAnySizeAreValid_data()
{
    QTest::addColumn<quint32>("sizeValue");

    QTest::newRow("none") << 0U;
    QTest::newRow("one") << 1U;
    QTest::newRow("four") << 4U;
}

void tst_ProcessDataValueValidity::bitsOfAnySizeAreValid()
{
    QFETCH(quint32, sizeValue);
    const SlotDescription description{QStringLiteral("bit"), 0, sizeValue};
    ProcessDataValue element(description.toJson(), nullptr);
    FakeBufferHandler handler(bufferSize);
    LogCapture log;

    element.setBufferHandlerInterface(&handler, true);

    QCOMPARE(element.isObjectValid(), true);
    COMPARE_LOG(log);
}

void tst_ProcessDataValueValidity::onlyTheFirstFailureIsReported()
{
    FakeBufferHandler handler(bufferSize);
    ProcessDataValue outside(SlotDescription{QStringLiteral("nonsense"), 65, 3}.toJson(), nullptr);
    ProcessDataValue unknown(SlotDescription{QStringLiteral("nonsense"), 64, 3}.toJson(), nullptr);
    LogCapture log;

    outside.setBufferHandlerInterface(&handler, true);
    COMPARE_LOG(log, warning(QStringLiteral("End of memory reached 65 0")));

    unknown.setBufferHandlerInterface(&handler, true);
    COMPARE_LOG(log, warning(QStringLiteral("Data type not OK  \"nonsense\"")));
}

void tst_ProcessDataValueValidity::dataTypeSizes_data()
{
    QTest::addColumn<int>("size");

    QTest::newRow("boolean") << 1;
    QTest::newRow("int8") << 1;
    QTest::newRow("uint8") << 1;
    QTest::newRow("int16") << 2;
    QTest::newRow("uint16") << 2;
    QTest::newRow("int32") << 4;
    QTest::newRow("uint32") << 4;
    QTest::newRow("int64") << 8;
    QTest::newRow("uint64") << 8;
    QTest::newRow("float") << 4;
    QTest::newRow("double") << 8;
    QTest::newRow("string") << 0;
    QTest::newRow("nonsense") << 0;
    QTest::newRow("") << 0;
}

void tst_ProcessDataValueValidity::dataTypeSizes()
{
    QFETCH(int, size);
    const ProcessDataValue element(int32At(0).toJson(), nullptr);
    LogCapture log;

    QCOMPARE(element.getDataTypeSize(QLatin1String(QTest::currentDataTag())), size);

    COMPARE_LOG(log);
}

QTEST_GUILESS_MAIN(tst_ProcessDataValueValidity)
#include "tst_ProcessDataValueValidity.moc"
