#include "leaves/NumberLimits.h"
#include "leaves/ShortestText.h"

#include <QtTest>

#include <cmath>
#include <limits>

class tst_NumberLimits : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void numbersOutsideAreTold_data();
    void numbersOutsideAreTold();
    void aLimitIsANumberOfTheType();
    void numbersHaveTheirShortestText_data();
    void numbersHaveTheirShortestText();
};

void tst_NumberLimits::numbersOutsideAreTold_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QVariant>("least");
    QTest::addColumn<QVariant>("most");
    QTest::addColumn<QString>("problem");
    const QVariant none;

    QTest::newRow("no limits") << QVariant(1e300) << none << none << "";
    QTest::newRow("at the lower") << QVariant(-2.5) << QVariant(-2.5) << none << "";
    QTest::newRow("at the upper") << QVariant(10LL) << none << QVariant(10) << "";
    QTest::newRow("below") << QVariant(-2.75) << QVariant(-2.5) << QVariant(0)
                           << "-2.75 is below the lower limit, -2.5";
    QTest::newRow("above") << QVariant(11LL) << QVariant(0) << QVariant(10)
                           << "11 is above the upper limit, 10";
    QTest::newRow("digits of a float")
        << QVariant(0.1F) << QVariant(0.3) << none << "0.1 is below the lower limit, 0.3";
    QTest::newRow("more than a double holds")
        << QVariant(std::numeric_limits<qulonglong>::max()) << none
        << QVariant(QStringLiteral("18446744073709551614"))
        << "18446744073709551615 is above the upper limit, 18446744073709551614";
    QTest::newRow("unsigned of 32 bits") << QVariant(4294967295U) << none << QVariant(4294967294U)
                                         << "4294967295 is above the upper limit, 4294967294";
    QTest::newRow("negative of 64 bits")
        << QVariant(std::numeric_limits<qlonglong>::min()) << QVariant(-9223372036854775807LL)
        << none << "-9223372036854775808 is below the lower limit, -9223372036854775807";
    QTest::newRow("limit that is no number")
        << QVariant(5LL) << QVariant(QStringLiteral("x")) << QVariant(QStringLiteral("y")) << "";
    QTest::newRow("text") << QVariant(QStringLiteral("5")) << QVariant(6) << QVariant(4) << "";
    QTest::newRow("truth value") << QVariant(true) << QVariant(2) << QVariant(0) << "";
}

void tst_NumberLimits::numbersOutsideAreTold()
{
    QFETCH(QVariant, value);
    QFETCH(QVariant, least);
    QFETCH(QVariant, most);

    QTEST(limitProblem(value, least, most), "problem");
}

void tst_NumberLimits::aLimitIsANumberOfTheType()
{
    QCOMPARE(limitOf(QStringLiteral("7"), QMetaType::LongLong), QVariant(7LL));
    QCOMPARE(limitOf(0.5, QMetaType::Float), QVariant(0.5F));
    QVERIFY(!limitOf({}, QMetaType::Double).isValid());
    QVERIFY(!limitOf(QVariant(QVariant::Double), QMetaType::Double).isValid());
    QVERIFY(!limitOf(QStringLiteral("low"), QMetaType::Double).isValid());
}

void tst_NumberLimits::numbersHaveTheirShortestText_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QString>("text");

    QTest::newRow("float") << QVariant(0.1F) << "0.1";
    QTest::newRow("double") << QVariant(0.1) << "0.1";
    QTest::newRow("double of a float") << QVariant(double(0.1F)) << "0.10000000149011612";
    QTest::newRow("exponent") << QVariant(2e37F) << "2e+37";
    QTest::newRow("whole") << QVariant(3000.0) << "3000";
    QTest::newRow("minus zero") << QVariant(-0.0) << "-0";
    QTest::newRow("nan") << QVariant(std::nan("")) << "nan";
    QTest::newRow("minus nan") << QVariant(-std::nan("")) << "nan";
    QTest::newRow("inf") << QVariant(std::numeric_limits<double>::infinity()) << "inf";
    QTest::newRow("-inf") << QVariant(-std::numeric_limits<float>::infinity()) << "-inf";
    QTest::newRow("integer") << QVariant(std::numeric_limits<qulonglong>::max())
                             << "18446744073709551615";
    QTest::newRow("truth value") << QVariant(true) << "true";
    QTest::newRow("text") << QVariant(QStringLiteral("0.10")) << "0.10";
}

void tst_NumberLimits::numbersHaveTheirShortestText()
{
    QFETCH(QVariant, value);

    QTEST(shortestText(value), "text");
}

QTEST_GUILESS_MAIN(tst_NumberLimits)
#include "tst_NumberLimits.moc"
