#include "Companion/PingPongBufferHandler.h"
#include "ExpectedRegion.h"
#include "ProcessData/Linux/SharedMemory.h"
#include "support/SegmentFile.h"

#include <QDateTime>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QtTest>

#include <limits>
#include <memory>

using Metadata = ToolDescription::Metadata;

namespace {

QString quoted(const char *text)
{
    return QString::fromUtf8(text);
}

} // namespace

/// `tessel expect`: what an expression says about the values that are there.
class tst_ToolExpect : public ExpectedRegion
{
    Q_OBJECT

private Q_SLOTS:
    void init() { prepare(); }
    void cleanup() { clear(); }

    void expressionHoldsOrNot_data();
    void expressionHoldsOrNot();
    void invalidValueNeverHoldsAComparison_data();
    void invalidValueNeverHoldsAComparison();
    void tellsWhatFailed();
    void tellsTheFirstOfMany();
    void tellsAllAsJson();
    void jsonIsPrintedWhereItHolds();
    void ageNeedsADoubleBuffer();
    void ageIsThatOfTheSet();
    void ageFromTheFutureIsUnknown();
    void unknownAnswerIsToldAsJson();
    void singleBufferIsReadAsWell();
    void singleBufferHasNeitherGenerationNorAge();
    void descriptionMayBeLeftOut();
    void nothingIsWritten();
};

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

/// The clock was set back since.
void tst_ToolExpect::ageFromTheFutureIsUnknown()
{
    SharedMemory memory;
    memory.setKey(m_description->key() + "SharedMemory");
    QVERIFY(memory.attach(SharedMemory::ReadWrite));
    constexpr qint64 perSecond = 1000000000;
    static_cast<PingPongBufferHandler::ManagementBuffer *>(memory.data())->lastSwap =
        (QDateTime::currentSecsSinceEpoch() + 86400) * perSecond;

    for (const auto *const expression : {"age < 1h", "1h > age", "not age < 1h"}) {
        const ToolResult result = expect(expression);
        const ToolResult json = expect(expression, {"--json"});

        const QString text = QString(expression);
        QCOMPARE(result.output, QString("FAILED").leftJustified(text.size())
                                    + "  URL  VALUE  UNIT  STATE\n" + text
                                    + "  age         ms    unknown\n");
        QCOMPARE(result.exitCode, 1);
        const QJsonObject object = QJsonDocument::fromJson(json.output.toUtf8()).object();
        QVERIFY(object.value("ageMilliseconds").isNull() && object.contains("ageMilliseconds"));
        const QJsonObject condition = object.value("conditions").toArray().first().toObject();
        QCOMPARE(condition.value("answer"), QJsonValue("unknown"));
        QCOMPARE(condition.value("failed"), QJsonValue(true));
        QCOMPARE(condition.value("leaves"), QJsonValue(QJsonArray()));
    }
    QCOMPARE(expect("age < 1h or count > 0").exitCode, 0);
}

void tst_ToolExpect::unknownAnswerIsToldAsJson()
{
    const ToolResult result = expect("broken > 1 or count < 1 or pump/on", {"--json"});
    const ToolResult failed = expect("not broken > 1", {"--json"});

    const QJsonArray conditions =
        QJsonDocument::fromJson(result.output.toUtf8()).object().value("conditions").toArray();
    QStringList answers;
    for (const auto &condition : conditions) {
        answers.append(condition.toObject().value("answer").toString());
        QCOMPARE(condition.toObject().value("failed"), QJsonValue(false));
    }
    QCOMPARE(answers, (QStringList{"unknown", "no", "yes"}));
    QCOMPARE(result.exitCode, 0);
    const QJsonObject object = QJsonDocument::fromJson(failed.output.toUtf8()).object();
    const QJsonObject condition = object.value("conditions").toArray().first().toObject();
    QCOMPARE(object.value("met"), QJsonValue(false));
    QCOMPARE(condition.value("answer"), QJsonValue("unknown"));
    QCOMPARE(condition.value("failed"), QJsonValue(true));
    const QJsonObject leaf = condition.value("leaves").toArray().first().toObject();
    QCOMPARE(leaf.value("url"), QJsonValue("broken"));
    QCOMPARE(leaf.value("stateName"), QJsonValue("sensor-breakage"));
    QCOMPARE(failed.exitCode, 1);
}

void tst_ToolExpect::singleBufferHasNeitherGenerationNorAge()
{
    m_region.reset();
    m_description->setRoot("doubleBuffer", false);
    m_file = m_description->write();
    m_region = std::make_unique<HeldRegion>(m_file);

    const ToolResult result = expect("count is no-input", {"--json"});

    const QJsonObject object = QJsonDocument::fromJson(result.output.toUtf8()).object();
    QCOMPARE(object.value("met"), QJsonValue(true));
    QVERIFY(object.value("generation").isNull() && object.contains("generation"));
    QVERIFY(object.value("ageMilliseconds").isNull() && object.contains("ageMilliseconds"));
    QCOMPARE(result.error, QString());
    QCOMPARE(result.exitCode, 0);
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

/// The exit code is the answer, whoever reads the rest.
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
