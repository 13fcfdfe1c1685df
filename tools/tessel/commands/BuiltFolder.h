#pragma once

#include "commandline/CommandLine.h"

/// Refuses, by a Failure, a --prefix for a file, which has its key.
void refusePrefixOfFile(const CommandLine &line, const QString &command);
/// Of a subcommand that creates a region: builds the folder that is named first, whose files need not agree yet
/// on one memory. Leaves a file alone. Throws a Failure, also where --prefix is given for a file.
void buildIfFolder(const CommandLine &line, const QString &command);
