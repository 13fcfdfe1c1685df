#include "InspectedRegion.h"
#include "support/ChildProcess.h"
#include "support/FirstNamespace.h"

#include <cerrno>
#include <cstdarg>
#include <string>

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>

namespace {

/// The folder of the creator in the /proc of this process, which the child writes.
char *const creatorFolder = static_cast<char *>(
    mmap(nullptr, 64, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));

/// How often something in /proc was opened since the counting began, without other processes than this one
/// and the creator.
int opened = 0;
/// Which one of them, from 0 on, finds no descriptor; -1: none.
int refused = -1;

bool isRefused(const char *path)
{
    const std::string text(path);
    const bool isOfAll = text == "/proc" || text == "/proc/";
    if (!isOfAll && text.rfind("/proc/self/", 0) != 0 && text.rfind("/proc/thread-self/", 0) != 0
        && text.rfind(creatorFolder, 0) != 0) {
        return false;
    }
    errno = EMFILE;
    return opened++ == refused;
}

template <class Function>
Function original(const char *name)
{
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

} // namespace

/// In the place of the functions that Qt calls.
extern "C" Q_DECL_EXPORT int open64(const char *path, int flags, ...)
{
    static const auto call = original<int (*)(const char *, int, ...)>("open64");
    if (isRefused(path)) {
        return -1;
    }
    va_list arguments;
    va_start(arguments, flags);
    const int mode = va_arg(arguments, int);
    va_end(arguments);
    return call(path, flags, mode);
}

extern "C" Q_DECL_EXPORT DIR *opendir(const char *path)
{
    static const auto call = original<DIR *(*)(const char *)>("opendir");
    return isRefused(path) ? nullptr : call(path);
}

namespace {

/// What <sched.h> calls CLONE_NEWTIME where it knows it.
constexpr int newTime = 0x80;

bool beginOtherTime()
{
    const int offsets = open("/proc/self/timens_offsets", O_WRONLY | O_CLOEXEC);
    const std::string later = "boottime 100000 0\n";
    const bool isBegun = write(offsets, later.data(), later.size())
                         == static_cast<ssize_t>(later.size());
    close(offsets);
    return isBegun;
}

/// The creator of a region, as the first process of new namespaces of the kinds @p namespaces. The one that
/// makes these stays outside.
ChildProcess::Body creatingIn(int namespaces, const TwoNumbers &description)
{
    return [namespaces, &description](const ChildSide &side) {
        if (unshare(namespaces) != 0 || ((namespaces & newTime) != 0 && !beginOtherTime())) {
            return ChildProcess::sm_cannotTry;
        }
        const pid_t creator = fork();
        if (creator == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            const QuietManager manager(description, create);
            const QString folder = QFile::symLinkTarget(QStringLiteral("/proc/self"));
            qstrcpy(creatorFolder, qPrintable(folder + QLatin1Char('/')));
            side.say();
            side.waitForWord();
            _exit(manager.isValid() ? 0 : 1);
        }
        int status = 0;
        CHILD_VERIFY(waitpid(creator, &status, 0) == creator && WIFEXITED(status));
        return WEXITSTATUS(status);
    };
}

} // namespace

/// What an inspection says of who made a region where it cannot be sure of the process.
class tst_RegionCreatorsInDoubt : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void creatorInAnotherTimeIsUnknownAsLongAsItRuns_data();
    void creatorInAnotherTimeIsUnknownAsLongAsItRuns();
    void creatorIsKnownFromItsOwnTime();
    void processOfThatStartWithAnotherNumberIsNoCreator();
    void livingCreatorIsNotDeadWhereADescriptorIsMissing_data();
    void livingCreatorIsNotDeadWhereADescriptorIsMissing();
};

void tst_RegionCreatorsInDoubt::creatorInAnotherTimeIsUnknownAsLongAsItRuns_data()
{
    QTest::addColumn<int>("namespaces");

    QTest::newRow("with a number of this namespace") << newTime;
    QTest::newRow("with a number of its own") << (newTime | CLONE_NEWPID);
}

/// The start that it noted of itself is not the one that is told here.
void tst_RegionCreatorsInDoubt::creatorInAnotherTimeIsUnknownAsLongAsItRuns()
{
    QFETCH(int, namespaces);
    const TwoNumbers description;
    ChildProcess child(creatingIn(namespaces, description));
    if (!child.waitUntilReady()) {
        COMPARE_EXIT(child.waitForExit(), "the right to make a time");
    }
    const RegionCreator before = description.inspect().getCreator();
    QVERIFY(before.pid.has_value());
    QVERIFY(!before.isAlive);

    child.tell();
    QCOMPARE(child.waitForExit(), 0);

    const RegionCreator after = description.inspect().getCreator();
    QVERIFY(after.pid == before.pid);
    // A container has no number for it, and sees neither that it runs nor that it has ended.
    const bool isSeen = (namespaces & CLONE_NEWPID) == 0 || isInFirstNamespace();
    QVERIFY(isSeen ? after.isAlive == false : !after.isAlive);
}

void tst_RegionCreatorsInDoubt::creatorIsKnownFromItsOwnTime()
{
    const TwoNumbers description;
    ChildProcess child([&description](const ChildSide & /*side*/) {
        if (unshare(newTime) != 0 || !beginOtherTime()) {
            return ChildProcess::sm_cannotTry;
        }
        const pid_t first = fork();
        if (first == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            const QuietManager manager(description, create);
            const bool isAlive = description.inspect().getCreator().isAlive == true;
            MappedRegion block(description.segment);
            _exit(block.attach() && block.management()->creatorStart.fetch_sub(1) > 0 && isAlive
                          && description.inspect().getCreator().isAlive == false
                      ? 0
                      : 1);
        }
        int status = 0;
        CHILD_VERIFY(waitpid(first, &status, 0) == first && WIFEXITED(status));
        return WEXITSTATUS(status);
    });

    COMPARE_EXIT(child.waitForExit(), "the right to make a time");
}

/// The number counts in the namespace of the creator, where the process that has it here has another one.
void tst_RegionCreatorsInDoubt::processOfThatStartWithAnotherNumberIsNoCreator()
{
    const TwoNumbers description;
    ChildProcess child(creatingIn(CLONE_NEWPID, description));
    if (!child.waitUntilReady()) {
        COMPARE_EXIT(child.waitForExit(), "the right to make a namespace");
    }
    QVERIFY(description.inspect().getCreator().isAlive == true);
    MappedRegion block(description.segment);
    QVERIFY(block.attach());
    const auto numberHere = QByteArray(creatorFolder).split('/').value(2).toUInt();
    QVERIFY(numberHere > 1);

    block.management()->creatorPid = numberHere;

    QVERIFY(description.inspect().getCreator().isAlive != true);
    child.tell();
    QCOMPARE(child.waitForExit(), 0);
}

void tst_RegionCreatorsInDoubt::livingCreatorIsNotDeadWhereADescriptorIsMissing_data()
{
    QTest::addColumn<int>("namespaces");

    QTest::newRow("with a number of this namespace") << 0;
    QTest::newRow("with a number of its own") << CLONE_NEWPID;
}

void tst_RegionCreatorsInDoubt::livingCreatorIsNotDeadWhereADescriptorIsMissing()
{
    QFETCH(int, namespaces);
    const TwoNumbers description;
    ChildProcess child(creatingIn(namespaces, description));
    if (!child.waitUntilReady()) {
        COMPARE_EXIT(child.waitForExit(), "the right to make a namespace");
    }

    int looks = 0;
    bool isReached = true;
    while (isReached) {
        const RegionInspection region = description.inspect();
        opened = 0;
        refused = looks++;
        const std::optional<bool> isAlive = region.getCreator().isAlive;
        isReached = opened > refused;
        refused = -1;

        QVERIFY2(isAlive != false, qPrintable(QStringLiteral("open %1").arg(looks)));
        QVERIFY(isReached || isAlive == true);
    }

    // Its start and its own number, at least.
    QVERIFY(looks > 2);
    child.tell();
    QCOMPARE(child.waitForExit(), 0);
}

QTEST_GUILESS_MAIN(tst_RegionCreatorsInDoubt)

#include "tst_RegionCreatorsInDoubt.moc"
