#include "Companion/JsonReading.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QtTest>

#include <limits>

namespace {

constexpr int former = 77;

QJsonObject parse(const QByteArray &json)
{
    return QJsonDocument::fromJson(json).object();
}

} // namespace

class tst_JsonReading : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void integerIsRead_data();
    void integerIsRead();
    void anythingElseIsRefused_data();
    void anythingElseIsRefused();
    void missingKeyIsRefused();
    void emptyObjectIsRefused();
    void keyIsCaseSensitive();
    void onlyTheKeyInQuestionIsRead();
    void integerPutInByCodeIsRead();
    void infinityPutInByCodeIsRefused();
    void lastArgumentHasNoEffect();
};

void tst_JsonReading::integerIsRead_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<int>("expected");
    QTest::newRow("positive") << QByteArray("5") << 5;
    QTest::newRow("zero") << QByteArray("0") << 0;
    QTest::newRow("negative zero") << QByteArray("-0") << 0;
    QTest::newRow("negative") << QByteArray("-12") << -12;
    QTest::newRow("greatest") << QByteArray("2147483647") << 2147483647;
    QTest::newRow("smallest") << QByteArray("-2147483648") << std::numeric_limits<int>::min();
    QTest::newRow("written with a fraction of zero") << QByteArray("5.0") << 5;
    QTest::newRow("written with an exponent") << QByteArray("2e3") << 2000;
}

void tst_JsonReading::integerIsRead()
{
    QFETCH(QByteArray, json);
    int value = former;

    QVERIFY(
        readIntegerValueFromJson(QStringLiteral("key"), parse("{\"key\":" + json + "}"), value, 0));

    QTEST(value, "expected");
}

void tst_JsonReading::anythingElseIsRefused_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::newRow("fraction") << QByteArray("1.5");
    QTest::newRow("small fraction") << QByteArray("1e-3");
    QTest::newRow("fraction above the greatest int") << QByteArray("2147483647.5");
    QTest::newRow("just above the greatest int") << QByteArray("2147483648");
    QTest::newRow("just below the smallest int") << QByteArray("-2147483649");
    QTest::newRow("a multiple of 32 bits") << QByteArray("4294967296");
    QTest::newRow("greatest 64-bit integer") << QByteArray("9223372036854775807");
    QTest::newRow("very large") << QByteArray("1e300");
    QTest::newRow("number as text") << QByteArray("\"5\"");
    QTest::newRow("empty text") << QByteArray("\"\"");
    QTest::newRow("true") << QByteArray("true");
    QTest::newRow("null") << QByteArray("null");
    QTest::newRow("array") << QByteArray("[5]");
    QTest::newRow("object") << QByteArray("{\"key\":5}");
}

void tst_JsonReading::anythingElseIsRefused()
{
    QFETCH(QByteArray, json);
    const QJsonObject object = parse("{\"key\":" + json + "}");
    QVERIFY(object.contains(QLatin1String("key")));
    int value = former;

    QVERIFY(!readIntegerValueFromJson(QStringLiteral("key"), object, value, 0));

    QCOMPARE(value, former);
}

void tst_JsonReading::missingKeyIsRefused()
{
    int value = former;

    QVERIFY(!readIntegerValueFromJson(QStringLiteral("key"), parse("{\"other\":5}"), value, 0));

    QCOMPARE(value, former);
}

void tst_JsonReading::emptyObjectIsRefused()
{
    int value = former;

    QVERIFY(!readIntegerValueFromJson(QStringLiteral("key"), QJsonObject(), value, 0));
    QVERIFY(!readIntegerValueFromJson(QString(), QJsonObject(), value, 0));

    QCOMPARE(value, former);
}

void tst_JsonReading::keyIsCaseSensitive()
{
    int value = former;

    QVERIFY(!readIntegerValueFromJson(QStringLiteral("key"), parse("{\"Key\":5}"), value, 0));

    QCOMPARE(value, former);
}

void tst_JsonReading::onlyTheKeyInQuestionIsRead()
{
    const QJsonObject object = parse(R"({"first":1,"second":2,"third":"x"})");
    int value = former;

    QVERIFY(readIntegerValueFromJson(QStringLiteral("second"), object, value, 0));

    QCOMPARE(value, 2);
}

void tst_JsonReading::integerPutInByCodeIsRead()
{
    const QJsonObject object = {{QStringLiteral("key"), 42}};
    int value = former;

    QVERIFY(readIntegerValueFromJson(QStringLiteral("key"), object, value, 0));

    QCOMPARE(value, 42);
}

void tst_JsonReading::infinityPutInByCodeIsRefused()
{
    const double infinity = std::numeric_limits<double>::infinity();
    const double notANumber = std::numeric_limits<double>::quiet_NaN();
    int value = former;

    for (const double number : {infinity, -infinity, notANumber}) {
        const QJsonObject object = {{QStringLiteral("key"), number}};
        QVERIFY(!readIntegerValueFromJson(QStringLiteral("key"), object, value, 0));
    }

    QCOMPARE(value, former);
}

void tst_JsonReading::lastArgumentHasNoEffect()
{
    const QJsonObject object = parse(R"({"key":3})");

    for (const int reserved : {0, 1, -1, 99}) {
        int value = former;
        QVERIFY(readIntegerValueFromJson(QStringLiteral("key"), object, value, reserved));
        QCOMPARE(value, 3);
        QVERIFY(!readIntegerValueFromJson(QStringLiteral("other"), object, value, reserved));
        QCOMPARE(value, 3);
    }
}

QTEST_GUILESS_MAIN(tst_JsonReading)
#include "tst_JsonReading.moc"
