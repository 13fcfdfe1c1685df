#include "Inspection/RegionInspection.h"
#include "RecordedPlant.h"

#include <QtTest>

#include <cstring>
#include <optional>

namespace {

using ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_OVERRANGE;

QStringList replay(const QString &path, const QStringList &options = {})
{
    return QStringList{QStringLiteral("replay"), path} + options;
}

} // namespace

/// `tessel replay`: the sets of a recording in a region.
class tst_ToolReplay : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void ownRegionGetsEverySetByOneSwap();
    void regionThatIsThereGetsThem();
    void regionThatIsThereIsNotReplaced();
    void forceReplacesIt();
    void otherLayoutIsRefused();
    void readOnlyValuesAreLeftToTheirCreator();
    void textWithoutItsEndIsCut();
    void recordedTimesAreKept();
    void signalEndsItInOrder_data();
    void signalEndsItInOrder();
    void secondSignalIsNoneTooMany();
    void regionThatIsReplacedEndsIt();
    void missingRegionIsNotFound();
    void lockThatIsHeldEndsIt();
    void dryRunPublishesNothing();
    void cutRecordingIsReplayedAsFarAsItGoes();
    void damagedRecordingIsTold();
    void otherFilesAreRefused();
    void wrongUse_data();
    void wrongUse();
    void closedPipeIsNoFailure();
    void fullOutputIsAFailure();
};

void tst_ToolReplay::ownRegionGetsEverySetByOneSwap()
{
    const FormerPlant former;
    QVERIFY(former.isReady);
    ToolProcess tool(replay(former.path(), {QStringLiteral("--hold"), QStringLiteral("--json"),
                                            QStringLiteral("--speed=1000")}));
    const QJsonObject report = QJsonDocument::fromJson(tool.nextLine().toUtf8()).object();

    const ToolResult got = runTool(
        {QStringLiteral("get"), QStringLiteral("--json"), former.plant.file});
    const ToolResult info = runTool(
        {QStringLiteral("snapshot"), former.plant.file, QStringLiteral("-o"), QStringLiteral("-")});
    tool.signal(SIGINT);

    QCOMPARE(tool.finish().exitCode, 0);
    QCOMPARE(report.keys(),
             (QStringList{QStringLiteral("dropped"), QStringLiteral("file"), QStringLiteral("key"),
                          QStringLiteral("lag"), QStringLiteral("seconds"), QStringLiteral("sets"),
                          QStringLiteral("values")}));
    QCOMPARE(report.value(QStringLiteral("sets")).toInt(), 3);
    QCOMPARE(report.value(QStringLiteral("key")).toString(), former.plant.key());
    QVERIFY(got.output.contains(QStringLiteral("\"stateName\": \"overrange\"")));
    // The creator publishes one of its own.
    QVERIFY(info.output.contains(QStringLiteral("\"generation\": 4,")));
    QVERIFY(!QFile::exists(QStringLiteral("/dev/shm/") + former.plant.segment().name()));
}

void tst_ToolReplay::regionThatIsThereGetsThem()
{
    ReplayedPlant recorded;
    QVERIFY(recorded.isReady);
    QVERIFY(recorded.publisher.publish(validValue(1)));

    const ToolResult result = runTool(
        replay(recorded.path(), {QStringLiteral("--into"), recorded.plant.file}));

    QCOMPARE(
        result.output,
        QStringLiteral("replaying into %1; SIGINT or SIGTERM ends it\n").arg(recorded.plant.key()));
    QCOMPARE(result.error, QStringLiteral("tessel: note: replayed 3 sets of 1 value into region "
                                          "'%1', 0 were dropped when it was recorded\n")
                               .arg(recorded.plant.key()));
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(recorded.publisher.region().read(recorded.plant.url).getErrorType(),
             PROCESS_VALUE_ERROR_TYPE_OVERRANGE);
}

void tst_ToolReplay::regionThatIsThereIsNotReplaced()
{
    ReplayedPlant recorded;

    const ToolResult result = runTool(replay(recorded.path()));

    QCOMPARE(result.error, QStringLiteral("tessel: %1: region '%2' is there already; --into FILE "
                                          "writes into it, --force replaces it\n")
                               .arg(recorded.path(), recorded.plant.key()));
    QCOMPARE(result.exitCode, 5);
    QVERIFY(recorded.publisher.publish(validValue(1)));
    QCOMPARE(recorded.publisher.region().read(recorded.plant.url).getValue().toInt(), 1);
}

void tst_ToolReplay::forceReplacesIt()
{
    const ReplayedPlant recorded;
    const RegionInspection before(recorded.plant.key());

    const ToolResult result = runTool(replay(recorded.path(), {QStringLiteral("--force")}));

    QCOMPARE(result.exitCode, 0);
    QVERIFY(result.error.startsWith(
        QStringLiteral("tessel: note: replaced the region '%1' that was there; who was attached to "
                       "it must attach again\n")
            .arg(recorded.plant.key())));
    QVERIFY(before.getName() != RegionInspection::Name::Current);
}

void tst_ToolReplay::otherLayoutIsRefused()
{
    const ReplayedPlant recorded;
    DoctoredPlant other;
    other.description().add(QStringLiteral("pump/level"), QStringLiteral("int32"),
                            ToolDescription::Metadata::ErrorState, 4);
    other.description().write();
    const HeldRegion region(other.file);

    const ToolResult result = runTool(
        replay(recorded.path(), {QStringLiteral("--into"), other.file}));

    QCOMPARE(result.error, QStringLiteral("tessel: %1: was recorded with another layout than that "
                                          "of %2, from 'pump/level' on\n")
                               .arg(recorded.path(), other.file));
    QCOMPARE(result.exitCode, 8);
}

void tst_ToolReplay::readOnlyValuesAreLeftToTheirCreator()
{
    DoctoredPlant plant;
    plant.description().add(QStringLiteral("pump/serial"), QStringLiteral("int32"),
                            ToolDescription::Metadata::ErrorState, 4,
                            {{QStringLiteral("readOnly"), true}});
    plant.description().write();
    const LogCapture log;
    std::optional<HeldRegion> region(plant.file);
    QVERIFY(region->publish(QStringLiteral("pump/serial"), validValue(4711)));
    const QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("plant.rec"));
    QCOMPARE(runTool({QStringLiteral("record"), plant.file, QStringLiteral("-o"), path,
                      QStringLiteral("--sets=1")})
                 .exitCode,
             0);

    const ToolResult into = runTool(replay(path, {QStringLiteral("--into"), plant.file}));

    QVERIFY(into.error.startsWith(
        QStringLiteral("tessel: note: 'pump/serial' is left out: it is read-only\n")));
    QCOMPARE(into.exitCode, 0);
    region.reset();
    ToolProcess own(replay(path, {QStringLiteral("--hold"), QStringLiteral("--json")}));
    QVERIFY(!own.nextLine().isEmpty());
    QCOMPARE(runTool({QStringLiteral("get"), QStringLiteral("-t"), plant.file,
                      QStringLiteral("pump/serial")})
                 .output,
             QStringLiteral("4711\n"));
    own.signal(SIGTERM);
    QCOMPARE(own.finish().exitCode, 0);
}

/// As programs write it that know nothing of the closing zero.
void tst_ToolReplay::textWithoutItsEndIsCut()
{
    DoctoredPlant plant;
    plant.description().add(QStringLiteral("pump/name"), QStringLiteral("string"),
                            ToolDescription::Metadata::None, 6);
    plant.description().write();
    const LogCapture log;
    HeldRegion region(plant.file);
    QVERIFY(region.manager().lockWriteBuffer());
    constexpr int nameBegin = 8;
    std::memcpy(region.manager().getPointerWriteBuffer() + nameBegin, u"abc", 6);
    QVERIFY(region.manager().unlockWriteBuffer());
    QVERIFY(region.manager().swapReadAndWriteBuffer());
    const QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("plant.rec"));
    const QStringList record{QStringLiteral("record"),   plant.file,
                             QStringLiteral("-o"),       path,
                             QStringLiteral("--append"), QStringLiteral("--sets=1")};
    QCOMPARE(runTool(record).exitCode, 0);
    QCOMPARE(runTool(record).exitCode, 0);

    const ToolResult result = runTool(replay(path, {QStringLiteral("--into"), plant.file}));

    const QString note = QStringLiteral("tessel: note: 'pump/name' is cut: ");
    QVERIFY2(result.error.startsWith(note), qPrintable(result.error));
    QCOMPARE(result.error.count(note), 1);
    QVERIFY(result.error.contains(QStringLiteral("replayed 2 sets ")));
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(region.read(QStringLiteral("pump/name")).getValue().toString(), QStringLiteral("ab"));
}

void tst_ToolReplay::recordedTimesAreKept()
{
    const FormerPlant former;
    const QStringList times = columnOf(former.path(), QStringLiteral("elapsed"));
    const double recorded = times.constLast().toDouble() - times.constFirst().toDouble();
    const auto secondsOf = [&former](const QString &speed) {
        const ToolResult result = runTool(
            replay(former.path(), {QStringLiteral("--json"), QStringLiteral("--speed"), speed}));
        return QJsonDocument::fromJson(result.output.toUtf8())
            .object()
            .value(QStringLiteral("seconds"))
            .toDouble();
    };

    // The seconds are rounded to milliseconds.
    QVERIFY(secondsOf(QStringLiteral("1")) + 0.001 >= recorded);
    QVERIFY(secondsOf(QStringLiteral("0.5")) + 0.001 >= 2 * recorded);
}

void tst_ToolReplay::signalEndsItInOrder_data()
{
    QTest::addColumn<int>("signal");
    QTest::newRow("SIGINT") << SIGINT;
    QTest::newRow("SIGTERM") << SIGTERM;
    QTest::newRow("SIGHUP") << SIGHUP;
}

void tst_ToolReplay::signalEndsItInOrder()
{
    QFETCH(int, signal);
    const FormerPlant former;
    ToolProcess tool(replay(former.path(), {QStringLiteral("--speed=0.001")}));
    QVERIFY(tool.nextLine().startsWith(QStringLiteral("replaying into ")));
    tool.signal(signal);

    const ToolResult result = tool.finish();

    QCOMPARE(result.exitCode, 0);
    QVERIFY(result.error.startsWith(QStringLiteral("tessel: note: replayed ")));
    QVERIFY(!QFile::exists(QStringLiteral("/dev/shm/") + former.plant.segment().name()));
}

void tst_ToolReplay::secondSignalIsNoneTooMany()
{
    const FormerPlant former;
    ToolProcess tool(replay(former.path(), {QStringLiteral("--speed=0.001")}));
    QVERIFY(tool.nextLine().startsWith(QStringLiteral("replaying into ")));
    // Both are there when it goes on.
    for (const int number : {SIGSTOP, SIGINT, SIGTERM, SIGHUP, SIGCONT}) {
        tool.signal(number);
    }

    QCOMPARE(tool.finish().exitCode, 0);
}

void tst_ToolReplay::regionThatIsReplacedEndsIt()
{
    const ReplayedPlant recorded;
    ToolProcess tool(replay(recorded.path(), {QStringLiteral("--speed=0.001"),
                                              QStringLiteral("--into"), recorded.plant.file}));
    QVERIFY(tool.nextLine().startsWith(QStringLiteral("replaying into ")));

    const HeldRegion later(recorded.plant.file);

    const ToolResult result = tool.finish();
    QVERIFY2(
        result.error.endsWith(
            QStringLiteral("tessel: %1: the region '%2' was replaced by a new one; start again\n")
                .arg(recorded.plant.file, recorded.plant.key())),
        qPrintable(result.error));
    QCOMPARE(result.exitCode, 8);
}

void tst_ToolReplay::missingRegionIsNotFound()
{
    const FormerPlant former;

    const ToolResult result = runTool(
        replay(former.path(), {QStringLiteral("--into"), former.plant.file}));

    QVERIFY(
        result.error.startsWith(QStringLiteral("tessel: %1: no region ").arg(former.plant.file)));
    QCOMPARE(result.exitCode, 3);
}

void tst_ToolReplay::lockThatIsHeldEndsIt()
{
    ReplayedPlant recorded;
    QVERIFY(recorded.publisher.region().manager().lockWriteBuffer());

    const ToolResult result = runTool(
        replay(recorded.path(), {QStringLiteral("--into"), recorded.plant.file}));

    QVERIFY(recorded.publisher.region().manager().unlockWriteBuffer());
    QVERIFY(result.error.startsWith(QStringLiteral("tessel: note: replayed 0 sets of 1 value ")));
    QVERIFY(result.error.endsWith(
        QStringLiteral("tessel: %1: another process has held the lock of region '%2' for more than "
                       "5 s\n")
            .arg(recorded.plant.file, recorded.plant.key())));
    QCOMPARE(result.exitCode, 6);
}

void tst_ToolReplay::dryRunPublishesNothing()
{
    const FormerPlant former;

    const ToolResult result = runTool(replay(former.path(), {QStringLiteral("--dry-run")}));
    const ToolResult json = runTool(
        replay(former.path(), {QStringLiteral("--dry-run"), QStringLiteral("--json")}));
    QCOMPARE(json.output,
             QStringLiteral("{\"file\": \"%1\", \"key\": \"%2\", \"values\": 1, \"sets\": 3}\n")
                 .arg(former.path(), former.plant.key()));

    QCOMPARE(result.output, QStringLiteral("3 sets of 1 value, not replayed into region '%1'\n")
                                .arg(former.plant.key()));
    QCOMPARE(result.error, QString());
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolReplay::cutRecordingIsReplayedAsFarAsItGoes()
{
    const FormerPlant former;
    QFile file(former.path());
    QVERIFY(file.resize(file.size() - 1));

    const ToolResult result = runTool(replay(former.path(), {QStringLiteral("--json")}));

    QCOMPARE(QJsonDocument::fromJson(result.output.toUtf8())
                 .object()
                 .value(QStringLiteral("sets"))
                 .toInt(),
             3);
    QVERIFY(
        result.error.contains(QStringLiteral(": ends in a record that is not whole, at byte ")));
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolReplay::damagedRecordingIsTold()
{
    const FormerPlant former;
    QByteArray bytes = fileBytes(former.path());
    bytes[bytes.size() - 1] = '!';
    QFile file(former.path());
    QVERIFY(file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size());
    file.close();

    const ToolResult result = runTool(replay(former.path(), {QStringLiteral("--json")}));

    QVERIFY(result.error.startsWith(
        QStringLiteral("tessel: %1: is damaged at byte ").arg(former.path())));
    QCOMPARE(result.exitCode, 9);
}

void tst_ToolReplay::otherFilesAreRefused()
{
    const DoctoredPlant plant;

    const ToolResult result = runTool(replay(plant.file));

    QCOMPARE(result.error, QStringLiteral("tessel: %1: is no recording\n").arg(plant.file));
    QCOMPARE(result.exitCode, 9);
}

void tst_ToolReplay::wrongUse_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("error");
    const QString file = QStringLiteral("nowhere.rec");
    const auto add = [&file](const char *option, const QString &error) {
        QTest::newRow(option)
            << QString::fromLatin1(option).split(QLatin1Char(' ')) + QStringList(file)
            << QStringLiteral("tessel: replay: %1; see 'tessel replay --help'\n").arg(error);
    };
    for (const char *speed : {"fast", "0", "-1", "nan", "1000001"}) {
        add(qPrintable(QStringLiteral("--speed=%1").arg(QLatin1String(speed))),
            QStringLiteral("--speed takes a number from 0.001 to 1000000, not '%1'")
                .arg(QLatin1String(speed)));
    }
    add("--into=x --force", QStringLiteral("--into does not go with --force or --hold"));
    add("--into=x --hold", QStringLiteral("--into does not go with --force or --hold"));
    add("--sped=2", QStringLiteral("unknown option '--sped' (did you mean '--speed'?)"));
    add("one", QStringLiteral("'nowhere.rec' is one argument too many"));
    QTest::newRow("no recording") << QStringList()
                                  << QStringLiteral("tessel: replay: RECORDING is missing; see "
                                                    "'tessel replay --help'\n");
    QTest::newRow("no such file") << QStringList(file)
                                  << QStringLiteral("tessel: nowhere.rec: no such file\n");
}

void tst_ToolReplay::wrongUse()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, error);

    const ToolResult result = runTool(QStringList(QStringLiteral("replay")) + arguments);

    QCOMPARE(result.error, error);
    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, error.contains(QStringLiteral("no such file")) ? 3 : 2);
}

void tst_ToolReplay::closedPipeIsNoFailure()
{
    const FormerPlant former;

    QCOMPARE(exitCodeWithoutReader(replay(former.path())), 0);
    QVERIFY(!QFile::exists(QStringLiteral("/dev/shm/") + former.plant.segment().name()));
}

void tst_ToolReplay::fullOutputIsAFailure()
{
    const FormerPlant former;
    QProcess shell;
    shell.start(QStringLiteral("/bin/sh"),
                {QStringLiteral("-c"), QStringLiteral("exec \"$0\" replay \"$1\" >/dev/full"),
                 QStringLiteral(TESSEL_TOOL), former.path()});
    QVERIFY(shell.waitForFinished(60000));

    QCOMPARE(QString::fromUtf8(shell.readAllStandardError()),
             QStringLiteral("tessel: standard output: No space left on device\n"));
    QCOMPARE(shell.exitCode(), 9);
}

QTEST_GUILESS_MAIN(tst_ToolReplay)
#include "tst_ToolReplay.moc"
