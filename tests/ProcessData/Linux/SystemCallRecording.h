#pragma once

#include <QStringList>

#include <initializer_list>

/// Writes down the system calls of this program as long as it lives, one at a time.
///
/// The functions of the system library that shared memory is made with are replaced in a program
/// with this class: they let a call through, or fail as a test has told them.
class SystemCallRecording
{
public:
    SystemCallRecording();
    ~SystemCallRecording();

    SystemCallRecording(const SystemCallRecording &) = delete;
    SystemCallRecording &operator=(const SystemCallRecording &) = delete;

    /// Errors of the next calls of @p function in turn. Calls behind the last one are let through.
    static void letFail(const char *function, std::initializer_list<int> errors);
    /// The calls so far, each with what it was given; begins anew.
    static QStringList take();
};
