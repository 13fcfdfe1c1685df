#pragma once

#include <QByteArray>

#include <optional>

/// What /proc/loadavg tells: the mean number of waiting tasks, and how many there are.
struct ProcLoadavg
{
    std::optional<double> average1;
    std::optional<double> average5;
    std::optional<double> average15;
    std::optional<quint64> tasks;

    static ProcLoadavg parse(const QByteArray &text);
};
