// How cost grows with size. A row is `growth/WHAT-GROWS/OPERATION/SIZE`; the plots are drawn from
// these rows.

#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "Configuration/ConfigurationAndProcessDataTools.h"
#include "Configuration/ConfigurationArray2dDataTypeWrapper.h"
#include "Descriptions.h"
#include "DeviceDirectory.h"

#include <QJsonDocument>

#include <memory>
#include <string>

#include <benchmark/benchmark.h>

namespace {

using Base = ConfigurationAndProcessDataBase;
using Root = Base::BaseClassSharedPointer;

const QString configuration = QStringLiteral("config.json");

Root parse(const QByteArray &text)
{
    return ConfigurationAndProcessDataParser().parseFromByteArray(text, configuration);
}

QByteArray textOf(const QJsonObject &description)
{
    return QJsonDocument(description).toJson(QJsonDocument::Compact);
}

// Leaves.

QByteArray leavesText(int count)
{
    return textOf(Descriptions::tree(count, Descriptions::smallLeaf));
}

/// Each tree is parsed once for a program, since the big ones take seconds.
Root treeOf(int count)
{
    static QHash<int, Root> trees;
    Root &tree = trees[count];
    if (tree.isNull()) {
        tree = parse(leavesText(count));
    }
    return tree;
}

void parseLeaves(benchmark::State &state, int count)
{
    const QByteArray text = leavesText(count);
    for (auto _ : state) {
        Root tree = parse(text);
        state.PauseTiming();
        tree.reset();
        state.ResumeTiming();
    }
}

void getLeafAmongLeaves(benchmark::State &state, int count)
{
    const Root tree = treeOf(count);
    const QString url = QStringLiteral("group%1/leaf%2")
                            .arg((count - 1) / Descriptions::leavesPerGroup)
                            .arg((count - 1) % Descriptions::leavesPerGroup);
    for (auto _ : state) {
        benchmark::DoNotOptimize(tree->getLeaf(url));
    }
}

void collectSorted(benchmark::State &state, int count)
{
    const Root tree = treeOf(count);
    for (auto _ : state) {
        Base::ListElements elements;
        tree->collectElements(elements, true);
        benchmark::DoNotOptimize(elements);
    }
}

// Depth, in pieces of a URL or of a property path.

QString pathOf(int depth)
{
    return QStringList(QVector<QString>(depth, QStringLiteral("piece")).toList())
        .join(QLatin1Char('/'));
}

void getLeafAtDepth(benchmark::State &state, int depth)
{
    QJsonObject description = Descriptions::smallLeaf(0);
    for (int i = 0; i < depth; ++i) {
        description = Descriptions::node({{QStringLiteral("piece"), description}});
    }
    const Root tree = parse(textOf(description));
    const QString url = pathOf(depth);
    for (auto _ : state) {
        benchmark::DoNotOptimize(tree->getLeaf(url));
    }
}

void getPropertyAtDepth(benchmark::State &state, int depth)
{
    QVariant value = 1;
    for (int i = 1; i < depth; ++i) {
        value = QVariantMap{{QStringLiteral("piece"), value}};
    }
    const Root leaf = parse(textOf(Descriptions::smallLeaf(0)));
    leaf->addProperty(QStringLiteral("piece"), value);
    const QString path = pathOf(depth);
    if (leaf->getProperty(path) != QVariant(1)) {
        state.SkipWithError("the nested property is not found");
        return;
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(leaf->getProperty(path));
    }
}

// Rows of an array of three columns.

Root treeWithTable(int rows)
{
    QJsonArray values;
    for (int row = 0; row < rows; ++row) {
        values.append(QJsonArray{row, 0.5 * row, 1});
    }
    const auto column = [](const char *type) {
        return QJsonObject{{QStringLiteral("type"), QLatin1String(type)},
                           {QStringLiteral("value"), 0}};
    };
    const QJsonArray columns{column("int32"), column("double"), column("int32")};
    const QJsonObject table{{QStringLiteral("type"), QStringLiteral("array")},
                            {QStringLiteral("value"), values},
                            {QStringLiteral("arrayInformation"), QJsonArray{QJsonArray{}, columns}},
                            {QStringLiteral("arrayHasDynamicRows"), true},
                            {QStringLiteral("arrayMinRows"), 1},
                            {QStringLiteral("arrayMaxRows"), 1000000}};
    return parse(textOf(Descriptions::node({{QStringLiteral("table"), table}})));
}

void writeCellByUrl(benchmark::State &state, int rows)
{
    const Root tree = treeWithTable(rows);
    const QString url = QStringLiteral("table#%1,1").arg(rows / 2);
    double value = -1;
    for (auto _ : state) {
        value -= 1;
        if (!ConfigurationAndProcessDataTools::setConfigValue(url, tree, value)) {
            state.SkipWithError("the cell cannot be written");
            return;
        }
    }
}

// One cell among rows, of that table and of a flat array.

Root treeWithFlatArray(int rows)
{
    QJsonArray values;
    for (int row = 0; row < rows; ++row) {
        values.append(row);
    }
    const QJsonObject array{{QStringLiteral("type"), QStringLiteral("array")},
                            {QStringLiteral("value"), values},
                            {QStringLiteral("arrayInformation"), QJsonArray{QJsonArray{}}}};
    return parse(textOf(Descriptions::node({{QStringLiteral("table"), array}})));
}

/// The cell in the middle, whose value is the number of its row.
void readCell(benchmark::State &state, const Root &tree, int rows)
{
    const QString url = QStringLiteral("table#%1,0").arg(rows / 2);
    for (auto _ : state) {
        int value = 0;
        if (!ConfigurationAndProcessDataTools::extractConfigValueInt(url, tree, value)
            || value != rows / 2) {
            state.SkipWithError("the cell cannot be read");
            return;
        }
    }
}

void readCellByUrl(benchmark::State &state, int rows)
{
    readCell(state, treeWithTable(rows), rows);
}

void readFlatCellByUrl(benchmark::State &state, int rows)
{
    readCell(state, treeWithFlatArray(rows), rows);
}

void writeEqualCellByUrl(benchmark::State &state, int rows)
{
    const Root tree = treeWithTable(rows);
    const QString url = QStringLiteral("table#%1,0").arg(rows / 2);
    for (auto _ : state) {
        if (ConfigurationAndProcessDataTools::setConfigValueWithStatus(url, tree, rows / 2)
            != Base::SetValueUnchanged) {
            state.SkipWithError("the cell is not what it was");
            return;
        }
    }
}

void loadTable(benchmark::State &state, int rows)
{
    const Root tree = treeWithTable(rows);
    for (auto _ : state) {
        const Array2dDataTypeWrapper table(tree, QStringLiteral("table"));
        benchmark::DoNotOptimize(table.getNumberOfRows());
    }
}

/// A whole table, grown from one row.
void addRows(benchmark::State &state, int rows)
{
    const Root tree = treeWithTable(1);
    for (auto _ : state) {
        Array2dDataTypeWrapper table(tree, QStringLiteral("table"));
        for (int row = 1; row < rows; ++row) {
            if (!table.addNewRow()) {
                state.SkipWithError("the table does not grow");
                return;
            }
        }
    }
}

void readTable(benchmark::State &state, int rows)
{
    const Root tree = treeWithTable(rows);
    for (auto _ : state) {
        const Array2dDataTypeWrapper table(tree, QStringLiteral("table"));
        for (unsigned int row = 0; row < table.getNumberOfRows(); ++row) {
            benchmark::DoNotOptimize(table.getRowValues(row));
        }
    }
}

// Files of a device directory, ten leaves each.

constexpr int leavesPerFile = 10;

void firstBuild(benchmark::State &state, int files)
{
    for (auto _ : state) {
        state.PauseTiming();
        auto directory = std::make_unique<DeviceDirectory>(files, leavesPerFile);
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

void secondBuild(benchmark::State &state, int files)
{
    const DeviceDirectory directory(files, leavesPerFile);
    directory.build();
    for (auto _ : state) {
        if (!directory.build()) {
            state.SkipWithError("the directory cannot be built");
            return;
        }
    }
}

// The rows.

using Operation = void (*)(benchmark::State &, int);

benchmark::internal::Benchmark *row(const char *name, int size, Operation operation)
{
    return benchmark::RegisterBenchmark(
        (std::string("growth/") + name + "/" + std::to_string(size)).c_str(),
        [operation, size](benchmark::State &state) { operation(state, size); });
}

const bool rowsAreRegistered = [] {
    for (const int leaves : {100, 1000, 10000, 100000, 1000000}) {
        row("leaves/parse", leaves, parseLeaves);
        row("leaves/getLeaf", leaves, getLeafAmongLeaves);
        row("leaves/collectSorted", leaves, collectSorted);
    }
    for (const int depth : {1, 2, 4, 8, 16, 32}) {
        row("depth/getLeaf", depth, getLeafAtDepth);
        row("depth/getProperty", depth, getPropertyAtDepth);
    }
    for (const int rows : {10, 100, 1000, 10000, 100000}) {
        row("rows/writeCellByUrl", rows, writeCellByUrl);
        row("rows/addRows", rows, addRows);
        row("rows/readTable", rows, readTable);
        row("cells/readByUrl", rows, readCellByUrl);
        row("cells/readFlatByUrl", rows, readFlatCellByUrl);
        row("cells/writeEqualByUrl", rows, writeEqualCellByUrl);
        row("cells/load", rows, loadTable);
    }
    for (const int files : {1, 10, 100, 500, 2000}) {
        // A first build wants a directory of its own, so that one is enough.
        row("files/firstBuild", files, firstBuild)->Iterations(1);
        row("files/secondBuild", files, secondBuild);
    }
    return true;
}();

} // namespace
