#include "FollowedPlant.h"
#include "support/FileCalls.h"

#include <QtTest>

#include <cstdio>

#include <fcntl.h>

namespace {

/// The region of a plant, which is published into at moments that a test chooses.
class CountingRegion
{
public:
    explicit CountingRegion(const FollowedPlant &plant)
        : m_url(plant.speed)
        , m_region(plant.file)
        , m_look(plant.key())
    {
        publish();
    }

    /// Until the last set has another time than the one before, in the milliseconds in which it is told.
    void publish()
    {
        const auto former = m_look.getLastSwap();
        do {
            m_value += 1;
            m_region.publish(m_url, validValue(m_value));
        } while (m_look.getLastSwap() == former);
    }

    double value() const { return m_value; }
    const RegionInspection &look() const { return m_look; }

private:
    QString m_url;
    HeldRegion m_region;
    RegionInspection m_look;
    double m_value = 0;
};

/// Whether the call looks at a region, instead of attaching to it.
bool isLook(int flags)
{
    return (flags & O_NONBLOCK) != 0;
}

} // namespace

/// What happens between two steps of a program of exits/ that belong together.
class tst_RegionMoments : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { ServiceLog::start(QStringLiteral("tst_RegionMoments")); }
    void cleanup() { FileCalls::tellNobody(); }
    void countAndTimeAreThoseOfTheSet_data();
    void countAndTimeAreThoseOfTheSet();
    void setsThatComeFasterThanTheyAreLookedAtHaveNoTime();
    void regionReplacedBeforeTheAttachmentIsNotTakenForTheFormer();
    void absenceThatStaysIsToldOnce();
};

void tst_RegionMoments::countAndTimeAreThoseOfTheSet_data()
{
    QTest::addColumn<int>("read");
    QTest::newRow("behind the copy") << 1;
    QTest::newRow("behind the time") << 2;
}

void tst_RegionMoments::countAndTimeAreThoseOfTheSet()
{
    QFETCH(const int, read);
    const FollowedPlant plant;
    CountingRegion region(plant);
    RegionFollower follower(plant.file);
    int reads = 0;

    FileCalls::beforeRead = [&] {
        if (++reads == read) {
            region.publish();
        }
    };
    QVERIFY(follower.takeSet());
    FileCalls::tellNobody();

    QVERIFY(reads >= read);
    QCOMPARE(follower.setCount().value(), region.look().getSwapCount().value());
    QCOMPARE(follower.setTime().value(), region.look().getLastSwap().value());
    QCOMPARE(follower.value(0).toDouble(), region.value());
}

void tst_RegionMoments::setsThatComeFasterThanTheyAreLookedAtHaveNoTime()
{
    const FollowedPlant plant;
    CountingRegion region(plant);
    RegionFollower follower(plant.file);

    FileCalls::beforeRead = [&] { region.publish(); };
    QVERIFY(follower.takeSet());
    FileCalls::tellNobody();

    QVERIFY(follower.setCount());
    QVERIFY(!follower.setTime());
    QCOMPARE(follower.value(0).getErrorType(),
             ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID);
    QVERIFY(follower.takeSet());
    QCOMPARE(follower.setTime().value(), region.look().getLastSwap().value());
}

void tst_RegionMoments::regionReplacedBeforeTheAttachmentIsNotTakenForTheFormer()
{
    const FollowedPlant plant;
    const SegmentFile place(plant.key() + QStringLiteral("SharedMemory"));
    const SegmentFile aside(place.name() + QStringLiteral("Later"));
    const HeldRegion former(plant.file);
    const SegmentFile kept(place.name() + QStringLiteral("Former"));
    QVERIFY(QFile::rename(place.path(), kept.path()));
    CountingRegion later(plant);
    QVERIFY(QFile::rename(place.path(), aside.path()));
    QVERIFY(QFile::rename(kept.path(), place.path()));

    FileCalls::beforeOpen = [&](int flags) {
        if (!isLook(flags)) {
            std::rename(qPrintable(aside.path()), qPrintable(place.path()));
        }
    };
    RegionFollower follower(plant.file);
    FileCalls::tellNobody();

    QVERIFY(!aside.exists());
    QVERIFY(!follower.isUp());
    QVERIFY(!follower.swapCount());
    QCOMPARE(
        follower.absence(),
        QStringLiteral("region '%1' cannot be attached: it was replaced meanwhile; trying again")
            .arg(plant.key()));
    QTRY_VERIFY_WITH_TIMEOUT(follower.isUp(), longestWait);
    QVERIFY(follower.takeSet());
    QCOMPARE(follower.value(0).toDouble(), later.value());
    QCOMPARE(follower.swapCount().value(), follower.setCount().value());
}

void tst_RegionMoments::absenceThatStaysIsToldOnce()
{
    const FollowedPlant plant;
    ToolDescription other;
    other.setRoot(QStringLiteral("keyProcessDataMemory"), plant.key());
    other.add(plant.speed, QStringLiteral("double"), ToolDescription::Metadata::ErrorState, 8);
    const HeldRegion region(other.write());
    RegionFollower follower(plant.file);
    const QString absence = follower.absence();
    QVERIFY(absence.contains(QStringLiteral("was made from another description")));
    const QSignalSpy told(&follower, &RegionFollower::absenceChanged);
    int opens = 0;

    // One look opens it so often: the last one of these is of a second look, which comes behind the whole first.
    constexpr int opensOfLook = 3;
    FileCalls::beforeOpen = [&](int flags) { opens += isLook(flags) ? 1 : 0; };
    QTRY_VERIFY_WITH_TIMEOUT(opens > opensOfLook, longestWait);

    QCOMPARE(told.count(), 0);
    QCOMPARE(follower.absence(), absence);
}

QTEST_GUILESS_MAIN(tst_RegionMoments)
#include "tst_RegionMoments.moc"
