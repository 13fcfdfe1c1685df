#include "Access/ReadPlant.h"
#include "ProcessDataManagement/ProcessDataBufferHandler.h"
#include "support/ResourceLimit.h"

#include <thread>

#include <sys/sem.h>

using namespace ProcessDataDefinitions;

namespace {

bool setMode(const SemaphoreSet &set, unsigned short mode)
{
    union {
        int value;
        semid_ds *status;
    } argument{};
    semid_ds status{};
    argument.status = &status;
    if (semctl(set.id(), 0, IPC_STAT, argument) != 0) {
        return false;
    }
    status.sem_perm.mode = mode;
    return semctl(set.id(), 0, IPC_SET, argument) == 0;
}

/// The handler that a manager makes over @p memory; null if the memory cannot be had.
BufferHandlerInterface::HandlerSharedPointer readingHandler(const ReadPlant &plant,
                                                            SharedMemory &memory)
{
    memory.setKey(plant.segment.name());
    if (!memory.attach(SharedMemory::ReadOnly)) {
        return {};
    }
    return ProcessDataBufferHandler(false).initBufferHandler(
        ProcessDataBufferHandler::InitTypeBufferAttach, plant.key + QStringLiteral("Semaphore"), 24,
        memory);
}

} // namespace

/// Who reads alone needs semaphores for a single buffer alone, and makes none.
class tst_ReadingSemaphores : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void doubleBufferNeedsNoSemaphores();
    void singleBufferMakesNoSemaphores();
    void singleBufferJoinsSemaphoresThatComeLater();
    void semaphoresThatComeDuringAReadHaveItRepeated();
    void readIsRefusedWhereNobodyCanTellWhoseSemaphoresThereAre();
    void readEndsUnreliablyWhereNobodyCanTellWhoseSemaphoresThereAre();
    void readFailsWhileAnotherThreadHoldsTheFormerSemaphores();
    void semaphoresThatMayNotBeAlteredAreRefused_data();
    void semaphoresThatMayNotBeAlteredAreRefused();
};

void tst_ReadingSemaphores::doubleBufferNeedsNoSemaphores()
{
    const ReadPlant plant(true);
    LiveRegion creator(plant);
    QVERIFY(publish(creator, 7));
    QVERIFY(plant.semaphores.remove());

    ReadingRegion reader(plant);

    QCOMPARE(wrongWay(reader, 7), QString());
    QVERIFY(!plant.semaphores.exists());
}

void tst_ReadingSemaphores::singleBufferMakesNoSemaphores()
{
    const ReadPlant plant(false);
    LiveRegion creator(plant);
    QVERIFY(publish(creator, 7));
    QVERIFY(plant.semaphores.remove());

    ReadingRegion reader(plant);

    QVERIFY(reader.isAttached());
    QCOMPARE(wrongWay(reader, 7), QString());
    QVERIFY(!plant.semaphores.exists());
}

void tst_ReadingSemaphores::singleBufferJoinsSemaphoresThatComeLater()
{
    const ReadPlant plant(false);
    const LiveRegion creator(plant);
    QVERIFY(plant.semaphores.remove());
    ReadingRegion reader(plant);
    LiveRegion writer(plant, attach);
    QVERIFY(publish(writer, 8));
    QCOMPARE(plant.semaphores.users(), 1);

    reader.manager().lockReadBuffer();

    QCOMPARE(plant.semaphores.users(), 2);
    QCOMPARE(plant.semaphores.readers(), 1);
    bool repeat = true;
    QVERIFY(reader.manager().unlockReadBuffer(repeat));
    QVERIFY(!repeat);
    QCOMPARE(plant.semaphores.readers(), 0);
}

void tst_ReadingSemaphores::semaphoresThatComeDuringAReadHaveItRepeated()
{
    const ReadPlant plant(false);
    const LiveRegion creator(plant);
    QVERIFY(plant.semaphores.remove());
    ReadingRegion reader(plant);
    reader.manager().lockReadBuffer();
    QVERIFY(reader.manager().getPointerReadBuffer() != nullptr);

    LiveRegion writer(plant, attach);
    QVERIFY(publish(writer, 8));

    bool repeat = false;
    QVERIFY(reader.manager().unlockReadBuffer(repeat));
    QVERIFY(repeat);
    QCOMPARE(wrongWay(reader, 8), QString());
}

void tst_ReadingSemaphores::readIsRefusedWhereNobodyCanTellWhoseSemaphoresThereAre()
{
    const ReadPlant plant(false);
    const LiveRegion creator(plant);
    QVERIFY(plant.semaphores.remove());
    ReadingRegion reader(plant);
    LiveRegion writer(plant, attach);
    QVERIFY(publish(writer, 8));

    {
        LogCapture log;
        const ResourceLimit noDescriptors(RLIMIT_NOFILE, 0);
        reader.manager().lockReadBuffer();
        QVERIFY(reader.manager().getPointerReadBuffer() == nullptr);
        bool repeat = false;
        QVERIFY(!reader.manager().unlockReadBuffer(repeat));
        COMPARE_LOG(log, warning(QStringLiteral(
                                     "It cannot be told whether the semaphores of \"%1Semaphore\" "
                                     "are those of this memory: /proc/thread-self/maps cannot be "
                                     "read. Close descriptors, or raise their limit (ulimit -n).")
                                     .arg(plant.key)));
    }

    QCOMPARE(wrongWay(reader, 8), QString());
}

void tst_ReadingSemaphores::readEndsUnreliablyWhereNobodyCanTellWhoseSemaphoresThereAre()
{
    const ReadPlant plant(false);
    const LiveRegion creator(plant);
    QVERIFY(plant.semaphores.remove());
    ReadingRegion reader(plant);
    reader.manager().lockReadBuffer();
    QVERIFY(reader.manager().getPointerReadBuffer() != nullptr);
    LiveRegion writer(plant, attach);
    QVERIFY(publish(writer, 8));

    const ResourceLimit noDescriptors(RLIMIT_NOFILE, 0);
    bool repeat = false;
    QVERIFY(reader.manager().unlockReadBuffer(repeat));
    QVERIFY(repeat);
}

/// That thread would give its place back to the new ones. It holds them longer than anybody waits.
void tst_ReadingSemaphores::readFailsWhileAnotherThreadHoldsTheFormerSemaphores()
{
    const ReadPlant plant(false);
    const LiveRegion creator(plant);
    SharedMemory memory;
    const auto handler = readingHandler(plant, memory);
    QVERIFY(handler);
    BufferHandlerInterface::BufferPointer buffer = handler->lockForRead();
    QVERIFY(buffer != nullptr);
    QCOMPARE(plant.semaphores.readers(), 1);
    QVERIFY(plant.semaphores.remove());
    const LiveRegion writer(plant, attach);

    BufferHandlerInterface::BufferPointer other = buffer;
    std::thread([&handler, &other] { other = handler->lockForRead(); }).join();

    QVERIFY(other == nullptr);
    QCOMPARE(plant.semaphores.readers(), 0);
    bool repeat = false;
    QVERIFY(handler->unlockForRead(buffer, repeat));
    buffer = handler->lockForRead();
    QVERIFY(buffer != nullptr);
    QCOMPARE(plant.semaphores.readers(), 1);
    QVERIFY(handler->unlockForRead(buffer, repeat));
    QVERIFY(!repeat);
}

void tst_ReadingSemaphores::semaphoresThatMayNotBeAlteredAreRefused_data()
{
    QTest::addColumn<int>("mode");
    QTest::newRow("unseen") << 0600;
    QTest::newRow("seen") << 0644;
}

void tst_ReadingSemaphores::semaphoresThatMayNotBeAlteredAreRefused()
{
    QFETCH(int, mode);
    const ReadPlant plant(false);
    const LiveRegion creator(plant);
    QVERIFY(setMode(plant.semaphores, static_cast<unsigned short>(mode)));

    const int exitCode = asReader(plant, [&plant] {
        const ReadingRegion reader(plant);
        CHILD_VERIFY(!reader.isAttached());
        const QList<LogLine> expected{
            debugLine(QStringLiteral("Attach: Key for shared memory ( \"%1\" )!").arg(plant.key)),
            warning(QStringLiteral(
                        "Can't join the semaphores of \"%1Semaphore\" \"Permission denied\" , "
                        "and without them a single buffer cannot be read reliably: run as a "
                        "user who may alter them (ipcs -s shows owner and mode).")
                        .arg(plant.key)),
            warning(QStringLiteral("Can not initialize Buffer Handler.")),
            warning(QStringLiteral("Can not create process data memory."))};
        CHILD_VERIFY(reader.lines() == expected);
        // What guards the memory is made all the same.
        const LogCapture log;
        SharedMemory memory;
        const auto handler = readingHandler(plant, memory);
        CHILD_VERIFY(handler && handler->lockForRead() == nullptr);
        return 0;
    });

    COMPARE_EXIT(exitCode, "the right to become another user");
}

QTEST_GUILESS_MAIN(tst_ReadingSemaphores)
#include "tst_ReadingSemaphores.moc"
