#include "InspectedRegion.h"
#include "support/ChildProcess.h"
#include "support/SemaphoreCalls.h"

#include <thread>

namespace {

using State = RegionLock::State;

/// So many writes that a process keeps the lock from then on.
bool writeManyTimes(ProcessDataManager &manager)
{
    for (int i = 0; i < 40; ++i) {
        if (!manager.lockWriteBuffer() || !manager.unlockWriteBuffer()) {
            return false;
        }
    }
    return true;
}

} // namespace

/// What an inspection says of the locks, which it never takes itself.
class tst_RegionLocks : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void lockIsFreeWhileNobodyIsInside();
    void holderIsNamed_data();
    void holderIsNamed();
    void holderWhoKeepsTheLockIsNamed();
    void keptLockIsNotHeld();
    void deadHolderHoldsNothing();
    void waitersAreCounted();
    void whoeverWaitsForANumberToRiseIsAWaiter();
    void readersOfASingleBufferAreCounted();
    void removedSemaphoresAreUnknown();
    void semaphoresOfOthersAreUnknown();
    void lockOfAReplacedRegionIsUnknown_data();
    void lockOfAReplacedRegionIsUnknown();
    void lockIsThatOfOneMoment();
    void doubleBufferThatIsMadeDuringALookIsNoSingleOne();
};

void tst_RegionLocks::lockIsFreeWhileNobodyIsInside()
{
    const TwoNumbers description;
    const QuietManager creator(description, create);

    const RegionLock lock = description.inspect().getLock();

    QVERIFY(lock.state == State::Free);
    QVERIFY(!lock.holder);
    QCOMPARE(lock.waiters, 0);
    QCOMPARE(lock.readers, 0);
}

void tst_RegionLocks::holderIsNamed_data()
{
    QTest::addColumn<bool>("doubleBuffer");
    QTest::newRow("single buffer") << false;
    QTest::newRow("double buffer") << true;
}

void tst_RegionLocks::holderIsNamed()
{
    QFETCH(bool, doubleBuffer);
    const TwoNumbers description(doubleBuffer);
    QuietManager creator(description, create);

    QVERIFY(creator.manager().lockWriteBuffer());
    const RegionLock lock = description.inspect().getLock();
    QVERIFY(creator.manager().unlockWriteBuffer());

    QVERIFY(lock.state == State::Held);
    QVERIFY(lock.holder == qint64{getpid()});
    QVERIFY(description.inspect().getLock().state == State::Free);
}

void tst_RegionLocks::holderWhoKeepsTheLockIsNamed()
{
    const TwoNumbers description;
    const QuietManager creator(description, create);
    ChildProcess child([&](const ChildSide &side) {
        QuietManager manager(description, attach);
        CHILD_VERIFY(writeManyTimes(manager.manager()));
        CHILD_VERIFY(description.semaphores.isKept());
        CHILD_VERIFY(manager.manager().lockWriteBuffer());
        CHILD_VERIFY(!description.semaphores.isWriteLocked());
        const RegionLock own = description.inspect().getLock();
        CHILD_VERIFY(own.holder == qint64{getpid()});
        side.say();
        side.waitForWord();
        return 0;
    });
    QVERIFY(child.waitUntilReady());

    const RegionLock lock = description.inspect().getLock();

    QVERIFY(lock.state == State::Held);
    QVERIFY(lock.holder && *lock.holder != getpid());
    QVERIFY(child.kill());
}

void tst_RegionLocks::keptLockIsNotHeld()
{
    const TwoNumbers description;
    QuietManager creator(description, create);
    QVERIFY(writeManyTimes(creator.manager()));
    QVERIFY(description.semaphores.isKept());

    const RegionLock lock = description.inspect().getLock();

    QVERIFY(lock.state == State::Kept);
    QVERIFY(lock.holder == qint64{getpid()});
}

void tst_RegionLocks::deadHolderHoldsNothing()
{
    const TwoNumbers description;
    const QuietManager creator(description, create);
    ChildProcess child([&](const ChildSide &side) {
        QuietManager manager(description, attach);
        CHILD_VERIFY(writeManyTimes(manager.manager()));
        CHILD_VERIFY(manager.manager().lockWriteBuffer());
        side.say();
        side.waitForWord();
        return 0;
    });
    QVERIFY(child.waitUntilReady());
    QVERIFY(child.kill());

    QVERIFY(description.inspect().getLock().state == State::Free);
    QVERIFY(!description.inspect().getLock().holder);
}

void tst_RegionLocks::waitersAreCounted()
{
    const TwoNumbers description;
    QuietManager creator(description, create);
    QVERIFY(creator.manager().lockWriteBuffer());
    ChildProcess child([&](const ChildSide &) {
        const SemaphoreCalls::PatientWaits patient;
        QuietManager manager(description, attach);
        CHILD_VERIFY(manager.manager().lockWriteBuffer());
        return manager.manager().unlockWriteBuffer() ? 0 : 1;
    });
    QVERIFY(description.semaphores.waitUntilBlockedByWriter());

    const RegionLock lock = description.inspect().getLock();

    QVERIFY(creator.manager().unlockWriteBuffer());
    QVERIFY(lock.state == State::Held);
    QVERIFY(lock.holder == qint64{getpid()});
    QCOMPARE(lock.waiters, 1);
    QCOMPARE(child.waitForExit(), 0);
    QCOMPARE(description.inspect().getLock().waiters, 0);
}

/// Another version may sleep in the other way.
void tst_RegionLocks::whoeverWaitsForANumberToRiseIsAWaiter()
{
    const TwoNumbers description;
    const QuietManager creator(description, create);
    ChildProcess child([&](const ChildSide &) {
        sembuf take{SemaphoreSet::Names::SemaphoreLease, -1, 0};
        return semop(description.semaphores.id(), &take, 1) == 0 ? 0 : 1;
    });
    QVERIFY(description.semaphores.waitUntilBlocked(SemaphoreSet::Names::SemaphoreLease, 1));

    const RegionLock lock = description.inspect().getLock();

    QCOMPARE(lock.waiters, 1);
    QVERIFY(description.semaphores.setValue(SemaphoreSet::Names::SemaphoreLease, 1));
    QCOMPARE(child.waitForExit(), 0);
}

void tst_RegionLocks::readersOfASingleBufferAreCounted()
{
    const TwoNumbers description(false);
    QuietManager creator(description, create);
    QVERIFY(creator.manager().lockReadBuffer());

    const RegionLock lock = description.inspect().getLock();

    bool repeat = false;
    QVERIFY(creator.manager().unlockReadBuffer(repeat));
    QVERIFY(lock.state == State::Free);
    QCOMPARE(lock.readers, 1);
    QCOMPARE(description.inspect().getLock().readers, 0);
}

void tst_RegionLocks::removedSemaphoresAreUnknown()
{
    const TwoNumbers description;
    const QuietManager creator(description, create);
    QVERIFY(description.semaphores.remove());

    QVERIFY(description.inspect().getLock().state == State::Unknown);
    QVERIFY(RegionInspection(description.key + QStringLiteral("none")).getLock().state
            == State::Unknown);
}

void tst_RegionLocks::semaphoresOfOthersAreUnknown()
{
    const TwoNumbers description;
    QVERIFY(description.semaphores.make({1, 1, 1, 1, 1, 1, 1, 1, 1}) >= 0);

    const RegionLock lock = description.inspect().getLock();

    QVERIFY(lock.state == State::Unknown);
    QCOMPARE(lock.readers, 0);
}

void tst_RegionLocks::lockOfAReplacedRegionIsUnknown_data()
{
    QTest::addColumn<bool>("doubleBuffer");
    QTest::newRow("single buffer") << false;
    QTest::newRow("double buffer") << true;
}

/// The semaphores are those of the later one.
void tst_RegionLocks::lockOfAReplacedRegionIsUnknown()
{
    QFETCH(bool, doubleBuffer);
    const TwoNumbers description(doubleBuffer);
    const QuietManager former(description, create);
    const RegionInspection region = description.inspect();
    QVERIFY(region.getLock().state == State::Free);
    QuietManager later(description, create);
    QVERIFY(later.manager().lockWriteBuffer());

    const RegionLock lock = region.getLock();

    QVERIFY(lock.state == State::Unknown);
    QVERIFY(!lock.holder);
    QVERIFY(description.inspect().getLock().state == State::Held);
    QVERIFY(later.manager().unlockWriteBuffer());
}

/// The semaphores may be removed behind the first look at them.
void tst_RegionLocks::lockIsThatOfOneMoment()
{
    const TwoNumbers description;
    QuietManager creator(description, create);
    QVERIFY(creator.manager().lockWriteBuffer());
    const RegionInspection region = description.inspect();
    const int set = description.semaphores.id();
    SemaphoreCalls::after = [&](const SemaphoreCalls::Call &call) {
        if (call.command == GETALL && call.set == set) {
            description.semaphores.remove();
        }
    };

    const RegionLock lock = region.getLock();
    SemaphoreCalls::tellNobody();

    QVERIFY(!description.semaphores.exists());
    QVERIFY(lock.state == State::Held);
    QCOMPARE(lock.waiters, 0);
    QVERIFY(region.getLock().state == State::Unknown);
    const LogCapture log;
    creator.manager().unlockWriteBuffer();
}

void tst_RegionLocks::doubleBufferThatIsMadeDuringALookIsNoSingleOne()
{
    const TwoNumbers description;
    const QuietManager creator(description, create);
    MappedRegion block(description.segment);
    QVERIFY(block.attach());
    block.management()->format = 0;
    const RegionInspection region = description.inspect();
    int calls = 0;

    SemaphoreCalls::before = [&](const SemaphoreCalls::Call & /*call*/) {
        ++calls;
        block.management()->format = PingPongBufferHandler::formatWord();
    };
    const std::optional<bool> isDouble = region.isDoubleBuffer();
    SemaphoreCalls::tellNobody();

    QVERIFY(calls > 0);
    QVERIFY(isDouble == true);
}

QTEST_GUILESS_MAIN(tst_RegionLocks)

#include "tst_RegionLocks.moc"
