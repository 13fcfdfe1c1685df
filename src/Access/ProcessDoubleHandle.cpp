#include "Access/ProcessDoubleHandle.h"

#include "Access/NumberLeaf_p.h"
#include "ProcessData/Linux/SlotAccess_p.h"

using ProcessDataDefinitions::ErrorTypes;

namespace {

/// Of a handle without a place. No leaf was bound that often.
constexpr quint32 noBinding = 0;

/// Takes over what a leaf gave into a value that had no content before. A read that failed leaves
/// it so.
bool takeNumber(const ProcessValue &reading, double &value, ErrorTypes &state)
{
    if (!reading.getValue().isValid()) {
        return false;
    }
    value = reading.getValue().toDouble();
    state = reading.getErrorType();
    return true;
}

ProcessValue emptyValue()
{
    return {ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE};
}

/// The way of any handler and of repeated reads.
[[gnu::noinline]] bool readGenerally(const ProcessDataValue &leaf, double &value, ErrorTypes &state)
{
    ProcessValue reading = emptyValue();
    leaf.getValue(reading, true);
    return takeNumber(reading, value, state);
}

[[gnu::noinline]] bool readGenerallyNoLock(const ProcessDataValue &leaf, double &value,
                                           ErrorTypes &state)
{
    ProcessValue reading = emptyValue();
    leaf.getValueNoLock(reading, true);
    return takeNumber(reading, value, state);
}

[[gnu::always_inline]] inline void load(const unsigned char *buffer, const NumberSlot &slot,
                                        double &value, ErrorTypes &state)
{
    const auto reading = NumberSlots::loadAsDouble(buffer, slot);
    value = reading.value;
    state = reading.state;
}

/// Where the thread is inside a lock, or has just been overtaken.
[[gnu::noinline]] bool readBusily(const ProcessDataValue &leaf, double &value, ErrorTypes &state)
{
    const unsigned char *const locked = SlotAccess::isDirect(leaf) ? OptimisticRead::lockedBuffer(
                                            SlotAccess::directHandler(leaf))
                                                                   : nullptr;
    if (locked == nullptr) {
        return readGenerally(leaf, value, state);
    }
    load(locked, SlotAccess::directSlot(leaf), value, state);
    return true;
}

/// After an attempt that a writer has overtaken.
[[gnu::noinline]] bool readAgain(const ProcessDataValue &leaf, double &value, ErrorTypes &state)
{
    OptimisticRead::noteRepetition(SlotAccess::directHandler(leaf));
    return readGenerally(leaf, value, state);
}

/// A leaf of any form.
[[gnu::noinline]] bool readAnyForm(const ProcessDataValue *leaf, double &value, ErrorTypes &state)
{
    if (leaf == nullptr) {
        return false;
    }
    if (!SlotAccess::isDirect(*leaf)) {
        return readGenerally(*leaf, value, state);
    }
    if (!OptimisticRead::isPossible()) {
        return readBusily(*leaf, value, state);
    }
    const OptimisticRead attempt(SlotAccess::directHandler(*leaf));
    const auto reading = NumberSlots::loadAsDouble(attempt.buffer(), SlotAccess::directSlot(*leaf));
    if (!attempt.isReliable()) {
        return readAgain(*leaf, value, state);
    }
    value = reading.value;
    state = reading.state;
    return true;
}

} // namespace

ProcessDoubleHandle::ProcessDoubleHandle()
{
    findPlace();
}

ProcessDoubleHandle::ProcessDoubleHandle(const ProcessDataValueSharedPointer &leaf)
    : m_leaf(numberLeaf(leaf, QStringLiteral("the given leaf")))
{
    findPlace();
}

ProcessDoubleHandle::ProcessDoubleHandle(const BaseClassSharedPointer &root, const QString &url)
    : m_leaf(findNumberLeaf(root, url))
{
    findPlace();
}

void ProcessDoubleHandle::findPlace()
{
    m_place.currentBinding = &noBinding;
    m_place.binding = noBinding + 1;
    if (m_leaf.isNull() || SlotAccess::directForm(*m_leaf) != SlotForm::Double) {
        return;
    }
    const PingPongBufferHandler &handler = SlotAccess::directHandler(*m_leaf);
    const NumberSlot slot = SlotAccess::directSlot(*m_leaf);
    const bool isOnWords =
        NumberSlots::isOnWords<SlotForm::Double>(OptimisticRead::buffer(handler, 0), slot)
        && NumberSlots::isOnWords<SlotForm::Double>(OptimisticRead::buffer(handler, 1), slot);
    if (!slot.hasMetadata || slot.metadataOffset != slot.valueOffset + sizeof(double)
        || !isOnWords) {
        return;
    }
    m_place.values[0] = OptimisticRead::buffer(handler, 0) + slot.valueOffset;
    m_place.values[1] = OptimisticRead::buffer(handler, 1) + slot.valueOffset;
    m_place.management = OptimisticRead::management(handler);
    m_place.currentBinding = &SlotAccess::bindingCount(*m_leaf);
    m_place.binding = *m_place.currentBinding;
}

// As few instructions as there can be: whoever calls this does so for every value of every cycle.
// All that can be is settled in findPlace(), and what cannot be leads to one branch.
[[gnu::hot, gnu::aligned(64)]] bool ProcessDoubleHandle::read(double &value,
                                                              ErrorTypes &state) const
{
    const quint32 isOther = *m_place.currentBinding ^ m_place.binding;
    if (__builtin_expect(static_cast<long>(isOther | OptimisticRead::obstacles()), 0L) != 0) {
        return readAnyForm(m_leaf.data(), value, state);
    }
    const auto &management = *static_cast<const OptimisticRead::Management *>(m_place.management);
    const quint64 epoch = OptimisticRead::epoch(management);
    const unsigned char *const place = m_place.values[epoch & 1];
    const auto number = loadShared<double, SharedAlignment::Words>(place);
    const auto numberState = loadShared<ErrorTypes, SharedAlignment::Words>(place + sizeof number);
    if (__builtin_expect(static_cast<long>(OptimisticRead::isReliable(management, epoch)), 1L)
        == 0) {
        return readAgain(*m_leaf.data(), value, state);
    }
    value = number;
    state = numberState;
    return true;
}

bool ProcessDoubleHandle::readNoLock(double &value, ErrorTypes &state) const
{
    const ProcessDataValue *const leaf = m_leaf.data();
    if (leaf == nullptr) {
        return false;
    }
    if (!SlotAccess::isDirect(*leaf)) {
        return readGenerallyNoLock(*leaf, value, state);
    }
    load(OptimisticRead::readBuffer(SlotAccess::directHandler(*leaf)),
         SlotAccess::directSlot(*leaf), value, state);
    return true;
}

bool ProcessDoubleHandle::write(double value, ErrorTypes state) const
{
    return isValid() && m_leaf->setValue(ProcessValue(QVariant(value), state));
}

bool ProcessDoubleHandle::writeNoLock(double value, ErrorTypes state) const
{
    return isValid() && m_leaf->setValueNoLock(ProcessValue(QVariant(value), state));
}
