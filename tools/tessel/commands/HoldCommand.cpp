#include "commands/BuiltFolder.h"
#include "commands/Commands.h"
#include "live/LiveRegion.h"
#include "text/Output.h"
#include "text/SignalWait.h"

namespace {

void noteReplacement(const DescriptionSource &description)
{
    writeErrorLine(QStringLiteral("tessel: note: replaced the region '%1' that was there; who was "
                                  "attached to it must attach again")
                       .arg(description.key()));
}

QString readyLine(const DescriptionSource &description)
{
    return QStringLiteral("holding %1: %2 leaves, %3 buffer, %4 bytes; SIGINT or SIGTERM ends it\n")
        .arg(printable(description.key()), QString::number(description.leaves().size()),
             description.isDoubleBuffered() ? QStringLiteral("double") : QStringLiteral("single"),
             QString::number(description.regionSize()));
}

ExitCode run(const CommandLine &line)
{
    buildIfFolder(line, QStringLiteral("hold"));
    const DescriptionSource description(line.positional(0));
    description.requireMemory();
    SignalWait signals(SignalWait::Signals::Ending);
    const bool wasThere = RegionInspection(description.key()).exists();
    const LiveRegion region(description, LiveRegion::Opening::Create);
    if (wasThere) {
        noteReplacement(description);
    }
    region.usable(description.leaves());
    writeOutput(readyLine(description));
    while (signals.wait() != SignalWait::Event::End) { }
    return ExitCode::Done;
}

} // namespace

Command holdCommand()
{
    CommandSyntax syntax;
    syntax.name = QStringLiteral("hold");
    syntax.summary = QStringLiteral("Create the region and keep it until SIGINT or SIGTERM.");
    syntax.positionals = {fileArgument()};
    syntax.leastPositionals = 1;
    syntax.mostPositionals = 1;
    syntax.options = {prefixOption()};
    syntax.examples = QStringLiteral(
        "  tessel hold plant.process.json       until Ctrl-C; then nothing of it is left\n"
        "  tessel hold plant.process.json &     beside other work; end it by kill %1\n"
        "  tessel hold device                   builds the folder first, see tessel build\n");
    return {syntax, run};
}
