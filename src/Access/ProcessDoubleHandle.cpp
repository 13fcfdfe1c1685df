#include "Access/ProcessDoubleHandle.h"

#include "Access/NumberLeaf_p.h"
#include "ProcessData/Linux/SlotAccess_p.h"

using ProcessDataDefinitions::ErrorTypes;

namespace {

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

/// One attempt by a thread that is about nothing else. A function of its own for each form, so that
/// the usual ones need no registers saved.
template <SlotForm form>
[[gnu::noinline]] bool readForm(const ProcessDataValue &leaf, double &value, ErrorTypes &state)
{
    const OptimisticRead attempt(SlotAccess::directHandler(leaf));
    const NumberSlot slot = SlotAccess::directSlot(leaf);
    if (!NumberSlots::isOnWords<form>(attempt.buffer(), slot)) {
        return readGenerally(leaf, value, state);
    }
    const auto reading = NumberSlots::load<form, SharedAlignment::Words>(attempt.buffer(), slot);
    if (!attempt.isReliable()) {
        return readAgain(leaf, value, state);
    }
    value = static_cast<double>(reading.value);
    state = reading.state;
    return true;
}

} // namespace

ProcessDoubleHandle::ProcessDoubleHandle(const ProcessDataValueSharedPointer &leaf)
    : m_leaf(numberLeaf(leaf, QStringLiteral("the given leaf")))
{
}

ProcessDoubleHandle::ProcessDoubleHandle(const BaseClassSharedPointer &root, const QString &url)
    : m_leaf(findNumberLeaf(root, url))
{
}

bool ProcessDoubleHandle::read(double &value, ErrorTypes &state) const
{
    const ProcessDataValue *const leaf = m_leaf.data();
    if (leaf == nullptr) {
        return false;
    }
    if (!OptimisticRead::isPossible()) {
        return readBusily(*leaf, value, state);
    }
    return NumberSlots::withForm(
        SlotAccess::directForm(*leaf), [&] { return readGenerally(*leaf, value, state); },
        [&](auto form) { return readForm<form>(*leaf, value, state); });
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
