#pragma once

#include "commandline/CommandLine.h"
#include "live/AskedValues.h"

/// What the subcommands have in common that write several values at once.

/// --dry-run, --json and --no-limits.
QList<QCommandLineOption> writingOptions();
AskedValues::Limits limitsFrom(const CommandLine &line);
/// Writes the values and publishes them, or leaves it at that with --dry-run, and prints what was and what is.
void writeAndPrint(const CommandLine &line, const DescriptionSource &description,
                   const QVector<LeafWrite> &writes);
