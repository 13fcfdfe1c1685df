#include "ProcessData/ProcessValueErrorTypes.h"
#include "support/LogCapture.h"

#include <QtTest>

#include <cmath>
#include <cstring>
#include <limits>
#include <type_traits>

using namespace ProcessDataDefinitions;
using Maps = ProcessValueErrorTypeMapDefinitions;

static_assert(sizeof(ErrorTypes) == 4, "a state fills a word of shared memory");
static_assert(sizeof(NamurStateTypes) == 4);
static_assert(std::is_default_constructible_v<Maps> && std::has_virtual_destructor_v<Maps>);

Q_DECLARE_METATYPE(ProcessDataDefinitions::ErrorTypes)
Q_DECLARE_METATYPE(ProcessDataDefinitions::NamurStateTypes)

namespace {

quint32 bitsOf(float number)
{
    quint32 bits = 0;
    std::memcpy(&bits, &number, sizeof bits);
    return bits;
}

quint64 bitsOf(double number)
{
    quint64 bits = 0;
    std::memcpy(&bits, &number, sizeof bits);
    return bits;
}

/// One row for each erroneous state, named by its number.
void addErroneousStates()
{
    QTest::addColumn<ErrorTypes>("state");
    for (int number = 1; number <= 9; ++number) {
        QTest::newRow(QByteArray::number(number).constData()) << ErrorTypes(number);
    }
}

} // namespace

class tst_ProcessValueErrorTypes : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void stateReadsAsItsName_data();
    void stateReadsAsItsName();
    void unknownStateIsNotDefined_data();
    void unknownStateIsNotDefined();

    void namurStateHasItsLetter_data();
    void namurStateHasItsLetter();
    void unknownNamurStateReadsAsFailureWithAWarning_data();
    void unknownNamurStateReadsAsFailureWithAWarning();
    void textOfNoNamurStateIsOneBlank();
    void textOfAnUnknownNamurStateWarnsOnce();

    void encodingHasTheseBits_data();
    void encodingHasTheseBits();
    void floatEncodingIsNearestToStateTimes1e37_data() { addErroneousStates(); }
    void floatEncodingIsNearestToStateTimes1e37();
    void doubleEncodingIsAQuietNaN_data() { addErroneousStates(); }
    void doubleEncodingIsAQuietNaN();
    void mapsHaveNineRows();
    void validStateIsInNoMap();

    void floatEncodingIsRecognised_data() { addErroneousStates(); }
    void floatEncodingIsRecognised();
    void nearbyFloatIsNotRecognised_data() { addErroneousStates(); }
    void nearbyFloatIsNotRecognised();
    void ordinaryFloatIsNotRecognised_data();
    void ordinaryFloatIsNotRecognised();
    void doubleEncodingIsNeverRecognised_data() { addErroneousStates(); }
    void doubleEncodingIsNeverRecognised();
    void reverseMapOfDoublesHoldsNineSeparateEncodings();
    void mapsAreBuiltOnce();
};

void tst_ProcessValueErrorTypes::stateReadsAsItsName_data()
{
    QTest::addColumn<int>("number");
    QTest::addColumn<ErrorTypes>("state");
    const auto add = [](const char *name, int number, ErrorTypes state) {
        QTest::newRow(name) << number << state;
    };
    add("PROCESS_VALUE_ERROR_TYPE_VALID", 0, PROCESS_VALUE_ERROR_TYPE_VALID);
    add("PROCESS_VALUE_ERROR_TYPE_UNDERRANGE", 1, PROCESS_VALUE_ERROR_TYPE_UNDERRANGE);
    add("PROCESS_VALUE_ERROR_TYPE_OVERRANGE", 2, PROCESS_VALUE_ERROR_TYPE_OVERRANGE);
    add("PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE", 3,
        PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE);
    add("PROCESS_VALUE_ERROR_TYPE_DIVISION_BY_ZERO", 4, PROCESS_VALUE_ERROR_TYPE_DIVISION_BY_ZERO);
    add("PROCESS_VALUE_ERROR_TYPE_INCORRECT_MATHEMATIC_VALUE", 5,
        PROCESS_VALUE_ERROR_TYPE_INCORRECT_MATHEMATIC_VALUE);
    add("PROCESS_VALUE_ERROR_TYPE_INVALID_TEMPERATURE", 6,
        PROCESS_VALUE_ERROR_TYPE_INVALID_TEMPERATURE);
    add("PROCESS_VALUE_ERROR_TYPE_SENSOR_SHORT_CIRCUIT", 7,
        PROCESS_VALUE_ERROR_TYPE_SENSOR_SHORT_CIRCUIT);
    add("PROCESS_VALUE_ERROR_TYPE_SENSOR_BREAKAGE", 8, PROCESS_VALUE_ERROR_TYPE_SENSOR_BREAKAGE);
    add("PROCESS_VALUE_ERROR_TYPE_TIMEOUT", 9, PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
}

void tst_ProcessValueErrorTypes::stateReadsAsItsName()
{
    QFETCH(int, number);
    QFETCH(ErrorTypes, state);

    QCOMPARE(int(state), number);
    QCOMPARE(getProcessValueStateTypeAsString(state), QString::fromLatin1(QTest::currentDataTag()));
}

void tst_ProcessValueErrorTypes::unknownStateIsNotDefined_data()
{
    QTest::addColumn<int>("number");
    QTest::newRow("just above") << 10;
    QTest::newRow("just below") << -1;
    QTest::newRow("greatest") << std::numeric_limits<int>::max();
    QTest::newRow("smallest") << std::numeric_limits<int>::min();
}

void tst_ProcessValueErrorTypes::unknownStateIsNotDefined()
{
    QFETCH(int, number);
    LogCapture log;

    QCOMPARE(getProcessValueStateTypeAsString(ErrorTypes(number)), QStringLiteral("not defined"));

    QVERIFY(log.take().isEmpty());
}

void tst_ProcessValueErrorTypes::namurStateHasItsLetter_data()
{
    QTest::addColumn<int>("number");
    QTest::addColumn<NamurStateTypes>("state");
    QTest::addColumn<QChar>("letter");
    QTest::newRow("none") << 0 << NAMUR_STATE_TYPE_NONE << QChar(32);
    QTest::newRow("failure") << 1 << NAMUR_STATE_TYPE_FAILURE << QChar('F');
    QTest::newRow("check") << 2 << NAMUR_STATE_TYPE_CHECK_FUNCTION << QChar('C');
    QTest::newRow("specification") << 3 << NAMUR_STATE_TYPE_OUT_OF_SPECIFICATION << QChar('S');
    QTest::newRow("maintenance") << 4 << NAMUR_STATE_TYPE_MAINTENANCE_REQUIRED << QChar('M');
}

void tst_ProcessValueErrorTypes::namurStateHasItsLetter()
{
    QFETCH(int, number);
    QFETCH(NamurStateTypes, state);
    QFETCH(QChar, letter);
    LogCapture log;

    QCOMPARE(int(state), number);
    QCOMPARE(getNamurStateTypeAsCharacter(state), letter);
    QCOMPARE(getNamurStateTypeAsString(state), QString(letter));

    QVERIFY(log.take().isEmpty());
}

void tst_ProcessValueErrorTypes::unknownNamurStateReadsAsFailureWithAWarning_data()
{
    QTest::addColumn<int>("number");
    QTest::newRow("just above") << 5;
    QTest::newRow("just below") << -1;
    QTest::newRow("greatest") << std::numeric_limits<int>::max();
}

void tst_ProcessValueErrorTypes::unknownNamurStateReadsAsFailureWithAWarning()
{
    QFETCH(int, number);
    LogCapture log;

    const QChar letter = getNamurStateTypeAsCharacter(NamurStateTypes(number));

    QCOMPARE(letter, QChar('F'));
    COMPARE_LOG(log, warning(QStringLiteral("Received an invalid namur state type!")));
}

void tst_ProcessValueErrorTypes::textOfNoNamurStateIsOneBlank()
{
    QCOMPARE(getNamurStateTypeAsString(NAMUR_STATE_TYPE_NONE), QStringLiteral(" "));
}

void tst_ProcessValueErrorTypes::textOfAnUnknownNamurStateWarnsOnce()
{
    LogCapture log;

    const QString text = getNamurStateTypeAsString(NamurStateTypes(5));

    QCOMPARE(text, QStringLiteral("F"));
    COMPARE_LOG(log, warning(QStringLiteral("Received an invalid namur state type!")));
}

void tst_ProcessValueErrorTypes::encodingHasTheseBits_data()
{
    QTest::addColumn<ErrorTypes>("state");
    QTest::addColumn<quint32>("floatBits");
    QTest::addColumn<quint64>("doubleBits");
    const auto add = [](const char *name, ErrorTypes state, quint32 floatBits, quint64 doubleBits) {
        QTest::newRow(name) << state << floatBits << doubleBits;
    };
    add("underrange", PROCESS_VALUE_ERROR_TYPE_UNDERRANGE, 0x7CF0BDC2, 0x7FF8000000000001);
    add("overrange", PROCESS_VALUE_ERROR_TYPE_OVERRANGE, 0x7D70BDC2, 0x7FF8000000000002);
    add("no input", PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE, 0x7DB48E52, 0x7FF8000000000003);
    add("division", PROCESS_VALUE_ERROR_TYPE_DIVISION_BY_ZERO, 0x7DF0BDC2, 0x7FF8000000000004);
    add("mathematics", PROCESS_VALUE_ERROR_TYPE_INCORRECT_MATHEMATIC_VALUE, 0x7E167699,
        0x7FF8000000000005);
    add("temperature", PROCESS_VALUE_ERROR_TYPE_INVALID_TEMPERATURE, 0x7E348E52,
        0x7FF8000000000006);
    add("short circuit", PROCESS_VALUE_ERROR_TYPE_SENSOR_SHORT_CIRCUIT, 0x7E52A60A,
        0x7FF8000000000007);
    add("breakage", PROCESS_VALUE_ERROR_TYPE_SENSOR_BREAKAGE, 0x7E70BDC2, 0x7FF8000000000008);
    add("timeout", PROCESS_VALUE_ERROR_TYPE_TIMEOUT, 0x7E876ABD, 0x7FF8000000000009);
}

void tst_ProcessValueErrorTypes::encodingHasTheseBits()
{
    QFETCH(ErrorTypes, state);
    QFETCH(quint32, floatBits);
    QFETCH(quint64, doubleBits);

    QCOMPARE(bitsOf(Maps::getMapStateTypeToFloatValue().value(state)), floatBits);
    QCOMPARE(bitsOf(Maps::getMapStateTypeToDoubleValue().value(state)), doubleBits);
}

void tst_ProcessValueErrorTypes::floatEncodingIsNearestToStateTimes1e37()
{
    QFETCH(ErrorTypes, state);
    const QByteArray decimal = QByteArray::number(int(state)) + "e37";

    QCOMPARE(bitsOf(Maps::getMapStateTypeToFloatValue().value(state)), bitsOf(decimal.toFloat()));
}

void tst_ProcessValueErrorTypes::doubleEncodingIsAQuietNaN()
{
    QFETCH(ErrorTypes, state);

    const double encoding = Maps::getMapStateTypeToDoubleValue().value(state);

    QVERIFY(std::isnan(encoding));
    QCOMPARE(bitsOf(encoding), Q_UINT64_C(0x7FF8000000000000) + quint64(state));
}

void tst_ProcessValueErrorTypes::mapsHaveNineRows()
{
    QCOMPARE(Maps::getMapStateTypeToFloatValue().size(), 9);
    QCOMPARE(Maps::getMapFloatValueToStateType().size(), 9);
    QCOMPARE(Maps::getMapStateTypeToDoubleValue().size(), 9);
    QCOMPARE(Maps::getMapDoubleValueToStateType().size(), 9);
}

void tst_ProcessValueErrorTypes::validStateIsInNoMap()
{
    QVERIFY(!Maps::getMapStateTypeToFloatValue().contains(PROCESS_VALUE_ERROR_TYPE_VALID));
    QVERIFY(!Maps::getMapStateTypeToDoubleValue().contains(PROCESS_VALUE_ERROR_TYPE_VALID));
    QVERIFY(!Maps::getMapFloatValueToStateType().values().contains(PROCESS_VALUE_ERROR_TYPE_VALID));
    QVERIFY(
        !Maps::getMapDoubleValueToStateType().values().contains(PROCESS_VALUE_ERROR_TYPE_VALID));
}

void tst_ProcessValueErrorTypes::floatEncodingIsRecognised()
{
    QFETCH(ErrorTypes, state);
    const float encoding = Maps::getMapStateTypeToFloatValue().value(state);

    QCOMPARE(Maps::getMapFloatValueToStateType().value(encoding), state);
}

void tst_ProcessValueErrorTypes::nearbyFloatIsNotRecognised()
{
    QFETCH(ErrorTypes, state);
    const float encoding = Maps::getMapStateTypeToFloatValue().value(state);

    QVERIFY(!Maps::getMapFloatValueToStateType().contains(std::nextafter(encoding, 0.0F)));
    QVERIFY(!Maps::getMapFloatValueToStateType().contains(std::nextafter(encoding, 3.4e38F)));
    QVERIFY(!Maps::getMapFloatValueToStateType().contains(-encoding));
}

void tst_ProcessValueErrorTypes::ordinaryFloatIsNotRecognised_data()
{
    QTest::addColumn<float>("number");
    QTest::newRow("zero") << 0.0F;
    QTest::newRow("one") << 1.0F;
    QTest::newRow("greatest") << std::numeric_limits<float>::max();
    QTest::newRow("infinity") << std::numeric_limits<float>::infinity();
    QTest::newRow("NaN") << std::numeric_limits<float>::quiet_NaN();
}

void tst_ProcessValueErrorTypes::ordinaryFloatIsNotRecognised()
{
    QFETCH(float, number);

    QVERIFY(!Maps::getMapFloatValueToStateType().contains(number));
}

void tst_ProcessValueErrorTypes::doubleEncodingIsNeverRecognised()
{
    QFETCH(ErrorTypes, state);
    const auto &map = Maps::getMapDoubleValueToStateType();
    const double encoding = Maps::getMapStateTypeToDoubleValue().value(state);

    QVERIFY(!map.contains(encoding));
    QVERIFY(map.constFind(encoding) == map.cend());
    QCOMPARE(map.value(encoding, PROCESS_VALUE_ERROR_TYPE_VALID), PROCESS_VALUE_ERROR_TYPE_VALID);
}

void tst_ProcessValueErrorTypes::reverseMapOfDoublesHoldsNineSeparateEncodings()
{
    const auto &map = Maps::getMapDoubleValueToStateType();
    QMap<quint64, int> stateByBits;

    for (auto row = map.cbegin(); row != map.cend(); ++row) {
        stateByBits.insert(bitsOf(row.key()), int(row.value()));
    }

    QCOMPARE(stateByBits.size(), 9);
    for (int state = 1; state <= 9; ++state) {
        QCOMPARE(stateByBits.value(Q_UINT64_C(0x7FF8000000000000) + quint64(state)), state);
    }
}

void tst_ProcessValueErrorTypes::mapsAreBuiltOnce()
{
    QCOMPARE(&Maps::getMapStateTypeToFloatValue(), &Maps::getMapStateTypeToFloatValue());
    QCOMPARE(&Maps::getMapFloatValueToStateType(), &Maps::getMapFloatValueToStateType());
    QCOMPARE(&Maps::getMapStateTypeToDoubleValue(), &Maps::getMapStateTypeToDoubleValue());
    QCOMPARE(&Maps::getMapDoubleValueToStateType(), &Maps::getMapDoubleValueToStateType());
}

QTEST_GUILESS_MAIN(tst_ProcessValueErrorTypes)
#include "tst_ProcessValueErrorTypes.moc"
