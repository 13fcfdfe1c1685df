#include "ProcessData/Linux/ProcessDataValue.h"
#include "support/FakeBufferHandler.h"
#include "support/LogCapture.h"
#include "support/SlotDescription.h"

#include <limits>

using namespace ProcessDataDefinitions;

namespace {

const quint32 bufferSize = 64;
const quint32 sizeMetadata = 4;

/// The bytes of a number, given in hexadecimal with the lowest byte first, in native order.
QByteArray nativeBytes(const char *lowestFirst)
{
    QByteArray bytes = QByteArray::fromHex(lowestFirst);
    if (Q_BYTE_ORDER == Q_BIG_ENDIAN) {
        std::reverse(bytes.begin(), bytes.end());
    }
    return bytes;
}

QByteArray metadataBytes(ErrorTypes state)
{
    const auto number = static_cast<qint32>(state);
    return {reinterpret_cast<const char *>(&number), sizeof(number)};
}

/// A buffer of 0xEE in which @p bytes stand at @p offset.
QByteArray bufferWith(quint32 offset, const QByteArray &bytes)
{
    return QByteArray(bufferSize, '\xEE').replace(static_cast<int>(offset), bytes.size(), bytes);
}

void fill(FakeBufferHandler &handler, const QByteArray &content)
{
    std::copy(content.begin(), content.end(), handler.writeBytes());
}

/// A leaf on a buffer that its readers and writers share.
struct BoundLeaf
{
    explicit BoundLeaf(const SlotDescription &description) : element(description.toJson(), nullptr)
    {
        handler.useSingleBuffer();
        fill(handler, bufferWith(0, {}));
        element.setBufferHandlerInterface(&handler, false);
    }

    FakeBufferHandler handler{bufferSize};
    ProcessDataValue element;
};

} // namespace

class tst_ProcessDataValueEncodingNumbers : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void everyStorageForm_data();
    void everyStorageForm();
    void metadataLiesWhereTheRelativeOffsetSays();
    void metadataIsFourBytesWhateverItsSize_data();
    void metadataIsFourBytesWhateverItsSize();
    void numbersOutsideTheRangeAreCut_data();
    void numbersOutsideTheRangeAreCut();
    void anyByteButZeroReadsAsTrue();
    void textThatIsNoNumberStoresZero_data();
    void textThatIsNoNumberStoresZero();
    void textThatIsANumberIsConverted();
    void narrowIntegersReadWithTheirSign();

    void bitsAreSetAndClearedAlone_data();
    void bitsAreSetAndClearedAlone();
    void anyBitOfTheMaskReadsAsTrue();
    void onlyTheLowByteOfTheMaskCounts();
    void maskWithoutLowByteReadsFalseAndWritesNothing();
    void bitsOfOneByteAreIndependent();
    void wholeByteBooleanHasNoMask();
};

void tst_ProcessDataValueEncodingNumbers::everyStorageForm_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<QVariant>("content");
    QTest::addColumn<QByteArray>("bytes");

    const auto row = [](const char *name, const char *type, const QVariant &content,
                        const char *lowestFirst) {
        QTest::newRow(name) << QString::fromLatin1(type) << content << nativeBytes(lowestFirst);
    };
    row("true", "boolean", true, "01");
    row("false", "boolean", false, "00");
    row("int16", "int16", 0x1234, "3412");
    row("int16 lowest", "int16", -32768, "0080");
    row("int16 highest", "int16", 32767, "ff7f");
    row("int8", "int8", 0x12, "12");
    row("int8 lowest", "int8", -128, "80");
    row("int8 highest", "int8", 127, "7f");
    row("int32", "int32", 0x12345678, "78563412");
    row("int32 lowest", "int32", std::numeric_limits<int>::min(), "00000080");
    row("int32 highest", "int32", std::numeric_limits<int>::max(), "ffffff7f");
    row("uint16", "uint16", 0x1234U, "3412");
    row("uint16 highest", "uint16", 65535U, "ffff");
    row("uint8", "uint8", 0x12U, "12");
    row("uint8 highest", "uint8", 255U, "ff");
    row("uint32", "uint32", 0x12345678U, "78563412");
    row("uint32 highest", "uint32", 0xFFFFFFFFU, "ffffffff");
    row("int64", "int64", Q_INT64_C(0x123456789ABCDEF0), "f0debc9a78563412");
    row("int64 lowest", "int64", std::numeric_limits<qlonglong>::min(), "0000000000000080");
    row("int64 highest", "int64", std::numeric_limits<qlonglong>::max(), "ffffffffffffff7f");
    row("uint64", "uint64", Q_UINT64_C(0x123456789ABCDEF0), "f0debc9a78563412");
    row("uint64 highest", "uint64", std::numeric_limits<qulonglong>::max(), "ffffffffffffffff");
    row("double", "double", 1.5, "000000000000f83f");
    row("double negative", "double", -2.0, "00000000000000c0");
    row("float", "float", QVariant::fromValue(1.5F), "0000c03f");
    row("float negative", "float", QVariant::fromValue(-2.0F), "000000c0");
}

void tst_ProcessDataValueEncodingNumbers::everyStorageForm()
{
    QFETCH(QString, type);
    QFETCH(QVariant, content);
    QFETCH(QByteArray, bytes);
    const auto sizeValue = static_cast<quint32>(bytes.size());
    for (quint32 offset = 16; offset < 24; ++offset) {
        for (const quint32 metadata : {0U, sizeMetadata}) {
            BoundLeaf leaf({type, offset, sizeValue, metadata, sizeValue});
            ProcessValue value(PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
            LogCapture log;

            QCOMPARE(leaf.element.setValue({content, PROCESS_VALUE_ERROR_TYPE_VALID}), true);
            leaf.element.getValue(value);

            const QByteArray word = metadata == 0 ? QByteArray()
                                                  : metadataBytes(PROCESS_VALUE_ERROR_TYPE_VALID);
            QCOMPARE(leaf.handler.readContent().toHex(), bufferWith(offset, bytes + word).toHex());
            QCOMPARE(value.getValue().userType(), content.userType());
            QCOMPARE(value.getValue(), content);
            QCOMPARE(value.getErrorType(), PROCESS_VALUE_ERROR_TYPE_VALID);
            COMPARE_LOG(log);
        }
    }
}

void tst_ProcessDataValueEncodingNumbers::metadataLiesWhereTheRelativeOffsetSays()
{
    BoundLeaf leaf({QStringLiteral("int8"), 10, 1, sizeMetadata, 7});

    QCOMPARE(leaf.element.setValue(PROCESS_VALUE_ERROR_TYPE_SENSOR_BREAKAGE), true);

    const QByteArray expected =
        bufferWith(10, QByteArray::fromHex("00"))
            .replace(17, 4, metadataBytes(PROCESS_VALUE_ERROR_TYPE_SENSOR_BREAKAGE));
    QCOMPARE(leaf.handler.readContent().toHex(), expected.toHex());
}

void tst_ProcessDataValueEncodingNumbers::metadataIsFourBytesWhateverItsSize_data()
{
    QTest::addColumn<quint32>("size");

    QTest::newRow("one") << 1U;
    QTest::newRow("four") << 4U;
    QTest::newRow("eight") << 8U;
}

void tst_ProcessDataValueEncodingNumbers::metadataIsFourBytesWhateverItsSize()
{
    QFETCH(quint32, size);
    BoundLeaf leaf({QStringLiteral("uint8"), 1, 1, size, 1});
    ProcessValue value(PROCESS_VALUE_ERROR_TYPE_VALID);

    QCOMPARE(leaf.element.setValue(PROCESS_VALUE_ERROR_TYPE_TIMEOUT), true);
    leaf.element.getValue(value, true);

    const QByteArray word = metadataBytes(PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
    QCOMPARE(leaf.handler.readContent().toHex(),
             bufferWith(1, QByteArray::fromHex("00") + word).toHex());
    QCOMPARE(value.getErrorType(), PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
}

void tst_ProcessDataValueEncodingNumbers::numbersOutsideTheRangeAreCut_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<quint32>("sizeValue");
    QTest::addColumn<QVariant>("written");
    QTest::addColumn<QVariant>("read");

    QTest::newRow("int16") << QStringLiteral("int16") << 2U << QVariant(70000) << QVariant(4464);
    QTest::newRow("int16 to negative")
        << QStringLiteral("int16") << 2U << QVariant(32768) << QVariant(-32768);
    QTest::newRow("uint16") << QStringLiteral("uint16") << 2U << QVariant(-1) << QVariant(65535U);
    QTest::newRow("int8") << QStringLiteral("int8") << 1U << QVariant(200) << QVariant(-56);
    QTest::newRow("uint8") << QStringLiteral("uint8") << 1U << QVariant(256) << QVariant(0U);
}

void tst_ProcessDataValueEncodingNumbers::numbersOutsideTheRangeAreCut()
{
    QFETCH(QString, type);
    QFETCH(quint32, sizeValue);
    QFETCH(QVariant, written);
    QFETCH(QVariant, read);
    BoundLeaf leaf({type, 3, sizeValue});
    ProcessValue value(PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
    LogCapture log;

    QCOMPARE(leaf.element.setValue({written, PROCESS_VALUE_ERROR_TYPE_VALID}), true);
    leaf.element.getValue(value);

    QCOMPARE(value.getValue().userType(), read.userType());
    QCOMPARE(value.getValue(), read);
    QCOMPARE(value.getErrorType(), PROCESS_VALUE_ERROR_TYPE_VALID);
    COMPARE_LOG(log);
}

void tst_ProcessDataValueEncodingNumbers::anyByteButZeroReadsAsTrue()
{
    BoundLeaf leaf({QStringLiteral("boolean"), 5, 1});
    for (const int byte : {0x00, 0x01, 0x02, 0x80, 0xFF}) {
        ProcessValue value(PROCESS_VALUE_ERROR_TYPE_VALID);
        leaf.handler.put(5, static_cast<quint8>(byte));

        leaf.element.getValue(value);

        QCOMPARE(value.getValue().userType(), static_cast<int>(QMetaType::Bool));
        QCOMPARE(value.getValue().toBool(), byte != 0);
    }
}

void tst_ProcessDataValueEncodingNumbers::textThatIsNoNumberStoresZero_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<quint32>("sizeValue");

    QTest::newRow("int8") << QStringLiteral("int8") << 1U;
    QTest::newRow("uint8") << QStringLiteral("uint8") << 1U;
    QTest::newRow("int16") << QStringLiteral("int16") << 2U;
    QTest::newRow("uint16") << QStringLiteral("uint16") << 2U;
    QTest::newRow("int32") << QStringLiteral("int32") << 4U;
    QTest::newRow("uint32") << QStringLiteral("uint32") << 4U;
    QTest::newRow("int64") << QStringLiteral("int64") << 8U;
    QTest::newRow("uint64") << QStringLiteral("uint64") << 8U;
    QTest::newRow("float") << QStringLiteral("float") << 4U;
    QTest::newRow("double") << QStringLiteral("double") << 8U;
}

void tst_ProcessDataValueEncodingNumbers::textThatIsNoNumberStoresZero()
{
    QFETCH(QString, type);
    QFETCH(quint32, sizeValue);
    BoundLeaf leaf({type, 3, sizeValue});
    LogCapture log;

    QCOMPARE(leaf.element.setValue({QStringLiteral("no number"), PROCESS_VALUE_ERROR_TYPE_VALID}),
             true);

    const QByteArray zeros(static_cast<int>(sizeValue), '\0');
    QCOMPARE(leaf.handler.readContent().toHex(), bufferWith(3, zeros).toHex());
    COMPARE_LOG(log);
}

void tst_ProcessDataValueEncodingNumbers::textThatIsANumberIsConverted()
{
    BoundLeaf leaf({QStringLiteral("int16"), 3, 2});

    QCOMPARE(leaf.element.setValue({QStringLiteral("-2"), PROCESS_VALUE_ERROR_TYPE_VALID}), true);

    QCOMPARE(leaf.handler.readContent().toHex(), bufferWith(3, nativeBytes("feff")).toHex());
}

void tst_ProcessDataValueEncodingNumbers::narrowIntegersReadWithTheirSign()
{
    BoundLeaf signedLeaf({QStringLiteral("int8"), 5, 1});
    BoundLeaf unsignedLeaf({QStringLiteral("uint8"), 5, 1});
    ProcessValue value(PROCESS_VALUE_ERROR_TYPE_VALID);
    signedLeaf.handler.put<quint8>(5, 0xFF);
    unsignedLeaf.handler.put<quint8>(5, 0xFF);

    signedLeaf.element.getValue(value);
    QCOMPARE(value.getValue(), QVariant(-1));
    QCOMPARE(value.getValue().userType(), static_cast<int>(QMetaType::Int));

    unsignedLeaf.element.getValue(value);
    QCOMPARE(value.getValue(), QVariant(255U));
    QCOMPARE(value.getValue().userType(), static_cast<int>(QMetaType::UInt));
}

void tst_ProcessDataValueEncodingNumbers::bitsAreSetAndClearedAlone_data()
{
    QTest::addColumn<quint32>("mask");
    QTest::addColumn<QByteArray>("afterTrue");
    QTest::addColumn<QByteArray>("afterFalse");

    // The byte is 0xEE, 1110 1110, before each write.
    QTest::newRow("lowest bit") << 0x01U << QByteArray("ef") << QByteArray("ee");
    QTest::newRow("a bit that is set") << 0x02U << QByteArray("ee") << QByteArray("ec");
    QTest::newRow("highest bit") << 0x80U << QByteArray("ee") << QByteArray("6e");
    QTest::newRow("several bits") << 0x11U << QByteArray("ff") << QByteArray("ee");
    QTest::newRow("whole byte") << 0xFFU << QByteArray("ff") << QByteArray("00");
}

void tst_ProcessDataValueEncodingNumbers::bitsAreSetAndClearedAlone()
{
    QFETCH(quint32, mask);
    QFETCH(QByteArray, afterTrue);
    QFETCH(QByteArray, afterFalse);
    for (const quint32 metadata : {0U, sizeMetadata}) {
        const SlotDescription description{QStringLiteral("bit"), 7, 1, metadata, 1, mask};
        const QByteArray word = metadata == 0 ? QByteArray()
                                              : metadataBytes(PROCESS_VALUE_ERROR_TYPE_VALID);
        ProcessValue value(PROCESS_VALUE_ERROR_TYPE_TIMEOUT);

        BoundLeaf setLeaf(description);
        QCOMPARE(setLeaf.element.setValue({true, PROCESS_VALUE_ERROR_TYPE_VALID}), true);
        QCOMPARE(setLeaf.handler.readContent().toHex(),
                 bufferWith(7, QByteArray::fromHex(afterTrue) + word).toHex());
        setLeaf.element.getValue(value);
        QCOMPARE(value.getValue().userType(), static_cast<int>(QMetaType::Bool));
        QCOMPARE(value.getValue(), QVariant(true));
        QCOMPARE(value.getErrorType(), PROCESS_VALUE_ERROR_TYPE_VALID);

        BoundLeaf clearedLeaf(description);
        QCOMPARE(clearedLeaf.element.setValue({false, PROCESS_VALUE_ERROR_TYPE_VALID}), true);
        QCOMPARE(clearedLeaf.handler.readContent().toHex(),
                 bufferWith(7, QByteArray::fromHex(afterFalse) + word).toHex());
        clearedLeaf.element.getValue(value);
        QCOMPARE(value.getValue(), QVariant(false));
    }
}

void tst_ProcessDataValueEncodingNumbers::anyBitOfTheMaskReadsAsTrue()
{
    BoundLeaf leaf({QStringLiteral("bit"), 7, 1, 0, 0, 0x18});
    ProcessValue value(PROCESS_VALUE_ERROR_TYPE_VALID);

    for (const int byte : {0x08, 0x10, 0x18, 0xFF}) {
        leaf.handler.put(7, static_cast<quint8>(byte));
        leaf.element.getValue(value);
        QCOMPARE(value.getValue(), QVariant(true));
    }
    for (const int byte : {0x00, 0xE7, 0x04, 0x20}) {
        leaf.handler.put(7, static_cast<quint8>(byte));
        leaf.element.getValue(value);
        QCOMPARE(value.getValue(), QVariant(false));
    }
}

void tst_ProcessDataValueEncodingNumbers::onlyTheLowByteOfTheMaskCounts()
{
    BoundLeaf leaf({QStringLiteral("bit"), 7, 2, 0, 0, 0xFFFF01U});

    QCOMPARE(leaf.element.setValue({true, PROCESS_VALUE_ERROR_TYPE_VALID}), true);

    QCOMPARE(leaf.handler.readContent().toHex(), bufferWith(7, QByteArray::fromHex("ef")).toHex());
}

void tst_ProcessDataValueEncodingNumbers::maskWithoutLowByteReadsFalseAndWritesNothing()
{
    BoundLeaf leaf({QStringLiteral("bit"), 7, 2, 0, 0, 0x0100});
    ProcessValue value(PROCESS_VALUE_ERROR_TYPE_TIMEOUT);

    QCOMPARE(leaf.element.setValue({true, PROCESS_VALUE_ERROR_TYPE_VALID}), true);
    QCOMPARE(leaf.element.setValue({false, PROCESS_VALUE_ERROR_TYPE_VALID}), true);
    leaf.element.getValue(value);

    QCOMPARE(leaf.handler.readContent().toHex(), bufferWith(0, {}).toHex());
    QCOMPARE(value.getValue(), QVariant(false));
    QCOMPARE(value.getErrorType(), PROCESS_VALUE_ERROR_TYPE_VALID);
}

void tst_ProcessDataValueEncodingNumbers::bitsOfOneByteAreIndependent()
{
    BoundLeaf first({QStringLiteral("bit"), 7, 1, 0, 0, 0x01});
    ProcessDataValue second(SlotDescription{QStringLiteral("bit"), 7, 1, 0, 0, 0x04}.toJson(),
                            nullptr);
    second.setBufferHandlerInterface(&first.handler, false);
    first.handler.put<quint8>(7, 0x00);

    QCOMPARE(first.element.setValue({true, PROCESS_VALUE_ERROR_TYPE_VALID}), true);
    QCOMPARE(second.setValue({true, PROCESS_VALUE_ERROR_TYPE_VALID}), true);
    QCOMPARE(first.handler.writtenHex(7, 1), QByteArray("05"));

    QCOMPARE(first.element.setValue({false, PROCESS_VALUE_ERROR_TYPE_VALID}), true);
    QCOMPARE(first.handler.writtenHex(7, 1), QByteArray("04"));
}

void tst_ProcessDataValueEncodingNumbers::wholeByteBooleanHasNoMask()
{
    BoundLeaf leaf({QStringLiteral("boolean"), 7, 1, 0, 0, 0x10});
    ProcessValue value(PROCESS_VALUE_ERROR_TYPE_VALID);

    leaf.element.getValue(value);
    QCOMPARE(value.getValue(), QVariant(true));

    QCOMPARE(leaf.element.setValue({true, PROCESS_VALUE_ERROR_TYPE_VALID}), true);
    QCOMPARE(leaf.handler.readContent().toHex(), bufferWith(7, QByteArray::fromHex("01")).toHex());
}

QTEST_GUILESS_MAIN(tst_ProcessDataValueEncodingNumbers)
#include "tst_ProcessDataValueEncodingNumbers.moc"
