#include "commands/StatReport.h"

#include <QtTest>

namespace {

using Interval = SetStatistics::Interval;

/// Sets that were seen at these milliseconds, one a wake.
SetStatistics seenAt(const QVector<int> &milliseconds)
{
    SetStatistics sets(7);
    quint64 generation = 7;
    for (const int time : milliseconds) {
        sets.add(++generation, SetStatistics::Clock::time_point(std::chrono::milliseconds(time)));
    }
    return sets;
}

QVector<QPair<int, int>> barsOf(const SetStatistics &sets, int count)
{
    QVector<QPair<int, int>> bars;
    for (const auto &bar : sets.bars(count)) {
        bars.append({int(bar.from.count()), int(bar.count)});
    }
    return bars;
}

} // namespace

/// What is made of the moments at which sets were seen.
class tst_SetStatistics : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void nothingSeenHasNoIntervals();
    void oneSetHasNoInterval();
    void intervalsAreThoseBetweenWakes();
    void medianIsTheLowerOneInTheMiddle_data();
    void medianIsTheLowerOneInTheMiddle();
    void missedSetsShareTheirTime();
    void generationThatIsNotNewerCountsForNothing();
    void barsAreEqualPartsFromTheLeastToTheMost();
    void barsAreNotFinerThanAMicrosecond();
    void linesAreThese();
    void barsFitTheColumns();
    void jsonIsThis();
    void jsonOfNothingHasNoIntervals();
};

void tst_SetStatistics::nothingSeenHasNoIntervals()
{
    const SetStatistics sets = seenAt({});

    QCOMPARE(sets.sets(), 0U);
    QVERIFY(!sets.least() && !sets.median() && !sets.most() && !sets.jitter());
    QVERIFY(sets.bars(10).isEmpty());
}

void tst_SetStatistics::oneSetHasNoInterval()
{
    const SetStatistics sets = seenAt({1000});

    QCOMPARE(sets.sets(), 1U);
    QCOMPARE(sets.wakes(), 1U);
    QVERIFY(!sets.least() && !sets.median());
}

void tst_SetStatistics::intervalsAreThoseBetweenWakes()
{
    const SetStatistics sets = seenAt({1000, 1100, 1200, 1500});

    QCOMPARE(sets.sets(), 4U);
    QCOMPARE(sets.missed(), 0U);
    QCOMPARE(sets.least()->count(), 100000);
    QCOMPARE(sets.median()->count(), 100000);
    QCOMPARE(sets.most()->count(), 300000);
    // Of 100, 100 and 300 ms: the root of 80000 / 9 ms.
    QCOMPARE(sets.jitter()->count(), 94281);
}

void tst_SetStatistics::medianIsTheLowerOneInTheMiddle_data()
{
    QTest::addColumn<QVector<int>>("times");
    QTest::addColumn<int>("median");
    QTest::newRow("one") << QVector<int>{0, 5} << 5000;
    QTest::newRow("two") << QVector<int>{0, 5, 14} << 5000;
    QTest::newRow("three") << QVector<int>{0, 5, 14, 15} << 5000;
    QTest::newRow("four") << QVector<int>{0, 9, 18, 20, 21} << 2000;
}

void tst_SetStatistics::medianIsTheLowerOneInTheMiddle()
{
    QFETCH(QVector<int>, times);
    QFETCH(int, median);

    QCOMPARE(int(seenAt(times).median()->count()), median);
}

void tst_SetStatistics::missedSetsShareTheirTime()
{
    using TimePoint = SetStatistics::Clock::time_point;
    SetStatistics sets(0);
    sets.add(1, TimePoint(std::chrono::milliseconds(0)));
    sets.add(5, TimePoint(std::chrono::milliseconds(40)));

    QCOMPARE(sets.sets(), 5U);
    QCOMPARE(sets.wakes(), 2U);
    QCOMPARE(sets.missed(), 3U);
    QCOMPARE(sets.least()->count(), 10000);
    QCOMPARE(barsOf(sets, 10), (QVector<QPair<int, int>>{{10000, 4}}));
}

void tst_SetStatistics::generationThatIsNotNewerCountsForNothing()
{
    SetStatistics sets = seenAt({0, 5});
    sets.add(9, SetStatistics::Clock::time_point(std::chrono::seconds(9)));

    QCOMPARE(sets.sets(), 2U);
    QCOMPARE(sets.wakes(), 2U);
    QCOMPARE(sets.most()->count(), 5000);
}

void tst_SetStatistics::barsAreEqualPartsFromTheLeastToTheMost()
{
    // 1 ms, 1 ms, 2 ms, 5 ms
    const SetStatistics sets = seenAt({0, 1, 2, 4, 9});

    QCOMPARE(barsOf(sets, 4),
             (QVector<QPair<int, int>>{{1000, 3}, {2001, 0}, {3001, 0}, {4001, 1}}));
    QCOMPARE(barsOf(sets, 1), (QVector<QPair<int, int>>{{1000, 4}}));
}

void tst_SetStatistics::barsAreNotFinerThanAMicrosecond()
{
    using TimePoint = SetStatistics::Clock::time_point;
    SetStatistics sets(0);
    sets.add(1, TimePoint(Interval(0)));
    sets.add(2, TimePoint(Interval(10)));
    sets.add(3, TimePoint(Interval(21)));

    QCOMPARE(barsOf(sets, 10), (QVector<QPair<int, int>>{{10, 1}, {11, 1}}));
}

namespace {

StatReport usualReport()
{
    StatReport report{QStringLiteral("tesselTank"), seenAt({1000, 1100, 1200, 1500})};
    report.time = std::chrono::seconds(2);
    report.reads = 4;
    report.repeats = 1;
    report.looks = 20;
    report.waits = 3;
    return report;
}

} // namespace

void tst_SetStatistics::linesAreThese()
{
    const QStringList lines = linesOf(usualReport(), 28, QLatin1Char('#'));

    QCOMPARE(lines.mid(0, 7),
             (QStringList{QStringLiteral("tesselTank: 4 sets in 2.0 s, 2.0 sets/s"),
                          QStringLiteral("Interval  min 100.000 ms, median 100.000 ms, max 300.000 "
                                         "ms, jitter 94.281 ms"),
                          QStringLiteral("Missed    0 in 4 wakes"),
                          QStringLiteral("Repeats   1 in 4 reads"),
                          QStringLiteral("Waits     3 in 20 looks at the lock"), QString(),
                          QStringLiteral("    100.000 ms 2 ###########")}));
    QCOMPARE(lines[7], QStringLiteral("    120.001 ms 0"));
    QCOMPARE(lines.last(), QStringLiteral("    280.001 ms 1 ######"));
    QCOMPARE(lines.size(), 16);
}

void tst_SetStatistics::barsFitTheColumns()
{
    for (const int columns : {20, 40, 72, 200}) {
        const QStringList lines = linesOf(usualReport(), columns, QLatin1Char('#')).mid(6);
        const int longest = std::max_element(lines.cbegin(), lines.cend(),
                                             [](const QString &one, const QString &other) {
                                                 return one.size() < other.size();
                                             })
                                ->size();

        QCOMPARE(longest, columns);
    }
}

void tst_SetStatistics::jsonIsThis()
{
    QCOMPARE(jsonOf(usualReport()).section(QStringLiteral(", \"histogram\""), 0, 0),
             QStringLiteral("{\"key\": \"tesselTank\", \"seconds\": 2.000, \"sets\": 4, "
                            "\"setsPerSecond\": 2.000, \"wakes\": 4, \"missed\": 0, "
                            "\"intervalMin\": 100.000, \"intervalMedian\": 100.000, "
                            "\"intervalMax\": 300.000, \"jitter\": 94.281, \"reads\": 4, "
                            "\"repeats\": 1, \"looks\": 20, \"waits\": 3"));
    QVERIFY(jsonOf(usualReport())
                .contains(QStringLiteral("\"histogram\": [{\"from\": 100.000, \"count\": 2}, "
                                         "{\"from\": 120.001, \"count\": 0}, ")));
}

void tst_SetStatistics::jsonOfNothingHasNoIntervals()
{
    const StatReport report{QStringLiteral("k"), SetStatistics(0)};

    QCOMPARE(jsonOf(report),
             QStringLiteral("{\"key\": \"k\", \"seconds\": 0.000, \"sets\": 0, \"setsPerSecond\": "
                            "0.000, \"wakes\": 0, \"missed\": 0, \"intervalMin\": null, "
                            "\"intervalMedian\": null, \"intervalMax\": null, \"jitter\": null, "
                            "\"reads\": 0, \"repeats\": 0, \"looks\": 0, \"waits\": 0, "
                            "\"histogram\": []}"));
}

QTEST_GUILESS_MAIN(tst_SetStatistics)
#include "tst_SetStatistics.moc"
