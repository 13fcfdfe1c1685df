#include "ToolFolder.h"
#include "support/ResourceLimit.h"
#include "support/WorkingDirectory.h"

namespace {

using Description::leaf;
using Description::root;
using Description::with;
using Description::without;

const QString rootFile = QStringLiteral("plant.process.json");
const QString partFile = QStringLiteral("pump.process.json");
const QString pump = QStringLiteral("pump");

/// A root of 100 bytes and a part of 40.
class RootAndPart : public DescriptionDirectory
{
public:
    RootAndPart()
    {
        write(rootFile, compact(root({{QStringLiteral("tank"), leaf(1, 4, 4, 0)}},
                                     QStringLiteral("plant"), 100)));
        write(partFile, root({{QStringLiteral("speed"), leaf(1, 8, 4, 0)},
                              {QStringLiteral("power"), leaf(2, 8, 4, 16)}},
                             QStringLiteral("pumpKey"), 40));
    }

    ToolResult merge(const QString &name = pump, const QStringList &options = {}) const
    {
        return runTool(
            QStringList{QStringLiteral("merge"), filePath(rootFile), filePath(partFile), name}
            + options);
    }
    QString rootFailure(const QString &reason) const
    {
        return QStringLiteral("tessel: %1: %2\n").arg(filePath(rootFile), reason);
    }
};

} // namespace

/// What `tessel merge` makes of a root and a part, and what it says.
class tst_ToolMerge : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void partIsHungInBehindTheRootsEnd();
    void replacedElementIsNoted();
    void dryRunWritesNothing();
    void dryRunRefusesWhatCannotBeMerged();
    void resultIsPrintedAsJson();
    void partWithoutDisplayPositionIsNoted();
    void helpHasExamples();
    void wrongUse_data();
    void wrongUse();
    void fileThatIsNoDescription_data();
    void fileThatIsNoDescription();
    void partThatCannotBeMerged_data();
    void partThatCannotBeMerged();
    void cutOffTextGivesWayToTheFormerOne();
    void readOnlyPlaceIsRefused_data();
    void readOnlyPlaceIsRefused();
};

void tst_ToolMerge::partIsHungInBehindTheRootsEnd()
{
    const RootAndPart directory;
    const FileState part = stateOf(directory.filePath(partFile));

    const ToolResult result = directory.merge();

    QCOMPARE(result.error, QString());
    QCOMPARE(result.output, QStringLiteral("merged 'pump' at offset 100, 40 bytes\n"));
    QCOMPARE(result.exitCode, 0);
    const QJsonObject merged = directory.json(rootFile);
    QCOMPARE(Description::sizeOf(merged), 140);
    QCOMPARE(Description::keyOf(merged), QStringLiteral("plant"));
    QCOMPARE(Description::offsetOf(merged, QStringLiteral("tank")), 0);
    QCOMPARE(Description::offsetOf(merged, QStringLiteral("pump/speed")), 100);
    QCOMPARE(Description::offsetOf(merged, QStringLiteral("pump/power")), 116);
    QVERIFY(stateOf(directory.filePath(partFile)) == part);
}

void tst_ToolMerge::replacedElementIsNoted()
{
    const RootAndPart directory;
    QCOMPARE(directory.merge().exitCode, 0);

    const ToolResult result = directory.merge();

    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.output, QStringLiteral("merged 'pump' at offset 140, 40 bytes\n"));
    QCOMPARE(result.error,
             QStringLiteral("tessel: note: %1: 'pump' was there and is replaced; its bytes stay "
                            "counted\n")
                 .arg(directory.filePath(rootFile)));
    QCOMPARE(Description::sizeOf(directory.json(rootFile)), 180);
}

void tst_ToolMerge::partWithoutDisplayPositionIsNoted()
{
    const RootAndPart directory;
    directory.write(partFile, without(directory.json(partFile), QStringLiteral("displayPosition")));

    const ToolResult result = directory.merge();

    QCOMPARE(result.exitCode, 0);
    QVERIFY2(result.error.startsWith(
                 QStringLiteral("tessel: note: %1: ").arg(directory.filePath(partFile))),
             qPrintable(result.error));
    QVERIFY2(result.error.contains(QStringLiteral("displayPosition")), qPrintable(result.error));
    QCOMPARE(result.error.count(QLatin1Char('\n')), 1);
}

void tst_ToolMerge::helpHasExamples()
{
    const ToolResult result = runTool({QStringLiteral("merge"), QStringLiteral("--help")});

    QCOMPARE(result.exitCode, 0);
    QVERIFY(result.output.startsWith(
        QStringLiteral("Usage: tessel merge [OPTION...] ROOTFILE PARTFILE NAME\n")));
    QVERIFY(result.output.contains(QStringLiteral("\nExamples:\n  tessel merge ")));
    QVERIFY(runTool({QStringLiteral("--help")}).output.contains(QStringLiteral("\n  merge ")));
}

void tst_ToolMerge::wrongUse_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::newRow("no name") << QStringList{rootFile, partFile};
    QTest::newRow("empty name") << QStringList{rootFile, partFile, QString()};
    QTest::newRow("name that is a URL")
        << QStringList{rootFile, partFile, QStringLiteral("pumps/first")};
    QTest::newRow("one too many") << QStringList{rootFile, partFile, pump, pump};
}

void tst_ToolMerge::wrongUse()
{
    QFETCH(QStringList, arguments);

    const ToolResult result = runTool(QStringList(QStringLiteral("merge")) + arguments);

    QCOMPARE(result.exitCode, 2);
    QCOMPARE(result.output, QString());
    QCOMPARE(result.error.count(QLatin1Char('\n')), 1);
}

void tst_ToolMerge::fileThatIsNoDescription_data()
{
    QTest::addColumn<QString>("bad");
    QTest::newRow("root") << rootFile;
    QTest::newRow("part") << partFile;
}

void tst_ToolMerge::fileThatIsNoDescription()
{
    QFETCH(QString, bad);
    const RootAndPart directory;
    const QString path = directory.filePath(bad);
    const FileState rootBefore = stateOf(directory.filePath(rootFile));

    directory.write(bad, QByteArrayLiteral("{"));
    const FileState broken = stateOf(path);
    const ToolResult unparsable = directory.merge();
    QCOMPARE(unparsable.exitCode, 9);
    QCOMPARE(unparsable.output, QString());
    QCOMPARE(unparsable.error,
             QStringLiteral("tessel: %1: cannot be parsed: line 1, column 1: unterminated object\n")
                 .arg(path));
    QVERIFY(stateOf(path) == broken);

    QVERIFY(QFile::remove(path));
    const ToolResult missing = directory.merge();
    QCOMPARE(missing.exitCode, 3);
    QCOMPARE(missing.error, QStringLiteral("tessel: %1: no such file\n").arg(path));

    QVERIFY(QDir().mkdir(path));
    const ToolResult folder = directory.merge();
    QCOMPARE(folder.exitCode, 9);
    QCOMPARE(folder.error,
             QStringLiteral("tessel: %1: is a folder; name a description file\n").arg(path));
    QVERIFY(bad == rootFile || stateOf(directory.filePath(rootFile)) == rootBefore);
}

void tst_ToolMerge::partThatCannotBeMerged_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<QJsonObject>("json");
    QTest::addColumn<QString>("words");
    const QJsonObject leaves{{QStringLiteral("speed"), leaf(1, 8, 4, 0)}};
    QTest::newRow("part without leaves")
        << partFile << root({}, QString(), 40)
        << QStringLiteral("Node has no childs!; Can not adapt offset of shared memory in part.");
    QTest::newRow("part without size")
        << partFile << without(root(leaves), QStringLiteral("sizeOfSharedMemory"))
        << QStringLiteral("No property in part: \"sizeOfSharedMemory\"; Can not adapt size of "
                          "shared memory in root.");
    QTest::newRow("leaf without offset")
        << partFile
        << root({{QStringLiteral("speed"),
                  without(leaf(1, 8, 4), QStringLiteral("offsetSharedMemory"))}})
        << QStringLiteral("Offset is not valid.; Can not adapt offset of shared memory in part.");
    QTest::newRow("root without size")
        << rootFile << without(root(leaves), QStringLiteral("sizeOfSharedMemory"))
        << QStringLiteral("No property: \"sizeOfSharedMemory\"; Can not adapt offset of shared "
                          "memory in part.");
    QTest::newRow("root that is a leaf")
        << rootFile << with(leaf(1, 8, 4), QStringLiteral("sizeOfSharedMemory"), 8)
        << QStringLiteral("Root can not be casted to a tree node.; Can not add part to root.");
}

void tst_ToolMerge::partThatCannotBeMerged()
{
    QFETCH(QString, file);
    QFETCH(QJsonObject, json);
    QFETCH(QString, words);
    const RootAndPart directory;
    directory.write(file, json);
    const auto before = statesBelow(directory.path());

    const ToolResult result = directory.merge();

    QCOMPARE(result.error, directory.rootFailure(QStringLiteral("nothing was merged: ") + words));
    QCOMPARE(result.exitCode, 9);
    QCOMPARE(result.output, QString());
    QVERIFY(statesBelow(directory.path()) == before);
}

void tst_ToolMerge::cutOffTextGivesWayToTheFormerOne()
{
    const RootAndPart directory;
    const QByteArray before = directory.read(rootFile);
    const QStringList files = directory.files();

    ToolResult result;
    {
        const ResourceLimit limit(RLIMIT_FSIZE, static_cast<rlim_t>(before.size()));
        result = directory.merge();
    }

    QCOMPARE(result.exitCode, 9);
    QCOMPARE(result.output, QString());
    QVERIFY2(result.error.startsWith(
                 QStringLiteral("tessel: %1: the new text could not be written whole, the former "
                                "one is back: %1: Error on writing to file!")
                     .arg(directory.filePath(rootFile))),
             qPrintable(result.error));
    QCOMPARE(result.error.count(QLatin1Char('\n')), 1);
    QCOMPARE(directory.read(rootFile), before);
    QCOMPARE(directory.files(), files);
    QCOMPARE(directory.merge().exitCode, 0);
}

void tst_ToolMerge::readOnlyPlaceIsRefused_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("file") << rootFile;
    QTest::newRow("folder") << QStringLiteral(".");
}

void tst_ToolMerge::readOnlyPlaceIsRefused()
{
    QFETCH(QString, name);
    if (!makePermissionsCount()) {
        QSKIP("Root writes everything");
    }
    const RootAndPart directory;
    const QByteArray before = directory.read(rootFile);
    const NarrowPermissions narrow(directory.filePath(name), QFile::ReadOwner | QFile::ExeOwner);

    const ToolResult result = directory.merge();

    QCOMPARE(result.exitCode, 4);
    QCOMPARE(result.error, directory.rootFailure(QStringLiteral("no permission to write it")));
    QCOMPARE(directory.read(rootFile), before);
}

void tst_ToolMerge::dryRunWritesNothing()
{
    const RootAndPart directory;
    const FileState before = stateOf(directory.filePath(rootFile));

    const ToolResult result = directory.merge(pump, {QStringLiteral("--dry-run")});

    QCOMPARE(result.error, QString());
    QCOMPARE(result.output, QStringLiteral("would merge 'pump' at offset 100, 40 bytes\n"));
    QCOMPARE(result.exitCode, 0);
    QVERIFY(stateOf(directory.filePath(rootFile)) == before);

    const ToolResult replacing = directory.merge(QStringLiteral("tank"),
                                                 {QStringLiteral("--dry-run")});
    QCOMPARE(replacing.error,
             QStringLiteral("tessel: note: %1: 'tank' was there and would be replaced; its bytes "
                            "stay counted\n")
                 .arg(directory.filePath(rootFile)));
    QVERIFY(stateOf(directory.filePath(rootFile)) == before);
}

void tst_ToolMerge::dryRunRefusesWhatCannotBeMerged()
{
    const RootAndPart directory;
    directory.write(partFile, QByteArrayLiteral(R"({"type": "treenode", "value": {}})"));
    const FileState before = stateOf(directory.filePath(rootFile));

    const ToolResult result = directory.merge(pump, {QStringLiteral("--dry-run")});

    QVERIFY2(result.error.startsWith(QStringLiteral("tessel: %1: nothing would be merged: ")
                                         .arg(directory.filePath(rootFile))),
             qPrintable(result.error));
    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, 9);
    QVERIFY(stateOf(directory.filePath(rootFile)) == before);
}

void tst_ToolMerge::resultIsPrintedAsJson()
{
    const RootAndPart directory;

    QCOMPARE(directory.merge(pump, {QStringLiteral("--json"), QStringLiteral("--dry-run")}).output,
             QStringLiteral("{\"name\": \"pump\", \"offset\": 100, \"size\": 40, \"replaced\": "
                            "false, \"written\": false}\n"));
    QCOMPARE(directory.merge(pump, {QStringLiteral("--json")}).output,
             QStringLiteral("{\"name\": \"pump\", \"offset\": 100, \"size\": 40, \"replaced\": "
                            "false, \"written\": true}\n"));
    QCOMPARE(directory.merge(pump, {QStringLiteral("--json")}).output,
             QStringLiteral("{\"name\": \"pump\", \"offset\": 140, \"size\": 40, \"replaced\": "
                            "true, \"written\": true}\n"));
}

QTEST_GUILESS_MAIN(tst_ToolMerge)
#include "tst_ToolMerge.moc"
