#include "ProcessData/Linux/NamedMemory.h"
#include "support/ChildProcess.h"
#include "support/LogCapture.h"
#include "support/ResourceLimit.h"
#include "support/SegmentFile.h"

#include <QDir>
#include <QtTest>

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

bool writeText(const QString &path, const QByteArray &text)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Unbuffered)
           && file.write(text) == text.size();
}

/// Gives this process a /dev/shm of its own that holds one megabyte. False if it is not allowed to.
bool enterSmallSharedMemory()
{
    const auto mapToItself = [](unsigned int id) {
        return QByteArray::number(id) + ' ' + QByteArray::number(id) + " 1";
    };
    const QByteArray user = mapToItself(geteuid());
    const QByteArray group = mapToItself(getegid());
    return unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0
           && writeText(QStringLiteral("/proc/self/uid_map"), user)
           && writeText(QStringLiteral("/proc/self/setgroups"), QByteArrayLiteral("deny"))
           && writeText(QStringLiteral("/proc/self/gid_map"), group)
           && mount("none", "/dev/shm", "tmpfs", 0, "size=1m") == 0;
}

} // namespace

class tst_SharedMemory : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void startsWithoutMappingAndFailure();
    void createdObjectHasExactlyTheKeyAsName();
    void createdMemoryIsZeroAndShared();
    void createdMemoryIsReservedAtOnce();
    void createdObjectHasModeSixSixSixUnderANarrowUmask();
    void createReplacesALeftOverObject();
    void attachedProcessKeepsTheMemoryThatCreateReplaced();
    void createKeepsTheRecordOfTheFirstAttempt();
    void refusedNameFailsAtTheSecondAttempt_data();
    void refusedNameFailsAtTheSecondAttempt();
    void refusalForAnotherReasonLeavesTheOldObject();
    void nameThatCannotBeRemovedFailsAtTheSecondAttempt();
    void createFailsAtASizeThatIsRefused_data();
    void createFailsAtASizeThatIsRefused();
    void fullFileSystemFailsAtCreation();
    void memoryOfNoBytesFailsAtTheMapping();
    void closedStandardInputLeavesItsNumberToTheMemory();
};

void tst_SharedMemory::startsWithoutMappingAndFailure()
{
    SharedMemory memory;

    QVERIFY(memory.data() == nullptr);
    QVERIFY(std::as_const(memory).data() == nullptr);
    QCOMPARE(memory.size(), 0);
    QCOMPARE(memory.error(), 0);
    QCOMPARE(memory.errorString(), QString());
}

void tst_SharedMemory::createdObjectHasExactlyTheKeyAsName()
{
    const SegmentFile segment(SemaphoreSet::uniqueKey(QStringLiteral("Exactly This.Name")));
    const auto memory = memoryNamed(segment.name());
    LogCapture log;

    QVERIFY(memory->create(12345));

    QVERIFY(segment.exists());
    QCOMPARE(segment.size(), qint64(12345));
    QCOMPARE(memory->size(), 12345);
    QVERIFY(memory->data() != nullptr);
    QCOMPARE(std::as_const(*memory).data(), static_cast<const void *>(memory->data()));
    QCOMPARE(memory->error(), 0);
    QCOMPARE(memory->errorString(), QString());
    COMPARE_LOG(log);
}

void tst_SharedMemory::createdMemoryIsZeroAndShared()
{
    const SegmentFile segment;
    const auto memory = memoryNamed(segment.name());

    QVERIFY(memory->create(5000));

    QCOMPARE(segment.content(), QByteArray(5000, '\0'));
    std::memcpy(bytesOf(*memory) + 4996, "last", 4);
    QCOMPARE(segment.content().right(5), QByteArray("\0last", 5));
}

void tst_SharedMemory::createdMemoryIsReservedAtOnce()
{
    const SegmentFile segment;
    const auto memory = memoryNamed(segment.name());

    QVERIFY(memory->create(1000000));

    QVERIFY(segment.reservedBytes() >= 1000000);
}

void tst_SharedMemory::createdObjectHasModeSixSixSixUnderANarrowUmask()
{
    const SegmentFile segment;
    const auto memory = memoryNamed(segment.name());

    const mode_t former = umask(0777);
    const bool created = memory->create(64);
    umask(former);

    QVERIFY(created);
    QCOMPARE(segment.mode(), 0666);
}

void tst_SharedMemory::createReplacesALeftOverObject()
{
    const SegmentFile segment;
    QVERIFY(segment.make(QByteArray(300, 'x')));
    const quint64 formerInode = segment.inode();
    // Keeps the number of the old object in use.
    const auto formerUser = memoryNamed(segment.name());
    QVERIFY(formerUser->attach(SharedMemory::ReadOnly));
    const auto memory = memoryNamed(segment.name());
    LogCapture log;

    QVERIFY(memory->create(100));

    QVERIFY(segment.inode() != formerInode);
    QCOMPARE(segment.content(), QByteArray(100, '\0'));
    QCOMPARE(segment.mode(), 0666);
    QCOMPARE(memory->size(), 100);
    COMPARE_LOG(log);
}

void tst_SharedMemory::attachedProcessKeepsTheMemoryThatCreateReplaced()
{
    const SegmentFile segment;
    QVERIFY(segment.make(QByteArrayLiteral("old memory")));
    const auto attached = memoryNamed(segment.name());
    QVERIFY(attached->attach(SharedMemory::ReadWrite));
    const auto memory = memoryNamed(segment.name());
    QVERIFY(memory->create(10));

    std::memcpy(memory->data(), "new memory", 10);

    QCOMPARE(QByteArray(bytesOf(*attached), 10), QByteArrayLiteral("old memory"));
    std::memcpy(attached->data(), "OLD", 3);
    QCOMPARE(segment.content(), QByteArrayLiteral("new memory"));
}

void tst_SharedMemory::createKeepsTheRecordOfTheFirstAttempt()
{
    const SegmentFile segment;
    QVERIFY(segment.make(QByteArrayLiteral("x")));
    const auto memory = memoryNamed(segment.name());

    QVERIFY(memory->create(16));

    QCOMPARE(memory->error(), EEXIST);
    QCOMPARE(memory->errorString(),
             QStringLiteral("SharedMemory::create: shm_open O_CLOEXEC failed: File exists"));
    QCOMPARE(memory->size(), 16);
}

void tst_SharedMemory::refusedNameFailsAtTheSecondAttempt_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<int>("error");
    QTest::addColumn<QString>("reason");

    QTest::newRow("empty") << QString() << EINVAL << QStringLiteral("Invalid argument");
    QTest::newRow("slash inside") << QStringLiteral("tessel/test") << EINVAL
                                  << QStringLiteral("Invalid argument");
    QTest::newRow("too long") << QString(300, QLatin1Char('n')) << EINVAL
                              << QStringLiteral("Invalid argument");
}

void tst_SharedMemory::refusedNameFailsAtTheSecondAttempt()
{
    QFETCH(QString, key);
    QFETCH(int, error);
    QFETCH(QString, reason);
    const auto memory = memoryNamed(key);
    LogCapture log;

    QVERIFY(!memory->create(64));

    QCOMPARE(memory->errorString(),
             QStringLiteral("SharedMemory::create: shm_open failed: ") + reason);
    QCOMPARE(memory->error(), error);
    QVERIFY(memory->data() == nullptr);
    QCOMPARE(memory->size(), 0);
    COMPARE_LOG(log);
}

void tst_SharedMemory::refusalForAnotherReasonLeavesTheOldObject()
{
    const SegmentFile segment;
    QVERIFY(segment.make(QByteArrayLiteral("old")));
    const auto memory = memoryNamed(segment.name());
    bool created = true;
    {
        const ResourceLimit noDescriptors(RLIMIT_NOFILE, 0);
        created = memory->create(64);
    }

    QVERIFY(!created);
    QCOMPARE(memory->error(), EMFILE);
    QCOMPARE(memory->errorString(),
             QStringLiteral("SharedMemory::create: shm_open failed: Too many open files"));
    QCOMPARE(segment.content(), QByteArrayLiteral("old"));
}

void tst_SharedMemory::nameThatCannotBeRemovedFailsAtTheSecondAttempt()
{
    const SegmentFile segment;
    QVERIFY(QDir().mkdir(segment.path()));
    auto memory = memoryNamed(segment.name());

    QVERIFY(!memory->create(64));

    QCOMPARE(memory->error(), EEXIST);
    QCOMPARE(memory->errorString(),
             QStringLiteral("SharedMemory::create: shm_open failed: File exists"));
    memory.reset();
    QVERIFY(QDir().rmdir(segment.path()));
}

void tst_SharedMemory::createFailsAtASizeThatIsRefused_data()
{
    QTest::addColumn<int>("size");
    QTest::addColumn<int>("error");
    QTest::addColumn<QString>("reason");

    QTest::newRow("above the limit for files")
        << 65537 << EFBIG << QStringLiteral("File too large");
    QTest::newRow("negative") << -1 << EINVAL << QStringLiteral("Invalid argument");
}

void tst_SharedMemory::createFailsAtASizeThatIsRefused()
{
    QFETCH(int, size);
    QFETCH(int, error);
    QFETCH(QString, reason);
    const SegmentFile segment;
    const auto memory = memoryNamed(segment.name());
    bool created = true;
    {
        // The other answer to a file that is too large.
        const auto former = signal(SIGXFSZ, SIG_IGN);
        const ResourceLimit smallFiles(RLIMIT_FSIZE, 65536);
        created = memory->create(size);
        signal(SIGXFSZ, former);
    }

    QVERIFY(!created);
    QCOMPARE(memory->error(), error);
    QCOMPARE(memory->errorString(),
             QStringLiteral("SharedMemory::create: ftruncate failed: ") + reason);
    QVERIFY(memory->data() == nullptr);
    QCOMPARE(memory->size(), 0);
    QVERIFY(segment.exists());
}

void tst_SharedMemory::fullFileSystemFailsAtCreation()
{
    constexpr int notAllowed = 77;
    ChildProcess child([](const ChildSide &) {
        if (!enterSmallSharedMemory()) {
            return notAllowed;
        }
        const auto fitting = memoryNamed(QStringLiteral("fitting"));
        CHILD_VERIFY(fitting->create(512 * 1024));
        const auto memory = memoryNamed(QStringLiteral("beyond"));
        CHILD_VERIFY(!memory->create(2 * 1024 * 1024));
        CHILD_VERIFY(memory->error() == ENOSPC);
        CHILD_VERIFY(memory->errorString()
                     == QLatin1String("SharedMemory::create: ftruncate failed: "
                                      "No space left on device"));
        CHILD_VERIFY(memory->data() == nullptr && memory->size() == 0);
        return 0;
    });

    const int exitCode = child.waitForExit();

    if (exitCode == notAllowed) {
        QSKIP("no file system of its own allowed here");
    }
    QCOMPARE(exitCode, 0);
}

void tst_SharedMemory::memoryOfNoBytesFailsAtTheMapping()
{
    const SegmentFile segment;
    const auto memory = memoryNamed(segment.name());

    QVERIFY(!memory->create(0));

    QCOMPARE(memory->error(), EINVAL);
    QCOMPARE(memory->errorString(),
             QStringLiteral("SharedMemory::attach: mmap failed: Invalid argument"));
    QVERIFY(memory->data() == nullptr);
    QCOMPARE(memory->size(), 0);
}

/// As in a service that has closed it: the object is opened as descriptor 0.
void tst_SharedMemory::closedStandardInputLeavesItsNumberToTheMemory()
{
    const SegmentFile segment;
    const auto creator = memoryNamed(segment.name());
    const auto user = memoryNamed(segment.name());
    const int input = ::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    ::close(STDIN_FILENO);

    const bool isCreated = creator->create(100);
    const bool isAttached = user->attach(SharedMemory::ReadWrite);
    const bool isClosedAgain = ::fcntl(STDIN_FILENO, F_GETFD) == -1;
    if (input >= 0) {
        ::dup2(input, STDIN_FILENO);
        ::close(input);
    }

    QVERIFY2(isCreated, qPrintable(creator->errorString()));
    QVERIFY2(isAttached, qPrintable(user->errorString()));
    QVERIFY(isClosedAgain);
    QCOMPARE(user->size(), 100);
}

QTEST_GUILESS_MAIN(tst_SharedMemory)

#include "tst_SharedMemory.moc"
