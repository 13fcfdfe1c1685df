#include "HeldRegion.h"
#include "ToolProcess.h"
#include "support/WorkingDirectory.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QtTest>

#include <limits>

using namespace ProcessDataDefinitions;
using Metadata = ToolDescription::Metadata;

/// What `tessel get` prints.
class tst_ToolGet : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void allLeavesComeInDisplayOrder();
    void nodesStandForTheLeavesBelow();
    void namesWithASlashAreFoundByTheirUrl();
    void urlsComeInTheOrderOfTheCommandLine();
    void starsStandForNames();
    void patternThatNamesNothingIsRefused();
    void terseOutputIsAValueALine();
    void terseAndJsonDoNotGoTogether();
    void jsonHasOneObjectALeaf();
    void jsonKeeps64Bits();
    void controlCharactersAreShownAsEscapes();
    void unpublishedValuesAreNotSeen();
    void singleBufferIsRead();
    void leafThatCannotBeUsedIsLeftOutWithANote();
    void leafThatCannotBeUsedIsRefusedWhenAskedFor();
    void closedOutputEndsItWithoutAWord();
    void fullDiskIsReported();
    void libraryMessagesAreShownOnRequestOnly();
};

void tst_ToolGet::allLeavesComeInDisplayOrder()
{
    ToolDescription description;
    description.add(QStringLiteral("z/temperature"), QStringLiteral("float"), Metadata::ErrorState,
                    4, {{QStringLiteral("unit"), QStringLiteral("°C")}});
    description.add(QStringLiteral("a/last"), QStringLiteral("int32"), Metadata::ErrorState, 4);
    description.add(QStringLiteral("first"), QStringLiteral("string"), Metadata::ErrorState, 32,
                    {{QStringLiteral("displayPosition"), -1}});
    const QString file = description.write();
    HeldRegion region(file);
    region.publish(QStringLiteral("z/temperature"), validValue(-12.5F));
    region.publish(QStringLiteral("a/last"),
                   ProcessValue(PROCESS_VALUE_ERROR_TYPE_SENSOR_BREAKAGE));
    region.publish(QStringLiteral("first"), validValue(QStringLiteral("two words")));

    const ToolResult result = runTool({QStringLiteral("get"), file});

    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.error, QString());
    QCOMPARE(result.output, QStringLiteral("URL                VALUE  UNIT  STATE\n"
                                           "first          two words        valid\n"
                                           "a/last                          sensor-breakage\n"
                                           "z/temperature      -12.5  °C    valid\n"));
}

void tst_ToolGet::nodesStandForTheLeavesBelow()
{
    ToolDescription description;
    description.add(QStringLiteral("n/a"), QStringLiteral("int8"), Metadata::ErrorState, 1);
    description.add(QStringLiteral("n/b"), QStringLiteral("int8"), Metadata::ErrorState, 1);
    description.add(QStringLiteral("no"), QStringLiteral("int8"), Metadata::ErrorState, 1);
    const QString file = description.write();
    const HeldRegion region(file);

    const ToolResult result = runTool({QStringLiteral("get"), file, QStringLiteral("/n/")});

    QCOMPARE(result.output, QStringLiteral("URL  VALUE  UNIT  STATE\n"
                                           "n/a               no-input\n"
                                           "n/b               no-input\n"));
}

void tst_ToolGet::starsStandForNames()
{
    ToolDescription description;
    for (const auto &url : {"n/speed", "n/power", "m/speed", "speed"}) {
        description.add(QLatin1String(url), QStringLiteral("int8"), Metadata::None, 1);
    }
    const QString file = description.write();
    const HeldRegion region(file);

    const QString oneLevel = runTool({QStringLiteral("get"), file, QStringLiteral("*/sp*")}).output;
    const QString anyDepth =
        runTool({QStringLiteral("get"), file, QStringLiteral("**/speed")}).output;

    QCOMPARE(oneLevel, QStringLiteral("URL      VALUE  UNIT  STATE\n"
                                      "m/speed      0        valid\n"
                                      "n/speed      0        valid\n"));
    QCOMPARE(anyDepth, QStringLiteral("URL      VALUE  UNIT  STATE\n"
                                      "speed        0        valid\n"
                                      "m/speed      0        valid\n"
                                      "n/speed      0        valid\n"));
}

void tst_ToolGet::namesWithASlashAreFoundByTheirUrl()
{
    // One pressure below the node `a`, the other under a name that holds the slash.
    const QJsonObject leaf{
        {"type", "int8"},    {"offsetSharedMemory", 0},     {"sizeValue", 1},
        {"sizeMetadata", 0}, {"relativeOffsetMetadata", 0}, {"displayPosition", 1}};
    ToolDescription description;
    description.add(QStringLiteral("a/low"), QStringLiteral("int8"), Metadata::None, 1);
    QJsonObject json = QJsonDocument::fromJson(readFile(description.write())).object();
    QJsonObject children = json.value(QStringLiteral("value")).toObject();
    children.insert(QStringLiteral("a/high"), leaf);
    json.insert(QStringLiteral("value"), children);
    const QString file = description.write(QStringLiteral("slash.process.json"),
                                           QJsonDocument(json).toJson());
    const HeldRegion region(file);

    const auto urlsOf = [&](const char *url) {
        return runTool({QStringLiteral("get"), QStringLiteral("--json"), file, QLatin1String(url)})
            .output.count(QStringLiteral("\"url\""));
    };

    QCOMPARE(urlsOf("a/high"), 1);
    QCOMPARE(urlsOf("a/low"), 1);
    QCOMPARE(urlsOf("a"), 2);
    QCOMPARE(urlsOf("a/*"), 2);
}

void tst_ToolGet::patternThatNamesNothingIsRefused()
{
    ToolDescription description;
    description.add(QStringLiteral("n/a"), QStringLiteral("int8"), Metadata::None, 1);
    const QString file = description.write();

    const ToolResult result = runTool({QStringLiteral("get"), file, QStringLiteral("**/z*")});

    QCOMPARE(result.error, QStringLiteral("tessel: %1: no element at '**/z*'\n").arg(file));
    QCOMPARE(result.exitCode, 3);
}

void tst_ToolGet::terseOutputIsAValueALine()
{
    ToolDescription description;
    description.add(QStringLiteral("a"), QStringLiteral("float"), Metadata::ErrorState, 4);
    description.add(QStringLiteral("b"), QStringLiteral("int8"), Metadata::ErrorState, 1);
    description.add(QStringLiteral("c"), QStringLiteral("string"), Metadata::ErrorState, 32);
    const QString file = description.write();
    HeldRegion region(file);
    region.publish(QStringLiteral("a"), validValue(-12.5F));
    region.publish(QStringLiteral("c"), validValue(QStringLiteral("two\nlines")));

    const ToolResult result = runTool({QStringLiteral("get"), QStringLiteral("-t"), file});

    QCOMPARE(result.output, QStringLiteral("-12.5\n\ntwo\\nlines\n"));
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolGet::terseAndJsonDoNotGoTogether()
{
    const ToolResult result = runTool({QStringLiteral("get"), QStringLiteral("--terse"),
                                       QStringLiteral("--json"), QStringLiteral("x.process.json")});

    QCOMPARE(result.error, QStringLiteral("tessel: get: --json does not go with --terse; "
                                          "see 'tessel get --help'\n"));
    QCOMPARE(result.exitCode, 2);
}

void tst_ToolGet::urlsComeInTheOrderOfTheCommandLine()
{
    ToolDescription description;
    description.add(QStringLiteral("a"), QStringLiteral("int8"), Metadata::None, 1);
    description.add(QStringLiteral("b"), QStringLiteral("int8"), Metadata::None, 1);
    const QString file = description.write();
    const HeldRegion region(file);

    const ToolResult result = runTool(
        {QStringLiteral("get"), file, QStringLiteral("b"), QStringLiteral("a")});

    QCOMPARE(result.output, QStringLiteral("URL  VALUE  UNIT  STATE\n"
                                           "b        0        valid\n"
                                           "a        0        valid\n"));
}

void tst_ToolGet::jsonHasOneObjectALeaf()
{
    ToolDescription description;
    description.add(QStringLiteral("n/temperature"), QStringLiteral("float"), Metadata::ErrorState,
                    4, {{QStringLiteral("unit"), QStringLiteral("°C")}});
    description.add(QStringLiteral("bad"), QStringLiteral("double"), Metadata::ErrorState, 8);
    const QString file = description.write();
    HeldRegion region(file);
    region.publish(QStringLiteral("n/temperature"), validValue(0.1F));
    region.publish(QStringLiteral("bad"), ProcessValue(PROCESS_VALUE_ERROR_TYPE_DIVISION_BY_ZERO));

    const ToolResult result = runTool({QStringLiteral("get"), QStringLiteral("--json"), file,
                                       QStringLiteral("n"), QStringLiteral("bad")});

    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.error, QString());
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(result.output.toUtf8(), &error);
    QCOMPARE(error.error, QJsonParseError::NoError);
    const QJsonArray expected{
        QJsonObject{{QStringLiteral("url"), QStringLiteral("n/temperature")},
                    {QStringLiteral("value"), 0.1},
                    {QStringLiteral("state"), 0},
                    {QStringLiteral("stateName"), QStringLiteral("valid")},
                    {QStringLiteral("unit"), QStringLiteral("°C")},
                    {QStringLiteral("type"), QStringLiteral("float")}},
        QJsonObject{{QStringLiteral("url"), QStringLiteral("bad")},
                    {QStringLiteral("value"), QJsonValue()},
                    {QStringLiteral("state"), 4},
                    {QStringLiteral("stateName"), QStringLiteral("division-by-zero")},
                    {QStringLiteral("unit"), QString()},
                    {QStringLiteral("type"), QStringLiteral("double")}}};
    QCOMPARE(document.array(), expected);
}

void tst_ToolGet::jsonKeeps64Bits()
{
    ToolDescription description;
    description.add(QStringLiteral("a"), QStringLiteral("uint64"), Metadata::None, 8);
    const QString file = description.write();
    HeldRegion region(file);
    region.publish(QStringLiteral("a"), validValue(std::numeric_limits<quint64>::max()));

    const ToolResult result = runTool({QStringLiteral("get"), QStringLiteral("--json"), file});

    QVERIFY(result.output.contains(QStringLiteral("\"value\": 18446744073709551615,")));
}

void tst_ToolGet::controlCharactersAreShownAsEscapes()
{
    ToolDescription description;
    description.add(QStringLiteral("a"), QStringLiteral("string"), Metadata::None, 32);
    const QString file = description.write();
    HeldRegion region(file);
    region.publish(QStringLiteral("a"), validValue(QStringLiteral("x\033[2J\ny")));

    const ToolResult result = runTool({QStringLiteral("get"), file});

    QCOMPARE(result.output, QStringLiteral("URL          VALUE  UNIT  STATE\n"
                                           "a    x\\u001b[2J\\ny        valid\n"));
}

void tst_ToolGet::unpublishedValuesAreNotSeen()
{
    ToolDescription description;
    description.add(QStringLiteral("a"), QStringLiteral("int32"), Metadata::None, 4);
    const QString file = description.write();
    HeldRegion region(file);
    region.publish(QStringLiteral("a"), validValue(1));
    region.write(QStringLiteral("a"), validValue(2));

    QVERIFY(runTool({QStringLiteral("get"), file}).output.contains(QStringLiteral(" 1 ")));
    region.manager().swapReadAndWriteBuffer();
    QVERIFY(runTool({QStringLiteral("get"), file}).output.contains(QStringLiteral(" 2 ")));
}

void tst_ToolGet::singleBufferIsRead()
{
    ToolDescription description;
    description.add(QStringLiteral("a"), QStringLiteral("int32"), Metadata::None, 4);
    description.setRoot(QStringLiteral("doubleBuffer"), false);
    const QString file = description.write();
    HeldRegion region(file);
    region.write(QStringLiteral("a"), validValue(12));

    QVERIFY(runTool({QStringLiteral("get"), file}).output.contains(QStringLiteral(" 12 ")));
}

void tst_ToolGet::leafThatCannotBeUsedIsLeftOutWithANote()
{
    ToolDescription description;
    description.add(QStringLiteral("a"), QStringLiteral("int32"), Metadata::None, 4);
    description.add(QStringLiteral("b"), QStringLiteral("nonsense"), Metadata::None, 4);
    const QString file = description.write();
    const HeldRegion region(file);

    const ToolResult result = runTool({QStringLiteral("get"), file});

    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.output, QStringLiteral("URL  VALUE  UNIT  STATE\n"
                                           "a        0        valid\n"));
    QCOMPARE(result.error, QStringLiteral("tessel: note: 'b' of %1 is left out: Data type not OK "
                                          "\"nonsense\"\n")
                               .arg(file));
}

void tst_ToolGet::leafThatCannotBeUsedIsRefusedWhenAskedFor()
{
    ToolDescription description;
    description.add(QStringLiteral("a"), QStringLiteral("int32"), Metadata::None, 4);
    description.add(QStringLiteral("b"), QStringLiteral("int64"), Metadata::None, 8,
                    {{QStringLiteral("offsetSharedMemory"), 8}});
    const QString file = description.write();
    const HeldRegion region(file);

    const ToolResult result = runTool({QStringLiteral("get"), file, QStringLiteral("b")});

    QCOMPARE(result.exitCode, 9);
    QCOMPARE(result.output, QString());
    QCOMPARE(result.error, QStringLiteral("tessel: %1: 'b' has no usable slot: its slot ends at "
                                          "byte 16 of a buffer of 12\n")
                               .arg(file));
}

void tst_ToolGet::closedOutputEndsItWithoutAWord()
{
    ToolDescription description;
    description.add(QStringLiteral("a"), QStringLiteral("int32"), Metadata::None, 4);
    const QString file = description.write();
    const HeldRegion region(file);

    QCOMPARE(exitCodeWithoutReader({QStringLiteral("get"), file}), 0);
    QCOMPARE(exitCodeWithoutReader({QStringLiteral("info"), file}), 0);
    QCOMPARE(exitCodeWithoutReader({QStringLiteral("watch"), file}), 0);
    QCOMPARE(exitCodeWithoutReader({QStringLiteral("--help")}), 0);
}

void tst_ToolGet::fullDiskIsReported()
{
    QProcess shell;
    shell.start(QStringLiteral("/bin/sh"),
                {QStringLiteral("-c"), QStringLiteral("exec \"$0\" --help >/dev/full"),
                 QStringLiteral(TESSEL_TOOL)});
    QVERIFY(shell.waitForFinished(60000));

    QCOMPARE(shell.exitCode(), 9);
    QCOMPARE(QString::fromUtf8(shell.readAllStandardError()),
             QStringLiteral("tessel: standard output: No space left on device\n"));
}

void tst_ToolGet::libraryMessagesAreShownOnRequestOnly()
{
    ToolDescription description;
    description.add(QStringLiteral("a"), QStringLiteral("int32"), Metadata::None, 4);
    const QString file = description.write();
    const HeldRegion region(file);

    QCOMPARE(runTool({QStringLiteral("get"), file}).error, QString());
    QCOMPARE(runTool({QStringLiteral("get"), file, QStringLiteral("-v")}).error,
             QStringLiteral("Attach: Key for shared memory ( \"%1\" )!\n").arg(description.key()));
}

QTEST_GUILESS_MAIN(tst_ToolGet)
#include "tst_ToolGet.moc"
