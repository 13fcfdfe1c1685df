#pragma once

#include <QByteArray>

#include <optional>

/// What /proc/meminfo tells, in bytes.
struct ProcMeminfo
{
    std::optional<quint64> total;
    std::optional<quint64> available;
    std::optional<quint64> swapTotal;
    std::optional<quint64> swapFree;

    static ProcMeminfo parse(const QByteArray &text);

    /// What is in use of the memory, in percent.
    std::optional<double> used() const;
};
