#include "Companion/PingPongBufferHandler.h"
#include "DoctoredPlant.h"
#include "ProcessData/Linux/SharedMemory.h"
#include "support/ChildProcess.h"
#include "support/LogCapture.h"

#include <QtTest>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr uid_t somebody = 65534;

/// A process that has attached with @p file, until it is told to end.
ChildProcess::Body attaching(const QString &file)
{
    return [file](const ChildSide &side) {
        ProcessDataManager manager;
        CHILD_VERIFY(manager.createProcessDataFromFile(
            file, ProcessDataManager::InitTypeSharedMemoryAttach));
        side.say();
        side.waitForWord();
        return 0;
    };
}

} // namespace

/// What `tessel doctor` finds of one region.
class tst_ToolDoctor : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void livingRegionIsWell_data();
    void livingRegionIsWell();
    void missingRegionIsAnError();
    void missingRegionThatIsNotAskedForIsNone();
    void regionOfADeadCreatorIsAnError();
    void readerOfARemovedRegionIsNamed();
    void readerOfAReplacedRegionIsNamed();
    void readerOfARemovedRegionIsFoundWithoutItsDescription();
    void otherLayoutIsNamedWithTheFirstLeaf();
    void processWithAnotherLayoutIsNamed();
    void regionOfAnotherFormatIsAnError();
    void memoryThatKeepsOthersOutIsTold();
    void ownersThatCannotRemoveAreTold();
    void memoryOfAnotherProgramIsNotCalledARegion();
    void memoryThatCannotBeOpenedIsNotCalledARegion();
    void keyIsQuotedForTheShell();
    void creatorThatCannotBeLookedForIsUnknown();
};

void tst_ToolDoctor::livingRegionIsWell_data()
{
    QTest::addColumn<bool>("isDouble");
    QTest::addColumn<bool>("isNamed");
    QTest::newRow("double buffer") << true << true;
    QTest::newRow("single buffer") << false << true;
    QTest::newRow("double buffer among all") << true << false;
    QTest::newRow("single buffer among all") << false << false;
}

void tst_ToolDoctor::livingRegionIsWell()
{
    QFETCH(bool, isDouble);
    QFETCH(bool, isNamed);
    DoctoredPlant plant;
    plant.description().setRoot(QStringLiteral("doubleBuffer"), isDouble);
    RunningTool hold(RunningTool::hold(plant.description().write()));
    RunningTool reader(RunningTool::watch(plant.file));
    QVERIFY(hold.isReady() && reader.isReady());

    QCOMPARE(findingsOf(plant.key(), isNamed ? QStringList{plant.file} : QStringList()),
             QStringList());
    QCOMPARE(reader.end(), 0);
    QCOMPARE(hold.end(), 0);
}

void tst_ToolDoctor::missingRegionIsAnError()
{
    const DoctoredPlant plant;

    QCOMPARE(
        findingsOf(plant.key(), {plant.file}),
        QStringList{QStringLiteral("error no-region: there is no region '%1': the process that "
                                   "creates it does not run, or has another description; "
                                   "start its creator")
                        .arg(plant.key())});
}

void tst_ToolDoctor::missingRegionThatIsNotAskedForIsNone()
{
    const DoctoredPlant plant;

    QCOMPARE(findingsOf(plant.key(), {}), QStringList());
}

void tst_ToolDoctor::regionOfADeadCreatorIsAnError()
{
    const DoctoredPlant plant;
    const qint64 creator = plant.leaveRegion();
    QVERIFY(creator > 0);
    const QStringList expected{
        QStringLiteral("error creator-dead %1: the creator, process %1, has ended without removing "
                       "the region; start it again; if it is not needed any more: tessel rm %2")
            .arg(creator)
            .arg(plant.key())};

    QCOMPARE(faultsOf(plant.key(), {plant.file}), expected);
    QCOMPARE(faultsOf(plant.key(), {}), expected);
}

void tst_ToolDoctor::readerOfARemovedRegionIsNamed()
{
    const DoctoredPlant plant;
    RunningTool hold(RunningTool::hold(plant.file));
    RunningTool reader(RunningTool::watch(plant.file));
    QVERIFY(hold.isReady() && reader.isReady());
    QCOMPARE(hold.end(), 0);

    const QStringList found = faultsOf(plant.key(), {plant.file});

    QCOMPARE(found.size(), 2);
    QVERIFY(found[0].startsWith(QStringLiteral("error no-region: ")));
    QCOMPARE(found[1], QStringLiteral(
                           "error removed-region %1: tessel %1 still has a region of this key that "
                           "was removed: nobody else sees it, and no new one is seen by that "
                           "process; end it, and start it behind its creator: kill %1")
                           .arg(reader.pid()));
    QCOMPARE(reader.end(), 0);
}

void tst_ToolDoctor::readerOfAReplacedRegionIsNamed()
{
    const DoctoredPlant plant;
    RunningTool former(RunningTool::hold(plant.file));
    RunningTool reader(RunningTool::watch(plant.file));
    QVERIFY(former.isReady() && reader.isReady());
    former.signal(SIGKILL);
    QCOMPARE(former.finish().exitCode, -1);
    RunningTool later(RunningTool::hold(plant.file));
    QVERIFY(later.isReady());

    for (const QStringList &files : {QStringList{plant.file}, QStringList()}) {
        const QStringList found = faultsOf(plant.key(), files);

        QCOMPARE(found.size(), 1);
        const QRegularExpression expected(
            QStringLiteral("^error former-region %1: tessel %1 still has a former region of this "
                           "key: it sees nothing of this one, until it attaches again; the new "
                           "one was made [0-9.]+ s ago; start it again, so that it attaches anew: "
                           "kill %1$")
                .arg(reader.pid()));
        QVERIFY2(expected.match(found[0]).hasMatch(), qPrintable(found[0]));
    }
    QCOMPARE(later.end(), 0);
    QCOMPARE(reader.end(), 0);
}

void tst_ToolDoctor::readerOfARemovedRegionIsFoundWithoutItsDescription()
{
    const DoctoredPlant plant;
    RunningTool hold(RunningTool::hold(plant.file));
    RunningTool reader(RunningTool::watch(plant.file));
    QVERIFY(hold.isReady() && reader.isReady());
    QCOMPARE(hold.end(), 0);

    const QStringList found = faultsOf(plant.key(), {});

    QCOMPARE(found.size(), 1);
    QVERIFY(found[0].startsWith(QStringLiteral("error removed-region %1: ").arg(reader.pid())));
    QCOMPARE(reader.end(), 0);
}

void tst_ToolDoctor::otherLayoutIsNamedWithTheFirstLeaf()
{
    DoctoredPlant plant;
    RunningTool hold(RunningTool::hold(plant.file));
    QVERIFY(hold.isReady());
    plant.description().add(plant.url, QStringLiteral("uint32"),
                            ToolDescription::Metadata::ErrorState, 4,
                            {{QStringLiteral("offsetSharedMemory"), 0}});
    plant.description().setRoot(QStringLiteral("sizeOfSharedMemory"), 8);
    const QString changed = plant.description().write();

    QCOMPARE(faultsOf(plant.key(), {changed}),
             QStringList{QStringLiteral("error other-layout: the region has another layout, from "
                                        "'pump/speed' on: its creator uses another description; "
                                        "start its creator again with this description, then all "
                                        "others")});
    // Without the description nobody knows.
    QCOMPARE(faultsOf(plant.key(), {}), QStringList());
    QCOMPARE(hold.end(), 0);
}

void tst_ToolDoctor::processWithAnotherLayoutIsNamed()
{
    DoctoredPlant plant;
    RunningTool hold(RunningTool::hold(plant.file));
    QVERIFY(hold.isReady());
    plant.description().add(plant.url, QStringLiteral("uint32"),
                            ToolDescription::Metadata::ErrorState, 4,
                            {{QStringLiteral("offsetSharedMemory"), 0}});
    plant.description().setRoot(QStringLiteral("sizeOfSharedMemory"), 8);
    const LogCapture log;
    ChildProcess child(attaching(plant.description().write()));
    QVERIFY(child.waitUntilReady());

    const QStringList found = faultsOf(plant.key(), {});

    QCOMPARE(found.size(), 1);
    const QRegularExpression expected(QStringLiteral(
        "^error other-layout-attached ([0-9]+): tst_ToolDoctor \\1 has attached with "
        "another description: it reads and writes other bytes; start it again with "
        "the creator's description: kill \\1$"));
    QVERIFY2(expected.match(found[0]).hasMatch(), qPrintable(found[0]));
    child.tell();
    QCOMPARE(child.waitForExit(), 0);
    QCOMPARE(hold.end(), 0);
}

void tst_ToolDoctor::regionOfAnotherFormatIsAnError()
{
    const DoctoredPlant plant;
    QVERIFY(plant.leaveRegion() > 0);
    QVERIFY(plant.semaphores().remove());
    SharedMemory memory;
    memory.setKey(plant.segment().name());
    QVERIFY(memory.attach(SharedMemory::ReadWrite));
    // The version stands in the two lowest bytes.
    ++static_cast<PingPongBufferHandler::ManagementBuffer *>(memory.data())->format;

    for (const QStringList &files : {QStringList{plant.file}, QStringList()}) {
        QCOMPARE(faultsOf(plant.key(), files),
                 QStringList{QStringLiteral("error other-format: the region has another version of "
                                            "the memory format: its creator was built with another "
                                            "version of the library; run all programs with one "
                                            "version of the library")});
    }
}

void tst_ToolDoctor::memoryThatKeepsOthersOutIsTold()
{
    const DoctoredPlant plant;
    RunningTool hold(RunningTool::hold(plant.file));
    QVERIFY(hold.isReady());
    QCOMPARE(::chmod(qPrintable(plant.segment().path()), 0640), 0);

    QCOMPARE(faultsOf(plant.key(), {plant.file}),
             QStringList{QStringLiteral("warning mode: the memory has mode 640 in place of 666: it "
                                        "keeps other users out; chmod 666 %1")
                             .arg(plant.segment().path())});
    QCOMPARE(hold.end(), 0);
}

void tst_ToolDoctor::ownersThatCannotRemoveAreTold()
{
    if (::geteuid() != 0) {
        QSKIP("Only root can give memory to another user");
    }
    const DoctoredPlant plant;
    RunningTool hold(RunningTool::hold(plant.file));
    QVERIFY(hold.isReady());
    QCOMPARE(::chown(qPrintable(plant.segment().path()), somebody, somebody), 0);

    QCOMPARE(faultsOf(plant.key(), {plant.file}),
             QStringList{QStringLiteral("warning owner: the memory belongs to user 65534 and the "
                                        "semaphores to user 0, who alone can remove them: the next "
                                        "creator fails; end its processes, then as root: tessel "
                                        "rm %1")
                             .arg(plant.key())});
    QCOMPARE(hold.end(), 0);
}

void tst_ToolDoctor::memoryOfAnotherProgramIsNotCalledARegion()
{
    const DoctoredPlant plant;
    QVERIFY(plant.segment().make(QByteArray(600, 'x')));
    QCOMPARE(::chmod(qPrintable(plant.segment().path()), 0600), 0);

    QCOMPARE(findingsOf(plant.key(), {}),
             QStringList{QStringLiteral("unknown no-region-for-sure: it has no semaphores and does "
                                        "not say that it is a region, so that it may be the memory "
                                        "of another program; name its description, if there is "
                                        "one: tessel doctor FILE")});
}

void tst_ToolDoctor::memoryThatCannotBeOpenedIsNotCalledARegion()
{
    const DoctoredPlant plant;
    // Nothing that could be a region, for root as well.
    QVERIFY(plant.segment().make(QByteArray()));

    QCOMPARE(findingsOf(plant.key(), {}),
             QStringList{QStringLiteral("unknown no-region-for-sure: it cannot be opened (Invalid "
                                        "argument) and has no semaphores, so that it may be the "
                                        "memory of another program; name its description, if "
                                        "there is one: tessel doctor FILE")});
}

void tst_ToolDoctor::keyIsQuotedForTheShell()
{
    DoctoredPlant plant;
    const QString key = plant.key() + QStringLiteral(" it's");
    const SegmentFile segment(key + QStringLiteral("SharedMemory"));
    const SemaphoreSet semaphores(key + QStringLiteral("Semaphore"));
    plant.description().setRoot(QStringLiteral("keyProcessDataMemory"), key);
    plant.description().write();
    QVERIFY(plant.leaveRegion() > 0);

    const QStringList found = faultsOf(key, {plant.file});

    QCOMPARE(found.size(), 1);
    QVERIFY2(found[0].endsWith(QStringLiteral(": tessel rm '%1 it'\\''s'").arg(plant.key())),
             qPrintable(found[0]));
}

void tst_ToolDoctor::creatorThatCannotBeLookedForIsUnknown()
{
    const DoctoredPlant plant;
    const LogCapture log;
    const HeldRegion region(plant.file);
    SharedMemory memory;
    memory.setKey(plant.segment().name());
    QVERIFY(memory.attach(SharedMemory::ReadWrite));
    // When it was started is not known, as of a creator with an older library.
    static_cast<PingPongBufferHandler::ManagementBuffer *>(memory.data())->creatorStart = 0;

    QCOMPARE(findingsOf(plant.key(), {plant.file}),
             QStringList{QStringLiteral("unknown creator-hidden: whether the creator, process %1, "
                                        "still runs could not be seen: it may be in another "
                                        "container, or hidden; look as root, outside of containers")
                             .arg(::getpid())});
}

QTEST_GUILESS_MAIN(tst_ToolDoctor)
#include "tst_ToolDoctor.moc"
