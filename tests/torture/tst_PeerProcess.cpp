#include "support/ChildProcess.h"
#include "support/SharedRegion.h"
#include "torture/PeerProcess.h"

#include <QtTest>

#include <atomic>
#include <cstdarg>
#include <new>

#include <dlfcn.h>

using namespace Torture;

namespace {

/// What a driver and the process that it starts know of each other.
struct Notes
{
    std::atomic<bool> isStarted{false}; ///< for the driver
    std::atomic<pid_t> peer{0};
};

/// Nothing while nobody is interested.
Notes *notes = nullptr;

bool hasEnded(pid_t process)
{
    const char state = processState(process);
    // Whoever comes after its driver may be slow to fetch it.
    return state == '\0' || state == 'Z';
}

} // namespace

/// A process is about to tell how it wants to end with its driver. Holds it there until the driver goes on, or
/// waits for it.
extern "C" Q_DECL_EXPORT int prctl(int option, ...) noexcept
{
    va_list arguments;
    va_start(arguments, option);
    const unsigned long argument = va_arg(arguments, unsigned long);
    va_end(arguments);
    if (option == PR_SET_PDEATHSIG && notes != nullptr) {
        while (!notes->isStarted && processState(getppid()) != 'S') {
            sched_yield();
        }
    }
    using Control = int (*)(int, ...);
    return reinterpret_cast<Control>(dlsym(RTLD_NEXT, "prctl"))(option, argument);
}

/// The children of the driver.
class tst_PeerProcess : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void stoppedAtOnceItDoesNotOutliveItsDriver();
};

void tst_PeerProcess::stoppedAtOnceItDoesNotOutliveItsDriver()
{
    const SharedMapping mapping(sizeof(Notes));
    auto *const shared = new (mapping.start()) Notes;
    ChildProcess driver([shared](const ChildSide &parent) {
        notes = shared;
        PeerProcess peer;
        peer.start({QStringLiteral("--peer")});
        shared->isStarted = true;
        CHILD_VERIFY(peer.stop());
        shared->peer = peer.pid();
        parent.say();
        parent.waitForWord();
        return 0;
    });
    QVERIFY(driver.waitUntilReady());
    const pid_t peer = shared->peer;

    driver.send(SIGKILL);

    const bool isOver = QTest::qWaitFor([peer] { return hasEnded(peer); }, 60000);
    if (!isOver) {
        kill(peer, SIGKILL);
    }
    QVERIFY(isOver);
    QCOMPARE(driver.waitForExit(), -SIGKILL);
}

int main(int argc, char **argv)
{
    if (argc == 2 && qstrcmp(argv[1], "--peer") == 0) {
        return pause();
    }
    QCoreApplication application(argc, argv);
    tst_PeerProcess test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_PeerProcess.moc"
