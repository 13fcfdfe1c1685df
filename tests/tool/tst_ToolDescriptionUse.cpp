#include "ComparedPair.h"
#include "HeldRegion.h"
#include "TwoFiles.h"
#include "support/LogCapture.h"

#include <csignal>
#include <memory>

#include <sys/stat.h>

using Metadata = ToolDescription::Metadata;

namespace {

/// One file has a double buffer, the other a single one: no build can mend that.
void writeBothKinds(const TwoFiles &directory)
{
    directory.write(fileB, Description::with(Description::root({{"z", Description::leaf(1, 4, 1)}}),
                                             "doubleBuffer", true));
}

QJsonObject objectIn(const ToolResult &result)
{
    return QJsonDocument::fromJson(result.output.toUtf8()).object();
}

QString bothKindsError(const TwoFiles &directory)
{
    return "tessel: " + directory.path()
           + ": its files would not describe one memory after a build: 'doubleBuffer' of "
             "sub/b.process.json is missing, no boolean, or another one than in a.process.json\n";
}

/// The line of `tessel info` about the region.
QString regionLine(const QString &file)
{
    const QStringList lines = runTool({"info", file}).output.split(QLatin1Char('\n'));
    return lines.filter(QRegularExpression("^Region ")).value(0);
}

} // namespace

/// What the subcommands that work on descriptions say where these, or what stands beside them, are not as they
/// should be.
class tst_ToolDescriptionUse : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { m_log = std::make_unique<LogCapture>(); }
    void cleanup() { m_log.reset(); }

    void dryBuildTellsWhatABuildCannotMend();
    void failedBuildPrintsNoObject();
    void fullOutputDoesNotHideAFailedBuild();
    void dryHoldOfANewFolderHasNoKeyYet();
    void dryHoldTellsWhatABuildCannotMend();
    void replacedRegionIsToldAsJson();
    void foldersWithoutDescriptionsAreNotCompared();
    void foldersOfDifferentKindsAreNotCompared();
    void unreadableFolderIsNotCompared();
    void tableOfOtherLengthIsShownByItsRows();
    void layoutWithoutMemoryIsShown();
    void regionOfAnotherLayoutIsTold();
    void regionThatCannotBeOpenedIsTold();
    void elementWithoutValueIsNotSet();

private:
    std::unique_ptr<LogCapture> m_log;
};

void tst_ToolDescriptionUse::dryBuildTellsWhatABuildCannotMend()
{
    const TwoFiles directory;
    writeBothKinds(directory);
    const auto before = directory.snapshot();

    for (const auto &options : {QStringList("--dry-run"), QStringList{"--dry-run", "--json"}}) {
        const ToolResult result = runBuild(directory.path(), options);

        QCOMPARE(result.error, bothKindsError(directory));
        QCOMPARE(result.output, QString());
        QCOMPARE(result.exitCode, 9);
    }
    QVERIFY(directory.snapshot() == before);
}

void tst_ToolDescriptionUse::failedBuildPrintsNoObject()
{
    const TwoFiles directory;
    directory.write(fileB, QByteArray("{"));

    const ToolResult result = runBuild(directory.path(), {"--json"});

    QCOMPARE(result.error,
             "tessel: " + directory.path()
                 + ": sub/b.process.json left out: line 1, column 1: unterminated object\n");
    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, 9);
    // The file before it is built all the same.
    QCOMPARE(Description::sizeOf(directory.json(fileA)), 16);
}

void tst_ToolDescriptionUse::fullOutputDoesNotHideAFailedBuild()
{
    const TwoFiles directory;
    directory.write(fileB, QByteArray("{"));
    QProcess shell;

    shell.start("/bin/sh",
                {"-c", "exec \"$0\" build \"$1\" >/dev/full", TESSEL_TOOL, directory.path()});
    QVERIFY(shell.waitForFinished(60000));

    QCOMPARE(QString::fromUtf8(shell.readAllStandardError()),
             "tessel: " + directory.path()
                 + ": sub/b.process.json left out: line 1, column 1: unterminated object\n");
    QCOMPARE(shell.exitCode(), 9);
}

void tst_ToolDescriptionUse::dryHoldOfANewFolderHasNoKeyYet()
{
    const TwoFiles directory;
    const auto before = directory.snapshot();
    const QJsonObject built = objectIn(runBuild(directory.path(), {"--dry-run", "--json"}));

    const ToolResult plain = runTool({"hold", "--dry-run", directory.path()});
    const ToolResult json = runTool({"hold", "--dry-run", "--json", directory.path()});

    const QString note("tessel: note: a build would rewrite a.process.json, sub/b.process.json\n");
    QVERIFY(built.value("regionSize").toInt() > 0);
    QCOMPARE(plain.error, note);
    QCOMPARE(plain.output, QString("would hold a new key: 3 leaves, single buffer, %1 bytes\n")
                               .arg(built.value("regionSize").toInt()));
    QCOMPARE(plain.exitCode, 0);
    QCOMPARE(json.error, note);
    QCOMPARE(objectIn(json), (QJsonObject{{"key", QJsonValue()},
                                          {"leaves", 3},
                                          {"doubleBuffer", false},
                                          {"regionSize", built.value("regionSize")},
                                          {"replaced", false},
                                          {"created", false}}));
    QVERIFY(directory.snapshot() == before);
}

void tst_ToolDescriptionUse::dryHoldTellsWhatABuildCannotMend()
{
    const TwoFiles directory;
    writeBothKinds(directory);

    const ToolResult result = runTool({"hold", "--dry-run", directory.path()});

    QCOMPARE(result.error, bothKindsError(directory));
    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, 9);
}

void tst_ToolDescriptionUse::replacedRegionIsToldAsJson()
{
    ToolDescription description;
    description.add("a", "int32", Metadata::ErrorState, 4);
    const QString file = description.write();
    const HeldRegion former(file);
    QVERIFY(former.isValid());

    const QJsonObject dry = objectIn(runTool({"hold", "--dry-run", "--json", file}));
    ToolProcess hold({"hold", "--json", file});
    const QJsonObject held = QJsonDocument::fromJson(hold.nextLine().toUtf8()).object();
    hold.signal(SIGTERM);
    const ToolResult ended = hold.finish();

    QCOMPARE(dry.value("replaced"), QJsonValue(true));
    QCOMPARE(dry.value("created"), QJsonValue(false));
    QCOMPARE(held.value("key"), QJsonValue(description.key()));
    QCOMPARE(held.value("replaced"), QJsonValue(true));
    QCOMPARE(held.value("created"), QJsonValue(true));
    QCOMPARE(ended.error, QString("tessel: note: replaced the region '%1' that was there; who was "
                                  "attached to it must attach again\n")
                              .arg(description.key()));
    QCOMPARE(ended.exitCode, 0);
}

void tst_ToolDescriptionUse::foldersWithoutDescriptionsAreNotCompared()
{
    const TwoFiles described;
    const QTemporaryDir empty;

    const ToolResult result = diff({described.path(), empty.path()});

    QCOMPARE(result.error, "tessel: " + empty.path()
                               + ": holds no description; their names end in .process.json or "
                                 ".config.json\n");
    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, 9);
}

/// All descriptions of folders are compared, so that none may be left out without a word.
void tst_ToolDescriptionUse::foldersOfDifferentKindsAreNotCompared()
{
    const TwoFiles one;
    const TwoFiles both;
    QVERIFY(both.write("c.config.json", configuration(R"("type": "int32", "value": 1)")));

    for (const auto &pair :
         {QStringList{one.path(), both.path()}, QStringList{both.path(), one.path()}}) {
        const ToolResult result = diff(pair);

        QCOMPARE(result.error,
                 QString("tessel: diff: %1 and %2 hold descriptions of different kinds; see "
                         "'tessel diff --help'\n")
                     .arg(pair.at(0), pair.at(1)));
        QCOMPARE(result.output, QString());
        QCOMPARE(result.exitCode, 2);
    }
}

void tst_ToolDescriptionUse::unreadableFolderIsNotCompared()
{
    if (!makePermissionsCount()) {
        QSKIP("Root reads everything");
    }
    const TwoFiles directory;
    for (const auto permission : {QFile::ReadOwner, QFile::ExeOwner}) {
        const NarrowPermissions narrow(directory.path(), permission);

        const ToolResult result = diff({directory.path(), directory.path()});

        QCOMPARE(result.error, "tessel: " + directory.path() + ": no permission to read it\n");
        QCOMPARE(result.output, QString());
        QCOMPARE(result.exitCode, 4);
    }
}

void tst_ToolDescriptionUse::tableOfOtherLengthIsShownByItsRows()
{
    const QByteArray columns = R"("arrayInformation": [[], [{"type": "int32"}]])";
    const Pair files(configuration(R"("type": "array", "value": [[1]], )" + columns),
                     configuration(R"("type": "array", "value": [[1], [2]], )" + columns),
                     "config");

    const ToolResult result = diff({files.former, files.now});

    QCOMPARE(result.output, QString("VERDICT     KIND    URL  WHAT   OLD     NEW     REASON\n"
                                    "compatible  config  n/a  value  1 rows  2 rows\n"
                                    "\n"
                                    "0 breaking, 0 attach, 1 compatible\n"));
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolDescriptionUse::layoutWithoutMemoryIsShown()
{
    ToolDescription description;
    description.add("a", "int32", Metadata::ErrorState, 4);
    description.setRoot("sizeOfSharedMemory", 0);

    const ToolResult result = runTool({"layout", description.write()});

    QVERIFY2(result.output.contains("\nBuffer       none described\nUsed         8 bytes\n"),
             qPrintable(result.output));
    QCOMPARE(result.error, QString());
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolDescriptionUse::regionOfAnotherLayoutIsTold()
{
    ToolDescription description;
    description.add("a", "int32", Metadata::ErrorState, 4);
    const HeldRegion region(description.write());
    QVERIFY(region.isValid());
    description.add("a", "uint32", Metadata::None, 4, {{"offsetSharedMemory", 0}});
    description.setRoot("sizeOfSharedMemory", 8);

    QCOMPARE(regionLine(description.write()),
             QString("Region      %1SharedMemory, 528 bytes; exists: made from another description")
                 .arg(description.key()));
}

void tst_ToolDescriptionUse::regionThatCannotBeOpenedIsTold()
{
    ToolDescription description;
    description.add("a", "int32", Metadata::ErrorState, 4);
    const QString file = description.write();
    const QString path = description.segmentPath();
    QCOMPARE(mknod(qPrintable(path), S_IFREG | 0600, 0), 0);

    const QString line = regionLine(file);
    QVERIFY(QFile::remove(path));

    QCOMPARE(line,
             QString("Region      %1SharedMemory, 528 bytes; exists, cannot be opened: Invalid "
                     "argument")
                 .arg(description.key()));
}

void tst_ToolDescriptionUse::elementWithoutValueIsNotSet()
{
    const ToolDescription folder;
    const QByteArray text = configuration(R"("type": "int32")");
    const QString file = folder.write("one.config.json", text);

    const ToolResult result = runTool({"config", "set", file, "n/a", "5"});

    QCOMPARE(result.error, QString("tessel: 'n/a': the element has no value that could be set\n"));
    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, 5);
    QFile written(file);
    QVERIFY(written.open(QIODevice::ReadOnly));
    QCOMPARE(written.readAll(), text);
}

QTEST_GUILESS_MAIN(tst_ToolDescriptionUse)
#include "tst_ToolDescriptionUse.moc"
