#pragma once

#include <chrono>
#include <initializer_list>

/// Waits for the signals that end a program and, if asked to, for those about its terminal.
///
/// From its construction to its destruction these signals no longer do what they usually do; they
/// are kept until wait() fetches them, so that none is lost; once it has told of the end, further ones that end
/// the program have no effect any more. Make it before anything that must be
/// cleaned up. The process must have no second thread then.
class SignalWait
{
public:
    enum class Event {
        TimePassed,
        End,       ///< SIGINT, SIGTERM or SIGHUP.
        Resized,   ///< SIGWINCH.
        Stop,      ///< SIGTSTP: the terminal asks this process to stop.
        Continued, ///< SIGCONT: this process was stopped, by whatever, and goes on.
        Readable   ///< What waitUntilReadable() was given.
    };

    enum class Signals {
        Ending,            ///< What End stands for.
        EndingAndTerminal, ///< Resized and Stop as well.
        FullScreen ///< Continued as well, for who has changed the modes of the terminal; SIGQUIT ends.
    };

    explicit SignalWait(Signals signals);
    ~SignalWait();

    SignalWait(const SignalWait &) = delete;
    SignalWait &operator=(const SignalWait &) = delete;

    Event wait();
    /// At the latest returns when @p deadline is reached.
    Event waitUntil(std::chrono::steady_clock::time_point deadline);
    /// Returns when there is something to read from @p descriptor as well. Signals come first.
    Event waitUntilReadable(int descriptor);
    /// The same of several, at the latest when @p deadline is reached. One below zero is none.
    Event waitUntilReadable(std::initializer_list<int> descriptors,
                            std::chrono::steady_clock::time_point deadline);
    /// The same, at the latest when @p deadline is reached.
    Event waitUntilReadable(int descriptor, std::chrono::steady_clock::time_point deadline);

private:
    Event fetch();

    Signals m_signals;
    int m_fd;
    bool m_isEnding = false; ///< End was told
};
