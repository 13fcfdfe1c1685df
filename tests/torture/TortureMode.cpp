#include "torture/TortureMode.h"

#include "torture/CaughtSignal.h"

#include <cstdio>

#include <unistd.h>

namespace Torture {

TortureMode::TortureMode(const Options &options)
    : m_options(options)
    , m_key(QStringLiteral("tesselTorture%1").arg(getpid()))
    , m_random(options.seed)
    , m_begin(steadyNow())
{
    m_stage->isDeaf = isPlanted(Plant::Unwarned);
    tellStage(*m_stage);
}

int TortureMode::run()
{
    catchSignals();
    std::printf("torture: seed %llu, key %s\n", m_options.seed, qPrintable(m_key));
    std::fflush(stdout);
    const qint64 deadline = m_begin + m_options.seconds * second;
    while (isGoingOn(deadline)) {
        m_stage->lastMessage[0] = 0;
        playRound();
        ++m_rounds;
        showProgress();
    }
    report();
    if (hasFailed()) {
        return 1;
    }
    return caughtSignal() != 0 ? 128 + caughtSignal() : 0;
}

bool TortureMode::isGoingOn(qint64 deadline) const
{
    return !hasFailed() && caughtSignal() == 0
           && (steadyNow() < deadline || m_rounds < leastRounds());
}

void TortureMode::showProgress()
{
    const bool isTerminal = isatty(STDOUT_FILENO) == 1;
    const qint64 now = steadyNow();
    const qint64 pause = isTerminal ? second / 5 : 10 * second;
    if (m_nextProgress == 0) {
        m_nextProgress = m_begin + pause;
    }
    if (now < m_nextProgress) {
        return;
    }
    m_nextProgress = now + pause;
    std::printf(isTerminal ? "\r\033[K%lld s: %s" : "%lld s: %s\n", (now - m_begin) / second,
                qPrintable(figures()));
    std::fflush(stdout);
}

void TortureMode::report() const
{
    if (isatty(STDOUT_FILENO) == 1) {
        std::printf("\r\033[K");
    }
    std::printf("%lld s: %s\n", (steadyNow() - m_begin) / second, qPrintable(figures()));
    tellMore();
    if (!hasFailed()) {
        std::printf("nothing found\n");
        return;
    }
    std::fflush(stdout);
    std::fprintf(
        stderr,
        "FAILED: %s\n"
        "  in round %llu\n"
        "  last warning of the library: %s\n"
        "  repeat: script/torture %s\n"
        "  The seed gives the same rounds in the same order; where they meet the processes\n"
        "  depends on the machine, so one repetition may not be enough.\n",
        qPrintable(m_failure), m_rounds, m_stage->lastMessage, qPrintable(m_options.toText()));
}

void TortureMode::fail(const QString &text)
{
    if (!hasFailed() && caughtSignal() == 0) {
        m_failure = text;
    }
}

} // namespace Torture
