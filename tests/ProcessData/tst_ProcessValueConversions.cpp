#include "Companion/StringConversionsDefinitions.h"
#include "ProcessData/ProcessValue.h"
#include "support/LogCapture.h"

#include <QtTest>

#include <limits>

using namespace ProcessDataDefinitions;

namespace {

ProcessValue valid(const QVariant &value)
{
    return {value, PROCESS_VALUE_ERROR_TYPE_VALID};
}

} // namespace

/// What a process value gives as a number, a boolean or a text.
class tst_ProcessValueConversions : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void validContentConvertsToNumbers_data();
    void validContentConvertsToNumbers();
    void failedConversionGivesZero_data();
    void failedConversionGivesZero();
    void erroneousValueGivesNoNumber_data();
    void erroneousValueGivesNoNumber();
    void doubleConversionRoundsToInt();
    void nanConvertsToDouble();
    void nullFlagIsAllowed();
    void flagIsOverwrittenEitherWay();

    void contentConvertsToBoolean_data();
    void contentConvertsToBoolean();
    void noContentGivesNoBoolean();
    void erroneousValueGivesNoBoolean();

    void validContentHasAText_data();
    void validContentHasAText();
    void erroneousValueHasASign_data();
    void erroneousValueHasASign();
    void otherTypesHaveNoText_data();
    void otherTypesHaveNoText();
    void floatHasNoTextAndTheSameDoubleHas();
    void noContentHasNoText();
    void textOfTheContentIsRefusedForAnErroneousValue();
};

void tst_ProcessValueConversions::validContentConvertsToNumbers_data()
{
    QTest::addColumn<QVariant>("content");
    QTest::addColumn<double>("number");
    QTest::newRow("int") << QVariant(-7) << -7.0;
    QTest::newRow("unsigned") << QVariant(7U) << 7.0;
    QTest::newRow("64 bits") << QVariant(Q_INT64_C(7)) << 7.0;
    QTest::newRow("double") << QVariant(12.0) << 12.0;
    QTest::newRow("float") << QVariant(12.0F) << 12.0;
    QTest::newRow("boolean") << QVariant(true) << 1.0;
    QTest::newRow("text of a number") << QVariant(QStringLiteral("25")) << 25.0;
}

void tst_ProcessValueConversions::validContentConvertsToNumbers()
{
    QFETCH(QVariant, content);
    QFETCH(double, number);
    const ProcessValue value = valid(content);
    bool doubleOk = false;
    bool floatOk = false;
    bool intOk = false;

    QCOMPARE(value.toDouble(&doubleOk), number);
    QCOMPARE(value.toFloat(&floatOk), float(number));
    QCOMPARE(value.toInt(&intOk), int(number));

    QVERIFY(doubleOk);
    QVERIFY(floatOk);
    QVERIFY(intOk);
}

void tst_ProcessValueConversions::failedConversionGivesZero_data()
{
    QTest::addColumn<QVariant>("content");
    QTest::newRow("text of no number") << QVariant(QStringLiteral("abc"));
    QTest::newRow("list") << QVariant(QVariantList{1, 2});
}

void tst_ProcessValueConversions::failedConversionGivesZero()
{
    QFETCH(QVariant, content);
    const ProcessValue value = valid(content);
    bool doubleOk = true;
    bool floatOk = true;
    bool intOk = true;

    QCOMPARE(value.toDouble(&doubleOk), 0.0);
    QCOMPARE(value.toFloat(&floatOk), 0.0F);
    QCOMPARE(value.toInt(&intOk), 0);

    QVERIFY(!doubleOk);
    QVERIFY(!floatOk);
    QVERIFY(!intOk);
}

void tst_ProcessValueConversions::erroneousValueGivesNoNumber_data()
{
    QTest::addColumn<int>("state");
    for (int state = 1; state <= 10; ++state) {
        QTest::newRow(QByteArray::number(state).constData()) << state;
    }
    QTest::newRow("negative") << -1;
}

void tst_ProcessValueConversions::erroneousValueGivesNoNumber()
{
    QFETCH(int, state);
    const ProcessValue value(QVariant(3.5), ErrorTypes(state));
    bool doubleOk = true;
    bool floatOk = true;
    bool intOk = true;

    QCOMPARE(value.toDouble(&doubleOk), 0.0);
    QCOMPARE(value.toFloat(&floatOk), 0.0F);
    QCOMPARE(value.toInt(&intOk), 0);

    QVERIFY(!doubleOk);
    QVERIFY(!floatOk);
    QVERIFY(!intOk);
}

void tst_ProcessValueConversions::doubleConversionRoundsToInt()
{
    bool ok = false;

    QCOMPARE(valid(3.5).toInt(&ok), QVariant(3.5).toInt());

    QVERIFY(ok);
}

void tst_ProcessValueConversions::nanConvertsToDouble()
{
    bool ok = false;

    QVERIFY(qIsNaN(valid(std::numeric_limits<double>::quiet_NaN()).toDouble(&ok)));

    QVERIFY(ok);
}

void tst_ProcessValueConversions::nullFlagIsAllowed()
{
    const ProcessValue value = valid(3);
    const ProcessValue erroneous(QVariant(3), PROCESS_VALUE_ERROR_TYPE_TIMEOUT);

    QCOMPARE(value.toInt(nullptr), 3);
    QCOMPARE(value.toDouble(nullptr), 3.0);
    QCOMPARE(value.toFloat(nullptr), 3.0F);
    QCOMPARE(value.toBool(nullptr), true);
    QCOMPARE(value.toString(nullptr), QStringLiteral("3"));
    QCOMPARE(value.toInt(), 3);
    QCOMPARE(erroneous.toInt(nullptr), 0);
    QCOMPARE(erroneous.toDouble(nullptr), 0.0);
    QCOMPARE(erroneous.toFloat(nullptr), 0.0F);
    QCOMPARE(erroneous.toBool(nullptr), false);
    QCOMPARE(erroneous.toString(nullptr), StringConversionsDefinitions::getErrorNaNSign());
}

void tst_ProcessValueConversions::flagIsOverwrittenEitherWay()
{
    bool ok = false;

    valid(true).toBool(&ok);
    QVERIFY(ok);
    ProcessValue(PROCESS_VALUE_ERROR_TYPE_TIMEOUT).toBool(&ok);
    QVERIFY(!ok);
    ProcessValue(PROCESS_VALUE_ERROR_TYPE_TIMEOUT).toString(&ok);
    QVERIFY(ok);
}

void tst_ProcessValueConversions::contentConvertsToBoolean_data()
{
    QTest::addColumn<QVariant>("content");
    QTest::addColumn<bool>("expected");
    QTest::newRow("true") << QVariant(true) << true;
    QTest::newRow("false") << QVariant(false) << false;
    QTest::newRow("zero") << QVariant(0) << false;
    QTest::newRow("number") << QVariant(-3) << true;
    QTest::newRow("fraction") << QVariant(0.5) << true;
    QTest::newRow("text true") << QVariant(QStringLiteral("true")) << true;
    QTest::newRow("text false") << QVariant(QStringLiteral("false")) << false;
}

void tst_ProcessValueConversions::contentConvertsToBoolean()
{
    QFETCH(QVariant, content);
    bool ok = false;

    QTEST(valid(content).toBool(&ok), "expected");

    QVERIFY(ok);
}

void tst_ProcessValueConversions::noContentGivesNoBoolean()
{
    bool ok = true;

    QVERIFY(!ProcessValue(PROCESS_VALUE_ERROR_TYPE_VALID).toBool(&ok));

    QVERIFY(!ok);
}

void tst_ProcessValueConversions::erroneousValueGivesNoBoolean()
{
    bool ok = true;

    QVERIFY(!ProcessValue(QVariant(true), PROCESS_VALUE_ERROR_TYPE_UNDERRANGE).toBool(&ok));

    QVERIFY(!ok);
}

void tst_ProcessValueConversions::validContentHasAText_data()
{
    QTest::addColumn<QVariant>("content");
    QTest::addColumn<QString>("expected");
    QTest::newRow("int") << QVariant(-12) << QStringLiteral("-12");
    QTest::newRow("greatest int") << QVariant(2147483647) << QStringLiteral("2147483647");
    QTest::newRow("double") << QVariant(3.5) << QStringLiteral("3.5");
    QTest::newRow("true") << QVariant(true) << QStringLiteral("true");
    QTest::newRow("false") << QVariant(false) << QStringLiteral("false");
}

void tst_ProcessValueConversions::validContentHasAText()
{
    QFETCH(QVariant, content);
    const ProcessValue value = valid(content);
    LogCapture log;
    bool ok = false;
    bool validOk = false;

    QTEST(value.toString(&ok), "expected");
    QTEST(value.toStringForValidProcessValue(validOk), "expected");

    QVERIFY(ok);
    QVERIFY(validOk);
    QVERIFY(log.take().isEmpty());
}

void tst_ProcessValueConversions::erroneousValueHasASign_data()
{
    QTest::addColumn<int>("state");
    QTest::addColumn<QString>("sign");
    QTest::newRow("underrange") << 1 << StringConversionsDefinitions::getErrorUnderrangeSign();
    QTest::newRow("overrange") << 2 << StringConversionsDefinitions::getErrorOverrangeSign();
    QTest::newRow("no input") << 3 << StringConversionsDefinitions::getErrorNoInputValueSign();
    for (int state = 4; state <= 10; ++state) {
        QTest::newRow(QByteArray::number(state).constData())
            << state << StringConversionsDefinitions::getErrorNaNSign();
    }
    QTest::newRow("negative") << -1 << StringConversionsDefinitions::getErrorNaNSign();
}

void tst_ProcessValueConversions::erroneousValueHasASign()
{
    QFETCH(int, state);
    QFETCH(QString, sign);
    LogCapture log;
    bool ok = false;

    QCOMPARE(ProcessValue(QVariant(3.5), ErrorTypes(state)).toString(&ok), sign);
    QVERIFY(ok);
    ok = false;
    QCOMPARE(ProcessValue(QVariant(3.5F), ErrorTypes(state)).toString(&ok), sign);
    QVERIFY(ok);

    QVERIFY(log.take().isEmpty());
}

void tst_ProcessValueConversions::otherTypesHaveNoText_data()
{
    QTest::addColumn<QVariant>("content");
    QTest::addColumn<QString>("typeName");
    QTest::newRow("float") << QVariant(3.5F) << QStringLiteral("float");
    QTest::newRow("unsigned") << QVariant(3U) << QStringLiteral("uint");
    QTest::newRow("64 bits") << QVariant(Q_INT64_C(3)) << QStringLiteral("qlonglong");
    QTest::newRow("unsigned 64 bits") << QVariant(Q_UINT64_C(3)) << QStringLiteral("qulonglong");
    QTest::newRow("text") << QVariant(QStringLiteral("3")) << QStringLiteral("QString");
}

void tst_ProcessValueConversions::otherTypesHaveNoText()
{
    QFETCH(QVariant, content);
    QFETCH(QString, typeName);
    LogCapture log;
    bool ok = true;

    const QString text = valid(content).toString(&ok);

    QCOMPARE(text, QString());
    QVERIFY(!ok);
    COMPARE_LOG(log,
                warning(QStringLiteral("String conversion from type  QVariant::%1 not implemented")
                            .arg(typeName)));
}

void tst_ProcessValueConversions::floatHasNoTextAndTheSameDoubleHas()
{
    LogCapture log;
    bool ok = true;

    QCOMPARE(valid(3.5F).toString(&ok), QString());
    QVERIFY(!ok);
    QCOMPARE(log.take().size(), 1);

    QCOMPARE(valid(3.5).toString(&ok), QStringLiteral("3.5"));
    QVERIFY(ok);
    QVERIFY(log.take().isEmpty());
}

void tst_ProcessValueConversions::noContentHasNoText()
{
    LogCapture log;
    bool ok = true;

    QCOMPARE(ProcessValue(PROCESS_VALUE_ERROR_TYPE_VALID).toString(&ok), QString());

    QVERIFY(!ok);
    COMPARE_LOG(log, warning(QStringLiteral(
                         "String conversion from type  QVariant::Invalid not implemented")));
}

void tst_ProcessValueConversions::textOfTheContentIsRefusedForAnErroneousValue()
{
    LogCapture log;

    for (const QVariant &content : {QVariant(3), QVariant(3.5), QVariant(true)}) {
        bool ok = true;
        const ProcessValue value(content, PROCESS_VALUE_ERROR_TYPE_UNDERRANGE);
        QCOMPARE(value.toStringForValidProcessValue(ok), QString());
        QVERIFY(!ok);
    }

    QVERIFY(log.take().isEmpty());
}

QTEST_GUILESS_MAIN(tst_ProcessValueConversions)
#include "tst_ProcessValueConversions.moc"
