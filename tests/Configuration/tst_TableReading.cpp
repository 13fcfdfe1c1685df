#include "Configuration/ConfigurationArray2dDataTypeWrapper.h"
#include "support/ChildProcess.h"
#include "support/LogCapture.h"
#include "support/NestedLists.h"
#include "support/ResourceLimit.h"

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

class tst_TableReading : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void rowsAndColumnsAreCounted_data();
    void rowsAndColumnsAreCounted();
    void rowIsGivenSilently_data();
    void rowIsGivenSilently();
    void partOfARowIsGiven_data();
    void partOfARowIsGiven();
    void missingRowIsReported_data();
    void missingRowIsReported();
    void columnsPastTheEndAreReported_data();
    void columnsPastTheEndAreReported();
    void cellIsGiven();
    void missingCellIsReported();
    void columnIsGivenSilently_data();
    void columnIsGivenSilently();
    void columnOfAShorterRowIsAsserted_data();
    void columnOfAShorterRowIsAsserted();
    void longerRowDoesNotDisturbAColumn();
};

void tst_TableReading::rowsAndColumnsAreCounted_data()
{
    QTest::addColumn<QVariantList>("values");
    QTest::addColumn<unsigned int>("rows");
    QTest::addColumn<unsigned int>("columns");

    QTest::newRow("nothing") << QVariantList() << 0U << 0U;
    QTest::newRow("2 by 3") << matrix() << 2U << 3U;
    QTest::newRow("one empty row") << nested({{}}) << 1U << 0U;
    QTest::newRow("longer second row") << nested({{1}, {2, 3}}) << 2U << 1U;
    QTest::newRow("cube") << nested({nested({{1}, {2}})}) << 1U << 2U;
}

void tst_TableReading::rowsAndColumnsAreCounted()
{
    QFETCH(QVariantList, values);
    const Array2dDataTypeWrapper table(values, {});

    QTEST(table.getNumberOfRows(), "rows");
    QTEST(table.getNumberOfColumns(), "columns");
}

void tst_TableReading::rowIsGivenSilently_data()
{
    QTest::addColumn<QVariantList>("values");
    QTest::addColumn<std::size_t>("row");
    QTest::addColumn<QVariantList>("cells");

    QTest::newRow("first") << matrix() << std::size_t{0} << QVariantList{1, 2, 3};
    QTest::newRow("last") << matrix() << std::size_t{1} << QVariantList{4, 5, 6};
    QTest::newRow("past the end") << matrix() << std::size_t{2} << QVariantList();
    QTest::newRow("far past the end") << matrix() << std::size_t{largest} << QVariantList();
    if (sizeof(std::size_t) > sizeof(quint32)) {
        const auto row = static_cast<std::size_t>(quint64{1} << 32);
        QTest::newRow("not cut to 32 bits") << matrix() << row << QVariantList();
    }
    QTest::newRow("no cells") << QVariantList() << std::size_t{0} << QVariantList();
    QTest::newRow("cube") << nested({nested({{1}, {2}})}) << std::size_t{0} << QVariantList();
    QTest::newRow("empty row") << nested({{}}) << std::size_t{0} << QVariantList();
    QTest::newRow("longer row") << nested({{1}, {2, 3}}) << std::size_t{1} << QVariantList{2, 3};
    QTest::newRow("no row at all")
        << QVariantList{QVariant(QVariantList{1}), 2} << std::size_t{1} << QVariantList();
}

void tst_TableReading::rowIsGivenSilently()
{
    QFETCH(QVariantList, values);
    QFETCH(std::size_t, row);
    QFETCH(QVariantList, cells);
    const Array2dDataTypeWrapper table(values, {});
    LogCapture log;

    QCOMPARE(table.getRowValues(row), cells);
    QCOMPARE(table(row), cells);

    COMPARE_LOG(log);
}

void tst_TableReading::partOfARowIsGiven_data()
{
    QTest::addColumn<std::size_t>("offset");
    QTest::addColumn<std::size_t>("count");
    QTest::addColumn<QVariantList>("cells");

    QTest::newRow("end") << std::size_t{1} << std::size_t{2} << QVariantList{5, 6};
    QTest::newRow("begin") << std::size_t{0} << std::size_t{1} << QVariantList{4};
    QTest::newRow("whole row") << std::size_t{0} << std::size_t{3} << QVariantList{4, 5, 6};
    QTest::newRow("nothing") << std::size_t{0} << std::size_t{0} << QVariantList();
    QTest::newRow("nothing, in the middle") << std::size_t{1} << std::size_t{0} << QVariantList();
    QTest::newRow("nothing, at the end") << std::size_t{3} << std::size_t{0} << QVariantList();
}

void tst_TableReading::partOfARowIsGiven()
{
    QFETCH(std::size_t, offset);
    QFETCH(std::size_t, count);
    LogCapture log;

    QTEST(Array2dDataTypeWrapper(matrix(), {}).getRowValues(1, offset, count), "cells");

    COMPARE_LOG(log);
}

void tst_TableReading::missingRowIsReported_data()
{
    QTest::addColumn<QVariantList>("values");
    QTest::addColumn<std::size_t>("row");

    QTest::newRow("past the end") << matrix() << std::size_t{2};
    QTest::newRow("no cells") << QVariantList() << std::size_t{0};
    QTest::newRow("empty row") << nested({{}}) << std::size_t{0};
    QTest::newRow("cube") << nested({nested({{1}, {2}})}) << std::size_t{0};
}

void tst_TableReading::missingRowIsReported()
{
    QFETCH(QVariantList, values);
    QFETCH(std::size_t, row);
    const Array2dDataTypeWrapper table(values, {});
    LogCapture log;

    QVERIFY(table.getRowValues(row, 0, 1).isEmpty());
    COMPARE_LOG(log, badRow());
    QVERIFY(table.getRowValues(row, 0, 0).isEmpty());
    COMPARE_LOG(log, badRow());
}

void tst_TableReading::columnsPastTheEndAreReported_data()
{
    QTest::addColumn<std::size_t>("offset");
    QTest::addColumn<std::size_t>("count");
    QTest::addColumn<QString>("sum");

    QTest::newRow("one too many") << std::size_t{2} << std::size_t{2} << "4";
    QTest::newRow("behind the end") << std::size_t{4} << std::size_t{0} << "4";
    QTest::newRow("far") << std::size_t{1000} << std::size_t{1} << "1001";
    QTest::newRow("sum just below the wrap")
        << std::size_t{largest} << std::size_t{0} << QString::number(largest);
}

void tst_TableReading::columnsPastTheEndAreReported()
{
    QFETCH(std::size_t, offset);
    QFETCH(std::size_t, count);
    QFETCH(QString, sum);
    LogCapture log;

    QVERIFY(Array2dDataTypeWrapper(matrix(), {}).getRowValues(1, offset, count).isEmpty());

    COMPARE_LOG(log, warning("Column index out of bounds 3 " + sum));
}

void tst_TableReading::cellIsGiven()
{
    const Array2dDataTypeWrapper table(matrix(), {});
    LogCapture log;

    QCOMPARE(table.getCellValue(1, 2), QVariant(6));
    QCOMPARE(table(0, 0), QVariant(1));
    QCOMPARE(table.getCellValue(QVector<unsigned int>{1, 0}), QVariant(4));
    QVERIFY(!table.getCellValue(QVector<unsigned int>{1, 3}).isValid());

    COMPARE_LOG(log);
}

void tst_TableReading::missingCellIsReported()
{
    const Array2dDataTypeWrapper table(matrix(), {});
    LogCapture log;

    QVERIFY(!table.getCellValue(2, 0).isValid());
    COMPARE_LOG(log, badRow());
    QVERIFY(!table.getCellValue(1, 3).isValid());
    COMPARE_LOG(log, warning("Column index out of bounds 3 4"));
    QVERIFY(!table(5, 5).isValid());
    COMPARE_LOG(log, badRow());
    // The sum wraps around, the cell is missing all the same.
    QVERIFY(!table.getCellValue(1, largest).isValid());
    QCOMPARE(log.take().size(), 1);
}

void tst_TableReading::columnIsGivenSilently_data()
{
    QTest::addColumn<QVariantList>("values");
    QTest::addColumn<std::size_t>("column");
    QTest::addColumn<QVariantList>("cells");

    QTest::newRow("first") << matrix() << std::size_t{0} << QVariantList{1, 4};
    QTest::newRow("middle") << matrix() << std::size_t{1} << QVariantList{2, 5};
    QTest::newRow("past the end") << matrix() << std::size_t{3} << QVariantList();
    QTest::newRow("far past the end") << matrix() << std::size_t{largest} << QVariantList();
    QTest::newRow("no cells") << QVariantList() << std::size_t{0} << QVariantList();
    QTest::newRow("empty rows") << nested({{}, {}}) << std::size_t{0} << QVariantList();
    QTest::newRow("cube") << nested({nested({{1}, {2}})}) << std::size_t{0} << QVariantList();
    QTest::newRow("flat") << QVariantList{7, 8} << std::size_t{0} << QVariantList{7, 8};
}

void tst_TableReading::columnIsGivenSilently()
{
    QFETCH(QVariantList, values);
    QFETCH(std::size_t, column);
    LogCapture log;

    QTEST(Array2dDataTypeWrapper(values, {}).getColumnValues(column), "cells");

    COMPARE_LOG(log);
}

void tst_TableReading::columnOfAShorterRowIsAsserted_data()
{
    QTest::addColumn<QVariantList>("values");

    QTest::newRow("shorter row") << nested({{1, 2}, {3}});
    QTest::newRow("empty row") << nested({{1, 2}, {}});
    QTest::newRow("no row at all") << QVariantList{QVariant(QVariantList{1, 2}), 3};
}

void tst_TableReading::columnOfAShorterRowIsAsserted()
{
    QFETCH(QVariantList, values);
    ChildProcess child([&values](const ChildSide &side) {
        const ResourceLimit noCoreFile(RLIMIT_CORE, 0);
        signal(SIGABRT, SIG_DFL);
        const LogCapture log;
        const Array2dDataTypeWrapper table(values, {});
        CHILD_VERIFY(table.getRowValues(0) == QVariantList({1, 2}));
        side.say();
        table.getColumnValues(1);
        return 0;
    });

    QVERIFY(child.waitUntilReady());
    QCOMPARE(child.waitForExit(), -SIGABRT);
}

void tst_TableReading::longerRowDoesNotDisturbAColumn()
{
    const Array2dDataTypeWrapper table(nested({{1}, {2, 3}}), {});

    QCOMPARE(table.getColumnValues(0), QVariantList({1, 2}));
    QVERIFY(table.getColumnValues(1).isEmpty());
    QCOMPARE(table.getCellValue(1, 1), QVariant(3));
}

QTEST_GUILESS_MAIN(tst_TableReading)

#include "tst_TableReading.moc"
