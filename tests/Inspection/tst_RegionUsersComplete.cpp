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

bool isTable(const char *path)
{
    const std::string text(path);
    const std::string ending = "/maps";
    return text.rfind("/proc/", 0) == 0 && text.size() > ending.size()
           && text.compare(text.size() - ending.size(), ending.size(), ending) == 0;
}

} // namespace

/// In the place of the function that the library calls.
extern "C" Q_DECL_EXPORT int open(const char *path, int flags, ...)
{
    using Open = int (*)(const char *, int, ...);
    static const auto original = reinterpret_cast<Open>(dlsym(RTLD_NEXT, "open"));
    if (tableError != 0 && isTable(path)) {
        errno = tableError;
        return -1;
    }
    va_list arguments;
    va_start(arguments, flags);
    const int mode = va_arg(arguments, int);
    va_end(arguments);
    return original(path, flags, mode);
}

/// Whether a look at all processes says that it has not seen them all.
class tst_RegionUsersComplete : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void lookIsCompleteWithoutWhatHasEnded_data();
    void lookIsCompleteWithoutWhatHasEnded();
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
