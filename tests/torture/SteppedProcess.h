#pragma once

#include <functional>

#include <sys/types.h>

namespace Torture {

/// A child that is led through a part of its work instruction by instruction, and stands still
/// between them.
class SteppedProcess
{
public:
    using Body = std::function<void()>;

    /// Comes back when the body has called awaitSteps(), or has ended.
    explicit SteppedProcess(const Body &body);
    ~SteppedProcess();

    SteppedProcess(const SteppedProcess &) = delete;
    SteppedProcess &operator=(const SteppedProcess &) = delete;

    /// In the body: what follows is done step by step.
    static void awaitSteps();

    /// The system does not let one process lead another.
    bool isRefused() const { return m_isRefused; }
    bool isAlive() const { return m_pid > 0; }
    /// Instructions, or system calls, as long as @p goesOn says so, which is asked before each.
    /// False if the process ended or one of them did not come back.
    bool lead(const std::function<bool()> &goesOn);
    /// Lets it do the rest. True if it ended by itself.
    bool goOn();
    /// Comes back when the kernel has given back all that it held.
    void kill();

private:
    bool waitForStop();

    pid_t m_pid = -1;
    bool m_isRefused = false;
    bool m_hasEnded = false;
};

} // namespace Torture
