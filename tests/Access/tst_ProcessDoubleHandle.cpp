#include "Access/NumberRegion.h"
#include "Access/ProcessDoubleHandle.h"
#include "Companion/PingPongBufferHandler.h"
#include "support/ChildProcess.h"
#include "support/FakeBufferHandler.h"
#include "support/LogCapture.h"

#include <QtTest>

using namespace ProcessDataDefinitions;

namespace {

/// A double whose halves are one pattern, in a state that follows from it: torn, it shows.
double patternNumber(quint32 number)
{
    const quint64 bits = (quint64{number} << 32) | number;
    double value = 0;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

bool isWhole(double value, ErrorTypes state)
{
    quint64 bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    const auto low = static_cast<quint32>(bits);
    return low == bits >> 32 && (state == 0 ? 0U : 1U) == low % 2;
}

SlotDescription doubleSlot(quint32 offset)
{
    SlotDescription slot;
    slot.type = QStringLiteral("double");
    slot.offset = offset;
    slot.sizeValue = 8;
    slot.sizeMetadata = 4;
    slot.relativeOffsetMetadata = 8;
    return slot;
}

/// A leaf "level", whose value crosses two words of eight bytes.
struct LevelDescription : ProcessDescription
{
    LevelDescription() : ProcessDescription(24, true)
    {
        leaves.insert(QStringLiteral("level"), doubleSlot(4));
    }
};

bool publish(LiveRegion &region, double value, ErrorTypes state = PROCESS_VALUE_ERROR_TYPE_VALID)
{
    return region.leaf(QStringLiteral("level"))->setValue(ProcessValue(QVariant(value), state))
           && region.manager.swapReadAndWriteBuffer();
}

/// Puts a number with any state into the slot, which setValue() would empty.
void publishRaw(LiveRegion &region, quint32 number)
{
    const double value = patternNumber(number);
    const qint32 state = number % 2 == 0 ? 0 : 2;
    region.manager.lockWriteBuffer();
    unsigned char *const slot = region.manager.getPointerWriteBuffer() + 4;
    std::memcpy(slot, &value, sizeof value);
    std::memcpy(slot + sizeof value, &state, sizeof state);
    region.manager.unlockWriteBuffer();
    region.manager.swapReadAndWriteBuffer();
}

} // namespace

class tst_ProcessDoubleHandle : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void agreesWithGetValueOnAnyBytes_data();
    void agreesWithGetValueOnAnyBytes();
    void encodedStatesOfAFloatAreRecognised();
    void writesWhatSetValueWrites();
    void refusedLeavesMakeNoHandle();
    void slotOutsideTheBufferIsNotRead();
    void staysWithTheBufferOfAReadLock();
    void foreignHandlerSeesTheUsualCalls();
    void followsALeafThatIsBoundAnew();
    void stateMayLieAnywhere();
    void copiesReadOnWhenTheirOriginalIsGone();
    void hostileManagementWordsEndAfterElevenAttempts();
    void noValueIsTornBesideAWriter();
    void stoppedAndKilledWriterDisturbsNobody();
};

void tst_ProcessDoubleHandle::agreesWithGetValueOnAnyBytes_data()
{
    QTest::addColumn<bool>("hasDoubleBuffer");
    QTest::newRow("double buffer") << true;
    QTest::newRow("single buffer") << false;
}

void tst_ProcessDoubleHandle::agreesWithGetValueOnAnyBytes()
{
    QFETCH(bool, hasDoubleBuffer);
    const NumberRegion numbers(hasDoubleBuffer);
    LiveRegion region(numbers.description);
    QRandomGenerator random(7);
    QHash<QString, ProcessDoubleHandle> handles;
    for (const auto &url : numbers.urls()) {
        handles.insert(url, ProcessDoubleHandle(region.root, url));
        QVERIFY2(handles[url].isValid(), qPrintable(url));
    }

    for (int round = 0; round < 50; ++round) {
        region.publishBytes(random);
        for (auto handle = handles.cbegin(); handle != handles.cend(); ++handle) {
            double value = 0;
            ErrorTypes state = PROCESS_VALUE_ERROR_TYPE_TIMEOUT;
            QVERIFY(handle->read(value, state));
            QVERIFY2(agreesWithGetValue(*handle->getLeaf(), value, state),
                     qPrintable(handle.key()));
            double sameValue = 0;
            QVERIFY(handle->readNoLock(sameValue, state));
            QVERIFY2(isSameNumber(value, sameValue), qPrintable(handle.key()));
        }
    }
}

void tst_ProcessDoubleHandle::encodedStatesOfAFloatAreRecognised()
{
    const NumberRegion numbers(true);
    LiveRegion region(numbers.description);
    const QString url = QStringLiteral("float-3");
    const ProcessDoubleHandle handle(region.root, url);

    for (int i = 1; i <= 9; ++i) {
        const auto written = static_cast<ErrorTypes>(i);
        QVERIFY(handle.write(1.5, written));
        QVERIFY(region.manager.swapReadAndWriteBuffer());
        double value = 0;
        ErrorTypes state = PROCESS_VALUE_ERROR_TYPE_VALID;
        QVERIFY(handle.read(value, state));
        QCOMPARE(state, written);
        QVERIFY(agreesWithGetValue(*handle.getLeaf(), value, state));
    }
}

void tst_ProcessDoubleHandle::writesWhatSetValueWrites()
{
    const NumberRegion numbers(true);
    LiveRegion region(numbers.description);

    for (const auto &url : numbers.urls()) {
        const ProcessDoubleHandle handle(region.root, url);
        region.manager.lockWriteBuffer();
        QVERIFY(handle.writeNoLock(1.0));
        region.manager.unlockWriteBuffer();
        region.manager.swapReadAndWriteBuffer();
        double value = 0;
        ErrorTypes state = PROCESS_VALUE_ERROR_TYPE_TIMEOUT;
        QVERIFY(handle.read(value, state));
        QCOMPARE(value, 1.0);
        QCOMPARE(state, PROCESS_VALUE_ERROR_TYPE_VALID);
    }
}

void tst_ProcessDoubleHandle::refusedLeavesMakeNoHandle()
{
    LevelDescription description;
    SlotDescription text;
    text.type = QStringLiteral("string");
    text.offset = 16;
    text.sizeValue = 8;
    description.leaves.insert(QStringLiteral("name"), text);
    LiveRegion region(description);
    const auto unbound = description.parse();
    LogCapture log;

    QVERIFY(!ProcessDoubleHandle().isValid());
    QVERIFY(!ProcessDoubleHandle(ProcessDataValueSharedPointer()).isValid());
    QVERIFY(!ProcessDoubleHandle({}, QStringLiteral("level")).isValid());
    QVERIFY(!ProcessDoubleHandle(region.root, QStringLiteral("nowhere")).isValid());
    QVERIFY(!ProcessDoubleHandle(region.root, QStringLiteral("name")).isValid());
    const ProcessDoubleHandle refused(unbound, QStringLiteral("level"));
    QVERIFY(!refused.isValid());
    COMPARE_LOG(log, warning(QStringLiteral("No process value at \"the given leaf\"")),
                warning(QStringLiteral("No process value at \"level\"")),
                warning(QStringLiteral("No process value at \"nowhere\"")),
                warning(QStringLiteral("Process value is no number: \"name\"")),
                warning(QStringLiteral("Process value is not bound to a memory: \"level\"")));

    double value = 4.5;
    ErrorTypes state = PROCESS_VALUE_ERROR_TYPE_TIMEOUT;
    QVERIFY(!refused.read(value, state));
    QVERIFY(!refused.readNoLock(value, state));
    QVERIFY(!refused.write(1.0));
    QVERIFY(!refused.writeNoLock(1.0));
    QCOMPARE(value, 4.5);
    QCOMPARE(state, PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
}

void tst_ProcessDoubleHandle::slotOutsideTheBufferIsNotRead()
{
    LevelDescription description;
    description.leaves.insert(QStringLiteral("beyond"), doubleSlot(17));
    SlotDescription farState = doubleSlot(0);
    farState.relativeOffsetMetadata = 0xFFFFFFFF;
    description.leaves.insert(QStringLiteral("far state"), farState);
    LiveRegion region(description);

    for (const auto &url : {QStringLiteral("beyond"), QStringLiteral("far state")}) {
        const ProcessDoubleHandle handle(region.root, url);
        LogCapture log;
        double value = 4.5;
        ErrorTypes state = PROCESS_VALUE_ERROR_TYPE_TIMEOUT;
        QVERIFY(!handle.read(value, state));
        QVERIFY(!handle.readNoLock(value, state));
        QVERIFY(!handle.write(1.0));
        QCOMPARE(value, 4.5);
        QCOMPARE(state, PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
        QCOMPARE(log.take().size(), 3);
    }
}

void tst_ProcessDoubleHandle::staysWithTheBufferOfAReadLock()
{
    const LevelDescription description;
    LiveRegion region(description);
    const ProcessDoubleHandle handle(region.root, QStringLiteral("level"));
    QVERIFY(publish(region, 1.0));
    double value = 0;
    ErrorTypes state = PROCESS_VALUE_ERROR_TYPE_TIMEOUT;

    region.manager.lockReadBuffer();
    QVERIFY(publish(region, 2.0));
    QVERIFY(handle.read(value, state));
    QCOMPARE(value, 1.0);
    bool repeat = true;
    QVERIFY(region.manager.unlockReadBuffer(repeat));

    QVERIFY(!repeat);
    QVERIFY(handle.read(value, state));
    QCOMPARE(value, 2.0);
}

void tst_ProcessDoubleHandle::foreignHandlerSeesTheUsualCalls()
{
    FakeBufferHandler handler(24);
    const auto leaf = QSharedPointer<ProcessDataValue>::create(doubleSlot(4).toJson(), nullptr);
    leaf->setBufferHandlerInterface(&handler, true);
    handler.put(4, 7.25);
    handler.put(12, qint32{2});
    const ProcessDoubleHandle handle(leaf);
    double value = 0;
    ErrorTypes state = PROCESS_VALUE_ERROR_TYPE_TIMEOUT;

    handler.readUnlocks.enqueue({true, true});
    QVERIFY(handle.read(value, state));

    QCOMPARE(value, 7.25);
    QCOMPARE(state, PROCESS_VALUE_ERROR_TYPE_OVERRANGE);
    const QStringList attempt{QStringLiteral("lockForRead"),
                              QStringLiteral("unlockForRead of read buffer")};
    QCOMPARE(handler.takeCalls(), attempt + attempt);
    QVERIFY(handle.readNoLock(value, state));
    QCOMPARE(handler.takeCalls(), QStringList{QStringLiteral("readBufferPointer")});
    handler.readLocks.enqueue(false);
    LogCapture log;
    QVERIFY(!handle.read(value, state));
    COMPARE_LOG(log, warning(QStringLiteral("Pointer to readBuffer is 0!")));
}

void tst_ProcessDoubleHandle::followsALeafThatIsBoundAnew()
{
    const LevelDescription description;
    LiveRegion region(description);
    QVERIFY(publish(region, 1.0));
    const auto leaf = region.leaf(QStringLiteral("level"));
    const ProcessDoubleHandle handle(leaf);
    FakeBufferHandler handler(24);
    handler.put(4, 7.25);
    double value = 0;
    ErrorTypes state = PROCESS_VALUE_ERROR_TYPE_TIMEOUT;

    leaf->setBufferHandlerInterface(&handler, true);
    QVERIFY(handle.read(value, state));

    QCOMPARE(value, 7.25);
}

void tst_ProcessDoubleHandle::stateMayLieAnywhere()
{
    QRandomGenerator random(23);
    LevelDescription description;
    description.size = 256;
    for (int i = 0; i < 40; ++i) {
        SlotDescription slot = doubleSlot(random.bounded(120U));
        slot.relativeOffsetMetadata = random.bounded(120U);
        slot.sizeMetadata = i % 5 == 0 ? 0 : 4;
        description.leaves.insert(QStringLiteral("leaf%1").arg(i), slot);
    }
    LiveRegion region(description);

    for (int round = 0; round < 20; ++round) {
        region.publishBytes(random);
        for (int i = 0; i < 40; ++i) {
            const ProcessDoubleHandle handle(region.root, QStringLiteral("leaf%1").arg(i));
            double value = 0;
            ErrorTypes state = PROCESS_VALUE_ERROR_TYPE_TIMEOUT;
            QVERIFY(handle.read(value, state));
            QVERIFY(agreesWithGetValue(*handle.getLeaf(), value, state));
        }
    }
}

void tst_ProcessDoubleHandle::copiesReadOnWhenTheirOriginalIsGone()
{
    const LevelDescription description;
    LiveRegion region(description);
    QVERIFY(publish(region, 1.5));
    ProcessDoubleHandle original(region.root, QStringLiteral("level"));
    const ProcessDoubleHandle copy = std::move(original);
    double value = 0;
    ErrorTypes state = PROCESS_VALUE_ERROR_TYPE_TIMEOUT;

    // What others move away stays whole here.
    QVERIFY(original.read(value, state));
    QCOMPARE(value, 1.5);
    original = ProcessDoubleHandle();
    QVERIFY(!original.read(value, state));
    QVERIFY(publish(region, 2.5));
    QVERIFY(copy.read(value, state));
    QCOMPARE(value, 2.5);
}

void tst_ProcessDoubleHandle::hostileManagementWordsEndAfterElevenAttempts()
{
    const LevelDescription description;
    LiveRegion region(description);
    const ProcessDoubleHandle handle(region.root, QStringLiteral("level"));
    // The management block lies in front of the first buffer.
    region.manager.lockReadBuffer();
    unsigned char *const readBuffer = region.manager.getPointerReadBuffer();
    bool repeat = false;
    region.manager.unlockReadBuffer(repeat);
    // Creating has swapped once.
    auto *const management = reinterpret_cast<PingPongBufferHandler::ManagementBuffer *>(
        readBuffer - 24 - PingPongBufferHandler::getSizeManagementBuffer());
    QCOMPARE(management->swapCount.load(), quint64{1});
    management->writeEpoch[1].store(~quint64{0});
    double value = 4.5;
    ErrorTypes state = PROCESS_VALUE_ERROR_TYPE_TIMEOUT;
    LogCapture log;

    QVERIFY(!handle.read(value, state));

    COMPARE_LOG(log, warning(QStringLiteral("Reading does not work.")));
    QCOMPARE(value, 4.5);
    management->writeEpoch[1].store(0);
    QVERIFY(handle.read(value, state));
    QCOMPARE(state, PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE);
}

void tst_ProcessDoubleHandle::noValueIsTornBesideAWriter()
{
    const LevelDescription description;
    LiveRegion region(description);
    publishRaw(region, 1000);
    const ProcessDoubleHandle handle(region.root, QStringLiteral("level"));
    ChildProcess writer([&](const ChildSide &parent) {
        LiveRegion attached(description, ProcessDataManager::InitTypeSharedMemoryAttach);
        parent.say();
        for (quint32 number = 1001; number < 31001 || !parent.hasWord(); ++number) {
            publishRaw(attached, number);
            if (number == 31000) {
                parent.say();
            }
        }
        return 0;
    });
    QVERIFY(writer.waitUntilReady());
    LogCapture log;

    do {
        for (int i = 0; i < 1000; ++i) {
            double value = 0;
            ErrorTypes state = PROCESS_VALUE_ERROR_TYPE_TIMEOUT;
            QVERIFY(handle.read(value, state));
            QVERIFY(isWhole(value, state));
        }
    } while (!writer.hasSpoken() && !writer.hasEnded());
    writer.tell();

    QCOMPARE(writer.waitForExit(), 0);
    // Three attempts are not worth a line, more of them are.
    COMPARE_LOG(log);
}

void tst_ProcessDoubleHandle::stoppedAndKilledWriterDisturbsNobody()
{
    const LevelDescription description;
    LiveRegion region(description);
    QVERIFY(publish(region, 1.0));
    const ProcessDoubleHandle handle(region.root, QStringLiteral("level"));
    double value = 0;
    ErrorTypes state = PROCESS_VALUE_ERROR_TYPE_TIMEOUT;
    ChildProcess writer([&](const ChildSide &parent) {
        LiveRegion attached(description, ProcessDataManager::InitTypeSharedMemoryAttach);
        attached.manager.lockWriteBuffer();
        attached.leaf(QStringLiteral("level"))
            ->setValueNoLock(ProcessValue(QVariant(2.0), PROCESS_VALUE_ERROR_TYPE_VALID));
        parent.say();
        parent.waitForWord();
        return 0;
    });
    QVERIFY(writer.waitUntilReady());

    QVERIFY(writer.stop());
    QVERIFY(handle.read(value, state));
    QCOMPARE(value, 1.0);
    QVERIFY(writer.kill());
    QVERIFY(handle.read(value, state));
    QCOMPARE(value, 1.0);
    QVERIFY(publish(region, 3.0));
    QVERIFY(handle.read(value, state));
    QCOMPARE(value, 3.0);
}

QTEST_GUILESS_MAIN(tst_ProcessDoubleHandle)

#include "tst_ProcessDoubleHandle.moc"
