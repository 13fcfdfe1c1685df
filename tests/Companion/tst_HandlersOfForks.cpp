#include "Companion/Exchange/LockNotes_p.h"
#include "support/ChildProcess.h"
#include "support/DoubleBuffer.h"

#include <QtTest>

#include <functional>

#include <pthread.h>

namespace {

/// What the handlers of a fork do here, which the program has registered before it used the library;
/// nothing while empty.
std::function<void()> beforeFork;
std::function<void()> inChild;

/// Registered before all else in this program, the notes in it included: a handler that comes before
/// theirs when a child begins, and after theirs when it is about to.
std::function<void()> firstBeforeFork;
std::function<void()> firstInChild;

/// Ends a process in which a handler waits for itself, so that its test fails.
constexpr unsigned int secondsOfAHandler = 60;

void run(const std::function<void()> &handler)
{
    if (handler) {
        alarm(secondsOfAHandler);
        handler();
        alarm(0);
    }
}

constexpr int earliest = 101;

__attribute__((constructor(earliest))) void registerFirst()
{
    pthread_atfork([] { run(firstBeforeFork); }, nullptr, [] { run(firstInChild); });
}

/// Forks with these handlers in a process of its own.
int forkWith(std::function<void()> &handler, const std::function<void()> &what,
             const std::function<int()> &child)
{
    ChildProcess forking([&](const ChildSide &) {
        handler = what;
        const pid_t pid = fork();
        if (pid == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            _exit(child());
        }
        int status = -1;
        CHILD_VERIFY(waitpid(pid, &status, 0) == pid && WIFEXITED(status));
        return WEXITSTATUS(status);
    });
    return forking.waitForExit();
}

} // namespace

/// Programs that use the library in the handlers of a fork (pthread_atfork).
class tst_HandlersOfForks : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void childKeepsTheLockThatItsHandlerTook();
    void handlerBeforeTheForkMakesABufferHandler();
    void earliestHandlerInTheChildMakesABufferHandler();
    void earliestHandlerBeforeTheForkMakesABufferHandler();
};

void tst_HandlersOfForks::initTestCase()
{
    pthread_atfork([] { run(beforeFork); }, nullptr, [] { run(inChild); });
}

void tst_HandlersOfForks::childKeepsTheLockThatItsHandlerTook()
{
    const DoubleBuffer buffer;
    const auto creator = buffer.create();
    DoubleBuffer::Handler handler;
    unsigned char *locked = nullptr;
    const auto lock = [&] {
        handler = buffer.attach();
        locked = handler->lockForWrite();
    };

    const int result = forkWith(inChild, lock, [&] {
        CHILD_VERIFY(locked != nullptr);
        fillBuffer(locked, buffer.size(), 5);
        CHILD_VERIFY(handler->unlockForWrite(locked));
        CHILD_VERIFY(handler->swapBuffers());
        handler.reset();
        return 0;
    });

    QCOMPARE(result, 0);
    QVERIFY(isFilledWith(creator->readBufferPointer(), buffer.size(), 5));
}

void tst_HandlersOfForks::handlerBeforeTheForkMakesABufferHandler()
{
    const DoubleBuffer buffer;
    const auto creator = buffer.create();

    const int result = forkWith(
        beforeFork, [&] { publishSet(*buffer.attach(), 6); }, [] { return 0; });

    QCOMPARE(result, 0);
    QVERIFY(isFilledWith(creator->readBufferPointer(), buffer.size(), 6));
}

void tst_HandlersOfForks::earliestHandlerInTheChildMakesABufferHandler()
{
    quint64 number = 0;
    const quint64 last = LockNotes::newHandlerNumber();

    const int result = forkWith(
        firstInChild, [&] { number = LockNotes::newHandlerNumber(); },
        [&] { return number == last + 1 ? 0 : 1; });

    QCOMPARE(result, 0);
}

void tst_HandlersOfForks::earliestHandlerBeforeTheForkMakesABufferHandler()
{
    quint64 number = 0;
    const quint64 last = LockNotes::newHandlerNumber();

    const int result = forkWith(
        firstBeforeFork, [&] { number = LockNotes::newHandlerNumber(); },
        [&] { return number == last + 1 && LockNotes::newHandlerNumber() == last + 2 ? 0 : 1; });

    QCOMPARE(result, 0);
}

QTEST_GUILESS_MAIN(tst_HandlersOfForks)
#include "tst_HandlersOfForks.moc"
