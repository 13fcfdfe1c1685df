// Reading and writing the text of 10,000 leaves with twelve properties each, beside the document class
// of the toolkit. A program of its own: the rows would feel a heap that other trees have used.

#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "Descriptions.h"

#include <QJsonDocument>

#include <cstdlib>

#include <benchmark/benchmark.h>
#include <malloc.h>

namespace {

using Root = ConfigurationAndProcessDataBase::BaseClassSharedPointer;

constexpr int leafCount = 10000;

/// What is parsed: the leaves, and the file name's end that makes them of their kind.
struct Kind
{
    QJsonObject (*makeLeaf)(int position);
    const char *postfix;
};

constexpr Kind configuration{Descriptions::configurationLeaf, "config.json"};
constexpr Kind process{Descriptions::processLeaf, "process.json"};

QByteArray textOf(const Kind &kind)
{
    return QJsonDocument(Descriptions::tree(leafCount, kind.makeLeaf))
        .toJson(QJsonDocument::Compact);
}

std::size_t usedBytes()
{
    const auto heap = mallinfo2();
    return heap.uordblks + heap.hblkhd;
}

/// What was given back in small pieces is put together by the allocator at the next large request. So
/// that the end of one tree is not charged to the making of the next.
void settleHeap()
{
    void *large = std::malloc(1 << 16);
    benchmark::DoNotOptimize(large);
    std::free(large);
}

void parseTessel(benchmark::State &state, const Kind &kind)
{
    const QByteArray text = textOf(kind);
    const QString postfix = QLatin1String(kind.postfix);
    const ConfigurationAndProcessDataParser parser;
    // Outside of the measured time, as looking through the heap takes long.
    const std::size_t before = usedBytes();
    Root root = parser.parseFromByteArray(text, postfix);
    const std::size_t treeBytes = usedBytes() - before;
    root.reset();
    for (auto _ : state) {
        root = parser.parseFromByteArray(text, postfix);
        state.PauseTiming();
        root.reset();
        settleHeap();
        state.ResumeTiming();
    }
    state.counters["bytes_per_leaf"] = static_cast<double>(treeBytes) / leafCount;
}

/// Makes the document and drops it again, as every parser that builds something of its own from it does.
void parseFloor(benchmark::State &state, const Kind &kind)
{
    const QByteArray text = textOf(kind);
    for (auto _ : state) {
        benchmark::DoNotOptimize(QJsonDocument::fromJson(text).isNull());
        state.PauseTiming();
        settleHeap();
        state.ResumeTiming();
    }
}

void frameTessel(benchmark::State &state)
{
    const ConfigurationAndProcessDataParser parser;
    const Root root = parser.parseFromByteArray(textOf(configuration),
                                                QLatin1String(configuration.postfix));
    for (auto _ : state) {
        QByteArray text;
        parser.frameToByteArray(root, text, QJsonDocument::Compact);
        benchmark::DoNotOptimize(text);
    }
}

void frameFloor(benchmark::State &state)
{
    const QJsonDocument json = QJsonDocument::fromJson(textOf(configuration));
    for (auto _ : state) {
        benchmark::DoNotOptimize(json.toJson(QJsonDocument::Compact));
    }
}

} // namespace

BENCHMARK_CAPTURE(parseTessel, , configuration)->Name("parsing/configuration/tessel");
BENCHMARK_CAPTURE(parseFloor, , configuration)->Name("parsing/configuration/floor");
BENCHMARK_CAPTURE(parseTessel, , process)->Name("parsing/process/tessel");
BENCHMARK_CAPTURE(parseFloor, , process)->Name("parsing/process/floor");
BENCHMARK(frameTessel)->Name("parsing/frame/tessel");
BENCHMARK(frameFloor)->Name("parsing/frame/floor");
