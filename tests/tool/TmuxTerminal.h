#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <functional>

/// A shell on a terminal that tmux makes, whose keys a test types and whose screen it reads.
///
/// Its server has a socket of its own and ends with this object.
class TmuxTerminal
{
public:
    /// @p environment on top of that of the test: "NAME=VALUE".
    TmuxTerminal(int columns, int rows, const QStringList &environment = {});
    ~TmuxTerminal();

    TmuxTerminal(const TmuxTerminal &) = delete;
    TmuxTerminal &operator=(const TmuxTerminal &) = delete;

    /// Whether there is a tmux, and its shell has come to its prompt.
    bool isReady();
    /// What a person sees, a line a row, without blanks at the ends.
    QStringList rows() const;
    QString screen() const { return rows().join(QLatin1Char('\n')); }
    /// The same with the escapes of colours.
    QString colouredScreen() const;
    /// A line and its end for the shell.
    void run(const QString &line) const;
    /// Keys as tmux names them, such as Down, C-c or /.
    void press(const QStringList &keys) const;
    void type(const QString &text) const;
    void resize(int columns, int rows) const;
    /// Whether the terminal shows its other screen, and whether its cursor is seen: "1 0".
    QString flags() const;
    /// Kills the server, and with it the terminal.
    void close();

    /// Until the screen is as wanted, however long that takes; false behind a bound that means never.
    bool waitUntil(const std::function<bool(const QString &screen)> &isWanted) const;
    bool waitFor(const QString &text) const;

private:
    QString tmux(const QStringList &arguments) const;

    QTemporaryDir m_folder;
    bool m_isStarted = false;
};
