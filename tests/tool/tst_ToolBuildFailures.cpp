#include "ToolFolder.h"
#include "TwoFiles.h"
#include "support/ResourceLimit.h"
#include "support/WorkingDirectory.h"

#include <unistd.h>

namespace {

using Description::leaf;
using Description::root;
using Description::with;
using Description::without;

QString failure(const DescriptionDirectory &directory, const QString &reason)
{
    return QStringLiteral("tessel: %1: %2\n").arg(directory.path(), reason);
}

} // namespace

/// What `tessel build` refuses or leaves out, why, and that it leaves every file whole.
class tst_ToolBuildFailures : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void pathThatIsNoFolderOfDescriptions();
    void firstFileThatDoesNotParseFailsTheBuild();
    void laterFileThatDoesNotParseIsLeftOutAndTold();
    void fileWithoutKeyIsLeftOutAndTold();
    void descriptionThatCannotBeBuilt_data();
    void descriptionThatCannotBeBuilt();
    void filesWithBuffersOfBothKindsAreRefused();
    void cutOffTextGivesWayToTheFormerOne();
    void textThatIsPutBackStaysWithItsOwner();
    void textThatCannotBePutBackIsTold();
    void readOnlyPlaceIsRefused_data();
    void readOnlyPlaceIsRefused();
    void unreadablePlaceIsRefused_data();
    void unreadablePlaceIsRefused();
    void checkNeedsNoPermissionToWrite();
};

void tst_ToolBuildFailures::pathThatIsNoFolderOfDescriptions()
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

void tst_ToolBuildFailures::firstFileThatDoesNotParseFailsTheBuild()
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

void tst_ToolBuildFailures::laterFileThatDoesNotParseIsLeftOutAndTold()
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

void tst_ToolBuildFailures::fileWithoutKeyIsLeftOutAndTold()
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

void tst_ToolBuildFailures::descriptionThatCannotBeBuilt_data()
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

void tst_ToolBuildFailures::descriptionThatCannotBeBuilt()
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

void tst_ToolBuildFailures::filesWithBuffersOfBothKindsAreRefused()
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

void tst_ToolBuildFailures::cutOffTextGivesWayToTheFormerOne()
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

void tst_ToolBuildFailures::textThatIsPutBackStaysWithItsOwner()
{
    if (::geteuid() != 0) {
        QSKIP("only root may give a file away");
    }
    const DescriptionDirectory directory;
    const QByteArray text = compact(root({{QStringLiteral("x"), leaf(1, 4, 4)}}));
    directory.write(fileA, text);
    constexpr uint serviceUser = 1234;
    constexpr uint serviceGroup = 1235;
    QCOMPARE(::chown(qPrintable(directory.filePath(fileA)), serviceUser, serviceGroup), 0);

    {
        const ResourceLimit limit(RLIMIT_FSIZE, static_cast<rlim_t>(text.size()));
        QCOMPARE(runBuild(directory.path()).exitCode, 9);
    }

    const QFileInfo file(directory.filePath(fileA));
    QCOMPARE(directory.read(fileA), text);
    QCOMPARE(file.ownerId(), serviceUser);
    QCOMPARE(file.groupId(), serviceGroup);
}

void tst_ToolBuildFailures::textThatCannotBePutBackIsTold()
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

void tst_ToolBuildFailures::readOnlyPlaceIsRefused_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("file") << fileB;
    QTest::newRow("folder") << QStringLiteral("sub");
}

void tst_ToolBuildFailures::readOnlyPlaceIsRefused()
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

void tst_ToolBuildFailures::unreadablePlaceIsRefused_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("file") << fileB;
    QTest::newRow("folder") << QStringLiteral("sub");
    QTest::newRow("the whole") << QString();
}

void tst_ToolBuildFailures::unreadablePlaceIsRefused()
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

void tst_ToolBuildFailures::checkNeedsNoPermissionToWrite()
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

QTEST_GUILESS_MAIN(tst_ToolBuildFailures)
#include "tst_ToolBuildFailures.moc"
