#include "leaves/TypedValue.h"

#include <QtTest>

#include <limits>

namespace {

const QString asState = QStringLiteral("so");

WritableSlot slotOfType(const QString &type, int metaType, quint32 size)
{
    return {type, metaType, size, true, 1};
}

const WritableSlot int8 = slotOfType(QStringLiteral("int8"), QMetaType::LongLong, 1);
const WritableSlot int16 = slotOfType(QStringLiteral("int16"), QMetaType::LongLong, 2);
const WritableSlot int64 = slotOfType(QStringLiteral("int64"), QMetaType::LongLong, 8);
const WritableSlot uint8 = slotOfType(QStringLiteral("uint8"), QMetaType::ULongLong, 1);
const WritableSlot uint64 = slotOfType(QStringLiteral("uint64"), QMetaType::ULongLong, 8);
const WritableSlot single = slotOfType(QStringLiteral("float"), QMetaType::Float, 4);
const WritableSlot wide = slotOfType(QStringLiteral("double"), QMetaType::Double, 8);
const WritableSlot truth = slotOfType(QStringLiteral("boolean"), QMetaType::Bool, 1);
const WritableSlot words = slotOfType(QStringLiteral("string"), QMetaType::QString, 16);

} // namespace

Q_DECLARE_METATYPE(WritableSlot)

class tst_TypedValue : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void textsMeanValues_data();
    void textsMeanValues();
    void textsThatMeanNoneAreTold_data();
    void textsThatMeanNoneAreTold();
    void howAnErrorStateIsWrittenMayBeUntold();
    void numbersOfJsonMayBeWhole_data();
    void numbersOfJsonMayBeWhole();
    void numbersOfJsonThatAreNotWholeAreTold_data();
    void numbersOfJsonThatAreNotWholeAreTold();
};

void tst_TypedValue::textsMeanValues_data()
{
    QTest::addColumn<WritableSlot>("slot");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QVariant>("value");
    const auto row = [](const WritableSlot &slot, const char *text, const QVariant &value) {
        QTest::addRow("%s %s", qPrintable(slot.type), text) << slot << QString(text) << value;
    };
    row(int8, "-128", -128LL);
    row(int8, "127", 127LL);
    row(int8, "0x7f", 127LL);
    row(int8, "-0X80", -128LL);
    row(int8, "010", 10LL);
    row(int16, "-32768", -32768LL);
    row(int64, "-9223372036854775808", std::numeric_limits<qlonglong>::min());
    row(int64, "9223372036854775807", std::numeric_limits<qlonglong>::max());
    row(uint8, "255", 255ULL);
    row(uint8, "0", 0ULL);
    row(uint64, "18446744073709551615", std::numeric_limits<qulonglong>::max());
    row(uint64, "0xFFFFFFFFFFFFFFFF", std::numeric_limits<qulonglong>::max());
    row(single, "0.1", 0.1F);
    row(single, "-0", -0.0F);
    row(single, "1e-45", 1e-45F);
    row(single, "3.4028234e38", 3.4028234e38F);
    row(wide, "1e-320", 1e-320);
    row(wide, "-2.5", -2.5);
    row(truth, "true", true);
    row(truth, "FALSE", false);
    row(truth, "1", true);
    row(truth, "0", false);
    row(words, "", QString(""));
    row(words, "0x10", QString("0x10"));
}

void tst_TypedValue::textsMeanValues()
{
    QFETCH(WritableSlot, slot);
    QFETCH(QString, text);
    QFETCH(QVariant, value);

    const TypedValue typed = TypedValue::fromText(slot, text, asState);

    QCOMPARE(typed.problem, QString());
    QCOMPARE(typed.value.userType(), value.userType());
    QCOMPARE(typed.value, value);
}

void tst_TypedValue::textsThatMeanNoneAreTold_data()
{
    QTest::addColumn<WritableSlot>("slot");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("problem");
    const auto row = [](const WritableSlot &slot, const char *text, const char *problem) {
        QTest::addRow("%s %s", qPrintable(slot.type), text) << slot << QString(text) << problem;
    };
    row(int8, "128", "'128' is no int8; a whole number from -128 to 127 is");
    row(int8, "-129", "'-129' is no int8; a whole number from -128 to 127 is");
    row(int8, "1.0", "'1.0' is no int8; a whole number from -128 to 127 is");
    row(int8, "", "'' is no int8; a whole number from -128 to 127 is");
    row(int16, "32768", "'32768' is no int16; a whole number from -32768 to 32767 is");
    row(int64, "9223372036854775808",
        "'9223372036854775808' is no int64; a whole number from -9223372036854775808 to "
        "9223372036854775807 is");
    row(uint8, "256", "'256' is no uint8; a whole number from 0 to 255 is");
    row(uint8, "-1", "'-1' is no uint8; a whole number from 0 to 255 is");
    row(uint8, "-0", "'-0' is no uint8; a whole number from 0 to 255 is");
    row(uint64, "18446744073709551616",
        "'18446744073709551616' is no uint64; a whole number from 0 to 18446744073709551615 is");
    row(single, "1e39", "'1e39' does not fit a float");
    row(single, "1e-60", "'1e-60' does not fit a float");
    row(single, "x", "'x' is no finite number of type float; an error state is written so");
    row(wide, "nan", "'nan' is no finite number of type double; an error state is written so");
    row(wide, "-inf", "'-inf' is no finite number of type double; an error state is written so");
    row(wide, "1e999", "'1e999' is no finite number of type double; an error state is written so");
    row(wide, "12,5", "'12,5' is no finite number of type double; an error state is written so");
    row(truth, "2", "'2' is no boolean; true, false, 1 and 0 are");
    row(truth, "yes", "'yes' is no boolean; true, false, 1 and 0 are");
    row(slotOfType(QStringLiteral("odd"), QMetaType::UnknownType, 4), "1",
        "no value can be given to type 'odd'");
}

void tst_TypedValue::textsThatMeanNoneAreTold()
{
    QFETCH(WritableSlot, slot);
    QFETCH(QString, text);

    const TypedValue typed = TypedValue::fromText(slot, text, asState);

    QTEST(typed.problem, "problem");
    QVERIFY(!typed.value.isValid());
}

void tst_TypedValue::howAnErrorStateIsWrittenMayBeUntold()
{
    QCOMPARE(TypedValue::fromText(wide, QStringLiteral("x"), {}).problem,
             QStringLiteral("'x' is no finite number of type double"));
}

void tst_TypedValue::numbersOfJsonMayBeWhole_data()
{
    QTest::addColumn<WritableSlot>("slot");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QVariant>("value");
    const auto row = [](const WritableSlot &slot, const char *text, const QVariant &value) {
        QTest::addRow("%s %s", qPrintable(slot.type), text) << slot << QString(text) << value;
    };
    row(int8, "5.0", 5LL);
    row(int8, "5e0", 5LL);
    row(int8, "-0.05e2", -5LL);
    row(int8, "1200e-1", 120LL);
    row(int8, "-0.0", 0LL);
    row(uint8, "0e99999999999", 0ULL);
    row(uint64, "1.8446744073709551615e19", std::numeric_limits<qulonglong>::max());
    row(wide, "1e-320", 1e-320);
    row(single, "0.10", 0.1F);
}

void tst_TypedValue::numbersOfJsonMayBeWhole()
{
    QFETCH(WritableSlot, slot);
    QFETCH(QString, text);
    QFETCH(QVariant, value);

    const TypedValue typed = TypedValue::fromJsonNumber(slot, text, asState);

    QCOMPARE(typed.problem, QString());
    QCOMPARE(typed.value, value);
}

void tst_TypedValue::numbersOfJsonThatAreNotWholeAreTold_data()
{
    QTest::addColumn<QString>("text");

    QTest::newRow("half") << "5.5";
    QTest::newRow("a digit far behind the point") << "5.00000000000000000000000000001";
    QTest::newRow("too small to see") << "1e-400";
    QTest::newRow("exponent without bound") << "1e99999999999";
    QTest::newRow("too big") << "1e3";
}

void tst_TypedValue::numbersOfJsonThatAreNotWholeAreTold()
{
    QFETCH(QString, text);

    const TypedValue typed = TypedValue::fromJsonNumber(uint8, text, asState);

    QVERIFY2(
        typed.problem.endsWith(QStringLiteral(" is no uint8; a whole number from 0 to 255 is")),
        qPrintable(typed.problem));
    QVERIFY(!typed.value.isValid());
}

QTEST_GUILESS_MAIN(tst_TypedValue)
#include "tst_TypedValue.moc"
