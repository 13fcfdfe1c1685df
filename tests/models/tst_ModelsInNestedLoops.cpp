#include "DisplayedPlant.h"
#include "TesselModels/ProcessDataItem.h"
#include "TesselModels/ProcessDataListModel.h"
#include "TesselModels/ProcessDataModel.h"

#include <QAbstractItemModelTester>

using namespace TesselModels;

namespace {

using Tester = QAbstractItemModelTester;

/// How often each row was told of.
QVector<int> toldRows(const QSignalSpy &changed, int rowCount)
{
    QVector<int> told(rowCount);
    for (const auto &arguments : changed) {
        const int last = arguments[1].toModelIndex().row();
        for (int row = arguments[0].toModelIndex().row(); row <= last; ++row) {
            ++told[row];
        }
    }
    return told;
}

} // namespace

/// A slot that turns the event loop, as one does that asks the user something.
class tst_ModelsInNestedLoops : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void modelsBehindSuchASlotMissNothing();
    void modelsHoldWhereTheRegionGoesMeanwhile();
};

void tst_ModelsInNestedLoops::modelsBehindSuchASlotMissNothing()
{
    const RowedPlant plant(4);
    HeldRegion region(plant.file);
    ProcessDataSource source(plant.file);
    ProcessDataItem asking;
    ProcessDataListModel list;
    ProcessDataModel tree;
    ProcessDataItem item;
    asking.setUrl(RowedPlant::url(0));
    item.setUrl(RowedPlant::url(0));
    asking.setSource(&source);
    list.setSource(&source);
    tree.setSource(&source);
    item.setSource(&source);
    QVERIFY(publishSet(
        region, {{RowedPlant::url(0), validValue(1.0)}, {RowedPlant::url(1), validValue(1.0)}}));
    QVERIFY(waitForGeneration(source, 2));
    QSignalSpy listChanged(&list, &ProcessDataListModel::dataChanged);
    QSignalSpy treeChanged(&tree, &ProcessDataModel::dataChanged);
    QSignalSpy itemChanged(&item, &ProcessDataItem::valueChanged);
    int asked = 0;
    connect(&asking, &ProcessDataItem::valueChanged, this, [&] {
        if (++asked == 1) {
            QVERIFY(region.publish(RowedPlant::url(1), validValue(2.0)));
            QVERIFY(waitForGeneration(source, 4));
        }
    });

    QVERIFY(region.publish(RowedPlant::url(0), validValue(5.0)));
    QTRY_COMPARE_WITH_TIMEOUT(itemChanged.count(), 1, longestWait);

    QCOMPARE(asked, 1);
    QCOMPARE(toldRows(listChanged, 4), QVector<int>({1, 1, 0, 0}));
    QCOMPARE(toldRows(treeChanged, 4), QVector<int>({1, 1, 0, 0}));
    QCOMPARE(item.getValue(), QVariant(5.0));
}

void tst_ModelsInNestedLoops::modelsHoldWhereTheRegionGoesMeanwhile()
{
    DisplayedPlant plant;
    auto region = std::make_unique<HeldRegion>(plant.file);
    ProcessDataSource source(plant.file);
    ProcessDataItem asking;
    ProcessDataListModel list;
    ProcessDataModel tree;
    const Tester listTester(&list, Tester::FailureReportingMode::Fatal);
    const Tester treeTester(&tree, Tester::FailureReportingMode::Fatal);
    asking.setUrl(plant.speed);
    asking.setSource(&source);
    list.setSource(&source);
    tree.setSource(&source);
    QVERIFY(waitForGeneration(source, 1));
    bool isOver = false;
    connect(&asking, &ProcessDataItem::valueChanged, this, [&] {
        if (region) {
            region.reset();
            plant.description().add(QStringLiteral("tank/added"), QStringLiteral("double"),
                                    ToolDescription::Metadata::ErrorState, 8);
            plant.description().write();
            QVERIFY(QTest::qWaitFor([&] { return list.rowCount() == 8; }, longestWait));
            isOver = true;
        }
    });

    QVERIFY(region->publish(plant.speed, validValue(5.0)));
    QTRY_VERIFY_WITH_TIMEOUT(isOver, longestWait);

    QCOMPARE(list.rowCount(), 8);
    QVERIFY(tree.indexOf(QStringLiteral("tank/added")).isValid());
    QCOMPARE(asking.getStateName(), QString("no-input"));
}

QTEST_GUILESS_MAIN(tst_ModelsInNestedLoops)
#include "tst_ModelsInNestedLoops.moc"
