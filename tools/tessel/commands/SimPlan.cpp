#include "commands/SimPlan.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "live/RegionText.h"
#include "text/JsonText.h"
#include "text/Table.h"
#include "values/ValueText.h"

namespace {

using Definitions = ConfigurationAndProcessDataDefinitions;

QString unitOf(const SimulatedLeaf &leaf)
{
    return textProperty(leaf.leaf(), Definitions::getKeyDataPropertyUnit());
}

QString jsonNumber(const QVariant &number)
{
    return valueJson({number, ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID});
}

QString jsonOf(const SimulatedLeaf &leaf)
{
    const auto &range = leaf.range();
    return jsonObject({
        {QStringLiteral("url"), jsonString(leaf.leaf().url)},
        {QStringLiteral("type"), jsonString(slotOf(leaf.leaf()).type)},
        {QStringLiteral("unit"), jsonString(unitOf(leaf))},
        {QStringLiteral("from"), range ? jsonNumber(range->least) : jsonNull()},
        {QStringLiteral("to"), range ? jsonNumber(range->most) : jsonNull()},
        {QStringLiteral("waveform"), jsonString(leaf.waveform())},
        {QStringLiteral("period"), QString::number(leaf.periodInSeconds(), 'f', 1)},
        {QStringLiteral("faults"), jsonBool(leaf.hasFaults())},
    });
}

} // namespace

QString planText(const QVector<SimulatedLeaf> &leaves)
{
    Table table({{QStringLiteral("URL"), Table::Alignment::Left},
                 {QStringLiteral("TYPE"), Table::Alignment::Left},
                 {QStringLiteral("FROM"), Table::Alignment::Right},
                 {QStringLiteral("TO"), Table::Alignment::Right},
                 {QStringLiteral("UNIT"), Table::Alignment::Left},
                 {QStringLiteral("WAVEFORM"), Table::Alignment::Left},
                 {QStringLiteral("PERIOD"), Table::Alignment::Right},
                 {QStringLiteral("FAULTS"), Table::Alignment::Left}});
    for (const auto &leaf : leaves) {
        const auto &range = leaf.range();
        table.addRow({leaf.leaf().url, typeText(slotOf(leaf.leaf())),
                      range ? range->leastText() : QString(), range ? range->mostText() : QString(),
                      unitOf(leaf), leaf.waveform(),
                      QStringLiteral("%1 s").arg(leaf.periodInSeconds(), 0, 'f', 1),
                      leaf.hasFaults() ? QStringLiteral("yes") : QStringLiteral("no")});
    }
    return table.lines().join(QLatin1Char('\n')) + QLatin1Char('\n');
}

QString planJson(const QVector<SimulatedLeaf> &leaves)
{
    QStringList objects;
    for (const auto &leaf : leaves) {
        objects.append(jsonOf(leaf));
    }
    return jsonArray(objects) + QLatin1Char('\n');
}
