#include "PseudoTerminal.h"
#include "ToolFolder.h"
#include "ToolProcess.h"
#include "WatchedPlant.h"
#include "support/LogCapture.h"
#include "support/SegmentFile.h"

#include <QtTest>

#include <memory>

namespace {

/// A description with the key of the plant and another size of its buffer.
QString otherDescription(const WatchedPlant &plant)
{
    QFile file(plant.file);
    if (!file.open(QIODevice::ReadOnly)) {
        return {};
    }
    QJsonObject root = QJsonDocument::fromJson(file.readAll()).object();
    const QString size = QStringLiteral("sizeOfSharedMemory");
    root.insert(size, root.value(size).toInt() + 100);
    QFile other(QFileInfo(plant.file).path() + QStringLiteral("/other.process.json"));
    const QByteArray text = QJsonDocument(root).toJson();
    return other.open(QIODevice::WriteOnly) && other.write(text) == text.size() ? other.fileName()
                                                                                : QString();
}

/// Types the call at a terminal. Whether it ends with that code, and leaves the terminal as it was with these words.
bool endsOnTerminal(const QStringList &arguments, int exitCode, const QString &words)
{
    TmuxTerminal terminal(250, 24);
    if (!terminal.isReady()) {
        return false;
    }
    terminal.run(QStringLiteral("'%1' watch --tui '%2'; echo ended $?")
                     .arg(QStringLiteral(TESSEL_TOOL), arguments.join(QStringLiteral("' '"))));
    const bool isSo = terminal.waitFor(QStringLiteral("\nended %1\n").arg(exitCode))
                      && terminal.screen().contains(words)
                      && terminal.flags() == QLatin1String("0 1");
    if (!isSo) {
        qWarning("%s", qPrintable(terminal.screen()));
    }
    return isSo;
}

} // namespace

/// What `tessel watch --tui` refuses, and how it ends then.
class tst_ToolWatchScreenUse : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void missingRegionLeavesTheTerminal();
    void regionThatCannotBeMappedLeavesTheTerminal();
    void descriptionThatMayNotBeReadLeavesTheTerminal();
    void otherLayoutLeavesTheTerminal();
    void brokenDescriptionLeavesTheTerminal();
    void slotAtFaultLeavesTheTerminal();
    void typosLeaveTheTerminal_data();
    void typosLeaveTheTerminal();
    void wrongUse_data();
    void wrongUse();
    void wrongUseIsToldFirst();
    void unfitTerminalIsRefused_data();
    void unfitTerminalIsRefused();

private:
    std::unique_ptr<LogCapture> m_log;

private Q_SLOTS:
    void init() { m_log = std::make_unique<LogCapture>(); }
};

void tst_ToolWatchScreenUse::missingRegionLeavesTheTerminal()
{
    WatchedPlant plant;
    plant.close();
    TmuxTerminal terminal(200, 24);
    QVERIFY(terminal.isReady());

    terminal.run(screenCommand(plant));

    QVERIFY(terminal.waitFor(QStringLiteral("ended 3")));
    QVERIFY(terminal.screen().contains(QStringLiteral(": no region '%1'").arg(plant.key())));
    QCOMPARE(terminal.flags(), QStringLiteral("0 1"));
}

void tst_ToolWatchScreenUse::regionThatCannotBeMappedLeavesTheTerminal()
{
    WatchedPlant plant;
    plant.close();
    const SegmentFile segment(plant.key() + QStringLiteral("SharedMemory"));
    QFile empty(segment.path());
    QVERIFY(empty.open(QIODevice::WriteOnly));

    QVERIFY(endsOnTerminal(
        {plant.file}, 4,
        QStringLiteral(": cannot attach to region '%1': Invalid argument").arg(plant.key())));
}

void tst_ToolWatchScreenUse::descriptionThatMayNotBeReadLeavesTheTerminal()
{
    if (!makePermissionsCount()) {
        QSKIP("The system does not take root's permissions away.");
    }
    const WatchedPlant plant;
    const NarrowPermissions narrow(plant.file, {});

    QVERIFY(endsOnTerminal({plant.file}, 4, QStringLiteral(": no permission to read it")));
}

void tst_ToolWatchScreenUse::otherLayoutLeavesTheTerminal()
{
    const WatchedPlant plant;

    QVERIFY(endsOnTerminal({otherDescription(plant)}, 8,
                           QStringLiteral("; its creator uses another description")));
}

void tst_ToolWatchScreenUse::brokenDescriptionLeavesTheTerminal()
{
    const ToolDescription description;
    const QString file = description.write(QStringLiteral("plant.process.json"), "{");

    QVERIFY(endsOnTerminal({file}, 9, QStringLiteral(": cannot be parsed: line 1, column ")));
}

void tst_ToolWatchScreenUse::slotAtFaultLeavesTheTerminal()
{
    ToolDescription description;
    description.add(QStringLiteral("lost"), QStringLiteral("double"),
                    ToolDescription::Metadata::ErrorState, 8,
                    {{QStringLiteral("offsetSharedMemory"), 4096}});
    const QString file = description.write();
    const HeldRegion region(file);

    QVERIFY(endsOnTerminal({file, QStringLiteral("lost")}, 9,
                           QStringLiteral(": 'lost' has no usable slot: ")));
}

void tst_ToolWatchScreenUse::typosLeaveTheTerminal_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("words");
    const QString plant = QStringLiteral("FILE");
    QTest::newRow("option") << QStringList{plant, QStringLiteral("--intervall=5")} << 2
                            << QStringLiteral("unknown option '--intervall' (did you mean "
                                              "'--interval'?)");
    QTest::newRow("interval") << QStringList{plant, QStringLiteral("--interval=soon")} << 2
                              << QStringLiteral("--interval takes a whole number from 1 to "
                                                "3600000, not 'soon'");
    QTest::newRow("URL") << QStringList{plant, QStringLiteral("pump/sped")} << 3
                         << QStringLiteral("no element at 'pump/sped' (did you mean "
                                           "'pump/speed'?)");
    QTest::newRow("file") << QStringList(QStringLiteral("/plnt.process.json")) << 3
                          << QStringLiteral("tessel: /plnt.process.json: no such file");
}

void tst_ToolWatchScreenUse::typosLeaveTheTerminal()
{
    QFETCH(QStringList, arguments);
    QFETCH(int, exitCode);
    QFETCH(QString, words);
    const WatchedPlant plant;

    QVERIFY(endsOnTerminal(arguments.replaceInStrings(QStringLiteral("FILE"), plant.file), exitCode,
                           words));
}

void tst_ToolWatchScreenUse::wrongUse_data()
{
    QTest::addColumn<QString>("option");
    QTest::addColumn<QString>("error");
    QTest::newRow("no terminal") << QString()
                                 << QStringLiteral(
                                        "--tui needs a terminal as its input and output");
    QTest::newRow("count") << QStringLiteral("--count=3")
                           << QStringLiteral("--tui does not go with --count");
    QTest::newRow("on change") << QStringLiteral("--on-change")
                               << QStringLiteral("--tui does not go with --on-change");
    QTest::newRow("json") << QStringLiteral("--json")
                          << QStringLiteral("--tui does not go with --json");
    QTest::newRow("terse") << QStringLiteral("-t")
                           << QStringLiteral("--tui does not go with --terse");
    QTest::newRow("typo") << QStringLiteral("--tiu")
                          << QStringLiteral("unknown option '--tiu' (did you mean '--tui'?)");
}

void tst_ToolWatchScreenUse::wrongUse()
{
    QFETCH(QString, option);
    QFETCH(QString, error);
    const WatchedPlant plant;
    QStringList arguments{QStringLiteral("watch"), QStringLiteral("--tui"), plant.file};
    if (!option.isEmpty()) {
        arguments.insert(1, option);
    }

    const ToolResult result = runTool(arguments);

    QCOMPARE(result.error,
             QStringLiteral("tessel: watch: %1; see 'tessel watch --help'\n").arg(error));
    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, 2);
}

void tst_ToolWatchScreenUse::wrongUseIsToldFirst()
{
    const WatchedPlant plant;
    const QStringList begin{QStringLiteral("watch"), QStringLiteral("--tui")};
    const QString missing = QStringLiteral("nowhere/plant.process.json");

    // Beside a region that does not fit, a file that is not there, and no terminal.
    const ToolResult layout = runTool(begin + QStringList(otherDescription(plant)));
    const ToolResult file = runTool(begin + QStringList(missing));
    const ToolResult interval = runTool(begin
                                        + QStringList{QStringLiteral("--interval=soon"), missing});

    const QString help = QStringLiteral("; see 'tessel watch --help'\n");
    const QString terminal = QStringLiteral("tessel: watch: --tui needs a terminal as its input "
                                            "and output")
                             + help;
    QCOMPARE(layout.error, terminal);
    QCOMPARE(layout.exitCode, 2);
    QCOMPARE(file.error, terminal);
    QCOMPARE(file.exitCode, 2);
    QCOMPARE(interval.error,
             QStringLiteral("tessel: watch: --interval takes a whole number from 1 to 3600000, not "
                            "'soon'")
                 + help);
    QCOMPARE(interval.exitCode, 2);
}

void tst_ToolWatchScreenUse::unfitTerminalIsRefused_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<QString>("error");
    QTest::newRow("dumb") << QStringLiteral("dumb")
                          << QStringLiteral("needs a terminal that can move its cursor, not "
                                            "'dumb' of TERM");
    QTest::newRow("unknown") << QStringLiteral("teletype-of-1920")
                             << QStringLiteral("does not know the terminal 'teletype-of-1920' of "
                                               "TERM");
    QTest::newRow("none") << QString() << QStringLiteral("does not know the terminal '' of TERM");
}

void tst_ToolWatchScreenUse::unfitTerminalIsRefused()
{
    QFETCH(QString, type);
    QFETCH(QString, error);
    const WatchedPlant plant;

    PseudoTerminal terminal({QStringLiteral("watch"), QStringLiteral("--tui"), plant.file}, 24, 80,
                            {QStringLiteral("TERM=") + type});

    QCOMPARE(terminal.finish(), 2);
    QCOMPARE(QString::fromUtf8(terminal.shown()),
             QStringLiteral("tessel: watch: --tui %1; see 'tessel watch --help'\r\n").arg(error));
}

QTEST_GUILESS_MAIN(tst_ToolWatchScreenUse)
#include "tst_ToolWatchScreenUse.moc"
