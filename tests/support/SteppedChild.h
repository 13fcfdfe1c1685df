#pragma once

#include <csignal>
#include <functional>

#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

/// A child that goes on by one instruction at a time through @p body, after it went through
/// @p prepare in one go. Killed with this object, wherever it is then.
class SteppedChild
{
public:
    explicit SteppedChild(
        const std::function<void()> &body, const std::function<void()> &prepare = [] {})
        : m_pid(fork())
    {
        if (m_pid == 0) {
            // Comes back as stopped; ends with its parent, which traces it.
            if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) {
                _exit(sm_cannotTrace);
            }
            prepare();
            raise(SIGSTOP);
            body();
            _exit(0);
        }
        m_isStopped = m_pid > 0 && waitpid(m_pid, &m_status, 0) == m_pid && WIFSTOPPED(m_status);
        if (m_isStopped) {
            ptrace(PTRACE_SETOPTIONS, m_pid, nullptr, PTRACE_O_EXITKILL);
        }
    }
    ~SteppedChild()
    {
        if (m_isStopped) {
            kill(m_pid, SIGKILL);
            waitpid(m_pid, &m_status, 0);
        }
    }

    SteppedChild(const SteppedChild &) = delete;
    SteppedChild &operator=(const SteppedChild &) = delete;

    bool canBeTraced() const { return m_isStopped || m_status != sm_cannotTrace << 8; }

    /// True while the child has further instructions.
    bool step()
    {
        m_isStopped = m_isStopped && ptrace(PTRACE_SINGLESTEP, m_pid, nullptr, nullptr) == 0
                      && waitpid(m_pid, &m_status, 0) == m_pid && WIFSTOPPED(m_status);
        return m_isStopped;
    }
    /// To the end, in one go.
    void goOn()
    {
        if (m_isStopped) {
            ptrace(PTRACE_CONT, m_pid, nullptr, nullptr);
            waitpid(m_pid, &m_status, 0);
            m_isStopped = WIFSTOPPED(m_status);
        }
    }
    bool hasEndedWell() const { return WIFEXITED(m_status) && WEXITSTATUS(m_status) == 0; }

private:
    static constexpr int sm_cannotTrace = 77;

    pid_t m_pid;
    int m_status = 0;
    bool m_isStopped = false;
};
