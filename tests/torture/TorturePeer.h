#pragma once

#include "Access/ProcessDataWatcher.h"
#include "ProcessDataManagement/ProcessDataManager.h"
#include "support/FutexCalls.h"
#include "torture/SetCodec.h"
#include "torture/SharedLedger.h"

#include <QByteArray>
#include <QString>

#include <atomic>
#include <chrono>
#include <memory>
#include <random>
#include <thread>

namespace Torture {

/// One process of the torture: uses the library as an application would, checks what it reads, and
/// tells the ledger what it does.
class TorturePeer
{
public:
    struct Start
    {
        int slot;
        quint64 seed;
        bool isDoubleBuffer;
        QString key;
    };

    TorturePeer(Ledger &ledger, const Start &start);
    /// Until the ledger asks it to end. The exit code of the process.
    int run();

private:
    /// The region at which the process is at the moment.
    struct Region
    {
        ProcessDataManager manager;
        ProcessDataManager::BaseClassSharedPointer root;
        std::unique_ptr<SetCodec> codec;
        std::unique_ptr<ProcessDataWatcher> watcher;
        quint64 awaited = 0; ///< the newest set that a wait has told of
        quint64 told = 0;    ///< the newest set that an acknowledgement has told of
        quint64 generation = 0;
        quint64 newestGroup[2] = {0, 0};
        quint64 newestNumber[maximumPeers] = {};
        quint64 newestText[maximumPeers] = {};
    };

    bool isAskedToEnd() const;
    bool isReplaced() const;
    /// Whether a creator has come to work since this process joined its region: then locks may be
    /// refused.
    bool isDisturbed() const;
    quint64 random(quint64 bound) { return m_random() % bound; }

    void createRegion();
    void attachToRegion();
    void join(std::unique_ptr<Region> region, quint64 generation);
    quint64 memoryNumber() const;
    void work();
    void workOnce();
    bool isWriter() const;
    void workAlone();
    void leaveAlone() const;

    /// Longer than the longest sleep in the kernel, and short for whoever waits for an end.
    static constexpr std::chrono::milliseconds sm_waitBound{1500};
    /// A call of at least this length is told to the driver.
    static constexpr qint64 sm_notableCall = 20 * millisecond;
    // What may wait for a lock, with a note in the ledger of how long it took.
    template <class Call>
    auto timed(Phase phase, const Call &call);
    void noteRefusal(const char *what, qint64 begin, std::atomic<quint64> &counter);

    // Writing.
    void writeSet();
    quint64 takeNumber(Content content);
    bool fillSet();
    bool fillGroup(Group group, quint64 number);
    void writeSingleValue();
    void publish();
    void swap();

    // Waiting, and what publishers tell those who wait (TorturePeerWaiting.cpp).
    void prepareWaiting();
    void waitForSet();
    ProcessDataWatcher::Result waitBehind(quint64 &seen);
    template <class Call>
    auto inLedger(quint64 seen, const Call &call);
    void judgeResult(ProcessDataWatcher::Result result, quint64 former, quint64 seen);
    void noteBegin();
    void noteSleep(const FutexCalls::EndedWait &wait);
    void beginPublishing();
    void endPublishing();
    bool isAnybodyPublishing() const;
    void noteSleepers();
    void judgeWake(long woken);
    static void tellWaiter(WaitEntry &waiter, quint64 region, quint64 published);

    // Waiting through a descriptor (TorturePeerPolling.cpp).
    void beginPolling(Region &region);
    void pollForSet();
    void acknowledge();
    void waitBesideRest();
    bool isResting() const;
    void plantLostArming() const;

    // Reading.
    void readSet();
    bool tryReadSet(GroupValues (&values)[2], bool &repeat, bool (&isIncomplete)[2]);
    void checkSet(const GroupValues (&values)[2], const bool (&isIncomplete)[2]);
    bool checkGroup(Group group, const GroupValues &values, quint64 &number);
    void checkOrder(const char *what, quint64 number, quint64 &newest);
    bool isWritten(quint64 number, Group group) const;
    void readSingleValue();
    ProcessValue readValue(const ProcessDataValue &leaf);
    void readNumber(const ProcessDataValue &leaf, Group group, int slot, quint64 &newest);
    void readText(int slot);
    void checkSingle(quint64 number, int slot, Group group, quint64 &newest);
    void noteAttempts(quint64 attempts, qint64 begin);

    [[noreturn]] void fail(const QString &text);

    // Faults on purpose.
    bool isPlanted(Plant plant) const { return m_ledger.plant == plant; }
    quint64 plantedNumber(quint64 number, Content content) const;
    void plantInsideLock();
    void plantOutside();
    void plantLateness() const;

    Ledger &m_ledger;
    PeerEntry &m_entry;
    const Start m_start;
    const Role m_role;
    std::mt19937_64 m_random;
    std::unique_ptr<Region> m_region;
    quint64 m_rounds = 0;
    quint64 m_sleepers[maximumWaiters] = {}; ///< what stood in their words before a wake
    const std::thread::id m_ownThread = std::this_thread::get_id();
    std::atomic<int> m_descriptor{-1}; ///< of a poller, for the thread behind it
    std::atomic<bool> m_isAcknowledging{false};
    bool m_isReadingSlowly = false;
};

template <class Call>
auto TorturePeer::timed(Phase phase, const Call &call)
{
    const Phase former = m_entry.phase;
    const qint64 begin = steadyNow();
    m_entry.callBegin = begin;
    if (former == Phase::Outside) {
        m_entry.phase = Phase::Calling;
    }
    const auto result = call();
    m_entry.phase = former;
    const qint64 end = steadyNow();
    m_entry.callBegin = 0;
    if (end - begin >= sm_notableCall) {
        const quint32 count = m_entry.callCount;
        m_entry.calls[count % callCapacity] = {begin, end, static_cast<quint32>(phase)};
        m_entry.callCount = count + 1;
    }
    return result;
}

/// With a note in the ledger of which set the call waits for, and how long.
template <class Call>
auto TorturePeer::inLedger(quint64 seen, const Call &call)
{
    WaitEntry &entry = m_entry.wait;
    const qint64 begin = steadyNow();
    entry.region = m_region->generation;
    entry.seen = seen;
    entry.begin = begin;
    const auto result = call();
    plantLateness();
    const qint64 end = steadyNow();
    entry.begin = 0;
    if (end - begin >= sm_notableCall) {
        const quint32 count = entry.waitCount;
        entry.waits[count % callCapacity] = {begin, end, m_region->generation, seen};
        entry.waitCount = count + 1;
    }
    return result;
}

} // namespace Torture
