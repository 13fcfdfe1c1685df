#include "simulation/SimulatedLeaf.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QMap>
#include <QtTest>

using namespace ProcessDataDefinitions;

namespace {

constexpr int manySets = 20000;
constexpr double rate = 10;

Leaf leafOf(const QString &type, int size, const QJsonObject &properties = {},
            const QString &url = QStringLiteral("plant/value"))
{
    QJsonObject json{{"type", type}, {"sizeValue", size}, {"offsetSharedMemory", 0}};
    for (auto property = properties.begin(); property != properties.end(); ++property) {
        json.insert(property.key(), property.value());
    }
    return {url, ProcessDataValueSharedPointer::create(json, nullptr)};
}

QJsonObject metadata()
{
    return {{"sizeMetadata", 4}, {"relativeOffsetMetadata", 8}};
}

QVector<ProcessValue> valuesOf(SimulatedLeaf leaf, int sets)
{
    QVector<ProcessValue> values;
    for (int i = 0; i < sets; ++i) {
        values.append(leaf.next(i / rate));
    }
    return values;
}

QVector<ProcessValue> valuesOf(const Leaf &leaf, SimulationProfile profile, int sets,
                               quint64 seed = 1)
{
    return valuesOf(SimulatedLeaf(leaf, profile, seed), sets);
}

/// How often each state came, by its number.
QMap<int, int> statesOf(const QVector<ProcessValue> &values)
{
    QMap<int, int> states;
    for (const auto &value : values) {
        ++states[value.getErrorType()];
    }
    return states;
}

constexpr auto anyProfile = {SimulationProfile::Normal, SimulationProfile::Noisy,
                             SimulationProfile::Faulty};

} // namespace

/// The values that `tessel sim` makes up.
class tst_Simulation : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void rangeIsWhatTheDescriptionSays_data();
    void rangeIsWhatTheDescriptionSays();
    void numbersStayInTheirRangeAndMove_data();
    void numbersStayInTheirRangeAndMove();
    void floatStaysWithinEndsThatItCannotReach();
    void everyEntryOfASelectorComes();
    void bothBooleansCome();
    void textsFitTheirSlots_data();
    void textsFitTheirSlots();
    void numberIsNoErrorStateByAccident();
    void sameSeedMakesTheSameValues();
    void noiseIsThatOfTheProfile();
    void faultsComeAtTheirRate();
    void everyStateComes();
    void slotThatCannotCarryAStateIsNotGivenOne_data();
    void slotThatCannotCarryAStateIsNotGivenOne();
    void otherProfilesHaveNoFaults();
    void waveformIsThatOfTheType_data();
    void waveformIsThatOfTheType();
};

void tst_Simulation::rangeIsWhatTheDescriptionSays_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<int>("size");
    QTest::addColumn<QJsonObject>("properties");
    QTest::addColumn<QVariant>("least");
    QTest::addColumn<QVariant>("most");
    const auto row = [](const char *name, const char *type, int size, const QJsonObject &properties,
                        const QVariant &least, const QVariant &most) {
        QTest::newRow(name) << QString(type) << size << properties << least << most;
    };
    const auto whole = [](qint64 number) { return QVariant(number); };
    const auto natural = [](quint64 number) { return QVariant(number); };

    row("nothing said", "double", 8, {}, 0.0, 100.0);
    row("limits", "double", 8, {{"minLimit", -1.5}, {"maxLimit", 2.5}}, -1.5, 2.5);
    row("view", "double", 8, {{"viewStart", 5}, {"viewEnd", 6}}, 5.0, 6.0);
    row("view within limits", "float", 4,
        {{"minLimit", 0}, {"maxLimit", 10}, {"viewStart", 2}, {"viewEnd", 20}}, 2.0, 10.0);
    row("view outside of limits", "double", 8,
        {{"minLimit", 0}, {"maxLimit", 10}, {"viewStart", 20}, {"viewEnd", 30}}, 0.0, 10.0);
    row("view that does not rise", "double", 8, {{"viewStart", 6}, {"viewEnd", 5}}, 0.0, 100.0);
    row("lower limit alone", "double", 8, {{"minLimit", 500}}, 500.0, 600.0);
    row("upper limit alone", "double", 8, {{"maxLimit", -5}}, -105.0, -5.0);
    row("limits the wrong way round", "double", 8, {{"minLimit", 5}, {"maxLimit", 4}}, 0.0, 100.0);
    row("int8", "int8", 1, {}, whole(0), whole(100));
    row("int8 near its end", "int8", 1, {{"minLimit", 100}}, whole(100), whole(127));
    row("int8 beyond its end", "int8", 1, {{"minLimit", -1000}, {"maxLimit", 1000}}, whole(-128),
        whole(127));
    row("int16 beyond its end", "int16", 2, {{"minLimit", -1e9}, {"maxLimit", 1e9}}, whole(-32768),
        whole(32767));
    row("whole int32", "int32", 4, {{"minLimit", -2147483648.0}, {"maxLimit", 2147483647}},
        whole(std::numeric_limits<qint32>::min()), whole(std::numeric_limits<qint32>::max()));
    row("whole int64", "int64", 8,
        {{"minLimit", "-9223372036854775808"}, {"maxLimit", "9223372036854775807"}},
        whole(std::numeric_limits<qint64>::min()), whole(std::numeric_limits<qint64>::max()));
    row("uint8 beyond its end", "uint8", 1, {{"minLimit", 0}, {"maxLimit", 1000}}, natural(0),
        natural(255));
    row("uint16 beyond its end", "uint16", 2, {{"minLimit", 0}, {"maxLimit", 1e9}}, natural(0),
        natural(65535));
    row("whole uint32", "uint32", 4, {{"minLimit", 0}, {"maxLimit", 4294967295.0}}, natural(0),
        natural(std::numeric_limits<quint32>::max()));
    row("whole uint64", "uint64", 8, {{"minLimit", "0"}, {"maxLimit", "18446744073709551615"}},
        natural(0), natural(std::numeric_limits<quint64>::max()));
    row("exact int64", "int64", 8,
        {{"minLimit", "-9007199254740993"}, {"maxLimit", "9007199254740993"}},
        whole(-9007199254740993), whole(9007199254740993));
    row("exact uint64", "uint64", 8, {{"minLimit", "18446744073709551614"}},
        natural(18446744073709551614ULL), natural(18446744073709551615ULL));
    // The library turns limits into numbers of the type, as everybody sees them.
    row("fractions", "int32", 4, {{"minLimit", 1.5}, {"maxLimit", 3.5}}, whole(2), whole(4));
    row("view in fractions", "int32", 4, {{"viewStart", 1.5}, {"viewEnd", 3.5}}, whole(2),
        whole(3));
    row("view beyond the type", "int8", 1, {{"viewStart", -1e30}, {"viewEnd", 1e30}}, whole(-128),
        whole(127));
    row("view in fractions of a natural number", "uint16", 2,
        {{"viewStart", 1.5}, {"viewEnd", 3.5}}, natural(2), natural(3));
    row("view in texts", "int64", 8,
        {{"viewStart", "-9007199254740993"}, {"viewEnd", "9007199254740993"}},
        whole(-9007199254740993), whole(9007199254740993));
    row("view in texts of fractions", "int32", 4, {{"viewStart", "1.5"}, {"viewEnd", "3.5"}},
        whole(2), whole(3));
    row("view in texts beyond the type", "int64", 8,
        {{"viewStart", "0"}, {"viewEnd", "18446744073709551615"}}, whole(0),
        whole(std::numeric_limits<qint64>::max()));
    row("view in texts below zero", "uint8", 1, {{"viewStart", "-5"}, {"viewEnd", "20"}},
        natural(0), natural(20));
    row("view beside the type", "int8", 1, {{"viewStart", 1000}, {"viewEnd", 2000}}, whole(0),
        whole(100));
    row("limit that the type cannot have", "uint8", 1, {{"minLimit", -5}}, natural(0),
        natural(100));
    row("upper limit that the type cannot have", "int8", 1, {{"maxLimit", -1000}}, whole(0),
        whole(100));
    row("upper limit at the lower end", "uint8", 1, {{"maxLimit", 0}}, natural(0), natural(0));
    row("upper limit at a lower end below zero", "int8", 1, {{"maxLimit", -128}}, whole(-128),
        whole(-128));
    row("one value at the upper end", "int8", 1, {{"minLimit", 127}, {"maxLimit", 127}}, whole(127),
        whole(127));
    row("lower limit at the upper end", "uint64", 8, {{"minLimit", "18446744073709551615"}},
        natural(18446744073709551615ULL), natural(18446744073709551615ULL));
    row("one limit that the type cannot have", "uint32", 4, {{"minLimit", -1}, {"maxLimit", 1}},
        natural(0), natural(1));
    row("lower limit above the type", "int8", 1, {{"minLimit", 1000}, {"maxLimit", 50}}, whole(-50),
        whole(50));
    row("selector at its last entry", "selector", 4,
        {{"selectionList", QJsonArray{"a", "b"}}, {"minLimit", 1}}, whole(1), whole(1));
    row("selector", "selector", 4, {{"selectionList", QJsonArray{"a", "b", "c", "d", "e"}}},
        whole(0), whole(4));
    row("selector without a list", "selector", 4, {}, whole(0), whole(3));
    row("selector within limits", "selector", 4,
        {{"selectionList", QJsonArray{"a", "b", "c"}}, {"minLimit", 1}, {"maxLimit", 7}}, whole(1),
        whole(2));
}

void tst_Simulation::rangeIsWhatTheDescriptionSays()
{
    QFETCH(QString, type);
    QFETCH(int, size);
    QFETCH(QJsonObject, properties);
    QFETCH(QVariant, least);
    QFETCH(QVariant, most);

    const auto range = rangeOf(leafOf(type, size, properties));

    QVERIFY(range.has_value());
    QCOMPARE(range->least, least);
    QCOMPARE(range->most, most);
    QCOMPARE(range->at(0), least);
    QCOMPARE(range->at(1), most);
}

void tst_Simulation::numbersStayInTheirRangeAndMove_data()
{
    rangeIsWhatTheDescriptionSays_data();
}

void tst_Simulation::numbersStayInTheirRangeAndMove()
{
    QFETCH(QString, type);
    QFETCH(int, size);
    QFETCH(QJsonObject, properties);
    const Leaf leaf = leafOf(type, size, properties);
    const auto range = rangeOf(leaf);

    for (const auto profile : anyProfile) {
        QSet<QString> seen;
        for (const auto &value : valuesOf(leaf, profile, manySets / 10)) {
            if (value.getErrorType() != PROCESS_VALUE_ERROR_TYPE_VALID) {
                continue;
            }
            const QVariant number = value.getValue();
            QVERIFY(number.isValid());
            seen.insert(number.toString());
            if (range->least.userType() == QMetaType::ULongLong) {
                QVERIFY(number.toULongLong() >= range->least.toULongLong());
                QVERIFY(number.toULongLong() <= range->most.toULongLong());
            } else if (range->least.userType() == QMetaType::LongLong) {
                QVERIFY(number.toLongLong() >= range->least.toLongLong());
                QVERIFY(number.toLongLong() <= range->most.toLongLong());
            } else {
                QVERIFY(number.toDouble() >= range->least.toDouble());
                QVERIFY(number.toDouble() <= range->most.toDouble());
            }
        }
        QVERIFY(seen.size() > 1 || range->least == range->most);
    }
}

void tst_Simulation::floatStaysWithinEndsThatItCannotReach()
{
    // No float is 0.1: the two nearest lie beside it.
    const Leaf leaf = leafOf("float", 4, {{"viewStart", 0.0}, {"viewEnd", 0.1}});
    for (const auto &value : valuesOf(leaf, SimulationProfile::Noisy, manySets / 10)) {
        QVERIFY(double(value.getValue().toFloat()) <= 0.1); // as doubles
    }
}

void tst_Simulation::everyEntryOfASelectorComes()
{
    const Leaf leaf = leafOf("selector", 4, {{"selectionList", QJsonArray{"a", "b", "c"}}});
    QSet<int> seen;

    for (const auto &value : valuesOf(leaf, SimulationProfile::Normal, manySets / 10)) {
        seen.insert(value.getValue().toInt());
    }

    QCOMPARE(seen, (QSet<int>{0, 1, 2}));
}

void tst_Simulation::bothBooleansCome()
{
    for (const char *type : {"boolean", "bit"}) {
        QSet<bool> seen;
        for (const auto &value :
             valuesOf(leafOf(type, 1), SimulationProfile::Normal, manySets / 10)) {
            QCOMPARE(value.getValue().userType(), int(QMetaType::Bool));
            seen.insert(value.getValue().toBool());
        }
        QCOMPARE(seen.size(), 2);
    }
}

void tst_Simulation::textsFitTheirSlots_data()
{
    QTest::addColumn<int>("size");
    QTest::addColumn<int>("longest");
    QTest::newRow("none") << 2 << 0;
    QTest::newRow("too small") << 1 << 0;
    QTest::newRow("three characters") << 8 << 3;
    QTest::newRow("odd size") << 9 << 3;
    QTest::newRow("room for all") << 64 << 7;
}

void tst_Simulation::textsFitTheirSlots()
{
    QFETCH(int, size);
    QFETCH(int, longest);
    int seen = 0;

    for (const auto &value :
         valuesOf(leafOf("string", size), SimulationProfile::Normal, manySets / 10)) {
        QCOMPARE(value.getValue().userType(), int(QMetaType::QString));
        seen = qMax(seen, value.getValue().toString().size());
    }

    QCOMPARE(seen, longest);
}

void tst_Simulation::numberIsNoErrorStateByAccident()
{
    const auto &states = ProcessValueErrorTypeMapDefinitions::getMapFloatValueToStateType();
    const QJsonObject limits{{"minLimit", 1e37}, {"maxLimit", 1e37}};

    for (const auto &value : valuesOf(leafOf("float", 4, limits), SimulationProfile::Normal, 100)) {
        QVERIFY(!states.contains(value.getValue().toFloat()));
    }
}

void tst_Simulation::sameSeedMakesTheSameValues()
{
    const Leaf leaf = leafOf("double", 8, metadata());
    const auto valuesWith = [&](quint64 seed) {
        return valuesOf(leaf, SimulationProfile::Faulty, 500, seed);
    };

    QCOMPARE(valuesWith(7), valuesWith(7));
    QVERIFY(valuesWith(7) != valuesWith(8));
    // Two leaves do not move alike.
    QVERIFY(valuesOf(leafOf("double", 8, {}, "a"), SimulationProfile::Normal, 50)
            != valuesOf(leafOf("double", 8, {}, "b"), SimulationProfile::Normal, 50));
}

void tst_Simulation::noiseIsThatOfTheProfile()
{
    // From one set to the next a wave of at least 20 s moves by less than 2 of 100.
    const auto greatestStep = [](SimulationProfile profile) {
        const auto values = valuesOf(leafOf("double", 8), profile, manySets / 10);
        double greatest = 0;
        for (int i = 1; i < values.size(); ++i) {
            greatest = qMax(greatest, qAbs(values[i].toDouble() - values[i - 1].toDouble()));
        }
        return greatest;
    };

    QVERIFY(greatestStep(SimulationProfile::Normal) < 3);
    QVERIFY(greatestStep(SimulationProfile::Faulty) > 0);
    QVERIFY(greatestStep(SimulationProfile::Noisy) > 10);
    QVERIFY(greatestStep(SimulationProfile::Noisy) < 22);
}

void tst_Simulation::faultsComeAtTheirRate()
{
    // A fault begins in one of 20 valid sets and lasts for 1 to 5, 3 on the average: 3 of 22 or so.
    const auto values = valuesOf(leafOf("double", 8, metadata()), SimulationProfile::Faulty,
                                 manySets);
    const double part = 1
                        - statesOf(values).value(PROCESS_VALUE_ERROR_TYPE_VALID) / double(manySets);

    QVERIFY2(part > 0.11 && part < 0.16, qPrintable(QString::number(part)));
    int length = 0;
    int longest = 0;
    for (int i = 1; i < values.size(); ++i) {
        const bool isSame = values[i].getErrorType() != PROCESS_VALUE_ERROR_TYPE_VALID
                            && values[i].getErrorType() == values[i - 1].getErrorType();
        length = isSame ? length + 1 : 1;
        longest = qMax(longest, length);
    }
    QCOMPARE(longest, 5);
}

void tst_Simulation::everyStateComes()
{
    // After nine faults there was each.
    for (quint64 seed = 0; seed < 20; ++seed) {
        const auto states = statesOf(
            valuesOf(leafOf("int16", 2, metadata()), SimulationProfile::Faulty, 1000, seed));
        QCOMPARE(states.size(), 10);
    }
}

void tst_Simulation::slotThatCannotCarryAStateIsNotGivenOne_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<int>("size");
    QTest::addColumn<QJsonObject>("properties");
    QTest::addColumn<bool>("carries");
    QTest::newRow("double") << "double" << 8 << QJsonObject() << false;
    QTest::newRow("int") << "int32" << 4 << QJsonObject() << false;
    QTest::newRow("bit") << "bit" << 1 << QJsonObject{{"bitmask", 1}} << false;
    QTest::newRow("text") << "string" << 16 << QJsonObject() << false;
    QTest::newRow("float keeps it in the number") << "float" << 4 << QJsonObject() << true;
    QTest::newRow("metadata") << "bit" << 1 << metadata() << true;
}

void tst_Simulation::slotThatCannotCarryAStateIsNotGivenOne()
{
    QFETCH(QString, type);
    QFETCH(int, size);
    QFETCH(QJsonObject, properties);
    QFETCH(bool, carries);
    const SimulatedLeaf leaf(leafOf(type, size, properties), SimulationProfile::Faulty, 1);

    QCOMPARE(leaf.hasFaults(), carries);
    QCOMPARE(statesOf(valuesOf(leaf, 1000)).size(), carries ? 10 : 1);
}

void tst_Simulation::otherProfilesHaveNoFaults()
{
    for (const auto profile : {SimulationProfile::Normal, SimulationProfile::Noisy}) {
        const auto states = statesOf(valuesOf(leafOf("double", 8, metadata()), profile, 1000));
        QCOMPARE(states.keys(), QList<int>{PROCESS_VALUE_ERROR_TYPE_VALID});
    }
}

void tst_Simulation::waveformIsThatOfTheType_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<QString>("waveform");
    QTest::newRow("double") << "double"
                            << "sine";
    QTest::newRow("float") << "float"
                           << "sine";
    QTest::newRow("uint64") << "uint64"
                            << "triangle";
    QTest::newRow("selector") << "selector"
                              << "steps";
    QTest::newRow("boolean") << "boolean"
                             << "square";
    QTest::newRow("bit") << "bit"
                         << "square";
    QTest::newRow("string") << "string"
                            << "texts";
    QTest::newRow("unknown") << "colour"
                             << "none";
}

void tst_Simulation::waveformIsThatOfTheType()
{
    QFETCH(QString, type);
    QFETCH(QString, waveform);

    QCOMPARE(SimulatedLeaf(leafOf(type, 8), SimulationProfile::Normal, 1).waveform(), waveform);
}

QTEST_GUILESS_MAIN(tst_Simulation)
#include "tst_Simulation.moc"
