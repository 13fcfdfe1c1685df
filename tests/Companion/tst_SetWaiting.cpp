#include "Companion/Exchange/SetWaiting_p.h"
#include "support/ChildProcess.h"
#include "support/DoubleBuffer.h"
#include "support/FutexCalls.h"

#include <QtTest>

#include <ctime>
#include <thread>

using Clock = std::chrono::steady_clock;

namespace {

constexpr std::chrono::seconds longBound{60};

qint64 coarseNow()
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME_COARSE, &now);
    return qint64{now.tv_sec} * 1000000000 + now.tv_nsec;
}

/// Until somebody has told the publishers that he sleeps.
bool waitUntilArmed(const PingPongBufferHandler::ManagementBuffer &management, quint64 epoch)
{
    const auto begin = Clock::now();
    while (management.armed.load() != epoch + 1) {
        if (Clock::now() - begin > longBound) {
            return false;
        }
        std::this_thread::yield();
    }
    return true;
}

/// Sleeps as a reader does, until there is a new epoch.
void sleepUntilSwapped(PingPongBufferHandler::ManagementBuffer &management, quint64 epoch)
{
    const auto begin = Clock::now();
    while (management.swapCount.load() == epoch && Clock::now() - begin < longBound) {
        SetWaiting::sleepThrough(management, epoch, longBound);
    }
}

} // namespace

/// Words and system calls of those who wait for the next set, and of those who publish it.
class tst_SetWaiting : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup() { FutexCalls::tellNobody(); }
    void setsThatNobodyWaitsForMakeNoFutexCall();
    void swapNotesItsTime();
    void swapWithoutExchangeNotesNoTime();
    void sleeperIsWokenAndItsWordCleared();
    void epochThatIsOverIsNotSleptThrough();
    void setBetweenTheWordAndTheSleepIsSeen();
    void wakeComesBehindTheUnlock_data();
    void wakeComesBehindTheUnlock();
    void wordOfALaterEpochStays();
    void wordThatChangesMeanwhileStays();
    void nonsenseCostsOneCallAndIsCleared_data();
    void nonsenseCostsOneCallAndIsCleared();
    void killedWaiterCostsOneWake();
    void publisherKilledBeforeItsWakeCostsASlice();
    void wordThatChangesAllTheTimeHangsNobody();
    void twoProcessesWakeEachOther();
    void readOnlyMappingSleepsWhereSomebodyHasArmed();
};

void tst_SetWaiting::setsThatNobodyWaitsForMakeNoFutexCall()
{
    const DoubleBuffer memory;
    const auto handler = memory.create();
    const int waits = FutexCalls::waits();
    const int wakes = FutexCalls::wakes();

    for (int i = 0; i < 1000; ++i) {
        QVERIFY(publishSet(*handler, static_cast<unsigned char>(i)));
    }

    QCOMPARE(FutexCalls::waits(), waits);
    QCOMPARE(FutexCalls::wakes(), wakes);
    QCOMPARE(memory.management()->armed.load(), quint64{0});
}

void tst_SetWaiting::swapNotesItsTime()
{
    const DoubleBuffer memory;
    const auto handler = memory.create();
    QCOMPARE(memory.management()->lastSwap.load(), qint64{0});
    const qint64 before = coarseNow();

    QVERIFY(publishSet(*handler, 1));

    const qint64 noted = memory.management()->lastSwap.load();
    QVERIFY(noted >= before);
    QVERIFY(noted <= coarseNow());
}

void tst_SetWaiting::swapWithoutExchangeNotesNoTime()
{
    const DoubleBuffer memory;
    const auto handler = memory.create();
    const auto other = memory.attach();
    QVERIFY(writeSet(*handler, 1));
    QVERIFY(other->swapBuffers());
    memory.management()->lastSwap.store(17);
    memory.management()->armed.store(2);
    const int wakes = FutexCalls::wakes();

    QVERIFY(handler->swapBuffers()); // published already

    QCOMPARE(memory.management()->swapCount.load(), quint64{1});
    QCOMPARE(memory.management()->lastSwap.load(), qint64{17});
    QCOMPARE(FutexCalls::wakes(), wakes);
}

void tst_SetWaiting::sleeperIsWokenAndItsWordCleared()
{
    const DoubleBuffer memory;
    const auto handler = memory.create();
    auto &management = *memory.management();
    FutexCalls::boundOfAll = longBound;
    const int runOuts = FutexCalls::runOuts();
    std::thread sleeper([&] { sleepUntilSwapped(management, 0); });
    const bool isArmed = waitUntilArmed(management, 0);
    const int wakes = FutexCalls::wakes();

    const bool isPublished = publishSet(*handler, 1);
    sleeper.join();

    QVERIFY(isArmed);
    QVERIFY(isPublished);
    QCOMPARE(FutexCalls::runOuts(), runOuts);
    QCOMPARE(FutexCalls::wakes(), wakes + 1);
    QCOMPARE(management.armed.load(), quint64{0});
    QVERIFY(publishSet(*handler, 2));
    QCOMPARE(FutexCalls::wakes(), wakes + 1);
}

void tst_SetWaiting::epochThatIsOverIsNotSleptThrough()
{
    const DoubleBuffer memory;
    const auto handler = memory.create();
    QVERIFY(publishSet(*handler, 1));
    const int waits = FutexCalls::waits();

    SetWaiting::sleepThrough(*memory.management(), 0, longBound);

    QCOMPARE(FutexCalls::waits(), waits);
    QCOMPARE(memory.management()->armed.load(), quint64{0});
}

void tst_SetWaiting::setBetweenTheWordAndTheSleepIsSeen()
{
    const DoubleBuffer memory;
    const auto handler = memory.create();
    FutexCalls::beforeWait = [&] { publishSet(*handler, 1); };
    FutexCalls::boundOfAll = longBound;
    const int waits = FutexCalls::waits();
    const int runOuts = FutexCalls::runOuts();

    SetWaiting::sleepThrough(*memory.management(), 0, longBound);

    QCOMPARE(FutexCalls::waits(), waits + 1);
    QCOMPARE(FutexCalls::runOuts(), runOuts);
    QCOMPARE(memory.management()->swapCount.load(), quint64{1});
}

void tst_SetWaiting::wakeComesBehindTheUnlock_data()
{
    QTest::addColumn<int>("depth");
    QTest::newRow("swap outside the lock") << 0;
    QTest::newRow("swap inside it") << 1;
    QTest::newRow("swap inside two of them") << 2;
}

void tst_SetWaiting::wakeComesBehindTheUnlock()
{
    QFETCH(int, depth);
    const DoubleBuffer memory;
    const auto handler = memory.create();
    memory.management()->armed.store(1);
    QList<bool> wasLocked;
    FutexCalls::beforeWake = [&] { wasLocked.append(memory.semaphores.isWriteLocked()); };
    QList<unsigned char *> locked;
    for (int i = 0; i < depth; ++i) {
        locked.append(handler->lockForWrite());
    }

    QVERIFY(handler->swapBuffers());
    while (!locked.isEmpty()) {
        QVERIFY(wasLocked.isEmpty());
        QVERIFY(handler->unlockForWrite(locked.takeLast()));
    }

    QCOMPARE(wasLocked, QList<bool>{false});
}

void tst_SetWaiting::wordOfALaterEpochStays()
{
    const DoubleBuffer memory;
    const auto handler = memory.create();
    memory.management()->armed.store(2);
    const int wakes = FutexCalls::wakes();

    QVERIFY(publishSet(*handler, 1));
    QCOMPARE(memory.management()->armed.load(), quint64{2});
    QVERIFY(publishSet(*handler, 2));

    QCOMPARE(memory.management()->armed.load(), quint64{0});
    QCOMPARE(FutexCalls::wakes(), wakes + 2);
}

void tst_SetWaiting::wordThatChangesMeanwhileStays()
{
    const DoubleBuffer memory;
    const auto handler = memory.create();
    memory.management()->armed.store(1);
    FutexCalls::beforeWake = [&] { memory.management()->armed.store(2); };

    QVERIFY(publishSet(*handler, 1));

    QCOMPARE(memory.management()->armed.load(), quint64{2});
}

void tst_SetWaiting::nonsenseCostsOneCallAndIsCleared_data()
{
    QTest::addColumn<quint64>("armed");
    QTest::newRow("a former epoch") << quint64{3};
    QTest::newRow("a later one") << quint64{1000};
    QTest::newRow("all bits") << ~quint64{0};
    QTest::newRow("the highest bit") << (quint64{1} << 63);
}

void tst_SetWaiting::nonsenseCostsOneCallAndIsCleared()
{
    QFETCH(quint64, armed);
    const DoubleBuffer memory;
    const auto handler = memory.create();
    for (unsigned char i = 0; i < 5; ++i) {
        QVERIFY(publishSet(*handler, i));
    }
    memory.management()->armed.store(armed);
    const int wakes = FutexCalls::wakes();

    QVERIFY(publishSet(*handler, 6));
    QVERIFY(publishSet(*handler, 7));

    QCOMPARE(FutexCalls::wakes(), wakes + 1);
    QCOMPARE(memory.management()->armed.load(), quint64{0});
}

void tst_SetWaiting::killedWaiterCostsOneWake()
{
    const DoubleBuffer memory;
    const auto handler = memory.create();
    ChildProcess waiter([&](const ChildSide &) {
        sleepUntilSwapped(*memory.management(), 0);
        return 0;
    });
    QVERIFY(waitUntilArmed(*memory.management(), 0));
    QVERIFY(waiter.kill());
    const int wakes = FutexCalls::wakes();

    for (unsigned char i = 0; i < 10; ++i) {
        QVERIFY(publishSet(*handler, i));
    }

    QCOMPARE(FutexCalls::wakes(), wakes + 1);
}

void tst_SetWaiting::publisherKilledBeforeItsWakeCostsASlice()
{
    const DoubleBuffer memory;
    const auto handler = memory.create();
    ChildProcess publisher([&](const ChildSide &parent) {
        const auto own = memory.attach();
        FutexCalls::beforeWake = [] { raise(SIGKILL); };
        parent.waitForWord();
        publishSet(*own, 1);
        return 1; // it was to die
    });
    std::thread sleeper([&] { sleepUntilSwapped(*memory.management(), 0); });
    const bool isArmed = waitUntilArmed(*memory.management(), 0);

    publisher.tell();
    const int exitCode = publisher.waitForExit();
    sleeper.join();

    QVERIFY(isArmed);
    QCOMPARE(exitCode, -SIGKILL);
    QCOMPARE(memory.management()->swapCount.load(), quint64{1});
    QVERIFY(FutexCalls::longestBound() <= SetWaiting::sm_slice);
}

void tst_SetWaiting::wordThatChangesAllTheTimeHangsNobody()
{
    const DoubleBuffer memory;
    const auto handler = memory.create();
    auto &management = *memory.management();
    std::atomic<bool> isOver{false};
    std::thread hostile([&] {
        for (quint64 word = 0x9E3779B97F4A7C15; !isOver; word *= 6364136223846793005) {
            management.armed.store(word);
        }
    });

    const auto begin = Clock::now();
    for (quint64 epoch = 0; epoch < 3; ++epoch) {
        SetWaiting::sleepThrough(management, epoch, std::chrono::milliseconds(5));
        publishSet(*handler, 1);
    }
    const auto taken = Clock::now() - begin;
    isOver = true;
    hostile.join();

    QVERIFY(taken < longBound);
    QCOMPARE(management.swapCount.load(), quint64{3});
}

void tst_SetWaiting::twoProcessesWakeEachOther()
{
    constexpr quint64 rounds = 2000;
    const DoubleBuffer memory;
    const auto handler = memory.create();
    auto &management = *memory.management();
    FutexCalls::boundOfAll = longBound; // so that each of them needs its wake
    const int runOuts = FutexCalls::runOuts();
    const auto play = [&](PingPongBufferHandler &own, quint64 first) {
        for (quint64 epoch = first; epoch < rounds && FutexCalls::runOuts() == runOuts;
             epoch += 2) {
            if (epoch > 0) {
                sleepUntilSwapped(management, epoch - 1);
            }
            publishSet(own, static_cast<unsigned char>(epoch));
        }
    };
    ChildProcess other([&](const ChildSide &) {
        const auto own = memory.attach();
        play(*own, 1);
        CHILD_VERIFY(FutexCalls::runOuts() == runOuts);
        return 0;
    });

    play(*handler, 0);
    sleepUntilSwapped(management, rounds - 1);

    QCOMPARE(other.waitForExit(), 0);
    QCOMPARE(management.swapCount.load(), rounds);
    QCOMPARE(FutexCalls::runOuts(), runOuts);
}

void tst_SetWaiting::readOnlyMappingSleepsWhereSomebodyHasArmed()
{
    const DoubleBuffer memory;
    const auto handler = memory.create();
    auto &management = *memory.management();
    management.armed.store(1);
    ChildProcess reader([&](const ChildSide &parent) {
        const auto pageSize = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        CHILD_VERIFY(mprotect(&management, pageSize, PROT_READ) == 0);
        FutexCalls::boundOfAll = longBound; // so that it needs its wake
        FutexCalls::beforeWait = [&] { parent.say(); };
        const int runOuts = FutexCalls::runOuts();
        sleepUntilSwapped(management, 0);
        CHILD_VERIFY(FutexCalls::runOuts() == runOuts);
        return 0;
    });
    QVERIFY(reader.waitUntilReady());
    const int wakes = FutexCalls::wakes();

    QVERIFY(publishSet(*handler, 1));

    QCOMPARE(reader.waitForExit(), 0);
    QCOMPARE(FutexCalls::wakes(), wakes + 1);
    QCOMPARE(management.armed.load(), quint64{0});
}

QTEST_GUILESS_MAIN(tst_SetWaiting)
#include "tst_SetWaiting.moc"
