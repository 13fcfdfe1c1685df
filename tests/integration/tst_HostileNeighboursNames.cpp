#include "integration/HostileDescription.h"
#include "support/ChildProcess.h"
#include "support/ResourceLimit.h"
#include "support/WorkingDirectory.h"

#include <csignal>

#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>

namespace {

/// Gives this process a /dev/shm of its own that holds one megabyte.
bool enterSmallSharedMemory()
{
    return geteuid() == 0 && unshare(CLONE_NEWNS) == 0
           && mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0
           && mount("none", "/dev/shm", "tmpfs", 0, "size=1m") == 0;
}

bool enterPlaceWithoutSemaphores()
{
    if (geteuid() != 0 || unshare(CLONE_NEWIPC) != 0) {
        return false;
    }
    QFile limits(QStringLiteral("/proc/sys/kernel/sem"));
    return limits.open(QIODevice::WriteOnly | QIODevice::Unbuffered)
           && limits.write("32000 1024000000 500 0\n") > 0;
}

const uid_t somebodyElse = 65534;

} // namespace

/// What stands under the names of a region, and is none: each ends in a failure that says what and
/// where, and leaves nothing behind.
class tst_HostileNeighboursNames : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void directoryIsNoRegion();
    void linkIsNotFollowed();
    void pipeIsNoRegion();
    void emptyFileIsNoRegion();
    void fileOfTheRightSizeIsTakenAsItIs();
    void segmentOfAnotherUserIsRefused();
    void segmentOfAnotherUserIsNotReplaced();
    void nameThatCannotBeIsRefused_data();
    void nameThatCannotBeIsRefused();
    void processWithoutDescriptorsIsRefused();
    void limitOfFilesIsReported();
    void fullSharedMemoryIsReported();
    void lackOfSemaphoresIsReported();
};

void tst_HostileNeighboursNames::directoryIsNoRegion()
{
    const HostileDescription description;
    QVERIFY(QDir().mkdir(description.segment.path()));
    LogCapture log;

    QVERIFY(!HostileUser(description, hostileAttach).isAttached());
    QCOMPARE(log.take(),
             attachmentFailure(description.key, QStringLiteral("shm_open failed: Invalid argument"),
                               EINVAL));
    QVERIFY(!HostileUser(description, hostileCreate).isAttached());
    QCOMPARE(log.take(), creationFailure(QStringLiteral("shm_open failed: File exists"), EEXIST));

    QVERIFY(!description.semaphores.exists());
    QVERIFY(QDir().rmdir(description.segment.path()));
}

void tst_HostileNeighboursNames::linkIsNotFollowed()
{
    const HostileDescription description;
    const WorkingDirectory directory;
    const QString target = QDir::currentPath() + QStringLiteral("/target");
    const QByteArray content(4096, 'x');
    writeFile(target, content);
    makeLink(description.segment.path(), target);
    LogCapture log;

    QVERIFY(!HostileUser(description, hostileAttach).isAttached());
    QCOMPARE(log.take(),
             attachmentFailure(description.key,
                               QStringLiteral("shm_open failed: Too many levels of symbolic links"),
                               ELOOP));
    {
        HostileUser creator(description, hostileCreate);
        QVERIFY(creator.isAttached() && creator.publish(4));
        QCOMPARE(HostileUser(description, hostileAttach).read(), 4);
    }

    // The link is replaced; what it led to is not touched.
    QCOMPARE(readFile(target), content);
    QVERIFY(!description.segment.exists());
}

void tst_HostileNeighboursNames::pipeIsNoRegion()
{
    const HostileDescription description;
    QCOMPARE(mkfifo(QFile::encodeName(description.segment.path()).constData(), 0666), 0);
    LogCapture log;

    QVERIFY(!HostileUser(description, hostileAttach).isAttached());
    QCOMPARE(log.take(),
             attachmentFailure(description.key, QStringLiteral("mmap failed: Invalid argument"),
                               EINVAL));
    HostileUser creator(description, hostileCreate);
    QVERIFY(creator.isAttached() && creator.publish(4));
    QCOMPARE(creator.read(), 4);
    COMPARE_LOG(log, createdLine(description.key));
}

void tst_HostileNeighboursNames::emptyFileIsNoRegion()
{
    // So it looks where a creator was stopped between the name and the size of its memory.
    const HostileDescription description;
    QVERIFY(description.segment.make(QByteArray()));
    LogCapture log;

    QVERIFY(!HostileUser(description, hostileAttach).isAttached());

    QCOMPARE(log.take(),
             attachmentFailure(description.key, QStringLiteral("mmap failed: Invalid argument"),
                               EINVAL));
    QVERIFY(!description.semaphores.exists());
}

void tst_HostileNeighboursNames::fileOfTheRightSizeIsTakenAsItIs()
{
    const HostileDescription description(false);
    const QByteArray content(4096, '\x55');
    QVERIFY(description.segment.make(content));
    LogCapture log;

    {
        const HostileUser user(description, hostileAttach);
        QVERIFY(user.isAttached());
        QCOMPARE(user.read(), -1);
        QVERIFY(user.write(7));
        QCOMPARE(user.read(), 7);
    }

    COMPARE_LOG(log, attachedLine(description.key));
    QCOMPARE(description.segment.content().mid(8), content.mid(8));
    QVERIFY(!description.semaphores.exists());
}

void tst_HostileNeighboursNames::segmentOfAnotherUserIsRefused()
{
    const HostileDescription description;
    QVERIFY(description.segment.make(QByteArray(4096, 'x')));
    QVERIFY(QFile::setPermissions(description.segment.path(), QFile::ReadOwner));
    ChildProcess other([&description](const ChildSide &) {
        if (setuid(somebodyElse) != 0) {
            return ChildProcess::sm_cannotTry;
        }
        LogCapture log;
        CHILD_VERIFY(!HostileUser(description, hostileAttach).isAttached());
        CHILD_VERIFY(log.take()
                     == attachmentFailure(description.key,
                                          QStringLiteral("shm_open failed: Permission denied"),
                                          EACCES));
        return 0;
    });

    COMPARE_EXIT(other.waitForExit(), "the right to become another user");
    QVERIFY(!description.semaphores.exists());
}

void tst_HostileNeighboursNames::segmentOfAnotherUserIsNotReplaced()
{
    const HostileDescription description;
    const QByteArray content(4096, 'x');
    QVERIFY(description.segment.make(content));
    ChildProcess other([&description](const ChildSide &) {
        struct stat directory = {};
        if (stat("/dev/shm", &directory) != 0 || (directory.st_mode & S_ISVTX) == 0
            || setuid(somebodyElse) != 0) {
            return ChildProcess::sm_cannotTry;
        }
        LogCapture log;
        CHILD_VERIFY(!HostileUser(description, hostileCreate).isAttached());
        CHILD_VERIFY(log.take()
                     == creationFailure(QStringLiteral("shm_open failed: File exists"), EEXIST));
        return 0;
    });

    COMPARE_EXIT(other.waitForExit(), "the right to become another user");
    QCOMPARE(description.segment.content(), content);
}

void tst_HostileNeighboursNames::nameThatCannotBeIsRefused_data()
{
    QTest::addColumn<QString>("key");

    QTest::newRow("slash inside") << QStringLiteral("tessel/test");
    QTest::newRow("way up") << QStringLiteral("../tmp/tessel-test");
    QTest::newRow("too long") << QString(300, QLatin1Char('n'));
}

void tst_HostileNeighboursNames::nameThatCannotBeIsRefused()
{
    QFETCH(QString, key);
    HostileDescription description;
    description.key = key;
    LogCapture log;

    QVERIFY(!HostileUser(description, hostileCreate).isAttached());
    QCOMPARE(log.take(),
             creationFailure(QStringLiteral("shm_open failed: Invalid argument"), EINVAL));
    QVERIFY(!HostileUser(description, hostileAttach).isAttached());
    QCOMPARE(log.take(),
             attachmentFailure(key, QStringLiteral("shm_open failed: Invalid argument"), EINVAL));
    QVERIFY(!SemaphoreSet(key + QStringLiteral("Semaphore")).exists());
}

void tst_HostileNeighboursNames::processWithoutDescriptorsIsRefused()
{
    const HostileDescription description;
    HostileUser creator(description, hostileCreate);
    QVERIFY(creator.publish(4));
    const auto root = description.parse();
    ProcessDataManager manager;
    LogCapture log;
    {
        const ResourceLimit noDescriptors(RLIMIT_NOFILE, 0);
        QVERIFY(!manager.createProcessData(root, hostileAttach));
        // Who has attached needs none any more.
        QVERIFY(creator.publish(5));
        QCOMPARE(creator.read(), 5);
    }

    QCOMPARE(log.take(),
             attachmentFailure(description.key,
                               QStringLiteral("shm_open failed: Too many open files"), EMFILE));
    QVERIFY(manager.createProcessData(root, hostileAttach));
}

void tst_HostileNeighboursNames::limitOfFilesIsReported()
{
    const HostileDescription description(true, 65536);
    LogCapture log;
    {
        const auto former = signal(SIGXFSZ, SIG_IGN);
        const ResourceLimit smallFiles(RLIMIT_FSIZE, 65536);
        QVERIFY(!HostileUser(description, hostileCreate).isAttached());
        signal(SIGXFSZ, former);
    }

    QCOMPARE(log.take(),
             creationFailure(QStringLiteral("ftruncate failed: File too large"), EFBIG));
    QVERIFY(!description.segment.exists());
    QVERIFY(!description.semaphores.exists());
}

void tst_HostileNeighboursNames::fullSharedMemoryIsReported()
{
    const HostileDescription description(true, 1024 * 1024);
    ChildProcess child([&description](const ChildSide &) {
        if (!enterSmallSharedMemory()) {
            return ChildProcess::sm_cannotTry;
        }
        LogCapture log;
        CHILD_VERIFY(!HostileUser(description, hostileCreate).isAttached());
        CHILD_VERIFY(log.take()
                     == creationFailure(QStringLiteral("ftruncate failed: No space left on device"),
                                        ENOSPC));
        CHILD_VERIFY(!description.segment.exists());
        CHILD_VERIFY(!description.semaphores.exists());
        return 0;
    });

    COMPARE_EXIT(child.waitForExit(), "a file system of its own");
}

void tst_HostileNeighboursNames::lackOfSemaphoresIsReported()
{
    const HostileDescription description;
    ChildProcess child([&description](const ChildSide &) {
        if (!enterPlaceWithoutSemaphores()) {
            return ChildProcess::sm_cannotTry;
        }
        LogCapture log;
        HostileUser creator(description, hostileCreate);
        // The region stands and can be read, but nothing can be published.
        CHILD_VERIFY(creator.isAttached());
        CHILD_VERIFY(
            log.take()
            == (QList<LogLine>{
                createdLine(description.key),
                warning(QStringLiteral("Can't make the semaphores of \"%1\" \"No space left on "
                                       "device\" (limits: /proc/sys/kernel/sem, sets in use: ipcs "
                                       "-s)")
                            .arg(description.semaphores.key())),
                warning(QStringLiteral("Can't unlock sharedMemroy after initialisation")),
                warning(QStringLiteral("Can't swap sharedMemory after initialisation"))}));
        CHILD_VERIFY(!creator.write(4));
        CHILD_VERIFY(log.take() == QList<LogLine>{nullWrite()});
        CHILD_VERIFY(!creator.manager.swapReadAndWriteBuffer());
        CHILD_VERIFY(creator.read() == 0);
        CHILD_VERIFY(log.take() == QList<LogLine>());
        return 0;
    });

    COMPARE_EXIT(child.waitForExit(), "a place without semaphores");
    QVERIFY(!description.segment.exists());
}

QTEST_GUILESS_MAIN(tst_HostileNeighboursNames)
#include "tst_HostileNeighboursNames.moc"
