#include "Access/ProcessDataSnapshot.h"

#include "Access/ConsistentReading_p.h"
#include "Companion/Exchange/HandlerNumber_p.h"
#include "Companion/Exchange/SharedBytes_p.h"
#include "ProcessData/Linux/SlotAccess_p.h"
#include "ProcessDataManagement/ManagerAccess_p.h"

#include <QDebug>

#include <algorithm>
#include <cstring>
#include <new>

namespace {

/// The generation of the set that this thread has locked.
quint64 lockedGeneration(const ProcessDataManager &manager)
{
    const auto *const handler = dynamic_cast<const PingPongBufferHandler *>(
        ManagerAccess::handler(manager));
    return handler != nullptr ? OptimisticRead::lockedEpoch(*handler).value_or(0) : 0;
}

template <class Value>
bool isSame(const NumberReading<Value> &left, const NumberReading<Value> &right)
{
    // NOLINTNEXTLINE(bugprone-suspicious-memory-comparison): the bits count; NaN is NaN, and -0 is not 0.
    return left.state == right.state && std::memcmp(&left.value, &right.value, sizeof(Value)) == 0;
}

bool isSameText(const ProcessValue &left, const ProcessValue &right)
{
    return left.getErrorType() == right.getErrorType() && left.getValue() == right.getValue();
}

/// Every byte is about to be written: what a former copy has filled is not filled anew. False if there
/// is no room.
bool fit(std::vector<unsigned char> &bytes, std::size_t size)
{
    if (bytes.size() == size) {
        return true;
    }
    try {
        // Not both at once.
        std::vector<unsigned char>().swap(bytes);
        bytes.resize(size);
    } catch (const std::bad_alloc &) {
        return false;
    }
    return true;
}

} // namespace

bool ProcessDataSnapshot::take(ProcessDataManager &manager)
{
    m_generation = 0;
    m_handler = 0;
    if (!manager.isBufferValid()) {
        m_bytes.clear();
        qWarning() << "No process data memory to read from.";
        return false;
    }
    // Before the lock: the longer a set is read, the more often a writer spoils it.
    std::size_t size = manager.getSizeBuffer();
    bool hasRoom = fit(m_bytes, size);
    const bool isConsistent = hasRoom && ConsistentReading::repeatUntilReliable(manager, [&] {
                                  size = manager.getSizeBuffer();
                                  hasRoom = fit(m_bytes, size);
                                  if (hasRoom) {
                                      copyShared(m_bytes.data(), manager.getPointerReadBuffer(),
                                                 size);
                                      m_generation = lockedGeneration(manager);
                                  }
                              });
    if (!hasRoom) {
        qWarning() << "No room for a copy of" << size << "bytes of process data.";
    }
    if (!isConsistent || !hasRoom) {
        m_bytes.clear();
        m_generation = 0;
        return false;
    }
    m_handler = HandlerNumber::of(ManagerAccess::handler(manager));
    return true;
}

bool ProcessDataSnapshot::holds(const ProcessDataValue &leaf) const
{
    return !isEmpty() && SlotAccess::isBound(leaf)
           && HandlerNumber::of(SlotAccess::handler(leaf)) == m_handler
           && SlotAccess::bufferSize(leaf) == getSize();
}

bool ProcessDataSnapshot::getValue(const ProcessDataValue &leaf, ProcessValue &value,
                                   bool keepValueOnError) const
{
    if (!holds(leaf)) {
        qWarning() << "Process value is not of the memory that was copied.";
        return false;
    }
    SlotAccess::read(leaf, m_bytes.data(), value, keepValueOnError);
    return true;
}

bool ProcessDataSnapshot::isDifferent(const ProcessDataValue &leaf,
                                      const ProcessDataSnapshot &other) const
{
    if (!holds(leaf) || !other.holds(leaf)) {
        return true;
    }
    const NumberSlot slot = SlotAccess::slot(leaf);
    if (NumberSlots::endOf(slot) > getSize()) {
        return true;
    }
    return NumberSlots::withForm(
        slot.form,
        [&] {
            ProcessValue own(ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE);
            ProcessValue others(own);
            SlotAccess::read(leaf, m_bytes.data(), own, true);
            SlotAccess::read(leaf, other.m_bytes.data(), others, true);
            return !isSameText(own, others);
        },
        [&](auto form) {
            return !isSame(NumberSlots::load<form>(m_bytes.data(), slot),
                           NumberSlots::load<form>(other.m_bytes.data(), slot));
        });
}

QVector<ProcessDataValueSharedPointer> ProcessDataSnapshot::getDifferent(
    const QVector<ProcessDataValueSharedPointer> &leaves, const ProcessDataSnapshot &other) const
{
    QVector<ProcessDataValueSharedPointer> different;
    std::copy_if(leaves.cbegin(), leaves.cend(), std::back_inserter(different),
                 [&](const auto &leaf) { return !leaf.isNull() && isDifferent(*leaf, other); });
    return different;
}
