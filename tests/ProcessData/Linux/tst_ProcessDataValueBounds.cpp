#include "ProcessData/Linux/ProcessDataValue.h"
#include "support/FakeBufferHandler.h"
#include "support/LogCapture.h"
#include "support/SlotDescription.h"

using namespace ProcessDataDefinitions;

namespace {

const quint32 bufferSize = 64;

/// A valid leaf on a buffer that its readers and writers share.
struct BoundLeaf
{
    explicit BoundLeaf(const SlotDescription &description) : element(description.toJson(), nullptr)
    {
        handler.useSingleBuffer();
        element.setBufferHandlerInterface(&handler, false);
    }

    bool isUntouched()
    {
        return handler.readContent() == QByteArray(bufferSize, '\0') && handler.areGuardsIntact();
    }

    FakeBufferHandler handler{bufferSize};
    ProcessDataValue element;
};

QString valueMessage(const QString &type, quint64 offset, quint64 size)
{
    return QStringLiteral("Value lies outside the buffer: \"%1\" at offset %2 with %3 bytes, "
                          "buffer size 64")
        .arg(type)
        .arg(offset)
        .arg(size);
}

QString metadataMessage(const QString &type, quint64 offset)
{
    return QStringLiteral("Metadata lies outside the buffer: \"%1\" at offset %2 with 4 bytes, "
                          "buffer size 64")
        .arg(type)
        .arg(offset);
}

} // namespace

/// What the check at binding lets through must not reach memory outside the buffer.
class tst_ProcessDataValueBounds : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void lastPlaceInTheBufferIsUsed_data();
    void lastPlaceInTheBufferIsUsed();
    void oneByteBehindIsRefused_data();
    void oneByteBehindIsRefused();
    void metadataMayEndWithTheBuffer();
    void metadataOutsideIsRefused_data();
    void metadataOutsideIsRefused();
    void relativeOffsetWithoutMetadataIsOfNoMatter();
    void wrappedOffsetIsRefused();
    void refusedAccessReturnsItsLock();
    void refusedReadMayBeRepeated();
    void textIsWrittenAsFarAsItReaches();
    void textThatReachesOutsideIsRefused();
    void textTooLongForASlotThatEndsInsideIsRefusedAsSuch();
    void emptyTextSlotAtTheEndIsOnlyTooSmall();
    void bindingAgainMovesTheBounds();
};

void tst_ProcessDataValueBounds::lastPlaceInTheBufferIsUsed_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<quint32>("sizeValue");
    QTest::addColumn<quint32>("touched");

    QTest::newRow("boolean") << QStringLiteral("boolean") << 1U << 1U;
    QTest::newRow("bit") << QStringLiteral("bit") << 1U << 1U;
    QTest::newRow("bit with a larger size") << QStringLiteral("bit") << 4U << 1U;
    QTest::newRow("bit without size") << QStringLiteral("bit") << 0U << 1U;
    QTest::newRow("int8") << QStringLiteral("int8") << 1U << 1U;
    QTest::newRow("uint8") << QStringLiteral("uint8") << 1U << 1U;
    QTest::newRow("int16") << QStringLiteral("int16") << 2U << 2U;
    QTest::newRow("uint16") << QStringLiteral("uint16") << 2U << 2U;
    QTest::newRow("int32") << QStringLiteral("int32") << 4U << 4U;
    QTest::newRow("uint32") << QStringLiteral("uint32") << 4U << 4U;
    QTest::newRow("int64") << QStringLiteral("int64") << 8U << 8U;
    QTest::newRow("uint64") << QStringLiteral("uint64") << 8U << 8U;
    QTest::newRow("float") << QStringLiteral("float") << 4U << 4U;
    QTest::newRow("double") << QStringLiteral("double") << 8U << 8U;
    QTest::newRow("string") << QStringLiteral("string") << 4U << 4U;
}

void tst_ProcessDataValueBounds::lastPlaceInTheBufferIsUsed()
{
    QFETCH(QString, type);
    QFETCH(quint32, sizeValue);
    QFETCH(quint32, touched);
    BoundLeaf leaf({type, bufferSize - touched, sizeValue, 0, 0, 0xFF});
    ProcessValue value(PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
    LogCapture log;

    QCOMPARE(leaf.element.setValue({1, PROCESS_VALUE_ERROR_TYPE_VALID}), true);
    leaf.element.getValue(value);

    QCOMPARE(value.getErrorType(), PROCESS_VALUE_ERROR_TYPE_VALID);
    QCOMPARE(value.getValue().toInt(), 1);
    QVERIFY(leaf.handler.areGuardsIntact());
    COMPARE_LOG(log);
}

void tst_ProcessDataValueBounds::oneByteBehindIsRefused_data()
{
    lastPlaceInTheBufferIsUsed_data();
}

void tst_ProcessDataValueBounds::oneByteBehindIsRefused()
{
    QFETCH(QString, type);
    QFETCH(quint32, sizeValue);
    QFETCH(quint32, touched);
    const quint32 offset = bufferSize - touched + 1;
    BoundLeaf leaf({type, offset, sizeValue, 0, 0, 0xFF});
    ProcessValue value(7, PROCESS_VALUE_ERROR_TYPE_OVERRANGE);
    const LogLine message = warning(valueMessage(type, offset, touched));
    LogCapture log;

    leaf.element.getValue(value, false);
    leaf.element.getValueNoLock(value, false);
    COMPARE_LOG(log, message, message);
    QCOMPARE(value.getValue(), QVariant(7));
    QCOMPARE(value.getErrorType(), PROCESS_VALUE_ERROR_TYPE_OVERRANGE);

    QCOMPARE(leaf.element.setValue({1, PROCESS_VALUE_ERROR_TYPE_VALID}), false);
    QCOMPARE(leaf.element.setValueNoLock({1, PROCESS_VALUE_ERROR_TYPE_VALID}), false);
    COMPARE_LOG(log, message, message);
    QVERIFY(leaf.isUntouched());
}

void tst_ProcessDataValueBounds::metadataMayEndWithTheBuffer()
{
    BoundLeaf leaf({QStringLiteral("int32"), 0, 4, 4, 60});
    LogCapture log;

    QCOMPARE(leaf.element.setValue(PROCESS_VALUE_ERROR_TYPE_TIMEOUT), true);

    QCOMPARE(leaf.handler.readContent().mid(60).count('\0'), 3);
    QVERIFY(leaf.handler.areGuardsIntact());
    COMPARE_LOG(log);
}

void tst_ProcessDataValueBounds::metadataOutsideIsRefused_data()
{
    QTest::addColumn<quint32>("offset");
    QTest::addColumn<quint32>("sizeMetadata");
    QTest::addColumn<quint32>("relativeOffset");

    QTest::newRow("one byte behind") << 8U << 4U << 53U;
    QTest::newRow("far behind") << 8U << 4U << 0xFFFFFF00U;
    QTest::newRow("sum back inside in 32 bits") << 8U << 4U << 0xFFFFFFFCU;
    QTest::newRow("smaller than its word") << 8U << 1U << 55U;
}

void tst_ProcessDataValueBounds::metadataOutsideIsRefused()
{
    QFETCH(quint32, offset);
    QFETCH(quint32, sizeMetadata);
    QFETCH(quint32, relativeOffset);
    const QString type = QStringLiteral("float");
    BoundLeaf leaf({type, offset, 4, sizeMetadata, relativeOffset});
    ProcessValue value(7, PROCESS_VALUE_ERROR_TYPE_OVERRANGE);
    const LogLine message = warning(
        metadataMessage(type, quint64{offset} + quint64{relativeOffset}));
    LogCapture log;

    leaf.element.getValue(value, false);
    COMPARE_LOG(log, message);
    QCOMPARE(value.getValue(), QVariant(7));
    QCOMPARE(value.getErrorType(), PROCESS_VALUE_ERROR_TYPE_OVERRANGE);

    QCOMPARE(leaf.element.setValue(PROCESS_VALUE_ERROR_TYPE_TIMEOUT), false);
    COMPARE_LOG(log, message);
    QVERIFY(leaf.isUntouched());
}

void tst_ProcessDataValueBounds::relativeOffsetWithoutMetadataIsOfNoMatter()
{
    BoundLeaf leaf({QStringLiteral("int32"), 60, 4, 0, 0xFFFFFFFFU});
    ProcessValue value(PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
    LogCapture log;

    QCOMPARE(leaf.element.setValue({7, PROCESS_VALUE_ERROR_TYPE_VALID}), true);
    leaf.element.getValue(value);

    QCOMPARE(value.getValue(), QVariant(7));
    COMPARE_LOG(log);
}

void tst_ProcessDataValueBounds::wrappedOffsetIsRefused()
{
    const QString type = QStringLiteral("int32");
    BoundLeaf leaf({type, 0xFFFFFFFEU, 4, 4, 4});
    ProcessValue value(7, PROCESS_VALUE_ERROR_TYPE_OVERRANGE);
    const LogLine message = warning(valueMessage(type, 0xFFFFFFFEU, 4));
    LogCapture log;

    leaf.element.getValue(value);
    QCOMPARE(leaf.element.setValue({1, PROCESS_VALUE_ERROR_TYPE_VALID}), false);

    COMPARE_LOG(log, message, message);
    QCOMPARE(value.getValue(), QVariant(7));
    QVERIFY(leaf.isUntouched());
}

void tst_ProcessDataValueBounds::refusedAccessReturnsItsLock()
{
    BoundLeaf leaf({QStringLiteral("double"), 60, 8});
    ProcessValue value(PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
    LogCapture log;

    leaf.element.getValue(value);
    QCOMPARE(leaf.handler.takeCalls(),
             (QStringList{QStringLiteral("lockForRead"),
                          QStringLiteral("unlockForRead of read buffer")}));

    QCOMPARE(leaf.element.setValue({1.0, PROCESS_VALUE_ERROR_TYPE_VALID}), false);
    QCOMPARE(leaf.handler.takeCalls(),
             (QStringList{QStringLiteral("lockForWrite"),
                          QStringLiteral("unlockForWrite of read buffer")}));
    QCOMPARE(log.take().size(), 2);
}

void tst_ProcessDataValueBounds::refusedReadMayBeRepeated()
{
    BoundLeaf leaf({QStringLiteral("double"), 60, 8});
    leaf.handler.readUnlocks.enqueue({true, true});
    ProcessValue value(PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
    const LogLine message = warning(valueMessage(QStringLiteral("double"), 60, 8));
    LogCapture log;

    leaf.element.getValue(value);

    COMPARE_LOG(log, message, message);
}

void tst_ProcessDataValueBounds::textIsWrittenAsFarAsItReaches()
{
    BoundLeaf leaf({QStringLiteral("string"), 58, 1000});
    LogCapture log;

    QCOMPARE(leaf.element.setValue({QStringLiteral("ab"), PROCESS_VALUE_ERROR_TYPE_VALID}), true);

    QCOMPARE(leaf.handler.writtenHex(58, 6),
             QByteArray(reinterpret_cast<const char *>(u"ab"), 6).toHex());
    QVERIFY(leaf.handler.areGuardsIntact());
    COMPARE_LOG(log);
}

void tst_ProcessDataValueBounds::textThatReachesOutsideIsRefused()
{
    const QString type = QStringLiteral("string");
    BoundLeaf leaf({type, 58, 1000});
    ProcessValue value(7, PROCESS_VALUE_ERROR_TYPE_OVERRANGE);
    LogCapture log;

    QCOMPARE(leaf.element.setValue({QStringLiteral("abc"), PROCESS_VALUE_ERROR_TYPE_VALID}), false);
    COMPARE_LOG(log, warning(valueMessage(type, 58, 8)));
    QVERIFY(leaf.isUntouched());

    leaf.element.getValue(value);
    COMPARE_LOG(log, warning(valueMessage(type, 58, 1000)));
    QCOMPARE(value.getValue(), QVariant(7));
}

void tst_ProcessDataValueBounds::textTooLongForASlotThatEndsInsideIsRefusedAsSuch()
{
    BoundLeaf leaf({QStringLiteral("string"), 60, 4});
    LogCapture log;

    QCOMPARE(
        leaf.element.setValue({QString(100, QLatin1Char('a')), PROCESS_VALUE_ERROR_TYPE_VALID}),
        false);

    COMPARE_LOG(log, warning(QStringLiteral("String to large")),
                warning(QStringLiteral("Process value could not be written.")));
    QVERIFY(leaf.isUntouched());
}

void tst_ProcessDataValueBounds::emptyTextSlotAtTheEndIsOnlyTooSmall()
{
    BoundLeaf leaf({QStringLiteral("string"), bufferSize, 0});
    ProcessValue value(PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
    LogCapture log;

    leaf.element.getValue(value);

    COMPARE_LOG(log, warning(QStringLiteral("Buffer to small.")));
    QCOMPARE(value.getErrorType(), PROCESS_VALUE_ERROR_TYPE_VALID);
}

void tst_ProcessDataValueBounds::bindingAgainMovesTheBounds()
{
    FakeBufferHandler small(bufferSize);
    FakeBufferHandler larger(bufferSize + 4);
    ProcessDataValue element(SlotDescription{QStringLiteral("double"), 60, 8}.toJson(), nullptr);
    element.setBufferHandlerInterface(&small, false);
    LogCapture log;

    QCOMPARE(element.setValue({1.0, PROCESS_VALUE_ERROR_TYPE_VALID}), false);
    COMPARE_LOG(log, warning(valueMessage(QStringLiteral("double"), 60, 8)));

    element.setBufferHandlerInterface(&larger, false);
    QCOMPARE(element.setValue({1.0, PROCESS_VALUE_ERROR_TYPE_VALID}), true);
    QVERIFY(larger.areGuardsIntact());
    COMPARE_LOG(log);
}

QTEST_GUILESS_MAIN(tst_ProcessDataValueBounds)
#include "tst_ProcessDataValueBounds.moc"
