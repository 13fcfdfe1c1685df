#include "mqtt/Backoff.h"
#include "mqtt/HostState.h"
#include "mqtt/ReportRules.h"

#include <QtTest>

#include <cmath>
#include <limits>

using ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_OVERRANGE;
using ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID;

/// The decisions of an edge node that need neither a broker nor a region.
class tst_EdgeNodeParts : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void hostIsHeardInTheOrderOfItsTimes();
    void whatIsNoStateOfAHostSaysNothing();
    void delayDoublesUpToItsBound();
    void firstRuleThatLeadsToAUrlHolds();
    void onlyWhatMovedByMoreThanTheDeadbandIsNews();
    void largeIntegersHaveTheirDistance_data();
    void largeIntegersHaveTheirDistance();
    void notANumberIsNewsOnce();
    void stateIsNewsAtOnce();
    void askedValueIsNews();

private:
    static ProcessValue valid(const QVariant &value)
    {
        return {value, PROCESS_VALUE_ERROR_TYPE_VALID};
    }
    static ReportedLeaf told(const ReportRule &rule, const QVariant &value, qint64 at)
    {
        ReportedLeaf leaf(rule);
        leaf.markTold(valid(value), at);
        return leaf;
    }
};

void tst_EdgeNodeParts::hostIsHeardInTheOrderOfItsTimes()
{
    HostState host;

    QVERIFY(host.take("{\"online\":true,\"timestamp\":5}") == HostState::Change::Online);
    QVERIFY(host.take("{\"online\":false,\"timestamp\":4}") == HostState::Change::None);
    QVERIFY(host.isOnline());
    QVERIFY(host.take("{\"online\":true,\"timestamp\":6}") == HostState::Change::None);
    QVERIFY(host.take("{\"online\":false,\"timestamp\":6}") == HostState::Change::Offline);
    QVERIFY(!host.isOnline());
    host.forget();
    QVERIFY(host.take("{\"online\":true,\"timestamp\":5}") == HostState::Change::None);
    QVERIFY(host.take("{\"online\":true,\"timestamp\":6}") == HostState::Change::Online);
}

void tst_EdgeNodeParts::whatIsNoStateOfAHostSaysNothing()
{
    HostState host;

    for (const char *const text :
         {"", "ONLINE", "[]", "{\"online\":1,\"timestamp\":5}", "{\"online\":true}",
          "{\"online\":true,\"timestamp\":\"5\"}", "{\"online\":true,\"timestamp\":-2}"}) {
        QVERIFY2(host.take(text) == HostState::Change::None, text);
    }
    QVERIFY(!host.isOnline());
}

void tst_EdgeNodeParts::delayDoublesUpToItsBound()
{
    Backoff backoff(100, 500);

    for (int round = 0; round < 2; ++round) {
        for (const int bound : {100, 200, 400, 500, 500}) {
            const int delay = backoff.next();
            QVERIFY2(delay >= bound / 2 && delay <= bound, qPrintable(QString::number(delay)));
        }
        backoff.reset();
    }
}

void tst_EdgeNodeParts::firstRuleThatLeadsToAUrlHolds()
{
    ReportRules rules;
    rules.add(QStringLiteral("a/b"), {1, 10});
    rules.add(QStringLiteral("a/**"), {2, 20});

    QCOMPARE(rules.ruleOf(QStringLiteral("a/b")).deadband, 1.0);
    QCOMPARE(rules.ruleOf(QStringLiteral("a/c")).leastInterval, qint64{20});
    QCOMPARE(rules.ruleOf(QStringLiteral("b")).deadband, 0.0);
}

void tst_EdgeNodeParts::onlyWhatMovedByMoreThanTheDeadbandIsNews()
{
    const ReportedLeaf leaf = told({2, 50}, 10.0, 1000);

    QVERIFY(!leaf.dueTime(valid(12.0)));
    QVERIFY(!leaf.dueTime(valid(8.0)));
    QCOMPARE(leaf.dueTime(valid(12.5)).value(), qint64{1050});
    QCOMPARE(leaf.dueTime(valid(7.5)).value(), qint64{1050});
    // A text has no distance.
    QVERIFY(told({2, 0}, QStringLiteral("1"), 0).dueTime(valid(QStringLiteral("2"))).has_value());
}

void tst_EdgeNodeParts::largeIntegersHaveTheirDistance_data()
{
    QTest::addColumn<QVariant>("told");
    QTest::addColumn<QVariant>("now");
    QTest::addColumn<bool>("isNews");
    constexpr qlonglong least = std::numeric_limits<qlonglong>::min();
    constexpr qlonglong most = std::numeric_limits<qlonglong>::max();
    constexpr qulonglong mostUnsigned = std::numeric_limits<qulonglong>::max();
    const auto row = [](const char *name, const QVariant &told, const QVariant &now, bool isNews) {
        QTest::newRow(name) << told << now << isNews;
    };
    row("up by more", most - 11, most, true);
    row("down by more", most, most - 11, true);
    row("by as much", most - 10, most, false);
    row("from end to end", least, most, true);
    row("from end to end, down", most, least, true);
    row("over zero", qlonglong(-5), qlonglong(5), false);
    row("over zero by more", qlonglong(6), qlonglong(-5), true);
    row("unsigned up by more", mostUnsigned - 11, mostUnsigned, true);
    row("unsigned down by as much", mostUnsigned, mostUnsigned - 10, false);
    row("unsigned from end to end", qulonglong(0), mostUnsigned, true);
}

void tst_EdgeNodeParts::largeIntegersHaveTheirDistance()
{
    QFETCH(const QVariant, told);
    QFETCH(const QVariant, now);
    QFETCH(const bool, isNews);

    QCOMPARE(tst_EdgeNodeParts::told({10, 0}, told, 0).dueTime(valid(now)).has_value(), isNews);
}

void tst_EdgeNodeParts::notANumberIsNewsOnce()
{
    QVERIFY(told({2, 0}, 10.0, 0).dueTime(valid(std::nan(""))).has_value());
    QVERIFY(!told({2, 0}, std::nan(""), 0).dueTime(valid(std::nan(""))));
}

void tst_EdgeNodeParts::stateIsNewsAtOnce()
{
    const ReportedLeaf leaf = told({1000, 1000}, 10.0, 1000);

    QCOMPARE(leaf.dueTime({PROCESS_VALUE_ERROR_TYPE_OVERRANGE}).value(), qint64{0});
    QCOMPARE(ReportedLeaf().dueTime(valid(1.0)).value(), qint64{0});
}

void tst_EdgeNodeParts::askedValueIsNews()
{
    ReportedLeaf leaf = told({}, 10.0, 1000);
    QVERIFY(!leaf.dueTime(valid(10.0)));

    leaf.ask();

    QCOMPARE(leaf.dueTime(valid(10.0)).value(), qint64{0});
    leaf.markTold(valid(10.0), 1001);
    QVERIFY(!leaf.dueTime(valid(10.0)));
}

QTEST_GUILESS_MAIN(tst_EdgeNodeParts)
#include "tst_EdgeNodeParts.moc"
