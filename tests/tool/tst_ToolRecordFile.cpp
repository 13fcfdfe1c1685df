#include "RecordedPlant.h"
#include "ToolFolder.h"

#include <QtTest>

namespace {

const QStringList oneSet{QStringLiteral("--sets=1")};

bool writeFile(const QString &path, const QByteArray &text)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(text) == text.size();
}

} // namespace

/// `tessel record`: the file that it writes, and what it refuses.
class tst_ToolRecordFile : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void recordingThatIsThereStays();
    void forceReplacesARecording();
    void appendGoesOnBehindAKilledRecorder();
    void appendRefusesOtherValues();
    void appendRefusesAnotherRegionUnitOrInterval_data();
    void appendRefusesAnotherRegionUnitOrInterval();
    void otherFilesAreNeverReplaced_data();
    void otherFilesAreNeverReplaced();
    void emptyFileIsFilled();
    void secondRecorderIsRefused();
    void fullDiskLeavesAReadableFile();
    void diskThatIsFullAtOnceLeavesAnEmptyFile();
    void fileThatSomebodyTakesAwayIsTold_data();
    void fileThatSomebodyTakesAwayIsTold();
    void folderWithoutPermissionIsRefused();
    void unknownUrlIsNotFound();
    void dryRunWritesNothing();
    void wrongUse_data();
    void wrongUse();
};

void tst_ToolRecordFile::recordingThatIsThereStays()
{
    const RecordedPlant recorded;
    QCOMPARE(runTool(recorded.record(oneSet)).exitCode, 0);
    const QByteArray before = fileBytes(recorded.path());

    const ToolResult result = runTool(recorded.record(oneSet));

    QCOMPARE(result.error, QStringLiteral("tessel: %1: is a recording already; --append adds to "
                                          "it, --force replaces it\n")
                               .arg(recorded.path()));
    QCOMPARE(result.exitCode, 5);
    QCOMPARE(fileBytes(recorded.path()), before);
}

void tst_ToolRecordFile::forceReplacesARecording()
{
    RecordedPlant recorded;
    QCOMPARE(runTool(recorded.record(oneSet)).exitCode, 0);
    QVERIFY(recorded.publisher.publish());

    QCOMPARE(
        runTool(recorded.record({QStringLiteral("--force"), QStringLiteral("--sets=1")})).exitCode,
        0);

    QCOMPARE(valuesOf(recorded.path()), QStringList{QStringLiteral("1")});
}

void tst_ToolRecordFile::appendGoesOnBehindAKilledRecorder()
{
    RecordedPlant recorded;
    QCOMPARE(runTool(recorded.record(oneSet)).exitCode, 0);
    QFile file(recorded.path());
    QVERIFY(file.resize(file.size() - 3));
    QVERIFY(recorded.publisher.publish());

    const ToolResult result = runTool(
        recorded.record({QStringLiteral("--append"), QStringLiteral("--sets=1")}));

    QCOMPARE(result.exitCode, 0);
    QCOMPARE(valuesOf(recorded.path()), (QStringList{QString(), QStringLiteral("1")}));
    QCOMPARE(columnOf(recorded.path(), QStringLiteral("run")),
             (QStringList{QStringLiteral("1"), QStringLiteral("2")}));
}

void tst_ToolRecordFile::appendRefusesOtherValues()
{
    DoctoredPlant plant;
    plant.description().add(QStringLiteral("pump/level"), QStringLiteral("int32"),
                            ToolDescription::Metadata::ErrorState, 4);
    plant.description().write();
    const LogCapture log;
    const HeldRegion region(plant.file);
    const QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("plant.rec"));
    const QStringList record{QStringLiteral("record"), plant.file, QStringLiteral("-o"), path,
                             QStringLiteral("--sets=1")};
    QCOMPARE(runTool(record + QStringList{plant.url}).exitCode, 0);
    const QByteArray before = fileBytes(path);

    const ToolResult result = runTool(record + QStringList{QStringLiteral("--append")});

    QCOMPARE(result.error,
             QStringLiteral("tessel: %1: was recorded with other values; name another file\n")
                 .arg(path));
    QCOMPARE(result.exitCode, 8);
    QCOMPARE(fileBytes(path), before);
}

void tst_ToolRecordFile::appendRefusesAnotherRegionUnitOrInterval_data()
{
    QTest::addColumn<bool>("isAnotherRegion");
    QTest::addColumn<QByteArray>("type");
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<QString>("error");
    QTest::newRow("region") << true << QByteArray("\"int32\"") << QStringList()
                            << QStringLiteral("is a recording of region 'THIS', not of 'OTHER'");
    QTest::newRow("unit") << false << QByteArray("\"int32\",\"unit\":\"1/s\"") << QStringList()
                          << QStringLiteral("was recorded with other values");
    QTest::newRow("interval") << false << QByteArray("\"int32\"")
                              << QStringList{QStringLiteral("--interval=100ms")}
                              << QStringLiteral("was recorded with another interval");
}

/// The beginning of the file would say of their sets what is not so.
void tst_ToolRecordFile::appendRefusesAnotherRegionUnitOrInterval()
{
    QFETCH(bool, isAnotherRegion);
    QFETCH(QByteArray, type);
    QFETCH(QStringList, options);
    QFETCH(QString, error);
    const RecordedPlant recorded;
    QCOMPARE(runTool(recorded.record(oneSet)).exitCode, 0);
    const QByteArray before = fileBytes(recorded.path());
    const DoctoredPlant other;
    const HeldRegion region(other.file);
    const QString former = isAnotherRegion ? other.file : recorded.plant.file;
    const QTemporaryDir folder;
    QFile file(folder.filePath(QStringLiteral("other.process.json")));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(fileBytes(former).replace("\"int32\"", type));
    file.close();

    const ToolResult result = runTool(
        QStringList{QStringLiteral("record"), file.fileName(), QStringLiteral("-o"),
                    recorded.path(), QStringLiteral("--append"), QStringLiteral("--sets=1")}
        + options);

    error.replace(QStringLiteral("THIS"), recorded.plant.key());
    error.replace(QStringLiteral("OTHER"), other.key());
    QCOMPARE(result.error,
             QStringLiteral("tessel: %1: %2; name another file\n").arg(recorded.path(), error));
    QCOMPARE(result.exitCode, 8);
    QCOMPARE(fileBytes(recorded.path()), before);
}

void tst_ToolRecordFile::otherFilesAreNeverReplaced_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("error");
    QTest::newRow("text") << QStringLiteral("notes.txt") << 9 << QStringLiteral("is no recording");
    for (const char *name : {"other.process.json", "other.config.json"}) {
        QTest::newRow(name) << QString::fromLatin1(name) << 2
                            << QStringLiteral("is the name of a description; name another file for "
                                              "the result");
    }
}

void tst_ToolRecordFile::otherFilesAreNeverReplaced()
{
    QFETCH(QString, name);
    QFETCH(int, exitCode);
    QFETCH(QString, error);
    const RecordedPlant recorded;
    const QString path = recorded.path(name);
    QVERIFY(writeFile(path, "all that I know"));

    for (const char *option : {"--json", "--force", "--append"}) {
        const ToolResult result = runTool({QStringLiteral("record"), recorded.plant.file,
                                           QStringLiteral("--sets=1"), QStringLiteral("-o"), path,
                                           QString::fromLatin1(option)});

        QCOMPARE(result.error, QStringLiteral("tessel: %1: %2\n").arg(path, error));
        QCOMPARE(result.exitCode, exitCode);
        QCOMPARE(fileBytes(path), QByteArray("all that I know"));
    }
}

void tst_ToolRecordFile::emptyFileIsFilled()
{
    const RecordedPlant recorded;
    QVERIFY(writeFile(recorded.path(), {}));

    QCOMPARE(runTool(recorded.record(oneSet)).exitCode, 0);

    QCOMPARE(valuesOf(recorded.path()), QStringList{QString()});
}

void tst_ToolRecordFile::secondRecorderIsRefused()
{
    const RecordedPlant recorded;
    ToolProcess recorder(recorded.record());
    QVERIFY(recorded.isBegun(recorder));

    const ToolResult result = runTool(recorded.record({QStringLiteral("--force")}));

    QCOMPARE(result.exitCode, 5);
    QCOMPARE(
        result.error,
        QStringLiteral("tessel: %1: is being written by another recorder\n").arg(recorded.path()));
    recorder.signal(SIGINT);
    QCOMPARE(recorder.finish().exitCode, 0);
    QCOMPARE(valuesOf(recorded.path()), QStringList{QString()});
}

void tst_ToolRecordFile::fullDiskLeavesAReadableFile()
{
    RecordedPlant recorded;
    const QStringList arguments{QStringLiteral("-c"),
                                QStringLiteral("ulimit -f 4; exec \"$0\" record \"$1\" -o \"$2\""),
                                QStringLiteral(TESSEL_TOOL), recorded.plant.file, recorded.path()};
    QProcess shell;
    shell.start(QStringLiteral("/bin/bash"), arguments);
    QVERIFY(shell.waitForStarted());
    while (!shell.waitForFinished(0)) {
        QVERIFY(recorded.publisher.publish());
        sched_yield();
    }

    const QString error = QString::fromUtf8(shell.readAllStandardError());
    QVERIFY2(
        error.endsWith(
            QStringLiteral("tessel: %1: cannot be written: File too large\n").arg(recorded.path())),
        qPrintable(error));
    QVERIFY(error.contains(QStringLiteral("tessel: note: recorded ")));
    QCOMPARE(shell.exitCode(), 9);
    const ToolResult result = runTool({QStringLiteral("export"), recorded.path()});
    QCOMPARE(result.error, QString());
    QCOMPARE(result.exitCode, 0);
    QVERIFY(result.output.count(QLatin1Char('\n')) > 10);
}

/// Half of what stands before the first set would be a file that no recorder touches.
void tst_ToolRecordFile::diskThatIsFullAtOnceLeavesAnEmptyFile()
{
    const RecordedPlant recorded;
    QProcess limited;
    limited.start(QStringLiteral("prlimit"),
                  QStringList{QStringLiteral("--fsize=200"), QStringLiteral(TESSEL_TOOL)}
                      + recorded.record(oneSet));
    QVERIFY(limited.waitForFinished(60000));

    QCOMPARE(
        QString::fromUtf8(limited.readAllStandardError()),
        QStringLiteral("tessel: %1: cannot be written: File too large\n").arg(recorded.path()));
    QCOMPARE(limited.exitCode(), 9);
    QCOMPARE(QFileInfo(recorded.path()).size(), 0);
    QCOMPARE(runTool(recorded.record(oneSet)).exitCode, 0);
    QCOMPARE(valuesOf(recorded.path()), QStringList{QString()});
}

void tst_ToolRecordFile::fileThatSomebodyTakesAwayIsTold_data()
{
    QTest::addColumn<bool>("isRemoved");
    QTest::addColumn<bool>("isSetPublished");
    QTest::addColumn<QString>("error");
    const QString removed = QStringLiteral("was removed while it was written");
    const QString changed = QStringLiteral("was changed by another program while it was written");
    QTest::newRow("removed before a set") << true << true << removed;
    QTest::newRow("cut before a set") << false << true << changed;
    QTest::newRow("removed before the end") << true << false << removed;
    QTest::newRow("cut before the end") << false << false << changed;
}

/// What is written behind a cut, or into a file without a name, nobody finds.
void tst_ToolRecordFile::fileThatSomebodyTakesAwayIsTold()
{
    QFETCH(bool, isRemoved);
    QFETCH(bool, isSetPublished);
    QFETCH(QString, error);
    RecordedPlant recorded;
    ToolProcess recorder(recorded.record());
    QVERIFY(recorded.isBegun(recorder));
    QVERIFY(isRemoved ? QFile::remove(recorded.path()) : QFile::resize(recorded.path(), 0));

    if (isSetPublished) {
        QVERIFY(recorded.publisher.publish(validValue(1)));
    } else {
        recorder.signal(SIGINT);
    }

    const ToolResult result = recorder.finish();
    QVERIFY2(result.error.endsWith(QStringLiteral("tessel: %1: %2\n").arg(recorded.path(), error)),
             qPrintable(result.error));
    QVERIFY(result.error.startsWith(QStringLiteral("tessel: note: recorded 1 set ")));
    QCOMPARE(result.exitCode, 9);
}

void tst_ToolRecordFile::folderWithoutPermissionIsRefused()
{
    const RecordedPlant recorded;
    const QTemporaryDir folder;
    const NarrowPermissions narrow(folder.path(), QFile::ReadOwner | QFile::ExeOwner);
    if (!makePermissionsCount()) {
        QSKIP("The system does not let this process give up its rights");
    }
    const QString path = folder.filePath(QStringLiteral("plant.rec"));

    const ToolResult result = runTool(
        {QStringLiteral("record"), recorded.plant.file, QStringLiteral("-o"), path});

    QCOMPARE(result.error, QStringLiteral("tessel: %1: no permission to write it\n").arg(path));
    QCOMPARE(result.exitCode, 4);
}

void tst_ToolRecordFile::unknownUrlIsNotFound()
{
    const RecordedPlant recorded;

    const ToolResult result = runTool(recorded.record({QStringLiteral("pump/speeed")}));

    QCOMPARE(result.error, QStringLiteral("tessel: %1: no element at 'pump/speeed' (did you mean "
                                          "'pump/speed'?)\n")
                               .arg(recorded.plant.file));
    QCOMPARE(result.exitCode, 3);
}

void tst_ToolRecordFile::dryRunWritesNothing()
{
    const RecordedPlant recorded;

    const ToolResult result = runTool(recorded.record({QStringLiteral("--dry-run")}));
    const ToolResult json = runTool(
        recorded.record({QStringLiteral("--dry-run"), QStringLiteral("--json")}));
    QCOMPARE(json.output, QStringLiteral("{\"file\": \"%1\", \"key\": \"%2\", \"values\": 1}\n")
                              .arg(recorded.path(), recorded.plant.key()));

    QCOMPARE(result.output, QStringLiteral("1 value of '%1', not recorded into %2\n")
                                .arg(recorded.plant.key(), recorded.path()));
    QCOMPARE(result.error, QString());
    QCOMPARE(result.exitCode, 0);
    QVERIFY(!QFile::exists(recorded.path()));
}

void tst_ToolRecordFile::wrongUse_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("error");
    const QString file = QStringLiteral("nowhere/plant.process.json");
    const auto add = [&file](const QString &options, const QString &error) {
        QTest::newRow(qPrintable(options))
            << options.split(QLatin1Char(' '), Qt::SkipEmptyParts) + QStringList(file)
            << QStringLiteral("tessel: record: %1; see 'tessel record --help'\n").arg(error);
    };
    const QString time = QStringLiteral(
        "--%1 takes a time such as 500ms, 10s, 2min or 1h, from 1ms up to 30 days, not '%2'");
    add({}, QStringLiteral("--output is missing"));
    add(QStringLiteral("-o -"),
        QStringLiteral("a recording goes into a file, not to standard output"));
    add(QStringLiteral("--output="), QStringLiteral("--output is empty; name a file"));
    add(QStringLiteral("--outptu=x"),
        QStringLiteral("unknown option '--outptu' (did you mean '--output'?)"));
    for (const char *option : {"interval", "ring", "after", "for"}) {
        const QString name = QString::fromLatin1(option);
        const QString more = name == QLatin1String("after") ? QStringLiteral(" --ring=1s --on=x")
                                                            : QString();
        add(QStringLiteral("-o x --%1=soon").arg(name) + more,
            time.arg(name, QStringLiteral("soon")));
        add(QStringLiteral("-o x --%1=0s").arg(name) + more, time.arg(name, QStringLiteral("0s")));
    }
    add(QStringLiteral("-o x --sets=0"),
        QStringLiteral("--sets takes a whole number from 1 to 1000000000, not '0'"));
    add(QStringLiteral("-o x --ring=1s --on=x --triggers=many"),
        QStringLiteral("--triggers takes a whole number from 1 to 1000000000, not 'many'"));
    add(QStringLiteral("-o x --on=x"), QStringLiteral("--on goes with --ring"));
    add(QStringLiteral("-o x --ring=1s --after=1s"), QStringLiteral("--after goes with --on"));
    add(QStringLiteral("-o x --ring=1s --triggers=1"), QStringLiteral("--triggers goes with --on"));
    add(QStringLiteral("-o x --append --force"),
        QStringLiteral("--append does not go with --force"));
    QTest::newRow("no file") << QStringList{QStringLiteral("-o"), QStringLiteral("x")}
                             << QStringLiteral("tessel: record: FILE is missing; see 'tessel "
                                               "record --help'\n");
    QTest::newRow("no such file") << QStringList{QStringLiteral("-o"), QStringLiteral("x"), file}
                                  << QStringLiteral("tessel: %1: no such file\n").arg(file);
}

void tst_ToolRecordFile::wrongUse()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, error);

    const ToolResult result = runTool(QStringList(QStringLiteral("record")) + arguments);

    QCOMPARE(result.error, error);
    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, error.contains(QStringLiteral("no such file")) ? 3 : 2);
}

QTEST_GUILESS_MAIN(tst_ToolRecordFile)
#include "tst_ToolRecordFile.moc"
