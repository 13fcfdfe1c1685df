#include "Companion/ConvertInteger32Bit.h"
#include "Companion/IsoDateConverter.h"
#include "Companion/VEXOConvertDouble.h"

#include <QLocale>
#include <QTimeZone>
#include <QtTest>

#include <cmath>
#include <limits>

namespace {

QString isoText(const QDateTime &dateTime)
{
    return IsoDateConverter::convertDateTimeToIsoDateWithMsAndTimezone(dateTime);
}

QString doubleText(double number)
{
    QString text = QStringLiteral("former");
    VEXOConvertDouble().doubleToString(number, text);
    return text;
}

QString integerText(int number)
{
    QString text = QStringLiteral("former");
    const ConvertInteger32Bit converter;
    converter.qint32ToString(number, text);
    return text;
}

/// Makes the process German for its lifetime: a decimal comma and dots between the thousands.
class GermanLocale
{
public:
    GermanLocale() { QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany)); }
    ~GermanLocale() { QLocale::setDefault(m_former); }

    GermanLocale(const GermanLocale &) = delete;
    GermanLocale &operator=(const GermanLocale &) = delete;

private:
    QLocale m_former;
};

/// Moves the process to another time zone for its lifetime.
class LocalZone
{
public:
    explicit LocalZone(const QByteArray &zone)
        : m_former(qgetenv("TZ"))
        , m_wasSet(qEnvironmentVariableIsSet("TZ"))
    {
        qputenv("TZ", zone);
    }
    ~LocalZone() { m_wasSet ? qputenv("TZ", m_former) : qunsetenv("TZ"); }

    LocalZone(const LocalZone &) = delete;
    LocalZone &operator=(const LocalZone &) = delete;

private:
    QByteArray m_former;
    bool m_wasSet;
};

const QDate springDay(2026, 3, 1);
const QTime noonAndAQuarterSecond(12, 0, 0, 250);

} // namespace

class tst_TextConversions : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void utcTimeEndsInZ();
    void offsetIsWrittenInHoursAndMinutes_data();
    void offsetIsWrittenInHoursAndMinutes();
    void wholeSecondKeepsItsMilliseconds();
    void localTimeNamesItsOffset();
    void timeOfAZoneNamesItsOffset();
    void offsetWithSecondsKeepsThePointInTime();
    void textReadsBackAsTheSamePointInTime_data();
    void textReadsBackAsTheSamePointInTime();
    void invalidTimeGivesAnEmptyText();
    void yearBeyondFourDigitsGivesAnEmptyText();

    void doubleIsWrittenShortest_data();
    void doubleIsWrittenShortest();
    void doubleReadsBackExactly_data();
    void doubleReadsBackExactly();
    void negativeZeroHasNoSign();
    void nonFiniteDoubleIsWritten();
    void doubleIgnoresTheLocale();

    void integerIsWrittenInDecimal_data();
    void integerIsWrittenInDecimal();
    void integerIgnoresTheLocale();
};

void tst_TextConversions::utcTimeEndsInZ()
{
    const QDateTime time(springDay, noonAndAQuarterSecond, Qt::UTC);

    QCOMPARE(isoText(time), QStringLiteral("2026-03-01T12:00:00.250Z"));
}

void tst_TextConversions::offsetIsWrittenInHoursAndMinutes_data()
{
    QTest::addColumn<int>("seconds");
    QTest::addColumn<QString>("expected");
    QTest::newRow("east") << 3600 << QStringLiteral("2026-03-01T12:00:00.250+01:00");
    QTest::newRow("west") << -18000 << QStringLiteral("2026-03-01T12:00:00.250-05:00");
    QTest::newRow("half hour") << 19800 << QStringLiteral("2026-03-01T12:00:00.250+05:30");
    QTest::newRow("half hour west") << -12600 << QStringLiteral("2026-03-01T12:00:00.250-03:30");
    QTest::newRow("zero") << 0 << QStringLiteral("2026-03-01T12:00:00.250Z");
}

void tst_TextConversions::offsetIsWrittenInHoursAndMinutes()
{
    QFETCH(int, seconds);
    const QDateTime time(springDay, noonAndAQuarterSecond, Qt::OffsetFromUTC, seconds);

    QTEST(isoText(time), "expected");
}

void tst_TextConversions::wholeSecondKeepsItsMilliseconds()
{
    const QDateTime time(springDay, QTime(0, 0), Qt::UTC);

    QCOMPARE(isoText(time), QStringLiteral("2026-03-01T00:00:00.000Z"));
}

void tst_TextConversions::localTimeNamesItsOffset()
{
    const LocalZone centralEurope("CET-1CEST,M3.5.0,M10.5.0/3");

    QCOMPARE(isoText(QDateTime(springDay, noonAndAQuarterSecond, Qt::LocalTime)),
             QStringLiteral("2026-03-01T12:00:00.250+01:00"));
    QCOMPARE(isoText(QDateTime(QDate(2026, 7, 1), noonAndAQuarterSecond, Qt::LocalTime)),
             QStringLiteral("2026-07-01T12:00:00.250+02:00"));
}

void tst_TextConversions::timeOfAZoneNamesItsOffset()
{
    const QDateTime time(springDay, noonAndAQuarterSecond, QTimeZone(-16200));
    QCOMPARE(time.timeSpec(), Qt::TimeZone);

    QCOMPARE(isoText(time), QStringLiteral("2026-03-01T12:00:00.250-04:30"));
}

void tst_TextConversions::offsetWithSecondsKeepsThePointInTime()
{
    const QDateTime time(springDay, noonAndAQuarterSecond, Qt::OffsetFromUTC, 3208);

    QCOMPARE(isoText(time), QStringLiteral("2026-03-01T11:59:32.250+00:53"));
}

void tst_TextConversions::textReadsBackAsTheSamePointInTime_data()
{
    QTest::addColumn<QDateTime>("time");
    QTest::newRow("UTC") << QDateTime(springDay, noonAndAQuarterSecond, Qt::UTC);
    QTest::newRow("local") << QDateTime(springDay, noonAndAQuarterSecond, Qt::LocalTime);
    QTest::newRow("east") << QDateTime(springDay, noonAndAQuarterSecond, Qt::OffsetFromUTC, 7200);
    QTest::newRow("west of midnight")
        << QDateTime(springDay, QTime(23, 59, 59, 999), Qt::OffsetFromUTC, -39600);
    QTest::newRow("seconds in the offset")
        << QDateTime(springDay, noonAndAQuarterSecond, Qt::OffsetFromUTC, -3208);
    QTest::newRow("before 1970") << QDateTime(QDate(1901, 1, 1), QTime(0, 0, 0, 1), Qt::UTC);
}

void tst_TextConversions::textReadsBackAsTheSamePointInTime()
{
    QFETCH(QDateTime, time);

    const QDateTime readBack = QDateTime::fromString(isoText(time), Qt::ISODateWithMs);

    QVERIFY(readBack.isValid());
    QCOMPARE(readBack.toMSecsSinceEpoch(), time.toMSecsSinceEpoch());
}

void tst_TextConversions::invalidTimeGivesAnEmptyText()
{
    QCOMPARE(isoText(QDateTime()), QString());
    QCOMPARE(isoText(QDateTime(QDate(2026, 2, 30), QTime(12, 0), Qt::UTC)), QString());
}

void tst_TextConversions::yearBeyondFourDigitsGivesAnEmptyText()
{
    QCOMPARE(isoText(QDateTime(QDate(10000, 1, 1), QTime(0, 0), Qt::UTC)), QString());
    QCOMPARE(isoText(QDateTime(QDate(9999, 12, 31), QTime(23, 59, 59, 999), Qt::UTC)),
             QStringLiteral("9999-12-31T23:59:59.999Z"));
}

void tst_TextConversions::doubleIsWrittenShortest_data()
{
    QTest::addColumn<double>("number");
    QTest::addColumn<QString>("expected");
    QTest::newRow("zero") << 0.0 << QStringLiteral("0");
    QTest::newRow("whole number") << 3.0 << QStringLiteral("3");
    QTest::newRow("fraction") << 3.5 << QStringLiteral("3.5");
    QTest::newRow("tenth") << 0.1 << QStringLiteral("0.1");
    QTest::newRow("sum that is not 0.3") << 0.1 + 0.2 << QStringLiteral("0.30000000000000004");
    QTest::newRow("negative") << -40.25 << QStringLiteral("-40.25");
    QTest::newRow("four digits") << 1234.5 << QStringLiteral("1234.5");
    QTest::newRow("large") << 1e21 << QStringLiteral("1e+21");
    QTest::newRow("small") << 1.5e-7 << QStringLiteral("1.5e-07");
}

void tst_TextConversions::doubleIsWrittenShortest()
{
    QFETCH(double, number);

    QTEST(doubleText(number), "expected");
}

void tst_TextConversions::doubleReadsBackExactly_data()
{
    QTest::addColumn<double>("number");
    QTest::newRow("greatest") << std::numeric_limits<double>::max();
    QTest::newRow("lowest") << std::numeric_limits<double>::lowest();
    QTest::newRow("smallest normal") << std::numeric_limits<double>::min();
    QTest::newRow("smallest") << std::numeric_limits<double>::denorm_min();
    QTest::newRow("next after one") << std::nextafter(1.0, 2.0);
    QTest::newRow("third") << 1.0 / 3.0;
    QTest::newRow("more digits than a double has") << 123456789012345678.0;
}

void tst_TextConversions::doubleReadsBackExactly()
{
    QFETCH(double, number);

    bool ok = false;
    const double readBack = doubleText(number).toDouble(&ok);

    QVERIFY(ok);
    QVERIFY(readBack == number);
}

void tst_TextConversions::negativeZeroHasNoSign()
{
    QCOMPARE(doubleText(-0.0), QStringLiteral("0"));
}

void tst_TextConversions::nonFiniteDoubleIsWritten()
{
    QCOMPARE(doubleText(std::numeric_limits<double>::quiet_NaN()), QStringLiteral("nan"));
    QCOMPARE(doubleText(std::numeric_limits<double>::infinity()), QStringLiteral("inf"));
    QCOMPARE(doubleText(-std::numeric_limits<double>::infinity()), QStringLiteral("-inf"));
}

void tst_TextConversions::doubleIgnoresTheLocale()
{
    const GermanLocale german;
    QCOMPARE(QLocale().toString(1234.5), QStringLiteral("1.234,5"));

    QCOMPARE(doubleText(1234.5), QStringLiteral("1234.5"));
}

void tst_TextConversions::integerIsWrittenInDecimal_data()
{
    QTest::addColumn<int>("number");
    QTest::addColumn<QString>("expected");
    QTest::newRow("zero") << 0 << QStringLiteral("0");
    QTest::newRow("positive") << 42 << QStringLiteral("42");
    QTest::newRow("negative") << -7 << QStringLiteral("-7");
    QTest::newRow("greatest") << std::numeric_limits<int>::max() << QStringLiteral("2147483647");
    QTest::newRow("smallest") << std::numeric_limits<int>::min() << QStringLiteral("-2147483648");
}

void tst_TextConversions::integerIsWrittenInDecimal()
{
    QFETCH(int, number);

    QTEST(integerText(number), "expected");
}

void tst_TextConversions::integerIgnoresTheLocale()
{
    const GermanLocale german;
    QCOMPARE(QLocale().toString(1234567), QStringLiteral("1.234.567"));

    QCOMPARE(integerText(1234567), QStringLiteral("1234567"));
}

QTEST_GUILESS_MAIN(tst_TextConversions)
#include "tst_TextConversions.moc"
