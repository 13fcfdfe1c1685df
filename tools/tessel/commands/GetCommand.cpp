#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "commands/Commands.h"
#include "live/LiveRegion.h"
#include "text/Failure.h"
#include "text/JsonText.h"
#include "text/Output.h"
#include "text/Table.h"
#include "values/StateName.h"
#include "values/ValueText.h"

namespace {

using Definitions = ConfigurationAndProcessDataDefinitions;

void printJson(const QVector<Leaf> &leaves, const QVector<ProcessValue> &values)
{
    QStringList objects;
    for (int i = 0; i < leaves.size(); ++i) {
        objects.append(leafJson(leaves[i], values[i]));
    }
    writeOutput(jsonArray(objects) + QLatin1Char('\n'));
}

void printTable(const QVector<Leaf> &leaves, const QVector<ProcessValue> &values)
{
    Table table({{QStringLiteral("URL"), Table::Alignment::Left},
                 {QStringLiteral("VALUE"), Table::Alignment::Right},
                 {QStringLiteral("UNIT"), Table::Alignment::Left},
                 {QStringLiteral("STATE"), Table::Alignment::Left}});
    for (int i = 0; i < leaves.size(); ++i) {
        table.addRow({leaves[i].url, valueText(values[i]),
                      textProperty(leaves[i], Definitions::getKeyDataPropertyUnit()),
                      stateName(values[i].getErrorType())});
    }
    writeOutput(table.lines().join(QLatin1Char('\n')) + QLatin1Char('\n'));
}

void printValues(const QVector<ProcessValue> &values)
{
    QString lines;
    for (const auto &value : values) {
        lines += printable(valueText(value)) + QLatin1Char('\n');
    }
    writeOutput(lines);
}

ExitCode run(const CommandLine &line)
{
    const bool isJson = line.isSet(QStringLiteral("json"));
    const bool isTerse = line.isSet(QStringLiteral("terse"));
    if (isJson && isTerse) {
        throw Failure{
            ExitCode::WrongUse,
            QStringLiteral("get: --json does not go with --terse; see 'tessel get --help'")};
    }
    const DescriptionSource description(line.positional(0));
    const QStringList urls = line.positionalsFrom(1);
    QVector<Leaf> leaves = description.leavesAt(urls);
    LiveRegion region(description, LiveRegion::Opening::Read);
    leaves = region.readable(leaves, urls);
    if (!region.isPublished()) {
        writeErrorLine(
            QStringLiteral("tessel: note: nothing was published in region '%1' yet; these "
                           "are bytes that nobody has written")
                .arg(description.key()));
    }
    const QVector<ProcessValue> values = region.read(leaves);
    if (isJson) {
        printJson(leaves, values);
    } else if (isTerse) {
        printValues(values);
    } else {
        printTable(leaves, values);
    }
    return ExitCode::Done;
}

} // namespace

Command getCommand()
{
    CommandSyntax syntax;
    syntax.name = QStringLiteral("get");
    syntax.summary = QStringLiteral("Print values with their error states, as one consistent set.");
    syntax.positionals = {fileArgument(), urlsArgument()};
    syntax.leastPositionals = 1;
    syntax.mostPositionals = -1;
    syntax.options = {{QStringLiteral("json"), QStringLiteral("Print a JSON array.")},
                      {{QStringLiteral("t"), QStringLiteral("terse")},
                       QStringLiteral("Print the values alone, a line each.")}};
    syntax.examples = QStringLiteral(
        "  tessel get host.process.json                       all values\n"
        "  tessel get host.process.json cpu load/average1     a node and a leaf\n"
        "  tessel get host.process.json '**/average*'         whatever its name begins with\n"
        "  tessel get --json host.process.json cpu/usage      for programs\n"
        "  tessel get -t host.process.json cpu/usage          for scripts: the value alone\n");
    return {syntax, run};
}
