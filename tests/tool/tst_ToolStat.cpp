#include "PacedPublisher.h"
#include "PseudoTerminal.h"
#include "support/LogCapture.h"

#include <QtTest>

#include <chrono>
#include <memory>

namespace {

using Clock = std::chrono::steady_clock;

QStringList statOf(const DoctoredPlant &plant, const QStringList &options = {})
{
    return QStringList{QStringLiteral("stat"), QStringLiteral("--for"), QStringLiteral("1h")}
           + options + QStringList{plant.file};
}

QJsonObject objectOf(const ToolResult &result)
{
    return QJsonDocument::fromJson(result.output.toUtf8()).object();
}

int numberIn(const QJsonObject &object, const char *name)
{
    return object.value(QLatin1String(name)).toInt(-1);
}

} // namespace

/// `tessel stat` beside a publisher.
class tst_ToolStat : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void everySetIsCounted();
    void setsBetweenTwoWakesAreMissed();
    void setInTheMidstOfAReadIsARepeat();
    void publisherThatIsSilentHasNoIntervals();
    void plainOutputHasAHistogram();
    void terminalGetsABarOfBlocks();
    void somebodyWhoWaitsForTheLockIsSeen();
    void interruptPrintsWhatWasSeen_data();
    void interruptPrintsWhatWasSeen();
    void timeEndsIt();
    void regionThatIsRemovedEndsItWithWhatWasSeen();
    void regionThatIsReplacedEndsItWithWhatWasSeen();
    void regionThatIsReplacedJustBeforeTheEndIsTold();
    void missingRegionIsNotFound();
    void missingDescriptorIsTold();
    void singleBufferHasNoSets();
    void environmentNamesTheDescription();
    void wrongUse_data();
    void wrongUse();
    void closedPipeIsNoFailure();
    void fullOutputIsAFailure();
};

void tst_ToolStat::everySetIsCounted()
{
    const DoctoredPlant plant;
    const LogCapture log;
    PacedPublisher publisher(plant);
    QVERIFY(publisher.isReady());
    ToolProcess stat(statOf(plant, {QStringLiteral("--json")}));
    constexpr int sets = 20;
    for (int i = 0; i < sets; ++i) {
        QVERIFY(publisher.publishToASleeper());
    }
    QVERIFY(publisher.waitUntilSomebodySleeps());
    stat.signal(SIGINT);

    const ToolResult result = stat.finish();

    QCOMPARE(result.error, QString());
    QCOMPARE(result.exitCode, 0);
    const QJsonObject object = objectOf(result);
    QCOMPARE(object.value(QStringLiteral("key")).toString(), plant.key());
    QCOMPARE(numberIn(object, "sets"), sets);
    QCOMPARE(numberIn(object, "wakes"), sets);
    QCOMPARE(numberIn(object, "missed"), 0);
    QCOMPARE(numberIn(object, "reads"), sets);
    QCOMPARE(numberIn(object, "repeats"), 0);
    QCOMPARE(numberIn(object, "waits"), 0);
    QVERIFY(numberIn(object, "looks") >= 1);
    const double least = object.value(QStringLiteral("intervalMin")).toDouble(-1);
    const double median = object.value(QStringLiteral("intervalMedian")).toDouble(-1);
    const double most = object.value(QStringLiteral("intervalMax")).toDouble(-1);
    QVERIFY(0 <= least && least <= median && median <= most);
    // The seconds are rounded to milliseconds.
    QVERIFY(most <= 1000 * object.value(QStringLiteral("seconds")).toDouble() + 1);
    int drawn = 0;
    const QJsonArray bars = object.value(QStringLiteral("histogram")).toArray();
    for (const auto &bar : bars) {
        drawn += numberIn(bar.toObject(), "count");
    }
    QCOMPARE(drawn, sets - 1);
}

void tst_ToolStat::setsBetweenTwoWakesAreMissed()
{
    const DoctoredPlant plant;
    const LogCapture log;
    PacedPublisher publisher(plant);
    ToolProcess stat(statOf(plant, {QStringLiteral("--json")}));
    QVERIFY(publisher.waitUntilSomebodySleeps());
    stat.signal(SIGSTOP);
    QVERIFY(waitUntil([&stat] { return processState(static_cast<pid_t>(stat.pid())) == 'T'; }));
    constexpr int sets = 5;
    for (int i = 0; i < sets; ++i) {
        QVERIFY(publisher.publish());
    }
    stat.signal(SIGCONT);
    QVERIFY(publisher.waitUntilSomebodySleeps());
    stat.signal(SIGINT);

    const QJsonObject object = objectOf(stat.finish());

    QCOMPARE(numberIn(object, "sets"), sets);
    QCOMPARE(numberIn(object, "wakes"), 1);
    QCOMPARE(numberIn(object, "missed"), sets - 1);
}

void tst_ToolStat::setInTheMidstOfAReadIsARepeat()
{
    DoctoredPlant plant;
    // To copy it takes longer than to publish.
    constexpr int bytes = 8 * 1024 * 1024;
    plant.description().add(QStringLiteral("pump/log"), QStringLiteral("string"),
                            ToolDescription::Metadata::None, bytes);
    plant.description().write();
    const LogCapture log;
    PacedPublisher publisher(plant);
    int reads = 0;
    int repeats = 0;

    // As often as it takes until a set comes into the midst of a read.
    QVERIFY(waitUntil([&] {
        ToolProcess stat(statOf(plant, {QStringLiteral("--json")}));
        constexpr int sets = 100;
        for (int i = 0; i < sets; ++i) {
            if (!(i == 0 ? publisher.publishToASleeper() : publisher.publish())) {
                return false;
            }
        }
        stat.signal(SIGINT);
        const QJsonObject object = objectOf(stat.finish());
        reads = numberIn(object, "reads");
        repeats = numberIn(object, "repeats");
        return repeats != 0;
    }));

    QVERIFY2(0 < repeats && repeats <= reads,
             qPrintable(QStringLiteral("%1 of %2").arg(repeats).arg(reads)));
}

void tst_ToolStat::publisherThatIsSilentHasNoIntervals()
{
    const DoctoredPlant plant;
    const LogCapture log;
    PacedPublisher publisher(plant);
    QVERIFY(publisher.publish());

    const ToolResult result = runTool({QStringLiteral("stat"), QStringLiteral("--for"),
                                       QStringLiteral("1ms"), QStringLiteral("--json"),
                                       plant.file});

    QCOMPARE(result.exitCode, 0);
    const QJsonObject object = objectOf(result);
    QCOMPARE(numberIn(object, "sets"), 0);
    QCOMPARE(object.value(QStringLiteral("intervalMin")), QJsonValue(QJsonValue::Null));
    QCOMPARE(object.value(QStringLiteral("histogram")).toArray(), QJsonArray());
}

void tst_ToolStat::plainOutputHasAHistogram()
{
    const DoctoredPlant plant;
    const LogCapture log;
    PacedPublisher publisher(plant);
    ToolProcess stat(statOf(plant));
    constexpr int sets = 3;
    for (int i = 0; i < sets; ++i) {
        QVERIFY(publisher.publishToASleeper());
    }
    QVERIFY(publisher.waitUntilSomebodySleeps());
    stat.signal(SIGTERM);

    const QStringList lines = stat.finish().output.split(QLatin1Char('\n'));

    QVERIFY(lines[0].startsWith(QStringLiteral("%1: 3 sets in ").arg(plant.key())));
    QVERIFY(lines[1].startsWith(QStringLiteral("Interval  min ")));
    QCOMPARE(lines[2], QStringLiteral("Missed    0 in 3 wakes"));
    QCOMPARE(lines[3], QStringLiteral("Repeats   0 in 3 reads"));
    QVERIFY(lines[4].startsWith(QStringLiteral("Waits     0 in ")));
    QCOMPARE(lines[5], QString());
    QVERIFY(lines[6].contains(QStringLiteral(" ms ")) && lines[6].endsWith(QLatin1Char('#')));
}

void tst_ToolStat::terminalGetsABarOfBlocks()
{
    const DoctoredPlant plant;
    const LogCapture log;
    PacedPublisher publisher(plant);
    PseudoTerminal terminal(statOf(plant), 24, 60, {QStringLiteral("TERM=xterm")});
    for (int i = 0; i < 3; ++i) {
        QVERIFY(publisher.publishToASleeper());
    }
    QVERIFY(publisher.waitUntilSomebodySleeps());
    QVERIFY(terminal.readUntil("Missed    0 in 3 wakes"));
    QVERIFY(terminal.readUntil("\u2588"));
    terminal.type("\x03");

    QCOMPARE(terminal.finish(), 0);
    QVERIFY(!terminal.shown().contains('#'));
}

void tst_ToolStat::somebodyWhoWaitsForTheLockIsSeen()
{
    const DoctoredPlant plant;
    const LogCapture log;
    PacedPublisher publisher(plant);
    ToolProcess stat(statOf(plant, {QStringLiteral("--json")}));
    QVERIFY(publisher.waitUntilSomebodySleeps());
    QVERIFY(publisher.region().manager().lockWriteBuffer());
    ToolProcess waiting({QStringLiteral("set"), plant.file, plant.url, QStringLiteral("5")});

    // It gives up behind five seconds; in between the tool looks every tenth of one.
    QCOMPARE(waiting.finish().exitCode, 6);
    QVERIFY(publisher.region().manager().unlockWriteBuffer());
    stat.signal(SIGINT);

    QVERIFY(numberIn(objectOf(stat.finish()), "waits") >= 1);
}

void tst_ToolStat::interruptPrintsWhatWasSeen_data()
{
    QTest::addColumn<int>("signal");
    QTest::newRow("SIGINT") << SIGINT;
    QTest::newRow("SIGTERM") << SIGTERM;
    QTest::newRow("SIGHUP") << SIGHUP;
}

void tst_ToolStat::interruptPrintsWhatWasSeen()
{
    QFETCH(int, signal);
    const DoctoredPlant plant;
    const LogCapture log;
    PacedPublisher publisher(plant);
    ToolProcess stat(statOf(plant));
    QVERIFY(publisher.publishToASleeper());
    QVERIFY(publisher.waitUntilSomebodySleeps());
    stat.signal(signal);

    const ToolResult result = stat.finish();

    QVERIFY(result.output.startsWith(QStringLiteral("%1: 1 set in ").arg(plant.key())));
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolStat::timeEndsIt()
{
    const DoctoredPlant plant;
    const LogCapture log;
    const PacedPublisher publisher(plant);
    const Clock::time_point begin = Clock::now();

    const ToolResult result = runTool({QStringLiteral("stat"), QStringLiteral("--for=300ms"),
                                       QStringLiteral("--json"), plant.file});

    QCOMPARE(result.exitCode, 0);
    QVERIFY(Clock::now() - begin >= std::chrono::milliseconds(300));
    QVERIFY(objectOf(result).value(QStringLiteral("seconds")).toDouble() >= 0.3);
}

void tst_ToolStat::regionThatIsRemovedEndsItWithWhatWasSeen()
{
    const DoctoredPlant plant;
    const LogCapture log;
    auto publisher = std::make_unique<PacedPublisher>(plant);
    ToolProcess stat(statOf(plant));
    QVERIFY(publisher->publishToASleeper());
    QVERIFY(publisher->waitUntilSomebodySleeps());

    publisher.reset();

    const ToolResult result = stat.finish();
    QVERIFY(result.output.startsWith(QStringLiteral("%1: 1 set in ").arg(plant.key())));
    QVERIFY(result.error.startsWith(
        QStringLiteral("tessel: %1: the region '%2' ").arg(plant.file, plant.key())));
    QCOMPARE(result.exitCode, 3);
}

void tst_ToolStat::regionThatIsReplacedEndsItWithWhatWasSeen()
{
    const DoctoredPlant plant;
    const LogCapture log;
    PacedPublisher publisher(plant);
    ToolProcess stat(statOf(plant));
    QVERIFY(publisher.publishToASleeper());
    QVERIFY(publisher.waitUntilSomebodySleeps());

    const HeldRegion later(plant.file);

    const ToolResult result = stat.finish();
    QVERIFY(result.output.startsWith(QStringLiteral("%1: 1 set in ").arg(plant.key())));
    QCOMPARE(result.error, QStringLiteral("tessel: %1: the region '%2' was replaced by a new one; "
                                          "start again\n")
                               .arg(plant.file, plant.key()));
    QCOMPARE(result.exitCode, 8);
}

void tst_ToolStat::regionThatIsReplacedJustBeforeTheEndIsTold()
{
    const DoctoredPlant plant;
    const LogCapture log;
    PacedPublisher publisher(plant);
    ToolProcess stat(statOf(plant));
    QVERIFY(publisher.publishToASleeper());
    QVERIFY(publisher.waitUntilSomebodySleeps());
    stat.signal(SIGSTOP);
    QVERIFY(waitUntil([&stat] { return processState(static_cast<pid_t>(stat.pid())) == 'T'; }));

    const HeldRegion later(plant.file);
    stat.signal(SIGINT);
    stat.signal(SIGCONT);

    const ToolResult result = stat.finish();
    QVERIFY(result.output.startsWith(QStringLiteral("%1: 1 set in ").arg(plant.key())));
    QCOMPARE(result.error, QStringLiteral("tessel: %1: the region '%2' was replaced by a new one; "
                                          "start again\n")
                               .arg(plant.file, plant.key()));
    QCOMPARE(result.exitCode, 8);
}

void tst_ToolStat::missingRegionIsNotFound()
{
    const DoctoredPlant plant;

    const ToolResult result = runTool(statOf(plant));

    QCOMPARE(result.exitCode, 3);
    QCOMPARE(result.output, QString());
    QVERIFY(result.error.startsWith(QStringLiteral("tessel: %1: ").arg(plant.file)));
}

/// How many the loader and the toolkit take is their own affair.
void tst_ToolStat::missingDescriptorIsTold()
{
    if (qstrlen(TESSEL_SANITIZE) > 0) {
        QSKIP("needs all descriptors, and the sanitizers take some to look at memory", );
    }
    const DoctoredPlant plant;
    RunningTool hold(RunningTool::hold(plant.file));
    QVERIFY(hold.isReady());
    const QString refusal =
        QStringLiteral("tessel: %1: cannot attach to region '%2': ").arg(plant.file, plant.key());
    constexpr int fewest = 4;
    constexpr int enough = 64;
    bool isTold = false;
    int exitCode = -1;
    for (int limit = fewest; limit <= enough && exitCode != 0; ++limit) {
        QProcess shell;
        shell.start(QStringLiteral("/bin/sh"),
                    {QStringLiteral("-c"),
                     QStringLiteral("ulimit -n %1; exec \"$0\" stat --for 1ms \"$1\"").arg(limit),
                     QStringLiteral(TESSEL_TOOL), plant.file});
        QVERIFY(shell.waitForFinished(60000));
        exitCode = shell.exitCode();
        const QString error = QString::fromUtf8(shell.readAllStandardError());
        // Not even the loader may have found enough of them.
        QVERIFY2(exitCode != 10, qPrintable(error));
        isTold = isTold
                 || (exitCode == 4 && error.startsWith(refusal)
                     && error.contains(QStringLiteral("Too many open files")));
    }

    QVERIFY(isTold);
    QCOMPARE(exitCode, 0);
    QCOMPARE(hold.end(), 0);
}

void tst_ToolStat::singleBufferHasNoSets()
{
    DoctoredPlant plant;
    plant.description().setRoot(QStringLiteral("doubleBuffer"), false);
    plant.description().write();

    const ToolResult result = runTool(statOf(plant));

    QCOMPARE(result.exitCode, 2);
    QCOMPARE(result.error, QStringLiteral("tessel: stat: '%1' describes a single buffer, which "
                                          "counts no sets; see 'tessel stat --help'\n")
                               .arg(plant.file));
}

void tst_ToolStat::environmentNamesTheDescription()
{
    const DoctoredPlant plant;
    const LogCapture log;
    const PacedPublisher publisher(plant);

    const ToolResult result = runTool({QStringLiteral("stat"), QStringLiteral("--for=1.5ms")},
                                      {QStringLiteral("TESSEL_DIR=") + plant.file});

    QVERIFY(result.output.startsWith(plant.key() + QStringLiteral(": 0 sets in ")));
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolStat::wrongUse_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("error");
    const QString file = QStringLiteral("nowhere/plant.process.json");
    const auto time = [&file](const char *text) {
        return QStringList{QStringLiteral("--for"), QString::fromLatin1(text), file};
    };
    const QString timeError = QStringLiteral(
        "tessel: stat: --for takes a time such as 500ms, 10s, 5min or 1h, up to "
        "24h, not '%1'; see 'tessel stat --help'\n");
    QTest::newRow("no file") << QStringList() << 2
                             << QStringLiteral("tessel: stat: FILE is missing; see 'tessel stat "
                                               "--help'\n");
    QTest::newRow("two files") << QStringList{file, file} << 2
                               << QStringLiteral("tessel: stat: '%1' is one argument too many; "
                                                 "see 'tessel stat --help'\n")
                                      .arg(file);
    QTest::newRow("option") << QStringList{QStringLiteral("--fro=1s"), file} << 2
                            << QStringLiteral("tessel: stat: unknown option '--fro' (did you mean "
                                              "'--for'?); see 'tessel stat --help'\n");
    for (const char *text : {"soon", "0s", "-1s", "10sec", "25h", "0.5ms", "99999999999s"}) {
        QTest::newRow(text) << time(text) << 2 << timeError.arg(QLatin1String(text));
    }
    QTest::newRow("no such file") << QStringList{file} << 3
                                  << QStringLiteral("tessel: %1: no such file\n").arg(file);
}

void tst_ToolStat::wrongUse()
{
    QFETCH(QStringList, arguments);
    QFETCH(int, exitCode);
    QFETCH(QString, error);

    const ToolResult result = runTool(QStringList(QStringLiteral("stat")) + arguments);

    QCOMPARE(result.error, error);
    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, exitCode);
}

void tst_ToolStat::closedPipeIsNoFailure()
{
    const DoctoredPlant plant;
    const LogCapture log;
    const PacedPublisher publisher(plant);

    QCOMPARE(
        exitCodeWithoutReader({QStringLiteral("stat"), QStringLiteral("--for=1ms"), plant.file}),
        0);
}

void tst_ToolStat::fullOutputIsAFailure()
{
    const DoctoredPlant plant;
    const LogCapture log;
    const PacedPublisher publisher(plant);
    QProcess shell;
    shell.start(QStringLiteral("/bin/sh"),
                {QStringLiteral("-c"),
                 QStringLiteral("exec \"$0\" stat --for=1ms \"$1\" >/dev/full"),
                 QStringLiteral(TESSEL_TOOL), plant.file});
    QVERIFY(shell.waitForFinished(60000));

    QCOMPARE(QString::fromUtf8(shell.readAllStandardError()),
             QStringLiteral("tessel: standard output: No space left on device\n"));
    QCOMPARE(shell.exitCode(), 9);
}

QTEST_GUILESS_MAIN(tst_ToolStat)
#include "tst_ToolStat.moc"
