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

QString textOf(const CommandLine &line, const ConfigurationTable &table)
{
    if (isSet(line, ConfigOption::json)) {
        return jsonOf(table) + QLatin1Char('\n');
    }
    return isSet(line, ConfigOption::csv) ? csvText(table) : alignedText(table);
}

/// Of each array that the pattern leads to, with its URL.
QString textOfAll(const CommandLine &line, const QVector<ConfigurationLeaf> &arrays)
{
    QStringList texts;
    for (const auto &array : arrays) {
        const ConfigurationTable table(array);
        texts.append(isSet(line, ConfigOption::json)
                         ? jsonOf(table)
                         : printable(array.url) + QLatin1Char('\n') + alignedText(table));
    }
    return isSet(line, ConfigOption::json) ? jsonArray(texts) + QLatin1Char('\n')
                                           : texts.join(QLatin1Char('\n'));
}

void printTables(const CommandLine &line, const ConfigurationSource &source)
{
    const QString pattern = line.positional(2);
    const QVector<ConfigurationLeaf> arrays = arraysOf(source, pattern);
    if (!isSet(line, ConfigOption::csv)) {
        writeOutput(textOfAll(line, arrays));
        return;
    }
    if (arrays.size() > 1) {
        refuseConfigUse(QStringLiteral("--csv prints one array, '%1' names %2")
                            .arg(pattern, QString::number(arrays.size())));
    }
    writeOutput(csvText(ConfigurationTable(arrays.constFirst())));
}

} // namespace

ExitCode tableOfConfiguration(const CommandLine &line, const ConfigurationSource &source)
{
    if (isSet(line, ConfigOption::import)) {
        // What is written is named as it stands.
        importRows(line, source, ConfigurationTable(source.leafAt(line.positional(2))));
    } else if (isPattern(source, line.positional(2))) {
        printTables(line, source);
    } else {
        writeOutput(textOf(line, ConfigurationTable(source.leafAt(line.positional(2)))));
    }
    return ExitCode::Done;
}
