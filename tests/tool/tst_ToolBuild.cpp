#include "ToolFolder.h"
#include "TwoFiles.h"
#include "support/WorkingDirectory.h"

#include <QJsonArray>

#include <sys/stat.h>

namespace {

using Description::leaf;
using Description::root;
using Description::with;

QString keyOf(const DescriptionDirectory &directory)
{
    return Description::keyOf(directory.json(fileA));
}

QString report(const DescriptionDirectory &directory, const QString &a, const QString &b)
{
    return QStringLiteral("FILE                BUILD\n"
                          "a.process.json      %1\n"
                          "sub/b.process.json  %2\n"
                          "\n"
                          "Key     %3\n"
                          "Buffer  single, 24 bytes\n"
                          "Region  24 bytes\n")
        .arg(a, b, keyOf(directory));
}

} // namespace

/// What `tessel build` makes of a folder of process descriptions, and what it says.
class tst_ToolBuild : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void everyFileAndTheRegionAreTold();
    void secondBuildRewritesNothing();
    void onlyTheFileThatChangesIsRewritten();
    void doubleBufferCountsIntoTheRegion();
    void checkWritesNothingAndAnswersNo();
    void checkOfABuiltFolderAnswersYes();
    void dryRunWritesNothingAndSaysWhatWouldBe();
    void dryRunOfABuiltFolderKnowsItsKey();
    void dryRunRefusesWhatABuildWould_data();
    void dryRunRefusesWhatABuildWould();
    void resultIsPrintedAsJson();
    void planIsPrintedAsJson();
    void failureLeavesJsonEmpty();
    void keyBeginsWithPrefixAndFolder();
    void usualPrefixIsTessel();
    void folderHasItsNameHoweverItIsWritten_data();
    void folderHasItsNameHoweverItIsWritten();
    void linkThatLeadsBackIsNoted();
    void secondWayToAFolderIsNoted();
    void fileOfTwoNamesIsLaidOutOnce();
    void pathThatIsNoFileIsRefused();
    void whoReadsTheOutputMayEndEarly();
    void helpHasExamples();
    void wrongUse_data();
    void wrongUse();
};

void tst_ToolBuild::everyFileAndTheRegionAreTold()
{
    const TwoFiles directory;

    const ToolResult result = runBuild(directory.path());

    QCOMPARE(result.error, QString());
    QCOMPARE(result.output,
             report(directory, QStringLiteral("rewritten"), QStringLiteral("rewritten")));
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(Description::offsetOf(directory.json(fileA), QStringLiteral("x")), 0);
    QCOMPARE(Description::offsetOf(directory.json(fileA), QStringLiteral("y")), 9);
    QCOMPARE(Description::offsetOf(directory.json(fileB), QStringLiteral("z")), 16);
    QCOMPARE(Description::sizeOf(directory.json(fileB)), 24);
}

void tst_ToolBuild::secondBuildRewritesNothing()
{
    const TwoFiles directory;
    QCOMPARE(runBuild(directory.path()).exitCode, 0);
    const auto before = statesBelow(directory.path());

    const ToolResult result = runBuild(directory.path());

    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.output, report(directory, QStringLiteral("left"), QStringLiteral("left")));
    QVERIFY(statesBelow(directory.path()) == before);
}

void tst_ToolBuild::onlyTheFileThatChangesIsRewritten()
{
    const TwoFiles directory;
    QCOMPARE(runBuild(directory.path()).exitCode, 0);
    const FileState before = stateOf(directory.filePath(fileA));
    directory.write(fileB, root({{QStringLiteral("z"), leaf(1, 4, 1)}}, keyOf(directory), 24));

    const ToolResult result = runBuild(directory.path());

    QCOMPARE(result.output, report(directory, QStringLiteral("left"), QStringLiteral("rewritten")));
    QVERIFY(stateOf(directory.filePath(fileA)) == before);
}

void tst_ToolBuild::doubleBufferCountsIntoTheRegion()
{
    const DescriptionDirectory directory;
    directory.write(fileA, with(root({{QStringLiteral("x"), leaf(1, 4, 4)}}),
                                QStringLiteral("doubleBuffer"), true));

    QVERIFY(runBuild(directory.path())
                .output.endsWith(QStringLiteral("Buffer  double, 8 bytes\nRegion  528 bytes\n")));
}

void tst_ToolBuild::checkWritesNothingAndAnswersNo()
{
    const TwoFiles directory;
    const auto before = statesBelow(directory.path());

    const ToolResult result = runBuild(directory.path(), {QStringLiteral("--check")});

    QCOMPARE(result.exitCode, 1);
    QCOMPARE(result.error, QString());
    QCOMPARE(result.output, QStringLiteral("FILE                BUILD\n"
                                           "a.process.json      would be rewritten\n"
                                           "sub/b.process.json  would be rewritten\n"));
    QVERIFY(statesBelow(directory.path()) == before);
}

void tst_ToolBuild::checkOfABuiltFolderAnswersYes()
{
    const TwoFiles directory;
    QCOMPARE(runBuild(directory.path()).exitCode, 0);
    const auto before = statesBelow(directory.path());

    const ToolResult result = runBuild(directory.path(), {QStringLiteral("--check")});

    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.output, report(directory, QStringLiteral("left"), QStringLiteral("left")));
    QVERIFY(statesBelow(directory.path()) == before);
}

void tst_ToolBuild::keyBeginsWithPrefixAndFolder()
{
    const TwoFiles directory;

    runBuild(directory.path());

    const QRegularExpression key(QStringLiteral("^%1Folderdevice[0-9a-f]{5}$").arg(keyPrefix()));
    QVERIFY2(key.match(keyOf(directory)).hasMatch(), qPrintable(keyOf(directory)));
}

void tst_ToolBuild::usualPrefixIsTessel()
{
    const TwoFiles directory;

    QCOMPARE(runTool({QStringLiteral("build"), directory.path()}).exitCode, 0);

    QVERIFY(keyOf(directory).startsWith(QStringLiteral("tesselFolderdevice")));
}

void tst_ToolBuild::folderHasItsNameHoweverItIsWritten_data()
{
    QTest::addColumn<QString>("path");
    QTest::newRow("the current one") << QStringLiteral(".");
    QTest::newRow("from below") << QStringLiteral("sub/..");
    QTest::newRow("from beside") << QStringLiteral("../device");
    QTest::newRow("a slash behind") << QStringLiteral("../device/");
}

void tst_ToolBuild::folderHasItsNameHoweverItIsWritten()
{
    QFETCH(QString, path);
    const TwoFiles directory;
    QCOMPARE(runBuild(directory.path()).exitCode, 0);

    ToolProcess check({QStringLiteral("build"), QStringLiteral("--check"),
                       QStringLiteral("--prefix"), keyPrefix(), path},
                      {}, directory.path());

    QCOMPARE(check.finish().exitCode, 0);
}

void tst_ToolBuild::linkThatLeadsBackIsNoted()
{
    const TwoFiles directory;
    makeLink(directory.filePath(QStringLiteral("sub/up")), QStringLiteral(".."));

    const ToolResult result = runBuild(directory.path());

    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.output,
             report(directory, QStringLiteral("rewritten"), QStringLiteral("rewritten")));
    QCOMPARE(result.error, QStringLiteral("tessel: note: %1/sub/up leads back to a folder above it "
                                          "and is passed over\n")
                               .arg(directory.path()));
}

void tst_ToolBuild::secondWayToAFolderIsNoted()
{
    const TwoFiles directory;
    makeLink(directory.filePath(QStringLiteral("before")), QStringLiteral("sub"));

    const ToolResult result = runBuild(directory.path());

    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.output,
             report(directory, QStringLiteral("rewritten"), QStringLiteral("rewritten")));
    QCOMPARE(result.error, QStringLiteral("tessel: note: %1/before leads to a folder that has "
                                          "another place here and is passed over\n")
                               .arg(directory.path()));
}

void tst_ToolBuild::fileOfTwoNamesIsLaidOutOnce()
{
    const TwoFiles directory;
    makeLink(directory.filePath(QStringLiteral("twice.process.json")),
             QStringLiteral("a.process.json"));

    const ToolResult result = runBuild(directory.path());

    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.error, QString());
    QCOMPARE(result.output,
             report(directory, QStringLiteral("rewritten"), QStringLiteral("rewritten")));
    QCOMPARE(runBuild(directory.path()).output,
             report(directory, QStringLiteral("left"), QStringLiteral("left")));
    QVERIFY(QFileInfo(directory.filePath(QStringLiteral("twice.process.json"))).isSymLink());
}

void tst_ToolBuild::pathThatIsNoFileIsRefused()
{
    const TwoFiles directory;
    const QString path = directory.filePath(QStringLiteral("pipe.process.json"));
    QCOMPARE(::mkfifo(QFile::encodeName(path).constData(), 0600), 0);

    const ToolResult result = runTool({QStringLiteral("info"), path});

    QCOMPARE(result.exitCode, 9);
    QCOMPARE(result.error, QStringLiteral("tessel: %1: is no regular file\n").arg(path));
}

void tst_ToolBuild::whoReadsTheOutputMayEndEarly()
{
    const TwoFiles directory;

    QCOMPARE(exitCodeWithoutReader(
                 {QStringLiteral("build"), QStringLiteral("--check"), directory.path()}),
             1);
    QCOMPARE(exitCodeWithoutReader({QStringLiteral("build"), directory.path()}), 0);

    QCOMPARE(Description::sizeOf(directory.json(fileB)), 24);
}

void tst_ToolBuild::helpHasExamples()
{
    const ToolResult result = runTool({QStringLiteral("build"), QStringLiteral("--help")});

    QCOMPARE(result.exitCode, 0);
    QVERIFY(result.output.startsWith(QStringLiteral("Usage: tessel build [OPTION...] DIR\n")));
    QVERIFY(result.output.contains(QStringLiteral("\nExamples:\n  tessel build ")));
    QVERIFY(runTool({QStringLiteral("--help")}).output.contains(QStringLiteral("\n  build ")));
}

void tst_ToolBuild::wrongUse_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::newRow("no folder") << QStringList();
    QTest::newRow("two folders") << QStringList{QStringLiteral("a"), QStringLiteral("b")};
    QTest::newRow("prefix that is a path")
        << QStringList{QStringLiteral("--prefix"), QStringLiteral("a/b"), QStringLiteral("a")};
    QTest::newRow("unknown option") << QStringList{QStringLiteral("--chek"), QStringLiteral("a")};
}

void tst_ToolBuild::wrongUse()
{
    QFETCH(QStringList, arguments);

    const ToolResult result = runTool(QStringList(QStringLiteral("build")) + arguments);

    QCOMPARE(result.exitCode, 2);
    QCOMPARE(result.output, QString());
    QCOMPARE(result.error.count(QLatin1Char('\n')), 1);
}

void tst_ToolBuild::dryRunWritesNothingAndSaysWhatWouldBe()
{
    const TwoFiles directory;
    const auto before = statesBelow(directory.path());

    const ToolResult result = runBuild(directory.path(), {QStringLiteral("--dry-run")});

    QCOMPARE(result.error, QString());
    QCOMPARE(result.output, QStringLiteral("FILE                BUILD\n"
                                           "a.process.json      would be rewritten\n"
                                           "sub/b.process.json  would be rewritten\n"
                                           "\n"
                                           "Key     a new one\n"
                                           "Buffer  single, 24 bytes\n"
                                           "Region  24 bytes\n"));
    QCOMPARE(result.exitCode, 0);
    QVERIFY(statesBelow(directory.path()) == before);
}

void tst_ToolBuild::dryRunOfABuiltFolderKnowsItsKey()
{
    const TwoFiles directory;
    QCOMPARE(runBuild(directory.path()).exitCode, 0);

    const ToolResult result = runBuild(directory.path(), {QStringLiteral("--dry-run")});

    QCOMPARE(result.output, report(directory, QStringLiteral("left"), QStringLiteral("left")));
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolBuild::dryRunRefusesWhatABuildWould_data()
{
    QTest::addColumn<QJsonValue>("doubleBuffer");
    QTest::newRow("another one") << QJsonValue(true);
    QTest::newRow("no boolean") << QJsonValue(QJsonArray{true});
}

/// A build leaves it as it is, so that the folder is refused behind it.
void tst_ToolBuild::dryRunRefusesWhatABuildWould()
{
    QFETCH(QJsonValue, doubleBuffer);
    const TwoFiles directory;
    QJsonObject file = directory.json(fileB);
    file.insert(QStringLiteral("doubleBuffer"), doubleBuffer);
    directory.write(fileB, file);
    const auto before = statesBelow(directory.path());

    const ToolResult trial = runBuild(directory.path(), {QStringLiteral("--dry-run")});

    QCOMPARE(
        trial.error,
        QStringLiteral("tessel: %1: its files would not describe one memory after a build: "
                       "'doubleBuffer' of sub/b.process.json is missing, no boolean, or another "
                       "one than in a.process.json\n")
            .arg(directory.path()));
    QCOMPARE(trial.output, QString());
    QCOMPARE(trial.exitCode, 9);
    QVERIFY(statesBelow(directory.path()) == before);
    QCOMPARE(runBuild(directory.path()).exitCode, 9);
}

void tst_ToolBuild::resultIsPrintedAsJson()
{
    const TwoFiles directory;

    const ToolResult result = runBuild(directory.path(), {QStringLiteral("--json")});

    QCOMPARE(result.error, QString());
    QCOMPARE(result.output,
             QStringLiteral("{\"files\": [{\"file\": \"a.process.json\", \"rewritten\": true}, "
                            "{\"file\": \"sub/b.process.json\", \"rewritten\": true}], "
                            "\"written\": true, \"key\": \"%1\", \"doubleBuffer\": false, "
                            "\"bufferSize\": 24, \"regionSize\": 24}\n")
                 .arg(keyOf(directory)));
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolBuild::planIsPrintedAsJson()
{
    const TwoFiles directory;
    const QString unbuilt = QStringLiteral(
        "{\"files\": [{\"file\": \"a.process.json\", \"rewritten\": true}, "
        "{\"file\": \"sub/b.process.json\", \"rewritten\": true}], "
        "\"written\": false, \"key\": null, \"doubleBuffer\": false, "
        "\"bufferSize\": 24, \"regionSize\": 24}\n");
    const QString json = QStringLiteral("--json");

    const ToolResult trial = runBuild(directory.path(), {QStringLiteral("--dry-run"), json});
    const ToolResult check = runBuild(directory.path(), {QStringLiteral("--check"), json});

    QCOMPARE(trial.output, unbuilt);
    QCOMPARE(trial.exitCode, 0);
    QCOMPARE(check.output, unbuilt);
    QCOMPARE(check.exitCode, 1);
    QCOMPARE(runBuild(directory.path()).exitCode, 0);
    const ToolResult later = runBuild(directory.path(), {QStringLiteral("--check"), json});
    QVERIFY2(later.output.contains(QStringLiteral("\"rewritten\": false}], \"written\": false, "
                                                  "\"key\": \"%1\"")
                                       .arg(keyOf(directory))),
             qPrintable(later.output));
    QCOMPARE(later.exitCode, 0);
}

void tst_ToolBuild::failureLeavesJsonEmpty()
{
    const TwoFiles directory;
    QCOMPARE(runBuild(directory.path()).exitCode, 0);
    directory.write(fileB, QByteArrayLiteral("{"));

    const ToolResult result = runBuild(directory.path(), {QStringLiteral("--json")});

    QCOMPARE(result.output, QString());
    QVERIFY(!result.error.isEmpty());
    QCOMPARE(result.exitCode, 9);
}

QTEST_GUILESS_MAIN(tst_ToolBuild)
#include "tst_ToolBuild.moc"
