#include "ProcessData/ProcessValue.h"
#include "support/LogCapture.h"

#include <QtTest>

#include <limits>
#include <type_traits>

using namespace ProcessDataDefinitions;

static_assert(std::has_virtual_destructor_v<ProcessValue>);
static_assert(
    std::is_copy_constructible_v<ProcessValue> && std::is_copy_assignable_v<ProcessValue>);

namespace {

const double notANumber = std::numeric_limits<double>::quiet_NaN();

ProcessValue valid(const QVariant &value)
{
    return {value, PROCESS_VALUE_ERROR_TYPE_VALID};
}

ProcessValue underrange(const QVariant &value)
{
    return {value, PROCESS_VALUE_ERROR_TYPE_UNDERRANGE};
}

ProcessValue withNamurState(ProcessValue value, NamurStateTypes state)
{
    value.setNamurState(state);
    return value;
}

/// A value that equals nothing, not even itself.
class UnequalValue : public ProcessValue
{
public:
    using ProcessValue::ProcessValue;
    bool operator==(const ProcessValue & /*other*/) const override { return false; }
};

} // namespace

/// Construction, comparison, the analog record and the debug output; tst_ProcessValueConversions
/// has the rest.
class tst_ProcessValue : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void stateAloneHasNoContent();
    void validStateAloneStaysValid();
    void contentAndStateAreKept();
    void invalidVariantMakesNoValidInput_data();
    void invalidVariantMakesNoValidInput();
    void nullVariantOfATypeKeepsItsState();
    void tagIsStored();
    void invalidVariantWithTagMakesNoValidInput();
    void settersReplaceOneFieldEach();
    void copyHasAllFields();

    void equalContentsAreEqual_data();
    void equalContentsAreEqual();
    void differentContentsAreUnequal_data();
    void differentContentsAreUnequal();
    void differentTypesAreUnequalEvenInOneErrorState();
    void oneErrorStateMakesDifferentContentsEqual();
    void differentErrorStatesAreUnequal();
    void validAndErroneousAreUnequal();
    void namurStateIsIgnoredInErroneousValues();
    void differentNamurStatesOfValidValuesAreUnequal();
    void tagIsIgnoredInComparison();
    void twoStatesWithoutContentAreEqual();
    void nanEqualsNaN();
    void nanAgainstANumberIsUnequalInEitherOrder();
    void nanOfTwoNamurStatesAreUnequal();
    void unequalAsksTheVirtualEquality();

    void orderIsThatOfTheContents();
    void statesPlayNoPartInTheOrder();

    void analogRecordHasContentAndStates();
    void analogRecordConvertsTheContent_data();
    void analogRecordConvertsTheContent();
    void analogRecordOfAnErroneousValueKeepsTheContent();
    void analogRecordOfNoContentIsNoValidInput();
    void analogRecordOfAListIsNoValidInput();
    void analogRecordIsTakenOver();
    void analogRecordIsTakenOverWithoutACheck();

    void debugOutputShowsContentStateAndTag();
    void debugOutputHandsTheStreamOn();
    void debugOutputOfAnUnknownState();
};

void tst_ProcessValue::stateAloneHasNoContent()
{
    const ProcessValue value(PROCESS_VALUE_ERROR_TYPE_TIMEOUT);

    QVERIFY(!value.getValue().isValid());
    QCOMPARE(value.getErrorType(), PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
    QCOMPARE(value.getNamurState(), NAMUR_STATE_TYPE_NONE);
    QCOMPARE(value.getTag(), 0U);
}

void tst_ProcessValue::validStateAloneStaysValid()
{
    const ProcessValue value(PROCESS_VALUE_ERROR_TYPE_VALID);

    QVERIFY(!value.getValue().isValid());
    QCOMPARE(value.getErrorType(), PROCESS_VALUE_ERROR_TYPE_VALID);
}

void tst_ProcessValue::contentAndStateAreKept()
{
    const ProcessValue value(QVariant(12), PROCESS_VALUE_ERROR_TYPE_OVERRANGE);

    QCOMPARE(value.getValue(), QVariant(12));
    QCOMPARE(value.getErrorType(), PROCESS_VALUE_ERROR_TYPE_OVERRANGE);
    QCOMPARE(value.getNamurState(), NAMUR_STATE_TYPE_NONE);
    QCOMPARE(value.getTag(), 0U);
}

void tst_ProcessValue::invalidVariantMakesNoValidInput_data()
{
    QTest::addColumn<int>("passed");
    QTest::newRow("valid") << int(PROCESS_VALUE_ERROR_TYPE_VALID);
    QTest::newRow("underrange") << int(PROCESS_VALUE_ERROR_TYPE_UNDERRANGE);
    QTest::newRow("timeout") << int(PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
}

void tst_ProcessValue::invalidVariantMakesNoValidInput()
{
    QFETCH(int, passed);
    const QVariant nothing;

    const ProcessValue value(nothing, ErrorTypes(passed));

    QCOMPARE(value.getErrorType(), PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE);
    QVERIFY(!value.getValue().isValid());
}

void tst_ProcessValue::nullVariantOfATypeKeepsItsState()
{
    const ProcessValue value = valid(QVariant(QVariant::Double));

    QCOMPARE(value.getErrorType(), PROCESS_VALUE_ERROR_TYPE_VALID);
    QVERIFY(value.getValue().isNull());
}

void tst_ProcessValue::tagIsStored()
{
    const ProcessValue value(QVariant(1.5), 4294967295U, PROCESS_VALUE_ERROR_TYPE_UNDERRANGE);

    QCOMPARE(value.getTag(), 4294967295U);
    QCOMPARE(value.getValue(), QVariant(1.5));
    QCOMPARE(value.getErrorType(), PROCESS_VALUE_ERROR_TYPE_UNDERRANGE);
    QCOMPARE(value.getNamurState(), NAMUR_STATE_TYPE_NONE);
}

void tst_ProcessValue::invalidVariantWithTagMakesNoValidInput()
{
    const ProcessValue value(QVariant(), 7U, PROCESS_VALUE_ERROR_TYPE_VALID);

    QCOMPARE(value.getErrorType(), PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE);
    QCOMPARE(value.getTag(), 7U);
}

void tst_ProcessValue::settersReplaceOneFieldEach()
{
    ProcessValue value(QVariant(1), 9U, PROCESS_VALUE_ERROR_TYPE_VALID);

    value.setValue(QStringLiteral("text"));
    QCOMPARE(value.getErrorType(), PROCESS_VALUE_ERROR_TYPE_VALID);
    value.setErrorType(PROCESS_VALUE_ERROR_TYPE_SENSOR_BREAKAGE);
    value.setNamurState(NAMUR_STATE_TYPE_CHECK_FUNCTION);

    QCOMPARE(value.getValue(), QVariant(QStringLiteral("text")));
    QCOMPARE(value.getErrorType(), PROCESS_VALUE_ERROR_TYPE_SENSOR_BREAKAGE);
    QCOMPARE(value.getNamurState(), NAMUR_STATE_TYPE_CHECK_FUNCTION);
    QCOMPARE(value.getTag(), 9U);
}

void tst_ProcessValue::copyHasAllFields()
{
    const ProcessValue value = withNamurState(
        ProcessValue(QVariant(3.5), 11U, PROCESS_VALUE_ERROR_TYPE_OVERRANGE),
        NAMUR_STATE_TYPE_MAINTENANCE_REQUIRED);

    ProcessValue assigned(PROCESS_VALUE_ERROR_TYPE_VALID);
    assigned = value;

    QCOMPARE(assigned.getValue(), QVariant(3.5));
    QCOMPARE(assigned.getErrorType(), PROCESS_VALUE_ERROR_TYPE_OVERRANGE);
    QCOMPARE(assigned.getNamurState(), NAMUR_STATE_TYPE_MAINTENANCE_REQUIRED);
    QCOMPARE(assigned.getTag(), 11U);
}

void tst_ProcessValue::equalContentsAreEqual_data()
{
    QTest::addColumn<QVariant>("content");
    QTest::newRow("int") << QVariant(5);
    QTest::newRow("unsigned") << QVariant(5U);
    QTest::newRow("double") << QVariant(5.25);
    QTest::newRow("float") << QVariant(5.25F);
    QTest::newRow("boolean") << QVariant(true);
    QTest::newRow("text") << QVariant(QStringLiteral("x"));
    QTest::newRow("infinity") << QVariant(std::numeric_limits<double>::infinity());
}

void tst_ProcessValue::equalContentsAreEqual()
{
    QFETCH(QVariant, content);

    QVERIFY(valid(content) == valid(content));
    QVERIFY(!(valid(content) != valid(content)));
}

void tst_ProcessValue::differentContentsAreUnequal_data()
{
    QTest::addColumn<QVariant>("left");
    QTest::addColumn<QVariant>("right");
    QTest::newRow("int") << QVariant(5) << QVariant(6);
    QTest::newRow("double") << QVariant(5.25) << QVariant(5.5);
    QTest::newRow("float") << QVariant(5.25F) << QVariant(5.5F);
    QTest::newRow("boolean") << QVariant(true) << QVariant(false);
    QTest::newRow("text") << QVariant(QStringLiteral("x")) << QVariant(QStringLiteral("X"));
}

void tst_ProcessValue::differentContentsAreUnequal()
{
    QFETCH(QVariant, left);
    QFETCH(QVariant, right);

    QVERIFY(!(valid(left) == valid(right)));
    QVERIFY(valid(left) != valid(right));
}

void tst_ProcessValue::differentTypesAreUnequalEvenInOneErrorState()
{
    QVERIFY(!(valid(5) == valid(5.0)));
    QVERIFY(!(valid(5.0F) == valid(5.0)));
    QVERIFY(!(underrange(5) == underrange(5.0)));
    QVERIFY(!(underrange(5) == ProcessValue(PROCESS_VALUE_ERROR_TYPE_UNDERRANGE)));
}

void tst_ProcessValue::oneErrorStateMakesDifferentContentsEqual()
{
    QVERIFY(underrange(5) == underrange(6));
    QVERIFY(underrange(1.0) == underrange(notANumber));
}

void tst_ProcessValue::differentErrorStatesAreUnequal()
{
    QVERIFY(!(underrange(5) == ProcessValue(5, PROCESS_VALUE_ERROR_TYPE_OVERRANGE)));
}

void tst_ProcessValue::validAndErroneousAreUnequal()
{
    QVERIFY(!(valid(5) == underrange(5)));
    QVERIFY(!(underrange(5) == valid(5)));
}

void tst_ProcessValue::namurStateIsIgnoredInErroneousValues()
{
    QVERIFY(withNamurState(underrange(5), NAMUR_STATE_TYPE_FAILURE) == underrange(5));
}

void tst_ProcessValue::differentNamurStatesOfValidValuesAreUnequal()
{
    QVERIFY(!(withNamurState(valid(5), NAMUR_STATE_TYPE_FAILURE) == valid(5)));
    QVERIFY(withNamurState(valid(5), NAMUR_STATE_TYPE_FAILURE)
            == withNamurState(valid(5), NAMUR_STATE_TYPE_FAILURE));
}

void tst_ProcessValue::tagIsIgnoredInComparison()
{
    QVERIFY(ProcessValue(5, 1U, PROCESS_VALUE_ERROR_TYPE_VALID)
            == ProcessValue(5, 2U, PROCESS_VALUE_ERROR_TYPE_VALID));
}

void tst_ProcessValue::twoStatesWithoutContentAreEqual()
{
    QVERIFY(ProcessValue(PROCESS_VALUE_ERROR_TYPE_VALID)
            == ProcessValue(PROCESS_VALUE_ERROR_TYPE_VALID));
    QVERIFY(ProcessValue(PROCESS_VALUE_ERROR_TYPE_TIMEOUT)
            == ProcessValue(PROCESS_VALUE_ERROR_TYPE_TIMEOUT));
}

void tst_ProcessValue::nanEqualsNaN()
{
    QVERIFY(valid(notANumber) == valid(-notANumber));
    QVERIFY(valid(float(notANumber)) == valid(float(notANumber)));
    QVERIFY(!(valid(notANumber) != valid(notANumber)));
}

void tst_ProcessValue::nanAgainstANumberIsUnequalInEitherOrder()
{
    QVERIFY(!(valid(notANumber) == valid(1.0)));
    QVERIFY(!(valid(1.0) == valid(notANumber)));
    QVERIFY(!(valid(float(notANumber)) == valid(1.0F)));
    QVERIFY(!(valid(1.0F) == valid(float(notANumber))));
}

void tst_ProcessValue::nanOfTwoNamurStatesAreUnequal()
{
    QVERIFY(!(withNamurState(valid(notANumber), NAMUR_STATE_TYPE_FAILURE) == valid(notANumber)));
}

void tst_ProcessValue::unequalAsksTheVirtualEquality()
{
    const UnequalValue value(QVariant(5), PROCESS_VALUE_ERROR_TYPE_VALID);
    const ProcessValue &base = value;

    QVERIFY(base != valid(5));
}

void tst_ProcessValue::orderIsThatOfTheContents()
{
    QVERIFY(valid(1) < valid(2));
    QVERIFY(!(valid(2) < valid(1)));
    QVERIFY(!(valid(2) < valid(2)));
    QVERIFY(valid(1.5) < valid(2));
    QVERIFY(valid(-0.5) < valid(0.0));
    QVERIFY(valid(QStringLiteral("a")) < valid(QStringLiteral("b")));
}

void tst_ProcessValue::statesPlayNoPartInTheOrder()
{
    QVERIFY(ProcessValue(1, PROCESS_VALUE_ERROR_TYPE_TIMEOUT) < valid(2));
    QVERIFY(!(valid(2) < ProcessValue(1, PROCESS_VALUE_ERROR_TYPE_TIMEOUT)));
    QVERIFY(!(valid(1) < ProcessValue(1, PROCESS_VALUE_ERROR_TYPE_TIMEOUT)));
    QVERIFY(!(valid(1) < withNamurState(valid(1), NAMUR_STATE_TYPE_FAILURE)));
    QVERIFY(withNamurState(valid(1), NAMUR_STATE_TYPE_MAINTENANCE_REQUIRED) < valid(2));
}

void tst_ProcessValue::analogRecordHasContentAndStates()
{
    ProcessValue value = withNamurState(valid(3.5), NAMUR_STATE_TYPE_OUT_OF_SPECIFICATION);

    const auto record = value.getAnalogProcessValueContainer();

    QCOMPARE(record.value, 3.5);
    QCOMPARE(record.errorType, PROCESS_VALUE_ERROR_TYPE_VALID);
    QCOMPARE(record.namurState, NAMUR_STATE_TYPE_OUT_OF_SPECIFICATION);
}

void tst_ProcessValue::analogRecordConvertsTheContent_data()
{
    QTest::addColumn<QVariant>("content");
    QTest::addColumn<double>("expected");
    QTest::newRow("int") << QVariant(-7) << -7.0;
    QTest::newRow("float") << QVariant(0.5F) << 0.5;
    QTest::newRow("boolean") << QVariant(true) << 1.0;
    QTest::newRow("text of a number") << QVariant(QStringLiteral("2.5")) << 2.5;
    QTest::newRow("text of no number") << QVariant(QStringLiteral("abc")) << 0.0;
}

void tst_ProcessValue::analogRecordConvertsTheContent()
{
    QFETCH(QVariant, content);
    ProcessValue value = valid(content);

    const auto record = value.getAnalogProcessValueContainer();

    QTEST(record.value, "expected");
    QCOMPARE(record.errorType, PROCESS_VALUE_ERROR_TYPE_VALID);
}

void tst_ProcessValue::analogRecordOfAnErroneousValueKeepsTheContent()
{
    ProcessValue value = withNamurState(underrange(3.5), NAMUR_STATE_TYPE_FAILURE);

    const auto record = value.getAnalogProcessValueContainer();

    QCOMPARE(record.value, 3.5);
    QCOMPARE(record.errorType, PROCESS_VALUE_ERROR_TYPE_UNDERRANGE);
    QCOMPARE(record.namurState, NAMUR_STATE_TYPE_FAILURE);
}

void tst_ProcessValue::analogRecordOfNoContentIsNoValidInput()
{
    ProcessValue value = withNamurState(ProcessValue(PROCESS_VALUE_ERROR_TYPE_TIMEOUT),
                                        NAMUR_STATE_TYPE_FAILURE);

    const auto record = value.getAnalogProcessValueContainer();

    QCOMPARE(record.value, 0.0);
    QCOMPARE(record.errorType, PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE);
    QCOMPARE(record.namurState, NAMUR_STATE_TYPE_NONE);
    QCOMPARE(value.getErrorType(), PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
    QCOMPARE(value.getNamurState(), NAMUR_STATE_TYPE_FAILURE);
}

void tst_ProcessValue::analogRecordOfAListIsNoValidInput()
{
    ProcessValue value = valid(QVariantList{1.0, 2.0});

    const auto record = value.getAnalogProcessValueContainer();

    QCOMPARE(record.value, 0.0);
    QCOMPARE(record.errorType, PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE);
    QCOMPARE(record.namurState, NAMUR_STATE_TYPE_NONE);
}

void tst_ProcessValue::analogRecordIsTakenOver()
{
    ProcessValue value(QVariant(QStringLiteral("former")), 8U, PROCESS_VALUE_ERROR_TYPE_TIMEOUT);

    value.setAnalogProcessValueContainer(
        {2.5, PROCESS_VALUE_ERROR_TYPE_VALID, NAMUR_STATE_TYPE_CHECK_FUNCTION});

    QCOMPARE(value.getValue().type(), QVariant::Double);
    QCOMPARE(value.getValue().toDouble(), 2.5);
    QCOMPARE(value.getErrorType(), PROCESS_VALUE_ERROR_TYPE_VALID);
    QCOMPARE(value.getNamurState(), NAMUR_STATE_TYPE_CHECK_FUNCTION);
    QCOMPARE(value.getTag(), 8U);
}

void tst_ProcessValue::analogRecordIsTakenOverWithoutACheck()
{
    ProcessValue value = valid(1.0);

    value.setAnalogProcessValueContainer({notANumber, ErrorTypes(42), NamurStateTypes(17)});

    QCOMPARE(value.getValue().type(), QVariant::Double);
    QVERIFY(qIsNaN(value.getValue().toDouble()));
    QCOMPARE(int(value.getErrorType()), 42);
    QCOMPARE(int(value.getNamurState()), 17);
}

void tst_ProcessValue::debugOutputShowsContentStateAndTag()
{
    LogCapture log;

    qDebug() << ProcessValue(QVariant(3.5), 12U, PROCESS_VALUE_ERROR_TYPE_OVERRANGE);

    COMPARE_LOG(log, debugLine(QStringLiteral(
                         "QVariant(double, 3.5) \"PROCESS_VALUE_ERROR_TYPE_OVERRANGE\" 12")));
}

void tst_ProcessValue::debugOutputHandsTheStreamOn()
{
    LogCapture log;

    qDebug() << "before" << valid(1) << "after";

    COMPARE_LOG(log, debugLine(QStringLiteral(
                         "before QVariant(int, 1) \"PROCESS_VALUE_ERROR_TYPE_VALID\" 0 after")));
}

void tst_ProcessValue::debugOutputOfAnUnknownState()
{
    LogCapture log;

    qDebug() << ProcessValue(QVariant(true), 4294967295U, ErrorTypes(10));

    COMPARE_LOG(log, debugLine(QStringLiteral("QVariant(bool, true) \"not defined\" 4294967295")));
}

QTEST_GUILESS_MAIN(tst_ProcessValue)
#include "tst_ProcessValue.moc"
