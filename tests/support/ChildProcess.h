#pragma once

#include "support/ProcessState.h"

#include <QtTest>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <functional>

#include <poll.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

/// What a child sees of its two pipes.
class ChildSide
{
public:
    ChildSide(int fromParent, int toParent) : m_fromParent(fromParent), m_toParent(toParent) { }

    /// One word to the parent. Makes a single system call, write().
    void say() const
    {
        const char word = 'w';
        if (write(m_toParent, &word, 1) != 1) {
            _exit(sm_parentHasGone);
        }
    }

    /// Until the parent tells something.
    void waitForWord() const
    {
        char word = 0;
        ssize_t count = -1;
        do {
            count = read(m_fromParent, &word, 1);
        } while (count < 0 && errno == EINTR);
        if (count != 1) {
            _exit(sm_parentHasGone);
        }
    }

    /// Whether the parent has told something that was not waited for yet.
    bool hasWord() const
    {
        pollfd word{m_fromParent, POLLIN, 0};
        return poll(&word, 1, 0) > 0;
    }

private:
    static constexpr int sm_parentHasGone = 99;

    int m_fromParent;
    int m_toParent;
};

/// A second process that runs a function object and shares what was mapped before.
///
/// Both sides tell each other by pipes where they are. All waits of the parent have a bound that is
/// long against any honest run, so that a broken test fails and does not hang. The child ends
/// without running anything that the test program would run at its end, and never outlives it.
class ChildProcess
{
public:
    /// Gives the exit code; 0 where everything was as expected (see CHILD_VERIFY).
    using Body = std::function<int(const ChildSide &)>;

    /// What waitForExit() gives where the child did not end.
    static constexpr int sm_notEnded = -1000;
    /// Exit code of a child that could not try what it was there for.
    static constexpr int sm_cannotTry = 77;

    explicit ChildProcess(const Body &body)
    {
        int down[2] = {-1, -1};
        int up[2] = {-1, -1};
        const pid_t parent = getpid();
        if (pipe(down) != 0 || pipe(up) != 0 || (m_pid = fork()) < 0) {
            qFatal("no child process");
        }
        if (m_pid == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            if (getppid() != parent) {
                _exit(1);
            }
            close(down[1]);
            close(up[0]);
            _exit(body(ChildSide(down[0], up[1])));
        }
        close(down[0]);
        close(up[1]);
        m_toChild = down[1];
        m_fromChild = up[0];
    }

    ~ChildProcess()
    {
        if (m_pid > 0) {
            kill();
        }
        close(m_toChild);
        close(m_fromChild);
    }

    ChildProcess(const ChildProcess &) = delete;
    ChildProcess &operator=(const ChildProcess &) = delete;

    /// Takes one word of the child. False if it ended or said nothing.
    bool waitUntilReady() const
    {
        char word = 0;
        return waitForInput(sm_bound) && read(m_fromChild, &word, 1) == 1;
    }
    /// Whether the child has said something that was not taken yet.
    bool hasSpoken() const
    {
        pollfd input{m_fromChild, POLLIN, 0};
        return poll(&input, 1, 0) == 1 && (input.revents & POLLIN) != 0;
    }
    bool hasEnded() const
    {
        pollfd input{m_fromChild, POLLIN, 0};
        return poll(&input, 1, 0) == 1 && (input.revents & POLLHUP) != 0;
    }
    /// Until the child has nothing to do but wait for something. False if it does not come to that.
    bool waitUntilAsleep() const
    {
        const auto deadline = std::chrono::steady_clock::now()
                              + std::chrono::milliseconds(sm_bound);
        while (!hasEnded() && std::chrono::steady_clock::now() < deadline) {
            if (processState(m_pid) == 'S') {
                return true;
            }
            sched_yield();
        }
        return false;
    }
    void tell() const
    {
        const char word = 'w';
        // A child that has ended shows in what the test looks at next.
        const sigset_t former = block(SIGPIPE);
        [[maybe_unused]] const ssize_t written = write(m_toChild, &word, 1);
        forgetPending(SIGPIPE, former);
    }

    void send(int signal) const { ::kill(m_pid, signal); }
    /// Comes back when the child stands still.
    bool stop() const
    {
        int status = 0;
        send(SIGSTOP);
        return waitpid(m_pid, &status, WUNTRACED) == m_pid && WIFSTOPPED(status);
    }
    void resume() const { send(SIGCONT); }
    /// Comes back when the kernel has given back all that the child held. True if it was killed.
    bool kill()
    {
        send(SIGKILL);
        return waitForExit() == -SIGKILL;
    }
    /// The exit code of the child, or minus the number of the signal that ended it.
    int waitForExit()
    {
        if (m_pid <= 0) {
            return sm_notEnded;
        }
        // Its end of the pipe closes with it.
        while (waitForInput(sm_bound)) {
            char word = 0;
            if (read(m_fromChild, &word, 1) <= 0) {
                return reap();
            }
        }
        return sm_notEnded;
    }

private:
    static constexpr int sm_bound = 60000; // milliseconds

    bool waitForInput(int bound) const
    {
        pollfd input{m_fromChild, POLLIN, 0};
        int count = -1;
        do {
            count = poll(&input, 1, bound);
        } while (count < 0 && errno == EINTR);
        return count == 1;
    }

    int reap()
    {
        int status = 0;
        const pid_t ended = waitpid(m_pid, &status, 0);
        m_pid = -1;
        if (ended < 0) {
            return sm_notEnded;
        }
        return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
    }

    static sigset_t block(int signal)
    {
        sigset_t set{};
        sigset_t former{};
        sigemptyset(&set);
        sigaddset(&set, signal);
        pthread_sigmask(SIG_BLOCK, &set, &former);
        return former;
    }
    static void forgetPending(int signal, const sigset_t &former)
    {
        sigset_t set{};
        sigemptyset(&set);
        sigaddset(&set, signal);
        const timespec atOnce{0, 0};
        while (sigtimedwait(&set, nullptr, &atOnce) == signal) { }
        pthread_sigmask(SIG_SETMASK, &former, nullptr);
    }

    pid_t m_pid = -1;
    int m_toChild = -1;
    int m_fromChild = -1;
};

/// Verifies that the exit code of a child is 0; skips the test where the child could not try. The
/// comma in QSKIP is for compilers that insist on an argument for its dots.
#define COMPARE_EXIT(exitCode, need)                                                               \
 do {                                                                                              \
  const int childExitCode = (exitCode);                                                            \
  if (childExitCode == ChildProcess::sm_cannotTry) {                                               \
   QSKIP("needs " need, );                                                                         \
  }                                                                                                \
  QCOMPARE(childExitCode, 0);                                                                      \
 } while (false)

/// In the body of a child: ends it with exit code 1 and tells where.
#define CHILD_VERIFY(condition)                                                                    \
 do {                                                                                              \
  if (!(condition)) {                                                                              \
   std::fprintf(stderr, "%s:%d: child: %s is false\n", __FILE__, __LINE__, #condition);            \
   return 1;                                                                                       \
  }                                                                                                \
 } while (false)
