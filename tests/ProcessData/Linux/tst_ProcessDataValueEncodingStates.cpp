#include "ProcessData/Linux/ProcessDataValue.h"
#include "support/FakeBufferHandler.h"
#include "support/LogCapture.h"
#include "support/SlotDescription.h"

#include <cmath>

using namespace ProcessDataDefinitions;

namespace {

const quint32 bufferSize = 64;
const quint32 offset = 11;

/// A leaf on a buffer that its readers and writers share, its metadata right behind the value.
struct BoundLeaf
{
    BoundLeaf(const QString &type, quint32 sizeValue, quint32 sizeMetadata)
        : element(SlotDescription{type, offset, sizeValue, sizeMetadata, sizeValue, 0x18}.toJson(),
                  nullptr)
    {
        handler.useSingleBuffer();
        std::fill_n(handler.writeBytes(), bufferSize, static_cast<unsigned char>(0xFF));
        element.setBufferHandlerInterface(&handler, false);
    }

    template <class T>
    T at(quint32 position)
    {
        T value{};
        std::memcpy(&value, handler.readBytes() + position, sizeof(T));
        return value;
    }

    FakeBufferHandler handler{bufferSize};
    ProcessDataValue element;
};

ErrorTypes state(int number)
{
    return static_cast<ErrorTypes>(number);
}

const quint32 floatEncodings[] = {0x7CF0BDC2, 0x7D70BDC2, 0x7DB48E52, 0x7DF0BDC2, 0x7E167699,
                                  0x7E348E52, 0x7E52A60A, 0x7E70BDC2, 0x7E876ABD};

} // namespace

class tst_ProcessDataValueEncodingStates : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void integersAndBooleansLoseTheStateWithoutMetadata_data();
    void integersAndBooleansLoseTheStateWithoutMetadata();
    void integersAndBooleansKeepTheStateInMetadata_data();
    void integersAndBooleansKeepTheStateInMetadata();
    void floatEncodesTheStateWithoutMetadata();
    void floatKeepsTheStateInMetadata();
    void doubleEncodesTheStateWithoutMetadataAndForgetsItOnReading();
    void doubleKeepsTheStateInMetadata();
    void textKeepsTheStateOnlyInMetadata();
    void contentOfAnErroneousValueNeverReachesTheSlot();
    void validStateIsWrittenOverAnError();

    void validFloatThatEqualsAnEncodingReadsAsError();
    void floatBesideAnEncodingIsValid();
    void floatEncodingBesideMetadataIsANumber();
    void stateWithoutEncodingStoresZero();
    void metadataIsTakenAsItStands_data();
    void metadataIsTakenAsItStands();
    void notANumberFloatIsValid();
};

void tst_ProcessDataValueEncodingStates::integersAndBooleansLoseTheStateWithoutMetadata_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<quint32>("sizeValue");
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QVariant>("content");

    QTest::newRow("boolean") << QStringLiteral("boolean") << 1U << QByteArray("00")
                             << QVariant(false);
    QTest::newRow("bit") << QStringLiteral("bit") << 1U << QByteArray("e7") << QVariant(false);
    QTest::newRow("int8") << QStringLiteral("int8") << 1U << QByteArray("00") << QVariant(0);
    QTest::newRow("uint8") << QStringLiteral("uint8") << 1U << QByteArray("00") << QVariant(0U);
    QTest::newRow("int16") << QStringLiteral("int16") << 2U << QByteArray("0000") << QVariant(0);
    QTest::newRow("uint16") << QStringLiteral("uint16") << 2U << QByteArray("0000") << QVariant(0U);
    QTest::newRow("int32") << QStringLiteral("int32") << 4U << QByteArray("00000000")
                           << QVariant(0);
    QTest::newRow("uint32") << QStringLiteral("uint32") << 4U << QByteArray("00000000")
                            << QVariant(0U);
    QTest::newRow("int64") << QStringLiteral("int64") << 8U << QByteArray("0000000000000000")
                           << QVariant(Q_INT64_C(0));
    QTest::newRow("uint64") << QStringLiteral("uint64") << 8U << QByteArray("0000000000000000")
                            << QVariant(Q_UINT64_C(0));
}

void tst_ProcessDataValueEncodingStates::integersAndBooleansLoseTheStateWithoutMetadata()
{
    QFETCH(QString, type);
    QFETCH(quint32, sizeValue);
    QFETCH(QByteArray, bytes);
    QFETCH(QVariant, content);
    for (int number = 1; number <= 9; ++number) {
        BoundLeaf leaf(type, sizeValue, 0);
        ProcessValue value(PROCESS_VALUE_ERROR_TYPE_VALID);
        LogCapture log;

        QCOMPARE(leaf.element.setValue(state(number)), true);
        QCOMPARE(leaf.handler.writtenHex(offset - 1, sizeValue + 2), "ff" + bytes + "ff");

        leaf.element.getValue(value);
        QCOMPARE(value.getErrorType(), PROCESS_VALUE_ERROR_TYPE_VALID);
        QCOMPARE(value.getValue().userType(), content.userType());
        QCOMPARE(value.getValue(), content);
        COMPARE_LOG(log);
    }
}

void tst_ProcessDataValueEncodingStates::integersAndBooleansKeepTheStateInMetadata_data()
{
    integersAndBooleansLoseTheStateWithoutMetadata_data();
}

void tst_ProcessDataValueEncodingStates::integersAndBooleansKeepTheStateInMetadata()
{
    QFETCH(QString, type);
    QFETCH(quint32, sizeValue);
    QFETCH(QByteArray, bytes);
    QFETCH(QVariant, content);
    for (int number = 1; number <= 9; ++number) {
        BoundLeaf leaf(type, sizeValue, 4);
        ProcessValue value(PROCESS_VALUE_ERROR_TYPE_VALID);
        LogCapture log;

        QCOMPARE(leaf.element.setValue(state(number)), true);
        QCOMPARE(leaf.handler.writtenHex(offset - 1, sizeValue + 1), "ff" + bytes);
        QCOMPARE(leaf.at<qint32>(offset + sizeValue), number);
        QCOMPARE(leaf.handler.writtenHex(offset + sizeValue + 4, 1), QByteArray("ff"));

        leaf.element.getValue(value, true);
        QCOMPARE(value.getErrorType(), state(number));
        QCOMPARE(value.getValue().userType(), content.userType());
        QCOMPARE(value.getValue(), content);

        leaf.element.getValue(value, false);
        QCOMPARE(value.getErrorType(), state(number));
        QCOMPARE(value.getValue().isValid(), false);
        COMPARE_LOG(log);
    }
}

void tst_ProcessDataValueEncodingStates::floatEncodesTheStateWithoutMetadata()
{
    for (int number = 1; number <= 9; ++number) {
        BoundLeaf leaf(QStringLiteral("float"), 4, 0);
        ProcessValue value(PROCESS_VALUE_ERROR_TYPE_VALID);

        QCOMPARE(leaf.element.setValue(state(number)), true);
        QCOMPARE(leaf.at<quint32>(offset), floatEncodings[number - 1]);
        QCOMPARE(leaf.handler.writtenHex(offset + 4, 4), QByteArray("ffffffff"));

        leaf.element.getValue(value, true);
        QCOMPARE(value.getErrorType(), state(number));
        QCOMPARE(value.getValue().userType(), static_cast<int>(QMetaType::Float));
        QCOMPARE(value.getValue().toFloat(), static_cast<float>(number * 1e37));

        leaf.element.getValue(value, false);
        QCOMPARE(value.getErrorType(), state(number));
        QCOMPARE(value.getValue().isValid(), false);
    }
}

void tst_ProcessDataValueEncodingStates::floatKeepsTheStateInMetadata()
{
    for (int number = 1; number <= 9; ++number) {
        BoundLeaf leaf(QStringLiteral("float"), 4, 4);
        ProcessValue value(PROCESS_VALUE_ERROR_TYPE_VALID);

        QCOMPARE(leaf.element.setValue(state(number)), true);
        QCOMPARE(leaf.at<quint32>(offset), 0U);
        QCOMPARE(leaf.at<qint32>(offset + 4), number);

        leaf.element.getValue(value, true);
        QCOMPARE(value.getErrorType(), state(number));
        QCOMPARE(value.getValue(), QVariant::fromValue(0.0F));
        QCOMPARE(value.getValue().userType(), static_cast<int>(QMetaType::Float));
    }
}

void tst_ProcessDataValueEncodingStates::doubleEncodesTheStateWithoutMetadataAndForgetsItOnReading()
{
    for (int number = 1; number <= 9; ++number) {
        BoundLeaf leaf(QStringLiteral("double"), 8, 0);
        ProcessValue value(PROCESS_VALUE_ERROR_TYPE_TIMEOUT);

        QCOMPARE(leaf.element.setValue(state(number)), true);
        QCOMPARE(leaf.at<quint64>(offset),
                 Q_UINT64_C(0x7FF8000000000000) + static_cast<quint64>(number));
        QCOMPARE(leaf.handler.writtenHex(offset + 8, 4), QByteArray("ffffffff"));

        leaf.element.getValue(value, false);
        QCOMPARE(value.getErrorType(), PROCESS_VALUE_ERROR_TYPE_VALID);
        QCOMPARE(value.getValue().userType(), static_cast<int>(QMetaType::Double));
        QVERIFY(std::isnan(value.getValue().toDouble()));
    }
}

void tst_ProcessDataValueEncodingStates::doubleKeepsTheStateInMetadata()
{
    for (int number = 1; number <= 9; ++number) {
        BoundLeaf leaf(QStringLiteral("double"), 8, 4);
        ProcessValue value(PROCESS_VALUE_ERROR_TYPE_VALID);

        QCOMPARE(leaf.element.setValue(state(number)), true);
        QCOMPARE(leaf.at<quint64>(offset), Q_UINT64_C(0));
        QCOMPARE(leaf.at<qint32>(offset + 8), number);

        leaf.element.getValue(value, true);
        QCOMPARE(value.getErrorType(), state(number));
        QCOMPARE(value.getValue(), QVariant(0.0));
        QCOMPARE(value.getValue().userType(), static_cast<int>(QMetaType::Double));
    }
}

void tst_ProcessDataValueEncodingStates::textKeepsTheStateOnlyInMetadata()
{
    for (int number = 1; number <= 9; ++number) {
        for (const quint32 sizeMetadata : {0U, 4U}) {
            BoundLeaf leaf(QStringLiteral("string"), 8, sizeMetadata);
            ProcessValue value(PROCESS_VALUE_ERROR_TYPE_VALID);

            QCOMPARE(leaf.element.setValue(state(number)), true);
            QCOMPARE(leaf.handler.writtenHex(offset, 8), QByteArray("0000ffffffffffff"));
            QCOMPARE(leaf.at<qint32>(offset + 8), sizeMetadata == 0 ? -1 : number);

            leaf.element.getValue(value, true);
            QCOMPARE(value.getErrorType(), state(sizeMetadata == 0 ? 0 : number));
            QCOMPARE(value.getValue().userType(), static_cast<int>(QMetaType::QString));
            QCOMPARE(value.getValue().toString(), QString());
        }
    }
}

void tst_ProcessDataValueEncodingStates::contentOfAnErroneousValueNeverReachesTheSlot()
{
    BoundLeaf leaf(QStringLiteral("double"), 8, 4);

    QCOMPARE(leaf.element.setValue({1.5, PROCESS_VALUE_ERROR_TYPE_INCORRECT_MATHEMATIC_VALUE}),
             true);

    QCOMPARE(leaf.at<double>(offset), 0.0);
    QCOMPARE(leaf.at<qint32>(offset + 8), 5);
}

void tst_ProcessDataValueEncodingStates::validStateIsWrittenOverAnError()
{
    BoundLeaf withMetadata(QStringLiteral("float"), 4, 4);
    BoundLeaf withoutMetadata(QStringLiteral("float"), 4, 0);
    for (BoundLeaf *leaf : {&withMetadata, &withoutMetadata}) {
        ProcessValue value(PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
        QCOMPARE(leaf->element.setValue(PROCESS_VALUE_ERROR_TYPE_TIMEOUT), true);

        QCOMPARE(leaf->element.setValue({1.5F, PROCESS_VALUE_ERROR_TYPE_VALID}), true);

        leaf->element.getValue(value);
        QCOMPARE(value.getErrorType(), PROCESS_VALUE_ERROR_TYPE_VALID);
        QCOMPARE(value.getValue(), QVariant::fromValue(1.5F));
    }
    QCOMPARE(withMetadata.at<qint32>(offset + 4), 0);
}

void tst_ProcessDataValueEncodingStates::validFloatThatEqualsAnEncodingReadsAsError()
{
    BoundLeaf leaf(QStringLiteral("float"), 4, 0);
    ProcessValue value(PROCESS_VALUE_ERROR_TYPE_VALID);

    QCOMPARE(leaf.element.setValue({1e37F, PROCESS_VALUE_ERROR_TYPE_VALID}), true);
    leaf.element.getValue(value, true);

    QCOMPARE(value.getErrorType(), PROCESS_VALUE_ERROR_TYPE_UNDERRANGE);
    QCOMPARE(value.getValue(), QVariant::fromValue(1e37F));
}

void tst_ProcessDataValueEncodingStates::floatBesideAnEncodingIsValid()
{
    BoundLeaf leaf(QStringLiteral("float"), 4, 0);
    ProcessValue value(PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
    leaf.handler.put<quint32>(offset, 0x7CF0BDC3);

    leaf.element.getValue(value);

    QCOMPARE(value.getErrorType(), PROCESS_VALUE_ERROR_TYPE_VALID);
    QCOMPARE(value.getValue().toFloat(), std::nextafterf(1e37F, 2e37F));
}

void tst_ProcessDataValueEncodingStates::floatEncodingBesideMetadataIsANumber()
{
    BoundLeaf leaf(QStringLiteral("float"), 4, 4);
    ProcessValue value(PROCESS_VALUE_ERROR_TYPE_TIMEOUT);

    QCOMPARE(leaf.element.setValue({1e37F, PROCESS_VALUE_ERROR_TYPE_VALID}), true);
    leaf.element.getValue(value);

    QCOMPARE(value.getErrorType(), PROCESS_VALUE_ERROR_TYPE_VALID);
    QCOMPARE(value.getValue(), QVariant::fromValue(1e37F));
}

void tst_ProcessDataValueEncodingStates::stateWithoutEncodingStoresZero()
{
    BoundLeaf floatLeaf(QStringLiteral("float"), 4, 0);
    BoundLeaf doubleLeaf(QStringLiteral("double"), 8, 0);

    QCOMPARE(floatLeaf.element.setValue(state(10)), true);
    QCOMPARE(doubleLeaf.element.setValue(state(-1)), true);

    QCOMPARE(floatLeaf.at<quint32>(offset), 0U);
    QCOMPARE(doubleLeaf.at<quint64>(offset), Q_UINT64_C(0));
}

void tst_ProcessDataValueEncodingStates::metadataIsTakenAsItStands_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<quint32>("sizeValue");

    QTest::newRow("int32") << QStringLiteral("int32") << 4U;
    QTest::newRow("bit") << QStringLiteral("bit") << 1U;
    QTest::newRow("float") << QStringLiteral("float") << 4U;
    QTest::newRow("double") << QStringLiteral("double") << 8U;
    QTest::newRow("string") << QStringLiteral("string") << 8U;
}

void tst_ProcessDataValueEncodingStates::metadataIsTakenAsItStands()
{
    QFETCH(QString, type);
    QFETCH(quint32, sizeValue);
    BoundLeaf leaf(type, sizeValue, 4);
    for (const qint32 word : {0, 3, 9, 10, -1, 0x12345678}) {
        ProcessValue value(PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
        leaf.handler.put(offset + sizeValue, word);
        LogCapture log;

        leaf.element.getValue(value, false);

        QCOMPARE(static_cast<qint32>(value.getErrorType()), word);
        QCOMPARE(value.getValue().isValid(), word == 0);
        COMPARE_LOG(log);
    }
}

void tst_ProcessDataValueEncodingStates::notANumberFloatIsValid()
{
    BoundLeaf leaf(QStringLiteral("float"), 4, 0);
    ProcessValue value(PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
    leaf.handler.put<quint32>(offset, 0x7FC00003);

    leaf.element.getValue(value);

    QCOMPARE(value.getErrorType(), PROCESS_VALUE_ERROR_TYPE_VALID);
    QVERIFY(std::isnan(value.getValue().toFloat()));
}

QTEST_GUILESS_MAIN(tst_ProcessDataValueEncodingStates)
#include "tst_ProcessDataValueEncodingStates.moc"
