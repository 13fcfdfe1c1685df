#include "ProcUptime.h"

#include <QList>

std::optional<double> parseUptime(const QByteArray &text)
{
    bool ok = false;
    const double seconds = text.simplified().split(' ').constFirst().toDouble(&ok);
    return ok ? std::make_optional(seconds) : std::nullopt;
}
