#include "Validation/DescriptionCheck.h"
#include "commands/Commands.h"
#include "text/Failure.h"
#include "text/JsonText.h"
#include "text/Output.h"

#include <QFileInfo>
#include <QUrl>

#include <algorithm>

namespace {

using Level = DescriptionProblem::Level;

constexpr auto jsonOption = "json";
constexpr auto sarifOption = "sarif";

QString levelText(Level level)
{
    return level == Level::Error ? QStringLiteral("error") : QStringLiteral("warning");
}

void printLines(const QVector<DescriptionProblem> &problems)
{
    QString lines;
    for (const auto &problem : problems) {
        // A root has no URL, and then nothing stands before the colon.
        const QString url = problem.url.isEmpty() ? QString() : QLatin1Char(' ') + problem.url;
        lines += printable(QStringLiteral("%1:%2:%3: ")
                               .arg(problem.file, QString::number(problem.line),
                                    QString::number(problem.column))
                           + levelText(problem.level) + QLatin1Char(' ') + problem.rule + url
                           + QStringLiteral(": ") + problem.text)
                 + QLatin1Char('\n');
    }
    writeOutput(lines);
}

void printJson(const QVector<DescriptionProblem> &problems)
{
    QStringList objects;
    for (const auto &problem : problems) {
        objects.append(jsonObject({
            {QStringLiteral("file"), jsonString(problem.file)},
            {QStringLiteral("line"), QString::number(problem.line)},
            {QStringLiteral("column"), QString::number(problem.column)},
            {QStringLiteral("level"), jsonString(levelText(problem.level))},
            {QStringLiteral("rule"), jsonString(problem.rule)},
            {QStringLiteral("url"), jsonString(problem.url)},
            {QStringLiteral("text"), jsonString(problem.text)},
        }));
    }
    writeOutput(jsonArray(objects) + QLatin1Char('\n'));
}

QString sarifText(const QString &text)
{
    return jsonObject({{QStringLiteral("text"), jsonString(text)}});
}

QString sarifRule(const DescriptionRule &rule)
{
    return jsonObject({
        {QStringLiteral("id"), jsonString(rule.name)},
        {QStringLiteral("shortDescription"), sarifText(rule.cause)},
        {QStringLiteral("help"), sarifText(rule.cure)},
        {QStringLiteral("defaultConfiguration"),
         jsonObject({{QStringLiteral("level"), jsonString(levelText(rule.level))}})},
    });
}

/// A path as the format wants it: a reference of the form of a URL.
QString sarifPath(const QString &path)
{
    const QString encoded = QString::fromLatin1(QUrl::toPercentEncoding(path, "/"));
    return QFileInfo(path).isAbsolute() ? QStringLiteral("file://") + encoded : encoded;
}

QString sarifResult(const DescriptionProblem &problem)
{
    const QString region = jsonObject({
        {QStringLiteral("startLine"), QString::number(problem.line)},
        {QStringLiteral("startColumn"), QString::number(problem.column)},
    });
    const QString physical = jsonObject({
        {QStringLiteral("artifactLocation"),
         jsonObject({{QStringLiteral("uri"), jsonString(sarifPath(problem.file))}})},
        {QStringLiteral("region"), region},
    });
    const QString logical = jsonObject(
        {{QStringLiteral("fullyQualifiedName"), jsonString(problem.url)}});
    const QString location = jsonObject({
        {QStringLiteral("physicalLocation"), physical},
        {QStringLiteral("logicalLocations"), QLatin1Char('[') + logical + QLatin1Char(']')},
    });
    return jsonObject({
        {QStringLiteral("ruleId"), jsonString(problem.rule)},
        {QStringLiteral("level"), jsonString(levelText(problem.level))},
        {QStringLiteral("message"), sarifText(problem.text)},
        {QStringLiteral("locations"), QLatin1Char('[') + location + QLatin1Char(']')},
    });
}

void printSarif(const QVector<DescriptionProblem> &problems)
{
    QStringList rules;
    const QVector<DescriptionRule> known = DescriptionCheck::getRules();
    for (const auto &rule : known) {
        rules.append(sarifRule(rule));
    }
    QStringList results;
    for (const auto &problem : problems) {
        results.append(sarifResult(problem));
    }
    const QString driver = jsonObject({
        {QStringLiteral("name"), jsonString(QStringLiteral("tessel"))},
        {QStringLiteral("rules"), jsonArray(rules)},
    });
    const QString run = jsonObject({
        {QStringLiteral("tool"), jsonObject({{QStringLiteral("driver"), driver}})},
        // Columns are characters, not units of UTF-16.
        {QStringLiteral("columnKind"), jsonString(QStringLiteral("unicodeCodePoints"))},
        {QStringLiteral("results"), jsonArray(results)},
    });
    writeOutput(jsonObject({
                    {QStringLiteral("$schema"),
                     jsonString(QStringLiteral("https://json.schemastore.org/sarif-2.1.0.json"))},
                    {QStringLiteral("version"), jsonString(QStringLiteral("2.1.0"))},
                    {QStringLiteral("runs"), jsonArray({run})},
                })
                + QLatin1Char('\n'));
}

void requirePaths(const QStringList &paths)
{
    for (const auto &path : paths) {
        const QFileInfo info(path);
        if (!info.exists()) {
            throw Failure{ExitCode::NotFound, QStringLiteral("%1: no such file").arg(path)};
        }
        if (!info.isReadable()) {
            throw Failure{ExitCode::NoAccess,
                          QStringLiteral("%1: no permission to read it").arg(path)};
        }
    }
}

ExitCode run(const CommandLine &line)
{
    const bool isJsonAsked = line.isSet(QLatin1String(jsonOption));
    const bool isSarifAsked = line.isSet(QLatin1String(sarifOption));
    if (isJsonAsked && isSarifAsked) {
        throw Failure{ExitCode::WrongUse,
                      QStringLiteral("validate: give --json or --sarif, not both; "
                                     "see 'tessel validate --help'")};
    }
    const QStringList paths = line.positionalsFrom(0);
    requirePaths(paths);
    const QVector<DescriptionProblem> problems = DescriptionCheck::check(paths);
    printBesideAnswer([&] {
        if (isJsonAsked) {
            printJson(problems);
        } else if (isSarifAsked) {
            printSarif(problems);
        } else {
            printLines(problems);
        }
    });
    const bool hasError = std::any_of(
        problems.cbegin(), problems.cend(),
        [](const DescriptionProblem &problem) { return problem.level == Level::Error; });
    return hasError ? ExitCode::AnsweredNo : ExitCode::Done;
}

} // namespace

Command validateCommand()
{
    CommandSyntax syntax;
    syntax.name = QStringLiteral("validate");
    syntax.summary = QStringLiteral("Find what is wrong with descriptions, before they are used.");
    syntax.positionals = {
        {QStringLiteral("FILE|DIR..."),
         QStringLiteral("Descriptions, *.config.json or *.process.json, folder.json, folders."),
         true}};
    syntax.leastPositionals = 1;
    syntax.mostPositionals = -1;
    syntax.options = {{QLatin1String(jsonOption), QStringLiteral("Print a JSON array.")},
                      {QLatin1String(sarifOption),
                       QStringLiteral("Print SARIF 2.1.0, for code hosting and editors.")}};
    syntax.examples = QStringLiteral(
        "  tessel validate plant.process.json    FILE:LINE:COLUMN: LEVEL RULE URL: TEXT\n"
        "  tessel validate --json device         a folder, for programs\n");
    return {syntax, run};
}
