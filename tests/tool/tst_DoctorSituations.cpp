#include "DoctoredPlant.h"
#include "ExplainedBoiler.h"
#include "support/LogCapture.h"
#include "support/StoppedProcess.h"

#include <QtTest>

#include <sched.h>
#include <sys/mount.h>

namespace {

/// Whether one of the lines begins so.
bool hasLine(const QStringList &lines, const QString &begin)
{
    const bool isThere = std::any_of(lines.cbegin(), lines.cend(), [&begin](const QString &line) {
        return line.startsWith(begin);
    });
    if (!isThere) {
        qWarning().noquote() << "not there:" << begin << lines;
    }
    return isThere;
}

/// A writer that stands still inside its lock, and tells who it is.
ChildProcess::Body writingInto(const QString &file)
{
    return [file](const ChildSide &side) {
        ProcessDataManager manager;
        CHILD_VERIFY(manager.createProcessDataFromFile(
            file, ProcessDataManager::InitTypeSharedMemoryAttach));
        CHILD_VERIFY(manager.lockWriteBuffer());
        side.say();
        side.waitForWord();
        return manager.unlockWriteBuffer() ? 0 : 1;
    };
}

bool mountOwnMemory(unsigned long flags)
{
    return ::unshare(CLONE_NEWNS | CLONE_NEWIPC) == 0
           && ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0
           && ::mount("none", "/dev/shm", "tmpfs", flags, "size=8k") == 0;
}

/// Makes /dev/shm so small that one region fills it, and looks.
int lookWithoutRoom(const QString &file, const QString &key)
{
    if (!mountOwnMemory(0)) {
        return ChildProcess::sm_cannotTry;
    }
    QFile other(QStringLiteral("/dev/shm/other"));
    CHILD_VERIFY(other.open(QIODevice::WriteOnly) && other.write(QByteArray(8192, 'x')) == 8192
                 && other.flush());
    CHILD_VERIFY(runTool({QStringLiteral("hold"), file}).exitCode != 0);
    const QStringList lines = firstLines(file);
    CHILD_VERIFY(hasLine(lines, QStringLiteral("error no-region %1: ").arg(key)));
    CHILD_VERIFY(hasLine(lines, QStringLiteral("error shm-full /dev/shm: 8192 of 8192 (100 %) "
                                               "bytes are taken: ")));
    return 0;
}

/// Makes /dev/shm one that nobody can write, and looks.
int lookAtReadOnlyRoom(const QString &file, const QString &key)
{
    if (!mountOwnMemory(MS_RDONLY)) {
        return ChildProcess::sm_cannotTry;
    }
    CHILD_VERIFY(runTool({QStringLiteral("hold"), file}).exitCode != 0);
    const QStringList lines = firstLines(file);
    CHILD_VERIFY(hasLine(lines, QStringLiteral("error no-region %1: ").arg(key)));
    CHILD_VERIFY(hasLine(lines, QStringLiteral("error shm-read-only /dev/shm: it is mounted "
                                               "read-only: ")));
    return 0;
}

} // namespace

/// What goes wrong at a device, played by real processes: the first three lines name the cause.
class tst_DoctorSituations : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void publisherWasKilled();
    void readersOfADeadCreatorAreEndedBeforeItsRegionIsRemoved();
    void allReadersOfADeadCreatorAreNamed();
    void readerOfAFormerRegionIsNotEndedForADeadCreator();
    void twoCreators();
    void holderOfTheLockIsStopped();
    void descriptionChangedUnderARunningReader();
    void roomForRegionsIsFull();
    void roomForRegionsIsReadOnly();
    void clockWasSetBack();
    void publisherIsSilent();
    void publisherIsStopped();
    void wrongUser();
};

void tst_DoctorSituations::publisherWasKilled()
{
    const DoctoredPlant plant;
    const qint64 publisher = plant.leaveRegion();
    QVERIFY(publisher > 0);

    QVERIFY(hasLine(firstLines(plant.file),
                    QStringLiteral("error creator-dead %1: the creator, process %2, has ended ")
                        .arg(plant.key())
                        .arg(publisher)));
}

void tst_DoctorSituations::readersOfADeadCreatorAreEndedBeforeItsRegionIsRemoved()
{
    const DoctoredPlant plant;
    RunningTool hold(RunningTool::hold(plant.file));
    RunningTool reader(RunningTool::watch(plant.file));
    QVERIFY(hold.isReady() && reader.isReady());
    const qint64 creator = hold.pid();
    hold.signal(SIGKILL);
    QCOMPARE(hold.finish().exitCode, -1);

    QCOMPARE(faultsOf(plant.key(), {plant.file}),
             QStringList{QStringLiteral(
                             "error creator-dead %1: the creator, process %1, has ended "
                             "without removing the region; start it again; if it is not "
                             "needed any more, end its readers first: kill %2; then: tessel rm %3")
                             .arg(creator)
                             .arg(reader.pid())
                             .arg(plant.key())});
    QCOMPARE(runTool({QStringLiteral("rm"), plant.key()}).exitCode, 5);
    QCOMPARE(reader.end(), 0);
    QCOMPARE(runTool({QStringLiteral("rm"), plant.key()}).exitCode, 0);
}

void tst_DoctorSituations::allReadersOfADeadCreatorAreNamed()
{
    const DoctoredPlant plant;
    RunningTool hold(RunningTool::hold(plant.file));
    RunningTool first(RunningTool::watch(plant.file));
    RunningTool second(RunningTool::watch(plant.file));
    QVERIFY(hold.isReady() && first.isReady() && second.isReady());
    hold.signal(SIGKILL);
    QCOMPARE(hold.finish().exitCode, -1);

    const QString found = faultsOf(plant.key(), {plant.file}).join(QLatin1Char('\n'));

    const QString cure = QStringLiteral("end its readers first: kill %1 %2; then: ");
    QVERIFY2(found.contains(cure.arg(first.pid()).arg(second.pid()))
                 || found.contains(cure.arg(second.pid()).arg(first.pid())),
             qPrintable(found));
    QCOMPARE(first.end(), 0);
    QCOMPARE(second.end(), 0);
}

void tst_DoctorSituations::readerOfAFormerRegionIsNotEndedForADeadCreator()
{
    const DoctoredPlant plant;
    RunningTool former(RunningTool::hold(plant.file));
    RunningTool reader(RunningTool::watch(plant.file));
    QVERIFY(former.isReady() && reader.isReady());
    RunningTool later(RunningTool::hold(plant.file));
    QVERIFY(later.isReady());
    later.signal(SIGKILL);
    QCOMPARE(later.finish().exitCode, -1);

    const QStringList found =
        faultsOf(plant.key(), {plant.file}).filter(QStringLiteral("creator-dead"));

    QCOMPARE(found.size(), 1);
    QVERIFY2(found[0].endsWith(
                 QStringLiteral("if it is not needed any more: tessel rm %1").arg(plant.key())),
             qPrintable(found[0]));
    QCOMPARE(reader.end(), 0);
    QCOMPARE(former.end(), 0);
}

void tst_DoctorSituations::twoCreators()
{
    const DoctoredPlant plant;
    RunningTool first(RunningTool::hold(plant.file));
    QVERIFY(first.isReady());
    RunningTool second(RunningTool::hold(plant.file));
    QVERIFY(second.isReady());

    const QStringList lines = firstLines(plant.file);

    QVERIFY(hasLine(lines, QStringLiteral("error former-region %1: tessel %2 still has a former "
                                          "region of this key: ")
                               .arg(plant.key())
                               .arg(first.pid())));
    QCOMPARE(first.end(), 0);
    QCOMPARE(second.end(), 0);
}

void tst_DoctorSituations::holderOfTheLockIsStopped()
{
    const DoctoredPlant plant;
    RunningTool hold(RunningTool::hold(plant.file));
    QVERIFY(hold.isReady());
    StoppedProcess writer(writingInto(plant.file));
    QVERIFY(writer.isStopped());

    const QString line = firstLines(plant.file).constFirst();

    const QRegularExpression expected(
        QStringLiteral("^error lock-held %1: tst_DoctorSituations ([0-9]+) has been inside the "
                       "lock for a second: is it stopped, or does it dawdle\\?; cure: it is "
                       "stopped; let it go on: kill -CONT \\1$")
            .arg(plant.key()));
    QVERIFY2(expected.match(line).hasMatch(), qPrintable(line));
    QCOMPARE(writer.goOn(), 0);
    QCOMPARE(faultsOf(plant.key(), {plant.file}), QStringList());
    QCOMPARE(hold.end(), 0);
}

void tst_DoctorSituations::descriptionChangedUnderARunningReader()
{
    DoctoredPlant plant;
    RunningTool former(RunningTool::hold(plant.file));
    RunningTool reader(RunningTool::watch(plant.file));
    QVERIFY(former.isReady() && reader.isReady());
    plant.description().add(QStringLiteral("pump/level"), QStringLiteral("double"),
                            ToolDescription::Metadata::ErrorState, 8);
    plant.description().write();

    QVERIFY(hasLine(firstLines(plant.file),
                    QStringLiteral("error other-layout %1: the region has 528 bytes and the "
                                   "description asks for 552: ")
                        .arg(plant.key())));

    // Its creator has started again, it has not.
    QCOMPARE(former.end(), 0);
    RunningTool later(RunningTool::hold(plant.file));
    QVERIFY(later.isReady());
    QVERIFY(hasLine(
        firstLines(plant.file),
        QStringLiteral("error former-region %1: tessel %2 ").arg(plant.key()).arg(reader.pid())));
    QCOMPARE(reader.end(), 0);
    QCOMPARE(later.end(), 0);
}

void tst_DoctorSituations::roomForRegionsIsFull()
{
    const DoctoredPlant plant;
    ChildProcess child(
        [&plant](const ChildSide &) { return lookWithoutRoom(plant.file, plant.key()); });

    COMPARE_EXIT(child.waitForExit(), "the right to mount a /dev/shm of its own");
}

void tst_DoctorSituations::roomForRegionsIsReadOnly()
{
    const DoctoredPlant plant;
    ChildProcess child(
        [&plant](const ChildSide &) { return lookAtReadOnlyRoom(plant.file, plant.key()); });

    COMPARE_EXIT(child.waitForExit(), "the right to mount a /dev/shm of its own");
}

void tst_DoctorSituations::clockWasSetBack()
{
    DoctoredPlant plant;
    RunningTool hold(RunningTool::hold(plant.file));
    QVERIFY(hold.isReady());
    QVERIFY(setTimes(plant.description(), -5430, 60));

    QVERIFY(hasLine(firstLines(plant.file),
                    QStringLiteral("warning clock %1: the last set comes from the future, by 1 h: ")
                        .arg(plant.key())));
    QCOMPARE(hold.end(), 0);
}

void tst_DoctorSituations::publisherIsSilent()
{
    DoctoredPlant plant;
    const LogCapture log;
    HeldRegion region(plant.file);
    constexpr int sets = 10;
    for (int i = 0; i < sets; ++i) {
        QVERIFY(region.publish(plant.url, validValue(i)));
    }
    // A set an hour for ten hours, and none since.
    constexpr int hour = 3600;
    QVERIFY(setTimes(plant.description(), 10 * hour + 600, 20 * hour + 600));

    QVERIFY(hasLine(firstLines(plant.file),
                    QStringLiteral("warning silent %1: the publisher is silent: no set for 10 h, "
                                   "which is 10 times the usual interval of 1 h; cure: look what "
                                   "its publisher waits for")
                        .arg(plant.key())));
    QVERIFY(region.publish(plant.url, validValue(sets)));
    QCOMPARE(faultsOf(plant.key(), {plant.file}), QStringList());
}

void tst_DoctorSituations::publisherIsStopped()
{
    DoctoredPlant plant;
    StoppedProcess publisher([&plant](const ChildSide &side) {
        HeldRegion region(plant.file);
        constexpr int sets = 10;
        for (int i = 0; i < sets; ++i) {
            CHILD_VERIFY(region.publish(plant.url, validValue(i)));
        }
        side.say();
        side.waitForWord();
        return 0;
    });
    QVERIFY(publisher.isStopped());
    constexpr int hour = 3600;
    QVERIFY(setTimes(plant.description(), 10 * hour + 600, 20 * hour + 600));

    const QStringList found = faultsOf(plant.key(), {plant.file});

    QCOMPARE(found.size(), 1);
    QVERIFY2(found[0].startsWith(QStringLiteral("warning silent: ")), qPrintable(found[0]));
    QVERIFY2(
        found[0].contains(QStringLiteral("; its creator is stopped; let it go on: kill -CONT ")),
        qPrintable(found[0]));
    QCOMPARE(publisher.goOn(), 0);
}

void tst_DoctorSituations::wrongUser()
{
    if (::geteuid() != 0) {
        QSKIP("Only root can be another user");
    }
    const DoctoredPlant plant;
    QVERIFY(QFile::setPermissions(QFileInfo(plant.file).path(), QFile::Permissions(0x7755)));
    QVERIFY(QFile::setPermissions(plant.file, QFile::Permissions(0x6644)));
    RunningTool hold(RunningTool::hold(plant.file));
    QVERIFY(hold.isReady());
    QVERIFY(QFile::setPermissions(plant.segment().path(), QFile::ReadOwner | QFile::WriteOwner));
    if (!runToolAsAnother({QStringLiteral("--version")})
             .output.startsWith(QStringLiteral("tessel"))) {
        QCOMPARE(hold.end(), 0);
        QSKIP("Another user cannot run the tool where it was built");
    }

    const ToolResult result = runToolAsAnother({QStringLiteral("doctor"), plant.file});

    QCOMPARE(result.exitCode, 1);
    const QStringList lines = result.output.split(QLatin1Char('\n')).mid(0, 3);
    QVERIFY(hasLine(lines, QStringLiteral("error mode %1: the memory has mode 600 in place of 666: "
                                          "it keeps other users out; cure: chmod 666 ")
                               .arg(plant.key())));
    QCOMPARE(hold.end(), 0);
}

QTEST_GUILESS_MAIN(tst_DoctorSituations)
#include "tst_DoctorSituations.moc"
