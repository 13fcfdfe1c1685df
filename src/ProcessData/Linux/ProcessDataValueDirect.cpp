#include "Companion/Exchange/OptimisticRead_p.h"
#include "Companion/Exchange/SharedBytes_p.h"
#include "ProcessData/Linux/NumberSlot_p.h"
#include "ProcessData/Linux/ProcessDataValue.h"
#include "ProcessData/NumberVariant_p.h"

// The short ways to a number or boolean in a double buffer of this library. What the general ways
// find out at each access (who handles the buffer, where the slot ends, which form it has) was found
// out at binding; what happens to the value, the slot and the notes of the thread is the same. With
// any other handler, inside a nested read, for texts and for conversions the general ways are gone.

namespace {

using ProcessDataDefinitions::ErrorTypes;
using ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID;

} // namespace

/// The slot, which is known to lie inside the buffer.
inline NumberSlot ProcessDataValue::directSlot(SlotForm form) const
{
    return {m_offsetSharedMemory, quint64{m_offsetSharedMemory} + m_relativeOffsetMetadata, form,
            static_cast<quint8>(m_bitmask), m_sizeMetadata != 0};
}

template <class Reading>
[[gnu::always_inline]] inline void ProcessDataValue::deliver(ProcessValue &value,
                                                             const Reading &reading,
                                                             bool keepValueOnError)
{
    value.m_errorType = reading.state;
    const bool hasContent = reading.state == PROCESS_VALUE_ERROR_TYPE_VALID || keepValueOnError;
    if (__builtin_expect(static_cast<long>(hasContent), 1L) != 0) {
        NumberVariant::assign(value.m_value, reading.value);
    } else {
        NumberVariant::clear(value.m_value);
    }
}

/// Slots whose bytes have to be picked up singly, apart from the others: the calls that this takes
/// would make every read save registers for them.
template <SlotForm form>
[[gnu::noinline]] void ProcessDataValue::getNumberInPieces(ProcessValue &value,
                                                           bool keepValueOnError) const
{
    const OptimisticRead attempt(static_cast<const PingPongBufferHandler &>(*m_bufferHandler));
    const NumberSlot slot = directSlot(form);
    const auto reading = NumberSlots::load<form>(attempt.buffer(), slot);
    if (!attempt.isReliable()) {
        getAgain(value, keepValueOnError);
        return;
    }
    deliver(value, reading, keepValueOnError);
}

template <SlotForm form>
[[gnu::always_inline]] inline void ProcessDataValue::getNumber(ProcessValue &value,
                                                               bool keepValueOnError) const
{
    const OptimisticRead attempt(static_cast<const PingPongBufferHandler &>(*m_bufferHandler));
    const NumberSlot slot = directSlot(form);
    if constexpr (!SharedBytes::isAnyAddressOneAccess) {
        if (!NumberSlots::isOnWords<form>(attempt.buffer(), slot)) {
            getNumberInPieces<form>(value, keepValueOnError);
            return;
        }
    }
    const auto reading = NumberSlots::load<form, SharedAlignment::Words>(attempt.buffer(), slot);
    if (!attempt.isReliable()) {
        getAgain(value, keepValueOnError);
        return;
    }
    deliver(value, reading, keepValueOnError);
}

/// After an attempt that a writer has overtaken.
[[gnu::noinline]] void ProcessDataValue::getAgain(ProcessValue &value, bool keepValueOnError) const
{
    OptimisticRead::noteRepetition(static_cast<const PingPongBufferHandler &>(*m_bufferHandler));
    readUnderLock(value, keepValueOnError, 1);
}

template <SlotForm form>
[[gnu::always_inline]] inline void ProcessDataValue::getNumberNoLock(const unsigned char *buffer,
                                                                     ProcessValue &value,
                                                                     bool keepValueOnError) const
{
    deliver(value, NumberSlots::load<form>(buffer, directSlot(form)), keepValueOnError);
}

/// Of any form. Apart from the usual one, which would save the registers that this takes.
[[gnu::noinline]] void ProcessDataValue::getAnyNumber(ProcessValue &value,
                                                      bool keepValueOnError) const
{
    const SlotForm form = OptimisticRead::isPossible() ? m_directForm : SlotForm::None;
    NumberSlots::withForm(
        form, [&] { getValueInternal(value, true, keepValueOnError); },
        [&](auto constant) { getNumber<constant>(value, keepValueOnError); });
}

[[gnu::noinline]] void ProcessDataValue::getAnyNumberNoLock(ProcessValue &value,
                                                            bool keepValueOnError) const
{
    NumberSlots::withForm(
        m_directForm, [&] { getValueInternal(value, false, keepValueOnError); },
        [&](auto constant) {
            getNumberNoLock<constant>(
                OptimisticRead::readBuffer(
                    static_cast<const PingPongBufferHandler &>(*m_bufferHandler)),
                value, keepValueOnError);
        });
}

void ProcessDataValue::getValue(ProcessValue &value, bool keepValueOnError) const
{
    if (m_directForm == SlotForm::Double && OptimisticRead::isPossible()) {
        getNumber<SlotForm::Double>(value, keepValueOnError);
        return;
    }
    getAnyNumber(value, keepValueOnError);
}

void ProcessDataValue::getValueNoLock(ProcessValue &value, bool keepValueOnError) const
{
    if (m_directForm == SlotForm::Double) {
        const unsigned char *const buffer = OptimisticRead::readBufferAtOnce(
            static_cast<const PingPongBufferHandler &>(*m_bufferHandler));
        if (buffer != nullptr) {
            getNumberNoLock<SlotForm::Double>(buffer, value, keepValueOnError);
            return;
        }
    }
    getAnyNumberNoLock(value, keepValueOnError);
}

bool ProcessDataValue::setValueNoLock(const ProcessValue &value)
{
    // The usual case, with all its checks; whatever else has to be said or done is left to the general
    // way.
    const bool isUsual = m_directForm == SlotForm::Double && isWritable()
                         && value.m_errorType == PROCESS_VALUE_ERROR_TYPE_VALID
                         && NumberVariant::isJust<double>(value.m_value)
                         // Noting here would take a call, for which every write saved registers.
                         && OptimisticRead::isNotedAsWritten(
                             static_cast<const PingPongBufferHandler &>(*m_bufferHandler));
    if (__builtin_expect(static_cast<long>(isUsual), 1L) == 0) {
        return setValueInternal(value, false);
    }
    NumberSlots::store<SlotForm::Double>(
        OptimisticRead::notedWriteBuffer(
            static_cast<const PingPongBufferHandler &>(*m_bufferHandler)),
        directSlot(SlotForm::Double), NumberVariant::number<double>(value.m_value),
        PROCESS_VALUE_ERROR_TYPE_VALID);
    return true;
}

BufferHandlerInterface::BufferPointer ProcessDataValue::getWriteBuffer() const
{
    return m_directForm == SlotForm::None
               ? m_bufferHandler->writeBufferPointer()
               : OptimisticRead::writeBuffer(
                   static_cast<const PingPongBufferHandler &>(*m_bufferHandler));
}

bool ProcessDataValue::writeDirectly(BufferHandlerInterface::BufferPointer buffer,
                                     const ProcessValue &value) const
{
    if (m_directForm == SlotForm::None) {
        return false;
    }
    const NumberSlot slot = directSlot(m_directForm);
    return NumberSlots::withForm(
        m_directForm, [] { return false; },
        [&](auto form) {
            using Value = typename FormTypes<form>::Value;
            const ErrorTypes state = value.getErrorType();
            if (state != PROCESS_VALUE_ERROR_TYPE_VALID) {
                // Such a value comes here without content, which counts as 0.
                NumberSlots::store<form>(buffer, slot, Value{}, state);
                return true;
            }
            if (!NumberVariant::holds<Value>(value.getValue())) {
                return false;
            }
            NumberSlots::store<form>(buffer, slot, NumberVariant::number<Value>(value.getValue()),
                                     state);
            return true;
        });
}
