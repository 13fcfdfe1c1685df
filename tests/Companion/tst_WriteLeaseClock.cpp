// What a write lock that stays with its writer does by the clock. The clocks of the system are replaced in this
// program: they stand still unless the test says so.

#include "support/DoubleBuffer.h"
#include "support/LeaseWords.h"
#include "support/SemaphoreCalls.h"

#include <QtTest>

#include <atomic>
#include <ctime>
#include <future>
#include <optional>
#include <thread>

#include <dlfcn.h>

namespace {

using Names = SemaphoreSet::Names;
using namespace std::chrono_literals;

/// What the clock says that costs no more than a load; as the system has it where there is nothing.
std::optional<std::chrono::nanoseconds> coarseTime;
/// Of the calling thread. Each look passes one nanosecond, so that a wait on the processor ends.
thread_local std::optional<std::chrono::nanoseconds> ownTime;

timespec asTimespec(std::chrono::nanoseconds time)
{
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(time);
    return {static_cast<time_t>(seconds.count()), static_cast<long>((time - seconds).count())};
}

} // namespace

extern "C" Q_DECL_EXPORT int clock_gettime(clockid_t clock, timespec *time) noexcept
{
    if (clock == CLOCK_MONOTONIC_COARSE && coarseTime) {
        *time = asTimespec(*coarseTime);
        return 0;
    }
    if (clock == CLOCK_MONOTONIC && ownTime) {
        *time = asTimespec(++*ownTime);
        return 0;
    }
    static const auto original = reinterpret_cast<int (*)(clockid_t, timespec *)>(
        dlsym(RTLD_NEXT, "clock_gettime"));
    return original(clock, time);
}

class tst_WriteLeaseClock : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void ownerLooksAfterItsSetTenTimesASecond_data();
    void ownerLooksAfterItsSetTenTimesASecond();
    void comerWaitsForAnOwnerInsideInSlices();
    void cleanup();
};

void tst_WriteLeaseClock::cleanup()
{
    SemaphoreCalls::tellNobody();
    coarseTime.reset();
}

void tst_WriteLeaseClock::ownerLooksAfterItsSetTenTimesASecond_data()
{
    QTest::addColumn<qint64>("begin");

    QTest::newRow("at the beginning of a second") << qint64{7'000'000'000};
    QTest::newRow("in the middle of one") << qint64{7'450'000'000};
    QTest::newRow("over its end") << qint64{7'960'000'000};
    QTest::newRow("behind a long time") << qint64{4'000'000'000'000'000};
}

void tst_WriteLeaseClock::ownerLooksAfterItsSetTenTimesASecond()
{
    QFETCH(const qint64, begin);
    const std::chrono::nanoseconds beginning(begin);
    int looks = 0; // as long as the handler makes calls
    int set = -1;
    const DoubleBuffer buffer;
    const auto owner = buffer.create();
    coarseTime = beginning;
    QVERIFY(becomeOwner(*owner, buffer.management()));
    set = buffer.semaphores.id();
    SemaphoreCalls::before = [&](const SemaphoreCalls::Call &call) {
        looks += call.set == set && call.command == GETVAL ? 1 : 0;
    };
    const auto looksAt = [&](std::chrono::nanoseconds time) {
        const int former = looks;
        coarseTime = beginning + time;
        const bool isLocked = lockOnce(*owner) && lockOnce(*owner);
        return isLocked ? looks - former : -1;
    };

    QCOMPARE(looksAt(0ms), 0);
    QCOMPARE(looksAt(4ms), 0);
    QCOMPARE(looksAt(99ms), 0);
    QCOMPARE(looksAt(100ms - 1ns), 0);
    // Once, and the next time as long behind it.
    QCOMPARE(looksAt(100ms), 1);
    QCOMPARE(looksAt(100ms), 0);
    QCOMPARE(looksAt(104ms), 0);
    QCOMPARE(looksAt(199ms), 0);
    QCOMPARE(looksAt(250ms), 1);
    QCOMPARE(looksAt(349ms), 0);
    QCOMPARE(looksAt(350ms), 1);
    QCOMPARE(looksAt(5s), 1);
    QCOMPARE(looksAt(5s + 99ms), 0);
}

void tst_WriteLeaseClock::comerWaitsForAnOwnerInsideInSlices()
{
    std::promise<void> waits; // as long as the handlers make calls
    std::atomic<bool> hasWaited{false};
    const DoubleBuffer buffer;
    const auto owner = buffer.create();
    const auto comer = buffer.attach();
    QVERIFY(becomeOwner(*owner, buffer.management()));
    unsigned char *const locked = owner->lockForWrite();
    QVERIFY(LeaseWords(buffer.management()).isInside());
    // Only the owner's unlock ends a wait, so that there is one.
    const SemaphoreCalls::PatientWaits patient;
    const int waitsBefore = SemaphoreCalls::waits();
    SemaphoreCalls::before = [&](const SemaphoreCalls::Call &call) {
        if (call.mayWait && !hasWaited.exchange(true)) {
            waits.set_value();
        }
    };
    bool isLocked = false;
    std::thread thread([&] {
        ownTime = 1h;
        isLocked = lockOnce(*comer);
    });

    const bool isWaiting = waits.get_future().wait_for(1min) == std::future_status::ready;
    const bool isUnlocked = owner->unlockForWrite(locked);
    thread.join();
    SemaphoreCalls::before = nullptr;

    QVERIFY(isWaiting);
    QVERIFY(isUnlocked);
    QVERIFY(isLocked);
    QCOMPARE(SemaphoreCalls::waits() - waitsBefore, 1);
    // But for the looks at the clock in between.
    const auto bound = SemaphoreCalls::longestBound();
    QVERIFY(bound <= 20ms);
    QVERIFY(bound > 20ms - 1us);
}

QTEST_GUILESS_MAIN(tst_WriteLeaseClock)
#include "tst_WriteLeaseClock.moc"
