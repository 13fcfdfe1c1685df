#include "HeldRegion.h"
#include "ProcessDataManagement/DescriptionDirectory.h"
#include "ToolDescription.h"
#include "ToolFolder.h"
#include "ToolProcess.h"
#include "support/LogCapture.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QProcess>
#include <QtTest>

#include <csignal>

using namespace ProcessDataDefinitions;
using Metadata = ToolDescription::Metadata;

namespace {

const QStringList fast{QStringLiteral("--rate"), QStringLiteral("1000")};

ToolResult sim(const QStringList &arguments)
{
    return runTool(QStringList(QStringLiteral("sim")) + arguments);
}

QJsonObject simReport(const QStringList &arguments)
{
    const ToolResult result = sim(QStringList(QStringLiteral("--json")) + arguments);
    return result.exitCode == 0 ? QJsonDocument::fromJson(result.output.toUtf8()).object()
                                : QJsonObject();
}

/// URL to the name of its state, of what is in the region.
QMap<QString, QString> statesIn(const QString &file)
{
    const ToolResult result = runTool({QStringLiteral("get"), QStringLiteral("--json"), file});
    QMap<QString, QString> states;
    for (const auto &value : QJsonDocument::fromJson(result.output.toUtf8()).array()) {
        states.insert(value.toObject().value(QStringLiteral("url")).toString(),
                      value.toObject().value(QStringLiteral("stateName")).toString());
    }
    return states;
}

QString endPattern(int sets, int values)
{
    return QStringLiteral("^published %1 sets in [0-9.]+ s, [0-9]+ of them late: %2 values, 0 "
                          "erroneous\n$")
        .arg(sets)
        .arg(values);
}

} // namespace

/// `tessel sim` and the region that it fills.
class tst_ToolSim : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void publishesUntilTheSignal_data();
    void publishesUntilTheSignal();
    void endsAfterItsSets();
    void endsAfterItsTime();
    void everyFormIsWritten();
    void singleBufferIsFilledAsWell();
    void jsonCountsWhatWasPublished();
    void everyStateComesAndIsCounted();
    void onlyChosenValuesArePublished_data();
    void onlyChosenValuesArePublished();
    void sameSeedPublishesTheSameValues();

    void dryRunPrintsThePlan();
    void dryRunPrintsThePlanAsJson();
    void dryRunOfAFolderWritesNothing();
    void folderIsBuiltFirst();
    void defaultDescriptionMayBeLeftOut();
    void wrongUseIsRefused_data();
    void wrongUseIsRefused();
    void missingThingsAreNotFound();
    void fullOutputEndsItAndLeavesNothing();
    void closedPipeEndsItAndLeavesNothing();

private:
    QScopedPointer<ToolDescription> m_description;
    QString m_file;
};

void tst_ToolSim::init()
{
    m_description.reset(new ToolDescription);
    m_description->add("tank/level", "double", Metadata::ErrorState, 8,
                       {{"unit", "m"}, {"minLimit", 0}, {"maxLimit", 4}});
    m_description->add("tank/pump", "boolean", Metadata::None, 1);
    m_description->add("limit", "int16", Metadata::ErrorState, 2, {{"readOnly", true}});
    m_file = m_description->write();
}

/// A test that fails kills what still runs, which then leaves its region.
void tst_ToolSim::cleanup()
{
    if (m_description->hasSegment() || m_description->hasSemaphores()) {
        runTool({"rm", "--force", m_description->key()});
    }
}

void tst_ToolSim::publishesUntilTheSignal_data()
{
    QTest::addColumn<int>("signal");
    QTest::newRow("SIGINT") << SIGINT;
    QTest::newRow("SIGTERM") << SIGTERM;
    QTest::newRow("SIGHUP") << SIGHUP;
}

void tst_ToolSim::publishesUntilTheSignal()
{
    QFETCH(int, signal);
    ToolProcess process({"sim", m_file, "--seed", "7"});

    QCOMPARE(process.nextLine(),
             QString("simulating %1: 3 leaves, 10 sets a second, normal, seed 7; SIGINT or SIGTERM "
                     "ends it\n")
                 .arg(m_description->key()));
    const auto states = QMap<QString, QString>{
        {"tank/level", "valid"}, {"tank/pump", "valid"}, {"limit", "valid"}};
    QTRY_COMPARE_WITH_TIMEOUT(statesIn(m_file), states, 30000);

    process.signal(signal);
    const ToolResult result = process.finish();
    QCOMPARE(result.exitCode, 0);
    QVERIFY2(result.output.startsWith("published "), qPrintable(result.output));
    QCOMPARE(result.error, QString());
    QVERIFY(!m_description->hasSegment());
    QVERIFY(!m_description->hasSemaphores());
}

void tst_ToolSim::endsAfterItsSets()
{
    const ToolResult result = sim({m_file, "--sets", "5", "--rate", "1000"});

    QCOMPARE(result.error, QString());
    QCOMPARE(result.exitCode, 0);
    const QString end = result.output.section('\n', 1);
    QVERIFY2(QRegularExpression(endPattern(5, 15)).match(end).hasMatch(), qPrintable(end));
    QVERIFY(!m_description->hasSegment());
    QVERIFY(!m_description->hasSemaphores());
}

void tst_ToolSim::endsAfterItsTime()
{
    const QJsonObject report = simReport({m_file, "--for", "50ms", "--rate", "20"});

    // One at the beginning; the second one is due at the end.
    QVERIFY(report.value("sets").toInt() >= 1);
    QVERIFY(report.value("sets").toInt() <= 2);
    QVERIFY(report.value("seconds").toDouble() >= 0.05);
    QVERIFY(!m_description->hasSegment());
}

void tst_ToolSim::everyFormIsWritten()
{
    ToolDescription description;
    description.addEveryForm();
    const QString file = description.write();
    const LogCapture log;
    const HeldRegion region(file);

    const ToolResult result = sim(
        {file, "--attach", "--profile", "noisy", "--sets", "20", "--rate", "1000"});

    QCOMPARE(result.error, QString());
    QCOMPARE(result.exitCode, 0);
    const auto states = statesIn(file);
    QCOMPARE(states.size(), 26);
    QCOMPARE(QStringList(states.values()).filter("valid").size(), 26);
}

void tst_ToolSim::singleBufferIsFilledAsWell()
{
    m_description->setRoot("doubleBuffer", false);
    const QString file = m_description->write();
    ToolProcess process({"sim", file});
    QVERIFY(process.nextLine().startsWith("simulating"));

    QTRY_COMPARE_WITH_TIMEOUT(statesIn(file).value("tank/level"), QString("valid"), 30000);

    process.signal(SIGTERM);
    QCOMPARE(process.finish().exitCode, 0);
    QVERIFY(!m_description->hasSegment());
    QVERIFY(!m_description->hasSemaphores());
}

void tst_ToolSim::jsonCountsWhatWasPublished()
{
    QJsonObject report = simReport(
        {m_file, "--sets", "4", "--seed", "18446744073709551615", "--rate", "1000"});

    QVERIFY(report.take("seconds").toDouble(-1) >= 0.003);
    QVERIFY(report.take("late").toInt(-1) >= 0);
    QCOMPARE(report.take("seed").toDouble(), 18446744073709551615.0);
    QCOMPARE(report, (QJsonObject{{"key", m_description->key()},
                                  {"profile", "normal"},
                                  {"rate", 1000},
                                  {"values", 3},
                                  {"sets", 4},
                                  {"written", 12},
                                  {"erroneous", 0},
                                  {"states", QJsonObject{{"valid", 12},
                                                         {"underrange", 0},
                                                         {"overrange", 0},
                                                         {"no-input", 0},
                                                         {"division-by-zero", 0},
                                                         {"incorrect-mathematic", 0},
                                                         {"invalid-temperature", 0},
                                                         {"sensor-short-circuit", 0},
                                                         {"sensor-breakage", 0},
                                                         {"timeout", 0}}}}));
}

void tst_ToolSim::everyStateComesAndIsCounted()
{
    const QJsonObject report = simReport(
        {m_file, "--profile", "faulty", "--sets", "600", "--seed", "1", "--rate", "1000"});

    const QJsonObject states = report.value("states").toObject();
    int sum = 0;
    QCOMPARE(states.size(), 10);
    for (const auto &count : states) {
        QVERIFY(count.toInt() > 0);
        sum += count.toInt();
    }
    QCOMPARE(sum, 1800);
    QCOMPARE(report.value("erroneous").toInt(), 1800 - states.value("valid").toInt());
}

void tst_ToolSim::onlyChosenValuesArePublished_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::newRow("URL") << QStringList{"tank/level"};
    QTest::newRow("pattern") << QStringList{"*/lev*"};
    QTest::newRow("any depth") << QStringList{"**/level"};
    QTest::newRow("--only") << QStringList{"--only", "tank/level"};
}

void tst_ToolSim::onlyChosenValuesArePublished()
{
    QFETCH(QStringList, arguments);
    const LogCapture log;
    const HeldRegion region(m_file);

    QCOMPARE(sim(QStringList{m_file, "--attach", "--sets", "2"} + fast + arguments).exitCode, 0);

    // What cannot carry a state reads as valid from the beginning.
    QCOMPARE(statesIn(m_file),
             (QMap<QString, QString>{
                 {"tank/level", "valid"}, {"tank/pump", "valid"}, {"limit", "no-input"}}));
}

void tst_ToolSim::sameSeedPublishesTheSameValues()
{
    const LogCapture log;
    const HeldRegion region(m_file);
    const auto valuesWith = [&](const QString &seed) {
        sim(QStringList{m_file, "--attach", "--sets", "3", "--seed", seed, "--profile", "noisy"}
            + fast);
        return runTool({"get", "-t", m_file, "tank/level"}).output;
    };

    const QString seven = valuesWith("7");

    QVERIFY(!seven.isEmpty());
    QVERIFY(valuesWith("8") != seven);
    QCOMPARE(valuesWith("7"), seven);
}

void tst_ToolSim::dryRunPrintsThePlan()
{
    const ToolResult result = sim({m_file, "--dry-run", "--profile", "faulty", "--seed", "7"});

    QCOMPARE(result.error, QString());
    QCOMPARE(result.exitCode, 0);
    QString output = result.output;
    output.replace(QRegularExpression("[0-9]{2}\\.[0-9] s"), "00.0 s");
    QCOMPARE(output, QString("URL         TYPE     FROM   TO  UNIT  WAVEFORM  PERIOD  FAULTS\n"
                             "limit       int16       0  100        triangle  00.0 s  yes\n"
                             "tank/level  double      0    4  m     sine      00.0 s  yes\n"
                             "tank/pump   boolean                   square    00.0 s  no\n"));
    QVERIFY(!m_description->hasSegment());
}

void tst_ToolSim::dryRunPrintsThePlanAsJson()
{
    const ToolResult result = sim({m_file, "--dry-run", "--json", "tank"});

    const QJsonArray plan = QJsonDocument::fromJson(result.output.toUtf8()).array();
    QCOMPARE(plan.size(), 2);
    QJsonObject level = plan.at(0).toObject();
    QVERIFY(level.take("period").toDouble() >= 20);
    QCOMPARE(level, (QJsonObject{{"url", "tank/level"},
                                 {"type", "double"},
                                 {"unit", "m"},
                                 {"from", 0},
                                 {"to", 4},
                                 {"waveform", "sine"},
                                 {"faults", false}}));
    QCOMPARE(plan.at(1).toObject().value("from"), QJsonValue(QJsonValue::Null));
}

void tst_ToolSim::dryRunOfAFolderWritesNothing()
{
    DescriptionDirectory device("device");
    QVERIFY(device.copy(EXAMPLE_DEVICE));
    const auto former = device.snapshot();

    const ToolResult result = sim({device.path(), "--dry-run"});

    QCOMPARE(result.error, QString());
    QCOMPARE(result.exitCode, 0);
    QVERIFY(result.output.contains("inputs/channel1/value"));
    QCOMPARE(device.snapshot(), former);
}

void tst_ToolSim::folderIsBuiltFirst()
{
    DescriptionDirectory device("device");
    QVERIFY(device.copy(EXAMPLE_DEVICE));

    const ToolResult result = sim(
        {device.path(), "--prefix", keyPrefix(), "--sets", "2", "--rate", "1000"});

    QCOMPARE(result.error, QString());
    QCOMPARE(result.exitCode, 0);
    QVERIFY2(result.output.startsWith("simulating " + keyPrefix()), qPrintable(result.output));
}

void tst_ToolSim::defaultDescriptionMayBeLeftOut()
{
    const ToolResult result = runTool(
        QStringList{"sim", "--sets", "1", "--rate", "1", "tank/level"}, {"TESSEL_DIR=" + m_file});

    QVERIFY2(result.output.contains(": 1 leaf, 1 set a second, "), qPrintable(result.output));
    QVERIFY2(result.output.contains("published 1 set in "), qPrintable(result.output));
    QVERIFY2(result.output.endsWith(": 1 value, 0 erroneous\n"), qPrintable(result.output));
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolSim::wrongUseIsRefused_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("text");
    const auto row = [](const QStringList &arguments, const char *text) {
        QTest::newRow(qPrintable(arguments.join(' ')))
            << arguments << QString(text) + "; see 'tessel sim --help'\n";
    };

    row({"--profile", "nosy"},
        "--profile takes normal, noisy or faulty, not 'nosy' (did you mean 'noisy'?)");
    row({"--rate", "0"}, "--rate takes a number of sets per second from 0.01 to 1000, not '0'");
    row({"--rate", "-5"}, "--rate takes a number of sets per second from 0.01 to 1000, not '-5'");
    row({"--rate", "nan"}, "--rate takes a number of sets per second from 0.01 to 1000, not 'nan'");
    row({"--rate", "10Hz"},
        "--rate takes a number of sets per second from 0.01 to 1000, not '10Hz'");
    row({"--seed", "-1"}, "--seed takes a whole number from 0 to 18446744073709551615, not '-1'");
    row({"--seed", "x"}, "--seed takes a whole number from 0 to 18446744073709551615, not 'x'");
    row({"--for", "10 parsecs"},
        "--for takes a time such as 500ms, 10s, 5min or 1h, up to 30 days, not '10 parsecs'");
    row({"--for", "0"},
        "--for takes a time such as 500ms, 10s, 5min or 1h, up to 30 days, not '0'");
    row({"--sets", "0"}, "--sets takes a whole number from 1 to 2147483647, not '0'");
    row({"--profil", "noisy"}, "unknown option '--profil' (did you mean '--profile'?)");
    row({"--prefix", "p"}, "--prefix goes with a folder, a file has its key");
    row({"--prefix", "p", "--attach"}, "--prefix does not go with --attach");
    row({"--prefix", "p", "--dry-run"}, "--prefix does not go with --dry-run");
}

void tst_ToolSim::wrongUseIsRefused()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, text);

    const ToolResult result = sim(QStringList(m_file) + arguments);

    QCOMPARE(result.error, "tessel: sim: " + text);
    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, 2);
    QVERIFY(!m_description->hasSegment());
}

void tst_ToolSim::missingThingsAreNotFound()
{
    QCOMPARE(sim({"none.process.json"}).exitCode, 3);
    const ToolResult result = sim({m_file, "tank/levle"});
    QVERIFY(result.error.contains("(did you mean 'tank/level'?)"));
    QCOMPARE(result.exitCode, 3);
    m_description->setRoot("sizeOfSharedMemory", 0);
    QCOMPARE(sim({m_description->write()}).exitCode, 9);
}

void tst_ToolSim::fullOutputEndsItAndLeavesNothing()
{
    QProcess shell;
    shell.start("/bin/sh", {"-c", "exec \"$0\" sim \"$1\" >/dev/full", TESSEL_TOOL, m_file});
    QVERIFY(shell.waitForFinished(60000));

    QCOMPARE(shell.exitCode(), 9);
    QCOMPARE(QString::fromUtf8(shell.readAllStandardError()),
             QString("tessel: standard output: No space left on device\n"));
    QVERIFY(!m_description->hasSegment());
    QVERIFY(!m_description->hasSemaphores());
}

void tst_ToolSim::closedPipeEndsItAndLeavesNothing()
{
    QCOMPARE(exitCodeWithoutReader({"sim", m_file}), 0);
    QVERIFY(!m_description->hasSegment());
    QVERIFY(!m_description->hasSemaphores());
}

QTEST_GUILESS_MAIN(tst_ToolSim)
#include "tst_ToolSim.moc"
