// tessel config table.

#include "commands/ConfigActions.h"
#include "commands/ConfigurationChange.h"
#include "configuration/ConfigurationTable.h"
#include "text/JsonText.h"
#include "text/Output.h"

namespace {

using ConfigOption::isSet;

QString jsonOf(const ConfigurationTable &table)
{
    QStringList columns;
    for (const auto &column : table.columns()) {
        columns.append(jsonObject({{QStringLiteral("title"), jsonString(column.title)},
                                   {QStringLiteral("type"), jsonString(column.rules.type)},
                                   {QStringLiteral("unitType"), jsonString(column.unitType)}}));
    }
    return jsonObject({{QStringLiteral("url"), jsonString(table.leaf().url)},
                       {QStringLiteral("columns"),
                        QLatin1Char('[') + columns.join(QStringLiteral(", ")) + QLatin1Char(']')},
                       {QStringLiteral("rows"), configurationJson(QVariant(table.rows()))}});
}

void importRows(const CommandLine &line, const ConfigurationSource &source,
                const ConfigurationTable &table)
{
    const ConfigurationTarget target = targetOf(table.leaf());
    checkNotReadOnly(target);
    const QVariantList rows = rowsFromCsv(line.value(QLatin1String(ConfigOption::import)), table);
    applyChange(
        line, source, target, QVariant(rows),
        target.url
            + QStringLiteral(": %1 rows -> %2 rows").arg(table.rows().size()).arg(rows.size()));
}

} // namespace

ExitCode tableOfConfiguration(const CommandLine &line, const ConfigurationSource &source)
{
    const ConfigurationTable table(source.leafAt(line.positional(2)));
    if (isSet(line, ConfigOption::import)) {
        importRows(line, source, table);
    } else if (isSet(line, ConfigOption::json)) {
        writeOutput(jsonOf(table) + QLatin1Char('\n'));
    } else {
        writeOutput(isSet(line, ConfigOption::csv) ? csvText(table) : alignedText(table));
    }
    return ExitCode::Done;
}
