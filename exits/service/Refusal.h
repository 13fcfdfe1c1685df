#pragma once

#include <QString>

/// How a program of this folder ends; the numbers are those of the tool.
enum class ExitCode {
    Done = 0,            ///< Ended as it was told to.
    WrongUse = 2,        ///< The command line or the configuration makes no sense.
    NotFound = 3,        ///< No such file.
    NoAccess = 4,        ///< No permission, or an address that cannot be had.
    LayoutMismatch = 8,  ///< Region and description do not match.
    InputOutputFile = 9, ///< A file that cannot be used, standard output included.
    Internal = 10        ///< A mistake in the program.
};

/// Why something cannot be done, in one line with its cure. Thrown anywhere; ends a program at its start,
/// and leaves a running one as it was.
struct Refusal
{
    ExitCode code;
    QString text;
};
