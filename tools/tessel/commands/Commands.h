#pragma once

#include "commandline/CommandLine.h"
#include "text/ExitCode.h"

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
Command applyCommand();
Command watchCommand();
Command waitCommand();
Command expectCommand();
Command recordCommand();
Command replayCommand();
Command exportCommand();
Command snapshotCommand();
Command compareCommand();
Command explainCommand();
Command doctorCommand();
Command statCommand();
Command simCommand();
Command trendCommand();
Command regionsCommand();
Command removeCommand();
Command buildCommand();
Command mergeCommand();
Command configCommand();
Command layoutCommand();
Command diffCommand();
Command validateCommand();
Command schemaCommand();
Command genCommand();
Command helpCommand();
/// For the completion of shells.
Command completeCommand();

/// All of them, in the order of the help.
QVector<Command> allCommands();

/// What the tool is, and all subcommands.
QString generalHelp();

/// The FILE argument of those that read a description, which may be a folder of files.
CommandSyntax::Positional fileArgument();
/// The [URL...] argument of those that read.
CommandSyntax::Positional urlsArgument();

/// The RECORDING argument of those that read one.
CommandSyntax::Positional recordingArgument();

/// The --prefix option of those that build a folder.
QCommandLineOption prefixOption();
/// What it says, or the usual prefix.
QString keyPrefixFrom(const CommandLine &line);
