#include "Companion/PingPongBufferHandler.h"
#include "DoctoredPlant.h"
#include "Inspection/RegionUsers.h"
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

bool setModeOf(const SemaphoreSet &semaphores, int mode)
{
    semid_ds status{};
    if (::semctl(semaphores.id(), 0, IPC_STAT, &status) != 0) {
        return false;
    }
    status.sem_perm.mode = static_cast<unsigned short>(mode);
    return ::semctl(semaphores.id(), 0, IPC_SET, &status) == 0;
}

} // namespace

Q_DECLARE_METATYPE(std::vector<unsigned short>)

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
    void regionWithoutSemaphoresIsAnError();
    void semaphoresOfSomebodyElseAreTold_data();
    void semaphoresOfSomebodyElseAreTold();
    void semaphoresWithoutARegionAreTold();
    void memoryThatKeepsOthersOutIsTold();
    void semaphoresThatKeepOthersOutAreTold();
    void ownersThatCannotRemoveAreTold();
    void memoryOfAnotherProgramIsNotCalledARegion();
    void memoryWithSemaphoresOfAnotherProgramIsNotCalledARegion();
    void memoryThatCannotBeOpenedIsNotCalledARegion();
    void semaphoresOfAnotherProgramAreNotCalledOurs();
    void setThatLooksLikeOursIsUnknown();
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

void tst_ToolDoctor::regionWithoutSemaphoresIsAnError()
{
    const DoctoredPlant plant;
    RunningTool hold(RunningTool::hold(plant.file));
    QVERIFY(hold.isReady());
    QVERIFY(plant.semaphores().remove());

    for (const QStringList &files : {QStringList{plant.file}, QStringList()}) {
        QCOMPARE(faultsOf(plant.key(), files),
                 QStringList{QStringLiteral("error no-semaphores: the region has no semaphores: "
                                            "nobody can lock it, and so nobody can write; start "
                                            "its creator again, which makes it anew")});
    }
    QCOMPARE(hold.end(), 0);
}

void tst_ToolDoctor::semaphoresOfSomebodyElseAreTold_data()
{
    QTest::addColumn<std::vector<unsigned short>>("values");
    QTest::addColumn<int>("mode");
    const std::vector<unsigned short> ofOurNumber{0, 0, 1, 0, 0, 1, 2, 3, 4};
    QTest::newRow("another number") << std::vector<unsigned short>{1, 2, 3} << 0666;
    QTest::newRow("another number and mode") << std::vector<unsigned short>{1, 2, 3} << 0600;
    QTest::newRow("our number") << ofOurNumber << 0666;
    QTest::newRow("our number and another mode") << ofOurNumber << 0600;
}

void tst_ToolDoctor::semaphoresOfSomebodyElseAreTold()
{
    QFETCH(std::vector<unsigned short>, values);
    QFETCH(int, mode);
    const DoctoredPlant plant;
    RunningTool hold(RunningTool::hold(plant.file));
    QVERIFY(hold.isReady());
    QVERIFY(plant.semaphores().remove());
    const int id = plant.semaphores().make(values);
    QVERIFY(id >= 0 && setModeOf(plant.semaphores(), mode));
    const auto key = static_cast<quint32>(
        SystemVSemaphoreBaseClass::systemVKey(plant.key() + QStringLiteral("Semaphore")));

    QCOMPARE(faultsOf(plant.key(), {plant.file}),
             QStringList{
                 QStringLiteral("error semaphores-taken: its System V key 0x%1 belongs to other "
                                "semaphores, of another program or another version of the memory "
                                "format: nobody can lock the region; see whose they are: ipcs -s "
                                "-i %2; else choose another memory key")
                     .arg(key, 8, 16, QLatin1Char('0'))
                     .arg(id)});
    hold.signal(SIGKILL);
    QCOMPARE(hold.finish().exitCode, -1);
}

void tst_ToolDoctor::semaphoresWithoutARegionAreTold()
{
    const DoctoredPlant plant;
    QVERIFY(plant.leaveRegion() > 0);
    QVERIFY(plant.segment().remove());

    const QStringList found = faultsOf(plant.key(), {plant.file});

    QCOMPARE(found.size(), 2);
    QVERIFY(found[0].startsWith(QStringLiteral("error no-region: ")));
    const QString unseen = RegionUsers().isComplete()
                               ? QString()
                               : QStringLiteral(", or somebody who cannot be seen still has the "
                                                "removed region");
    QCOMPARE(found[1], QStringLiteral("warning semaphores-left: there are semaphores without a "
                                      "region: somebody who was killed has left them%1; tessel rm "
                                      "%2")
                           .arg(unseen, plant.key()));
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

void tst_ToolDoctor::semaphoresThatKeepOthersOutAreTold()
{
    const DoctoredPlant plant;
    RunningTool hold(RunningTool::hold(plant.file));
    QVERIFY(hold.isReady());
    QVERIFY(setModeOf(plant.semaphores(), 0600));

    QCOMPARE(faultsOf(plant.key(), {plant.file}),
             QStringList{QStringLiteral("warning mode: the semaphores have mode 600 in place of "
                                        "666: they keep other users out, who can neither write nor "
                                        "see them; start its creator again, which makes them "
                                        "anew")});
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

void tst_ToolDoctor::memoryWithSemaphoresOfAnotherProgramIsNotCalledARegion()
{
    const DoctoredPlant plant;
    QVERIFY(plant.segment().make(QByteArray(600, 'x')));
    QVERIFY(plant.semaphores().make({1, 2, 3}) >= 0);

    QCOMPARE(findingsOf(plant.key(), {}),
             QStringList{QStringLiteral("unknown no-region-for-sure: the semaphores under its key "
                                        "are those of another program, and it does not say that "
                                        "it is a region, so that it may be the memory of that "
                                        "program; name its description, if there is one: tessel "
                                        "doctor FILE")});
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

void tst_ToolDoctor::semaphoresOfAnotherProgramAreNotCalledOurs()
{
    const DoctoredPlant plant;
    // The same key and number, but not what the key's text would give.
    QVERIFY(plant.semaphores().make({0, 0, 1, 0, 0, 1, 2, 3, 4}) >= 0);

    const QStringList found = faultsOf(plant.key(), {plant.file});

    QCOMPARE(found.size(), 1);
    QVERIFY(found[0].startsWith(QStringLiteral("error no-region: ")));
}

void tst_ToolDoctor::setThatLooksLikeOursIsUnknown()
{
    const DoctoredPlant alike;
    const DoctoredPlant other;
    const int looking = alike.semaphores().make({0, 0, 1, 0, 0, 1, 2, 3, 4});
    const int differing = other.semaphores().make({0, 0, 1, 0, 0, 1, 2, 3, 0});
    QVERIFY(looking >= 0 && differing >= 0);
    QStringList ids;
    const QJsonArray all = allFindings();
    for (const auto &finding : all) {
        const QJsonObject object = finding.toObject();
        if (object.value(QStringLiteral("rule")) == QStringLiteral("semaphores-unclaimed")) {
            QCOMPARE(object.value(QStringLiteral("level")).toString(), QStringLiteral("unknown"));
            ids += object.value(QStringLiteral("text"))
                       .toString()
                       .section(QStringLiteral(": "), 1)
                       .split(QStringLiteral(", "));
        }
    }

    QVERIFY(ids.contains(QString::number(looking)));
    QVERIFY(!ids.contains(QString::number(differing)));
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
