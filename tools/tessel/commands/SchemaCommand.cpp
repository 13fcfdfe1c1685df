#include "commands/Commands.h"
#include "descriptions/DescriptionSchema.h"
#include "text/Failure.h"
#include "text/Output.h"
#include "text/Suggestion.h"

namespace {

ExitCode run(const CommandLine &line)
{
    const QString name = line.positional(0);
    const QStringList names = DescriptionSchema::names();
    if (!names.contains(name)) {
        throw Failure{ExitCode::WrongUse,
                      QStringLiteral("schema: there is none of '%1'%2; see 'tessel schema --help'")
                          .arg(name, suggestion(name, names))};
    }
    writeOutput(DescriptionSchema::text(name));
    return ExitCode::Done;
}

} // namespace

Command schemaCommand()
{
    CommandSyntax syntax;
    syntax.name = QStringLiteral("schema");
    syntax.summary = QStringLiteral("Print the JSON Schema of descriptions, for editors.");
    syntax.positionals = {
        {QStringLiteral("KIND"), QStringLiteral("process, config, or folder for folder.json.")}};
    syntax.leastPositionals = 1;
    syntax.mostPositionals = 1;
    syntax.examples = QStringLiteral("  tessel schema process > process.schema.json\n");
    return {syntax, run};
}
