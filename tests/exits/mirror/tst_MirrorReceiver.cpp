#include "Access/ProcessDataGuards.h"
#include "FollowedPlant.h"
#include "OwnDomain.h"
#include "mirror/ByteOrder.h"
#include "mirror/SetReceiver.h"

#include <QElapsedTimer>
#include <QtTest>

#include <cstring>
#include <optional>

#include <MirrorTopics.h>

namespace {

constexpr int lease = 20000;
constexpr int noWatchdog = 0;

/// A source in the program of the receiver: what it writes has been heard, by this thread in the place of the engine's,
/// when it returns.
class HeardSource
{
public:
    HeardSource(const OwnDomain &own, const QString &key, const SlotLayout &layout)
        : m_key(key.toUtf8())
        , m_layout(layout)
        , m_writer(own.domain().makeSetWriter(lease))
    {
    }
    ~HeardSource() { dds_delete(m_writer); }
    Q_DISABLE_COPY(HeardSource)

    /// Set @p generation, whose first leaf is @p speed.
    bool send(quint64 generation, double speed) const
    {
        QByteArray bytes(static_cast<int>(m_layout.bufferSize), '\0');
        std::memcpy(bytes.data() + m_layout.leaves[0].offset, &speed, sizeof speed);
        tessel_mirror_SourceSet sample{};
        std::strncpy(sample.region, m_key.constData(), sizeof sample.region - 1);
        std::strcpy(sample.host, "here");
        sample.source[0] = 1;
        sample.attachment = 1;
        sample.generation = generation;
        sample.fingerprint = m_layout.fingerprint;
        sample.byte_order = static_cast<uint8_t>(ByteOrder::ofThisMachine());
        sample.bytes._buffer = reinterpret_cast<uint8_t *>(bytes.data());
        sample.bytes._length = sample.bytes._maximum = m_layout.bufferSize;
        return dds_write(m_writer, &sample) == DDS_RETCODE_OK;
    }

private:
    QByteArray m_key;
    SlotLayout m_layout;
    dds_entity_t m_writer;
};

/// Whether the newest report of a mirror names a source, or none.
bool hasReportedSource(dds_entity_t reports, bool isWanted)
{
    void *samples[1] = {};
    dds_sample_info_t info;
    bool hasSource = !isWanted;
    if (dds_read(reports, samples, &info, 1, 1) == 1) {
        hasSource = static_cast<const tessel_mirror_MirrorReport *>(samples[0])->source[0] != 0;
        dds_return_loan(reports, samples, 1);
    }
    return hasSource == isWanted;
}

/// A mirror of a plant under another key, its receiver, and somebody else who is attached to it.
class MirroredPlant
{
public:
    explicit MirroredPlant(const QStringList &commands = {})
        : m_segment(key() + QStringLiteral("SharedMemory"))
        , m_semaphores(key() + QStringLiteral("Semaphore"))
    {
        auto region = std::make_unique<MirroredRegion>(plant.file, key(), UrlChoice());
        std::vector<std::unique_ptr<MirroredRegion>> regions;
        source = std::make_unique<HeardSource>(own, plant.key(), region->layout());
        regions.push_back(std::move(region));
        receiver = std::make_unique<SetReceiver>(own.domain(), std::move(regions), noWatchdog,
                                                 commands);
        plant.description().setRoot(QStringLiteral("keyProcessDataMemory"), key());
        const QString file = plant.description().write();
        m_root = other.createProcessDataFromFile(file,
                                                 ProcessDataManager::InitTypeSharedMemoryAttach);
    }
    /// None while it is `timeout`.
    std::optional<double> speed()
    {
        ProcessValue value(ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
        m_root->getLeafProcessDataValue(plant.speed)->getValue(value);
        return value.getErrorType() == ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID
                   ? std::make_optional(value.toDouble())
                   : std::nullopt;
    }
    quint64 swaps() const { return *RegionInspection(key()).getSwapCount(); }

    FollowedPlant plant;

private:
    QString key() const { return plant.key() + QLatin1Char('m'); }

    SegmentFile m_segment;
    SemaphoreSet m_semaphores;

public:
    OwnDomain own;
    std::unique_ptr<HeardSource> source;
    std::unique_ptr<SetReceiver> receiver;
    ProcessDataManager other;

private:
    ProcessDataManager::BaseClassSharedPointer m_root;
};

} // namespace

/// Which thread shows a set, and that none gets lost between the two: the test is the engine's thread and the event loop.
class tst_MirrorReceiver : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { ServiceLog::start(QStringLiteral("tst_MirrorReceiver")); }
    void firstSetIsLeftToTheEventLoop();
    void nextSetIsShownAtOnce();
    void whatComesBehindALeftSetIsShownBehindIt();
    void setBesideCommandsIsLeftToTheEventLoop();
    void somebodyInsideTheLockKeepsNeitherThread();
    void lossBehindSomebodyInsideTheLockIsShown();
};

void tst_MirrorReceiver::firstSetIsLeftToTheEventLoop()
{
    MirroredPlant mirror;
    const quint64 swaps = mirror.swaps();

    QVERIFY(mirror.source->send(1, 1.5));
    QVERIFY(!mirror.speed());

    QTRY_VERIFY_WITH_TIMEOUT(mirror.speed() == 1.5, longestWait);
    QCOMPARE(mirror.swaps(), swaps + 1);
}

void tst_MirrorReceiver::nextSetIsShownAtOnce()
{
    MirroredPlant mirror;
    QVERIFY(mirror.source->send(1, 1.5));
    QTRY_VERIFY_WITH_TIMEOUT(mirror.speed() == 1.5, longestWait);

    QVERIFY(mirror.source->send(2, 2.5));

    QVERIFY(mirror.speed() == 2.5);
}

void tst_MirrorReceiver::whatComesBehindALeftSetIsShownBehindIt()
{
    MirroredPlant mirror;
    const quint64 swaps = mirror.swaps();

    // The first is taken and left; the second stays with the engine.
    QVERIFY(mirror.source->send(1, 1.5));
    QVERIFY(mirror.source->send(2, 2.5));
    QVERIFY(!mirror.speed());

    QTRY_VERIFY_WITH_TIMEOUT(mirror.speed() == 2.5, longestWait);
    QCOMPARE(mirror.swaps(), swaps + 2);
    // From here on nothing is left any more.
    QVERIFY(mirror.source->send(3, 3.5));
    QVERIFY(mirror.speed() == 3.5);
}

void tst_MirrorReceiver::setBesideCommandsIsLeftToTheEventLoop()
{
    MirroredPlant mirror({QStringLiteral("pump/name")});
    QVERIFY(mirror.source->send(1, 1.5));
    QTRY_VERIFY_WITH_TIMEOUT(mirror.speed() == 1.5, longestWait);

    QVERIFY(mirror.source->send(2, 2.5));

    // What asks the source belongs to the event loop.
    QVERIFY(mirror.speed() == 1.5);
    QTRY_VERIFY_WITH_TIMEOUT(mirror.speed() == 2.5, longestWait);
}

void tst_MirrorReceiver::somebodyInsideTheLockKeepsNeitherThread()
{
    MirroredPlant mirror;
    QVERIFY(mirror.source->send(1, 1.5));
    QTRY_VERIFY_WITH_TIMEOUT(mirror.speed() == 1.5, longestWait);
    const quint64 swaps = mirror.swaps();

    {
        const ProcessDataWriteGuard inside(mirror.other);
        QVERIFY(inside.isLocked());
        // Whoever waited here would wait in vain, five seconds for each set: this thread is inside.
        QElapsedTimer taken;
        taken.start();
        QVERIFY(mirror.source->send(2, 2.5));
        QVERIFY(mirror.source->send(3, 3.5));
        QCoreApplication::processEvents();
        QVERIFY(mirror.source->send(4, 4.5));
        QCoreApplication::processEvents();
        QVERIFY(taken.elapsed() < 3 * 5000);
        QCOMPARE(mirror.swaps(), swaps);
    }

    // As its source says it again.
    QVERIFY(mirror.source->send(4, 4.5));
    QTRY_VERIFY_WITH_TIMEOUT(mirror.speed() == 4.5, longestWait);
    QCOMPARE(mirror.swaps(), swaps + 1);
    QVERIFY(mirror.source->send(5, 5.5));
    QTRY_VERIFY_WITH_TIMEOUT(mirror.speed() == 5.5, longestWait);
    QCOMPARE(mirror.swaps(), swaps + 2);
}

void tst_MirrorReceiver::lossBehindSomebodyInsideTheLockIsShown()
{
    MirroredPlant mirror;
    const dds_entity_t reports = mirror.own.domain().makeReportReader();
    QVERIFY(mirror.source->send(1, 1.5));
    QTRY_VERIFY_WITH_TIMEOUT(hasReportedSource(reports, true), longestWait);
    const quint64 swaps = mirror.swaps();

    {
        const ProcessDataWriteGuard inside(mirror.other);
        QVERIFY(mirror.source->send(2, 2.5));
        mirror.source.reset();
        QTRY_VERIFY_WITH_TIMEOUT(hasReportedSource(reports, false), longestWait);
        QCOMPARE(mirror.swaps(), swaps);
    }

    QTRY_VERIFY_WITH_TIMEOUT(!mirror.speed(), longestWait);
    QCOMPARE(mirror.swaps(), swaps + 1);
    dds_delete(reports);
}

QTEST_GUILESS_MAIN(tst_MirrorReceiver)
#include "tst_MirrorReceiver.moc"
