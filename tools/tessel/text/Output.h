#pragma once

#include <QString>

#include <functional>

/// Standard output and standard error as the tool uses them, in UTF-8 and without a buffer.
///
/// Data goes to standard output. Throws OutputClosed when its reader has gone, and a Failure when
/// it cannot be written.
void writeOutput(const QString &text);
/// The same beside an answer that the exit code gives: a reader that has gone does not change it.
void writeBesideAnswer(const QString &text);
/// Whatever @p print writes, in the same way.
void printBesideAnswer(const std::function<void()> &print);
/// A long text for standard output that is made piece by piece, so that it never lies in memory as a whole.
class LongOutput
{
public:
    void add(const QString &piece);
    /// Writes what has not been written yet; to be called once, at the end.
    void finish();

private:
    QString m_waiting;
};

/// One line on standard error. Line breaks and control characters inside become visible escapes.
void writeErrorLine(const QString &line);

/// The text without anything that would move a terminal's cursor or break a line: control
/// characters become escapes such as `\n` and `\u001b`.
QString printable(const QString &text);
