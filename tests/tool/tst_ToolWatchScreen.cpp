#include "WatchedPlant.h"
#include "support/LogCapture.h"

#include <QtTest>

#include <memory>

namespace {

using Metadata = ToolDescription::Metadata;

constexpr auto breakage = ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_SENSOR_BREAKAGE;

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
    void controlCharactersDisturbNothing();
    void bareLocaleGetsAscii();
    void colourIsLeftOutOnRequest();
    void singleBufferIsReadByItsInterval();
    void manyLeavesAreShownAtOnce();

private:
    std::unique_ptr<LogCapture> m_log;

private Q_SLOTS:
    void init() { m_log = std::make_unique<LogCapture>(); }
};

void tst_ToolWatchScreen::treeShowsValuesUnitsAndStates()
{
    WatchedPlant plant;
    TmuxTerminal terminal(80, 24);
    QVERIFY2(terminal.isReady(), "Is there a tmux? script/setup installs it");

    terminal.run(screenCommand(plant));

    QVERIFY(terminal.waitFor(QStringLiteral("? help  q end")));
    QVERIFY(plant.publish(1));
    QVERIFY(terminal.waitFor(QStringLiteral("\n● live\n")));
    QVERIFY(terminal.waitFor(plant.key() + QStringLiteral("  set 3  age ")));
    const QStringList rows = terminal.rows();
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
    WatchedPlant plant;
    TmuxTerminal terminal(80, 24);
    QVERIFY(terminal.isReady());
    terminal.run(screenCommand(plant));
    QVERIFY(terminal.waitFor(QStringLiteral("? help  q end")));

    for (const int speed : {1501, 1502, 1503}) {
        QVERIFY(plant.publish(speed));
        QVERIFY(terminal.waitFor(QStringLiteral(" %1 rpm").arg(speed)));
    }
    QVERIFY(terminal.waitFor(QStringLiteral("  set 5  age ")));
}

void tst_ToolWatchScreen::stateIsToldByColourSymbolAndWord()
{
    WatchedPlant plant;
    TmuxTerminal terminal(80, 24);
    QVERIFY(terminal.isReady());
    terminal.run(screenCommand(plant));
    QVERIFY(terminal.waitFor(QStringLiteral("? help  q end")));

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
    const WatchedPlant plant;
    TmuxTerminal terminal(80, 24);
    QVERIFY(terminal.isReady());
    terminal.run(screenCommand(plant));
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
    WatchedPlant plant;
    TmuxTerminal terminal(80, 24);
    QVERIFY(terminal.isReady());
    terminal.run(screenCommand(plant));
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
    const WatchedPlant plant;
    TmuxTerminal terminal(80, 24);
    QVERIFY(terminal.isReady());
    terminal.run(screenCommand(plant));
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
    const WatchedPlant plant;
    TmuxTerminal terminal(80, 24);
    QVERIFY(terminal.isReady());
    terminal.run(screenCommand(plant));
    QVERIFY(terminal.waitFor(QStringLiteral("speed")));

    terminal.press({QStringLiteral("Home"), QStringLiteral("Enter")});

    QVERIFY(terminal.waitFor(QStringLiteral("▸ pump")));
    QVERIFY(!terminal.screen().contains(QStringLiteral("speed")));
    terminal.press({QStringLiteral("Space")});
    QVERIFY(terminal.waitFor(QStringLiteral("speed")));
}

void tst_ToolWatchScreen::trendHasAGapForAnErrorState()
{
    WatchedPlant plant;
    TmuxTerminal terminal(80, 24);
    QVERIFY(terminal.isReady());
    terminal.run(screenCommand(plant));
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
    const WatchedPlant plant;
    TmuxTerminal terminal(80, 24);
    QVERIFY(terminal.isReady());
    terminal.run(screenCommand(plant));
    QVERIFY(terminal.waitFor(QStringLiteral("speed")));

    terminal.type(QStringLiteral("?"));

    QVERIFY(terminal.waitFor(QStringLiteral("PgUp, PgDn   a page")));
    QVERIFY(!terminal.screen().contains(QStringLiteral("speed")));
    terminal.type(QStringLiteral("?"));
    QVERIFY(terminal.waitFor(QStringLiteral("speed")));
}

void tst_ToolWatchScreen::tinyTerminalIsFollowed()
{
    const WatchedPlant plant;
    TmuxTerminal terminal(80, 24);
    QVERIFY(terminal.isReady());
    terminal.run(screenCommand(plant));
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

void tst_ToolWatchScreen::controlCharactersDisturbNothing()
{
    WatchedPlant plant;
    TmuxTerminal terminal(80, 24);
    QVERIFY(terminal.isReady());
    terminal.run(screenCommand(plant));
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
    WatchedPlant plant;
    QVERIFY(plant.publish(QStringLiteral("pump/speed"), ProcessValue(breakage)));
    TmuxTerminal terminal(80, 24, {QStringLiteral("LC_ALL=C")});
    QVERIFY(terminal.isReady());

    terminal.run(screenCommand(plant));

    QVERIFY(terminal.waitFor(QStringLiteral("? help  q end")));
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
    WatchedPlant plant;
    QVERIFY(plant.publish(QStringLiteral("pump/speed"), ProcessValue(breakage)));
    TmuxTerminal terminal(80, 24, {QStringLiteral("NO_COLOR=1")});
    QVERIFY(terminal.isReady());

    terminal.run(screenCommand(plant));

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

void tst_ToolWatchScreen::manyLeavesAreShownAtOnce()
{
    ToolDescription description;
    constexpr int count = 10000;
    for (int i = 0; i < count; ++i) {
        description.add(QStringLiteral("node/leaf%1").arg(i), QStringLiteral("int32"),
                        Metadata::ErrorState, 4);
    }
    const QString file = description.write();
    const HeldRegion region(file);
    TmuxTerminal terminal(80, 24);
    QVERIFY(terminal.isReady());
    terminal.run(QStringLiteral("'%1' watch --tui '%2'").arg(QStringLiteral(TESSEL_TOOL), file));
    QVERIFY(terminal.waitFor(QStringLiteral("? help  q end")));

    terminal.press({QStringLiteral("End")});
    QVERIFY(terminal.waitFor(QStringLiteral("leaf9999 ")));
    terminal.type(QStringLiteral("!/leaf77"));

    QVERIFY(terminal.waitFor(QStringLiteral("/leaf77_")));
    QVERIFY(terminal.waitFor(QStringLiteral("leaf7700 ")));
    terminal.press({QStringLiteral("Enter")});
    QVERIFY(terminal.waitFor(QStringLiteral("111 of 10000: /leaf77, only not valid")));
}

QTEST_GUILESS_MAIN(tst_ToolWatchScreen)
#include "tst_ToolWatchScreen.moc"
