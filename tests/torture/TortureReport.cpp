#include "torture/TortureDriver.h"

#include <cstdio>

#include <unistd.h>

// What the driver tells.

namespace Torture {

namespace {

QString asSeconds(qint64 nanoseconds)
{
    return QString::number(static_cast<double>(nanoseconds) / second, 'f', 3);
}

} // namespace

quint64 TortureDriver::sum(std::atomic<quint64> PeerEntry::*counter) const
{
    quint64 total = 0;
    for (const PeerEntry &entry : m_ledger->peers) {
        total += entry.*counter;
    }
    return total;
}

quint64 TortureDriver::sum(std::atomic<quint64> WaitEntry::*counter) const
{
    quint64 total = 0;
    for (const PeerEntry &entry : m_ledger->peers) {
        total += entry.wait.*counter;
    }
    return total;
}

QString TortureDriver::figuresLine() const
{
    return QStringLiteral("%1 s: %2 kills, %3 stops, %4 restarts, %5 sets written, %6 read, "
                          "longest wait %7 s")
        .arg((steadyNow() - m_begin) / second)
        .arg(m_figures.kills)
        .arg(m_figures.stops)
        .arg(m_figures.restarts)
        .arg(sum(&PeerEntry::setsWritten))
        .arg(sum(&PeerEntry::setsRead))
        .arg(asSeconds(m_figures.longestWait));
}

void TortureDriver::showProgress()
{
    const bool isTerminal = isatty(STDOUT_FILENO) == 1;
    const qint64 now = steadyNow();
    if (m_nextProgress == 0) {
        std::printf("torture: seed %llu, key %s\n", m_options.seed, qPrintable(m_key));
        std::fflush(stdout);
        m_nextProgress = now + (isTerminal ? 0 : 10 * second);
    }
    if (now < m_nextProgress) {
        return;
    }
    m_nextProgress = now + (isTerminal ? second / 5 : 10 * second);
    std::printf(isTerminal ? "\r\033[K%s" : "%s\n", qPrintable(figuresLine()));
    std::fflush(stdout);
}

void TortureDriver::report() const
{
    if (isatty(STDOUT_FILENO) == 1) {
        std::printf("\r\033[K");
    }
    std::printf("%s\n", qPrintable(figuresLine()));
    std::printf("  killed while writing %llu, stopped inside the lock %llu, ended cleanly %llu\n",
                m_figures.killsInside, m_figures.stopsInside, m_figures.cleanEnds);
    std::printf("  regions made %llu, attached %llu\n", m_ledger->peers[0].regions.load(),
                sum(&PeerEntry::regions) - m_ledger->peers[0].regions);
    std::printf("  single values written %llu, read %llu\n", sum(&PeerEntry::valuesWritten),
                sum(&PeerEntry::valuesRead));
    quint64 streak = 0;
    for (const PeerEntry &entry : m_ledger->peers) {
        streak = qMax(streak, entry.longestStreak.load());
    }
    std::printf("  phases of a writer alone %llu\n", sum(&PeerEntry::phasesAlone));
    std::printf("  reads repeated %llu, at most %llu attempts for one set\n",
                sum(&PeerEntry::repeats), streak);
    std::printf("  locks refused %llu, swaps refused %llu, all with a reason\n",
                sum(&PeerEntry::refusedLocks), sum(&PeerEntry::refusedSwaps));
    std::printf("  of the waits at most %s s without a reason\n",
                qPrintable(asSeconds(m_figures.longestUnexplained)));
    if (slotCount() > m_options.processes) {
        std::printf(
            "  sets awaited %llu, sleeps %llu, of them run out beside a new set %llu, waiters at "
            "most %s s late\n",
            sum(&WaitEntry::setsAwaited), sum(&WaitEntry::sleeps), sum(&WaitEntry::slices),
            qPrintable(asSeconds(m_figures.latestWaiter)));
        std::printf("  sets awaited through a descriptor %llu, beside its resting thread %llu\n",
                    sum(&WaitEntry::setsPolled), sum(&WaitEntry::waitsBesides));
    }
    if (!hasFailed()) {
        std::printf("nothing found\n");
        return;
    }
    std::fflush(stdout);
    std::fprintf(stderr, "FAILED: %s\n", qPrintable(m_failure));
    if (m_failedSlot >= 0) {
        std::fprintf(stderr, "  process %d, %s, pid %d\n", m_failedSlot,
                     roleName(m_ledger->roles[m_failedSlot]), static_cast<int>(m_failedProcess));
        std::fprintf(stderr, "  last warning of the library there: %s\n",
                     m_ledger->peers[m_failedSlot].lastMessage);
    }
    std::fprintf(stderr,
                 "  repeat: script/torture %s\n"
                 "  The seed gives the same disturbances in the same order; where they meet the\n"
                 "  processes depends on the machine, so one repetition may not be enough.\n",
                 qPrintable(m_options.toText()));
}

} // namespace Torture
