#include "HeldRegion.h"
#include "ToolProcess.h"
#include "support/LogCapture.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QtTest>

#include <limits>
#include <memory>

#include <sys/stat.h>

using namespace ProcessDataDefinitions;
using Metadata = ToolDescription::Metadata;

namespace {

constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();
constexpr quint64 most = std::numeric_limits<quint64>::max();

/// A snapshot with these entries.
QByteArray snapshotOf(const QByteArray &values)
{
    return R"({"format": "tessel-snapshot", "version": 1, "key": "k", "values": [)" + values + "]}";
}

} // namespace

/// `tessel compare`: what is not as a snapshot has kept it.
class tst_ToolCompare : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void sameSetIsAlike();
    void everyFormIsKeptExactly();
    void negativeZeroIsReadHoweverItIsWritten_data();
    void negativeZeroIsReadHoweverItIsWritten();
    void byteOrderMarkIsPartOfAText();
    void singleBufferIsComparedAsWell();
    void differencesAreShown();
    void differencesAsJson();
    void valueDiffers_data();
    void valueDiffers();
    void wholeNumbersAreComparedExactly();
    void lastToleranceCounts();
    void missingAndNewLeavesAreTold();
    void onlyWhatWasAskedForIsCompared();
    void whatIsDescribedNoMoreIsMissing();
    void otherTypeIsADifference();
    void twoSnapshotsAreCompared();
    void snapshotOfAnotherRegionIsNoted();
    void standardInputIsRead();
    void descriptionMayBeLeftOut();
    void fileIsNoSnapshot_data();
    void fileIsNoSnapshot();
    void whatIsNoFileIsNotOpened();
    void missingFilesAndRegionsAreTold();
    void toleranceIsAtFault_data();
    void toleranceIsAtFault();
    void wrongUseIsRefused_data();
    void wrongUseIsRefused();
    void closedPipeDoesNotMakeThemAlike();
    void fullOutputIsAFailure();

private:
    QString kept() const { return m_description->path(QStringLiteral("s.json")); }
    ToolResult take(const QStringList &urls = {})
    {
        return runTool(QStringList{QStringLiteral("snapshot"), QStringLiteral("-o"), kept(), m_file}
                       + urls);
    }
    ToolResult compare(const QStringList &options = {})
    {
        return runTool(QStringList(QStringLiteral("compare")) + options
                       + QStringList{m_file, kept()});
    }
    void start()
    {
        m_region.reset();
        m_file = m_description->write();
        m_region = std::make_unique<HeldRegion>(m_file);
        QVERIFY(m_region->isValid());
    }

    std::unique_ptr<LogCapture> m_log;
    std::unique_ptr<ToolDescription> m_description;
    QString m_file;
    std::unique_ptr<HeldRegion> m_region;
};

void tst_ToolCompare::init()
{
    m_log = std::make_unique<LogCapture>();
    m_description = std::make_unique<ToolDescription>();
    m_description->add(QStringLiteral("n/level"), QStringLiteral("double"), Metadata::ErrorState, 8,
                       {{QStringLiteral("unit"), QStringLiteral("m")}});
    m_description->add(QStringLiteral("n/flow"), QStringLiteral("float"), Metadata::ErrorState, 4);
    m_description->add(QStringLiteral("count"), QStringLiteral("uint64"), Metadata::ErrorState, 8);
    m_description->add(QStringLiteral("tag"), QStringLiteral("string"), Metadata::ErrorState, 80);
    m_description->add(QStringLiteral("on"), QStringLiteral("boolean"), Metadata::ErrorState, 1);
    start();
    QVERIFY(m_region->write(QStringLiteral("n/level"), validValue(0.1)));
    QVERIFY(m_region->write(QStringLiteral("n/flow"), validValue(0.1F)));
    QVERIFY(m_region->write(QStringLiteral("count"), validValue(most)));
    QVERIFY(
        m_region->write(QStringLiteral("tag"), validValue(QStringLiteral("1234567890123456789"))));
    QVERIFY(
        m_region->publish(QStringLiteral("on"), ProcessValue(PROCESS_VALUE_ERROR_TYPE_TIMEOUT)));
}

void tst_ToolCompare::cleanup()
{
    m_region.reset();
    m_description.reset();
    m_log.reset();
}

void tst_ToolCompare::sameSetIsAlike()
{
    QCOMPARE(take().exitCode, 0);

    const ToolResult result = compare();

    QCOMPARE(result.error, QString());
    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolCompare::everyFormIsKeptExactly()
{
    m_description->addEveryForm();
    start();
    for (const double number : {-0.0, 1e16, 12345678901234567890.0, 5e-324, 1.7976931348623157e308,
                                notANumber, -std::numeric_limits<double>::infinity()}) {
        QVERIFY(m_region->write(QStringLiteral("n/flow"), validValue(static_cast<float>(number))));
        QVERIFY(m_region->publish(QStringLiteral("n/level"), validValue(number)));
        QCOMPARE(take().exitCode, 0);

        const ToolResult result = compare();

        QCOMPARE(result.output + result.error, QString());
        QCOMPARE(result.exitCode, 0);
    }
}

void tst_ToolCompare::negativeZeroIsReadHoweverItIsWritten_data()
{
    QTest::addColumn<QByteArray>("number");
    QTest::addColumn<double>("level");
    for (const char *number : {"-0", "-0.0", "-0.000", "-0e5", "-0.0E-3"}) {
        QTest::newRow(number) << QByteArray(number) << -0.0;
    }
    for (const char *number : {"0", "0.0", "0e5"}) {
        QTest::newRow(number) << QByteArray(number) << 0.0;
    }
}

void tst_ToolCompare::negativeZeroIsReadHoweverItIsWritten()
{
    QFETCH(QByteArray, number);
    QFETCH(double, level);
    m_description->write(
        QStringLiteral("s.json"),
        snapshotOf(R"({"url": "n/level", "type": "double", "state": 0, "value": )" + number + "}"));
    const auto differs = [&](double present) {
        return m_region->publish(QStringLiteral("n/level"), validValue(present))
               && runTool({QStringLiteral("compare"), QStringLiteral("--json"), m_file, kept()})
                      .output.contains(QStringLiteral("\"url\": \"n/level\""));
    };

    QVERIFY(!differs(level));
    QVERIFY(differs(-level));
}

void tst_ToolCompare::byteOrderMarkIsPartOfAText()
{
    const QString mark{QChar(QChar::ByteOrderMark)};
    for (const QString &text : {mark, mark + QStringLiteral("a"), QStringLiteral("a") + mark}) {
        QVERIFY(m_region->publish(QStringLiteral("tag"), validValue(text)));
        QCOMPARE(take().exitCode, 0);

        QCOMPARE(compare().output, QString());
        QVERIFY(m_region->publish(QStringLiteral("tag"), validValue(QString(text).remove(mark))));
        QCOMPARE(compare().exitCode, 1);
    }
}

void tst_ToolCompare::singleBufferIsComparedAsWell()
{
    m_description->setRoot(QStringLiteral("doubleBuffer"), false);
    start();
    QVERIFY(m_region->write(QStringLiteral("n/level"), validValue(1.0)));
    QCOMPARE(take().exitCode, 0);

    QCOMPARE(compare().exitCode, 0);
    QVERIFY(m_region->write(QStringLiteral("n/level"), validValue(1.5)));
    QCOMPARE(compare().exitCode, 1);
}

void tst_ToolCompare::differencesAreShown()
{
    QCOMPARE(take().exitCode, 0);
    QVERIFY(m_region->write(QStringLiteral("n/level"), validValue(0.25)));
    QVERIFY(
        m_region->write(QStringLiteral("tag"), validValue(QStringLiteral("1234567890123456788"))));
    QVERIFY(m_region->publish(QStringLiteral("on"), validValue(true)));

    const ToolResult result = compare();

    QCOMPARE(result.output,
             QStringLiteral("URL                      WAS                   IS  UNIT  DIFFERS\n"
                            "tag      1234567890123456789  1234567890123456788        value\n"
                            "on                   timeout                 true        state\n"
                            "n/level                  0.1                 0.25  m     value\n"));
    QCOMPARE(result.error,
             QStringLiteral("tessel: %1: 3 of 5 values differ from '%2'\n").arg(m_file, kept()));
    QCOMPARE(result.exitCode, 1);
}

void tst_ToolCompare::differencesAsJson()
{
    QCOMPARE(take().exitCode, 0);
    QVERIFY(m_region->publish(QStringLiteral("n/level"), validValue(0.75)));

    const ToolResult result = compare({"--json", "--tolerance", "n/level=0.5"});

    const QJsonObject expected{
        {"alike", false},
        {"wasKey", m_description->key()},
        {"isKey", m_description->key()},
        {"values", 5},
        {"differences", QJsonArray{QJsonObject{{"url", "n/level"},
                                               {"differs", "value"},
                                               {"was", QJsonObject{{"value", 0.1},
                                                                   {"state", 0},
                                                                   {"stateName", "valid"},
                                                                   {"unit", "m"},
                                                                   {"type", "double"}}},
                                               {"is", QJsonObject{{"value", 0.75},
                                                                  {"state", 0},
                                                                  {"stateName", "valid"},
                                                                  {"unit", "m"},
                                                                  {"type", "double"}}},
                                               {"tolerance", 0.5}}}}};
    QCOMPARE(QJsonDocument::fromJson(result.output.toUtf8()).object(), expected);
    QCOMPARE(result.exitCode, 1);
    const ToolResult alike = compare({"--json", "--tolerance", "n/*=0.65"});
    QVERIFY(alike.output.startsWith(QStringLiteral("{\"alike\": true, ")));
    QCOMPARE(alike.exitCode, 0);
}

void tst_ToolCompare::valueDiffers_data()
{
    QTest::addColumn<double>("was");
    QTest::addColumn<double>("is");
    QTest::addColumn<QString>("tolerance");
    QTest::addColumn<bool>("alike");
    const double infinity = std::numeric_limits<double>::infinity();
    const double next = std::nextafter(0.1, 1.0);

    QTest::newRow("the next double") << 0.1 << next << "" << false;
    QTest::newRow("the next double, near enough") << 0.1 << next << "**=1e-9" << true;
    QTest::newRow("as far as allowed") << 1.0 << 1.5 << "n/level=0.5" << true;
    QTest::newRow("the other way") << 1.5 << 1.0 << "n/level=0.5" << true;
    QTest::newRow("farther") << 1.0 << 1.5000001 << "n/level=0.5" << false;
    QTest::newRow("of another URL") << 1.0 << 1.5 << "n/flow=0.5" << false;
    QTest::newRow("NaN") << notANumber << notANumber << "" << true;
    QTest::newRow("NaN with a tolerance") << notANumber << notANumber << "**=0" << true;
    QTest::newRow("NaN and a number") << notANumber << 1.0 << "**=1e300" << false;
    QTest::newRow("a number and NaN") << 1.0 << notANumber << "**=1e300" << false;
    QTest::newRow("infinity") << infinity << infinity << "**=1" << true;
    QTest::newRow("infinities") << infinity << -infinity << "**=1e300" << false;
    QTest::newRow("sign of zero") << 0.0 << -0.0 << "" << false;
    QTest::newRow("sign of zero, near enough") << 0.0 << -0.0 << "**=0" << true;
}

void tst_ToolCompare::valueDiffers()
{
    QFETCH(double, was);
    QFETCH(double, is);
    QFETCH(QString, tolerance);
    QVERIFY(m_region->publish(QStringLiteral("n/level"), validValue(was)));
    QCOMPARE(take().exitCode, 0);
    QVERIFY(m_region->publish(QStringLiteral("n/level"), validValue(is)));

    const ToolResult result = compare(tolerance.isEmpty() ? QStringList()
                                                          : QStringList{"--tolerance", tolerance});

    QTEST(result.exitCode == 0, "alike");
}

void tst_ToolCompare::wholeNumbersAreComparedExactly()
{
    QCOMPARE(take().exitCode, 0);
    QVERIFY(m_region->publish(QStringLiteral("count"), validValue(most - 2)));

    QCOMPARE(compare().exitCode, 1);
    QCOMPARE(compare({"--tolerance", "count=1.5"}).exitCode, 1);
    QCOMPARE(compare({"--tolerance", "count=2"}).exitCode, 0);
}

void tst_ToolCompare::lastToleranceCounts()
{
    QCOMPARE(take().exitCode, 0);
    QVERIFY(m_region->publish(QStringLiteral("n/level"), validValue(0.2)));

    QCOMPARE(compare({"--tolerance", "**=0", "--tolerance", "n/level=1"}).exitCode, 0);
    QCOMPARE(compare({"--tolerance", "n/level=1", "--tolerance", "**=0"}).exitCode, 1);
}

void tst_ToolCompare::missingAndNewLeavesAreTold()
{
    const QByteArray gone =
        R"({"url": "gone", "type": "int8", "value": 5, "state": 0, "unit": "s"})";
    m_description->write(QStringLiteral("s.json"), snapshotOf(gone));
    m_region.reset();
    ToolDescription description;
    description.add(QStringLiteral("fresh"), QStringLiteral("int32"), Metadata::ErrorState, 4);
    const QString file = description.write();
    const HeldRegion region(file);

    const ToolResult result = runTool({QStringLiteral("compare"), file, kept()});

    QCOMPARE(result.output, QStringLiteral("URL    WAS        IS  UNIT  DIFFERS\n"
                                           "gone     5         -  s     missing\n"
                                           "fresh    -  no-input        new\n"));
    QCOMPARE(result.exitCode, 1);
}

void tst_ToolCompare::onlyWhatWasAskedForIsCompared()
{
    QCOMPARE(take({QStringLiteral("n/*")}).exitCode, 0);
    QVERIFY(m_region->publish(QStringLiteral("count"), validValue(quint64(1))));

    const ToolResult result = compare();

    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolCompare::whatIsDescribedNoMoreIsMissing()
{
    QCOMPARE(take({QStringLiteral("n/level")}).exitCode, 0);
    QFile file(kept());
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QByteArray renamed = file.readAll().replace("n/level", "n/depth");
    m_description->write(QStringLiteral("s.json"), renamed);

    const ToolResult result = compare();

    QCOMPARE(result.output, QStringLiteral("URL      WAS  IS  UNIT  DIFFERS\n"
                                           "n/depth  0.1   -  m     missing\n"));
    QCOMPARE(result.exitCode, 1);
}

void tst_ToolCompare::otherTypeIsADifference()
{
    m_description->write(
        QStringLiteral("s.json"),
        snapshotOf(R"({"url": "n/level", "type": "float", "value": 0.1, "state": 0})")
            .replace("\"values\"", "\"urls\": [\"n/level\"], \"values\""));

    const ToolResult result = compare();

    QCOMPARE(result.output, QStringLiteral("URL              WAS            IS  UNIT  DIFFERS\n"
                                           "n/level  0.1 (float)  0.1 (double)  m     type\n"));
    QCOMPARE(result.exitCode, 1);
}

void tst_ToolCompare::twoSnapshotsAreCompared()
{
    QCOMPARE(take().exitCode, 0);
    m_region.reset();

    QCOMPARE(runTool({QStringLiteral("compare"), kept(), kept()}).exitCode, 0);
    m_description->write(QStringLiteral("later.json"),
                         snapshotOf(R"({"url": "x", "type": "int8", "value": 1, "state": 0})"));
    QCOMPARE(runTool({QStringLiteral("compare"), m_description->path(QStringLiteral("later.json")),
                      kept()})
                 .exitCode,
             1);
}

void tst_ToolCompare::snapshotOfAnotherRegionIsNoted()
{
    m_description->write(
        QStringLiteral("s.json"),
        snapshotOf(R"({"url": "on", "type": "boolean", "value": null, "state": 9})")
            .replace("\"values\"", "\"urls\": [\"on\"], \"values\""));

    const ToolResult result = compare();

    QCOMPARE(result.error,
             QStringLiteral("tessel: note: the snapshot is of region 'k', not of '%1'\n")
                 .arg(m_description->key()));
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolCompare::standardInputIsRead()
{
    QCOMPARE(take().exitCode, 0);
    QProcess tool;
    tool.setStandardInputFile(kept());
    tool.start(QStringLiteral(TESSEL_TOOL),
               {QStringLiteral("compare"), m_file, QStringLiteral("-")});
    QVERIFY(tool.waitForFinished());

    QCOMPARE(tool.exitCode(), 0);
}

void tst_ToolCompare::descriptionMayBeLeftOut()
{
    QCOMPARE(take().exitCode, 0);

    const ToolResult result = runTool({QStringLiteral("compare"), kept()},
                                      {QStringLiteral("TESSEL_DIR=") + m_file});

    QCOMPARE(result.error, QString());
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolCompare::fileIsNoSnapshot_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QString>("reason");
    const auto add = [](const char *name, const QByteArray &text, const char *reason) {
        QTest::newRow(name) << text << QString::fromLatin1(reason);
    };
    const auto entry = [](const char *members) {
        return snapshotOf(QByteArray("{") + members + "}");
    };
    add("nothing", "", "line 1, column ");
    add("no JSON", "{\n x}", "line 2, column 2: ");
    add("deep", QByteArray(100000, '['), "line 1, column ");
    add("another object", "{}", "is no snapshot; 'tessel snapshot' writes them");
    add("list", "[1]", "is no snapshot; 'tessel snapshot' writes them");
    add("another version", R"({"format": "tessel-snapshot", "version": 2, "values": []})",
        "is a snapshot of another version than 1");
    add("no values", R"({"format": "tessel-snapshot", "version": 1})", "has no array \"values\"");
    add("values twice",
        R"({"format": "tessel-snapshot", "version": 1, "values": [], "values": []})",
        "'values' is given twice");
    add("number as an entry", snapshotOf("5"),
        "entry 1 of the values has no \"url\" or no \"type\"");
    add("no type", entry(R"("url": "a", "state": 0, "value": 1)"),
        "entry 1 of the values has no \"url\" or no \"type\"");
    add("no state", entry(R"("url": "a", "type": "int8", "value": 1)"),
        "entry 1 of the values has no \"state\" that is a number");
    add("half a state", entry(R"("url": "a", "type": "int8", "value": 1, "state": 0.5)"),
        "entry 1 of the values has no \"state\" that is a number");
    add("huge state", entry(R"("url": "a", "type": "int8", "value": 1, "state": 1e300)"),
        "entry 1 of the values has no \"state\" that is a number");
    add("unknown type", entry(R"("url": "a", "type": "int9", "value": 1, "state": 0)"),
        "entry 1 of the values has no \"value\" of its type 'int9'");
    add("huge number", entry(R"("url": "a", "type": "int64", "value": 1e300, "state": 0)"),
        "entry 1 of the values has no \"value\" of its type 'int64'");
    add("long number",
        entry(R"("url": "a", "type": "uint64", "value": 18446744073709551616, "state": 0)"),
        "entry 1 of the values has no \"value\" of its type 'uint64'");
    add("negative number", entry(R"("url": "a", "type": "uint64", "value": -1, "state": 0)"),
        "entry 1 of the values has no \"value\" of its type 'uint64'");
    add("fraction", entry(R"("url": "a", "type": "int8", "value": 1.5, "state": 0)"),
        "entry 1 of the values has no \"value\" of its type 'int8'");
    add("text as a number", entry(R"("url": "a", "type": "double", "value": "x", "state": 0)"),
        "entry 1 of the values has no \"value\" of its type 'double'");
    add("number as a text", entry(R"("url": "a", "type": "string", "value": 5, "state": 0)"),
        "entry 1 of the values has no \"value\" of its type 'string'");
    add("once more", snapshotOf(R"({"url": "a", "type": "int8", "value": 1, "state": 0},
                      {"url": "a", "type": "int8", "value": 2, "state": 0})"),
        "entry 2 of the values is 'a' once more");
}

void tst_ToolCompare::fileIsNoSnapshot()
{
    QFETCH(QByteArray, text);
    QFETCH(QString, reason);
    m_description->write(QStringLiteral("s.json"), text);

    const ToolResult result = compare();

    QVERIFY2(result.error.startsWith(QStringLiteral("tessel: %1: %2").arg(kept(), reason)),
             qPrintable(result.error));
    QCOMPARE(result.error.count(QLatin1Char('\n')), 1);
    QCOMPARE(result.exitCode, 9);
}

void tst_ToolCompare::whatIsNoFileIsNotOpened()
{
    const QString fifo = m_description->path(QStringLiteral("fifo"));
    QCOMPARE(mkfifo(fifo.toLocal8Bit().constData(), 0600), 0);
    for (const auto &path : {fifo, QStringLiteral("/dev/zero"), QStringLiteral("/")}) {
        const ToolResult result = runTool({QStringLiteral("compare"), m_file, path});

        QCOMPARE(result.error, QStringLiteral("tessel: %1: is no regular file\n").arg(path));
        QCOMPARE(result.exitCode, 9);
    }
}

void tst_ToolCompare::missingFilesAndRegionsAreTold()
{
    const ToolResult noFile = compare();
    QCOMPARE(noFile.error, QStringLiteral("tessel: %1: No such file or directory\n").arg(kept()));
    QCOMPARE(noFile.exitCode, 3);
    QCOMPARE(take().exitCode, 0);
    m_region.reset();

    const ToolResult noRegion = compare();

    QVERIFY(noRegion.error.contains(QStringLiteral("no region '%1'").arg(m_description->key())));
    QCOMPARE(noRegion.exitCode, 3);
}

void tst_ToolCompare::toleranceIsAtFault_data()
{
    QTest::addColumn<QString>("tolerance");
    QTest::addColumn<QString>("reason");
    QTest::addColumn<int>("exitCode");
    const QString shape = QStringLiteral("takes URL=NUMBER, where the number is not negative, not "
                                         "'%1'; see 'tessel compare --help'");
    for (const char *text : {"0.5", "n/level", "n/level=", "=5", "n/level=x", "n/level=-1",
                             "n/level=nan", "n/level=1e400"}) {
        QTest::newRow(text) << QString::fromLatin1(text) << shape.arg(QLatin1String(text)) << 2;
    }
    QTest::newRow("unknown") << "n/levl=1"
                             << "is about no value at 'n/levl' (did you mean 'n/level'?)" << 3;
    QTest::newRow("text") << "tag=1"
                          << "is about numbers, and 'tag' is none; see 'tessel compare --help'"
                          << 2;
}

void tst_ToolCompare::toleranceIsAtFault()
{
    QFETCH(QString, tolerance);
    QFETCH(QString, reason);
    QFETCH(int, exitCode);
    QCOMPARE(take().exitCode, 0);

    const ToolResult result = compare({QStringLiteral("--tolerance"), tolerance});

    QCOMPARE(result.error, QStringLiteral("tessel: compare: --tolerance %1\n").arg(reason));
    QCOMPARE(result.exitCode, exitCode);
}

void tst_ToolCompare::wrongUseIsRefused_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("reason");
    QTest::newRow("no file") << QStringList() << "FILE is missing";
    QTest::newRow("no snapshot") << QStringList{"f.process.json"} << "SNAPSHOT is missing";
    QTest::newRow("too many") << QStringList{"f.process.json", "a", "b"}
                              << "'b' is one argument too many";
    QTest::newRow("unknown option") << QStringList{"--tolernce=a=1", "f", "s"}
                                    << "unknown option '--tolernce' (did you mean '--tolerance'?)";
}

void tst_ToolCompare::wrongUseIsRefused()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, reason);

    const ToolResult result = runTool(QStringList(QStringLiteral("compare")) + arguments);

    QCOMPARE(result.error,
             QStringLiteral("tessel: compare: %1; see 'tessel compare --help'\n").arg(reason));
    QCOMPARE(result.exitCode, 2);
}

void tst_ToolCompare::closedPipeDoesNotMakeThemAlike()
{
    QCOMPARE(take().exitCode, 0);
    QVERIFY(m_region->publish(QStringLiteral("count"), validValue(quint64(1))));

    QCOMPARE(exitCodeWithoutReader({QStringLiteral("compare"), m_file, kept()}), 1);
}

void tst_ToolCompare::fullOutputIsAFailure()
{
    QCOMPARE(take().exitCode, 0);
    QVERIFY(m_region->publish(QStringLiteral("count"), validValue(quint64(1))));
    QProcess tool;
    tool.setStandardOutputFile(QStringLiteral("/dev/full"));
    tool.start(QStringLiteral(TESSEL_TOOL), {QStringLiteral("compare"), m_file, kept()});
    QVERIFY(tool.waitForFinished());

    QCOMPARE(tool.exitCode(), 9);
}

QTEST_GUILESS_MAIN(tst_ToolCompare)
#include "tst_ToolCompare.moc"
