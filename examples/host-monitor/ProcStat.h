#pragma once

#include <QByteArray>

#include <optional>

/// What /proc/stat tells: time spent by all processors since the start, and counts of processes.
struct ProcStat
{
    /// In ticks of the kernel's clock.
    struct ProcessorTimes
    {
        quint64 user;
        quint64 system;
        quint64 idle;
        quint64 waiting;

        quint64 total() const { return user + system + idle + waiting; }
    };

    std::optional<ProcessorTimes> times;
    unsigned int processors = 0;
    std::optional<quint64> contextSwitches;
    std::optional<quint64> processesCreated;
    std::optional<quint64> processesRunning;
    std::optional<quint64> processesBlocked;
    /// Seconds since 1970.
    std::optional<quint64> bootTime;

    static ProcStat parse(const QByteArray &text);
};

/// Where the processors' time went between two readings, in percent.
struct ProcessorShares
{
    double user;
    double system;
    double idle;
    double waiting;

    double usage() const { return user + system; }

    /// Nothing if no time passed.
    static std::optional<ProcessorShares> between(const ProcStat::ProcessorTimes &before,
                                                  const ProcStat::ProcessorTimes &after);
};
