#include "InspectedRegion.h"
#include "Inspection/RegionUsers.h"
#include "support/ChildProcess.h"
#include "support/FirstNamespace.h"

#include <QCoreApplication>

#include <algorithm>

#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>

namespace {

/// Holds a region until it is told to end.
ChildProcess::Body holding(const ProcessDescription &description,
                           ProcessDataManager::InitTypeSharedMemory type)
{
    return [&description, type](const ChildSide &side) {
        const QuietManager manager(description, type);
        CHILD_VERIFY(manager.isValid());
        side.say();
        side.waitForWord();
        return 0;
    };
}

/// The same as the first process of a namespace of its own, which sees the processes of the parent in
/// /proc. Ends without a word to the region.
ChildProcess::Body holdingAsFirstProcess(const ProcessDescription &description,
                                         ProcessDataManager::InitTypeSharedMemory type)
{
    return [&description, type](const ChildSide &side) {
        // Not with users of its own, which would keep the parent from looking at it.
        if (unshare(CLONE_NEWPID) != 0) {
            return ChildProcess::sm_cannotTry;
        }
        const pid_t holder = fork();
        if (holder == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            const QuietManager manager(description, type);
            side.say();
            side.waitForWord();
            _exit(manager.isValid() && getpid() == 1 ? 0 : 1);
        }
        int status = 0;
        CHILD_VERIFY(waitpid(holder, &status, 0) == holder && WIFEXITED(status));
        return WEXITSTATUS(status);
    };
}

quint64 ownNamespace()
{
    struct stat status = {};
    return stat("/proc/self/ns/pid", &status) == 0 ? status.st_ino : 0;
}

/// Runs @p body as the first process of a namespace, with a /proc that shows no other.
ChildProcess::Body inOwnNamespace(const ChildProcess::Body &body)
{
    return [body](const ChildSide &side) {
        if (unshare(CLONE_NEWUSER | CLONE_NEWPID | CLONE_NEWNS) != 0) {
            return ChildProcess::sm_cannotTry;
        }
        const pid_t first = fork();
        if (first == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            const bool isAlone = mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0
                                 && mount("proc", "/proc", "proc", 0, nullptr) == 0;
            _exit(isAlone ? body(side) : ChildProcess::sm_cannotTry);
        }
        int status = 0;
        CHILD_VERIFY(waitpid(first, &status, 0) == first && WIFEXITED(status));
        return WEXITSTATUS(status);
    };
}

/// Of this process, or of others.
QVector<RegionUser> usersBeside(const RegionInspection &region, qint64 process)
{
    QVector<RegionUser> users = region.getUsers();
    users.erase(std::remove_if(users.begin(), users.end(),
                               [process](const RegionUser &user) { return user.pid == process; }),
                users.end());
    return users;
}

QString ownProgram()
{
    return QFileInfo(QCoreApplication::applicationFilePath()).fileName();
}

} // namespace

/// What an inspection says of the processes that hang on a region.
class tst_RegionProcesses : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void runningCreatorIsAlive();
    void killedCreatorIsDead();
    void creatorThatNobodyHasWaitedForIsDead();
    void creatorInANamespaceOfItsOwnLivesAndDies();
    void idThatCameBackIsNoCreator();
    void creatorWithoutStartIsUnknown();
    void creatorOutsideOfTheOwnNamespaceIsUnknown();
    void creatorOfTheOwnNamespaceIsJudgedThere();
    void creatorInANamespaceBelowIsSeen();
    void usersAreThoseWhoHaveItMapped();
    void inspectionIsNoUser();
    void readerOfAReplacedRegionIsMarked();
    void readerOfARemovedRegionIsMarked();
    void processWithAnotherLayoutIsMarked();
    void processOfAnotherNamespaceIsMarked();
    void processesOfSeveralNamespacesAreMarked();
    void otherRegionsDoNotCount();
    void oneLookServesManyRegions();
};

void tst_RegionProcesses::runningCreatorIsAlive()
{
    const TwoNumbers description;
    const QuietManager creator(description, create);

    const RegionCreator found = description.inspect().getCreator();

    QVERIFY(found.pid == qint64{getpid()});
    QVERIFY(found.isAlive == true);
}

void tst_RegionProcesses::killedCreatorIsDead()
{
    const TwoNumbers description;
    ChildProcess child(holding(description, create));
    QVERIFY(child.waitUntilReady());
    const RegionCreator before = description.inspect().getCreator();
    QVERIFY(before.isAlive == true);

    QVERIFY(child.kill());

    const RegionCreator after = description.inspect().getCreator();
    QVERIFY(after.pid == before.pid);
    QVERIFY(after.isAlive == false);
}

void tst_RegionProcesses::creatorThatNobodyHasWaitedForIsDead()
{
    const TwoNumbers description;
    ChildProcess child(holding(description, create));
    QVERIFY(child.waitUntilReady());
    const RegionInspection region = description.inspect();
    QVERIFY(region.getCreator().isAlive == true);

    child.send(SIGKILL);

    // Its number stays taken until waitForExit().
    QTRY_VERIFY_WITH_TIMEOUT(region.getCreator().isAlive == false, 60000);
    QVERIFY(QFile::exists(QStringLiteral("/proc/%1").arg(*region.getCreator().pid)));
    QCOMPARE(child.waitForExit(), -SIGKILL);
}

void tst_RegionProcesses::creatorInANamespaceOfItsOwnLivesAndDies()
{
    const TwoNumbers description;
    ChildProcess child(holdingAsFirstProcess(description, create));
    if (!child.waitUntilReady()) {
        COMPARE_EXIT(child.waitForExit(), "the right to make a namespace");
    }
    const RegionCreator before = description.inspect().getCreator();
    QVERIFY(before.pid == qint64{1});
    QVERIFY(before.isAlive == true);

    child.tell();
    QCOMPARE(child.waitForExit(), 0);

    const RegionCreator after = description.inspect().getCreator();
    QVERIFY(after.pid == before.pid);
    // From a container it may as well be in a namespace that is not to be seen there.
    QVERIFY(isInFirstNamespace() ? after.isAlive == false : !after.isAlive);
}

void tst_RegionProcesses::idThatCameBackIsNoCreator()
{
    const TwoNumbers description;
    const QuietManager creator(description, create);
    MappedRegion block(description.segment);
    QVERIFY(block.attach());
    block.management()->creatorStart.fetch_sub(1);

    QVERIFY(description.inspect().getCreator().pid == qint64{getpid()});
    QVERIFY(description.inspect().getCreator().isAlive == false);
}

void tst_RegionProcesses::creatorWithoutStartIsUnknown()
{
    const TwoNumbers description;
    const QuietManager creator(description, create);
    MappedRegion block(description.segment);
    QVERIFY(block.attach());
    block.management()->creatorStart = 0;

    QVERIFY(description.inspect().getCreator().pid == qint64{getpid()});
    QVERIFY(!description.inspect().getCreator().isAlive);
}

void tst_RegionProcesses::creatorOutsideOfTheOwnNamespaceIsUnknown()
{
    const TwoNumbers description;
    const QuietManager creator(description, create);
    MappedRegion block(description.segment);
    QVERIFY(block.attach());
    QCOMPARE(block.management()->creatorNamespace.load(), ownNamespace());

    ChildProcess child(inOwnNamespace([&](const ChildSide &) {
        CHILD_VERIFY(description.inspect().getCreator().pid.has_value());
        CHILD_VERIFY(!description.inspect().getCreator().isAlive);
        block.management()->creatorNamespace = 0;
        CHILD_VERIFY(!description.inspect().getCreator().isAlive);
        return 0;
    }));

    COMPARE_EXIT(child.waitForExit(), "namespaces of its own");
}

void tst_RegionProcesses::creatorOfTheOwnNamespaceIsJudgedThere()
{
    const TwoNumbers description;
    ChildProcess child(inOwnNamespace([&](const ChildSide &) {
        const QuietManager creator(description, create);
        CHILD_VERIFY(description.inspect().getCreator().pid == qint64{1});
        CHILD_VERIFY(description.inspect().getCreator().isAlive == true);
        MappedRegion block(description.segment);
        CHILD_VERIFY(block.attach());
        block.management()->creatorStart.fetch_sub(1);
        CHILD_VERIFY(description.inspect().getCreator().isAlive == false);
        return 0;
    }));

    COMPARE_EXIT(child.waitForExit(), "namespaces of its own");
}

void tst_RegionProcesses::creatorInANamespaceBelowIsSeen()
{
    const TwoNumbers description;
    ChildProcess child(inOwnNamespace(holding(description, create)));
    if (!child.waitUntilReady()) {
        COMPARE_EXIT(child.waitForExit(), "namespaces of its own");
    }
    const RegionInspection region = description.inspect();

    QVERIFY(region.getCreator().pid == qint64{1});
    QVERIFY(region.getCreator().isAlive == true);
    child.tell();
    QCOMPARE(child.waitForExit(), 0);
    QVERIFY(region.getCreator().isAlive != true);
}

void tst_RegionProcesses::usersAreThoseWhoHaveItMapped()
{
    const TwoNumbers description;
    const QuietManager creator(description, create);
    ChildProcess child(holding(description, attach));
    QVERIFY(child.waitUntilReady());

    const QVector<RegionUser> users = description.inspect().getUsers();

    QCOMPARE(users.size(), 2);
    QVERIFY(users[0].pid == getpid() || users[1].pid == getpid());
    QVERIFY(users[0].pid < users[1].pid);
    for (const auto &user : users) {
        QCOMPARE(user.program, ownProgram());
        QVERIFY(!user.isReplaced);
    }
    child.tell();
    QCOMPARE(child.waitForExit(), 0);
    QCOMPARE(usersBeside(description.inspect(), getpid()).size(), 0);
}

void tst_RegionProcesses::inspectionIsNoUser()
{
    const TwoNumbers description;
    QVERIFY(description.segment.make(QByteArray(1000, '\0')));

    const RegionInspection region = description.inspect();
    region.getSwapCount();

    QCOMPARE(region.getUsers().size(), 0);
}

void tst_RegionProcesses::readerOfAReplacedRegionIsMarked()
{
    const TwoNumbers description;
    ChildProcess former(holding(description, create));
    QVERIFY(former.waitUntilReady());
    ChildProcess reader(holding(description, attach));
    QVERIFY(reader.waitUntilReady());
    QVERIFY(former.kill());
    const RegionInspection before = description.inspect();
    const QuietManager later(description, create);

    const QVector<RegionUser> users = usersBeside(description.inspect(), getpid());

    QCOMPARE(users.size(), 1);
    QVERIFY(users[0].isReplaced);
    QCOMPARE(users[0].program, ownProgram());
    // Whoever looks at the former memory sees the same.
    QCOMPARE(usersBeside(before, getpid()).size(), 1);
    QVERIFY(usersBeside(before, getpid())[0].isReplaced);
    const QVector<RegionUser> own = usersBeside(before, users[0].pid);
    QCOMPARE(own.size(), 1);
    QVERIFY(!own[0].isReplaced);
}

void tst_RegionProcesses::readerOfARemovedRegionIsMarked()
{
    const TwoNumbers description;
    auto creator = std::make_unique<QuietManager>(description, create);
    ChildProcess reader(holding(description, attach));
    QVERIFY(reader.waitUntilReady());
    creator.reset();

    const QVector<RegionUser> users = description.inspect().getUsers();

    QCOMPARE(users.size(), 1);
    QVERIFY(users[0].isReplaced);
}

void tst_RegionProcesses::processWithAnotherLayoutIsMarked()
{
    const TwoNumbers description;
    TwoNumbers other;
    other.key = description.key;
    other.leaves[QStringLiteral("b")].type = QStringLiteral("uint32");
    const QuietManager creator(description, create);
    ChildProcess child(holding(other, attach));
    QVERIFY(child.waitUntilReady());

    const QVector<RegionUser> users = usersBeside(description.inspect(), getpid());

    QCOMPARE(users.size(), 1);
    QVERIFY(users[0].hasOtherLayout == true);
    const QVector<RegionUser> own = usersBeside(description.inspect(), users[0].pid);
    QCOMPARE(own.size(), 1);
    QVERIFY(own[0].hasOtherLayout == false);
}

void tst_RegionProcesses::processOfAnotherNamespaceIsMarked()
{
    const TwoNumbers description;
    TwoNumbers other;
    other.key = description.key;
    other.leaves[QStringLiteral("b")].type = QStringLiteral("uint32");
    const QuietManager creator(description, create);
    ChildProcess child(holdingAsFirstProcess(other, attach));
    if (!child.waitUntilReady()) {
        COMPARE_EXIT(child.waitForExit(), "the right to make a namespace");
    }

    const QVector<RegionUser> users = usersBeside(description.inspect(), getpid());

    // The one in between has inherited the memory. Started in the same tick it might be a child.
    QCOMPARE(users.size(), 2);
    QVERIFY((users[0].hasOtherLayout == true) != (users[1].hasOtherLayout == true));
    child.tell();
    QCOMPARE(child.waitForExit(), 0);
}

/// None of them can tell whether the other one still runs.
void tst_RegionProcesses::processesOfSeveralNamespacesAreMarked()
{
    const TwoNumbers description;
    TwoNumbers other;
    other.key = description.key;
    other.leaves[QStringLiteral("b")].type = QStringLiteral("uint32");
    const QuietManager creator(description, create);
    ChildProcess child(holdingAsFirstProcess(other, attach));
    if (!child.waitUntilReady()) {
        COMPARE_EXIT(child.waitForExit(), "the right to make a namespace");
    }
    const QuietManager own(other, attach);
    QVERIFY(own.isValid());

    const QVector<RegionUser> users = description.inspect().getUsers();

    QCOMPARE(std::count_if(users.cbegin(), users.cend(),
                           [](const RegionUser &user) { return user.hasOtherLayout == true; }),
             std::ptrdiff_t{2});
    child.tell();
    QCOMPARE(child.waitForExit(), 0);
}

void tst_RegionProcesses::otherRegionsDoNotCount()
{
    TwoNumbers description;
    TwoNumbers longer;
    // Ends in the same way.
    longer.key = QStringLiteral("x") + description.key;
    const SegmentFile segment(longer.key + QStringLiteral("SharedMemory"));
    const SemaphoreSet semaphores(longer.key + QStringLiteral("Semaphore"));
    const QuietManager creator(longer, create);

    QCOMPARE(description.inspect().getUsers().size(), 0);
    QCOMPARE(longer.inspect().getUsers().size(), 1);
}

void tst_RegionProcesses::oneLookServesManyRegions()
{
    const TwoNumbers first;
    const TwoNumbers second(false);
    const QuietManager firstCreator(first, create);
    const QuietManager secondCreator(second, create);

    const RegionUsers users;

    QCOMPARE(users.getUsersOf(first.inspect()).size(), 1);
    QCOMPARE(users.getUsersOf(second.inspect()).size(), 1);
}

QTEST_GUILESS_MAIN(tst_RegionProcesses)

#include "tst_RegionProcesses.moc"
