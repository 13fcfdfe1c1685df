#include "commands/WrittenValues.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "live/MirrorNote.h"
#include "text/JsonText.h"
#include "text/Output.h"
#include "text/Table.h"
#include "values/StateName.h"
#include "values/ValueText.h"

namespace {

using Definitions = ConfigurationAndProcessDataDefinitions;

QString stateJson(const ProcessValue &value)
{
    return QString::number(static_cast<int>(value.getErrorType()));
}

QString jsonOf(const LeafWrite &write, const ProcessValue &former)
{
    return jsonObject({
        {QStringLiteral("url"), jsonString(write.leaf.url)},
        {QStringLiteral("formerValue"), valueJson(former)},
        {QStringLiteral("formerState"), stateJson(former)},
        {QStringLiteral("formerStateName"), jsonString(stateName(former.getErrorType()))},
        {QStringLiteral("value"), valueJson(write.value)},
        {QStringLiteral("state"), stateJson(write.value)},
        {QStringLiteral("stateName"), jsonString(stateName(write.value.getErrorType()))},
        {QStringLiteral("unit"),
         jsonString(textProperty(write.leaf, Definitions::getKeyDataPropertyUnit()))},
        {QStringLiteral("type"),
         jsonString(textProperty(write.leaf, Definitions::getKeyDataPropertyType()))},
    });
}

/// The value, or the name of its state.
QString cellOf(const ProcessValue &value)
{
    const bool isValid = value.getErrorType()
                         == ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID;
    return isValid ? valueText(value) : stateName(value.getErrorType());
}

void printJson(const QVector<LeafWrite> &writes, const QVector<ProcessValue> &formerValues)
{
    QStringList objects;
    for (int i = 0; i < writes.size(); ++i) {
        objects.append(jsonOf(writes[i], formerValues[i]));
    }
    writeOutput(jsonArray(objects) + QLatin1Char('\n'));
}

void printTable(const QVector<LeafWrite> &writes, const QVector<ProcessValue> &formerValues)
{
    Table table({{QStringLiteral("URL"), Table::Alignment::Left},
                 {QStringLiteral("WAS"), Table::Alignment::Right},
                 {QStringLiteral("IS"), Table::Alignment::Right},
                 {QStringLiteral("UNIT"), Table::Alignment::Left}});
    for (int i = 0; i < writes.size(); ++i) {
        table.addRow({writes[i].leaf.url, cellOf(formerValues[i]), cellOf(writes[i].value),
                      textProperty(writes[i].leaf, Definitions::getKeyDataPropertyUnit())});
    }
    writeOutput(table.lines().join(QLatin1Char('\n')) + QLatin1Char('\n'));
}

QVector<Leaf> leavesOf(const QVector<LeafWrite> &writes)
{
    QVector<Leaf> leaves;
    for (const auto &write : writes) {
        leaves.append(write.leaf);
    }
    return leaves;
}

} // namespace

QList<QCommandLineOption> writingOptions()
{
    return {{QStringLiteral("dry-run"), QStringLiteral("Look everything over, but write nothing.")},
            {QStringLiteral("json"), QStringLiteral("Print a JSON array.")},
            {QStringLiteral("no-limits"),
             QStringLiteral("Write values outside of their limits as well.")}};
}

AskedValues::Limits limitsFrom(const CommandLine &line)
{
    return line.isSet(QStringLiteral("no-limits")) ? AskedValues::Limits::Ignored
                                                   : AskedValues::Limits::Checked;
}

void writeAndPrint(const CommandLine &line, const DescriptionSource &description,
                   const QVector<LeafWrite> &writes)
{
    LiveRegion region(description, LiveRegion::Opening::Attach);
    const QVector<Leaf> leaves = leavesOf(writes);
    region.requireUsable(leaves);
    const QVector<ProcessValue> formerValues = line.isSet(QStringLiteral("dry-run"))
                                                   ? region.read(leaves)
                                                   : region.write(writes);
    if (line.isSet(QStringLiteral("json"))) {
        printJson(writes, formerValues);
    } else {
        printTable(writes, formerValues);
    }
    if (!line.isSet(QStringLiteral("dry-run"))) {
        noteWriteIntoMirror(description.key());
    }
}
