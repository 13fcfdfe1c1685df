#include "support/ExchangeMessages.h"
#include "support/LogCapture.h"
#include "support/MappedRegion.h"
#include "support/SingleBuffer.h"

#include <QtTest>

#include <atomic>
#include <future>
#include <thread>

namespace {

constexpr auto create = SystemVSemaphoreBaseClass::CreationTypeCreate;
constexpr auto attach = SystemVSemaphoreBaseClass::CreationTypeAttach;

} // namespace

/// The places among the readers of a single buffer, where the set of semaphores goes and comes.
class tst_SingleBufferPlaces : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void writerInsideAReadWithoutAPlaceJoinsNoOtherSet();
    void writerInsideAReadWithoutAPlaceTakesNobodysPlace();
    void readerWithoutAPlaceGivesNobodysPlaceBack();
    void innerReadKeepsThePlaceOfTheOuterOne();

private:
    SegmentFile m_segment;
    SemaphoreSet m_semaphores{SemaphoreSet::uniqueKey(QStringLiteral("places"))};
};

void tst_SingleBufferPlaces::writerInsideAReadWithoutAPlaceJoinsNoOtherSet()
{
    LogCapture log;
    MappedRegion memory(m_segment);
    QVERIFY(memory.create());
    const auto early = memory.singleHandler(attach, m_semaphores.key());
    QVERIFY(m_semaphores.remove());
    QVERIFY(early->lockForRead() != nullptr);
    COMPARE_LOG(log, removedWarning());
    const auto other = memory.singleHandler(attach, m_semaphores.key());
    QVERIFY(other->lockForRead() != nullptr);

    QCOMPARE(early->lockForWrite(), nullptr);

    QCOMPARE(m_semaphores.readers(), 1);
    QCOMPARE(m_semaphores.users(), 1);
    QVERIFY(unlockRead(*other));
    QVERIFY(unlockRead(*early));
    // Outside the read lock nothing keeps it from the new set.
    QVERIFY(writeOnce(*early));
    QCOMPARE(m_semaphores.users(), 2);
    COMPARE_LOG(log);
}

void tst_SingleBufferPlaces::writerInsideAReadWithoutAPlaceTakesNobodysPlace()
{
    MappedRegion memory(m_segment);
    QVERIFY(memory.create());
    const auto early = memory.singleHandler(attach, m_semaphores.key());
    QVERIFY(m_semaphores.remove());
    QVERIFY(early->lockForRead() != nullptr);
    const auto other = memory.singleHandler(create, m_semaphores.key());
    // Another thread of the same handler brings it to the new set.
    std::thread([&] { readOnce(*early); }).join();
    QCOMPARE(m_semaphores.users(), 2);
    std::promise<void> isInside;
    std::atomic<bool> isLetIn{false};
    bool isWaitedFor = false;
    std::thread reader([&] {
        other->lockForRead();
        isInside.set_value();
        while (!isLetIn && !isWaitedFor) {
            isWaitedFor = m_semaphores.value(SemaphoreSet::Names::SemaphoreWriteLock) == 1;
        }
        isWaitedFor = isWaitedFor && !isLetIn && m_semaphores.waitUntilBlockedByReaders();
        unlockRead(*other);
    });
    isInside.get_future().wait();

    unsigned char *const locked = early->lockForWrite();
    isLetIn = true;
    reader.join();

    QVERIFY(isWaitedFor);
    QVERIFY(locked != nullptr);
    QVERIFY(early->unlockForWrite(locked));
    QVERIFY(unlockRead(*early));
    QCOMPARE(m_semaphores.readers(), 0);
}

void tst_SingleBufferPlaces::readerWithoutAPlaceGivesNobodysPlaceBack()
{
    MappedRegion memory(m_segment);
    QVERIFY(memory.create());
    const auto early = memory.singleHandler(attach, m_semaphores.key());
    QVERIFY(m_semaphores.remove());
    QVERIFY(early->lockForRead() != nullptr);
    QVERIFY(early->lockForRead() != nullptr);
    const auto other = memory.singleHandler(create, m_semaphores.key());
    std::thread([&] { readOnce(*early); }).join();
    QVERIFY(other->lockForRead() != nullptr);

    QVERIFY(unlockRead(*early));
    QVERIFY(unlockRead(*early));

    QCOMPARE(m_semaphores.readers(), 1);
    QVERIFY(unlockRead(*other));
}

void tst_SingleBufferPlaces::innerReadKeepsThePlaceOfTheOuterOne()
{
    const SingleBuffer buffer;
    const auto handler = buffer.create();
    QVERIFY(handler->lockForRead() != nullptr);
    QVERIFY(handler->lockForRead() != nullptr);

    // A reader of its own it does not wait for.
    unsigned char *const locked = handler->lockForWrite();

    QVERIFY(locked != nullptr);
    QVERIFY(handler->unlockForWrite(locked));
    QVERIFY(unlockRead(*handler));
    QCOMPARE(buffer.semaphores.readers(), 1);
    QVERIFY(unlockRead(*handler));
    QCOMPARE(buffer.semaphores.readers(), 0);
}

QTEST_GUILESS_MAIN(tst_SingleBufferPlaces)
#include "tst_SingleBufferPlaces.moc"
