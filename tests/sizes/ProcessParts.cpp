#include "Access/ProcessDataSnapshot.h"
#include "Access/ProcessDataWatcher.h"
#include "Parts.h"
#include "ProcessData/Linux/ProcessDataValue.h"
#include "ProcessDataManagement/ProcessDataManager.h"
#include "Stopwatch.h"

#include <csignal>
#include <cstdlib>
#include <memory>
#include <vector>

#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using Manager = ProcessDataManager;

constexpr int setCount = 100;

constexpr char isWell = 1;
constexpr char hasFailed = 0;

/// A pipe through which processes tell each other how far they are, a byte each.
class Signals
{
public:
    Signals() { require(pipe(m_ends) == 0, QStringLiteral("no pipe")); }
    ~Signals()
    {
        close(m_ends[0]);
        close(m_ends[1]);
    }
    Signals(const Signals &) = delete;
    Signals &operator=(const Signals &) = delete;

    void give(char byte) const
    {
        require(write(m_ends[1], &byte, 1) == 1, QStringLiteral("a pipe is closed"));
    }
    void take(int count) const
    {
        char byte = 0;
        for (int i = 0; i < count; ++i) {
            require(read(m_ends[0], &byte, 1) == 1 && byte == isWell,
                    QStringLiteral("a process has failed"));
        }
    }

private:
    int m_ends[2];
};

/// Attaches, and then reads each set once it is there. Tells that it is there, and that it has read.
void follow(const QString &file, const Signals &there, const Signals &seen)
{
    Manager manager;
    const auto root = manager.createProcessDataFromFile(file, Manager::InitTypeSharedMemoryAttach);
    require(!root.isNull() && manager.isBufferValid(), QStringLiteral("cannot attach"));
    ProcessDataWatcher watcher(manager);
    ProcessDataSnapshot snapshot;
    quint64 generation = watcher.getGeneration();
    there.give(isWell);
    for (int set = 0; set < setCount; ++set) {
        require(watcher.wait(generation, std::chrono::minutes(5))
                    == ProcessDataWatcher::Result::NewSet,
                QStringLiteral("no set comes"));
        require(snapshot.take(manager), QStringLiteral("no snapshot"));
        seen.give(isWell);
    }
}

pid_t startFollower(const QString &file, const Signals &there, const Signals &seen)
{
    const pid_t parent = getpid();
    const pid_t child = fork();
    require(child >= 0, QStringLiteral("no more processes can be made"));
    if (child > 0) {
        return child;
    }
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() == parent) {
        try {
            follow(file, there, seen);
            _exit(EXIT_SUCCESS);
        } catch (const std::exception &problem) {
            std::fprintf(stderr, "sizes: %s\n", problem.what());
            // Nobody waits for what does not come.
            there.give(hasFailed);
            seen.give(hasFailed);
        }
    }
    _exit(EXIT_FAILURE);
}

Manager::BaseClassSharedPointer created(Manager &manager, const QString &file)
{
    const auto root = manager.createProcessDataFromFile(file, Manager::InitTypeSharedMemoryCreate);
    require(!root.isNull() && manager.isBufferValid(),
            QStringLiteral("no region for %1").arg(file));
    return root;
}

void waitForEnd()
{
    sigset_t ends;
    sigemptyset(&ends);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        sigaddset(&ends, number);
    }
    sigprocmask(SIG_BLOCK, &ends, nullptr);
    int number = 0;
    sigwait(&ends, &number);
}

double secondsOfChildren()
{
    rusage usage = {};
    getrusage(RUSAGE_CHILDREN, &usage);
    const auto secondsOf = [](const timeval &time) {
        return static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_usec);
    };
    return secondsOf(usage.ru_utime) + secondsOf(usage.ru_stime);
}

} // namespace

void Parts::hold(const QStringList &words)
{
    const QStringList files = words.mid(1);
    std::vector<std::unique_ptr<Manager>> managers;
    for (const QString &file : files) {
        managers.push_back(std::make_unique<Manager>());
        created(*managers.back(), file);
    }
    const Signals there;
    const Signals seen;
    std::vector<pid_t> followers;
    for (int i = 0; i < words.constFirst().toInt(); ++i) {
        followers.push_back(startFollower(files.constFirst(), there, seen));
        there.take(1);
    }
    std::printf("holding\n");
    std::fflush(stdout);
    waitForEnd();
    // Before the regions go with their managers: whoever is killed last leaves the semaphores behind.
    for (const pid_t follower : followers) {
        kill(follower, SIGKILL);
        waitpid(follower, nullptr, 0);
    }
}

void Parts::processes(const QStringList &words)
{
    const QString &file = words.constFirst();
    const int count = words.value(1).toInt();
    Manager manager;
    const auto root = manager.createProcessDataFromFile(file, Manager::InitTypeSharedMemoryCreate);
    require(!root.isNull() && manager.isBufferValid(),
            QStringLiteral("no region for %1").arg(file));
    const auto leaf = root->getLeafProcessDataValue(QStringLiteral("group0/leaf0"));
    const Signals there;
    const Signals seen;
    Stopwatch watch;
    std::vector<pid_t> children;
    for (int i = 0; i < count; ++i) {
        children.push_back(startFollower(file, there, seen));
        // One behind the other, so that none of them waits for another.
        there.take(1);
    }
    watch.tell("fork");
    for (int set = 0; set < setCount; ++set) {
        require(leaf->setValue(
                    ProcessValue(set, ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID))
                    && manager.swapReadAndWriteBuffer(),
                QStringLiteral("a set cannot be published"));
        seen.take(count);
    }
    watch.tell("publish100");
    bool areAllWell = true;
    for (const pid_t child : children) {
        int status = 0;
        areAllWell = waitpid(child, &status, 0) == child && status == 0 && areAllWell;
    }
    require(areAllWell, QStringLiteral("a process has failed"));
    std::printf("followers %.6f\n", secondsOfChildren());
}
