#include "ProcessData/Linux/SharedMemory.h"
#include "ProcessDataManagement/ProcessDataManager.h"
#include "ProcessDataManagement/ProcessDescription.h"
#include "support/ChildProcess.h"
#include "support/ExchangeMessages.h"
#include "support/LeaseWords.h"
#include "support/LogCapture.h"
#include "support/SemaphoreCalls.h"

#include <QElapsedTimer>

#include <memory>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using Names = SemaphoreSet::Names;
using ManagementBuffer = PingPongBufferHandler::ManagementBuffer;

constexpr auto create = ProcessDataManager::InitTypeSharedMemoryCreate;
constexpr qint64 bufferSize = 16;

struct DoubleBufferDescription : ProcessDescription
{
    DoubleBufferDescription() : ProcessDescription(bufferSize, true)
    {
        leaves.insert(QStringLiteral("a"), int32Slot(0));
        leaves.insert(QStringLiteral("b"), int32Slot(8));
    }
};

/// A mapping that stays, whatever becomes of the name.
class Onlooker
{
public:
    explicit Onlooker(const ProcessDescription &description)
    {
        m_memory.setKey(description.segment.name());
        m_memory.attach(SharedMemory::ReadWrite);
    }

    ManagementBuffer *management() { return static_cast<ManagementBuffer *>(m_memory.data()); }
    LeaseWords lease() { return LeaseWords(management()); }
    QByteArray content() const
    {
        return {static_cast<const char *>(m_memory.data()), m_memory.size()};
    }
    QByteArray buffers() const
    {
        return content().mid(static_cast<int>(PingPongBufferHandler::getSizeManagementBuffer()));
    }

private:
    SharedMemory m_memory;
};

bool lockAndUnlock(ProcessDataManager &manager)
{
    manager.lockWriteBuffer();
    const bool isLocked = manager.getPointerWriteBuffer() != nullptr;
    manager.unlockWriteBuffer();
    return isLocked;
}

bool keepLock(ProcessDataManager &manager, Onlooker &region)
{
    constexpr int farMoreThanEnough = 100;
    for (int i = 0; i < farMoreThanEnough && !region.lease().isIdle(); ++i) {
        lockAndUnlock(manager);
    }
    return region.lease().isIdle();
}

std::unique_ptr<ProcessDataManager> makeManager(const ProcessDescription &description,
                                                ProcessDataManager::InitTypeSharedMemory type)
{
    auto manager = std::make_unique<ProcessDataManager>();
    return manager->createProcessData(description.parse(), type).isNull() ? nullptr
                                                                          : std::move(manager);
}

} // namespace

/// A process that keeps the write lock of a region which another creator replaces, and the creator.
class tst_ReplacedOwners : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void ownerOutsideWritesNothingMore();
    void creatorAwaitsTheOwnerInside();
    void creatorDoesNotHangBehindAStoppedOwner();
    void processThatReplacesItsOwnRegionInsideGoesOn();
    void closedRegionKeepsNoLock();
    void onlyABlockOfThisFormatIsTouched_data();
    void onlyABlockOfThisFormatIsTouched();
    void segmentWhoseMemoryWasNeverTakenTakesNone();
};

void tst_ReplacedOwners::ownerOutsideWritesNothingMore()
{
    const DoubleBufferDescription description;
    LogCapture log;
    const auto owner = makeManager(description, create);
    QVERIFY(owner != nullptr);
    Onlooker region(description);
    QVERIFY(keepLock(*owner, region));
    log.take();
    const auto next = makeManager(description, create);
    QVERIFY(next != nullptr);
    log.take();
    const QByteArray buffers = region.buffers();

    // At once, and not only when it looks after its set by time.
    owner->lockWriteBuffer();

    QCOMPARE(owner->getPointerWriteBuffer(), nullptr);
    QVERIFY(!owner->unlockWriteBuffer());
    COMPARE_LOG(log, removedWarning());
    QVERIFY(!owner->swapReadAndWriteBuffer());
    QCOMPARE(region.buffers(), buffers);
    QVERIFY(lockAndUnlock(*next));
}

void tst_ReplacedOwners::creatorAwaitsTheOwnerInside()
{
    const DoubleBufferDescription description;
    LogCapture log;
    const auto owner = makeManager(description, create);
    QVERIFY(owner != nullptr);
    Onlooker region(description);
    QVERIFY(keepLock(*owner, region));
    owner->lockWriteBuffer();
    QVERIFY(region.lease().isInside());
    const quint64 inode = description.segment.inode();
    ChildProcess creator([&description](const ChildSide &parent) {
        LogCapture childLog;
        // So that it does not go on before this process has had its turn.
        SemaphoreCalls::boundOfAll = std::chrono::seconds(60);
        const auto manager = makeManager(description, create);
        CHILD_VERIFY(manager != nullptr);
        parent.say();
        parent.waitForWord();
        CHILD_VERIFY(lockAndUnlock(*manager));
        return 0;
    });
    QVERIFY(description.semaphores.waitUntilBlocked(Names::SemaphoreLease, 1));
    QCOMPARE(region.lease().words.wanted.load(), quint32{LeaseWords::Closed});
    QCOMPARE(description.segment.inode(), inode);

    QVERIFY(owner->unlockWriteBuffer());

    QVERIFY(creator.waitUntilReady());
    QVERIFY(description.segment.inode() != inode);
    QVERIFY(!lockAndUnlock(*owner));
    creator.tell();
    QCOMPARE(creator.waitForExit(), 0);
}

void tst_ReplacedOwners::creatorDoesNotHangBehindAStoppedOwner()
{
    const DoubleBufferDescription description;
    LogCapture log;
    const auto owner = makeManager(description, create);
    QVERIFY(owner != nullptr);
    Onlooker region(description);
    QVERIFY(keepLock(*owner, region));
    owner->lockWriteBuffer();
    QVERIFY(region.lease().isInside());
    ChildProcess creator([&description](const ChildSide &) {
        LogCapture childLog;
        QElapsedTimer time;
        time.start();
        const auto before = SemaphoreCalls::sumOfBounds();
        const auto manager = makeManager(description, create);
        CHILD_VERIFY(manager != nullptr);
        CHILD_VERIFY(time.elapsed() >= SystemVSemaphoreBaseClass::sm_creationWaitBound.count());
        // By what it was ready to wait: a busy machine may take longer over it.
        CHILD_VERIFY(SemaphoreCalls::sumOfBounds() - before
                     < 2 * SystemVSemaphoreBaseClass::sm_creationWaitBound);
        CHILD_VERIFY(lockAndUnlock(*manager));
        return 0;
    });

    QCOMPARE(creator.waitForExit(), 0);

    QVERIFY(owner->unlockWriteBuffer());
    QVERIFY(!lockAndUnlock(*owner));
}

void tst_ReplacedOwners::processThatReplacesItsOwnRegionInsideGoesOn()
{
    const DoubleBufferDescription description;
    LogCapture log;
    const auto owner = makeManager(description, create);
    QVERIFY(owner != nullptr);
    Onlooker region(description);
    QVERIFY(keepLock(*owner, region));
    owner->lockWriteBuffer();
    QVERIFY(region.lease().isInside());

    const auto next = makeManager(description, create);

    QVERIFY(next != nullptr);
    QVERIFY(owner->unlockWriteBuffer());
    QVERIFY(!lockAndUnlock(*owner));
    Onlooker newRegion(description);
    QVERIFY(keepLock(*next, newRegion));
}

void tst_ReplacedOwners::closedRegionKeepsNoLock()
{
    const DoubleBufferDescription description;
    LogCapture log;
    const auto owner = makeManager(description, create);
    QVERIFY(owner != nullptr);
    Onlooker region(description);
    const int set = description.semaphores.id();

    PingPongBufferHandler::closeFormerRegion(*region.management(), description.semaphores.key());

    QVERIFY(!keepLock(*owner, region));
    QCOMPARE(description.semaphores.id(), set);
    QVERIFY(lockAndUnlock(*owner));
}

void tst_ReplacedOwners::onlyABlockOfThisFormatIsTouched_data()
{
    QTest::addColumn<QByteArray>("content");

    const QByteArray ofAnotherFormat = [] {
        QByteArray bytes(1024, 'x');
        const quint64 word = PingPongBufferHandler::formatWord() - 1;
        memcpy(bytes.data() + offsetof(ManagementBuffer, format), &word, sizeof word);
        return bytes;
    }();
    QTest::newRow("zeros") << QByteArray(1024, 0);
    QTest::newRow("single buffer") << QByteArray(1024, 'x');
    QTest::newRow("another format") << ofAnotherFormat;
    QTest::newRow("less than a block") << QByteArray(511, 'x');
    QTest::newRow("one byte") << QByteArray(1, 'x');
}

void tst_ReplacedOwners::onlyABlockOfThisFormatIsTouched()
{
    QFETCH(QByteArray, content);
    const DoubleBufferDescription description;
    LogCapture log;
    QVERIFY(description.segment.make(content));
    const Onlooker region(description);
    QCOMPARE(region.content(), content);

    const auto manager = makeManager(description, create);

    QVERIFY(manager != nullptr);
    QCOMPARE(region.content(), content);
    QVERIFY(lockAndUnlock(*manager));
}

/// A look into it would need memory, of which there may be none left.
void tst_ReplacedOwners::segmentWhoseMemoryWasNeverTakenTakesNone()
{
    const DoubleBufferDescription description;
    const int left = shm_open(qPrintable(description.segment.name()), O_RDWR | O_CREAT, 0666);
    QVERIFY(left >= 0);
    QCOMPARE(ftruncate(left, 4096), 0);

    QVERIFY(makeManager(description, create) != nullptr);

    struct stat status = {};
    QCOMPARE(fstat(left, &status), 0);
    QCOMPARE(status.st_nlink, nlink_t{0});
    QCOMPARE(status.st_blocks, blkcnt_t{0});
    close(left);
}

QTEST_GUILESS_MAIN(tst_ReplacedOwners)
#include "tst_ReplacedOwners.moc"
