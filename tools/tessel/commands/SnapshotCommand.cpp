#include "commands/Commands.h"
#include "commands/ResultFile.h"
#include "commands/TakenSnapshot.h"
#include "text/Counted.h"
#include "text/Failure.h"
#include "text/JsonText.h"
#include "text/Output.h"

namespace {

ExitCode run(const CommandLine &line)
{
    const QString option = QStringLiteral("output");
    if (!line.isSet(option)) {
        throw Failure{
            ExitCode::WrongUse,
            QStringLiteral("snapshot: --output is missing; see 'tessel snapshot --help'")};
    }
    const ResultFile result(QStringLiteral("snapshot"), option, line.value(option));
    const bool isJson = line.isSet(QStringLiteral("json"));
    if (isJson && result.path() == QLatin1String("-")) {
        throw Failure{ExitCode::WrongUse,
                      QStringLiteral("snapshot: --json and --output - would both go to standard "
                                     "output; see 'tessel snapshot --help'")};
    }
    const DescriptionSource description(line.positional(0));
    const Snapshot snapshot = takeSnapshot(description, line.positionalsFrom(1));
    const bool isDryRun = line.isSet(QStringLiteral("dry-run"));
    if (!isDryRun) {
        result.write(snapshotText(snapshot));
    }
    if (isJson) {
        writeOutput(jsonObject({{QStringLiteral("file"), jsonString(result.path())},
                                {QStringLiteral("values"), QString::number(snapshot.values.size())},
                                {QStringLiteral("written"), jsonBool(!isDryRun)}})
                    + QLatin1Char('\n'));
    } else if (isDryRun) {
        writeOutput(counted(quint64(snapshot.values.size()), QStringLiteral("value"),
                            QStringLiteral("values"))
                    + QStringLiteral(", not written to %1\n").arg(printable(result.path())));
    }
    return ExitCode::Done;
}

} // namespace

Command snapshotCommand()
{
    CommandSyntax syntax;
    syntax.name = QStringLiteral("snapshot");
    syntax.summary = QStringLiteral("Keep one consistent set in a file, for compare.");
    syntax.positionals = {fileArgument(), urlsArgument()};
    syntax.leastPositionals = 1;
    syntax.mostPositionals = -1;
    syntax.options = {
        {{QStringLiteral("o"), QStringLiteral("output")},
         QStringLiteral("The JSON file to write; - is standard output."),
         QStringLiteral("SNAPSHOT")},
        {QStringLiteral("dry-run"), QStringLiteral("Read the set, but write nothing.")},
        {QStringLiteral("json"), QStringLiteral("Print a JSON object: what was written.")}};
    syntax.examples = QStringLiteral(
        "  tessel snapshot plant.process.json -o good.json          all values\n"
        "  tessel snapshot plant.process.json 'pump/*' -o some.json   some of them\n"
        "  tessel snapshot host.process.json cpu -o -   on standard output\n");
    return {syntax, run};
}
