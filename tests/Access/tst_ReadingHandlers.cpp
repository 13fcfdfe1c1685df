#include "Access/ReadPlant.h"
#include "ProcessDataManagement/ProcessDataBufferHandler.h"

namespace {

using Handler = BufferHandlerInterface::HandlerSharedPointer;

/// The handler that a manager makes over memory attached for reading alone.
class ReadingHandler
{
public:
    ReadingHandler(const ReadPlant &plant, bool hasDoubleBuffer)
    {
        m_memory.setKey(plant.segment.name());
        if (m_memory.attach(SharedMemory::ReadOnly)) {
            m_handler = ProcessDataBufferHandler(hasDoubleBuffer)
                            .initBufferHandler(ProcessDataBufferHandler::InitTypeBufferAttach,
                                               plant.key + QStringLiteral("Semaphore"), 24,
                                               m_memory);
        }
    }
    bool isThere() const { return !m_handler.isNull(); }
    BufferHandlerInterface *operator->() const { return m_handler.data(); }

private:
    SharedMemory m_memory;
    Handler m_handler;
};

/// What the first four bytes at @p buffer hold.
qint32 numberAt(BufferHandlerInterface::BufferPointer buffer)
{
    qint32 content = -1;
    memcpy(&content, buffer, sizeof content);
    return content;
}

/// Semaphores of the memory format 1: write lock, readers, users, closed, four of the fingerprint.
std::vector<unsigned short> formerValues(const SemaphoreSet &semaphores, unsigned short users)
{
    constexpr int fingerprintCount = 4;
    const std::vector<unsigned short> values = semaphores.values();
    std::vector<unsigned short> former{0, 0, users, 0};
    former.insert(former.end(), values.end() - fingerprintCount, values.end());
    return former;
}

/// Where the number of users stood in them.
constexpr int formerUsers = 2;

/// What a reader says that is refused because of @p reason.
QList<LogLine> refusal(const ReadPlant &plant, const QString &reason)
{
    return {debugLine(QStringLiteral("Attach: Key for shared memory ( \"%1\" )!").arg(plant.key)),
            warning(reason), warning(QStringLiteral("Can not initialize Buffer Handler.")),
            warning(QStringLiteral("Can not create process data memory."))};
}

} // namespace

/// Handlers of memory that is attached for reading alone: what their callers get, and whose semaphores
/// they join.
class tst_ReadingHandlers : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void writingIsRefused_data() { addBuffers(); }
    void writingIsRefused();
    void locksOfOneThreadNest_data() { addBuffers(); }
    void locksOfOneThreadNest();
    void locksNestWithoutSemaphores();
    void semaphoresOfSomebodyElseAreRefused();
    void semaphoresOfAFormerFormatAreRefusedWhileInUse();
    void semaphoresOfAFormerFormatThatWereLeftAreNotJoined();
    void semaphoresThatAreNeverFilledInAreNotJoined();
};

void tst_ReadingHandlers::writingIsRefused()
{
    QFETCH(bool, hasDoubleBuffer);
    const ReadPlant plant(hasDoubleBuffer);
    LiveRegion creator(plant);
    QVERIFY(publish(creator, 7));
    const ReadingHandler handler(plant, hasDoubleBuffer);
    QVERIFY(handler.isThere());
    const auto buffer = handler->readBufferPointer();
    QVERIFY(buffer != nullptr);
    const LogLine refusal = readingAlone(plant);
    LogCapture log;

    QVERIFY(handler->lockForWrite() == nullptr);
    COMPARE_LOG(log, refusal);
    QVERIFY(handler->writeBufferPointer() == nullptr);
    COMPARE_LOG(log, refusal);
    QVERIFY(!handler->swapBuffers());
    COMPARE_LOG(log, refusal);
    // Who did not get a lock was told so, and has none to give back.
    QVERIFY(!handler->unlockForWrite(buffer));
    QVERIFY(!handler->unlockForWrite(nullptr));
    COMPARE_LOG(log);
    QCOMPARE(numberAt(handler->readBufferPointer()), 7);
    QVERIFY(!plant.semaphores.isWriteLocked());
}

void tst_ReadingHandlers::locksOfOneThreadNest()
{
    QFETCH(bool, hasDoubleBuffer);
    const ReadPlant plant(hasDoubleBuffer);
    LiveRegion creator(plant);
    QVERIFY(publish(creator, 7));
    const ReadingHandler handler(plant, hasDoubleBuffer);
    QVERIFY(handler.isThere());
    const int readersInside = hasDoubleBuffer ? 0 : 1;
    bool repeat = true;
    const LogCapture log;

    const auto outer = handler->lockForRead();
    QVERIFY(outer != nullptr);
    QCOMPARE(plant.semaphores.readers(), readersInside);
    QCOMPARE(handler->lockForRead(), outer);
    QCOMPARE(plant.semaphores.readers(), readersInside);
    QCOMPARE(numberAt(outer), 7);

    QVERIFY(handler->unlockForRead(outer, repeat));
    QVERIFY(!repeat);
    QCOMPARE(plant.semaphores.readers(), readersInside);
    repeat = true;
    QVERIFY(handler->unlockForRead(outer, repeat));
    QVERIFY(!repeat);
    QCOMPARE(plant.semaphores.readers(), 0);
    repeat = true;
    QVERIFY(!handler->unlockForRead(outer, repeat));
    QVERIFY(!repeat);
    QCOMPARE(plant.semaphores.readers(), 0);
}

void tst_ReadingHandlers::locksNestWithoutSemaphores()
{
    const ReadPlant plant(false);
    LiveRegion creator(plant);
    QVERIFY(publish(creator, 7));
    QVERIFY(plant.semaphores.remove());
    const ReadingHandler handler(plant, false);
    QVERIFY(handler.isThere());
    bool repeat = true;

    const auto outer = handler->lockForRead();
    QVERIFY(outer != nullptr);
    QCOMPARE(handler->lockForRead(), outer);
    QVERIFY(handler->unlockForRead(outer, repeat));
    QVERIFY(!repeat);

    // Whoever came in between may have written: the outer lock tells.
    LiveRegion writer(plant, attach);
    QVERIFY(publish(writer, 8));
    QVERIFY(handler->unlockForRead(outer, repeat));
    QVERIFY(repeat);
    QCOMPARE(plant.semaphores.readers(), 0);
}

void tst_ReadingHandlers::semaphoresOfSomebodyElseAreRefused()
{
    const ReadPlant plant(false);
    const LiveRegion creator(plant);
    QVERIFY(plant.semaphores.remove());
    const int foreign = plant.semaphores.make({1, 2, 3});
    QVERIFY(foreign >= 0);

    const ReadingRegion reader(plant);

    QVERIFY(!reader.isAttached());
    const QString key = plant.key + QStringLiteral("Semaphore");
    QCOMPARE(
        toText(reader.lines()),
        toText(refusal(plant, QStringLiteral("The semaphores of \"%1\" can't be used: System V "
                                             "key %2 belongs to somebody else (ipcs -s). Choose "
                                             "another memory key.")
                                  .arg(key)
                                  .arg(SystemVSemaphoreBaseClass::systemVKey(key)))));
    QCOMPARE(plant.semaphores.id(), foreign);
    QCOMPARE(plant.semaphores.value(0), 1);
    QCOMPARE(plant.semaphores.value(1), 2);
    QCOMPARE(plant.semaphores.value(2), 3);
}

void tst_ReadingHandlers::semaphoresOfAFormerFormatAreRefusedWhileInUse()
{
    const ReadPlant plant(false);
    const LiveRegion creator(plant);
    const auto former = formerValues(plant.semaphores, 2);
    QVERIFY(plant.semaphores.remove());
    const int set = plant.semaphores.make(former);
    QVERIFY(set >= 0);

    const ReadingRegion reader(plant);

    QVERIFY(!reader.isAttached());
    QCOMPARE(
        toText(reader.lines()),
        toText(refusal(plant, QStringLiteral("The semaphores of \"%1Semaphore\" are of another "
                                             "memory format and in use. Run all programs with "
                                             "one version of the library.")
                                  .arg(plant.key))));
    QCOMPARE(plant.semaphores.id(), set);
    QCOMPARE(plant.semaphores.value(formerUsers), 2);
}

void tst_ReadingHandlers::semaphoresOfAFormerFormatThatWereLeftAreNotJoined()
{
    const ReadPlant plant(false);
    LiveRegion creator(plant);
    QVERIFY(publish(creator, 7));
    const auto former = formerValues(plant.semaphores, 0);
    QVERIFY(plant.semaphores.remove());
    const int set = plant.semaphores.make(former);
    QVERIFY(set >= 0);

    const ReadingRegion reader(plant);

    QVERIFY(reader.isAttached());
    QCOMPARE(plant.semaphores.id(), set);
    QCOMPARE(plant.semaphores.value(formerUsers), 0);
}

/// Whoever made them may have died over it.
void tst_ReadingHandlers::semaphoresThatAreNeverFilledInAreNotJoined()
{
    const ReadPlant plant(false);
    LiveRegion creator(plant);
    QVERIFY(publish(creator, 7));
    QVERIFY(plant.semaphores.remove());
    const int unfinished = semget(SystemVSemaphoreBaseClass::systemVKey(plant.semaphores.key()),
                                  SemaphoreSet::Names::SemaphoreCount, IPC_CREAT | IPC_EXCL | 0666);
    QVERIFY(unfinished >= 0);

    ReadingRegion reader(plant);

    QVERIFY(reader.isAttached());
    QCOMPARE(plant.semaphores.id(), unfinished);
    QCOMPARE(plant.semaphores.users(), 0);
    QVERIFY(plant.semaphores.remove());
    QCOMPARE(wrongWay(reader, 7), QString());
}

QTEST_GUILESS_MAIN(tst_ReadingHandlers)
#include "tst_ReadingHandlers.moc"
