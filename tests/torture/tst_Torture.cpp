#include "support/SegmentFile.h"
#include "support/SemaphoreSet.h"
#include "torture/TortureRun.h"

#include <QRegularExpression>
#include <QtTest>

#include <csignal>
#include <map>
#include <memory>

namespace {

/// One that nobody has fetched yet counts as ended.
bool isAlive(const QByteArray &pid)
{
    QFile status(QStringLiteral("/proc/%1/stat").arg(QString::fromLatin1(pid)));
    return status.open(QIODevice::ReadOnly) && !status.readAll().contains(") Z");
}

bool isAnyAlive(const QList<QByteArray> &pids)
{
    return std::any_of(pids.cbegin(), pids.cend(), isAlive);
}

} // namespace

class tst_Torture : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void nothingIsFound_data();
    void nothingIsFound();
    void nobodyIsKilledWhereThatIsAsked();
    void everyPlantedFaultIsFound_data();
    void everyPlantedFaultIsFound();
    void aSignalEndsItCleanly_data();
    void aSignalEndsItCleanly();
    void noProcessOutlivesAKilledDriver();
    void wrongArgumentsAreRefused_data();
    void wrongArgumentsAreRefused();

private:
    /// Those that have to wait for long bounds wait while the others run.
    std::map<QByteArray, std::unique_ptr<Run>> m_slowRuns;
};

void tst_Torture::initTestCase()
{
    m_slowRuns["hang"] = std::make_unique<Run>(
        arguments("--seconds 300 --seed 1 --processes 5 --waiters 0 --plant hang"));
    m_slowRuns["stubborn"] = std::make_unique<Run>(
        arguments("--seconds 1 --seed 1 --processes 5 --waiters 0 --plant stubborn"));
}

void tst_Torture::nothingIsFound_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<bool>("hasWaiters");

    QTest::newRow("double buffer") << arguments("--seconds 4") << true;
    QTest::newRow("single buffer") << arguments("--seconds 3 --single") << false;
    QTest::newRow("two processes") << arguments("--seconds 1 --processes 2 --waiters 0") << false;
    QTest::newRow("one publisher, many waiters")
        << arguments("--seconds 2 --processes 2 --waiters 4") << true;
}

void tst_Torture::nothingIsFound()
{
    QFETCH(QStringList, arguments);
    QFETCH(bool, hasWaiters);

    Run run(arguments);

    const int exitCode = run.wait();
    QVERIFY2(exitCode == 0, qPrintable(run.output()));
    QVERIFY(run.output().endsWith(QLatin1String("nothing found\n")));
    const QRegularExpression waiting(
        QStringLiteral("\n  sets awaited ([1-9]\\d*), sleeps ([1-9]\\d*), of them run out beside a "
                       "new set \\d+, waiters at most [01]\\.\\d+ s late\n"
                       "  sets awaited through a descriptor ([1-9]\\d*), beside its resting "
                       "thread ([1-9]\\d*)\n"));
    QVERIFY2(waiting.match(run.output()).hasMatch() == hasWaiters, qPrintable(run.output()));
    const QRegularExpression figures(
        QStringLiteral(": ([1-9]\\d*) kills, ([1-9]\\d*) stops, ([1-9]\\d*) restarts, "
                       "([1-9]\\d*) sets written"));
    QVERIFY2(figures.match(run.output()).hasMatch(), qPrintable(run.output()));
}

void tst_Torture::nobodyIsKilledWhereThatIsAsked()
{
    Run run(arguments("--seconds 2 --no-kills"));

    const int exitCode = run.wait();
    QVERIFY2(exitCode == 0, qPrintable(run.output()));
    QVERIFY(run.output().endsWith(QLatin1String("nothing found\n")));
    const QRegularExpression figures(
        QStringLiteral(": 0 kills, ([1-9]\\d*) stops, ([1-9]\\d*) restarts, "
                       "([1-9]\\d*) sets written"));
    QVERIFY2(figures.match(run.output()).hasMatch(), qPrintable(run.output()));
}

void tst_Torture::everyPlantedFaultIsFound_data()
{
    QTest::addColumn<int>("seconds");
    QTest::addColumn<int>("waiters");
    QTest::addColumn<QString>("message");

    const auto row = [](const char *plant, int seconds, const char *message, int waiters = 0) {
        QTest::newRow(plant) << seconds << waiters << QString::fromLatin1(message);
    };
    // Each ends when its fault is found, which a busy machine may be long about.
    constexpr int enough = 300;
    row("mixed", enough, "FAILED: mixed set: ");
    row("backward", enough, "FAILED: back in time: ");
    row("nobody", enough, "FAILED: nobody wrote ");
    row("wait", enough, "FAILED: wait without a reason: ");
    row("beyond", enough, "FAILED: wait beyond the bound: ");
    row("starved", enough, "FAILED: starved: 5 attempts for one set");
    row("refused", enough, "FAILED: refused without a reason: ");
    row("detached", enough, "FAILED: attaching fails although the region is whole");
    row("signal", enough, "FAILED: crash: died by signal 9, which nobody sent");
    row("exit", enough, "FAILED: crash: ended unasked with exit code 0");
    row("segment", 1, "FAILED: left behind: /dev/shm/tesselTorture");
    row("semaphores", 1, "FAILED: left behind: a set of semaphores with key ");
    row("hang", enough, "FAILED: hangs: a call has not come back for 9");
    row("stubborn", 1, "FAILED: does not end although it was asked to 10");
    row("unwoken", enough, "FAILED: a wake-up is lost: a sleep behind swap ", 2);
    row("belated", enough, "FAILED: a wake-up is lost: of ", 2);
    row("unarmed", enough, "FAILED: a wake-up is lost: a sleep behind swap ", 1);
    row("late", enough, "FAILED: late: a waiter came ", 2);
}

void tst_Torture::everyPlantedFaultIsFound()
{
    QFETCH(int, seconds);
    QFETCH(int, waiters);
    QFETCH(QString, message);

    const QByteArray plant = QTest::currentDataTag();
    const QString common = QStringLiteral("--seconds %1 --seed 1 --processes 5 --waiters %2")
                               .arg(seconds)
                               .arg(waiters);
    std::unique_ptr<Run> run = std::move(m_slowRuns[plant]);
    if (!run) {
        run = std::make_unique<Run>(
            common.split(' ') + QStringList{QStringLiteral("--plant"), QString::fromLatin1(plant)});
    }
    const QString key = run->key();
    const SegmentFile segment(key + QLatin1String("SharedMemory"));
    const SemaphoreSet semaphores(key + QLatin1String("Semaphore"));

    QCOMPARE(run->wait(), 1);
    QVERIFY2(run->output().contains(message), qPrintable(run->output()));
    QVERIFY(run->output().contains(QStringLiteral("repeat: script/torture ") + common));
    QVERIFY(!segment.exists());
    QVERIFY(!semaphores.exists());
}

void tst_Torture::aSignalEndsItCleanly_data()
{
    QTest::addColumn<int>("number");

    QTest::newRow("interrupt, as by Ctrl-C") << SIGINT;
    QTest::newRow("terminate") << SIGTERM;
}

void tst_Torture::aSignalEndsItCleanly()
{
    QFETCH(int, number);
    Run run(arguments("--seconds 100"));
    const QString key = run.key();
    const SegmentFile segment(key + QLatin1String("SharedMemory"));
    const SemaphoreSet semaphores(key + QLatin1String("Semaphore"));
    QTRY_VERIFY_WITH_TIMEOUT(segment.exists(), Run::sm_bound);
    const QList<QByteArray> children = run.children();
    QVERIFY(!children.isEmpty());

    run.send(number);

    const int exitCode = run.wait();
    QVERIFY2(exitCode == 128 + number, qPrintable(run.output()));
    QVERIFY(!isAnyAlive(children));
    QVERIFY(!segment.exists());
    QVERIFY(!semaphores.exists());
}

void tst_Torture::noProcessOutlivesAKilledDriver()
{
    Run run(arguments("--seconds 100"));
    const QString key = run.key();
    // These remove what such an end leaves.
    const SegmentFile segment(key + QLatin1String("SharedMemory"));
    const SemaphoreSet semaphores(key + QLatin1String("Semaphore"));
    QTRY_VERIFY_WITH_TIMEOUT(segment.exists(), Run::sm_bound);
    const QList<QByteArray> children = run.children();
    QVERIFY(isAnyAlive(children));

    run.send(SIGKILL);

    QCOMPARE(run.wait(), -1);
    QTRY_VERIFY_WITH_TIMEOUT(!isAnyAlive(children), Run::sm_bound);
}

void tst_Torture::wrongArgumentsAreRefused_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("message");

    const auto row = [](const char *text, const char *message) {
        QTest::newRow(text) << arguments(
            text) << QStringLiteral("torture: %1; see --help\n").arg(QLatin1String(message));
    };
    row("--fast", "there is no option '--fast'");
    row("--plant nothing", "there is no option '--plant'");
    row("--seconds", "--seconds does not take ''");
    row("--seconds 0", "--seconds does not take '0'");
    row("--minutes -1", "--minutes does not take '-1'");
    row("--seed x", "--seed does not take 'x'");
    row("--processes 1", "--processes does not take '1'");
    row("--regions 1", "--regions does not take '1'");
    row("--regions 101", "--regions does not take '101'");
    row("--processes 9", "--processes does not take '9'");
    row("--waiters 5", "--waiters does not take '5'");
    row("--waiters -1", "--waiters does not take '-1'");
}

void tst_Torture::wrongArgumentsAreRefused()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, message);

    Run run(arguments);

    QCOMPARE(run.wait(), 2);
    QCOMPARE(run.output(), message);
}

QTEST_GUILESS_MAIN(tst_Torture)

#include "tst_Torture.moc"
