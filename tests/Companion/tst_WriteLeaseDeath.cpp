#include "support/ChildProcess.h"
#include "support/DoubleBuffer.h"
#include "support/LeaseWords.h"
#include "support/LogCapture.h"
#include "support/SemaphoreCalls.h"

#include <csignal>

namespace {

using Names = SemaphoreSet::Names;
using Call = SemaphoreCalls::Call;

void die()
{
    raise(SIGKILL);
}

bool isClearing(const Call &call)
{
    return call.command == SETVAL && call.semaphore == Names::SemaphoreLease;
}

/// The one operation by which the write semaphore becomes a lease.
bool isMaking(const Call &call)
{
    return call.changes(Names::SemaphoreLease, 1);
}

/// Where a process dies on its way.
struct Place
{
    bool (*is)(const Call &call);
    bool isBehind;

    void dieThere() const
    {
        (isBehind ? SemaphoreCalls::after
                  : SemaphoreCalls::before) = [place = *this](const Call &call) {
            if (place.is(call)) {
                die();
            }
        };
    }
};

constexpr Place places[] = {
    {isClearing, false}, {isClearing, true}, {isMaking, false}, {isMaking, true}};

/// Writes until it dies.
ChildProcess::Body makesALease(const DoubleBuffer &buffer, const Place &place)
{
    return [&buffer, place](const ChildSide &) {
        const auto handler = buffer.attach();
        place.dieThere();
        becomeOwner(*handler, buffer.management());
        return 1;
    };
}

/// Takes a lease away until it dies.
ChildProcess::Body revokes(const DoubleBuffer &buffer, const Place &place)
{
    return [&buffer, place](const ChildSide &) {
        const auto handler = buffer.attach();
        place.dieThere();
        lockOnce(*handler);
        return 1;
    };
}

/// In a process of its own, so that no wait of the test program lasts for ever. Soon by what it was ready to
/// wait: a busy machine may take longer over it.
bool isSoonLocked(const DoubleBuffer &buffer, unsigned char value)
{
    ChildProcess writer([&buffer, value](const ChildSide &) {
        const auto handler = buffer.attach();
        const auto before = SemaphoreCalls::sumOfBounds();
        CHILD_VERIFY(publishSet(*handler, value));
        CHILD_VERIFY(SemaphoreCalls::sumOfBounds() - before
                     < SystemVSemaphoreBaseClass::sm_lockWaitBound / 2);
        return 0;
    });
    return writer.waitForExit() == 0;
}

void addPlaces()
{
    QTest::addColumn<int>("place");

    QTest::newRow("before the semaphore is cleared") << 0;
    QTest::newRow("behind that") << 1;
    QTest::newRow("before the lease is held") << 2;
    QTest::newRow("behind that") << 3;
}

} // namespace

/// Deaths of processes that keep the write lock, that are about to, or that take it away.
class tst_WriteLeaseDeath : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void deadOwnerOutsideDelaysNobody();
    void halfSetOfADeadOwnerIsTakenBack();
    void deathInTheMakingLocksNobodyOut_data() { addPlaces(); }
    void deathInTheMakingLocksNobodyOut();
    void deathInTheRevocationLocksNobodyOut_data();
    void deathInTheRevocationLocksNobodyOut();
    void leaseIsMadeBehindADeadRevoker();
    void twoDeathsLockNobodyOut_data() { addPlaces(); }
    void twoDeathsLockNobodyOut();
    void deadWaiterLocksNobodyOut();
};

void tst_WriteLeaseDeath::deadOwnerOutsideDelaysNobody()
{
    LogCapture log;
    const DoubleBuffer buffer;
    const auto handler = buffer.create();
    ChildProcess owner([&buffer](const ChildSide &) {
        const auto own = buffer.attach();
        CHILD_VERIFY(publishSet(*own, 3));
        CHILD_VERIFY(becomeOwner(*own, buffer.management()));
        die();
        return 1;
    });
    QCOMPARE(owner.waitForExit(), -SIGKILL);
    QVERIFY(LeaseWords(buffer.management()).isIdle());
    QVERIFY(!buffer.semaphores.isKept());
    const int before = SemaphoreCalls::waits();

    QVERIFY(lockOnce(*handler));

    QCOMPARE(SemaphoreCalls::waits() - before, 0);
    QVERIFY(LeaseWords(buffer.management()).isNone());
    QVERIFY(isPublished(*handler, 3));
    COMPARE_LOG(log);
}

void tst_WriteLeaseDeath::halfSetOfADeadOwnerIsTakenBack()
{
    LogCapture log;
    const DoubleBuffer buffer;
    const auto handler = buffer.create();
    ChildProcess owner([&buffer](const ChildSide &) {
        const auto own = buffer.attach();
        CHILD_VERIFY(publishSet(*own, 3));
        CHILD_VERIFY(becomeOwner(*own, buffer.management()));
        fillBuffer(own->lockForWrite(), buffer.size() / 2, 4);
        CHILD_VERIFY(LeaseWords(buffer.management()).isInside());
        die();
        return 1;
    });
    QCOMPARE(owner.waitForExit(), -SIGKILL);
    QVERIFY(!buffer.semaphores.isKept());
    const int before = SemaphoreCalls::waits();

    unsigned char *const locked = handler->lockForWrite();

    QVERIFY(locked != nullptr);
    QVERIFY(isFilledWith(locked, buffer.size(), 3));
    QCOMPARE(SemaphoreCalls::waits() - before, 0);
    QVERIFY(LeaseWords(buffer.management()).isNone());
    QVERIFY(handler->unlockForWrite(locked));
    // What it had finished, and nobody had swapped, goes with it.
    COMPARE_LOG(
        log, warning(QStringLiteral("A process ended in the middle of writing process data: values "
                                    "that were written but not yet published are taken back.")));
}

void tst_WriteLeaseDeath::deathInTheMakingLocksNobodyOut()
{
    QFETCH(int, place);
    const DoubleBuffer buffer;
    const auto handler = buffer.create();
    ChildProcess maker(makesALease(buffer, places[place]));
    QCOMPARE(maker.waitForExit(), -SIGKILL);

    QVERIFY(isSoonLocked(buffer, 5));

    QVERIFY(isPublished(*handler, 5));
    QVERIFY(becomeOwner(*handler, buffer.management()));
}

void tst_WriteLeaseDeath::deathInTheRevocationLocksNobodyOut_data()
{
    QTest::addColumn<int>("place");

    QTest::newRow("before the semaphore is cleared") << 0;
    QTest::newRow("behind that") << 1;
}

void tst_WriteLeaseDeath::deathInTheRevocationLocksNobodyOut()
{
    QFETCH(int, place);
    const DoubleBuffer buffer;
    const auto owner = buffer.create();
    QVERIFY(becomeOwner(*owner, buffer.management()));
    ChildProcess revoker(revokes(buffer, places[place]));
    QCOMPARE(revoker.waitForExit(), -SIGKILL);

    QVERIFY(isSoonLocked(buffer, 5));

    QVERIFY(publishSet(*owner, 6));
    QVERIFY(isPublished(*owner, 6));
}

void tst_WriteLeaseDeath::leaseIsMadeBehindADeadRevoker()
{
    const DoubleBuffer buffer;
    const auto owner = buffer.create();
    const auto other = buffer.attach();
    QVERIFY(becomeOwner(*owner, buffer.management()));
    ChildProcess revoker(revokes(buffer, places[0]));
    QCOMPARE(revoker.waitForExit(), -SIGKILL);
    // In the name of the former owner, who lives.
    QVERIFY(buffer.semaphores.isKept());
    QVERIFY(LeaseWords(buffer.management()).isNone());

    QVERIFY(becomeOwner(*other, buffer.management()));

    QVERIFY(buffer.semaphores.isKept());
    QVERIFY(lockOnce(*owner));
    QVERIFY(!buffer.semaphores.isKept());
}

/// The first leaves the semaphore with an owner that has lost its lease; the second dies in making
/// one of its own.
void tst_WriteLeaseDeath::twoDeathsLockNobodyOut()
{
    QFETCH(int, place);
    const DoubleBuffer buffer;
    const auto owner = buffer.create();
    QVERIFY(becomeOwner(*owner, buffer.management()));
    ChildProcess revoker(revokes(buffer, places[0]));
    QCOMPARE(revoker.waitForExit(), -SIGKILL);
    ChildProcess maker(makesALease(buffer, places[place]));
    QCOMPARE(maker.waitForExit(), -SIGKILL);

    QVERIFY(isSoonLocked(buffer, 5));

    QVERIFY(publishSet(*owner, 6));
    QVERIFY(isPublished(*owner, 6));
}

void tst_WriteLeaseDeath::deadWaiterLocksNobodyOut()
{
    const DoubleBuffer buffer;
    const auto owner = buffer.create();
    QVERIFY(becomeOwner(*owner, buffer.management()));
    unsigned char *const locked = owner->lockForWrite();
    ChildProcess waiter([&buffer](const ChildSide &) {
        const SemaphoreCalls::PatientWaits patient;
        return lockOnce(*buffer.attach()) ? 1 : 2;
    });
    QVERIFY(buffer.semaphores.waitUntilBlocked(Names::SemaphoreLease, 1));
    QVERIFY(waiter.kill());

    QVERIFY(owner->unlockForWrite(locked));

    // It gives back what nobody waits for any more.
    QVERIFY(!buffer.semaphores.isKept());
    QVERIFY(isSoonLocked(buffer, 5));
    QVERIFY(becomeOwner(*owner, buffer.management()));
}

QTEST_GUILESS_MAIN(tst_WriteLeaseDeath)
#include "tst_WriteLeaseDeath.moc"
