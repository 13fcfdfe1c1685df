#include "configuration/ConfigurationTarget.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Companion/SelectorUrlArrayIndex.h"
#include "configuration/ConfigurationTable.h"

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

} // namespace

ConfigurationTarget targetOf(const ConfigurationLeaf &leaf)
{
    const QString unit = leaf.text(
        ConfigurationAndProcessDataDefinitions::getKeyDataPropertyUnit());
    return {leaf.url, leaf, rulesOf(leaf), leaf.element->getValue(), unit, false};
}

ConfigurationTarget targetAt(const ConfigurationSource &source, const QString &url)
{
    SelectorUrlArrayIndex index;
    QString urlWithoutIndex;
    SelectorUrlArrayIndex::splitUrlAndArrayIndex(url, index, urlWithoutIndex);
    const ConfigurationLeaf leaf = source.leafAt(urlWithoutIndex);
    return index.isValid() ? cellTarget(leaf, index.getRowIndex(), index.getColumnIndex())
                           : targetOf(leaf);
}
