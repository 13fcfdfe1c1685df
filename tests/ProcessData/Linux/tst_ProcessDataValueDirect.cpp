#include "ProcessData/Linux/ProcessDataValue.h"
#include "support/DoubleBuffer.h"
#include "support/FakeBufferHandler.h"
#include "support/LogCapture.h"
#include "support/SlotDescription.h"

#include <QRandomGenerator>
#include <QtTest>

#include <cmath>
#include <cstring>

using namespace ProcessDataDefinitions;

namespace {

constexpr quint32 bufferSize = 48;

/// Two leaves of one description: the first in a double buffer, whose slot is reached by the short
/// way, the second behind a handler of which nothing but its operations is known.
struct TwoWays
{
    explicit TwoWays(const SlotDescription &slot)
        : direct(slot.toJson(), nullptr)
        , general(slot.toJson(), nullptr)
    {
        direct.setBufferHandlerInterface(handler.get(), true);
        general.setBufferHandlerInterface(&fake, true);
    }

    /// The same bytes, whatever they mean, in the read buffers of both.
    void publishBytes(QRandomGenerator &random)
    {
        unsigned char *const buffer = handler->lockForWrite();
        for (quint32 i = 0; i < bufferSize; ++i) {
            buffer[i] = static_cast<unsigned char>(random.bounded(256));
            fake.readBytes()[i] = buffer[i];
        }
        handler->unlockForWrite(buffer);
        handler->swapBuffers();
    }

    /// Equal bytes in both write buffers.
    void alignWriteBuffers()
    {
        unsigned char *const buffer = handler->lockForWrite();
        std::memcpy(fake.writeBytes(), buffer, bufferSize);
        handler->unlockForWrite(buffer);
    }
    /// Other bytes, the same in both write buffers.
    void fillWriteBuffers(QRandomGenerator &random)
    {
        for (quint32 i = 0; i < bufferSize; ++i) {
            fake.writeBytes()[i] = static_cast<unsigned char>(random.bounded(256));
        }
        std::memcpy(handler->writeBufferPointer(), fake.writeBytes(), bufferSize);
    }
    bool areWriteBuffersEqual()
    {
        return std::memcmp(handler->writeBufferPointer(), fake.writeBytes(), bufferSize) == 0;
    }

    DoubleBuffer memory{bufferSize};
    DoubleBuffer::Handler handler = memory.create();
    FakeBufferHandler fake{bufferSize};
    ProcessDataValue direct;
    ProcessDataValue general;
};

/// Type, null flag and content of a variant; NaN by its bits.
QByteArray contentOf(const QVariant &variant)
{
    const int type = variant.userType();
    QByteArray content = QByteArray::number(type) + (variant.isNull() ? " null " : " ");
    if (type == QMetaType::Double || type == QMetaType::Float) {
        return content
               + QByteArray(static_cast<const char *>(variant.constData()), QMetaType::sizeOf(type))
                     .toHex();
    }
    return content + variant.toString().toUtf8();
}

QByteArray contentOf(const ProcessValue &value)
{
    return contentOf(value.getValue()) + " state " + QByteArray::number(value.getErrorType())
           + " namur " + QByteArray::number(value.getNamurState()) + " tag "
           + QByteArray::number(value.getTag());
}

/// What a caller may hand in to be read into, or to be written.
QList<QVariant> someVariants(QRandomGenerator &random)
{
    const auto bits = random.generate64();
    double number = 0;
    std::memcpy(&number, &bits, sizeof number);
    return {QVariant(),
            QVariant(QVariant::Double),
            QVariant(QVariant::Int),
            QVariant(static_cast<int>(bits)),
            QVariant(static_cast<uint>(bits)),
            QVariant(static_cast<qlonglong>(bits)),
            QVariant(static_cast<qulonglong>(bits)),
            QVariant(number),
            QVariant(static_cast<double>(random.bounded(100))),
            QVariant(3.5F * static_cast<float>(random.bounded(9))),
            QVariant(random.bounded(2) == 0),
            QVariant(QStringLiteral("17")),
            QVariant(QStringLiteral("no number")),
            QVariant(QVariantList{1, 2})};
}

} // namespace

/// That the short way to a number in a double buffer and the general way to any buffer cannot be
/// told apart.
class tst_ProcessDataValueDirect : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void readsAgree_data();
    void readsAgree();
    void writesAgree_data();
    void writesAgree();
    void readOnlyLeafRefuses_data();
    void readOnlyLeafRefuses();
    void encodedStatesAgree_data();
    void encodedStatesAgree();
    void derivedHandlerIsAskedForEverything();
    void leafFollowsItsBinding();
    void readInsideALockOfTheThread();
    void readInsideLocksOfTwoHandlers();
    void overtakenReadsEndAfterElevenAttempts();

private:
    static void addSlots();
};

void tst_ProcessDataValueDirect::addSlots()
{
    struct Form
    {
        const char *type;
        quint32 size;
    };
    const Form forms[] = {{"boolean", 1}, {"bit", 1},    {"int8", 1},  {"int16", 2},
                          {"int32", 4},   {"int64", 8},  {"uint8", 1}, {"uint16", 2},
                          {"uint32", 4},  {"uint64", 8}, {"float", 4}, {"double", 8},
                          {"string", 12}};
    QTest::addColumn<QString>("type");
    QTest::addColumn<quint32>("size");
    for (const Form &form : forms) {
        QTest::newRow(form.type) << QString::fromLatin1(form.type) << form.size;
    }
}

namespace {

/// The slot of a type at one of 16 places: aligned in every way, without and with metadata, whose
/// word may be anywhere.
SlotDescription slotAt(const QString &type, quint32 size, quint32 place)
{
    SlotDescription slot;
    slot.type = type;
    slot.offset = place & 7U;
    slot.sizeValue = size;
    slot.bitmask = type == QStringLiteral("bit") ? 0x124 : 0;
    if (place >= 8) {
        slot.sizeMetadata = 4;
        slot.relativeOffsetMetadata = size + (place & 3U);
    }
    return slot;
}

} // namespace

void tst_ProcessDataValueDirect::readsAgree_data()
{
    addSlots();
}

void tst_ProcessDataValueDirect::readsAgree()
{
    QFETCH(QString, type);
    QFETCH(quint32, size);
    QRandomGenerator random(3);

    for (quint32 place = 0; place < 16; ++place) {
        TwoWays ways(slotAt(type, size, place));
        for (int round = 0; round < 20; ++round) {
            ways.publishBytes(random);
            const auto variants = someVariants(random);
            for (const auto &variant : variants) {
                const bool keepValueOnError = random.bounded(2) == 0;
                ProcessValue expected(variant, 7, PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
                ProcessValue actual = expected;
                ProcessValue withoutLock = expected;
                ways.general.getValue(expected, keepValueOnError);
                ways.direct.getValue(actual, keepValueOnError);
                ways.direct.getValueNoLock(withoutLock, keepValueOnError);
                QCOMPARE(contentOf(actual), contentOf(expected));
                QCOMPARE(contentOf(withoutLock), contentOf(expected));
            }
        }
    }
}

void tst_ProcessDataValueDirect::writesAgree_data()
{
    addSlots();
}

void tst_ProcessDataValueDirect::writesAgree()
{
    QFETCH(QString, type);
    QFETCH(quint32, size);
    QRandomGenerator random(5);

    for (quint32 place = 0; place < 16; ++place) {
        TwoWays ways(slotAt(type, size, place));
        ways.publishBytes(random);
        for (int round = 0; round < 10; ++round) {
            ways.alignWriteBuffers();
            const auto variants = someVariants(random);
            for (const auto &variant : variants) {
                const auto state = static_cast<ErrorTypes>(
                    random.bounded(2) == 0 ? 0 : random.bounded(12));
                const ProcessValue value(variant, state);
                LogCapture log;
                const bool expected = ways.general.setValue(value);
                const QString expectedLog = toText(log.take());
                const bool withLock = ways.direct.setValue(value);
                QCOMPARE(toText(log.take()), expectedLog);
                QCOMPARE(withLock, expected);
                QVERIFY2(ways.areWriteBuffersEqual(), contentOf(value));

                ways.fillWriteBuffers(random);
                QCOMPARE(ways.general.setValueNoLock(value), expected);
                QCOMPARE(toText(log.take()), expectedLog);
                QCOMPARE(ways.direct.setValueNoLock(value), expected);
                QCOMPARE(toText(log.take()), expectedLog);
                QVERIFY2(ways.areWriteBuffersEqual(), contentOf(value));
            }
        }
    }
}

void tst_ProcessDataValueDirect::readOnlyLeafRefuses_data()
{
    QTest::addColumn<bool>("writeReadOnlyAllowed");
    QTest::newRow("refuses") << false;
    QTest::newRow("unless it is allowed") << true;
}

void tst_ProcessDataValueDirect::readOnlyLeafRefuses()
{
    QFETCH(bool, writeReadOnlyAllowed);
    const DoubleBuffer memory{bufferSize};
    const DoubleBuffer::Handler handler = memory.create();
    SlotDescription slot = slotAt(QStringLiteral("double"), 8, 12);
    slot.readOnly = true;
    ProcessDataValue leaf(slot.toJson(), nullptr);
    leaf.setBufferHandlerInterface(handler.get(), writeReadOnlyAllowed);
    const QByteArray before(reinterpret_cast<const char *>(handler->writeBufferPointer()),
                            bufferSize);
    LogCapture log;

    const bool written = leaf.setValueNoLock({QVariant(2.5), PROCESS_VALUE_ERROR_TYPE_VALID});

    const QByteArray after(reinterpret_cast<const char *>(handler->writeBufferPointer()),
                           bufferSize);
    QCOMPARE(written, writeReadOnlyAllowed);
    QCOMPARE(after == before, !writeReadOnlyAllowed);
    QCOMPARE(log.take().size(), writeReadOnlyAllowed ? 0 : 1);
}

void tst_ProcessDataValueDirect::encodedStatesAgree_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<quint32>("size");
    QTest::newRow("float") << QStringLiteral("float") << 4U;
    QTest::newRow("double") << QStringLiteral("double") << 8U;
}

void tst_ProcessDataValueDirect::encodedStatesAgree()
{
    QFETCH(QString, type);
    QFETCH(quint32, size);
    TwoWays ways(slotAt(type, size, 4));
    ways.fake.useSingleBuffer();

    for (int state = 0; state < 12; ++state) {
        const ProcessValue written(QVariant(1.5), static_cast<ErrorTypes>(state));
        QVERIFY(ways.direct.setValue(written));
        QVERIFY(ways.handler->swapBuffers());
        QVERIFY(ways.general.setValue(written));
        for (const bool keepValueOnError : {false, true}) {
            ProcessValue expected(PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
            ProcessValue actual = expected;
            ways.general.getValue(expected, keepValueOnError);
            ways.direct.getValue(actual, keepValueOnError);
            QCOMPARE(contentOf(actual), contentOf(expected));
        }
    }
}

namespace {

/// Counts what it is asked for.
class CountingHandler : public PingPongBufferHandler
{
public:
    using PingPongBufferHandler::PingPongBufferHandler;

    BufferPointer lockForRead() override
    {
        ++count;
        return PingPongBufferHandler::lockForRead();
    }
    BufferPointer readBufferPointer() override
    {
        ++count;
        return PingPongBufferHandler::readBufferPointer();
    }
    BufferPointer writeBufferPointer() override
    {
        ++count;
        return PingPongBufferHandler::writeBufferPointer();
    }

    int count = 0;
};

SlotDescription doubleSlot()
{
    return slotAt(QStringLiteral("double"), 8, 12);
}

ProcessValue numberValue(double number)
{
    return {QVariant(number), PROCESS_VALUE_ERROR_TYPE_VALID};
}

} // namespace

void tst_ProcessDataValueDirect::derivedHandlerIsAskedForEverything()
{
    const DoubleBuffer memory{bufferSize};
    CountingHandler handler(memory.management(), memory.first(), memory.second(),
                            SystemVSemaphoreBaseClass::CreationTypeCreate, memory.size(),
                            memory.semaphores.key());
    ProcessDataValue leaf(doubleSlot().toJson(), nullptr);
    leaf.setBufferHandlerInterface(&handler, true);
    ProcessValue value = numberValue(0);

    leaf.getValue(value);
    leaf.getValueNoLock(value);
    QVERIFY(leaf.setValueNoLock(numberValue(1)));

    QCOMPARE(handler.count, 3);
}

void tst_ProcessDataValueDirect::leafFollowsItsBinding()
{
    TwoWays ways(doubleSlot());
    QVERIFY(ways.direct.setValue(numberValue(1)));
    QVERIFY(ways.handler->swapBuffers());
    ProcessValue value = numberValue(0);

    FakeBufferHandler small(8);
    LogCapture log;
    ways.direct.setBufferHandlerInterface(&small, true);
    ways.direct.getValue(value);
    // Only the access finds that out.
    COMPARE_LOG(log, warning(QStringLiteral("Value lies outside the buffer: \"double\" at offset 4 "
                                            "with 8 bytes, buffer size 8")));
    QCOMPARE(value.getValue().toDouble(), 0.0);

    ways.direct.setBufferHandlerInterface(ways.handler.get(), true);
    ways.direct.getValue(value);
    QCOMPARE(value.getValue().toDouble(), 1.0);
}

void tst_ProcessDataValueDirect::readInsideALockOfTheThread()
{
    TwoWays ways(doubleSlot());
    QVERIFY(ways.direct.setValue(numberValue(1)) && ways.handler->swapBuffers());
    ProcessValue value = numberValue(0);

    unsigned char *const locked = ways.handler->lockForRead();
    QVERIFY(ways.direct.setValue(numberValue(2)) && ways.handler->swapBuffers());
    ways.direct.getValueNoLock(value);
    QCOMPARE(value.getValue().toDouble(), 1.0);
    ways.direct.getValue(value);
    QCOMPARE(value.getValue().toDouble(), 2.0);
    bool repeat = true;
    QVERIFY(ways.handler->unlockForRead(locked, repeat));

    QVERIFY(!repeat);
    ways.direct.getValueNoLock(value);
    QCOMPARE(value.getValue().toDouble(), 2.0);
}

void tst_ProcessDataValueDirect::readInsideLocksOfTwoHandlers()
{
    TwoWays outer(doubleSlot());
    TwoWays inner(doubleSlot());
    QVERIFY(outer.direct.setValue(numberValue(1)) && outer.handler->swapBuffers());
    QVERIFY(inner.direct.setValue(numberValue(2)) && inner.handler->swapBuffers());
    ProcessValue value = numberValue(0);

    unsigned char *const lockedOuter = outer.handler->lockForRead();
    unsigned char *const lockedInner = inner.handler->lockForRead();
    QVERIFY(outer.direct.setValue(numberValue(3)) && outer.handler->swapBuffers());
    QVERIFY(inner.direct.setValue(numberValue(4)) && inner.handler->swapBuffers());
    outer.direct.getValueNoLock(value);
    QCOMPARE(value.getValue().toDouble(), 1.0);
    inner.direct.getValueNoLock(value);
    QCOMPARE(value.getValue().toDouble(), 2.0);
    bool repeat = true;
    QVERIFY(inner.handler->unlockForRead(lockedInner, repeat));
    inner.direct.getValueNoLock(value);
    QCOMPARE(value.getValue().toDouble(), 4.0);
    QVERIFY(outer.handler->unlockForRead(lockedOuter, repeat));
}

void tst_ProcessDataValueDirect::overtakenReadsEndAfterElevenAttempts()
{
    TwoWays ways(doubleSlot());
    QVERIFY(ways.direct.setValue(numberValue(1)) && ways.handler->swapBuffers());
    ProcessValue value(QVariant(5.5), PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
    LogCapture log;

    // As if a writer had begun to write into the buffer that is read, and always would.
    ways.memory.management()->writeEpoch[1].store(~quint64{0});
    ways.direct.getValue(value);
    COMPARE_LOG(log, warning(QStringLiteral("Reading does not work.")));
    QVERIFY(!value.getValue().isValid());
    QCOMPARE(value.getErrorType(), PROCESS_VALUE_ERROR_TYPE_VALID);

    // The thread is known to have been overtaken, and reads on under a lock until it was not.
    ways.memory.management()->writeEpoch[1].store(0);
    for (int i = 0; i < 3; ++i) {
        ways.direct.getValue(value);
        QCOMPARE(value.getValue().toDouble(), 1.0);
    }
    COMPARE_LOG(log);
}

QTEST_GUILESS_MAIN(tst_ProcessDataValueDirect)

#include "tst_ProcessDataValueDirect.moc"
