#include "support/DoubleBuffer.h"
#include "support/LeaseWords.h"
#include "support/SemaphoreCalls.h"

#include <QtTest>

namespace {

constexpr int locksInARow = 16;

} // namespace

/// A write lock that stays with a writer who writes alone: when it does, and what that saves him.
class tst_WriteLease : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void stayBeginsBehindSixteenLocksInARow();
    void ownerMakesNoSemaphoreOperation();
    void everyWayIntoTheLockIsShort();
    void lockOfSomebodyElseEndsTheRow();
    void twoWritersInTurnNeverKeepIt();
    void idleOwnerLetsOthersInWithoutAWait();
    void formerOwnerBeginsItsRowAnew();
    void ownerThatGaveWayToNobodyBeginsItsRowAnew();
    void nestedLocksLeaveWithTheOutermost();
    void lockIsNotKeptInASetOfAnotherMemory_data();
    void lockIsNotKeptInASetOfAnotherMemory();
    void lastNumberIsPassed();
    void ownerThatEndsOutsideTouchesNoMemory();
    void ownerThatEndsInsideGivesTheLockBack();
    void ownersOfTwoRegionsDoNotMeet();
};

void tst_WriteLease::stayBeginsBehindSixteenLocksInARow()
{
    const DoubleBuffer buffer;
    const LeaseWords lease(buffer.management());
    const auto handler = buffer.create();

    for (int i = 0; i < locksInARow; ++i) {
        QVERIFY(lockOnce(*handler));
        QVERIFY(lease.isNone());
        QVERIFY(!buffer.semaphores.isKept());
    }

    QVERIFY(lockOnce(*handler));
    QVERIFY(lease.isIdle());
    QVERIFY(buffer.semaphores.isKept());
    QVERIFY(!buffer.semaphores.isWriteLocked());
}

void tst_WriteLease::ownerMakesNoSemaphoreOperation()
{
    constexpr int count = 1000;
    const DoubleBuffer buffer;
    const LeaseWords lease(buffer.management());
    const auto handler = buffer.create();
    QVERIFY(becomeOwner(*handler, buffer.management()));
    const quint64 word = lease.word();
    const int before = SemaphoreCalls::operations();

    for (int i = 0; i < count; ++i) {
        QVERIFY(lockOnce(*handler));
    }

    QCOMPARE(SemaphoreCalls::operations() - before, 0);
    QCOMPARE(lease.word(), word);
}

void tst_WriteLease::everyWayIntoTheLockIsShort()
{
    const DoubleBuffer buffer;
    const auto handler = buffer.create();
    QVERIFY(becomeOwner(*handler, buffer.management()));
    const LeaseWords lease(buffer.management());
    const int before = SemaphoreCalls::operations();

    unsigned char *locked = handler->lockForWrite();
    QVERIFY(lease.isInside());
    fillBuffer(locked, buffer.size(), 1);
    QVERIFY(handler->swapBuffers());
    QVERIFY(lease.isInside());
    fillBuffer(handler->writeBufferPointer(), buffer.size(), 2);
    QVERIFY(handler->unlockForWrite(locked));
    QVERIFY(lease.isIdle());
    QVERIFY(handler->swapBuffers());
    QVERIFY(isPublished(*handler, 2));
    // The third attempt of a reader holds writers off.
    QCOMPARE(readWithDisturbance(*handler), ReadResult::Repeat);
    QCOMPARE(readWithDisturbance(*handler), ReadResult::Repeat);
    locked = handler->lockForRead();
    QVERIFY(lease.isInside());
    QCOMPARE(finishRead(*handler, locked), ReadResult::Reliable);

    QVERIFY(lease.isIdle());
    QCOMPARE(SemaphoreCalls::operations() - before, 0);
}

void tst_WriteLease::lockOfSomebodyElseEndsTheRow()
{
    const DoubleBuffer buffer;
    const LeaseWords lease(buffer.management());
    const auto first = buffer.create();
    const auto second = buffer.attach();
    for (int i = 0; i < locksInARow; ++i) {
        QVERIFY(lockOnce(*first));
    }
    QVERIFY(lockOnce(*second));

    for (int i = 0; i < locksInARow; ++i) {
        QVERIFY(lockOnce(*first));
        QVERIFY(lease.isNone());
    }

    QVERIFY(lockOnce(*first));
    QVERIFY(lease.isIdle());
}

void tst_WriteLease::twoWritersInTurnNeverKeepIt()
{
    const DoubleBuffer buffer;
    const LeaseWords lease(buffer.management());
    const auto first = buffer.create();
    const auto second = buffer.attach();

    for (int i = 0; i < 4 * locksInARow; ++i) {
        QVERIFY(lockOnce(*first));
        QVERIFY(lease.isNone());
        QVERIFY(lockOnce(*second));
        QVERIFY(lease.isNone());
    }
}

void tst_WriteLease::idleOwnerLetsOthersInWithoutAWait()
{
    const DoubleBuffer buffer;
    const LeaseWords lease(buffer.management());
    const auto owner = buffer.create();
    const auto other = buffer.attach();
    QVERIFY(becomeOwner(*owner, buffer.management()));
    const int before = SemaphoreCalls::waits();

    QVERIFY(lockOnce(*other));

    QCOMPARE(SemaphoreCalls::waits() - before, 0);
    QVERIFY(lease.isNone());
    QVERIFY(!buffer.semaphores.isKept());
    QVERIFY(!buffer.semaphores.isWriteLocked());
    // Nor is the former owner held up.
    QVERIFY(publishSet(*owner, 3));
    QCOMPARE(SemaphoreCalls::waits() - before, 0);
    QVERIFY(isPublished(*other, 3));
}

void tst_WriteLease::formerOwnerBeginsItsRowAnew()
{
    const DoubleBuffer buffer;
    const LeaseWords lease(buffer.management());
    const auto owner = buffer.create();
    const auto other = buffer.attach();
    QVERIFY(becomeOwner(*owner, buffer.management()));
    const quint64 former = lease.word();
    QVERIFY(lockOnce(*other));

    for (int i = 0; i < locksInARow; ++i) {
        QVERIFY(lockOnce(*owner));
        QVERIFY(lease.isNone());
    }

    QVERIFY(lockOnce(*owner));
    QVERIFY(lease.isIdle());
    QVERIFY(lease.word() != former);
}

void tst_WriteLease::ownerThatGaveWayToNobodyBeginsItsRowAnew()
{
    const DoubleBuffer buffer;
    LeaseWords lease(buffer.management());
    const auto owner = buffer.create();
    QVERIFY(becomeOwner(*owner, buffer.management()));
    const quint64 former = lease.word();
    // Of somebody whose wait has run out since.
    lease.words.wanted = LeaseWords::SomebodyWaits;
    QVERIFY(lockOnce(*owner));
    QVERIFY(!buffer.semaphores.isKept());

    for (int i = 0; i < locksInARow; ++i) {
        QVERIFY(lockOnce(*owner));
        QVERIFY(lease.isNone());
        QVERIFY(!buffer.semaphores.isKept());
    }

    QVERIFY(lockOnce(*owner));
    QVERIFY(lease.isIdle());
    QVERIFY(lease.word() != former);
}

void tst_WriteLease::nestedLocksLeaveWithTheOutermost()
{
    const DoubleBuffer buffer;
    const LeaseWords lease(buffer.management());
    const auto owner = buffer.create();
    QVERIFY(becomeOwner(*owner, buffer.management()));
    unsigned char *const outer = owner->lockForWrite();
    unsigned char *const inner = owner->lockForWrite();
    QCOMPARE(inner, outer);

    QVERIFY(owner->unlockForWrite(inner));
    QVERIFY(lease.isInside());
    QVERIFY(owner->unlockForWrite(outer));

    QVERIFY(lease.isIdle());
    QVERIFY(!owner->unlockForWrite(outer));
    QVERIFY(lease.isIdle());
}

void tst_WriteLease::lockIsNotKeptInASetOfAnotherMemory_data()
{
    QTest::addColumn<quint32>("set");
    QTest::addColumn<quint32>("wanted");

    QTest::newRow("creator has not come so far") << quint32{0} << quint32{LeaseWords::NobodyWaits};
    QTest::newRow("another set") << quint32{12345} << quint32{LeaseWords::NobodyWaits};
    QTest::newRow("closed region") << quint32{0xFFFFFFFF} << quint32{LeaseWords::Closed};
}

void tst_WriteLease::lockIsNotKeptInASetOfAnotherMemory()
{
    QFETCH(quint32, set);
    QFETCH(quint32, wanted);
    const DoubleBuffer buffer;
    LeaseWords lease(buffer.management());
    const auto handler = buffer.create();
    if (set != 0xFFFFFFFF) {
        lease.words.set = set;
    }
    lease.words.wanted = wanted;

    for (int i = 0; i < 4 * locksInARow; ++i) {
        QVERIFY(publishSet(*handler, 1));
        QVERIFY(lease.isNone());
    }

    QVERIFY(!buffer.semaphores.isKept());
    QCOMPARE(lease.words.wanted.load(), wanted);
}

void tst_WriteLease::lastNumberIsPassed()
{
    const DoubleBuffer buffer;
    LeaseWords lease(buffer.management());
    const auto first = buffer.create();
    const auto second = buffer.attach();
    lease.words.lastNumber = 0xFFFFFFFD;

    for (int i = 0; i < 4; ++i) {
        QVERIFY(becomeOwner(*first, buffer.management()));
        QVERIFY(publishSet(*first, 1));
        QVERIFY(becomeOwner(*second, buffer.management()));
        QVERIFY(publishSet(*second, 2));
        QVERIFY(lease.words.lastLocker != 0);
    }

    QVERIFY(isPublished(*first, 2));
    QVERIFY(lease.words.lastNumber < 100);
}

void tst_WriteLease::ownerThatEndsOutsideTouchesNoMemory()
{
    DoubleBuffer buffer;
    const auto other = buffer.attach();
    auto owner = buffer.create();
    QVERIFY(becomeOwner(*owner, buffer.management()));
    buffer.region.unmap();

    owner.reset();

    QVERIFY(!buffer.semaphores.exists());
}

void tst_WriteLease::ownerThatEndsInsideGivesTheLockBack()
{
    const DoubleBuffer buffer;
    auto owner = buffer.create();
    const auto other = buffer.attach();
    QVERIFY(publishSet(*owner, 1));
    QVERIFY(becomeOwner(*owner, buffer.management()));
    fillBuffer(owner->lockForWrite(), buffer.size() / 2, 2);

    owner.reset();

    QVERIFY(!buffer.semaphores.isKept());
    QVERIFY(lockOnce(*other));
    QVERIFY(other->swapBuffers());
    QVERIFY(isPublished(*other, 1));
    QVERIFY(LeaseWords(buffer.management()).isNone());
}

void tst_WriteLease::ownersOfTwoRegionsDoNotMeet()
{
    const DoubleBuffer first;
    const DoubleBuffer second;
    const auto ofFirst = first.create();
    const auto ofSecond = second.create();
    QVERIFY(becomeOwner(*ofFirst, first.management()));
    QVERIFY(becomeOwner(*ofSecond, second.management()));
    const auto other = first.attach();
    unsigned char *const locked = ofSecond->lockForWrite();

    QVERIFY(lockOnce(*other));

    QVERIFY(LeaseWords(first.management()).isNone());
    QVERIFY(LeaseWords(second.management()).isInside());
    QVERIFY(second.semaphores.isKept());
    QVERIFY(ofSecond->unlockForWrite(locked));
    QVERIFY(LeaseWords(second.management()).isIdle());
}

QTEST_GUILESS_MAIN(tst_WriteLease)
#include "tst_WriteLease.moc"
