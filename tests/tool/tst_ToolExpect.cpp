#include "HeldRegion.h"
#include "ToolProcess.h"
#include "support/LogCapture.h"
#include "support/SegmentFile.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QtTest>

#include <limits>
#include <memory>

using namespace ProcessDataDefinitions;
using Metadata = ToolDescription::Metadata;

namespace {

QString quoted(const char *text)
{
    return QString::fromUtf8(text);
}

} // namespace

/// `tessel expect`: what an expression says about the values that are there.
class tst_ToolExpect : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void expressionHoldsOrNot_data();
    void expressionHoldsOrNot();
    void invalidValueNeverHoldsAComparison_data();
    void invalidValueNeverHoldsAComparison();
    void tellsWhatFailed();
    void tellsTheFirstOfMany();
    void tellsAllAsJson();
    void jsonIsPrintedWhereItHolds();
    void errorIsMarkedInTheExpression_data();
    void errorIsMarkedInTheExpression();
    void ageNeedsADoubleBuffer();
    void ageIsThatOfTheSet();
    void singleBufferIsReadAsWell();
    void descriptionMayBeLeftOut();
    void slotAtFaultIsRefused();
    void missingRegionIsTold();
    void otherLayoutIsRefused();
    void wrongUseIsRefused_data();
    void wrongUseIsRefused();
    void closedPipeDoesNotMakeItHold();
    void fullOutputIsAFailure();
    void nothingIsWritten();

private:
    ToolResult expect(const QString &expression, const QStringList &options = {})
    {
        return runTool(QStringList(QStringLiteral("expect")) + options
                       + QStringList{m_file, expression});
    }

    std::unique_ptr<LogCapture> m_log;
    std::unique_ptr<ToolDescription> m_description;
    QString m_file;
    std::unique_ptr<HeldRegion> m_region;
};

void tst_ToolExpect::init()
{
    m_log = std::make_unique<LogCapture>();
    m_description = std::make_unique<ToolDescription>();
    m_description->add(QStringLiteral("pump/speed"), QStringLiteral("double"), Metadata::ErrorState,
                       8, {{QStringLiteral("unit"), QStringLiteral("1/s")}});
    m_description->add(QStringLiteral("pump/flow"), QStringLiteral("float"), Metadata::ErrorState,
                       4);
    m_description->add(QStringLiteral("pump/on"), QStringLiteral("boolean"), Metadata::ErrorState,
                       1);
    m_description->add(QStringLiteral("count"), QStringLiteral("uint64"), Metadata::ErrorState, 8);
    m_description->add(QStringLiteral("tag"), QStringLiteral("string"), Metadata::ErrorState, 16);
    m_description->add(QStringLiteral("broken"), QStringLiteral("int32"), Metadata::ErrorState, 4);
    m_description->add(QStringLiteral("odd (name)"), QStringLiteral("int32"), Metadata::ErrorState,
                       4);
    m_file = m_description->write();
    m_region = std::make_unique<HeldRegion>(m_file);
    QVERIFY(m_region->isValid());
    QVERIFY(m_region->write(QStringLiteral("pump/speed"), validValue(20.5)));
    QVERIFY(m_region->write(QStringLiteral("pump/flow"), validValue(0.1F)));
    QVERIFY(m_region->write(QStringLiteral("pump/on"), validValue(true)));
    QVERIFY(m_region->write(QStringLiteral("count"), validValue(quint64(9007199254740993))));
    QVERIFY(m_region->write(QStringLiteral("tag"), validValue(QStringLiteral("TI 1"))));
    QVERIFY(m_region->write(QStringLiteral("odd (name)"), validValue(-5)));
    QVERIFY(m_region->publish(QStringLiteral("broken"),
                              ProcessValue(PROCESS_VALUE_ERROR_TYPE_SENSOR_BREAKAGE)));
}

void tst_ToolExpect::cleanup()
{
    m_region.reset();
    m_description.reset();
    m_log.reset();
}

void tst_ToolExpect::expressionHoldsOrNot_data()
{
    QTest::addColumn<int>("exitCode");
    const auto add = [](const char *expression, int exitCode) {
        QTest::newRow(expression) << exitCode;
    };
    add("pump/speed > 20 and valid", 0);
    add("pump/speed > 20.5", 1);
    add("pump/speed >= 20.5 and pump/speed <= 20.5", 0);
    add("20 < pump/speed", 0);
    add("/pump//speed == 20.5", 0);
    add("pump/flow == 0.1", 0);
    add("pump/speed > pump/flow", 0);
    add("pump/flow > pump/speed", 1);
    add("count > pump/speed", 0);
    add("count == 9007199254740993", 0);
    add("count == 9007199254740992", 1);
    add("count == 0x20000000000001", 0);
    add("pump/on", 0);
    add("not pump/on", 1);
    add("pump/on == true", 0);
    add("pump/on != false", 0);
    add("tag == \"TI 1\"", 0);
    add("tag == 'TI 2'", 1);
    add("tag != 'TI 2'", 0);
    add("{odd (name)} < 0", 0);
    add("{odd (name)} == -5", 0);
    add("broken is sensor-breakage", 0);
    add("broken is not timeout and not valid and erroneous", 0);
    add("broken valid", 1);
    add("all(pump) is valid", 0);
    add("all(**) is valid", 1);
    add("any(**) is sensor-breakage", 0);
    add("all(pump/*) is not timeout", 0);
    add("any({**/speed}) > 20 and valid", 0);
    add("all(pump/s*) > 20", 0);
    add("21 < any(pump/speed)", 1);
    add("age < 1h", 0);
    add("age > 1h", 1);
    add("(pump/speed > 100 or tag == 'TI 1') and not (broken is valid)", 0);
}

void tst_ToolExpect::expressionHoldsOrNot()
{
    QFETCH(int, exitCode);

    const ToolResult result = expect(QString::fromUtf8(QTest::currentDataTag()));

    QCOMPARE(result.error, exitCode == 0
                               ? QString()
                               : QStringLiteral("tessel: %1: it does not hold\n").arg(m_file));
    QCOMPARE(result.output.isEmpty(), exitCode == 0);
    QCOMPARE(result.exitCode, exitCode);
}

void tst_ToolExpect::invalidValueNeverHoldsAComparison_data()
{
    QTest::addColumn<bool>("holds");
    // The condition, and what it is when it is turned.
    for (const char *comparison : {"<", "<=", "==", "!=", ">=", ">"}) {
        for (const char *form :
             {"broken %1 0", "0 %1 broken", "not broken %1 0", "not not broken %1 0",
              "broken %1 broken", "all(broken) %1 0", "not any(broken) %1 0",
              "pump/speed %1 0 and broken %1 0", "pump/speed %1 broken",
              "not (pump/speed %1 0 and broken %1 0) and pump/speed %1 0"}) {
            const QString text = QString::fromLatin1(form).replace(QStringLiteral("%1"),
                                                                   QLatin1String(comparison));
            QTest::newRow(qPrintable(text)) << false;
        }
    }
    QTest::newRow("broken > 0 or pump/speed > 0") << true;
    QTest::newRow("not (broken > 0 and pump/speed < 0)") << true;
    QTest::newRow("broken > 0 or broken is sensor-breakage") << true;
}

void tst_ToolExpect::invalidValueNeverHoldsAComparison()
{
    QFETCH(bool, holds);
    const QString text = QString::fromUtf8(QTest::currentDataTag());

    QCOMPARE(expect(text).exitCode, holds ? 0 : 1);

    // A valid value that is no number is none either.
    m_region->write(QStringLiteral("broken"), validValue(1));
    QVERIFY(m_region->publish(QStringLiteral("pump/flow"),
                              validValue(std::numeric_limits<float>::quiet_NaN())));
    const QString ofNaN = QString(text).replace(QStringLiteral("broken"),
                                                QStringLiteral("pump/flow"));
    if (!ofNaN.contains(QStringLiteral("is "))) {
        QCOMPARE(expect(ofNaN).exitCode, holds ? 0 : 1);
    }
    QCOMPARE(expect(QStringLiteral("pump/flow is valid")).exitCode, 0);
}

void tst_ToolExpect::tellsWhatFailed()
{
    const ToolResult result = expect(quoted(
        "pump/speed < 20 and (broken is valid or tag == 'x') and not pump/on and count > 1"));

    QCOMPARE(result.output,
             QStringLiteral("FAILED           URL         VALUE  UNIT  STATE\n"
                            "pump/speed < 20  pump/speed   20.5  1/s   valid\n"
                            "broken is valid  broken                   sensor-breakage\n"
                            "tag == 'x'       tag          TI 1        valid\n"
                            "not pump/on      pump/on      true        valid\n"));
    QCOMPARE(result.error, QStringLiteral("tessel: %1: it does not hold\n").arg(m_file));
    QCOMPARE(result.exitCode, 1);
    QCOMPARE(expect(quoted("count > 1 and not valid")).output,
             QStringLiteral("FAILED              URL               VALUE  UNIT  STATE\n"
                            "not count is valid  count  9007199254740993        valid\n"));
}

void tst_ToolExpect::tellsTheFirstOfMany()
{
    m_region.reset();
    for (int i = 0; i < 12; ++i) {
        m_description->add(QStringLiteral("many/n%1").arg(i, 2, 10, QLatin1Char('0')),
                           QStringLiteral("int32"), Metadata::ErrorState, 4);
    }
    m_file = m_description->write();
    m_region = std::make_unique<HeldRegion>(m_file);
    QVERIFY(m_region->publish(QStringLiteral("many/n01"), validValue(1)));

    const ToolResult result = expect(QStringLiteral("all(many) is valid"));

    const QStringList lines = result.output.split(QLatin1Char('\n'));
    QCOMPARE(lines.size(), 13);
    QVERIFY(!result.output.contains(QStringLiteral("many/n01")));
    QVERIFY(lines[10].contains(QStringLiteral("many/n10")));
    QCOMPARE(lines[11], QStringLiteral("all(many) is valid  ... and 1 more"));
    QCOMPARE(result.exitCode, 1);
}

void tst_ToolExpect::tellsAllAsJson()
{
    const ToolResult result = expect(
        QStringLiteral("pump/speed > 1 and not all(pump) is valid and broken > 1"),
        {QStringLiteral("--json")});

    const QJsonObject object = QJsonDocument::fromJson(result.output.toUtf8()).object();
    const QStringList keys{"ageMilliseconds",  "conditions", "expression", "generation",
                           "heldMilliseconds", "holds",      "met",        "timedOut"};
    QCOMPARE(object.keys(), keys);
    QCOMPARE(object.value("met").toBool(true), false);
    QCOMPARE(object.value("holds").toBool(true), false);
    QCOMPARE(object.value("timedOut").toBool(true), false);
    QCOMPARE(object.value("generation").toInt(), 2);
    QCOMPARE(object.value("heldMilliseconds").toInt(-1), 0);
    QVERIFY(object.value("ageMilliseconds").toInt(-1) >= 0);
    const QJsonArray conditions = object.value("conditions").toArray();
    QCOMPARE(conditions.size(), 3);
    QCOMPARE(conditions[0].toObject(),
             QJsonDocument::fromJson(R"({"text": "pump/speed > 1", "column": 1, "answer": "yes",
                 "failed": false, "leaves": [{"url": "pump/speed", "value": 20.5, "state": 0,
                 "stateName": "valid", "unit": "1/s", "type": "double"}]})")
                 .object());
    QCOMPARE(conditions[1].toObject().value("answer").toString(), QStringLiteral("yes"));
    QCOMPARE(conditions[1].toObject().value("failed").toBool(), true);
    QCOMPARE(conditions[1].toObject().value("leaves").toArray().size(), 3);
    QCOMPARE(conditions[2].toObject(),
             QJsonDocument::fromJson(R"({"text": "broken > 1", "column": 47, "answer": "unknown",
                 "failed": true, "leaves": [{"url": "broken", "value": null, "state": 8,
                 "stateName": "sensor-breakage", "unit": "", "type": "int32"}]})")
                 .object());
    QCOMPARE(result.exitCode, 1);
}

void tst_ToolExpect::jsonIsPrintedWhereItHolds()
{
    const ToolResult result = expect(QStringLiteral("pump/on"), {QStringLiteral("--json")});

    const QJsonObject object = QJsonDocument::fromJson(result.output.toUtf8()).object();
    QCOMPARE(object.value("met").toBool(), true);
    QCOMPARE(object.value("holds").toBool(), true);
    QCOMPARE(result.error, QString());
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolExpect::errorIsMarkedInTheExpression_data()
{
    QTest::addColumn<QString>("marks");
    QTest::addColumn<QString>("reason");
    QTest::addColumn<int>("exitCode");
    const auto add = [](const char *expression, const char *marks, const char *reason,
                        int exitCode) {
        QTest::newRow(expression) << QString::fromLatin1(marks) << QString::fromLatin1(reason)
                                  << exitCode;
    };
    add("pump/on and pump/sped > 20", "            ^~~~~~~~~",
        "column 13: FILE: no element at 'pump/sped' (did you mean 'pump/speed'?)", 3);
    add("pump > 20", "^~~~",
        "column 1: FILE: 'pump' is a tree node and has no value; all(pump) and any(pump) speak of "
        "several values",
        3);
    add("pump/spee* > 20", "^~~~~~~~~~",
        "column 1: FILE: no element at 'pump/spee*' (did you mean 'pump/speed'?); all(pump/spee*) "
        "and "
        "any(pump/spee*) speak of several values",
        3);
    add("all(x/**) valid", "^~~~~~~~~", "column 1: FILE: no element at 'x/**'", 3);
    add("tag > 5", "^~~~~~~",
        "column 1: 'tag' is a text and the other side is a number, which cannot be compared", 2);
    add("tag < 'x'", "^~~~~~~~~",
        "column 1: texts and truth values are == or !=, and none is larger than another", 2);
    add("pump/on == 1", "^~~~~~~~~~~~",
        "column 1: 'pump/on' is true or false and the other side is a number, which cannot be "
        "compared",
        2);
    add("all(pump) > 5", "^~~~~~~~~~~~~",
        "column 1: 'pump/on' is true or false and the other side is a number, which cannot be "
        "compared",
        2);
    add("count", "^~~~~", "column 1: 'count' is a number and has to be compared", 2);
    add("1 < 2", "^~~~~", "column 1: a comparison has a URL or 'age' on one side", 2);
    add("all(pump/s*) < any(count)", "               ^~~~~~~~~~",
        "column 16: all() and any() stand on one side of a comparison", 2);
    add("age < 5", "^~~~~~~",
        "column 1: 'age' is a time and the other side is a number, which cannot be compared", 2);
    add("5 < age", "^~~~~~~",
        "column 1: the other side is a number and 'age' is a time, which cannot be compared", 2);
    add("age == 'x'", "^~~~~~~~~~",
        "column 1: 'age' is a time and the other side is a text, which cannot be compared", 2);
    add("count > age", "^~~~~~~~~~~",
        "column 1: 'count' is a number and 'age' is a time, which cannot be compared", 2);
    add("count > 5s", "^~~~~~~~~~",
        "column 1: 'count' is a number and the other side is a time, which cannot be compared", 2);
    add("count > 5 nd", "          ^~",
        "column 11: 'and', 'or', ')' or the end is expected here (did you mean 'and'?)", 2);
}

void tst_ToolExpect::errorIsMarkedInTheExpression()
{
    QFETCH(QString, marks);
    QFETCH(QString, reason);
    QFETCH(int, exitCode);
    const QString expression = QString::fromUtf8(QTest::currentDataTag());
    const QString help = exitCode == 2 ? QStringLiteral("; see 'tessel expect --help'") : QString();
    // It is looked over before anything is waited for.
    m_region.reset();

    const ToolResult result = expect(expression, {QStringLiteral("--timeout=60s")});

    QCOMPARE(result.error, QStringLiteral("  %1\n  %2\ntessel: expect: %3%4\n")
                               .arg(expression, marks, reason.replace("FILE", m_file), help));
    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, exitCode);
}

void tst_ToolExpect::ageNeedsADoubleBuffer()
{
    m_region.reset();
    m_description->setRoot(QStringLiteral("doubleBuffer"), false);
    m_file = m_description->write();

    const ToolResult result = expect(QStringLiteral("age < 1s"));

    QCOMPARE(result.error,
             QStringLiteral("  age < 1s\n  ^~~\ntessel: expect: column 1: a single buffer does not "
                            "say how old its values are, and '%1' describes one; see 'tessel "
                            "expect --help'\n")
                 .arg(m_file));
    QCOMPARE(result.exitCode, 2);
}

void tst_ToolExpect::ageIsThatOfTheSet()
{
    const ToolResult result = expect(QStringLiteral("age > 1h"));

    const QRegularExpression shown(
        QStringLiteral("^FAILED    URL  VALUE  UNIT  STATE\nage > 1h  age +[0-9]+  ms\n$"));
    QVERIFY2(shown.match(result.output).hasMatch(), qPrintable(result.output));
}

void tst_ToolExpect::singleBufferIsReadAsWell()
{
    m_region.reset();
    m_description->setRoot(QStringLiteral("doubleBuffer"), false);
    m_file = m_description->write();
    m_region = std::make_unique<HeldRegion>(m_file);
    QVERIFY(m_region->write(QStringLiteral("pump/speed"), validValue(3.0)));

    QCOMPARE(expect(QStringLiteral("pump/speed == 3 and tag is no-input")).exitCode, 0);
    QCOMPARE(expect(QStringLiteral("pump/speed != 3")).exitCode, 1);
}

void tst_ToolExpect::descriptionMayBeLeftOut()
{
    const ToolResult result = runTool(
        {QStringLiteral("expect"), QStringLiteral("--json"), QStringLiteral("pump/on")},
        {QStringLiteral("TESSEL_DIR=") + m_file});

    QCOMPARE(result.error, QString());
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolExpect::slotAtFaultIsRefused()
{
    m_region.reset();
    m_description->add(QStringLiteral("outside"), QStringLiteral("int32"), Metadata::None, 4,
                       {{QStringLiteral("offsetSharedMemory"), 100000}});
    m_file = m_description->write();
    m_region = std::make_unique<HeldRegion>(m_file);

    const ToolResult result = expect(QStringLiteral("outside > 1"));

    QVERIFY(result.error.startsWith(
        QStringLiteral("tessel: %1: 'outside' has no usable slot: ").arg(m_file)));
    QCOMPARE(result.exitCode, 9);
}

void tst_ToolExpect::missingRegionIsTold()
{
    m_region.reset();

    for (const auto &options : {QStringList(), QStringList{QStringLiteral("--for=1s")}}) {
        const ToolResult result = expect(QStringLiteral("count > 1"), options);

        QCOMPARE(result.error, QStringLiteral("tessel: %1: no region '%2'; start the process that "
                                              "creates it, or 'tessel hold'\n")
                                   .arg(m_file, m_description->key()));
        QCOMPARE(result.output, QString());
        QCOMPARE(result.exitCode, 3);
    }
}

void tst_ToolExpect::otherLayoutIsRefused()
{
    m_description->add(QStringLiteral("more"), QStringLiteral("int32"), Metadata::None, 4);
    m_file = m_description->write();

    for (const auto &options : {QStringList(), QStringList{QStringLiteral("--timeout=60s")}}) {
        const ToolResult result = expect(QStringLiteral("count > 1"), options);

        QVERIFY(result.error.endsWith(QStringLiteral("; its creator uses another description\n")));
        QCOMPARE(result.exitCode, 8);
    }
}

void tst_ToolExpect::wrongUseIsRefused_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("reason");
    const QString time = QStringLiteral("--%1 takes a time from 0s to 24h such as 500ms, 10s or "
                                        "2min, not '%2'");
    const auto add = [](const char *name, const QStringList &arguments, const QString &reason) {
        QTest::newRow(name) << arguments << reason;
    };
    add("no file", {}, QStringLiteral("FILE is missing"));
    add("no expression", {"f.process.json"}, QStringLiteral("EXPRESSION is missing"));
    add("words without quotes", {"f.process.json", "a", ">", "5"},
        QStringLiteral("'>' is one argument too many"));
    add("unknown option", {"--timout=5", "f.process.json", "a"},
        QStringLiteral("unknown option '--timout' (did you mean '--timeout'?)"));
    add("no time", {"--for", "x", "f.process.json", "a"},
        time.arg(QStringLiteral("for"), QStringLiteral("x")));
    add("empty time", {"--timeout=", "f.process.json", "a"},
        time.arg(QStringLiteral("timeout"), QString()));
    add("negative time", {"--timeout=-5", "f.process.json", "a"},
        time.arg(QStringLiteral("timeout"), QStringLiteral("-5")));
    add("more than a day", {"--timeout=25h", "f.process.json", "a"},
        time.arg(QStringLiteral("timeout"), QStringLiteral("25h")));
    add("no room for it", {"--for=10s", "--timeout=10", "f.process.json", "a"},
        QStringLiteral("--for takes less time than --timeout"));
}

void tst_ToolExpect::wrongUseIsRefused()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, reason);

    const ToolResult result = runTool(QStringList(QStringLiteral("expect")) + arguments);

    QCOMPARE(result.error,
             QStringLiteral("tessel: expect: %1; see 'tessel expect --help'\n").arg(reason));
    QCOMPARE(result.exitCode, 2);
}

/// The exit code is the answer, whoever reads the rest.
void tst_ToolExpect::closedPipeDoesNotMakeItHold()
{
    QCOMPARE(exitCodeWithoutReader({QStringLiteral("expect"), m_file, QStringLiteral("count < 1")}),
             1);
    QCOMPARE(exitCodeWithoutReader({QStringLiteral("expect"), QStringLiteral("--json"), m_file,
                                    QStringLiteral("count > 1")}),
             0);
}

void tst_ToolExpect::fullOutputIsAFailure()
{
    QProcess tool;
    tool.setStandardOutputFile(QStringLiteral("/dev/full"));
    tool.start(QStringLiteral(TESSEL_TOOL),
               {QStringLiteral("expect"), m_file, QStringLiteral("count < 1")});
    QVERIFY(tool.waitForFinished());

    QCOMPARE(tool.exitCode(), 9);
    QVERIFY(tool.readAllStandardError().contains("standard output: No space left on device"));
}

void tst_ToolExpect::nothingIsWritten()
{
    const SegmentFile segment(m_description->key() + QStringLiteral("SharedMemory"));
    const QByteArray before = segment.content();

    QCOMPARE(expect(QStringLiteral("count > 1 and age < 1h")).exitCode, 0);

    QVERIFY(!before.isEmpty());
    QVERIFY(segment.content() == before);
}

QTEST_GUILESS_MAIN(tst_ToolExpect)
#include "tst_ToolExpect.moc"
