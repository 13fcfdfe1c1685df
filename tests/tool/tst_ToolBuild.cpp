#include "ToolFolder.h"
#include "support/ResourceLimit.h"
#include "support/WorkingDirectory.h"

namespace {

using Description::leaf;
using Description::root;
using Description::with;
using Description::without;

const QString fileA = QStringLiteral("a.process.json");
const QString fileB = QStringLiteral("sub/b.process.json");

/// Two files, of which the second lies in a folder below.
class TwoFiles : public DescriptionDirectory
{
public:
    TwoFiles()
    {
        write(fileA,
              root({{QStringLiteral("x"), leaf(1, 6, 3)}, {QStringLiteral("y"), leaf(2, 4, 1)}}));
        write(fileB, root({{QStringLiteral("z"), leaf(1, 4, 1)}}));
    }
};

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

QString failure(const DescriptionDirectory &directory, const QString &reason)
{
    return QStringLiteral("tessel: %1: %2\n").arg(directory.path(), reason);
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
    void keyBeginsWithPrefixAndFolder();
    void usualPrefixIsTessel();
    void folderHasItsNameHoweverItIsWritten_data();
    void folderHasItsNameHoweverItIsWritten();
    void linkThatLeadsBackIsNoted();
    void fileThatIsThereTwiceNeverFits();
    void whoReadsTheOutputMayEndEarly();
    void helpHasExamples();
    void wrongUse_data();
    void wrongUse();
    void pathThatIsNoFolderOfDescriptions();
    void firstFileThatDoesNotParseFailsTheBuild();
    void laterFileThatDoesNotParseIsLeftOutAndTold();
    void fileWithoutKeyIsLeftOutAndTold();
    void descriptionThatCannotBeBuilt_data();
    void descriptionThatCannotBeBuilt();
    void filesWithBuffersOfBothKindsAreRefused();
    void cutOffTextGivesWayToTheFormerOne();
    void textThatCannotBePutBackIsTold();
    void readOnlyPlaceIsRefused_data();
    void readOnlyPlaceIsRefused();
    void unreadablePlaceIsRefused_data();
    void unreadablePlaceIsRefused();
    void checkNeedsNoPermissionToWrite();
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

void tst_ToolBuild::fileThatIsThereTwiceNeverFits()
{
    const TwoFiles directory;
    makeLink(directory.filePath(QStringLiteral("twice.process.json")),
             QStringLiteral("a.process.json"));

    const ToolResult result = runBuild(directory.path());

    QCOMPARE(result.exitCode, 9);
    QVERIFY2(result.error.startsWith(QStringLiteral("tessel: %1: a.process.json not up to "
                                                    "date after the build")
                                         .arg(directory.path())),
             qPrintable(result.error));
    QCOMPARE(result.error.count(QLatin1Char('\n')), 1);
}

void tst_ToolBuild::whoReadsTheOutputMayEndEarly()
{
    const TwoFiles directory;

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

void tst_ToolBuild::pathThatIsNoFolderOfDescriptions()
{
    const DescriptionDirectory directory;
    const ToolResult empty = runBuild(directory.path());
    QCOMPARE(empty.exitCode, 9);
    QCOMPARE(empty.error, failure(directory, QStringLiteral("holds no process description; their "
                                                            "names end in .process.json")));

    const QString missing = directory.filePath(QStringLiteral("none"));
    const ToolResult nothing = runBuild(missing);
    QCOMPARE(nothing.exitCode, 3);
    QCOMPARE(nothing.error, QStringLiteral("tessel: %1: no such folder\n").arg(missing));

    directory.write(fileA, QByteArrayLiteral("{}"));
    const ToolResult file = runBuild(directory.filePath(fileA));
    QCOMPARE(file.exitCode, 9);
    QCOMPARE(file.error,
             QStringLiteral("tessel: %1: is no folder\n").arg(directory.filePath(fileA)));
}

void tst_ToolBuild::firstFileThatDoesNotParseFailsTheBuild()
{
    const TwoFiles directory;
    directory.write(fileA, QByteArrayLiteral("{"));
    const auto before = statesBelow(directory.path());

    const ToolResult result = runBuild(directory.path());

    QCOMPARE(result.exitCode, 9);
    QCOMPARE(result.output, QString());
    QCOMPARE(result.error,
             failure(directory,
                     QStringLiteral("cannot be built: Parsing error: \"unterminated object\"; "
                                    "Can't parse sharedMemory file: \"%1\"")
                         .arg(directory.filePath(fileA))));
    QVERIFY(statesBelow(directory.path()) == before);
    QCOMPARE(runBuild(directory.path(), {QStringLiteral("--check")}).exitCode, 9);
}

void tst_ToolBuild::laterFileThatDoesNotParseIsLeftOutAndTold()
{
    const TwoFiles directory;
    directory.write(fileB, QByteArrayLiteral("{"));
    directory.write(QStringLiteral("sub/c.process.json"),
                    root({{QStringLiteral("z"), leaf(1, 4, 1)}}));
    const auto before = statesBelow(directory.filePath(QStringLiteral("sub")));
    const QString reason = QStringLiteral("sub/b.process.json and the 1 behind it left out: "
                                          "line 1, column 1: unterminated object");

    const ToolResult check = runBuild(directory.path(), {QStringLiteral("--check")});
    QCOMPARE(check.exitCode, 9);
    QCOMPARE(check.error, failure(directory, reason));

    const ToolResult result = runBuild(directory.path());
    QCOMPARE(result.exitCode, 9);
    QCOMPARE(result.output, QStringLiteral("FILE                BUILD\n"
                                           "a.process.json      rewritten\n"
                                           "sub/b.process.json  left\n"
                                           "sub/c.process.json  left\n"));
    QCOMPARE(result.error, failure(directory, reason));
    QCOMPARE(Description::sizeOf(directory.json(fileA)), 16);
    QVERIFY(statesBelow(directory.filePath(QStringLiteral("sub"))) == before);
}

void tst_ToolBuild::fileWithoutKeyIsLeftOutAndTold()
{
    const TwoFiles directory;
    directory.write(fileB, without(root({{QStringLiteral("z"), leaf(1, 4, 1)}}),
                                   QStringLiteral("keyProcessDataMemory")));

    const ToolResult result = runBuild(directory.path());

    QCOMPARE(result.exitCode, 9);
    QVERIFY2(result.error.startsWith(
                 QStringLiteral("tessel: %1: sub/b.process.json left out: ").arg(directory.path())),
             qPrintable(result.error));
    QVERIFY2(result.error.contains(QStringLiteral("Can't set sharedMemoryKey:")),
             qPrintable(result.error));
    QCOMPARE(result.error.count(QLatin1Char('\n')), 1);
}

void tst_ToolBuild::descriptionThatCannotBeBuilt_data()
{
    QTest::addColumn<QString>("missing");
    QTest::addColumn<QString>("words");
    QTest::newRow("offset") << QStringLiteral("offsetSharedMemory")
                            << QStringLiteral("OffsetSharedMemory can't set");
    QTest::newRow("size") << QStringLiteral("sizeValue")
                          << QStringLiteral("SizeValue or sizeMethaData is not valid:");
    QTest::newRow("size of metadata") << QStringLiteral("sizeMetadata")
                                      << QStringLiteral("SizeValue or sizeMethaData is not valid:");
}

void tst_ToolBuild::descriptionThatCannotBeBuilt()
{
    QFETCH(QString, missing);
    QFETCH(QString, words);
    const TwoFiles directory;
    directory.write(fileB, root({{QStringLiteral("z"), without(leaf(1, 4, 1), missing)}}));
    const auto before = statesBelow(directory.path());

    for (const auto &options : {QStringList(), QStringList(QStringLiteral("--check"))}) {
        const ToolResult result = runBuild(directory.path(), options);

        QCOMPARE(result.exitCode, 9);
        QCOMPARE(result.output, QString());
        QVERIFY2(result.error.startsWith(
                     QStringLiteral("tessel: %1: cannot be built: ").arg(directory.path())),
                 qPrintable(result.error));
        QVERIFY2(result.error.contains(words), qPrintable(result.error));
        QCOMPARE(result.error.count(QLatin1Char('\n')), 1);
        QVERIFY(statesBelow(directory.path()) == before);
    }
}

void tst_ToolBuild::filesWithBuffersOfBothKindsAreRefused()
{
    const TwoFiles directory;
    directory.write(fileB, with(root({{QStringLiteral("z"), leaf(1, 4, 1)}}),
                                QStringLiteral("doubleBuffer"), true));

    for (int build = 0; build < 2; ++build) {
        const ToolResult result = runBuild(directory.path());

        QCOMPARE(result.exitCode, 9);
        QVERIFY2(
            result.error.contains(QStringLiteral("DoubleBuffer value is different: false != true")),
            qPrintable(result.error));
    }
    QCOMPARE(runBuild(directory.path(), {QStringLiteral("--check")}).exitCode, 9);
}

void tst_ToolBuild::cutOffTextGivesWayToTheFormerOne()
{
    const DescriptionDirectory directory;
    const QByteArray textA = compact(
        root({{QStringLiteral("x"), leaf(1, 4, 4)}, {QStringLiteral("y"), leaf(2, 4, 4)}}));
    const QByteArray textB = compact(root({{QStringLiteral("z"), leaf(1, 4, 4)}}));
    directory.write(fileA, textA);
    directory.write(fileB, textB);
    const QStringList files = directory.files();

    ToolResult result;
    {
        // The new text is longer by the key: it has no room, but the former one has.
        const ResourceLimit limit(RLIMIT_FSIZE, static_cast<rlim_t>(textA.size()));
        result = runBuild(directory.path());
    }

    QCOMPARE(result.exitCode, 9);
    QCOMPARE(directory.read(fileA), textA);
    QVERIFY(Description::sizeOf(directory.json(fileB)) == 24);
    QCOMPARE(directory.files(), files);
    QCOMPARE(result.output, QStringLiteral("FILE                BUILD\n"
                                           "a.process.json      left\n"
                                           "sub/b.process.json  rewritten\n"));
    QVERIFY2(result.error.startsWith(QStringLiteral("tessel: %1: the new text could not be written "
                                                    "whole, the former one is back: %2: Error on "
                                                    "writing to file!")
                                         .arg(directory.path(), directory.filePath(fileA))),
             qPrintable(result.error));
    QCOMPARE(result.error.count(QLatin1Char('\n')), 1);
    QCOMPARE(runBuild(directory.path()).exitCode, 0);
}

void tst_ToolBuild::textThatCannotBePutBackIsTold()
{
    const DescriptionDirectory directory;
    directory.write(fileA, root({{QStringLiteral("x"), leaf(1, 4, 4)}}));

    ToolResult result;
    {
        const ResourceLimit limit(RLIMIT_FSIZE, 100);
        result = runBuild(directory.path());
    }

    QCOMPARE(result.exitCode, 9);
    QVERIFY2(result.error.startsWith(
                 QStringLiteral("tessel: %1: neither the new text nor the former one could be "
                                "written whole: %2")
                     .arg(directory.path(), directory.filePath(fileA))),
             qPrintable(result.error));
}

void tst_ToolBuild::readOnlyPlaceIsRefused_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("file") << fileB;
    QTest::newRow("folder") << QStringLiteral("sub");
}

void tst_ToolBuild::readOnlyPlaceIsRefused()
{
    QFETCH(QString, name);
    if (!makePermissionsCount()) {
        QSKIP("Root writes everything");
    }
    const TwoFiles directory;
    const QByteArray before = directory.read(fileB);
    const NarrowPermissions narrow(directory.filePath(name), QFile::ReadOwner | QFile::ExeOwner);

    const ToolResult result = runBuild(directory.path());

    QCOMPARE(result.exitCode, 4);
    QVERIFY2(result.error.startsWith(
                 QStringLiteral("tessel: %1: sub/b.process.json not up to date after the build: ")
                     .arg(directory.path())),
             qPrintable(result.error));
    QCOMPARE(result.error.count(QLatin1Char('\n')), 1);
    QCOMPARE(directory.read(fileB), before);
    QCOMPARE(Description::sizeOf(directory.json(fileA)), 24);
}

void tst_ToolBuild::unreadablePlaceIsRefused_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("file") << fileB;
    QTest::newRow("folder") << QStringLiteral("sub");
    QTest::newRow("the whole") << QString();
}

void tst_ToolBuild::unreadablePlaceIsRefused()
{
    QFETCH(QString, name);
    if (!makePermissionsCount()) {
        QSKIP("Root reads everything");
    }
    const TwoFiles directory;
    const QByteArray before = directory.read(fileA);
    const QString path = name.isEmpty() ? directory.path() : directory.filePath(name);
    ToolResult result;
    {
        const NarrowPermissions narrow(path, QFile::WriteOwner);
        result = runBuild(directory.path());
    }

    QCOMPARE(result.exitCode, 4);
    QCOMPARE(result.error, QStringLiteral("tessel: %1: no permission to read it\n").arg(path));
    QCOMPARE(directory.read(fileA), before);
}

void tst_ToolBuild::checkNeedsNoPermissionToWrite()
{
    if (!makePermissionsCount()) {
        QSKIP("Root writes everything");
    }
    const TwoFiles directory;
    const NarrowPermissions sub(directory.filePath(QStringLiteral("sub")),
                                QFile::ReadOwner | QFile::ExeOwner);
    const NarrowPermissions whole(directory.path(), QFile::ReadOwner | QFile::ExeOwner);

    QCOMPARE(runBuild(directory.path(), {QStringLiteral("--check")}).exitCode, 1);
}

QTEST_GUILESS_MAIN(tst_ToolBuild)
#include "tst_ToolBuild.moc"
