#include "Companion/SystemVSemaphoreBaseClass.h"
#include "FollowedPlant.h"
#include "region/SetWriting.h"
#include "support/RefusedSwaps.h"

#include <QtTest>

#include <unistd.h>

namespace {

QString powerUrl()
{
    return QStringLiteral("pump/power");
}

/// With the kind of buffer that the test is run for.
QString writtenFile(FollowedPlant &plant, bool isDoubleBuffered)
{
    plant.description().setRoot(QStringLiteral("doubleBuffer"), isDoubleBuffered);
    plant.description().add(powerUrl(), QStringLiteral("double"),
                            ToolDescription::Metadata::ErrorState, 8);
    plant.description().add(QStringLiteral("pump/bare"), QStringLiteral("int32"),
                            ToolDescription::Metadata::None, 4);
    return plant.description().write();
}

/// Holds the write lock of a region as somebody who was stopped inside does.
class StoppedWriter
{
public:
    explicit StoppedWriter(ProcessDataManager &manager) : m_manager(manager)
    {
        m_manager.lockWriteBuffer();
    }
    ~StoppedWriter() { m_manager.unlockWriteBuffer(); }

    StoppedWriter(const StoppedWriter &) = delete;
    StoppedWriter &operator=(const StoppedWriter &) = delete;

private:
    ProcessDataManager &m_manager;
};

/// Whether nobody waited for a lock since @p timer was started.
bool isPrompt(const QElapsedTimer &timer)
{
    return timer.elapsed() < SystemVSemaphoreBaseClass::sm_lockWaitBound.count();
}

constexpr int readOnly = 0;
constexpr int power = 2;
constexpr int bare = 3;

} // namespace

/// What becomes of reading and writing while somebody else is inside the lock, and behind a failed write.
class tst_RegionLock : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { ServiceLog::start(QStringLiteral("tst_RegionLock")); }
    void readingWaitsForNobodyWhoWasStopped_data() { kinds(); }
    void readingWaitsForNobodyWhoWasStopped();
    void writingWaitsForNobodyWhoWasStopped_data() { kinds(); }
    void writingWaitsForNobodyWhoWasStopped();
    void writingWaitsForNoReaderWhoWasStopped();
    void nobodyWaitsForALockThatWasWrittenOver();
    void setIsPublishedAtOnce_data() { kinds(); }
    void setIsPublishedAtOnce();
    void setThatCannotBeWrittenIsTakenBack_data() { kinds(); }
    void setThatCannotBeWrittenIsTakenBack();
    void setThatCannotBePublishedIsTakenBack_data() { kinds(); }
    void setThatCannotBePublishedIsTakenBack();

private:
    static void kinds();
};

void tst_RegionLock::kinds()
{
    QTest::addColumn<bool>("isDoubleBuffered");
    QTest::newRow("double buffer") << true;
    QTest::newRow("single buffer") << false;
}

void tst_RegionLock::readingWaitsForNobodyWhoWasStopped()
{
    QFETCH(const bool, isDoubleBuffered);
    FollowedPlant plant;
    const QString file = writtenFile(plant, isDoubleBuffered);
    HeldRegion region(file);
    QVERIFY(region.publish(powerUrl(), validValue(7.5)));
    RegionFollower follower(file);
    {
        const StoppedWriter writer(region.manager());
        QElapsedTimer timer;
        timer.start();

        QCOMPARE(follower.takeSet(), isDoubleBuffered);
        QCOMPARE(follower.takeSet(), isDoubleBuffered);

        QVERIFY(isPrompt(timer));
        QCOMPARE(follower.isLockFree(RegionFollower::Access::Reading), false);
    }
    QVERIFY(follower.takeSet());
    QCOMPARE(follower.value(power).toDouble(), 7.5);
}

void tst_RegionLock::writingWaitsForNobodyWhoWasStopped()
{
    QFETCH(const bool, isDoubleBuffered);
    FollowedPlant plant;
    const QString file = writtenFile(plant, isDoubleBuffered);
    HeldRegion region(file);
    QVERIFY(region.publish(powerUrl(), validValue(7.5)));
    RegionFollower follower(file);
    {
        const StoppedWriter writer(region.manager());
        QElapsedTimer timer;
        timer.start();

        const SetWriting writing = SetWriting::publish(follower, {{power, validValue(8.5)}});

        QVERIFY(isPrompt(timer));
        QCOMPARE(
            writing.problem,
            QStringLiteral("process %1 holds the lock of region '%2' and does not leave it; have "
                           "it go on, or end it: 'tessel doctor' looks at the region")
                .arg(getpid())
                .arg(plant.key()));
        QCOMPARE(writing.problemLeaf, -1);
    }
    QVERIFY(region.manager().swapReadAndWriteBuffer());
    QCOMPARE(region.read(powerUrl()).toDouble(), 7.5);
    QCOMPARE(SetWriting::publish(follower, {{power, validValue(8.5)}}).problem, QString());
    QCOMPARE(region.read(powerUrl()).toDouble(), 8.5);
}

void tst_RegionLock::writingWaitsForNoReaderWhoWasStopped()
{
    FollowedPlant plant;
    const QString file = writtenFile(plant, false);
    HeldRegion region(file);
    RegionFollower follower(file);
    region.manager().lockReadBuffer();
    QElapsedTimer timer;
    timer.start();

    const SetWriting writing = SetWriting::publish(follower, {{power, validValue(8.5)}});

    QVERIFY(isPrompt(timer));
    QVERIFY2(writing.problem.startsWith(QStringLiteral("another process holds the lock of region")),
             qPrintable(writing.problem));
    QVERIFY(follower.takeSet());
    bool repeat = false;
    QVERIFY(region.manager().unlockReadBuffer(repeat));
    QCOMPARE(SetWriting::publish(follower, {{power, validValue(8.5)}}).problem, QString());
}

void tst_RegionLock::nobodyWaitsForALockThatWasWrittenOver()
{
    FollowedPlant plant;
    const QString file = writtenFile(plant, false);
    HeldRegion region(file);
    QVERIFY(region.publish(powerUrl(), validValue(7.5)));
    RegionFollower follower(file);
    const SemaphoreSet semaphores(plant.key() + QStringLiteral("Semaphore"));
    // No writer of the library leaves such a number.
    QVERIFY(semaphores.setValue(SemaphoreSet::Names::SemaphoreWriteLock, 2));
    QElapsedTimer timer;
    timer.start();

    QVERIFY(!follower.takeSet());
    const SetWriting writing = SetWriting::publish(follower, {{power, validValue(8.5)}});

    QVERIFY(isPrompt(timer));
    QVERIFY2(writing.problem.contains(QStringLiteral("holds the lock of region")),
             qPrintable(writing.problem));
    QVERIFY(semaphores.setValue(SemaphoreSet::Names::SemaphoreWriteLock, 0));
    QVERIFY(follower.takeSet());
    QCOMPARE(follower.value(power).toDouble(), 7.5);
}

void tst_RegionLock::setIsPublishedAtOnce()
{
    QFETCH(const bool, isDoubleBuffered);
    FollowedPlant plant;
    const QString file = writtenFile(plant, isDoubleBuffered);
    HeldRegion region(file);
    RegionFollower follower(file);

    for (int round = 1; round <= 3; ++round) {
        const SetWriting writing = SetWriting::publish(
            follower, {{power, validValue(double(round))}, {bare, validValue(round)}});
        QCOMPARE(writing.problem, QString());
        QCOMPARE(writing.former.size(), 2);
        QCOMPARE(region.read(powerUrl()).toDouble(), double(round));
        QCOMPARE(region.read(QStringLiteral("pump/bare")).toInt(), round);
    }
    QVERIFY(follower.isLockFree(RegionFollower::Access::Writing));
    QVERIFY(follower.takeSet());
    QCOMPARE(follower.setCount(), isDoubleBuffered ? std::make_optional<quint64>(4) : std::nullopt);
}

void tst_RegionLock::setThatCannotBeWrittenIsTakenBack()
{
    QFETCH(const bool, isDoubleBuffered);
    FollowedPlant plant;
    const QString file = writtenFile(plant, isDoubleBuffered);
    HeldRegion region(file);
    QVERIFY(region.publish(powerUrl(), validValue(7.5)));
    RegionFollower follower(file);

    // A command may have a leaf twice.
    const SetWriting writing = SetWriting::publish(
        follower,
        {{power, validValue(8.5)}, {power, validValue(9.5)}, {readOnly, validValue(1.0)}});

    QCOMPARE(writing.problemLeaf, readOnly);
    QVERIFY(writing.problem.startsWith(QStringLiteral("'pump/speed' was not written: ")));
    QVERIFY(region.publish(plant.name, validValue(QStringLiteral("x"))));
    QCOMPARE(region.read(powerUrl()).toDouble(), 7.5);
}

void tst_RegionLock::setThatCannotBePublishedIsTakenBack()
{
    QFETCH(const bool, isDoubleBuffered);
    FollowedPlant plant;
    const QString file = writtenFile(plant, isDoubleBuffered);
    HeldRegion region(file);
    QVERIFY(region.write(QStringLiteral("pump/bare"), validValue(3)));
    QVERIFY(region.publish(powerUrl(), validValue(7.5)));
    RegionFollower follower(file);
    {
        const RefusedSwaps refused;

        const SetWriting writing = SetWriting::publish(
            follower, {{power, validValue(8.5)}, {power, validValue(9.5)}, {bare, validValue(4)}});

        QCOMPARE(writing.problem, QStringLiteral("the set was not published: No swap now."));
        QCOMPARE(writing.problemLeaf, -1);
    }
    QVERIFY(region.publish(plant.name, validValue(QStringLiteral("x"))));
    QCOMPARE(region.read(powerUrl()).toDouble(), 7.5);
    QCOMPARE(region.read(QStringLiteral("pump/bare")).toInt(), 3);
}

QTEST_GUILESS_MAIN(tst_RegionLock)
#include "tst_RegionLock.moc"
