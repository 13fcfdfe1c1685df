#include "SlotWrites.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "FuzzTarget.h"

#include <QVector>

namespace {

using Definitions = ConfigurationAndProcessDataDefinitions;
using ProcessDataDefinitions::ErrorTypes;
using ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE;
using ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_TIMEOUT;
using ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID;

/// Where the bytes of a leaf lie, read from the description without the library's help.
struct Slot
{
    QString type;
    quint64 value = 0;
    quint64 valueSize = 0;
    quint64 metadata = 0;
    quint64 metadataSize = 0;
    quint32 bits = 0;

    bool holds(quint64 position) const
    {
        return (position >= value && position < value + valueSize)
               || (position >= metadata && position < metadata + metadataSize);
    }
    /// Of a text only as much is touched as is written.
    bool isInside(quint64 size) const
    {
        return (type == "string" || value + valueSize <= size)
               && (metadataSize == 0 || metadata + metadataSize <= size);
    }
    bool hasOverlap() const
    {
        return metadataSize != 0 && metadata < value + valueSize && value < metadata + metadataSize;
    }
};

Slot slotOf(const ProcessDataValue &leaf)
{
    const auto number = [&leaf](const QString &key) { return leaf.getProperty(key).toUInt(); };
    Slot slot;
    slot.type = leaf.getProperty(Definitions::getKeyDataPropertyType()).toString();
    slot.value = number(Definitions::getKeyDataPropertyOffsetSharedMemory());
    slot.valueSize = slot.type == "bit" ? 1 : number(Definitions::getKeyDataPropertySizeValue());
    slot.metadata = slot.value + number(Definitions::getKeyDataPropertyRelativeOffsetMetadata());
    slot.metadataSize = number(Definitions::getKeyDataPropertySizeMetadata()) == 0 ? 0 : 4;
    slot.bits = number(Definitions::getKeyDataPropertyBitmask()) & 0xFF;
    return slot;
}

QVector<ProcessValue> valuesToWrite()
{
    const auto valid = [](const QVariant &value) {
        return ProcessValue(value, PROCESS_VALUE_ERROR_TYPE_VALID);
    };
    return {valid(-1.5),
            valid(1e300),
            valid(Q_INT64_C(0x123456789abcdef)),
            valid(QStringLiteral("text")),
            valid(QVariantList{1}),
            PROCESS_VALUE_ERROR_TYPE_TIMEOUT,
            static_cast<ErrorTypes>(0x7fffffff),
            valid(0),
            valid(true),
            valid(1)};
}

void checkReach(const Slot &slot, const QByteArray &before, const QByteArray &after)
{
    for (int i = 0; i < before.size(); ++i) {
        require(before.at(i) == after.at(i) || slot.holds(static_cast<quint64>(i)),
                "a write stays inside the slot");
    }
}

/// True where a slot holds what is written without a loss.
bool isKept(const Slot &slot, const ProcessValue &value)
{
    if (slot.hasOverlap()) {
        return false;
    }
    if (value.getErrorType() != PROCESS_VALUE_ERROR_TYPE_VALID) {
        return slot.metadataSize != 0;
    }
    const bool isOne = value.getValue() == QVariant(1) || value.getValue() == QVariant(true);
    return isOne && slot.type != "string" && (slot.type != "bit" || slot.bits != 0);
}

void checkReadBack(const ProcessDataValue &leaf, const ProcessValue &written)
{
    ProcessValue value(PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE);
    leaf.getValue(value);
    require(value.getErrorType() == written.getErrorType(), "a written state is read back");
    require(value.getErrorType() != PROCESS_VALUE_ERROR_TYPE_VALID
                || value.toDouble() == written.toDouble(),
            "a written number is read back");
}

} // namespace

void checkSlotWrites(ProcessDataValue &leaf, HeapBuffers &buffers)
{
    const Slot slot = slotOf(leaf);
    const bool isUsable = leaf.isObjectValid() && slot.isInside(buffers.bufferSize());
    for (const ProcessValue &value : valuesToWrite()) {
        const QByteArray before = buffers.written();
        const bool isWritten = leaf.setValue(value);
        const QByteArray after = buffers.written();
        checkReach(slot, before, after);
        require(isUsable || !isWritten, "a slot that does not fit is refused");
        // A text that is too long leaves its state behind, as it must.
        require(isWritten || before == after || (isUsable && slot.type == "string"),
                "a refused write leaves the buffer alone");
        buffers.swapBuffers();
        if (isWritten && isKept(slot, value)) {
            checkReadBack(leaf, value);
        }
    }
}
