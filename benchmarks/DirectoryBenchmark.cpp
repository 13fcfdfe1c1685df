// Times of a device directory at size: its build, its second build, and the start of the processes
// that use it, beside what parsing the same files costs without the library.

#include "ProcessDataManagement/ProcessDataBuilder.h"
#include "ProcessDataManagement/ProcessDataManager.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QJsonDocument>
#include <QProcess>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>
#include <sys/stat.h>

namespace {

constexpr int fileCount = 200;
constexpr int leavesPerFile = 100;
constexpr int leafCount = fileCount * leavesPerFile;

QStringList processFiles(const QString &directory)
{
    QStringList paths;
    QDirIterator walk(directory, {QStringLiteral("*.process.json")}, QDir::Files,
                      QDirIterator::Subdirectories);
    while (walk.hasNext()) {
        paths.append(walk.next());
    }
    paths.sort();
    return paths;
}

/// A directory of descriptions that has never been built.
class FreshDirectory
{
public:
    FreshDirectory() : m_path(m_parent.filePath(QStringLiteral("device")))
    {
        QProcess::execute(QStringLiteral(MAKE_DIRECTORY),
                          {m_path, QString::number(fileCount), QString::number(leavesPerFile)});
    }

    const QString &path() const { return m_path; }

private:
    QTemporaryDir m_parent;
    QString m_path;
};

bool build(const QString &directory)
{
    QString key;
    return ProcessDataBuilder().buildProcessDataFromDir(QStringLiteral("benchmark"), directory,
                                                        key);
}

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

void countLeaves(benchmark::State &state)
{
    state.counters["per leaf"] = benchmark::Counter(
        leafCount, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void BM_parseWithToolkitAlone(benchmark::State &state)
{
    const FreshDirectory directory;
    const QStringList paths = processFiles(directory.path());
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
    countLeaves(state);
}

void BM_firstBuild(benchmark::State &state)
{
    for (auto _ : state) {
        state.PauseTiming();
        const FreshDirectory directory;
        state.ResumeTiming();
        if (!build(directory.path())) {
            state.SkipWithError("the directory cannot be built");
            return;
        }
    }
    countLeaves(state);
}

void BM_secondBuild(benchmark::State &state)
{
    const FreshDirectory directory;
    build(directory.path());
    const QStringList paths = processFiles(directory.path());
    const auto before = fileStates(paths);
    for (auto _ : state) {
        build(directory.path());
    }
    if (fileStates(paths) != before) {
        state.SkipWithError("a second build wrote a file");
        return;
    }
    countLeaves(state);
}

void BM_creatingStart(benchmark::State &state)
{
    const FreshDirectory directory;
    build(directory.path());
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
    countLeaves(state);
}

void BM_attachingStart(benchmark::State &state)
{
    const FreshDirectory directory;
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
    countLeaves(state);
}

} // namespace

BENCHMARK(BM_parseWithToolkitAlone)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_firstBuild)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_secondBuild)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_creatingStart)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_attachingStart)->Unit(benchmark::kMillisecond);

int main(int argc, char **argv)
{
    // The lines about keys would drown the table.
    qputenv("QT_LOGGING_RULES", "default.debug=false");
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
