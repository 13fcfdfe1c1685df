#include "Access/ProcessBulkReader.h"
#include "Access/ProcessDataGuards.h"
#include "Access/ProcessDataSnapshot.h"
#include "Access/ProcessDoubleHandle.h"
#include "Access/ReadingRegion.h"
#include "Companion/PingPongBufferHandler.h"
#include "ProcessDataManagement/ProcessDataBufferHandler.h"
#include "support/ChildProcess.h"
#include "support/ResourceLimit.h"

#include <QtTest>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>

#include <sys/sem.h>
#include <sys/stat.h>

#if defined(__has_feature)
# if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#  define SLOW_COPIES
# endif
#endif

using namespace ProcessDataDefinitions;

namespace {

constexpr auto attach = ProcessDataManager::InitTypeSharedMemoryAttach;
constexpr auto create = ProcessDataManager::InitTypeSharedMemoryCreate;
constexpr int somebodyElse = 65534;

#ifdef SLOW_COPIES
/// A copy takes the sanitizer longer than a publisher that never rests takes for a set.
constexpr std::chrono::milliseconds restOfPublisher{1};
#else
constexpr std::chrono::milliseconds restOfPublisher{0};
#endif

const QString number = QStringLiteral("number");

ProcessValue valid(const QVariant &content)
{
    return {content, PROCESS_VALUE_ERROR_TYPE_VALID};
}

/// An integer `number` and a `real` one, in buffers of @p size bytes.
struct Plant : ProcessDescription
{
    explicit Plant(bool hasDoubleBuffer, qint64 sizeOfBuffer = 24)
        : ProcessDescription(sizeOfBuffer, hasDoubleBuffer)
    {
        leaves.insert(number, int32Slot(0));
        SlotDescription real = int32Slot(8);
        real.type = QStringLiteral("double");
        real.sizeValue = 8;
        real.relativeOffsetMetadata = 8;
        leaves.insert(QStringLiteral("real"), real);
    }
};

bool publish(LiveRegion &region, int content)
{
    ProcessDataWriteGuard guard(region.manager);
    return region.leaf(number)->setValueNoLock(valid(content))
           && region.leaf(QStringLiteral("real"))->setValueNoLock(valid(content + 0.5))
           && guard.publish();
}

/// What every way to read gives for a set of publish(); the first that gives something else.
QString wrongWay(ReadingRegion &reader, int content)
{
    ProcessDataManager &manager = reader.manager();
    const double real = content + 0.5;
    if (reader.number(number) != content) {
        return QStringLiteral("getValue");
    }
    ProcessValue value(PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
    manager.lockReadBuffer();
    reader.leaf(number)->getValueNoLock(value);
    bool repeat = true;
    if (!manager.unlockReadBuffer(repeat) || repeat || value.getValue() != QVariant(content)) {
        return QStringLiteral("getValueNoLock");
    }
    ProcessBulkReader bulk(&manager, reader.root(), {number, QStringLiteral("real")});
    double numbers[2] = {};
    ErrorTypes states[2] = {};
    if (!bulk.read(numbers, states) || numbers[0] != content || numbers[1] != real) {
        return QStringLiteral("bulk");
    }
    ProcessDataSnapshot set;
    if (!set.take(manager) || !set.getValue(*reader.leaf(number), value)
        || value.getValue() != QVariant(content)) {
        return QStringLiteral("snapshot");
    }
    const ProcessDoubleHandle handle(reader.root(), QStringLiteral("real"));
    double read = 0;
    ErrorTypes state = PROCESS_VALUE_ERROR_TYPE_TIMEOUT;
    if (!handle.read(read, state) || read != real || !handle.readNoLock(read, state)
        || read != real) {
        return QStringLiteral("handle");
    }
    ProcessDataReadGuard guard(manager);
    const ProcessDataReadGuard inner(manager);
    return guard.isLocked() && inner.isLocked() ? QString() : QStringLiteral("guard");
}

void addBuffers()
{
    QTest::addColumn<bool>("hasDoubleBuffer");
    QTest::newRow("double") << true;
    QTest::newRow("single") << false;
}

/// Runs @p body as somebody who may read the segment and not write it.
int asReader(const ProcessDescription &description, const std::function<int()> &body)
{
    chmod(qPrintable(description.segment.path()), 0644);
    ChildProcess child([&](const ChildSide & /*parent*/) {
        return setuid(somebodyElse) == 0 && geteuid() != 0 ? body() : ChildProcess::sm_cannotTry;
    });
    return child.waitForExit();
}

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

} // namespace

/// A region in a mapping that cannot be written: whoever stores into it ends this program.
class tst_ReadingManager : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void modeIsReadWriteUntilItIsSet();
    void mappingCannotBeWritten_data() { addBuffers(); }
    void mappingCannotBeWritten();
    void creatingIsRefused();
    void everyWayToReadGivesTheValues_data() { addBuffers(); }
    void everyWayToReadGivesTheValues();
    void writingIsRefused_data() { addBuffers(); }
    void writingIsRefused();
    void memoryAndSemaphoresStayAsTheyWere_data() { addBuffers(); }
    void memoryAndSemaphoresStayAsTheyWere();
    void otherLayoutIsToldAndNotNoted();
    void otherFormatIsRefused();
    void doubleBufferNeedsNoSemaphores();
    void singleBufferMakesNoSemaphores();
    void singleBufferJoinsSemaphoresThatComeLater();
    void semaphoresThatComeDuringAReadHaveItRepeated();
    void readIsRefusedWhereNobodyCanTellWhoseSemaphoresThereAre();
    void readEndsUnreliablyWhereNobodyCanTellWhoseSemaphoresThereAre();
    void writerOfASingleBufferIsWaitedFor();
    void readerOfASingleBufferIsWaitedFor();
    void setOfADeadWriterIsNotSeen();
    void stoppedWriterDelaysNobody();
    void readThatWasOvertakenTwiceAwaitsASwap();
    void hurryingPublisherIsReadConsistently();
    void goneRegionIsReadOn_data() { addBuffers(); }
    void goneRegionIsReadOn();
    void otherUserMayReadWhatHeMayNotWrite_data() { addBuffers(); }
    void otherUserMayReadWhatHeMayNotWrite();
    void semaphoresThatMayNotBeAlteredAreRefused_data();
    void semaphoresThatMayNotBeAlteredAreRefused();
};

void tst_ReadingManager::modeIsReadWriteUntilItIsSet()
{
    ProcessDataManager manager;

    QCOMPARE(manager.getAccessMode(), SharedMemory::ReadWrite);
    manager.setAccessMode(SharedMemory::ReadOnly);
    QCOMPARE(manager.getAccessMode(), SharedMemory::ReadOnly);
    manager.setAccessMode(SharedMemory::ReadWrite);
    QCOMPARE(manager.getAccessMode(), SharedMemory::ReadWrite);
}

void tst_ReadingManager::mappingCannotBeWritten()
{
    QFETCH(bool, hasDoubleBuffer);
    const Plant plant(hasDoubleBuffer);
    LiveRegion creator(plant);
    QVERIFY(creator.root);

    ReadingRegion reader(plant);

    QVERIFY(reader.isAttached());
    QCOMPARE(reader.lines(),
             QList<LogLine>{debugLine(
                 QStringLiteral("Attach: Key for shared memory ( \"%1\" )!").arg(plant.key))});
    const QList<QByteArray> mappings = plant.segment.mappings();
    QCOMPARE(mappings.size(), 2);
    QCOMPARE(std::count_if(mappings.cbegin(), mappings.cend(),
                           [](const QByteArray &line) { return line.contains(" r--s "); }),
             1);
}

void tst_ReadingManager::creatingIsRefused()
{
    const Plant plant(true);
    ProcessDataManager manager;
    manager.setAccessMode(SharedMemory::ReadOnly);
    LogCapture log;

    QVERIFY(manager.createProcessData(plant.parse(), create).isNull());

    COMPARE_LOG(
        log,
        warning(QStringLiteral("A manager for reading alone cannot create the shared memory "
                               "\"%1\" . Attach to it, or set its access mode to "
                               "SharedMemory::ReadWrite.")
                    .arg(plant.key)),
        warning(QStringLiteral("Can not initialize shared memory.")),
        warning(QStringLiteral("Can not create process data memory.")));
    QVERIFY(!plant.segment.exists() && !plant.semaphores.exists());
}

void tst_ReadingManager::everyWayToReadGivesTheValues()
{
    QFETCH(bool, hasDoubleBuffer);
    const Plant plant(hasDoubleBuffer);
    LiveRegion creator(plant);
    ReadingRegion reader(plant);
    QVERIFY(reader.isAttached());

    for (int content = 1; content < 4; ++content) {
        QVERIFY(publish(creator, content));
        QCOMPARE(wrongWay(reader, content), QString());
    }
}

void tst_ReadingManager::writingIsRefused()
{
    QFETCH(bool, hasDoubleBuffer);
    const Plant plant(hasDoubleBuffer);
    LiveRegion creator(plant);
    QVERIFY(publish(creator, 7));
    ReadingRegion reader(plant);
    const auto leaf = reader.leaf(number);
    const auto real = reader.leaf(QStringLiteral("real"));
    ProcessDataManager &manager = reader.manager();
    const LogLine refusal = readingAlone(plant);
    const LogLine noBuffer = warning(QStringLiteral("Pointer to pingpongbuffer is nullptr."));
    LogCapture log;

    QVERIFY(!leaf->setValue(valid(8)));
    COMPARE_LOG(log, refusal, noBuffer);
    QVERIFY(!leaf->setValueNoLock(valid(8)));
    COMPARE_LOG(log, refusal, noBuffer);
    // The usual way of a number of eight bytes is another one.
    QVERIFY(!real->setValueNoLock(valid(8.5)));
    COMPARE_LOG(log, refusal, noBuffer);
    const ProcessDoubleHandle handle(real);
    QVERIFY(!handle.write(8.5, PROCESS_VALUE_ERROR_TYPE_VALID));
    QVERIFY(!handle.writeNoLock(8.5, PROCESS_VALUE_ERROR_TYPE_VALID));
    COMPARE_LOG(log, refusal, noBuffer, refusal, noBuffer);
    manager.lockWriteBuffer();
    COMPARE_LOG(log, refusal);
    QVERIFY(manager.getPointerWriteBuffer() == nullptr);
    QVERIFY(!leaf->setValueNoLock(valid(8)));
    QVERIFY(!manager.unlockWriteBuffer());
    COMPARE_LOG(log, refusal, noBuffer);
    QVERIFY(!manager.swapReadAndWriteBuffer());
    COMPARE_LOG(log, refusal);
    ProcessDataWriteGuard guard(manager);
    QVERIFY(!guard.isLocked() && !guard.publish());
    COMPARE_LOG(log, refusal);
    QCOMPARE(reader.number(number), 7);
}

void tst_ReadingManager::memoryAndSemaphoresStayAsTheyWere()
{
    QFETCH(bool, hasDoubleBuffer);
    const Plant plant(hasDoubleBuffer);
    LiveRegion creator(plant);
    QVERIFY(publish(creator, 7));
    const QByteArray memory = plant.segment.content();
    const auto semaphores = plant.semaphores.values();

    {
        ReadingRegion reader(plant);
        QCOMPARE(wrongWay(reader, 7), QString());
        QCOMPARE(plant.semaphores.users(), hasDoubleBuffer ? 1 : 2);
        const LogCapture log;
        QVERIFY(!reader.leaf(number)->setValue(valid(8)));
        QVERIFY(!reader.manager().swapReadAndWriteBuffer());
    }

    QCOMPARE(plant.segment.content(), memory);
    QCOMPARE(plant.semaphores.values(), semaphores);
}

void tst_ReadingManager::otherLayoutIsToldAndNotNoted()
{
    const Plant plant(true);
    const LiveRegion creator(plant);
    Plant other(true);
    other.key = plant.key;
    other.leaves[number].type = QStringLiteral("uint32");
    const QByteArray memory = plant.segment.content();

    const ReadingRegion reader(other);

    QVERIFY(reader.isAttached());
    QCOMPARE(reader.lines().size(), 2);
    QVERIFY(reader.lines().last().text.contains(QStringLiteral("has another layout")));
    QCOMPARE(plant.segment.content(), memory);
}

void tst_ReadingManager::otherFormatIsRefused()
{
    const Plant plant(true);
    const LiveRegion creator(plant);
    SharedMemory memory;
    memory.setKey(plant.segment.name());
    QVERIFY(memory.attach(SharedMemory::ReadWrite));
    static_cast<PingPongBufferHandler::ManagementBuffer *>(memory.data())->format += 1;

    ReadingRegion reader(plant);

    QVERIFY(reader.lines().last().text.contains(
        QStringLiteral("Run all programs with one version of the library.")));
    reader.manager().lockReadBuffer();
    QVERIFY(reader.manager().getPointerReadBuffer() == nullptr);
    bool repeat = false;
    reader.manager().unlockReadBuffer(repeat);
}

void tst_ReadingManager::doubleBufferNeedsNoSemaphores()
{
    const Plant plant(true);
    LiveRegion creator(plant);
    QVERIFY(publish(creator, 7));
    QVERIFY(plant.semaphores.remove());

    ReadingRegion reader(plant);

    QCOMPARE(wrongWay(reader, 7), QString());
    QVERIFY(!plant.semaphores.exists());
}

void tst_ReadingManager::singleBufferMakesNoSemaphores()
{
    const Plant plant(false);
    LiveRegion creator(plant);
    QVERIFY(publish(creator, 7));
    QVERIFY(plant.semaphores.remove());

    ReadingRegion reader(plant);

    QVERIFY(reader.isAttached());
    QCOMPARE(wrongWay(reader, 7), QString());
    QVERIFY(!plant.semaphores.exists());
}

void tst_ReadingManager::singleBufferJoinsSemaphoresThatComeLater()
{
    const Plant plant(false);
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

void tst_ReadingManager::semaphoresThatComeDuringAReadHaveItRepeated()
{
    const Plant plant(false);
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

void tst_ReadingManager::readIsRefusedWhereNobodyCanTellWhoseSemaphoresThereAre()
{
    const Plant plant(false);
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

void tst_ReadingManager::readEndsUnreliablyWhereNobodyCanTellWhoseSemaphoresThereAre()
{
    const Plant plant(false);
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

void tst_ReadingManager::writerOfASingleBufferIsWaitedFor()
{
    const Plant plant(false);
    LiveRegion creator(plant);
    QVERIFY(publish(creator, 7));
    ReadingRegion reader(plant);
    creator.manager.lockWriteBuffer();
    std::atomic<int> read{0};

    std::thread thread([&] { read = reader.number(number); });
    const bool isBlocked = plant.semaphores.waitUntilBlockedByWriter();
    const int readBefore = read;
    creator.leaf(number)->setValueNoLock(valid(8));
    creator.manager.unlockWriteBuffer();
    thread.join();

    QVERIFY(isBlocked);
    QCOMPARE(readBefore, 0);
    QCOMPARE(read.load(), 8);
}

void tst_ReadingManager::readerOfASingleBufferIsWaitedFor()
{
    const Plant plant(false);
    LiveRegion creator(plant);
    QVERIFY(publish(creator, 7));
    ReadingRegion reader(plant);
    reader.manager().lockReadBuffer();
    std::atomic<bool> isWritten{false};

    std::thread thread([&] { isWritten = creator.leaf(number)->setValue(valid(8)); });
    const bool isBlocked = plant.semaphores.waitUntilBlockedByReaders();
    const bool wasWritten = isWritten;
    bool repeat = true;
    reader.manager().unlockReadBuffer(repeat);
    thread.join();

    QVERIFY(isBlocked && !wasWritten && !repeat);
    QVERIFY(isWritten);
}

void tst_ReadingManager::setOfADeadWriterIsNotSeen()
{
    const Plant plant(true);
    LiveRegion creator(plant);
    QVERIFY(publish(creator, 7));
    ReadingRegion reader(plant);
    ChildProcess writer([&plant](const ChildSide &parent) {
        LiveRegion other(plant, attach);
        other.manager.lockWriteBuffer();
        other.leaf(number)->setValueNoLock(valid(9));
        parent.say();
        parent.waitForWord();
        return 0;
    });
    QVERIFY(writer.waitUntilReady() && writer.kill());
    const QByteArray memory = plant.segment.content();

    QCOMPARE(wrongWay(reader, 7), QString());
    // What the dead one left is for the next writer to take back.
    QCOMPARE(plant.segment.content(), memory);
    QVERIFY(publish(creator, 10));
    QCOMPARE(wrongWay(reader, 10), QString());
}

void tst_ReadingManager::stoppedWriterDelaysNobody()
{
    const Plant plant(true);
    LiveRegion creator(plant);
    QVERIFY(publish(creator, 7));
    ReadingRegion reader(plant);
    ChildProcess writer([&plant](const ChildSide &parent) {
        LiveRegion other(plant, attach);
        CHILD_VERIFY(publish(other, 8) && publish(other, 9));
        other.manager.lockWriteBuffer();
        other.leaf(number)->setValueNoLock(valid(10));
        parent.say();
        parent.waitForWord();
        return 0;
    });
    QVERIFY(writer.waitUntilReady() && writer.stop());

    QCOMPARE(wrongWay(reader, 9), QString());
}

/// From there nobody overtakes it for as long as a set takes. Without a publisher it goes on all the same.
void tst_ReadingManager::readThatWasOvertakenTwiceAwaitsASwap()
{
    constexpr qint64 bound = 20;
    const Plant plant(true);
    LiveRegion creator(plant);
    ReadingRegion reader(plant);
    bool repeat = false;
    for (int attempt = 0; attempt < 2; ++attempt) {
        reader.manager().lockReadBuffer();
        QVERIFY(publish(creator, 7) && publish(creator, 8));
        QVERIFY(reader.manager().unlockReadBuffer(repeat));
        QVERIFY(repeat);
    }
    QElapsedTimer timer;
    timer.start();

    reader.manager().lockReadBuffer();

    QVERIFY(timer.elapsed() >= bound);
    QVERIFY(reader.manager().getPointerReadBuffer() != nullptr);
    QVERIFY(reader.manager().unlockReadBuffer(repeat));
    QVERIFY(!repeat);
    QCOMPARE(wrongWay(reader, 8), QString());
}

/// A copy of the buffer takes a good part of the time from one swap to the next.
void tst_ReadingManager::hurryingPublisherIsReadConsistently()
{
    constexpr int sets = 500;
    const Plant plant(true, 64 * 1024);
    LiveRegion creator(plant);
    ReadingRegion reader(plant);
    ChildProcess publisher([&plant](const ChildSide &parent) {
        LiveRegion other(plant, attach);
        parent.say();
        for (int content = 1; !parent.hasWord(); ++content) {
            CHILD_VERIFY(publish(other, content));
            std::this_thread::sleep_for(restOfPublisher);
        }
        return 0;
    });
    QVERIFY(publisher.waitUntilReady());
    ProcessValue value(PROCESS_VALUE_ERROR_TYPE_VALID);
    ProcessValue real(PROCESS_VALUE_ERROR_TYPE_VALID);
    int taken = 0;
    int mixed = 0;

    for (int i = 0; i < sets; ++i) {
        ProcessDataSnapshot set;
        taken += set.take(reader.manager()) ? 1 : 0;
        set.getValue(*reader.leaf(number), value);
        set.getValue(*reader.leaf(QStringLiteral("real")), real);
        const bool isOne = value.getErrorType() != PROCESS_VALUE_ERROR_TYPE_VALID
                           || value.getValue().toInt() + 0.5 == real.getValue().toDouble();
        mixed += isOne ? 0 : 1;
    }

    publisher.tell();
    QCOMPARE(publisher.waitForExit(), 0);
    QCOMPARE(taken, sets);
    QCOMPARE(mixed, 0);
}

void tst_ReadingManager::goneRegionIsReadOn()
{
    QFETCH(bool, hasDoubleBuffer);
    const Plant plant(hasDoubleBuffer);
    auto creator = std::make_unique<LiveRegion>(plant);
    QVERIFY(publish(*creator, 7));
    ReadingRegion reader(plant);

    creator.reset();
    QCOMPARE(wrongWay(reader, 7), QString());
    LiveRegion next(plant);
    QVERIFY(publish(next, 8));

    QCOMPARE(wrongWay(reader, 7), QString());
    ReadingRegion nextReader(plant);
    QCOMPARE(wrongWay(nextReader, 8), QString());
}

void tst_ReadingManager::otherUserMayReadWhatHeMayNotWrite()
{
    QFETCH(bool, hasDoubleBuffer);
    const Plant plant(hasDoubleBuffer);
    LiveRegion creator(plant);
    QVERIFY(publish(creator, 7));

    const int exitCode = asReader(plant, [&plant] {
        ReadingRegion reader(plant);
        CHILD_VERIFY(reader.isAttached());
        CHILD_VERIFY(wrongWay(reader, 7).isEmpty());
        const LogCapture log;
        ProcessDataManager writer;
        CHILD_VERIFY(writer.createProcessData(plant.parse(), attach).isNull());
        return 0;
    });

    COMPARE_EXIT(exitCode, "the right to become another user");
}

void tst_ReadingManager::semaphoresThatMayNotBeAlteredAreRefused_data()
{
    QTest::addColumn<int>("mode");
    QTest::newRow("unseen") << 0600;
    QTest::newRow("seen") << 0644;
}

void tst_ReadingManager::semaphoresThatMayNotBeAlteredAreRefused()
{
    QFETCH(int, mode);
    const Plant plant(false);
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
        memory.setKey(plant.segment.name());
        CHILD_VERIFY(memory.attach(SharedMemory::ReadOnly));
        const auto handler = ProcessDataBufferHandler(false).initBufferHandler(
            ProcessDataBufferHandler::InitTypeBufferAttach, plant.key + QStringLiteral("Semaphore"),
            24, memory);
        CHILD_VERIFY(handler && handler->lockForRead() == nullptr);
        return 0;
    });

    COMPARE_EXIT(exitCode, "the right to become another user");
}

QTEST_GUILESS_MAIN(tst_ReadingManager)
#include "tst_ReadingManager.moc"
