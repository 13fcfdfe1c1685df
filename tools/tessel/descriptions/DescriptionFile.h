#pragma once

#include "text/ExitCode.h"

#include <QString>

/// Ends a subcommand because of what is on the disk at @p path.
[[noreturn]] void refusePath(ExitCode code, const QString &path, const QString &reason);

/// Refuses what cannot be a process description: missing, no file, unreadable, or of another name.
void requireDescriptionFile(const QString &path);

/// Why a text is no JSON, as "line 3, column 7: reason"; empty if it is.
QString jsonProblem(const QByteArray &text);
/// Why the library could not parse a file: "line 3, column 7: reason" if it is no JSON, else what
/// the library said since the last take of its reasons.
QString parseProblem(const QString &path);
