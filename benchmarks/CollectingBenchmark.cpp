// Collecting leaves by display position, beside a sort that asks both elements for their position in
// every comparison.

#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "Descriptions.h"

#include <algorithm>
#include <numeric>
#include <random>
#include <vector>

#include <benchmark/benchmark.h>

namespace {

using Base = ConfigurationAndProcessDataBase;

constexpr int leafCount = 10000;

/// One node of leaves whose positions stand in no order, the same in every run.
Base::BaseClassSharedPointer shuffledTree()
{
    std::vector<int> positions(leafCount);
    std::iota(positions.begin(), positions.end(), 0);
    std::shuffle(positions.begin(), positions.end(), std::mt19937(1));
    QJsonObject leaves;
    for (int i = 0; i < leafCount; ++i) {
        leaves.insert(QStringLiteral("leaf%1").arg(i),
                      Descriptions::smallLeaf(positions[static_cast<std::size_t>(i)]));
    }
    return ConfigurationAndProcessDataParser().createNode(Descriptions::node(leaves),
                                                          QStringLiteral("config.json"));
}

void collectSorted(benchmark::State &state)
{
    const auto tree = shuffledTree();
    for (auto _ : state) {
        Base::ListElements elements;
        tree->collectElements(elements, true);
        benchmark::DoNotOptimize(elements);
    }
}

void sortByComparison(benchmark::State &state)
{
    const auto tree = shuffledTree();
    for (auto _ : state) {
        Base::ListElements elements;
        tree->collectElements(elements, false);
        std::stable_sort(elements.begin(), elements.end(), compareElements);
        benchmark::DoNotOptimize(elements);
    }
}

} // namespace

BENCHMARK(collectSorted)->Name("collecting/sorted10000/tessel")->Unit(benchmark::kMillisecond);
BENCHMARK(sortByComparison)
    ->Name("collecting/sorted10000/floor-literal")
    ->Unit(benchmark::kMillisecond);
