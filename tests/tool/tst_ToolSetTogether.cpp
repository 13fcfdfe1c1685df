#include "HeldRegion.h"
#include "ToolProcess.h"

#include <QtTest>

#include <memory>

using namespace ProcessDataDefinitions;
using Metadata = ToolDescription::Metadata;

/// `tessel set` with several pairs: all of them become one set, or none is written.
class tst_ToolSetTogether : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void pairsBecomeOneSet();
    void jsonTellsWhatWasAndIs();
    void nothingIsWrittenIfOneIsRefused_data();
    void nothingIsWrittenIfOneIsRefused();
    void limitsCountForPairsAlone();
    void limitsCanBeLeftOut();
    void dryRunWritesNothing();
    void formerStateIsNamed();

private:
    ToolResult set(const QStringList &arguments);
    QVariant published(const char *url) { return m_region->read(QLatin1String(url)).getValue(); }

    std::unique_ptr<ToolDescription> m_description;
    QString m_file;
    std::unique_ptr<HeldRegion> m_region;
};

void tst_ToolSetTogether::init()
{
    m_description = std::make_unique<ToolDescription>();
    m_description->add(QStringLiteral("speed"), QStringLiteral("double"), Metadata::ErrorState, 8,
                       {{QStringLiteral("unit"), QStringLiteral("rpm")},
                        {QStringLiteral("minLimit"), 0},
                        {QStringLiteral("maxLimit"), 100}});
    m_description->add(QStringLiteral("count"), QStringLiteral("int8"), Metadata::ErrorState, 1);
    m_description->add(QStringLiteral("on"), QStringLiteral("boolean"), Metadata::None, 1);
    m_description->add(QStringLiteral("fixed"), QStringLiteral("int32"), Metadata::ErrorState, 4,
                       {{QStringLiteral("readOnly"), true}});
    m_file = m_description->write();
    m_region = std::make_unique<HeldRegion>(m_file);
    QVERIFY(m_region->isValid());
    QVERIFY(m_region->write(QStringLiteral("count"), validValue(0)));
    QVERIFY(m_region->publish(QStringLiteral("speed"), validValue(1.5)));
}

void tst_ToolSetTogether::cleanup()
{
    m_region.reset();
    m_description.reset();
}

ToolResult tst_ToolSetTogether::set(const QStringList &arguments)
{
    return runTool(QStringList{QStringLiteral("set"), m_file} + arguments);
}

void tst_ToolSetTogether::pairsBecomeOneSet()
{
    const ToolResult result = set({"speed", "12.5", "count", "-3", "on", "true"});

    QCOMPARE(result.error, QString());
    QCOMPARE(result.output, QStringLiteral("URL      WAS    IS  UNIT\n"
                                           "speed    1.5  12.5  rpm\n"
                                           "count      0    -3\n"
                                           "on     false  true\n"));
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(published("speed"), QVariant(12.5));
    QCOMPARE(published("count"), QVariant(-3));
    QCOMPARE(published("on"), QVariant(true));
}

void tst_ToolSetTogether::jsonTellsWhatWasAndIs()
{
    const ToolResult result = set({"--json", "speed", "2", "count", "7"});

    QCOMPARE(
        result.output,
        QStringLiteral("[\n"
                       "  {\"url\": \"speed\", \"formerValue\": 1.5, \"formerState\": 0, "
                       "\"formerStateName\": \"valid\", \"value\": 2, \"state\": 0, \"stateName\": "
                       "\"valid\", \"unit\": \"rpm\", \"type\": \"double\"},\n"
                       "  {\"url\": \"count\", \"formerValue\": 0, \"formerState\": 0, "
                       "\"formerStateName\": \"valid\", \"value\": 7, \"state\": 0, \"stateName\": "
                       "\"valid\", \"unit\": \"\", \"type\": \"int8\"}\n"
                       "]\n"));
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolSetTogether::nothingIsWrittenIfOneIsRefused_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("error");
    QTest::addColumn<int>("exitCode");
    const auto row = [](const char *name, const QStringList &second, const char *error, int code) {
        QTest::newRow(name) << (QStringList{"speed", "2"} + second) << QString::fromUtf8(error)
                            << code;
    };

    row("range", {"count", "128"},
        "tessel: 'count': '128' is no int8; a whole number from -128 to 127 is\n", 5);
    row("read-only", {"fixed", "1"},
        "tessel: 'fixed' is read-only; only the process that created the region writes it\n", 5);
    row("twice", {"speed", "3"}, "tessel: 'speed' is given twice\n", 2);
    row("no value", {"count"},
        "tessel: set: VALUE of 'count' is missing; see 'tessel set --help'\n", 2);
    row("two of them", {"count", "128", "fixed", "1"},
        "tessel: 'count': '128' is no int8; a whole number from -128 to 127 is\n"
        "tessel: 'fixed' is read-only; only the process that created the region writes it\n"
        "tessel: 2 of 3 values are refused, and nothing is written\n",
        5);
    row("state beside values", {"count", "1", "--error", "timeout"},
        "tessel: set: give VALUE or --error STATE, not both; see 'tessel set --help'\n", 2);
}

void tst_ToolSetTogether::nothingIsWrittenIfOneIsRefused()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, error);
    QFETCH(int, exitCode);

    const ToolResult result = set(arguments);

    QCOMPARE(result.error, error);
    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, exitCode);
    QCOMPARE(published("speed"), QVariant(1.5));
    QCOMPARE(published("count"), QVariant(0));
}

void tst_ToolSetTogether::limitsCountForPairsAlone()
{
    QCOMPARE(set({"speed", "100", "count", "1"}).exitCode, 0);
    const ToolResult above = set({"speed", "100.5", "count", "2"});
    const ToolResult below = set({"speed", "-0.5", "count", "2"});

    QCOMPARE(above.error, QStringLiteral("tessel: 'speed': 100.5 is above the upper limit, 100; "
                                         "--no-limits writes it all the same\n"));
    QCOMPARE(above.exitCode, 5);
    QCOMPARE(below.error, QStringLiteral("tessel: 'speed': -0.5 is below the lower limit, 0; "
                                         "--no-limits writes it all the same\n"));
    QCOMPARE(below.exitCode, 5);
    QCOMPARE(published("count"), QVariant(1));
    QCOMPARE(set({"speed", "100.5"}).exitCode, 0);
    QCOMPARE(published("speed"), QVariant(100.5));
}

void tst_ToolSetTogether::limitsCanBeLeftOut()
{
    QCOMPARE(set({"--no-limits", "speed", "100.5", "count", "2"}).exitCode, 0);

    QCOMPARE(published("speed"), QVariant(100.5));
}

void tst_ToolSetTogether::dryRunWritesNothing()
{
    const ToolResult several = set({"--dry-run", "speed", "2", "count", "7"});
    const ToolResult one = set({"--dry-run", "speed", "2"});
    const ToolResult refused = set({"--dry-run", "speed", "2", "count", "128"});

    QCOMPARE(several.output, QStringLiteral("URL    WAS  IS  UNIT\n"
                                            "speed  1.5   2  rpm\n"
                                            "count    0   7\n"));
    QCOMPARE(one.output, QStringLiteral("URL    WAS  IS  UNIT\n"
                                        "speed  1.5   2  rpm\n"));
    QCOMPARE(refused.exitCode, 5);
    QCOMPARE(published("speed"), QVariant(1.5));
    QCOMPARE(published("count"), QVariant(0));
}

void tst_ToolSetTogether::formerStateIsNamed()
{
    QVERIFY(
        m_region->publish(QStringLiteral("speed"), ProcessValue(PROCESS_VALUE_ERROR_TYPE_TIMEOUT)));

    const ToolResult result = set({"speed", "2", "count", "7"});

    QCOMPARE(result.output, QStringLiteral("URL        WAS  IS  UNIT\n"
                                           "speed  timeout   2  rpm\n"
                                           "count        0   7\n"));
}

QTEST_GUILESS_MAIN(tst_ToolSetTogether)
#include "tst_ToolSetTogether.moc"
