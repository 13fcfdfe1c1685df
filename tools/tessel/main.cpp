#include "Companion/FormatVersions.h"
#include "commandline/OtherPrograms.h"
#include "commands/Commands.h"
#include "text/Failure.h"
#include "text/LogCollector.h"
#include "text/Output.h"
#include "text/StandardDescriptors.h"
#include "text/Suggestion.h"

#include <QCoreApplication>
#include <QTextCodec>

#include <csignal>
#include <exception>
#include <new>

namespace {

const QLatin1String usualKeyPrefix("tessel");

QString versionText()
{
    return QStringLiteral("tessel " TESSEL_VERSION "\n"
                          "Qt %1\n"
                          "description format %2\n"
                          "memory format %3\n")
        .arg(QLatin1String(qVersion()))
        .arg(FormatVersions::description)
        .arg(FormatVersions::memory);
}

[[noreturn]] void refuseUse(const QString &reason)
{
    throw Failure{ExitCode::WrongUse, QStringLiteral("%1; see 'tessel --help'").arg(reason)};
}

ExitCode runCommand(const QString &name, const QStringList &arguments)
{
    QStringList names;
    const QVector<Command> commands = allCommands();
    for (const auto &command : commands) {
        if (!command.syntax.isHidden) {
            names.append(command.syntax.name);
        }
        if (command.syntax.name != name) {
            continue;
        }
        const CommandLine line(command.syntax, arguments);
        if (line.isHelpAsked()) {
            writeOutput(helpText(command.syntax));
            return ExitCode::Done;
        }
        if (line.isVerbose()) {
            LogCollector::showMessages();
        }
        line.checkPositionals();
        return command.run(line);
    }
    OtherPrograms::runIfThere(name, arguments);
    names += OtherPrograms::names();
    refuseUse(QStringLiteral("unknown subcommand '%1'%2").arg(name, suggestion(name, names)));
}

/// Takes the options before the subcommand, then leaves the rest to it.
ExitCode run(QStringList arguments)
{
    while (!arguments.isEmpty()) {
        const QString first = arguments.takeFirst();
        if (first == QLatin1String("--version")) {
            writeOutput(versionText());
            return ExitCode::Done;
        }
        if (first == QLatin1String("--help") || first == QLatin1String("-h")) {
            writeOutput(generalHelp());
            return ExitCode::Done;
        }
        if (first == QLatin1String("--verbose") || first == QLatin1String("-v")) {
            LogCollector::showMessages();
            continue;
        }
        if (!first.startsWith(QLatin1Char('-'))) {
            return runCommand(first, arguments);
        }
        const QString hint = suggestion(
            first,
            {QStringLiteral("--version"), QStringLiteral("--help"), QStringLiteral("--verbose")});
        refuseUse(QStringLiteral("unknown option '%1'%2").arg(first, hint));
    }
    refuseUse(QStringLiteral("no subcommand"));
}

/// What the caller typed, in UTF-8 whatever the locale says.
QStringList typedArguments(int argc, char *argv[])
{
    const QTextCodec *const utf8 = QTextCodec::codecForName("UTF-8");
    QStringList arguments;
    for (int i = 1; i < argc; ++i) {
        // A byte order mark in front is a character of the text, which fromUtf8() would drop.
        QTextCodec::ConverterState state(QTextCodec::IgnoreHeader);
        arguments.append(utf8->toUnicode(argv[i], static_cast<int>(qstrlen(argv[i])), &state));
    }
    return arguments;
}

} // namespace

QVector<Command> allCommands()
{
    return {
        infoCommand(),     holdCommand(),   simCommand(),      getCommand(),     setCommand(),
        applyCommand(),    watchCommand(),  waitCommand(),     expectCommand(),  recordCommand(),
        replayCommand(),   exportCommand(), snapshotCommand(), compareCommand(), explainCommand(),
        doctorCommand(),   statCommand(),   trendCommand(),    regionsCommand(), removeCommand(),
        buildCommand(),    mergeCommand(),  configCommand(),   layoutCommand(),  diffCommand(),
        validateCommand(), schemaCommand(), genCommand(),      helpCommand(),    completeCommand()};
}

CommandSyntax::Positional fileArgument()
{
    return {QStringLiteral("FILE"),
            QStringLiteral("A process description, NAME.process.json, or a folder of them."), true};
}

CommandSyntax::Positional urlsArgument()
{
    return {QStringLiteral("[URL...]"),
            QStringLiteral("Leaves, or nodes for all leaves below; * and ** stand for any names.")};
}

CommandSyntax::Positional recordingArgument()
{
    return {QStringLiteral("RECORDING"), QStringLiteral("A file that 'tessel record' has made.")};
}

QCommandLineOption prefixOption()
{
    return {QStringLiteral("prefix"),
            QStringLiteral("How a folder's memory key begins (%1).").arg(usualKeyPrefix),
            QStringLiteral("P")};
}

QString keyPrefixFrom(const CommandLine &line)
{
    if (!line.isSet(QStringLiteral("prefix"))) {
        return usualKeyPrefix;
    }
    QString prefix = line.value(QStringLiteral("prefix"));
    if (prefix.contains(QLatin1Char('/'))) {
        refuseUse(QStringLiteral("--prefix takes no '/', not '%1'").arg(prefix));
    }
    return prefix;
}

int main(int argc, char *argv[])
{
    fillStandardDescriptors();
    const QCoreApplication application(argc, argv);
    // File names and texts are UTF-8 also where a bare machine has no locale set.
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));
    // A reader that ends early is told by the write, so that regions are removed on every way out.
    std::signal(SIGPIPE, SIG_IGN);
    // A file that must not grow further is told by the write as well, like a full disk.
    std::signal(SIGXFSZ, SIG_IGN);
    const LogCollector collector;
    try {
        return static_cast<int>(run(typedArguments(argc, argv)));
    } catch (const Failure &failure) {
        writeErrorLine(QStringLiteral("tessel: ") + failure.reason);
        return static_cast<int>(failure.code);
    } catch (const OutputClosed &) {
        return static_cast<int>(ExitCode::Done);
    } catch (const std::bad_alloc &) {
        writeErrorLine(QStringLiteral("tessel: there is no memory left; end other programs, or "
                                      "raise the limit (ulimit -v)"));
    } catch (const std::exception &exception) {
        writeErrorLine(
            QStringLiteral("tessel: internal: %1").arg(QString::fromLocal8Bit(exception.what())));
    }
    return static_cast<int>(ExitCode::Internal);
}
