#include "ProcessData/Linux/ProcessDataValue.h"
#include "support/FakeBufferHandler.h"
#include "support/LogCapture.h"
#include "support/SlotDescription.h"

#include <QDate>

using namespace ProcessDataDefinitions;

namespace {

const quint32 bufferSize = 64;
const quint32 valueOffset = 9;
const quint32 metadataOffset = 13;

const auto lockForWrite = QStringLiteral("lockForWrite");
const auto unlockForWrite = QStringLiteral("unlockForWrite of write buffer");

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

    void publish(qint32 number, ErrorTypes state)
    {
        handler.put(valueOffset, number);
        handler.put(metadataOffset, static_cast<qint32>(state));
    }

    FakeBufferHandler handler{bufferSize};
    ProcessDataValue element;
};

} // namespace

class tst_ProcessDataValueWriteAccess : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void writeLocksTheWriteBuffer();
    void writeWithoutLockTakesTheWriteBufferAsItIs();
    void writeNeverSwaps();
    void failedWriteLockIsReported();
    void missingWriteBufferIsReported();
    void failedWriteUnlockIsIgnored();
    void readOnlyIsRefusedInAttachedProcess();
    void readOnlyIsWrittenByTheCreator();
    void readOnlyIsTestedBeforeTheValue();
    void valueOfAWrongTypeIsRefused_data();
    void valueOfAWrongTypeIsRefused();
    void invalidVariantIsWrittenAsErrorThree();
    void errorWithContentOfAWrongTypeIsWritten();
    void errorWithContentWritesZeroAndTheState();
    void refusedWriteReturnsFalseUnderLock();
};

void tst_ProcessDataValueWriteAccess::writeLocksTheWriteBuffer()
{
    BoundLeaf leaf;
    LogCapture log;

    QCOMPARE(leaf.element.setValue({-1, PROCESS_VALUE_ERROR_TYPE_VALID}), true);

    QCOMPARE(leaf.handler.takeCalls(), (QStringList{lockForWrite, unlockForWrite}));
    QCOMPARE(leaf.handler.writtenHex(valueOffset - 1, 9), QByteArray("00ffffffff00000000"));
    COMPARE_LOG(log);
}

void tst_ProcessDataValueWriteAccess::writeWithoutLockTakesTheWriteBufferAsItIs()
{
    BoundLeaf leaf;
    LogCapture log;

    QCOMPARE(leaf.element.setValueNoLock({-1, PROCESS_VALUE_ERROR_TYPE_VALID}), true);

    QCOMPARE(leaf.handler.takeCalls(), QStringList{QStringLiteral("writeBufferPointer")});
    QCOMPARE(leaf.handler.writtenHex(valueOffset - 1, 9), QByteArray("00ffffffff00000000"));
    COMPARE_LOG(log);
}

void tst_ProcessDataValueWriteAccess::writeNeverSwaps()
{
    BoundLeaf leaf;
    leaf.publish(7, PROCESS_VALUE_ERROR_TYPE_VALID);
    ProcessValue value(PROCESS_VALUE_ERROR_TYPE_TIMEOUT);

    QCOMPARE(leaf.element.setValue({8, PROCESS_VALUE_ERROR_TYPE_VALID}), true);
    QCOMPARE(leaf.element.setValueNoLock({9, PROCESS_VALUE_ERROR_TYPE_VALID}), true);

    leaf.element.getValue(value);
    QCOMPARE(value.getValue(), QVariant(7));
    leaf.handler.swapBuffers();
    leaf.element.getValue(value);
    QCOMPARE(value.getValue(), QVariant(9));
}

void tst_ProcessDataValueWriteAccess::failedWriteLockIsReported()
{
    BoundLeaf leaf;
    leaf.handler.writeLockFails = true;
    LogCapture log;

    QCOMPARE(leaf.element.setValue({-1, PROCESS_VALUE_ERROR_TYPE_VALID}), false);

    COMPARE_LOG(log, warning(QStringLiteral("Pointer to pingpongbuffer is nullptr.")));
    QCOMPARE(leaf.handler.takeCalls(), QStringList{lockForWrite});
    QCOMPARE(leaf.handler.writeContent(), QByteArray(bufferSize, '\0'));
}

void tst_ProcessDataValueWriteAccess::missingWriteBufferIsReported()
{
    BoundLeaf leaf;
    leaf.handler.hasWriteBuffer = false;
    LogCapture log;

    QCOMPARE(leaf.element.setValueNoLock({-1, PROCESS_VALUE_ERROR_TYPE_VALID}), false);

    COMPARE_LOG(log, warning(QStringLiteral("Pointer to pingpongbuffer is nullptr.")));
    QCOMPARE(leaf.handler.takeCalls(), QStringList{QStringLiteral("writeBufferPointer")});
}

void tst_ProcessDataValueWriteAccess::failedWriteUnlockIsIgnored()
{
    BoundLeaf leaf;
    leaf.handler.writeUnlockFails = true;
    LogCapture log;

    QCOMPARE(leaf.element.setValue({-1, PROCESS_VALUE_ERROR_TYPE_VALID}), true);

    COMPARE_LOG(log);
}

void tst_ProcessDataValueWriteAccess::readOnlyIsRefusedInAttachedProcess()
{
    BoundLeaf leaf(true, false);
    const ProcessValue value(5, 12, PROCESS_VALUE_ERROR_TYPE_VALID);
    const auto message = warning(
        QStringLiteral("ProcessValue hasn't written because it is readOnly. "
                       "QVariant(int, 5) \"PROCESS_VALUE_ERROR_TYPE_VALID\" 12"));
    LogCapture log;

    QCOMPARE(leaf.element.setValue(value), false);
    QCOMPARE(leaf.element.setValueNoLock(value), false);

    COMPARE_LOG(log, message, message);
    QCOMPARE(leaf.handler.takeCalls(), QStringList());
    QCOMPARE(leaf.handler.writeContent(), QByteArray(bufferSize, '\0'));
}

void tst_ProcessDataValueWriteAccess::readOnlyIsWrittenByTheCreator()
{
    BoundLeaf leaf(true, true);
    LogCapture log;

    QCOMPARE(leaf.element.setValue({-1, PROCESS_VALUE_ERROR_TYPE_VALID}), true);

    QCOMPARE(leaf.handler.writtenHex(valueOffset, 4), QByteArray("ffffffff"));
    COMPARE_LOG(log);
}

void tst_ProcessDataValueWriteAccess::readOnlyIsTestedBeforeTheValue()
{
    BoundLeaf leaf(true, false);
    LogCapture log;

    QCOMPARE(leaf.element.setValue({QDate(), PROCESS_VALUE_ERROR_TYPE_VALID}), false);
    QCOMPARE(leaf.element.setValue(PROCESS_VALUE_ERROR_TYPE_TIMEOUT), false);

    COMPARE_LOG(
        log,
        warning(QStringLiteral("ProcessValue hasn't written because it is readOnly. "
                               "QVariant(QDate, QDate(Invalid)) "
                               "\"PROCESS_VALUE_ERROR_TYPE_VALID\" 0")),
        warning(QStringLiteral("ProcessValue hasn't written because it is readOnly. "
                               "QVariant(Invalid) \"PROCESS_VALUE_ERROR_TYPE_TIMEOUT\" 0")));
}

void tst_ProcessDataValueWriteAccess::valueOfAWrongTypeIsRefused_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<quint32>("sizeValue");
    QTest::addColumn<QVariant>("content");
    QTest::addColumn<QString>("message");

    QTest::newRow("date for int32") << QStringLiteral("int32") << 4U << QVariant(QDate())
                                    << QStringLiteral("Wrong type:  QVariant::QDate  !=  2");
    QTest::newRow("list for float")
        << QStringLiteral("float") << 4U << QVariant(QVariantList())
        << QStringLiteral("Wrong type:  QVariant::QVariantList  !=  38");
    QTest::newRow("nothing for double") << QStringLiteral("double") << 8U << QVariant()
                                        << QStringLiteral("Wrong type:  QVariant::Invalid  !=  6");
    QTest::newRow("nothing for text") << QStringLiteral("string") << 8U << QVariant()
                                      << QStringLiteral("Wrong type:  QVariant::Invalid  !=  10");
    QTest::newRow("map for boolean") << QStringLiteral("boolean") << 1U << QVariant(QVariantMap())
                                     << QStringLiteral("Wrong type:  QVariant::QVariantMap  !=  1");
}

void tst_ProcessDataValueWriteAccess::valueOfAWrongTypeIsRefused()
{
    QFETCH(QString, type);
    QFETCH(quint32, sizeValue);
    QFETCH(QVariant, content);
    QFETCH(QString, message);
    FakeBufferHandler handler(bufferSize);
    ProcessDataValue element(SlotDescription{type, 0, sizeValue, 4, sizeValue}.toJson(), nullptr);
    element.setBufferHandlerInterface(&handler, true);
    // Set afterwards, the missing content leaves the state valid.
    ProcessValue value(1, PROCESS_VALUE_ERROR_TYPE_VALID);
    value.setValue(content);
    LogCapture log;

    QCOMPARE(element.setValue(value), false);
    QCOMPARE(element.setValueNoLock(value), false);

    COMPARE_LOG(log, warning(message), warning(message));
    QCOMPARE(handler.takeCalls(), QStringList());
    QCOMPARE(handler.writeContent(), QByteArray(bufferSize, '\0'));
}

void tst_ProcessDataValueWriteAccess::invalidVariantIsWrittenAsErrorThree()
{
    BoundLeaf leaf;

    QCOMPARE(leaf.element.setValue(ProcessValue(QVariant(), PROCESS_VALUE_ERROR_TYPE_VALID)), true);

    leaf.handler.swapBuffers();
    ProcessValue value(PROCESS_VALUE_ERROR_TYPE_VALID);
    leaf.element.getValue(value, true);
    QCOMPARE(value.getErrorType(), PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE);
    QCOMPARE(value.getValue(), QVariant(0));
}

void tst_ProcessDataValueWriteAccess::errorWithContentOfAWrongTypeIsWritten()
{
    BoundLeaf leaf;
    LogCapture log;

    QCOMPARE(leaf.element.setValue({QDate(), PROCESS_VALUE_ERROR_TYPE_DIVISION_BY_ZERO}), true);

    leaf.handler.swapBuffers();
    ProcessValue value(PROCESS_VALUE_ERROR_TYPE_VALID);
    leaf.element.getValue(value, false);
    QCOMPARE(value.getErrorType(), PROCESS_VALUE_ERROR_TYPE_DIVISION_BY_ZERO);
    COMPARE_LOG(log);
}

void tst_ProcessDataValueWriteAccess::errorWithContentWritesZeroAndTheState()
{
    BoundLeaf leaf;
    QCOMPARE(leaf.element.setValue({-1, PROCESS_VALUE_ERROR_TYPE_VALID}), true);

    QCOMPARE(leaf.element.setValue({1.5, PROCESS_VALUE_ERROR_TYPE_INCORRECT_MATHEMATIC_VALUE}),
             true);

    leaf.handler.swapBuffers();
    ProcessValue value(PROCESS_VALUE_ERROR_TYPE_VALID);
    leaf.element.getValue(value, true);
    QCOMPARE(value.getErrorType(), PROCESS_VALUE_ERROR_TYPE_INCORRECT_MATHEMATIC_VALUE);
    QCOMPARE(value.getValue(), QVariant(0));
}

void tst_ProcessDataValueWriteAccess::refusedWriteReturnsFalseUnderLock()
{
    FakeBufferHandler handler(bufferSize);
    ProcessDataValue element(SlotDescription{QStringLiteral("string"), 0, 4}.toJson(), nullptr);
    element.setBufferHandlerInterface(&handler, true);
    LogCapture log;

    QCOMPARE(element.setValue({QStringLiteral("ab"), PROCESS_VALUE_ERROR_TYPE_VALID}), false);

    COMPARE_LOG(log, warning(QStringLiteral("String to large")),
                warning(QStringLiteral("Process value could not be written.")));
    QCOMPARE(handler.takeCalls(), (QStringList{lockForWrite, unlockForWrite}));
}

QTEST_GUILESS_MAIN(tst_ProcessDataValueWriteAccess)
#include "tst_ProcessDataValueWriteAccess.moc"
