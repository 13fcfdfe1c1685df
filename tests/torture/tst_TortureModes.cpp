#include "support/SemaphoreSet.h"
#include "torture/TortureRun.h"

#include <QDir>
#include <QtTest>

namespace {

/// Segments of a run. Those that it makes begin with its key.
QStringList segments(const QString &key)
{
    return QDir(QStringLiteral("/dev/shm")).entryList({key + QLatin1Char('*')}, QDir::Files);
}

/// The semaphores of the regions of a run, whichever mode made them.
bool areSemaphoresLeft(const QString &key)
{
    const QStringList regions{QString(),
                              QStringLiteral("Double"),
                              QStringLiteral("Single"),
                              QStringLiteral("Removed"),
                              QStringLiteral("Region0"),
                              QStringLiteral("Region1"),
                              QStringLiteral("Region9")};
    return std::any_of(regions.cbegin(), regions.cend(), [&key](const QString &region) {
        return SemaphoreSet(key + region + QLatin1String("Semaphore")).exists();
    });
}

void addModes()
{
    QTest::addColumn<QString>("mode");

    for (const char *mode : {"--steps", "--forks", "--early", "--replaced", "--regions 10"}) {
        QTest::newRow(mode) << QString::fromLatin1(mode);
    }
}

} // namespace

class tst_TortureModes : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void nothingIsFound_data() { addModes(); }
    void nothingIsFound();
    void everyPlantedFaultIsFound_data();
    void everyPlantedFaultIsFound();
    void aSignalEndsItCleanly_data() { addModes(); }
    void aSignalEndsItCleanly();
};

void tst_TortureModes::nothingIsFound()
{
    QFETCH(QString, mode);

    Run run(arguments("--seconds 2") + mode.split(' '));
    const QString key = run.key();

    const int exitCode = run.wait();
    QVERIFY2(exitCode == 0, qPrintable(run.output()));
    QVERIFY(run.output().endsWith(QLatin1String("nothing found\n")));
    QCOMPARE(segments(key), QStringList());
    QVERIFY(!areSemaphoresLeft(key));
}

void tst_TortureModes::everyPlantedFaultIsFound_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("message");

    const auto row = [](const char *text, const char *message) {
        QTest::newRow(text) << QString::fromLatin1(text) << QString::fromLatin1(message);
    };
    row("--steps --plant mixed", "FAILED: mixed set: readers see two sets");
    row("--steps --plant halved", "FAILED: half a value: ");
    row("--steps --plant backward", "FAILED: back in time: ");
    row("--steps --plant accepted", "FAILED: mixed set: accepted by a reader that stood still");
    row("--steps --plant unwarned", "FAILED: lost without a warning: ");
    row("--steps --plant locked", "FAILED: locked out: the next writer of a single buffer");
    row("--steps --plant refused", "FAILED: locked out: the next writer after a death");
    row("--steps --plant kept", "FAILED: locked out: the next writer after a death");
    row("--steps --plant twice", "FAILED: locked out: the next writer after a death");
    row("--steps --plant leftover", "FAILED: left over: a lease begins beside the semaphore");
    row("--steps --plant uncleared", "FAILED: left behind: a lease that was taken away");
    row("--steps --plant semaphores", "FAILED: left behind: a set of semaphores");
    row("--regions 10 --plant forgotten", "FAILED: a swap says true although its set was taken");
    row("--regions 10 --plant backward", "FAILED: back in time: a swap brings an old set back");
    row("--regions 10 --plant accepted", "FAILED: mixed set: a torn read is accepted");
    row("--regions 10 --plant semaphores", "FAILED: left behind: a set of semaphores");
    row("--replaced --plant shared", "FAILED: let in: a writer beside a reader");
    row("--replaced --plant locked", "FAILED: locked out: a place is taken although nobody");
    row("--replaced --plant semaphores", "FAILED: left behind: a set of semaphores");
    row("--early --plant shared", "FAILED: let in: a writer beside a reader");
    row("--early --plant locked", "FAILED: locked out: a place is taken although nobody");
    row("--forks --plant hang", "FAILED: hangs: a forked child");
    row("--forks --plant inherited", "FAILED: inherited: a child sees a lock of its parent");
    row("--forks --plant unlinked", "FAILED: unlinked: a child removes the name");
    row("--forks --plant semaphores", "FAILED: left behind: ");
}

void tst_TortureModes::everyPlantedFaultIsFound()
{
    QFETCH(QString, text);
    QFETCH(QString, message);

    // It ends when the fault is found, which a busy machine may be long about.
    Run run(arguments("--seconds 600 --seed 1") + text.split(' '));
    const QString key = run.key();

    QCOMPARE(run.wait(), 1);
    QVERIFY2(run.output().contains(message), qPrintable(run.output()));
    QVERIFY2(run.output().contains(QStringLiteral("repeat: script/torture --seconds 600 --seed 1 ")
                                   + text),
             qPrintable(run.output()));
    QCOMPARE(segments(key), QStringList());
    QVERIFY(!areSemaphoresLeft(key));
}

void tst_TortureModes::aSignalEndsItCleanly()
{
    QFETCH(QString, mode);
    Run run(arguments("--seconds 100") + mode.split(' '));
    const QString key = run.key();
    QTRY_VERIFY_WITH_TIMEOUT(!run.children().isEmpty(), Run::sm_bound);

    run.send(SIGINT);

    const int exitCode = run.wait();
    QVERIFY2(exitCode == 128 + SIGINT, qPrintable(run.output()));
    QCOMPARE(segments(key), QStringList());
    QVERIFY(!areSemaphoresLeft(key));
}

QTEST_GUILESS_MAIN(tst_TortureModes)

#include "tst_TortureModes.moc"
