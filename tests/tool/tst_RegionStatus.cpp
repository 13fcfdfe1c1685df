#include "screen/RegionStatus.h"

#include <QtTest>

Q_DECLARE_METATYPE(RegionFacts)

/// What the full screen says of a region.
class tst_RegionStatus : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void statusSaysHowFarToTrust_data();
    void statusSaysHowFarToTrust();
};

namespace {

using Level = RegionStatus::Level;

RegionFacts withAge(qint64 age, std::optional<qint64> usual)
{
    RegionFacts facts;
    facts.age = age;
    facts.usualInterval = usual;
    return facts;
}

} // namespace

void tst_RegionStatus::statusSaysHowFarToTrust_data()
{
    QTest::addColumn<RegionFacts>("facts");
    QTest::addColumn<int>("level");
    QTest::addColumn<QString>("text");
    const auto add = [](const char *name, const RegionFacts &facts, Level level, const char *text) {
        QTest::newRow(name) << facts << static_cast<int>(level) << QString::fromUtf8(text);
    };
    add("single buffer", {}, Level::Good, "live");
    add("regular", withAge(100, 100), Level::Good, "live");
    add("slow but regular", withAge(40000, 10000), Level::Good, "live");
    add("just not silent", withAge(2000, 1), Level::Good, "live");
    add("silent", withAge(2001, 100), Level::Bad,
        "publisher silent for 2.0 s, usually every 0.1 s");
    add("interval unknown", withAge(10000, {}), Level::Good, "live");
    add("long silent", withAge(10001, {}), Level::Bad, "publisher silent for 10.0 s");
    add("clock set back", withAge(-100000, 100), Level::Good, "live");
    RegionFacts facts = withAge(90000, 100);
    facts.absence = QStringLiteral("gone");
    add("gone is worse than silent", facts, Level::Bad, "gone; waiting for it to come back");
    facts = {};
    facts.hindrance = QStringLiteral("a writer is inside the lock");
    add("hindered", facts, Level::Doubtful, "a writer is inside the lock");
    facts = {};
    facts.deadCreator = 4711;
    add("creator died", facts, Level::Doubtful, "live, but its creator 4711 has died");
}

void tst_RegionStatus::statusSaysHowFarToTrust()
{
    QFETCH(RegionFacts, facts);
    QFETCH(int, level);
    QFETCH(QString, text);

    const RegionStatus status = statusOf(facts);

    QCOMPARE(static_cast<int>(status.level), level);
    QCOMPARE(status.text, text);
}

QTEST_GUILESS_MAIN(tst_RegionStatus)
#include "tst_RegionStatus.moc"
