#include "InspectedRegion.h"
#include "Inspection/RegionUsers.h"
#include "support/FirstNamespace.h"
#include "support/WithoutMainThread.h"

#include <string>

#include <dlfcn.h>
#include <grp.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>

namespace {

constexpr uid_t somebody = 65534;
/// Whether this process takes its namespace for that of the machine itself, from where all are seen.
bool isFirst = false;

} // namespace

/// In the place of the function that the library calls.
extern "C" Q_DECL_EXPORT int stat(const char *path, struct stat *status)
{
    using Stat = int (*)(const char *, struct stat *);
    static const auto original = reinterpret_cast<Stat>(dlsym(RTLD_NEXT, "stat"));
    const int result = original(path, status);
    if (isFirst && std::string(path) == "/proc/thread-self/ns/pid") {
        status->st_ino = 0xEFFFFFFC;
    }
    return result;
}

namespace {

/// This process alone gets a /proc with the option.
bool mountProcesses(const char *option)
{
    return unshare(CLONE_NEWNS) == 0
           && mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0
           && mount("proc", "/proc", "proc", 0, option) == 0;
}

/// From here on the process may look at its own alone.
bool becomeSomebody()
{
    return setgroups(0, nullptr) == 0 && setresgid(somebody, somebody, somebody) == 0
           && setresuid(somebody, somebody, somebody) == 0 && prctl(PR_SET_DUMPABLE, 1) == 0;
}

template <class Body>
int inFork(const Body &body)
{
    const pid_t child = fork();
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        _exit(body());
    }
    int status = 0;
    CHILD_VERIFY(waitpid(child, &status, 0) == child && WIFEXITED(status));
    return WEXITSTATUS(status);
}

/// As its first process.
template <class Body>
ChildProcess::Body inNamespace(const Body &body)
{
    return [body](const ChildSide & /*side*/) {
        return unshare(CLONE_NEWPID) == 0 ? inFork(body) : ChildProcess::sm_cannotTry;
    };
}

/// What a look at all processes is told by its exit code. They are those of a namespace of the test's own,
/// whose users it knows.
int look(bool isComplete)
{
    isFirst = true;
    CHILD_VERIFY(RegionUsers().isComplete() == isComplete);
    return 0;
}

/// Two processes alone in a namespace, of which the second looks at both.
ChildProcess::Body lookingIs(bool isComplete, const QByteArray &option, bool isFirstRoot,
                             bool isLookerRoot)
{
    return inNamespace([=] {
        if (!mountProcesses(option.constData())) {
            return ChildProcess::sm_cannotTry;
        }
        if (!isFirstRoot && !becomeSomebody()) {
            return ChildProcess::sm_cannotTry;
        }
        return inFork([=] {
            return isLookerRoot || !isFirstRoot || becomeSomebody() ? look(isComplete)
                                                                    : ChildProcess::sm_cannotTry;
        });
    });
}

} // namespace

/// What an inspection says where /proc does not show all processes to everybody.
class tst_RegionHiding : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void lookThatIsShownAPartIsNotComplete_data();
    void lookThatIsShownAPartIsNotComplete();
    void lookWithoutMainThreadIsComplete();
    void lookWhereGroupsHaveOtherNumbersIsNotComplete();
    void creatorThatIsNotShownIsUnknown();
    void creatorOfAnotherNamespaceThatMayBeHiddenIsUnknown_data();
    void creatorOfAnotherNamespaceThatMayBeHiddenIsUnknown();
    void creatorThatHasEndedIsDeadAllTheSame();
    void creatorWhoseTimeIsNotShownIsUnknown();
    void processOfTheOwnNamespaceIsNoCreatorOfAnother();
};

void tst_RegionHiding::lookThatIsShownAPartIsNotComplete_data()
{
    QTest::addColumn<QByteArray>("option");
    QTest::addColumn<bool>("isFirstRoot");
    QTest::addColumn<bool>("isLookerRoot");
    QTest::addColumn<bool>("isComplete");
    const auto row = [](const char *name, const char *option, bool isFirstRoot, bool isLookerRoot,
                        bool isComplete) {
        QTest::newRow(name) << QByteArray(option) << isFirstRoot << isLookerRoot << isComplete;
    };
    row("root, all are named", "hidepid=0", true, true, true);
    row("root, all are named without access", "hidepid=1", true, true, true);
    row("root is in the group that is told", "hidepid=2", true, true, true);
    row("root is not in the group", "hidepid=2,gid=65534", true, true, false);
    row("root, by what may be traced", "hidepid=4", true, true, false);
    row("somebody beside root", "hidepid=0", true, false, false);
    row("somebody beside root, without access", "hidepid=1", true, false, false);
    row("somebody beside root, who is not told", "hidepid=2", true, false, false);
    row("somebody beside root, in the group", "hidepid=2,gid=65534", true, false, false);
    row("somebody beside root, by what may be traced", "hidepid=4", true, false, false);
    row("somebody alone, all are named", "hidepid=0", false, false, true);
    row("somebody alone, who is not told", "hidepid=2", false, false, false);
    row("somebody alone, in the group", "hidepid=2,gid=65534", false, false, true);
}

void tst_RegionHiding::lookThatIsShownAPartIsNotComplete()
{
    QFETCH(QByteArray, option);
    QFETCH(bool, isFirstRoot);
    QFETCH(bool, isLookerRoot);
    QFETCH(bool, isComplete);
    if (isComplete && option.startsWith("hidepid=2") && !isInFirstUserNamespace()) {
        QSKIP("needs groups with the numbers of the machine itself", );
    }

    ChildProcess child(lookingIs(isComplete, option, isFirstRoot, isLookerRoot));

    COMPARE_EXIT(child.waitForExit(),
                 "the right to mount /proc with that option and to become somebody else");
}

/// Which is no zombie, though the kernel tells it so.
void tst_RegionHiding::lookWithoutMainThreadIsComplete()
{
    if (!isInFirstUserNamespace()) {
        QSKIP("needs groups with the numbers of the machine itself", );
    }
    ChildProcess child([](const ChildSide &side) {
        const auto alone = [&side] {
            return mountProcesses("hidepid=2")
                       ? withoutMainThread([](const ChildSide &) { return look(true); })(side)
                       : ChildProcess::sm_cannotTry;
        };
        return inNamespace(alone)(side);
    });

    COMPARE_EXIT(child.waitForExit(), "the right to mount /proc");
}

/// The number of the group that is told may belong to another one there.
void tst_RegionHiding::lookWhereGroupsHaveOtherNumbersIsNotComplete()
{
    ChildProcess child(inNamespace([] {
        if (!mountProcesses("hidepid=2,gid=65534")) {
            return ChildProcess::sm_cannotTry;
        }
        return inFork([] {
            // No group has a number of its own in it: all have that one.
            return unshare(CLONE_NEWUSER) == 0 && getegid() == 65534 ? look(false)
                                                                     : ChildProcess::sm_cannotTry;
        });
    }));

    COMPARE_EXIT(child.waitForExit(),
                 "the right to mount /proc with that option and to make a namespace of users");
}

/// It may be told a signal and is not to be seen all the same.
void tst_RegionHiding::creatorThatIsNotShownIsUnknown()
{
    const TwoNumbers description;
    ChildProcess creator([&description](const ChildSide &side) {
        if (!becomeSomebody()) {
            return ChildProcess::sm_cannotTry;
        }
        const QuietManager manager(description, create);
        CHILD_VERIFY(manager.isValid() && prctl(PR_SET_DUMPABLE, 0) == 0);
        side.say();
        side.waitForWord();
        return 0;
    });
    if (!creator.waitUntilReady()) {
        COMPARE_EXIT(creator.waitForExit(), "the right to become somebody else");
    }
    QVERIFY(description.inspect().getCreator().isAlive == true);

    ChildProcess child([&description](const ChildSide & /*side*/) {
        if (!mountProcesses("hidepid=2")) {
            return ChildProcess::sm_cannotTry;
        }
        CHILD_VERIFY(description.inspect().getCreator().isAlive == true);
        if (!becomeSomebody()) {
            return ChildProcess::sm_cannotTry;
        }
        CHILD_VERIFY(description.inspect().getCreator().pid.has_value());
        CHILD_VERIFY(!description.inspect().getCreator().isAlive);
        return 0;
    });

    const int exitCode = child.waitForExit();
    // Not every root may remove the semaphores that somebody else has made.
    creator.tell();
    QCOMPARE(creator.waitForExit(), 0);
    COMPARE_EXIT(exitCode, "the right to mount /proc");
}

void tst_RegionHiding::creatorOfAnotherNamespaceThatMayBeHiddenIsUnknown_data()
{
    QTest::addColumn<QByteArray>("option");
    QTest::newRow("numbers are not readable") << QByteArray("hidepid=1");
    QTest::newRow("numbers are not named") << QByteArray("hidepid=2");
}

void tst_RegionHiding::creatorOfAnotherNamespaceThatMayBeHiddenIsUnknown()
{
    QFETCH(QByteArray, option);
    const TwoNumbers description;
    const QuietManager creator(description, create);
    MappedRegion block(description.segment);
    QVERIFY(block.attach());
    // No namespace and no process has these numbers.
    block.management()->creatorNamespace = 12345;
    block.management()->creatorPid = 0x7FFFFFFF;

    ChildProcess child([&](const ChildSide & /*side*/) {
        const bool wouldBeSeen = description.inspect().getCreator().isAlive == false;
        if (!mountProcesses(option.constData()) || !wouldBeSeen) {
            return ChildProcess::sm_cannotTry;
        }
        CHILD_VERIFY(description.inspect().getCreator().isAlive == false);
        if (!becomeSomebody()) {
            return ChildProcess::sm_cannotTry;
        }
        CHILD_VERIFY(!description.inspect().getCreator().isAlive);
        return 0;
    });

    COMPARE_EXIT(child.waitForExit(), "the right to mount /proc, outside of containers");
}

void tst_RegionHiding::creatorThatHasEndedIsDeadAllTheSame()
{
    const TwoNumbers description;
    ChildProcess creator([&description](const ChildSide &side) {
        const QuietManager manager(description, create);
        side.say();
        side.waitForWord();
        return manager.isValid() ? 0 : 1;
    });
    QVERIFY(creator.waitUntilReady());
    QVERIFY(creator.kill());

    ChildProcess child([&description](const ChildSide & /*side*/) {
        if (!mountProcesses("hidepid=2") || !becomeSomebody()) {
            return ChildProcess::sm_cannotTry;
        }
        CHILD_VERIFY(description.inspect().getCreator().isAlive == false);
        return 0;
    });

    COMPARE_EXIT(child.waitForExit(), "the right to mount /proc and to become somebody else");
}

/// In another time it would have noted another start of itself.
void tst_RegionHiding::creatorWhoseTimeIsNotShownIsUnknown()
{
    const TwoNumbers description;
    const QuietManager creator(description, create);
    MappedRegion block(description.segment);
    QVERIFY(block.attach());
    block.management()->creatorStart.fetch_sub(1);
    QVERIFY(description.inspect().getCreator().isAlive == false);

    // A kernel that knows of one time alone has nothing to hide.
    const QString time = QStringLiteral("/proc/%1/ns/time").arg(getpid());
    const bool isShownHere = QFile::exists(time);
    ChildProcess child([&](const ChildSide & /*side*/) {
        if (!isShownHere || !becomeSomebody() || QFile::exists(time)) {
            return ChildProcess::sm_cannotTry;
        }
        CHILD_VERIFY(description.inspect().getCreator().pid == qint64{getppid()});
        CHILD_VERIFY(!description.inspect().getCreator().isAlive);
        return 0;
    });

    COMPARE_EXIT(child.waitForExit(), "time namespaces and the right to become somebody else");
}

/// Though that namespace is not shown of another user's process, as of the first one.
void tst_RegionHiding::processOfTheOwnNamespaceIsNoCreatorOfAnother()
{
    const TwoNumbers description;
    const QuietManager creator(description, create);
    MappedRegion block(description.segment);
    QVERIFY(block.attach());
    // No namespace has this number.
    block.management()->creatorNamespace = 12345;
    block.management()->creatorStart.fetch_sub(1);

    ChildProcess child([&description](const ChildSide & /*side*/) {
        const bool wouldBeSeen = description.inspect().getCreator().isAlive == false;
        if (!wouldBeSeen || !becomeSomebody()) {
            return ChildProcess::sm_cannotTry;
        }
        CHILD_VERIFY(description.inspect().getCreator().isAlive == false);
        return 0;
    });

    COMPARE_EXIT(child.waitForExit(), "the right to become somebody else, outside of containers");
}

QTEST_GUILESS_MAIN(tst_RegionHiding)

#include "tst_RegionHiding.moc"
