#include "commands/Commands.h"
#include "live/LiveRegion.h"
#include "text/Failure.h"
#include "values/StateName.h"
#include "values/ValueText.h"

namespace {

using ProcessDataDefinitions::ErrorTypes;
using ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID;

constexpr auto errorOption = "error";

[[noreturn]] void refuseUse(const QString &reason)
{
    throw Failure{ExitCode::WrongUse,
                  QStringLiteral("set: %1; see 'tessel set --help'").arg(reason)};
}

void checkUse(const CommandLine &line)
{
    const bool hasValue = line.positionalsFrom(2).size() == 1;
    const bool hasState = line.isSet(QLatin1String(errorOption));
    if (hasValue && hasState) {
        refuseUse(QStringLiteral("give VALUE or --error STATE, not both"));
    }
    if (!hasValue && !hasState) {
        refuseUse(QStringLiteral("VALUE is missing"));
    }
}

ErrorTypes askedState(const CommandLine &line)
{
    const ErrorTypes state = stateFromText(line.value(QLatin1String(errorOption)));
    if (state == PROCESS_VALUE_ERROR_TYPE_VALID) {
        refuseUse(QStringLiteral("'valid' is no error; give a VALUE instead"));
    }
    return state;
}

/// A state that the slot cannot hold would be lost, and the value would read as a valid one.
void checkCarriesState(const Leaf &leaf, const LeafSlot &slot)
{
    if (!slot.carriesErrorState()) {
        throw Failure{ExitCode::Refused,
                      QStringLiteral("'%1': a %2 without metadata cannot carry an error state")
                          .arg(leaf.url, slot.type)};
    }
}

ProcessValue askedValue(const CommandLine &line, const Leaf &leaf)
{
    const LeafSlot slot = slotOf(leaf);
    if (line.isSet(QLatin1String(errorOption))) {
        const ErrorTypes state = askedState(line);
        checkCarriesState(leaf, slot);
        return {state};
    }
    return {valueFromText(line.positional(2), slot, leaf.url), PROCESS_VALUE_ERROR_TYPE_VALID};
}

ExitCode run(const CommandLine &line)
{
    checkUse(line);
    if (line.isSet(QLatin1String(errorOption))) {
        askedState(line);
    }
    const DescriptionSource description(line.positional(0));
    const Leaf leaf = description.leafAt(line.positional(1));
    if (slotOf(leaf).isReadOnly) {
        throw Failure{ExitCode::Refused,
                      QStringLiteral("'%1' is read-only; only the process that created the region "
                                     "writes it")
                          .arg(leaf.url)};
    }
    const ProcessValue value = askedValue(line, leaf);
    LiveRegion region(description, LiveRegion::Opening::Attach);
    region.requireUsable({leaf});
    region.write(leaf, value);
    return ExitCode::Done;
}

} // namespace

Command setCommand()
{
    CommandSyntax syntax;
    syntax.name = QStringLiteral("set");
    syntax.summary = QStringLiteral("Write one value or error state and publish it.");
    syntax.positionals = {
        fileArgument(),
        {QStringLiteral("URL"), QStringLiteral("The leaf to write.")},
        {QStringLiteral("[VALUE]"),
         QStringLiteral("What to write, fitting the leaf's type; -- before a text with a '-'.")}};
    syntax.leastPositionals = 2;
    syntax.mostPositionals = 3;
    syntax.options = {{QLatin1String(errorOption),
                       QStringLiteral("Write an error state instead: 1 to 9, or its name."),
                       QStringLiteral("STATE")}};
    syntax.examples = QStringLiteral(
        "  tessel set plant.process.json pump/speed 12.5             a value\n"
        "  tessel set plant.process.json pump/speed -0.5             a negative one\n"
        "  tessel set plant.process.json pump/speed --error timeout  an error state\n"
        "States: underrange (1), overrange, no-input, division-by-zero, incorrect-mathematic,\n"
        "  invalid-temperature, sensor-short-circuit, sensor-breakage, timeout (9)\n");
    return {syntax, run};
}
