#include "ProcessData/Linux/ProcessDataValue.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Companion/Exchange/OptimisticRead_p.h"
#include "Configuration/OwnProperties_p.h"
#include "ProcessData/Linux/NumberSlot_p.h"

#include <QDebug>

#include <typeinfo>

using Definitions = ConfigurationAndProcessDataDefinitions;
using ErrorTypeMaps = ProcessValueErrorTypeMapDefinitions;

namespace {

const quint32 metadataWordSize = 4;

SlotForm integerForm(ProcessDataValue::StorageKind kind, SlotForm byte, SlotForm word,
                     SlotForm native)
{
    switch (kind) {
    case ProcessDataValue::Storage8Bit: return byte;
    case ProcessDataValue::Storage16Bit: return word;
    default: return native;
    }
}

SlotForm booleanForm(ProcessDataValue::StorageKind kind)
{
    switch (kind) {
    case ProcessDataValue::StorageBoolean: return SlotForm::Boolean;
    case ProcessDataValue::StorageBit: return SlotForm::Bit;
    default: return SlotForm::None;
    }
}

SlotForm formOf(int metaType, ProcessDataValue::StorageKind kind)
{
    switch (metaType) {
    case QMetaType::Bool: return booleanForm(kind);
    case QMetaType::Int: return integerForm(kind, SlotForm::Int8, SlotForm::Int16, SlotForm::Int32);
    case QMetaType::UInt:
        return integerForm(kind, SlotForm::UInt8, SlotForm::UInt16, SlotForm::UInt32);
    case QMetaType::LongLong: return SlotForm::Int64;
    case QMetaType::ULongLong: return SlotForm::UInt64;
    case QMetaType::Float: return SlotForm::Float;
    case QMetaType::Double: return SlotForm::Double;
    default: return SlotForm::None;
    }
}

} // namespace

ProcessDataValue::ProcessDataValue(const QJsonObject &json, QObject *parent)
    : ConfigurationAndProcessDataBase(json, parent)
{
    readSlotProperties();
    chooseStorageKind();
}

ProcessDataValue::ProcessDataValue(const DescribedElement &described)
    : ConfigurationAndProcessDataBase(described)
{
    readSlotProperties();
    chooseStorageKind();
}

ProcessDataValue::~ProcessDataValue() = default;

void ProcessDataValue::readSlotProperties()
{
    m_offsetSharedMemory = ownNumber(m_properties, UsualKey::OffsetSharedMemory);
    m_relativeOffsetMetadata = ownNumber(m_properties, UsualKey::RelativeOffsetMetadata);
    m_sizeValue = ownNumber(m_properties, UsualKey::SizeValue);
    m_sizeMetadata = ownNumber(m_properties, UsualKey::SizeMetadata);
    const QVariant *const type = PropertyRecord::valueUnder(m_properties, UsualKey::Type);
    m_dataType = type == nullptr ? QString() : type->toString();
    const QVariant *const readOnly = PropertyRecord::valueUnder(m_properties, UsualKey::ReadOnly);
    m_readOnly = readOnly != nullptr && readOnly->toBool();
}

void ProcessDataValue::chooseStorageKind()
{
    // An unknown type name is reported at binding, by isObjectValid().
    m_metaType = Definitions::getBasicDataTypeMapForProcessData().value(m_dataType,
                                                                        QMetaType::UnknownType);

    if (m_metaType == QMetaType::Bool) {
        if (m_dataType == Definitions::getKeyDataTypeBoolean()) {
            m_storageKind = StorageBoolean;
            return;
        }
        m_storageKind = StorageBit;
        m_bitmask = ownNumber(m_properties, UsualKey::Bitmask);
        return;
    }
    if (m_metaType != QMetaType::Int && m_metaType != QMetaType::UInt) {
        return;
    }
    if (m_sizeValue == 2) {
        m_storageKind = Storage16Bit;
    } else if (m_sizeValue == 1) {
        m_storageKind = Storage8Bit;
    }
}

void ProcessDataValue::setBufferHandlerInterface(BufferHandlerInterface *handler,
                                                 bool writeReadOnlyAllowed)
{
    if (handler == nullptr) {
        qWarning() << "Pointer to buffer handler is null.";
        return;
    }
    ++m_bindingCount;
    m_bufferHandler = handler;
    m_isValid = isObjectValid();
    chooseDirectForm();
    m_writeReadOnlyAllowed = writeReadOnlyAllowed;
}

NumberSlot ProcessDataValue::getNumberSlot() const
{
    return {m_offsetSharedMemory, quint64{m_offsetSharedMemory} + m_relativeOffsetMetadata,
            formOf(m_metaType, m_storageKind), static_cast<quint8>(m_bitmask), m_sizeMetadata != 0};
}

void ProcessDataValue::chooseDirectForm()
{
    m_directForm = SlotForm::None;
    // Exactly these classes: of any other nothing is known but the calls of the interface, and all of
    // them have to be made.
    if (!m_isValid
        || (typeid(*m_bufferHandler) != typeid(PingPongBufferHandler)
            && typeid(*m_bufferHandler) != typeid(PingPongReadingHandler))) {
        return;
    }
    const auto &handler = static_cast<PingPongBufferHandler &>(*m_bufferHandler);
    const NumberSlot slot = getNumberSlot();
    if (OptimisticRead::isUsable(handler)
        && NumberSlots::endOf(slot) <= m_bufferHandler->bufferSize()) {
        m_directForm = slot.form;
    }
}

bool ProcessDataValue::isObjectValid() const
{
    if (m_bufferHandler == nullptr) {
        qWarning() << "No BufferHandlerInterface!";
        return false;
    }
    // A coarse test in 32 bits that leaves the value's own size out. What it lets through is
    // caught at each access, by selectSlot().
    if (m_offsetSharedMemory + m_sizeMetadata > m_bufferHandler->bufferSize()) {
        qWarning() << "End of memory reached" << m_offsetSharedMemory << m_sizeMetadata;
        return false;
    }
    if (m_metaType == QMetaType::UnknownType) {
        qWarning() << "Data type not OK " << m_dataType;
        return false;
    }
    if (m_metaType == QMetaType::QString) {
        return true;
    }
    const int dataTypeSize = getDataTypeSize(m_dataType);
    if (m_sizeValue != static_cast<quint32>(dataTypeSize) && m_storageKind != StorageBit) {
        qWarning() << "Wrong size of data type in Json: " << m_sizeValue << " != " << dataTypeSize
                   << m_dataType;
        return false;
    }
    return true;
}

int ProcessDataValue::getDataTypeSize(const QString &dataType) const
{
    return Definitions::getMapBasicDataTypeStringToSize().value(dataType, 0);
}

bool ProcessDataValue::isPointerValid() const
{
    if (m_dataPointer == nullptr) {
        qWarning() << "Pointer to data not defined!";
    }
    if (m_metadataPointer == nullptr) {
        qWarning() << "Pointer to metadata not defined!";
    }
    return m_dataPointer != nullptr && m_metadataPointer != nullptr;
}

quint32 ProcessDataValue::getAccessSize() const
{
    switch (m_storageKind) {
    case StorageBoolean:
    case StorageBit:
    case Storage8Bit: return 1;
    case Storage16Bit: return 2;
    case StorageNative: break;
    }
    if (m_metaType == QMetaType::QString) {
        return m_sizeValue;
    }
    return static_cast<quint32>(QMetaType::sizeOf(m_metaType));
}

bool ProcessDataValue::selectSlot(BufferHandlerInterface::BufferPointer buffer,
                                  quint64 accessSize) const
{
    // Offsets come from a description file, and their sums need not fit into 32 bits.
    const quint64 bufferSize = m_bufferHandler->bufferSize();
    const quint64 valueOffset = m_offsetSharedMemory;
    const quint64 metadataOffset = valueOffset + m_relativeOffsetMetadata;
    if (valueOffset + accessSize > bufferSize) {
        qWarning() << "Value lies outside the buffer:" << m_dataType << "at offset" << valueOffset
                   << "with" << accessSize << "bytes, buffer size" << bufferSize;
        return false;
    }
    if (m_sizeMetadata != 0 && metadataOffset + metadataWordSize > bufferSize) {
        qWarning() << "Metadata lies outside the buffer:" << m_dataType << "at offset"
                   << metadataOffset << "with" << metadataWordSize << "bytes, buffer size"
                   << bufferSize;
        return false;
    }
    m_dataPointer = buffer + valueOffset;
    m_metadataPointer = buffer + metadataOffset;
    return true;
}

ProcessDataValueSharedPointer ConfigurationAndProcessDataBase::getLeafProcessDataValue(
    const QString &url)
{
    return getLeaf(url).dynamicCast<ProcessDataValue>();
}
