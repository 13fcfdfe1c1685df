#pragma once

/// How the tool ends. The numbers are the same for every subcommand and never change.
enum class ExitCode {
    Done = 0,            ///< Done, or the answer is yes.
    AnsweredNo = 1,      ///< Asked and answered: no.
    WrongUse = 2,        ///< The command line makes no sense.
    NotFound = 3,        ///< No such URL, file or region.
    NoAccess = 4,        ///< No permission, or the region cannot be attached.
    Refused = 5,         ///< A check refused: type, range, read-only.
    TimedOut = 6,        ///< Another process held a lock for too long, or a wait ran out.
    NotReliable = 7,     ///< No attempt to read gave one consistent set.
    LayoutMismatch = 8,  ///< Region and description do not match, or the region was replaced.
    InputOutputFile = 9, ///< A file that is read or written, standard output included.
    Internal = 10        ///< A mistake in the tool.
};
