#include "Companion/PingPongBufferHandler.h"
#include "HeldRegion.h"
#include "Inspection/RegionUsers.h"
#include "ProcessData/Linux/SharedMemory.h"
#include "ToolProcess.h"
#include "support/ChildProcess.h"
#include "support/LogCapture.h"
#include "support/ResourceLimit.h"
#include "support/SegmentFile.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <algorithm>
#include <csignal>
#include <memory>
#include <vector>

#include <sys/stat.h>

using Metadata = ToolDescription::Metadata;

namespace {

/// A description of one number, and what its processes leave behind.
class Plant
{
public:
    Plant()
        : m_segment(m_description.key() + QStringLiteral("SharedMemory"))
        , m_semaphores(m_description.key() + QStringLiteral("Semaphore"))
    {
        m_description.add(QStringLiteral("n/a"), QStringLiteral("int32"), Metadata::ErrorState, 4);
    }

    ToolDescription &description() { return m_description; }
    const SegmentFile &segment() const { return m_segment; }
    QString key() const { return m_description.key(); }
    QString write() { return m_description.write(); }
    /// Of the same region, with the number as another type.
    QString writeOther()
    {
        m_description.add(QStringLiteral("n/b"), QStringLiteral("uint32"), Metadata::None, 4,
                          {{QStringLiteral("offsetSharedMemory"), 0}});
        m_description.setRoot(QStringLiteral("sizeOfSharedMemory"), 8);
        return m_description.write();
    }

private:
    ToolDescription m_description;
    SegmentFile m_segment;
    SemaphoreSet m_semaphores;
};

QJsonArray allRegions()
{
    const ToolResult result = runTool({QStringLiteral("regions"), QStringLiteral("--json")});
    QJsonParseError error;
    const QJsonArray regions = QJsonDocument::fromJson(result.output.toUtf8(), &error).array();
    if (result.exitCode != 0 || error.error != QJsonParseError::NoError) {
        qWarning() << result.exitCode << result.error << error.errorString();
    }
    return regions;
}

/// What is said of the region; empty if it is not named just once.
QJsonObject objectIn(const QJsonArray &regions, const QString &key)
{
    QJsonObject found;
    for (const auto &region : regions) {
        if (region.toObject().value(QStringLiteral("key")) == key) {
            if (!found.isEmpty()) {
                return {};
            }
            found = region.toObject();
        }
    }
    return found;
}

/// What the tool says of it.
QJsonObject regionOf(const QString &key)
{
    return objectIn(allRegions(), key);
}

/// What it says of one process there.
QJsonObject userOf(const QString &key, qint64 pid)
{
    const QJsonArray users = regionOf(key).value(QStringLiteral("attached")).toArray();
    for (const auto &user : users) {
        if (user.toObject().value(QStringLiteral("pid")).toDouble() == double(pid)) {
            return user.toObject();
        }
    }
    return {};
}

QJsonObject expectedUser(qint64 pid, const char *program, bool isReplaced,
                         const QJsonValue &hasOtherLayout)
{
    return {{QStringLiteral("pid"), pid},
            {QStringLiteral("program"), QString::fromLatin1(program)},
            {QStringLiteral("isReplaced"), isReplaced},
            {QStringLiteral("hasOtherLayout"), hasOtherLayout}};
}

/// The fields of the table's line for a region.
QStringList lineOf(const QString &key)
{
    const QStringList lines = runTool({QStringLiteral("regions")}).output.split(QLatin1Char('\n'));
    for (const auto &line : lines) {
        if (line.startsWith(key + QLatin1Char(' '))) {
            return line.split(QRegularExpression(QStringLiteral("  +")));
        }
    }
    return {};
}

} // namespace

/// `tessel regions`, with real processes.
class tst_ToolRegions : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void jsonHasAnObjectARegion();
    void singleBufferIsUnknownInMuch();
    void whatIsNoRegionIsUnknown();
    void deadCreatorIsNamed();
    void creatorThatNoProcessCanBeIsUnknown();
    void readerOfAReplacedRegionIsNamed();
    void readerOfARemovedRegionIsNamed();
    void removedRegionThatNobodyHasIsNotThere();
    void processWithAnotherLayoutIsNamed();
    void processBesideAFullListOfLayoutsIsUnknown();
    void incompleteListOfProcessesSaysSo();
    void lastSetHasItsAge_data();
    void lastSetHasItsAge();
    void setsAreCountedForASecond();
    void tableHasTitles();
    void moreRegionsThanUsualDescriptorsAreShown();
    void nothingIsLeft();
};

void tst_ToolRegions::jsonHasAnObjectARegion()
{
    Plant plant;
    const LogCapture log;
    HeldRegion region(plant.write());
    QVERIFY(region.publish(QStringLiteral("n/a"), validValue(5)));
    SharedMemory memory;
    memory.setKey(plant.segment().name());
    QVERIFY(memory.attach(SharedMemory::ReadWrite));
    static_cast<PingPongBufferHandler::ManagementBuffer *>(memory.data())->lastSwap =
        1767604364031000000;

    QCOMPARE(regionOf(plant.key()),
             (QJsonObject{{QStringLiteral("key"), plant.key()},
                          {QStringLiteral("size"), 528},
                          {QStringLiteral("doubleBuffer"), true},
                          {QStringLiteral("swapCount"), 2},
                          {QStringLiteral("lastSwap"), QStringLiteral("2026-01-05T09:12:44.031Z")},
                          {QStringLiteral("creatorPid"), qint64{getpid()}},
                          {QStringLiteral("creatorAlive"), true},
                          {QStringLiteral("isRemoved"), false},
                          {QStringLiteral("attached"),
                           QJsonArray{expectedUser(getpid(), "tst_ToolRegions", false, false)}},
                          {QStringLiteral("attachedComplete"), RegionUsers().isComplete()},
                          {QStringLiteral("mirror"), QJsonValue()}}));
}

void tst_ToolRegions::singleBufferIsUnknownInMuch()
{
    Plant plant;
    plant.description().setRoot(QStringLiteral("doubleBuffer"), false);
    const LogCapture log;
    const HeldRegion region(plant.write());

    const QJsonObject found = regionOf(plant.key());

    QCOMPARE(found.value(QStringLiteral("size")), QJsonValue(8));
    QCOMPARE(found.value(QStringLiteral("doubleBuffer")), QJsonValue(false));
    for (const char *name : {"swapCount", "lastSwap", "creatorPid", "creatorAlive"}) {
        QCOMPARE(found.value(QLatin1String(name)), QJsonValue(QJsonValue::Null));
    }
    QCOMPARE(found.value(QStringLiteral("attached")),
             QJsonValue(QJsonArray{
                 expectedUser(getpid(), "tst_ToolRegions", false, QJsonValue(QJsonValue::Null))}));
    QCOMPARE(lineOf(plant.key()).mid(1, 4),
             (QStringList{QStringLiteral("8"), QStringLiteral("-"), QStringLiteral("-"),
                          QStringLiteral("-")}));
}

void tst_ToolRegions::whatIsNoRegionIsUnknown()
{
    const Plant plant;
    QCOMPARE(mknod(qPrintable(plant.segment().path()), S_IFREG | 0600, 0), 0);

    const QJsonObject found = regionOf(plant.key());

    QCOMPARE(found.value(QStringLiteral("size")), QJsonValue(QJsonValue::Null));
    QCOMPARE(found.value(QStringLiteral("doubleBuffer")), QJsonValue(QJsonValue::Null));
    QCOMPARE(lineOf(plant.key()).value(1), QStringLiteral("-"));
}

void tst_ToolRegions::deadCreatorIsNamed()
{
    Plant plant;
    ToolProcess hold({QStringLiteral("hold"), plant.write()});
    QVERIFY(hold.nextLine().startsWith(QStringLiteral("holding")));
    const QJsonValue creator = regionOf(plant.key()).value(QStringLiteral("creatorPid"));
    QVERIFY(creator.toInt() > 0);
    QCOMPARE(regionOf(plant.key()).value(QStringLiteral("creatorAlive")), QJsonValue(true));

    hold.signal(SIGKILL);
    QCOMPARE(hold.finish().exitCode, -1);

    QCOMPARE(regionOf(plant.key()).value(QStringLiteral("creatorPid")), creator);
    QCOMPARE(regionOf(plant.key()).value(QStringLiteral("creatorAlive")), QJsonValue(false));
    // Null where this process may not look at all others.
    QCOMPARE(regionOf(plant.key()).value(QStringLiteral("attached")).toArray(), QJsonArray());
    QCOMPARE(lineOf(plant.key()).value(4), QStringLiteral("%1 dead").arg(creator.toInt()));
}

void tst_ToolRegions::creatorThatNoProcessCanBeIsUnknown()
{
    Plant plant;
    const LogCapture log;
    const HeldRegion region(plant.write());
    SharedMemory memory;
    memory.setKey(plant.segment().name());
    QVERIFY(memory.attach(SharedMemory::ReadWrite));
    static_cast<PingPongBufferHandler::ManagementBuffer *>(memory.data())->creatorPid = 0xFFFFFFFF;

    QCOMPARE(regionOf(plant.key()).value(QStringLiteral("creatorPid")),
             QJsonValue(QJsonValue::Null));
    QCOMPARE(regionOf(plant.key()).value(QStringLiteral("creatorAlive")),
             QJsonValue(QJsonValue::Null));
    QCOMPARE(lineOf(plant.key()).value(4), QStringLiteral("-"));
}

void tst_ToolRegions::readerOfAReplacedRegionIsNamed()
{
    Plant plant;
    const QString file = plant.write();
    ToolProcess former({QStringLiteral("hold"), file});
    QVERIFY(former.nextLine().startsWith(QStringLiteral("holding")));
    ToolProcess reader(
        {QStringLiteral("watch"), QStringLiteral("--interval"), QStringLiteral("3600000"), file});
    QVERIFY(reader.nextLine().contains(QStringLiteral("\tn/a\t")));
    // Who only reads leaves no word about its layout.
    QCOMPARE(userOf(plant.key(), reader.pid()),
             expectedUser(reader.pid(), "tessel", false, QJsonValue(QJsonValue::Null)));
    former.signal(SIGKILL);
    QCOMPARE(former.finish().exitCode, -1);
    ToolProcess later({QStringLiteral("hold"), file});
    QVERIFY(later.nextLine().startsWith(QStringLiteral("holding")));

    QCOMPARE(userOf(plant.key(), reader.pid()),
             expectedUser(reader.pid(), "tessel", true, QJsonValue(QJsonValue::Null)));
    QCOMPARE(userOf(plant.key(), later.pid()), expectedUser(later.pid(), "tessel", false, false));
    QVERIFY(lineOf(plant.key())
                .value(5)
                .contains(QStringLiteral("tessel %1 (replaced)").arg(reader.pid())));

    later.signal(SIGTERM);
    QCOMPARE(later.finish().exitCode, 0);
    reader.signal(SIGTERM);
    QCOMPARE(reader.finish().exitCode, 0);
}

/// Whoever looks into /dev/shm alone does not see it.
void tst_ToolRegions::readerOfARemovedRegionIsNamed()
{
    Plant plant;
    const QString file = plant.write();
    ToolProcess former({QStringLiteral("hold"), file});
    QVERIFY(former.nextLine().startsWith(QStringLiteral("holding")));
    ToolProcess reader(
        {QStringLiteral("watch"), QStringLiteral("--interval"), QStringLiteral("3600000"), file});
    QVERIFY(reader.nextLine().contains(QStringLiteral("\tn/a\t")));
    former.signal(SIGTERM);
    QCOMPARE(former.finish().exitCode, 0);
    QVERIFY(!plant.segment().exists());

    const QJsonValue null(QJsonValue::Null);
    QCOMPARE(regionOf(plant.key()),
             (QJsonObject{{QStringLiteral("key"), plant.key()},
                          {QStringLiteral("size"), null},
                          {QStringLiteral("doubleBuffer"), null},
                          {QStringLiteral("swapCount"), null},
                          {QStringLiteral("lastSwap"), null},
                          {QStringLiteral("creatorPid"), null},
                          {QStringLiteral("creatorAlive"), null},
                          {QStringLiteral("isRemoved"), true},
                          {QStringLiteral("attached"),
                           QJsonArray{expectedUser(reader.pid(), "tessel", true, null)}},
                          {QStringLiteral("attachedComplete"), RegionUsers().isComplete()},
                          {QStringLiteral("mirror"), QJsonValue()}}));
    const QString unknown = QStringLiteral("-");
    QCOMPARE(lineOf(plant.key()).mid(1, 4), (QStringList{unknown, unknown, unknown, unknown}));
    QVERIFY(lineOf(plant.key())
                .value(5)
                .startsWith(QStringLiteral("tessel %1 (removed)").arg(reader.pid())));

    reader.signal(SIGTERM);
    QCOMPARE(reader.finish().exitCode, 0);
}

void tst_ToolRegions::removedRegionThatNobodyHasIsNotThere()
{
    Plant plant;
    const QString file = plant.write();
    ToolProcess hold({QStringLiteral("hold"), file});
    QVERIFY(hold.nextLine().startsWith(QStringLiteral("holding")));
    QCOMPARE(regionOf(plant.key()).value(QStringLiteral("isRemoved")), QJsonValue(false));

    hold.signal(SIGTERM);
    QCOMPARE(hold.finish().exitCode, 0);

    QCOMPARE(regionOf(plant.key()), QJsonObject());
}

void tst_ToolRegions::processWithAnotherLayoutIsNamed()
{
    Plant plant;
    const LogCapture log;
    const HeldRegion region(plant.write());
    const QString other = plant.writeOther();
    ChildProcess child([&](const ChildSide &side) {
        ProcessDataManager manager;
        CHILD_VERIFY(manager.createProcessDataFromFile(
            other, ProcessDataManager::InitTypeSharedMemoryAttach));
        side.say();
        side.waitForWord();
        return 0;
    });
    QVERIFY(child.waitUntilReady());

    const QJsonArray users = regionOf(plant.key()).value(QStringLiteral("attached")).toArray();
    QCOMPARE(users.size(), 2);
    for (const auto &user : users) {
        const bool isOwn = user.toObject().value(QStringLiteral("pid")).toInt() == getpid();
        QCOMPARE(user.toObject().value(QStringLiteral("hasOtherLayout")), QJsonValue(!isOwn));
    }
    QCOMPARE(lineOf(plant.key()).value(5).count(QStringLiteral("(other layout)")), 1);
}

/// It may have found no place there.
void tst_ToolRegions::processBesideAFullListOfLayoutsIsUnknown()
{
    Plant plant;
    const LogCapture log;
    const HeldRegion region(plant.write());
    SharedMemory memory;
    memory.setKey(plant.segment().name());
    QVERIFY(memory.attach(SharedMemory::ReadWrite));
    auto &places =
        static_cast<PingPongBufferHandler::ManagementBuffer *>(memory.data())->otherLayouts;

    std::fill(std::begin(places), std::end(places), quint64{1});

    QCOMPARE(userOf(plant.key(), getpid()),
             expectedUser(getpid(), "tst_ToolRegions", false, QJsonValue(QJsonValue::Null)));
    QVERIFY(lineOf(plant.key())
                .value(5)
                .startsWith(QStringLiteral("tst_ToolRegions %1").arg(getpid())));
    QVERIFY(!lineOf(plant.key()).value(5).contains(QStringLiteral("(other layout)")));
}

/// As that of a look from a namespace below, or of one who is not root.
void tst_ToolRegions::incompleteListOfProcessesSaysSo()
{
    Plant plant;
    const LogCapture log;
    const HeldRegion region(plant.write());
    QStringList command{QStringLiteral(TESSEL_TOOL), QStringLiteral("regions"),
                        QStringLiteral("--json")};
    if (RegionUsers().isComplete()) {
        command = QStringList{QStringLiteral("unshare"), QStringLiteral("--pid"),
                              QStringLiteral("--fork")}
                  + command;
    }
    QProcess look;
    look.start(command.takeFirst(), command);
    QVERIFY(look.waitForFinished(60 * 1000));
    if (look.exitCode() != 0) {
        QSKIP("needs the right to make a namespace", );
    }

    const QJsonObject found = objectIn(
        QJsonDocument::fromJson(look.readAllStandardOutput()).array(), plant.key());

    QCOMPARE(found.value(QStringLiteral("attached")),
             QJsonValue(QJsonArray{expectedUser(getpid(), "tst_ToolRegions", false, false)}));
    QCOMPARE(found.value(QStringLiteral("attachedComplete")), QJsonValue(false));
}

void tst_ToolRegions::lastSetHasItsAge_data()
{
    QTest::addColumn<qint64>("seconds");
    QTest::addColumn<QString>("text");
    QTest::newRow("minutes") << qint64{150} << QStringLiteral("2 min");
    QTest::newRow("hours") << qint64{3 * 3600 + 1800} << QStringLiteral("3 h");
    QTest::newRow("days") << qint64{50 * 3600} << QStringLiteral("2 d");
    QTest::newRow("future") << qint64{-600} << QStringLiteral("0.0 s");
}

void tst_ToolRegions::lastSetHasItsAge()
{
    QFETCH(qint64, seconds);
    QFETCH(QString, text);
    Plant plant;
    const LogCapture log;
    const HeldRegion region(plant.write());
    SharedMemory memory;
    memory.setKey(plant.segment().name());
    QVERIFY(memory.attach(SharedMemory::ReadWrite));
    static_cast<PingPongBufferHandler::ManagementBuffer *>(memory.data())->lastSwap =
        (QDateTime::currentSecsSinceEpoch() - seconds) * 1000000000;

    QCOMPARE(lineOf(plant.key()).value(3), text);
}

void tst_ToolRegions::setsAreCountedForASecond()
{
    Plant plant;
    const LogCapture log;
    HeldRegion region(plant.write());
    QCOMPARE(lineOf(plant.key()).value(2), QStringLiteral("0.0"));
    ChildProcess child([&](const ChildSide &side) {
        ProcessDataManager manager;
        CHILD_VERIFY(manager.createProcessDataFromFile(
            plant.description().path(QStringLiteral("plant.process.json")),
            ProcessDataManager::InitTypeSharedMemoryAttach));
        side.say();
        while (!side.hasWord()) {
            CHILD_VERIFY(manager.lockWriteBuffer() && manager.unlockWriteBuffer());
            CHILD_VERIFY(manager.swapReadAndWriteBuffer());
        }
        return 0;
    });
    QVERIFY(child.waitUntilReady());

    const double rate = lineOf(plant.key()).value(2).toDouble();

    child.tell();
    QCOMPARE(child.waitForExit(), 0);
    QVERIFY2(rate > 1, qPrintable(QString::number(rate)));
}

void tst_ToolRegions::tableHasTitles()
{
    const ToolResult result = runTool({QStringLiteral("regions")});

    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.error, QString());
    QCOMPARE(result.output.section(QLatin1Char('\n'), 0, 0).simplified(),
             QStringLiteral("KEY BYTES SETS/S LAST SET CREATOR ATTACHED"));
}

void tst_ToolRegions::moreRegionsThanUsualDescriptorsAreShown()
{
    constexpr int usualDescriptors = 64;
    std::vector<std::unique_ptr<SegmentFile>> segments;
    for (int i = 0; i < 2 * usualDescriptors; ++i) {
        segments.push_back(std::make_unique<SegmentFile>(
            SemaphoreSet::uniqueKey(QStringLiteral("many")) + QStringLiteral("SharedMemory")));
        QVERIFY(segments.back()->make("seven b"));
    }
    const QString ownKeys = segments.front()->name().section(QLatin1Char('-'), 0, -2);
    const ResourceLimit limit(RLIMIT_NOFILE, usualDescriptors);

    const QJsonArray regions = allRegions();

    const auto shown = std::count_if(regions.begin(), regions.end(), [&](const QJsonValue &region) {
        return region.toObject().value(QStringLiteral("key")).toString().startsWith(ownKeys)
               && region.toObject().value(QStringLiteral("size")) == 7;
    });
    QCOMPARE(shown, static_cast<std::ptrdiff_t>(segments.size()));
}

void tst_ToolRegions::nothingIsLeft()
{
    Plant plant;
    {
        const LogCapture log;
        const HeldRegion region(plant.write());
        QVERIFY(!regionOf(plant.key()).isEmpty());
    }
    QVERIFY(regionOf(plant.key()).isEmpty());
    QVERIFY(!plant.description().hasSegment());
    QVERIFY(!plant.description().hasSemaphores());
}

QTEST_GUILESS_MAIN(tst_ToolRegions)
#include "tst_ToolRegions.moc"
