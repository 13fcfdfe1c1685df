#include "InspectedRegion.h"
#include "Inspection/RegionUsers.h"
#include "support/WithoutMainThread.h"

#include <QCoreApplication>
#include <QTemporaryDir>

#include <cerrno>
#include <cstdarg>
#include <functional>
#include <string>
#include <utility>

#include <dlfcn.h>
#include <fcntl.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/mount.h>

namespace {

/// Tables of mappings that were opened, and those of them that a program this process becomes would inherit.
int tables = 0;
int inheritedTables = 0;

/// What happens when the first table of a thread below this folder is opened, which is not there then.
std::string folderOfThreads;
std::function<void()> atThread;

/// Whether no program is told of any process.
bool areProgramsHidden = false;

template <class Function>
Function original(const char *name)
{
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

bool endsWith(const std::string &path, const std::string &ending)
{
    return path.size() >= ending.size()
           && path.compare(path.size() - ending.size(), ending.size(), ending) == 0;
}

} // namespace

/// In the place of the functions that the library and Qt call.
extern "C" Q_DECL_EXPORT int open(const char *path, int flags, ...)
{
    static const auto call = original<int (*)(const char *, int, ...)>("open");
    va_list arguments;
    va_start(arguments, flags);
    const int mode = va_arg(arguments, int);
    va_end(arguments);
    if (endsWith(path, "/maps")) {
        const bool isOfAThread = std::string(path).rfind(folderOfThreads, 0) == 0;
        if (const auto step = isOfAThread ? std::exchange(atThread, nullptr) : nullptr) {
            step();
            errno = ENOENT;
            return -1;
        }
        ++tables;
        inheritedTables += (flags & O_CLOEXEC) == 0 ? 1 : 0;
    }
    return call(path, flags, mode);
}

extern "C" Q_DECL_EXPORT ssize_t readlink(const char *path, char *target, std::size_t size)
{
    static const auto call = original<ssize_t (*)(const char *, char *, std::size_t)>("readlink");
    if (areProgramsHidden && endsWith(path, "/exe")) {
        errno = EACCES;
        return -1;
    }
    return call(path, target, size);
}

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

/// Has a region mapped that it knows by another folder.
ChildProcess::Body mappingIn(const QString &folder, const SegmentFile &segment)
{
    return [folder, &segment](const ChildSide &side) {
        if (unshare(CLONE_NEWNS) != 0
            || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0
            || mount("/dev/shm", qPrintable(folder), nullptr, MS_BIND, nullptr) != 0) {
            return ChildProcess::sm_cannotTry;
        }
        const int fd = open(qPrintable(folder + QLatin1Char('/') + segment.name()), O_RDONLY);
        CHILD_VERIFY(fd >= 0 && mmap(nullptr, 1, PROT_READ, MAP_SHARED, fd, 0) != MAP_FAILED);
        side.say();
        side.waitForWord();
        return 0;
    };
}

} // namespace

/// Who is said to have a region mapped, whenever and by whatever name.
class tst_RegionUsers : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void usersAreThoseOfTheLook();
    void userOfARemovedRegionWithASlashInFrontIsSeen();
    void userByAnotherPathIsSeen();
    void layoutOfWhoeverOnlyReadsIsUnknown();
    void keysAreThoseOfAllThatIsMapped();
    void userWhoseThreadIsReplacedByAnotherIsSeen();
    void tablesAreNotHandedToOtherPrograms();
    void programThatIsNotToldHasTheNameOfItsProcess();
};

/// Their ids may be those of other processes since.
void tst_RegionUsers::usersAreThoseOfTheLook()
{
    const TwoNumbers description;
    TwoNumbers other;
    other.key = description.key;
    other.leaves[QStringLiteral("b")].type = QStringLiteral("uint32");
    ChildProcess creator(holding(description, create));
    QVERIFY(creator.waitUntilReady());
    ChildProcess child(holding(other, attach));
    QVERIFY(child.waitUntilReady());
    const RegionUsers look;
    QVERIFY(child.kill() && creator.kill());

    const QVector<RegionUser> users = look.getUsersOf(description.inspect());

    QCOMPARE(users.size(), 2);
    QVERIFY(users[0].hasOtherLayout.has_value() && users[1].hasOtherLayout.has_value());
    QVERIFY(users[0].hasOtherLayout != users[1].hasOtherLayout);
    const QString program = QFileInfo(QCoreApplication::applicationFilePath()).fileName();
    QCOMPARE(users[0].program, program);
    QCOMPARE(users[1].program, program);
    QCOMPARE(RegionUsers().getUsersOf(description.inspect()).size(), 0);
}

void tst_RegionUsers::userOfARemovedRegionWithASlashInFrontIsSeen()
{
    const TwoNumbers description;
    const QuietManager creator(description, create);
    const RegionInspection before(QLatin1Char('/') + description.key);
    QCOMPARE(before.getUsers().size(), 1);

    QVERIFY(description.segment.remove());

    const QVector<RegionUser> users =
        RegionInspection(QLatin1Char('/') + description.key).getUsers();
    QCOMPARE(users.size(), 1);
    QVERIFY(users[0].isReplaced);
}

void tst_RegionUsers::userByAnotherPathIsSeen()
{
    const TwoNumbers description;
    QVERIFY(description.segment.make(QByteArray(1000, '\0')));
    const QTemporaryDir folder;
    ChildProcess child(mappingIn(folder.path(), description.segment));
    if (!child.waitUntilReady()) {
        COMPARE_EXIT(child.waitForExit(), "the right to mount a folder");
    }

    const QVector<RegionUser> users = description.inspect().getUsers();

    QCOMPARE(users.size(), 1);
    QVERIFY(!users[0].isReplaced);
    child.tell();
    QCOMPARE(child.waitForExit(), 0);
}

/// Such a process leaves no word, whatever layout it has.
void tst_RegionUsers::layoutOfWhoeverOnlyReadsIsUnknown()
{
    const TwoNumbers description;
    TwoNumbers other;
    other.key = description.key;
    other.leaves[QStringLiteral("b")].type = QStringLiteral("uint32");
    const QuietManager creator(description, create);
    ChildProcess child([&other](const ChildSide &side) {
        const LogCapture log;
        ProcessDataManager manager;
        manager.setAccessMode(SharedMemory::ReadOnly);
        CHILD_VERIFY(manager.createProcessData(other.parse(), attach));
        side.say();
        side.waitForWord();
        return 0;
    });
    QVERIFY(child.waitUntilReady());

    const QVector<RegionUser> users = description.inspect().getUsers();

    QCOMPARE(users.size(), 2);
    for (const auto &user : users) {
        const bool isCreator = user.pid == QCoreApplication::applicationPid();
        QCOMPARE(user.hasOtherLayout.has_value(), isCreator);
        QVERIFY(!user.isReplaced);
    }
    child.tell();
    QCOMPARE(child.waitForExit(), 0);
}

void tst_RegionUsers::keysAreThoseOfAllThatIsMapped()
{
    const TwoNumbers current;
    const TwoNumbers removed;
    const TwoNumbers unused;
    const SegmentFile foreign;
    QVERIFY(unused.segment.make("12345678") && foreign.make("12345678"));
    const QuietManager creator(current, create);
    const QuietManager second(removed, create);
    QVERIFY(removed.segment.remove());
    const int fd = open(qPrintable(foreign.path()), O_RDONLY);
    void *mapped = mmap(nullptr, 1, PROT_READ, MAP_SHARED, fd, 0);
    QVERIFY(close(fd) == 0 && mapped != MAP_FAILED);

    const QStringList keys = RegionUsers().getKeys();

    QCOMPARE(munmap(mapped, 1), 0);
    QCOMPARE(keys.count(current.key), 1);
    QCOMPARE(keys.count(removed.key), 1);
    QVERIFY(!keys.contains(unused.key) && !keys.contains(foreign.name()));
    QVERIFY(std::is_sorted(keys.cbegin(), keys.cend()));
}

/// The threads were listed before the last one made another and ended.
void tst_RegionUsers::userWhoseThreadIsReplacedByAnotherIsSeen()
{
    const TwoNumbers description;
    ChildProcess child(withoutMainThread([&description](const ChildSide &side) {
        const QuietManager manager(description, create);
        CHILD_VERIFY(manager.isValid());
        side.say();
        side.waitForWord();
        std::thread([] { pause(); }).detach();
        side.say();
        side.waitForWord();
        return 0;
    }));
    QVERIFY(child.waitUntilReady());
    const RegionInspection region = description.inspect();
    const std::optional<qint64> pid = region.getCreator().pid;
    QVERIFY(pid.has_value());
    bool hasOther = false;
    folderOfThreads = "/proc/" + std::to_string(*pid) + "/task/";
    atThread = [&] {
        child.tell();
        hasOther = child.waitUntilReady();
    };

    const QVector<RegionUser> users = region.getUsers();

    QVERIFY(hasOther);
    QCOMPARE(users.size(), 1);
    QVERIFY(users[0].pid == pid);
    child.tell();
    QCOMPARE(child.waitForExit(), 0);
}

/// Another thread may become a program while a table is open.
void tst_RegionUsers::tablesAreNotHandedToOtherPrograms()
{
    tables = 0;
    inheritedTables = 0;

    const RegionUsers look;

    QVERIFY(tables > 0);
    QCOMPARE(inheritedTables, 0);
}

void tst_RegionUsers::programThatIsNotToldHasTheNameOfItsProcess()
{
    const TwoNumbers description;
    const QuietManager creator(description, create);
    ChildProcess child([&description](const ChildSide & /*side*/) {
        CHILD_VERIFY(prctl(PR_SET_NAME, "plant reader") == 0);
        areProgramsHidden = true;
        for (const RegionUser &user : description.inspect().getUsers()) {
            if (user.pid == getpid()) {
                CHILD_VERIFY(user.program == QStringLiteral("plant reader"));
                return 0;
            }
        }
        return 1;
    });

    QCOMPARE(child.waitForExit(), 0);
}

QTEST_GUILESS_MAIN(tst_RegionUsers)

#include "tst_RegionUsers.moc"
