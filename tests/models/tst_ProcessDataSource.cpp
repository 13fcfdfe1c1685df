#include "DisplayedPlant.h"
#include "TesselModels/ProcessDataItem.h"

/// What a source tells of a region that stays.
class tst_ProcessDataSource : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void sourceWithoutAPathIsSilent();
    void publishedSetIsShown();
    void nothingIsReadInTheThreadOfTheDisplay();
    void urlsStandInTheOrderOfTheirPositions();
    void missingDescriptionIsSaid();
    void missingRegionIsSaid();
    void descriptionWithoutMemoryIsSaid();
    void disabledSourceLetsTheRegionGo();
    void otherPathIsFollowed();
    void singleBufferIsFollowed();
    void newestSetIsShownAfterManyOnes();
    void intervalIsNeverNegative();
    void namesOfStates();
};

void tst_ProcessDataSource::sourceWithoutAPathIsSilent()
{
    const ProcessDataSource source;

    QCOMPARE(source.getPath(), QString());
    QVERIFY(source.isEnabled());
    QVERIFY(!source.isConnected());
    QCOMPARE(source.getGeneration(), quint64{0});
    QCOMPARE(source.getUpdateInterval(), 33);
    QCOMPARE(source.getErrorText(), QString());
    QCOMPARE(source.urls(), QStringList());
}

void tst_ProcessDataSource::publishedSetIsShown()
{
    const DisplayedPlant plant;
    HeldRegion region(plant.file);
    ProcessDataSource source(plant.file);
    QSignalSpy connected(&source, &ProcessDataSource::connectedChanged);
    QSignalSpy urls(&source, &ProcessDataSource::urlsChanged);
    ProcessDataItem speed;
    speed.setSource(&source);
    speed.setUrl(plant.speed);

    QVERIFY(waitForGeneration(source, 1));
    QVERIFY(source.isConnected());
    QVERIFY(!speed.isValid());
    QVERIFY(region.publish(plant.speed, validValue(7.5)));
    QVERIFY(waitForGeneration(source, 2));

    QCOMPARE(speed.getValue(), QVariant(7.5));
    QCOMPARE(connected.count(), 1);
    QCOMPARE(urls.count(), 1);
    QCOMPARE(source.getErrorText(), QString());
}

void tst_ProcessDataSource::nothingIsReadInTheThreadOfTheDisplay()
{
    const DisplayedPlant plant;
    HeldRegion region(plant.file);
    ProcessDataSource source(plant.file);
    QVERIFY(waitForGeneration(source, 1));
    QVERIFY(region.publish(plant.speed, validValue(7.5)));

    // Without its event loop the display sees nothing of what was published, whatever it asks.
    QCOMPARE(source.getGeneration(), quint64{1});
    QVERIFY(waitForGeneration(source, 2));
}

void tst_ProcessDataSource::urlsStandInTheOrderOfTheirPositions()
{
    const DisplayedPlant plant;
    const ProcessDataSource source(plant.file);

    QTRY_VERIFY_WITH_TIMEOUT(!source.urls().isEmpty(), longestWait);

    QStringList pump{plant.speed, plant.name, plant.count};
    QStringList tank{plant.level, plant.mode, plant.small, plant.flag};
    QCOMPARE(source.urls(), pump + tank);
}

void tst_ProcessDataSource::missingDescriptionIsSaid()
{
    const ProcessDataSource source(QStringLiteral("/nowhere/plant.process.json"));

    QTRY_COMPARE_WITH_TIMEOUT(
        source.getErrorText(),
        QStringLiteral("/nowhere/plant.process.json: no such description file or folder"),
        longestWait);
    QVERIFY(!source.isConnected());
}

void tst_ProcessDataSource::missingRegionIsSaid()
{
    const DisplayedPlant plant;
    const ProcessDataSource source(plant.file);

    QTRY_COMPARE_WITH_TIMEOUT(
        source.getErrorText(),
        QStringLiteral("no region '%1' is there; start the program that creates it")
            .arg(plant.key()),
        longestWait);
    // What the description holds is known nevertheless.
    QCOMPARE(source.urls().size(), 7);
}

void tst_ProcessDataSource::descriptionWithoutMemoryIsSaid()
{
    DisplayedPlant plant;
    plant.description().setRoot(QStringLiteral("sizeOfSharedMemory"), 0);
    plant.description().write();
    const ProcessDataSource source(plant.file);

    QTRY_COMPARE_WITH_TIMEOUT(
        source.getErrorText(),
        QStringLiteral("%1: describes no memory to follow; lay it out with 'tessel build'")
            .arg(plant.file),
        longestWait);
}

void tst_ProcessDataSource::disabledSourceLetsTheRegionGo()
{
    const DisplayedPlant plant;
    HeldRegion region(plant.file);
    const SegmentFile segment(plant.key() + QStringLiteral("SharedMemory"));
    ProcessDataSource source(plant.file);
    QVERIFY(waitForGeneration(source, 1));
    QCOMPARE(segment.mappings().size(), 2);

    source.setEnabled(false);
    QVERIFY(waitUntilConnected(source, false));

    QCOMPARE(segment.mappings().size(), 1);
    QCOMPARE(source.getErrorText(), QString());
    QCOMPARE(source.getGeneration(), quint64{0});
    QVERIFY(region.publish(plant.speed, validValue(7.5)));
    source.setEnabled(true);
    QVERIFY(waitForGeneration(source, 2));
}

void tst_ProcessDataSource::otherPathIsFollowed()
{
    const DisplayedPlant first;
    const DisplayedPlant second;
    HeldRegion firstRegion(first.file);
    HeldRegion secondRegion(second.file);
    QVERIFY(secondRegion.publish(second.speed, validValue(2.0)));
    ProcessDataSource source(first.file);
    QVERIFY(waitForGeneration(source, 1));

    source.setPath(second.file);

    QVERIFY(waitForGeneration(source, 2));
    ProcessDataItem speed;
    speed.setSource(&source);
    speed.setUrl(second.speed);
    QCOMPARE(speed.getValue(), QVariant(2.0));
    source.setPath(QString());
    QVERIFY(waitUntilConnected(source, false));
    QCOMPARE(source.urls(), QStringList());
}

void tst_ProcessDataSource::singleBufferIsFollowed()
{
    DisplayedPlant plant;
    plant.description().setRoot(QStringLiteral("doubleBuffer"), false);
    plant.description().write();
    HeldRegion region(plant.file);
    QVERIFY(region.isValid());
    ProcessDataSource source(plant.file);
    ProcessDataItem speed;
    speed.setSource(&source);
    speed.setUrl(plant.speed);
    QVERIFY(waitUntilConnected(source));
    QSignalSpy shown(&source, &ProcessDataSource::setShown);

    QVERIFY(region.publish(plant.speed, validValue(4.5)));

    QTRY_COMPARE_WITH_TIMEOUT(speed.getValue(), QVariant(4.5), longestWait);
    QCOMPARE(source.getGeneration(), quint64{0});
    // It is read again and again, and only what has changed is told.
    QCOMPARE(shown.count(), 1);
}

void tst_ProcessDataSource::newestSetIsShownAfterManyOnes()
{
    const DisplayedPlant plant;
    HeldRegion region(plant.file);
    ProcessDataSource source(plant.file);
    QVERIFY(waitForGeneration(source, 1));
    QSignalSpy shown(&source, &ProcessDataSource::setShown);
    constexpr int sets = 1000;

    for (int i = 1; i <= sets; ++i) {
        QVERIFY(region.publish(plant.speed, validValue(double(i))));
    }

    QVERIFY(waitForGeneration(source, sets + 1));
    QVERIFY(shown.count() < sets);
}

void tst_ProcessDataSource::intervalIsNeverNegative()
{
    ProcessDataSource source;
    QSignalSpy changed(&source, &ProcessDataSource::updateIntervalChanged);

    source.setUpdateInterval(-5);

    QCOMPARE(source.getUpdateInterval(), 0);
    QCOMPARE(changed.count(), 1);
    source.setUpdateInterval(0);
    QCOMPARE(changed.count(), 1);
}

void tst_ProcessDataSource::namesOfStates()
{
    QCOMPARE(TesselModels::stateName(0), QStringLiteral("valid"));
    QCOMPARE(TesselModels::stateName(3), QStringLiteral("no-input"));
    QCOMPARE(TesselModels::stateName(9), QStringLiteral("timeout"));
    QCOMPARE(TesselModels::stateName(10), QStringLiteral("state-10"));
    QCOMPARE(TesselModels::stateName(-1), QStringLiteral("state--1"));
}

QTEST_GUILESS_MAIN(tst_ProcessDataSource)
#include "tst_ProcessDataSource.moc"
