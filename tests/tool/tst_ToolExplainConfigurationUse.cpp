#include "DeviceConfiguration.h"
#include "ToolFolder.h"

namespace {

const QString filterUrl = QStringLiteral("inputs/channel1/filter");

ToolResult explain(const QStringList &arguments)
{
    return runTool(QStringList{QStringLiteral("explain"), QStringLiteral("--config")} + arguments);
}

} // namespace

/// What `tessel explain --config` refuses, and what leads to it.
class tst_ToolExplainConfigurationUse : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { m_canLosePermissions = makePermissionsCount(); }
    void init() { m_device.reset(new DeviceConfiguration); }
    void cleanup() { m_device.reset(); }

    void defaultConfigurationMayBeLeftOut();
    void wrongUseIsRefused_data();
    void wrongUseIsRefused();
    void missingThingsAreNotFound();
    void unreadableFileIsRefused();
    void fullOutputIsAFailure();
    void closedPipeIsNoFailure();
    void explainLeadsToTheConfiguration_data();
    void explainLeadsToTheConfiguration();
    void whatIsNowhereLeadsNowhere();

private:
    QScopedPointer<DeviceConfiguration> m_device;
    bool m_canLosePermissions = false;
};

void tst_ToolExplainConfigurationUse::defaultConfigurationMayBeLeftOut()
{
    const ToolResult result = runTool({"explain", "--config", filterUrl},
                                      {"TESSEL_DIR=" + m_device->path()});

    QVERIFY(result.output.startsWith("inputs/channel1/filter: 0.5 s\n"));
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolExplainConfigurationUse::wrongUseIsRefused_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("text");
    const auto row = [](const char *name, const QStringList &arguments, const char *text) {
        QTest::newRow(name) << arguments << QString(text) + "; see 'tessel explain --help'";
    };

    row("value without config", {"DIR", filterUrl, "--value", "1"},
        "explain: --value goes with --config");
    row("no URL", {"--config", "DIR"}, "explain: URL... is missing");
    row("typo", {"--confg", "DIR", filterUrl},
        "explain: unknown option '--confg' (did you mean '--config'?)");
    row("value without a text", {"--config", "DIR", filterUrl, "--value"},
        "explain: Missing value after '--value'");
}

void tst_ToolExplainConfigurationUse::wrongUseIsRefused()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, text);
    arguments.replaceInStrings(QRegularExpression("^DIR$"), m_device->path());

    VERIFY_REFUSED(runTool(QStringList("explain") + arguments), 2, text);
}

void tst_ToolExplainConfigurationUse::missingThingsAreNotFound()
{
    VERIFY_REFUSED(explain({m_device->path("none.config.json"), "a"}), 3,
                   m_device->path("none.config.json") + ": no such file or folder");
    VERIFY_REFUSED(explain({m_device->path(), "inputs/channel1/fliter"}), 3,
                   m_device->path()
                       + ": no element at 'inputs/channel1/fliter' (did you mean "
                         "'inputs/channel1/filter'?)");
    VERIFY_REFUSED(explain({m_device->path(), "inputs/calibration/table#9,0"}), 3,
                   QString("'inputs/calibration/table': no cell 9,0; the array has 4 rows and 3 "
                           "columns, counted from 0"));
    VERIFY_REFUSED(explain({m_device->path("inputs/channel1.process.json"), "value"}), 9,
                   m_device->path("inputs/channel1.process.json")
                       + ": no configuration; its name must end in .config.json");
}

void tst_ToolExplainConfigurationUse::unreadableFileIsRefused()
{
    if (!m_canLosePermissions) {
        QSKIP("the permissions of files do not count for this user");
    }
    const QString file = m_device->path("inputs/channel1.config.json");
    const NarrowPermissions narrow(file, QFile::WriteOwner);

    VERIFY_REFUSED(explain({file, "filter"}), 4, file + ": no permission to read it");
}

void tst_ToolExplainConfigurationUse::fullOutputIsAFailure()
{
    QProcess shell;
    shell.start("/bin/sh", {"-c", "exec \"$0\" explain --config \"$1\" \"$2\" >/dev/full",
                            TESSEL_TOOL, m_device->path(), filterUrl});
    QVERIFY(shell.waitForFinished(60000));

    QCOMPARE(shell.exitCode(), 9);
    QCOMPARE(QString::fromUtf8(shell.readAllStandardError()),
             QString("tessel: standard output: No space left on device\n"));
}

void tst_ToolExplainConfigurationUse::closedPipeIsNoFailure()
{
    QCOMPARE(exitCodeWithoutReader({"explain", "--config", m_device->path(), filterUrl}), 0);
}

void tst_ToolExplainConfigurationUse::explainLeadsToTheConfiguration_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QStringList>("urls");
    QTest::addColumn<QString>("reason");
    QTest::addColumn<int>("exitCode");
    const QString folder = QStringLiteral(".");
    QTest::newRow("value") << folder << QStringList(filterUrl)
                           << QStringLiteral("no element at '%1'").arg(filterUrl) << 3;
    QTest::newRow("behind a process value")
        << folder << QStringList{"inputs/channel1/value", filterUrl}
        << QStringLiteral("no element at '%1'").arg(filterUrl) << 3;
    QTest::newRow("pattern") << folder << QStringList("inputs/*/filter")
                             << QStringLiteral("no element at 'inputs/*/filter'") << 3;
    QTest::newRow("cell") << folder << QStringList("inputs/calibration/table#0,0")
                          << QStringLiteral("no element at 'inputs/calibration/table#0,0'") << 3;
    QTest::newRow("file") << QStringLiteral("inputs/channel1.config.json") << QStringList("filter")
                          << QStringLiteral("no process description; its name must end in "
                                            ".process.json")
                          << 9;
}

void tst_ToolExplainConfigurationUse::explainLeadsToTheConfiguration()
{
    QFETCH(QString, path);
    QFETCH(QStringList, urls);
    QFETCH(QString, reason);
    QFETCH(int, exitCode);
    const QString file = path == QLatin1String(".") ? m_device->path() : m_device->path(path);

    const ToolResult result = runTool(QStringList{"explain", file} + urls);

    QVERIFY2(result.error.startsWith(QString("tessel: %1: %2").arg(file, reason)),
             qPrintable(result.error));
    // In front of what resembles it, if there is something.
    QVERIFY2(result.error.startsWith(
                 QString("tessel: %1: %2; it is a configuration value, which 'tessel explain "
                         "--config' explains")
                     .arg(file, reason)),
             qPrintable(result.error));
    QCOMPARE(result.exitCode, exitCode);
    QVERIFY(explain(QStringList(file) + urls.mid(urls.size() - 1)).error.isEmpty());
}

void tst_ToolExplainConfigurationUse::whatIsNowhereLeadsNowhere()
{
    VERIFY_REFUSED(
        runTool({"explain", m_device->path(), "inputs/channel1/fliter"}), 3,
        m_device->path()
            + ": no element at 'inputs/channel1/fliter' (did you mean 'inputs/channel1/value'?)");
    // A node that both have.
    VERIFY_REFUSED(runTool({"explain", m_device->path(), "inputs/channel1", "inputs/channl1"}), 3,
                   m_device->path() + ": no element at 'inputs/channl1'");
}

QTEST_GUILESS_MAIN(tst_ToolExplainConfigurationUse)
#include "tst_ToolExplainConfigurationUse.moc"
