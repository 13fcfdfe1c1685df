#pragma once

#include "CommandLine.h"
#include "ExitCode.h"

/// A subcommand: what it takes and what it does. Each stands in a file of its own.
struct Command
{
    CommandSyntax syntax;
    ExitCode (*run)(const CommandLine &line);
};

Command infoCommand();
Command holdCommand();
Command getCommand();
Command setCommand();
Command watchCommand();

/// The FILE argument, with which every subcommand begins.
CommandSyntax::Positional fileArgument();
/// The [URL...] argument of those that read.
CommandSyntax::Positional urlsArgument();
