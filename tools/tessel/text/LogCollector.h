#pragma once

#include <QString>

/// Takes in the library's messages, so that its warnings can become part of the tool's one line.
///
/// One at a time, from its construction to its destruction.
class LogCollector
{
public:
    LogCollector();
    ~LogCollector();

    LogCollector(const LogCollector &) = delete;
    LogCollector &operator=(const LogCollector &) = delete;

    /// Shows every message raw on standard error as well.
    static void showMessages();
    /// Keeps what showMessages() would show, the first thousand, until releaseMessages() shows it: while the
    /// terminal shows something else.
    static void holdMessages();
    /// See holdMessages().
    static void releaseMessages();
    /// The warnings since the last call as one short text, repetitions left out; empty if there
    /// were none.
    static QString takeReasons();
};
