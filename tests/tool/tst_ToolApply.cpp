#include "HeldRegion.h"
#include "ToolProcess.h"

#include <QtTest>

#include <cmath>
#include <memory>

using namespace ProcessDataDefinitions;
using Metadata = ToolDescription::Metadata;

/// `tessel apply`: the values of a JSON file become one set, or none is written.
class tst_ToolApply : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void objectOfValuesIsWritten();
    void stateIsWritten();
    void whatWasPrintedIsBroughtBack();
    void largeNumbersKeepTheirDigits();
    void zeroKeepsItsSign();
    void descriptionMayBeLeftOut();
    void standardInputIsRead();
    void dryRunWritesNothing();
    void everythingIsRefusedTogether();
    void valueThatDoesNotFitIsRefused_data();
    void valueThatDoesNotFitIsRefused();
    void fileIsAtFault_data();
    void fileIsAtFault();
    void missingFileIsTold();
    void linkThatLeadsNowhereIsNoFile();
    void missingRegionIsTold();
    void wrongUseIsRefused_data();
    void wrongUseIsRefused();
    void closedPipeIsNoFailure();

private:
    ToolResult apply(const QByteArray &text, const QStringList &options = {});
    ProcessValue published(const char *url) { return m_region->read(QLatin1String(url)); }

    std::unique_ptr<ToolDescription> m_description;
    QString m_file;
    std::unique_ptr<HeldRegion> m_region;
};

void tst_ToolApply::init()
{
    m_description = std::make_unique<ToolDescription>();
    m_description->add(QStringLiteral("pump/speed"), QStringLiteral("double"), Metadata::ErrorState,
                       8, {{QStringLiteral("maxLimit"), 100}});
    m_description->add(QStringLiteral("pump/on"), QStringLiteral("boolean"), Metadata::None, 1);
    m_description->add(QStringLiteral("count"), QStringLiteral("uint64"), Metadata::ErrorState, 8);
    m_description->add(QStringLiteral("tag"), QStringLiteral("string"), Metadata::ErrorState, 16);
    m_description->add(QStringLiteral("fixed"), QStringLiteral("int32"), Metadata::ErrorState, 4,
                       {{QStringLiteral("readOnly"), true}});
    m_file = m_description->write();
    m_region = std::make_unique<HeldRegion>(m_file);
    QVERIFY(m_region->isValid());
    QVERIFY(m_region->write(QStringLiteral("count"), validValue(0)));
    QVERIFY(m_region->write(QStringLiteral("tag"), validValue(QString())));
    QVERIFY(m_region->publish(QStringLiteral("pump/speed"), validValue(1.5)));
}

void tst_ToolApply::cleanup()
{
    m_region.reset();
    m_description.reset();
}

ToolResult tst_ToolApply::apply(const QByteArray &text, const QStringList &options)
{
    const QString values = m_description->write(QStringLiteral("values.json"), text);
    return runTool(QStringList(QStringLiteral("apply")) + options + QStringList{m_file, values});
}

void tst_ToolApply::objectOfValuesIsWritten()
{
    const ToolResult result = apply(
        R"({"pump/speed": 12.5, "pump/on": true, "count": "7", "tag": "TI 1"})");

    QCOMPARE(result.error, QString());
    QCOMPARE(result.output, QStringLiteral("URL           WAS    IS  UNIT\n"
                                           "count           0     7\n"
                                           "pump/on     false  true\n"
                                           "pump/speed    1.5  12.5\n"
                                           "tag                TI 1\n"));
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(published("pump/speed").getValue(), QVariant(12.5));
    QCOMPARE(published("pump/on").getValue(), QVariant(true));
    QCOMPARE(published("count").getValue(), QVariant(quint64(7)));
    QCOMPARE(published("tag").getValue(), QVariant(QStringLiteral("TI 1")));
}

void tst_ToolApply::stateIsWritten()
{
    QCOMPARE(apply(R"({"pump/speed": {"state": "overrange"}, "count": {"state": 9}})").exitCode, 0);

    QCOMPARE(published("pump/speed").getErrorType(), PROCESS_VALUE_ERROR_TYPE_OVERRANGE);
    QCOMPARE(published("count").getErrorType(), PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
}

void tst_ToolApply::whatWasPrintedIsBroughtBack()
{
    QVERIFY(
        m_region->publish(QStringLiteral("count"), ProcessValue(PROCESS_VALUE_ERROR_TYPE_TIMEOUT)));
    const ToolResult printed = runTool({QStringLiteral("get"), QStringLiteral("--json"), m_file,
                                        QStringLiteral("pump"), QStringLiteral("count"),
                                        QStringLiteral("tag")});
    QCOMPARE(apply(R"({"pump/speed": 99, "pump/on": true, "count": 3, "tag": "x"})").exitCode, 0);

    QCOMPARE(apply(printed.output.toUtf8()).exitCode, 0);

    QCOMPARE(published("pump/speed").getValue(), QVariant(1.5));
    QCOMPARE(published("pump/on").getValue(), QVariant(false));
    QCOMPARE(published("count").getErrorType(), PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
    QCOMPARE(published("tag").getValue(), QVariant(QString()));
}

/// Beyond 2^53 a double has not each of them.
void tst_ToolApply::largeNumbersKeepTheirDigits()
{
    for (const quint64 number :
         {9007199254740993ULL, 9223372036854775807ULL, 9223372036854775809ULL,
          9223372036854776999ULL, 18446744073709551615ULL}) {
        const QByteArray digits = QByteArray::number(number);

        QCOMPARE(apply("{\"count\": " + digits + "}").exitCode, 0);
        QCOMPARE(published("count").getValue(), QVariant(number));
        QCOMPARE(apply("[{\"url\": \"count\", \"value\": " + digits + "}]").exitCode, 0);
        QCOMPARE(apply("{\"count\": \"" + digits + "\"}").exitCode, 0);
        QCOMPARE(published("count").getValue(), QVariant(number));
        QCOMPARE(apply("{\"count\": 1}").exitCode, 0);
        QCOMPARE(apply("{\"count\": " + digits + "0e-1}").exitCode, 0);
        QCOMPARE(published("count").getValue(), QVariant(number));
    }

    const ToolResult result = apply(R"({"count": 18446744073709551616})");

    QCOMPARE(result.error, QStringLiteral("tessel: 'count': '18446744073709551616' is no uint64; a "
                                          "whole number from 0 to 18446744073709551615 is\n"));
    QCOMPARE(result.exitCode, 5);
}

void tst_ToolApply::zeroKeepsItsSign()
{
    QCOMPARE(apply(R"({"pump/speed": -0})").exitCode, 0);

    QVERIFY(std::signbit(published("pump/speed").getValue().toDouble()));
}

void tst_ToolApply::descriptionMayBeLeftOut()
{
    const QString values = m_description->write(QStringLiteral("values.json"), R"({"count": 5})");

    const ToolResult result = runTool({QStringLiteral("apply"), values},
                                      {QStringLiteral("TESSEL_DIR=") + m_file});

    QCOMPARE(result.error, QString());
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(published("count").getValue(), QVariant(quint64(5)));
}

void tst_ToolApply::standardInputIsRead()
{
    QProcess tool;
    tool.start(QStringLiteral(TESSEL_TOOL), {QStringLiteral("apply"), m_file, QStringLiteral("-")});
    tool.write(R"({"count": 5})");
    tool.closeWriteChannel();
    QVERIFY(tool.waitForFinished(60000));

    QCOMPARE(tool.exitCode(), 0);
    QCOMPARE(published("count").getValue(), QVariant(quint64(5)));
}

void tst_ToolApply::dryRunWritesNothing()
{
    const ToolResult result = apply(R"({"pump/speed": 2})", {QStringLiteral("--dry-run")});

    QCOMPARE(result.output, QStringLiteral("URL         WAS  IS  UNIT\n"
                                           "pump/speed  1.5   2\n"));
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(published("pump/speed").getValue(), QVariant(1.5));
}

void tst_ToolApply::everythingIsRefusedTogether()
{
    const ToolResult result = apply(R"({"count": 1, "fixed": 1, "nowhere": 2, "pump/speed": 101})");

    QVERIFY(result.error.contains(QStringLiteral("tessel: 'fixed' is read-only")));
    QVERIFY(result.error.contains(QStringLiteral("nowhere")));
    QVERIFY(result.error.contains(QStringLiteral("'pump/speed': 101 is above the upper limit")));
    QVERIFY(result.error.endsWith(
        QStringLiteral("tessel: 3 of 4 values are refused, and nothing is written\n")));
    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, 5);
    QCOMPARE(published("count").getValue(), QVariant(quint64(0)));
}

void tst_ToolApply::valueThatDoesNotFitIsRefused_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QString>("reason");
    QTest::addColumn<int>("exitCode");
    const QString shape = QStringLiteral(
        "a number, a text, true, false or {\"state\": NAME} is a value");

    QTest::newRow("null") << QByteArray(R"({"count": null})") << QStringLiteral("'count': ") + shape
                          << 5;
    QTest::newRow("list") << QByteArray(R"({"count": [1]})") << QStringLiteral("'count': ") + shape
                          << 5;
    QTest::newRow("object") << QByteArray(R"({"count": {"value": 1}})")
                            << QStringLiteral("'count': ") + shape << 5;
    QTest::newRow("number for a text")
        << QByteArray(R"({"tag": 5})")
        << QStringLiteral("'tag': a string takes a text in quotation marks") << 5;
    QTest::newRow("truth value for a number")
        << QByteArray(R"({"count": true})")
        << QStringLiteral("'count': 'true' is no uint64; a whole number from 0 to "
                          "18446744073709551615 is")
        << 5;
    for (const char *number : {"0.99999999999999999999", "1.00000000000000000001"}) {
        QTest::newRow(number) << QByteArray("{\"count\": ") + number + '}'
                              << QStringLiteral("'count': '%1' is no uint64; a whole number from 0 "
                                                "to 18446744073709551615 is")
                                     .arg(QString::fromLatin1(number))
                              << 5;
    }
    QTest::newRow("state that the slot cannot hold")
        << QByteArray(R"({"pump/on": {"state": "timeout"}})")
        << QStringLiteral("'pump/on': a boolean without metadata cannot carry an error state") << 5;
    QTest::newRow("valid as a state")
        << QByteArray(R"({"count": {"state": "valid"}})")
        << QStringLiteral("'count': 'valid' is no error; give a value instead") << 5;
    QTest::newRow("unknown state")
        << QByteArray(R"({"count": {"state": "timeot"}})")
        << QStringLiteral("'timeot' is no error state (did you mean 'timeout'?); use a number from "
                          "1 to 9 or one of underrange, overrange, no-input, division-by-zero, "
                          "incorrect-mathematic, invalid-temperature, sensor-short-circuit, "
                          "sensor-breakage, timeout")
        << 2;
    QTest::newRow("truth value as a state")
        << QByteArray(R"({"count": {"state": true}})")
        << QStringLiteral("'count': a state is a number or a name") << 5;
    QTest::newRow("null as a state")
        << QByteArray(R"([{"url": "count", "value": 5, "state": null}])")
        << QStringLiteral("'count': a state is a number or a name") << 5;
    QTest::newRow("zero character")
        << QByteArray(R"({"tag": "a\u0000b"})")
        << QStringLiteral("'tag': a text ends where its first zero character is") << 5;
    QTest::newRow("entry without a URL")
        << QByteArray(R"([{"url": "count", "value": 1}, {"value": 2}])")
        << QStringLiteral("entry 2 of the list is no object with a \"url\"") << 9;
    QTest::newRow("printed twice")
        << QByteArray(R"([{"url": "count", "value": 1}, {"url": "count", "value": 2}])")
        << QStringLiteral("'count' is given twice") << 2;
}

void tst_ToolApply::valueThatDoesNotFitIsRefused()
{
    QFETCH(QByteArray, text);
    QFETCH(QString, reason);
    QFETCH(int, exitCode);

    const ToolResult result = apply(text);

    QCOMPARE(result.error, QStringLiteral("tessel: %1\n").arg(reason));
    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, exitCode);
}

void tst_ToolApply::fileIsAtFault_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QString>("reason");

    QTest::newRow("no JSON") << QByteArray("{\"count\": 1,\n  tag}")
                             << QStringLiteral("line 2, column 3: ");
    QTest::newRow("nothing") << QByteArray() << QStringLiteral("line 1, column ");
    QTest::newRow("no value") << QByteArray("{}") << QStringLiteral("there is no value in it\n");
    QTest::newRow("key twice") << QByteArray(R"({"count": 1, "tag": "x", "co\u0075nt": 2})")
                               << QStringLiteral("'count' is given twice\n");
    QTest::newRow("empty list") << QByteArray("[]") << QStringLiteral("there is no value in it\n");
}

void tst_ToolApply::fileIsAtFault()
{
    QFETCH(QByteArray, text);
    QFETCH(QString, reason);

    const ToolResult result = apply(text);

    QVERIFY2(result.error.startsWith(
                 QStringLiteral("tessel: %1: %2")
                     .arg(m_description->path(QStringLiteral("values.json")), reason)),
             qPrintable(result.error));
    QCOMPARE(result.exitCode, 9);
}

void tst_ToolApply::missingFileIsTold()
{
    const QString missing = m_description->path(QStringLiteral("missing.json"));

    const ToolResult result = runTool({QStringLiteral("apply"), m_file, missing});

    QCOMPARE(result.error, QStringLiteral("tessel: %1: No such file or directory\n").arg(missing));
    QCOMPARE(result.exitCode, 3);
}

void tst_ToolApply::linkThatLeadsNowhereIsNoFile()
{
    const QString link = m_description->path(QStringLiteral("link.json"));
    QVERIFY(QFile::link(m_description->path(QStringLiteral("missing.json")), link));

    const ToolResult result = runTool({QStringLiteral("apply"), m_file, link});

    QCOMPARE(result.error, QStringLiteral("tessel: %1: No such file or directory\n").arg(link));
    QCOMPARE(result.exitCode, 3);
}

void tst_ToolApply::missingRegionIsTold()
{
    m_region.reset();

    const ToolResult result = apply(R"({"count": 1})");

    QVERIFY(result.error.contains(QStringLiteral("no region '%1'").arg(m_description->key())));
    QCOMPARE(result.exitCode, 3);
}

void tst_ToolApply::wrongUseIsRefused_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("reason");

    QTest::newRow("no values") << QStringList{"f.process.json"} << "VALUES is missing";
    QTest::newRow("two files") << QStringList{"f.process.json", "a", "b"}
                               << "'b' is one argument too many";
    QTest::newRow("unknown option") << QStringList{"--dry-rn", "f.process.json", "a"}
                                    << "unknown option '--dry-rn' (did you mean '--dry-run'?)";
}

void tst_ToolApply::wrongUseIsRefused()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, reason);

    const ToolResult result = runTool(QStringList(QStringLiteral("apply")) + arguments);

    QCOMPARE(result.error,
             QStringLiteral("tessel: apply: %1; see 'tessel apply --help'\n").arg(reason));
    QCOMPARE(result.exitCode, 2);
}

void tst_ToolApply::closedPipeIsNoFailure()
{
    const QString values = m_description->write(QStringLiteral("values.json"), R"({"count": 1})");

    QCOMPARE(exitCodeWithoutReader({QStringLiteral("apply"), m_file, values}), 0);
    QCOMPARE(published("count").getValue(), QVariant(quint64(1)));
}

QTEST_GUILESS_MAIN(tst_ToolApply)
#include "tst_ToolApply.moc"
