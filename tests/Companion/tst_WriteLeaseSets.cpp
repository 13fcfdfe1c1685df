#include "support/ChildProcess.h"
#include "support/DoubleBuffer.h"
#include "support/ExchangeMessages.h"
#include "support/LeaseWords.h"
#include "support/LogCapture.h"
#include "support/MappedRegion.h"
#include "support/SemaphoreCalls.h"

#include <QtTest>

#include <thread>

namespace {

using Names = SemaphoreSet::Names;
using Clock = std::chrono::steady_clock;

constexpr auto create = SystemVSemaphoreBaseClass::CreationTypeCreate;
constexpr auto attach = SystemVSemaphoreBaseClass::CreationTypeAttach;

} // namespace

/// A lock that stays with a process, and a set of semaphores that does not: removed by hand, made
/// anew, or made by the creator after others have come.
class tst_WriteLeaseSets : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void ownerNoticesARemovedSetByTime();
    void ownerFollowsToALaterSet();
    void lockIsNotKeptInALaterSet();
    void threadInsideKeepsItsObjectInItsSet();
    void attacherInAnEarlierSetKeepsNoLock();
    void processInARemovedSetTakesNoLeaseAway();
    void ownerThatLeavesGivesTheLeaseBackInItsOwnSet();

private:
    PingPongBufferHandler::ManagementBuffer *management() { return m_memory->management(); }
    std::unique_ptr<PingPongBufferHandler> handler(SystemVSemaphoreBaseClass::CreationType type)
    {
        return m_memory->handler(type, m_semaphores.key());
    }

    SegmentFile m_segment;
    SemaphoreSet m_semaphores{SemaphoreSet::uniqueKey(QStringLiteral("sets"))};
    std::unique_ptr<MappedRegion> m_memory;
};

void tst_WriteLeaseSets::init()
{
    m_memory = std::make_unique<MappedRegion>(m_segment);
    QVERIFY(m_memory->create());
}

void tst_WriteLeaseSets::cleanup()
{
    SemaphoreCalls::tellNobody();
    m_memory.reset();
}

void tst_WriteLeaseSets::ownerNoticesARemovedSetByTime()
{
    LogCapture log;
    const auto owner = handler(create);
    QVERIFY(becomeOwner(*owner, management()));
    QVERIFY(m_semaphores.remove());
    const auto removal = Clock::now();

    auto begin = removal;
    while (lockOnce(*owner)) {
        // By when the lock began: a busy machine may take longer over it.
        QVERIFY(begin - removal < std::chrono::milliseconds(200));
        begin = Clock::now();
    }

    COMPARE_LOG(log, removedWarning());
    QCOMPARE(owner->lockForWrite(), nullptr);
    QVERIFY(!owner->swapBuffers());
    COMPARE_LOG(log);
}

void tst_WriteLeaseSets::ownerFollowsToALaterSet()
{
    LogCapture log;
    const auto owner = handler(create);
    QVERIFY(publishSet(*owner, 1));
    QVERIFY(becomeOwner(*owner, management()));
    QVERIFY(owner->swapBuffers());
    QVERIFY(m_semaphores.remove());
    const auto other = handler(attach);
    QVERIFY(publishSet(*other, 2));
    QVERIFY(LeaseWords(management()).isNone());

    unsigned char *const locked = owner->lockForWrite();

    QVERIFY(m_semaphores.isWriteLocked());
    QCOMPARE(m_semaphores.users(), 2);
    QVERIFY(isFilledWith(locked, owner->bufferSize(), 2));
    fillBuffer(locked, owner->bufferSize(), 3);
    QVERIFY(owner->unlockForWrite(locked));
    QVERIFY(owner->swapBuffers());
    QVERIFY(isPublished(*other, 3));
    COMPARE_LOG(log);
}

void tst_WriteLeaseSets::lockIsNotKeptInALaterSet()
{
    const auto owner = handler(create);
    QVERIFY(becomeOwner(*owner, management()));
    QVERIFY(m_semaphores.remove());
    const auto other = handler(attach);
    QVERIFY(lockOnce(*other));

    QVERIFY(!becomeOwner(*owner, management()));
    QVERIFY(!becomeOwner(*other, management()));

    QVERIFY(!m_semaphores.isKept());
}

/// Else the thread would find the lock of another one in the place of its own.
void tst_WriteLeaseSets::threadInsideKeepsItsObjectInItsSet()
{
    LogCapture log;
    const auto owner = handler(create);
    QVERIFY(becomeOwner(*owner, management()));
    unsigned char *const locked = owner->lockForWrite();
    QVERIFY(LeaseWords(management()).isInside());
    QVERIFY(m_semaphores.remove());
    const auto other = handler(attach);
    // A word of another set keeps nobody out.
    QVERIFY(lockOnce(*other));
    QVERIFY(LeaseWords(management()).isNone());
    bool isRefused = false;

    std::thread([&] { isRefused = owner->lockForWrite() == nullptr; }).join();

    QVERIFY(isRefused);
    QVERIFY(owner->unlockForWrite(locked));
    QCOMPARE(m_semaphores.users(), 1);
    // From now on nothing holds it there.
    QVERIFY(lockOnce(*owner));
    QCOMPARE(m_semaphores.users(), 2);
    QVERIFY(lockOnce(*other));
}

void tst_WriteLeaseSets::attacherInAnEarlierSetKeepsNoLock()
{
    LogCapture log;
    const auto attacher = handler(attach);
    QVERIFY(!becomeOwner(*attacher, management()));
    const auto creator = handler(create);
    QVERIFY(becomeOwner(*creator, management()));

    QVERIFY(publishSet(*attacher, 3));

    QVERIFY(LeaseWords(management()).isNone());
    QVERIFY(!m_semaphores.isKept());
    QVERIFY(isPublished(*creator, 3));
    QVERIFY(becomeOwner(*attacher, management()));
    QVERIFY(publishSet(*creator, 4));
    QVERIFY(isPublished(*attacher, 4));
    COMPARE_LOG(log);
}

/// It was stopped behind the semaphore for longer than a creator waits.
void tst_WriteLeaseSets::processInARemovedSetTakesNoLeaseAway()
{
    LogCapture log;
    const auto late = handler(attach);
    const SemaphoreSet &semaphores = m_semaphores;
    std::unique_ptr<PingPongBufferHandler> creator;
    unsigned char *creators = nullptr;
    SemaphoreCalls::after = [&](const SemaphoreCalls::Call &call) {
        if (!call.changes(Names::SemaphoreWriteLock, 1)) {
            return;
        }
        SemaphoreCalls::tellNobody();
        semaphores.remove();
        std::thread([&] {
            creator = handler(create);
            becomeOwner(*creator, management());
            creators = creator->lockForWrite();
        }).join();
    };

    unsigned char *const locked = late->lockForWrite();

    QVERIFY(creators != nullptr);
    QVERIFY(LeaseWords(management()).isInside());
    QVERIFY(locked == nullptr || late->unlockForWrite(locked));
    QVERIFY(LeaseWords(management()).isInside());
}

void tst_WriteLeaseSets::ownerThatLeavesGivesTheLeaseBackInItsOwnSet()
{
    const auto owner = handler(create);
    QVERIFY(becomeOwner(*owner, management()));
    unsigned char *const locked = owner->lockForWrite();
    QVERIFY(m_semaphores.remove());
    const auto other = handler(create);
    QVERIFY(becomeOwner(*other, management()));
    const quint64 word = LeaseWords(management()).word();

    QVERIFY(owner->unlockForWrite(locked));

    QCOMPARE(LeaseWords(management()).word(), word);
    QVERIFY(m_semaphores.isKept());
}

QTEST_GUILESS_MAIN(tst_WriteLeaseSets)
#include "tst_WriteLeaseSets.moc"
