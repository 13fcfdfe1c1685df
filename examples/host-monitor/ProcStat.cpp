#include "ProcStat.h"

#include <QList>

namespace {

std::optional<quint64> number(const QList<QByteArray> &fields, int index)
{
    bool ok = false;
    const quint64 number = fields.value(index).toULongLong(&ok);
    return ok ? std::make_optional(number) : std::nullopt;
}

std::optional<ProcStat::ProcessorTimes> parseTimes(const QList<QByteArray> &fields)
{
    // cpu user nice system idle iowait irq softirq steal; guest time is part of user already.
    constexpr int leastFields = 6;
    if (fields.size() < leastFields) {
        return std::nullopt;
    }
    const auto ticks = [&fields](int index) { return number(fields, index).value_or(0); };
    return ProcStat::ProcessorTimes{ticks(1) + ticks(2), ticks(3) + ticks(6) + ticks(7) + ticks(8),
                                    ticks(4), ticks(5)};
}

} // namespace

ProcStat ProcStat::parse(const QByteArray &text)
{
    ProcStat stat;
    const auto lines = text.split('\n');
    for (const auto &line : lines) {
        const auto fields = line.simplified().split(' ');
        const QByteArray &name = fields.constFirst();
        if (name == "cpu") {
            stat.times = parseTimes(fields);
        } else if (name.startsWith("cpu")) {
            ++stat.processors;
        } else if (name == "ctxt") {
            stat.contextSwitches = number(fields, 1);
        } else if (name == "processes") {
            stat.processesCreated = number(fields, 1);
        } else if (name == "procs_running") {
            stat.processesRunning = number(fields, 1);
        } else if (name == "procs_blocked") {
            stat.processesBlocked = number(fields, 1);
        } else if (name == "btime") {
            stat.bootTime = number(fields, 1);
        }
    }
    return stat;
}

std::optional<ProcessorShares> ProcessorShares::between(const ProcStat::ProcessorTimes &before,
                                                        const ProcStat::ProcessorTimes &after)
{
    // The kernel's counters of idle and waiting time may step back a little.
    const auto passed = [](quint64 from, quint64 to) {
        return to > from ? double(to - from) : 0.0;
    };
    const double user = passed(before.user, after.user);
    const double system = passed(before.system, after.system);
    const double idle = passed(before.idle, after.idle);
    const double waiting = passed(before.waiting, after.waiting);
    const double total = user + system + idle + waiting;
    if (total <= 0.0) {
        return std::nullopt;
    }
    const double percent = 100.0 / total;
    return ProcessorShares{user * percent, system * percent, idle * percent, waiting * percent};
}
