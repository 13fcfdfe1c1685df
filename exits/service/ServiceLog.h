#pragma once

#include <QString>
#include <QStringList>

/// The log of a program without a terminal: lines on standard error, each with its cause and, where
/// there is one, its cure. Where the journal listens each line carries its level.
///
/// May be used from any thread once start() was called.
class ServiceLog
{
public:
    /// The numbers are those of the journal.
    enum class Level { Error = 3, Warning = 4, Notice = 5, Info = 6 };

    ServiceLog() = delete;

    /// Names the program at the head of each line, and takes the messages of the library in as warnings.
    static void start(const QString &program);
    /// From now on notices are left out: for a run whose user waits for its output.
    static void leaveNoticesOut();

    /// Control characters inside become visible escapes, so that a line stays one.
    static void write(Level level, const QString &text);
    static void error(const QString &text) { write(Level::Error, text); }
    static void warning(const QString &text) { write(Level::Warning, text); }
    static void notice(const QString &text) { write(Level::Notice, text); }
};

/// While it lives, the warnings of the library on this thread are kept here and not written: they are the
/// reason inside a line of the program's own.
class LibraryReasons
{
public:
    LibraryReasons();
    ~LibraryReasons();

    LibraryReasons(const LibraryReasons &) = delete;
    LibraryReasons &operator=(const LibraryReasons &) = delete;

    /// In one line of bounded length; empty without any.
    QString text() const;

private:
    friend class ServiceLog;

    LibraryReasons *m_outer;
    QStringList m_reasons;
};
