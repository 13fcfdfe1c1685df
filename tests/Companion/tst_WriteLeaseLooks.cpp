#include "support/DoubleBuffer.h"
#include "support/LeaseWords.h"
#include "support/SemaphoreCalls.h"

#include <QtTest>

#include <ctime>
#include <functional>
#include <utility>

#include <dlfcn.h>
#include <unistd.h>

namespace {

using Names = SemaphoreSet::Names;

/// Called once, at the next look of this thread at a clock. The frame of the tests has a thread of its own.
thread_local std::function<void()> atNextClock;

} // namespace

extern "C" Q_DECL_EXPORT int clock_gettime(clockid_t clock, timespec *time) noexcept
{
    static const auto original = reinterpret_cast<int (*)(clockid_t, timespec *)>(
        dlsym(RTLD_NEXT, "clock_gettime"));
    if (const auto called = std::exchange(atNextClock, nullptr)) {
        called();
    }
    return original(clock, time);
}

/// What a comer who has the write semaphore sees of an owner that is inside.
class tst_WriteLeaseLooks : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void ownerThatLeavesAtOnceIsNotToldOfAWish();
};

void tst_WriteLeaseLooks::ownerThatLeavesAtOnceIsNotToldOfAWish()
{
    if (sysconf(_SC_NPROCESSORS_ONLN) == 1) {
        QSKIP("A processor alone is left to the owner.");
    }
    const DoubleBuffer buffer;
    const LeaseWords lease(buffer.management());
    const auto owner = buffer.create();
    const auto comer = buffer.attach();
    QVERIFY(becomeOwner(*owner, buffer.management()));
    unsigned char *const held = owner->lockForWrite();
    QVERIFY(lease.isInside());
    bool isLeft = false;
    SemaphoreCalls::after = [&](const SemaphoreCalls::Call &call) {
        if (call.changes(Names::SemaphoreWriteLock, 1) && !isLeft) {
            // While it passes the time to its next look.
            atNextClock = [&] { isLeft = owner->unlockForWrite(held); };
        }
    };
    const int before = SemaphoreCalls::operations();

    unsigned char *const locked = comer->lockForWrite();

    SemaphoreCalls::tellNobody();
    atNextClock = nullptr;
    QVERIFY(isLeft);
    QVERIFY(locked != nullptr);
    QVERIFY(lease.isNone());
    QCOMPARE(lease.words.wanted.load(), quint32{LeaseWords::NobodyWaits});
    // By its own way into the write semaphore, and nothing else.
    QCOMPARE(SemaphoreCalls::operations() - before, 1);
    QVERIFY(comer->unlockForWrite(locked));
}

QTEST_GUILESS_MAIN(tst_WriteLeaseLooks)
#include "tst_WriteLeaseLooks.moc"
