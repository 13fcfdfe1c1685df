#include "ExplainedBoiler.h"
#include "Inspection/RegionUsers.h"
#include "support/LogCapture.h"

#include <QFile>
#include <QtTest>

#include <sys/stat.h>
#include <unistd.h>

using namespace ProcessDataDefinitions;
using Metadata = ToolDescription::Metadata;

/// What `tessel explain` tells of a value.
class tst_ToolExplain : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void screenHasTheWholeChain();
    void jsonHasTheWholeChain();
    void singleBufferHasOneRow();
    void erroneousValueHasItsStateInWords();
    void everyLeafOfAPatternIsExplained();
    void fileOfAFolderIsNamed();
    void missingRegionIsToldFirst();
    void regionOfAnotherSizeIsToldFirst();
    void regionOfAnotherLayoutIsToldFirst();
    void regionThatCannotBeOpenedIsToldFirst();
    void defaultDescriptionMayBeLeftOut();
    void wrongUse_data();
    void wrongUse();
    void closedPipeIsNoFailure();
    void fullOutputIsAFailure();
    void nothingIsChanged();
};

void tst_ToolExplain::screenHasTheWholeChain()
{
    Boiler boiler;
    const QString file = boiler.description.write();
    const LogCapture log;
    HeldRegion region(file);
    QVERIFY(region.publish(boiler.url, validValue(87.5)));
    QVERIFY(region.publish(boiler.url, validValue(87.5)));

    const ToolResult result = explain({file, boiler.url});

    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.error, QString());
    QStringList lines = result.output.split(QLatin1Char('\n'));
    QCOMPARE(lines.size(), 16);
    const QString place = lines.takeAt(3);
    QVERIFY2(place.startsWith(QStringLiteral("Description   ") + file + QLatin1Char(':')),
             qPrintable(place));
    const QString set = lines.takeAt(10);
    const QRegularExpression expected(QStringLiteral(
        "^Set           number 3, published [0-9.]+ s ago, at 20..-..-..T..:..:..\\....Z$"));
    QVERIFY2(expected.match(set).hasMatch(), qPrintable(set));
    const QString attached = lines.takeAt(11);
    QVERIFY2(
        attached.startsWith(QStringLiteral("Attached      tst_ToolExplain %1").arg(::getpid())),
        qPrintable(attached));
    QCOMPARE(lines,
             (QStringList{
                 QStringLiteral("boiler/temperature: 87.5 °C, valid"),
                 QStringLiteral("nothing is suspicious"), QString(),
                 QStringLiteral("Type          double in °C; limits -20 to 120; view 0 to "
                                "100.5; read-write"),
                 QStringLiteral("Label         T1"),
                 QStringLiteral("Slot          bytes 0 to 7 of 12, error state in bytes 8 to 11"),
                 QStringLiteral("Read buffer   0000000000e05540 00000000  87.5  valid"),
                 QStringLiteral("Write buffer  0000000000e05540 00000000  87.5  valid"),
                 QStringLiteral("State         valid: the value can be trusted; no NAMUR "
                                "signal"),
                 QStringLiteral("Region        %1SharedMemory, double buffer, 536 bytes")
                     .arg(boiler.description.key()),
                 QStringLiteral("Creator       %1 alive").arg(::getpid()),
                 QStringLiteral("Lock          free"), QString()}));
}

void tst_ToolExplain::jsonHasTheWholeChain()
{
    Boiler boiler;
    const QString file = boiler.description.write();
    const LogCapture log;
    HeldRegion region(file);
    QVERIFY(region.publish(boiler.url, validValue(87.5)));
    QVERIFY(setTimes(boiler.description, 100, 200));

    QJsonObject object = explained(file, boiler.url);

    QVERIFY(object.take(QStringLiteral("line")).toInt() > 1);
    QVERIFY(object.take(QStringLiteral("column")).toInt() > 1);
    QCOMPARE(object.take(QStringLiteral("lastSwap")).toString().size(),
             QStringLiteral("2026-01-05T09:12:44.031Z").size());
    const QJsonArray attached = object.take(QStringLiteral("attached")).toArray();
    QCOMPARE(attached.first().toObject().value(QStringLiteral("pid")).toInt(), ::getpid());
    QCOMPARE(object.take(QStringLiteral("attachedComplete")),
             QJsonValue(RegionUsers().isComplete()));
    QCOMPARE(object.take(QStringLiteral("suspicions")).toArray().size(), 1);
    const QJsonObject read{{QStringLiteral("buffer"), QStringLiteral("first")},
                           {QStringLiteral("isRead"), true},
                           {QStringLiteral("valueBytes"), QStringLiteral("0000000000e05540")},
                           {QStringLiteral("stateBytes"), QStringLiteral("00000000")},
                           {QStringLiteral("value"), 87.5},
                           {QStringLiteral("stateName"), QStringLiteral("valid")}};
    const QJsonObject other{{QStringLiteral("buffer"), QStringLiteral("second")},
                            {QStringLiteral("isRead"), false},
                            {QStringLiteral("valueBytes"), QStringLiteral("0000000000000000")},
                            {QStringLiteral("stateBytes"), QStringLiteral("03000000")},
                            {QStringLiteral("value"), QJsonValue()},
                            {QStringLiteral("stateName"), QStringLiteral("no-input")}};
    QCOMPARE(object, (QJsonObject{{QStringLiteral("url"), boiler.url},
                                  {QStringLiteral("value"), 87.5},
                                  {QStringLiteral("state"), 0},
                                  {QStringLiteral("stateName"), QStringLiteral("valid")},
                                  {QStringLiteral("namurSignal"), QString()},
                                  {QStringLiteral("file"), file},
                                  {QStringLiteral("type"), QStringLiteral("double")},
                                  {QStringLiteral("unit"), QStringLiteral("°C")},
                                  {QStringLiteral("labelTextId"), QStringLiteral("T1")},
                                  {QStringLiteral("minLimit"), -20},
                                  {QStringLiteral("maxLimit"), 120},
                                  {QStringLiteral("viewStart"), 0},
                                  {QStringLiteral("viewEnd"), 100.5},
                                  {QStringLiteral("readOnly"), false},
                                  {QStringLiteral("offset"), 0},
                                  {QStringLiteral("size"), 8},
                                  {QStringLiteral("relativeOffsetMetadata"), 8},
                                  {QStringLiteral("sizeMetadata"), 4},
                                  {QStringLiteral("bitmask"), 0},
                                  {QStringLiteral("buffers"), QJsonArray{read, other}},
                                  {QStringLiteral("key"), boiler.description.key()},
                                  {QStringLiteral("regionExists"), true},
                                  {QStringLiteral("doubleBuffer"), true},
                                  {QStringLiteral("bufferSize"), 12},
                                  {QStringLiteral("swapCount"), 2},
                                  {QStringLiteral("usualInterval"), QJsonValue()},
                                  {QStringLiteral("creatorPid"), qint64{::getpid()}},
                                  {QStringLiteral("creatorAlive"), true},
                                  {QStringLiteral("lock"), QStringLiteral("free")},
                                  {QStringLiteral("lockHolder"), QJsonValue()},
                                  {QStringLiteral("lockWaiters"), 0},
                                  {QStringLiteral("mirror"), QJsonValue()}}));
}

void tst_ToolExplain::singleBufferHasOneRow()
{
    Boiler boiler;
    boiler.description.setRoot(QStringLiteral("doubleBuffer"), false);
    const QString file = boiler.description.write();
    const LogCapture log;
    HeldRegion region(file);
    QVERIFY(region.write(boiler.url, validValue(87.5)));

    const ToolResult result = explain({file, boiler.url});

    QCOMPARE(result.exitCode, 0);
    QVERIFY(result.output.contains(
        QStringLiteral("\nBuffer        0000000000e05540 00000000  87.5  valid\n")));
    QVERIFY(!result.output.contains(QStringLiteral("Write buffer")));
    QVERIFY(result.output.contains(QStringLiteral("not counted in a single buffer")));
    QVERIFY(result.output.contains(QStringLiteral("nothing is suspicious\n")));
}

void tst_ToolExplain::erroneousValueHasItsStateInWords()
{
    Boiler boiler;
    const QString file = boiler.description.write();
    const LogCapture log;
    HeldRegion region(file);
    const ProcessValue broken(PROCESS_VALUE_ERROR_TYPE_SENSOR_BREAKAGE);
    QVERIFY(region.publish(boiler.url, broken) && region.publish(boiler.url, broken));

    const ToolResult result = explain({file, boiler.url});

    QVERIFY(result.output.startsWith(
        QStringLiteral("boiler/temperature: no value, sensor-breakage\n")));
    QVERIFY(result.output.contains(QStringLiteral(
        "\nState         sensor-breakage: the sensor or its wire is broken; NAMUR signal F\n")));
}

void tst_ToolExplain::everyLeafOfAPatternIsExplained()
{
    Boiler boiler;
    boiler.description.add(QStringLiteral("boiler/level"), QStringLiteral("int8"),
                           Metadata::ErrorState, 1);
    const QString file = boiler.description.write();
    const LogCapture log;
    const HeldRegion region(file);

    const ToolResult result = explain({file, QStringLiteral("*/*")});

    QCOMPARE(result.exitCode, 0);
    QVERIFY(result.output.startsWith(QStringLiteral("boiler/temperature: ")));
    QVERIFY(result.output.contains(QStringLiteral("\n\nboiler/level: ")));
}

void tst_ToolExplain::fileOfAFolderIsNamed()
{
    Boiler boiler;
    const QString file = boiler.description.write();
    const QString folder = boiler.description.path(QString());

    const ToolResult result = explain({folder, QStringLiteral("plant/boiler/temperature")});

    QCOMPARE(result.exitCode, 3);
    QVERIFY2(result.output.contains(QStringLiteral("\nDescription   ") + file + QLatin1Char(':')),
             qPrintable(result.output));
}

void tst_ToolExplain::missingRegionIsToldFirst()
{
    Boiler boiler;
    const QString file = boiler.description.write();

    const ToolResult result = explain({file, boiler.url});

    QCOMPARE(result.exitCode, 3);
    QCOMPARE(result.error, QStringLiteral("tessel: %1: no region '%2'; start the process that "
                                          "creates it, or 'tessel hold'\n")
                               .arg(file, boiler.description.key()));
    QVERIFY(result.output.startsWith(
        QStringLiteral("boiler/temperature: no value to be read\n! there is no region '%1'")
            .arg(boiler.description.key())));
    QVERIFY(result.output.simplified().endsWith(QStringLiteral("; does not exist now")));
    QCOMPARE(explained(file, boiler.url).value(QStringLiteral("regionExists")), QJsonValue(false));
    QVERIFY(!boiler.description.hasSegment());
    QVERIFY(!boiler.description.hasSemaphores());
}

void tst_ToolExplain::regionOfAnotherSizeIsToldFirst()
{
    Boiler boiler;
    const LogCapture log;
    const HeldRegion region(boiler.description.write());
    boiler.description.add(QStringLiteral("boiler/level"), QStringLiteral("int8"), Metadata::None,
                           1);
    const QString file = boiler.description.write();

    const ToolResult result = explain({file, boiler.url});

    QCOMPARE(result.exitCode, 8);
    QVERIFY(result.output.startsWith(QStringLiteral(
        "boiler/temperature: no value to be read\n! the region has 536 bytes and the "
        "description asks for 538: its creator uses\n  another description\n")));
    QVERIFY(!result.output.contains(QStringLiteral("Read buffer")));
}

void tst_ToolExplain::regionOfAnotherLayoutIsToldFirst()
{
    Boiler boiler;
    const LogCapture log;
    const HeldRegion region(boiler.description.write());
    boiler.description.add(boiler.url, QStringLiteral("int64"), Metadata::None, 8,
                           {{QStringLiteral("offsetSharedMemory"), 0}});
    boiler.description.setRoot(QStringLiteral("sizeOfSharedMemory"), 12);
    const QString file = boiler.description.write();

    const ToolResult result = explain({file, boiler.url});

    QCOMPARE(result.exitCode, 8);
    QVERIFY2(result.output.startsWith(QStringLiteral(
                 "boiler/temperature: no value to be read\n! the region has another layout, from "
                 "'boiler/temperature' on: its creator uses\n  another description\n")),
             qPrintable(result.output));
    QCOMPARE(explained(file, boiler.url).value(QStringLiteral("buffers")).toArray(), QJsonArray());
}

void tst_ToolExplain::regionThatCannotBeOpenedIsToldFirst()
{
    Boiler boiler;
    const QString file = boiler.description.write();
    const QString path = boiler.description.segmentPath();
    QCOMPARE(mknod(qPrintable(path), S_IFREG | 0600, 0), 0);

    const ToolResult result = explain({file, boiler.url});
    QVERIFY(QFile::remove(path));

    QCOMPARE(result.exitCode, 4);
    QVERIFY(result.output.startsWith(
        QStringLiteral("boiler/temperature: no value to be read\n! the region cannot be opened: "
                       "Invalid argument\n")));
}

void tst_ToolExplain::defaultDescriptionMayBeLeftOut()
{
    Boiler boiler;
    const QString file = boiler.description.write();
    const LogCapture log;
    const HeldRegion region(file);

    const ToolResult result = runTool({QStringLiteral("explain"), boiler.url},
                                      {QStringLiteral("TESSEL_DIR=") + file});

    QCOMPARE(result.exitCode, 0);
    QVERIFY(result.output.startsWith(boiler.url));
}

void tst_ToolExplain::wrongUse_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("error");
    QTest::newRow("no URL") << QStringList{QStringLiteral("FILE")} << 2
                            << QStringLiteral("tessel: explain: URL... is missing; see 'tessel "
                                              "explain --help'\n");
    QTest::newRow("option") << QStringList{QStringLiteral("--jsno"), QStringLiteral("FILE"),
                                           QStringLiteral("a")}
                            << 2
                            << QStringLiteral("tessel: explain: unknown option '--jsno' (did you "
                                              "mean '--json'?); see 'tessel explain --help'\n");
    QTest::newRow("other URL")
        << QStringList{QStringLiteral("FILE"), QStringLiteral("boiler/temprature")} << 3
        << QStringLiteral("tessel: FILE: no element at 'boiler/temprature' (did you mean "
                          "'boiler/temperature'?)\n");
    QTest::newRow("no file") << QStringList{QStringLiteral("none.process.json"),
                                            QStringLiteral("a")}
                             << 3 << QStringLiteral("tessel: none.process.json: no such file\n");
}

void tst_ToolExplain::wrongUse()
{
    QFETCH(QStringList, arguments);
    QFETCH(int, exitCode);
    QFETCH(QString, error);
    Boiler boiler;
    const QString file = boiler.description.write();
    arguments.replaceInStrings(QStringLiteral("FILE"), file);

    const ToolResult result = explain(arguments);

    QCOMPARE(result.error, error.replace(QStringLiteral("FILE"), file));
    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, exitCode);
}

void tst_ToolExplain::closedPipeIsNoFailure()
{
    Boiler boiler;
    const QString file = boiler.description.write();
    const LogCapture log;
    const HeldRegion region(file);

    QCOMPARE(exitCodeWithoutReader({QStringLiteral("explain"), file, boiler.url}), 0);
}

void tst_ToolExplain::fullOutputIsAFailure()
{
    Boiler boiler;
    QProcess shell;
    shell.start(QStringLiteral("/bin/sh"),
                {QStringLiteral("-c"),
                 QStringLiteral("exec \"$0\" explain \"$1\" \"$2\" >/dev/full"),
                 QStringLiteral(TESSEL_TOOL), boiler.description.write(), boiler.url});
    QVERIFY(shell.waitForFinished(60000));

    QCOMPARE(shell.exitCode(), 9);
    QCOMPARE(QString::fromUtf8(shell.readAllStandardError()),
             QStringLiteral("tessel: standard output: No space left on device\n"));
}

void tst_ToolExplain::nothingIsChanged()
{
    Boiler boiler;
    const QString file = boiler.description.write();
    const LogCapture log;
    HeldRegion region(file);
    QVERIFY(region.publish(boiler.url, validValue(5.0)));
    QFile segment(boiler.description.segmentPath());
    QVERIFY(segment.open(QIODevice::ReadOnly));
    const QByteArray before = segment.readAll();

    QCOMPARE(explain({file, boiler.url}).exitCode, 0);

    QVERIFY(segment.seek(0));
    QCOMPARE(segment.readAll(), before);
}

QTEST_GUILESS_MAIN(tst_ToolExplain)
#include "tst_ToolExplain.moc"
