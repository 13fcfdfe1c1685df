#include "Access/ReadPlant.h"
#include "Companion/PingPongBufferHandler.h"

using namespace ProcessDataDefinitions;

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
    void goneRegionIsReadOn_data() { addBuffers(); }
    void goneRegionIsReadOn();
    void otherUserMayReadWhatHeMayNotWrite_data() { addBuffers(); }
    void otherUserMayReadWhatHeMayNotWrite();
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
    const ReadPlant plant(hasDoubleBuffer);
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
    const ReadPlant plant(true);
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
    const ReadPlant plant(hasDoubleBuffer);
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
    const ReadPlant plant(hasDoubleBuffer);
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
    const ReadPlant plant(hasDoubleBuffer);
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
    const ReadPlant plant(true);
    const LiveRegion creator(plant);
    ReadPlant other(true);
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
    const ReadPlant plant(true);
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

void tst_ReadingManager::goneRegionIsReadOn()
{
    QFETCH(bool, hasDoubleBuffer);
    const ReadPlant plant(hasDoubleBuffer);
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
    const ReadPlant plant(hasDoubleBuffer);
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

QTEST_GUILESS_MAIN(tst_ReadingManager)
#include "tst_ReadingManager.moc"
