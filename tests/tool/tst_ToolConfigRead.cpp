#include "DeviceConfiguration.h"
#include "ToolFolder.h"

#include <QJsonArray>

/// What `tessel config get` and `show` print, and of which files.
class tst_ToolConfigRead : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { m_canLosePermissions = makePermissionsCount(); }
    void init() { m_device.reset(new DeviceConfiguration); }
    void cleanup() { m_device.reset(); }

    void showPrintsValueUnitAndType();
    void showPrintsOneObjectALeaf();
    void showTakesANodeOrALeaf();
    void getPrintsTheValueAlone_data();
    void getPrintsTheValueAlone();
    void getPrintsOneObject();
    void getTakesPatterns();
    void getTakesACellOfEachArray();
    void getOfAPatternPrintsAnArray();
    void nameWithAStarIsReachedAsItStands();
    void patternThatLeadsNowhereIsNotFound();
    void textsCannotMoveTheCursor();
    void percentSignsStayInUrls();
    void fileIsReadByItsOwnUrls();
    void folderIsNamedInAnyWay();
    void readingChangesNoFile();

    void nameThatStandsForTwoIsRefused_data();
    void nameThatStandsForTwoIsRefused();
    void folderWithoutNodeSharesItsNameWithAFile_data();
    void folderWithoutNodeSharesItsNameWithAFile();
    void loopOfLinksIsPassedOver();
    void secondWayToAFolderIsPassedOver();
    void linkToNoFileIsPassedOver();
    void messagesAreShownOnRequestOnly();

private:
    bool m_canLosePermissions = false;
    QScopedPointer<DeviceConfiguration> m_device;
};

void tst_ToolConfigRead::showPrintsValueUnitAndType()
{
    const ToolResult result = m_device->run("show", {"inputs/channel1"});

    QCOMPARE(result.error, QString());
    QCOMPARE(result.output,
             QString("URL                                       VALUE  UNIT  TYPE\n"
                     "inputs/channel1/name         Supply temperature        string\n"
                     "inputs/channel1/unit                         °C        selector\n"
                     "inputs/channel1/range/lower                 -20  °C    double\n"
                     "inputs/channel1/range/upper                 120  °C    double\n"
                     "inputs/channel1/filter                      0.5  s     double\n"
                     "inputs/channel1/alarmDelay                       s     int32\n"
                     "inputs/channel1/enabled                    true        boolean\n"));
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolConfigRead::showPrintsOneObjectALeaf()
{
    const ToolResult result = m_device->run("show", {"--json"});

    QCOMPARE(result.error, QString());
    QCOMPARE(result.exitCode, 0);
    const QJsonArray leaves = QJsonDocument::fromJson(result.output.toUtf8()).array();
    QCOMPARE(leaves.size(), 50);
    const auto leafAt = [&leaves](const QString &url) {
        for (const auto &leaf : leaves) {
            if (leaf.toObject().value("url") == url) {
                return leaf.toObject();
            }
        }
        return QJsonObject();
    };
    QCOMPARE(leafAt("device/language"), (QJsonObject{{"url", "device/language"},
                                                     {"value", 0},
                                                     {"type", "selector"},
                                                     {"unit", ""},
                                                     {"readOnly", false},
                                                     {"selection", "en"}}));
    QCOMPARE(leafAt("diagnosis/diagnosis/firmware").value("readOnly"), QJsonValue(true));
    QCOMPARE(leafAt("inputs/channel1/alarmDelay").value("value"), QJsonValue(QJsonValue::Null));
    QVERIFY(result.output.contains("\"value\": 18446744073709551615, \"type\": \"uint64\""));
    QVERIFY(result.output.contains("\"value\": [[4, 0, 0], [8, 25.1, 0], [12, 49.9, 0], "
                                   "[20, 100, 1]], \"type\": \"array\""));
}

void tst_ToolConfigRead::showTakesANodeOrALeaf()
{
    const ToolResult all = m_device->run("show", {});
    QCOMPARE(all.exitCode, 0);
    QCOMPARE(all.output.count('\n'), 51);
    QVERIFY(all.output.contains("inputs/calibration/table"));
    QVERIFY(all.output.contains("4 rows"));

    const ToolResult leaf = m_device->run("show", {"/digital//digital/debounce"});

    QCOMPARE(leaf.output, QString("URL                       VALUE  UNIT  TYPE\n"
                                  "digital/digital/debounce     20  ms    uint16\n"));
}

void tst_ToolConfigRead::getPrintsTheValueAlone_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<QString>("text");

    QTest::newRow("text") << "device/location"
                          << "Boiler house";
    QTest::newRow("selector") << "counters/counters/tariff"
                              << "night";
    QTest::newRow("floating-point number") << "counters/counters/pulseValue"
                                           << "2.5";
    QTest::newRow("64 bits without a sign") << "counters/counters/presetTotal"
                                            << "18446744073709551615";
    QTest::newRow("64 bits with a sign") << "counters/counters/presetBalance"
                                         << "-9007199254740993";
    QTest::newRow("boolean") << "inputs/channel1/enabled"
                             << "true";
    QTest::newRow("nothing entered") << "inputs/channel1/alarmDelay"
                                     << "";
    QTest::newRow("cell") << "inputs/calibration/table#1,1"
                          << "25.1";
    QTest::newRow("cell of a selector") << "inputs/calibration/table#3,2"
                                        << "suspect";
    QTest::newRow("array") << "inputs/calibration/table"
                           << "[[4, 0, 0], [8, 25.1, 0], [12, 49.9, 0], [20, 100, 1]]";
}

void tst_ToolConfigRead::getPrintsTheValueAlone()
{
    QFETCH(QString, url);
    QFETCH(QString, text);

    const ToolResult result = m_device->run("get", {url});

    QCOMPARE(result.error, QString());
    QCOMPARE(result.output, text + '\n');
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolConfigRead::getPrintsOneObject()
{
    const ToolResult result = m_device->run("get", {"inputs/calibration/table#3,2", "--json"});

    QCOMPARE(result.error, QString());
    QCOMPARE(result.output,
             QString("{\"url\": \"inputs/calibration/table#3,2\", \"value\": 1, \"type\": "
                     "\"selector\", \"unit\": \"\", \"readOnly\": false, \"selection\": "
                     "\"suspect\"}\n"));
}

void tst_ToolConfigRead::textsCannotMoveTheCursor()
{
    QVERIFY(m_device->directory().write(
        "evil.config.json",
        R"({"type":"treenode","value":{"text":{"type":"string","value":"a\u001b[2J\nb"}}})"));

    QCOMPARE(m_device->run("get", {"evil/text"}).output, QString("a\\u001b[2J\\nb\n"));
    QVERIFY(m_device->run("show", {"evil"}).output.contains("a\\u001b[2J\\nb"));
}

void tst_ToolConfigRead::percentSignsStayInUrls()
{
    QVERIFY(m_device->directory().write(
        "%2%3.config.json", R"({"type":"treenode","value":{"%1":{"type":"array","value":[[7]],)"
                            R"("arrayInformation":[[],[{"type":"int8"}]]}}})"));

    QVERIFY(m_device->run("get", {"%2%3/%1#0,0", "--json"})
                .output.startsWith("{\"url\": \"%2%3/%1#0,0\", \"value\": 7, "));
    QVERIFY(m_device->run("set", {"%2%3/%1#0,0", "8"}).output.startsWith("%2%3/%1#0,0: 7 -> 8\n"));
}

void tst_ToolConfigRead::fileIsReadByItsOwnUrls()
{
    const QString path = m_device->path("inputs/channel3.config.json");

    QCOMPARE(DeviceConfiguration::runOn("get", path, {"range/upper"}).output, QString("16\n"));
    QCOMPARE(DeviceConfiguration::runOn("show", path, {}).output.count('\n'), 8);
}

void tst_ToolConfigRead::folderIsNamedInAnyWay()
{
    const QStringList ask{"config", "get", ".", "device/tag"};
    QCOMPARE(ToolProcess(ask, {}, m_device->path()).finish().output, QString("TI-101\n"));
    QCOMPARE(DeviceConfiguration::runOn("get", m_device->path() + '/', {"device/tag"}).output,
             QString("TI-101\n"));
}

void tst_ToolConfigRead::readingChangesNoFile()
{
    const auto former = m_device->directory().snapshot();

    QCOMPARE(m_device->run("show", {}).exitCode, 0);
    QCOMPARE(m_device->run("get", {"device/tag"}).exitCode, 0);
    QCOMPARE(m_device->run("table", {"inputs/calibration/table"}).exitCode, 0);

    QCOMPARE(m_device->directory().snapshot(), former);
}

void tst_ToolConfigRead::nameThatStandsForTwoIsRefused_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<QString>("name");

    QTest::newRow("folder with configurations") << "inputs.config.json"
                                                << "inputs";
    // Any folder in a folder makes a node of it.
    QTest::newRow("folder with an empty folder") << "outer.config.json"
                                                 << "outer";
    QTest::newRow("two files") << "device.old.config.json"
                               << "device";
}

void tst_ToolConfigRead::nameThatStandsForTwoIsRefused()
{
    QFETCH(QString, file);
    QFETCH(QString, name);
    QVERIFY(QDir().mkpath(m_device->path("outer/inner")));
    QVERIFY(m_device->directory().write(file, m_device->directory().read("device.config.json")));

    const ToolResult result = m_device->run("show", {});

    QCOMPARE(result.exitCode, 9);
    QCOMPARE(result.output, QString());
    QVERIFY2(
        result.error.endsWith(
            QStringLiteral(": '%1' is also the name of another file or folder here\n").arg(name)),
        qPrintable(result.error));
}

void tst_ToolConfigRead::folderWithoutNodeSharesItsNameWithAFile_data()
{
    QTest::addColumn<QString>("name");

    QTest::newRow("process descriptions only") << "process";
    QTest::newRow("empty folder") << "empty";
    QTest::newRow("link that leads back") << "loop";
}

void tst_ToolConfigRead::folderWithoutNodeSharesItsNameWithAFile()
{
    QFETCH(QString, name);
    const auto &directory = m_device->directory();
    QVERIFY(QDir().mkpath(m_device->path("empty")) && QDir().mkpath(m_device->path("process")));
    QVERIFY(QFile::link(".", m_device->path("loop")));
    QVERIFY(directory.write("process/level.process.json",
                            directory.read("inputs/channel1.process.json")));
    QVERIFY(directory.write(name + ".config.json", directory.read("device.config.json")));

    const ToolResult result = m_device->run("show", {name});

    QCOMPARE(result.error, QString());
    QVERIFY2(result.output.contains(name + "/tag"), qPrintable(result.output));
    QCOMPARE(m_device->valueAt(name + "/tag"), m_device->valueAt("device/tag"));
    QCOMPARE(m_device->run("set", {name + "/tag", "TI-7"}).exitCode, 0);
    QCOMPARE(m_device->valueAt(name + "/tag"), QString("TI-7"));
}

void tst_ToolConfigRead::loopOfLinksIsPassedOver()
{
    QVERIFY(QFile::link("..", m_device->path("inputs/loop")));

    const ToolResult result = m_device->run("show", {});

    QCOMPARE(result.error, QString());
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.output.count('\n'), 51);
}

void tst_ToolConfigRead::secondWayToAFolderIsPassedOver()
{
    const QString former = m_device->run("show", {}).output;
    QVERIFY(QFile::link("inputs", m_device->path("again")));

    const ToolResult result = m_device->run("show", {});

    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.output, former);
}

void tst_ToolConfigRead::linkToNoFileIsPassedOver()
{
    const QString former = m_device->run("show", {}).output;
    QVERIFY(QFile::link("/dev/zero", m_device->path("inputs/endless.config.json")));

    const ToolResult result = m_device->run("show", {});

    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.output, former);
}

void tst_ToolConfigRead::messagesAreShownOnRequestOnly()
{
    QVERIFY(QFile::link("..", m_device->path("inputs/loop")));

    const ToolResult result = m_device->run("get", {"device/tag", "-v"});

    QCOMPARE(result.output, QString("TI-101\n"));
    QVERIFY(result.error.contains("loop"));
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolConfigRead::getTakesPatterns()
{
    const ToolResult result = m_device->run("get", {"inputs/channel1/**"});

    QCOMPARE(result.error, QString());
    QCOMPARE(result.output, QString("Supply temperature\n°C\n-20\n120\n0.5\n\ntrue\n"));
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(m_device->run("get", {"inputs/*/filter"}).output, QString("0.5\n0.5\n0.5\n0.5\n"));
}

void tst_ToolConfigRead::getTakesACellOfEachArray()
{
    QCOMPARE(m_device->run("get", {"**#3,1"}).output, QString("100\n"));
    QCOMPARE(m_device->run("get", {"inputs/*/table#3,1"}).output, QString("100\n"));
    VERIFY_REFUSED(m_device->run("get", {"inputs/*/table#4,1"}), 3,
                   QString("'inputs/calibration/table': no cell 4,1; the array has 4 rows and 3 "
                           "columns, counted from 0"));
    VERIFY_REFUSED(m_device->run("get", {"inputs/*/filter#0,0"}), 3,
                   m_device->path() + QString(": no array at 'inputs/*/filter'"));
}

/// Also where it names a single value: what a program gets does not depend on how many there are.
void tst_ToolConfigRead::getOfAPatternPrintsAnArray()
{
    const auto filters = QJsonDocument::fromJson(
        m_device->run("get", {"inputs/*/filter", "--json"}).output.toUtf8());
    const auto one = QJsonDocument::fromJson(
        m_device->run("get", {"inputs/channel1/filt*", "--json"}).output.toUtf8());

    QVERIFY(filters.isArray());
    QCOMPARE(filters.array().size(), 4);
    QCOMPARE(filters.array().at(3).toObject().value("url"), QJsonValue("inputs/channel4/filter"));
    QVERIFY(one.isArray());
    QCOMPARE(one.array().size(), 1);
}

void tst_ToolConfigRead::nameWithAStarIsReachedAsItStands()
{
    m_device->directory().write("stars.config.json",
                                R"({"type": "treenode", "value": {
                                    "a*": {"type": "int8", "value": 1},
                                    "ab": {"type": "int8", "value": 2}}})");

    QCOMPARE(m_device->run("get", {"stars/a*"}).output, QString("1\n"));
    QVERIFY(m_device->run("get", {"stars/a*", "--json"}).output.startsWith("{\"url\": "));
    QCOMPARE(m_device->run("get", {"star*/a*"}).output, QString("1\n2\n"));
    QCOMPARE(m_device->run("set", {"stars/a*", "3"}).exitCode, 0);
    QCOMPARE(m_device->run("get", {"stars/ab"}).output, QString("2\n"));
}

void tst_ToolConfigRead::patternThatLeadsNowhereIsNotFound()
{
    VERIFY_REFUSED(m_device->run("get", {"inputs/*/flow"}), 3,
                   m_device->path() + QString(": no element at 'inputs/*/flow'"));
    // What is written is named as it stands.
    QCOMPARE(m_device->run("set", {"inputs/*/filter", "1"}).exitCode, 3);
}

QTEST_GUILESS_MAIN(tst_ToolConfigRead)
#include "tst_ToolConfigRead.moc"
