#include "HeldRegion.h"
#include "TmuxTerminal.h"
#include "support/LogCapture.h"

#include <QtTest>

#include <csignal>
#include <memory>

namespace {

using Metadata = ToolDescription::Metadata;

constexpr auto breakage = ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_SENSOR_BREAKAGE;

/// A plant of which the test is the publisher.
class Plant
{
public:
    Plant()
    {
        const auto unit = [](const char *text) {
            return QJsonObject{{QStringLiteral("unit"), QString::fromUtf8(text)}};
        };
        m_description.add(QStringLiteral("pump/speed"), QStringLiteral("int32"),
                          Metadata::ErrorState, 4, unit("rpm"));
        m_description.add(QStringLiteral("pump/flow"), QStringLiteral("double"),
                          Metadata::ErrorState, 8, unit("m³/h"));
        m_description.add(QStringLiteral("tank/name"), QStringLiteral("string"),
                          Metadata::ErrorState, 64);
        file = m_description.write();
        open();
    }

    void open()
    {
        m_region = std::make_unique<HeldRegion>(file);
        for (const char *url : {"pump/speed", "pump/flow"}) {
            m_region->write(QLatin1String(url), validValue(1));
        }
        m_region->write(QStringLiteral("tank/name"), validValue(QStringLiteral("east")));
        m_region->manager().swapReadAndWriteBuffer();
    }
    void close() { m_region.reset(); }

    bool publish(int speed)
    {
        return m_region->publish(QStringLiteral("pump/speed"), validValue(speed));
    }
    bool publish(const QString &url, const ProcessValue &value)
    {
        return m_region->publish(url, value);
    }
    QString key() const { return m_description.key(); }

    QString file;

private:
    ToolDescription m_description;
    std::unique_ptr<HeldRegion> m_region;
};

QString commandFor(const Plant &plant, const QString &more = {})
{
    return QStringLiteral("'%1' watch --tui %2 '%3'; echo ended $?")
        .arg(QStringLiteral(TESSEL_TOOL), more, plant.file);
}

/// The number of the row that holds a text; -1 if none does.
int rowOf(const QString &screen, const QString &text)
{
    const QStringList rows = screen.split(QLatin1Char('\n'));
    for (int i = 0; i < rows.size(); ++i) {
        if (rows[i].contains(text)) {
            return i;
        }
    }
    return -1;
}

QString rowWith(const QString &screen, const QString &text)
{
    return screen.split(QLatin1Char('\n')).value(rowOf(screen, text));
}

} // namespace

/// `tessel watch --tui`, with keys that are typed and a screen that is read back.
class tst_ToolWatchScreen : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void treeShowsValuesUnitsAndStates();
    void valuesMove();
    void stateIsToldByColourSymbolAndWord();
    void filterLeavesWhatMatches();
    void onlyWhatIsNotValidIsShown();
    void pinnedValueStandsOnTop();
    void foldedNodeHidesItsLeaves();
    void trendHasAGapForAnErrorState();
    void helpPageTellsTheKeys();
    void tinyTerminalIsFollowed();
    void everyEndLeavesTheTerminalAsItWas_data();
    void everyEndLeavesTheTerminalAsItWas();
    void stopAndContinueKeepTerminalAndScreen();
    void closedTerminalEndsIt();
    void regionThatGoesIsToldAndFollowedWhenItReturns();
    void regionThatIsReplacedIsFollowed();
    void silentPublisherIsTold();
    void controlCharactersDisturbNothing();
    void bareLocaleGetsAscii();
    void colourIsLeftOutOnRequest();
    void singleBufferIsReadByItsInterval();

private:
    std::unique_ptr<LogCapture> m_log;

private Q_SLOTS:
    void init() { m_log = std::make_unique<LogCapture>(); }
};

void tst_ToolWatchScreen::treeShowsValuesUnitsAndStates()
{
    const Plant plant;
    TmuxTerminal terminal(80, 24);
    QVERIFY2(terminal.isReady(), "Is there a tmux? script/setup installs it");

    terminal.run(commandFor(plant));

    QVERIFY(terminal.waitFor(QStringLiteral("● live")));
    const QStringList rows = terminal.rows();
    QVERIFY(rows[0].startsWith(plant.key() + QStringLiteral("  set 2  age ")));
    QCOMPARE(rows[1], QStringLiteral("● live"));
    QCOMPARE(rows[2], QStringLiteral("   URL                                       VALUE UNIT     "
                                     "STATE"));
    QCOMPARE(rows[3], QStringLiteral("   ▾ pump"));
    const auto leaf = [](const char *name, const char *value, const char *unit) {
        return QStringLiteral("●    %1%2 %3 valid")
            .arg(QLatin1String(name), -30)
            .arg(QLatin1String(value), 15)
            .arg(QString::fromUtf8(unit), -8);
    };
    QCOMPARE(rows[4], leaf("speed", "1", "rpm"));
    QCOMPARE(rows[5], leaf("flow", "1", "m³/h"));
    QCOMPARE(rows[6], QStringLiteral("   ▾ tank"));
    QCOMPARE(rows[7], leaf("name", "east", ""));
    QVERIFY(rows[23].startsWith(QStringLiteral("? help  q end")));
    QCOMPARE(terminal.flags(), QStringLiteral("1 0"));
}

void tst_ToolWatchScreen::valuesMove()
{
    Plant plant;
    TmuxTerminal terminal(80, 24);
    QVERIFY(terminal.isReady());
    terminal.run(commandFor(plant));
    QVERIFY(terminal.waitFor(QStringLiteral("● live")));

    for (const int speed : {1501, 1502, 1503}) {
        QVERIFY(plant.publish(speed));
        QVERIFY(terminal.waitFor(QStringLiteral(" %1 rpm").arg(speed)));
    }
    QVERIFY(terminal.waitFor(QStringLiteral("  set 5  age ")));
}

void tst_ToolWatchScreen::stateIsToldByColourSymbolAndWord()
{
    Plant plant;
    TmuxTerminal terminal(80, 24);
    QVERIFY(terminal.isReady());
    terminal.run(commandFor(plant));
    QVERIFY(terminal.waitFor(QStringLiteral("● live")));

    QVERIFY(plant.publish(QStringLiteral("pump/speed"), ProcessValue(breakage)));
    QVERIFY(
        plant.publish(QStringLiteral("pump/flow"),
                      ProcessValue(ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_OVERRANGE)));

    QVERIFY(terminal.waitFor(QStringLiteral("overrange")));
    const QString screen = terminal.screen();
    QVERIFY(rowWith(screen, QStringLiteral("sensor-breakage")).startsWith(QStringLiteral("✖ ")));
    QVERIFY(rowWith(screen, QStringLiteral("overrange")).startsWith(QStringLiteral("▲ ")));
    const QString coloured = terminal.colouredScreen();
    QVERIFY(coloured.contains(QRegularExpression(QStringLiteral("\033\\[31m[^\n]*✖"))));
    QVERIFY(coloured.contains(QRegularExpression(QStringLiteral("\033\\[33m[^\n]*▲"))));
}

void tst_ToolWatchScreen::filterLeavesWhatMatches()
{
    const Plant plant;
    TmuxTerminal terminal(80, 24);
    QVERIFY(terminal.isReady());
    terminal.run(commandFor(plant));
    QVERIFY(terminal.waitFor(QStringLiteral("speed")));

    terminal.type(QStringLiteral("/FLOWx"));
    QVERIFY(terminal.waitFor(QStringLiteral("/FLOWx_")));
    QVERIFY(!terminal.screen().contains(QStringLiteral("flow ")));
    terminal.press({QStringLiteral("BSpace"), QStringLiteral("Enter")});

    QVERIFY(terminal.waitFor(QStringLiteral("1 of 3: /FLOW")));
    QVERIFY(terminal.screen().contains(QStringLiteral("flow ")));
    QVERIFY(!terminal.screen().contains(QStringLiteral("speed")));
    terminal.press({QStringLiteral("Escape")});
    QVERIFY(terminal.waitFor(QStringLiteral("speed")));
}

void tst_ToolWatchScreen::onlyWhatIsNotValidIsShown()
{
    Plant plant;
    TmuxTerminal terminal(80, 24);
    QVERIFY(terminal.isReady());
    terminal.run(commandFor(plant));
    QVERIFY(terminal.waitFor(QStringLiteral("speed")));

    terminal.type(QStringLiteral("!"));
    QVERIFY(terminal.waitFor(QStringLiteral("0 of 3: only not valid")));
    QVERIFY(!terminal.screen().contains(QStringLiteral("speed")));

    QVERIFY(plant.publish(QStringLiteral("pump/flow"), ProcessValue(breakage)));
    QVERIFY(terminal.waitFor(QStringLiteral("1 of 3: only not valid")));
    QVERIFY(terminal.screen().contains(QStringLiteral("flow ")));
    QVERIFY(plant.publish(QStringLiteral("pump/flow"), validValue(2.5)));
    QVERIFY(terminal.waitFor(QStringLiteral("0 of 3: only not valid")));
    terminal.type(QStringLiteral("!"));
    QVERIFY(terminal.waitFor(QStringLiteral("speed")));
}

void tst_ToolWatchScreen::pinnedValueStandsOnTop()
{
    const Plant plant;
    TmuxTerminal terminal(80, 24);
    QVERIFY(terminal.isReady());
    terminal.run(commandFor(plant));
    QVERIFY(terminal.waitFor(QStringLiteral("name")));

    terminal.press({QStringLiteral("End"), QStringLiteral("p")});

    QVERIFY(terminal.waitFor(QStringLiteral("●* tank/name")));
    QCOMPARE(rowOf(terminal.screen(), QStringLiteral("tank/name ")), 3);
    terminal.press({QStringLiteral("p")});
    QVERIFY(terminal.waitUntil(
        [](const QString &screen) { return !screen.contains(QStringLiteral("●*")); }));
}

void tst_ToolWatchScreen::foldedNodeHidesItsLeaves()
{
    const Plant plant;
    TmuxTerminal terminal(80, 24);
    QVERIFY(terminal.isReady());
    terminal.run(commandFor(plant));
    QVERIFY(terminal.waitFor(QStringLiteral("speed")));

    terminal.press({QStringLiteral("Home"), QStringLiteral("Enter")});

    QVERIFY(terminal.waitFor(QStringLiteral("▸ pump")));
    QVERIFY(!terminal.screen().contains(QStringLiteral("speed")));
    terminal.press({QStringLiteral("Space")});
    QVERIFY(terminal.waitFor(QStringLiteral("speed")));
}

void tst_ToolWatchScreen::trendHasAGapForAnErrorState()
{
    Plant plant;
    TmuxTerminal terminal(80, 24);
    QVERIFY(terminal.isReady());
    terminal.run(commandFor(plant));
    QVERIFY(terminal.waitFor(QStringLiteral("speed")));
    terminal.press({QStringLiteral("Home"), QStringLiteral("Down")});
    QVERIFY(terminal.waitFor(QStringLiteral("pump/speed, the last 20 s: 1 to 1")));

    QVERIFY(plant.publish(9));
    QVERIFY(terminal.waitFor(QStringLiteral("pump/speed, the last 20 s: 1 to 9")));
    QVERIFY(terminal.waitFor(QStringLiteral("█")));
    QVERIFY(plant.publish(QStringLiteral("pump/speed"), ProcessValue(breakage)));

    QVERIFY(terminal.waitUntil([](const QString &screen) {
        return screen.split(QLatin1Char('\n')).value(22).contains(QLatin1Char('x'));
    }));
}

void tst_ToolWatchScreen::helpPageTellsTheKeys()
{
    const Plant plant;
    TmuxTerminal terminal(80, 24);
    QVERIFY(terminal.isReady());
    terminal.run(commandFor(plant));
    QVERIFY(terminal.waitFor(QStringLiteral("speed")));

    terminal.type(QStringLiteral("?"));

    QVERIFY(terminal.waitFor(QStringLiteral("PgUp, PgDn   a page")));
    QVERIFY(!terminal.screen().contains(QStringLiteral("speed")));
    terminal.type(QStringLiteral("?"));
    QVERIFY(terminal.waitFor(QStringLiteral("speed")));
}

void tst_ToolWatchScreen::tinyTerminalIsFollowed()
{
    const Plant plant;
    TmuxTerminal terminal(80, 24);
    QVERIFY(terminal.isReady());
    terminal.run(commandFor(plant));
    QVERIFY(terminal.waitFor(QStringLiteral("speed")));

    terminal.resize(20, 5);
    QVERIFY(terminal.waitFor(QStringLiteral("●    speed         1")));
    QVERIFY(terminal.rows().last().startsWith(QStringLiteral("? help  q end")));
    for (const auto &size : {qMakePair(2, 2), qMakePair(1, 1), qMakePair(300, 3)}) {
        terminal.resize(size.first, size.second);
        terminal.press({QStringLiteral("Down"), QStringLiteral("?"), QStringLiteral("?")});
    }
    terminal.resize(100, 30);

    QVERIFY(terminal.waitUntil([](const QString &screen) {
        return rowOf(screen, QStringLiteral("? help  q end")) == 29;
    }));
    terminal.type(QStringLiteral("q"));
    QVERIFY(terminal.waitFor(QStringLiteral("ended 0")));
}

void tst_ToolWatchScreen::everyEndLeavesTheTerminalAsItWas_data()
{
    QTest::addColumn<QString>("keys");
    QTest::addColumn<QString>("signal");
    QTest::newRow("q") << QStringLiteral("q") << QString();
    QTest::newRow("Ctrl-C") << QStringLiteral("C-c") << QString();
    QTest::newRow("SIGINT") << QString() << QStringLiteral("INT");
    QTest::newRow("SIGTERM") << QString() << QStringLiteral("TERM");
    QTest::newRow("SIGHUP") << QString() << QStringLiteral("HUP");
}

void tst_ToolWatchScreen::everyEndLeavesTheTerminalAsItWas()
{
    QFETCH(QString, keys);
    QFETCH(QString, signal);
    const Plant plant;
    TmuxTerminal terminal(80, 24);
    QVERIFY(terminal.isReady());
    const QString folder = QFileInfo(plant.file).path();
    const QString modes = QStringLiteral("stty -a > '%1/%2'").arg(folder);
    const QString command = QStringLiteral("%1; sh -c 'echo $$ > %2/pid; exec %3 watch --tui %4'; "
                                           "echo ended $?; %5; echo mo''des")
                                .arg(modes.arg(QStringLiteral("before")), folder,
                                     QStringLiteral(TESSEL_TOOL), plant.file,
                                     modes.arg(QStringLiteral("after")));
    terminal.run(command);
    QVERIFY(terminal.waitFor(QStringLiteral("● live")));
    QCOMPARE(terminal.flags(), QStringLiteral("1 0"));
    const auto contentOf = [&folder](const char *name) {
        QFile file(folder + QLatin1Char('/') + QLatin1String(name));
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    };

    if (keys.isEmpty()) {
        const QByteArray pid = contentOf("pid").trimmed();
        QVERIFY(pid.toInt() > 0);
        QCOMPARE(QProcess::execute(QStringLiteral("kill"),
                                   {QStringLiteral("-s"), signal, QString::fromLatin1(pid)}),
                 0);
    } else {
        terminal.press({keys});
    }

    QVERIFY(terminal.waitFor(QStringLiteral("\nmodes")));
    QVERIFY(terminal.screen().contains(QStringLiteral("ended 0")));
    QVERIFY(!contentOf("before").isEmpty());
    QCOMPARE(contentOf("after"), contentOf("before"));
    QCOMPARE(terminal.flags(), QStringLiteral("0 1"));
    QVERIFY(!terminal.screen().contains(QStringLiteral("● live")));
}

void tst_ToolWatchScreen::stopAndContinueKeepTerminalAndScreen()
{
    Plant plant;
    TmuxTerminal terminal(80, 24);
    QVERIFY(terminal.isReady());
    // Only a shell of jobs takes the terminal back.
    terminal.run(
        QStringLiteral("'%1' watch --tui '%2'").arg(QStringLiteral(TESSEL_TOOL), plant.file));
    QVERIFY(terminal.waitFor(QStringLiteral("● live")));

    terminal.press({QStringLiteral("C-z")});
    QVERIFY(terminal.waitFor(QStringLiteral("Stopped")));
    QCOMPARE(terminal.flags(), QStringLiteral("0 1"));
    QVERIFY(plant.publish(77));
    terminal.run(QStringLiteral("fg"));

    QVERIFY(terminal.waitFor(QStringLiteral(" 77 rpm")));
    QCOMPARE(terminal.flags(), QStringLiteral("1 0"));
    terminal.type(QStringLiteral("?"));
    QVERIFY(terminal.waitFor(QStringLiteral("PgUp, PgDn   a page")));
    terminal.type(QStringLiteral("?q"));
    QVERIFY(terminal.waitUntil([&terminal](const QString & /*screen*/) {
        return terminal.flags() == QLatin1String("0 1");
    }));
}

void tst_ToolWatchScreen::closedTerminalEndsIt()
{
    const Plant plant;
    TmuxTerminal terminal(80, 24);
    QVERIFY(terminal.isReady());
    const QString pidFile = QFileInfo(plant.file).path() + QStringLiteral("/pid");
    terminal.run(QStringLiteral("sh -c 'echo $$ > %1; exec %2 watch --tui %3'")
                     .arg(pidFile, QStringLiteral(TESSEL_TOOL), plant.file));
    QVERIFY(terminal.waitFor(QStringLiteral("● live")));
    QFile file(pidFile);
    QVERIFY(file.open(QIODevice::ReadOnly));
    const pid_t pid = file.readAll().trimmed().toInt();
    QVERIFY(pid > 0);

    terminal.close();

    QTRY_VERIFY_WITH_TIMEOUT(::kill(pid, 0) != 0, 60000);
}

void tst_ToolWatchScreen::regionThatGoesIsToldAndFollowedWhenItReturns()
{
    Plant plant;
    TmuxTerminal terminal(80, 24);
    QVERIFY(terminal.isReady());
    QVERIFY(plant.publish(41));
    terminal.run(commandFor(plant));
    QVERIFY(terminal.waitFor(QStringLiteral(" 41 rpm")));

    plant.close();
    QVERIFY(terminal.waitFor(QStringLiteral("✖ the region has gone, its creator has ended; waiting "
                                            "for it to come back")));
    // The last set stays to be read.
    QVERIFY(terminal.screen().contains(QStringLiteral(" 41 rpm")));
    plant.open();
    QVERIFY(plant.publish(42));

    QVERIFY(terminal.waitFor(QStringLiteral(" 42 rpm")));
    QVERIFY(terminal.waitFor(QStringLiteral("● live")));
}

void tst_ToolWatchScreen::regionThatIsReplacedIsFollowed()
{
    Plant plant;
    TmuxTerminal terminal(80, 24);
    QVERIFY(terminal.isReady());
    terminal.run(commandFor(plant));
    QVERIFY(terminal.waitFor(QStringLiteral("● live")));

    HeldRegion later(plant.file);
    QVERIFY(later.publish(QStringLiteral("pump/speed"), validValue(4711)));

    QVERIFY(terminal.waitFor(QStringLiteral(" 4711 rpm")));
    QVERIFY(terminal.waitFor(QStringLiteral("● live")));
}

void tst_ToolWatchScreen::silentPublisherIsTold()
{
    Plant plant;
    TmuxTerminal terminal(80, 24);
    QVERIFY(terminal.isReady());
    terminal.run(commandFor(plant));
    QVERIFY(terminal.waitFor(QStringLiteral("● live")));
    for (const int speed : {11, 12, 13}) {
        QVERIFY(plant.publish(speed));
        QVERIFY(terminal.waitFor(QStringLiteral(" %1 rpm").arg(speed)));
    }

    QVERIFY(terminal.waitFor(QStringLiteral("✖ publisher silent for ")));
    QVERIFY(terminal.waitFor(QStringLiteral(", usually every ")));
    QVERIFY(plant.publish(14));
    QVERIFY(terminal.waitFor(QStringLiteral("● live")));
}

void tst_ToolWatchScreen::controlCharactersDisturbNothing()
{
    Plant plant;
    TmuxTerminal terminal(80, 24);
    QVERIFY(terminal.isReady());
    terminal.run(commandFor(plant));
    QVERIFY(terminal.waitFor(QStringLiteral("speed")));

    QVERIFY(plant.publish(QStringLiteral("tank/name"),
                          validValue(QStringLiteral("\033[2J\n\u202e漢字"))));

    QVERIFY(terminal.waitFor(QStringLiteral("\\u001b[2J\\n")));
    const QString screen = terminal.screen();
    QVERIFY(screen.contains(QStringLiteral("speed")));
    QVERIFY(rowWith(screen, QStringLiteral("\\u001b[2J")).endsWith(QStringLiteral(" valid")));
}

void tst_ToolWatchScreen::bareLocaleGetsAscii()
{
    Plant plant;
    QVERIFY(plant.publish(QStringLiteral("pump/speed"), ProcessValue(breakage)));
    TmuxTerminal terminal(80, 24, {QStringLiteral("LC_ALL=C")});
    QVERIFY(terminal.isReady());

    terminal.run(commandFor(plant));

    QVERIFY(terminal.waitFor(QStringLiteral("o live")));
    const QString screen = terminal.screen();
    QVERIFY(screen.contains(QStringLiteral("\n   - pump\n")));
    QVERIFY(screen.contains(QStringLiteral("\nX    speed ")));
    QVERIFY(screen.contains(QStringLiteral(" m?/h ")));
    for (const QChar character : screen) {
        QVERIFY(character.unicode() < 128);
    }
}

void tst_ToolWatchScreen::colourIsLeftOutOnRequest()
{
    Plant plant;
    QVERIFY(plant.publish(QStringLiteral("pump/speed"), ProcessValue(breakage)));
    TmuxTerminal terminal(80, 24, {QStringLiteral("NO_COLOR=1")});
    QVERIFY(terminal.isReady());

    terminal.run(commandFor(plant));

    QVERIFY(terminal.waitFor(QStringLiteral("sensor-breakage")));
    QVERIFY(!terminal.colouredScreen().contains(
        QRegularExpression(QStringLiteral("\033\\[[0-9;]*3[0-7]m"))));
}

void tst_ToolWatchScreen::singleBufferIsReadByItsInterval()
{
    ToolDescription description;
    description.add(QStringLiteral("pump/speed"), QStringLiteral("int32"), Metadata::ErrorState, 4);
    description.setRoot(QStringLiteral("doubleBuffer"), false);
    const QString file = description.write();
    HeldRegion region(file);
    QVERIFY(region.write(QStringLiteral("pump/speed"), validValue(5)));
    TmuxTerminal terminal(80, 24);
    QVERIFY(terminal.isReady());
    terminal.run(QStringLiteral("'%1' watch --tui --interval 20 '%2'")
                     .arg(QStringLiteral(TESSEL_TOOL), file));
    QVERIFY(terminal.waitFor(QStringLiteral(" 5 ")));

    QVERIFY(region.write(QStringLiteral("pump/speed"), validValue(66)));

    QVERIFY(terminal.waitFor(QStringLiteral(" 66 ")));
    QVERIFY(!terminal.screen().contains(QStringLiteral(" age ")));
}

QTEST_GUILESS_MAIN(tst_ToolWatchScreen)
#include "tst_ToolWatchScreen.moc"
