#include "torture/SteppedProcess.h"

#include "torture/CaughtSignal.h"

#include <QtGlobal>

#include <cerrno>
#include <csignal>

#include <sched.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Torture {

namespace {

constexpr int exitRefused = 98;
/// Seconds for what takes milliseconds.
constexpr unsigned int bound = 60;

volatile std::sig_atomic_t hasRung = 0;

void ring(int /*number*/)
{
    hasRung = 1;
}

/// So that a call that does not come back fails instead of waiting for ever.
class Alarm
{
public:
    Alarm()
    {
        hasRung = 0;
        struct sigaction action
        {
        };
        action.sa_handler = ring;
        sigaction(SIGALRM, &action, nullptr);
        alarm(bound);
    }
    ~Alarm() { alarm(0); }

    Alarm(const Alarm &) = delete;
    Alarm &operator=(const Alarm &) = delete;
};

pid_t waitFor(pid_t pid, int &status)
{
    pid_t result = -1;
    do {
        result = waitpid(pid, &status, 0);
    } while (result < 0 && errno == EINTR && hasRung == 0);
    return result;
}

/// Two that take turns at each instruction are several times faster on one processor.
void stayOnProcessor()
{
    cpu_set_t own;
    CPU_ZERO(&own);
    CPU_SET(static_cast<std::size_t>(sched_getcpu()), &own);
    sched_setaffinity(0, sizeof own, &own);
}

} // namespace

SteppedProcess::SteppedProcess(const Body &body)
{
    stayOnProcessor();
    const pid_t driver = getpid();
    m_pid = fork();
    if (m_pid < 0) {
        qFatal("no child process");
    }
    if (m_pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        ignoreSignals();
        if (getppid() != driver) {
            _exit(1);
        }
        if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) {
            _exit(exitRefused);
        }
        body();
        _exit(0);
    }
    const Alarm alarm;
    if (waitForStop()) {
        ptrace(PTRACE_SETOPTIONS, m_pid, nullptr, PTRACE_O_EXITKILL);
    }
}

SteppedProcess::~SteppedProcess()
{
    kill();
}

void SteppedProcess::awaitSteps()
{
    raise(SIGSTOP);
}

/// True if it stands still.
bool SteppedProcess::waitForStop()
{
    int status = 0;
    if (waitFor(m_pid, status) != m_pid) {
        return false;
    }
    if (WIFSTOPPED(status)) {
        return true;
    }
    m_isRefused = WIFEXITED(status) && WEXITSTATUS(status) == exitRefused;
    m_hasEnded = WIFEXITED(status) && WEXITSTATUS(status) == 0;
    m_pid = -1;
    return false;
}

bool SteppedProcess::lead(const std::function<bool()> &goesOn)
{
    const Alarm alarm;
    while (isAlive() && goesOn()) {
        if (ptrace(PTRACE_SINGLESTEP, m_pid, nullptr, nullptr) != 0 || !waitForStop()) {
            return false;
        }
    }
    return isAlive();
}

bool SteppedProcess::goOn()
{
    const Alarm alarm;
    while (isAlive() && ptrace(PTRACE_CONT, m_pid, nullptr, nullptr) == 0 && waitForStop()) { }
    return m_hasEnded;
}

void SteppedProcess::kill()
{
    if (!isAlive()) {
        return;
    }
    int status = 0;
    ::kill(m_pid, SIGKILL);
    do {
        waitFor(m_pid, status);
    } while (WIFSTOPPED(status));
    m_pid = -1;
}

} // namespace Torture
