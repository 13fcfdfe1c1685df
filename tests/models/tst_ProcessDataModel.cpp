#include "DisplayedPlant.h"
#include "TesselModels/ProcessDataModel.h"

#include <QAbstractItemModelTester>
#include <QSortFilterProxyModel>

#include <memory>

using namespace TesselModels;

namespace {

using Tester = QAbstractItemModelTester;

QModelIndex inColumn(const QModelIndex &index, int column)
{
    return index.sibling(index.row(), column);
}

} // namespace

/// Process values as the tree of their URLs.
class tst_ProcessDataModel : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void urlsMakeATree();
    void nodesHaveANameAlone();
    void columnsAndRolesOfAValue();
    void changedRowsAreToldBelowTheirNode();
    void allThatChangeCostOneSignal();
    void moreThanSixteenRunsAreOne();
    void valueIsWrittenThroughTheModel();
    void proxySortedByNameIsNotSortedAgain();
    void treeHoldsWhileRegionsComeAndGo();
    void modelOutlivesItsSource();
};

void tst_ProcessDataModel::urlsMakeATree()
{
    const DisplayedPlant plant;
    ProcessDataSource source(plant.file);
    ProcessDataModel model;
    const Tester tester(&model, Tester::FailureReportingMode::Fatal);
    model.setSource(&source);
    QCOMPARE(model.rowCount(), 0);

    QTRY_COMPARE_WITH_TIMEOUT(model.rowCount(), 2, longestWait);

    const QModelIndex pump = model.indexOf(QStringLiteral("pump"));
    const QModelIndex tank = model.indexOf(QStringLiteral("tank"));
    QCOMPARE(pump.row() + tank.row(), 1);
    QCOMPARE(model.rowCount(pump), 3);
    QCOMPARE(model.rowCount(tank), 4);
    QCOMPARE(model.columnCount(pump), 6);
    const QModelIndex mode = model.index(1, ValueColumn, tank);
    QCOMPARE(mode.data(UrlRole), QVariant(plant.mode));
    QCOMPARE(mode.parent(), tank);
    QCOMPARE(model.indexOf(plant.mode), inColumn(mode, NameColumn));
    QCOMPARE(model.rowCount(mode), 0);
    QVERIFY(!model.indexOf(QStringLiteral("tank/none")).isValid());
    QVERIFY(!model.indexOf(QString()).isValid());
}

void tst_ProcessDataModel::nodesHaveANameAlone()
{
    const DisplayedPlant plant;
    ProcessDataSource source(plant.file);
    ProcessDataModel model;
    model.setSource(&source);
    QTRY_COMPARE_WITH_TIMEOUT(model.rowCount(), 2, longestWait);

    const QModelIndex pump = model.indexOf(QStringLiteral("pump"));

    QCOMPARE(pump.data(), QVariant("pump"));
    QCOMPARE(pump.data(UrlRole), QVariant("pump"));
    QVERIFY(!inColumn(pump, ValueColumn).data().isValid());
    QVERIFY(!pump.data(StateRole).isValid());
    QVERIFY(!(inColumn(pump, ValueColumn).flags() & Qt::ItemIsEditable));
    QVERIFY(!model.setData(inColumn(pump, ValueColumn), 5));
}

void tst_ProcessDataModel::columnsAndRolesOfAValue()
{
    const DisplayedPlant plant;
    HeldRegion region(plant.file);
    QVERIFY(region.publish(plant.speed, validValue(7.5)));
    ProcessDataSource source(plant.file);
    ProcessDataModel model;
    model.setSource(&source);
    QVERIFY(waitForGeneration(source, 2));

    const QModelIndex speed = model.indexOf(plant.speed);
    QStringList cells;
    for (int column = 0; column < model.columnCount(); ++column) {
        cells.append(inColumn(speed, column).data().toString());
    }

    QCOMPARE(cells, QStringList({"speed", "7.5", "1/min", "valid", "double", "writable"}));
    QCOMPARE(speed.data(ValueRole), QVariant(7.5));
    QCOMPARE(speed.data(MaximumRole), QVariant(3000.0));
    QCOMPARE(model.roleNames().value(StateNameRole), QByteArray("stateName"));
    QCOMPARE(model.headerData(ValueColumn, Qt::Horizontal), QVariant("Value"));
    QVERIFY(inColumn(speed, ValueColumn).flags() & Qt::ItemIsEditable);
    QVERIFY(!(inColumn(model.indexOf(plant.level), ValueColumn).flags() & Qt::ItemIsEditable));
}

void tst_ProcessDataModel::changedRowsAreToldBelowTheirNode()
{
    const DisplayedPlant plant;
    HeldRegion region(plant.file);
    ProcessDataSource source(plant.file);
    ProcessDataModel model;
    const Tester tester(&model, Tester::FailureReportingMode::Fatal);
    model.setSource(&source);
    QVERIFY(publishSet(region, {{plant.speed, validValue(1.0)},
                                {plant.small, validValue(1u)},
                                {plant.flag, validValue(false)}}));
    QVERIFY(waitForGeneration(source, 2));
    QSignalSpy changed(&model, &ProcessDataModel::dataChanged);

    QVERIFY(publishSet(region, {{plant.speed, validValue(2.0)},
                                {plant.small, validValue(2u)},
                                {plant.flag, validValue(true)}}));
    QVERIFY(waitForGeneration(source, 3));

    QCOMPARE(changed.count(), 2);
    QMap<QString, QVector<int>> told;
    for (const auto &arguments : changed) {
        const auto first = arguments[0].toModelIndex();
        const auto last = arguments[1].toModelIndex();
        QCOMPARE(first.column(), int(ValueColumn));
        QCOMPARE(last.column(), int(ValueColumn));
        told.insert(first.parent().data().toString(), {first.row(), last.row()});
    }
    QCOMPARE(told.value(QStringLiteral("pump")), QVector<int>({0, 0}));
    QCOMPARE(told.value(QStringLiteral("tank")), QVector<int>({2, 3}));
}

void tst_ProcessDataModel::allThatChangeCostOneSignal()
{
    constexpr int rows = 1000;
    const RowedPlant plant(rows);
    HeldRegion region(plant.file);
    ProcessDataSource source(plant.file);
    ProcessDataModel model;
    model.setSource(&source);
    QVERIFY(waitForGeneration(source, 1));
    QSignalSpy changed(&model, &ProcessDataModel::dataChanged);
    QMap<QString, ProcessValue> values;
    for (int i = 0; i < rows; ++i) {
        values.insert(RowedPlant::url(i), validValue(1.5));
    }

    QVERIFY(publishSet(region, values));
    QVERIFY(waitForGeneration(source, 2));

    QCOMPARE(changed.count(), 1);
    const auto last = changed.first()[1].toModelIndex();
    QCOMPARE(changed.first()[0].toModelIndex().row(), 0);
    QCOMPARE(last.row(), rows - 1);
    // They have become valid.
    QCOMPARE(last.column(), int(StateColumn));
}

void tst_ProcessDataModel::moreThanSixteenRunsAreOne()
{
    const RowedPlant plant(40);
    HeldRegion region(plant.file);
    ProcessDataSource source(plant.file);
    ProcessDataModel model;
    model.setSource(&source);
    QVERIFY(waitForGeneration(source, 1));
    QSignalSpy changed(&model, &ProcessDataModel::dataChanged);
    const auto publishRuns = [&](int runs, double value) {
        QMap<QString, ProcessValue> values;
        for (int i = 0; i < runs; ++i) {
            values.insert(RowedPlant::url(2 * i), validValue(value));
        }
        return publishSet(region, values);
    };

    QVERIFY(publishRuns(16, 1.5));
    QVERIFY(waitForGeneration(source, 2));
    QCOMPARE(changed.count(), 16);
    changed.clear();
    QVERIFY(publishRuns(17, 2.5));
    QVERIFY(waitForGeneration(source, 3));

    QCOMPARE(changed.count(), 1);
    QCOMPARE(changed.first()[1].toModelIndex().row(), 39);
}

void tst_ProcessDataModel::valueIsWrittenThroughTheModel()
{
    const DisplayedPlant plant;
    HeldRegion region(plant.file);
    ProcessDataSource source(plant.file);
    ProcessDataModel model;
    model.setSource(&source);
    QVERIFY(waitForGeneration(source, 1));

    QVERIFY(model.setData(inColumn(model.indexOf(plant.speed), ValueColumn), 5.5));
    QVERIFY(waitForGeneration(source, 2));

    QCOMPARE(region.read(plant.speed).toDouble(), 5.5);
    QVERIFY(!model.setData(model.indexOf(plant.speed), 6.5));
}

void tst_ProcessDataModel::proxySortedByNameIsNotSortedAgain()
{
    const RowedPlant plant(40);
    HeldRegion region(plant.file);
    ProcessDataSource source(plant.file);
    ProcessDataModel model;
    model.setSource(&source);
    QSortFilterProxyModel proxy;
    proxy.setSourceModel(&model);
    proxy.sort(NameColumn, Qt::DescendingOrder);
    QVERIFY(waitForGeneration(source, 1));
    const QModelIndex rows = proxy.index(0, 0);
    QCOMPARE(proxy.index(0, 0, rows).data(), QVariant("r9"));
    QSignalSpy layout(&proxy, &QAbstractItemModel::layoutChanged);

    QVERIFY(region.publish(RowedPlant::url(9), validValue(2.5)));
    QVERIFY(waitForGeneration(source, 2));

    QCOMPARE(layout.count(), 0);
    QCOMPARE(proxy.index(0, ValueColumn, rows).data(), QVariant("2.5"));
}

void tst_ProcessDataModel::treeHoldsWhileRegionsComeAndGo()
{
    DisplayedPlant plant;
    ProcessDataSource source(plant.file);
    source.setUpdateInterval(0);
    ProcessDataModel model;
    const Tester tester(&model, Tester::FailureReportingMode::Fatal);
    model.setSource(&source);

    for (int round = 0; round < 2; ++round) {
        auto region = std::make_unique<HeldRegion>(plant.file);
        for (int set = 0; set < 50; ++set) {
            QVERIFY(region->publish(plant.speed, validValue(double(set))));
            QCoreApplication::processEvents();
        }
        QVERIFY(waitForGeneration(source, 51));
        QCOMPARE(model.indexOf(plant.speed).data(ValueRole), QVariant(49.0));
        region.reset();
        QVERIFY(waitUntilConnected(source, false));
    }
    plant.description().add(QStringLiteral("more/added"), QStringLiteral("double"),
                            ToolDescription::Metadata::ErrorState, 8);
    plant.description().write();
    QTRY_COMPARE_WITH_TIMEOUT(model.rowCount(), 3, longestWait);
}

void tst_ProcessDataModel::modelOutlivesItsSource()
{
    const DisplayedPlant plant;
    const HeldRegion region(plant.file);
    auto source = std::make_unique<ProcessDataSource>(plant.file);
    ProcessDataModel model;
    const Tester tester(&model, Tester::FailureReportingMode::Fatal);
    model.setSource(source.get());
    QVERIFY(waitForGeneration(*source, 1));

    source.reset();

    QVERIFY(model.getSource() == nullptr);
    QCOMPARE(model.rowCount(), 0);
}

QTEST_GUILESS_MAIN(tst_ProcessDataModel)
#include "tst_ProcessDataModel.moc"
