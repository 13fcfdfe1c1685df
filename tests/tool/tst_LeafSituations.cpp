#include "DoctoredPlant.h"
#include "support/ChildProcess.h"
#include "support/LogCapture.h"

#include <QtTest>

using namespace ProcessDataDefinitions;
using Metadata = ToolDescription::Metadata;

namespace {

const QString url = QStringLiteral("pump/pressure");

/// A process that attaches, publishes a value, and tells by its exit code whether that was taken.
ChildProcess::Body publishing(const QString &file, const QString &leaf, const ProcessValue &value)
{
    return [=](const ChildSide &) {
        const LogCapture log;
        ProcessDataManager manager;
        const auto root = manager.createProcessDataFromFile(
            file, ProcessDataManager::InitTypeSharedMemoryAttach);
        CHILD_VERIFY(root);
        const bool isTaken = root->getLeafProcessDataValue(leaf)->setValue(value);
        CHILD_VERIFY(!isTaken || manager.swapReadAndWriteBuffer());
        return isTaken ? 0 : 1;
    };
}

/// What a person sees first.
QStringList firstLines(const QStringList &arguments)
{
    constexpr int count = 3;
    return runTool(arguments).output.split(QLatin1Char('\n')).mid(0, count);
}

QStringList explained(const QString &file, const QString &leaf = url)
{
    return firstLines({QStringLiteral("explain"), file, leaf});
}

} // namespace

/// What goes wrong with one leaf at a device, played by real processes: the first three lines name the cause.
class tst_LeafSituations : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void stateIsLostForWantOfRoom();
    void stateThatWillBeLostIsFoundBefore();
    void othersWriteAReadOnlyLeaf();
    void readOnlyLeafOfALivelyCreatorIsWell();
    void leafIsNeverWritten();
    void twoLeavesLieOnOneByte();
    void twoLeavesOnOneByteAreFoundBefore();
};

void tst_LeafSituations::stateIsLostForWantOfRoom()
{
    DoctoredPlant plant;
    plant.description().add(url, QStringLiteral("double"), Metadata::None, 8);
    plant.description().write();
    RunningTool hold(RunningTool::hold(plant.file));
    QVERIFY(hold.isReady());
    ChildProcess sensor(
        publishing(plant.file, url, ProcessValue(PROCESS_VALUE_ERROR_TYPE_SENSOR_BREAKAGE)));
    QCOMPARE(sensor.waitForExit(), 0);

    QCOMPARE(explained(plant.file),
             (QStringList{QStringLiteral("pump/pressure: nan, valid"),
                          QStringLiteral("! reads as a valid NaN and means 'sensor-breakage': a "
                                         "double without metadata"),
                          QStringLiteral("  cannot carry an error state")}));
    QCOMPARE(hold.end(), 0);
}

void tst_LeafSituations::stateThatWillBeLostIsFoundBefore()
{
    DoctoredPlant plant;
    plant.description().add(url, QStringLiteral("double"), Metadata::None, 8);
    plant.description().write();

    const QString line = firstLines({QStringLiteral("validate"), plant.file}).constFirst();

    QVERIFY2(
        line.endsWith(QStringLiteral(": warning no-error-state pump/pressure: a slot of double "
                                     "without metadata carries no error state")),
        qPrintable(line));
}

void tst_LeafSituations::othersWriteAReadOnlyLeaf()
{
    DoctoredPlant plant;
    plant.description().add(url, QStringLiteral("int32"), Metadata::ErrorState, 4,
                            {{QStringLiteral("readOnly"), true}});
    plant.description().write();
    RunningTool hold(RunningTool::hold(plant.file));
    QVERIFY(hold.isReady());
    ChildProcess writer(publishing(plant.file, url, validValue(5)));
    QCOMPARE(writer.waitForExit(), 1);

    QCOMPARE(
        explained(plant.file),
        (QStringList{QStringLiteral("pump/pressure: no value, no-input"),
                     QStringLiteral("! read-only: its creator alone writes it, and what others "
                                    "write is refused"),
                     QStringLiteral("! never written since the creation, or nothing but "
                                    "no-input was")}));
    QCOMPARE(hold.end(), 0);
}

void tst_LeafSituations::readOnlyLeafOfALivelyCreatorIsWell()
{
    DoctoredPlant plant;
    plant.description().add(url, QStringLiteral("int32"), Metadata::ErrorState, 4,
                            {{QStringLiteral("readOnly"), true}});
    plant.description().write();
    const LogCapture log;
    HeldRegion creator(plant.file);
    QVERIFY(creator.publish(url, validValue(4)));
    QVERIFY(creator.publish(url, validValue(5)));

    const QStringList lines = explained(plant.file);

    QCOMPARE(lines.join(QLatin1Char('\n')),
             QStringLiteral("pump/pressure: 5, valid\nnothing is suspicious\n"));
}

void tst_LeafSituations::leafIsNeverWritten()
{
    DoctoredPlant plant;
    plant.description().add(url, QStringLiteral("int32"), Metadata::ErrorState, 4);
    plant.description().write();
    RunningTool hold(RunningTool::hold(plant.file));
    QVERIFY(hold.isReady());
    ChildProcess publisher(publishing(plant.file, plant.url, validValue(5)));
    QCOMPARE(publisher.waitForExit(), 0);

    QCOMPARE(explained(plant.file).mid(0, 2),
             (QStringList{QStringLiteral("pump/pressure: no value, no-input"),
                          QStringLiteral("! never written since the creation, or nothing but "
                                         "no-input was")}));
    QCOMPARE(explained(plant.file, plant.url).constFirst(), QStringLiteral("pump/speed: 5, valid"));
    QCOMPARE(hold.end(), 0);
}

void tst_LeafSituations::twoLeavesLieOnOneByte()
{
    DoctoredPlant plant;
    plant.description().add(url, QStringLiteral("int32"), Metadata::None, 4,
                            {{QStringLiteral("offsetSharedMemory"), 2}});
    plant.description().write();
    RunningTool hold(RunningTool::hold(plant.file));
    QVERIFY(hold.isReady());
    ChildProcess publisher(publishing(plant.file, url, validValue(-1)));
    QCOMPARE(publisher.waitForExit(), 0);

    for (const auto &[leaf, other] : {std::pair(url, plant.url), std::pair(plant.url, url)}) {
        QCOMPARE(
            explained(plant.file, leaf)[1],
            QStringLiteral("! shares byte 2 with '%1': to write one changes the other").arg(other));
    }
    QCOMPARE(hold.end(), 0);
}

void tst_LeafSituations::twoLeavesOnOneByteAreFoundBefore()
{
    DoctoredPlant plant;
    plant.description().add(url, QStringLiteral("int32"), Metadata::ErrorState, 4,
                            {{QStringLiteral("offsetSharedMemory"), 2}});
    plant.description().write();

    const QString line = firstLines({QStringLiteral("validate"), plant.file}).constFirst();

    QVERIFY2(line.contains(QStringLiteral(": error slots-overlap pump/")), qPrintable(line));
}

QTEST_GUILESS_MAIN(tst_LeafSituations)
#include "tst_LeafSituations.moc"
