#include "configuration/ConfigurationTarget.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Companion/SelectorUrlArrayIndex.h"
#include "configuration/ConfigurationTable.h"
#include "text/Failure.h"

namespace {

ConfigurationTarget cellTarget(const ConfigurationLeaf &leaf, quint32 row, quint32 column)
{
    const ConfigurationTable table(leaf);
    table.checkCell(row, column);
    const auto &description = table.columns()[static_cast<int>(column)];
    ConfigurationTarget target{leaf.url + QStringLiteral("#%1,%2").arg(row).arg(column),
                               leaf,
                               description.rules,
                               table.cell(row, column),
                               description.unitType,
                               true};
    target.rules.isReadOnly = target.rules.isReadOnly || rulesOf(leaf).isReadOnly;
    return target;
}

/// A URL with or without the `#ROW,COLUMN` of a cell.
struct CellUrl
{
    explicit CellUrl(const QString &url)
    {
        SelectorUrlArrayIndex::splitUrlAndArrayIndex(url, index, leafUrl);
    }

    SelectorUrlArrayIndex index;
    QString leafUrl;
};

} // namespace

ConfigurationTarget targetOf(const ConfigurationLeaf &leaf)
{
    const QString unit = leaf.text(
        ConfigurationAndProcessDataDefinitions::getKeyDataPropertyUnit());
    return {leaf.url, leaf, rulesOf(leaf), leaf.element->getValue(), unit, false};
}

ConfigurationTarget targetAt(const ConfigurationSource &source, const QString &url)
{
    const CellUrl cell(url);
    const ConfigurationLeaf leaf = source.leafAt(cell.leafUrl);
    return cell.index.isValid()
               ? cellTarget(leaf, cell.index.getRowIndex(), cell.index.getColumnIndex())
               : targetOf(leaf);
}

bool isPattern(const ConfigurationSource &source, const QString &url)
{
    const QString leafUrl = CellUrl(url).leafUrl;
    return leafUrl.contains(QLatin1Char('*')) && !source.hasLeaf(leafUrl);
}

QVector<ConfigurationTarget> targetsOf(const ConfigurationSource &source, const QString &pattern)
{
    const CellUrl cell(pattern);
    QVector<ConfigurationTarget> targets;
    if (!cell.index.isValid()) {
        const QVector<ConfigurationLeaf> leaves = source.leavesAt(pattern);
        for (const auto &leaf : leaves) {
            targets.append(targetOf(leaf));
        }
        return targets;
    }
    const QVector<ConfigurationLeaf> arrays = arraysOf(source, cell.leafUrl);
    for (const auto &leaf : arrays) {
        targets.append(cellTarget(leaf, cell.index.getRowIndex(), cell.index.getColumnIndex()));
    }
    return targets;
}

QVector<ConfigurationLeaf> arraysOf(const ConfigurationSource &source, const QString &pattern)
{
    QVector<ConfigurationLeaf> arrays;
    const QVector<ConfigurationLeaf> leaves = source.leavesAt(pattern);
    for (const auto &leaf : leaves) {
        if (leaf.isArray()) {
            arrays.append(leaf);
        }
    }
    if (arrays.isEmpty()) {
        throw Failure{ExitCode::NotFound,
                      QStringLiteral("%1: no array at '%2'").arg(source.path(), pattern)};
    }
    return arrays;
}
