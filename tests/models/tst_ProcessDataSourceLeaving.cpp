#include "DisplayedPlant.h"
#include "TesselModels/ProcessDataItem.h"
#include "tool/ToolProcess.h"

#include <csignal>
#include <memory>

/// A region that goes and comes back under the eyes of a display.
class tst_ProcessDataSourceLeaving : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void regionThatReturnsIsAttachedAnew();
    void replacedRegionIsAttachedAnew();
    void writeIntoAReplacedRegionIsNotLost();
    void killedCreatorCountsAsGone();
    void changedDescriptionIsReadAnew();
    void brokenDescriptionIsSaidAndSurvived();
    void otherLayoutIsSaid();
};

void tst_ProcessDataSourceLeaving::regionThatReturnsIsAttachedAnew()
{
    const DisplayedPlant plant;
    ProcessDataSource source(plant.file);
    QSignalSpy urls(&source, &ProcessDataSource::urlsChanged);
    ProcessDataItem speed;
    speed.setSource(&source);
    speed.setUrl(plant.speed);

    for (int round = 1; round <= 3; ++round) {
        auto region = std::make_unique<HeldRegion>(plant.file);
        QVERIFY(region->publish(plant.speed, validValue(double(round))));
        QTRY_COMPARE_WITH_TIMEOUT(speed.getValue(), QVariant(double(round)), longestWait);
        QCOMPARE(source.getErrorText(), QString());
        region.reset();

        QVERIFY(waitUntilConnected(source, false));
        QVERIFY(!speed.getValue().isValid());
        QCOMPARE(speed.getState(), static_cast<int>(TesselModels::State::NoInput));
        QCOMPARE(source.getErrorText(),
                 QStringLiteral("region '%1' has gone; start the program that creates it")
                     .arg(plant.key()));
    }
    // The description has stayed the same.
    QCOMPARE(urls.count(), 1);
}

void tst_ProcessDataSourceLeaving::replacedRegionIsAttachedAnew()
{
    const DisplayedPlant plant;
    const auto first = std::make_unique<HeldRegion>(plant.file);
    ProcessDataSource source(plant.file);
    QVERIFY(waitUntilConnected(source));
    ProcessDataItem speed;
    speed.setSource(&source);
    speed.setUrl(plant.speed);

    HeldRegion second(plant.file);
    QVERIFY(second.publish(plant.speed, validValue(9.5)));

    QTRY_COMPARE_WITH_TIMEOUT(speed.getValue(), QVariant(9.5), longestWait);
}

void tst_ProcessDataSourceLeaving::writeIntoAReplacedRegionIsNotLost()
{
    const DisplayedPlant plant;
    const auto first = std::make_unique<HeldRegion>(plant.file);
    ProcessDataSource source(plant.file);
    QVERIFY(waitUntilConnected(source));
    const QSignalSpy failed(&source, &ProcessDataSource::writeFailed);

    HeldRegion second(plant.file);
    QVERIFY(second.publish(plant.speed, validValue(1.5)));
    // The source is not told of the second one yet.
    source.write(plant.speed, 9.5);

    QTRY_COMPARE_WITH_TIMEOUT(second.read(plant.speed).toDouble(), 9.5, longestWait);
    QCOMPARE(failed.count(), 0);
}

void tst_ProcessDataSourceLeaving::killedCreatorCountsAsGone()
{
    const DisplayedPlant plant;
    ToolProcess creator({QStringLiteral("hold"), plant.file});
    QVERIFY(creator.nextLine().startsWith(QStringLiteral("holding")));
    ProcessDataSource source(plant.file);
    QVERIFY(waitUntilConnected(source));

    creator.signal(SIGKILL);
    creator.finish();

    QVERIFY(waitUntilConnected(source, false));
    QCOMPARE(
        source.getErrorText(),
        QStringLiteral("the creator of region '%1' has died; start it again").arg(plant.key()));
    // Nor does a write of its own make it one that lives.
    QSignalSpy failed(&source, &ProcessDataSource::writeFailed);
    source.write(plant.speed, 9.5);
    QVERIFY(failed.wait(longestWait));
    QCOMPARE(failed.first()[1].toInt(), int(TesselModels::WriteError::NotConnected));
    HeldRegion next(plant.file);
    QVERIFY(waitUntilConnected(source));
}

void tst_ProcessDataSourceLeaving::changedDescriptionIsReadAnew()
{
    DisplayedPlant plant;
    auto region = std::make_unique<HeldRegion>(plant.file);
    ProcessDataSource source(plant.file);
    QVERIFY(waitUntilConnected(source));
    QSignalSpy urls(&source, &ProcessDataSource::urlsChanged);
    region.reset();

    const QString added = QStringLiteral("tank/added");
    plant.description().add(added, QStringLiteral("double"), ToolDescription::Metadata::ErrorState,
                            8);
    plant.description().write();
    HeldRegion changed(plant.file);
    QVERIFY(changed.publish(added, validValue(1.25)));

    ProcessDataItem item;
    item.setSource(&source);
    item.setUrl(added);
    QTRY_COMPARE_WITH_TIMEOUT(item.getValue(), QVariant(1.25), longestWait);
    QCOMPARE(urls.count(), 1);
    QCOMPARE(source.urls().size(), 8);
}

void tst_ProcessDataSourceLeaving::brokenDescriptionIsSaidAndSurvived()
{
    DisplayedPlant plant;
    ProcessDataSource source(plant.file);
    QTRY_COMPARE_WITH_TIMEOUT(source.urls().size(), 7, longestWait);

    plant.description().write(QStringLiteral("plant.process.json"), "{ broken");

    QTRY_COMPARE_WITH_TIMEOUT(
        source.getErrorText(),
        QStringLiteral("%1: cannot be read or parsed; 'tessel validate' shows where")
            .arg(plant.file),
        longestWait);
    QCOMPARE(source.urls().size(), 7);
    plant.description().write();
    HeldRegion region(plant.file);
    QVERIFY(waitUntilConnected(source));
}

void tst_ProcessDataSourceLeaving::otherLayoutIsSaid()
{
    DisplayedPlant plant;
    HeldRegion region(plant.file);
    plant.description().add(QStringLiteral("tank/added"), QStringLiteral("double"),
                            ToolDescription::Metadata::ErrorState, 8);
    plant.description().write();

    const ProcessDataSource source(plant.file);

    QTRY_COMPARE_WITH_TIMEOUT(source.getErrorText(),
                              QStringLiteral("region '%1' was made from another description than "
                                             "%2, from 'tank/added' on; give this program the one "
                                             "that its creator has")
                                  .arg(plant.key(), plant.file),
                              longestWait);
    QVERIFY(!source.isConnected());
}

QTEST_GUILESS_MAIN(tst_ProcessDataSourceLeaving)
#include "tst_ProcessDataSourceLeaving.moc"
