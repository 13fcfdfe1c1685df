#include "torture/ForkedChild.h"

#include <csignal>

#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Torture {

namespace {

/// Longer than two locks in a row may wait.
constexpr qint64 childBound = 12 * second;

} // namespace

bool ForkedChild::run(quint64 seed) const
{
    const pid_t parent = getpid();
    const pid_t child = fork();
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        _exit(getppid() == parent && behave(seed) ? 0 : 1);
    }
    return expect(child > 0, "no child process") && awaitEnd(child);
}

bool ForkedChild::awaitEnd(pid_t child) const
{
    const qint64 deadline = steadyNow() + childBound;
    int status = 0;
    while (waitpid(child, &status, WNOHANG) == 0) {
        if (steadyNow() > deadline) {
            kill(child, SIGKILL);
            waitpid(child, &status, 0);
            return expect(false, "hangs: a forked child");
        }
        sleepFor(millisecond / 20);
    }
    return expect(!WIFSIGNALED(status), "crash: a forked child") && WEXITSTATUS(status) == 0;
}

bool ForkedChild::expect(bool isTrue, const char *text) const
{
    if (!isTrue && m_stage.failure[0] == '\0') {
        copyText(m_stage.failure, QLatin1String(text));
    }
    return isTrue;
}

bool ForkedChild::behave(quint64 seed) const
{
    if (m_plant == Plant::Hang) {
        pause();
    }
    if (m_plant == Plant::Inherited) {
        m_inheritance.manager->lockWriteBuffer();
    }
    if (!expect(m_inheritance.manager->getPointerWriteBuffer() == nullptr
                    && m_inheritance.manager->getPointerReadBuffer() == nullptr,
                "inherited: a child sees a lock of its parent")) {
        return false;
    }
    const quint64 choice = seed % 3;
    if (choice == 0 && !usesManager()) {
        return false;
    }
    if (choice == 1
        && !expect(m_inheritance.handlerWithoutSemaphores->lockForWrite() == nullptr,
                   "let in: a child without semaphores")) {
        return false;
    }
    if (seed / 3 % 2 == 0) {
        m_inheritance.manager.reset();
    }
    return true;
}

bool ForkedChild::usesManager() const
{
    ProcessDataManager &manager = *m_inheritance.manager;
    bool repeat = false;
    manager.lockReadBuffer();
    const bool isRead = manager.getPointerReadBuffer() != nullptr;
    manager.unlockReadBuffer(repeat);
    if (!expect(isRead, "refused: the read lock of a child")) {
        return false;
    }
    // The thread that forked holds the lock until this process ends.
    if (m_inheritance.inside == Inside::WriteLock) {
        return true;
    }
    manager.lockWriteBuffer();
    const bool isLocked = manager.getPointerWriteBuffer() != nullptr;
    manager.unlockWriteBuffer();
    return expect(isLocked, "refused: the write lock of a child");
}

} // namespace Torture
