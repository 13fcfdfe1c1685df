#pragma once

#include "service/Settings.h"

#include <QStringList>

#include <functional>

/// What a program does with its settings; @p words are those of the command line, for whoever reads the
/// configuration again. Gives the exit code. May throw a Refusal.
using ExitWork = std::function<int(const Settings &settings, const QStringList &words)>;

/// The main() of a program of this folder: makes the application and the log, reads the settings, answers
/// `--help` and `--version` itself, and does @p work otherwise. What is refused ends it with one line of
/// the log and its exit code. Call it before there is any thread, so that a Service made in @p work has
/// the signals for itself.
int runExit(int argc, char *argv[], const ProgramSyntax &syntax, const ExitWork &work);
