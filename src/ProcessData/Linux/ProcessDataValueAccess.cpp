#include "ProcessData/Linux/ProcessDataValue.h"
#include "ProcessData/NumberVariant_p.h"

#include <QDebug>
#include <QException>

#include <algorithm>

namespace {

const unsigned int maximumReadAttempts = 11;
/// So many attempts are usual and not worth a line in the log.
const unsigned int usualReadAttempts = 3;

} // namespace

bool ProcessDataValue::setValue(const ProcessValue &value)
{
    return setValueInternal(value, true);
}

void ProcessDataValue::getValueInternal(ProcessValue &value, bool lock, bool keepValueOnError) const
{
    if (m_bufferHandler == nullptr) {
        qWarning() << "No BufferHandlerInterface!";
        return;
    }
    if (!m_isValid) {
        qWarning() << "Object is not valid.";
        return;
    }
    if (lock) {
        readUnderLock(value, keepValueOnError, 0);
        return;
    }
    auto *const buffer = m_bufferHandler->readBufferPointer();
    if (buffer == nullptr) {
        qWarning() << "Pointer to readBuffer is 0!";
        return;
    }
    // Whether a writer came in between shows at the unlock only, which is the caller's here.
    readValue(buffer, value, keepValueOnError);
}

void ProcessDataValue::readUnderLock(ProcessValue &value, bool keepValueOnError,
                                     unsigned int attempts) const
{
    // An attempt without a buffer leaves it as the attempt before had it.
    bool repeat = false;
    do {
        tryReadUnderLock(value, keepValueOnError, repeat);
        ++attempts;
    } while (repeat && attempts < maximumReadAttempts);

    if (repeat) {
        value.setValue(QVariant());
        qWarning() << "Reading does not work.";
        return;
    }
    if (attempts > usualReadAttempts) {
        qInfo() << "The following number of repetitions were required for reading:" << attempts;
    }
}

void ProcessDataValue::tryReadUnderLock(ProcessValue &value, bool keepValueOnError,
                                        bool &repeat) const
{
    auto *const buffer = m_bufferHandler->lockForRead();
    if (buffer == nullptr) {
        qWarning() << "Pointer to readBuffer is 0!";
        return;
    }
    readValue(buffer, value, keepValueOnError);
    if (!m_bufferHandler->unlockForRead(buffer, repeat)) {
        qWarning() << "Unlock does not work.";
    }
}

void ProcessDataValue::readValue(BufferHandlerInterface::BufferPointer buffer, ProcessValue &value,
                                 bool keepValueOnError) const
{
    if (!selectSlot(buffer, getAccessSize())) {
        return;
    }
    try {
        readSlot(value);
    } catch (const QException &) {
        qWarning() << "Error occurred. Function canceled.";
    }
    if (!keepValueOnError
        && value.getErrorType() != ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID) {
        value.setValue(QVariant());
    }
}

bool ProcessDataValue::setValueInternal(const ProcessValue &value, bool lock)
{
    if (m_bufferHandler == nullptr) {
        qWarning() << "No BufferHandlerInterface!";
        return false;
    }
    if (!m_isValid) {
        qWarning() << "Object is not valid";
        return false;
    }
    if (!isWritable()) {
        qWarning() << "ProcessValue hasn't written because it is readOnly." << value;
        return false;
    }
    if (value.getErrorType() != ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID) {
        // The content of an erroneous value never reaches the slot.
        return writeAndLockValue(ProcessValue(value.getErrorType()), lock);
    }
    // Nearly always it is of the very type, which needs no call to be found out.
    if (!NumberVariant::isOfType(value.getValue(), m_metaType)
        && !value.getValue().canConvert(m_metaType)) {
        qWarning() << "Wrong type: " << value.getValue().type() << " != " << m_metaType;
        return false;
    }
    return writeAndLockValue(value, lock);
}

bool ProcessDataValue::writeAndLockValue(const ProcessValue &value, bool lock)
{
    auto *const buffer = lock ? m_bufferHandler->lockForWrite() : getWriteBuffer();
    if (buffer == nullptr) {
        qWarning() << "Pointer to pingpongbuffer is nullptr.";
        return false;
    }
    const bool written = writeValue(buffer, value);
    if (lock) {
        m_bufferHandler->unlockForWrite(buffer);
    }
    return written;
}

bool ProcessDataValue::writeValue(BufferHandlerInterface::BufferPointer buffer,
                                  const ProcessValue &value) const
{
    if (writeDirectly(buffer, value)) {
        return true;
    }
    if (!selectSlot(buffer, getWriteSize(value))) {
        return false;
    }
    try {
        return writeSlot(value);
    } catch (const QException &) {
        qWarning() << "Error occurred. Function canceled.";
        return false;
    }
}

quint64 ProcessDataValue::getWriteSize(const ProcessValue &value) const
{
    const quint64 accessSize = getAccessSize();
    if (m_metaType != QMetaType::QString) {
        return accessSize;
    }
    const auto unitCount = static_cast<quint64>(value.getValue().toString().length()) + 1;
    return std::min(unitCount * sizeof(ushort), accessSize);
}
