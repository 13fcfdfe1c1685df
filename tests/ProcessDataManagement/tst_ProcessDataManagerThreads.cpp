#include "ProcessDataManagement/ManagedHandler.h"
#include "support/LogCapture.h"

#include <QMutex>
#include <QSemaphore>
#include <QtTest>

#include <thread>

namespace {

/// What happened in which order, from any thread.
class EventLog
{
public:
    void append(const QString &event)
    {
        const QMutexLocker locker(&m_mutex);
        m_events.append(event);
    }
    QStringList events()
    {
        const QMutexLocker locker(&m_mutex);
        return m_events;
    }

private:
    QMutex m_mutex;
    QStringList m_events;
};

/// Takes a lock on the calling thread, announces a second thread that takes one too, and gives the
/// order in which both got theirs.
template <class Lock, class Unlock, class OtherLock, class OtherUnlock>
QStringList orderOfLocks(ManagedHandler &managed, const Lock &lock, const Unlock &unlock,
                         const OtherLock &otherLock, const OtherUnlock &otherUnlock)
{
    EventLog log;
    QSemaphore announced;
    lock();
    std::thread other([&] {
        announced.release();
        otherLock();
        log.append(QStringLiteral("other inside"));
        otherUnlock();
    });
    announced.acquire();
    log.append(managed.internals.isMutexHeld() ? QStringLiteral("other must wait")
                                               : QStringLiteral("other may pass"));
    log.append(QStringLiteral("unlocking"));
    unlock();
    other.join();
    return log.events();
}

const QStringList oneAfterTheOther{QStringLiteral("other must wait"), QStringLiteral("unlocking"),
                                   QStringLiteral("other inside")};

} // namespace

class tst_ProcessDataManagerThreads : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void locksHoldTheMutexWithoutAHandler();
    void readerKeepsAWriterOut();
    void writerKeepsAReaderOut();
    void readerKeepsAReaderOut();
    void handlerIsCalledInsideTheMutex();
    void swapTakesNoMutex();
    void swapOfAnotherThreadLeavesTheWritePointer();
};

void tst_ProcessDataManagerThreads::locksHoldTheMutexWithoutAHandler()
{
    ProcessDataManager manager;
    ManagerInternals internals(manager);
    bool repeat = false;

    manager.lockReadBuffer();
    QVERIFY(internals.isMutexHeld());
    manager.lockWriteBuffer();
    manager.unlockReadBuffer(repeat);
    QVERIFY(internals.isMutexHeld());
    manager.unlockWriteBuffer();
    QVERIFY(!internals.isMutexHeld());
}

void tst_ProcessDataManagerThreads::readerKeepsAWriterOut()
{
    ManagedHandler managed;
    ProcessDataManager &manager = managed.manager;
    bool repeat = false;

    const QStringList order = orderOfLocks(
        managed, [&] { manager.lockReadBuffer(); }, [&] { manager.unlockReadBuffer(repeat); },
        [&] { manager.lockWriteBuffer(); }, [&] { manager.unlockWriteBuffer(); });

    QCOMPARE(order, oneAfterTheOther);
    QCOMPARE(
        managed.handler->takeCalls(),
        QStringList({QStringLiteral("lockForRead"), QStringLiteral("unlockForRead of read buffer"),
                     QStringLiteral("lockForWrite"),
                     QStringLiteral("unlockForWrite of write buffer")}));
}

void tst_ProcessDataManagerThreads::writerKeepsAReaderOut()
{
    ManagedHandler managed;
    ProcessDataManager &manager = managed.manager;
    bool repeat = false;

    const QStringList order = orderOfLocks(
        managed, [&] { manager.lockWriteBuffer(); }, [&] { manager.unlockWriteBuffer(); },
        [&] { manager.lockReadBuffer(); }, [&] { manager.unlockReadBuffer(repeat); });

    QCOMPARE(order, oneAfterTheOther);
    QCOMPARE(managed.handler->takeCalls(),
             QStringList(
                 {QStringLiteral("lockForWrite"), QStringLiteral("unlockForWrite of write buffer"),
                  QStringLiteral("lockForRead"), QStringLiteral("unlockForRead of read buffer")}));
}

void tst_ProcessDataManagerThreads::readerKeepsAReaderOut()
{
    ManagedHandler managed;
    ProcessDataManager &manager = managed.manager;
    bool repeat = false;
    bool otherRepeat = false;
    LogCapture log;

    const QStringList order = orderOfLocks(
        managed, [&] { manager.lockReadBuffer(); }, [&] { manager.unlockReadBuffer(repeat); },
        [&] { manager.lockReadBuffer(); }, [&] { manager.unlockReadBuffer(otherRepeat); });

    QCOMPARE(order, oneAfterTheOther);
    // Another thread's lock is no second lock of this one.
    COMPARE_LOG(log);
}

void tst_ProcessDataManagerThreads::handlerIsCalledInsideTheMutex()
{
    ManagedHandler managed;
    QList<bool> held;
    managed.handler->onCall = [&] { held.append(managed.internals.isMutexHeld()); };
    bool repeat = false;

    managed.manager.lockReadBuffer();
    managed.manager.unlockReadBuffer(repeat);
    managed.manager.lockWriteBuffer();
    managed.manager.unlockWriteBuffer();

    QCOMPARE(held, QList<bool>({true, true, true, true}));
}

void tst_ProcessDataManagerThreads::swapTakesNoMutex()
{
    ManagedHandler managed;
    bool isHeld = true;
    managed.handler->onCall = [&] { isHeld = managed.internals.isMutexHeld(); };
    QVERIFY(managed.manager.swapReadAndWriteBuffer());
    QVERIFY(!isHeld);
    managed.handler->onCall = [] {};
    QVERIFY(managed.manager.lockWriteBuffer());

    // Comes back while the lock is held by this thread.
    bool swapped = false;
    std::thread([&] { swapped = managed.manager.swapReadAndWriteBuffer(); }).join();

    QVERIFY(swapped);
    QVERIFY(managed.manager.unlockWriteBuffer());
}

void tst_ProcessDataManagerThreads::swapOfAnotherThreadLeavesTheWritePointer()
{
    ManagedHandler managed;
    QVERIFY(managed.manager.lockWriteBuffer());
    const auto *const written = managed.manager.getPointerWriteBuffer();

    std::thread([&] { managed.manager.swapReadAndWriteBuffer(); }).join();

    QVERIFY(managed.manager.getPointerWriteBuffer() == written);
    QVERIFY(managed.manager.unlockWriteBuffer());
}

QTEST_GUILESS_MAIN(tst_ProcessDataManagerThreads)

#include "tst_ProcessDataManagerThreads.moc"
