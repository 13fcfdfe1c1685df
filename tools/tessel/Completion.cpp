#include "Completion.h"

#include "ConfigActions.h"
#include "StateName.h"
#include "TypedLine.h"
#include "UrlCompletion.h"

namespace {

using Candidate = Completion::Candidate;

/// Which files fit an argument, by what the help calls it.
QString fileEndingFor(const QString &placeholder)
{
    if (placeholder == QLatin1String("DIR")) {
        return QStringLiteral("/");
    }
    if (placeholder == QLatin1String("DIR|FILE")) {
        return QStringLiteral(".config.json");
    }
    return placeholder.endsWith(QLatin1String("FILE")) ? QStringLiteral(".process.json")
                                                       : QString();
}

Completion fromWords(const QStringList &words)
{
    Completion completion;
    for (const auto &word : words) {
        completion.candidates.append({word, {}});
    }
    return completion;
}

Completion subcommands(const QVector<Command> &commands)
{
    Completion completion;
    for (const auto &command : commands) {
        if (!command.syntax.isHidden) {
            completion.candidates.append({command.syntax.name, command.syntax.summary});
        }
    }
    return completion;
}

Completion options(const CommandSyntax &syntax, const TypedLine &line)
{
    const QString action = line.positionals().value(0);
    Completion completion;
    for (const auto &option : allOptions(syntax)) {
        const QString name = option.names().constLast();
        if (syntax.name == QLatin1String("config") && !action.isEmpty()
            && !mayTakeOption(action, name)) {
            continue;
        }
        completion.candidates.append({QLatin1String("--") + name, option.description()});
    }
    return completion;
}

Completion optionValues(const TypedLine &line)
{
    if (line.valueName() == QLatin1String("STATE")) {
        return fromWords(errorStateNames());
    }
    Completion completion;
    if (line.valueName() == QLatin1String("FILE")) {
        completion.fileEnding = QStringLiteral(".csv");
    }
    return completion;
}

/// What the help calls the argument under the cursor; empty if there is none too many.
QString placeholderOf(const CommandSyntax &syntax, const TypedLine &line)
{
    const int index = line.positionals().size();
    if (index < syntax.positionals.size()) {
        return syntax.positionals[index].placeholder;
    }
    return syntax.mostPositionals < 0 ? syntax.positionals.constLast().placeholder : QString();
}

Completion configArguments(const CommandSyntax &syntax, const TypedLine &line)
{
    const QString action = line.positionals().value(0);
    switch (line.positionals().size()) {
    case 0: return fromWords(configActionNames());
    case 2: return {configurationUrls(action, line.positionals()[1], line.current()), {}};
    case 3:
        return action == QLatin1String("set")
                   ? fromWords(configurationValues(line.positionals()[1], line.positionals()[2]))
                   : Completion();
    default: return {{}, fileEndingFor(placeholderOf(syntax, line))};
    }
}

Completion arguments(const CommandSyntax &syntax, const TypedLine &line)
{
    if (syntax.name == QLatin1String("config")) {
        return configArguments(syntax, line);
    }
    const QString placeholder = placeholderOf(syntax, line);
    const QString path = line.positionals().value(0);
    if (placeholder == QLatin1String("[URL...]")) {
        return {processUrls(path, line.current(), UrlsOf::Everything), {}};
    }
    if (placeholder == QLatin1String("URL")) {
        return {processUrls(path, line.current(), UrlsOf::WhatCanBeWritten), {}};
    }
    if (placeholder == QLatin1String("[VALUE]")) {
        return fromWords(processValues(path, line.positionals()[1]));
    }
    return {{}, fileEndingFor(placeholder)};
}

/// What fits, whatever the word under the cursor begins with.
Completion everythingAt(const CommandSyntax &syntax, const TypedLine &line)
{
    if (!line.valueName().isEmpty()) {
        return optionValues(line);
    }
    return line.isOption() ? options(syntax, line) : arguments(syntax, line);
}

Completion beginningWith(const QString &begin, const Completion &completion, const QString &prefix)
{
    Completion selected{{}, completion.fileEnding};
    for (const auto &candidate : completion.candidates) {
        if (candidate.word.startsWith(begin)) {
            selected.candidates.append({prefix + candidate.word, candidate.description});
        }
    }
    return selected;
}

} // namespace

Completion completionOf(const QStringList &words, const QVector<Command> &commands)
{
    int subcommand = 0;
    while (subcommand + 1 < words.size() && words[subcommand].startsWith(QLatin1Char('-'))) {
        ++subcommand;
    }
    const QString name = words.value(subcommand);
    if (subcommand + 1 >= words.size()) {
        const bool isOption = name.startsWith(QLatin1Char('-'));
        return beginningWith(name,
                             isOption
                                 ? fromWords({QStringLiteral("--help"), QStringLiteral("--verbose"),
                                              QStringLiteral("--version")})
                                 : subcommands(commands),
                             {});
    }
    for (const auto &command : commands) {
        if (command.syntax.name == name && !command.syntax.isHidden) {
            const TypedLine line(command.syntax, words.mid(subcommand + 1));
            return beginningWith(line.current(), everythingAt(command.syntax, line),
                                 line.currentPrefix());
        }
    }
    return {};
}
