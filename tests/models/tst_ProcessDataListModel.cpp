#include "DisplayedPlant.h"
#include "TesselModels/ProcessDataListModel.h"
#include "support/StoppedProcess.h"

#include <QAbstractItemModelTester>
#include <QSortFilterProxyModel>

#include <memory>

using namespace TesselModels;

namespace {

using Tester = QAbstractItemModelTester;

QVariant at(const QAbstractItemModel &model, int row, int role)
{
    return model.index(row, 0).data(role);
}

/// First row, last row, first column and last column of a dataChanged().
QVector<int> placeOf(const QList<QVariant> &arguments)
{
    const auto first = arguments[0].toModelIndex();
    const auto last = arguments[1].toModelIndex();
    return {first.row(), last.row(), first.column(), last.column()};
}

QMap<QString, ProcessValue> everyOther(int count, double value)
{
    QMap<QString, ProcessValue> values;
    for (int i = 0; i < count; ++i) {
        values.insert(RowedPlant::url(2 * i), validValue(value));
    }
    return values;
}

} // namespace

/// Process values as a flat list.
class tst_ProcessDataListModel : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void allValuesAreRows();
    void rolesOfAValue();
    void columnsOfAValue();
    void rowsOfUrlsAreTheseUrls();
    void rowsBelowARoot();
    void allThatChangeCostOneSignal();
    void runsOfRowsAreToldOneByOne_data();
    void runsOfRowsAreToldOneByOne();
    void changedStateIsToldUpToItsColumn();
    void valuesThatStayAreNotTold();
    void regionThatGoesIsOneSignal();
    void otherDescriptionIsAReset();
    void valueIsWrittenThroughTheModel();
    void readOnlyRowIsNotEditable();
    void proxySortedByNameIsNotSortedAgain();
    void modelOutlivesItsSource();
    void modelHoldsWhileRegionsComeAndGo();
};

void tst_ProcessDataListModel::allValuesAreRows()
{
    const DisplayedPlant plant;
    ProcessDataSource source(plant.file);
    ProcessDataListModel model;
    const Tester tester(&model, Tester::FailureReportingMode::Fatal);
    QSignalSpy count(&model, &ProcessDataListModel::countChanged);
    model.setSource(&source);
    QCOMPARE(model.rowCount(), 0);

    QVERIFY(count.wait(longestWait));

    QCOMPARE(model.getCount(), 7);
    QCOMPARE(model.columnCount(), 6);
    QStringList urls;
    for (int row = 0; row < model.rowCount(); ++row) {
        urls.append(at(model, row, UrlRole).toString());
    }
    QCOMPARE(urls, source.urls());
}

void tst_ProcessDataListModel::rolesOfAValue()
{
    const DisplayedPlant plant;
    HeldRegion region(plant.file);
    QVERIFY(region.publish(plant.speed, validValue(7.5)));
    ProcessDataSource source(plant.file);
    ProcessDataListModel model;
    model.setSource(&source);
    QVERIFY(waitForGeneration(source, 2));

    const auto names = model.roleNames();
    const auto role = [&](const char *name) { return at(model, 0, names.key(name, -1)); };
    QCOMPARE(role("url"), QVariant(plant.speed));
    QCOMPARE(role("name"), QVariant("speed"));
    QCOMPARE(role("value"), QVariant(7.5));
    QCOMPARE(role("text"), QVariant("7.5"));
    QCOMPARE(role("state"), QVariant(0));
    QCOMPARE(role("stateName"), QVariant("valid"));
    QCOMPARE(role("valid"), QVariant(true));
    QCOMPARE(role("unit"), QVariant("1/min"));
    QCOMPARE(role("type"), QVariant("double"));
    QCOMPARE(role("minimum"), QVariant(0.5));
    QCOMPARE(role("maximum"), QVariant(3000.0));
    QCOMPARE(role("readOnly"), QVariant(false));
    QCOMPARE(role("displayPosition").toInt(), 0);
    QCOMPARE(role("label"), QVariant("LABEL_SPEED"));
    // Without input: undefined.
    QVERIFY(!at(model, 1, ValueRole).isValid());
    QCOMPARE(at(model, 1, ValidRole), QVariant(false));
    QCOMPARE(at(model, 1, StateRole), QVariant(3));
    QVERIFY(!at(model, 1, MinimumRole).isValid());
}

void tst_ProcessDataListModel::columnsOfAValue()
{
    const DisplayedPlant plant;
    HeldRegion region(plant.file);
    QVERIFY(region.publish(plant.level, validValue(0.1F)));
    ProcessDataSource source(plant.file);
    ProcessDataListModel model;
    model.setUrls({plant.level});
    model.setSource(&source);
    QVERIFY(waitForGeneration(source, 2));

    QStringList titles;
    QStringList cells;
    for (int column = 0; column < model.columnCount(); ++column) {
        titles.append(model.headerData(column, Qt::Horizontal).toString());
        cells.append(model.index(0, column).data().toString());
    }
    QCOMPARE(titles, QStringList({"Name", "Value", "Unit", "State", "Type", "Access"}));
    QCOMPARE(cells, QStringList({"level", "0.1", "", "valid", "float", "read-only"}));
}

void tst_ProcessDataListModel::rowsOfUrlsAreTheseUrls()
{
    const DisplayedPlant plant;
    HeldRegion region(plant.file);
    ProcessDataListModel model;
    const Tester tester(&model, Tester::FailureReportingMode::Fatal);
    model.setUrls({plant.flag, QStringLiteral("pump/none"), plant.speed, plant.flag});
    QCOMPARE(model.rowCount(), 4);
    QCOMPARE(at(model, 2, StateNameRole), QVariant("no-input"));
    ProcessDataSource source(plant.file);
    model.setSource(&source);
    QVERIFY(waitForGeneration(source, 1));
    QSignalSpy changed(&model, &ProcessDataListModel::dataChanged);

    QVERIFY(region.publish(plant.flag, validValue(true)));
    QVERIFY(waitForGeneration(source, 2));

    QCOMPARE(model.rowCount(), 4);
    QCOMPARE(at(model, 0, ValueRole), QVariant(true));
    QCOMPARE(at(model, 3, ValueRole), QVariant(true));
    QCOMPARE(at(model, 1, NameRole), QVariant("none"));
    QVERIFY(!at(model, 1, ValueRole).isValid());
    QCOMPARE(changed.count(), 2);
    QCOMPARE(placeOf(changed[0])[0], 0);
    QCOMPARE(placeOf(changed[1])[0], 3);
}

void tst_ProcessDataListModel::rowsBelowARoot()
{
    const DisplayedPlant plant;
    ProcessDataSource source(plant.file);
    QTRY_VERIFY_WITH_TIMEOUT(!source.urls().isEmpty(), longestWait);
    ProcessDataListModel model;
    const Tester tester(&model, Tester::FailureReportingMode::Fatal);
    model.setSource(&source);

    model.setRootUrl(QStringLiteral("tank"));
    QCOMPARE(model.rowCount(), 4);
    QCOMPARE(at(model, 0, UrlRole), QVariant(plant.level));
    // A piece of the URL, not a beginning of the text.
    model.setRootUrl(QStringLiteral("tan"));
    QCOMPARE(model.rowCount(), 0);
    model.setRootUrl(QString());
    QCOMPARE(model.rowCount(), 7);
}

void tst_ProcessDataListModel::allThatChangeCostOneSignal()
{
    constexpr int rows = 1000;
    const RowedPlant plant(rows);
    HeldRegion region(plant.file);
    ProcessDataSource source(plant.file);
    ProcessDataListModel model;
    model.setSource(&source);
    QVERIFY(waitForGeneration(source, 1));
    QMap<QString, ProcessValue> values;
    for (int i = 0; i < rows; ++i) {
        values.insert(RowedPlant::url(i), validValue(1.5));
    }
    QVERIFY(publishSet(region, values));
    QVERIFY(waitForGeneration(source, 2));
    QSignalSpy changed(&model, &ProcessDataListModel::dataChanged);
    for (auto &value : values) {
        value.setValue(2.5);
    }

    QVERIFY(publishSet(region, values));
    QVERIFY(waitForGeneration(source, 3));

    QCOMPARE(changed.count(), 1);
    QCOMPARE(placeOf(changed.first()), QVector<int>({0, 999, ValueColumn, ValueColumn}));
    const auto roles = changed.first()[2].value<QVector<int>>();
    QVERIFY(roles.contains(ValueRole) && roles.contains(Qt::DisplayRole));
    QVERIFY(!roles.contains(NameRole));
}

void tst_ProcessDataListModel::runsOfRowsAreToldOneByOne_data()
{
    QTest::addColumn<int>("runs");
    QTest::addColumn<int>("signalCount");

    QTest::newRow("one") << 1 << 1;
    QTest::newRow("most") << 16 << 16;
    QTest::newRow("too many") << 17 << 1;
}

void tst_ProcessDataListModel::runsOfRowsAreToldOneByOne()
{
    QFETCH(int, runs);
    const RowedPlant plant(40);
    HeldRegion region(plant.file);
    ProcessDataSource source(plant.file);
    ProcessDataListModel model;
    model.setSource(&source);
    QVERIFY(publishSet(region, everyOther(20, 1.5)));
    QVERIFY(waitForGeneration(source, 2));
    QSignalSpy changed(&model, &ProcessDataListModel::dataChanged);

    QVERIFY(publishSet(region, everyOther(runs, 2.5)));
    QVERIFY(waitForGeneration(source, 3));

    QTEST(changed.count(), "signalCount");
    const bool isWhole = runs > 16;
    const QVector<int> first = isWhole ? QVector<int>{0, 39, ValueColumn, ValueColumn}
                                       : QVector<int>{0, 0, ValueColumn, ValueColumn};
    QCOMPARE(placeOf(changed.first()), first);
    if (!isWhole) {
        const int last = 2 * (runs - 1);
        QCOMPARE(placeOf(changed.last()), QVector<int>({last, last, ValueColumn, ValueColumn}));
    }
}

void tst_ProcessDataListModel::changedStateIsToldUpToItsColumn()
{
    using namespace ProcessDataDefinitions;
    const RowedPlant plant(3);
    HeldRegion region(plant.file);
    ProcessDataSource source(plant.file);
    ProcessDataListModel model;
    model.setSource(&source);
    QVERIFY(publishSet(region, everyOther(1, 1.5)));
    QVERIFY(waitForGeneration(source, 2));
    QSignalSpy changed(&model, &ProcessDataListModel::dataChanged);

    QVERIFY(region.publish(RowedPlant::url(0), ProcessValue(PROCESS_VALUE_ERROR_TYPE_TIMEOUT)));
    QVERIFY(waitForGeneration(source, 3));

    QCOMPARE(changed.count(), 1);
    QCOMPARE(placeOf(changed.first()), QVector<int>({0, 0, ValueColumn, StateColumn}));
}

void tst_ProcessDataListModel::valuesThatStayAreNotTold()
{
    const RowedPlant plant(3);
    HeldRegion region(plant.file);
    ProcessDataSource source(plant.file);
    ProcessDataListModel model;
    model.setSource(&source);
    QVERIFY(publishSet(region, {{RowedPlant::url(0), validValue(qQNaN())},
                                {RowedPlant::url(1), validValue(0.0)}}));
    QVERIFY(waitForGeneration(source, 2));
    QSignalSpy changed(&model, &ProcessDataListModel::dataChanged);

    QVERIFY(publishSet(region, {{RowedPlant::url(0), validValue(qQNaN())},
                                {RowedPlant::url(1), validValue(0.0)}}));
    QVERIFY(waitForGeneration(source, 3));
    QCOMPARE(changed.count(), 0);

    // Equal as numbers, and other bits.
    QVERIFY(region.publish(RowedPlant::url(1), validValue(-0.0)));
    QVERIFY(waitForGeneration(source, 4));
    QCOMPARE(changed.count(), 1);
    QCOMPARE(at(model, 1, TextRole), QVariant("-0"));
}

void tst_ProcessDataListModel::regionThatGoesIsOneSignal()
{
    const RowedPlant plant(3);
    auto region = std::make_unique<HeldRegion>(plant.file);
    ProcessDataSource source(plant.file);
    ProcessDataListModel model;
    const Tester tester(&model, Tester::FailureReportingMode::Fatal);
    model.setSource(&source);
    QVERIFY(publishSet(
        *region, {{RowedPlant::url(0), validValue(1.0)}, {RowedPlant::url(1), validValue(2.0)}}));
    QVERIFY(waitForGeneration(source, 2));
    QSignalSpy changed(&model, &ProcessDataListModel::dataChanged);
    QSignalSpy reset(&model, &ProcessDataListModel::modelReset);

    region.reset();
    QVERIFY(waitUntilConnected(source, false));

    QCOMPARE(changed.count(), 1);
    QCOMPARE(placeOf(changed.first()), QVector<int>({0, 1, ValueColumn, StateColumn}));
    QCOMPARE(reset.count(), 0);
    QVERIFY(!at(model, 0, ValueRole).isValid());
}

void tst_ProcessDataListModel::otherDescriptionIsAReset()
{
    DisplayedPlant plant;
    ProcessDataSource source(plant.file);
    ProcessDataListModel model;
    const Tester tester(&model, Tester::FailureReportingMode::Fatal);
    model.setSource(&source);
    QTRY_COMPARE_WITH_TIMEOUT(model.rowCount(), 7, longestWait);
    QSignalSpy reset(&model, &ProcessDataListModel::modelReset);

    plant.description().add(QStringLiteral("tank/added"), QStringLiteral("double"),
                            ToolDescription::Metadata::ErrorState, 8);
    plant.description().write();

    QTRY_COMPARE_WITH_TIMEOUT(model.rowCount(), 8, longestWait);
    QCOMPARE(reset.count(), 1);
}

void tst_ProcessDataListModel::valueIsWrittenThroughTheModel()
{
    const DisplayedPlant plant;
    HeldRegion region(plant.file);
    ProcessDataSource source(plant.file);
    ProcessDataListModel model;
    model.setUrls({plant.speed});
    model.setSource(&source);
    QVERIFY(waitForGeneration(source, 1));

    QVERIFY(model.setData(model.index(0, ValueColumn), 5.5));
    // It is shown when it is published, not before.
    QVERIFY(!at(model, 0, ValueRole).isValid());
    QVERIFY(waitForGeneration(source, 2));
    QCOMPARE(at(model, 0, ValueRole), QVariant(5.5));
    QVERIFY(model.setData(model.index(0, NameColumn), 6.5, ValueRole));
    QVERIFY(waitForGeneration(source, 3));

    QCOMPARE(region.read(plant.speed).toDouble(), 6.5);
    QVERIFY(!model.setData(model.index(0, NameColumn), QStringLiteral("other")));
    QVERIFY(!model.setData(QModelIndex(), 6.5));
}

void tst_ProcessDataListModel::readOnlyRowIsNotEditable()
{
    const DisplayedPlant plant;
    auto region = std::make_unique<HeldRegion>(plant.file);
    ProcessDataSource source(plant.file);
    ProcessDataListModel model;
    model.setUrls({plant.speed, plant.level, QStringLiteral("pump/none")});
    model.setSource(&source);
    QVERIFY(waitForGeneration(source, 1));

    const auto isEditable = [&](int row, int column) {
        return bool(model.index(row, column).flags() & Qt::ItemIsEditable);
    };
    QVERIFY(isEditable(0, ValueColumn));
    QVERIFY(!isEditable(0, NameColumn));
    QVERIFY(!isEditable(1, ValueColumn));
    QVERIFY(!isEditable(2, ValueColumn));
    region.reset();
    QVERIFY(waitUntilConnected(source, false));
    QVERIFY(!isEditable(0, ValueColumn));
}

void tst_ProcessDataListModel::proxySortedByNameIsNotSortedAgain()
{
    const RowedPlant plant(40);
    HeldRegion region(plant.file);
    ProcessDataSource source(plant.file);
    ProcessDataListModel model;
    model.setSource(&source);
    QSortFilterProxyModel proxy;
    proxy.setSourceModel(&model);
    proxy.sort(NameColumn, Qt::DescendingOrder);
    QVERIFY(publishSet(region, everyOther(20, 1.5)));
    QVERIFY(waitForGeneration(source, 2));
    QSignalSpy layout(&proxy, &QAbstractItemModel::layoutChanged);
    QSignalSpy changed(&proxy, &QAbstractItemModel::dataChanged);

    QVERIFY(publishSet(region, everyOther(20, 2.5)));
    QVERIFY(waitForGeneration(source, 3));

    QCOMPARE(layout.count(), 0);
    QVERIFY(changed.count() > 0);
    QCOMPARE(at(proxy, 0, NameRole), QVariant("r9"));
}

void tst_ProcessDataListModel::modelOutlivesItsSource()
{
    const DisplayedPlant plant;
    const HeldRegion region(plant.file);
    auto source = std::make_unique<ProcessDataSource>(plant.file);
    ProcessDataListModel model;
    const Tester tester(&model, Tester::FailureReportingMode::Fatal);
    model.setSource(source.get());
    QVERIFY(waitForGeneration(*source, 1));
    QSignalSpy changed(&model, &ProcessDataListModel::sourceChanged);

    source.reset();

    QVERIFY(model.getSource() == nullptr);
    QCOMPARE(changed.count(), 1);
    QCOMPARE(model.rowCount(), 0);
}

void tst_ProcessDataListModel::modelHoldsWhileRegionsComeAndGo()
{
    const DisplayedPlant plant;
    ProcessDataSource source(plant.file);
    source.setUpdateInterval(0);
    ProcessDataListModel all;
    ProcessDataListModel some;
    const Tester allTester(&all, Tester::FailureReportingMode::Fatal);
    const Tester someTester(&some, Tester::FailureReportingMode::Fatal);
    all.setSource(&source);
    some.setSource(&source);
    some.setUrls({plant.speed, plant.name});

    for (int round = 0; round < 2; ++round) {
        auto region = std::make_unique<HeldRegion>(plant.file);
        for (int set = 0; set < 50; ++set) {
            QVERIFY(region->publish(plant.speed, validValue(double(set))));
            QCoreApplication::processEvents();
        }
        QVERIFY(waitForGeneration(source, 51));
        QCOMPARE(at(some, 0, ValueRole), QVariant(49.0));
        QCOMPARE(at(all, 0, ValueRole), QVariant(49.0));
        region.reset();
        QVERIFY(waitUntilConnected(source, false));
    }
}

QTEST_GUILESS_MAIN(tst_ProcessDataListModel)
#include "tst_ProcessDataListModel.moc"
