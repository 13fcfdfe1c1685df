#include "DoctoredPlant.h"
#include "ToolFolder.h"
#include "support/LogCapture.h"

#include <QtTest>

namespace {

QStringList trendOf(const DoctoredPlant &plant, const QStringList &options = {})
{
    return QStringList{QStringLiteral("trend"), QStringLiteral("--for"), QStringLiteral("1h")}
           + options + QStringList{plant.file, plant.url};
}

} // namespace

/// What `tessel trend` refuses, and how it ends then.
class tst_ToolTrendUse : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void missingRegionIsNotFound();
    void environmentNamesTheDescription();
    void typosAreRefused_data();
    void typosAreRefused();
    void wrongUse_data();
    void wrongUse();
    void misspeltUrlIsNotFound();
    void moreValuesThanFitAreRefused();
    void descriptionThatMayNotBeReadIsRefused();
    void regionThatCannotBeMappedIsRefused();
    void otherLayoutIsRefused();
    void descriptionThatDoesNotFitIsRefused_data();
    void descriptionThatDoesNotFitIsRefused();
    void slotAtFaultIsRefused();
    void pictureThatCannotBeWrittenIsToldAtOnce_data();
    void pictureThatCannotBeWrittenIsToldAtOnce();
    void fullDiskLeavesTheFormerPicture();
    void closedPipeIsNoFailure();
    void fullOutputIsAFailure();
};

void tst_ToolTrendUse::missingRegionIsNotFound()
{
    const DoctoredPlant plant;

    const ToolResult result = runTool(trendOf(plant));

    QCOMPARE(result.exitCode, 3);
    QCOMPARE(result.output, QString());
    QVERIFY(result.error.startsWith(QStringLiteral("tessel: %1: no region ").arg(plant.file)));
}

void tst_ToolTrendUse::environmentNamesTheDescription()
{
    const DoctoredPlant plant;
    const LogCapture log;
    const HeldRegion region(plant.file);

    const ToolResult result = runTool(
        {QStringLiteral("trend"), QStringLiteral("--for=1ms"), plant.url},
        {QStringLiteral("TESSEL_DIR=") + plant.file});

    // As long as the machine takes for what is asked to last a millisecond.
    const QRegularExpression beginning(
        QRegularExpression::anchoredPattern(QRegularExpression::escape(plant.key())
                                            + QStringLiteral(R"(: \d+\.\d s.*)")),
        QRegularExpression::DotMatchesEverythingOption);
    QVERIFY2(beginning.match(result.output).hasMatch(), qPrintable(result.output));
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolTrendUse::typosAreRefused_data()
{
    QTest::addColumn<QString>("meant");
    QTest::newRow("--fro") << QStringLiteral("--for");
    QTest::newRow("--jsno") << QStringLiteral("--json");
    QTest::newRow("--svgg") << QStringLiteral("--svg");
    QTest::newRow("--dry-rum") << QStringLiteral("--dry-run");
    QTest::newRow("--tesre") << QStringLiteral("--terse");
    QTest::newRow("--vebrose") << QStringLiteral("--verbose");
}

void tst_ToolTrendUse::typosAreRefused()
{
    QFETCH(QString, meant);
    const QString typed = QLatin1String(QTest::currentDataTag());

    const ToolResult result = runTool(
        {QStringLiteral("trend"), typed, QStringLiteral("nowhere/plant.process.json")});

    QCOMPARE(result.error, QStringLiteral("tessel: trend: unknown option '%1' (did you mean '%2'?);"
                                          " see 'tessel trend --help'\n")
                               .arg(typed, meant));
    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, 2);
}

void tst_ToolTrendUse::wrongUse_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("error");
    const QString file = QStringLiteral("nowhere/plant.process.json");
    const QString help = QStringLiteral("; see 'tessel trend --help'\n");
    const QString time = QStringLiteral("--for takes a time such as 500ms, 10s, 5min or 1h, up to "
                                        "24h, not '%1'");
    const QStringList rest{file, QStringLiteral("u")};
    const auto add = [&](const char *name, const QStringList &arguments, const QString &error) {
        QTest::newRow(name) << arguments << 2 << QStringLiteral("tessel: trend: ") + error + help;
    };
    add("nothing", {}, QStringLiteral("FILE is missing"));
    add("no URL", {file}, QStringLiteral("URL... is missing"));
    for (const char *text : {"soon", "0s", "-1s", "25h", "0.5ms"}) {
        add(text, QStringList{QStringLiteral("--for"), QLatin1String(text)} + rest,
            time.arg(QLatin1String(text)));
    }
    add("no file for the picture", QStringList(QStringLiteral("--svg=")) + rest,
        QStringLiteral("--svg is empty; name a file, or - for standard output"));
    add("two on standard output",
        QStringList{QStringLiteral("--json"), QStringLiteral("--svg=-")} + rest,
        QStringLiteral("--json and --svg - would both go to standard output"));
    add("values alone and a picture",
        QStringList{QStringLiteral("-t"), QStringLiteral("--svg=-")} + rest,
        QStringLiteral("--terse and --svg - would both go to standard output"));
    add("two forms", QStringList{QStringLiteral("-t"), QStringLiteral("--json")} + rest,
        QStringLiteral("--json does not go with --terse"));
    add("dry run of nothing", QStringList(QStringLiteral("--dry-run")) + rest,
        QStringLiteral("--dry-run goes with --svg"));
    QTest::newRow("no such file") << rest << 3
                                  << QStringLiteral("tessel: %1: no such file\n").arg(file);
}

void tst_ToolTrendUse::wrongUse()
{
    QFETCH(QStringList, arguments);
    QFETCH(int, exitCode);
    QFETCH(QString, error);

    const ToolResult result = runTool(QStringList(QStringLiteral("trend")) + arguments);

    QCOMPARE(result.error, error);
    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, exitCode);
}

void tst_ToolTrendUse::misspeltUrlIsNotFound()
{
    const DoctoredPlant plant;
    const LogCapture log;
    const HeldRegion region(plant.file);

    const ToolResult result = runTool(
        {QStringLiteral("trend"), plant.file, QStringLiteral("pump/sped")});

    QCOMPARE(result.error,
             QStringLiteral("tessel: %1: no element at 'pump/sped' (did you mean 'pump/speed'?)\n")
                 .arg(plant.file));
    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, 3);
}

void tst_ToolTrendUse::moreValuesThanFitAreRefused()
{
    DoctoredPlant plant;
    for (int number = 0; number < 20; ++number) {
        plant.description().add(QStringLiteral("many/value%1").arg(number),
                                QStringLiteral("double"), ToolDescription::Metadata::ErrorState, 8);
    }
    plant.description().write();
    const LogCapture log;
    const HeldRegion region(plant.file);
    const QStringList begin{QStringLiteral("trend"), QStringLiteral("--for=1ms"), plant.file};

    const ToolResult result = runTool(begin
                                      + QStringList{plant.url, QStringLiteral("many/value*")});

    QCOMPARE(result.error,
             QStringLiteral("tessel: trend: 21 values are too many for one picture; name 20 at "
                            "most; see 'tessel trend --help'\n"));
    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, 2);
    QCOMPARE(runTool(begin + QStringList(QStringLiteral("many"))).exitCode, 0);
}

void tst_ToolTrendUse::descriptionThatMayNotBeReadIsRefused()
{
    if (!makePermissionsCount()) {
        QSKIP("The system does not take root's permissions away.");
    }
    const DoctoredPlant plant;
    const NarrowPermissions narrow(plant.file, {});

    const ToolResult result = runTool(trendOf(plant));

    QCOMPARE(result.error,
             QStringLiteral("tessel: %1: no permission to read it\n").arg(plant.file));
    QCOMPARE(result.exitCode, 4);
}

void tst_ToolTrendUse::regionThatCannotBeMappedIsRefused()
{
    const DoctoredPlant plant;
    QFile empty(plant.segment().path());
    QVERIFY(empty.open(QIODevice::WriteOnly));

    const ToolResult result = runTool(trendOf(plant));

    QCOMPARE(result.error,
             QStringLiteral("tessel: %1: cannot attach to region '%2': Invalid argument\n")
                 .arg(plant.file, plant.key()));
    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, 4);
}

void tst_ToolTrendUse::otherLayoutIsRefused()
{
    DoctoredPlant plant;
    const LogCapture log;
    const HeldRegion region(plant.file);
    plant.description().add(QStringLiteral("pump/flow"), QStringLiteral("double"),
                            ToolDescription::Metadata::ErrorState, 8);
    plant.description().write();

    const ToolResult result = runTool(trendOf(plant));

    QVERIFY2(result.error.endsWith(QStringLiteral("; its creator uses another description\n")),
             qPrintable(result.error));
    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, 8);
}

void tst_ToolTrendUse::descriptionThatDoesNotFitIsRefused_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QString>("reason");
    QTest::newRow("no JSON") << QByteArrayLiteral("{\n  \"type\": }\n")
                             << QStringLiteral("cannot be parsed: line 2, column 11: object is "
                                               "missing after a comma");
    QTest::newRow("no memory") << QByteArrayLiteral(
        R"({"type":"treenode","value":{"u":{"type":"int32"}}})")
                               << QStringLiteral("describes no memory");
}

void tst_ToolTrendUse::descriptionThatDoesNotFitIsRefused()
{
    QFETCH(QByteArray, text);
    QFETCH(QString, reason);
    const ToolDescription description;
    const QString file = description.write(QStringLiteral("plant.process.json"), text);

    const ToolResult result = runTool({QStringLiteral("trend"), file, QStringLiteral("u")});

    QVERIFY2(result.error.startsWith(QStringLiteral("tessel: %1: %2").arg(file, reason)),
             qPrintable(result.error));
    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, 9);
}

void tst_ToolTrendUse::slotAtFaultIsRefused()
{
    DoctoredPlant plant;
    plant.description().add(QStringLiteral("pump/lost"), QStringLiteral("double"),
                            ToolDescription::Metadata::ErrorState, 8,
                            {{QStringLiteral("offsetSharedMemory"), 4096}});
    plant.description().write();
    const LogCapture log;
    const HeldRegion region(plant.file);

    const ToolResult result = runTool({QStringLiteral("trend"), QStringLiteral("--for=1ms"),
                                       plant.file, QStringLiteral("pump/lost")});

    QVERIFY2(result.error.startsWith(
                 QStringLiteral("tessel: %1: 'pump/lost' has no usable slot: ").arg(plant.file)),
             qPrintable(result.error));
    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, 9);
}

void tst_ToolTrendUse::pictureThatCannotBeWrittenIsToldAtOnce_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<int>("exitCode");
    QTest::newRow("no folder") << QStringLiteral("/nowhere/trend.svg") << 3;
    QTest::newRow("device") << QStringLiteral("/dev/full") << 9;
    QTest::newRow("description") << QStringLiteral("plant.process.json") << 2;
}

void tst_ToolTrendUse::pictureThatCannotBeWrittenIsToldAtOnce()
{
    QFETCH(QString, path);
    QFETCH(int, exitCode);
    const DoctoredPlant plant;
    const LogCapture log;
    const HeldRegion region(plant.file);

    // It would last an hour otherwise.
    const ToolResult result = runTool(trendOf(plant, {QStringLiteral("--svg"), path}));

    QCOMPARE(result.exitCode, exitCode);
    QCOMPARE(result.output, QString());
}

void tst_ToolTrendUse::fullDiskLeavesTheFormerPicture()
{
    const DoctoredPlant plant;
    const LogCapture log;
    const HeldRegion region(plant.file);
    const QString picture = plant.file + QStringLiteral(".svg");
    QFile former(picture);
    QVERIFY(former.open(QIODevice::WriteOnly) && former.write("former") > 0);
    former.close();
    QProcess shell;
    // Standard output is a pipe, to which the limit does not apply.
    shell.start(QStringLiteral("/bin/sh"),
                {QStringLiteral("-c"),
                 QStringLiteral("trap '' XFSZ; ulimit -f 0; exec \"$0\" trend --for=1ms --svg "
                                "\"$1\" \"$2\" \"$3\""),
                 QStringLiteral(TESSEL_TOOL), picture, plant.file, plant.url});

    QVERIFY(shell.waitForFinished(60000));

    QCOMPARE(QString::fromUtf8(shell.readAllStandardError()),
             QStringLiteral("tessel: %1: cannot be written: File too large\n").arg(picture));
    QCOMPARE(shell.exitCode(), 9);
    QVERIFY(former.open(QIODevice::ReadOnly));
    QCOMPARE(former.readAll(), QByteArrayLiteral("former"));
}

void tst_ToolTrendUse::closedPipeIsNoFailure()
{
    const DoctoredPlant plant;
    const LogCapture log;
    const HeldRegion region(plant.file);

    QCOMPARE(exitCodeWithoutReader(
                 {QStringLiteral("trend"), QStringLiteral("--for=1ms"), plant.file, plant.url}),
             0);
}

void tst_ToolTrendUse::fullOutputIsAFailure()
{
    const DoctoredPlant plant;
    const LogCapture log;
    const HeldRegion region(plant.file);
    QProcess shell;
    shell.start(
        QStringLiteral("sh"),
        {QStringLiteral("-c"), QStringLiteral("'%1' trend --for=1ms '%2' '%3' > /dev/full")
                                   .arg(QStringLiteral(TESSEL_TOOL), plant.file, plant.url)});

    QVERIFY(shell.waitForFinished(60000));

    QCOMPARE(shell.exitCode(), 9);
    QVERIFY(shell.readAllStandardError().startsWith("tessel: standard output: "));
}

QTEST_GUILESS_MAIN(tst_ToolTrendUse)
#include "tst_ToolTrendUse.moc"
