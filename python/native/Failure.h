#pragma once

#include <QString>

/// What an operation of the module throws where it cannot do what it was asked for. The caller in Python gets
/// the exception of that name, whose exit code is the one that `tessel` would end with.
struct Failure
{
    enum class Kind {
        Use,            ///< a call that makes no sense
        Closed,         ///< the region was closed
        Forked,         ///< the region belongs to the parent process
        UnknownUrl,     ///< no element there
        Missing,        ///< no such file, folder or region
        Access,         ///< no permission, or the region cannot be attached
        Refused,        ///< a check refused the value
        TypeRefused,    ///< the value is of a type that does not fit
        TimedOut,       ///< somebody held a lock for too long, or a bound is over
        NotReliable,    ///< no consistent set was to be had
        LayoutMismatch, ///< region and description do not match, or the region was replaced
        File            ///< a file that is read or written
    };

    Kind kind;
    QString text;
};

/// Has Failures arrive in Python. Called once, when the module is loaded.
void registerFailures();
