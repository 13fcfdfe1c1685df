#pragma once

#include "support/SegmentFile.h"
#include "support/SemaphoreSet.h"
#include "torture/PeerProcess.h"
#include "torture/SharedLedger.h"
#include "torture/SwapWatch.h"
#include "torture/TortureOptions.h"
#include "torture/WaitJudge.h"

#include <QString>

#include <random>

namespace Torture {

/// What the driver did and saw.
struct Figures
{
    quint64 kills = 0;
    quint64 killsInside = 0; ///< of processes that were writing
    quint64 stops = 0;
    quint64 stopsInside = 0; ///< of the holder of the lock
    quint64 restarts = 0;
    quint64 cleanEnds = 0;
    qint64 longestWait = 0;
    qint64 longestUnexplained = 0;
    qint64 latestWaiter = 0; ///< behind a set, without what explains it
};

/// Starts the processes, disturbs them, judges what they tell, and ends them.
///
/// Whatever happens, no process and nothing in shared memory stays behind it.
class TortureDriver
{
public:
    explicit TortureDriver(const Options &options);

    /// The exit code: 0 if nothing was found, 1 if something was, 128 + N after signal N.
    int run();

private:
    struct Child
    {
        PeerProcess process;
        qint64 startAt = 0;
        qint64 resumeAt = 0;
        qint64 askedToEndAt = 0; ///< 0: not asked
        quint32 seenCalls = 0;
        quint32 seenWaits = 0;
        quint64 regionsAtStart = 0; ///< made or attached by those that ran in its place before
    };

    // Disturbing (TortureDisturbances.cpp).
    void disturb();
    void kill(int slot);
    void killAll();
    void stop(int slot, qint64 duration);
    void stopHolder();
    void killHolder();
    int catchHolder();
    void resume(int slot);
    void askToEnd(int slot);
    int randomSlot();
    qint64 randomTime(qint64 bound);
    void scheduleStart(int slot);

    // Those who wait for sets (TortureWaiters.cpp).
    void judgeWaits();
    void judgeWait(int slot, const LongWait &wait);
    void judgeOpenWait(int slot);
    qint64 lateness(int slot, const LongWait &wait) const;
    void noteDeathOfPublisher(int slot);

    void plant();
    void tick();
    int slotCount() const { return m_ledger->slotCount; }
    void start(int slot);
    void startDue();
    void collectEnds();
    void judgeEnd(int slot, int status);
    void takeSample(qint64 overslept);
    int findHolder() const;
    int findLastUser(int set, int semaphore) const;
    bool isReaderStopped() const;
    void judgeCalls();
    void judgeCall(int slot, const LongCall &call);
    void judgeOpenCall(int slot);
    void judgeSlowEnd(int slot);

    void runUntil(qint64 deadline);
    bool isTimeLeft(qint64 deadline) const;
    void awaitCreator();
    void endAll();
    bool isAnybodyAlive() const;
    void checkNothingLeft();
    void cleanUp();

    bool hasFailed() const { return !m_failure.isEmpty(); }
    void fail(int slot, const QString &text);

    // Telling (TortureReport.cpp).
    void showProgress();
    QString figuresLine() const;
    quint64 sum(std::atomic<quint64> PeerEntry::*counter) const;
    quint64 sum(std::atomic<quint64> WaitEntry::*counter) const;
    void report() const;

    const Options m_options;
    const QString m_key;
    LedgerMapping m_ledger;
    SemaphoreSet m_semaphores;
    SegmentFile m_segment;
    std::mt19937_64 m_random;
    Child m_children[maximumSlots];
    WaitJudge m_judge;
    SwapWatch m_swaps;
    qint64 m_lastSample = 0;
    Figures m_figures;
    qint64 m_begin;
    qint64 m_nextDisturbance = 0;
    qint64 m_nextProgress = 0;
    bool m_isEnding = false;
    QString m_failure;
    int m_failedSlot = -1;
    pid_t m_failedProcess = -1;
};

} // namespace Torture
