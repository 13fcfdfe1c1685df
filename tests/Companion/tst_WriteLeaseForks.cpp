#include "support/ChildProcess.h"
#include "support/DoubleBuffer.h"
#include "support/LeaseWords.h"
#include "support/LogCapture.h"
#include "support/SemaphoreCalls.h"

#include <unistd.h>

namespace {

using Names = SemaphoreSet::Names;

} // namespace

/// Processes that are forked from one that keeps the write lock, and one that becomes another
/// program.
class tst_WriteLeaseForks : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void childTakesTheLockByTheSemaphores();
    void childStaysOutWhileItsParentIsInside();
    void childThatIsForkedInsideGivesNothingBack();
    void childKeepsTheLockForItself();
    void siblingsDoNotOwnForEachOther();
    void endOfAChildLeavesTheLockWithItsParent();
    void programThatFollowsAnOwnerOutsideHoldsNobodyUp();
    void programThatFollowsAnOwnerInsideLeavesAtItsEnd();
};

void tst_WriteLeaseForks::childTakesTheLockByTheSemaphores()
{
    const DoubleBuffer buffer;
    const auto handler = buffer.create();
    QVERIFY(becomeOwner(*handler, buffer.management()));
    ChildProcess child([&](const ChildSide &) {
        const int before = SemaphoreCalls::operations();
        unsigned char *const locked = handler->lockForWrite();
        CHILD_VERIFY(locked != nullptr);
        CHILD_VERIFY(SemaphoreCalls::operations() > before);
        CHILD_VERIFY(buffer.semaphores.isWriteLocked());
        CHILD_VERIFY(LeaseWords(buffer.management()).isNone());
        fillBuffer(locked, buffer.size(), 4);
        CHILD_VERIFY(handler->unlockForWrite(locked));
        CHILD_VERIFY(handler->swapBuffers());
        return 0;
    });

    QCOMPARE(child.waitForExit(), 0);

    const int before = SemaphoreCalls::operations();
    QVERIFY(lockOnce(*handler));
    QVERIFY(SemaphoreCalls::operations() > before);
    QVERIFY(isPublished(*handler, 4));
}

void tst_WriteLeaseForks::childStaysOutWhileItsParentIsInside()
{
    const DoubleBuffer buffer;
    LeaseWords lease(buffer.management());
    const auto handler = buffer.create();
    QVERIFY(becomeOwner(*handler, buffer.management()));
    unsigned char *const locked = handler->lockForWrite();
    ChildProcess child([&](const ChildSide &) {
        const SemaphoreCalls::PatientWaits patient;
        unsigned char *const own = handler->lockForWrite();
        CHILD_VERIFY(own != nullptr);
        CHILD_VERIFY(isFilledWith(own, buffer.size(), 3));
        fillBuffer(own, buffer.size(), 4);
        CHILD_VERIFY(handler->unlockForWrite(own));
        CHILD_VERIFY(handler->swapBuffers());
        return 0;
    });
    QVERIFY(buffer.semaphores.waitUntilBlocked(Names::SemaphoreLease, 1));
    QVERIFY(lease.isInside());
    fillBuffer(locked, buffer.size(), 3);

    QVERIFY(handler->unlockForWrite(locked));

    QCOMPARE(child.waitForExit(), 0);
    QVERIFY(isPublished(*handler, 4));
}

void tst_WriteLeaseForks::childThatIsForkedInsideGivesNothingBack()
{
    const DoubleBuffer buffer;
    LeaseWords lease(buffer.management());
    auto handler = buffer.create();
    QVERIFY(becomeOwner(*handler, buffer.management()));
    unsigned char *const locked = handler->lockForWrite();
    const quint64 word = lease.word();
    ChildProcess child([&](const ChildSide &) {
        CHILD_VERIFY(!handler->unlockForWrite(locked));
        handler.reset();
        return 0;
    });

    QCOMPARE(child.waitForExit(), 0);

    QCOMPARE(lease.word(), word);
    QVERIFY(buffer.semaphores.isKept());
    QVERIFY(handler->unlockForWrite(locked));
    QVERIFY(lease.isIdle());
    QVERIFY(buffer.semaphores.isKept());
}

void tst_WriteLeaseForks::childKeepsTheLockForItself()
{
    const DoubleBuffer buffer;
    const auto handler = buffer.create();
    QVERIFY(becomeOwner(*handler, buffer.management()));
    const quint64 parents = LeaseWords(buffer.management()).word();
    ChildProcess child([&](const ChildSide &parent) {
        CHILD_VERIFY(lockOnce(*handler));
        CHILD_VERIFY(becomeOwner(*handler, buffer.management()));
        CHILD_VERIFY(LeaseWords(buffer.management()).word() != parents);
        const int before = SemaphoreCalls::operations();
        unsigned char *const locked = handler->lockForWrite();
        CHILD_VERIFY(SemaphoreCalls::operations() == before);
        fillBuffer(locked, buffer.size() / 2, 9);
        parent.say();
        parent.waitForWord();
        return 1;
    });
    QVERIFY(child.waitUntilReady());
    QVERIFY(LeaseWords(buffer.management()).isInside());
    QVERIFY(child.kill());

    // The kernel has taken back what was in the name of the child.
    QVERIFY(!buffer.semaphores.isKept());
    const int before = SemaphoreCalls::waits();
    QVERIFY(publishSet(*handler, 5));
    QCOMPARE(SemaphoreCalls::waits() - before, 0);
    QVERIFY(isPublished(*handler, 5));
}

void tst_WriteLeaseForks::siblingsDoNotOwnForEachOther()
{
    const DoubleBuffer buffer;
    LeaseWords lease(buffer.management());
    const auto handler = buffer.create();
    const auto owns = [&](const ChildSide &parent) {
        CHILD_VERIFY(becomeOwner(*handler, buffer.management()));
        parent.say();
        parent.waitForWord();
        const int before = SemaphoreCalls::operations();
        CHILD_VERIFY(lockOnce(*handler));
        CHILD_VERIFY(SemaphoreCalls::operations() > before);
        return 0;
    };
    ChildProcess first(owns);
    QVERIFY(first.waitUntilReady());
    const quint64 ofFirst = lease.word();
    ChildProcess second(owns);
    QVERIFY(second.waitUntilReady());
    QVERIFY(lease.isIdle());
    QVERIFY(lease.word() != ofFirst);

    first.tell();
    QCOMPARE(first.waitForExit(), 0);
    QVERIFY(lease.isNone());

    second.tell();
    QCOMPARE(second.waitForExit(), 0);
}

void tst_WriteLeaseForks::endOfAChildLeavesTheLockWithItsParent()
{
    const DoubleBuffer buffer;
    LeaseWords lease(buffer.management());
    const auto handler = buffer.create();
    QVERIFY(becomeOwner(*handler, buffer.management()));
    const quint64 word = lease.word();
    ChildProcess child([](const ChildSide &) { return 0; });

    QCOMPARE(child.waitForExit(), 0);

    QCOMPARE(lease.word(), word);
    QVERIFY(buffer.semaphores.isKept());
    const int before = SemaphoreCalls::operations();
    QVERIFY(lockOnce(*handler));
    QCOMPARE(SemaphoreCalls::operations() - before, 0);
}

namespace {

/// Becomes a program that reads what the parent tells, while the descriptors stay open.
int becomeAnotherProgram()
{
    execlp("sleep", "sleep", "1000", nullptr);
    return ChildProcess::sm_cannotTry;
}

} // namespace

void tst_WriteLeaseForks::programThatFollowsAnOwnerOutsideHoldsNobodyUp()
{
    const DoubleBuffer buffer;
    const auto handler = buffer.create();
    ChildProcess other([&](const ChildSide &parent) {
        const auto own = buffer.attach();
        CHILD_VERIFY(becomeOwner(*own, buffer.management()));
        parent.say();
        return becomeAnotherProgram();
    });
    QVERIFY(other.waitUntilReady());
    const int before = SemaphoreCalls::waits();

    QVERIFY(publishSet(*handler, 5));

    QCOMPARE(SemaphoreCalls::waits() - before, 0);
    QVERIFY(!buffer.semaphores.isKept());
    QVERIFY(becomeOwner(*handler, buffer.management()));
    // Its end takes nothing of the new owner with it.
    QVERIFY(other.kill());
    QVERIFY(buffer.semaphores.isKept());
}

void tst_WriteLeaseForks::programThatFollowsAnOwnerInsideLeavesAtItsEnd()
{
    const DoubleBuffer buffer;
    const auto handler = buffer.create();
    ChildProcess other([&](const ChildSide &parent) {
        const auto own = buffer.attach();
        CHILD_VERIFY(becomeOwner(*own, buffer.management()));
        CHILD_VERIFY(own->lockForWrite() != nullptr);
        parent.say();
        return becomeAnotherProgram();
    });
    QVERIFY(other.waitUntilReady());
    LogCapture log;
    ChildProcess writer([&](const ChildSide &) {
        const SemaphoreCalls::PatientWaits patient;
        CHILD_VERIFY(publishSet(*buffer.attach(), 5));
        return 0;
    });
    QVERIFY(buffer.semaphores.waitUntilBlocked(Names::SemaphoreLease, 1));
    QVERIFY(LeaseWords(buffer.management()).isInside());

    QVERIFY(other.kill());

    QCOMPARE(writer.waitForExit(), 0);
    QVERIFY(isPublished(*handler, 5));
}

QTEST_GUILESS_MAIN(tst_WriteLeaseForks)
#include "tst_WriteLeaseForks.moc"
