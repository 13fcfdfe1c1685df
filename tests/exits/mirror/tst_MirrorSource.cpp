#include "FollowedPlant.h"
#include "OwnDomain.h"
#include "mirror/SampleSignal.h"
#include "mirror/SetSource.h"
#include "service/Refusal.h"

#include <QDateTime>
#include <QFile>
#include <QtTest>

#include <mutex>
#include <thread>
#include <vector>

#include <MirrorTopics.h>
#include <pthread.h>

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr SetSource::Pace usualPace{10, 0, 20000};
/// Of the word in a region that says when it was swapped last, in nanoseconds since 1970.
constexpr qint64 offsetOfLastSwap = 24;

std::unique_ptr<SetSource> sourceOf(const FollowedPlant &plant, const OwnDomain &own,
                                    const SetSource::Pace &pace = usualPace)
{
    return std::make_unique<SetSource>(plant.file, own.domain(), pace,
                                       RegionFollower::Use::Watching, UrlChoice());
}

/// While it lives no thread can be started, for want of addresses for its stack.
class NoThreads
{
public:
    NoThreads()
    {
        pthread_attr_init(&m_former);
        pthread_getattr_default_np(&m_former);
        pthread_attr_t attributes;
        pthread_attr_init(&attributes);
        pthread_attr_setstacksize(&attributes, std::size_t{1} << 60);
        pthread_setattr_default_np(&attributes);
        pthread_attr_destroy(&attributes);
    }
    ~NoThreads()
    {
        pthread_setattr_default_np(&m_former);
        pthread_attr_destroy(&m_former);
    }
    Q_DISABLE_COPY(NoThreads)

private:
    pthread_attr_t m_former{};
};

/// Hears each set the moment that it is sent, on the thread that sends it.
class Hearing
{
public:
    explicit Hearing(const OwnDomain &own)
    {
        m_arrival.setShortcut([this](dds_entity_t reader) {
            take(reader);
            return true;
        });
        m_reader = own.domain().makeSetReader(m_arrival.listener());
    }
    ~Hearing() { dds_delete(m_reader); }
    Q_DISABLE_COPY(Hearing)

    /// When the sets came, without what only tells a state.
    std::vector<Clock::time_point> times() const
    {
        const std::lock_guard lock(m_mutex);
        return m_times;
    }

private:
    void take(dds_entity_t reader)
    {
        const std::lock_guard lock(m_mutex);
        void *samples[1] = {};
        dds_sample_info_t info;
        while (dds_take(reader, samples, &info, 1, 1) == 1) {
            if (info.valid_data
                && static_cast<const tessel_mirror_SourceSet *>(samples[0])->bytes._length > 0) {
                m_times.push_back(Clock::now());
            }
            dds_return_loan(reader, samples, 1);
        }
    }

    SampleSignal m_arrival;
    mutable std::mutex m_mutex;
    std::vector<Clock::time_point> m_times;
    dds_entity_t m_reader;
};

} // namespace

/// The thread that sends the sets of a region, as the region, the clock and the machine go on under it.
class tst_MirrorSource : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { ServiceLog::start(QStringLiteral("tst_MirrorSource")); }
    void threadHasLeftTheRegionBeforeThatIsGone();
    void threadHasEndedBeforeTheRegionIsToldToBeOrphaned();
    void setIsSentByTheThread();
    void whatIsSaidAgainIsNoSetMoreThanTheRate();
    void stepOfTheClockIsNoSilence();
    void threadThatCannotBeStartedIsRefused();
    void threadThatCannotBeStartedLaterEndsTheProgram();
};

void tst_MirrorSource::threadHasLeftTheRegionBeforeThatIsGone()
{
    const OwnDomain own;
    const FollowedPlant plant;
    auto region = std::make_unique<HeldRegion>(plant.file);
    const auto source = sourceOf(plant, own);
    QVERIFY(source->sender().isFollowing());
    // Behind what the source does with it.
    QVector<bool> following;
    connect(&source->region(), &RegionFollower::aboutToDetach, source.get(),
            [&] { following.append(source->sender().isFollowing()); });

    region.reset();

    QTRY_VERIFY_WITH_TIMEOUT(!following.isEmpty(), longestWait);
    QCOMPARE(following, QVector<bool>{false});
}

void tst_MirrorSource::threadHasEndedBeforeTheRegionIsToldToBeOrphaned()
{
    const OwnDomain own;
    const FollowedPlant plant;
    Creator creator(plant.file);
    QVERIFY(creator.isReady);
    const auto source = sourceOf(plant, own);
    QVector<bool> following;
    connect(&source->region(), &RegionFollower::upChanged, source.get(),
            [&] { following.append(source->sender().isFollowing()); });

    creator.kill();

    // The region stays, and its manager with it.
    QTRY_VERIFY_WITH_TIMEOUT(!following.isEmpty(), longestWait);
    QCOMPARE(following, QVector<bool>{false});
    QVERIFY(source->region().manager() != nullptr);
    QCOMPARE(source->sender().sent().state, static_cast<quint8>(SourceState::CreatorGone));
}

void tst_MirrorSource::setIsSentByTheThread()
{
    const OwnDomain own;
    const FollowedPlant plant;
    HeldRegion region(plant.file);
    QVERIFY(region.publish(plant.speed, validValue(1.5)));
    const auto source = sourceOf(plant, own);
    const auto generation = source->region().swapCount();

    // Without an event loop.
    while (source->sender().sent().generation != *generation) {
        std::this_thread::yield();
    }

    QVERIFY(source->sender().isLive());
}

void tst_MirrorSource::whatIsSaidAgainIsNoSetMoreThanTheRate()
{
    const OwnDomain own;
    const FollowedPlant plant;
    HeldRegion region(plant.file);
    const Hearing hearing(own);
    constexpr milliseconds interval{400};
    const auto source = sourceOf(plant, own, {static_cast<int>(interval.count()), 0, 20000});
    // The second is the first, said again.
    QTRY_VERIFY_WITH_TIMEOUT(hearing.times().size() >= 2, longestWait);

    QVERIFY(region.publish(plant.speed, validValue(1.5)));
    QTRY_COMPARE_WITH_TIMEOUT(source->sender().sent().generation, *source->region().swapCount(),
                              longestWait);

    const auto times = hearing.times();
    for (std::size_t i = 1; i < times.size(); ++i) {
        QVERIFY(times[i] - times[i - 1] >= interval);
    }
}

void tst_MirrorSource::stepOfTheClockIsNoSilence()
{
    const OwnDomain own;
    const FollowedPlant plant;
    HeldRegion region(plant.file);
    constexpr milliseconds silence{500};
    const auto source = sourceOf(plant, own, {10, static_cast<int>(silence.count()), 20000});
    // Is the length of time that is tested: the silence has begun a while ago.
    std::this_thread::sleep_for(silence / 5);

    const auto published = Clock::now();
    QVERIFY(region.publish(plant.speed, validValue(1.5)));
    // It may have been told to be silent before, by a machine that was late: without an event loop that comes to an end.
    while (source->sender().sent().generation != *source->region().swapCount()) {
        std::this_thread::yield();
    }
    // As it stands there for whoever has set the clock on by an hour since.
    QFile memory(QStringLiteral("/dev/shm/%1SharedMemory").arg(plant.key()));
    QVERIFY(memory.open(QIODevice::ReadWrite) && memory.seek(offsetOfLastSwap));
    const qint64 time = QDateTime::currentDateTimeUtc().addSecs(-3600).toMSecsSinceEpoch()
                        * 1000000;
    QCOMPARE(memory.write(reinterpret_cast<const char *>(&time), sizeof time), qint64{sizeof time});
    memory.close();
    QVERIFY(source->region().lastSwap()->secsTo(QDateTime::currentDateTimeUtc()) >= 3600);
    QTRY_COMPARE_WITH_TIMEOUT(source->sender().sent().state,
                              static_cast<quint8>(SourceState::Silent), longestWait);

    QVERIFY(Clock::now() - published >= silence);
}

void tst_MirrorSource::threadThatCannotBeStartedIsRefused()
{
    const OwnDomain own;
    const FollowedPlant plant;
    HeldRegion region(plant.file);
    SetSender sender(own.domain(), {plant.key(), QStringLiteral("here"), QByteArray(16, 'a')},
                     20000, 10);

    const auto problem = [&] {
        const NoThreads none;
        try {
            sender.follow(region.manager());
        } catch (const Refusal &refusal) {
            return QStringLiteral("%1 %2").arg(QString::number(static_cast<int>(refusal.code)),
                                               refusal.text);
        }
        return QString();
    }();

    QCOMPARE(problem,
             QStringLiteral(
                 "10 the sets of region '%1' are not sent, as no thread can be started: Resource "
                 "temporarily unavailable; let this user or unit have more threads (ulimit -u, "
                 "TasksMax=) or memory, and start this program again")
                 .arg(plant.key()));
    QVERIFY(!sender.isFollowing());
    sender.follow(region.manager());
    QVERIFY(sender.isFollowing());
}

void tst_MirrorSource::threadThatCannotBeStartedLaterEndsTheProgram()
{
    const OwnDomain own;
    const FollowedPlant plant;
    const auto source = sourceOf(plant, own);
    QSignalSpy failed(source.get(), &SetSource::failed);

    const NoThreads none;
    HeldRegion region(plant.file);
    QVERIFY(region.publish(plant.speed, validValue(1.5)));

    QTRY_COMPARE_WITH_TIMEOUT(failed.count(), 1, longestWait);
    QCOMPARE(failed.first().first().toInt(), 10);
    QVERIFY(!source->sender().isFollowing());
}

QTEST_GUILESS_MAIN(tst_MirrorSource)
#include "tst_MirrorSource.moc"
