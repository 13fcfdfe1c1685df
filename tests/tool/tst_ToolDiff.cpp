#include "ComparedPair.h"
#include "TwoFiles.h"

#include <sys/stat.h>

/// `tessel diff`.
class tst_ToolDiff : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void changesAreATable();
    void jsonHasAnObjectAUrl();
    void sameDescriptionsDoNotDiffer();
    void foldersAreComparedAsBuilt();
    void foldersHoldBothKinds();
    void fileThatIsNoDescriptionIsRefused_data();
    void fileThatIsNoDescriptionIsRefused();
    void kindsAreNotMixed();
    void wrongUse_data();
    void wrongUse();
    void closedPipeLeavesTheAnswer();
    void fullOutputIsAFailure();
};

void tst_ToolDiff::changesAreATable()
{
    const Pair files(
        process(R"("type": "double", "sizeValue": 8, "offsetSharedMemory": 0, "unit": "m")"),
        process(R"("type": "double", "sizeValue": 8, "offsetSharedMemory": 8, "unit": "mm",
                                "maxLimit": 5)"),
        "process");

    const ToolResult result = diff({files.former, files.now});

    QCOMPARE(result.output,
             QStringLiteral(
                 "VERDICT     KIND     URL  WHAT                OLD  NEW   REASON\n"
                 "compatible  process  n/a  maxLimit                 5\n"
                 "attach      process  n/a  offsetSharedMemory  0    8     it lies elsewhere\n"
                 "breaking    process  n/a  unit                \"m\"  \"mm\"  its numbers mean "
                 "something else\n"
                 "\n"
                 "1 breaking, 0 attach, 0 compatible\n"));
    QCOMPARE(result.error, QString());
    QCOMPARE(result.exitCode, 1);
}

void tst_ToolDiff::jsonHasAnObjectAUrl()
{
    const Pair files(process(leafA),
                     process(R"("type": "double", "sizeValue": 8, "offsetSharedMemory": 16)"),
                     "process");

    const ToolResult result = diff({QStringLiteral("--json"), files.former, files.now});

    QCOMPARE(
        result.output,
        QStringLiteral(
            "[\n"
            "  {\"kind\": \"process\", \"url\": \"n/a\", \"verdict\": \"attach\", \"changes\": "
            "[{\"what\": \"offsetSharedMemory\", \"old\": 0, \"new\": 16, \"verdict\": "
            "\"attach\", \"reason\": \"it lies elsewhere\"}]}\n"
            "]\n"));
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolDiff::sameDescriptionsDoNotDiffer()
{
    const Pair files(process(leafA), process(leafA), "process");

    const ToolResult plain = diff({files.former, files.now});
    const ToolResult json = diff({QStringLiteral("--json"), files.former, files.now});

    QCOMPARE(plain.output, QStringLiteral("0 breaking, 0 attach, 0 compatible\n"));
    QCOMPARE(plain.exitCode, 0);
    QCOMPARE(json.output, QStringLiteral("[]\n"));
    QCOMPARE(json.exitCode, 0);
}

void tst_ToolDiff::foldersAreComparedAsBuilt()
{
    const TwoFiles former;
    const TwoFiles now;
    QCOMPARE(runBuild(now.path()).exitCode, 0);
    const QJsonObject built = now.json(fileA);
    const auto before = former.snapshot();

    const ToolResult result = diff({QStringLiteral("--json"), former.path(), now.path()});

    // The files of one have no offsets yet; a build gives both the same.
    QCOMPARE(changesIn(result.output),
             QStringList(QStringLiteral("compatible process  keyProcessDataMemory [null] [\"%1\"]")
                             .arg(Description::keyOf(built))));
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(former.snapshot(), before);
}

void tst_ToolDiff::foldersHoldBothKinds()
{
    const TwoFiles former;
    const TwoFiles now;
    former.write(QStringLiteral("a.config.json"), configuration(R"("type": "int8", "value": 1)"));
    now.write(QStringLiteral("a.config.json"), configuration(R"("type": "int8", "value": 2)"));
    now.write(fileB, Description::root({{QStringLiteral("z"), Description::leaf(1, 8, 0)}}));
    const ToolResult result = diff({QStringLiteral("--json"), former.path(), now.path()});

    QCOMPARE(changesIn(result.output).filter(QStringLiteral("config")),
             QStringList(QStringLiteral("compatible config a/n/a value [1] [2]")));
    QVERIFY(changesIn(result.output)
                .contains(QStringLiteral("breaking process sub/b/z sizeMetadata [1] [0]")));
    QCOMPARE(result.exitCode, 1);
}

void tst_ToolDiff::fileThatIsNoDescriptionIsRefused_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("reason");
    QTest::addColumn<int>("exitCode");

    QTest::newRow("missing") << "none.process.json"
                             << "no such file or folder" << 3;
    QTest::newRow("no JSON") << "bad.process.json"
                             << "cannot be parsed: line 1, column 1: illegal value" << 9;
    QTest::newRow("another name") << "plant.json"
                                  << "no description; its name must end in .process.json or "
                                     ".config.json"
                                  << 9;
    QTest::newRow("an empty folder") << "folder"
                                     << "holds no description; their names end in .process.json or "
                                        ".config.json"
                                     << 9;
    QTest::newRow("a FIFO") << "fifo.process.json"
                            << "is no regular file" << 9;
    QTest::newRow("a device") << "zero.process.json"
                              << "is no regular file" << 9;
    QTest::newRow("no permission") << "closed.process.json"
                                   << "no permission to read it" << 4;
}

void tst_ToolDiff::fileThatIsNoDescriptionIsRefused()
{
    QFETCH(QString, path);
    QFETCH(QString, reason);
    QFETCH(int, exitCode);
    if (!makePermissionsCount()) {
        QSKIP("The system does not take root's permissions away.");
    }
    const Pair files(process(leafA), process(leafA), "process");
    const ToolDescription &folder = files.folder;
    folder.write(QStringLiteral("bad.process.json"), "");
    folder.write(QStringLiteral("plant.json"), process(leafA));
    const NarrowPermissions narrow(
        folder.write(QStringLiteral("closed.process.json"), process(leafA)), {});
    const QString fifo = folder.path(QStringLiteral("fifo.process.json"));
    QCOMPARE(::mkfifo(QFile::encodeName(fifo).constData(), 0600), 0);
    QVERIFY(
        QFile::link(QStringLiteral("/dev/zero"), folder.path(QStringLiteral("zero.process.json"))));
    QVERIFY(QDir().mkpath(folder.path(QStringLiteral("folder"))));

    const ToolResult first = diff({folder.path(path), files.now});
    const ToolResult second = diff({files.former, folder.path(path)});

    const QString expected = QStringLiteral("tessel: %1: %2\n").arg(folder.path(path), reason);
    QCOMPARE(first.error, expected);
    QCOMPARE(first.exitCode, exitCode);
    QCOMPARE(second.error, expected);
    QCOMPARE(second.output, QString());
    QCOMPARE(second.exitCode, exitCode);
}

void tst_ToolDiff::kindsAreNotMixed()
{
    const ToolDescription folder;
    const QString left = folder.write(QStringLiteral("a.process.json"), process(leafA));
    const QString right = folder.write(QStringLiteral("a.config.json"),
                                       configuration(R"("type": "int8", "value": 1)"));

    const ToolResult result = diff({left, right});

    QCOMPARE(result.error,
             QStringLiteral("tessel: diff: %1 and %2 hold descriptions of different kinds; see "
                            "'tessel diff --help'\n")
                 .arg(left, right));
    QCOMPARE(result.exitCode, 2);
}

void tst_ToolDiff::wrongUse_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("reason");

    QTest::newRow("nothing") << QStringList() << "OLD is missing";
    QTest::newRow("one") << QStringList{"a"} << "NEW is missing";
    QTest::newRow("three") << QStringList{"a", "b", "c"} << "'c' is one argument too many";
    QTest::newRow("typo") << QStringList{"--jsno", "a", "b"}
                          << "unknown option '--jsno' (did you mean '--json'?)";
}

void tst_ToolDiff::wrongUse()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, reason);

    // A description that may be left out elsewhere is named here.
    const ToolResult result = runTool(QStringList(QStringLiteral("diff")) + arguments,
                                      {QStringLiteral("TESSEL_DIR=/nowhere")});

    QCOMPARE(result.error,
             QStringLiteral("tessel: diff: %1; see 'tessel diff --help'\n").arg(reason));
    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, 2);
}

void tst_ToolDiff::closedPipeLeavesTheAnswer()
{
    const Pair alike(process(leafA), process(leafA), "process");
    const Pair broken(process(leafA), process(R"("type": "float", "sizeValue": 4)"), "process");

    for (const QStringList &options : {QStringList(), QStringList(QStringLiteral("--json"))}) {
        const QStringList diff = QStringList(QStringLiteral("diff")) + options;
        QCOMPARE(exitCodeWithoutReader(diff + QStringList{alike.former, alike.now}), 0);
        QCOMPARE(exitCodeWithoutReader(diff + QStringList{broken.former, broken.now}), 1);
    }
}

void tst_ToolDiff::fullOutputIsAFailure()
{
    const Pair files(process(leafA), process(leafA), "process");

    for (const char *option : {"--json", "--"}) {
        QProcess shell;
        shell.start(QStringLiteral("sh"),
                    {QStringLiteral("-c"), QStringLiteral("exec \"$@\" >/dev/full"),
                     QStringLiteral("sh"), QStringLiteral(TESSEL_TOOL), QStringLiteral("diff"),
                     QLatin1String(option), files.former, files.now});
        QVERIFY(shell.waitForFinished(60000));

        QCOMPARE(QString::fromUtf8(shell.readAllStandardError()),
                 QStringLiteral("tessel: standard output: No space left on device\n"));
        QCOMPARE(shell.exitCode(), 9);
    }
}

QTEST_GUILESS_MAIN(tst_ToolDiff)
#include "tst_ToolDiff.moc"
