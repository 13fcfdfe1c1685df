#include "commands/Commands.h"
#include "commands/WrittenValues.h"
#include "live/MirrorNote.h"
#include "text/WrongUse.h"
#include "values/StateName.h"
#include "values/ValueText.h"

namespace {

using ProcessDataDefinitions::ErrorTypes;
using ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID;

constexpr auto command = "set";
constexpr auto errorOption = "error";

/// The pairs of a URL and a value, in the order in which they were given.
QVector<QPair<QString, QString>> pairsOf(const CommandLine &line)
{
    const QStringList words = line.positionalsFrom(1);
    QVector<QPair<QString, QString>> pairs;
    for (int i = 0; i + 1 < words.size(); i += 2) {
        pairs.append({words[i], words[i + 1]});
    }
    return pairs;
}

void checkUse(const CommandLine &line)
{
    const QStringList words = line.positionalsFrom(1);
    const bool hasState = line.isSet(QLatin1String(errorOption));
    if (hasState && words.size() > 1) {
        refuseUse(command, QStringLiteral("give VALUE or --error STATE, not both"));
    }
    if (!hasState && words.size() % 2 != 0) {
        refuseUse(command, words.size() == 1
                               ? QStringLiteral("VALUE is missing")
                               : QStringLiteral("VALUE of '%1' is missing").arg(words.last()));
    }
}

ErrorTypes askedState(const CommandLine &line)
{
    const ErrorTypes state = stateFromText(line.value(QLatin1String(errorOption)));
    if (state == PROCESS_VALUE_ERROR_TYPE_VALID) {
        refuseUse(command, QStringLiteral("'valid' is no error; give a VALUE instead"));
    }
    return state;
}

LeafWrite askedWrite(const CommandLine &line, const DescriptionSource &description)
{
    const Leaf leaf = writableLeafAt(description, line.positional(1));
    if (line.isSet(QLatin1String(errorOption))) {
        return {leaf, stateFor(leaf, askedState(line))};
    }
    return {leaf,
            {valueFromText(line.positional(2), slotOf(leaf), leaf.url),
             PROCESS_VALUE_ERROR_TYPE_VALID}};
}

void writeOne(const CommandLine &line, const DescriptionSource &description)
{
    const LeafWrite write = askedWrite(line, description);
    if (line.isSet(QStringLiteral("dry-run")) || line.isSet(QStringLiteral("json"))) {
        writeAndPrint(line, description, {write});
        return;
    }
    LiveRegion region(description, LiveRegion::Opening::Attach);
    region.requireUsable({write.leaf});
    region.write({write});
    noteWriteIntoMirror(description.key());
}

void writeSeveral(const CommandLine &line, const DescriptionSource &description)
{
    AskedValues values(description, limitsFrom(line));
    const QVector<QPair<QString, QString>> pairs = pairsOf(line);
    for (const auto &pair : pairs) {
        values.add(pair.first, pair.second);
    }
    writeAndPrint(line, description, values.takeAll());
}

ExitCode run(const CommandLine &line)
{
    checkUse(line);
    if (line.isSet(QLatin1String(errorOption))) {
        askedState(line);
    }
    const DescriptionSource description(line.positional(0));
    if (pairsOf(line).size() > 1) {
        writeSeveral(line, description);
    } else {
        writeOne(line, description);
    }
    return ExitCode::Done;
}

} // namespace

Command setCommand()
{
    CommandSyntax syntax;
    syntax.name = QStringLiteral("set");
    syntax.summary = QStringLiteral("Write values or an error state and publish them.");
    syntax.positionals = {
        fileArgument(),
        {QStringLiteral("URL"), QStringLiteral("The leaf to write.")},
        {QStringLiteral("[VALUE]"),
         QStringLiteral("What to write, fitting the leaf's type; -- before a text with a '-'.")},
        {QStringLiteral("[URL VALUE...]"),
         QStringLiteral("More of them: all are written as one set, or none.")}};
    syntax.leastPositionals = 2;
    syntax.mostPositionals = -1;
    syntax.options = {{QLatin1String(errorOption),
                       QStringLiteral("Write an error state instead: 1 to 9, or its name."),
                       QStringLiteral("STATE")}};
    syntax.options += writingOptions();
    syntax.examples = QStringLiteral(
        "  tessel set plant.process.json pump/speed 12.5             a value\n"
        "  tessel set plant.process.json pump/speed -0.5             a negative one\n"
        "  tessel set plant.process.json pump/speed --error timeout  an error state\n"
        "  tessel set plant.process.json pump/speed 10 pump/level 2  as one set\n"
        "States: underrange (1), overrange, no-input, division-by-zero, incorrect-mathematic,\n"
        "  invalid-temperature, sensor-short-circuit, sensor-breakage, timeout (9)\n");
    return {syntax, run};
}
