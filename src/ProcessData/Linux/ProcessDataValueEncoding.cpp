#include "Companion/Exchange/SharedBytes_p.h"
#include "ProcessData/Linux/ProcessDataValue.h"

#include <QDebug>
#include <QException>

using ProcessDataDefinitions::ErrorTypes;
using ErrorTypeMaps = ProcessValueErrorTypeMapDefinitions;

namespace {

/// Names the type that selects one member of the family of readProcessValue() and
/// writeProcessValue().
template <class T>
struct StorageForm
{
    using Type = T;
};

/// The type in which a stored integer is handed out: never narrower than int.
template <class T>
using Promoted =
    std::conditional_t<std::is_integral_v<T> && sizeof(T) < sizeof(int) && !std::is_same_v<T, bool>,
                       std::conditional_t<std::is_signed_v<T>, int, unsigned int>, T>;

template <class T>
T loadPlain(const unsigned char *slot)
{
    if constexpr (std::is_same_v<T, bool>) {
        return loadShared<quint8>(slot) != 0;
    } else {
        return loadShared<T>(slot);
    }
}

/// The address of a UTF-16 code unit of a text.
template <class Byte>
Byte *unitAddress(Byte *text, unsigned int index)
{
    return &text[std::size_t{index} * sizeof(ushort)];
}

} // namespace

template <class Action>
auto ProcessDataValue::withStorageForm(const Action &action) const
{
    switch (m_metaType) {
    case QMetaType::Bool:
        if (m_storageKind == StorageBoolean) {
            return action(StorageForm<bool>{});
        }
        if (m_storageKind == StorageBit) {
            return action(StorageForm<BitType>{});
        }
        break;
    case QMetaType::Int:
        switch (m_storageKind) {
        case Storage16Bit: return action(StorageForm<short>{});
        case Storage8Bit: return action(StorageForm<signed char>{});
        default: return action(StorageForm<int>{});
        }
    case QMetaType::UInt:
        switch (m_storageKind) {
        case Storage16Bit: return action(StorageForm<unsigned short>{});
        case Storage8Bit: return action(StorageForm<unsigned char>{});
        default: return action(StorageForm<unsigned int>{});
        }
    case QMetaType::LongLong: return action(StorageForm<qlonglong>{});
    case QMetaType::ULongLong: return action(StorageForm<qulonglong>{});
    case QMetaType::Double: return action(StorageForm<double>{});
    case QMetaType::QString: return action(StorageForm<QString>{});
    case QMetaType::Float: return action(StorageForm<float>{});
    default: break;
    }
    throw QException();
}

// Booleans and integers: the value first, the metadata second, on both sides.

template <class T>
void ProcessDataValue::readProcessValue(ProcessValue &value) const
{
    if (!isPointerValid()) {
        return;
    }
    value.setValue(QVariant::fromValue(Promoted<T>{loadPlain<T>(m_dataPointer)}));
    readMetaData(value);
}

template <class T>
bool ProcessDataValue::writeProcessValue(const ProcessValue &value) const
{
    if (!isPointerValid()) {
        return false;
    }
    storeShared(m_dataPointer, value.getValue().value<T>());
    writeMetaData(value);
    return true;
}

template <>
void ProcessDataValue::readProcessValue<ProcessDataValue::BitType>(ProcessValue &value) const
{
    if (!isPointerValid()) {
        return;
    }
    const auto mask = static_cast<quint8>(m_bitmask);
    value.setValue((loadShared<quint8>(m_dataPointer) & mask) != 0);
    readMetaData(value);
}

template <>
bool ProcessDataValue::writeProcessValue<ProcessDataValue::BitType>(const ProcessValue &value) const
{
    if (!isPointerValid()) {
        return false;
    }
    const auto mask = static_cast<quint8>(m_bitmask);
    const auto byte = loadShared<quint8>(m_dataPointer);
    const int newByte = value.getValue().toBool() ? byte | mask : byte & ~mask;
    storeShared(m_dataPointer, static_cast<quint8>(newByte));
    writeMetaData(value);
    return true;
}

// Floating-point numbers: without metadata the number itself can tell an error state.

template <class T>
void ProcessDataValue::readFloatingPoint(ProcessValue &value,
                                         const QHash<T, ErrorTypes> &stateOfNumber,
                                         const QHash<ErrorTypes, T> &numberOfState) const
{
    if (!isPointerValid()) {
        return;
    }
    T number = loadShared<T>(m_dataPointer);
    readMetaData(value);
    if (m_sizeMetadata == 0) {
        // The numbers that stand for states of a double are NaN, which equals nothing, so no row
        // is found for them: an encoded double reads as valid.
        const auto state = stateOfNumber.constFind(number);
        if (state != stateOfNumber.cend()) {
            value.setErrorType(*state);
            number = numberOfState.value(*state);
        } else {
            value.setErrorType(ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID);
        }
    }
    value.setValue(QVariant::fromValue(number));
}

template <class T>
bool ProcessDataValue::writeFloatingPoint(const ProcessValue &value,
                                          const QHash<ErrorTypes, T> &numberOfState) const
{
    if (!isPointerValid()) {
        return false;
    }
    T number = value.getValue().value<T>();
    writeMetaData(value);
    if (m_sizeMetadata == 0) {
        number = numberOfState.value(value.getErrorType(), number);
    }
    storeShared(m_dataPointer, number);
    return true;
}

template <>
void ProcessDataValue::readProcessValue<float>(ProcessValue &value) const
{
    readFloatingPoint(value, ErrorTypeMaps::getMapFloatValueToStateType(),
                      ErrorTypeMaps::getMapStateTypeToFloatValue());
}

template <>
bool ProcessDataValue::writeProcessValue<float>(const ProcessValue &value) const
{
    return writeFloatingPoint(value, ErrorTypeMaps::getMapStateTypeToFloatValue());
}

template <>
void ProcessDataValue::readProcessValue<double>(ProcessValue &value) const
{
    readFloatingPoint(value, ErrorTypeMaps::getMapDoubleValueToStateType(),
                      ErrorTypeMaps::getMapStateTypeToDoubleValue());
}

template <>
bool ProcessDataValue::writeProcessValue<double>(const ProcessValue &value) const
{
    return writeFloatingPoint(value, ErrorTypeMaps::getMapStateTypeToDoubleValue());
}

// Text: UTF-16 code units with a zero unit behind them.

template <>
void ProcessDataValue::readProcessValue<QString>(ProcessValue &value) const
{
    if (!isPointerValid()) {
        return;
    }
    value.setValue(copyCharBufferToString(m_dataPointer, m_sizeValue));
    readMetaData(value);
}

template <>
bool ProcessDataValue::writeProcessValue<QString>(const ProcessValue &value) const
{
    if (!isPointerValid()) {
        return false;
    }
    const bool copied = copyQStringDataToCharBuffer(value.getValue().toString(), m_dataPointer,
                                                    m_sizeValue);
    if (!copied) {
        qWarning() << "Process value could not be written.";
    }
    // A text that does not fit leaves the old one in place, and the new state beside it.
    writeMetaData(value);
    return copied;
}

bool ProcessDataValue::copyQStringDataToCharBuffer(const QString &text, unsigned char *buffer,
                                                   unsigned int size) const
{
    if (buffer == nullptr) {
        qWarning() << "Pointer is nullptr.";
        return false;
    }
    if (size < sizeof(ushort)) {
        qWarning() << "Buffer to small.";
        return false;
    }
    const auto unitCount = static_cast<unsigned int>(text.length()) + 1U;
    if (unitCount > size / sizeof(ushort)) {
        qWarning() << "String to large";
        return false;
    }
    // A QString keeps a zero unit behind its text.
    const ushort *const units = text.utf16();
    for (unsigned int index = 0; index < unitCount; ++index) {
        storeShared(unitAddress(buffer, index), units[index]);
    }
    return true;
}

QString ProcessDataValue::copyCharBufferToString(BufferHandlerInterface::BufferPointer buffer,
                                                 unsigned int size) const
{
    if (buffer == nullptr) {
        qWarning() << "Pointer is nullptr.";
        return {};
    }
    if (size < sizeof(ushort)) {
        qWarning() << "Buffer to small.";
        return {};
    }
    QString text;
    for (unsigned int index = 0; index < size / sizeof(ushort); ++index) {
        const auto unit = loadShared<ushort>(unitAddress(buffer, index));
        if (unit == 0) {
            break;
        }
        text.append(QChar(unit));
    }
    return text;
}

void ProcessDataValue::readMetaData(ProcessValue &value) const
{
    if (m_sizeMetadata != 0) {
        value.setErrorType(loadShared<ErrorTypes>(m_metadataPointer));
        return;
    }
    value.setErrorType(value.getValue().isValid()
                           ? ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID
                           : ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE);
}

void ProcessDataValue::writeMetaData(const ProcessValue &value) const
{
    if (m_sizeMetadata != 0) {
        storeShared(m_metadataPointer, value.getErrorType());
    }
}

void ProcessDataValue::readSlot(ProcessValue &value) const
{
    withStorageForm(
        [this, &value](auto form) { readProcessValue<typename decltype(form)::Type>(value); });
}

bool ProcessDataValue::writeSlot(const ProcessValue &value) const
{
    return withStorageForm([this, &value](auto form) {
        return writeProcessValue<typename decltype(form)::Type>(value);
    });
}
