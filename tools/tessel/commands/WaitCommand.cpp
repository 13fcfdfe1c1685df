#include "commands/Commands.h"
#include "descriptions/DescriptionSource.h"
#include "live/RegionWait.h"
#include "text/Failure.h"
#include "text/JsonText.h"
#include "text/Output.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int longestTimeout = 24 * 3600;

QString wordOf(RegionProgress progress)
{
    switch (progress) {
    case RegionProgress::Published: return QStringLiteral("published");
    case RegionProgress::Silent: return QStringLiteral("silent");
    case RegionProgress::Missing: break;
    }
    return QStringLiteral("missing");
}

ExitCode run(const CommandLine &line)
{
    const int timeout = line.number(QStringLiteral("timeout"), 0, longestTimeout, -1);
    const DescriptionSource description(line.positional(0));
    description.requireMemory();
    const Clock::time_point deadline = timeout < 0 ? Clock::time_point::max()
                                                   : Clock::now() + std::chrono::seconds(timeout);
    const RegionProgress progress = waitUntilPublished(description, deadline);
    if (line.isSet(QStringLiteral("json"))) {
        const QString object = jsonObject(
            {{QStringLiteral("key"), jsonString(description.key())},
             {QStringLiteral("region"), jsonString(wordOf(progress))}});
        writeBesideAnswer(object + QLatin1Char('\n'));
    }
    switch (progress) {
    case RegionProgress::Published: return ExitCode::Done;
    case RegionProgress::Silent:
        throw Failure{ExitCode::TimedOut,
                      QStringLiteral("%1: nothing was published in region '%2' within %3 s")
                          .arg(description.path(), description.key(), QString::number(timeout))};
    case RegionProgress::Missing: break;
    }
    throw Failure{ExitCode::TimedOut,
                  QStringLiteral("%1: no region '%2' within %3 s")
                      .arg(description.path(), description.key(), QString::number(timeout))};
}

} // namespace

Command waitCommand()
{
    CommandSyntax syntax;
    syntax.name = QStringLiteral("wait");
    syntax.summary = QStringLiteral("Wait until the region is there and a set was published.");
    syntax.positionals = {fileArgument()};
    syntax.leastPositionals = 1;
    syntax.mostPositionals = 1;
    syntax.options = {
        {QStringLiteral("timeout"), QStringLiteral("Give up after so many seconds, 0 to 86400."),
         QStringLiteral("S")},
        {QStringLiteral("json"), QStringLiteral("Print a JSON object: how far the region came.")}};
    syntax.examples = QStringLiteral(
        "  tessel wait plant.process.json                 before a program that attaches\n"
        "  tessel wait --timeout 30 plant.process.json    exit code 6 if it takes longer\n"
        "  tessel wait --timeout 0 host.process.json      only look\n");
    return {syntax, run};
}
