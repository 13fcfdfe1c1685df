#include "completion/Completion.h"

#include "Inspection/RegionInspection.h"
#include "Validation/DescriptionCheck.h"
#include "commandline/TypedLine.h"
#include "completion/UrlCompletion.h"
#include "descriptions/DescriptionSchema.h"
#include "text/Failure.h"
#include "values/StateName.h"

#include <QRegularExpression>

namespace {

using Candidate = Completion::Candidate;

/// Which files fit an argument, by what the help calls it.
QString fileEndingFor(const QString &placeholder)
{
    if (placeholder == QLatin1String("DIR")) {
        return QStringLiteral("/");
    }
    if (placeholder == QLatin1String("RECORDING") || placeholder == QLatin1String("OUT")) {
        return QStringLiteral(".rec");
    }
    if (placeholder == QLatin1String("DIR|FILE")) {
        return QStringLiteral(".config.json");
    }
    if (placeholder == QLatin1String("FILE|DIR...") || placeholder == QLatin1String("VALUES")
        || placeholder == QLatin1String("SNAPSHOT") || placeholder == QLatin1String("OLD")
        || placeholder == QLatin1String("NEW")) {
        return QStringLiteral(".json");
    }
    const bool isFile = placeholder.endsWith(QLatin1String("FILE"))
                        || placeholder == QLatin1String("[FILE...]");
    return isFile ? QStringLiteral(".process.json") : QString();
}

Completion fromWords(const QStringList &words)
{
    Completion completion;
    for (const auto &word : words) {
        completion.candidates.append({word, {}});
    }
    return completion;
}

Completion names(const QVector<CommandSyntax> &subcommands)
{
    Completion completion;
    for (const auto &subcommand : subcommands) {
        if (!subcommand.isHidden) {
            completion.candidates.append({subcommand.name, subcommand.summary});
        }
    }
    return completion;
}

/// What can be explained: the subcommands, and the rules for descriptions.
Completion topics(const QVector<CommandSyntax> &subcommands)
{
    Completion completion = names(subcommands);
    const QVector<DescriptionRule> rules = DescriptionCheck::getRules();
    for (const auto &rule : rules) {
        completion.candidates.append({rule.name, rule.cause});
    }
    return completion;
}

Completion options(const CommandSyntax &syntax, const TypedLine &line)
{
    const QString action = line.positionals().value(0);
    Completion completion;
    const QList<QCommandLineOption> known = allOptions(syntax);
    for (const auto &option : known) {
        const QString name = option.names().constLast();
        if (!action.isEmpty() && !mayTakeOption(syntax, action, name)) {
            continue;
        }
        completion.candidates.append({QLatin1String("--") + name, option.description()});
    }
    return completion;
}

/// How files end that are the value @p valueName of an option of @p command; empty where it is none.
QString fileEndingOf(const QString &command, const QString &valueName)
{
    if (valueName == QLatin1String("OUT")) {
        return command == QLatin1String("record") ? QStringLiteral(".rec") : QStringLiteral(".svg");
    }
    if (valueName == QLatin1String("FILE")) {
        return command == QLatin1String("config") ? QStringLiteral(".csv")
                                                  : QStringLiteral(".process.json");
    }
    if (valueName == QLatin1String("SNAPSHOT")) {
        return QStringLiteral(".json");
    }
    return valueName == QLatin1String("HEADER") ? QStringLiteral(".hpp") : QString();
}

Completion optionValues(const CommandSyntax &syntax, const TypedLine &line)
{
    if (line.valueName() == QLatin1String("STATE")) {
        return fromWords(errorStateNames());
    }
    if (line.valueName() == QLatin1String("PROFILE")) {
        return fromWords(
            {QStringLiteral("normal"), QStringLiteral("noisy"), QStringLiteral("faulty")});
    }
    if (line.valueName() == QLatin1String("URL")) {
        return {processUrls(line.positionals().value(0), line.current(), UrlsOf::Everything), {}};
    }
    return {{}, fileEndingOf(syntax.name, line.valueName())};
}

/// What may follow in an expression, of which the last piece is being typed.
Completion expressionPieces(const QString &path, const QString &typed)
{
    static const QRegularExpression end(QStringLiteral("[\\s()]"));
    const int begin = typed.lastIndexOf(end) + 1;
    Completion pieces{processUrls(path, typed.mid(begin), UrlsOf::Everything), {}};
    const QStringList words{QStringLiteral("all("), QStringLiteral("any("), QStringLiteral("age"),
                            QStringLiteral("not")};
    const QStringList further{QStringLiteral("and"), QStringLiteral("or"), QStringLiteral("is"),
                              QStringLiteral("valid"), QStringLiteral("erroneous")};
    pieces.candidates += fromWords(words).candidates;
    if (begin > 0) {
        pieces.candidates += fromWords(further + errorStateNames()).candidates;
    }
    for (auto &piece : pieces.candidates) {
        piece.word.prepend(typed.left(begin));
    }
    return pieces;
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
    case 0: return fromWords(actionNames(syntax));
    case 2: return {configurationUrls(action, line.positionals()[1], line.current()), {}};
    case 3:
        return action == QLatin1String("set")
                   ? fromWords(configurationValues(line.positionals()[1], line.positionals()[2]))
                   : Completion();
    default: return {{}, fileEndingFor(placeholderOf(syntax, line))};
    }
}

Completion explainedConfiguration(const TypedLine &line)
{
    if (line.positionals().isEmpty()) {
        return {{}, QStringLiteral(".config.json")};
    }
    return {
        configurationUrls(QStringLiteral("show"), line.positionals().constFirst(), line.current()),
        {}};
}

Completion arguments(const CommandSyntax &syntax, const TypedLine &line,
                     const QVector<CommandSyntax> &subcommands)
{
    if (syntax.name == QLatin1String("config")) {
        return configArguments(syntax, line);
    }
    if (line.isSet(QStringLiteral("config"))) {
        return explainedConfiguration(line);
    }
    const QString placeholder = placeholderOf(syntax, line);
    const QString path = line.positionals().value(qMax(descriptionPosition(syntax), 0));
    if (placeholder == QLatin1String("[TOPIC]")) {
        return topics(subcommands);
    }
    if (placeholder == QLatin1String("KEY")) {
        return fromWords(RegionInspection::findKeys());
    }
    if (placeholder == QLatin1String("LANGUAGE")) {
        return fromWords({QStringLiteral("cpp")});
    }
    if (placeholder == QLatin1String("KIND")) {
        return fromWords(DescriptionSchema::names());
    }
    if (syntax.name == QLatin1String("export") && !line.positionals().isEmpty()) {
        return {}; // What a recording holds only its reader knows.
    }
    if (placeholder == QLatin1String("[URL...]") || placeholder == QLatin1String("URL...")) {
        return {processUrls(path, line.current(), UrlsOf::Everything), {}};
    }
    if (placeholder == QLatin1String("EXPRESSION")) {
        return expressionPieces(path, line.current());
    }
    const int index = line.positionals().size();
    // More pairs look like the first one: URLs stand at odd places.
    const bool isInPairs = placeholder == QLatin1String("[URL VALUE...]");
    if (placeholder == QLatin1String("URL") || (isInPairs && index % 2 == 1)) {
        return {processUrls(path, line.current(), UrlsOf::WhatCanBeWritten), {}};
    }
    if (placeholder == QLatin1String("[VALUE]") || isInPairs) {
        return fromWords(processValues(path, line.positionals()[index - 1]));
    }
    return {{}, fileEndingFor(placeholder)};
}

/// Where the description may be left out, what stands behind it fits as well.
Completion argumentsWithDefault(const CommandSyntax &syntax, const TypedLine &line,
                                const QVector<CommandSyntax> &subcommands)
{
    Completion completion = arguments(syntax, line, subcommands);
    const TypedLine behind = line.behindDescription();
    if (behind.positionals().size() == line.positionals().size()) {
        return completion;
    }
    try {
        completion.candidates += arguments(syntax, behind, subcommands).candidates;
    } catch (const Failure &) {
        // Another path may still be typed here.
    }
    return completion;
}

/// What fits, whatever the word under the cursor begins with.
Completion everythingAt(const CommandSyntax &syntax, const TypedLine &line,
                        const QVector<CommandSyntax> &subcommands)
{
    if (!line.valueName().isEmpty()) {
        return optionValues(syntax, line);
    }
    return line.isOption() ? options(syntax, line)
                           : argumentsWithDefault(syntax, line, subcommands);
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

Completion completionOf(const QStringList &words, const QVector<CommandSyntax> &subcommands)
{
    int index = 0;
    while (index + 1 < words.size() && words[index].startsWith(QLatin1Char('-'))) {
        ++index;
    }
    const QString name = words.value(index);
    if (index + 1 >= words.size()) {
        const bool isOption = name.startsWith(QLatin1Char('-'));
        return beginningWith(name,
                             isOption
                                 ? fromWords({QStringLiteral("--help"), QStringLiteral("--verbose"),
                                              QStringLiteral("--version")})
                                 : names(subcommands),
                             {});
    }
    for (const auto &subcommand : subcommands) {
        if (subcommand.name == name && !subcommand.isHidden) {
            const TypedLine line(subcommand, words.mid(index + 1));
            return beginningWith(line.current(), everythingAt(subcommand, line, subcommands),
                                 line.currentPrefix());
        }
    }
    return {};
}
