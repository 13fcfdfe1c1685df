#include "Access/ProcessDataGuards.h"
#include "ProcessDataManagement/ManagerInternals.h"
#include "ProcessDataManagement/ProcessDescription.h"
#include "support/ChildProcess.h"
#include "support/LogCapture.h"
#include "support/SemaphoreCalls.h"

#include <QtTest>

#include <cstring>
#include <functional>
#include <future>
#include <memory>
#include <thread>

namespace {

/// Ends a child that hangs, so that its test fails.
constexpr unsigned int secondsOfAChild = 60;
constexpr quint32 bufferSize = 16;

/// A region with its manager, in the process that made it.
struct Parent
{
    Parent()
    {
        description.leaves.insert(QStringLiteral("a"), int32Slot(0));
        root = manager->createProcessData(description.parse(),
                                          ProcessDataManager::InitTypeSharedMemoryCreate);
    }

    void publish(unsigned char value) const
    {
        manager->lockWriteBuffer();
        std::memset(manager->getPointerWriteBuffer(), value, bufferSize);
        manager->unlockWriteBuffer();
        manager->swapReadAndWriteBuffer();
    }

    ProcessDescription description{bufferSize, true};
    std::unique_ptr<ProcessDataManager> manager = std::make_unique<ProcessDataManager>();
    ProcessDescription::Root root;
};

/// A thread that stays inside until it is told to come out.
class ThreadInside
{
public:
    ThreadInside(const std::function<void()> &enter, const std::function<void()> &leave)
        : m_thread([this, enter, leave] {
            enter();
            m_isInside.set_value();
            m_mayLeave.get_future().wait();
            leave();
        })
    {
        m_isInside.get_future().wait();
    }
    ~ThreadInside()
    {
        m_mayLeave.set_value();
        m_thread.join();
    }

private:
    std::promise<void> m_isInside;
    std::promise<void> m_mayLeave;
    std::thread m_thread;
};

} // namespace

/// A forked child finds the managers of its parent, and none of their locks and names.
class tst_InheritedManagers : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void childIsOutsideTheLocksOfItsParent();
    void childTakesLocksWhileAThreadOfItsParentIsInside();
    void childEndsItsManagerWhileAThreadOfItsParentIsInside();
    void writeGuardOfAChildTakesALockOfItsOwn();
    void readOfAChildIsRepeatedForItself();
    void threadsOfAChildBeginAtOnce();
    void grandchildIsOutsideTheLocksOfTheChild();
    void guardOfTheParentHoldsNothingInTheChild();
    void parentKeepsItsLocks();
    void childLeavesTheNameToItsParent();
    void childMayCreateARegionOfItsOwn();
    void replacedCreatorLeavesTheNameToItsSuccessor();
    void creatorThatFailedLeavesTheNameToItsSuccessor();
    void childLeavesTheNameOfABareSegment();
};

void tst_InheritedManagers::childIsOutsideTheLocksOfItsParent()
{
    const Parent parent;
    QVERIFY(parent.manager->lockReadBuffer());
    QVERIFY(parent.manager->lockWriteBuffer());
    ChildProcess child([&](const ChildSide &) {
        alarm(secondsOfAChild);
        CHILD_VERIFY(parent.manager->getPointerReadBuffer() == nullptr);
        CHILD_VERIFY(parent.manager->getPointerWriteBuffer() == nullptr);
        LogCapture log;
        CHILD_VERIFY(parent.manager->lockReadBuffer());
        CHILD_VERIFY(log.take() == QList<LogLine>());
        CHILD_VERIFY(parent.manager->getPointerReadBuffer() != nullptr);
        bool repeat = true;
        CHILD_VERIFY(parent.manager->unlockReadBuffer(repeat));
        CHILD_VERIFY(!ManagerInternals(*parent.manager).isMutexHeld());
        return 0;
    });

    QCOMPARE(child.waitForExit(), 0);

    bool repeat = true;
    QVERIFY(parent.manager->unlockWriteBuffer());
    QVERIFY(parent.manager->unlockReadBuffer(repeat));
}

void tst_InheritedManagers::childTakesLocksWhileAThreadOfItsParentIsInside()
{
    const Parent parent;
    bool repeat = false;
    const ThreadInside inside([&] { parent.manager->lockReadBuffer(); },
                              [&] { parent.manager->unlockReadBuffer(repeat); });
    ChildProcess child([&](const ChildSide &) {
        alarm(secondsOfAChild);
        CHILD_VERIFY(parent.manager->lockReadBuffer());
        CHILD_VERIFY(parent.manager->getPointerReadBuffer() != nullptr);
        CHILD_VERIFY(parent.manager->unlockReadBuffer(repeat) && !repeat);
        CHILD_VERIFY(parent.manager->lockWriteBuffer());
        CHILD_VERIFY(parent.manager->unlockWriteBuffer());
        CHILD_VERIFY(parent.manager->swapReadAndWriteBuffer());
        return 0;
    });

    QCOMPARE(child.waitForExit(), 0);
}

void tst_InheritedManagers::childEndsItsManagerWhileAThreadOfItsParentIsInside()
{
    Parent parent;
    bool repeat = false;
    ProcessDataManager &manager = *parent.manager;
    const ThreadInside inside([&] { manager.lockReadBuffer(); },
                              [&] { manager.unlockReadBuffer(repeat); });
    ChildProcess child([&](const ChildSide &) {
        alarm(secondsOfAChild);
        LogCapture log;
        parent.manager.reset();
        CHILD_VERIFY(log.take() == QList<LogLine>());
        return 0;
    });

    QCOMPARE(child.waitForExit(), 0);
}

void tst_InheritedManagers::writeGuardOfAChildTakesALockOfItsOwn()
{
    const Parent parent;
    QVERIFY(parent.manager->lockWriteBuffer());
    ChildProcess child([&](const ChildSide &side) {
        alarm(secondsOfAChild);
        const SemaphoreCalls::PatientWaits patient;
        ProcessDataWriteGuard guard(*parent.manager);
        side.say();
        CHILD_VERIFY(guard.isLocked());
        CHILD_VERIFY(guard.publish());
        return 0;
    });

    QVERIFY(parent.description.semaphores.waitUntilBlockedByWriter());

    QVERIFY(!child.hasSpoken());
    QVERIFY(parent.manager->unlockWriteBuffer());
    QCOMPARE(child.waitForExit(), 0);
}

void tst_InheritedManagers::readOfAChildIsRepeatedForItself()
{
    const Parent parent;
    parent.publish(1);
    QVERIFY(parent.manager->lockReadBuffer());
    ChildProcess child([&](const ChildSide &side) {
        alarm(secondsOfAChild);
        int calls = 0;
        unsigned char first = 0;
        unsigned char last = 0;
        const bool isConsistent = readConsistently(*parent.manager, [&] {
            const auto *const buffer = parent.manager->getPointerReadBuffer();
            first = buffer[0];
            if (++calls == 1) {
                side.say();
                side.waitForWord();
            }
            last = buffer[bufferSize - 1];
        });
        CHILD_VERIFY(isConsistent);
        CHILD_VERIFY(calls == 2);
        CHILD_VERIFY(first == last);
        return 0;
    });
    QVERIFY(child.waitUntilReady());

    parent.publish(2);
    parent.publish(3);

    child.tell();
    QCOMPARE(child.waitForExit(), 0);
    bool repeat = false;
    QVERIFY(parent.manager->unlockReadBuffer(repeat));
    QVERIFY(repeat);
}

void tst_InheritedManagers::threadsOfAChildBeginAtOnce()
{
    const Parent parent;
    bool repeat = false;
    const ThreadInside inside([&] { parent.manager->lockReadBuffer(); },
                              [&] { parent.manager->unlockReadBuffer(repeat); });
    ChildProcess child([&](const ChildSide &) {
        alarm(secondsOfAChild);
        constexpr int rounds = 200;
        std::atomic<int> inLock{0};
        std::atomic<int> failures{0};
        const auto lockAgainAndAgain = [&] {
            for (int i = 0; i < rounds; ++i) {
                parent.manager->lockWriteBuffer();
                failures += inLock.fetch_add(1) == 0 ? 0 : 1;
                failures += parent.manager->getPointerWriteBuffer() == nullptr ? 1 : 0;
                inLock.fetch_sub(1);
                failures += parent.manager->unlockWriteBuffer() ? 0 : 1;
            }
        };
        std::thread other(lockAgainAndAgain);
        lockAgainAndAgain();
        other.join();
        CHILD_VERIFY(failures == 0);
        return 0;
    });

    QCOMPARE(child.waitForExit(), 0);
}

void tst_InheritedManagers::grandchildIsOutsideTheLocksOfTheChild()
{
    const Parent parent;
    ChildProcess child([&](const ChildSide &) {
        alarm(secondsOfAChild);
        CHILD_VERIFY(parent.manager->lockReadBuffer());
        ChildProcess grandchild([&](const ChildSide &) {
            alarm(secondsOfAChild);
            CHILD_VERIFY(parent.manager->getPointerReadBuffer() == nullptr);
            return 0;
        });
        CHILD_VERIFY(grandchild.waitForExit() == 0);
        CHILD_VERIFY(parent.manager->getPointerReadBuffer() != nullptr);
        return 0;
    });

    QCOMPARE(child.waitForExit(), 0);
}

void tst_InheritedManagers::guardOfTheParentHoldsNothingInTheChild()
{
    const Parent parent;
    ProcessDataReadGuard reading(*parent.manager);
    ProcessDataWriteGuard writing(*parent.manager);
    QVERIFY(reading.isLocked() && writing.isLocked());
    ChildProcess child([&](const ChildSide &) {
        alarm(secondsOfAChild);
        CHILD_VERIFY(!reading.isLocked());
        CHILD_VERIFY(!writing.isLocked());
        CHILD_VERIFY(!reading.unlock());
        CHILD_VERIFY(!reading.mustRepeat());
        CHILD_VERIFY(!writing.publish());
        return 0;
    });

    QCOMPARE(child.waitForExit(), 0);

    QVERIFY(writing.publish());
    QVERIFY(reading.isLocked());
}

void tst_InheritedManagers::parentKeepsItsLocks()
{
    const Parent parent;
    QVERIFY(parent.manager->lockWriteBuffer());
    auto *const written = parent.manager->getPointerWriteBuffer();

    QCOMPARE(ChildProcess([](const ChildSide &) { return 0; }).waitForExit(), 0);

    QCOMPARE(parent.manager->getPointerWriteBuffer(), written);
    QVERIFY(ManagerInternals(*parent.manager).isMutexHeld());
    QVERIFY(parent.manager->unlockWriteBuffer());
}

void tst_InheritedManagers::childLeavesTheNameToItsParent()
{
    Parent parent;
    ChildProcess child([&](const ChildSide &) {
        alarm(secondsOfAChild);
        parent.manager.reset();
        return 0;
    });

    QCOMPARE(child.waitForExit(), 0);

    QVERIFY(parent.description.segment.exists());
    parent.manager.reset();
    QVERIFY(!parent.description.segment.exists());
}

void tst_InheritedManagers::childMayCreateARegionOfItsOwn()
{
    Parent parent;
    ChildProcess child([&](const ChildSide &) {
        alarm(secondsOfAChild);
        const ProcessDescription other(bufferSize, true);
        const bool created = !parent.manager
                                  ->createProcessData(
                                      other.parse(), ProcessDataManager::InitTypeSharedMemoryCreate)
                                  .isNull();
        CHILD_VERIFY(created);
        CHILD_VERIFY(other.segment.exists());
        parent.manager.reset();
        CHILD_VERIFY(!other.segment.exists());
        return 0;
    });

    QCOMPARE(child.waitForExit(), 0);

    QVERIFY(parent.description.segment.exists());
}

void tst_InheritedManagers::replacedCreatorLeavesTheNameToItsSuccessor()
{
    Parent parent;
    const auto successor = std::make_unique<ProcessDataManager>();
    QVERIFY(successor->createProcessData(parent.description.parse(),
                                         ProcessDataManager::InitTypeSharedMemoryCreate));
    const quint64 inode = parent.description.segment.inode();

    parent.manager.reset();

    QVERIFY(parent.description.segment.exists());
    QCOMPARE(parent.description.segment.inode(), inode);
}

void tst_InheritedManagers::creatorThatFailedLeavesTheNameToItsSuccessor()
{
    const SegmentFile segment;
    auto failed = std::make_unique<SharedMemory>();
    failed->setKey(segment.name());
    QVERIFY(!failed->create(0));
    SharedMemory successor;
    successor.setKey(segment.name());
    QVERIFY(successor.create(64));

    failed.reset();

    QVERIFY(segment.exists());
}

void tst_InheritedManagers::childLeavesTheNameOfABareSegment()
{
    const SegmentFile segment;
    auto memory = std::make_unique<SharedMemory>();
    memory->setKey(segment.name());
    QVERIFY(memory->create(64));
    ChildProcess child([&](const ChildSide &) {
        memory.reset();
        return 0;
    });

    QCOMPARE(child.waitForExit(), 0);

    QVERIFY(segment.exists());
    memory.reset();
    QVERIFY(!segment.exists());
}

QTEST_GUILESS_MAIN(tst_InheritedManagers)
#include "tst_InheritedManagers.moc"
