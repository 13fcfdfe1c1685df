#include "RecordedPlant.h"

#include <QtTest>

#include <memory>

namespace {

QJsonObject objectOf(const ToolResult &result)
{
    return QJsonDocument::fromJson(result.output.toUtf8()).object();
}

int numberIn(const QJsonObject &object, const char *name)
{
    return object.value(QLatin1String(name)).toInt(-1);
}

} // namespace

/// `tessel record` beside a publisher: what it records, and how it ends.
class tst_ToolRecord : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void everySetIsRecorded();
    void statesAreRecorded();
    void setsThatCameMeanwhileAreDroppedAsAWhole();
    void killedRecorderLeavesWhatItHad();
    void interruptEndsItInOrder_data();
    void interruptEndsItInOrder();
    void reportForPrograms();
    void setsEndIt();
    void timeEndsIt();
    void setThatIsThereIsRecordedInTheShortestTime();
    void setBeforeTheSignalIsRecorded();
    void intervalPassesSetsOver();
    void valuesAreThoseOfThePatterns();
    void textWithoutBytesIsNotRecorded();
    void folderIsCarriedAsOneDescription();
    void regionThatIsRemovedEndsIt();
    void regionThatIsReplacedEndsIt();
    void regionThatIsReplacedJustBeforeTheEndIsTold();
    void missingRegionIsNotFound();
    void singleBufferHasNoSets();
    void environmentNamesTheDescription();
    void closedPipeIsNoFailure();
    void fullOutputIsAFailure();
};

void tst_ToolRecord::everySetIsRecorded()
{
    RecordedPlant recorded;
    QVERIFY(recorded.publisher.isReady());
    ToolProcess recorder(recorded.record());
    QVERIFY(recorded.isBegun(recorder));
    QStringList expected{QString()};
    for (int i = 1; i <= 10; ++i) {
        QVERIFY(recorded.publisher.publishTo(recorder.pid(), validValue(i / 2)));
        expected.append(QString::number(i / 2));
    }
    recorder.signal(SIGINT);

    const ToolResult result = recorder.finish();

    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.output, QString());
    QCOMPARE(result.error,
             QStringLiteral("tessel: note: recorded 11 sets of 1 value, 0 dropped, %1 "
                            "bytes, in %2\n")
                 .arg(fileBytes(recorded.path()).size())
                 .arg(recorded.path()));
    QCOMPARE(valuesOf(recorded.path()), expected);
    QCOMPARE(columnOf(recorded.path(), QStringLiteral("generation")).constFirst(),
             QStringLiteral("1"));
    QCOMPARE(columnOf(recorded.path(), QStringLiteral("generation")).constLast(),
             QStringLiteral("11"));
}

void tst_ToolRecord::statesAreRecorded()
{
    RecordedPlant recorded;
    ToolProcess recorder(recorded.record());
    QVERIFY(recorded.isBegun(recorder));
    QVERIFY(recorded.publisher.publishTo(recorder.pid(), validValue(5)));
    QVERIFY(recorded.publisher.publishTo(
        recorder.pid(), stateValue(ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_OVERRANGE)));
    QVERIFY(recorded.publisher.publishTo(recorder.pid(), validValue(5)));
    recorder.signal(SIGINT);

    QCOMPARE(recorder.finish().exitCode, 0);

    QCOMPARE(columnOf(recorded.path(), QStringLiteral("pump/speed state")),
             (QStringList{QStringLiteral("no-input"), QStringLiteral("valid"),
                          QStringLiteral("overrange"), QStringLiteral("valid")}));
    QCOMPARE(valuesOf(recorded.path()),
             (QStringList{{}, QStringLiteral("5"), {}, QStringLiteral("5")}));
}

void tst_ToolRecord::setsThatCameMeanwhileAreDroppedAsAWhole()
{
    RecordedPlant recorded;
    ToolProcess recorder(recorded.record({QStringLiteral("--json")}));
    QVERIFY(recorded.isBegun(recorder));
    recorder.signal(SIGSTOP);
    QVERIFY(waitUntil([&] { return processState(static_cast<pid_t>(recorder.pid())) == 'T'; }));
    for (int i = 0; i < 5; ++i) {
        QVERIFY(recorded.publisher.publish());
    }
    recorder.signal(SIGCONT);
    QVERIFY(recorded.publisher.waitUntilDone(recorder.pid()));
    recorder.signal(SIGINT);

    const ToolResult result = recorder.finish();

    QCOMPARE(numberIn(objectOf(result), "sets"), 2);
    QCOMPARE(numberIn(objectOf(result), "dropped"), 4);
    QCOMPARE(result.error, QStringLiteral("tessel: note: dropped 4 sets up to generation 6, 4 so "
                                          "far\n"));
    QCOMPARE(columnOf(recorded.path(), QStringLiteral("dropped")),
             (QStringList{QStringLiteral("0"), QStringLiteral("4")}));
    QCOMPARE(valuesOf(recorded.path()), (QStringList{{}, QStringLiteral("5")}));
}

void tst_ToolRecord::killedRecorderLeavesWhatItHad()
{
    RecordedPlant recorded;
    ToolProcess recorder(recorded.record());
    QVERIFY(recorded.isBegun(recorder));
    QVERIFY(recorded.publisher.publishTo(recorder.pid(), validValue(1)));
    QVERIFY(recorded.publisher.publishTo(recorder.pid(), validValue(2)));
    recorder.signal(SIGKILL);
    QCOMPARE(recorder.finish().exitCode, -1);

    QCOMPARE(valuesOf(recorded.path()),
             (QStringList{{}, QStringLiteral("1"), QStringLiteral("2")}));
}

void tst_ToolRecord::interruptEndsItInOrder_data()
{
    QTest::addColumn<int>("signal");
    QTest::newRow("SIGINT") << SIGINT;
    QTest::newRow("SIGTERM") << SIGTERM;
    QTest::newRow("SIGHUP") << SIGHUP;
}

void tst_ToolRecord::interruptEndsItInOrder()
{
    QFETCH(int, signal);
    const RecordedPlant recorded;
    ToolProcess recorder(recorded.record());
    QVERIFY(recorded.isBegun(recorder));
    recorder.signal(signal);

    const ToolResult result = recorder.finish();

    QCOMPARE(result.exitCode, 0);
    QVERIFY(result.error.startsWith(QStringLiteral("tessel: note: recorded 1 set of 1 value, ")));
    QVERIFY(fileBytes(recorded.path()).contains("\"reason\":\"interrupted\""));
}

void tst_ToolRecord::reportForPrograms()
{
    const RecordedPlant recorded;

    const ToolResult result = runTool(
        recorded.record({QStringLiteral("--json"), QStringLiteral("--sets=1")}));

    const QJsonObject report = objectOf(result);
    QCOMPARE(result.error, QString());
    QCOMPARE(report.keys(), (QStringList{QStringLiteral("bytes"), QStringLiteral("dropped"),
                                         QStringLiteral("file"), QStringLiteral("key"),
                                         QStringLiteral("seconds"), QStringLiteral("sets"),
                                         QStringLiteral("triggers"), QStringLiteral("values")}));
    QCOMPARE(report.value(QStringLiteral("file")).toString(), recorded.path());
    QCOMPARE(report.value(QStringLiteral("key")).toString(), recorded.plant.key());
    QCOMPARE(numberIn(report, "bytes"), fileBytes(recorded.path()).size());
    QCOMPARE(numberIn(report, "sets"), 1);
    QCOMPARE(numberIn(report, "values"), 1);
    QCOMPARE(numberIn(report, "triggers"), 0);
}

void tst_ToolRecord::setsEndIt()
{
    RecordedPlant recorded;
    ToolProcess recorder(recorded.record({QStringLiteral("--sets"), QStringLiteral("3")}));
    QVERIFY(recorded.isBegun(recorder));
    QVERIFY(recorded.publisher.publishTo(recorder.pid(), validValue(1)));
    QVERIFY(recorded.publisher.publish(validValue(2)));

    QCOMPARE(recorder.finish().exitCode, 0);
    QCOMPARE(valuesOf(recorded.path()),
             (QStringList{{}, QStringLiteral("1"), QStringLiteral("2")}));
}

void tst_ToolRecord::timeEndsIt()
{
    const RecordedPlant recorded;
    const auto begin = std::chrono::steady_clock::now();

    QCOMPARE(runTool(recorded.record({QStringLiteral("--for=200ms")})).exitCode, 0);

    QVERIFY(std::chrono::steady_clock::now() - begin >= std::chrono::milliseconds(200));
    QCOMPARE(valuesOf(recorded.path()), QStringList{QString()});
}

/// It takes longer to hear of the first set than it lasts.
void tst_ToolRecord::setThatIsThereIsRecordedInTheShortestTime()
{
    RecordedPlant recorded;
    QVERIFY(recorded.publisher.publish(validValue(7)));

    for (int i = 0; i < 5; ++i) {
        QCOMPARE(runTool(recorded.record({QStringLiteral("--for=1ms"), QStringLiteral("--force")}))
                     .exitCode,
                 0);
        QCOMPARE(valuesOf(recorded.path()), QStringList{QStringLiteral("7")});
    }
}

/// Both are there when it goes on, and the signal is looked at first.
void tst_ToolRecord::setBeforeTheSignalIsRecorded()
{
    RecordedPlant recorded;
    ToolProcess recorder(recorded.record({QStringLiteral("--json")}));
    QVERIFY(recorded.isBegun(recorder));
    recorder.signal(SIGSTOP);
    QVERIFY(waitUntil([&] { return processState(static_cast<pid_t>(recorder.pid())) == 'T'; }));
    for (int i = 0; i < 3; ++i) {
        QVERIFY(recorded.publisher.publish());
    }
    recorder.signal(SIGINT);
    recorder.signal(SIGCONT);

    const ToolResult result = recorder.finish();

    QCOMPARE(valuesOf(recorded.path()), (QStringList{{}, QStringLiteral("3")}));
    QCOMPARE(numberIn(objectOf(result), "sets"), 2);
    QCOMPARE(numberIn(objectOf(result), "dropped"), 2);
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolRecord::intervalPassesSetsOver()
{
    RecordedPlant recorded;
    for (int i = 0; i < 5; ++i) {
        QVERIFY(recorded.publisher.publish());
    }
    // The second set would come behind an hour.
    ToolProcess recorder(
        recorded.record({QStringLiteral("--interval=1h"), QStringLiteral("--for=300ms")}));
    QVERIFY(waitUntil([&] { return !valuesOf(recorded.path()).isEmpty(); }));
    for (int i = 0; i < 5; ++i) {
        QVERIFY(recorded.publisher.publish());
    }

    const ToolResult result = recorder.finish();

    QCOMPARE(valuesOf(recorded.path()), QStringList{QStringLiteral("5")});
    QVERIFY(result.error.contains(QStringLiteral(" 0 dropped, ")));
}

void tst_ToolRecord::valuesAreThoseOfThePatterns()
{
    ToolDescription description;
    for (const char *url : {"pump/speed", "pump/level", "valve/open"}) {
        description.add(QString::fromLatin1(url), QStringLiteral("int32"),
                        ToolDescription::Metadata::ErrorState, 4);
    }
    const QString file = description.write();
    const LogCapture log;
    const HeldRegion region(file);
    const QString out = description.path(QStringLiteral("some.rec"));

    const ToolResult result = runTool({QStringLiteral("record"), file, QStringLiteral("pump/*"),
                                       QStringLiteral("**/speed"), QStringLiteral("-o"), out,
                                       QStringLiteral("--sets=1")});

    QCOMPARE(result.exitCode, 0);
    QVERIFY(runTool({QStringLiteral("export"), out})
                .output.startsWith(QStringLiteral(
                    "time,elapsed,generation,dropped,run,trigger,pump/speed,pump/speed state,"
                    "pump/level,pump/level state\n")));
}

/// Nothing reads a recording of it.
void tst_ToolRecord::textWithoutBytesIsNotRecorded()
{
    RecordedPlant recorded;
    DoctoredPlant plant;
    plant.description().add(QStringLiteral("pump/name"), QStringLiteral("string"),
                            ToolDescription::Metadata::None, 0);
    plant.description().write();
    const HeldRegion region(plant.file);
    const QStringList record{QStringLiteral("record"), plant.file, QStringLiteral("--sets=1"),
                             QStringLiteral("-o"), recorded.path()};

    const ToolResult named = runTool(record + QStringList{QStringLiteral("pump/name")});
    QCOMPARE(named.error,
             QStringLiteral("tessel: %1: 'pump/name' has no usable slot: a text of 0 bytes\n")
                 .arg(plant.file));
    QCOMPARE(named.exitCode, 9);
    QVERIFY(!QFile::exists(recorded.path()));

    const ToolResult all = runTool(record);
    QVERIFY2(all.error.startsWith(
                 QStringLiteral("tessel: note: 'pump/name' of %1 is left out: a text of 0 bytes\n")
                     .arg(plant.file)),
             qPrintable(all.error));
    QCOMPARE(all.exitCode, 0);
    QCOMPARE(valuesOf(recorded.path()), QStringList{QString()});
}

void tst_ToolRecord::folderIsCarriedAsOneDescription()
{
    DoctoredPlant plant;
    const QTemporaryDir folder;
    QVERIFY(QFile::copy(plant.file, folder.filePath(QStringLiteral("line.process.json"))));
    const LogCapture log;
    ToolProcess hold(
        {QStringLiteral("hold"), QStringLiteral("--prefix"), plant.key(), folder.path()});
    const QString held = hold.nextLine();
    QVERIFY(held.startsWith(QStringLiteral("holding")));
    const QString out = plant.description().path(QStringLiteral("folder.rec"));
    const ToolResult result = runTool({QStringLiteral("record"), folder.path(),
                                       QStringLiteral("-o"), out, QStringLiteral("--sets=1")});
    hold.signal(SIGTERM);
    hold.finish();

    QVERIFY2(result.exitCode == 0, qPrintable(result.error));
    QVERIFY(runTool({QStringLiteral("export"), out})
                .output.contains(QStringLiteral(",line/pump/speed,")));
    QCOMPARE(runTool({QStringLiteral("replay"), out}).exitCode, 0);
}

void tst_ToolRecord::regionThatIsRemovedEndsIt()
{
    const DoctoredPlant plant;
    const LogCapture log;
    auto publisher = std::make_unique<PacedPublisher>(plant);
    const QTemporaryDir folder;
    const QString out = folder.filePath(QStringLiteral("plant.rec"));
    ToolProcess recorder({QStringLiteral("record"), plant.file, QStringLiteral("-o"), out});
    QVERIFY(publisher->waitUntilDone(recorder.pid()));

    publisher.reset();

    const ToolResult result = recorder.finish();
    QCOMPARE(result.exitCode, 3);
    QVERIFY(result.error.startsWith(QStringLiteral("tessel: note: recorded 1 set ")));
    QCOMPARE(valuesOf(out), QStringList{QString()});
}

void tst_ToolRecord::regionThatIsReplacedEndsIt()
{
    const RecordedPlant recorded;
    ToolProcess recorder(recorded.record());
    QVERIFY(recorded.isBegun(recorder));

    const HeldRegion later(recorded.plant.file);

    const ToolResult result = recorder.finish();
    QCOMPARE(result.exitCode, 8);
    QVERIFY(result.error.endsWith(
        QStringLiteral("tessel: %1: the region '%2' was replaced by a new one; start again\n")
            .arg(recorded.plant.file, recorded.plant.key())));
    QCOMPARE(valuesOf(recorded.path()), QStringList{QString()});
}

void tst_ToolRecord::regionThatIsReplacedJustBeforeTheEndIsTold()
{
    const RecordedPlant recorded;
    ToolProcess recorder(recorded.record());
    QVERIFY(recorded.isBegun(recorder));
    recorder.signal(SIGSTOP);
    QVERIFY(waitUntil([&] { return processState(static_cast<pid_t>(recorder.pid())) == 'T'; }));

    const HeldRegion later(recorded.plant.file);
    recorder.signal(SIGINT);
    recorder.signal(SIGCONT);

    const ToolResult result = recorder.finish();
    QCOMPARE(result.exitCode, 8);
    QVERIFY(result.error.endsWith(
        QStringLiteral("tessel: %1: the region '%2' was replaced by a new one; start again\n")
            .arg(recorded.plant.file, recorded.plant.key())));
    QVERIFY(fileBytes(recorded.path()).contains("\"reason\":\"region gone\""));
    QCOMPARE(valuesOf(recorded.path()), QStringList{QString()});
}

void tst_ToolRecord::missingRegionIsNotFound()
{
    const DoctoredPlant plant;
    const QTemporaryDir folder;
    const QString out = folder.filePath(QStringLiteral("plant.rec"));

    const ToolResult result = runTool(
        {QStringLiteral("record"), plant.file, QStringLiteral("-o"), out});

    QCOMPARE(result.exitCode, 3);
    QVERIFY(result.error.startsWith(QStringLiteral("tessel: %1: no region ").arg(plant.file)));
    QVERIFY(!QFile::exists(out));
}

void tst_ToolRecord::singleBufferHasNoSets()
{
    DoctoredPlant plant;
    plant.description().setRoot(QStringLiteral("doubleBuffer"), false);
    plant.description().write();
    const QTemporaryDir folder;

    const ToolResult result = runTool({QStringLiteral("record"), plant.file, QStringLiteral("-o"),
                                       folder.filePath(QStringLiteral("plant.rec"))});

    QCOMPARE(result.exitCode, 2);
    QCOMPARE(result.error, QStringLiteral("tessel: record: '%1' describes a single buffer, which "
                                          "counts no sets; see 'tessel record --help'\n")
                               .arg(plant.file));
}

void tst_ToolRecord::environmentNamesTheDescription()
{
    const RecordedPlant recorded;

    const ToolResult result = runTool({QStringLiteral("record"), QStringLiteral("pump"),
                                       QStringLiteral("-o"), recorded.path(),
                                       QStringLiteral("--sets=1")},
                                      {QStringLiteral("TESSEL_DIR=") + recorded.plant.file});

    QVERIFY2(result.exitCode == 0, qPrintable(result.error));
    QCOMPARE(valuesOf(recorded.path()), QStringList{QString()});
}

void tst_ToolRecord::closedPipeIsNoFailure()
{
    const RecordedPlant recorded;

    QCOMPARE(exitCodeWithoutReader(
                 recorded.record({QStringLiteral("--json"), QStringLiteral("--sets=1")})),
             0);
    QCOMPARE(valuesOf(recorded.path()), QStringList{QString()});
}

void tst_ToolRecord::fullOutputIsAFailure()
{
    const RecordedPlant recorded;
    QProcess shell;
    shell.start(QStringLiteral("/bin/sh"),
                {QStringLiteral("-c"),
                 QStringLiteral("exec \"$0\" record --json --sets=1 -o \"$2\" \"$1\" >/dev/full"),
                 QStringLiteral(TESSEL_TOOL), recorded.plant.file, recorded.path()});
    QVERIFY(shell.waitForFinished(60000));

    QCOMPARE(QString::fromUtf8(shell.readAllStandardError()),
             QStringLiteral("tessel: standard output: No space left on device\n"));
    QCOMPARE(shell.exitCode(), 9);
    QCOMPARE(valuesOf(recorded.path()), QStringList{QString()});
}

QTEST_GUILESS_MAIN(tst_ToolRecord)
#include "tst_ToolRecord.moc"
