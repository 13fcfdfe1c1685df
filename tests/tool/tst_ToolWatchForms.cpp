#include "HeldRegion.h"
#include "PseudoTerminal.h"
#include "ToolProcess.h"
#include "support/LogCapture.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QtTest>

#include <csignal>
#include <memory>

using namespace ProcessDataDefinitions;
using Metadata = ToolDescription::Metadata;

namespace {

QStringList watch(const QStringList &arguments)
{
    return QStringList(QStringLiteral("watch")) + arguments;
}

QJsonObject objectOf(const QString &line)
{
    return QJsonDocument::fromJson(line.toUtf8()).object();
}

/// What a line says beside its time, which must be one.
QByteArray valuesOf(const QString &line)
{
    const QJsonObject object = objectOf(line);
    const auto time = QDateTime::fromString(object.value(QStringLiteral("time")).toString(),
                                            Qt::ISODateWithMs);
    const bool isAsPromised = object.size() == 2 && time.isValid() && time.timeSpec() == Qt::UTC;
    return isAsPromised ? QJsonDocument(object.value(QStringLiteral("values")).toArray())
                              .toJson(QJsonDocument::Compact)
                        : QByteArray();
}

} // namespace

/// The forms in which `tessel watch` prints sets for programs and scripts.
class tst_ToolWatchForms : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void jsonIsAnObjectALineAndSet();
    void jsonOfASetThatIsPublished();
    void terseIsALineASetWithValuesAlone();
    void patternsNameValues();
    void terminalGetsLinesAsWell_data();
    void terminalGetsLinesAsWell();
    void signalEndsThem_data();
    void signalEndsThem();
    void newRegionEndsThem_data();
    void newRegionEndsThem();
    void closedPipeIsNoFailure_data();
    void closedPipeIsNoFailure();
    void fullOutputIsAFailure_data();
    void fullOutputIsAFailure();
    void wrongUseIsRefused_data();
    void wrongUseIsRefused();

private:
    void addForms();

    std::unique_ptr<LogCapture> m_log;
    std::unique_ptr<ToolDescription> m_description;
    QString m_file;
    std::unique_ptr<HeldRegion> m_region;
};

void tst_ToolWatchForms::init()
{
    m_log = std::make_unique<LogCapture>();
    m_description = std::make_unique<ToolDescription>();
    m_description->add(QStringLiteral("n/level"), QStringLiteral("double"), Metadata::ErrorState, 8,
                       {{QStringLiteral("unit"), QStringLiteral("m")}});
    m_description->add(QStringLiteral("n/broken"), QStringLiteral("int32"), Metadata::ErrorState,
                       4);
    m_description->add(QStringLiteral("n/name"), QStringLiteral("string"), Metadata::ErrorState,
                       64);
    m_file = m_description->write();
    m_region = std::make_unique<HeldRegion>(m_file);
    m_region->write(QStringLiteral("n/level"), validValue(1.0 / 3.0));
    m_region->write(QStringLiteral("n/broken"),
                    ProcessValue(PROCESS_VALUE_ERROR_TYPE_SENSOR_SHORT_CIRCUIT));
    QVERIFY(m_region->publish(QStringLiteral("n/name"), validValue(QStringLiteral("e\tast"))));
}

void tst_ToolWatchForms::cleanup()
{
    m_region.reset();
    m_description.reset();
    m_log.reset();
}

void tst_ToolWatchForms::jsonIsAnObjectALineAndSet()
{
    const ToolResult result = runTool(watch(
        {QStringLiteral("--json"), QStringLiteral("--count=2"), QStringLiteral("--interval"),
         QStringLiteral("1"), m_file, QStringLiteral("n/level"), QStringLiteral("n/broken")}));

    QCOMPARE(result.error, QString());
    QCOMPARE(result.exitCode, 0);
    const QStringList lines = result.output.split(QLatin1Char('\n'));
    QCOMPARE(lines.size(), 3);
    QCOMPARE(lines[2], QString());
    for (const auto &line : lines.mid(0, 2)) {
        QCOMPARE(
            valuesOf(line),
            QByteArrayLiteral(R"([{"state":0,"stateName":"valid","type":"double","unit":"m",)"
                              R"("url":"n/level","value":0.3333333333333333},)"
                              R"({"state":7,"stateName":"sensor-short-circuit","type":"int32",)"
                              R"("unit":"","url":"n/broken","value":null}])"));
    }
    // The objects are those of `get --json`, in their order.
    const ToolResult got = runTool(
        {QStringLiteral("get"), QStringLiteral("--json"), m_file, QStringLiteral("n/level")});
    QVERIFY(lines[0].contains(got.output.section(QLatin1Char('\n'), 1, 1).trimmed()));
}

void tst_ToolWatchForms::jsonOfASetThatIsPublished()
{
    ToolProcess tool(watch({QStringLiteral("--json"), QStringLiteral("--on-change"),
                            QStringLiteral("--count=2"), m_file, QStringLiteral("n/level")}));
    QVERIFY(!valuesOf(tool.nextLine()).isEmpty());

    QVERIFY(m_region->publish(QStringLiteral("n/level"), validValue(2.5)));

    const QJsonObject value =
        objectOf(tool.nextLine()).value(QStringLiteral("values")).toArray()[0].toObject();
    QCOMPARE(value.value(QStringLiteral("value")).toDouble(), 2.5);
    QCOMPARE(tool.finish().exitCode, 0);
}

void tst_ToolWatchForms::terseIsALineASetWithValuesAlone()
{
    for (const char *option : {"-t", "--terse"}) {
        const ToolResult result = runTool(watch({QLatin1String(option), QStringLiteral("--count=2"),
                                                 QStringLiteral("--interval=1"), m_file}));

        QCOMPARE(result.error, QString());
        QCOMPARE(result.output, QStringLiteral("0.3333333333333333\t\te\\tast\n"
                                               "0.3333333333333333\t\te\\tast\n"));
        QCOMPARE(result.exitCode, 0);
    }
}

void tst_ToolWatchForms::patternsNameValues()
{
    const ToolResult result = runTool(
        watch({QStringLiteral("-t"), QStringLiteral("--count=1"), QStringLiteral("**/lev*")}),
        {QStringLiteral("TESSEL_DIR=") + m_file});

    QCOMPARE(result.output, QStringLiteral("0.3333333333333333\n"));
}

void tst_ToolWatchForms::addForms()
{
    QTest::addColumn<QString>("option");
    QTest::newRow("lines") << QString();
    QTest::newRow("json") << QStringLiteral("--json");
    QTest::newRow("terse") << QStringLiteral("--terse");
}

void tst_ToolWatchForms::terminalGetsLinesAsWell_data()
{
    QTest::addColumn<QString>("option");
    QTest::addColumn<QByteArray>("begin");
    QTest::newRow("json") << QStringLiteral("--json") << QByteArrayLiteral("{\"time\": \"");
    QTest::newRow("terse") << QStringLiteral("--terse") << QByteArrayLiteral("0.333333333");
}

void tst_ToolWatchForms::terminalGetsLinesAsWell()
{
    QFETCH(QString, option);
    QFETCH(QByteArray, begin);

    PseudoTerminal terminal(watch({option, QStringLiteral("--count=1"), m_file}), 10, 60, {});

    QCOMPARE(terminal.finish(), 0);
    QVERIFY(terminal.shown().startsWith(begin));
    QVERIFY(!terminal.shown().contains('\033'));
}

void tst_ToolWatchForms::signalEndsThem_data()
{
    addForms();
}

void tst_ToolWatchForms::signalEndsThem()
{
    QFETCH(QString, option);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        ToolProcess tool(watch(QStringList{QStringLiteral("--interval=3600000"), m_file}
                               + option.split(QLatin1Char(' '), Qt::SkipEmptyParts)));
        QVERIFY(!tool.nextLine().isEmpty());

        tool.signal(number);

        const ToolResult result = tool.finish();
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(result.error, QString());
    }
}

void tst_ToolWatchForms::newRegionEndsThem_data()
{
    addForms();
}

void tst_ToolWatchForms::newRegionEndsThem()
{
    QFETCH(QString, option);
    ToolProcess tool(watch(QStringList{QStringLiteral("--on-change"), m_file}
                           + option.split(QLatin1Char(' '), Qt::SkipEmptyParts)));
    QVERIFY(!tool.nextLine().isEmpty());

    const HeldRegion successor(m_file);

    const ToolResult result = tool.finish();
    QCOMPARE(result.exitCode, 8);
    QCOMPARE(result.error,
             QStringLiteral("tessel: %1: the region '%2' was replaced by a new one; start again\n")
                 .arg(m_file, m_description->key()));
}

void tst_ToolWatchForms::closedPipeIsNoFailure_data()
{
    addForms();
}

void tst_ToolWatchForms::closedPipeIsNoFailure()
{
    QFETCH(QString, option);

    // Without an end of its own.
    QCOMPARE(exitCodeWithoutReader(watch(QStringList{QStringLiteral("--interval=1"), m_file}
                                         + option.split(QLatin1Char(' '), Qt::SkipEmptyParts))),
             0);
}

void tst_ToolWatchForms::fullOutputIsAFailure_data()
{
    addForms();
}

void tst_ToolWatchForms::fullOutputIsAFailure()
{
    QFETCH(QString, option);
    QProcess shell;
    shell.start(QStringLiteral("/bin/sh"),
                {QStringLiteral("-c"), QStringLiteral("exec \"$0\" watch $1 \"$2\" > /dev/full"),
                 QStringLiteral(TESSEL_TOOL), option, m_file});

    QVERIFY(shell.waitForFinished(60000));

    QCOMPARE(QString::fromUtf8(shell.readAllStandardError()),
             QStringLiteral("tessel: standard output: No space left on device\n"));
    QCOMPARE(shell.exitCode(), 9);
}

void tst_ToolWatchForms::wrongUseIsRefused_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("error");
    const auto row = [](const QStringList &options, const char *error) {
        QTest::newRow(qPrintable(options.join(QLatin1Char(' '))))
            << options << QString::fromUtf8(error);
    };

    row({QStringLiteral("--json"), QStringLiteral("-t")}, "--json does not go with --terse");
    row({QStringLiteral("--jsn")}, "unknown option '--jsn' (did you mean '--json'?)");
    row({QStringLiteral("--tersse")}, "unknown option '--tersse' (did you mean '--terse'?)");
    row({QStringLiteral("--on-chnage")},
        "unknown option '--on-chnage' (did you mean '--on-change'?)");
    row({QStringLiteral("--interval=soon")},
        "--interval takes a whole number from 1 to 3600000, not 'soon'");
    row({QStringLiteral("--count=0")},
        "--count takes a whole number from 1 to 2147483647, not '0'");
}

void tst_ToolWatchForms::wrongUseIsRefused()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, error);

    // Wrong use is told whatever else is wrong.
    const ToolResult result = runTool(
        watch(arguments + QStringList(QStringLiteral("nowhere/plant.process.json"))));

    QCOMPARE(result.error,
             QStringLiteral("tessel: watch: %1; see 'tessel watch --help'\n").arg(error));
    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, 2);
}

QTEST_GUILESS_MAIN(tst_ToolWatchForms)
#include "tst_ToolWatchForms.moc"
