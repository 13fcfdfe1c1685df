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

LogLine badRow()
{
    return warning("Row index out of bounds or empty row detected");
}

} // namespace

class tst_TableColumnDescriptions : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void columnDataType();
    void columnDataTypeNeedsTwoDimensions();
    void columnDataTypeNeedsTheColumn();
    void columnDataTypeThatIsNoTextIsNull_data();
    void columnDataTypeThatIsNoTextIsNull();
    void unitTypes_data();
    void unitTypes();
    void infoOfAllColumns();
    void nothingEnteredInASelectorColumn();
    void nothingEnteredCountsInSelectorColumnsOnly();
    void nothingEnteredNeedsTwoDimensions();
    void nothingEnteredNeedsTheColumn();
    void nothingEnteredNeedsTheRow();
};

void tst_TableColumnDescriptions::columnDataType()
{
    Array2dDataTypeWrapper table(
        matrix(), columnInfo({QVariantMap{{"type", "int32"}}, QVariantMap{{"type", 12}}}));
    LogCapture log;

    QCOMPARE(table.getColumnDataType(0), QString("int32"));
    QCOMPARE(table.getColumnDataType(1), QString("12"));

    COMPARE_LOG(log);
}

void tst_TableColumnDescriptions::columnDataTypeNeedsTwoDimensions()
{
    for (const QVariantList &info : {QVariantList(), nested({{QVariantMap{{"type", "int32"}}}})}) {
        Array2dDataTypeWrapper table(matrix(), info);
        LogCapture log;

        QVERIFY(table.getColumnDataType(0).isNull());

        COMPARE_LOG(log, warning("Array is no 2 dim Array"));
    }
}

void tst_TableColumnDescriptions::columnDataTypeNeedsTheColumn()
{
    Array2dDataTypeWrapper table(matrix(), columnInfo({QVariantMap{{"type", "int32"}}}));
    LogCapture log;

    QVERIFY(table.getColumnDataType(1).isNull());
    COMPARE_LOG(log, warning("Too large column selected 1"));
    QVERIFY(table.getColumnDataType(largest).isNull());
    COMPARE_LOG(log, warning(QStringLiteral("Too large column selected %1").arg(largest)));
}

void tst_TableColumnDescriptions::columnDataTypeThatIsNoTextIsNull_data()
{
    QTest::addColumn<QVariant>("column");

    QTest::newRow("map without the key") << QVariant(QVariantMap{{"unitType", "K"}});
    QTest::newRow("type that is a map") << QVariant(QVariantMap{{"type", QVariantMap()}});
    QTest::newRow("type that is a list") << QVariant(QVariantMap{{"type", QVariantList{"a"}}});
    QTest::newRow("invalid type") << QVariant(QVariantMap{{"type", QVariant()}});
    QTest::newRow("no map") << QVariant("int32");
}

void tst_TableColumnDescriptions::columnDataTypeThatIsNoTextIsNull()
{
    QFETCH(QVariant, column);
    Array2dDataTypeWrapper table(matrix(), columnInfo({column}));
    LogCapture log;

    QVERIFY(table.getColumnDataType(0).isNull());

    COMPARE_LOG(log);
}

void tst_TableColumnDescriptions::unitTypes_data()
{
    QTest::addColumn<QVariantList>("info");
    QTest::addColumn<QStringList>("unitTypes");

    const auto unit = [](const QVariant &value) {
        return QVariant(QVariantMap{{"unitType", value}});
    };
    const QVariant without(QVariantMap{{"type", "int32"}});
    QTest::newRow("no information") << QVariantList() << QStringList();
    QTest::newRow("one entry") << nested({{unit("K")}}) << QStringList();
    QTest::newRow("no columns") << columnInfo({}) << QStringList();
    QTest::newRow("missing in the middle")
        << columnInfo({unit("K"), without, unit("bar")}) << QStringList{"K", "", "bar"};
    QTest::newRow("number") << columnInfo({unit(5)}) << QStringList{"5"};
    QTest::newRow("empty text") << columnInfo({unit("")}) << QStringList{""};
    QTest::newRow("invalid") << columnInfo({unit(QVariant())}) << QStringList{""};
    QTest::newRow("map") << columnInfo({unit(QVariantMap())}) << QStringList{""};
    QTest::newRow("no map is passed over")
        << columnInfo({unit("K"), "text", QVariant(), unit("bar")}) << QStringList{"K", "bar"};
}

void tst_TableColumnDescriptions::unitTypes()
{
    QFETCH(QVariantList, info);
    LogCapture log;

    QTEST(Array2dDataTypeWrapper(matrix(), info).getColumnUnitTypes(), "unitTypes");

    COMPARE_LOG(log);
}

void tst_TableColumnDescriptions::infoOfAllColumns()
{
    const Array2dDataTypeWrapper table(
        matrix(), columnInfo({QVariantMap{{"a", 1}}, QVariantMap(), QVariantMap{{"a", 3}}}));

    QCOMPARE(table.getInfoAllColumns("a"), QVariantList({1, QVariant(), 3}));
    QVERIFY(Array2dDataTypeWrapper(matrix(), {}).getInfoAllColumns("a").isEmpty());
}

void tst_TableColumnDescriptions::nothingEnteredInASelectorColumn()
{
    Array2dDataTypeWrapper table(nested({{QVariant(QVariant::Int)}, {0}, {QVariant()}}),
                                 columnInfo({QVariantMap{{"type", "selector"}}}));
    LogCapture log;

    QVERIFY(table.isCellValueNoInput(0, 0));
    QVERIFY(!table.isCellValueNoInput(1, 0));
    QVERIFY(!table.isCellValueNoInput(2, 0));

    COMPARE_LOG(log);
}

void tst_TableColumnDescriptions::nothingEnteredCountsInSelectorColumnsOnly()
{
    const QVariant nothing(QVariant::Int);
    Array2dDataTypeWrapper table(
        nested({{nothing, nothing, nothing}}),
        columnInfo({QVariantMap{{"type", "int32"}}, QVariantMap{{"type", "string"}}, "selector"}));
    LogCapture log;

    QVERIFY(!table.isCellValueNoInput(0, 0));
    QVERIFY(!table.isCellValueNoInput(0, 1));
    QVERIFY(!table.isCellValueNoInput(0, 2));
    // The row is not looked at either.
    QVERIFY(!table.isCellValueNoInput(9, 0));

    COMPARE_LOG(log);
}

void tst_TableColumnDescriptions::nothingEnteredNeedsTwoDimensions()
{
    Array2dDataTypeWrapper table(nested({{QVariant(QVariant::Int)}}),
                                 nested({{QVariantMap{{"type", "selector"}}}}));
    LogCapture log;

    QVERIFY(!table.isCellValueNoInput(0, 0));

    COMPARE_LOG(log);
}

void tst_TableColumnDescriptions::nothingEnteredNeedsTheColumn()
{
    Array2dDataTypeWrapper table(nested({{QVariant(QVariant::Int), 1}}),
                                 columnInfo({QVariantMap{{"type", "selector"}}}));
    LogCapture log;

    QVERIFY(!table.isCellValueNoInput(0, 1));
    COMPARE_LOG(log, warning("Column too large"));
    QVERIFY(!table.isCellValueNoInput(0, largest));
    COMPARE_LOG(log, warning("Column too large"));
}

void tst_TableColumnDescriptions::nothingEnteredNeedsTheRow()
{
    Array2dDataTypeWrapper table(
        nested({{QVariant(QVariant::Int)}}),
        columnInfo({QVariantMap{{"type", "selector"}}, QVariantMap{{"type", "selector"}}}));
    LogCapture log;

    QVERIFY(!table.isCellValueNoInput(1, 0));
    COMPARE_LOG(log, badRow());
    // A column that is described, but has no cell.
    QVERIFY(!table.isCellValueNoInput(0, 1));
    COMPARE_LOG(log, warning("Column index out of bounds 1 2"));
}

QTEST_GUILESS_MAIN(tst_TableColumnDescriptions)

#include "tst_TableColumnDescriptions.moc"
