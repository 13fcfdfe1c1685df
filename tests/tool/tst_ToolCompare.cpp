#include "ComparedRegion.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QtTest>

#include <limits>

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
class tst_ToolCompare : public ComparedRegion
{
    Q_OBJECT

private Q_SLOTS:
    void init() { prepare(); }
    void cleanup() { clear(); }

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
};

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
    QVERIFY(tool.waitForFinished(60000));

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

QTEST_GUILESS_MAIN(tst_ToolCompare)
#include "tst_ToolCompare.moc"
