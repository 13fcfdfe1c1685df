#include "InspectedRegion.h"
#include "support/ChildProcess.h"
#include "support/ResourceLimit.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/stat.h>

namespace {

using Name = RegionInspection::Name;

/// With the ending behind it, the name of the memory has one character more than a file may have.
constexpr int oneTooLong = 255 - 12 + 1;

} // namespace

/// What an inspection makes of the name of the memory.
class tst_RegionNames : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void keyThatNoMemoryCanHaveIsNotThere_data();
    void keyThatNoMemoryCanHaveIsNotThere();
    void emptyKeyHasNoLock();
    void fileInAFolderIsNoRegion();
    void slashInFrontLeadsToTheSameRegion();
    void missingRegionIsMissingWithoutDescriptors();
    void regionIsThereWithoutDescriptors();
    void nameIsCurrentWithoutDescriptors();
    void linkIsThereButNoRegion();
    void nameOfWhatIsNotReadableIsKnown();
    void regionIsReadableByTheFirstDescriptorOfAll();
};

void tst_RegionNames::keyThatNoMemoryCanHaveIsNotThere_data()
{
    QTest::addColumn<QString>("key");
    QTest::newRow("slash inside") << QStringLiteral("plant/tank");
    QTest::newRow("slash at the end") << QStringLiteral("plant/");
    QTest::newRow("one character too long") << QString(oneTooLong, QLatin1Char('k'));
    QTest::newRow("far too long") << QString(5000, QLatin1Char('k'));
}

void tst_RegionNames::keyThatNoMemoryCanHaveIsNotThere()
{
    QFETCH(QString, key);
    TwoNumbers description;
    description.key = key;

    for (const auto &region : {description.inspect(), description.inspectDescribed()}) {
        QVERIFY(!region.exists());
        QVERIFY(!region.isReadable());
        QVERIFY(region.getError() == EINVAL || region.getError() == ENAMETOOLONG);
        QVERIFY(!region.getErrorString().isEmpty());
        QVERIFY(region.getName() == Name::Removed);
    }
}

/// Whatever has made semaphores by the ending alone.
void tst_RegionNames::emptyKeyHasNoLock()
{
    ChildProcess child([](const ChildSide & /*side*/) {
        if (unshare(CLONE_NEWIPC) != 0) {
            return ChildProcess::sm_cannotTry;
        }
        unsigned char buffer[16]{};
        SingleBufferHandler handler(buffer, SystemVSemaphoreBaseClass::CreationTypeCreate,
                                    sizeof buffer, QStringLiteral("Semaphore"));
        CHILD_VERIFY(handler.lockForWrite() != nullptr);
        const RegionLock lock = RegionInspection(QString()).getLock();
        CHILD_VERIFY(handler.unlockForWrite(buffer));
        CHILD_VERIFY(lock.state == RegionLock::State::Unknown);
        return 0;
    });

    COMPARE_EXIT(child.waitForExit(), "semaphores of its own");
}

/// Whoever creates and attaches cannot have it as a memory.
void tst_RegionNames::fileInAFolderIsNoRegion()
{
    const QString folder = SemaphoreSet::uniqueKey(QStringLiteral("folder"));
    const SegmentFile segment(folder + QStringLiteral("/tankSharedMemory"));
    QVERIFY(QDir(QStringLiteral("/dev/shm")).mkdir(folder));
    const bool isMade = segment.make("seven b");

    const RegionInspection region(folder + QStringLiteral("/tank"));

    QVERIFY(segment.remove());
    QVERIFY(QDir(QStringLiteral("/dev/shm")).rmdir(folder));
    QVERIFY(isMade);
    QVERIFY(!region.exists());
    QVERIFY(region.getName() == Name::Removed);
}

void tst_RegionNames::slashInFrontLeadsToTheSameRegion()
{
    const TwoNumbers description;
    const QuietManager creator(description, create);

    const RegionInspection region(QLatin1Char('/') + description.key);

    QVERIFY(region.exists());
    QVERIFY(region.getName() == Name::Current);
    QVERIFY(region.getCreator().pid == qint64{getpid()});
}

void tst_RegionNames::missingRegionIsMissingWithoutDescriptors()
{
    const TwoNumbers description;
    const ResourceLimit limit(RLIMIT_NOFILE, 0);

    const RegionInspection region = description.inspect();

    QVERIFY(!region.exists());
    QVERIFY(region.getName() == Name::Removed);
    QCOMPARE(region.getError(), EMFILE);
}

void tst_RegionNames::regionIsThereWithoutDescriptors()
{
    const TwoNumbers description;
    const QuietManager creator(description, create);
    const ResourceLimit limit(RLIMIT_NOFILE, 0);

    const RegionInspection region = description.inspect();

    QVERIFY(region.exists());
    QVERIFY(!region.isReadable());
    QCOMPARE(region.getError(), EMFILE);
}

void tst_RegionNames::nameIsCurrentWithoutDescriptors()
{
    const TwoNumbers description;
    auto creator = std::make_unique<QuietManager>(description, create);
    const RegionInspection region = description.inspect();
    {
        const ResourceLimit limit(RLIMIT_NOFILE, 0);
        QVERIFY(region.getName() == Name::Current);
    }

    creator.reset();

    const ResourceLimit limit(RLIMIT_NOFILE, 0);
    QVERIFY(region.getName() == Name::Removed);
}

void tst_RegionNames::linkIsThereButNoRegion()
{
    const TwoNumbers description;
    const SegmentFile target;
    QVERIFY(target.make("seven b"));
    QVERIFY(QFile::link(target.path(), description.segment.path()));

    const RegionInspection region = description.inspect();

    QVERIFY(region.exists());
    QVERIFY(!region.isReadable());
    QCOMPARE(region.getError(), ELOOP);
    QVERIFY(region.getName() == Name::Current);
}

/// Such as one that is just being made, or that somebody else may look at alone.
void tst_RegionNames::nameOfWhatIsNotReadableIsKnown()
{
    const TwoNumbers description;
    QVERIFY(description.segment.make(QByteArray()));
    const RegionInspection region = description.inspect();
    QVERIFY(!region.isReadable());
    QVERIFY(region.getName() == Name::Current);

    QVERIFY(
        QFile::rename(description.segment.path(), description.segment.path() + QLatin1Char('x')));
    const SegmentFile renamed(description.segment.name() + QLatin1Char('x'));
    QVERIFY(region.getName() == Name::Removed);

    QVERIFY(description.segment.make(QByteArray()));
    QVERIFY(region.getName() == Name::Replaced);
}

/// A service may run without a standard input.
void tst_RegionNames::regionIsReadableByTheFirstDescriptorOfAll()
{
    const TwoNumbers description;
    const QuietManager creator(description, create);
    ChildProcess child([&description](const ChildSide & /*side*/) {
        CHILD_VERIFY(close(STDIN_FILENO) == 0);
        const RegionInspection region = description.inspect();
        CHILD_VERIFY(fcntl(STDIN_FILENO, F_GETFD) >= 0);
        CHILD_VERIFY(region.isReadable());
        CHILD_VERIFY(region.getCreator().pid == qint64{getppid()});
        return 0;
    });

    QCOMPARE(child.waitForExit(), 0);
}

QTEST_GUILESS_MAIN(tst_RegionNames)

#include "tst_RegionNames.moc"
