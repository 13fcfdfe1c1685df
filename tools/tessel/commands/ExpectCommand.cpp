#include "commands/Commands.h"
#include "commands/ExpectationReport.h"
#include "commands/ExpectationWatch.h"
#include "expressions/Duration.h"
#include "expressions/TypedExpectation.h"
#include "text/Failure.h"
#include "text/Output.h"
#include "text/WrongUse.h"

namespace {

using End = ExpectationOutcome::End;

constexpr auto command = "expect";
constexpr std::chrono::hours longestWait{24};

std::optional<std::chrono::microseconds> durationOf(const CommandLine &line, const QString &option)
{
    if (!line.isSet(option)) {
        return {};
    }
    const QString text = line.value(option);
    const auto duration = durationFromOption(text);
    if (!duration || *duration > longestWait) {
        refuseUse(command,
                  QStringLiteral("--%1 takes a time from 0s to 24h such as 500ms, 10s or 2min, not "
                                 "'%2'")
                      .arg(option, text));
    }
    return duration;
}

ExpectationBounds boundsFrom(const CommandLine &line)
{
    ExpectationBounds bounds;
    bounds.hold = durationOf(line, QStringLiteral("for")).value_or(std::chrono::microseconds(0));
    bounds.timeout = durationOf(line, QStringLiteral("timeout"));
    if (bounds.timeout && bounds.hold.count() != 0 && bounds.hold >= *bounds.timeout) {
        refuseUse(command, QStringLiteral("--for takes less time than --timeout"));
    }
    return bounds;
}

/// In one line why it ended without a yes.
QString reasonOf(const ExpectationOutcome &outcome, const ExpectationBounds &bounds)
{
    const QString hold = durationText(bounds.hold);
    const bool isLasting = bounds.hold.count() != 0;
    if (outcome.end == End::NotMet) {
        const auto held = std::chrono::floor<std::chrono::milliseconds>(outcome.held);
        return isLasting
                   ? QStringLiteral("it held for %1, not for %2").arg(durationText(held), hold)
                   : QStringLiteral("it does not hold");
    }
    const QString timeout = durationText(*bounds.timeout);
    return isLasting ? QStringLiteral("it did not hold for %1 within %2").arg(hold, timeout)
                     : QStringLiteral("it did not hold within %1").arg(timeout);
}

ExitCode run(const CommandLine &line)
{
    const ExpectationBounds bounds = boundsFrom(line);
    const DescriptionSource description(line.positional(0));
    const Expectation expectation = typedExpectation(QStringLiteral("expect"), line.positional(1),
                                                     description);
    description.requireMemory();
    const ExpectationOutcome outcome = ExpectationWatch(description, expectation, bounds).run();
    const bool isMet = outcome.end == End::Met;
    const bool isJson = line.isSet(QStringLiteral("json"));
    if (isJson || !isMet) {
        writeBesideAnswer(isJson ? expectationJson(expectation, outcome)
                                 : expectationTable(expectation, outcome));
    }
    if (isMet) {
        return ExitCode::Done;
    }
    throw Failure{outcome.end == End::NotMet ? ExitCode::AnsweredNo : ExitCode::TimedOut,
                  QStringLiteral("%1: %2").arg(description.path(), reasonOf(outcome, bounds))};
}

} // namespace

Command expectCommand()
{
    CommandSyntax syntax;
    syntax.name = QStringLiteral("expect");
    syntax.summary = QStringLiteral(
        "Answer by the exit code whether something holds of the values.");
    syntax.positionals = {
        fileArgument(),
        {QStringLiteral("EXPRESSION"),
         QStringLiteral("What is to hold, such as 'pump/speed > 20 and valid'.")}};
    syntax.leastPositionals = 2;
    syntax.mostPositionals = 2;
    syntax.options = {
        {QStringLiteral("for"),
         QStringLiteral("It has to hold so long without a break, such as 10s."),
         QStringLiteral("TIME")},
        {QStringLiteral("timeout"),
         QStringLiteral("Wait for it, for the region too, at most so long."),
         QStringLiteral("TIME")},
        {QStringLiteral("json"), QStringLiteral("Print what was looked at as JSON.")}};
    syntax.examples = QStringLiteral(
        "  tessel expect plant.process.json 'pump/speed >= 0 or not valid'    now\n"
        "  tessel expect --timeout 60s host.process.json 'age < 1h'    as soon as it holds\n"
        "  tessel expect --for 100ms host.process.json 'any(**) is not timeout'   for a while\n"
        "A URL stands in { } where it looks like something else, a text in quotes. States are "
        "those of\n"
        "get, and 'erroneous'; all(URL) and any(URL) take * and **. Exit code 0: it holds, 1: it "
        "does\n"
        "not, 6: the time ran out.\n");
    return {syntax, run};
}
