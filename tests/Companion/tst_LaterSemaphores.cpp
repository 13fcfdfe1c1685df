#include "support/ChildProcess.h"
#include "support/DoubleBuffer.h"
#include "support/ExchangeMessages.h"
#include "support/LogCapture.h"
#include "support/MappedRegion.h"
#include "support/SemaphoreCalls.h"

#include <QtTest>

#include <thread>

namespace {

constexpr auto create = SystemVSemaphoreBaseClass::CreationTypeCreate;
constexpr auto attach = SystemVSemaphoreBaseClass::CreationTypeAttach;

} // namespace

/// Semaphores that come after the process that uses them: whoever attached while a creator stood
/// between its memory and its semaphores joins those as soon as they are there.
class tst_LaterSemaphores : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void attacherFollowsTheCreatorOfItsRegion();
    void swapFollowsAsTheWriteLockDoes();
    void readerOfASingleBufferFollowsToo();
    void oldRegionStaysOut();
    void regionWithoutANameStaysOut();
    void lockThatIsHeldIsNotCarriedOver();
    void unfinishedSetIsNotJoined();
    void creatorThatGoesOnLateTakesNobodyTheLock();
    void creatorLetsTheWriterInsideEnd();
    void creatorDoesNotHangBehindAStoppedWriter();

private:
    SegmentFile m_segment;
    SemaphoreSet m_semaphores{SemaphoreSet::uniqueKey(QStringLiteral("later"))};
};

void tst_LaterSemaphores::attacherFollowsTheCreatorOfItsRegion()
{
    LogCapture log;
    MappedRegion creatorMemory(m_segment);
    MappedRegion attacherMemory(m_segment);
    QVERIFY(creatorMemory.create());
    QVERIFY(attacherMemory.attach());
    const auto attacher = attacherMemory.handler(attach, m_semaphores.key());
    QVERIFY(writeSet(*attacher, 1));
    const int formerSet = m_semaphores.id();
    const auto creator = creatorMemory.handler(create, m_semaphores.key());
    QVERIFY(m_semaphores.id() != formerSet);
    QVERIFY(publishSet(*creator, 2));
    QCOMPARE(m_semaphores.users(), 1);

    QVERIFY(publishSet(*attacher, 3));

    QVERIFY(isPublished(*creator, 3));
    QCOMPARE(m_semaphores.users(), 2);
    unsigned char *const locked = attacher->lockForWrite();
    QVERIFY(m_semaphores.isWriteLocked());
    QVERIFY(attacher->unlockForWrite(locked));
    QVERIFY(!m_semaphores.isWriteLocked());
    QVERIFY(publishSet(*creator, 4));
    QVERIFY(isPublished(*attacher, 4));
    QCOMPARE(log.take(), QList<LogLine>());
}

void tst_LaterSemaphores::swapFollowsAsTheWriteLockDoes()
{
    LogCapture log;
    MappedRegion creatorMemory(m_segment);
    MappedRegion attacherMemory(m_segment);
    QVERIFY(creatorMemory.create());
    QVERIFY(attacherMemory.attach());
    const auto attacher = attacherMemory.handler(attach, m_semaphores.key());
    const auto creator = creatorMemory.handler(create, m_semaphores.key());
    QVERIFY(writeSet(*creator, 2));

    QVERIFY(attacher->swapBuffers());

    QVERIFY(isPublished(*creator, 2));
    QCOMPARE(m_semaphores.users(), 2);
    QCOMPARE(log.take(), QList<LogLine>());
}

void tst_LaterSemaphores::readerOfASingleBufferFollowsToo()
{
    LogCapture log;
    MappedRegion creatorMemory(m_segment);
    MappedRegion attacherMemory(m_segment);
    QVERIFY(creatorMemory.create());
    QVERIFY(attacherMemory.attach());
    const auto attacher = attacherMemory.singleHandler(attach, m_semaphores.key());
    const auto creator = creatorMemory.singleHandler(create, m_semaphores.key());

    unsigned char *const locked = attacher->lockForRead();

    QCOMPARE(m_semaphores.readers(), 1);
    bool repeat = true;
    QVERIFY(attacher->unlockForRead(locked, repeat));
    QCOMPARE(m_semaphores.readers(), 0);
    QVERIFY(attacher->unlockForWrite(attacher->lockForWrite()));
    QCOMPARE(m_semaphores.users(), 2);
    QCOMPARE(log.take(), QList<LogLine>());
}

void tst_LaterSemaphores::oldRegionStaysOut()
{
    LogCapture log;
    MappedRegion oldMemory(m_segment);
    QVERIFY(oldMemory.create());
    const auto old = oldMemory.handler(create, m_semaphores.key());
    QVERIFY(publishSet(*old, 1));
    MappedRegion newMemory(m_segment);
    QVERIFY(newMemory.create());
    const auto newer = newMemory.handler(create, m_semaphores.key());
    QVERIFY(publishSet(*newer, 2));

    QCOMPARE(old->lockForWrite(), nullptr);

    COMPARE_LOG(log, removedWarning());
    QVERIFY(!old->swapBuffers());
    QVERIFY(isPublished(*old, 1));
    QVERIFY(isPublished(*newer, 2));
    QCOMPARE(m_semaphores.users(), 1);
    COMPARE_LOG(log);
}

void tst_LaterSemaphores::regionWithoutANameStaysOut()
{
    LogCapture log;
    MappedRegion memory(m_segment);
    QVERIFY(memory.create());
    const auto handler = memory.handler(create, m_semaphores.key());
    QVERIFY(m_segment.remove());
    const auto other = memory.handler(create, m_semaphores.key());

    QCOMPARE(handler->lockForWrite(), nullptr);

    COMPARE_LOG(log, removedWarning());
    QCOMPARE(m_semaphores.users(), 1);
}

void tst_LaterSemaphores::lockThatIsHeldIsNotCarriedOver()
{
    LogCapture log;
    MappedRegion memory(m_segment);
    QVERIFY(memory.create());
    const auto handler = memory.handler(create, m_semaphores.key());
    unsigned char *const locked = handler->lockForWrite();
    QVERIFY(m_semaphores.remove());
    const auto other = memory.handler(attach, m_semaphores.key());

    // A second thread would otherwise bring the handler to the new set, in the middle of a lock of
    // the old one.
    unsigned char *fromThread = locked;
    std::thread([&] { fromThread = handler->lockForWrite(); }).join();
    QCOMPARE(fromThread, nullptr);
    COMPARE_LOG(log, removedWarning());
    unsigned char *const ofOther = other->lockForWrite();
    QVERIFY(handler->unlockForWrite(locked));

    QVERIFY(m_semaphores.isWriteLocked());
    QVERIFY(other->unlockForWrite(ofOther));
    QVERIFY(publishSet(*handler, 3));
    QCOMPARE(m_semaphores.users(), 2);
    COMPARE_LOG(log);
}

void tst_LaterSemaphores::unfinishedSetIsNotJoined()
{
    LogCapture log;
    MappedRegion memory(m_segment);
    QVERIFY(memory.create());
    const auto handler = memory.handler(create, m_semaphores.key());
    std::vector<unsigned short> values = m_semaphores.values();
    values[SemaphoreSet::Names::SemaphoreUsers] = 0;
    QVERIFY(m_semaphores.remove());
    const int id = m_semaphores.make(std::vector<unsigned short>(values.size(), 0));
    QVERIFY(id >= 0);

    QCOMPARE(handler->lockForWrite(), nullptr);
    COMPARE_LOG(log, removedWarning());

    QVERIFY(SemaphoreSet::setValues(id, values));
    QVERIFY(publishSet(*handler, 3));
    QCOMPARE(m_semaphores.users(), 1);
    COMPARE_LOG(log);
}

void tst_LaterSemaphores::creatorThatGoesOnLateTakesNobodyTheLock()
{
    LogCapture log;
    MappedRegion lateMemory(m_segment);
    QVERIFY(lateMemory.create());
    // Stopped here; somebody else starts as creator.
    MappedRegion memory(m_segment);
    QVERIFY(memory.create());
    const auto handler = memory.handler(create, m_semaphores.key());
    QVERIFY(publishSet(*handler, 1));

    const auto late = lateMemory.handler(create, m_semaphores.key());

    QVERIFY(publishSet(*late, 9));
    QVERIFY(publishSet(*handler, 2));
    QVERIFY(isPublished(*handler, 2));
    QVERIFY(isPublished(*late, 9));
    QCOMPARE(m_semaphores.users(), 2);
    QCOMPARE(log.take(), QList<LogLine>());
}

void tst_LaterSemaphores::creatorLetsTheWriterInsideEnd()
{
    MappedRegion memory(m_segment);
    QVERIFY(memory.create());
    const auto handler = memory.handler(create, m_semaphores.key());
    unsigned char *const locked = handler->lockForWrite();
    ChildProcess creator([&](const ChildSide &parent) {
        // So that it does not go on before this process has had its turn.
        SemaphoreCalls::boundOfAll = std::chrono::seconds(60);
        const auto own = memory.handler(create, m_semaphores.key());
        parent.say();
        CHILD_VERIFY(publishSet(*own, 3));
        return 0;
    });

    QVERIFY(m_semaphores.waitUntilBlockedByWriter());

    QVERIFY(handler->unlockForWrite(locked));
    QVERIFY(creator.waitUntilReady());
    QCOMPARE(creator.waitForExit(), 0);
    QVERIFY(isPublished(*handler, 3));
}

void tst_LaterSemaphores::creatorDoesNotHangBehindAStoppedWriter()
{
    MappedRegion memory(m_segment);
    QVERIFY(memory.create());
    ChildProcess writer([&](const ChildSide &parent) {
        const auto own = memory.handler(attach, m_semaphores.key());
        unsigned char *const locked = own->lockForWrite();
        CHILD_VERIFY(locked != nullptr);
        parent.say();
        parent.waitForWord();
        LogCapture log;
        CHILD_VERIFY(own->unlockForWrite(locked));
        CHILD_VERIFY(log.take() == QList<LogLine>{removedWarning()});
        CHILD_VERIFY(publishSet(*own, 5));
        return 0;
    });
    QVERIFY(writer.waitUntilReady());
    QVERIFY(writer.stop());

    const auto handler = memory.handler(create, m_semaphores.key());

    QVERIFY(publishSet(*handler, 4));
    QVERIFY(isPublished(*handler, 4));
    writer.resume();
    writer.tell();
    QCOMPARE(writer.waitForExit(), 0);
    QVERIFY(isPublished(*handler, 5));
}

QTEST_GUILESS_MAIN(tst_LaterSemaphores)
#include "tst_LaterSemaphores.moc"
