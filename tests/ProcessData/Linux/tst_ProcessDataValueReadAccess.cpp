#include "ProcessData/Linux/ProcessDataValue.h"
#include "support/FakeBufferHandler.h"
#include "support/LogCapture.h"
#include "support/SlotDescription.h"

using namespace ProcessDataDefinitions;

namespace {

const quint32 bufferSize = 64;
const quint32 valueOffset = 9;
const quint32 metadataOffset = 13;

const auto lockForRead = QStringLiteral("lockForRead");
const auto unlockForRead = QStringLiteral("unlockForRead of read buffer");

/// A bound int32 leaf with metadata on a double buffer.
struct BoundLeaf
{
    explicit BoundLeaf(bool readOnly = false, bool writeReadOnlyAllowed = false)
        : element(
            SlotDescription{QStringLiteral("int32"), valueOffset, 4, 4, 4, 0, readOnly}.toJson(),
            nullptr)
    {
        element.setBufferHandlerInterface(&handler, writeReadOnlyAllowed);
    }

    /// The next @p count reads have to be repeated.
    void demandRepetitions(int count)
    {
        for (int index = 0; index < count; ++index) {
            handler.readUnlocks.enqueue({true, true});
        }
    }
    void publish(qint32 number, ErrorTypes state)
    {
        handler.put(valueOffset, number);
        handler.put(metadataOffset, static_cast<qint32>(state));
    }

    FakeBufferHandler handler{bufferSize};
    ProcessDataValue element;
};

LogLine repetitions(int count)
{
    return info(QStringLiteral("The following number of repetitions were required for reading: %1")
                    .arg(count));
}

QStringList readAttempts(int count)
{
    QStringList calls;
    for (int index = 0; index < count; ++index) {
        calls << lockForRead << unlockForRead;
    }
    return calls;
}

} // namespace

class tst_ProcessDataValueReadAccess : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void readLocksTheReadBuffer();
    void readWithoutLockTakesTheReadBufferAsItIs();
    void readFollowsTheBufferOfTheMoment();
    void valueOfAnErrorIsKeptOnDemand();
    void valueOfAnErrorIsDroppedByDefault();
    void unreliableReadIsRepeated_data();
    void unreliableReadIsRepeated();
    void repetitionReadsAnew();
    void eleventhUnreliableReadIsTheLast();
    void eachAttemptReads();
    void readWithoutLockIsNotRepeated();
    void failedReadLockLeavesTheValue();
    void failedReadLockIsNoReasonToRepeat();
    void failedReadLockKeepsTheDemandForRepetition();
    void failedReadLocksCountAsAttempts();
    void failedUnlockIsReported();
    void failedUnlockWithRepetitionIsRepeated();
    void unlockThatLeavesTheFlagKeepsItsValue();
    void missingReadBufferLeavesTheValue();
    void readOnlyIsReadByEverybody();
};

void tst_ProcessDataValueReadAccess::readLocksTheReadBuffer()
{
    BoundLeaf leaf;
    leaf.publish(-5, PROCESS_VALUE_ERROR_TYPE_VALID);
    ProcessValue value(PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
    LogCapture log;

    leaf.element.getValue(value);

    QCOMPARE(value.getValue(), QVariant(-5));
    QCOMPARE(value.getErrorType(), PROCESS_VALUE_ERROR_TYPE_VALID);
    QCOMPARE(leaf.handler.takeCalls(), readAttempts(1));
    COMPARE_LOG(log);
}

void tst_ProcessDataValueReadAccess::readWithoutLockTakesTheReadBufferAsItIs()
{
    BoundLeaf leaf;
    leaf.publish(-5, PROCESS_VALUE_ERROR_TYPE_VALID);
    ProcessValue value(PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
    LogCapture log;

    leaf.element.getValueNoLock(value);

    QCOMPARE(value.getValue(), QVariant(-5));
    QCOMPARE(value.getErrorType(), PROCESS_VALUE_ERROR_TYPE_VALID);
    QCOMPARE(leaf.handler.takeCalls(), QStringList{QStringLiteral("readBufferPointer")});
    COMPARE_LOG(log);
}

void tst_ProcessDataValueReadAccess::readFollowsTheBufferOfTheMoment()
{
    BoundLeaf leaf;
    ProcessValue value(PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
    leaf.publish(1, PROCESS_VALUE_ERROR_TYPE_VALID);
    leaf.handler.swapBuffers();
    leaf.publish(2, PROCESS_VALUE_ERROR_TYPE_VALID);

    leaf.element.getValue(value);
    QCOMPARE(value.getValue(), QVariant(2));

    leaf.handler.swapBuffers();
    leaf.element.getValue(value);
    QCOMPARE(value.getValue(), QVariant(1));
    leaf.handler.swapBuffers();
    leaf.element.getValueNoLock(value);
    QCOMPARE(value.getValue(), QVariant(2));
}

void tst_ProcessDataValueReadAccess::valueOfAnErrorIsKeptOnDemand()
{
    BoundLeaf leaf;
    leaf.publish(7, PROCESS_VALUE_ERROR_TYPE_OVERRANGE);
    ProcessValue locked(PROCESS_VALUE_ERROR_TYPE_VALID);
    ProcessValue unlocked(PROCESS_VALUE_ERROR_TYPE_VALID);

    leaf.element.getValue(locked, true);
    leaf.element.getValueNoLock(unlocked, true);

    QCOMPARE(locked.getValue(), QVariant(7));
    QCOMPARE(locked.getErrorType(), PROCESS_VALUE_ERROR_TYPE_OVERRANGE);
    QCOMPARE(unlocked.getValue(), QVariant(7));
    QCOMPARE(unlocked.getErrorType(), PROCESS_VALUE_ERROR_TYPE_OVERRANGE);
}

void tst_ProcessDataValueReadAccess::valueOfAnErrorIsDroppedByDefault()
{
    BoundLeaf leaf;
    leaf.publish(7, PROCESS_VALUE_ERROR_TYPE_OVERRANGE);
    ProcessValue locked(1, PROCESS_VALUE_ERROR_TYPE_VALID);
    ProcessValue unlocked(1, PROCESS_VALUE_ERROR_TYPE_VALID);

    leaf.element.getValue(locked);
    leaf.element.getValueNoLock(unlocked);

    QCOMPARE(locked.getValue(), QVariant());
    QCOMPARE(locked.getErrorType(), PROCESS_VALUE_ERROR_TYPE_OVERRANGE);
    QCOMPARE(unlocked.getValue(), QVariant());
    QCOMPARE(unlocked.getErrorType(), PROCESS_VALUE_ERROR_TYPE_OVERRANGE);
}

void tst_ProcessDataValueReadAccess::unreliableReadIsRepeated_data()
{
    QTest::addColumn<int>("attempts");
    QTest::addColumn<bool>("isReported");

    QTest::newRow("second attempt") << 2 << false;
    QTest::newRow("third attempt") << 3 << false;
    QTest::newRow("fourth attempt") << 4 << true;
    QTest::newRow("tenth attempt") << 10 << true;
    QTest::newRow("eleventh attempt") << 11 << true;
}

void tst_ProcessDataValueReadAccess::unreliableReadIsRepeated()
{
    QFETCH(int, attempts);
    QFETCH(bool, isReported);
    BoundLeaf leaf;
    leaf.publish(7, PROCESS_VALUE_ERROR_TYPE_VALID);
    leaf.demandRepetitions(attempts - 1);
    ProcessValue value(PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
    LogCapture log;

    leaf.element.getValue(value);

    QCOMPARE(log.take(), isReported ? QList<LogLine>{repetitions(attempts)} : QList<LogLine>());
    QCOMPARE(leaf.handler.takeCalls(), readAttempts(attempts));
    QCOMPARE(value.getValue(), QVariant(7));
    QCOMPARE(value.getErrorType(), PROCESS_VALUE_ERROR_TYPE_VALID);
}

void tst_ProcessDataValueReadAccess::repetitionReadsAnew()
{
    BoundLeaf leaf;
    leaf.demandRepetitions(1);
    leaf.handler.onLockForRead = [&leaf](int attempt) {
        leaf.publish(10 * attempt, static_cast<ErrorTypes>(attempt));
    };
    ProcessValue value(PROCESS_VALUE_ERROR_TYPE_TIMEOUT);

    leaf.element.getValue(value, true);

    QCOMPARE(value.getValue(), QVariant(20));
    QCOMPARE(value.getErrorType(), PROCESS_VALUE_ERROR_TYPE_OVERRANGE);
}

void tst_ProcessDataValueReadAccess::eleventhUnreliableReadIsTheLast()
{
    BoundLeaf leaf;
    leaf.demandRepetitions(20);
    leaf.handler.onLockForRead = [&leaf](int attempt) {
        leaf.publish(10 * attempt, static_cast<ErrorTypes>(attempt));
    };
    ProcessValue value(7, PROCESS_VALUE_ERROR_TYPE_VALID);
    LogCapture log;

    leaf.element.getValue(value, true);

    COMPARE_LOG(log, warning(QStringLiteral("Reading does not work.")));
    QCOMPARE(leaf.handler.takeCalls(), readAttempts(11));
    QCOMPARE(value.getValue(), QVariant());
    QCOMPARE(static_cast<int>(value.getErrorType()), 11);
}

void tst_ProcessDataValueReadAccess::eachAttemptReads()
{
    // Reading this slot leaves a trace in the log.
    FakeBufferHandler handler(bufferSize);
    ProcessDataValue element(SlotDescription{QStringLiteral("string"), 0, 1}.toJson(), nullptr);
    element.setBufferHandlerInterface(&handler, false);
    for (int index = 0; index < 11; ++index) {
        handler.readUnlocks.enqueue({true, true});
    }
    ProcessValue value(PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
    LogCapture log;

    element.getValue(value);

    QList<LogLine> expected;
    for (int index = 0; index < 11; ++index) {
        expected.append(warning(QStringLiteral("Buffer to small.")));
    }
    expected.append(warning(QStringLiteral("Reading does not work.")));
    QCOMPARE(log.take(), expected);
    QCOMPARE(value.getValue(), QVariant());
    QCOMPARE(value.getErrorType(), PROCESS_VALUE_ERROR_TYPE_VALID);
}

void tst_ProcessDataValueReadAccess::readWithoutLockIsNotRepeated()
{
    BoundLeaf leaf;
    leaf.demandRepetitions(1);
    ProcessValue value(PROCESS_VALUE_ERROR_TYPE_TIMEOUT);

    leaf.element.getValueNoLock(value);

    QCOMPARE(leaf.handler.takeCalls(), QStringList{QStringLiteral("readBufferPointer")});
    QCOMPARE(leaf.handler.readUnlocks.size(), 1);
}

void tst_ProcessDataValueReadAccess::failedReadLockLeavesTheValue()
{
    BoundLeaf leaf;
    leaf.publish(7, PROCESS_VALUE_ERROR_TYPE_VALID);
    leaf.handler.readLocks.enqueue(false);
    ProcessValue value(1, PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
    LogCapture log;

    leaf.element.getValue(value, false);

    COMPARE_LOG(log, warning(QStringLiteral("Pointer to readBuffer is 0!")));
    QCOMPARE(value.getValue(), QVariant(1));
    QCOMPARE(value.getErrorType(), PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
}

void tst_ProcessDataValueReadAccess::failedReadLockIsNoReasonToRepeat()
{
    BoundLeaf leaf;
    leaf.handler.readLocks.enqueue(false);
    ProcessValue value(PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
    LogCapture log;

    leaf.element.getValue(value);

    QCOMPARE(leaf.handler.takeCalls(), QStringList{lockForRead});
    QCOMPARE(log.take().size(), 1);
}

void tst_ProcessDataValueReadAccess::failedReadLockKeepsTheDemandForRepetition()
{
    BoundLeaf leaf;
    leaf.publish(7, PROCESS_VALUE_ERROR_TYPE_VALID);
    leaf.demandRepetitions(1);
    leaf.handler.readLocks << true << false << false;
    ProcessValue value(PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
    LogCapture log;

    leaf.element.getValue(value);

    COMPARE_LOG(log, warning(QStringLiteral("Pointer to readBuffer is 0!")),
                warning(QStringLiteral("Pointer to readBuffer is 0!")), repetitions(4));
    QCOMPARE(leaf.handler.takeCalls(), (QStringList{lockForRead, unlockForRead, lockForRead,
                                                    lockForRead, lockForRead, unlockForRead}));
    QCOMPARE(value.getValue(), QVariant(7));
}

void tst_ProcessDataValueReadAccess::failedReadLocksCountAsAttempts()
{
    BoundLeaf leaf;
    leaf.publish(7, PROCESS_VALUE_ERROR_TYPE_OVERRANGE);
    leaf.demandRepetitions(1);
    leaf.handler.readLocks.enqueue(true);
    QList<LogLine> expected;
    for (int index = 0; index < 10; ++index) {
        leaf.handler.readLocks.enqueue(false);
        expected.append(warning(QStringLiteral("Pointer to readBuffer is 0!")));
    }
    expected.append(warning(QStringLiteral("Reading does not work.")));
    ProcessValue value(PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
    LogCapture log;

    leaf.element.getValue(value, true);

    QCOMPARE(log.take(), expected);
    QCOMPARE(value.getValue(), QVariant());
    QCOMPARE(value.getErrorType(), PROCESS_VALUE_ERROR_TYPE_OVERRANGE);
    QCOMPARE(leaf.handler.readLocks.size(), 0);
}

void tst_ProcessDataValueReadAccess::failedUnlockIsReported()
{
    BoundLeaf leaf;
    leaf.publish(7, PROCESS_VALUE_ERROR_TYPE_VALID);
    leaf.handler.readUnlocks.enqueue({false, false});
    ProcessValue value(PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
    LogCapture log;

    leaf.element.getValue(value);

    COMPARE_LOG(log, warning(QStringLiteral("Unlock does not work.")));
    QCOMPARE(leaf.handler.takeCalls(), readAttempts(1));
    QCOMPARE(value.getValue(), QVariant(7));
    QCOMPARE(value.getErrorType(), PROCESS_VALUE_ERROR_TYPE_VALID);
}

void tst_ProcessDataValueReadAccess::failedUnlockWithRepetitionIsRepeated()
{
    BoundLeaf leaf;
    leaf.handler.readUnlocks.enqueue({false, true});
    ProcessValue value(PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
    LogCapture log;

    leaf.element.getValue(value);

    COMPARE_LOG(log, warning(QStringLiteral("Unlock does not work.")));
    QCOMPARE(leaf.handler.takeCalls(), readAttempts(2));
}

void tst_ProcessDataValueReadAccess::unlockThatLeavesTheFlagKeepsItsValue()
{
    BoundLeaf first;
    first.handler.readUnlocks.enqueue({true, std::nullopt});
    BoundLeaf second;
    second.demandRepetitions(1);
    second.handler.readUnlocks.enqueue({true, std::nullopt});
    ProcessValue value(PROCESS_VALUE_ERROR_TYPE_TIMEOUT);

    first.element.getValue(value);
    second.element.getValue(value);

    QCOMPARE(first.handler.takeCalls(), readAttempts(1));
    QCOMPARE(second.handler.takeCalls(), readAttempts(3));
}

void tst_ProcessDataValueReadAccess::missingReadBufferLeavesTheValue()
{
    BoundLeaf leaf;
    leaf.handler.hasReadBuffer = false;
    ProcessValue value(1, PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
    LogCapture log;

    leaf.element.getValueNoLock(value, false);

    COMPARE_LOG(log, warning(QStringLiteral("Pointer to readBuffer is 0!")));
    QCOMPARE(leaf.handler.takeCalls(), QStringList{QStringLiteral("readBufferPointer")});
    QCOMPARE(value.getValue(), QVariant(1));
    QCOMPARE(value.getErrorType(), PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
}

void tst_ProcessDataValueReadAccess::readOnlyIsReadByEverybody()
{
    BoundLeaf leaf(true, false);
    leaf.publish(7, PROCESS_VALUE_ERROR_TYPE_VALID);
    ProcessValue value(PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
    LogCapture log;

    leaf.element.getValue(value);

    QCOMPARE(value.getValue(), QVariant(7));
    COMPARE_LOG(log);
}

QTEST_GUILESS_MAIN(tst_ProcessDataValueReadAccess)
#include "tst_ProcessDataValueReadAccess.moc"
