#include "live/ValueTrend.h"

#include <QtTest>

#include <limits>

using namespace ProcessDataDefinitions;

namespace {

using Time = ValueTrend::Time;

void add(ValueTrend &trend, int time, double value)
{
    trend.add(Time(time), {value, PROCESS_VALUE_ERROR_TYPE_VALID});
}

void addError(ValueTrend &trend, int time)
{
    trend.add(Time(time), {PROCESS_VALUE_ERROR_TYPE_TIMEOUT});
}

/// A letter a column: the number, x for an error, a blank for nothing.
QString columnsOf(const ValueTrend &trend, int from, int to, int count)
{
    QString text;
    for (const auto &column : trend.columns(Time(from), Time(to), count)) {
        switch (column.what) {
        case TrendColumn::What::Nothing: text += QLatin1Char('.'); break;
        case TrendColumn::What::Error: text += QLatin1Char('x'); break;
        case TrendColumn::What::Value: text += QString::number(column.value); break;
        }
    }
    return text;
}

} // namespace

/// The course of a value over the time.
class tst_ValueTrend : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void figuresAreThoseOfTheNumbers();
    void errorStatesCountForThemselves();
    void valueHoldsUntilTheNextSet();
    void partHasAllThatItWas();
    void errorOfAnInstantIsSeen();
    void gapIsKnownOfNothing();
    void oldPointsGoAndFiguresStay();
    void hugeNumbersHaveAMean();
};

void tst_ValueTrend::figuresAreThoseOfTheNumbers()
{
    ValueTrend trend(10);
    QVERIFY(!trend.least() && !trend.most() && !trend.mean());
    add(trend, 1, 2);
    add(trend, 2, std::numeric_limits<double>::quiet_NaN());
    add(trend, 3, 7);

    QCOMPARE(trend.least(), std::make_optional(2.0));
    QCOMPARE(trend.most(), std::make_optional(7.0));
    QCOMPARE(trend.mean(), std::make_optional(4.5));
    QCOMPARE(trend.valid(), quint64(3));
}

void tst_ValueTrend::errorStatesCountForThemselves()
{
    ValueTrend trend(10);
    add(trend, 1, 2);
    addError(trend, 2);

    QCOMPARE(trend.valid(), quint64(1));
    QCOMPARE(trend.erroneous(), quint64(1));
    QCOMPARE(trend.least(), std::make_optional(2.0));
}

void tst_ValueTrend::valueHoldsUntilTheNextSet()
{
    ValueTrend trend(10);
    add(trend, 20, 1);
    add(trend, 50, 2);

    QCOMPARE(columnsOf(trend, 0, 80, 8), QStringLiteral("..111222"));
    // What was before the beginning holds as well.
    QCOMPARE(columnsOf(trend, 60, 80, 2), QStringLiteral("22"));
}

void tst_ValueTrend::partHasAllThatItWas()
{
    ValueTrend trend(10);
    add(trend, 1, 5);
    add(trend, 2, 1);
    add(trend, 3, 9);
    add(trend, 4, 6);

    const ValueTrend::Part part = trend.parts(Time(0), Time(10), 1).first();

    QCOMPARE(part.first, std::make_optional(5.0));
    QCOMPARE(part.least, std::make_optional(1.0));
    QCOMPARE(part.most, std::make_optional(9.0));
    QCOMPARE(part.last, std::make_optional(6.0));
    QVERIFY(!part.hasError);
    QCOMPARE(columnsOf(trend, 0, 10, 1), QStringLiteral("9"));
}

void tst_ValueTrend::errorOfAnInstantIsSeen()
{
    ValueTrend trend(10);
    add(trend, 1, 5);
    addError(trend, 12);
    add(trend, 13, 5);

    QCOMPARE(columnsOf(trend, 0, 30, 3), QStringLiteral("5x5"));
}

void tst_ValueTrend::gapIsKnownOfNothing()
{
    ValueTrend trend(10);
    add(trend, 1, 5);
    trend.addGap(Time(10));
    add(trend, 30, 6);

    QCOMPARE(columnsOf(trend, 0, 40, 4), QStringLiteral("5..6"));
}

void tst_ValueTrend::oldPointsGoAndFiguresStay()
{
    ValueTrend trend(2);
    add(trend, 1, 100);
    add(trend, 2, 1);
    add(trend, 3, 1);

    QCOMPARE(trend.points().size(), std::size_t(2));
    QCOMPARE(trend.most(), std::make_optional(100.0));
    QCOMPARE(trend.mean(), std::make_optional(34.0));
}

void tst_ValueTrend::hugeNumbersHaveAMean()
{
    const double most = std::numeric_limits<double>::max();
    ValueTrend trend(10);
    add(trend, 1, most);
    add(trend, 2, most);
    add(trend, 3, -most);
    add(trend, 4, -most);

    QVERIFY(qAbs(*trend.mean()) < most / 1e10);
}

QTEST_GUILESS_MAIN(tst_ValueTrend)
#include "tst_ValueTrend.moc"
