#include "commands/Commands.h"
#include "commands/WrittenValues.h"
#include "descriptions/DescriptionFile.h"
#include "descriptions/JsonInput.h"
#include "text/Failure.h"

#include <QJsonArray>
#include <QJsonObject>

namespace {

/// An object of URLs and values, or what `get --json` prints.
void addAll(AskedValues &values, const QJsonDocument &document)
{
    const QJsonObject object = document.object();
    for (auto member = object.begin(); member != object.end(); ++member) {
        values.add(member.key(), member.value());
    }
    const QJsonArray all = document.array();
    for (const auto &printed : all) {
        values.addPrinted(printed);
    }
}

ExitCode run(const CommandLine &line)
{
    const DescriptionSource description(line.positional(0));
    const QString path = line.positional(1);
    const QJsonDocument document = jsonInput(path);
    if (document.object().isEmpty() && document.array().isEmpty()) {
        refusePath(ExitCode::InputOutputFile, path, QStringLiteral("there is no value in it"));
    }
    AskedValues values(description, limitsFrom(line));
    addAll(values, document);
    writeAndPrint(line, description, values.takeAll());
    return ExitCode::Done;
}

} // namespace

Command applyCommand()
{
    CommandSyntax syntax;
    syntax.name = QStringLiteral("apply");
    syntax.summary = QStringLiteral("Write the values of a JSON file as one set, or none of them.");
    syntax.positionals = {
        fileArgument(),
        {QStringLiteral("VALUES"),
         QStringLiteral("Values by their URLs, or what get --json printed; - is the input.")}};
    syntax.leastPositionals = 2;
    syntax.mostPositionals = 2;
    syntax.options = writingOptions();
    syntax.examples = QStringLiteral(
        "  tessel get --json plant.process.json pump > pump.json    keep what is\n"
        "  tessel apply plant.process.json pump.json                and bring it back\n"
        "  tessel apply --dry-run plant.process.json pump.json      only look\n"
        "VALUES is {\"pump/speed\": 12.5, \"pump/level\": {\"state\": \"timeout\"}}.\n");
    return {syntax, run};
}
