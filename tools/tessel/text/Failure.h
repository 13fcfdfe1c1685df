#pragma once

#include "text/ExitCode.h"

#include <QString>

/// Ends a subcommand: what the one line on standard error says, and the exit code. Thrown anywhere,
/// caught in one place.
struct Failure
{
    ExitCode code;
    QString reason;
};

/// Nobody reads standard output any more. Ends the tool without a word.
struct OutputClosed
{
};
