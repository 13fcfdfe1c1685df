#include "commandline/OtherPrograms.h"
#include "commands/Commands.h"
#include "completion/Completion.h"
#include "text/Output.h"

namespace {

/// A shell could not tell a line break inside a word from the end of the line.
bool isPlain(const QString &word)
{
    return !word.isEmpty() && printable(word) == word;
}

QString outputLine(const QString &word, const QString &description)
{
    return QStringLiteral("%1\t%2\n").arg(word, printable(description));
}

ExitCode run(const CommandLine &line)
{
    QVector<CommandSyntax> subcommands;
    const QVector<Command> commands = allCommands();
    for (const auto &command : commands) {
        subcommands.append(command.syntax);
    }
    const QStringList otherNames = OtherPrograms::names();
    for (const auto &name : otherNames) {
        CommandSyntax other;
        other.name = name;
        other.summary = QStringLiteral("A program of its own.");
        subcommands.append(other);
    }
    const Completion completion = completionOf(line.positionalsFrom(0), subcommands);
    QString lines;
    for (const auto &candidate : completion.candidates) {
        if (isPlain(candidate.word)) {
            lines += outputLine(candidate.word, candidate.description);
        }
    }
    if (!completion.fileEnding.isEmpty()) {
        lines += outputLine({}, completion.fileEnding);
    }
    writeOutput(lines);
    return ExitCode::Done;
}

} // namespace

Command completeCommand()
{
    CommandSyntax syntax;
    syntax.name = QStringLiteral("complete");
    syntax.summary = QStringLiteral("Tell a shell how the last of the words may go on.");
    syntax.positionals = {
        {QStringLiteral("[WORD...]"),
         QStringLiteral("What stands behind 'tessel', up to the word that is typed; after --.")}};
    syntax.leastPositionals = 0;
    syntax.mostPositionals = -1;
    syntax.examples = QStringLiteral(
        "  tessel complete -- get plant.process.json pu    lines of a word, a tab, what it is\n"
        "A line that begins with a tab tells how the names of files end that fit there.\n");
    syntax.isHidden = true;
    return {syntax, run};
}
