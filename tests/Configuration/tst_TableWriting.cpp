#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "Configuration/ConfigurationArray2dDataTypeWrapper.h"
#include "support/LogCapture.h"
#include "support/NestedLists.h"

#include <limits>

namespace {

using Base = ConfigurationAndProcessDataBase;
using Root = Base::BaseClassSharedPointer;

constexpr std::size_t largest = std::numeric_limits<std::size_t>::max();

QVariantList matrix()
{
    return nested({{1, 2, 3}, {4, 5, 6}});
}

QVariant column(const QString &key, const QVariant &value)
{
    return QVariantMap{{key, value}};
}

Array2dDataTypeWrapper dynamicTable(const QVariantList &values, const QVariantList &info,
                                    std::size_t maximum)
{
    Array2dDataTypeWrapper table({}, {}, 0, maximum);
    table.reset(values, info);
    return table;
}

LogLine badColumns(const QString &details)
{
    return warning("No valid column selections given given (columnOffset) " + details);
}

} // namespace

class tst_TableWriting : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void rowIsReplaced();
    void rowTakesAnyValues();
    void rowThatDoesNotFitIsRefusedSilently_data();
    void rowThatDoesNotFitIsRefusedSilently();
    void partOfARowIsReplaced_data();
    void partOfARowIsReplaced();
    void missingRowIsReported_data();
    void missingRowIsReported();
    void badColumnsAreReported_data();
    void badColumnsAreReported();
    void raggedRowIsNotSaved_data();
    void raggedRowIsNotSaved();
    void cellIsReplaced();
    void listIsOneCell();
    void missingCellIsReported();
    void cellOfATableWithoutCellsIsRefused();

    void rowIsAddedUpToOneMoreThanTheMaximum();
    void newRowHoldsTheDefaultsOfTheColumns();
    void newRowIsInvalidWithoutDefaults();
    void newRowGoesToTheTreeWithTheCells();
    void onlyADynamicTableGrows();
    void defaultsMustFitTheColumns_data();
    void defaultsMustFitTheColumns();
    void tableWithoutRowsCannotGrow_data();
    void tableWithoutRowsCannotGrow();

    void changesStayInTheWrapper();
};

void tst_TableWriting::rowIsReplaced()
{
    Array2dDataTypeWrapper table(matrix(), {});
    LogCapture log;

    QVERIFY(table.setRowValues({7, 8, 9}, 1));
    QCOMPARE(table.getArrayValueContent(), nested({{1, 2, 3}, {7, 8, 9}}));
    QVERIFY(table.setRowValues({"a", "b", "c"}, 0));
    QCOMPARE(table.getArrayValueContent(), nested({{"a", "b", "c"}, {7, 8, 9}}));

    QCOMPARE(table.getArrayValueContent().at(1).type(), QVariant::List);
    QCOMPARE(table.getArrayType(), QVector<unsigned int>({2, 3}));
    COMPARE_LOG(log);
}

void tst_TableWriting::rowTakesAnyValues()
{
    Array2dDataTypeWrapper table(matrix(), columnInfo({column("type", "int32")}));

    QVERIFY(table.setRowValues({"text", QVariant(), QVariantMap{{"a", 1}}}, 0));

    QCOMPARE(table.getRowValues(0), QVariantList({"text", QVariant(), QVariantMap{{"a", 1}}}));
}

void tst_TableWriting::rowThatDoesNotFitIsRefusedSilently_data()
{
    QTest::addColumn<QVariantList>("values");
    QTest::addColumn<QVariantList>("row");
    QTest::addColumn<std::size_t>("index");

    QTest::newRow("too few values") << matrix() << QVariantList{1, 2} << std::size_t{1};
    QTest::newRow("too many values") << matrix() << QVariantList{1, 2, 3, 4} << std::size_t{1};
    QTest::newRow("no values") << matrix() << QVariantList() << std::size_t{1};
    QTest::newRow("row past the end") << matrix() << QVariantList{1, 2, 3} << std::size_t{2};
    QTest::newRow("row far past the end")
        << matrix() << QVariantList{1, 2, 3} << std::size_t{largest};
    QTest::newRow("no cells") << QVariantList() << QVariantList() << std::size_t{0};
    QTest::newRow("cube") << nested({nested({{1}, {2}})}) << QVariantList{5, 6} << std::size_t{0};
}

void tst_TableWriting::rowThatDoesNotFitIsRefusedSilently()
{
    QFETCH(QVariantList, values);
    QFETCH(QVariantList, row);
    QFETCH(std::size_t, index);
    Array2dDataTypeWrapper table(values, {});
    LogCapture log;

    QVERIFY(!table.setRowValues(row, index));

    COMPARE_LOG(log);
    QCOMPARE(table.getArrayValueContent(), values);
}

void tst_TableWriting::partOfARowIsReplaced_data()
{
    QTest::addColumn<QVariantList>("values");
    QTest::addColumn<std::size_t>("offset");
    QTest::addColumn<QVariantList>("row");

    QTest::newRow("end") << QVariantList{8, 9} << std::size_t{1} << QVariantList{1, 8, 9};
    QTest::newRow("begin") << QVariantList{8, 9} << std::size_t{0} << QVariantList{8, 9, 3};
    QTest::newRow("middle") << QVariantList{9} << std::size_t{1} << QVariantList{1, 9, 3};
    QTest::newRow("whole row") << QVariantList{7, 8, 9} << std::size_t{0} << QVariantList{7, 8, 9};
    QTest::newRow("nothing") << QVariantList() << std::size_t{3} << QVariantList{1, 2, 3};
}

void tst_TableWriting::partOfARowIsReplaced()
{
    QFETCH(QVariantList, values);
    QFETCH(std::size_t, offset);
    QFETCH(QVariantList, row);
    Array2dDataTypeWrapper table(matrix(), {});
    LogCapture log;

    QVERIFY(table.setRowValues(values, 0, offset, static_cast<std::size_t>(values.size())));

    COMPARE_LOG(log);
    QCOMPARE(table.getArrayValueContent(), nested({row, {4, 5, 6}}));
}

void tst_TableWriting::missingRowIsReported_data()
{
    QTest::addColumn<QVariantList>("values");
    QTest::addColumn<std::size_t>("row");
    QTest::addColumn<QString>("message");

    const QString text =
        "Destination row is empty, row number given %1 ,max row numbers in array %2";
    QTest::newRow("past the end") << matrix() << std::size_t{2} << text.arg(2).arg(2);
    QTest::newRow("far past the end")
        << matrix() << std::size_t{largest} << text.arg(std::size_t{largest}).arg(2);
    QTest::newRow("no cells") << QVariantList() << std::size_t{0} << text.arg(0).arg(0);
    QTest::newRow("empty row") << nested({{}}) << std::size_t{0} << text.arg(0).arg(1);
    QTest::newRow("cube") << nested({nested({{1}, {2}})}) << std::size_t{0} << text.arg(0).arg(1);
}

void tst_TableWriting::missingRowIsReported()
{
    QFETCH(QVariantList, values);
    QFETCH(std::size_t, row);
    QFETCH(QString, message);
    Array2dDataTypeWrapper table(values, {});
    LogCapture log;

    QVERIFY(!table.setRowValues({9}, row, 0, 1));

    COMPARE_LOG(log, warning(message));
    QCOMPARE(table.getArrayValueContent(), values);
}

void tst_TableWriting::badColumnsAreReported_data()
{
    QTest::addColumn<QVariantList>("values");
    QTest::addColumn<std::size_t>("offset");
    QTest::addColumn<std::size_t>("count");
    QTest::addColumn<QString>("details");

    const QString text =
        "%1 (numberOfColumns) %2 given number of columns in source %3 matrix type is 2 x 3";
    QTest::newRow("past the end") << QVariantList{8, 9} << std::size_t{2} << std::size_t{2}
                                  << text.arg(2).arg(2).arg(2);
    QTest::newRow("behind the end")
        << QVariantList() << std::size_t{4} << std::size_t{0} << text.arg(4).arg(0).arg(0);
    QTest::newRow("more columns than values")
        << QVariantList{8} << std::size_t{0} << std::size_t{2} << text.arg(0).arg(2).arg(1);
    QTest::newRow("more values than columns")
        << QVariantList{8, 9} << std::size_t{0} << std::size_t{1} << text.arg(0).arg(1).arg(2);
    QTest::newRow("sum wraps around") << QVariantList{8} << std::size_t{largest} << std::size_t{1}
                                      << text.arg(std::size_t{largest}).arg(1).arg(1);
}

void tst_TableWriting::badColumnsAreReported()
{
    QFETCH(QVariantList, values);
    QFETCH(std::size_t, offset);
    QFETCH(std::size_t, count);
    QFETCH(QString, details);
    Array2dDataTypeWrapper table(matrix(), {});
    LogCapture log;

    QVERIFY(!table.setRowValues(values, 1, offset, count));

    COMPARE_LOG(log, badColumns(details));
    QCOMPARE(table.getArrayValueContent(), matrix());
}

void tst_TableWriting::raggedRowIsNotSaved_data()
{
    QTest::addColumn<QVariantList>("values");

    QTest::newRow("longer row") << nested({{1, 2}, {3, 4, 5}});
    QTest::newRow("shorter row") << nested({{1, 2}, {3}});
}

void tst_TableWriting::raggedRowIsNotSaved()
{
    QFETCH(QVariantList, values);
    Array2dDataTypeWrapper table(values, {});
    LogCapture log;

    QVERIFY(!table.setRowValues({9}, 1, 0, 1));
    COMPARE_LOG(log, warning("row saving fails"));
    QVERIFY(!table.setCellValue(1, 0, 9));
    COMPARE_LOG(log, warning("row saving fails"));

    QCOMPARE(table.getArrayValueContent(), values);
    // A whole row puts it right.
    QVERIFY(table.setRowValues({8, 9}, 1));
    QCOMPARE(table.getArrayValueContent(), nested({{1, 2}, {8, 9}}));
}

void tst_TableWriting::cellIsReplaced()
{
    Array2dDataTypeWrapper table(matrix(), {});
    LogCapture log;

    QVERIFY(table.setCellValue(1, 2, "last"));
    QVERIFY(table.setCellValue(0, 0, QVariant()));

    COMPARE_LOG(log);
    QCOMPARE(table.getArrayValueContent(), nested({{QVariant(), 2, 3}, {4, 5, "last"}}));
}

void tst_TableWriting::listIsOneCell()
{
    Array2dDataTypeWrapper table(matrix(), {});

    QVERIFY(table.setCellValue(1, 1, QVariantList{7, 8}));

    QCOMPARE(table.getRowValues(1), QVariantList({4, QVariant(QVariantList{7, 8}), 6}));
}

void tst_TableWriting::missingCellIsReported()
{
    Array2dDataTypeWrapper table(matrix(), {});
    LogCapture log;

    QVERIFY(!table.setCellValue(0, 3, 9));
    COMPARE_LOG(log, badColumns("3 (numberOfColumns) 1 given number of columns in source 1 matrix "
                                "type is 2 x 3"));
    QVERIFY(!table.setCellValue(5, 0, 9));
    COMPARE_LOG(log, warning("Destination row is empty, row number given 5 ,max row numbers in "
                             "array 2"));

    QCOMPARE(table.getArrayValueContent(), matrix());
}

void tst_TableWriting::cellOfATableWithoutCellsIsRefused()
{
    Array2dDataTypeWrapper table(QVariantList(), {});
    LogCapture log;

    QVERIFY(!table.setCellValue(0, 0, 9));

    COMPARE_LOG(log, warning("Destination row is empty, row number given 0 ,max row numbers in "
                             "array 0"));
    QVERIFY(!table);
}

void tst_TableWriting::rowIsAddedUpToOneMoreThanTheMaximum()
{
    Array2dDataTypeWrapper table = dynamicTable(nested({{1}}), columnInfo({column("value", 0)}), 2);
    LogCapture log;

    QVERIFY(table.addNewRow());
    QCOMPARE(table.getNumberOfRows(), 2U);
    QVERIFY(table.addNewRow());
    QCOMPARE(table.getNumberOfRows(), 3U);
    COMPARE_LOG(log);
    QVERIFY(!table.addNewRow());

    COMPARE_LOG(log, warning("Max number of rows exceeded 2"));
    QCOMPARE(table.getArrayType(), QVector<unsigned int>({3, 1}));
    QCOMPARE(table.getArrayValueContent(), nested({{1}, {0}, {0}}));
}

void tst_TableWriting::newRowHoldsTheDefaultsOfTheColumns()
{
    Array2dDataTypeWrapper table = dynamicTable(
        matrix(), columnInfo({column("value", 0), column("value", "none"), column("type", "x")}),
        9);
    LogCapture log;

    QVERIFY(table.addNewRow());

    COMPARE_LOG(log);
    QCOMPARE(table.getRowValues(2), QVariantList({0, "none", QVariant()}));
    QCOMPARE(table.getArrayValueContent(), nested({{1, 2, 3}, {4, 5, 6}, {0, "none", QVariant()}}));
    QVERIFY(table.setCellValue(2, 2, 7));
}

void tst_TableWriting::newRowIsInvalidWithoutDefaults()
{
    Array2dDataTypeWrapper table = dynamicTable(nested({{1, 2}}),
                                                columnInfo({QVariantMap(), "no map"}), 9);

    QVERIFY(table.addNewRow());

    const QVariantList row = table.getRowValues(1);
    QCOMPARE(row.size(), 2);
    QVERIFY(!row.at(0).isValid());
    QVERIFY(!row.at(1).isValid());
}

void tst_TableWriting::newRowGoesToTheTreeWithTheCells()
{
    const Root root = ConfigurationAndProcessDataParser().parseFromByteArray(
        R"({"type":"treenode","value":{"table":{"type":"array","value":[[1,2]],
            "arrayInformation":[[],[{"value":8},{"value":9}]],
            "arrayHasDynamicRows":true,"arrayMaxRows":4}}})",
        "config.json");
    Array2dDataTypeWrapper table(root, "table");

    QVERIFY(table.addNewRow());
    QCOMPARE(root->getLeaf(QString("table"))->getProperty("value"), QVariant(nested({{1, 2}})));
    QCOMPARE(table.setArrayCellsWithStatus(), Base::SetValueChanged);

    QCOMPARE(root->getLeaf(QString("table"))->getProperty("value"),
             QVariant(nested({{1, 2}, {8, 9}})));
}

void tst_TableWriting::onlyADynamicTableGrows()
{
    Array2dDataTypeWrapper table(nested({{1}}), columnInfo({column("value", 0)}));
    LogCapture log;

    QVERIFY(!table.addNewRow());

    COMPARE_LOG(log, warning("Array is not dynamic"));
    QCOMPARE(table.getArrayValueContent(), nested({{1}}));
}

void tst_TableWriting::defaultsMustFitTheColumns_data()
{
    QTest::addColumn<QVariantList>("info");
    QTest::addColumn<QString>("defaults");

    QTest::newRow("no information") << QVariantList() << "()";
    QTest::newRow("too few") << columnInfo({column("value", 7)}) << "(QVariant(int, 7))";
    QTest::newRow("too many") << columnInfo({column("value", 7), column("value", "a"), "no map"})
                              << "(QVariant(int, 7), QVariant(QString, \"a\"), QVariant(Invalid))";
}

void tst_TableWriting::defaultsMustFitTheColumns()
{
    QFETCH(QVariantList, info);
    QFETCH(QString, defaults);
    Array2dDataTypeWrapper table = dynamicTable(nested({{1, 2}}), info, 9);
    LogCapture log;

    QVERIFY(!table.addNewRow());

    COMPARE_LOG(log, warning("Number of columns are incorrect " + defaults));
    QCOMPARE(table.getArrayValueContent(), nested({{1, 2}}));
    QCOMPARE(table.getArrayType(), QVector<unsigned int>({1, 2}));
}

void tst_TableWriting::tableWithoutRowsCannotGrow_data()
{
    QTest::addColumn<QByteArray>("information");
    QTest::addColumn<QString>("defaults");

    QTest::newRow("columns") << QByteArray(R"([[],[{"value":"a"}]])")
                             << R"((QVariant(QString, "a")))";
    QTest::newRow("no columns") << QByteArray("[[],[]]") << "()";
    QTest::newRow("no information") << QByteArray("[]") << "()";
}

void tst_TableWriting::tableWithoutRowsCannotGrow()
{
    QFETCH(QByteArray, information);
    QFETCH(QString, defaults);
    const Root leaf = ConfigurationAndProcessDataParser().parseFromByteArray(
        R"({"type":"array","value":[],"arrayHasDynamicRows":true,"arrayMaxRows":4,
            "arrayInformation":)"
            + information + "}",
        "config.json");
    Array2dDataTypeWrapper table(leaf);
    LogCapture log;

    QVERIFY(!table.addNewRow());

    COMPARE_LOG(log, warning("Number of columns are incorrect " + defaults));
    QVERIFY(!table);
    QVERIFY(table.getArrayType().isEmpty());
}

void tst_TableWriting::changesStayInTheWrapper()
{
    const QByteArray description =
        R"({"type":"treenode","value":{"table":{"type":"array","value":[[1,2]],
            "arrayInformation":[[],[{"unitType":"K"},{"unitType":"bar"}]]}}})";
    const Root root = ConfigurationAndProcessDataParser().parseFromByteArray(description,
                                                                             "config.json");
    const Root leaf = root->getLeaf(QString("table"));
    const auto before = leaf->getProperties();
    Array2dDataTypeWrapper table(root, "table");

    QVERIFY(table.setCellValue(0, 0, 9));
    QVERIFY(table.setColumnUnitType(0, "C"));
    QCOMPARE(leaf->getProperties(), before);
    QVERIFY(table.setArrayContentTotal());

    QCOMPARE(leaf->getProperty("value"), QVariant(nested({{9, 2}})));
    QCOMPARE(leaf->getProperty("arrayInformation[1,0]/unitType"), QVariant("C"));
}

QTEST_GUILESS_MAIN(tst_TableWriting)

#include "tst_TableWriting.moc"
