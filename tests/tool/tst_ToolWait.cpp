#include "Companion/PingPongBufferHandler.h"
#include "HeldRegion.h"
#include "ProcessData/Linux/SharedMemory.h"
#include "ToolProcess.h"
#include "support/LogCapture.h"
#include "support/LookingReader.h"
#include "support/SegmentFile.h"

#include <csignal>

#include <sys/stat.h>

using Metadata = ToolDescription::Metadata;

namespace {

QString oneNumber(ToolDescription &description)
{
    description.add(QStringLiteral("n/a"), QStringLiteral("int32"), Metadata::ErrorState, 4);
    return description.write();
}

/// `tessel wait --timeout S FILE`
ToolResult waitFor(const QString &file, int seconds)
{
    return runTool(
        {QStringLiteral("wait"), QStringLiteral("--timeout"), QString::number(seconds), file});
}

QString otherFormatRefusal(const QString &file, const ToolDescription &description)
{
    return QStringLiteral("tessel: %1: cannot attach to region '%2': it has another version of the "
                          "memory format; run all programs with one version of the library\n")
        .arg(file, description.key());
}

} // namespace

/// `tessel wait`: until there is something to read.
class tst_ToolWait : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void publishedRegionEndsItAtOnce_data();
    void publishedRegionEndsItAtOnce();
    void creatorThatComesLaterEndsIt();
    void missingRegionTakesTheWholeTime();
    void howFarItCameIsToldAsJson();
    void regionThatIsJustBeingMadeIsNotThereYet();
    void regionWithoutASetIsWaitedFor();
    void regionWithoutASetIsSleptOn();
    void replacedRegionIsNotWaitedForAnyLonger();
    void otherLayoutIsRefused();
    void otherSizeIsRefused();
    void otherFormatIsRefusedAtOnce_data();
    void otherFormatIsRefusedAtOnce();
    void descriptionWithoutMemoryIsRefused();
    void keyThatNoMemoryCanHaveIsRefusedAtOnce();
    void whatCanBeNoRegionIsRefusedAtOnce_data();
    void whatCanBeNoRegionIsRefusedAtOnce();
    void folderIsWaitedForAsWell();
};

void tst_ToolWait::publishedRegionEndsItAtOnce_data()
{
    QTest::addColumn<bool>("doubleBuffer");
    QTest::newRow("double buffer") << true;
    QTest::newRow("single buffer") << false;
}

void tst_ToolWait::publishedRegionEndsItAtOnce()
{
    QFETCH(bool, doubleBuffer);
    ToolDescription description;
    description.setRoot(QStringLiteral("doubleBuffer"), doubleBuffer);
    const QString file = oneNumber(description);
    const LogCapture log;
    const HeldRegion region(file);

    const ToolResult result = waitFor(file, 0);

    QCOMPARE(result.error, QString());
    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolWait::creatorThatComesLaterEndsIt()
{
    ToolDescription description;
    const QString file = oneNumber(description);
    ToolProcess wait({QStringLiteral("wait"), file});
    ToolProcess hold({QStringLiteral("hold"), file});
    QVERIFY(hold.nextLine().startsWith(QStringLiteral("holding")));

    const ToolResult result = wait.finish();

    QCOMPARE(result.error, QString());
    QCOMPARE(result.exitCode, 0);
    hold.signal(SIGTERM);
    QCOMPARE(hold.finish().exitCode, 0);
}

void tst_ToolWait::missingRegionTakesTheWholeTime()
{
    ToolDescription description;
    const QString file = oneNumber(description);
    QElapsedTimer timer;
    timer.start();

    const ToolResult result = waitFor(file, 1);

    QVERIFY(timer.elapsed() >= 1000);
    QCOMPARE(result.exitCode, 6);
    QCOMPARE(result.output, QString());
    QCOMPARE(
        result.error,
        QStringLiteral("tessel: %1: no region '%2' within 1 s\n").arg(file, description.key()));
}

void tst_ToolWait::regionThatIsJustBeingMadeIsNotThereYet()
{
    ToolDescription description;
    const QString file = oneNumber(description);
    const SegmentFile segment(description.key() + QStringLiteral("SharedMemory"));
    QVERIFY(segment.make(QByteArray()));

    const ToolResult result = waitFor(file, 0);

    QCOMPARE(result.exitCode, 6);
    QCOMPARE(
        result.error,
        QStringLiteral("tessel: %1: no region '%2' within 0 s\n").arg(file, description.key()));
}

void tst_ToolWait::regionWithoutASetIsWaitedFor()
{
    ToolDescription description;
    const QString file = oneNumber(description);
    const LogCapture log;
    HeldRegion region(file);
    SharedMemory memory;
    memory.setKey(description.key() + QStringLiteral("SharedMemory"));
    QVERIFY(memory.attach(SharedMemory::ReadWrite));
    static_cast<PingPongBufferHandler::ManagementBuffer *>(memory.data())->swapCount = 0;

    const ToolResult result = waitFor(file, 0);

    QCOMPARE(result.exitCode, 6);
    QCOMPARE(result.error,
             QStringLiteral("tessel: %1: nothing was published in region '%2' within 0 s\n")
                 .arg(file, description.key()));
    const ToolResult json = runTool(
        {QStringLiteral("wait"), QStringLiteral("--timeout=0"), QStringLiteral("--json"), file});
    QCOMPARE(json.output,
             QStringLiteral("{\"key\": \"%1\", \"region\": \"silent\"}\n").arg(description.key()));
    QCOMPARE(json.error, result.error);
    QCOMPARE(json.exitCode, 6);
    ToolProcess wait({QStringLiteral("wait"), file});
    QVERIFY(region.publish(QStringLiteral("n/a"), validValue(1)));
    QCOMPARE(wait.finish().exitCode, 0);
}

void tst_ToolWait::regionWithoutASetIsSleptOn()
{
    ToolDescription description;
    const QString file = oneNumber(description);
    const LogCapture log;
    HeldRegion region(file);
    SharedMemory memory;
    memory.setKey(description.key() + QStringLiteral("SharedMemory"));
    QVERIFY(memory.attach(SharedMemory::ReadWrite));
    auto &block = *static_cast<PingPongBufferHandler::ManagementBuffer *>(memory.data());
    block.swapCount = 0;

    ToolProcess wait(
        {QStringLiteral("wait"), QStringLiteral("--timeout"), QStringLiteral("60"), file});
    QVERIFY(LookingReader::waitUntilSeen(description.key()));
    QVERIFY(region.publish(QStringLiteral("n/a"), validValue(1)));

    const ToolResult result = wait.finish();
    QCOMPARE(result.error, QString());
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolWait::replacedRegionIsNotWaitedForAnyLonger()
{
    ToolDescription description;
    const QString file = oneNumber(description);
    const LogCapture log;
    const HeldRegion region(file);
    SharedMemory memory;
    memory.setKey(description.key() + QStringLiteral("SharedMemory"));
    QVERIFY(memory.attach(SharedMemory::ReadWrite));
    auto &block = *static_cast<PingPongBufferHandler::ManagementBuffer *>(memory.data());
    block.swapCount = 0;
    ToolProcess wait(
        {QStringLiteral("wait"), QStringLiteral("--timeout"), QStringLiteral("60"), file});
    QVERIFY(LookingReader::waitUntilSeen(description.key()));

    const HeldRegion later(file);

    const ToolResult result = wait.finish();
    QCOMPARE(result.error, QString());
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolWait::otherLayoutIsRefused()
{
    ToolDescription description;
    const LogCapture log;
    const HeldRegion region(oneNumber(description));
    description.add(QStringLiteral("n/a"), QStringLiteral("uint32"), Metadata::ErrorState, 4,
                    {{QStringLiteral("offsetSharedMemory"), 0}});
    description.setRoot(QStringLiteral("sizeOfSharedMemory"), 8);
    const QString changed = description.write();

    for (const auto &subcommand :
         {QStringLiteral("wait"), QStringLiteral("get"), QStringLiteral("watch")}) {
        const ToolResult result = runTool({subcommand, changed});

        QCOMPARE(result.exitCode, 8);
        QCOMPARE(result.output, QString());
        QCOMPARE(result.error,
                 QStringLiteral("tessel: %1: region '%2' has another layout, from 'n/a' on; its "
                                "creator uses another description\n")
                     .arg(changed, description.key()));
    }
    QVERIFY(runTool({QStringLiteral("info"), changed})
                .output.contains(QStringLiteral("; exists: made from another description\n")));
}

void tst_ToolWait::otherSizeIsRefused()
{
    ToolDescription description;
    const LogCapture log;
    const HeldRegion region(oneNumber(description));
    description.add(QStringLiteral("n/b"), QStringLiteral("int32"), Metadata::ErrorState, 4);
    const QString changed = description.write();

    const ToolResult result = waitFor(changed, 0);

    QCOMPARE(result.exitCode, 8);
    QCOMPARE(result.error,
             QStringLiteral("tessel: %1: region '%2' has 528 bytes where the description asks for "
                            "544; its creator uses another description\n")
                 .arg(changed, description.key()));
}

void tst_ToolWait::otherFormatIsRefusedAtOnce_data()
{
    QTest::addColumn<int>("timeout");
    QTest::addColumn<bool>("isOtherSize");

    QTest::newRow("wait") << 30 << false;
    QTest::newRow("look") << 0 << false;
    QTest::newRow("another size") << 30 << true;
}

/// Its leaves may lie elsewhere for that reason alone.
void tst_ToolWait::otherFormatIsRefusedAtOnce()
{
    QFETCH(int, timeout);
    QFETCH(bool, isOtherSize);
    ToolDescription description;
    QString file = oneNumber(description);
    const LogCapture log;
    const HeldRegion region(file);
    SharedMemory memory;
    memory.setKey(description.key() + QStringLiteral("SharedMemory"));
    QVERIFY(memory.attach(SharedMemory::ReadWrite));
    static_cast<PingPongBufferHandler::ManagementBuffer *>(memory.data())->format += 1;
    if (isOtherSize) {
        description.add(QStringLiteral("n/b"), QStringLiteral("int32"), Metadata::ErrorState, 4);
        file = description.write();
    }

    const ToolResult result = waitFor(file, timeout);

    QCOMPARE(result.error, otherFormatRefusal(file, description));
    QCOMPARE(result.exitCode, 4);
    QCOMPARE(result.output, QString());
    if (isOtherSize) {
        const ToolResult value = runTool({QStringLiteral("get"), file});
        QCOMPARE(value.error, otherFormatRefusal(file, description));
        QCOMPARE(value.exitCode, 4);
    }
}

void tst_ToolWait::descriptionWithoutMemoryIsRefused()
{
    ToolDescription description;
    oneNumber(description);
    description.setRoot(QStringLiteral("sizeOfSharedMemory"), 0);
    const QString file = description.write();

    const ToolResult result = waitFor(file, 0);

    QCOMPARE(result.exitCode, 9);
    QCOMPARE(result.error, QStringLiteral("tessel: %1: describes no memory; its top level needs "
                                          "'sizeOfSharedMemory'\n")
                               .arg(file));
}

/// Nobody will ever create such a region.
void tst_ToolWait::keyThatNoMemoryCanHaveIsRefusedAtOnce()
{
    ToolDescription description;
    description.setRoot(QStringLiteral("keyProcessDataMemory"), QStringLiteral("plant/tank"));
    const QString file = oneNumber(description);

    for (const auto &subcommand :
         {QStringLiteral("wait"), QStringLiteral("get"), QStringLiteral("watch")}) {
        const QStringList timeout = subcommand == QLatin1String("wait")
                                        ? QStringList{QStringLiteral("--timeout=60")}
                                        : QStringList();

        const ToolResult result = runTool(QStringList{subcommand} + timeout + QStringList{file});

        QCOMPARE(result.exitCode, 4);
        QCOMPARE(result.output, QString());
        QCOMPARE(result.error, QStringLiteral("tessel: %1: cannot attach to region 'plant/tank': "
                                              "Invalid argument\n")
                                   .arg(file));
    }
}

void tst_ToolWait::whatCanBeNoRegionIsRefusedAtOnce_data()
{
    QTest::addColumn<bool>("isFolder");
    QTest::newRow("pipe") << false;
    QTest::newRow("folder") << true;
}

void tst_ToolWait::whatCanBeNoRegionIsRefusedAtOnce()
{
    QFETCH(bool, isFolder);
    ToolDescription description;
    const QString file = oneNumber(description);
    const SegmentFile segment(description.key() + QStringLiteral("SharedMemory"));
    const QByteArray path = segment.path().toLocal8Bit();
    QCOMPARE(isFolder ? mkdir(path.constData(), 0777) : mkfifo(path.constData(), 0666), 0);

    QVector<ToolResult> results;
    for (const auto &arguments :
         {QStringList{QStringLiteral("wait"), QStringLiteral("--timeout=60")},
          QStringList{QStringLiteral("get")}}) {
        results.append(runTool(arguments + QStringList{file}));
    }
    rmdir(path.constData()); // a pipe goes with the segment

    for (const auto &result : results) {
        QCOMPARE(result.exitCode, 4);
        QCOMPARE(result.output, QString());
        QCOMPARE(result.error,
                 QStringLiteral("tessel: %1: cannot attach to region '%2': Invalid argument\n")
                     .arg(file, description.key()));
    }
}

void tst_ToolWait::folderIsWaitedForAsWell()
{
    ToolDescription description;
    const QString folder = QFileInfo(oneNumber(description)).absolutePath();
    ToolProcess hold({QStringLiteral("hold"), folder});
    QVERIFY(hold.nextLine().startsWith(QStringLiteral("holding")));

    const ToolResult result = waitFor(folder, 0);

    hold.signal(SIGTERM);
    QCOMPARE(hold.finish().exitCode, 0);
    QCOMPARE(result.error, QString());
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolWait::howFarItCameIsToldAsJson()
{
    ToolDescription description;
    const QString file = oneNumber(description);
    const QStringList look{QStringLiteral("wait"), QStringLiteral("--timeout=0"),
                           QStringLiteral("--json"), file};
    const QString object = QStringLiteral("{\"key\": \"%1\", \"region\": \"%2\"}\n");
    const LogCapture log;

    const ToolResult missing = runTool(look);
    QCOMPARE(missing.output, object.arg(description.key(), QStringLiteral("missing")));
    QCOMPARE(
        missing.error,
        QStringLiteral("tessel: %1: no region '%2' within 0 s\n").arg(file, description.key()));
    QCOMPARE(missing.exitCode, 6);

    const HeldRegion region(file);
    const ToolResult published = runTool(look);
    QCOMPARE(published.output, object.arg(description.key(), QStringLiteral("published")));
    QCOMPARE(published.error, QString());
    QCOMPARE(published.exitCode, 0);
}

QTEST_GUILESS_MAIN(tst_ToolWait)
#include "tst_ToolWait.moc"
