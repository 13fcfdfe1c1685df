// Times of a device directory at size: its build, its second build, and the start of the processes
// that use it, beside what parsing the same files costs without the library.

#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "DeviceDirectory.h"
#include "ProcessDataManagement/ProcessDataManager.h"
#include "Validation/DescriptionCheck.h"

#include <QFile>
#include <QJsonDocument>

#include <memory>
#include <stdexcept>

#include <benchmark/benchmark.h>
#include <sys/stat.h>

namespace {

constexpr int fileCount = 200;
constexpr int leavesPerFile = 100;

/// Inode and time of change of each file: equal only if none was written.
QList<QPair<quint64, qint64>> fileStates(const QStringList &paths)
{
    QList<QPair<quint64, qint64>> states;
    for (const QString &path : paths) {
        struct stat status = {};
        stat(QFile::encodeName(path).constData(), &status);
        states.append(
            {status.st_ino, qint64{status.st_mtim.tv_sec} * 1000000000 + status.st_mtim.tv_nsec});
    }
    return states;
}

int countWrites(const QList<QPair<quint64, qint64>> &before,
                const QList<QPair<quint64, qint64>> &after)
{
    int writes = 0;
    for (int i = 0; i < before.size(); ++i) {
        writes += before[i] == after[i] ? 0 : 1;
    }
    return writes;
}

/// Made once for the program. Nothing changes in it any more, since its files are laid out.
const DeviceDirectory &builtDirectory()
{
    static const DeviceDirectory directory(fileCount, leavesPerFile);
    static const bool isBuilt = directory.build();
    if (!isBuilt) {
        throw std::runtime_error("the directory cannot be built");
    }
    return directory;
}

/// Every file into a tree, @p times over, with nothing laid out and nothing made live.
void parseFiles(benchmark::State &state, int times)
{
    const DeviceDirectory &directory = builtDirectory();
    const QStringList paths = directory.files();
    const ConfigurationAndProcessDataParser parser;
    for (auto _ : state) {
        for (int i = 0; i < times; ++i) {
            for (const QString &path : paths) {
                benchmark::DoNotOptimize(parser.parseFromFile(path));
            }
        }
    }
}

void parseFilesOnce(benchmark::State &state)
{
    parseFiles(state, 1);
}

void parseFilesTwice(benchmark::State &state)
{
    parseFiles(state, 2);
}

void parseWithToolkitAlone(benchmark::State &state)
{
    const DeviceDirectory &directory = builtDirectory();
    const QStringList paths = directory.files();
    for (auto _ : state) {
        for (const QString &path : paths) {
            QFile file(path);
            if (!file.open(QIODevice::ReadOnly)) {
                state.SkipWithError("a file cannot be read");
                return;
            }
            benchmark::DoNotOptimize(QJsonDocument::fromJson(file.readAll()));
        }
    }
}

void firstBuild(benchmark::State &state)
{
    for (auto _ : state) {
        state.PauseTiming();
        auto directory = std::make_unique<DeviceDirectory>(fileCount, leavesPerFile);
        state.ResumeTiming();
        if (!directory->build()) {
            state.SkipWithError("the directory cannot be built");
            return;
        }
        state.PauseTiming();
        directory.reset();
        state.ResumeTiming();
    }
}

void secondBuild(benchmark::State &state)
{
    const DeviceDirectory &directory = builtDirectory();
    const QStringList paths = directory.files();
    const auto before = fileStates(paths);
    for (auto _ : state) {
        directory.build();
    }
    state.counters["filesWritten"] = countWrites(before, fileStates(paths));
}

void creatingStart(benchmark::State &state)
{
    const DeviceDirectory &directory = builtDirectory();
    for (auto _ : state) {
        ProcessDataManager manager;
        const auto root = manager.createProcessDataFromDir(
            QStringLiteral("benchmark"), directory.path(),
            ProcessDataManager::InitTypeSharedMemoryCreate);
        if (root.isNull() || !manager.isBufferValid()) {
            state.SkipWithError("the directory cannot be made live");
            return;
        }
    }
}

void attachingStart(benchmark::State &state)
{
    const DeviceDirectory &directory = builtDirectory();
    ProcessDataManager creator;
    const auto root = creator.createProcessDataFromDir(
        QStringLiteral("benchmark"), directory.path(),
        ProcessDataManager::InitTypeSharedMemoryCreate);
    for (auto _ : state) {
        ProcessDataManager manager;
        if (manager
                .createProcessDataFromDir(QStringLiteral("benchmark"), directory.path(),
                                          ProcessDataManager::InitTypeSharedMemoryAttach)
                .isNull()) {
            state.SkipWithError("the directory cannot be attached");
            return;
        }
    }
}

/// Everything in order, so that nothing is written down but that.
void validateDirectory(benchmark::State &state)
{
    const QStringList paths{builtDirectory().path()};
    for (auto _ : state) {
        if (!DescriptionCheck::check(paths).isEmpty()) {
            state.SkipWithError("the directory has problems");
            return;
        }
    }
}

} // namespace

BENCHMARK(firstBuild)->Name("directory/firstBuild/tessel")->Unit(benchmark::kMillisecond);
BENCHMARK(parseFilesOnce)->Name("directory/firstBuild/floor")->Unit(benchmark::kMillisecond);
BENCHMARK(secondBuild)->Name("directory/secondBuild/tessel")->Unit(benchmark::kMillisecond);
BENCHMARK(parseFilesOnce)->Name("directory/secondBuild/floor")->Unit(benchmark::kMillisecond);
BENCHMARK(parseWithToolkitAlone)
    ->Name("directory/secondBuild/peer-qjsondocument")
    ->Unit(benchmark::kMillisecond);
BENCHMARK(creatingStart)->Name("directory/creatingStart/tessel")->Unit(benchmark::kMillisecond);
BENCHMARK(parseFilesTwice)->Name("directory/creatingStart/floor")->Unit(benchmark::kMillisecond);
BENCHMARK(attachingStart)->Name("directory/attachingStart/tessel")->Unit(benchmark::kMillisecond);
BENCHMARK(parseFilesOnce)->Name("directory/attachingStart/floor")->Unit(benchmark::kMillisecond);
BENCHMARK(validateDirectory)->Name("directory/validate/tessel")->Unit(benchmark::kMillisecond);
BENCHMARK(parseFilesOnce)->Name("directory/validate/floor")->Unit(benchmark::kMillisecond);
