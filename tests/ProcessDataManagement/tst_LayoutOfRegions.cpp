#include "ProcessData/Linux/ProcessDataValue.h"
#include "ProcessDataManagement/LayoutFingerprint.h"
#include "ProcessDataManagement/ProcessDataManager.h"
#include "ProcessDescription.h"
#include "support/ChildProcess.h"
#include "support/LogCapture.h"
#include "support/MappedRegion.h"

#include <cstring>

namespace {

using Block = PingPongBufferHandler::ManagementBuffer;

const auto create = ProcessDataManager::InitTypeSharedMemoryCreate;
const auto attach = ProcessDataManager::InitTypeSharedMemoryAttach;

/// Numbers `a` and `b` in a double buffer.
struct TwoNumbers : ProcessDescription
{
    TwoNumbers() : ProcessDescription(16, true)
    {
        leaves.insert(QStringLiteral("a"), int32Slot(0));
        leaves.insert(QStringLiteral("b"), int32Slot(8));
    }
};

/// Of the same region, with `b` as another type.
struct OtherNumbers : TwoNumbers
{
    explicit OtherNumbers(const TwoNumbers &description)
    {
        key = description.key;
        leaves[QStringLiteral("b")].type = QStringLiteral("uint32");
    }
};

/// The region of a description as everybody sees it.
class SeenBlock
{
public:
    explicit SeenBlock(const ProcessDescription &description) : m_region(description.segment)
    {
        if (!m_region.attach()) {
            qFatal("no region to look at");
        }
    }
    Block &operator*() { return *m_region.management(); }
    Block *operator->() { return m_region.management(); }

private:
    MappedRegion m_region;
};

/// Field 22 of this process, with a name that holds no blank.
quint64 ownStart()
{
    QFile file(QStringLiteral("/proc/self/stat"));
    return file.open(QIODevice::ReadOnly) ? file.readAll().split(' ').value(21).toULongLong() : 0;
}

/// Of this process, as it stands in a place for those with another layout.
quint64 ownWord()
{
    return quint64{static_cast<quint32>(getpid())} << 32 | (ownStart() & 0xFFFFFFFF);
}

LogLine mismatch(const ProcessDescription &description, const char *where)
{
    return warning(QStringLiteral("The region of \"%1\" has another layout than this process "
                                  "description, from \"%2\" on: values may be wrong. Start all "
                                  "processes with the same description.")
                       .arg(description.key, QString::fromLatin1(where)));
}

LogLine attachmentLine(const ProcessDescription &description)
{
    return debugLine(
        QStringLiteral("Attach: Key for shared memory ( \"%1\" )!").arg(description.key));
}

} // namespace

/// What a region says of its layout and its creator, and what an attacher makes of it.
class tst_LayoutOfRegions : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void creatorLeavesLayoutAndItself();
    void attacherWithTheLayoutChangesNothing();
    void attacherWithAnotherLayoutNotesItself();
    void placesOfEndedProcessesAreTakenAgain();
    void freePlacesAreTakenFirst();
    void fullPlacesStayAsTheyAre();
    void childThatCreatesIsTheCreator();
    void otherLayoutIsOneWarningAndNoHindrance();
    void leafThatIsMissingHereIsTold();
    void unknownLayoutIsNoOther();
    void descriptionWithASingleBufferIsWarned();
    void singleBufferSaysNothing();
};

void tst_LayoutOfRegions::creatorLeavesLayoutAndItself()
{
    const TwoNumbers description;
    ProcessDataManager manager;
    const LogCapture log;
    QVERIFY(manager.createProcessData(description.parse(), create));
    SeenBlock block(description);
    const LayoutFingerprint layout(description.parse());

    QCOMPARE(block->fingerprint.load(), layout.getValue());
    QCOMPARE(block->creatorPid.load(), quint32(getpid()));
    QVERIFY(ownStart() != 0);
    QCOMPARE(block->creatorStart.load(), ownStart());
    const QString pidNamespace = QFile::symLinkTarget(QStringLiteral("/proc/self/ns/pid"));
    QVERIFY(pidNamespace.endsWith(QStringLiteral("pid:[%1]").arg(block->creatorNamespace.load())));
    const LayoutFingerprint::Parts parts = layout.getParts(16);
    for (std::size_t i = 0; i < parts.size(); ++i) {
        QCOMPARE(block->layoutParts[i].load(), parts[i]);
    }
}

void tst_LayoutOfRegions::attacherWithTheLayoutChangesNothing()
{
    const TwoNumbers description;
    ProcessDataManager creator;
    ProcessDataManager attacher;
    const LogCapture log;
    QVERIFY(creator.createProcessData(description.parse(), create));
    const QByteArray before = description.segment.content();

    QVERIFY(attacher.createProcessData(description.parse(), attach));

    QCOMPARE(description.segment.content(), before);
}

void tst_LayoutOfRegions::attacherWithAnotherLayoutNotesItself()
{
    const TwoNumbers description;
    const OtherNumbers other(description);
    ProcessDataManager creator;
    ProcessDataManager attacher;
    const LogCapture log;
    QVERIFY(creator.createProcessData(description.parse(), create));
    QByteArray expected = description.segment.content();
    const quint64 own = ownWord();
    expected.replace(384, sizeof own, reinterpret_cast<const char *>(&own), sizeof own);

    QVERIFY(attacher.createProcessData(other.parse(), attach));
    QCOMPARE(description.segment.content(), expected);

    // Once is enough.
    QVERIFY(attacher.createProcessData(other.parse(), attach));
    QCOMPARE(description.segment.content(), expected);
}

void tst_LayoutOfRegions::placesOfEndedProcessesAreTakenAgain()
{
    const TwoNumbers description;
    const OtherNumbers other(description);
    ProcessDataManager creator;
    ProcessDataManager attacher;
    const LogCapture log;
    QVERIFY(creator.createProcessData(description.parse(), create));
    SeenBlock block(description);
    // Of this id, but started at another time.
    for (auto &place : block->otherLayouts) {
        place = ownWord() - 1;
    }

    QVERIFY(attacher.createProcessData(other.parse(), attach));

    QCOMPARE(block->otherLayouts[0].load(), ownWord());
    QCOMPARE(block->otherLayouts[1].load(), ownWord() - 1);
}

/// A process that is not seen may run in another namespace.
void tst_LayoutOfRegions::freePlacesAreTakenFirst()
{
    const TwoNumbers description;
    const OtherNumbers other(description);
    ProcessDataManager creator;
    ProcessDataManager attacher;
    const LogCapture log;
    QVERIFY(creator.createProcessData(description.parse(), create));
    SeenBlock block(description);
    block->otherLayouts[0] = ownWord() - 1;

    QVERIFY(attacher.createProcessData(other.parse(), attach));

    QCOMPARE(block->otherLayouts[0].load(), ownWord() - 1);
    QCOMPARE(block->otherLayouts[1].load(), ownWord());
}

void tst_LayoutOfRegions::fullPlacesStayAsTheyAre()
{
    const TwoNumbers description;
    const OtherNumbers other(description);
    ProcessDataManager creator;
    const LogCapture log;
    QVERIFY(creator.createProcessData(description.parse(), create));
    SeenBlock block(description);
    for (auto &place : block->otherLayouts) {
        place = ownWord();
    }
    const QByteArray before = description.segment.content();
    ChildProcess child([&](const ChildSide &) {
        ProcessDataManager attacher;
        return attacher.createProcessData(other.parse(), attach) ? 0 : 1;
    });

    QCOMPARE(child.waitForExit(), 0);
    QCOMPARE(description.segment.content(), before);
}

void tst_LayoutOfRegions::childThatCreatesIsTheCreator()
{
    const TwoNumbers description;
    const LogCapture log;
    ChildProcess child([&](const ChildSide &side) {
        ProcessDataManager manager;
        CHILD_VERIFY(manager.createProcessData(description.parse(), create));
        SeenBlock block(description);
        CHILD_VERIFY(block->creatorPid.load() == quint32(getpid()));
        CHILD_VERIFY(block->creatorStart.load() == ownStart());
        side.say();
        side.waitForWord();
        return 0;
    });
    QVERIFY(child.waitUntilReady());

    SeenBlock block(description);
    QVERIFY(block->creatorPid.load() != quint32(getpid()));
    child.tell();
    QCOMPARE(child.waitForExit(), 0);
}

void tst_LayoutOfRegions::otherLayoutIsOneWarningAndNoHindrance()
{
    const TwoNumbers description;
    const OtherNumbers other(description);
    ProcessDataManager creator;
    ProcessDataManager attacher;
    LogCapture log;
    const auto created = creator.createProcessData(description.parse(), create);
    QVERIFY(created);
    log.take();

    const auto attached = attacher.createProcessData(other.parse(), attach);

    COMPARE_LOG(log, attachmentLine(description), mismatch(description, "b"));
    QVERIFY(attached);
    const ProcessValue seven(QVariant(7), ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID);
    QVERIFY(attached->getLeafProcessDataValue(QStringLiteral("a"))->setValue(seven));
    QVERIFY(attacher.swapReadAndWriteBuffer());
    ProcessValue value(ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID);
    created->getLeafProcessDataValue(QStringLiteral("a"))->getValue(value);
    QCOMPARE(value.getValue(), QVariant(7));
}

void tst_LayoutOfRegions::leafThatIsMissingHereIsTold()
{
    const TwoNumbers description;
    TwoNumbers other;
    other.key = description.key;
    other.leaves.remove(QStringLiteral("b"));
    ProcessDataManager creator;
    ProcessDataManager attacher;
    LogCapture log;
    QVERIFY(creator.createProcessData(description.parse(), create));
    log.take();

    QVERIFY(attacher.createProcessData(other.parse(), attach));

    COMPARE_LOG(log, attachmentLine(description),
                mismatch(description, "a leaf that is missing here"));
}

void tst_LayoutOfRegions::unknownLayoutIsNoOther()
{
    const TwoNumbers description;
    ProcessDataManager creator;
    ProcessDataManager attacher;
    LogCapture log;
    QVERIFY(creator.createProcessData(description.parse(), create));
    SeenBlock(description)->fingerprint = 0;
    log.take();

    QVERIFY(attacher.createProcessData(description.parse(), attach));

    COMPARE_LOG(log, attachmentLine(description));
}

void tst_LayoutOfRegions::descriptionWithASingleBufferIsWarned()
{
    const TwoNumbers description;
    ProcessDescription single(16);
    single.key = description.key;
    single.leaves = description.leaves;
    ProcessDataManager creator;
    ProcessDataManager attacher;
    LogCapture log;
    QVERIFY(creator.createProcessData(description.parse(), create));
    log.take();

    QVERIFY(attacher.createProcessData(single.parse(), attach));

    COMPARE_LOG(log, attachmentLine(single), mismatch(single, "a"));
    QCOMPARE(SeenBlock(description)->otherLayouts[0].load(), ownWord());
}

void tst_LayoutOfRegions::singleBufferSaysNothing()
{
    ProcessDescription description(1024);
    description.leaves.insert(QStringLiteral("a"), int32Slot(1000));
    ProcessDescription other(1024);
    other.key = description.key;
    other.leaves.insert(QStringLiteral("b"), int32Slot(1000));
    ProcessDataManager creator;
    ProcessDataManager attacher;
    LogCapture log;
    QVERIFY(creator.createProcessData(description.parse(), create));
    QCOMPARE(description.segment.content().left(1000), QByteArray(1000, '\0'));
    log.take();

    QVERIFY(attacher.createProcessData(other.parse(), attach));

    COMPARE_LOG(log, attachmentLine(description));
}

QTEST_GUILESS_MAIN(tst_LayoutOfRegions)

#include "tst_LayoutOfRegions.moc"
