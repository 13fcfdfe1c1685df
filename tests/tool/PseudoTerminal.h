#pragma once

#include <QByteArray>
#include <QStringList>

#include <sys/types.h>

/// The built tool on a terminal of its own.
class PseudoTerminal
{
public:
    PseudoTerminal(const QStringList &arguments, int rows, int columns,
                   const QStringList &environment);
    ~PseudoTerminal();

    PseudoTerminal(const PseudoTerminal &) = delete;
    PseudoTerminal &operator=(const PseudoTerminal &) = delete;

    /// Reads until the terminal has shown @p text behind what was read before. False if the tool
    /// ended first.
    bool readUntil(const QByteArray &text);
    void type(const QByteArray &keys);
    /// Makes the terminal another size, which the tool is told by a signal.
    void resize(int rows, int columns);
    /// Sends a signal to the tool; false if it has ended.
    bool signal(int number) const;
    /// Reads the rest and waits for the end. The exit code; -1 if a signal ended it.
    int finish();

    /// Of the tool, while it runs.
    pid_t pid() const { return m_child; }
    /// Everything shown so far.
    const QByteArray &shown() const { return m_shown; }

private:
    bool readMore();

    int m_fd = -1;
    pid_t m_child = -1;
    QByteArray m_shown;
    int m_searched = 0;
};
