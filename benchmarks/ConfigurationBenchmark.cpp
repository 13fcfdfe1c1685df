// What access to a configuration costs beside the containers it is made of. Every row has a floor,
// the same work with the toolkit's containers alone; only the ratio of the two counts.

#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "Configuration/ConfigurationAndProcessDataTools.h"
#include "Configuration/ConfigurationAndProcessDataTreeNode.h"
#include "Configuration/ConfigurationArray2dDataTypeWrapper.h"
#include "Configuration/ConfigurationDataValue.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStringList>

#include <algorithm>
#include <cstdlib>
#include <random>
#include <vector>

#include <benchmark/benchmark.h>
#include <malloc.h>

namespace {

using Base = ConfigurationAndProcessDataBase;
using Root = Base::BaseClassSharedPointer;
using Tools = ConfigurationAndProcessDataTools;

constexpr int documentLeaves = 10000;

/// A leaf with the twelve properties that a device has on most of its leaves.
QJsonObject leafDescription(int number, bool isProcess)
{
    QJsonObject leaf{{"type", "int32"},
                     {"displayPosition", number},
                     {"labelTextId", QStringLiteral("LABEL_%1").arg(number)},
                     {"unit", "pressure"},
                     {"unitText", "mbar"},
                     {"viewStart", -1.5},
                     {"viewEnd", 2000.5},
                     {"readOnly", false}};
    if (isProcess) {
        leaf.insert("offsetSharedMemory", number * 8);
        leaf.insert("sizeValue", 4);
        leaf.insert("sizeMetadata", 4);
        leaf.insert("relativeOffsetMetadata", 4);
        return leaf;
    }
    leaf.insert("value", number);
    leaf.insert("minLimit", -100000);
    leaf.insert("maxLimit", 100000);
    leaf.insert("helpTextId", QStringLiteral("HELP_%1").arg(number));
    return leaf;
}

QJsonObject node(const QJsonObject &children)
{
    return {{"type", "treenode"}, {"value", children}};
}

/// @p leaves leaves below nodes of a hundred.
QByteArray document(int leaves, bool isProcess)
{
    QJsonObject groups;
    for (int first = 0; first < leaves; first += 100) {
        QJsonObject group;
        for (int i = first; i < std::min(first + 100, leaves); ++i) {
            group.insert(QStringLiteral("value%1").arg(i), leafDescription(i, isProcess));
        }
        groups.insert(QStringLiteral("group%1").arg(first / 100), node(group));
    }
    return QJsonDocument(node(groups)).toJson(QJsonDocument::Compact);
}

QString postfix(bool isProcess)
{
    return isProcess ? QStringLiteral("process.json") : QStringLiteral("config.json");
}

Root parsed(const QJsonObject &description)
{
    return ConfigurationAndProcessDataParser().createNode(description, postfix(false));
}

QSharedPointer<ConfigurationDataValue> parsedLeaf(const QJsonObject &description)
{
    return parsed(description).dynamicCast<ConfigurationDataValue>();
}

/// What a tree comes down to when it is made of hashes by hand.
struct BareNode
{
    QHash<QString, QSharedPointer<BareNode>> children;
    QHash<QString, QVariant> properties;
};

constexpr int childrenPerNode = 16;

QString pieceOfLevel(int level, int number)
{
    static const QStringList names{"line", "module", "setpoint"};
    return names.at(level) + QString::number(number);
}

QJsonObject treeDescription(int level = 0)
{
    QJsonObject children;
    for (int i = 0; i < childrenPerNode; ++i) {
        children.insert(pieceOfLevel(level, i),
                        level == 2 ? leafDescription(i, false) : treeDescription(level + 1));
    }
    return node(children);
}

QSharedPointer<BareNode> bareTree(int level = 0)
{
    auto bare = QSharedPointer<BareNode>::create();
    if (level == 3) {
        bare->properties = parsed(leafDescription(7, false))->getProperties();
        return bare;
    }
    for (int i = 0; i < childrenPerNode; ++i) {
        bare->children.insert(pieceOfLevel(level, i), bareTree(level + 1));
    }
    return bare;
}

const QString &leafUrl()
{
    static const QString url = QStringLiteral("line3/module11/setpoint7");
    return url;
}

const BareNode *step(const BareNode *bare, const QString &piece)
{
    const auto child = bare->children.constFind(piece);
    return child == bare->children.constEnd() ? nullptr : child.value().data();
}

/// Three look-ups with ready strings.
const BareNode *walk(const BareNode &root, const QStringList &pieces)
{
    return step(step(step(&root, pieces.at(0)), pieces.at(1)), pieces.at(2));
}

void getPropertyTessel(benchmark::State &state)
{
    const Root leaf = parsed(leafDescription(7, false));
    const QString key = QStringLiteral("unitText");
    for (auto _ : state) {
        benchmark::DoNotOptimize(leaf->getProperty(key));
    }
}

void getPropertyFloor(benchmark::State &state)
{
    const Base::PropertyMap properties = parsed(leafDescription(7, false))->getProperties();
    const QString key = QStringLiteral("unitText");
    for (auto _ : state) {
        benchmark::DoNotOptimize(properties.value(key));
    }
}

void hasPropertyTessel(benchmark::State &state)
{
    const Root leaf = parsed(leafDescription(7, false));
    const QString key = QStringLiteral("arrayHasDynamicRows");
    for (auto _ : state) {
        benchmark::DoNotOptimize(leaf->hasProperty(key));
    }
}

void hasPropertyFloor(benchmark::State &state)
{
    const Base::PropertyMap properties = parsed(leafDescription(7, false))->getProperties();
    const QString key = QStringLiteral("arrayHasDynamicRows");
    for (auto _ : state) {
        benchmark::DoNotOptimize(properties.contains(key));
    }
}

void getLeafTessel(benchmark::State &state)
{
    const Root root = parsed(treeDescription());
    for (auto _ : state) {
        benchmark::DoNotOptimize(root->getLeaf(leafUrl()));
    }
}

void isUrlValidTessel(benchmark::State &state)
{
    const Root root = parsed(treeDescription());
    for (auto _ : state) {
        benchmark::DoNotOptimize(root->isUrlValid(leafUrl()));
    }
}

void threeLookUpsFloor(benchmark::State &state)
{
    const auto root = bareTree();
    const QStringList pieces = leafUrl().split('/');
    for (auto _ : state) {
        const BareNode *middle = step(step(root.data(), pieces.at(0)), pieces.at(1));
        benchmark::DoNotOptimize(middle->children.value(pieces.at(2)));
    }
}

void isUrlValidFloor(benchmark::State &state)
{
    const auto root = bareTree();
    const QStringList pieces = leafUrl().split('/');
    for (auto _ : state) {
        benchmark::DoNotOptimize(walk(*root, pieces) != nullptr);
    }
}

void extractIntTessel(benchmark::State &state)
{
    const Root root = parsed(treeDescription());
    int value = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(Tools::extractConfigValueInt(leafUrl(), root, value));
        benchmark::DoNotOptimize(value);
    }
}

void extractIntFloor(benchmark::State &state)
{
    const auto root = bareTree();
    const QStringList pieces = leafUrl().split('/');
    const QString key = QStringLiteral("value");
    for (auto _ : state) {
        bool ok = false;
        benchmark::DoNotOptimize(walk(*root, pieces)->properties.value(key).toInt(&ok));
        benchmark::DoNotOptimize(ok);
    }
}

void setPropertyTessel(benchmark::State &state)
{
    const auto leaf = parsedLeaf(leafDescription(7, false));
    const QString key = QStringLiteral("viewStart");
    const QVariant values[] = {1.5, 2.5};
    int turn = 0;
    for (auto _ : state) {
        turn ^= 1;
        if (leaf->setProperty(key, values[turn]) != Base::SetValueChanged) {
            state.SkipWithError("not changed");
            break;
        }
    }
}

void setPropertyFloor(benchmark::State &state)
{
    Base::PropertyMap properties = parsed(leafDescription(7, false))->getProperties();
    const QString key = QStringLiteral("viewStart");
    const QVariant values[] = {1.5, 2.5};
    int turn = 0;
    for (auto _ : state) {
        turn ^= 1;
        properties.insert(key, values[turn]);
        benchmark::ClobberMemory();
    }
}

QJsonObject nestedLeaf()
{
    const QJsonObject point{{"c", 3}, {"d", 4}, {"e", 5}};
    QJsonObject leaf = leafDescription(7, false);
    leaf.insert("a", QJsonObject{{"b", QJsonArray{1, point, point}}, {"f", 6}, {"g", 7}});
    return leaf;
}

void nestedReadTessel(benchmark::State &state)
{
    const Root leaf = parsed(nestedLeaf());
    const QString path = QStringLiteral("a/b[1]/c");
    for (auto _ : state) {
        benchmark::DoNotOptimize(leaf->getProperty(path));
    }
}

template <class Container>
const Container &inside(const QVariant &variant)
{
    return *static_cast<const Container *>(variant.constData());
}

void nestedReadFloor(benchmark::State &state)
{
    const Base::PropertyMap properties = parsed(nestedLeaf())->getProperties();
    const QString a = QStringLiteral("a");
    const QString b = QStringLiteral("b");
    const QString c = QStringLiteral("c");
    for (auto _ : state) {
        const auto &outer = inside<QVariantMap>(properties.constFind(a).value());
        const auto &list = inside<QVariantList>(outer.constFind(b).value());
        benchmark::DoNotOptimize(inside<QVariantMap>(list.at(1)).value(c));
    }
}

/// Positions in no order, each once.
std::vector<int> shuffledPositions()
{
    std::vector<int> positions(documentLeaves);
    for (int i = 0; i < documentLeaves; ++i) {
        positions[static_cast<std::size_t>(i)] = i;
    }
    std::shuffle(positions.begin(), positions.end(), std::mt19937(7)); // NOLINT: same order always
    return positions;
}

void collectSortedTessel(benchmark::State &state)
{
    QJsonObject children;
    int number = 0;
    for (const int position : shuffledPositions()) {
        children.insert(QStringLiteral("value%1").arg(number++), leafDescription(position, false));
    }
    const Root root = parsed(node(children));
    for (auto _ : state) {
        Base::ListElements elements;
        root->collectElements(elements, true);
        benchmark::DoNotOptimize(elements);
    }
}

void collectSortedFloor(benchmark::State &state)
{
    const std::vector<int> positions = shuffledPositions();
    for (auto _ : state) {
        std::vector<int> sorted = positions;
        std::sort(sorted.begin(), sorted.end());
        benchmark::DoNotOptimize(sorted);
    }
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

void parseTessel(benchmark::State &state, int leaves, bool isProcess)
{
    const QByteArray text = document(leaves, isProcess);
    const ConfigurationAndProcessDataParser parser;
    // Outside of the measured time, as looking through the heap takes long.
    const std::size_t before = usedBytes();
    Root root = parser.parseFromByteArray(text, postfix(isProcess));
    const std::size_t treeBytes = usedBytes() - before;
    root.reset();
    for (auto _ : state) {
        root = parser.parseFromByteArray(text, postfix(isProcess));
        state.PauseTiming();
        root.reset();
        settleHeap();
        state.ResumeTiming();
    }
    state.counters["bytes_per_leaf"] = static_cast<double>(treeBytes) / leaves;
    state.counters["ns_per_leaf"] = benchmark::Counter(
        leaves * 1e-9, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

/// Makes the document and drops it again, as every parser that builds something of its own from it does.
void parseFloor(benchmark::State &state, int leaves, bool isProcess)
{
    const QByteArray text = document(leaves, isProcess);
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
    const Root root = parser.parseFromByteArray(document(documentLeaves, false), postfix(false));
    for (auto _ : state) {
        QByteArray text;
        parser.frameToByteArray(root, text, QJsonDocument::Compact);
        benchmark::DoNotOptimize(text);
    }
}

void frameFloor(benchmark::State &state)
{
    const QJsonDocument json = QJsonDocument::fromJson(document(documentLeaves, false));
    for (auto _ : state) {
        benchmark::DoNotOptimize(json.toJson(QJsonDocument::Compact));
    }
}

/// All leaves in one node.
void frameFlat(benchmark::State &state)
{
    const auto leaves = static_cast<int>(state.range(0));
    QJsonObject children;
    for (int i = 0; i < leaves; ++i) {
        children.insert(QStringLiteral("value%1").arg(i, 6, 10, QLatin1Char('0')),
                        QJsonObject{{"type", "int32"}, {"value", i}});
    }
    const Root root = parsed(node(children));
    const ConfigurationAndProcessDataParser parser;
    for (auto _ : state) {
        benchmark::DoNotOptimize(parser.createJsonObject(root));
    }
    state.SetComplexityN(leaves);
}

/// A chain of nodes with one leaf at its end.
void getLeafAtDepth(benchmark::State &state)
{
    const auto depth = static_cast<int>(state.range(0));
    QJsonObject description = leafDescription(7, false);
    QStringList pieces;
    for (int i = 0; i < depth; ++i) {
        description = node({{QStringLiteral("part%1").arg(i), description}});
        pieces.prepend(QStringLiteral("part%1").arg(i));
    }
    const Root root = parsed(description);
    const QString url = pieces.join('/');
    for (auto _ : state) {
        benchmark::DoNotOptimize(root->getLeaf(url));
    }
    state.SetComplexityN(depth);
}

QJsonObject tableDescription(int rows)
{
    QJsonArray cells;
    for (int i = 0; i < rows; ++i) {
        cells.append(QJsonArray{i, 0.5 * i, 1});
    }
    const QJsonObject column{{"type", "double"}, {"value", 0}};
    return {{"type", "array"},
            {"value", cells},
            {"arrayHasDynamicRows", true},
            {"arrayMinRows", 0},
            {"arrayMaxRows", 2000000000},
            {"arrayInformation", QJsonArray{QJsonArray(), QJsonArray{column, column, column}}}};
}

void cellWriteByUrl(benchmark::State &state)
{
    const auto rows = static_cast<int>(state.range(0));
    const Root root = parsed(node({{"table", tableDescription(rows)}}));
    const QString url = QStringLiteral("table#%1,1").arg(rows / 2);
    double value = 0;
    for (auto _ : state) {
        value += 1;
        benchmark::DoNotOptimize(Tools::setConfigValueWithStatus(url, root, value));
    }
    state.SetComplexityN(rows);
}

void cellWriteInWrapper(benchmark::State &state)
{
    const auto rows = static_cast<int>(state.range(0));
    const Root root = parsed(node({{"table", tableDescription(rows)}}));
    Array2dDataTypeWrapper wrapper(root, QStringLiteral("table"));
    std::size_t row = 0;
    for (auto _ : state) {
        row = (row + 1) % static_cast<std::size_t>(rows);
        benchmark::DoNotOptimize(wrapper.setCellValue(row, 1, 7.5));
    }
    state.SetComplexityN(rows);
}

void addNewRow(benchmark::State &state)
{
    const auto rows = static_cast<int>(state.range(0));
    const Root root = parsed(node({{"table", tableDescription(1)}}));
    for (auto _ : state) {
        Array2dDataTypeWrapper wrapper(root, QStringLiteral("table"));
        for (int i = 0; i < rows; ++i) {
            wrapper.addNewRow();
        }
    }
    state.SetComplexityN(rows);
}

} // namespace

BENCHMARK(getPropertyTessel)->Name("config/getProperty/tessel");
BENCHMARK(getPropertyFloor)->Name("config/getProperty/floor");
BENCHMARK(hasPropertyTessel)->Name("config/hasPropertyMissing/tessel");
BENCHMARK(hasPropertyFloor)->Name("config/hasPropertyMissing/floor");
BENCHMARK(getLeafTessel)->Name("config/getLeaf/tessel");
BENCHMARK(threeLookUpsFloor)->Name("config/getLeaf/floor");
BENCHMARK(isUrlValidTessel)->Name("config/isUrlValid/tessel");
BENCHMARK(isUrlValidFloor)->Name("config/isUrlValid/floor");
BENCHMARK(extractIntTessel)->Name("config/extractInt/tessel");
BENCHMARK(extractIntFloor)->Name("config/extractInt/floor");
BENCHMARK(setPropertyTessel)->Name("config/setProperty/tessel");
BENCHMARK(setPropertyFloor)->Name("config/setProperty/floor");
BENCHMARK(nestedReadTessel)->Name("config/nestedRead/tessel");
BENCHMARK(nestedReadFloor)->Name("config/nestedRead/floor");
BENCHMARK(collectSortedTessel)->Name("config/collectSorted/tessel");
BENCHMARK(collectSortedFloor)->Name("config/collectSorted/floor");
BENCHMARK_CAPTURE(parseTessel, , documentLeaves, false)->Name("config/parseConfiguration/tessel");
BENCHMARK_CAPTURE(parseFloor, , documentLeaves, false)->Name("config/parseConfiguration/floor");
BENCHMARK_CAPTURE(parseTessel, , documentLeaves, true)->Name("config/parseProcess/tessel");
BENCHMARK_CAPTURE(parseFloor, , documentLeaves, true)->Name("config/parseProcess/floor");
BENCHMARK(frameTessel)->Name("config/frame/tessel");
BENCHMARK(frameFloor)->Name("config/frame/floor");

// How cost grows. No floor: one row is to be read beside the next.
BENCHMARK_CAPTURE(parseTessel, 100, 100, false)->Name("config/growth/parse100");
BENCHMARK_CAPTURE(parseTessel, 10000, 10000, false)->Name("config/growth/parse10000");
BENCHMARK_CAPTURE(parseTessel, 100000, 100000, false)->Name("config/growth/parse100000");
BENCHMARK(getLeafAtDepth)
    ->Name("config/growth/getLeafDepth")
    ->RangeMultiplier(2)
    ->Range(1, 32)
    ->Complexity(benchmark::oN);
BENCHMARK(frameFlat)->Name("config/growth/frameFlat")->Arg(1000)->Arg(30000);
BENCHMARK(cellWriteByUrl)->Name("config/growth/cellWriteByUrl")->Arg(1000)->Arg(100000);
BENCHMARK(cellWriteInWrapper)->Name("config/growth/cellWriteInWrapper")->Arg(1000)->Arg(100000);
BENCHMARK(addNewRow)->Name("config/growth/addNewRow")->Arg(1000)->Arg(100000);
