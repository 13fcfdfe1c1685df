// A device of a million leaves in a thousand files: what a creating process and a second one that reads
// one value cost, beside the document class of the toolkit on the same files. Each side is a process of
// its own, as memory is counted for a whole process.

#include "DeviceDirectory.h"
#include "ForkedChild.h"
#include "ProcessData/Linux/ProcessDataValue.h"
#include "ProcessDataManagement/ProcessDataManager.h"

#include <QFile>
#include <QJsonDocument>

#include <cstdlib>
#include <stdexcept>
#include <vector>

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int fileCount = 1000;
constexpr int leavesPerFile = 1000;

struct Cost
{
    double seconds = 0;       ///< of processor time
    double peakMegabytes = 0; ///< resident, in millions of bytes
};

Cost costOf(const rusage &usage)
{
    const auto secondsOf = [](const timeval &time) {
        return static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_usec);
    };
    return {secondsOf(usage.ru_utime) + secondsOf(usage.ru_stime),
            1.024e-3 * static_cast<double>(usage.ru_maxrss)};
}

Cost costOfThisProcess()
{
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    return costOf(usage);
}

/// Built by a process of its own, whose memory would count for those that are forked after it.
const DeviceDirectory &builtDirectory()
{
    static const DeviceDirectory directory(fileCount, leavesPerFile);
    static const bool isBuilt = [] {
        ForkedChild([] { directory.build(); }).wait();
        return true;
    }();
    Q_UNUSED(isBuilt);
    return directory;
}

void fill(ProcessDataManager &manager, const ProcessDataManager::BaseClassSharedPointer &root)
{
    ConfigurationAndProcessDataBase::ListElements leaves;
    root->collectElements(leaves, false);
    const ProcessValue value(1, ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID);
    manager.lockWriteBuffer();
    for (const auto &leaf : leaves) {
        static_cast<ProcessDataValue *>(leaf.data())->setValueNoLock(value);
    }
    manager.unlockWriteBuffer();
    manager.swapReadAndWriteBuffer();
}

/// Gives @p report what it cost to make the device live and to fill it, and keeps it until @p end is
/// closed on the other side.
void keepDevice(const QString &path, int report, int end)
{
    ProcessDataManager manager;
    const auto root = manager.createProcessDataFromDir(
        QStringLiteral("benchmark"), path, ProcessDataManager::InitTypeSharedMemoryCreate);
    if (root.isNull() || !manager.isBufferValid()) {
        return;
    }
    fill(manager, root);
    const Cost cost = costOfThisProcess();
    if (write(report, &cost, sizeof cost) == sizeof cost) {
        char nothing = 0;
        while (read(end, &nothing, 1) > 0) { }
    }
}

/// Of `tessel get` of one value, from its start to its end.
Cost costOfGet(const QString &path)
{
    const QByteArray folder = QFile::encodeName(path);
    const pid_t child = fork();
    if (child == 0) {
        const int nowhere = open("/dev/null", O_WRONLY);
        dup2(nowhere, STDOUT_FILENO);
        execl(TESSEL, TESSEL, "get", folder.constData(), "module1/channel1/leaf1", nullptr);
        _exit(EXIT_FAILURE);
    }
    rusage usage = {};
    int status = 0;
    if (wait4(child, &status, 0, &usage) != child || status != 0) {
        throw std::runtime_error("tessel get has failed");
    }
    return costOf(usage);
}

/// A creating process, and a second one while it lives: a repetition of each row.
struct Pass
{
    Cost creating;
    Cost attaching;
};

Pass makePass()
{
    const QString path = builtDirectory().path();
    int report[2];
    int end[2];
    if (pipe(report) != 0 || pipe(end) != 0) {
        throw std::runtime_error("no pipe");
    }
    Pass pass;
    ForkedChild creator([&] {
        close(report[0]);
        close(end[1]);
        keepDevice(path, report[1], end[0]);
    });
    close(report[1]);
    close(end[0]);
    const bool isLive = read(report[0], &pass.creating, sizeof pass.creating)
                        == sizeof pass.creating;
    if (isLive) {
        pass.attaching = costOfGet(path);
    }
    close(report[0]);
    close(end[1]);
    // It takes its region along.
    creator.wait();
    if (!isLive) {
        throw std::runtime_error("the device cannot be made live");
    }
    return pass;
}

/// Made when the first row asks for it.
const Pass &passOfRepetition(std::size_t number)
{
    static std::vector<Pass> passes;
    while (passes.size() <= number) {
        passes.push_back(makePass());
    }
    return passes[number];
}

void report(benchmark::State &state, const Cost &cost)
{
    for (auto _ : state) {
        state.SetIterationTime(cost.seconds);
    }
    state.counters["peakMegabytes"] = cost.peakMegabytes;
}

void creating(benchmark::State &state)
{
    static std::size_t repetition = 0;
    report(state, passOfRepetition(repetition++).creating);
}

void attaching(benchmark::State &state)
{
    static std::size_t repetition = 0;
    report(state, passOfRepetition(repetition++).attaching);
}

void parseWithToolkit(benchmark::State &state)
{
    const QStringList paths = builtDirectory().files();
    for (auto _ : state) {
        const double before = costOfThisProcess().seconds;
        for (const QString &path : paths) {
            QFile file(path);
            if (!file.open(QIODevice::ReadOnly)) {
                state.SkipWithError("a file cannot be read");
                return;
            }
            benchmark::DoNotOptimize(QJsonDocument::fromJson(file.readAll()).isNull());
        }
        state.SetIterationTime(costOfThisProcess().seconds - before);
    }
}

void addRow(const char *name, void (*row)(benchmark::State &))
{
    benchmark::RegisterBenchmark(name, row)->UseManualTime()->Iterations(1)->Unit(
        benchmark::kMillisecond);
}

const bool areRowsAdded = [] {
    addRow("directory/million/tessel", creating);
    addRow("directory/million/floor", parseWithToolkit);
    addRow("directory/millionAttach/tessel", attaching);
    addRow("directory/millionAttach/floor", parseWithToolkit);
    return true;
}();

} // namespace
