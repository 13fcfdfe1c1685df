#include "Validation/DescriptionCheck.h"
#include "commandline/OtherPrograms.h"
#include "commands/Commands.h"
#include "text/Failure.h"
#include "text/Output.h"
#include "text/Suggestion.h"

namespace {

/// The programs of others, if there are any.
QString otherSubcommands()
{
    QString lines;
    const QStringList names = OtherPrograms::names();
    for (const auto &name : names) {
        lines += QStringLiteral("  %1\n").arg(name);
    }
    return lines.isEmpty()
               ? lines
               : QStringLiteral("Subcommands that are programs of their own:\n%1\n").arg(lines);
}

QString ruleHelp(const DescriptionRule &rule)
{
    const bool isError = rule.level == DescriptionProblem::Level::Error;
    return QStringLiteral("%1 (%2 of 'tessel validate')\n\nCause: %3\nCure:  %4\n")
        .arg(rule.name, isError ? QStringLiteral("error") : QStringLiteral("warning"), rule.cause,
             rule.cure);
}

/// The help of a subcommand or a rule.
QString helpOf(const QString &topic)
{
    QStringList topics;
    const QVector<Command> commands = allCommands();
    for (const auto &command : commands) {
        if (command.syntax.name == topic) {
            return helpText(command.syntax);
        }
        if (!command.syntax.isHidden) {
            topics.append(command.syntax.name);
        }
    }
    const QVector<DescriptionRule> rules = DescriptionCheck::getRules();
    for (const auto &rule : rules) {
        if (rule.name == topic) {
            return ruleHelp(rule);
        }
        topics.append(rule.name);
    }
    throw Failure{ExitCode::WrongUse,
                  QStringLiteral("help: no subcommand or rule '%1'%2; see 'tessel --help'")
                      .arg(topic, suggestion(topic, topics))};
}

ExitCode run(const CommandLine &line)
{
    const QStringList topics = line.positionalsFrom(0);
    writeOutput(topics.isEmpty() ? generalHelp() : helpOf(topics.constFirst()));
    return ExitCode::Done;
}

} // namespace

QString generalHelp()
{
    QString commands;
    const QVector<Command> all = allCommands();
    for (const auto &command : all) {
        if (!command.syntax.isHidden) {
            commands += QStringLiteral("  %1  %2\n")
                            .arg(command.syntax.name, -8)
                            .arg(command.syntax.summary);
        }
    }
    return QStringLiteral(
               "Usage: tessel SUBCOMMAND [OPTION...] FILE [ARGUMENT...]\n\n"
               "Shows and changes the live process values behind a process description.\n\n"
               "Subcommands:\n%1\n%2"
               "Options:\n"
               "  -v, --verbose  Show the library's messages on standard error.\n"
               "  --version      Show the versions of tool, Qt and formats.\n"
               "  -h, --help     Show this help; after a subcommand, that of the subcommand.\n\n"
               "Exit codes:\n"
               "  0 done    1 answer is no    2 wrong use    3 URL, file or region not found\n"
               "  4 no permission, cannot attach    5 refused: type, range, read-only\n"
               "  6 time ran out    7 no consistent set    8 layout differs, region replaced\n"
               "  9 input or output file    10 internal\n")
        .arg(commands, otherSubcommands());
}

Command helpCommand()
{
    CommandSyntax syntax;
    syntax.name = QStringLiteral("help");
    syntax.summary = QStringLiteral("Explain a subcommand, or a rule of 'tessel validate'.");
    syntax.positionals = {
        {QStringLiteral("[TOPIC]"),
         QStringLiteral("A subcommand or the name of a rule; everything without one.")}};
    syntax.leastPositionals = 0;
    syntax.mostPositionals = 1;
    syntax.examples = QStringLiteral("  tessel help get             the same as tessel get --help\n"
                                     "  tessel help slots-overlap   what it means, what to do\n");
    return {syntax, run};
}
