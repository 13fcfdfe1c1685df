#include "ToolDescription.h"
#include "ToolProcess.h"
#include "support/SegmentFile.h"
#include "support/SemaphoreSet.h"

#include <QtTest>

#include <csignal>

using Metadata = ToolDescription::Metadata;

namespace {

QString readyLine(const ToolDescription &description, const QString &rest)
{
    return QStringLiteral("holding %1: %2; SIGINT or SIGTERM ends it\n")
        .arg(description.key(), rest);
}

} // namespace

/// The region while `tessel hold` runs, and what is left when it has ended.
class tst_ToolHold : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void regionIsThereUntilTheSignal_data();
    void regionIsThereUntilTheSignal();
    void keyIsSaidAsItStands();
    void severalLeavesAreCounted();
    void readyRegionIsToldAsJson();
    void dryRunCreatesNothing();
    void dryRunSaysWhatWouldBeReplaced();
    void dryRunRefusesAPrefixForAFile();
    void singleBufferIsHeldAsWell();
    void everyValueStartsWithoutInput();
    void killedHolderIsReplacedAndNothingIsLeft();
    void descriptionWithoutMemoryIsRefused();
    void descriptionWithoutKeyIsRefused();
    void keyThatNamesNoObjectIsRefused();
    void semaphoresOfSomebodyElseAreAFailure_data();
    void semaphoresOfSomebodyElseAreAFailure();
    void leafThatCannotBeUsedIsNoted();
    void closedOutputEndsItWithoutAWord();
};

void tst_ToolHold::regionIsThereUntilTheSignal_data()
{
    QTest::addColumn<int>("signal");
    QTest::newRow("SIGINT") << SIGINT;
    QTest::newRow("SIGTERM") << SIGTERM;
    QTest::newRow("SIGHUP") << SIGHUP;
}

void tst_ToolHold::regionIsThereUntilTheSignal()
{
    QFETCH(int, signal);
    ToolDescription description;
    description.add(QStringLiteral("a"), QStringLiteral("int32"), Metadata::ErrorState, 4);

    ToolProcess hold({QStringLiteral("hold"), description.write()});
    QCOMPARE(hold.nextLine(),
             readyLine(description, QStringLiteral("1 leaf, double buffer, 528 bytes")));
    QVERIFY(description.hasSegment());
    QVERIFY(description.hasSemaphores());

    hold.signal(signal);
    const ToolResult result = hold.finish();
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.output, QString());
    QCOMPARE(result.error, QString());
    QVERIFY(!description.hasSegment());
    QVERIFY(!description.hasSemaphores());
}

void tst_ToolHold::keyIsSaidAsItStands()
{
    ToolDescription description;
    description.add(QStringLiteral("a"), QStringLiteral("int32"), Metadata::ErrorState, 4);
    const QString key = description.key() + QStringLiteral("%1%2%4x");
    description.setRoot(QStringLiteral("keyProcessDataMemory"), key);

    ToolProcess hold({QStringLiteral("hold"), description.write()});
    const QString line = hold.nextLine();
    hold.signal(SIGTERM);

    QCOMPARE(hold.finish().exitCode, 0);
    QCOMPARE(line, QStringLiteral("holding ") + key
                       + QStringLiteral(": 1 leaf, double buffer, 528 bytes; SIGINT or SIGTERM "
                                        "ends it\n"));
}

void tst_ToolHold::singleBufferIsHeldAsWell()
{
    ToolDescription description;
    description.add(QStringLiteral("a"), QStringLiteral("int32"), Metadata::ErrorState, 4);
    description.setRoot(QStringLiteral("doubleBuffer"), false);

    ToolProcess hold({QStringLiteral("hold"), description.write()});

    QCOMPARE(hold.nextLine(),
             readyLine(description, QStringLiteral("1 leaf, single buffer, 8 bytes")));
    hold.signal(SIGTERM);
    QCOMPARE(hold.finish().exitCode, 0);
    QVERIFY(!description.hasSegment());
    QVERIFY(!description.hasSemaphores());
}

void tst_ToolHold::everyValueStartsWithoutInput()
{
    ToolDescription description;
    description.add(QStringLiteral("a"), QStringLiteral("int32"), Metadata::ErrorState, 4);
    description.add(QStringLiteral("b"), QStringLiteral("float"), Metadata::None, 4);
    const QString file = description.write();
    ToolProcess hold({QStringLiteral("hold"), file});
    hold.nextLine();

    const ToolResult get = runTool({QStringLiteral("get"), file});

    QCOMPARE(get.output, QStringLiteral("URL  VALUE  UNIT  STATE\n"
                                        "a                 no-input\n"
                                        "b                 no-input\n"));
    hold.signal(SIGTERM);
    QCOMPARE(hold.finish().exitCode, 0);
}

void tst_ToolHold::killedHolderIsReplacedAndNothingIsLeft()
{
    ToolDescription description;
    description.add(QStringLiteral("a"), QStringLiteral("int32"), Metadata::ErrorState, 4);
    const QString file = description.write();
    ToolProcess killed({QStringLiteral("hold"), file});
    killed.nextLine();
    QCOMPARE(
        runTool({QStringLiteral("set"), file, QStringLiteral("a"), QStringLiteral("7")}).exitCode,
        0);
    killed.signal(SIGKILL);
    QCOMPARE(killed.finish().exitCode, -1);
    QVERIFY(description.hasSegment());

    ToolProcess hold({QStringLiteral("hold"), file});
    QVERIFY(hold.nextLine().startsWith(QStringLiteral("holding")));
    QVERIFY(runTool({QStringLiteral("get"), file}).output.contains(QStringLiteral("no-input")));
    hold.signal(SIGTERM);
    const ToolResult result = hold.finish();

    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.error,
             QStringLiteral("tessel: note: replaced the region '%1' that was there; who was "
                            "attached to it must attach again\n")
                 .arg(description.key()));
    QVERIFY(!description.hasSegment());
    QVERIFY(!description.hasSemaphores());
}

void tst_ToolHold::descriptionWithoutMemoryIsRefused()
{
    ToolDescription description;
    description.add(QStringLiteral("a"), QStringLiteral("int32"), Metadata::ErrorState, 4);
    description.setRoot(QStringLiteral("sizeOfSharedMemory"), 0);
    const QString file = description.write();

    const ToolResult result = runTool({QStringLiteral("hold"), file});

    QCOMPARE(result.exitCode, 9);
    QCOMPARE(result.output, QString());
    QCOMPARE(result.error, QStringLiteral("tessel: %1: describes no memory; its top level needs "
                                          "'sizeOfSharedMemory'\n")
                               .arg(file));
}

void tst_ToolHold::descriptionWithoutKeyIsRefused()
{
    ToolDescription description;
    description.add(QStringLiteral("a"), QStringLiteral("int32"), Metadata::ErrorState, 4);
    description.setRoot(QStringLiteral("keyProcessDataMemory"), QString());
    const QString file = description.write();

    const ToolResult result = runTool({QStringLiteral("hold"), file});

    QCOMPARE(result.exitCode, 9);
    QCOMPARE(result.error, QStringLiteral("tessel: %1: has no memory key; its top level needs "
                                          "'keyProcessDataMemory'\n")
                               .arg(file));
}

void tst_ToolHold::keyThatNamesNoObjectIsRefused()
{
    ToolDescription description;
    description.add(QStringLiteral("a"), QStringLiteral("int32"), Metadata::ErrorState, 4);
    description.setRoot(QStringLiteral("keyProcessDataMemory"), QStringLiteral("no/such/folder/"));
    const QString file = description.write();

    const ToolResult result = runTool({QStringLiteral("hold"), file});

    QCOMPARE(result.exitCode, 4);
    QCOMPARE(result.output, QString());
    QVERIFY(result.error.startsWith(
        QStringLiteral("tessel: %1: no region for key 'no/such/folder/': Error on creating shared "
                       "memory:")
            .arg(file)));
    QCOMPARE(result.error.count(QLatin1Char('\n')), 1);

    const ToolResult trial = runTool({QStringLiteral("hold"), QStringLiteral("--dry-run"), file});
    QCOMPARE(trial.exitCode, 4);
    QCOMPARE(trial.output, QString());
    QVERIFY2(trial.error.startsWith(
                 QStringLiteral("tessel: %1: no region for key 'no/such/folder/': ").arg(file)),
             qPrintable(trial.error));
}

void tst_ToolHold::semaphoresOfSomebodyElseAreAFailure_data()
{
    QTest::addColumn<bool>("isDouble");
    QTest::newRow("double buffer") << true;
    QTest::newRow("single buffer") << false;
}

void tst_ToolHold::semaphoresOfSomebodyElseAreAFailure()
{
    QFETCH(bool, isDouble);
    ToolDescription description;
    description.add(QStringLiteral("a"), QStringLiteral("int32"), Metadata::ErrorState, 4);
    description.setRoot(QStringLiteral("doubleBuffer"), isDouble);
    const QString file = description.write();
    const SegmentFile segment(description.key() + QStringLiteral("SharedMemory"));
    const SemaphoreSet semaphores(description.key() + QStringLiteral("Semaphore"));
    const int others = semaphores.make({1, 2, 3});
    QVERIFY(others >= 0);

    ToolProcess hold({QStringLiteral("hold"), file});
    // A hold that went on would say here that it holds.
    QCOMPARE(hold.nextLine(), QString());
    const ToolResult result = hold.finish();

    QCOMPARE(result.exitCode, 4);
    const QString reason = QStringLiteral("tessel: %1: no lock on region '%2': The semaphores of "
                                          "\"%2Semaphore\" can't be used: System V key ")
                               .arg(file, description.key());
    QVERIFY2(result.error.startsWith(reason), qPrintable(result.error));
    QCOMPARE(result.error.count(QLatin1Char('\n')), 1);
    QVERIFY(!segment.exists());
    QCOMPARE(semaphores.id(), others);
    QCOMPARE(semaphores.value(2), 3);
}

void tst_ToolHold::leafThatCannotBeUsedIsNoted()
{
    ToolDescription description;
    description.add(QStringLiteral("a"), QStringLiteral("int32"), Metadata::ErrorState, 4);
    description.add(QStringLiteral("b"), QStringLiteral("double"), Metadata::ErrorState, 4);
    const QString file = description.write();

    ToolProcess hold({QStringLiteral("hold"), file});
    QVERIFY(hold.nextLine().startsWith(QStringLiteral("holding")));
    hold.signal(SIGTERM);
    const ToolResult result = hold.finish();

    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.error, QStringLiteral("tessel: note: 'b' of %1 is left out: Wrong size of data "
                                          "type in Json: 4 != 8 \"double\"\n")
                               .arg(file));
}

void tst_ToolHold::closedOutputEndsItWithoutAWord()
{
    ToolDescription description;
    description.add(QStringLiteral("a"), QStringLiteral("int32"), Metadata::ErrorState, 4);

    QCOMPARE(exitCodeWithoutReader({QStringLiteral("hold"), description.write()}), 0);

    QVERIFY(!description.hasSegment());
    QVERIFY(!description.hasSemaphores());
}

void tst_ToolHold::severalLeavesAreCounted()
{
    ToolDescription description;
    description.add(QStringLiteral("a"), QStringLiteral("int32"), Metadata::ErrorState, 4);
    description.add(QStringLiteral("b"), QStringLiteral("int32"), Metadata::ErrorState, 4);
    ToolProcess hold({QStringLiteral("hold"), description.write()});

    QCOMPARE(hold.nextLine(),
             readyLine(description, QStringLiteral("2 leaves, double buffer, 544 bytes")));
    hold.signal(SIGTERM);
    QCOMPARE(hold.finish().exitCode, 0);
}

void tst_ToolHold::readyRegionIsToldAsJson()
{
    ToolDescription description;
    description.add(QStringLiteral("a"), QStringLiteral("int32"), Metadata::ErrorState, 4);
    const QString file = description.write();
    const QString line = QStringLiteral("{\"key\": \"%1\", \"leaves\": 1, \"doubleBuffer\": true, "
                                        "\"regionSize\": 528, \"replaced\": %2, \"created\": "
                                        "true}\n");
    ToolProcess first({QStringLiteral("hold"), QStringLiteral("--json"), file});
    QCOMPARE(first.nextLine(), line.arg(description.key(), QStringLiteral("false")));
    QVERIFY(description.hasSegment());
    first.signal(SIGKILL);
    first.finish();
    ToolProcess second({QStringLiteral("hold"), QStringLiteral("--json"), file});

    QCOMPARE(second.nextLine(), line.arg(description.key(), QStringLiteral("true")));
    second.signal(SIGTERM);
    QCOMPARE(second.finish().exitCode, 0);
}

void tst_ToolHold::dryRunCreatesNothing()
{
    ToolDescription description;
    description.add(QStringLiteral("a"), QStringLiteral("int32"), Metadata::ErrorState, 4);
    const QString file = description.write();

    const ToolResult plain = runTool({QStringLiteral("hold"), QStringLiteral("--dry-run"), file});
    const ToolResult json = runTool(
        {QStringLiteral("hold"), QStringLiteral("--dry-run"), QStringLiteral("--json"), file});

    QCOMPARE(plain.error, QString());
    QCOMPARE(
        plain.output,
        QStringLiteral("would hold %1: 1 leaf, double buffer, 528 bytes\n").arg(description.key()));
    QCOMPARE(plain.exitCode, 0);
    QCOMPARE(json.output, QStringLiteral("{\"key\": \"%1\", \"leaves\": 1, \"doubleBuffer\": true, "
                                         "\"regionSize\": 528, \"replaced\": false, \"created\": "
                                         "false}\n")
                              .arg(description.key()));
    QVERIFY(!description.hasSegment());
    QVERIFY(!description.hasSemaphores());
}

void tst_ToolHold::dryRunSaysWhatWouldBeReplaced()
{
    ToolDescription description;
    description.add(QStringLiteral("a"), QStringLiteral("int32"), Metadata::ErrorState, 4);
    const QString file = description.write();
    ToolProcess hold({QStringLiteral("hold"), file});
    QVERIFY(!hold.nextLine().isEmpty());

    const ToolResult result = runTool({QStringLiteral("hold"), QStringLiteral("--dry-run"), file});

    QCOMPARE(result.error,
             QStringLiteral("tessel: note: the region '%1' is there and would be replaced\n")
                 .arg(description.key()));
    QCOMPARE(result.exitCode, 0);
    // The one that is held is still the same.
    QCOMPARE(runTool({QStringLiteral("get"), file}).exitCode, 0);
    hold.signal(SIGTERM);
    const ToolResult held = hold.finish();
    QCOMPARE(held.error, QString());
    QCOMPARE(held.exitCode, 0);
}

void tst_ToolHold::dryRunRefusesAPrefixForAFile()
{
    ToolDescription description;
    description.add(QStringLiteral("a"), QStringLiteral("int32"), Metadata::ErrorState, 4);

    const ToolResult result = runTool({QStringLiteral("hold"), QStringLiteral("--dry-run"),
                                       QStringLiteral("--prefix=p"), description.write()});

    QCOMPARE(result.error,
             QStringLiteral("tessel: hold: --prefix goes with a folder, a file has its "
                            "key; see 'tessel hold --help'\n"));
    QCOMPARE(result.exitCode, 2);
}

QTEST_GUILESS_MAIN(tst_ToolHold)
#include "tst_ToolHold.moc"
