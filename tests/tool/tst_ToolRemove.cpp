#include "HeldRegion.h"
#include "ToolProcess.h"
#include "support/LogCapture.h"
#include "support/SegmentFile.h"

#include <QFile>
#include <QJsonDocument>
#include <QtTest>

#include <csignal>

#include <unistd.h>

using Metadata = ToolDescription::Metadata;

namespace {

/// A description whose region outlives its creator.
class Plant
{
public:
    Plant()
        : m_segment(m_description.key() + QStringLiteral("SharedMemory"))
        , m_semaphores(m_description.key() + QStringLiteral("Semaphore"))
    {
        m_description.add(QStringLiteral("a"), QStringLiteral("int32"), Metadata::ErrorState, 4);
    }

    ToolDescription &description() { return m_description; }
    const QString key() const { return m_description.key(); }
    bool hasMemory() const { return m_description.hasSegment(); }
    bool hasSemaphores() const { return m_description.hasSemaphores(); }

    /// Makes a region and kills its creator.
    bool leaveRegion()
    {
        ToolProcess hold({QStringLiteral("hold"), m_description.write()});
        const bool isHeld = hold.nextLine().startsWith(QStringLiteral("holding"));
        hold.signal(SIGKILL);
        return isHeld && hold.finish().exitCode == -1;
    }

private:
    ToolDescription m_description;
    SegmentFile m_segment;
    SemaphoreSet m_semaphores;
};

ToolResult rm(const QStringList &arguments)
{
    return runTool(QStringList(QStringLiteral("rm")) + arguments);
}

} // namespace

/// What `tessel rm` removes, and what it leaves alone.
class tst_ToolRemove : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void regionOfADeadCreatorIsRemoved();
    void regionWithASingleBufferIsRemoved();
    void otherRegionsStay();
    void semaphoresAloneAreRemoved();
    void memoryAloneIsRemoved();
    void dryRunRemovesNothing();
    void jsonTellsWhatWasThere();
    void livingCreatorIsRefused();
    void livingReaderIsRefused();
    void userThatCannotBeSeenIsRefused();
    void memoryOfAnotherProgramIsRefused();
    void forceRemovesALivingRegion();
    void forceRemovesWhatDoesNotSayThatItIsARegion();
    void writerOfAForcedRegionGoesOnAlone();
    void memoryOfAnotherUserIsNoAccess();
    void missingRegionIsNotFound();
    void wrongUse_data();
    void wrongUse();
    void closedPipeIsNoFailure();
    void fullOutputIsAFailure();
};

void tst_ToolRemove::regionOfADeadCreatorIsRemoved()
{
    Plant plant;
    QVERIFY(plant.leaveRegion());
    QVERIFY(plant.hasMemory() && plant.hasSemaphores());

    const ToolResult result = rm({plant.key()});

    QCOMPARE(result.error, QString());
    QCOMPARE(result.output,
             QStringLiteral("removed memory and semaphores of '%1'\n").arg(plant.key()));
    QCOMPARE(result.exitCode, 0);
    QVERIFY(!plant.hasMemory() && !plant.hasSemaphores());
}

void tst_ToolRemove::regionWithASingleBufferIsRemoved()
{
    Plant plant;
    plant.description().setRoot(QStringLiteral("doubleBuffer"), false);
    QVERIFY(plant.leaveRegion());

    QCOMPARE(rm({plant.key()}).exitCode, 0);

    QVERIFY(!plant.hasMemory() && !plant.hasSemaphores());
}

void tst_ToolRemove::otherRegionsStay()
{
    Plant plant;
    Plant other;
    QVERIFY(plant.leaveRegion() && other.leaveRegion());

    QCOMPARE(rm({plant.key()}).exitCode, 0);

    QVERIFY(!plant.hasMemory() && other.hasMemory() && other.hasSemaphores());
}

void tst_ToolRemove::semaphoresAloneAreRemoved()
{
    Plant plant;
    QVERIFY(plant.leaveRegion());
    QVERIFY(QFile::remove(plant.description().segmentPath()));

    const ToolResult result = rm({plant.key()});

    QCOMPARE(result.output, QStringLiteral("removed semaphores of '%1'\n").arg(plant.key()));
    QVERIFY(!plant.hasSemaphores());
}

void tst_ToolRemove::memoryAloneIsRemoved()
{
    Plant plant;
    QVERIFY(plant.leaveRegion());
    // Joined and left by the last user, they go.
    {
        const SystemVSemaphoreBaseClass last(plant.key() + QStringLiteral("Semaphore"),
                                             SystemVSemaphoreBaseClass::CreationTypeAttach);
    }
    QVERIFY(plant.hasMemory() && !plant.hasSemaphores());

    const ToolResult result = rm({plant.key()});

    QCOMPARE(result.output, QStringLiteral("removed memory of '%1'\n").arg(plant.key()));
    QVERIFY(!plant.hasMemory() && !plant.hasSemaphores());
}

void tst_ToolRemove::dryRunRemovesNothing()
{
    Plant plant;
    QVERIFY(plant.leaveRegion());

    const ToolResult result = rm({QStringLiteral("--dry-run"), plant.key()});

    QCOMPARE(result.output,
             QStringLiteral("would remove memory and semaphores of '%1'\n").arg(plant.key()));
    QCOMPARE(result.exitCode, 0);
    QVERIFY(plant.hasMemory() && plant.hasSemaphores());
}

void tst_ToolRemove::jsonTellsWhatWasThere()
{
    Plant plant;
    QVERIFY(plant.leaveRegion());
    const auto objectOf = [](const ToolResult &result) {
        return QJsonDocument::fromJson(result.output.toUtf8()).object();
    };
    QJsonObject expected{{QStringLiteral("key"), plant.key()},
                         {QStringLiteral("memory"), true},
                         {QStringLiteral("semaphores"), true},
                         {QStringLiteral("removed"), false}};

    QCOMPARE(objectOf(rm({QStringLiteral("--json"), QStringLiteral("--dry-run"), plant.key()})),
             expected);

    expected.insert(QStringLiteral("removed"), true);
    QCOMPARE(objectOf(rm({QStringLiteral("--json"), plant.key()})), expected);
}

void tst_ToolRemove::livingCreatorIsRefused()
{
    Plant plant;
    const LogCapture log;
    HeldRegion region(plant.description().write());

    for (const QStringList &more : {QStringList(), QStringList{QStringLiteral("--dry-run")}}) {
        const ToolResult result = rm(more + QStringList{plant.key()});

        QCOMPARE(result.exitCode, 5);
        QCOMPARE(result.output, QString());
        QCOMPARE(result.error,
                 QStringLiteral("tessel: region '%1' is in use by its creator, process %2; end it "
                                "first, or give --force\n")
                     .arg(plant.key())
                     .arg(::getpid()));
    }
    QVERIFY(plant.hasMemory() && plant.hasSemaphores());
    QVERIFY(region.publish(QStringLiteral("a"), validValue(5)));
}

void tst_ToolRemove::livingReaderIsRefused()
{
    Plant plant;
    const QString file = plant.description().write();
    ToolProcess hold({QStringLiteral("hold"), file});
    QVERIFY(hold.nextLine().startsWith(QStringLiteral("holding")));
    ToolProcess reader(
        {QStringLiteral("watch"), QStringLiteral("--interval"), QStringLiteral("3600000"), file});
    QVERIFY(reader.nextLine().contains(QStringLiteral("\ta\t")));
    hold.signal(SIGKILL);
    QCOMPARE(hold.finish().exitCode, -1);

    const ToolResult result = rm({plant.key()});

    QCOMPARE(result.exitCode, 5);
    QCOMPARE(result.error, QStringLiteral("tessel: region '%1' is in use by process %2; end it "
                                          "first, or give --force\n")
                               .arg(plant.key())
                               .arg(reader.pid()));
    QVERIFY(plant.hasMemory() && plant.hasSemaphores());
    reader.signal(SIGTERM);
    QCOMPARE(reader.finish().exitCode, 0);
}

void tst_ToolRemove::userThatCannotBeSeenIsRefused()
{
    Plant plant;
    QVERIFY(plant.leaveRegion());
    // One that has joined the semaphores and maps nothing is not in the list of users.
    const SystemVSemaphoreBaseClass user(plant.key() + QStringLiteral("Semaphore"),
                                         SystemVSemaphoreBaseClass::CreationTypeAttach);

    const ToolResult result = rm({plant.key()});

    QCOMPARE(result.exitCode, 5);
    QCOMPARE(
        result.error,
        QStringLiteral("tessel: region '%1' is in use by a process that cannot be seen, or its "
                       "semaphores belong to another user; end it first, or give --force\n")
            .arg(plant.key()));
    QVERIFY(plant.hasMemory() && plant.hasSemaphores());
}

void tst_ToolRemove::memoryOfAnotherProgramIsRefused()
{
    Plant plant;
    QFile segment(plant.description().segmentPath());
    QVERIFY(segment.open(QIODevice::WriteOnly) && segment.resize(528));

    const ToolResult result = rm({plant.key()});

    QCOMPARE(result.exitCode, 5);
    QCOMPARE(
        result.error,
        QStringLiteral("tessel: '%1' has no semaphores and does not say that it is a region, so "
                       "that it may be the memory of another program; give --force if it is "
                       "not\n")
            .arg(plant.key()));
    QVERIFY(plant.hasMemory());
}

void tst_ToolRemove::forceRemovesALivingRegion()
{
    Plant plant;
    const QString file = plant.description().write();
    ToolProcess hold({QStringLiteral("hold"), file});
    QVERIFY(hold.nextLine().startsWith(QStringLiteral("holding")));

    const ToolResult result = rm({QStringLiteral("--force"), plant.key()});

    QCOMPARE(result.error, QString());
    QCOMPARE(result.exitCode, 0);
    QVERIFY(!plant.hasMemory() && !plant.hasSemaphores());
    hold.signal(SIGTERM);
    QCOMPARE(hold.finish().exitCode, 0);
}

void tst_ToolRemove::forceRemovesWhatDoesNotSayThatItIsARegion()
{
    Plant plant;
    QFile segment(plant.description().segmentPath());
    QVERIFY(segment.open(QIODevice::WriteOnly) && segment.resize(528));

    const ToolResult result = rm({plant.key(), QStringLiteral("--force")});

    QCOMPARE(result.output, QStringLiteral("removed memory of '%1'\n").arg(plant.key()));
    QVERIFY(!plant.hasMemory());
}

void tst_ToolRemove::writerOfAForcedRegionGoesOnAlone()
{
    Plant plant;
    const QString file = plant.description().write();
    const LogCapture log;
    HeldRegion former(file);
    QVERIFY(former.publish(QStringLiteral("a"), validValue(5)));

    QCOMPARE(rm({QStringLiteral("--force"), plant.key()}).exitCode, 0);

    // What it reads stays, what it writes is refused, and a new creator begins with a clean region.
    QCOMPARE(former.read(QStringLiteral("a")).getValue().toInt(), 5);
    QVERIFY(!former.write(QStringLiteral("a"), validValue(6)));
    HeldRegion later(file);
    QVERIFY(later.publish(QStringLiteral("a"), validValue(7)));
    QCOMPARE(former.read(QStringLiteral("a")).getValue().toInt(), 5);
}

void tst_ToolRemove::memoryOfAnotherUserIsNoAccess()
{
    if (::geteuid() != 0) {
        QSKIP("Only root can be another user");
    }
    Plant plant;
    QVERIFY(plant.leaveRegion());
    {
        const SystemVSemaphoreBaseClass last(plant.key() + QStringLiteral("Semaphore"),
                                             SystemVSemaphoreBaseClass::CreationTypeAttach);
    }
    if (!runToolAsAnother({QStringLiteral("--version")})
             .output.startsWith(QStringLiteral("tessel"))) {
        QSKIP("Another user cannot run the tool where it was built");
    }

    const ToolResult result = runToolAsAnother({QStringLiteral("rm"), plant.key()});

    QCOMPARE(result.error,
             QStringLiteral("tessel: the memory of '%1' cannot be removed: Permission denied\n")
                 .arg(plant.key()));
    QCOMPARE(result.exitCode, 4);
    QVERIFY(plant.hasMemory());
}

void tst_ToolRemove::missingRegionIsNotFound()
{
    Plant plant;

    const ToolResult result = rm({plant.key()});

    QCOMPARE(result.exitCode, 3);
    QCOMPARE(result.error, QStringLiteral("tessel: no region '%1'\n").arg(plant.key()));
    QVERIFY(!plant.hasSemaphores());
}

void tst_ToolRemove::wrongUse_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("error");
    QTest::newRow("no key") << QStringList()
                            << QStringLiteral("tessel: rm: KEY is missing; see 'tessel rm "
                                              "--help'\n");
    QTest::newRow("empty key") << QStringList{QString()}
                               << QStringLiteral("tessel: rm: '' is no memory key; see 'tessel "
                                                 "regions'\n");
    QTest::newRow("path") << QStringList{QStringLiteral("/dev/shm/x")}
                          << QStringLiteral(
                                 "tessel: rm: '/dev/shm/x' is no memory key; see 'tessel "
                                 "regions'\n");
    QTest::newRow("option") << QStringList{QStringLiteral("--fore"), QStringLiteral("x")}
                            << QStringLiteral("tessel: rm: unknown option '--fore' (did you mean "
                                              "'--force'?); see 'tessel rm --help'\n");
}

void tst_ToolRemove::wrongUse()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, error);

    const ToolResult result = rm(arguments);

    QCOMPARE(result.error, error);
    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, 2);
}

void tst_ToolRemove::closedPipeIsNoFailure()
{
    Plant plant;
    QVERIFY(plant.leaveRegion());

    QCOMPARE(exitCodeWithoutReader({QStringLiteral("rm"), plant.key()}), 0);

    QVERIFY(!plant.hasMemory());
}

void tst_ToolRemove::fullOutputIsAFailure()
{
    Plant plant;
    QVERIFY(plant.leaveRegion());
    QProcess shell;
    shell.start(QStringLiteral("/bin/sh"),
                {QStringLiteral("-c"), QStringLiteral("exec \"$0\" rm --dry-run \"$1\" >/dev/full"),
                 QStringLiteral(TESSEL_TOOL), plant.key()});
    QVERIFY(shell.waitForFinished(60000));

    QCOMPARE(shell.exitCode(), 9);
    QCOMPARE(QString::fromUtf8(shell.readAllStandardError()),
             QStringLiteral("tessel: standard output: No space left on device\n"));
}

QTEST_GUILESS_MAIN(tst_ToolRemove)
#include "tst_ToolRemove.moc"
