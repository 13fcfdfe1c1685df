#include "ProcLoadavg.h"

#include <QList>

namespace {

std::optional<double> decimal(const QByteArray &text)
{
    bool ok = false;
    const double number = text.toDouble(&ok);
    return ok ? std::make_optional(number) : std::nullopt;
}

} // namespace

ProcLoadavg ProcLoadavg::parse(const QByteArray &text)
{
    // 0.42 0.37 0.30 2/311 6985: three averages, running and all tasks, the newest process.
    const auto fields = text.simplified().split(' ');
    ProcLoadavg loadavg;
    loadavg.average1 = decimal(fields.value(0));
    loadavg.average5 = decimal(fields.value(1));
    loadavg.average15 = decimal(fields.value(2));
    bool ok = false;
    const quint64 tasks = fields.value(3).split('/').value(1).toULongLong(&ok);
    if (ok) {
        loadavg.tasks = tasks;
    }
    return loadavg;
}
