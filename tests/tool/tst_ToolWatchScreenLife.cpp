#include "ToolProcess.h"
#include "WatchedPlant.h"
#include "support/LogCapture.h"

#include <QtTest>

#include <csignal>
#include <memory>

/// How `tessel watch --tui` begins and ends, and what it says when its region does.
class tst_ToolWatchScreenLife : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void everyEndLeavesTheTerminalAsItWas_data();
    void everyEndLeavesTheTerminalAsItWas();
    void stopAndContinueKeepTerminalAndScreen();
    void closedTerminalEndsIt();
    void regionThatGoesIsToldAndFollowedWhenItReturns();
    void regionThatIsReplacedIsFollowed();
    void silentPublisherIsTold();
    void otherLayoutIsToldUntilItFits();

private:
    std::unique_ptr<LogCapture> m_log;

private Q_SLOTS:
    void init() { m_log = std::make_unique<LogCapture>(); }
};

void tst_ToolWatchScreenLife::everyEndLeavesTheTerminalAsItWas_data()
{
    QTest::addColumn<QString>("keys");
    QTest::addColumn<QString>("signal");
    QTest::newRow("q") << QStringLiteral("q") << QString();
    QTest::newRow("Ctrl-C") << QStringLiteral("C-c") << QString();
    QTest::newRow("Ctrl-\\") << QStringLiteral("C-\\") << QString();
    QTest::newRow("SIGINT") << QString() << QStringLiteral("INT");
    QTest::newRow("SIGTERM") << QString() << QStringLiteral("TERM");
    QTest::newRow("SIGHUP") << QString() << QStringLiteral("HUP");
    QTest::newRow("SIGQUIT") << QString() << QStringLiteral("QUIT");
}

void tst_ToolWatchScreenLife::everyEndLeavesTheTerminalAsItWas()
{
    QFETCH(QString, keys);
    QFETCH(QString, signal);
    const WatchedPlant plant;
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
    QVERIFY(terminal.waitFor(QStringLiteral("? help  q end")));
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

void tst_ToolWatchScreenLife::stopAndContinueKeepTerminalAndScreen()
{
    WatchedPlant plant;
    TmuxTerminal terminal(80, 24);
    QVERIFY(terminal.isReady());
    // Only a shell of jobs takes the terminal back.
    terminal.run(
        QStringLiteral("'%1' watch --tui '%2'").arg(QStringLiteral(TESSEL_TOOL), plant.file));
    QVERIFY(terminal.waitFor(QStringLiteral("? help  q end")));

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

void tst_ToolWatchScreenLife::closedTerminalEndsIt()
{
    const WatchedPlant plant;
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

void tst_ToolWatchScreenLife::regionThatGoesIsToldAndFollowedWhenItReturns()
{
    WatchedPlant plant;
    TmuxTerminal terminal(80, 24);
    QVERIFY(terminal.isReady());
    QVERIFY(plant.publish(41));
    terminal.run(screenCommand(plant));
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

void tst_ToolWatchScreenLife::regionThatIsReplacedIsFollowed()
{
    WatchedPlant plant;
    TmuxTerminal terminal(80, 24);
    QVERIFY(terminal.isReady());
    terminal.run(screenCommand(plant));
    QVERIFY(terminal.waitFor(QStringLiteral("? help  q end")));

    HeldRegion later(plant.file);
    QVERIFY(later.publish(QStringLiteral("pump/speed"), validValue(4711)));

    QVERIFY(terminal.waitFor(QStringLiteral(" 4711 rpm")));
    QVERIFY(terminal.waitFor(QStringLiteral("● live")));
}

void tst_ToolWatchScreenLife::silentPublisherIsTold()
{
    WatchedPlant plant;
    TmuxTerminal terminal(80, 24);
    QVERIFY(terminal.isReady());
    terminal.run(screenCommand(plant));
    QVERIFY(terminal.waitFor(QStringLiteral("? help  q end")));
    for (const int speed : {11, 12, 13}) {
        QVERIFY(plant.publish(speed));
        QVERIFY(terminal.waitFor(QStringLiteral(" %1 rpm").arg(speed)));
    }

    QVERIFY(terminal.waitFor(QStringLiteral("✖ publisher silent for ")));
    QVERIFY(terminal.waitFor(QStringLiteral(", usually every ")));
    QVERIFY(terminal.waitUntil([&plant](const QString &screen) {
        return screen.contains(QStringLiteral("● live")) || !plant.publish(14);
    }));
    QVERIFY(terminal.screen().contains(QStringLiteral(" 14 rpm")));
}

void tst_ToolWatchScreenLife::otherLayoutIsToldUntilItFits()
{
    WatchedPlant plant;
    TmuxTerminal terminal(160, 24);
    QVERIFY(terminal.isReady());
    terminal.run(screenCommand(plant));
    QVERIFY(terminal.waitFor(QStringLiteral("? help  q end")));
    plant.close();
    QVERIFY(terminal.waitFor(QStringLiteral("the region has gone")));

    {
        QFile file(plant.file);
        QVERIFY(file.open(QIODevice::ReadOnly));
        QJsonObject root = QJsonDocument::fromJson(file.readAll()).object();
        const QString size = QStringLiteral("sizeOfSharedMemory");
        root.insert(size, root.value(size).toInt() + 100);
        const QString other = QFileInfo(plant.file).path() + QStringLiteral("/other.process.json");
        QFile written(other);
        QVERIFY(written.open(QIODevice::WriteOnly));
        written.write(QJsonDocument(root).toJson());
        written.close();
        const HeldRegion wrong(other);
        QVERIFY(wrong.isValid());
        QVERIFY(terminal.waitFor(QStringLiteral(" bytes where the description asks for ")));
    }
    plant.open();

    QVERIFY(terminal.waitFor(QStringLiteral("● live")));
}

QTEST_GUILESS_MAIN(tst_ToolWatchScreenLife)
#include "tst_ToolWatchScreenLife.moc"
