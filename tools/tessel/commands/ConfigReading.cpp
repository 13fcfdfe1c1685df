// tessel config get and show.

#include "commands/ConfigActions.h"
#include "configuration/ConfigurationTarget.h"
#include "text/JsonText.h"
#include "text/Output.h"
#include "text/Table.h"

namespace {

using ConfigOption::isSet;

QString jsonOf(const ConfigurationTarget &target)
{
    QVector<QPair<QString, QString>> members{
        {QStringLiteral("url"), jsonString(target.url)},
        {QStringLiteral("value"), configurationJson(target.value)},
        {QStringLiteral("type"), jsonString(target.rules.type)},
        {QStringLiteral("unit"), jsonString(target.unit)},
        {QStringLiteral("readOnly"), jsonBool(target.rules.isReadOnly)},
    };
    if (target.rules.isSelector()) {
        members.append({QStringLiteral("selection"),
                        jsonString(configurationText(target.value, target.rules))});
    }
    return jsonObject(members);
}

QString shownValue(const ConfigurationTarget &target)
{
    if (!target.leaf.isArray()) {
        return configurationText(target.value, target.rules);
    }
    const QVariantList rows = target.value.toList();
    return QStringLiteral("%1 rows").arg(rows.size());
}

} // namespace

ExitCode getConfiguration(const CommandLine &line, const ConfigurationSource &source)
{
    const QString url = line.positional(2);
    const bool isJson = isSet(line, ConfigOption::json);
    const auto textOf = [isJson](const ConfigurationTarget &target) {
        return isJson ? jsonOf(target) : printable(configurationText(target.value, target.rules));
    };
    if (!isPattern(source, url)) {
        writeOutput(textOf(targetAt(source, url)) + QLatin1Char('\n'));
        return ExitCode::Done;
    }
    QStringList texts;
    const QVector<ConfigurationTarget> targets = targetsOf(source, url);
    for (const auto &target : targets) {
        texts.append(textOf(target));
    }
    writeOutput((isJson ? jsonArray(texts) : texts.join(QLatin1Char('\n'))) + QLatin1Char('\n'));
    return ExitCode::Done;
}

ExitCode showConfiguration(const CommandLine &line, const ConfigurationSource &source)
{
    Table table({{QStringLiteral("URL"), Table::Alignment::Left},
                 {QStringLiteral("VALUE"), Table::Alignment::Right},
                 {QStringLiteral("UNIT"), Table::Alignment::Left},
                 {QStringLiteral("TYPE"), Table::Alignment::Left}});
    QStringList objects;
    const QVector<ConfigurationLeaf> leaves = source.leavesAt(line.positional(2));
    for (const auto &leaf : leaves) {
        const ConfigurationTarget target = targetOf(leaf);
        objects.append(jsonOf(target));
        table.addRow({target.url, shownValue(target), target.unit, target.rules.type});
    }
    const QString text = isSet(line, ConfigOption::json) ? jsonArray(objects)
                                                         : table.lines().join(QLatin1Char('\n'));
    writeOutput(text + QLatin1Char('\n'));
    return ExitCode::Done;
}
