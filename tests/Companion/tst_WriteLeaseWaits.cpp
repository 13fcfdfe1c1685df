#include "support/DoubleBuffer.h"
#include "support/LeaseWords.h"
#include "support/LogCapture.h"
#include "support/SemaphoreCalls.h"
#include "support/StoppedProcess.h"

#include <atomic>
#include <thread>

#include <unistd.h>

namespace {

using Names = SemaphoreSet::Names;
using Clock = std::chrono::steady_clock;

/// Far below the bound of a lock.
constexpr std::chrono::milliseconds farBelowTheBound{500};
/// A wait in slices is counted in whole milliseconds.
constexpr std::chrono::milliseconds rounding{5};

/// Keeps the lock and is outside.
ChildProcess::Body ownsOutside(const DoubleBuffer &buffer)
{
    return [&buffer](const ChildSide &parent) {
        const auto handler = buffer.attach();
        CHILD_VERIFY(becomeOwner(*handler, buffer.management()));
        parent.say();
        parent.waitForWord();
        CHILD_VERIFY(publishSet(*handler, 7));
        return 0;
    };
}

/// Keeps the lock and is inside, in the middle of a set.
ChildProcess::Body ownsInside(const DoubleBuffer &buffer)
{
    return [&buffer](const ChildSide &parent) {
        const auto handler = buffer.attach();
        CHILD_VERIFY(becomeOwner(*handler, buffer.management()));
        CHILD_VERIFY(handler->swapBuffers());
        unsigned char *const locked = handler->lockForWrite();
        CHILD_VERIFY(LeaseWords(buffer.management()).isInside());
        fillBuffer(locked, buffer.size() / 2, 7);
        parent.say();
        parent.waitForWord();
        fillBuffer(locked, buffer.size(), 7);
        CHILD_VERIFY(handler->unlockForWrite(locked));
        CHILD_VERIFY(handler->swapBuffers());
        return 0;
    };
}

/// Stops a process that waits for the owner where it waits: each time it looks anew it has Write for a
/// moment, and one that is stopped then is another matter.
bool stopAsleep(const ChildProcess &waiter, const SemaphoreSet &semaphores)
{
    constexpr int farMoreThanEnough = 1000;
    for (int i = 0; i < farMoreThanEnough; ++i) {
        if (!semaphores.waitUntilBlocked(Names::SemaphoreLease, 1) || !waiter.stop()) {
            return false;
        }
        if (!semaphores.isWriteLocked()) {
            return true;
        }
        waiter.resume();
    }
    return false;
}

/// A write lock taken and given back by another process, in waits that are none of them allowed more than
/// @p longest.
class Writer
{
public:
    explicit Writer(const DoubleBuffer &buffer,
                    std::chrono::milliseconds longest = SystemVSemaphoreBaseClass::sm_lockWaitBound)
        : m_child([&buffer, longest](const ChildSide &parent) {
            const auto handler = buffer.attach();
            parent.say();
            parent.waitForWord();
            CHILD_VERIFY(publishSet(*handler, 5));
            CHILD_VERIFY(SemaphoreCalls::longestBound() <= longest);
            return 0;
        })
    {
        m_child.waitUntilReady();
        m_child.tell();
    }
    ChildProcess m_child;
};

} // namespace

/// Those who come while a process keeps the write lock: when they get in, and how long they wait.
class tst_WriteLeaseWaits : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void stoppedOwnerOutsideDelaysNobody();
    void waitForAnOwnerInsideEndsWithItsUnlock();
    void waitForAStoppedOwnerInsideHasItsBound_data() { addWaysToEnd(); }
    void waitForAStoppedOwnerInsideHasItsBound();
    void wishIsLeftWhereTheLeaseIsNotSeen();
    void ownerStoppedBehindItsUnlockHoldsNobodyUp();
    void stoppedWaiterHoldsNobodyUp();
    void severalWaitersGetInOneBehindTheOther();
    void lockThatEndsSoonNeedsNoSleep_data();
    void lockThatEndsSoonNeedsNoSleep();
};

void tst_WriteLeaseWaits::stoppedOwnerOutsideDelaysNobody()
{
    const DoubleBuffer buffer;
    const auto handler = buffer.create();
    StoppedProcess owner(ownsOutside(buffer));
    QVERIFY(owner.isStopped());
    const int before = SemaphoreCalls::waits();

    QVERIFY(publishSet(*handler, 5));

    QCOMPARE(SemaphoreCalls::waits() - before, 0);
    QVERIFY(isPublished(*handler, 5));
    QCOMPARE(owner.goOn(), 0);
    QVERIFY(isPublished(*handler, 7));
}

void tst_WriteLeaseWaits::waitForAnOwnerInsideEndsWithItsUnlock()
{
    const DoubleBuffer buffer;
    LeaseWords lease(buffer.management());
    const auto handler = buffer.create();
    QVERIFY(becomeOwner(*handler, buffer.management()));
    unsigned char *const locked = handler->lockForWrite();
    QVERIFY(lease.isInside());
    Writer writer(buffer);
    QVERIFY(buffer.semaphores.waitUntilBlocked(Names::SemaphoreLease, 1));
    QCOMPARE(lease.words.wanted.load(), quint32{LeaseWords::SomebodyWaits});
    fillBuffer(locked, buffer.size(), 3);

    QVERIFY(handler->unlockForWrite(locked));

    // Given back by the unlock itself, whatever comes of it by others.
    QVERIFY(!buffer.semaphores.isKept());
    QCOMPARE(writer.m_child.waitForExit(), 0);
    QVERIFY(isPublished(*handler, 5));
    QVERIFY(lease.isNone());
}

void tst_WriteLeaseWaits::waitForAStoppedOwnerInsideHasItsBound()
{
    QFETCH(bool, byDeath);
    const DoubleBuffer buffer;
    LogCapture log;
    const auto handler = buffer.create();
    QVERIFY(publishSet(*handler, 1));
    StoppedProcess owner(ownsInside(buffer));
    QVERIFY(owner.isStopped());
    const auto before = SemaphoreCalls::sumOfBounds();
    const auto begin = Clock::now();

    QCOMPARE(handler->lockForWrite(), nullptr);

    QVERIFY(Clock::now() - begin + rounding >= SystemVSemaphoreBaseClass::sm_lockWaitBound);
    // By what it was ready to wait: a busy machine may take longer over it.
    QVERIFY(SemaphoreCalls::sumOfBounds() - before
            < SystemVSemaphoreBaseClass::sm_lockWaitBound + farBelowTheBound);
    QVERIFY(!buffer.semaphores.isWriteLocked());
    QVERIFY(isPublished(*handler, 1));
    QVERIFY(owner.end(byDeath));
    QVERIFY(isPublished(*handler, byDeath ? 1 : 7));
    QVERIFY(publishSet(*handler, 3));
    QVERIFY(isPublished(*handler, 3));
    COMPARE_LOG(log);
}

void tst_WriteLeaseWaits::wishIsLeftWhereTheLeaseIsNotSeen()
{
    const DoubleBuffer buffer;
    LeaseWords lease(buffer.management());
    const auto handler = buffer.create();
    QVERIFY(becomeOwner(*handler, buffer.management()));
    unsigned char *const locked = handler->lockForWrite();
    LogCapture log;
    // By a stranger's hand. The word goes on saying that somebody is inside.
    QVERIFY(buffer.semaphores.setValue(Names::SemaphoreLease, 0));
    Writer writer(buffer);

    QCOMPARE(writer.m_child.waitForExit(), 0);

    QCOMPARE(lease.words.wanted.load(), quint32{LeaseWords::SomebodyWaits});
    QVERIFY(handler->unlockForWrite(locked));
    QVERIFY(lease.isNone());
}

void tst_WriteLeaseWaits::ownerStoppedBehindItsUnlockHoldsNobodyUp()
{
    const DoubleBuffer buffer;
    LeaseWords lease(buffer.management());
    const auto handler = buffer.create();
    QVERIFY(becomeOwner(*handler, buffer.management()));
    QVERIFY(handler->lockForWrite() != nullptr);
    buffer.management()->writerPid = 0;
    // It looks anew all the time, whatever the owner may tell it or not.
    Writer writer(buffer, farBelowTheBound);
    QVERIFY(buffer.semaphores.waitUntilBlocked(Names::SemaphoreLease, 1));

    // As far as an owner comes that is stopped before it looks whether somebody waits.
    lease.words.word = lease.word() - LeaseWords::Inside + LeaseWords::Idle;

    QCOMPARE(writer.m_child.waitForExit(), 0);
    QVERIFY(lease.isNone());
    QVERIFY(isPublished(*handler, 5));
}

void tst_WriteLeaseWaits::stoppedWaiterHoldsNobodyUp()
{
    const DoubleBuffer buffer;
    LeaseWords lease(buffer.management());
    const auto handler = buffer.create();
    const auto other = buffer.attach();
    QVERIFY(becomeOwner(*handler, buffer.management()));
    unsigned char *const locked = handler->lockForWrite();
    Writer waiter(buffer);
    QVERIFY(stopAsleep(waiter.m_child, buffer.semaphores));

    QVERIFY(handler->unlockForWrite(locked));

    QVERIFY(publishSet(*other, 8));
    QVERIFY(isPublished(*other, 8));
    waiter.m_child.resume();
    QCOMPARE(waiter.m_child.waitForExit(), 0);
    QVERIFY(isPublished(*other, 5));
}

void tst_WriteLeaseWaits::severalWaitersGetInOneBehindTheOther()
{
    const DoubleBuffer buffer;
    LeaseWords lease(buffer.management());
    const auto handler = buffer.create();
    QVERIFY(becomeOwner(*handler, buffer.management()));
    unsigned char *const locked = handler->lockForWrite();
    Writer first(buffer);
    Writer second(buffer);
    QVERIFY(buffer.semaphores.waitUntilBlocked(Names::SemaphoreLease, 1));

    QVERIFY(handler->unlockForWrite(locked));

    QCOMPARE(first.m_child.waitForExit(), 0);
    QCOMPARE(second.m_child.waitForExit(), 0);
    QVERIFY(lease.isNone());
    QVERIFY(!buffer.semaphores.isWriteLocked());
}

void tst_WriteLeaseWaits::lockThatEndsSoonNeedsNoSleep_data()
{
    QTest::addColumn<int>("attempt");

    QTest::newRow("behind one look") << 2;
    QTest::newRow("behind several") << 8;
}

void tst_WriteLeaseWaits::lockThatEndsSoonNeedsNoSleep()
{
    QFETCH(int, attempt);
    const DoubleBuffer buffer;
    const auto holder = buffer.create();
    const auto comer = buffer.attach();
    unsigned char *const held = holder->lockForWrite();
    QVERIFY(held != nullptr);
    int attempts = 0;
    bool isUnlocked = false;
    SemaphoreCalls::before = [&](const SemaphoreCalls::Call &call) {
        attempts += call.changes(Names::SemaphoreWriteLock, 1) ? 1 : 0;
        if ((attempts == attempt || call.mayWait) && !isUnlocked) {
            isUnlocked = holder->unlockForWrite(held);
        }
    };
    const int before = SemaphoreCalls::waits();

    unsigned char *const locked = comer->lockForWrite();

    SemaphoreCalls::tellNobody();
    QVERIFY(isUnlocked);
    QVERIFY(locked != nullptr);
    // A processor alone is left to whoever holds the lock.
    QCOMPARE(SemaphoreCalls::waits() - before,
             attempt > 2 && sysconf(_SC_NPROCESSORS_ONLN) == 1 ? 1 : 0);
    QVERIFY(comer->unlockForWrite(locked));
}

QTEST_GUILESS_MAIN(tst_WriteLeaseWaits)
#include "tst_WriteLeaseWaits.moc"
