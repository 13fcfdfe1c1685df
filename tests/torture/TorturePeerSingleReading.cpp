#include "torture/TorturePeer.h"

// Values that are read one by one, each with a lock of its own.

namespace Torture {

namespace {

constexpr auto valid = ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID;
constexpr auto overrange = ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_OVERRANGE;
constexpr auto noInput = ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE;

} // namespace

void TorturePeer::readSingleValue()
{
    const SetCodec &codec = *m_region->codec;
    const int choice = static_cast<int>(random(4));
    if (choice <= SecondGroup) {
        const auto group = static_cast<Group>(choice);
        readNumber(codec.groupNumber(group), group, -1, m_region->newestGroup[group]);
        return;
    }
    const int slot = static_cast<int>(random(static_cast<quint64>(m_ledger.peerCount)));
    // A kill leaves half a text in a single buffer.
    if (choice == 2 || !m_start.isDoubleBuffer) {
        readNumber(codec.singleNumber(slot), SingleValues, slot, m_region->newestNumber[slot]);
        return;
    }
    readText(slot);
}

ProcessValue TorturePeer::readValue(const ProcessDataValue &leaf)
{
    // A read that is refused leaves this as it is, and one that is given up makes it the same.
    ProcessValue value(valid);
    const qint64 begin = steadyNow();
    timed(Phase::Reading, [&leaf, &value] {
        leaf.getValue(value);
        return true;
    });
    if (value.getErrorType() == valid && !value.getValue().isValid()) {
        m_entry.refusedLocks.fetch_add(1, std::memory_order_relaxed);
        if (!isDisturbed() && steadyNow() - begin < second) {
            fail(QStringLiteral("starved: a value could not be read"));
        }
        return value;
    }
    m_entry.valuesRead.fetch_add(1, std::memory_order_relaxed);
    return value;
}

void TorturePeer::readNumber(const ProcessDataValue &leaf, Group group, int slot, quint64 &newest)
{
    const ProcessValue value = readValue(leaf);
    const auto state = value.getErrorType();
    if (state == noInput) {
        // As the creator left it; or, in a single buffer, a value whose state is missing.
        if (newest != 0 && m_start.isDoubleBuffer) {
            fail(QStringLiteral("back in time: no value after %1").arg(newest));
        }
        return;
    }
    if (state == overrange && group == SingleValues) {
        return;
    }
    const quint64 number = value.getValue().toULongLong();
    if (!value.getValue().isValid() || (number == 0 && !m_start.isDoubleBuffer)) {
        return;
    }
    if (state != valid) {
        fail(QStringLiteral("nobody wrote state %1").arg(static_cast<int>(state)));
    }
    checkSingle(number, slot, group, newest);
}

void TorturePeer::readText(int slot)
{
    const ProcessValue value = readValue(m_region->codec->singleText(slot));
    const auto state = value.getErrorType();
    if (state == noInput && m_region->newestText[slot] != 0) {
        fail(QStringLiteral("back in time: no text after %1").arg(m_region->newestText[slot]));
    }
    if (state == noInput || state == overrange || !value.getValue().isValid()) {
        return;
    }
    if (state != valid) {
        fail(QStringLiteral("nobody wrote a text with state %1").arg(static_cast<int>(state)));
    }
    checkSingle(value.getValue().toString().toULongLong(), slot, SingleValues,
                m_region->newestText[slot]);
}

void TorturePeer::checkSingle(quint64 number, int slot, Group group, quint64 &newest)
{
    const bool isOfSlot = slot < 0 || SetNumber::slot(number) == slot;
    if (!isOfSlot || !isWritten(number, group)) {
        fail(QStringLiteral("nobody wrote value %1").arg(number));
    }
    checkOrder("value", number, newest);
}

} // namespace Torture
