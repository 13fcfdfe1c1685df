#include "torture/PeerProcess.h"

#include "torture/CaughtSignal.h"

#include <QByteArray>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Torture {

namespace {

const char *const thisProgram = "/proc/self/exe";

pid_t waitForChange(pid_t pid, int &status, int options)
{
    pid_t result = -1;
    do {
        result = waitpid(pid, &status, options);
    } while (result < 0 && errno == EINTR);
    return result;
}

/// Until nobody has the other end of the pipe any more.
void waitForEnd(int pipe)
{
    char word = 0;
    while (read(pipe, &word, 1) < 0 && errno == EINTR) { }
}

/// Closes @p bound as soon as it cannot outlive the driver.
[[noreturn]] void becomePeer(pid_t driver, int bound, char *const *arguments)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != driver) {
        _exit(1);
    }
    close(bound);
    ignoreSignals();
    execv(thisProgram, arguments);
    _exit(1);
}

} // namespace

PeerProcess::~PeerProcess()
{
    if (isAlive()) {
        kill();
    }
}

void PeerProcess::start(const QStringList &arguments)
{
    std::vector<QByteArray> texts{QByteArrayLiteral("torture")};
    texts.reserve(static_cast<std::size_t>(arguments.size()) + 1);
    for (const QString &argument : arguments) {
        texts.push_back(argument.toLocal8Bit());
    }
    std::vector<char *> pointers;
    pointers.reserve(texts.size() + 1);
    for (QByteArray &text : texts) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    const pid_t driver = getpid();
    int bound[2] = {-1, -1};
    const pid_t child = pipe2(bound, O_CLOEXEC) == 0 ? fork() : -1;
    if (child < 0) {
        qFatal("no child process");
    }
    if (child == 0) {
        becomePeer(driver, bound[1], pointers.data());
    }
    // One that was stopped before that would stand still for ever once the driver is killed.
    close(bound[1]);
    waitForEnd(bound[0]);
    close(bound[0]);
    m_pid = child;
    m_isAlive = true;
    m_isStopped = false;
    m_end.reset();
    const std::string path = "/proc/" + std::to_string(child) + "/schedstat";
    m_schedulerStatistics = open(path.c_str(), O_RDONLY | O_CLOEXEC);
}

bool PeerProcess::stop()
{
    int status = 0;
    ::kill(m_pid, SIGSTOP);
    if (waitForChange(m_pid, status, WUNTRACED) == m_pid && WIFSTOPPED(status)) {
        m_isStopped = true;
        return true;
    }
    m_end = status;
    return false;
}

void PeerProcess::resume()
{
    m_isStopped = false;
    ::kill(m_pid, SIGCONT);
}

bool PeerProcess::kill()
{
    if (m_end) {
        return false;
    }
    int status = 0;
    starved();
    ::kill(m_pid, SIGKILL);
    waitForChange(m_pid, status, 0);
    if (WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) {
        forget();
        return true;
    }
    m_end = status;
    return false;
}

std::optional<int> PeerProcess::collectEnd()
{
    int status = 0;
    if (!m_end && isAlive() && waitForChange(m_pid, status, WNOHANG) == m_pid) {
        m_end = status;
    }
    const std::optional<int> end = m_end;
    if (end) {
        forget();
    }
    return end;
}

qint64 PeerProcess::starved()
{
    // Time on a processor, time of waiting for one, number of slices.
    char text[128] = {};
    if (m_schedulerStatistics >= 0 && pread(m_schedulerStatistics, text, sizeof text - 1, 0) > 0) {
        char *rest = nullptr;
        std::strtoull(text, &rest, 10);
        m_starvedNow = static_cast<qint64>(std::strtoull(rest, nullptr, 10));
    }
    return m_starvedBefore + m_starvedNow;
}

void PeerProcess::forget()
{
    if (m_schedulerStatistics >= 0) {
        close(m_schedulerStatistics);
    }
    m_schedulerStatistics = -1;
    m_starvedBefore += m_starvedNow;
    m_starvedNow = 0;
    m_isAlive = false;
    m_isStopped = false;
    m_end.reset();
}

} // namespace Torture
