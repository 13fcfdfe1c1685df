#include "FollowedPlant.h"

#include <QtTest>

/// A region that goes and comes back under the eyes of a program of exits/.
class tst_RegionReturn : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { ServiceLog::start(QStringLiteral("tst_RegionReturn")); }
    void regionThatComesLaterIsAttached();
    void regionThatEndsIsTold();
    void regionThatReturnsIsAttachedAnew();
    void replacedRegionIsAttachedAnew();
    void killedCreatorCountsAsGone();
    void regionOfADeadCreatorIsNotUpFromTheBeginning();
    void newCreatorAfterAKilledOneIsFollowed();
    void orphanThatIsPublishedIntoIsUp();
    void orphanThatIsPublishedIntoRarelyStaysUp();
    void otherLayoutIsSaidUntilItFits();
    void regionWithoutASetIsNoMissingOne_data();
    void regionWithoutASetIsNoMissingOne();
    void changedDescriptionIsReadAnew();
    void brokenDescriptionIsSaidAndSurvived();
};

void tst_RegionReturn::regionThatComesLaterIsAttached()
{
    const FollowedPlant plant;
    RegionFollower follower(plant.file);
    QSignalSpy up(&follower, &RegionFollower::upChanged);

    HeldRegion region(plant.file);
    QVERIFY(region.publish(plant.speed, validValue(3.5)));

    QTRY_COMPARE_WITH_TIMEOUT(up.count(), 1, longestWait);
    QCOMPARE(up.first().first().toBool(), true);
    QVERIFY(follower.takeSet());
    QCOMPARE(follower.value(0).toDouble(), 3.5);
}

void tst_RegionReturn::regionThatEndsIsTold()
{
    const FollowedPlant plant;
    auto region = std::make_unique<HeldRegion>(plant.file);
    RegionFollower follower(plant.file);
    QVERIFY(follower.takeSet());
    QSignalSpy up(&follower, &RegionFollower::upChanged);

    region.reset();

    QTRY_COMPARE_WITH_TIMEOUT(up.count(), 1, longestWait);
    QCOMPARE(up.first().first().toBool(), false);
    QVERIFY(!follower.isUp());
    QCOMPARE(follower.absence(), QStringLiteral("region '%1' has gone, its creator has ended; "
                                                "waiting for it to come back")
                                     .arg(plant.key()));
    QVERIFY(!follower.takeSet());
    QVERIFY(follower.manager() == nullptr);
    // What is known of the leaves stays.
    QCOMPARE(follower.leaves().size(), 2);
    QVERIFY(follower.leaves()[0].element.isNull());
}

void tst_RegionReturn::regionThatReturnsIsAttachedAnew()
{
    const FollowedPlant plant;
    auto region = std::make_unique<HeldRegion>(plant.file);
    RegionFollower follower(plant.file);
    QSignalSpy up(&follower, &RegionFollower::upChanged);

    for (int round = 1; round <= 3; ++round) {
        region.reset();
        QTRY_COMPARE_WITH_TIMEOUT(up.count(), 2 * round - 1, longestWait);
        region = std::make_unique<HeldRegion>(plant.file);
        QVERIFY(region->publish(plant.speed, validValue(double(round))));
        QTRY_COMPARE_WITH_TIMEOUT(up.count(), 2 * round, longestWait);

        QVERIFY(follower.takeSet());
        QCOMPARE(follower.value(0).toDouble(), double(round));
    }
}

void tst_RegionReturn::replacedRegionIsAttachedAnew()
{
    const FollowedPlant plant;
    const HeldRegion former(plant.file);
    RegionFollower follower(plant.file);
    QSignalSpy up(&follower, &RegionFollower::upChanged);
    QVERIFY(follower.isUp());

    HeldRegion later(plant.file);
    QVERIFY(later.publish(plant.speed, validValue(4.5)));

    QTRY_COMPARE_WITH_TIMEOUT(up.count(), 2, longestWait);
    QVERIFY(follower.takeSet());
    QCOMPARE(follower.value(0).toDouble(), 4.5);
}

void tst_RegionReturn::killedCreatorCountsAsGone()
{
    const FollowedPlant plant;
    Creator creator(plant.file);
    QVERIFY(creator.isReady);
    RegionFollower follower(plant.file);
    QVERIFY(follower.isUp());

    creator.kill();

    QTRY_VERIFY_WITH_TIMEOUT(!follower.isUp(), longestWait);
    QCOMPARE(follower.absence(),
             QStringLiteral("the creator of region '%1' has died; waiting for a new one")
                 .arg(plant.key()));
    QVERIFY(!follower.takeSet());
    // The memory is still there to be looked at.
    QCOMPARE(follower.swapCount().value(), quint64{1});
}

void tst_RegionReturn::regionOfADeadCreatorIsNotUpFromTheBeginning()
{
    const FollowedPlant plant;
    Creator creator(plant.file);
    QVERIFY(creator.isReady);
    creator.kill();

    RegionFollower follower(plant.file);

    QVERIFY(!follower.isUp());
    QCOMPARE(follower.absence(),
             QStringLiteral("the creator of region '%1' has died; waiting for a new one")
                 .arg(plant.key()));
    QVERIFY(!follower.takeSet());
    QCOMPARE(
        runTool({QStringLiteral("set"), plant.file, plant.name, QStringLiteral("new")}).exitCode,
        0);
    QTRY_VERIFY_WITH_TIMEOUT(follower.isUp(), longestWait);
}

void tst_RegionReturn::newCreatorAfterAKilledOneIsFollowed()
{
    const FollowedPlant plant;
    Creator creator(plant.file);
    RegionFollower follower(plant.file);
    creator.kill();
    QTRY_VERIFY_WITH_TIMEOUT(!follower.isUp(), longestWait);

    const Creator next(plant.file);
    QVERIFY(next.isReady);

    QTRY_VERIFY_WITH_TIMEOUT(follower.isUp(), longestWait);
    QVERIFY(follower.takeSet());
}

void tst_RegionReturn::orphanThatIsPublishedIntoIsUp()
{
    const FollowedPlant plant;
    Creator creator(plant.file);
    RegionFollower follower(plant.file);
    creator.kill();
    QTRY_VERIFY_WITH_TIMEOUT(!follower.isUp(), longestWait);

    QCOMPARE(
        runTool({QStringLiteral("set"), plant.file, plant.name, QStringLiteral("new")}).exitCode,
        0);

    QTRY_VERIFY_WITH_TIMEOUT(follower.isUp(), longestWait);
}

void tst_RegionReturn::orphanThatIsPublishedIntoRarelyStaysUp()
{
    const FollowedPlant plant;
    Creator creator(plant.file);
    RegionFollower follower(plant.file);
    creator.kill();
    QTRY_VERIFY_WITH_TIMEOUT(!follower.isUp(), longestWait);
    QCOMPARE(
        runTool({QStringLiteral("set"), plant.file, plant.name, QStringLiteral("new")}).exitCode,
        0);
    QTRY_VERIFY_WITH_TIMEOUT(follower.isUp(), longestWait);
    const QSignalSpy up(&follower, &RegionFollower::upChanged);

    // The first look sees the set that is new to it, and those behind it no newer one.
    for (int looks = 0; looks < 3; ++looks) {
        follower.lookNow();
        QVERIFY(follower.isUp());
    }

    QCOMPARE(up.count(), 0);
    QCOMPARE(follower.absence(), QString());
}

void tst_RegionReturn::otherLayoutIsSaidUntilItFits()
{
    FollowedPlant plant;
    ToolDescription other;
    other.setRoot(QStringLiteral("keyProcessDataMemory"), plant.key());
    other.add(plant.speed, QStringLiteral("double"), ToolDescription::Metadata::ErrorState, 8);
    auto region = std::make_unique<HeldRegion>(other.write());

    RegionFollower follower(plant.file);

    QVERIFY(!follower.isUp());
    QVERIFY2(follower.absence().startsWith(
                 QStringLiteral("region '%1' was made from another description than %2")
                     .arg(plant.key(), plant.file)),
             qPrintable(follower.absence()));
    region.reset();
    region = std::make_unique<HeldRegion>(plant.file);
    QTRY_VERIFY_WITH_TIMEOUT(follower.isUp(), longestWait);
}

void tst_RegionReturn::regionWithoutASetIsNoMissingOne_data()
{
    QTest::addColumn<bool>("isDoubleBuffered");
    QTest::addColumn<QString>("absence");
    QTest::newRow("double buffer")
        << true
        << QStringLiteral("region '%1' is there, but holds no set that could be read by %2: its "
                          "creator is about to make it, or has another description");
    QTest::newRow("single buffer")
        << false
        << QStringLiteral("region '%1' is there, but its semaphores are not, or are not for this "
                          "user: its creator is about to make them, or has to be started again");
}

void tst_RegionReturn::regionWithoutASetIsNoMissingOne()
{
    QFETCH(const bool, isDoubleBuffered);
    QFETCH(const QString, absence);
    FollowedPlant plant;
    plant.description().setRoot(QStringLiteral("doubleBuffer"), isDoubleBuffered);
    const QString file = plant.description().write();
    // Of the size that the description asks for, but with nothing of a region in it.
    const SegmentFile segment(plant.key() + QStringLiteral("SharedMemory"));
    QVERIFY(segment.makeSparse(DescriptionTree::read(file).regionSize));

    RegionFollower follower(file);

    QVERIFY(!follower.isUp());
    QCOMPARE(follower.absence(),
             isDoubleBuffered ? absence.arg(plant.key(), file) : absence.arg(plant.key()));
    QVERIFY(segment.remove());
    QTRY_COMPARE_WITH_TIMEOUT(follower.absence(),
                              QStringLiteral("no region '%1' is there; waiting for the process "
                                             "that creates it")
                                  .arg(plant.key()),
                              longestWait);
    const HeldRegion region(file);
    QTRY_VERIFY_WITH_TIMEOUT(follower.isUp(), longestWait);
}

void tst_RegionReturn::changedDescriptionIsReadAnew()
{
    FollowedPlant plant;
    RegionFollower follower(plant.file);
    QSignalSpy changed(&follower, &RegionFollower::leavesChanged);

    plant.description().add(QStringLiteral("pump/more"), QStringLiteral("int32"),
                            ToolDescription::Metadata::ErrorState, 4);
    plant.description().write();
    HeldRegion region(plant.file);

    QTRY_VERIFY_WITH_TIMEOUT(follower.isUp(), longestWait);
    QVERIFY(changed.count() >= 1);
    QCOMPARE(follower.leaves().size(), 3);
    QCOMPARE(follower.leaves()[2].url, QStringLiteral("pump/more"));
}

void tst_RegionReturn::brokenDescriptionIsSaidAndSurvived()
{
    FollowedPlant plant;
    RegionFollower follower(plant.file);

    plant.description().write(QStringLiteral("plant.process.json"), "{");

    QTRY_VERIFY_WITH_TIMEOUT(follower.absence().contains(QStringLiteral("cannot be parsed")),
                             longestWait);
    QCOMPARE(follower.leaves().size(), 2);
    plant.description().write();
    const HeldRegion region(plant.file);
    QTRY_VERIFY_WITH_TIMEOUT(follower.isUp(), longestWait);
}

QTEST_GUILESS_MAIN(tst_RegionReturn)
#include "tst_RegionReturn.moc"
