#include "torture/TorturePeer.h"

#include <csignal>

#include <unistd.h>

// What a process writes, and the faults on purpose.

namespace Torture {

namespace {

/// After so many rounds a fault comes.
constexpr quint64 roundsBeforePlant = 30;

void increase(std::atomic<quint64> &counter)
{
    counter.fetch_add(1, std::memory_order_relaxed);
}

} // namespace

quint64 TorturePeer::takeNumber(Content content)
{
    const quint64 count = m_ledger.setCount.fetch_add(1) + 1;
    return SetNumber::make(count, m_start.slot, content);
}

void TorturePeer::writeSet()
{
    ProcessDataManager &manager = m_region->manager;
    const qint64 begin = steadyNow();
    timed(Phase::Writing, [&manager] { return manager.lockWriteBuffer(); });
    if (manager.getPointerWriteBuffer() == nullptr) {
        manager.unlockWriteBuffer();
        noteRefusal("a write lock", begin, m_entry.refusedLocks);
        return;
    }
    m_entry.phase = Phase::Writing;
    bool isWritten = fillSet();
    if (random(8) == 0) {
        // Publishes what is written so far and goes on in the other buffer. It wakes behind the unlock.
        beginPublishing();
        swap();
        isWritten = fillSet() && isWritten;
    }
    timed(Phase::Writing, [&manager] { return manager.unlockWriteBuffer(); });
    m_entry.phase = Phase::Outside;
    endPublishing();
    if (!isWritten) {
        fail(QStringLiteral("refused without a reason: a value inside a write lock"));
    }
    increase(m_entry.setsWritten);
    // Now and then the swap of somebody else has to publish this set.
    if (random(8) != 0) {
        publish();
    }
}

/// The number is taken under the lock, so that later sets have greater numbers.
bool TorturePeer::fillSet()
{
    const auto content = static_cast<Content>(random(3));
    const quint64 number = plantedNumber(takeNumber(content), content);
    // Both from the start: who dies between them has not finished the second one.
    RegionEntry &region = m_ledger.region(m_region->generation);
    region.isIncomplete[FirstGroup] = region.isIncomplete[FirstGroup] || content != Content::Second;
    region.isIncomplete[SecondGroup] = region.isIncomplete[SecondGroup]
                                       || content != Content::First;
    bool isWritten = true;
    if (content != Content::Second) {
        isWritten = fillGroup(FirstGroup, number);
    }
    plantInsideLock();
    if (content != Content::First) {
        isWritten = fillGroup(SecondGroup, number) && isWritten;
    }
    return isWritten;
}

bool TorturePeer::fillGroup(Group group, quint64 number)
{
    const int size = m_region->codec->size(group);
    // Now and then time for a kill or a stop in the middle.
    const int pauseAt = random(16) == 0 ? static_cast<int>(random(static_cast<quint64>(size))) : -1;
    bool isWritten = true;
    for (int i = 0; i < size; ++i) {
        if (i == pauseAt) {
            sleepFor(static_cast<qint64>(random(3 * millisecond)));
        }
        const bool isForeign = isPlanted(Plant::Mixed) && m_rounds % roundsBeforePlant == 0
                               && i == 20;
        isWritten = m_region->codec->writeLeaf(group, i, isForeign ? number - 32 : number)
                    && isWritten;
    }
    m_ledger.region(m_region->generation).isIncomplete[group] = false;
    return isWritten;
}

void TorturePeer::writeSingleValue()
{
    // Only this process writes these leaves, so that its own order is theirs.
    const quint64 number = takeNumber(Content::Single);
    ProcessDataValue &numberLeaf = m_region->codec->singleNumber(m_start.slot);
    ProcessDataValue &textLeaf = m_region->codec->singleText(m_start.slot);
    const bool isText = random(2) == 0;
    ProcessDataValue &leaf = isText ? textLeaf : numberLeaf;
    ProcessValue value(isText ? QVariant(QString::number(number)) : QVariant(number),
                       ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID);
    if (random(8) == 0) {
        value = ProcessValue(ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_OVERRANGE);
    }
    const qint64 begin = steadyNow();
    if (!timed(Phase::Writing, [&leaf, &value] { return leaf.setValue(value); })) {
        noteRefusal("a single value", begin, m_entry.refusedLocks);
        return;
    }
    increase(m_entry.valuesWritten);
    publish();
}

void TorturePeer::publish()
{
    beginPublishing();
    swap();
    endPublishing();
}

void TorturePeer::swap()
{
    ProcessDataManager &manager = m_region->manager;
    const qint64 begin = steadyNow();
    if (timed(Phase::Writing, [&manager] { return manager.swapReadAndWriteBuffer(); })) {
        return;
    }
    if (m_ledger.killCount > 0) {
        // What somebody left unfinished is taken back, and this set with it.
        increase(m_entry.refusedSwaps);
        return;
    }
    noteRefusal("a swap", begin, m_entry.refusedSwaps);
}

quint64 TorturePeer::plantedNumber(quint64 number, Content content) const
{
    constexpr quint64 setsBack = 20;
    if (m_rounds % roundsBeforePlant != 0) {
        return number;
    }
    // One set is one in the count, which stands above the lowest five bits.
    if (isPlanted(Plant::Backward)) {
        // In one group alone it would be a mixed set to whoever never read that group; and before the
        // first set there is none that somebody could have written.
        const bool isPossible = content == Content::Both && SetNumber::count(number) > setsBack;
        return isPossible ? number - setsBack * 32 : number;
    }
    return isPlanted(Plant::Nobody) ? number + quint64{1000000} * 32 : number;
}

void TorturePeer::plantInsideLock()
{
    if (m_role != Role::BulkWriter || m_rounds % roundsBeforePlant != 0) {
        return;
    }
    if (isPlanted(Plant::Wait)) {
        sleepFor(3 * second);
    }
}

void TorturePeer::plantOutside()
{
    if (isPlanted(Plant::Beyond) && m_role == Role::SingleReader && m_ledger.isHolderCaught) {
        timed(Phase::Reading, [] {
            sleepFor(3 * second);
            return true;
        });
    }
    if (m_role == Role::SingleWriter && m_rounds == roundsBeforePlant) {
        if (isPlanted(Plant::Signal)) {
            // The sanitizers turn most signals into an exit.
            raise(SIGKILL);
        }
        if (isPlanted(Plant::Exit)) {
            _exit(0);
        }
        if (isPlanted(Plant::Hang)) {
            timed(Phase::Writing, [] {
                sleepFor(60 * second);
                return true;
            });
        }
    }
}

void TorturePeer::plantLateness() const
{
    if (isPlanted(Plant::Late) && m_rounds % roundsBeforePlant == 0) {
        sleepFor(3 * second);
    }
}

} // namespace Torture
