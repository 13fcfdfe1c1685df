#include "ProcMeminfo.h"

#include <QList>

namespace {

/// The number of a line such as "MemTotal:  24684084 kB".
std::optional<quint64> bytesIn(const QByteArray &line)
{
    constexpr quint64 bytesInKibibyte = 1024;
    bool ok = false;
    const quint64 number = line.simplified().split(' ').value(1).toULongLong(&ok);
    return ok ? std::make_optional(number * bytesInKibibyte) : std::nullopt;
}

} // namespace

ProcMeminfo ProcMeminfo::parse(const QByteArray &text)
{
    ProcMeminfo meminfo;
    const auto lines = text.split('\n');
    for (const auto &line : lines) {
        if (line.startsWith("MemTotal:")) {
            meminfo.total = bytesIn(line);
        } else if (line.startsWith("MemAvailable:")) {
            meminfo.available = bytesIn(line);
        } else if (line.startsWith("SwapTotal:")) {
            meminfo.swapTotal = bytesIn(line);
        } else if (line.startsWith("SwapFree:")) {
            meminfo.swapFree = bytesIn(line);
        }
    }
    return meminfo;
}

std::optional<double> ProcMeminfo::used() const
{
    if (!total || !available || *total == 0 || *available > *total) {
        return std::nullopt;
    }
    return 100.0 * double(*total - *available) / double(*total);
}
