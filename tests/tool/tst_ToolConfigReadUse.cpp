#include "DeviceConfiguration.h"
#include "ToolFolder.h"

#include <sys/stat.h>

/// What `tessel config get` and `show` refuse to read.
class tst_ToolConfigReadUse : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { m_canLosePermissions = makePermissionsCount(); }
    void init() { m_device.reset(new DeviceConfiguration); }
    void cleanup() { m_device.reset(); }

    void wrongUseIsRefused_data();
    void wrongUseIsRefused();
    void urlThatIsNotThereIsNotFound_data();
    void urlThatIsNotThereIsNotFound();
    void pathThatIsNoConfigurationIsRefused_data();
    void pathThatIsNoConfigurationIsRefused();
    void fileThatDoesNotParseIsNamed();
    void arrayThatIsNoTableHasNoCells_data();
    void arrayThatIsNoTableHasNoCells();
    void pathThatIsNoFileIsRefused();
    void unreadableFileIsRefused();
    void unreadableFolderIsRefused();

private:
    bool m_canLosePermissions = false;
    QScopedPointer<DeviceConfiguration> m_device;
};

void tst_ToolConfigReadUse::wrongUseIsRefused_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("reason");
    const auto row = [](const QStringList &arguments, const char *reason) {
        QTest::newRow(qPrintable(arguments.join(' '))) << arguments << QString(reason);
    };

    row({}, "ACTION is missing");
    row({"get"}, "DIR|FILE is missing");
    row({"gte", "x"}, "unknown action 'gte' (did you mean 'get'?)");
    row({"get", "x"}, "URL is missing");
    row({"set", "x"}, "URL is missing");
    row({"table", "x"}, "URL is missing");
    row({"get", "x", "a", "b"}, "'b' is one argument too many");
    row({"show", "x", "a", "b"}, "'b' is one argument too many");
    row({"set", "x", "a", "b", "c"}, "'c' is one argument too many");
    row({"set", "x", "a"}, "set takes either VALUE or --no-input");
    row({"set", "x", "a", "b", "--no-input"}, "set takes either VALUE or --no-input");
    row({"get", "x", "a", "--csv"}, "get does not take --csv");
    row({"get", "x", "a", "--no-input"}, "get does not take --no-input");
    row({"show", "x", "--import", "y"}, "show does not take --import");
    row({"table", "x", "a", "--csv", "--json"}, "--csv goes neither with --json nor with --import");
    row({"table", "x", "a", "--csv", "--import", "y"},
        "--csv goes neither with --json nor with --import");
    row({"get", "x", "a", "--dry-run"}, "get does not take --dry-run");
    row({"table", "x", "a", "--dry-run"}, "table takes --dry-run with --import");
    row({"get", "x", "a", "--jso"}, "unknown option '--jso' (did you mean '--json'?)");
}

void tst_ToolConfigReadUse::wrongUseIsRefused()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, reason);

    const ToolResult result = runTool(QStringList("config") + arguments);

    VERIFY_REFUSED(result, 2, QStringLiteral("config: %1; see 'tessel config --help'").arg(reason));
}

void tst_ToolConfigReadUse::urlThatIsNotThereIsNotFound_data()
{
    QTest::addColumn<QString>("action");
    QTest::addColumn<QString>("url");
    QTest::addColumn<QString>("reason");

    QTest::newRow("slip") << "get"
                          << "device/tga"
                          << "%1: no element at 'device/tga' (did you mean 'device/tag'?)";
    QTest::newRow("nothing alike") << "show"
                                   << "no/such/thing/at/all/in/here"
                                   << "%1: no element at 'no/such/thing/at/all/in/here'";
    QTest::newRow("node") << "get"
                          << "inputs/channel1/range"
                          << "%1: 'inputs/channel1/range' is a tree node and has no value";
    QTest::newRow("empty") << "get"
                           << ""
                           << "%1: '' is a tree node and has no value";
    QTest::newRow("past a leaf") << "get"
                                 << "device/tag/x/y/z/a/b/c"
                                 << "%1: no element at 'device/tag/x/y/z/a/b/c'";
    QTest::newRow("row past the end")
        << "get"
        << "inputs/calibration/table#4,0"
        << "'inputs/calibration/table': no cell 4,0; the array has 4 rows and 3 columns, "
           "counted from 0";
    QTest::newRow("column past the end")
        << "get"
        << "inputs/calibration/table#0,3"
        << "'inputs/calibration/table': no cell 0,3; the array has 4 rows and 3 columns, "
           "counted from 0";
    QTest::newRow("index that is none")
        << "get"
        << "inputs/calibration/table#1"
        << "%1: no element at 'inputs/calibration/table#1' (did you mean "
           "'inputs/calibration/table'?)";
}

void tst_ToolConfigReadUse::urlThatIsNotThereIsNotFound()
{
    QFETCH(QString, action);
    QFETCH(QString, url);
    QFETCH(QString, reason);

    const ToolResult result = m_device->run(action, {url});

    VERIFY_REFUSED(result, 3, reason.replace("%1", m_device->path()));
}

void tst_ToolConfigReadUse::pathThatIsNoConfigurationIsRefused_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("reason");

    QTest::newRow("missing") << "nothing" << 3 << "no such file or folder";
    QTest::newRow("other file") << "inputs/channel1.process.json" << 9
                                << "no configuration; its name must end in .config.json";
    QTest::newRow("folder without one")
        << "empty" << 9 << "holds no configuration file, NAME.config.json";
    QTest::newRow("folders without one")
        << "outer" << 9 << "holds no configuration file, NAME.config.json";
    QTest::newRow("one leaf") << "leaf.config.json" << 9
                              << "holds no configuration value; its top level must be a tree "
                                 "node with leaves below";
    QTest::newRow("no leaf") << "bare.config.json" << 9
                             << "holds no configuration value; its top level must be a tree "
                                "node with leaves below";
    QTest::newRow("no JSON") << "text.config.json" << 9
                             << "cannot be parsed: line 2, column 1: unterminated object";
    QTest::newRow("no type") << "typeless.config.json" << 9
                             << "cannot be parsed: key 'type' not found in JSON object";
}

void tst_ToolConfigReadUse::pathThatIsNoConfigurationIsRefused()
{
    QFETCH(QString, name);
    QFETCH(int, exitCode);
    QFETCH(QString, reason);
    const auto &directory = m_device->directory();
    QVERIFY(QDir().mkpath(m_device->path("empty")) && QDir().mkpath(m_device->path("outer/inner")));
    QVERIFY(directory.write("leaf.config.json", R"({"type":"string","value":"x"})"));
    QVERIFY(directory.write("bare.config.json", R"({"type":"treenode","value":{}})"));
    QVERIFY(directory.write("text.config.json", "{\n?}"));
    QVERIFY(directory.write("typeless.config.json", "{}"));

    const ToolResult result = DeviceConfiguration::runOn("show", m_device->path(name), {});

    VERIFY_REFUSED(result, exitCode, QStringLiteral("%1: %2").arg(m_device->path(name), reason));
}

void tst_ToolConfigReadUse::fileThatDoesNotParseIsNamed()
{
    const QString name = QStringLiteral("inputs/channel2.config.json");
    QVERIFY(m_device->directory().write(name, "{\"type\": \"treenode\",\n \"value\": {]}"));

    const ToolResult result = m_device->run("get", {"device/tag"});

    QVERIFY2(result.error.startsWith(QStringLiteral("tessel: %1: cannot be parsed: line 2, column ")
                                         .arg(m_device->path(name))),
             qPrintable(result.error));
    QCOMPARE(result.error.count('\n'), 1);
    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, 9);
}

void tst_ToolConfigReadUse::arrayThatIsNoTableHasNoCells_data()
{
    QTest::addColumn<QByteArray>("array");
    QTest::addColumn<QString>("reason");

    QTest::newRow("no information")
        << QByteArray(R"("value":[[1,2],[3,4]])") << "the array has no description of its columns";
    QTest::newRow("one dimension described")
        << QByteArray(R"("value":[[1,2],[3,4]],"arrayInformation":[[]])")
        << "the array has no description of its columns";
    QTest::newRow("no list") << QByteArray(
        R"("value":"text","arrayInformation":[[],[{"type":"double"},{"type":"double"}]])")
                             << "the array has no description of its columns";
    QTest::newRow("ragged rows") << QByteArray(
        R"("value":[[1,2],[3]],"arrayInformation":[[],[{"type":"double"},{"type":"double"}]])")
                                 << "row 1 has 1 cells, 2 columns are described";
    QTest::newRow("first row too long") << QByteArray(
        R"("value":[[1,2,3]],"arrayInformation":[[],[{"type":"double"},{"type":"double"}]])")
                                        << "row 0 has 3 cells, 2 columns are described";
}

void tst_ToolConfigReadUse::arrayThatIsNoTableHasNoCells()
{
    QFETCH(QByteArray, array);
    QFETCH(QString, reason);
    QVERIFY(m_device->directory().write("tables.config.json",
                                        R"({"type":"treenode","value":{"table":{"type":"array",)"
                                            + array + "}}}"));
    const auto former = m_device->directory().snapshot();
    const QString line = QStringLiteral("'tables/table': %1").arg(reason);

    VERIFY_REFUSED(m_device->run("get", {"tables/table#0,0"}), 9, line);
    VERIFY_REFUSED(m_device->run("set", {"tables/table#0,0", "5"}), 9, line);
    VERIFY_REFUSED(m_device->run("table", {"tables/table"}), 9, line);

    QCOMPARE(m_device->directory().snapshot(), former);
    // The value itself can still be looked at.
    QCOMPARE(m_device->run("get", {"tables/table"}).exitCode, 0);
}

void tst_ToolConfigReadUse::pathThatIsNoFileIsRefused()
{
    const QString path = m_device->path("pipe.config.json");
    QCOMPARE(::mkfifo(QFile::encodeName(path).constData(), 0600), 0);

    const ToolResult result = runTool({"config", "show", path});

    QCOMPARE(result.exitCode, 9);
    QCOMPARE(result.error, "tessel: " + path + ": is no regular file\n");
}

void tst_ToolConfigReadUse::unreadableFileIsRefused()
{
    if (!m_canLosePermissions) {
        QSKIP("nothing is unreadable here");
    }
    const QString path = m_device->path("inputs/channel1.config.json");
    const NarrowPermissions narrow(path, QFile::WriteOwner);

    VERIFY_REFUSED(DeviceConfiguration::runOn("show", path, {}), 4,
                   path + ": no permission to read it");
    VERIFY_REFUSED(m_device->run("show", {}), 4, path + ": no permission to read it");
}

void tst_ToolConfigReadUse::unreadableFolderIsRefused()
{
    if (!m_canLosePermissions) {
        QSKIP("nothing is unreadable here");
    }
    const QString path = m_device->path("inputs");
    const NarrowPermissions narrow(path, QFile::WriteOwner);

    VERIFY_REFUSED(m_device->run("show", {}), 4, path + ": no permission to read it");
}

QTEST_GUILESS_MAIN(tst_ToolConfigReadUse)
#include "tst_ToolConfigReadUse.moc"
