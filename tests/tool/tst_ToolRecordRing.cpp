#include "RecordedPlant.h"

#include <QtTest>

namespace {

using ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_OVERRANGE;
using ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_TIMEOUT;

QStringList ring(const QStringList &options)
{
    return QStringList{QStringLiteral("--ring"), QStringLiteral("1h")} + options;
}

QStringList on(const QString &trigger)
{
    return ring({QStringLiteral("--on"), trigger});
}

QStringList texts(const char *words)
{
    return QString::fromLatin1(words).split(QLatin1Char(' '));
}

} // namespace

/// `tessel record --ring`: what was before and after a trigger.
class tst_ToolRecordRing : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void withoutATriggerTheEndSavesIt();
    void timeOfTheRingIsWhatStays();
    void nothingIsWrittenBeforeATrigger();
    void stateSavesWhatWasBeforeAndAfter();
    void stateThatHeldBeforeHasToComeAnew();
    void namedStateIsWaitedFor();
    void expressionSavesWhatWasBefore();
    void gapComesWhileNothingIsPublished();
    void gapBehindTheLastSetIsToldOfItsRun();
    void eachTriggerBeginsARun();
    void gapDoesNotGoWithAnInterval();
    void stateGoesWithAnInterval();
    void wrongTriggers_data();
    void wrongTriggers();
};

void tst_ToolRecordRing::withoutATriggerTheEndSavesIt()
{
    RecordedPlant recorded;
    ToolProcess recorder(recorded.record(ring({})));
    QVERIFY(recorded.isBegun(recorder));
    QVERIFY(recorded.publisher.publishTo(recorder.pid(), validValue(1)));
    QVERIFY(recorded.publisher.publishTo(recorder.pid(), validValue(2)));
    QCOMPARE(valuesOf(recorded.path()), QStringList());
    recorder.signal(SIGINT);
    QCOMPARE(recorder.finish().exitCode, 0);

    QCOMPARE(valuesOf(recorded.path()),
             (QStringList{{}, QStringLiteral("1"), QStringLiteral("2")}));
}

void tst_ToolRecordRing::timeOfTheRingIsWhatStays()
{
    RecordedPlant recorded;
    ToolProcess recorder(recorded.record({QStringLiteral("--ring=1ms"), QStringLiteral("--json")}));
    QVERIFY(recorded.isBegun(recorder));
    const auto begin = std::chrono::steady_clock::now();
    int last = 0;
    while (std::chrono::steady_clock::now() - begin < std::chrono::milliseconds(50)) {
        QVERIFY(recorded.publisher.publishTo(recorder.pid(), validValue(++last)));
    }
    recorder.signal(SIGINT);
    QCOMPARE(recorder.finish().exitCode, 0);

    const QStringList times = columnOf(recorded.path(), QStringLiteral("elapsed"));
    QVERIFY(times.constLast().toDouble() - times.constFirst().toDouble() <= 0.001001);
    QCOMPARE(valuesOf(recorded.path()).constLast(), QString::number(last));
}

void tst_ToolRecordRing::nothingIsWrittenBeforeATrigger()
{
    RecordedPlant recorded;
    ToolProcess recorder(recorded.record(on(QStringLiteral("state != valid: **"))));
    QVERIFY(recorded.isBegun(recorder));
    QVERIFY(recorded.publisher.publishTo(recorder.pid(), validValue(1)));
    recorder.signal(SIGINT);
    const ToolResult result = recorder.finish();

    QCOMPARE(result.exitCode, 0);
    QVERIFY(result.error.startsWith(QStringLiteral("tessel: note: recorded 0 sets ")));
    QCOMPARE(valuesOf(recorded.path()), QStringList());
}

void tst_ToolRecordRing::stateSavesWhatWasBeforeAndAfter()
{
    RecordedPlant recorded;
    ToolProcess recorder(recorded.record(on(QStringLiteral("state != valid: pump/**"))));
    QVERIFY(recorded.isBegun(recorder));
    QVERIFY(recorded.publisher.publishTo(recorder.pid(), validValue(1)));
    QVERIFY(recorded.publisher.publishTo(recorder.pid(), validValue(2)));
    QVERIFY(recorded.publisher.publishTo(recorder.pid(),
                                         stateValue(PROCESS_VALUE_ERROR_TYPE_OVERRANGE)));
    QVERIFY(recorded.publisher.publishTo(recorder.pid(), validValue(3)));
    recorder.signal(SIGINT);
    QCOMPARE(recorder.finish().exitCode, 0);

    QCOMPARE(columnOf(recorded.path(), QStringLiteral("pump/speed state")),
             texts("no-input valid valid overrange valid"));
    QCOMPARE(valuesOf(recorded.path()), texts(" 1 2  3"));
    QCOMPARE(columnOf(recorded.path(), QStringLiteral("trigger")),
             (QStringList{{}, {}, {}, QStringLiteral("state != valid: pump/**"), {}}));
}

void tst_ToolRecordRing::stateThatHeldBeforeHasToComeAnew()
{
    RecordedPlant recorded;
    QVERIFY(recorded.publisher.publish(stateValue(PROCESS_VALUE_ERROR_TYPE_OVERRANGE)));
    ToolProcess recorder(recorded.record(on(QStringLiteral("state != valid: **"))));
    QVERIFY(recorded.isBegun(recorder));
    QVERIFY(
        recorded.publisher.publishTo(recorder.pid(), stateValue(PROCESS_VALUE_ERROR_TYPE_TIMEOUT)));
    QCOMPARE(valuesOf(recorded.path()), QStringList());
    QVERIFY(recorded.publisher.publishTo(recorder.pid(), validValue(1)));
    QVERIFY(
        recorded.publisher.publishTo(recorder.pid(), stateValue(PROCESS_VALUE_ERROR_TYPE_TIMEOUT)));
    recorder.signal(SIGINT);
    QCOMPARE(recorder.finish().exitCode, 0);

    QCOMPARE(columnOf(recorded.path(), QStringLiteral("pump/speed state")),
             texts("overrange timeout valid timeout"));
}

void tst_ToolRecordRing::namedStateIsWaitedFor()
{
    RecordedPlant recorded;
    ToolProcess recorder(recorded.record(on(QStringLiteral(" state==timeout:pump/speed "))));
    QVERIFY(recorded.isBegun(recorder));
    QVERIFY(recorded.publisher.publishTo(recorder.pid(),
                                         stateValue(PROCESS_VALUE_ERROR_TYPE_OVERRANGE)));
    QCOMPARE(valuesOf(recorded.path()), QStringList());
    QVERIFY(
        recorded.publisher.publishTo(recorder.pid(), stateValue(PROCESS_VALUE_ERROR_TYPE_TIMEOUT)));

    QCOMPARE(columnOf(recorded.path(), QStringLiteral("pump/speed state")),
             texts("no-input overrange timeout"));
}

void tst_ToolRecordRing::expressionSavesWhatWasBefore()
{
    RecordedPlant recorded;
    ToolProcess recorder(recorded.record(on(QStringLiteral("pump/speed > 20"))));
    QVERIFY(recorded.isBegun(recorder));
    QVERIFY(recorded.publisher.publishTo(recorder.pid(), validValue(20)));
    QCOMPARE(valuesOf(recorded.path()), QStringList());
    QVERIFY(recorded.publisher.publishTo(recorder.pid(), validValue(21)));
    QVERIFY(recorded.publisher.publishTo(recorder.pid(), validValue(22)));
    recorder.signal(SIGINT);
    QCOMPARE(recorder.finish().exitCode, 0);

    QCOMPARE(valuesOf(recorded.path()), texts(" 20 21 22"));
    QCOMPARE(columnOf(recorded.path(), QStringLiteral("trigger")),
             (QStringList{{}, {}, QStringLiteral("pump/speed > 20"), {}}));
}

void tst_ToolRecordRing::gapComesWhileNothingIsPublished()
{
    RecordedPlant recorded;
    ToolProcess recorder(
        recorded.record(on(QStringLiteral("gap > 1ms"))
                        + QStringList{QStringLiteral("--after=1ms"), QStringLiteral("--triggers=1"),
                                      QStringLiteral("--json")}));

    const ToolResult result = recorder.finish();

    QCOMPARE(result.exitCode, 0);
    QCOMPARE(QJsonDocument::fromJson(result.output.toUtf8())
                 .object()
                 .value(QStringLiteral("triggers"))
                 .toInt(),
             1);
    QCOMPARE(valuesOf(recorded.path()), QStringList{QString()});
    QVERIFY(fileBytes(recorded.path()).contains("\"reason\":\"triggers\""));
}

/// No set is left at which it could stand, and at one of another run it would be wrong.
void tst_ToolRecordRing::gapBehindTheLastSetIsToldOfItsRun()
{
    const RecordedPlant recorded;
    const QStringList gap = on(QStringLiteral("gap > 1ms"))
                            + QStringList{QStringLiteral("--after=1ms"),
                                          QStringLiteral("--triggers=1")};
    QCOMPARE(runTool(recorded.record(gap)).exitCode, 0);
    QCOMPARE(
        runTool(recorded.record({QStringLiteral("--append"), QStringLiteral("--sets=1")})).exitCode,
        0);

    for (const char *form : {"--csv", "--json"}) {
        const ToolResult result = runTool(
            {QStringLiteral("export"), recorded.path(), QString::fromLatin1(form)});

        const QRegularExpression note(
            QStringLiteral("\\Atessel: note: .*: behind the last set of run 1 came the trigger "
                           "'gap > 1ms', at 20[-0-9]+T[0-9:.]+Z\n\\z"));
        QVERIFY2(note.match(result.error).hasMatch(), qPrintable(result.error));
        QVERIFY2(!result.output.contains(QStringLiteral("gap")), qPrintable(result.output));
        QCOMPARE(result.exitCode, 0);
    }
}

void tst_ToolRecordRing::eachTriggerBeginsARun()
{
    RecordedPlant recorded;
    ToolProcess recorder(recorded.record(
        on(QStringLiteral("pump/speed > 20"))
        + QStringList{QStringLiteral("--after=1ms"), QStringLiteral("--triggers=2")}));
    QVERIFY(recorded.isBegun(recorder));
    QVERIFY(recorded.publisher.publishTo(recorder.pid(), validValue(30)));
    // Once its time is over the next of them saves what was before it.
    int number = 0;
    QVERIFY(waitUntil([&] {
        const bool isPublished = recorded.publisher.publish(validValue(++number % 2 == 0 ? 30 : 1));
        QCoreApplication::processEvents();
        return !isPublished || recorder.pid() == 0;
    }));

    QCOMPARE(recorder.finish().exitCode, 0);
    const QStringList runs = columnOf(recorded.path(), QStringLiteral("run"));
    QCOMPARE(runs.constFirst(), QStringLiteral("1"));
    QCOMPARE(runs.constLast(), QStringLiteral("2"));
}

/// Where sets are passed over nobody knows how long none came.
void tst_ToolRecordRing::gapDoesNotGoWithAnInterval()
{
    const RecordedPlant recorded;

    const ToolResult result = runTool(recorded.record(
        on(QStringLiteral("gap > 500ms")) + QStringList(QStringLiteral("--interval=100ms"))));

    QCOMPARE(result.error, QStringLiteral("tessel: record: --on 'gap > 500ms' does not go with "
                                          "--interval; see 'tessel record --help'\n"));
    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, 2);
    QVERIFY(!QFile::exists(recorded.path()));
}

void tst_ToolRecordRing::stateGoesWithAnInterval()
{
    const RecordedPlant recorded;

    const ToolResult result = runTool(recorded.record(
        on(QStringLiteral("state != valid: **"))
        + QStringList{QStringLiteral("--interval=100ms"), QStringLiteral("--dry-run")}));

    QCOMPARE(result.error, QString());
    QCOMPARE(result.output, QStringLiteral("1 value of '%1', not recorded into %2\n")
                                .arg(recorded.plant.key(), recorded.path()));
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolRecordRing::wrongTriggers_data()
{
    QTest::addColumn<QString>("trigger");
    QTest::addColumn<QString>("error");
    QTest::addColumn<int>("exitCode");
    const auto add = [](const char *trigger, const char *error, int exitCode = 2) {
        QTest::newRow(trigger) << QString::fromLatin1(trigger) << QString::fromLatin1(error)
                               << exitCode;
    };
    add("gap > soon", "tessel: record: --on: a gap takes a time such as 'gap > 500ms', not 'soon'; "
                      "see 'tessel record --help'\n");
    add("gap > 0s", "tessel: record: --on: a gap takes a time such as 'gap > 500ms', not '0s'; see "
                    "'tessel record --help'\n");
    add("state != vaild: **",
        "tessel: record: --on: 'vaild' is no state (did you mean 'valid'?); use a number from 0 to "
        "9 or one of valid, underrange, overrange, no-input, division-by-zero, "
        "incorrect-mathematic, invalid-temperature, sensor-short-circuit, sensor-breakage, "
        "timeout; see 'tessel record --help'\n");
    const auto addNear = [&](const char *trigger, const char *nearest) {
        add(trigger, qPrintable(QStringLiteral("tessel: record: --on '%1' is no trigger (did you "
                                               "mean '%2'?); see 'tessel record --help'\n")
                                    .arg(QLatin1String(trigger), QLatin1String(nearest))));
    };
    addNear("stat != valid: **", "state != valid: **");
    addNear("status == 2: pump/speed", "state == overrange: pump/speed");
    addNear("State = timeuot: pump", "state == timeout: pump");
    addNear("state is not valid: **", "state != valid: **");
    addNear("state is valid: pump", "state == valid: pump");
    addNear("state != valid pump", "state != valid: pump");
    addNear("state <> fine:**", "state != valid: **");
    addNear("gapp > 1.5s", "gap > 1.5s");
    addNear("gap >= 2min", "gap > 2min");
    addNear("gap < 500", "gap > 500ms");
    addNear("gap", "gap > 500ms");
    add("map > 3", "tessel: record: column 1: ", 3);
    add("age > 1s", "tessel: record: --on knows no 'age', which is none when a set comes; use "
                    "'gap > 500ms'; see 'tessel record --help'\n");
    add("pump/speed >", "tessel: record: column ");
    add("state != valid: pump/speeed", ": no element at 'pump/speeed' (did you mean 'pump/speed'?)",
        3);
    add("pump/speeed > 20", "pump/speeed", 3);
}

void tst_ToolRecordRing::wrongTriggers()
{
    QFETCH(QString, trigger);
    QFETCH(QString, error);
    QFETCH(int, exitCode);
    const RecordedPlant recorded;

    const ToolResult result = runTool(recorded.record(on(trigger)));

    QVERIFY2(result.error.contains(error), qPrintable(result.error));
    QCOMPARE(result.exitCode, exitCode);
    QVERIFY(!QFile::exists(recorded.path()));
}

QTEST_GUILESS_MAIN(tst_ToolRecordRing)
#include "tst_ToolRecordRing.moc"
