#include "DeviceConfiguration.h"
#include "ToolFolder.h"

#include <QTemporaryDir>

namespace {

const QString filterUrl = QStringLiteral("inputs/channel1/filter");

ToolResult explain(const QStringList &arguments)
{
    return runTool(QStringList{QStringLiteral("explain"), QStringLiteral("--config")} + arguments);
}

QJsonObject explained(const QStringList &arguments)
{
    const ToolResult result = explain(QStringList(QStringLiteral("--json")) + arguments);
    const QJsonArray objects = QJsonDocument::fromJson(result.output.toUtf8()).array();
    return objects.size() == 1 ? objects.first().toObject() : QJsonObject();
}

QStringList suspicionsIn(const QJsonObject &explanation)
{
    QStringList names;
    for (const auto &suspicion : explanation.value(QStringLiteral("suspicions")).toArray()) {
        names.append(suspicion.toObject().value(QStringLiteral("name")).toString());
    }
    return names;
}

/// A configuration with the one value `plant/value`.
QByteArray fileWith(const QByteArray &leaf, const QByteArray &stamp)
{
    return R"({"type": "treenode", )" + stamp
           + R"("value": {"plant": {"type": "treenode", "value": {"value": )" + leaf + "}}}}\n";
}

QByteArray stampAt(const QDateTime &time)
{
    return R"("modifiedBy": "TESSEL", "lastModified": ")"
           + time.toString(Qt::ISODateWithMs).toUtf8() + R"(", )";
}

} // namespace

/// What `tessel explain --config` tells of a value.
class tst_ToolExplainConfiguration : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { m_canLosePermissions = makePermissionsCount(); }
    void init() { m_device.reset(new DeviceConfiguration); }
    void cleanup() { m_device.reset(); }

    void screenHasTheWholeChain();
    void textHasItsPattern();
    void selectorHasItsEntries();
    void arrayHasItsShape();
    void cellHasTheRulesOfItsColumn();
    void jsonHasTheWholeChain();
    void stampOfTheFileIsTold();
    void fileAloneIsExplained();
    void everyValueOfAPatternIsExplained();
    void valueOfSeveralUrlsIsExplainedOnce();

    void suspicionIsNamed_data();
    void suspicionIsNamed();
    void problemOfAnotherValueIsNotToldHere();
    void answerIsThatOfTheWrite_data();
    void answerIsThatOfTheWrite();
    void valueThatIsThereMayBeRefused_data();
    void valueThatIsThereMayBeRefused();
    void cellOutsideTheLimitsOfItsColumnIsSuspicious();
    void cellHasNoProblemOfAnotherCell();
    void nothingIsWritten();

private:
    bool m_canLosePermissions = false;
    QScopedPointer<DeviceConfiguration> m_device;
};

void tst_ToolExplainConfiguration::screenHasTheWholeChain()
{
    const ToolResult result = explain({m_device->path(), filterUrl, "--value", "61"});

    QCOMPARE(result.error, QString());
    QCOMPARE(
        result.output,
        QString("inputs/channel1/filter: 0.5 s\n"
                "! the file is not stamped: its values are those that it was made with, or were\n"
                "  changed by other means\n"
                "\n"
                "Description   %1:51:5\n"
                "Type          double in s; limits 0 to 60; read-write\n"
                "Label         inputs.filter\n"
                "Modified      never, says the stamp of its file\n"
                "Write         of the value that is there: unchanged\n"
                "              of '61': changed; tessel config set refuses it: 61 is above the\n"
                "              upper limit, 60\n")
            .arg(m_device->path("inputs/channel1.config.json")));
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolExplainConfiguration::textHasItsPattern()
{
    const ToolResult result = explain(
        {m_device->path(), "inputs/channel1/name", "--value", "Vorlauf!"});

    QVERIFY(result.output.startsWith("inputs/channel1/name: Supply temperature\n"));
    QVERIFY(result.output.contains("\nPattern       [A-Za-z0-9 _-]{1,32}\n"));
    QVERIFY(result.output.contains(
        "\n              of 'Vorlauf!': regular expression mismatch; tessel config set\n"
        "              refuses it: the text does not match the pattern\n"));
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolExplainConfiguration::selectorHasItsEntries()
{
    const ToolResult result = explain({m_device->path(), "inputs/channel1/unit"});

    QVERIFY(result.output.startsWith(QString::fromUtf8("inputs/channel1/unit: °C\n")));
    QVERIFY(result.output.contains(QString::fromUtf8("\nSelection     °C (0), °F (1), K (2)\n")));
}

void tst_ToolExplainConfiguration::arrayHasItsShape()
{
    const ToolResult result = explain({m_device->path(), "inputs/calibration/table"});

    QVERIFY(result.output.startsWith("inputs/calibration/table: 4 rows\n"));
    QVERIFY(result.output.contains("\nArray         4 rows of 3 columns; from 2 rows to 8\n"));
    // What is tried is taken back before the shape is told.
    const QJsonObject json = explained(
        {m_device->path(), "inputs/calibration/table", "--value", "1"});
    QCOMPARE(json.value("rows"), QJsonValue(4));
    QCOMPARE(json.value("columns"), QJsonValue(3));
    QCOMPARE(json.value("dynamicRows"), QJsonValue(true));
    QCOMPARE(json.value("minRows"), QJsonValue(2));
    QCOMPARE(json.value("maxRows"), QJsonValue(8));
}

void tst_ToolExplainConfiguration::cellHasTheRulesOfItsColumn()
{
    const ToolResult result = explain(
        {m_device->path(), "inputs/calibration/table#3,2", "--value", "used"});

    QVERIFY(result.output.startsWith("inputs/calibration/table#3,2: suspect\n"));
    QVERIFY(result.output.contains("\nType          selector; read-write\n"));
    QVERIFY(result.output.contains("\nSelection     used (0), suspect (1), ignored (2)\n"));
    QVERIFY(result.output.contains("\n              of 'used': changed\n"));
}

void tst_ToolExplainConfiguration::jsonHasTheWholeChain()
{
    QCOMPARE(
        explained({m_device->path(), filterUrl, "--value", "61"}),
        (QJsonObject{
            {"url", filterUrl},
            {"value", 0.5},
            {"selection", QJsonValue()},
            {"suspicions",
             QJsonArray{QJsonObject{
                 {"name", "never-stamped"},
                 {"text", "the file is not stamped: its values are those that it was made with, "
                          "or were changed by other means"}}}},
            {"file", m_device->path("inputs/channel1.config.json")},
            {"line", 51},
            {"column", 5},
            {"type", "double"},
            {"unit", "s"},
            {"labelTextId", "inputs.filter"},
            {"minLimit", 0},
            {"maxLimit", 60},
            {"regularExpression", QJsonValue()},
            {"selectionList", QJsonValue()},
            {"readOnly", false},
            {"rows", QJsonValue()},
            {"columns", QJsonValue()},
            {"dynamicRows", QJsonValue()},
            {"minRows", QJsonValue()},
            {"maxRows", QJsonValue()},
            {"modifiedBy", QJsonValue()},
            {"lastModified", QJsonValue()},
            {"write",
             QJsonObject{{"status", 1}, {"statusName", "unchanged"}, {"refusal", QJsonValue()}}},
            {"writeAsked", QJsonObject{{"value", "61"},
                                       {"status", 0},
                                       {"statusName", "changed"},
                                       {"refusal", "61 is above the upper limit, 60"}}},
        }));
}

void tst_ToolExplainConfiguration::stampOfTheFileIsTold()
{
    QCOMPARE(m_device->run("set", {filterUrl, "0.75"}).exitCode, 0);
    const QString stamp =
        m_device->directory().json("inputs/channel1.config.json").value("lastModified").toString();

    const ToolResult result = explain({m_device->path(), filterUrl});

    QVERIFY(!stamp.isEmpty());
    QVERIFY(result.output.startsWith("inputs/channel1/filter: 0.75 s\nnothing is suspicious\n"));
    QVERIFY2(result.output.contains("\nModified      its file by Device, at " + stamp + ","),
             qPrintable(result.output));
    const QJsonObject json = explained({m_device->path(), filterUrl});
    QCOMPARE(json.value("modifiedBy"), QJsonValue("Device"));
    QCOMPARE(json.value("lastModified"), QJsonValue(stamp));
    // Another file of the folder has a stamp of its own.
    QCOMPARE(suspicionsIn(explained({m_device->path(), "inputs/channel2/filter"})),
             QStringList("never-stamped"));
}

void tst_ToolExplainConfiguration::fileAloneIsExplained()
{
    const QString file = m_device->path("inputs/channel1.config.json");

    const ToolResult result = explain({file, "range/upper"});

    QVERIFY(result.output.startsWith(QString::fromUtf8("range/upper: 120 °C\n")));
    QVERIFY(result.output.contains("\nDescription   " + file + ":40:9\n"));
}

void tst_ToolExplainConfiguration::everyValueOfAPatternIsExplained()
{
    QCOMPARE(explain({m_device->path(), "inputs/*/filter"}).output.count("\nWrite "), 4);
    QCOMPARE(explain({m_device->path(), "**/filter"}).output.count("\nWrite "), 4);
    QCOMPARE(explain({m_device->path(), "inputs/channel1"}).output.count("\nWrite "), 7);
}

void tst_ToolExplainConfiguration::valueOfSeveralUrlsIsExplainedOnce()
{
    const ToolResult result = explain({m_device->path(), filterUrl, "inputs/*/filter"});

    QCOMPARE(result.output.count("\nWrite "), 4);
    QVERIFY(result.output.startsWith(filterUrl));
}

void tst_ToolExplainConfiguration::suspicionIsNamed_data()
{
    QTest::addColumn<QByteArray>("leaf");
    QTest::addColumn<QByteArray>("stamp");
    QTest::addColumn<QStringList>("names");
    const QDateTime now = QDateTime::currentDateTimeUtc();
    const QByteArray good = stampAt(now.addSecs(-60));
    const QByteArray five = R"({"type": "int32", "value": 5})";

    QTest::newRow("nothing") << five << good << QStringList();
    QTest::newRow("no place for a stamp") << five << QByteArray() << QStringList("no-stamp");
    QTest::newRow("half a place") << five << QByteArray(R"("modifiedBy": "TESSEL", )")
                                  << QStringList("no-stamp");
    QTest::newRow("never stamped")
        << five << QByteArray(R"("modifiedBy": "", "lastModified": "", )")
        << QStringList("never-stamped");
    QTest::newRow("no time") << five
                             << QByteArray(
                                    R"("modifiedBy": "TESSEL", "lastModified": "yesterday", )")
                             << QStringList("stamp-unreadable");
    QTest::newRow("tomorrow") << five << stampAt(now.addDays(1)) << QStringList("stamp-future");
    QTest::newRow("outside its limits")
        << QByteArray(R"({"type": "int32", "value": 5, "maxLimit": 4})") << good
        << QStringList("value-outside-limits");
    QTest::newRow("limits") << QByteArray(
        R"({"type": "double", "value": null, "minLimit": 5, "maxLimit": 4})")
                            << good << QStringList("limits-order");
    QTest::newRow("refused by its pattern")
        << QByteArray(R"({"type": "string", "value": "ab", "regularExpression": "[a]"})") << good
        << QStringList("pattern-refuses-value");
    QTest::newRow("no pattern") << QByteArray(
        R"({"type": "string", "value": "ab", "regularExpression": "[a"})")
                                << good << QStringList("pattern-invalid");
    QTest::newRow("no such entry")
        << QByteArray(R"({"type": "selector", "value": 3, "selectionList": ["a", "b"]})") << good
        << QStringList("selector-value");
    QTest::newRow("no value") << QByteArray(R"({"type": "int32"})") << good
                              << QStringList("value-missing");
    QTest::newRow("not of the type")
        << QByteArray(R"({"type": "int32", "value": "x"})") << good << QStringList("value-of-type");
}

void tst_ToolExplainConfiguration::suspicionIsNamed()
{
    QFETCH(QByteArray, leaf);
    QFETCH(QByteArray, stamp);
    QFETCH(QStringList, names);
    QVERIFY(m_device->directory().write("one.config.json", fileWith(leaf, stamp)));
    const QString file = m_device->path("one.config.json");

    QCOMPARE(suspicionsIn(explained({file, "plant/value"})), names);
    const ToolResult result = explain({file, "plant/value"});
    QCOMPARE(result.output.contains("nothing is suspicious\n"), names.isEmpty());
    QCOMPARE(result.output.count("\n! "), names.size());
    QCOMPARE(result.exitCode, 0);
    // In a folder its URL begins with the name of the file.
    QCOMPARE(suspicionsIn(explained({m_device->path(), "one/plant/value"})), names);
}

void tst_ToolExplainConfiguration::problemOfAnotherValueIsNotToldHere()
{
    const QByteArray stamp = stampAt(QDateTime::currentDateTimeUtc().addSecs(-60));
    QVERIFY(m_device->directory().write("two.config.json",
                                        R"({"type": "treenode", )" + stamp
                                            + R"("value": {"good": {"type": "int32", "value": 1},
                                   "bad": {"type": "int32", "value": 5, "maxLimit": 4}}})"));

    QCOMPARE(suspicionsIn(explained({m_device->path(), "two/good"})), QStringList());
    QCOMPARE(suspicionsIn(explained({m_device->path(), "two/bad"})),
             QStringList("value-outside-limits"));
}

void tst_ToolExplainConfiguration::answerIsThatOfTheWrite_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<QString>("value");
    QTest::addColumn<QString>("status");
    QTest::addColumn<QString>("refusal");
    const auto row = [](const char *url, const char *value, const char *status,
                        const char *refusal) {
        QTest::addRow("%s %s", url, value)
            << QString(url) << QString(value) << QString(status) << QString(refusal);
    };

    row("inputs/channel1/filter", "0.75", "changed", "");
    row("inputs/channel1/filter", "0.50", "unchanged", "");
    row("inputs/channel1/filter", "-1", "changed", "-1 is below the lower limit, 0");
    row("inputs/channel1/filter", "x", "changed", "'x' is no finite number of type double");
    row("inputs/channel1/name", "Supply temperature", "unchanged", "");
    row("inputs/channel1/name", "!", "regular expression mismatch",
        "the text does not match the pattern");
    row("inputs/channel1/unit", "K", "changed", "");
    row("inputs/channel1/enabled", "true", "unchanged", "");
    row("diagnosis/diagnosis/firmware", "9.9", "changed", "it is read-only");
    row("counters/counters/presetTotal", "18446744073709551615", "unchanged", "");
    row("inputs/calibration/table#1,1", "25.1", "unchanged", "");
    row("inputs/calibration/table#1,1", "25.2", "changed", "");
    row("inputs/calibration/table", "1", "changed", "it is an array");
}

void tst_ToolExplainConfiguration::answerIsThatOfTheWrite()
{
    QFETCH(QString, url);
    QFETCH(QString, value);
    QFETCH(QString, status);
    QFETCH(QString, refusal);

    const QJsonObject answer =
        explained({m_device->path(), url, "--value=" + value}).value("writeAsked").toObject();

    QCOMPARE(answer.value("statusName"), QJsonValue(status));
    QCOMPARE(answer.value("refusal").toString(), refusal);
    const ToolResult set = m_device->run("set", {url, value});
    QCOMPARE(set.exitCode, refusal.isEmpty() ? 0 : 5);
    QCOMPARE(set.output.endsWith(": unchanged\n"), status == "unchanged");
}

void tst_ToolExplainConfiguration::valueThatIsThereMayBeRefused_data()
{
    QTest::addColumn<QByteArray>("leaf");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("statusName");
    QTest::addColumn<QString>("refusal");

    QTest::newRow("pattern") << QByteArray(
        R"({"type": "string", "value": "ab", "regularExpression": "[a]"})")
                             << 3 << QString("regular expression mismatch")
                             << QString("the text does not match the pattern");
    QTest::newRow("limits") << QByteArray(R"({"type": "int32", "value": 5, "maxLimit": 4})") << 1
                            << QString("unchanged") << QString("5 is above the upper limit, 4");
    QTest::newRow("no value") << QByteArray(R"({"type": "int32"})") << 4
                              << QString("property path invalid")
                              << QString("the element has no value that could be set");
}

void tst_ToolExplainConfiguration::valueThatIsThereMayBeRefused()
{
    QFETCH(QByteArray, leaf);
    QFETCH(int, status);
    QFETCH(QString, statusName);
    QFETCH(QString, refusal);
    const QByteArray stamp = stampAt(QDateTime::currentDateTimeUtc().addSecs(-60));
    QVERIFY(m_device->directory().write("one.config.json", fileWith(leaf, stamp)));

    QCOMPARE(
        explained({m_device->path("one.config.json"), "plant/value"}).value("write").toObject(),
        (QJsonObject{{"status", status}, {"statusName", statusName}, {"refusal", refusal}}));
}

void tst_ToolExplainConfiguration::cellOutsideTheLimitsOfItsColumnIsSuspicious()
{
    const QByteArray stamp = stampAt(QDateTime::currentDateTimeUtc().addSecs(-60));
    QVERIFY(m_device->directory().write(
        "one.config.json", fileWith(R"({"type": "array", "value": [[1], [9]], "arrayInformation":
                 [[], [{"type": "int32", "labelTextId": "c", "unitType": "u", "value": 0, "maxLimit": 4}]]})",
                                    stamp)));
    const QString file = m_device->path("one.config.json");

    QVERIFY(!suspicionsIn(explained({file, "plant/value#0,0"})).contains("value-outside-limits"));
    QVERIFY(suspicionsIn(explained({file, "plant/value#1,0"})).contains("value-outside-limits"));
}

void tst_ToolExplainConfiguration::cellHasNoProblemOfAnotherCell()
{
    const QByteArray stamp = stampAt(QDateTime::currentDateTimeUtc().addSecs(-60));
    QVERIFY(m_device->directory().write(
        "one.config.json",
        fileWith(R"({"type": "array", "value": [["AB", 1], ["c", 300], ["DE", "x"]],
                 "arrayInformation": [[], [
                 {"type": "string", "unitType": "u", "value": "AA", "regularExpression": "[A-Z]{2}"},
                 {"type": "uint8", "unitType": "u", "value": 0}]]})",
                 stamp)));
    const QString file = m_device->path("one.config.json");
    const auto suspicionsOf = [&](const char *cell) {
        return suspicionsIn(explained({file, QStringLiteral("plant/value") + QLatin1String(cell)}));
    };

    QCOMPARE(suspicionsOf("#0,0"), QStringList());
    QCOMPARE(suspicionsOf("#0,1"), QStringList());
    QCOMPARE(suspicionsOf("#1,0"), QStringList(QStringLiteral("column-pattern")));
    QCOMPARE(suspicionsOf("#1,1"), QStringList(QStringLiteral("column-value")));
    QCOMPARE(suspicionsOf("#2,1"), QStringList(QStringLiteral("column-value")));
    QCOMPARE(suspicionsOf("").size(), 3);
}

void tst_ToolExplainConfiguration::nothingIsWritten()
{
    const auto former = m_device->directory().snapshot();

    QCOMPARE(explain({m_device->path(), "**", "--value", "1"}).exitCode, 0);

    QCOMPARE(m_device->changedSince(former), QStringList());
}

QTEST_GUILESS_MAIN(tst_ToolExplainConfiguration)
#include "tst_ToolExplainConfiguration.moc"
