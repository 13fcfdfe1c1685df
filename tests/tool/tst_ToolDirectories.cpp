#include "Configuration/ConfigurationDataAndProcessDescriptionAccess.h"
#include "ToolFolder.h"
#include "support/LogCapture.h"
#include "support/WorkingDirectory.h"

#include <QJsonArray>

#include <csignal>

namespace {

using Description::leaf;
using Description::root;

const QString pumpFile = QStringLiteral("plant/pump.process.json");
const QString tankFile = QStringLiteral("plant/tank.process.json");

/// Two descriptions in a folder below, as their author leaves them: without offsets and key.
class Plant : public DescriptionDirectory
{
public:
    Plant()
    {
        write(pumpFile, root({{QStringLiteral("speed"), leaf(1, 4, 4)},
                              {QStringLiteral("starts"), leaf(2, 4, 4)}}));
        write(tankFile, root({{QStringLiteral("level"), leaf(1, 4, 4)}}));
    }

    QString key() const { return Description::keyOf(json(pumpFile)); }
    QString segmentPath() const { return QStringLiteral("/dev/shm/%1SharedMemory").arg(key()); }
};

/// `tessel hold` on a folder, ready when this object is.
class HeldFolder
{
public:
    explicit HeldFolder(const QString &path)
        : m_hold({QStringLiteral("hold"), QStringLiteral("--prefix"), keyPrefix(), path})
        , m_readyLine(m_hold.nextLine())
    {
    }
    QString readyLine() const { return m_readyLine; }
    ToolResult end()
    {
        // A process that has ended has no number to signal.
        if (!m_readyLine.isEmpty()) {
            m_hold.signal(SIGTERM);
        }
        return m_hold.finish();
    }

private:
    ToolProcess m_hold;
    QString m_readyLine;
};

QVector<QStringList> attachingCalls(const QString &path)
{
    return {{QStringLiteral("get"), path},
            {QStringLiteral("watch"), QStringLiteral("--count"), QStringLiteral("1"), path},
            {QStringLiteral("set"), path, QStringLiteral("plant/pump/speed"), QStringLiteral("1")}};
}

} // namespace

/// A folder in the place of a file, with every subcommand that takes one.
class tst_ToolDirectories : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void holdBuildsTheFolderAndCreatesItsRegion();
    void dryRunOfHoldBuildsNothing();
    void secondHoldRewritesNothing();
    void valuesAreSetAndReadByTheirPlaceInTheFolder();
    void watchShowsWhatAnotherProcessSets();
    void exampleDeviceIsLiveAsAFolder();
    void infoShowsTheWholeLayout();
    void infoJsonShowsTheWholeLayout();
    void folderThatIsNotBuiltIsRefused();
    void fileThatDoesNotParseIsRefusedEverywhere();
    void fileThatTheTreeCannotTakeIsNoted();
    void readingCommandsParseNoFileForThemselves();
    void missingRegionIsToldByTheFolder();
    void unknownUrlIsToldByTheFolder();
    void regionOfAnotherBuildIsRefused();
    void folderWithoutDescriptionsIsRefusedByHold();
    void failedBuildCreatesNoRegion();
    void unreadableFileIsRefused();
    void prefixIsCheckedByHold();
};

void tst_ToolDirectories::holdBuildsTheFolderAndCreatesItsRegion()
{
    const Plant plant;

    HeldFolder hold(plant.path());

    QVERIFY(plant.key().startsWith(keyPrefix() + QStringLiteral("Folderdevice")));
    QCOMPARE(hold.readyLine(),
             QStringLiteral("holding %1: 3 leaves, single buffer, 24 bytes; SIGINT or SIGTERM ends "
                            "it\n")
                 .arg(plant.key()));
    QVERIFY(QFile::exists(plant.segmentPath()));
    QCOMPARE(Description::offsetOf(plant.json(tankFile), QStringLiteral("level")), 16);
    const ToolResult result = hold.end();
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.error, QString());
    QVERIFY(!QFile::exists(plant.segmentPath()));
}

void tst_ToolDirectories::dryRunOfHoldBuildsNothing()
{
    const Plant plant;
    const auto before = plant.snapshot();
    const QStringList trial{QStringLiteral("hold"), QStringLiteral("--dry-run"),
                            QStringLiteral("--prefix"), keyPrefix(), plant.path()};

    const ToolResult unbuilt = runTool(trial);

    QVERIFY2(unbuilt.error.startsWith(QStringLiteral("tessel: note: a build would rewrite ")),
             qPrintable(unbuilt.error));
    QCOMPARE(unbuilt.output,
             QStringLiteral("would hold a new key: 3 leaves, single buffer, 24 bytes\n"));
    QCOMPARE(unbuilt.exitCode, 0);
    QVERIFY(plant.snapshot() == before);

    QCOMPARE(runBuild(plant.path()).exitCode, 0);
    const ToolResult built = runTool(trial);
    QCOMPARE(built.error, QString());
    QCOMPARE(built.output,
             QStringLiteral("would hold %1: 3 leaves, single buffer, 24 bytes\n").arg(plant.key()));
    QVERIFY(!QFile::exists(plant.segmentPath()));
}

void tst_ToolDirectories::secondHoldRewritesNothing()
{
    const Plant plant;
    QCOMPARE(HeldFolder(plant.path()).end().exitCode, 0);
    const auto before = statesBelow(plant.path());

    HeldFolder hold(plant.path());

    QVERIFY(hold.readyLine().startsWith(QStringLiteral("holding ")));
    QVERIFY(statesBelow(plant.path()) == before);
    QCOMPARE(hold.end().exitCode, 0);
}

void tst_ToolDirectories::valuesAreSetAndReadByTheirPlaceInTheFolder()
{
    const Plant plant;
    HeldFolder hold(plant.path());
    const auto before = statesBelow(plant.path());

    const ToolResult set = runTool({QStringLiteral("set"), plant.path(),
                                    QStringLiteral("plant/pump/speed"), QStringLiteral("1200")});
    const ToolResult error = runTool({QStringLiteral("set"), plant.path(),
                                      QStringLiteral("plant/tank/level"), QStringLiteral("--error"),
                                      QStringLiteral("timeout")});

    QCOMPARE(set.error, QString());
    QCOMPARE(set.exitCode, 0);
    QCOMPARE(error.exitCode, 0);
    QCOMPARE(runTool({QStringLiteral("get"), plant.path()}).output,
             QStringLiteral("URL                VALUE  UNIT  STATE\n"
                            "plant/pump/speed    1200        valid\n"
                            "plant/pump/starts               no-input\n"
                            "plant/tank/level                timeout\n"));
    QCOMPARE(runTool({QStringLiteral("get"), plant.path(), QStringLiteral("plant/tank")}).output,
             QStringLiteral("URL               VALUE  UNIT  STATE\n"
                            "plant/tank/level               timeout\n"));
    QVERIFY(statesBelow(plant.path()) == before);
    QCOMPARE(hold.end().exitCode, 0);
}

void tst_ToolDirectories::watchShowsWhatAnotherProcessSets()
{
    const Plant plant;
    HeldFolder hold(plant.path());
    const QString url = QStringLiteral("plant/pump/speed");
    ToolProcess watch({QStringLiteral("watch"), QStringLiteral("--interval"), QStringLiteral("1"),
                       plant.path(), url});
    QVERIFY(watch.nextLine().endsWith(QStringLiteral("\tplant/pump/speed\t\t\tno-input\n")));

    QCOMPARE(runTool({QStringLiteral("set"), plant.path(), url, QStringLiteral("7")}).exitCode, 0);

    QString line = watch.nextLine();
    while (line.endsWith(QStringLiteral("\tno-input\n"))) {
        line = watch.nextLine();
    }
    QVERIFY2(line.endsWith(QStringLiteral("\tplant/pump/speed\t7\t\tvalid\n")), qPrintable(line));
    QCOMPARE(hold.end().exitCode, 0);
    QCOMPARE(watch.finish().exitCode, 3);
}

void tst_ToolDirectories::exampleDeviceIsLiveAsAFolder()
{
    const DescriptionDirectory device;
    QVERIFY(device.copy(QStringLiteral(EXAMPLE_DEVICE)));
    HeldFolder hold(device.path());
    const QString url = QStringLiteral("inputs/channel1/value");

    const ToolResult set = runTool(
        {QStringLiteral("set"), device.path(), url, QStringLiteral("21.5")});

    QCOMPARE(set.error, QString());
    const QStringList words = runTool({QStringLiteral("get"), device.path(), url})
                                  .output.simplified()
                                  .split(QLatin1Char(' '));
    QCOMPARE(words.mid(4), (QStringList{url, QStringLiteral("21.5"), QStringLiteral("°C"),
                                        QStringLiteral("valid")}));
    const ToolResult info = runTool({QStringLiteral("info"), device.path()});
    QCOMPARE(info.exitCode, 0);
    QCOMPARE(info.error, QString());
    QCOMPARE(hold.end().exitCode, 0);
}

void tst_ToolDirectories::infoShowsTheWholeLayout()
{
    const Plant plant;
    QCOMPARE(runBuild(plant.path()).exitCode, 0);

    const ToolResult result = runTool({QStringLiteral("info"), plant.path()});

    QCOMPARE(result.error, QString());
    QCOMPARE(result.exitCode, 0);
    QVERIFY2(result.output.startsWith(
                 QStringLiteral("Folder      %1\n"
                                "Key         %2\n"
                                "Buffer      single, 24 bytes\n"
                                "Region      %2SharedMemory, 24 bytes; does not exist now\n")
                     .arg(plant.path(), plant.key())),
             qPrintable(result.output));
    QVERIFY2(result.output.endsWith(QStringLiteral(
                 "Leaves      3\n"
                 "\n"
                 "URL                TYPE    OFFSET  SIZE  METADATA  ACCESS      UNIT\n"
                 "plant/pump/speed   uint32       0     4      at 4  read-write\n"
                 "plant/pump/starts  uint32       8     4     at 12  read-write\n"
                 "plant/tank/level   uint32      16     4     at 20  read-write\n")),
             qPrintable(result.output));
}

void tst_ToolDirectories::infoJsonShowsTheWholeLayout()
{
    const Plant plant;
    QCOMPARE(runBuild(plant.path()).exitCode, 0);

    const ToolResult result = runTool(
        {QStringLiteral("info"), QStringLiteral("--json"), plant.path()});

    QCOMPARE(result.exitCode, 0);
    const QJsonObject info = QJsonDocument::fromJson(result.output.toUtf8()).object();
    QCOMPARE(info.value(QStringLiteral("file")).toString(), plant.path());
    QCOMPARE(info.value(QStringLiteral("key")).toString(), plant.key());
    QCOMPARE(info.value(QStringLiteral("bufferSize")).toInt(), 24);
    QStringList urls;
    const QJsonArray leaves = info.value(QStringLiteral("leaves")).toArray();
    for (const auto &entry : leaves) {
        urls.append(entry.toObject().value(QStringLiteral("url")).toString());
    }
    QCOMPARE(urls,
             (QStringList{QStringLiteral("plant/pump/speed"), QStringLiteral("plant/pump/starts"),
                          QStringLiteral("plant/tank/level")}));
}

void tst_ToolDirectories::folderThatIsNotBuiltIsRefused()
{
    const Plant plant;
    plant.write(tankFile, root({{QStringLiteral("level"), leaf(1, 4, 4)}}, QString(), 99));
    const auto before = statesBelow(plant.path());

    auto calls = attachingCalls(plant.path());
    calls.append({QStringLiteral("info"), plant.path()});
    for (const auto &call : qAsConst(calls)) {
        const ToolResult result = runTool(call);

        QCOMPARE(result.error,
                 QStringLiteral("tessel: %1: its files do not describe one memory; try 'tessel "
                                "build': SharedMemorySize is different: -1 != 99 \"%1/%2\"\n")
                     .arg(plant.path(), tankFile));
        QCOMPARE(result.exitCode, 9);
        QCOMPARE(result.output, QString());
    }
    QVERIFY(statesBelow(plant.path()) == before);
}

void tst_ToolDirectories::fileThatDoesNotParseIsRefusedEverywhere()
{
    const Plant plant;
    plant.write(tankFile, QByteArrayLiteral("{\n"));

    auto calls = attachingCalls(plant.path());
    calls.append({QStringLiteral("info"), plant.path()});
    for (const auto &call : qAsConst(calls)) {
        const ToolResult result = runTool(call);

        QCOMPARE(result.error, QStringLiteral("tessel: %1: cannot be parsed: line 1, column 2: "
                                              "unterminated object\n")
                                   .arg(plant.filePath(tankFile)));
        QCOMPARE(result.exitCode, 9);
    }
}

void tst_ToolDirectories::fileThatTheTreeCannotTakeIsNoted()
{
    const Plant plant;
    QCOMPARE(runBuild(plant.path()).exitCode, 0);
    // Ends like a description, but has no name of its own before the extension.
    plant.write(QStringLiteral("plant/oldprocess.json"), QByteArrayLiteral("{}"));

    const ToolResult result = runTool({QStringLiteral("info"), plant.path()});

    QCOMPARE(result.exitCode, 0);
    QVERIFY(result.output.contains(QStringLiteral("Leaves      3\n")));
    QCOMPARE(result.error,
             QStringLiteral("tessel: note: 'plant/oldprocess' is left out: its file does not "
                            "parse\n"));
}

void tst_ToolDirectories::readingCommandsParseNoFileForThemselves()
{
    const Plant plant;
    QCOMPARE(runBuild(plant.path()).exitCode, 0);
    QJsonObject tank = plant.json(tankFile);
    tank.insert(QStringLiteral("schemeVersion"), 99);
    plant.write(tankFile, compact(tank));
    // Each parsing of the file tells of its version.
    const QString told = QStringLiteral("Received incompatible scheme version");
    LogCapture log;
    ConfigurationAndProcessDataBase::BaseClassSharedPointer root;
    QVERIFY(ConfigurationDataAndProcessDescriptionAccess::parseProcessDir(root,
                                                                          QFileInfo(plant.path())));
    const int timesOfLibrary = toText(log.take()).count(told);

    const ToolResult result = runTool(
        {QStringLiteral("info"), QStringLiteral("--verbose"), plant.path()});

    QVERIFY(timesOfLibrary > 0);
    QCOMPARE(result.error.count(told), timesOfLibrary);
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolDirectories::missingRegionIsToldByTheFolder()
{
    const Plant plant;
    QCOMPARE(runBuild(plant.path()).exitCode, 0);

    for (const auto &call : attachingCalls(plant.path())) {
        const ToolResult result = runTool(call);

        QCOMPARE(result.exitCode, 3);
        QCOMPARE(result.error, QStringLiteral("tessel: %1: no region '%2'; start the process that "
                                              "creates it, or 'tessel hold'\n")
                                   .arg(plant.path(), plant.key()));
    }
}

void tst_ToolDirectories::unknownUrlIsToldByTheFolder()
{
    const Plant plant;
    QCOMPARE(runBuild(plant.path()).exitCode, 0);

    const ToolResult result = runTool(
        {QStringLiteral("get"), plant.path(), QStringLiteral("plant/pump/sped")});

    QCOMPARE(result.exitCode, 3);
    QCOMPARE(result.error, QStringLiteral("tessel: %1: no element at 'plant/pump/sped' (did you "
                                          "mean 'plant/pump/speed'?)\n")
                               .arg(plant.path()));
}

void tst_ToolDirectories::regionOfAnotherBuildIsRefused()
{
    const Plant plant;
    HeldFolder hold(plant.path());
    plant.write(QStringLiteral("plant/valve.process.json"),
                root({{QStringLiteral("open"), leaf(1, 4, 4)}}));
    QCOMPARE(runBuild(plant.path()).exitCode, 0);

    for (const auto &call : attachingCalls(plant.path())) {
        QCOMPARE(runTool(call).exitCode, 8);
    }
    QCOMPARE(hold.end().exitCode, 0);
}

void tst_ToolDirectories::folderWithoutDescriptionsIsRefusedByHold()
{
    const DescriptionDirectory empty;

    const ToolResult result = runTool({QStringLiteral("hold"), empty.path()});

    QCOMPARE(result.exitCode, 9);
    QCOMPARE(result.error, QStringLiteral("tessel: %1: holds no process description; their names "
                                          "end in .process.json\n")
                               .arg(empty.path()));
}

void tst_ToolDirectories::failedBuildCreatesNoRegion()
{
    const Plant plant;
    plant.write(tankFile, QByteArrayLiteral("{"));

    const ToolResult result = runTool(
        {QStringLiteral("hold"), QStringLiteral("--prefix"), keyPrefix(), plant.path()});

    QCOMPARE(result.exitCode, 9);
    QCOMPARE(result.output, QString());
    QCOMPARE(result.error, QStringLiteral("tessel: %1: %2 left out: line 1, column 1: unterminated "
                                          "object\n")
                               .arg(plant.path(), tankFile));
    QVERIFY(!plant.key().isEmpty());
    QVERIFY(!QFile::exists(plant.segmentPath()));
}

void tst_ToolDirectories::unreadableFileIsRefused()
{
    if (!makePermissionsCount()) {
        QSKIP("Root reads everything");
    }
    const Plant plant;
    const NarrowPermissions narrow(plant.filePath(tankFile), QFile::WriteOwner);

    auto calls = attachingCalls(plant.path());
    calls.append({QStringLiteral("info"), plant.path()});
    calls.append({QStringLiteral("hold"), plant.path()});
    for (const auto &call : qAsConst(calls)) {
        const ToolResult result = runTool(call);

        QCOMPARE(result.exitCode, 4);
        QCOMPARE(
            result.error,
            QStringLiteral("tessel: %1: no permission to read it\n").arg(plant.filePath(tankFile)));
    }
}

void tst_ToolDirectories::prefixIsCheckedByHold()
{
    const Plant plant;
    const auto before = statesBelow(plant.path());

    const ToolResult result = runTool(
        {QStringLiteral("hold"), QStringLiteral("--prefix"), QStringLiteral("a/b"), plant.path()});

    QCOMPARE(result.exitCode, 2);
    QCOMPARE(result.error.count(QLatin1Char('\n')), 1);

    const ToolResult file = runTool({QStringLiteral("hold"), QStringLiteral("--prefix"),
                                     keyPrefix(), plant.filePath(tankFile)});
    QCOMPARE(file.exitCode, 2);
    QCOMPARE(file.error, QStringLiteral("tessel: hold: --prefix goes with a folder, a file has its "
                                        "key; see 'tessel hold --help'\n"));
    QVERIFY(statesBelow(plant.path()) == before);
}

QTEST_GUILESS_MAIN(tst_ToolDirectories)
#include "tst_ToolDirectories.moc"
