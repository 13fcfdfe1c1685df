#include "expressions/Duration.h"
#include "expressions/ExactNumber.h"

#include <QtTest>

#include <cmath>
#include <limits>

namespace {

constexpr qint64 leastSigned = std::numeric_limits<qint64>::min();
constexpr qint64 mostSigned = std::numeric_limits<qint64>::max();
constexpr quint64 mostUnsigned = std::numeric_limits<quint64>::max();

QString nameOf(const std::optional<Order> &order)
{
    if (!order) {
        return QStringLiteral("none");
    }
    return *order == Order::Less    ? QStringLiteral("less")
           : *order == Order::Equal ? QStringLiteral("equal")
                                    : QStringLiteral("greater");
}

QString orderOf(const QVariant &content, const QString &text)
{
    const auto left = ExactNumber::fromContent(content);
    const auto right = ExactNumber::fromText(text);
    if (!left || !right) {
        return QStringLiteral("no number");
    }
    const QString order = nameOf(ExactNumber::compare(*left, *right));
    const QString turned = nameOf(ExactNumber::compare(*right, *left));
    const bool fits = order == QLatin1String("less")      ? turned == QLatin1String("greater")
                      : order == QLatin1String("greater") ? turned == QLatin1String("less")
                                                          : turned == order;
    return fits ? order : QStringLiteral("not the same from the other side");
}

} // namespace

/// Numbers of leaves and of texts, compared without rounding.
class tst_ExactNumber : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void contentIsComparedWithAText_data();
    void contentIsComparedWithAText();
    void contentsAreComparedExactly_data();
    void contentsAreComparedExactly();
    void textIsNoNumber_data();
    void textIsNoNumber();
    void longTextIsTakenInItsTime();
    void distanceIsExactOfWholeNumbers();
    void durationsAreRead_data();
    void durationsAreRead();
    void durationsAreShown();
};

void tst_ExactNumber::contentIsComparedWithAText_data()
{
    QTest::addColumn<QVariant>("content");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("order");
    const auto add = [](const char *name, const QVariant &content, const char *text,
                        const char *order) {
        QTest::newRow(name) << content << QString::fromLatin1(text) << QString::fromLatin1(order);
    };
    add("beyond 2^53", qint64(9007199254740993), "9007199254740992", "greater");
    add("beyond 2^53, with a point", qint64(9007199254740993), "9007199254740993.0", "equal");
    add("with an exponent", qint64(1500), "1.5e3", "equal");
    add("with a negative exponent", qint64(15), "1500e-2", "equal");
    add("half a number more", qint64(9007199254740993), "9007199254740993.5", "less");
    add("half a number less", qint64(-9007199254740993), "-9007199254740993.5", "greater");
    add("least signed", leastSigned, "-9223372036854775808", "equal");
    add("most signed", mostSigned, "9223372036854775807", "equal");
    add("most signed, as a double", mostSigned, "9.223372036854775808e18", "less");
    add("most unsigned", mostUnsigned, "18446744073709551615", "equal");
    add("one more than unsigned", mostUnsigned, "18446744073709551616", "less");
    add("far beyond", mostUnsigned, "1e30", "less");
    add("far below", leastSigned, "-1e30", "greater");
    add("hexadecimal", mostUnsigned, "0xFFFFFFFFFFFFFFFF", "equal");
    add("negative hexadecimal", qint64(-255), "-0xff", "equal");
    add("plus sign", qint64(5), "+5", "equal");
    add("leading zeros are no octal", qint64(10), "0010", "equal");
    add("zero", qint64(0), "-0", "equal");
    add("zero with decimals", quint64(0), "0.000", "equal");
    add("smaller than 1", qint64(0), "0.25", "less");
    add("tiny", qint64(0), "1e-300", "less");
    add("int and fraction", QVariant(int(3)), "2.5", "greater");
    add("uint", QVariant(uint(4000000000U)), "4000000000", "equal");
    add("double", 0.1, "0.1", "equal");
    add("double and a whole one", 2.5, "2", "greater");
    add("double, negative", -2.5, "-2", "less");
    add("double beyond 2^53", 9007199254740992.0, "9007199254740993", "less");
    add("double of 2^64", 18446744073709551616.0, "18446744073709551615", "greater");
    add("large double", 1e300, "1e300", "equal");
    add("negative zero", -0.0, "0", "equal");
    add("float as it is shown", QVariant(0.1F), "0.1", "equal");
    add("float and less", QVariant(0.1F), "0.09", "greater");
    add("float and a whole one", QVariant(16777216.0F), "16777217", "less");
    add("large float", QVariant(1e30F), "1e30", "equal");
    add("float and what no float is", QVariant(1e30F), "1e300", "less");
    add("infinity", std::numeric_limits<double>::infinity(), "1e300", "greater");
    add("negative infinity", -std::numeric_limits<double>::infinity(), "-1e300", "less");
    add("infinity and a whole one", std::numeric_limits<double>::infinity(), "5", "greater");
    add("infinite float and what no float is", QVariant(std::numeric_limits<float>::infinity()),
        "1e300", "greater");
    add("NaN", std::numeric_limits<double>::quiet_NaN(), "0", "none");
    add("NaN as a float", QVariant(std::numeric_limits<float>::quiet_NaN()), "0.5", "none");
    add("text", QStringLiteral("5"), "5", "no number");
    add("truth value", true, "1", "no number");
}

void tst_ExactNumber::contentIsComparedWithAText()
{
    QFETCH(QVariant, content);
    QFETCH(QString, text);

    QTEST(orderOf(content, text), "order");
}

void tst_ExactNumber::contentsAreComparedExactly_data()
{
    QTest::addColumn<QVariant>("left");
    QTest::addColumn<QVariant>("right");
    QTest::addColumn<QString>("order");

    QTest::newRow("signs") << QVariant(qint64(-1)) << QVariant(mostUnsigned) << "less";
    QTest::newRow("halves") << QVariant(mostSigned) << QVariant(quint64(mostSigned) + 1) << "less";
    QTest::newRow("double between")
        << QVariant(mostSigned) << QVariant(9223372036854775808.0) << "less";
    QTest::newRow("same double") << QVariant(quint64(mostSigned) + 1)
                                 << QVariant(9223372036854775808.0) << "equal";
    QTest::newRow("float and double") << QVariant(0.1F) << QVariant(0.1) << "greater";
    QTest::newRow("fractions") << QVariant(-0.5) << QVariant(-0.25) << "less";
    QTest::newRow("fraction and whole") << QVariant(qint64(-1)) << QVariant(-0.5) << "less";
    QTest::newRow("infinities") << QVariant(std::numeric_limits<double>::infinity())
                                << QVariant(std::numeric_limits<float>::infinity()) << "equal";
}

void tst_ExactNumber::contentsAreComparedExactly()
{
    QFETCH(QVariant, left);
    QFETCH(QVariant, right);

    QTEST(nameOf(ExactNumber::compare(*ExactNumber::fromContent(left),
                                      *ExactNumber::fromContent(right))),
          "order");
}

void tst_ExactNumber::textIsNoNumber_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("looksLikeOne");
    const auto add = [](const char *text, bool looksLikeOne) {
        QTest::newRow(text) << QString::fromLatin1(text) << looksLikeOne;
    };
    add("", false);
    add("-", false);
    add(".", false);
    add("-.", false);
    add("1e", false);
    add("1e+", false);
    add("0x", false);
    add("0xg", false);
    add("1.2.3", false);
    add("1_000", false);
    add("--1", false);
    add("nan", false);
    add("inf", false);
    add("0x1FFFFFFFFFFFFFFFF", true);
    add("1e400", true);
    add("-1e400", true);
    add("1e-400", true);
    add("1e99999999999999999999", true);
    add("1e-99999999999999999999", true);
}

void tst_ExactNumber::textIsNoNumber()
{
    QFETCH(QString, text);

    QVERIFY(!ExactNumber::fromText(text));
    QTEST(looksLikeNumber(text), "looksLikeOne");
}

void tst_ExactNumber::longTextIsTakenInItsTime()
{
    constexpr int million = 1000000;
    const QString zeros(million, QLatin1Char('0'));
    const QString digits(million, QLatin1Char('7'));

    QCOMPARE(orderOf(qint64(5), zeros + QLatin1Char('5')), QStringLiteral("equal"));
    QCOMPARE(orderOf(qint64(5), QStringLiteral("5.") + zeros), QStringLiteral("equal"));
    QCOMPARE(orderOf(qint64(5), QStringLiteral("5.") + zeros + QLatin1Char('1')),
             QStringLiteral("less"));
    QVERIFY(!ExactNumber::fromText(digits));
    QVERIFY(!ExactNumber::fromText(QStringLiteral("0x") + digits));
}

void tst_ExactNumber::distanceIsExactOfWholeNumbers()
{
    const auto isDistance = [](const QVariant &left, const QVariant &right,
                               const ExactNumber &expected) {
        const ExactNumber distance = ExactNumber::distance(*ExactNumber::fromContent(left),
                                                           *ExactNumber::fromContent(right));
        return ExactNumber::compare(distance, expected) == Order::Equal;
    };

    QVERIFY(isDistance(mostUnsigned, mostUnsigned - 1, ExactNumber::fromUnsigned(1)));
    QVERIFY(isDistance(qint64(-3), qint64(4), ExactNumber::fromUnsigned(7)));
    QVERIFY(isDistance(leastSigned, mostSigned, ExactNumber::fromUnsigned(mostUnsigned)));
    QVERIFY(isDistance(qint64(-5), qint64(-3), ExactNumber::fromUnsigned(2)));
    QVERIFY(isDistance(leastSigned, mostUnsigned, ExactNumber::fromDouble(27670116110564327424.0)));
    QVERIFY(isDistance(1.5, 1.0, ExactNumber::fromDouble(0.5)));
    QVERIFY(ExactNumber::distance(ExactNumber::fromDouble(std::nan("")), ExactNumber::fromDouble(0))
                .isNaN());
}

void tst_ExactNumber::durationsAreRead_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<qint64>("microseconds");
    const auto add = [](const char *text, qint64 microseconds) {
        QTest::newRow(text) << QString::fromLatin1(text) << microseconds;
    };
    add("500ms", 500000);
    add("1.5s", 1500000);
    add("2min", 120000000);
    add("1h", 3600000000);
    add("0s", 0);
    add("0.1ms", 100);
    add("720h", 2592000000000);
    add("721h", -1);
    add("5", -1);
    add("-1s", -1);
    add("s", -1);
    add("5 s", -1);
    add("5d", -1);
    add("1e300h", -1);
    add("nans", -1);
}

void tst_ExactNumber::durationsAreRead()
{
    QFETCH(QString, text);

    const auto duration = durationFromText(text);

    QTEST(duration ? qint64(duration->count()) : qint64(-1), "microseconds");
}

void tst_ExactNumber::durationsAreShown()
{
    using std::chrono::microseconds;
    QCOMPARE(durationText(microseconds(0)), QStringLiteral("0 s"));
    QCOMPARE(durationText(microseconds(500000)), QStringLiteral("500 ms"));
    QCOMPARE(durationText(microseconds(1500000)), QStringLiteral("1.5 s"));
    QCOMPARE(durationText(microseconds(120000000)), QStringLiteral("2 min"));
}

QTEST_APPLESS_MAIN(tst_ExactNumber)
#include "tst_ExactNumber.moc"
