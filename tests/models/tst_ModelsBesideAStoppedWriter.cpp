#include "DisplayTurns.h"
#include "DisplayedPlant.h"
#include "StoppedWriter.h"
#include "TesselModels/ConfigurationModel.h"
#include "TesselModels/ProcessDataListModel.h"
#include "TesselModels/ProcessDataModel.h"
#include "support/WorkingDirectory.h"

#include <QAbstractItemModelTester>

#include <memory>

using namespace TesselModels;

namespace {

using Tester = QAbstractItemModelTester;

QModelIndex valueOf(const QModelIndex &index, int column)
{
    return index.sibling(index.row(), column);
}

/// The three models of one display, each of them watched for every mistake that a model can make.
struct WatchedModels
{
    explicit WatchedModels(const DisplayedPlant &plant) : source(plant.file)
    {
        source.setUpdateInterval(0);
        tree.setSource(&source);
        list.setSource(&source);
        writeFile(QStringLiteral("pump.config.json"),
                  R"({"type": "treenode", "schemeVersion": 1, "modifiedBy": "", "lastModified": "",
                      "value": {"small": {"type": "int32", "value": 5}}})");
        configuration.setPath(QStringLiteral("pump.config.json"));
    }

    QModelIndex treeSpeed(const DisplayedPlant &plant) const
    {
        return valueOf(tree.indexOf(plant.speed), ValueColumn);
    }
    QModelIndex listSpeed(const DisplayedPlant &plant) const
    {
        return list.index(source.urls().indexOf(plant.speed), ValueColumn);
    }
    bool show(const DisplayedPlant &plant, const QVariant &value) const
    {
        return treeSpeed(plant).data(ValueRole) == value
               && listSpeed(plant).data(ValueRole) == value;
    }
    /// Of a write into the configuration.
    bool edit(int value)
    {
        QSignalSpy written(&configuration, &ConfigurationModel::written);
        const QModelIndex small = configuration.indexOf(QStringLiteral("small"));
        return configuration.setData(valueOf(small, ConfigurationValueColumn), value)
               && written.wait(longestWait)
               && written.first()[1].toInt() == int(ConfigurationChanged);
    }

    ProcessDataSource source;
    ProcessDataModel tree;
    ProcessDataListModel list;
    ConfigurationModel configuration;
    const Tester treeTester{&tree, Tester::FailureReportingMode::Fatal};
    const Tester listTester{&list, Tester::FailureReportingMode::Fatal};
    const Tester configurationTester{&configuration, Tester::FailureReportingMode::Fatal};
};

bool publishMany(HeldRegion &region, const QString &url, int sets)
{
    for (int set = 0; set < sets; ++set) {
        if (!region.publish(url, validValue(double(set)))) {
            return false;
        }
        QCoreApplication::processEvents();
    }
    return true;
}

} // namespace

/// All models of a display together, while a process stands still inside the lock of their region.
class tst_ModelsBesideAStoppedWriter : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void modelsHoldWhileRegionsComeAndGo();
    void displayNeverStandsStill();
};

void tst_ModelsBesideAStoppedWriter::modelsHoldWhileRegionsComeAndGo()
{
    const WorkingDirectory directory;
    const DisplayedPlant plant;
    StoppedWriter writer(plant.file);
    auto region = std::make_unique<HeldRegion>(plant.file);
    WatchedModels models(plant);
    QVERIFY(publishMany(*region, plant.speed, 20));
    QTRY_VERIFY_WITH_TIMEOUT(models.show(plant, 19.0), longestWait);
    QTRY_VERIFY_WITH_TIMEOUT(models.configuration.isLoaded(), longestWait);
    QSignalSpy failed(&models.source, &ProcessDataSource::writeFailed);

    QVERIFY(writer.takeLock());
    QVERIFY(models.tree.setData(models.treeSpeed(plant), 100.5));
    QVERIFY(models.list.setData(models.listSpeed(plant), 200.5));
    // They are queued behind a lock that nobody gives back; everything is shown and edited nevertheless.
    QVERIFY(models.edit(6));
    QVERIFY(models.show(plant, 19.0));
    QCOMPARE(failed.count(), 0);

    region.reset();
    QVERIFY(waitUntilConnected(models.source, false));
    QTRY_COMPARE_WITH_TIMEOUT(failed.count(), 2, longestWait);
    QVERIFY(models.show(plant, {}));
    QVERIFY(models.edit(7));

    // The next region has a lock of its own.
    region = std::make_unique<HeldRegion>(plant.file);
    QVERIFY(publishMany(*region, plant.speed, 30));
    QTRY_VERIFY_WITH_TIMEOUT(models.show(plant, 29.0), longestWait);
    QVERIFY(models.tree.setData(models.treeSpeed(plant), 300.5));
    QTRY_VERIFY_WITH_TIMEOUT(models.show(plant, 300.5), longestWait);
    QVERIFY(writer.kill());
    QCOMPARE(failed.count(), 2);
}

void tst_ModelsBesideAStoppedWriter::displayNeverStandsStill()
{
    constexpr double most = 5; // milliseconds
    const WorkingDirectory directory;
    const DisplayedPlant plant;
    StoppedWriter writer(plant.file);
    auto region = std::make_unique<HeldRegion>(plant.file);
    WatchedModels models(plant);
    DisplayTurns turns;
    const auto publishAll = [&](int sets) {
        for (int set = 0; set < sets; ++set) {
            const double value = set;
            if (!region->publish(plant.speed, validValue(value))
                || !turns.until([&] { return models.show(plant, value); })) {
                return false;
            }
        }
        return true;
    };
    QVERIFY(turns.until([&] { return models.source.isConnected(); }));
    QVERIFY(turns.until([&] { return models.configuration.isLoaded(); }));
    QVERIFY(publishAll(20));
    QSignalSpy failed(&models.source, &ProcessDataSource::writeFailed);

    QVERIFY(writer.takeLock());
    QVERIFY(turns.measure([&] { return models.tree.setData(models.treeSpeed(plant), 100.5); }));
    QVERIFY(turns.measure([&] { return models.list.setData(models.listSpeed(plant), 200.5); }));
    QVERIFY(turns.measure([&] {
        models.configuration.save();
        return models.show(plant, 19.0);
    }));
    QVERIFY(turns.until([&] { return !models.configuration.isSaving(); }));
    region.reset();
    QVERIFY(turns.until([&] { return !models.source.isConnected(); }));
    QVERIFY(turns.until([&] { return failed.count() == 2; }));
    region = std::make_unique<HeldRegion>(plant.file);
    QVERIFY(turns.until([&] { return models.source.isConnected(); }));
    QVERIFY(publishAll(20));
    QVERIFY(writer.kill());

    QVERIFY2(turns.longestMilliseconds() <= most,
             qPrintable(QString::number(turns.longestMilliseconds())));
}

QTEST_GUILESS_MAIN(tst_ModelsBesideAStoppedWriter)
#include "tst_ModelsBesideAStoppedWriter.moc"
