#pragma once

#include <QString>
#include <QStringList>

/// What the library says, on its way into Python's `logging`.
///
/// It may speak on any thread, inside its locks and without the interpreter's. So a message is only put into a
/// queue, and the queue is emptied by a thread that holds the interpreter's lock and no other.
class LibraryMessages
{
public:
    LibraryMessages() = delete;

    /// From now on the messages of Qt in this process come here.
    static void install();
    /// Hands what waits to the logger `tessel`. Needs the interpreter's lock.
    static void deliver();
};

/// While it lives, the messages of the library on this thread are kept here: they are the reason inside an
/// exception. What nobody takes goes into the queue at the end.
class LibraryReasons
{
public:
    LibraryReasons();
    ~LibraryReasons();

    LibraryReasons(const LibraryReasons &) = delete;
    LibraryReasons &operator=(const LibraryReasons &) = delete;

    /// All warnings so far, on one line; they are not told again.
    static QString take();
    /// @p text, and behind a colon what take() gives, if that is anything.
    static QString behind(const QString &text);
};
