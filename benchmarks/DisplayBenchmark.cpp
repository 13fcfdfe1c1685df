// What a display costs that shows each set of a region: the source with its thread, and the models over it.

#include "ProcessData/Linux/ProcessDataValue.h"
#include "ProcessDataManagement/ProcessDataManager.h"
#include "TesselModels/ProcessDataListModel.h"
#include "TesselModels/ProcessDataSource.h"

#include <QCoreApplication>
#include <QFile>
#include <QSortFilterProxyModel>
#include <QTemporaryDir>

#include <algorithm>
#include <ctime>
#include <utility>

#include <benchmark/benchmark.h>
#include <unistd.h>

namespace {

constexpr double setsPerSecond = 30;

/// Seconds of processor time.
double clockSeconds(clockid_t clock)
{
    timespec time = {};
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}
double processSeconds()
{
    return clockSeconds(CLOCK_PROCESS_CPUTIME_ID);
}
double threadSeconds()
{
    return clockSeconds(CLOCK_THREAD_CPUTIME_ID);
}

QByteArray description(int count)
{
    constexpr int slot = 12;
    QByteArray text = QByteArrayLiteral("{\"type\":\"treenode\",\"doubleBuffer\":true,")
                      + "\"keyProcessDataMemory\":\"tesselDisplayBenchmark"
                      + QByteArray::number(getpid()) + "\",\"sizeOfSharedMemory\":"
                      + QByteArray::number(count * slot) + ",\"value\":{";
    for (int i = 0; i < count; ++i) {
        text += QByteArray(i == 0 ? "" : ",") + "\"v" + QByteArray::number(i)
                + "\":{\"type\":\"double\",\"sizeValue\":8,\"sizeMetadata\":4,"
                  "\"relativeOffsetMetadata\":8,\"displayPosition\":"
                + QByteArray::number(i) + ",\"offsetSharedMemory\":" + QByteArray::number(i * slot)
                + "}";
    }
    return text + "}}";
}

/// Its event loop is turned by hand.
void needApplication()
{
    static char name[] = "benchmark-display";
    static char *arguments[] = {name, nullptr};
    static int count = 1;
    static const QCoreApplication application(count, arguments);
}

/// A region of so many doubles, and a source that shows it.
class ShownRegion
{
public:
    explicit ShownRegion(int count)
    {
        const QString path = m_folder.filePath(QStringLiteral("display.process.json"));
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly) || file.write(description(count)) < 0) {
            return;
        }
        file.close();
        const auto root = m_manager.createProcessDataFromFile(
            path, ProcessDataManager::InitTypeSharedMemoryCreate);
        if (root) {
            root->collectElements(m_leaves, true);
            source.setUpdateInterval(0);
            source.setPath(path);
            waitFor(1);
        }
    }

    bool isShown() const { return source.isConnected(); }
    /// Publishes another number in every leaf.
    void publish()
    {
        const ProcessValue value(m_number += 0.5,
                                 ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID);
        m_manager.lockWriteBuffer();
        for (const auto &leaf : std::as_const(m_leaves)) {
            static_cast<ProcessDataValue &>(*leaf).setValueNoLock(value);
        }
        m_manager.unlockWriteBuffer();
        m_manager.swapReadAndWriteBuffer();
        ++m_published;
    }
    /// Until what was published is shown. Gives the longest time on the clock that the thread of the display was
    /// busy with one turn of its event loop.
    double show() { return waitFor(m_published); }

    ProcessDataSource source;

private:
    double waitFor(quint64 generation)
    {
        double longest = 0;
        while (source.getGeneration() != generation) {
            const double begin = clockSeconds(CLOCK_MONOTONIC);
            QCoreApplication::processEvents();
            const double turn = clockSeconds(CLOCK_MONOTONIC) - begin;
            longest = std::max(longest, turn);
            // Not WaitForMoreEvents, whose sleep would count; not a loop, whose turning would.
            usleep(100);
        }
        return longest;
    }

    QTemporaryDir m_folder;
    ProcessDataManager m_manager;
    ConfigurationAndProcessDataBase::ListElements m_leaves;
    double m_number = 0;
    quint64 m_published = 1;
};

/// All rows change with every set. The time is that of the processor for one, in all threads.
void listOf10000(benchmark::State &state)
{
    needApplication();
    ShownRegion region(10000);
    if (!region.isShown()) {
        state.SkipWithError("no region");
        return;
    }
    ProcessDataListModel model;
    model.setSource(&region.source);
    int signalCount = 0;
    QObject::connect(&model, &ProcessDataListModel::dataChanged, [&] { ++signalCount; });
    double all = 0;
    double longestTurn = 0;
    for ([[maybe_unused]] const auto _ : state) {
        region.publish();
        const double begin = processSeconds();
        longestTurn = std::max(longestTurn, region.show());
        const double spent = processSeconds() - begin;
        all += spent;
        state.SetIterationTime(spent);
    }
    const auto sets = static_cast<double>(state.iterations());
    state.counters["processorPercent"] = all / sets * setsPerSecond * 100;
    state.counters["signalsPerSet"] = signalCount / sets;
    state.counters["longestTurnMilliseconds"] = longestTurn * 1e3;
}

/// The thread of the display alone, with a proxy over the model.
void proxyOf1000(benchmark::State &state, bool isSorted)
{
    needApplication();
    ShownRegion region(1000);
    if (!region.isShown()) {
        state.SkipWithError("no region");
        return;
    }
    ProcessDataListModel model;
    model.setSource(&region.source);
    QSortFilterProxyModel proxy;
    proxy.setSourceModel(&model);
    if (isSorted) {
        proxy.sort(TesselModels::NameColumn);
    }
    int rows = 0;
    // As a view does it that has some of the rows in sight.
    QObject::connect(&proxy, &QAbstractItemModel::dataChanged, [&] {
        for (int row = 0; row < 40; ++row) {
            rows += proxy.index(row, TesselModels::ValueColumn).data().toString().size();
        }
    });
    for ([[maybe_unused]] const auto _ : state) {
        region.publish();
        const double begin = threadSeconds();
        region.show();
        state.SetIterationTime(threadSeconds() - begin);
    }
    benchmark::DoNotOptimize(rows);
}

void sortedProxy(benchmark::State &state)
{
    proxyOf1000(state, true);
}
void unsortedProxy(benchmark::State &state)
{
    proxyOf1000(state, false);
}

BENCHMARK(listOf10000)->Name("display/list10000/tessel")->UseManualTime();
BENCHMARK(sortedProxy)->Name("display/proxySortedByName/tessel")->UseManualTime();
BENCHMARK(unsortedProxy)->Name("display/proxySortedByName/floor")->UseManualTime();

} // namespace
