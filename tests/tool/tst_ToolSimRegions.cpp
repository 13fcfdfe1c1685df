#include "Companion/PingPongBufferHandler.h"
#include "HeldRegion.h"
#include "ProcessData/Linux/SharedMemory.h"
#include "ToolDescription.h"
#include "ToolFolder.h"
#include "ToolProcess.h"
#include "support/LogCapture.h"

#include <QJsonDocument>
#include <QtTest>

#include <csignal>

using namespace ProcessDataDefinitions;
using Metadata = ToolDescription::Metadata;

namespace {

ToolResult sim(const QStringList &arguments)
{
    return runTool(QStringList(QStringLiteral("sim")) + arguments);
}

QJsonObject simReport(const QStringList &arguments)
{
    const ToolResult result = sim(QStringList(QStringLiteral("--json")) + arguments);
    return result.exitCode == 0 ? QJsonDocument::fromJson(result.output.toUtf8()).object()
                                : QJsonObject();
}

} // namespace

/// Which regions `tessel sim` takes, and what it does when it loses its own.
class tst_ToolSimRegions : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void livingRegionIsRefused();
    void regionThatIsStillReadIsRefused();
    void regionOfAnUnseenReaderIsRefused();
    void regionOfAnUnseenCreatorIsRefused();
    void abandonedRegionIsReplaced();
    void attachedItLeavesTheRegionWhereItIs();
    void attachedItLeavesOutWhatIsReadOnly();
    void attachedItNeedsAFittingRegion();
    void endsWhenItsRegionIsReplaced();
    void endsWhenItsRegionIsRemoved();
    void attachedItEndsWhenTheRegionIsReplaced();
    void signalEndsItWhileAnotherHoldsTheLock();
    void attachedItNeedsTheRightToWrite();
    void attachedItEndsWhereAnotherHoldsTheLock();
    void descriptionThatDoesNotParseIsRefused();
    void textWithoutRoomIsLeftOut();

private:
    QScopedPointer<ToolDescription> m_description;
    QString m_file;
};

void tst_ToolSimRegions::init()
{
    m_description.reset(new ToolDescription);
    m_description->add("tank/level", "double", Metadata::ErrorState, 8,
                       {{"unit", "m"}, {"minLimit", 0}, {"maxLimit", 4}});
    m_description->add("tank/pump", "boolean", Metadata::None, 1);
    m_description->add("limit", "int16", Metadata::ErrorState, 2, {{"readOnly", true}});
    m_file = m_description->write();
}

/// A test that fails kills what still runs, which then leaves its region.
void tst_ToolSimRegions::cleanup()
{
    if (m_description->hasSegment() || m_description->hasSemaphores()) {
        runTool({"rm", "--force", m_description->key()});
    }
}

void tst_ToolSimRegions::livingRegionIsRefused()
{
    const LogCapture log;
    HeldRegion region(m_file);
    QVERIFY(region.publish("tank/level", validValue(2.5)));

    const ToolResult result = sim({m_file, "--sets", "1"});

    QCOMPARE(
        result.error,
        QString("tessel: %1: region '%2' is in use by its creator, process %3; end it first, or "
                "give --attach to write into it\n")
            .arg(m_file, m_description->key())
            .arg(QCoreApplication::applicationPid()));
    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, 5);
    QCOMPARE(region.read("tank/level").toDouble(), 2.5);
    QVERIFY(m_description->hasSegment());
}

void tst_ToolSimRegions::regionThatIsStillReadIsRefused()
{
    ToolProcess hold({"hold", m_file});
    QVERIFY(hold.nextLine().startsWith("holding"));
    const LogCapture log;
    ProcessDataManager reader;
    QVERIFY(
        reader.createProcessDataFromFile(m_file, ProcessDataManager::InitTypeSharedMemoryAttach));
    hold.signal(SIGKILL);
    hold.finish();

    const ToolResult result = sim({m_file, "--sets", "1"});

    QCOMPARE(result.error,
             QString("tessel: %1: region '%2' is in use by process %3; end it first, or give "
                     "--attach to write into it\n")
                 .arg(m_file, m_description->key())
                 .arg(QCoreApplication::applicationPid()));
    QCOMPARE(result.exitCode, 5);
    QCOMPARE(runTool({"rm", "--force", m_description->key()}).exitCode, 0);
}

/// Of a process of another user there are the semaphores alone, as here.
void tst_ToolSimRegions::regionOfAnUnseenReaderIsRefused()
{
    ToolProcess hold({"hold", m_file});
    QVERIFY(hold.nextLine().startsWith("holding"));
    const SystemVSemaphoreBaseClass reader(m_description->key() + "Semaphore",
                                           SystemVSemaphoreBaseClass::CreationTypeAttach);
    QVERIFY(reader.isValid());
    hold.signal(SIGKILL);
    hold.finish();

    const ToolResult result = sim({m_file, "--sets", "1"});

    QCOMPARE(result.error,
             QString("tessel: %1: region '%2' is in use by a process that cannot be seen; end it "
                     "first, or give --attach to write into it\n")
                 .arg(m_file, m_description->key()));
    QCOMPARE(result.exitCode, 5);
    QVERIFY(reader.isValid());
    QVERIFY(m_description->hasSemaphores());
    QCOMPARE(runTool({"rm", "--force", m_description->key()}).exitCode, 0);
}

void tst_ToolSimRegions::regionOfAnUnseenCreatorIsRefused()
{
    const LogCapture log;
    const HeldRegion region(m_file);
    SharedMemory memory;
    memory.setKey(m_description->key() + "SharedMemory");
    QVERIFY(memory.attach(SharedMemory::ReadWrite));
    static_cast<PingPongBufferHandler::ManagementBuffer *>(memory.data())->creatorPid = 0xFFFFFFFF;

    const ToolResult result = sim({m_file, "--sets", "1"});

    QCOMPARE(result.error, QString("tessel: %1: region '%2' is in use by a creator that cannot be "
                                   "seen; end it first, or give --attach to write into it\n")
                               .arg(m_file, m_description->key()));
    QCOMPARE(result.exitCode, 5);
}

void tst_ToolSimRegions::abandonedRegionIsReplaced()
{
    ToolProcess hold({"hold", m_file});
    QVERIFY(hold.nextLine().startsWith("holding"));
    hold.signal(SIGKILL);
    hold.finish();
    QVERIFY(m_description->hasSegment());

    const ToolResult result = sim({m_file, "--sets", "1"});

    QCOMPARE(
        result.error,
        QString("tessel: note: replaced the region '%1' that was there; who was attached to it "
                "must attach again\n")
            .arg(m_description->key()));
    QCOMPARE(result.exitCode, 0);
    QVERIFY(!m_description->hasSegment());
    QVERIFY(!m_description->hasSemaphores());
}

void tst_ToolSimRegions::attachedItLeavesTheRegionWhereItIs()
{
    const LogCapture log;
    HeldRegion region(m_file);

    const ToolResult result = sim({m_file, "--attach", "--sets", "3", "--rate", "1000"});

    QCOMPARE(result.exitCode, 0);
    QVERIFY(m_description->hasSegment());
    QCOMPARE(region.read("tank/level").getErrorType(), PROCESS_VALUE_ERROR_TYPE_VALID);
}

void tst_ToolSimRegions::attachedItLeavesOutWhatIsReadOnly()
{
    const LogCapture log;
    const HeldRegion region(m_file);

    QCOMPARE(simReport({m_file, "--attach", "--sets", "1"}).value("values"), QJsonValue(2));
    const ToolResult result = sim({m_file, "--attach", "--sets", "1", "limit"});

    QCOMPARE(result.error,
             QString("tessel: 'limit' is read-only; only the creator of the region may "
                     "write it, which --attach is not\n"));
    QCOMPARE(result.exitCode, 5);
}

void tst_ToolSimRegions::attachedItNeedsAFittingRegion()
{
    QCOMPARE(sim({m_file, "--attach", "--sets", "1"}).exitCode, 3);
    const LogCapture log;
    const HeldRegion region(m_file);
    m_description->add("more", "double", Metadata::ErrorState, 8);

    const ToolResult result = sim({m_description->write(), "--attach", "--sets", "1"});

    QVERIFY(result.error.contains("its creator uses another description"));
    QCOMPARE(result.exitCode, 8);
}

void tst_ToolSimRegions::endsWhenItsRegionIsReplaced()
{
    ToolProcess process({"sim", m_file});
    QVERIFY(process.nextLine().startsWith("simulating"));
    const LogCapture log;
    HeldRegion region(m_file);
    QVERIFY(region.isValid());

    const ToolResult result = process.finish();

    QCOMPARE(result.error,
             QString("tessel: %1: the region '%2' was replaced by that of another creator\n")
                 .arg(m_file, m_description->key()));
    QVERIFY(result.output.startsWith("published "));
    QCOMPARE(result.exitCode, 8);
    // It takes nothing of the new one with it.
    QVERIFY(m_description->hasSegment());
    QVERIFY(region.publish("tank/level", validValue(1.5)));
    QCOMPARE(region.read("tank/level").toDouble(), 1.5);
}

void tst_ToolSimRegions::endsWhenItsRegionIsRemoved()
{
    ToolProcess process({"sim", m_file});
    QVERIFY(process.nextLine().startsWith("simulating"));
    QCOMPARE(runTool({"rm", "--force", m_description->key()}).exitCode, 0);

    const ToolResult result = process.finish();

    QCOMPARE(result.error, QString("tessel: %1: the region '%2' was removed by somebody\n")
                               .arg(m_file, m_description->key()));
    QCOMPARE(result.exitCode, 3);
    QVERIFY(!m_description->hasSegment());
    QVERIFY(!m_description->hasSemaphores());
}

void tst_ToolSimRegions::attachedItEndsWhenTheRegionIsReplaced()
{
    const LogCapture log;
    QScopedPointer<HeldRegion> region(new HeldRegion(m_file));
    ToolProcess process({"sim", m_file, "--attach"});
    QVERIFY(process.nextLine().startsWith("simulating"));
    HeldRegion other(m_file);
    QVERIFY(other.isValid());

    const ToolResult result = process.finish();

    QCOMPARE(result.error,
             QString("tessel: %1: the region '%2' was replaced by a new one; start again\n")
                 .arg(m_file, m_description->key()));
    QCOMPARE(result.exitCode, 8);
}

void tst_ToolSimRegions::signalEndsItWhileAnotherHoldsTheLock()
{
    const LogCapture log;
    HeldRegion region(m_file);
    ToolProcess process({"sim", m_file, "--attach", "--rate", "1000"});
    QVERIFY(process.nextLine().startsWith("simulating"));
    QTRY_COMPARE_WITH_TIMEOUT(region.read("tank/level").getErrorType(),
                              PROCESS_VALUE_ERROR_TYPE_VALID, 30000);
    QVERIFY(region.manager().lockWriteBuffer());
    // A set is due each millisecond: it waits for the lock long before another program has run.
    QCOMPARE(runTool({"info", m_file}).exitCode, 0);

    process.signal(SIGINT);
    const ToolResult result = process.finish();

    // Who waits inside the lock comes out of it after five seconds, with another code.
    QCOMPARE(result.error, QString());
    QCOMPARE(result.exitCode, 0);
    QVERIFY2(result.output.startsWith("published "), qPrintable(result.output));
    QVERIFY(region.manager().unlockWriteBuffer());
}

void tst_ToolSimRegions::attachedItNeedsTheRightToWrite()
{
    const LogCapture log;
    const HeldRegion region(m_file);
    const NarrowPermissions narrow(m_description->segmentPath(), QFile::ExeOwner);
    if (!makePermissionsCount()) {
        QSKIP("The system does not let this process give up its rights");
    }

    const ToolResult result = sim({m_file, "--attach", "--sets", "1"});

    QCOMPARE(result.error, QString("tessel: %1: cannot attach to region '%2': Permission denied\n")
                               .arg(m_file, m_description->key()));
    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, 4);
}

void tst_ToolSimRegions::attachedItEndsWhereAnotherHoldsTheLock()
{
    const LogCapture log;
    HeldRegion region(m_file);
    QVERIFY(region.manager().lockWriteBuffer());

    const ToolResult result = sim({m_file, "--attach", "--sets", "1"});

    QVERIFY(region.manager().unlockWriteBuffer());
    QCOMPARE(result.error, QString("tessel: %1: another process has held the lock of region '%2' "
                                   "for more than 5 s\n")
                               .arg(m_file, m_description->key()));
    QCOMPARE(result.exitCode, 6);
    QCOMPARE(region.read("tank/level").getErrorType(),
             PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE);
}

void tst_ToolSimRegions::descriptionThatDoesNotParseIsRefused()
{
    const QString broken = m_description->write("broken.process.json", "{");

    const ToolResult result = sim({broken, "--sets", "1"});

    QVERIFY2(result.error.startsWith(QString("tessel: %1: ").arg(broken)),
             qPrintable(result.error));
    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, 9);
}

/// Not even an empty one fits.
void tst_ToolSimRegions::textWithoutRoomIsLeftOut()
{
    m_description->add(QStringLiteral("room/none"), QStringLiteral("string"), Metadata::None, 0);
    m_description->add(QStringLiteral("room/half"), QStringLiteral("string"), Metadata::None, 1);
    const QString file = m_description->write();
    const QString note = QStringLiteral(
        "tessel: note: '%1' of %2 is left out: a text of %3 bytes\n");
    const QString notes = note.arg(QStringLiteral("room/half"), file, QStringLiteral("1"))
                          + note.arg(QStringLiteral("room/none"), file, QStringLiteral("0"));

    for (const QString &option : {QStringLiteral("--sets=2"), QStringLiteral("--dry-run")}) {
        const ToolResult result = sim({file, option});

        QCOMPARE(result.error, notes);
        QVERIFY(!result.output.contains(QStringLiteral("room/")));
        QCOMPARE(result.exitCode, 0);

        const ToolResult named = sim({file, QStringLiteral("room/half"), option});

        QCOMPARE(named.error,
                 QStringLiteral("tessel: %1: 'room/half' has no usable slot: a text of 1 bytes\n")
                     .arg(file));
        QCOMPARE(named.exitCode, 9);
    }
}

QTEST_GUILESS_MAIN(tst_ToolSimRegions)
#include "tst_ToolSimRegions.moc"
