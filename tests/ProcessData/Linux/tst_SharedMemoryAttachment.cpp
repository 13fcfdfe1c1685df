#include "ProcessData/Linux/NamedMemory.h"
#include "support/ChildProcess.h"
#include "support/LogCapture.h"
#include "support/ResourceLimit.h"
#include "support/SegmentFile.h"
#include "support/SharedRegion.h"

#include <QDir>
#include <QtTest>

#include <cerrno>
#include <cstring>

#include <signal.h>

namespace {

int openDescriptorCount()
{
    return QDir(QStringLiteral("/proc/self/fd"))
        .entryList(QDir::NoDotAndDotDot | QDir::AllEntries)
        .size();
}

constexpr std::size_t lastWordsSize = 512;

/// Text of the message with which a child ended, in memory that it shares with the test.
char *lastWords = nullptr;

void keepLastWords(QtMsgType, const QMessageLogContext &, const QString &text)
{
    std::strncpy(lastWords, text.toUtf8().constData(), lastWordsSize - 1);
}

/// Runs @p misuse in a process of its own and gives what that one said when it was aborted; nothing
/// if it was not.
template <class Misuse>
QByteArray abortMessage(const Misuse &misuse)
{
    const SharedMapping words(lastWordsSize);
    lastWords = reinterpret_cast<char *>(words.start());
    ChildProcess child([&](const ChildSide &) {
        const ResourceLimit noCoreFile(RLIMIT_CORE, 0);
        signal(SIGABRT, SIG_DFL);
        qInstallMessageHandler(keepLastWords);
        misuse();
        return 0;
    });
    return child.waitForExit() == -SIGABRT ? QByteArray(lastWords) : QByteArray();
}

const QByteArray createdAssertion = QByteArrayLiteral(
    "ASSERT: \"!m_PrivateData.m_created\" in file ");

} // namespace

class tst_SharedMemoryAttachment : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void attachToAMissingNameFails();
    void attachTakesTheSizeFromTheObject();
    void attachedMemoryIsShared();
    void readOnlyMappingCannotBeWritten();
    void mappingTellsWhetherItMayBeWritten();
    void attachToAnEmptyObjectFailsAtTheMapping();
    void attachToAnObjectAboveTwoGigabytesFails();
    void attachMayBeTriedAgainAfterAFailure();
    void createMayFollowAFailedAttach();
    void secondAttachGivesTheFirstMappingBack();
    void creatorRemovesTheName();
    void creatorUnmaps();
    void attacherLeavesTheName();
    void attachedMemoryOutlivesItsCreator();
    void failedCreatorRemovesTheName();
    void noDescriptorStaysOpen();
    void secondCreateIsAsserted();
    void attachAfterCreateIsAsserted();
    void attachAfterAFailedCreateIsAsserted();
};

void tst_SharedMemoryAttachment::attachToAMissingNameFails()
{
    const SegmentFile segment;
    const auto memory = memoryNamed(segment.name());
    LogCapture log;

    QVERIFY(!memory->attach(SharedMemory::ReadWrite));

    QVERIFY(memory->data() == nullptr);
    QCOMPARE(memory->size(), 0);
    QCOMPARE(memory->error(), ENOENT);
    QCOMPARE(memory->errorString(),
             QStringLiteral("SharedMemory::attach: shm_open failed: No such file or directory"));
    QVERIFY(!segment.exists());
    COMPARE_LOG(log);
}

void tst_SharedMemoryAttachment::attachTakesTheSizeFromTheObject()
{
    const SegmentFile segment;
    const auto creator = memoryNamed(segment.name());
    QVERIFY(creator->create(4711));
    const auto memory = memoryNamed(segment.name());

    QVERIFY(memory->attach(SharedMemory::ReadWrite));

    QCOMPARE(memory->size(), 4711);
    QCOMPARE(memory->error(), 0);
    QCOMPARE(memory->errorString(), QString());
}

void tst_SharedMemoryAttachment::attachedMemoryIsShared()
{
    const SegmentFile segment;
    const auto creator = memoryNamed(segment.name());
    QVERIFY(creator->create(100));
    const auto memory = memoryNamed(segment.name());
    QVERIFY(memory->attach(SharedMemory::ReadWrite));

    std::memcpy(creator->data(), "to attacher", 11);
    std::memcpy(bytesOf(*memory) + 50, "to creator", 10);

    QCOMPARE(QByteArray(bytesOf(*memory), 11), QByteArrayLiteral("to attacher"));
    QCOMPARE(QByteArray(bytesOf(*creator) + 50, 10), QByteArrayLiteral("to creator"));
}

void tst_SharedMemoryAttachment::readOnlyMappingCannotBeWritten()
{
    const SegmentFile segment;
    QVERIFY(segment.make(QByteArrayLiteral("content")));
    const auto memory = memoryNamed(segment.name());

    QVERIFY(memory->attach(SharedMemory::ReadOnly));

    QCOMPARE(QByteArray(bytesOf(*memory), memory->size()), QByteArrayLiteral("content"));
    QCOMPARE(segment.mappings().size(), 1);
    QVERIFY2(segment.mappings().first().contains(" r--s "), segment.mappings().first());

    QVERIFY(memory->attach(SharedMemory::ReadWrite));
    QCOMPARE(segment.mappings().size(), 1);
    QVERIFY2(segment.mappings().first().contains(" rw-s "), segment.mappings().first());
}

void tst_SharedMemoryAttachment::mappingTellsWhetherItMayBeWritten()
{
    const SegmentFile segment;
    const auto creator = memoryNamed(segment.name());
    const auto memory = memoryNamed(segment.name());
    QVERIFY(!creator->isWritable());
    QVERIFY(!memory->attach(SharedMemory::ReadWrite));
    QVERIFY(!memory->isWritable());

    QVERIFY(creator->create(100));
    QVERIFY(creator->isWritable());
    QVERIFY(memory->attach(SharedMemory::ReadOnly));
    QVERIFY(!memory->isWritable());
    QVERIFY(memory->attach(SharedMemory::ReadWrite));
    QVERIFY(memory->isWritable());
    QVERIFY(memory->attach(SharedMemory::ReadOnly));
    QVERIFY(!memory->isWritable());
}

void tst_SharedMemoryAttachment::attachToAnEmptyObjectFailsAtTheMapping()
{
    const SegmentFile segment;
    QVERIFY(segment.make(QByteArray()));
    const auto memory = memoryNamed(segment.name());

    QVERIFY(!memory->attach(SharedMemory::ReadWrite));

    QCOMPARE(memory->error(), EINVAL);
    QCOMPARE(memory->errorString(),
             QStringLiteral("SharedMemory::attach: mmap failed: Invalid argument"));
    QVERIFY(memory->data() == nullptr);
    QCOMPARE(memory->size(), 0);
}

void tst_SharedMemoryAttachment::attachToAnObjectAboveTwoGigabytesFails()
{
    const SegmentFile segment;
    QVERIFY(segment.makeSparse(qint64(1) << 31));
    const auto memory = memoryNamed(segment.name());

    QVERIFY(!memory->attach(SharedMemory::ReadWrite));

    QCOMPARE(memory->error(), EFBIG);
    QCOMPARE(memory->errorString(),
             QStringLiteral("SharedMemory::attach: size is out of range: File too large"));
    QVERIFY(memory->data() == nullptr);
    QCOMPARE(memory->size(), 0);

    QVERIFY(segment.makeSparse((qint64(1) << 31) - 1));
    QVERIFY(memory->attach(SharedMemory::ReadWrite));
    QCOMPARE(memory->size(), 2147483647);
}

void tst_SharedMemoryAttachment::attachMayBeTriedAgainAfterAFailure()
{
    const SegmentFile segment;
    const auto memory = memoryNamed(segment.name());
    QVERIFY(!memory->attach(SharedMemory::ReadWrite));
    QVERIFY(segment.make(QByteArrayLiteral("now")));

    QVERIFY(memory->attach(SharedMemory::ReadWrite));

    QCOMPARE(memory->size(), 3);
    // What failed last.
    QCOMPARE(memory->error(), ENOENT);
}

void tst_SharedMemoryAttachment::createMayFollowAFailedAttach()
{
    const SegmentFile segment;
    auto memory = memoryNamed(segment.name());
    QVERIFY(!memory->attach(SharedMemory::ReadWrite));

    QVERIFY(memory->create(32));

    QCOMPARE(segment.size(), qint64(32));
    memory.reset();
    QVERIFY(!segment.exists());
}

void tst_SharedMemoryAttachment::secondAttachGivesTheFirstMappingBack()
{
    const SegmentFile first;
    const SegmentFile second;
    QVERIFY(first.make(QByteArrayLiteral("first")));
    QVERIFY(second.make(QByteArrayLiteral("second")));
    const auto memory = memoryNamed(first.name());
    QVERIFY(memory->attach(SharedMemory::ReadWrite));
    memory->setKey(second.name());

    QVERIFY(memory->attach(SharedMemory::ReadWrite));

    QCOMPARE(QByteArray(bytesOf(*memory), memory->size()), QByteArrayLiteral("second"));
    QCOMPARE(first.mappings(), QList<QByteArray>());
    QCOMPARE(second.mappings().size(), 1);
}

void tst_SharedMemoryAttachment::creatorRemovesTheName()
{
    const SegmentFile segment;
    auto memory = memoryNamed(segment.name());
    QVERIFY(memory->create(64));

    memory.reset();

    QVERIFY(!segment.exists());
}

void tst_SharedMemoryAttachment::creatorUnmaps()
{
    const SegmentFile segment;
    auto memory = memoryNamed(segment.name());
    QVERIFY(memory->create(64));
    QCOMPARE(segment.mappings().size(), 1);
    LogCapture log;

    memory.reset();

    QCOMPARE(segment.mappings(), QList<QByteArray>());
    COMPARE_LOG(log);
}

void tst_SharedMemoryAttachment::attacherLeavesTheName()
{
    const SegmentFile segment;
    QVERIFY(segment.make(QByteArrayLiteral("stays")));
    auto memory = memoryNamed(segment.name());
    QVERIFY(memory->attach(SharedMemory::ReadWrite));

    memory.reset();

    QCOMPARE(segment.content(), QByteArrayLiteral("stays"));
    QCOMPARE(segment.mappings(), QList<QByteArray>());
}

void tst_SharedMemoryAttachment::attachedMemoryOutlivesItsCreator()
{
    const SegmentFile segment;
    auto creator = memoryNamed(segment.name());
    QVERIFY(creator->create(64));
    const auto memory = memoryNamed(segment.name());
    QVERIFY(memory->attach(SharedMemory::ReadWrite));
    std::memcpy(creator->data(), "written", 7);

    creator.reset();

    QCOMPARE(QByteArray(bytesOf(*memory), 7), QByteArrayLiteral("written"));
    QVERIFY(!memoryNamed(segment.name())->attach(SharedMemory::ReadWrite));
}

void tst_SharedMemoryAttachment::failedCreatorRemovesTheName()
{
    const SegmentFile segment;
    auto memory = memoryNamed(segment.name());
    QVERIFY(!memory->create(-1));
    QVERIFY(segment.exists());
    LogCapture log;

    memory.reset();

    QVERIFY(!segment.exists());
    COMPARE_LOG(log);
}

void tst_SharedMemoryAttachment::noDescriptorStaysOpen()
{
    const int count = openDescriptorCount();
    const SegmentFile segment;
    const SegmentFile large;
    QVERIFY(large.makeSparse(qint64(1) << 31));

    const auto creator = memoryNamed(segment.name());
    QVERIFY(creator->create(64));
    const auto attached = memoryNamed(segment.name());
    QVERIFY(attached->attach(SharedMemory::ReadOnly));
    QVERIFY(!memoryNamed(SegmentFile().name())->create(-1));
    QVERIFY(!memoryNamed(SegmentFile().name())->create(0));
    QVERIFY(!memoryNamed(large.name())->attach(SharedMemory::ReadWrite));

    QCOMPARE(openDescriptorCount(), count);
}

void tst_SharedMemoryAttachment::secondCreateIsAsserted()
{
    const SegmentFile segment;

    const QByteArray message = abortMessage([&segment] {
        const auto memory = memoryNamed(segment.name());
        if (memory->create(64)) {
            memory->create(64);
        }
    });

    QVERIFY2(message.startsWith(createdAssertion), message);
}

void tst_SharedMemoryAttachment::attachAfterCreateIsAsserted()
{
    const SegmentFile segment;

    const QByteArray message = abortMessage([&segment] {
        const auto memory = memoryNamed(segment.name());
        if (memory->create(64)) {
            memory->attach(SharedMemory::ReadOnly);
        }
    });

    QVERIFY2(message.startsWith(createdAssertion), message);
}

void tst_SharedMemoryAttachment::attachAfterAFailedCreateIsAsserted()
{
    const SegmentFile segment;

    const QByteArray message = abortMessage([&segment] {
        const auto memory = memoryNamed(segment.name());
        if (!memory->create(-1)) {
            memory->attach(SharedMemory::ReadWrite);
        }
    });

    QVERIFY2(message.startsWith(createdAssertion), message);
}

QTEST_GUILESS_MAIN(tst_SharedMemoryAttachment)

#include "tst_SharedMemoryAttachment.moc"
