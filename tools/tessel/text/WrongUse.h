#pragma once

#include "text/Failure.h"

/// Ends the subcommand @p command because of how it was called.
[[noreturn]] inline void refuseUse(const char *command, const QString &reason)
{
    throw Failure{
        ExitCode::WrongUse,
        QStringLiteral("%1: %2; see 'tessel %1 --help'").arg(QLatin1String(command), reason)};
}
