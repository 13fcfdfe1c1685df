#include "Configuration/ConfigurationArray2dDataTypeWrapper.h"
#include "support/LogCapture.h"
#include "support/NestedLists.h"

#include <limits>

namespace {

constexpr std::size_t largest = std::numeric_limits<std::size_t>::max();

QVariantList matrix()
{
    return nested({{1, 2, 3}, {4, 5, 6}});
}

QVariant column(const QString &key, const QVariant &value)
{
    return QVariantMap{{key, value}};
}

QVariantList units()
{
    return columnInfo(
        {column("unitType", "temperature"), column("unitType", ""), column("type", "int32")});
}

} // namespace

class tst_TableUnitTypes : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void unitTypeOfAColumnIsReplaced();
    void missingColumnTakesNoUnitType();
    void columnWithoutUnitTypeGetsNone();
    void unitTypeNeedsEveryColumnToBeDescribed();
    void replacingOneUnitTypeClearsAnEmptyOne();
    void unitTypeCanBeTakenAway();
    void unitTypesAreReplaced();
    void wrongUnitTypesAreRefusedSilently_data();
    void wrongUnitTypesAreRefusedSilently();
    void unitTypeForAColumnWithoutTheKeyFailsAll();
    void emptyUnitTypeBecomesInvalid();
};

void tst_TableUnitTypes::unitTypeOfAColumnIsReplaced()
{
    Array2dDataTypeWrapper table(
        matrix(), columnInfo({column("unitType", "temperature"), column("unitType", "pressure")}));
    LogCapture log;

    QVERIFY(table.setColumnUnitType(1, "length"));

    COMPARE_LOG(log);
    QCOMPARE(table.getColumnUnitTypes(), QStringList({"temperature", "length"}));
    QCOMPARE(table.getArrayValueContent(), matrix());
}

void tst_TableUnitTypes::missingColumnTakesNoUnitType()
{
    Array2dDataTypeWrapper table(matrix(), units());
    Array2dDataTypeWrapper bare(matrix(), {});
    LogCapture log;

    QVERIFY(!table.setColumnUnitType(3, "length"));
    COMPARE_LOG(log, warning("column Number to large (max) 3 is 3"));
    QVERIFY(!bare.setColumnUnitType(largest, "length"));
    COMPARE_LOG(log, warning(QStringLiteral("column Number to large (max) 0 is %1").arg(largest)));

    QCOMPARE(table.getArrayInfo(1), units().at(1).toList());
}

void tst_TableUnitTypes::columnWithoutUnitTypeGetsNone()
{
    Array2dDataTypeWrapper table(matrix(), units());
    LogCapture log;

    QVERIFY(!table.setColumnUnitType(1, "length"));
    COMPARE_LOG(log, warning(R"(Try to overide an empty unittype 1 "length")"));
    QVERIFY(!table.setColumnUnitType(2, ""));
    COMPARE_LOG(log, warning(R"(Try to overide an empty unittype 2 "")"));

    QCOMPARE(table.getArrayInfo(1), units().at(1).toList());
}

void tst_TableUnitTypes::unitTypeNeedsEveryColumnToBeDescribed()
{
    const QVariantList info = columnInfo({column("unitType", "temperature"), "no map"});
    Array2dDataTypeWrapper table(matrix(), info);
    LogCapture log;

    QVERIFY(!table.setColumnUnitType(0, "length"));

    COMPARE_LOG(log);
    QCOMPARE(table.getArrayInfo(1), info.at(1).toList());
}

void tst_TableUnitTypes::replacingOneUnitTypeClearsAnEmptyOne()
{
    Array2dDataTypeWrapper table(matrix(), units());

    QVERIFY(table.setColumnUnitType(0, "length"));

    QCOMPARE(table.getArrayInfo(1),
             QVariantList({column("unitType", "length"), column("unitType", QVariant()),
                           column("type", "int32")}));
}

void tst_TableUnitTypes::unitTypeCanBeTakenAway()
{
    Array2dDataTypeWrapper table(matrix(), columnInfo({column("unitType", "temperature")}));
    LogCapture log;

    QVERIFY(table.setColumnUnitType(0, ""));
    COMPARE_LOG(log);

    QCOMPARE(table.getArrayInfo(1), QVariantList{column("unitType", QVariant())});
    QVERIFY(!table.setColumnUnitType(0, "temperature"));
}

void tst_TableUnitTypes::unitTypesAreReplaced()
{
    Array2dDataTypeWrapper table(matrix(), units());
    LogCapture log;

    QVERIFY(table.setColumnUnitTypes({"length", "pressure", ""}));

    COMPARE_LOG(log);
    QCOMPARE(table.getArrayInfo(1),
             QVariantList({column("unitType", "length"), column("unitType", "pressure"),
                           column("type", "int32")}));
}

void tst_TableUnitTypes::wrongUnitTypesAreRefusedSilently_data()
{
    QTest::addColumn<QVariantList>("info");
    QTest::addColumn<QStringList>("unitTypes");

    QTest::newRow("no information") << QVariantList() << QStringList{"length"};
    QTest::newRow("one entry") << nested({{column("unitType", "K")}}) << QStringList{"length"};
    QTest::newRow("no texts") << units() << QStringList();
    QTest::newRow("no texts for no columns") << columnInfo({}) << QStringList();
    QTest::newRow("one text too few") << units() << QStringList{"length", "pressure"};
    QTest::newRow("one text too many") << units() << QStringList{"a", "b", "", ""};
    QTest::newRow("columns that are no list") << QVariantList{"a", "b"} << QStringList{"length"};
}

void tst_TableUnitTypes::wrongUnitTypesAreRefusedSilently()
{
    QFETCH(QVariantList, info);
    QFETCH(QStringList, unitTypes);
    Array2dDataTypeWrapper table(matrix(), info);
    const QVariantList before = table.getArrayInfo(1);
    LogCapture log;

    QVERIFY(!table.setColumnUnitTypes(unitTypes));

    COMPARE_LOG(log);
    QCOMPARE(table.getArrayInfo(1), before);
}

void tst_TableUnitTypes::unitTypeForAColumnWithoutTheKeyFailsAll()
{
    Array2dDataTypeWrapper table(matrix(), units());
    LogCapture log;

    QVERIFY(!table.setColumnUnitTypes({"length", "pressure", "time"}));

    COMPARE_LOG(log);
    QCOMPARE(table.getArrayInfo(1), units().at(1).toList());
}

void tst_TableUnitTypes::emptyUnitTypeBecomesInvalid()
{
    Array2dDataTypeWrapper table(matrix(), units());

    QVERIFY(table.setColumnUnitTypes({"", "pressure", ""}));

    const QVariantMap first = table.getArrayInfo(1).at(0).toMap();
    QVERIFY(first.contains("unitType"));
    QVERIFY(!first.value("unitType").isValid());
    QCOMPARE(table.getColumnUnitTypes(), QStringList({"", "pressure", ""}));
}

QTEST_GUILESS_MAIN(tst_TableUnitTypes)

#include "tst_TableUnitTypes.moc"
