// Threads of a forked child that come to the manager of their parent at once: one of them makes it the child's own,
// and the others wait for it. Which process this is the test says itself, and what the one that begins does last, it
// sees: the constructor of the mutex stands in this program in front of that of QtCore.

#include "ProcessDataManagement/ManagerAccess_p.h"

#include <QtTest>

#include <atomic>
#include <functional>
#include <thread>
#include <utility>

#include <dlfcn.h>
#include <sched.h>

// Of this program, with ManagerAccess.cpp among its sources. The library has its own.
std::atomic<quint16> Identity::Words::generation{1};

namespace {

/// Called once, from the thread that begins, in front of the construction of the mutex.
std::function<void()> beforeConstruction;
std::atomic<int> constructions{0};
/// No atomic object: who is through with the beginning may read what was written in it.
const QMutex *constructed = nullptr;

/// Called where a thread passes the processor on.
thread_local std::function<void()> atYield;

template <class Function>
Function original(const char *name)
{
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

void passOn()
{
    original<int (*)()>("sched_yield")();
}

/// A manager that a child after the other finds.
struct Inherited
{
    ~Inherited()
    {
        Identity::Words::generation = 1;
        ManagerAccess::makeInThisProcess(manager);
    }
    void fork()
    {
        // Nobody is inside, unlike in a child: so the former one may end, and leaves no memory behind.
        ManagerAccess::mutex(manager).~QMutex();
        ++Identity::Words::generation;
    }

    ProcessDataManager manager;
};

} // namespace

QMutex::QMutex(RecursionMode mode)
{
    if (const auto called = std::exchange(beforeConstruction, nullptr)) {
        called();
    }
    original<void (*)(QMutex *, RecursionMode)>("_ZN6QMutexC1ENS_13RecursionModeE")(this, mode);
    ++constructions;
    constructed = this;
}

extern "C" Q_DECL_EXPORT int sched_yield() noexcept
{
    if (atYield) {
        atYield();
    }
    passOn();
    return 0;
}

class tst_ManagerBeginnings : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup() { beforeConstruction = nullptr; }
    void managerBeginsOnceInEachProcess();
    void threadThatComesMeanwhileWaits();
    void threadThatComesLaterFindsWhatWasBegun();

private:
    void takeMutex(ProcessDataManager &manager, const QMutex *&seen)
    {
        QMutex &mutex = ManagerAccess::mutex(manager);
        seen = constructed;
        mutex.lock();
        mutex.unlock();
    }
};

void tst_ManagerBeginnings::init()
{
    constructions = 0;
    constructed = nullptr;
}

void tst_ManagerBeginnings::managerBeginsOnceInEachProcess()
{
    Inherited inherited;
    QCOMPARE(constructions.load(), 1);
    QVERIFY(!ManagerAccess::isInherited(inherited.manager));
    ManagerAccess::beginInThisProcess(inherited.manager);
    QCOMPARE(constructions.load(), 1);

    for (int child = 1; child <= 3; ++child) {
        inherited.fork();
        QVERIFY(ManagerAccess::isInherited(inherited.manager));
        ManagerAccess::beginInThisProcess(inherited.manager);
        QVERIFY(!ManagerAccess::isInherited(inherited.manager));
        ManagerAccess::beginInThisProcess(inherited.manager);

        QCOMPARE(constructions.load(), 1 + child);
    }
}

void tst_ManagerBeginnings::threadThatComesMeanwhileWaits()
{
    Inherited inherited;
    inherited.fork();
    std::atomic<bool> isWaiting{false};
    std::atomic<bool> isThrough{false};
    bool wasThrough = true;
    const QMutex *seen = nullptr;
    std::thread other;
    beforeConstruction = [&] {
        other = std::thread([&] {
            atYield = [&] { isWaiting.store(true, std::memory_order_relaxed); };
            takeMutex(inherited.manager, seen);
            isThrough.store(true, std::memory_order_relaxed);
        });
        while (!isWaiting.load(std::memory_order_relaxed)
               && !isThrough.load(std::memory_order_relaxed)) {
            passOn();
        }
        wasThrough = isThrough.load(std::memory_order_relaxed);
    };

    const QMutex *own = nullptr;
    takeMutex(inherited.manager, own);
    other.join();

    QVERIFY(!wasThrough);
    QVERIFY(isThrough);
    QCOMPARE(constructions.load(), 2);
    QVERIFY(own != nullptr);
    QCOMPARE(seen, own);
}

void tst_ManagerBeginnings::threadThatComesLaterFindsWhatWasBegun()
{
    Inherited inherited;
    inherited.fork();
    std::atomic<bool> isOver{false};
    const QMutex *seen = nullptr;
    // No order but that of the beginning itself lies between its end and this thread.
    std::thread other([&] {
        while (!isOver.load(std::memory_order_relaxed)) {
            passOn();
        }
        takeMutex(inherited.manager, seen);
    });

    ManagerAccess::beginInThisProcess(inherited.manager);
    const QMutex *const own = constructed;
    isOver.store(true, std::memory_order_relaxed);
    other.join();

    QCOMPARE(constructions.load(), 2);
    QVERIFY(own != nullptr);
    QCOMPARE(seen, own);
}

QTEST_GUILESS_MAIN(tst_ManagerBeginnings)
#include "tst_ManagerBeginnings.moc"
