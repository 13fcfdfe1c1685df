#include "mqtt/LeafMetric.h"
#include "states/StateTable.h"

#include <QtTest>

/// Leaves and their values as metrics.
class tst_LeafMetric : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void stateGivesQualityAndNull_data();
    void stateGivesQualityAndNull();
    void birthTellsUnitAndLimits();
    void birthWithoutThemTellsTheQualityAlone();
    void dataTellsNoType();
    void textHasNoLimits();

private:
    static FollowedLeaf leaf()
    {
        FollowedLeaf leaf;
        leaf.url = QStringLiteral("plant/pump/speed");
        leaf.urlInDevice = QStringLiteral("pump/speed");
        leaf.type = QStringLiteral("double");
        return leaf;
    }
    static QVariant quality(const Metric &metric)
    {
        const auto &property = metric.properties.first();
        return property.key == QLatin1String("Quality") && property.type == DataType::Int32
                   ? property.value
                   : QVariant();
    }
};

void tst_LeafMetric::stateGivesQualityAndNull_data()
{
    QTest::addColumn<int>("state");
    QTest::addColumn<uint>("expected");
    for (const auto &row : StateTable::rows()) {
        const auto number = static_cast<int>(row.state);
        QTest::addRow("%s", row.name) << number << (number == 0 ? 192U : number == 9 ? 500U : 0U);
    }
    QTest::newRow("no state") << 77 << 0U;
}

void tst_LeafMetric::stateGivesQualityAndNull()
{
    QFETCH(int, state);
    QFETCH(uint, expected);
    const ProcessValue value(2.5, static_cast<ProcessDataDefinitions::ErrorTypes>(state));

    for (const Metric &metric :
         {LeafMetric::dataOf(leaf(), value, 5), LeafMetric::birthOf(leaf(), value, 5)}) {
        QCOMPARE(quality(metric), QVariant(expected));
        QCOMPARE(metric.isNull, state != 0);
        QCOMPARE(metric.value, state == 0 ? QVariant(2.5) : QVariant());
        QCOMPARE(metric.name, QStringLiteral("pump/speed"));
        QCOMPARE(*metric.timestamp, quint64{5});
    }
    const Metric named = LeafMetric::birthOfState(leaf(), value, 5);
    QCOMPARE(named.name, QStringLiteral("State/pump/speed"));
    QCOMPARE(named.value.toString(), StateTable::nameOf(value.getErrorType()));
    QVERIFY(named.type == DataType::String);
    QVERIFY(!named.isNull);
}

void tst_LeafMetric::birthTellsUnitAndLimits()
{
    FollowedLeaf pump = leaf();
    pump.unit = QStringLiteral("1/min");
    pump.minLimit = 0.5;
    pump.maxLimit = 3000;

    const Metric metric = LeafMetric::birthOf(
        pump, {2.5, ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID}, 5);

    QVERIFY(metric.type == DataType::Double);
    QCOMPARE(metric.properties.size(), 4);
    QCOMPARE(metric.properties[1].key, QStringLiteral("engUnit"));
    QCOMPARE(metric.properties[1].value, QVariant(QStringLiteral("1/min")));
    QCOMPARE(metric.properties[2].key, QStringLiteral("engLow"));
    QCOMPARE(metric.properties[2].value, QVariant(0.5));
    QVERIFY(metric.properties[2].type == DataType::Double);
    QCOMPARE(metric.properties[3].key, QStringLiteral("engHigh"));
    QCOMPARE(metric.properties[3].value, QVariant(3000.0));
}

void tst_LeafMetric::birthWithoutThemTellsTheQualityAlone()
{
    const Metric metric = LeafMetric::birthOf(
        leaf(), {2.5, ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID}, 5);

    QCOMPARE(metric.properties.size(), 1);
}

void tst_LeafMetric::dataTellsNoType()
{
    const ProcessValue value(2.5, ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID);

    QVERIFY(LeafMetric::dataOf(leaf(), value, 5).type == DataType::Unknown);
    QVERIFY(LeafMetric::dataOfState(leaf(), value, 5).type == DataType::Unknown);
}

void tst_LeafMetric::textHasNoLimits()
{
    FollowedLeaf text = leaf();
    text.type = QStringLiteral("string");
    text.kind = FollowedLeaf::Kind::Text;
    text.maxLimit = 5;

    const Metric metric = LeafMetric::birthOf(
        text, {QString(), ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID}, 5);

    // The empty text is a value.
    QVERIFY(!metric.isNull);
    QCOMPARE(metric.properties.size(), 1);
}

QTEST_GUILESS_MAIN(tst_LeafMetric)
#include "tst_LeafMetric.moc"
