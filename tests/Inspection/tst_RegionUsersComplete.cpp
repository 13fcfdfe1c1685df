#include "InspectedRegion.h"
#include "Inspection/RegionUsers.h"
#include "support/ChildProcess.h"
#include "support/FirstNamespace.h"

#include <QtTest>

#include <cerrno>
#include <cstdarg>
#include <string>

#include <dlfcn.h>
#include <sys/mount.h>

namespace {

/// errno of every attempt to open a process's table of mappings; 0: as the system says.
int tableError = 0;
/// But of this process as the system says in any case.
bool isOwnTableShown = false;
/// Whether the table that tells how /proc is mounted can be opened.
bool isMountTableShown = true;

constexpr int noStart = -1;
/// Which attempt to read the start of this process finds no descriptor, and how many there were.
int refusedStart = noStart;
int startsBefore = 0;

std::string ownFile(const char *name)
{
    return "/proc/" + std::to_string(getpid()) + '/' + name;
}

bool isTable(const std::string &path)
{
    const std::string ending = "/maps";
    return path.rfind("/proc/", 0) == 0 && path.size() > ending.size()
           && path.compare(path.size() - ending.size(), ending.size(), ending) == 0
           && !(isOwnTableShown && path == ownFile("maps"));
}

/// errno of the attempt to open a file; 0: as the system says.
int errorOf(const std::string &path)
{
    if (isTable(path)) {
        return tableError;
    }
    if (!isMountTableShown && path == "/proc/thread-self/mountinfo") {
        return ENOENT;
    }
    const bool isStart = refusedStart != noStart && path == ownFile("stat");
    return isStart && startsBefore++ == refusedStart ? EMFILE : 0;
}

int openOr(const char *function, const char *path, int flags, mode_t mode)
{
    errno = errorOf(path);
    using Open = int (*)(const char *, int, ...);
    return errno != 0 ? -1 : reinterpret_cast<Open>(dlsym(RTLD_NEXT, function))(path, flags, mode);
}

} // namespace

/// In the place of the function that the library calls.
extern "C" Q_DECL_EXPORT int open(const char *path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const int mode = va_arg(arguments, int);
    va_end(arguments);
    return openOr("open", path, flags, static_cast<mode_t>(mode));
}

// Where files of any size need a function of their own, that is already the one above.
#ifdef __LP64__
/// In the place of the function that Qt calls.
extern "C" Q_DECL_EXPORT int open64(const char *path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const int mode = va_arg(arguments, int);
    va_end(arguments);
    return openOr("open64", path, flags, static_cast<mode_t>(mode));
}
#endif

/// Whether a look at all processes says that it has not seen them all.
class tst_RegionUsersComplete : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void lookIsCompleteWithoutWhatHasEnded_data();
    void lookIsCompleteWithoutWhatHasEnded();
    void lookWithoutAUserWhoseStartIsNotToBeHadIsNotComplete_data();
    void lookWithoutAUserWhoseStartIsNotToBeHadIsNotComplete();
    void lookWhereNothingTellsWhoIsHiddenIsNotComplete();
    void lookFromANamespaceBelowIsNotComplete();
};

void tst_RegionUsersComplete::lookIsCompleteWithoutWhatHasEnded_data()
{
    QTest::addColumn<int>("error");
    QTest::addColumn<bool>("isComplete");

    QTest::newRow("the process has ended") << ENOENT << true;
    QTest::newRow("it ends just now") << ESRCH << true;
    QTest::newRow("it is another user's") << EACCES << false;
    QTest::newRow("it may not be looked at") << EPERM << false;
    QTest::newRow("no descriptor is left") << EMFILE << false;
    QTest::newRow("none of the whole machine") << ENFILE << false;
    QTest::newRow("no memory is left") << ENOMEM << false;
}

void tst_RegionUsersComplete::lookIsCompleteWithoutWhatHasEnded()
{
    QFETCH(int, error);
    QFETCH(bool, isComplete);
    tableError = error;

    const RegionUsers users;

    tableError = 0;
    QCOMPARE(users.isComplete(), isComplete && isInFirstNamespace());
}

void tst_RegionUsersComplete::lookWithoutAUserWhoseStartIsNotToBeHadIsNotComplete_data()
{
    QTest::addColumn<int>("refused");

    QTest::newRow("before it was looked at") << 0;
    QTest::newRow("after that") << 1;
}

/// It may not be taken for one that has ended and left its id to another one.
void tst_RegionUsersComplete::lookWithoutAUserWhoseStartIsNotToBeHadIsNotComplete()
{
    QFETCH(int, refused);
    const TwoNumbers description;
    const QuietManager creator(description, create);
    const RegionInspection region = description.inspect();
    isOwnTableShown = true;
    tableError = ENOENT;
    QCOMPARE(RegionUsers().getUsersOf(region).size(), 1);
    QCOMPARE(RegionUsers().isComplete(), isInFirstNamespace());
    startsBefore = 0;
    refusedStart = refused;

    const RegionUsers users;

    refusedStart = noStart;
    tableError = 0;
    isOwnTableShown = false;
    QVERIFY(startsBefore > refused);
    QCOMPARE(users.getUsersOf(region).size(), 0);
    QVERIFY(!users.isComplete());
}

void tst_RegionUsersComplete::lookWhereNothingTellsWhoIsHiddenIsNotComplete()
{
    // Whatever the processes do that happen to be there.
    tableError = ENOENT;
    QCOMPARE(RegionUsers().isComplete(), isInFirstNamespace());
    isMountTableShown = false;

    const RegionUsers users;

    isMountTableShown = true;
    tableError = 0;
    QVERIFY(!users.isComplete());
}

/// Processes outside of it can have the same memory mapped, and are not to be seen.
void tst_RegionUsersComplete::lookFromANamespaceBelowIsNotComplete()
{
    ChildProcess child([](const ChildSide & /*side*/) {
        if (unshare(CLONE_NEWPID | CLONE_NEWNS) != 0) {
            return ChildProcess::sm_cannotTry;
        }
        const pid_t first = fork();
        if (first == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0
                || mount("proc", "/proc", "proc", 0, nullptr) != 0) {
                _exit(ChildProcess::sm_cannotTry);
            }
            _exit(RegionUsers().isComplete() ? 1 : 0);
        }
        int status = 0;
        CHILD_VERIFY(waitpid(first, &status, 0) == first && WIFEXITED(status));
        return WEXITSTATUS(status);
    });

    COMPARE_EXIT(child.waitForExit(), "the right to make a namespace");
}

QTEST_GUILESS_MAIN(tst_RegionUsersComplete)
#include "tst_RegionUsersComplete.moc"
