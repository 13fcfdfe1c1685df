// Which system calls the shared memory makes, with what and in which order, and what it does when
// one of them fails.

#include "ProcessData/Linux/NamedMemory.h"
#include "ProcessData/Linux/SystemCallRecording.h"
#include "support/LogCapture.h"
#include "support/SegmentFile.h"

#include <QtTest>

#include <cerrno>

#include <sys/stat.h>

namespace {

QString unlinkOf(const SegmentFile &segment)
{
    return QStringLiteral("shm_unlink(") + segment.name() + QLatin1Char(')');
}

const QString firstOpen = QStringLiteral("shm_open(flags 524482, mode 0666)");
const QString secondOpen = QStringLiteral("shm_open(flags 194, mode 0666)");
const QString modeChange = QStringLiteral("fchmod(0666)");
const QString closing = QStringLiteral("close()");
const QString statusQuery = QStringLiteral("fstat()");

} // namespace

class tst_SharedMemorySystemCalls : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void createGoesStepByStep();
    void createOverAnExistingNameRemovesItFirst();
    void createGoesOnWhenTheNameCannotBeRemoved();
    void createRetriesWithoutRemovingForAnyOtherReason();
    void createThatIsRefusedTwiceRecordsTheSecondReason();
    void failedModeChangeIsAWarningOnly();
    void failedSizeEndsTheCreation();
    void missingMemoryEndsTheCreation_data();
    void missingMemoryEndsTheCreation();
    void reservationThatIsNotPossibleIsHarmless_data();
    void reservationThatIsNotPossibleIsHarmless();
    void interruptedReservationIsRepeated();
    void failedMappingEndsTheCreation();

    void attachGoesStepByStep_data();
    void attachGoesStepByStep();
    void pipeIsNotOpenedForReading();
    void failedOpenEndsTheAttachment();
    void failedStatusEndsTheAttachment();
    void failedMappingEndsTheAttachment();

    void creatorRemovesTheNameBeforeItUnmaps();
    void attacherOnlyUnmaps();
    void emptyKeyIsNeverRemoved();
    void failedRemovalIsIgnored();
    void failedUnmappingIsAWarning();
    void unusedMemoryDoesNothingAtItsEnd();
};

void tst_SharedMemorySystemCalls::createGoesStepByStep()
{
    const SegmentFile segment;
    const auto memory = memoryNamed(segment.name());
    SystemCallRecording recording;

    QVERIFY(memory->create(4000));

    QCOMPARE(
        recording.take(),
        QStringList({firstOpen, modeChange, QStringLiteral("ftruncate(4000)"),
                     QStringLiteral("fallocate(0, 0, 4000)"),
                     QStringLiteral("mmap(size 4000, protection 3, flags 1, offset 0)"), closing}));
}

void tst_SharedMemorySystemCalls::createOverAnExistingNameRemovesItFirst()
{
    const SegmentFile segment;
    QVERIFY(segment.make(QByteArrayLiteral("old")));
    const auto memory = memoryNamed(segment.name());
    SystemCallRecording recording;

    QVERIFY(memory->create(64));

    QCOMPARE(recording.take().mid(0, 4),
             QStringList({firstOpen, unlinkOf(segment), secondOpen, modeChange}));
}

void tst_SharedMemorySystemCalls::createGoesOnWhenTheNameCannotBeRemoved()
{
    const SegmentFile segment;
    const auto memory = memoryNamed(segment.name());
    SystemCallRecording recording;
    recording.letFail("shm_open", {EEXIST});
    recording.letFail("shm_unlink", {EACCES});

    QVERIFY(memory->create(64));

    QCOMPARE(recording.take().mid(0, 4),
             QStringList({firstOpen, unlinkOf(segment), secondOpen, modeChange}));
    QCOMPARE(memory->error(), EACCES);
    QCOMPARE(memory->errorString(),
             QStringLiteral("SharedMemory::create: shm_unlink failed: Permission denied"));
    QCOMPARE(memory->size(), 64);
    QVERIFY(memory->data() != nullptr);
}

void tst_SharedMemorySystemCalls::createRetriesWithoutRemovingForAnyOtherReason()
{
    const SegmentFile segment;
    const auto memory = memoryNamed(segment.name());
    SystemCallRecording recording;
    recording.letFail("shm_open", {EINVAL});

    QVERIFY(memory->create(64));

    QCOMPARE(recording.take().mid(0, 3), QStringList({firstOpen, secondOpen, modeChange}));
    QCOMPARE(memory->error(), EINVAL);
    QCOMPARE(memory->errorString(),
             QStringLiteral("SharedMemory::create: shm_open O_CLOEXEC failed: Invalid argument"));
}

void tst_SharedMemorySystemCalls::createThatIsRefusedTwiceRecordsTheSecondReason()
{
    const SegmentFile segment;
    const auto memory = memoryNamed(segment.name());
    SystemCallRecording recording;
    recording.letFail("shm_open", {EACCES, EMFILE});

    QVERIFY(!memory->create(64));

    QCOMPARE(recording.take(), QStringList({firstOpen, secondOpen}));
    QCOMPARE(memory->error(), EMFILE);
    QCOMPARE(memory->errorString(),
             QStringLiteral("SharedMemory::create: shm_open failed: Too many open files"));
}

void tst_SharedMemorySystemCalls::failedModeChangeIsAWarningOnly()
{
    const SegmentFile segment;
    const auto memory = memoryNamed(segment.name());
    SystemCallRecording recording;
    recording.letFail("fchmod", {EPERM});
    LogCapture log;

    QVERIFY(memory->create(64));

    COMPARE_LOG(log, warning(QStringLiteral("Could not change shared memory rights to 666: "
                                            "Operation not permitted")));
    QCOMPARE(memory->size(), 64);
    QCOMPARE(memory->error(), 0);
}

void tst_SharedMemorySystemCalls::failedSizeEndsTheCreation()
{
    const SegmentFile segment;
    const auto memory = memoryNamed(segment.name());
    SystemCallRecording recording;
    recording.letFail("ftruncate", {EIO});

    QVERIFY(!memory->create(64));

    QCOMPARE(recording.take(),
             QStringList({firstOpen, modeChange, QStringLiteral("ftruncate(64)"), closing}));
    QCOMPARE(memory->error(), EIO);
    QCOMPARE(memory->errorString(),
             QStringLiteral("SharedMemory::create: ftruncate failed: Input/output error"));
    QVERIFY(memory->data() == nullptr);
    QCOMPARE(memory->size(), 0);
}

void tst_SharedMemorySystemCalls::missingMemoryEndsTheCreation_data()
{
    QTest::addColumn<int>("error");
    QTest::addColumn<QString>("reason");

    QTest::newRow("file system full") << ENOSPC << QStringLiteral("No space left on device");
    QTest::newRow("limit for files") << EFBIG << QStringLiteral("File too large");
    QTest::newRow("limit of a control group") << ENOMEM << QStringLiteral("Cannot allocate memory");
    QTest::newRow("limit of a user") << EDQUOT << QStringLiteral("Disk quota exceeded");
}

void tst_SharedMemorySystemCalls::missingMemoryEndsTheCreation()
{
    QFETCH(int, error);
    QFETCH(QString, reason);
    const SegmentFile segment;
    const auto memory = memoryNamed(segment.name());
    SystemCallRecording recording;
    recording.letFail("fallocate", {error});

    QVERIFY(!memory->create(64));

    QCOMPARE(recording.take().mid(3),
             QStringList({QStringLiteral("fallocate(0, 0, 64)"), closing}));
    QCOMPARE(memory->error(), error);
    QCOMPARE(memory->errorString(),
             QStringLiteral("SharedMemory::create: ftruncate failed: ") + reason);
    QVERIFY(memory->data() == nullptr);
    QCOMPARE(memory->size(), 0);
}

void tst_SharedMemorySystemCalls::reservationThatIsNotPossibleIsHarmless_data()
{
    QTest::addColumn<int>("error");

    QTest::newRow("not supported") << EOPNOTSUPP;
    QTest::newRow("not understood") << EINVAL;
    QTest::newRow("no such call") << ENOSYS;
}

void tst_SharedMemorySystemCalls::reservationThatIsNotPossibleIsHarmless()
{
    QFETCH(int, error);
    const SegmentFile segment;
    const auto memory = memoryNamed(segment.name());
    SystemCallRecording recording;
    recording.letFail("fallocate", {error});
    LogCapture log;

    QVERIFY(memory->create(64));

    QCOMPARE(memory->size(), 64);
    QVERIFY(memory->data() != nullptr);
    QCOMPARE(memory->error(), 0);
    COMPARE_LOG(log);
}

void tst_SharedMemorySystemCalls::interruptedReservationIsRepeated()
{
    const SegmentFile segment;
    const auto memory = memoryNamed(segment.name());
    SystemCallRecording recording;
    recording.letFail("fallocate", {EINTR, EINTR, ENOSPC});

    QVERIFY(!memory->create(64));

    QCOMPARE(recording.take().count(QStringLiteral("fallocate(0, 0, 64)")), 3);
    QCOMPARE(memory->error(), ENOSPC);
}

void tst_SharedMemorySystemCalls::failedMappingEndsTheCreation()
{
    const SegmentFile segment;
    const auto memory = memoryNamed(segment.name());
    SystemCallRecording recording;
    recording.letFail("mmap", {ENOMEM});

    QVERIFY(!memory->create(64));

    QCOMPARE(
        recording.take().mid(4),
        QStringList({QStringLiteral("mmap(size 64, protection 3, flags 1, offset 0)"), closing}));
    QCOMPARE(memory->error(), ENOMEM);
    QCOMPARE(memory->errorString(),
             QStringLiteral("SharedMemory::attach: mmap failed: Cannot allocate memory"));
    QVERIFY(memory->data() == nullptr);
    QCOMPARE(memory->size(), 0);
}

void tst_SharedMemorySystemCalls::attachGoesStepByStep_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<QString>("opening");
    QTest::addColumn<int>("protection");

    QTest::newRow("read and write")
        << int(SharedMemory::ReadWrite) << QStringLiteral("shm_open(flags 130, mode 0666)") << 3;
    QTest::newRow("read only") << int(SharedMemory::ReadOnly)
                               << QStringLiteral("shm_open(flags 128, mode 0444)") << 1;
}

void tst_SharedMemorySystemCalls::attachGoesStepByStep()
{
    QFETCH(int, mode);
    QFETCH(QString, opening);
    QFETCH(int, protection);
    const SegmentFile segment;
    QVERIFY(segment.make(QByteArray(77, 'x')));
    const auto memory = memoryNamed(segment.name());
    SystemCallRecording recording;

    QVERIFY(memory->attach(static_cast<SharedMemory::AccessMode>(mode)));

    QCOMPARE(recording.take(),
             QStringList(
                 {opening, statusQuery,
                  QStringLiteral("mmap(size 77, protection %1, flags 1, offset 0)").arg(protection),
                  closing}));
}

void tst_SharedMemorySystemCalls::pipeIsNotOpenedForReading()
{
    const SegmentFile segment;
    QCOMPARE(mkfifo(QFile::encodeName(segment.path()).constData(), 0666), 0);
    const auto memory = memoryNamed(segment.name());
    SystemCallRecording recording;
    // The opening would not come back.
    recording.letFail("shm_open", {ENOENT});

    QVERIFY(!memory->attach(SharedMemory::ReadOnly));

    QCOMPARE(recording.take(), QStringList());
    QCOMPARE(memory->error(), EINVAL);
    QCOMPARE(memory->errorString(),
             QStringLiteral("SharedMemory::attach: mmap failed: Invalid argument"));
    QVERIFY(memory->data() == nullptr);
    QVERIFY(!memory->isWritable());
}

void tst_SharedMemorySystemCalls::failedOpenEndsTheAttachment()
{
    const SegmentFile segment;
    const auto memory = memoryNamed(segment.name());
    SystemCallRecording recording;
    recording.letFail("shm_open", {EACCES});

    QVERIFY(!memory->attach(SharedMemory::ReadWrite));

    QCOMPARE(recording.take().size(), 1);
    QCOMPARE(memory->error(), EACCES);
    QCOMPARE(memory->errorString(),
             QStringLiteral("SharedMemory::attach: shm_open failed: Permission denied"));
}

void tst_SharedMemorySystemCalls::failedStatusEndsTheAttachment()
{
    const SegmentFile segment;
    QVERIFY(segment.make(QByteArrayLiteral("x")));
    const auto memory = memoryNamed(segment.name());
    SystemCallRecording recording;
    recording.letFail("fstat", {EOVERFLOW});

    QVERIFY(!memory->attach(SharedMemory::ReadWrite));

    QCOMPARE(recording.take().mid(1), QStringList({statusQuery, closing}));
    QCOMPARE(memory->error(), EOVERFLOW);
    QCOMPARE(memory->errorString(), QStringLiteral("SharedMemory::attach: fstat failed: Value too "
                                                   "large for defined data type"));
    QVERIFY(memory->data() == nullptr);
    QCOMPARE(memory->size(), 0);
}

void tst_SharedMemorySystemCalls::failedMappingEndsTheAttachment()
{
    const SegmentFile segment;
    QVERIFY(segment.make(QByteArrayLiteral("x")));
    const auto memory = memoryNamed(segment.name());
    SystemCallRecording recording;
    recording.letFail("mmap", {ENOMEM});

    QVERIFY(!memory->attach(SharedMemory::ReadWrite));

    QCOMPARE(recording.take().last(), closing);
    QCOMPARE(memory->error(), ENOMEM);
    QCOMPARE(memory->errorString(),
             QStringLiteral("SharedMemory::attach: mmap failed: Cannot allocate memory"));
    QVERIFY(memory->data() == nullptr);
    QCOMPARE(memory->size(), 0);
}

void tst_SharedMemorySystemCalls::creatorRemovesTheNameBeforeItUnmaps()
{
    const SegmentFile segment;
    auto memory = memoryNamed(segment.name());
    QVERIFY(memory->create(64));
    SystemCallRecording recording;

    memory.reset();

    QCOMPARE(recording.take(), QStringList({unlinkOf(segment), QStringLiteral("munmap(64)")}));
}

void tst_SharedMemorySystemCalls::attacherOnlyUnmaps()
{
    const SegmentFile segment;
    QVERIFY(segment.make(QByteArray(99, 'x')));
    auto memory = memoryNamed(segment.name());
    QVERIFY(memory->attach(SharedMemory::ReadWrite));
    SystemCallRecording recording;

    memory.reset();

    QCOMPARE(recording.take(), QStringList({QStringLiteral("munmap(99)")}));
}

void tst_SharedMemorySystemCalls::emptyKeyIsNeverRemoved()
{
    auto memory = memoryNamed(QString());
    QVERIFY(!memory->create(64));
    SystemCallRecording recording;

    memory.reset();

    QCOMPARE(recording.take(), QStringList());
}

void tst_SharedMemorySystemCalls::failedRemovalIsIgnored()
{
    const SegmentFile segment;
    auto memory = memoryNamed(segment.name());
    QVERIFY(memory->create(64));
    SystemCallRecording recording;
    recording.letFail("shm_unlink", {ENOENT});
    LogCapture log;

    memory.reset();

    QCOMPARE(recording.take(), QStringList({unlinkOf(segment), QStringLiteral("munmap(64)")}));
    COMPARE_LOG(log);
}

void tst_SharedMemorySystemCalls::failedUnmappingIsAWarning()
{
    const SegmentFile segment;
    auto memory = memoryNamed(segment.name());
    QVERIFY(memory->create(64));
    SystemCallRecording recording;
    recording.letFail("munmap", {EINVAL});
    LogCapture log;

    memory.reset();

    COMPARE_LOG(log, warning(QStringLiteral("~SharedMemory: munmap failed:  Invalid argument")));
}

void tst_SharedMemorySystemCalls::unusedMemoryDoesNothingAtItsEnd()
{
    const SegmentFile segment;
    auto memory = memoryNamed(segment.name());
    SystemCallRecording recording;

    memory.reset();

    QCOMPARE(recording.take(), QStringList());
}

QTEST_GUILESS_MAIN(tst_SharedMemorySystemCalls)

#include "tst_SharedMemorySystemCalls.moc"
