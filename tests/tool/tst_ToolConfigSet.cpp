#include "DeviceConfiguration.h"
#include "ToolFolder.h"

#include <QJsonArray>
#include <QRegularExpression>

namespace {

const QString channelFile = QStringLiteral("inputs/channel1.config.json");

const QByteArray everyType = R"({"type":"treenode","modifiedBy":"","lastModified":"","value":{
"boolean":{"type":"boolean","value":true},
"int8":{"type":"int8","value":1},"int16":{"type":"int16","value":1},
"int32":{"type":"int32","value":1},"int64":{"type":"int64","value":"1"},
"uint8":{"type":"uint8","value":1},"uint16":{"type":"uint16","value":1},
"uint32":{"type":"uint32","value":1},"uint64":{"type":"uint64","value":"1"},
"float":{"type":"float","value":1},"double":{"type":"double","value":1},
"string":{"type":"string","value":"x"},
"broken":{"type":"string","value":"x","regularExpression":"[a-"},
"selector":{"type":"selector","value":1,"selectionList":["off","on","2"]},
"twice":{"type":"selector","value":1,"selectionList":["same","same"]},
"other":{"type":"colour","value":"red"},"valueless":{"type":"int32"},
"cells":{"type":"array","value":[[0.1,5,"7","a",true,null]],"arrayInformation":[[],[
{"type":"float"},{"type":"int64"},{"type":"uint64","maxLimit":"18446744073709551614"},
{"type":"string"},{"type":"boolean"},{"type":"selector","selectionList":["off","on"]}]]}}})";

} // namespace

/// What `tessel config set` writes, stamps and refuses. Whatever is refused leaves every file as it
/// was, down to its inode and time.
class tst_ToolConfigSet : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup() { m_device.reset(); }

    void changeIsWrittenAndStamped();
    void onlyTheFileOfTheValueIsWritten_data();
    void onlyTheFileOfTheValueIsWritten();
    void otherValuesOfTheFileStay();
    void stampIsPrintedAsJson();
    void dryRunWritesNothing();
    void dryRunRefusesWhatAWriteWould();
    void dryRunOfAFileThatMayNotBeWrittenIsRefused();
    void valueThatStandsThereIsNotWritten_data();
    void valueThatStandsThereIsNotWritten();
    void valueIsReadBack_data();
    void valueIsReadBack();
    void zeroIsNotTheSameAsNothingEntered();
    void byteOrderMarkInFrontIsNotDropped();
    void valueIsRefused_data();
    void valueIsRefused();
    void missingTargetIsNotFound_data();
    void missingTargetIsNotFound();

private:
    QScopedPointer<DeviceConfiguration> m_device;
};

void tst_ToolConfigSet::init()
{
    m_device.reset(new DeviceConfiguration);
    QVERIFY(m_device->directory().write("every.config.json", everyType));
}

void tst_ToolConfigSet::changeIsWrittenAndStamped()
{
    const ToolResult result = m_device->run("set", {"inputs/channel1/filter", "0.75"});

    QCOMPARE(result.error, QString());
    QCOMPARE(result.exitCode, 0);
    const QRegularExpression expected(
        "^inputs/channel1/filter: 0\\.5 -> 0\\.75\n"
        "stamped device/inputs/channel1: modifiedBy Device, lastModified (\\S+)\n$");
    const auto match = expected.match(result.output);
    QVERIFY2(match.hasMatch(), qPrintable(result.output));
    const QJsonObject json = m_device->directory().json(channelFile);
    QCOMPARE(Description::at(json, "filter").value("value").toDouble(), 0.75);
    QCOMPARE(json.value("modifiedBy").toString(), QString("Device"));
    QCOMPARE(json.value("lastModified").toString(), match.captured(1));
    QVERIFY(QDateTime::fromString(match.captured(1), Qt::ISODateWithMs).isValid());
}

void tst_ToolConfigSet::onlyTheFileOfTheValueIsWritten_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<QString>("value");
    QTest::addColumn<QString>("file");
    QTest::addColumn<QString>("instance");

    QTest::newRow("at the top") << "device/tag"
                                << "PT-7"
                                << "device.config.json"
                                << "device/device";
    QTest::newRow("below") << "counters/counters/tariff"
                           << "day"
                           << "counters/counters.config.json"
                           << "device/counters/counters";
    QTest::newRow("cell") << "inputs/calibration/table#3,1"
                          << "98.5"
                          << "inputs/calibration.config.json"
                          << "device/inputs/calibration";
}

void tst_ToolConfigSet::onlyTheFileOfTheValueIsWritten()
{
    QFETCH(QString, url);
    QFETCH(QString, value);
    QFETCH(QString, file);
    QFETCH(QString, instance);
    const auto former = m_device->directory().snapshot();

    const ToolResult result = m_device->run("set", {url, value});

    QCOMPARE(result.exitCode, 0);
    QVERIFY(result.output.contains("\nstamped " + instance + ": "));
    QCOMPARE(result.output.count("stamped"), 1);
    QCOMPARE(m_device->changedSince(former), QStringList{file});
    QCOMPARE(m_device->valueAt(url), value);
}

void tst_ToolConfigSet::otherValuesOfTheFileStay()
{
    QJsonObject former = m_device->directory().json("counters/counters.config.json");

    QCOMPARE(m_device->run("set", {"counters/counters/pulseValue", "3"}).exitCode, 0);

    QJsonObject now = m_device->directory().json("counters/counters.config.json");
    for (const char *stamp : {"modifiedBy", "lastModified"}) {
        former.remove(stamp);
        now.remove(stamp);
    }
    QJsonObject children = former.value("value").toObject();
    QJsonObject pulseValue = children.value("pulseValue").toObject();
    pulseValue.insert("value", 3);
    children.insert("pulseValue", pulseValue);
    former.insert("value", children);
    QCOMPARE(now, former);
}

void tst_ToolConfigSet::stampIsPrintedAsJson()
{
    const ToolResult result = m_device->run("set", {"device/tag", "PT-7", "--json"});

    QCOMPARE(result.error, QString());
    const QJsonObject json = QJsonDocument::fromJson(result.output.toUtf8()).object();
    QCOMPARE(json.keys(), (QStringList{"changed", "stamped", "url"}));
    QCOMPARE(json.value("changed"), QJsonValue(true));
    QCOMPARE(json.value("url"), QJsonValue("device/tag"));
    const QJsonObject file = m_device->directory().json("device.config.json");
    QCOMPARE(json.value("stamped").toArray(),
             (QJsonArray{QJsonObject{{"instance", "device/device"},
                                     {"modifiedBy", "Device"},
                                     {"lastModified", file.value("lastModified")}}}));
    QCOMPARE(m_device->run("set", {"device/tag", "PT-7", "--json"}).output,
             QString("{\"url\": \"device/tag\", \"changed\": false, \"stamped\": []}\n"));
}

void tst_ToolConfigSet::valueThatStandsThereIsNotWritten_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<QString>("value");
    const auto row = [](const char *url, const char *value) {
        QTest::newRow(url) << QString(url) << QString(value);
    };

    row("device/tag", "TI-101");
    row("device/language", "en");
    row("counters/counters/presetTotal", "18446744073709551615");
    row("counters/counters/presetBalance", "-9007199254740993");
    row("inputs/channel1/filter", "0.50");
    row("inputs/channel1/range/lower", "-20");
    row("inputs/channel1/enabled", "true");
    row("inputs/channel1/alarmDelay", "--no-input");
    row("inputs/calibration/table#1,1", "25.1");
    row("inputs/calibration/table#3,2", "1");
    row("every/float", "1");
    row("every/cells#0,0", "0.1");
    row("every/cells#0,1", "5");
    row("every/cells#0,2", "7");
    row("every/cells#0,3", "a");
    row("every/cells#0,4", "true");
    row("every/cells#0,5", "--no-input");
}

void tst_ToolConfigSet::valueThatStandsThereIsNotWritten()
{
    QFETCH(QString, url);
    QFETCH(QString, value);
    const auto former = m_device->directory().snapshot();

    const ToolResult result = m_device->run("set", {url, value});

    QCOMPARE(result.error, QString());
    QCOMPARE(result.output, url + ": unchanged\n");
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(m_device->directory().snapshot(), former);
}

void tst_ToolConfigSet::valueIsReadBack_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<QString>("value");
    QTest::addColumn<QString>("text");
    const auto row = [](const char *url, const char *value, const char *text = nullptr) {
        QTest::addRow("%s %s", url, value)
            << QString("every/%1").arg(url) << QString(value) << QString(text ? text : value);
    };

    row("boolean", "false");
    row("boolean", "0", "false");
    row("int8", "-128");
    row("int16", "32767");
    row("int32", "-2147483648");
    row("int64", "9223372036854775807");
    row("int64", "-9223372036854775808");
    row("uint8", "0xff", "255");
    row("uint16", "65535");
    row("uint32", "4294967295");
    row("uint64", "18446744073709551615");
    row("float", "-0.1");
    row("double", "1e+300");
    row("double", "0.1");
    row("double", "--no-input", "");
    row("uint64", "--no-input", "");
    row("string", "°C, \"µ\"");
    row("string", "");
    row("selector", "off");
    row("selector", "0", "off");
    // A text of the list goes before an index.
    row("selector", "2", "2");
    row("selector", "--no-input", "");
    row("twice", "0", "same");
    row("cells#0,0", "0.3");
    row("cells#0,1", "9223372036854775807");
    row("cells#0,1", "-9223372036854775808");
    row("cells#0,2", "18446744073709551614");
    row("cells#0,2", "--no-input", "");
    row("cells#0,3", "b");
    row("cells#0,4", "false");
    row("cells#0,5", "on");
    row("cells#0,5", "0", "off");
}

void tst_ToolConfigSet::valueIsReadBack()
{
    QFETCH(QString, url);
    QFETCH(QString, value);
    QFETCH(QString, text);

    const ToolResult result = m_device->run("set", {url, value});

    QCOMPARE(result.error, QString());
    QCOMPARE(result.exitCode, 0);
    QVERIFY(!result.output.contains("unchanged"));
    QCOMPARE(m_device->valueAt(url), text);
}

void tst_ToolConfigSet::zeroIsNotTheSameAsNothingEntered()
{
    const QString url = QStringLiteral("inputs/channel1/alarmDelay");

    QVERIFY(
        m_device->run("set", {url, "0"}).output.startsWith(url + ": (no input) -> 0\nstamped "));
    QCOMPARE(m_device->valueAt(url), QString("0"));
    QVERIFY(m_device->run("set", {url, "--no-input"})
                .output.startsWith(url + ": 0 -> (no input)\nstamped "));
    QCOMPARE(m_device->valueAt(url), QString());
}

void tst_ToolConfigSet::byteOrderMarkInFrontIsNotDropped()
{
    const QString file = m_device->path("device.config.json");
    const QByteArray former = m_device->directory().read("device.config.json");

    const ToolResult result = m_device->run(
        "set", {"device/location", QChar(QChar::ByteOrderMark) + QString("cellar")});

    // Whoever reads the file would lose it.
    VERIFY_REFUSED(result, 5,
                   file + ": 'device/location' cannot be written to a file without a change");
    QCOMPARE(m_device->directory().read("device.config.json"), former);
}

void tst_ToolConfigSet::valueIsRefused_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<QString>("value");
    QTest::addColumn<QString>("reason");
    const auto row = [](const char *url, const char *value, const char *reason) {
        QTest::addRow("%s %s", url, value) << QString(url) << QString(value) << QString(reason);
    };

    row("device/tag", "pt 7",
        "'device/tag': the text does not match the regular expression [A-Z]{1,4}-[0-9]{1,5}");
    row("every/broken", "a", "'every/broken': the text does not match the regular expression [a-");
    row("every/int8", "128", "'every/int8': '128' is no int8; a whole number from -128 to 127 is");
    row("every/uint8", "-1", "'every/uint8': '-1' is no uint8; a whole number from 0 to 255 is");
    row("every/uint64", "18446744073709551616",
        "'every/uint64': '18446744073709551616' is no uint64; a whole number from 0 to "
        "18446744073709551615 is");
    row("every/int32", "",
        "'every/int32': '' is no int32; a whole number from -2147483648 to "
        "2147483647 is");
    row("every/double", "x", "'every/double': 'x' is no finite number of type double");
    row("every/double", "nan", "'every/double': 'nan' is no finite number of type double");
    row("every/double", "-inf", "'every/double': '-inf' is no finite number of type double");
    row("every/float", "1e39", "'every/float': '1e39' does not fit a float");
    row("every/boolean", "yes", "'every/boolean': 'yes' is no boolean; true, false, 1 and 0 are");
    row("every/selector", "3",
        "'every/selector': '3' is none of the selection: off (0), on (1), "
        "2 (2)");
    row("every/other", "blue", "'every/other': no value can be given to type 'colour'");
    row("every/valueless", "5", "'every/valueless': the element has no value that could be set");
    row("every/cells", "[]",
        "'every/cells' is an array; set a cell, 'every/cells#ROW,COLUMN', or "
        "import a table");
    row("every/string", "--no-input",
        "'every/string': only a number or a selector can be without input, not a string");
    row("every/cells#0,1", "1.5",
        "'every/cells#0,1': '1.5' is no int64; a whole number from -9223372036854775808 to "
        "9223372036854775807 is");
    row("every/cells#0,2", "18446744073709551615",
        "'every/cells#0,2': 18446744073709551615 is above the upper limit, 18446744073709551614");
    row("every/cells#0,3", "--no-input",
        "'every/cells#0,3': only a number or a selector can be without input, not a string");
    row("inputs/channel1/alarmDelay", "-1",
        "'inputs/channel1/alarmDelay': -1 is below the lower limit, 0");
    row("inputs/channel1/filter", "60.5",
        "'inputs/channel1/filter': 60.5 is above the upper limit, 60");
    row("diagnosis/diagnosis/firmware", "2.0.0", "'diagnosis/diagnosis/firmware' is read-only");
}

void tst_ToolConfigSet::valueIsRefused()
{
    QFETCH(QString, url);
    QFETCH(QString, value);
    QFETCH(QString, reason);
    const auto former = m_device->directory().snapshot();

    const ToolResult result = m_device->run("set", {url, value});

    VERIFY_REFUSED(result, 5, reason);
    QCOMPARE(m_device->directory().snapshot(), former);
}

void tst_ToolConfigSet::missingTargetIsNotFound_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<QString>("reason");

    QTest::newRow("no leaf") << "device/tga"
                             << "%1: no element at 'device/tga' (did you mean 'device/tag'?)";
    QTest::newRow("node") << "inputs/channel1"
                          << "%1: 'inputs/channel1' is a tree node and has no "
                             "value";
    QTest::newRow("cell past the end")
        << "inputs/calibration/table#4,0"
        << "'inputs/calibration/table': no cell 4,0; the array has 4 rows and 3 columns, counted "
           "from 0";
}

void tst_ToolConfigSet::missingTargetIsNotFound()
{
    QFETCH(QString, url);
    QFETCH(QString, reason);
    const auto former = m_device->directory().snapshot();

    VERIFY_REFUSED(m_device->run("set", {url, "1"}), 3, reason.replace("%1", m_device->path()));
    QCOMPARE(m_device->directory().snapshot(), former);
}

void tst_ToolConfigSet::dryRunWritesNothing()
{
    const auto before = m_device->directory().snapshot();
    const QString url = QStringLiteral("inputs/channel1/filter");

    const ToolResult plain = m_device->run("set", {url, "0.75", "--dry-run"});
    const ToolResult json = m_device->run("set", {url, "0.75", "--dry-run", "--json"});

    QCOMPARE(plain.error, QString());
    QCOMPARE(plain.output,
             QStringLiteral("inputs/channel1/filter: 0.5 -> 0.75\nnot written to %1\n")
                 .arg(m_device->path(channelFile)));
    QCOMPARE(plain.exitCode, 0);
    QCOMPARE(json.output, QStringLiteral("{\"url\": \"inputs/channel1/filter\", \"changed\": true, "
                                         "\"stamped\": [], \"written\": false}\n"));
    QCOMPARE(m_device->run("set", {url, "0.5", "--dry-run"}).output,
             QStringLiteral("inputs/channel1/filter: unchanged\n"));
    QCOMPARE(m_device->changedSince(before), QStringList());
}

void tst_ToolConfigSet::dryRunRefusesWhatAWriteWould()
{
    const ToolResult real = m_device->run("set", {"every/int8", "128"});
    const ToolResult trial = m_device->run("set", {"every/int8", "128", "--dry-run"});

    QCOMPARE(trial.exitCode, 5);
    QCOMPARE(trial.error, real.error);
    QCOMPARE(trial.output, QString());
}

void tst_ToolConfigSet::dryRunOfAFileThatMayNotBeWrittenIsRefused()
{
    if (!makePermissionsCount()) {
        QSKIP("The system does not take root's permissions away.");
    }
    const QString file = m_device->path(channelFile);
    const NarrowPermissions narrow(file, QFile::ReadOwner);

    const ToolResult result = m_device->run("set", {"inputs/channel1/filter", "0.75", "--dry-run"});

    VERIFY_REFUSED(result, 4,
                   file + QStringLiteral(": no permission to write the file or its folder"));
}

QTEST_GUILESS_MAIN(tst_ToolConfigSet)
#include "tst_ToolConfigSet.moc"
