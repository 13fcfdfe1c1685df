// What access to a configuration costs beside the containers it is made of. Every row has a floor,
// the same work with the toolkit's containers alone; only the ratio of the two counts.

#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "Configuration/ConfigurationAndProcessDataTools.h"
#include "Configuration/ConfigurationAndProcessDataTreeNode.h"
#include "Configuration/ConfigurationDataValue.h"
#include "Descriptions.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QStringList>

#include <algorithm>
#include <random>
#include <vector>

#include <benchmark/benchmark.h>

namespace {

using Base = ConfigurationAndProcessDataBase;
using Root = Base::BaseClassSharedPointer;
using Tools = ConfigurationAndProcessDataTools;

constexpr int collectedLeaves = 10000;

Root parsed(const QJsonObject &description)
{
    return ConfigurationAndProcessDataParser().createNode(description,
                                                          QStringLiteral("config.json"));
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
        children.insert(pieceOfLevel(level, i), level == 2 ? Descriptions::configurationLeaf(i)
                                                           : treeDescription(level + 1));
    }
    return Descriptions::node(children);
}

QSharedPointer<BareNode> bareTree(int level = 0)
{
    auto bare = QSharedPointer<BareNode>::create();
    if (level == 3) {
        bare->properties = parsed(Descriptions::configurationLeaf(7))->getProperties();
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
    const Root leaf = parsed(Descriptions::configurationLeaf(7));
    const QString key = QStringLiteral("unitText");
    for (auto _ : state) {
        benchmark::DoNotOptimize(leaf->getProperty(key));
    }
}

void getPropertyFloor(benchmark::State &state)
{
    const Base::PropertyMap properties =
        parsed(Descriptions::configurationLeaf(7))->getProperties();
    const QString key = QStringLiteral("unitText");
    for (auto _ : state) {
        benchmark::DoNotOptimize(properties.value(key));
    }
}

void hasPropertyTessel(benchmark::State &state)
{
    const Root leaf = parsed(Descriptions::configurationLeaf(7));
    const QString key = QStringLiteral("arrayHasDynamicRows");
    for (auto _ : state) {
        benchmark::DoNotOptimize(leaf->hasProperty(key));
    }
}

void hasPropertyFloor(benchmark::State &state)
{
    const Base::PropertyMap properties =
        parsed(Descriptions::configurationLeaf(7))->getProperties();
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
    const auto leaf = parsedLeaf(Descriptions::configurationLeaf(7));
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
    Base::PropertyMap properties = parsed(Descriptions::configurationLeaf(7))->getProperties();
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
    QJsonObject leaf = Descriptions::configurationLeaf(7);
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
    std::vector<int> positions(collectedLeaves);
    for (int i = 0; i < collectedLeaves; ++i) {
        positions[static_cast<std::size_t>(i)] = i;
    }
    // NOLINTNEXTLINE(cert-msc32-c,cert-msc51-cpp): the order is to be the same each time.
    std::shuffle(positions.begin(), positions.end(), std::mt19937(7));
    return positions;
}

void collectSortedTessel(benchmark::State &state)
{
    QJsonObject children;
    int number = 0;
    for (const int position : shuffledPositions()) {
        children.insert(QStringLiteral("value%1").arg(number++),
                        Descriptions::configurationLeaf(position));
    }
    const Root root = parsed(Descriptions::node(children));
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