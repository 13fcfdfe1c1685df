#include "commands/Commands.h"
#include "commands/TakenSnapshot.h"
#include "descriptions/UrlPattern.h"
#include "live/RegionText.h"
#include "snapshots/SnapshotDifference.h"
#include "text/Failure.h"
#include "text/JsonText.h"
#include "text/Output.h"
#include "text/Suggestion.h"
#include "text/Table.h"
#include "values/StateName.h"
#include "values/ValueText.h"

#include <QFileInfo>

#include <algorithm>

namespace {

using Kind = SnapshotDifference::Kind;

[[noreturn]] void refuseTolerance(ExitCode code, const QString &reason)
{
    const QString help = code == ExitCode::WrongUse
                             ? QStringLiteral("; see 'tessel compare --help'")
                             : QString();
    throw Failure{code, QStringLiteral("compare: --tolerance %1%2").arg(reason, help)};
}

QVector<SnapshotTolerance> tolerancesFrom(const CommandLine &line)
{
    QVector<SnapshotTolerance> tolerances;
    const QStringList texts = line.values(QStringLiteral("tolerance"));
    for (const auto &text : texts) {
        const int equalSign = text.lastIndexOf(QLatin1Char('='));
        const auto number = ExactNumber::fromText(text.mid(equalSign + 1));
        if (equalSign < 1 || !number || number->isNegative()) {
            refuseTolerance(ExitCode::WrongUse,
                            QStringLiteral("takes URL=NUMBER, where the number is not negative, "
                                           "not '%1'")
                                .arg(text));
        }
        tolerances.append({text.left(equalSign), *number});
    }
    return tolerances;
}

/// A slip in a URL would otherwise make everything differ, or nothing.
void requireNumbers(const QVector<SnapshotTolerance> &tolerances, const Snapshot &was,
                    const Snapshot &is)
{
    QStringList urls;
    for (const auto &tolerance : tolerances) {
        const UrlPattern pattern(tolerance.url);
        bool hasNumber = false;
        bool hasLeaf = false;
        for (const auto *const snapshot : {&was, &is}) {
            for (const auto &value : snapshot->values) {
                const bool isMeant = pattern.leadsTo(value.url);
                hasLeaf = hasLeaf || isMeant;
                hasNumber = hasNumber || (isMeant && isNumberType(value.type));
                urls.append(value.url);
            }
        }
        if (!hasLeaf) {
            refuseTolerance(ExitCode::NotFound,
                            QStringLiteral("is about no value at '%1'%2")
                                .arg(tolerance.url, suggestion(tolerance.url, urls)));
        }
        if (!hasNumber) {
            refuseTolerance(
                ExitCode::WrongUse,
                QStringLiteral("is about numbers, and '%1' is none").arg(tolerance.url));
        }
    }
}

bool isDescription(const QString &path)
{
    return path.endsWith(QLatin1String(".process.json")) || QFileInfo(path).isDir();
}

/// What was asked for and is still described. What is not shall be told as missing.
QStringList urlsThatLead(const DescriptionSource &description, const QStringList &urls)
{
    QStringList leading;
    for (const auto &url : urls) {
        const UrlPattern pattern(url);
        const auto &leaves = description.leaves();
        if (std::any_of(leaves.cbegin(), leaves.cend(),
                        [&](const Leaf &leaf) { return pattern.leadsTo(leaf.url); })) {
            leading.append(url);
        }
    }
    return leading;
}

/// The values of today, from a region or from another snapshot.
Snapshot presentFrom(const QString &path, const Snapshot &was)
{
    if (!isDescription(path)) {
        return readSnapshot(path);
    }
    const DescriptionSource description(path);
    const QStringList urls = urlsThatLead(description, was.urls);
    Snapshot present;
    present.key = description.key();
    return urls.isEmpty() && !was.urls.isEmpty() ? present : takeSnapshot(description, urls);
}

QString nameOf(Kind kind)
{
    switch (kind) {
    case Kind::Value: return QStringLiteral("value");
    case Kind::State: return QStringLiteral("state");
    case Kind::Type: return QStringLiteral("type");
    case Kind::Missing: return QStringLiteral("missing");
    case Kind::New: break;
    }
    return QStringLiteral("new");
}

/// The value, or the name of its state; behind it the type where that differs.
QString cellOf(const std::optional<Snapshot::Value> &value, Kind kind)
{
    if (!value) {
        return QStringLiteral("-");
    }
    const bool isValid = value->value.getErrorType()
                         == ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID;
    const QString cell = isValid ? valueText(value->value) : stateName(value->value.getErrorType());
    return kind == Kind::Type ? QStringLiteral("%1 (%2)").arg(cell, value->type) : cell;
}

QString tableOf(const QVector<SnapshotDifference> &differences)
{
    Table table({{QStringLiteral("URL"), Table::Alignment::Left},
                 {QStringLiteral("WAS"), Table::Alignment::Right},
                 {QStringLiteral("IS"), Table::Alignment::Right},
                 {QStringLiteral("UNIT"), Table::Alignment::Left},
                 {QStringLiteral("DIFFERS"), Table::Alignment::Left}});
    for (const auto &difference : differences) {
        table.addRow({difference.url, cellOf(difference.was, difference.kind),
                      cellOf(difference.is, difference.kind),
                      difference.is ? difference.is->unit : difference.was->unit,
                      nameOf(difference.kind)});
    }
    return table.lines().join(QLatin1Char('\n')) + QLatin1Char('\n');
}

QString sideJson(const std::optional<Snapshot::Value> &value)
{
    if (!value) {
        return jsonNull();
    }
    const ProcessDataDefinitions::ErrorTypes state = value->value.getErrorType();
    return jsonObject({
        {QStringLiteral("value"), valueJson(value->value)},
        {QStringLiteral("state"), QString::number(static_cast<int>(state))},
        {QStringLiteral("stateName"), jsonString(stateName(state))},
        {QStringLiteral("unit"), jsonString(value->unit)},
        {QStringLiteral("type"), jsonString(value->type)},
    });
}

QString jsonOf(const Snapshot &was, const Snapshot &is,
               const QVector<SnapshotDifference> &differences)
{
    QStringList entries;
    for (const auto &difference : differences) {
        entries.append(jsonObject({
            {QStringLiteral("url"), jsonString(difference.url)},
            {QStringLiteral("differs"), jsonString(nameOf(difference.kind))},
            {QStringLiteral("was"), sideJson(difference.was)},
            {QStringLiteral("is"), sideJson(difference.is)},
            {QStringLiteral("tolerance"),
             difference.tolerance ? QString::number(difference.tolerance->toDouble(), 'g', 17)
                                  : jsonNull()},
        }));
    }
    return jsonObject({
               {QStringLiteral("alike"), jsonBool(differences.isEmpty())},
               {QStringLiteral("wasKey"), jsonString(was.key)},
               {QStringLiteral("isKey"), jsonString(is.key)},
               {QStringLiteral("values"), QString::number(was.values.size())},
               {QStringLiteral("differences"), jsonArray(entries, QStringLiteral("    "))},
           })
           + QLatin1Char('\n');
}

ExitCode run(const CommandLine &line)
{
    const QVector<SnapshotTolerance> tolerances = tolerancesFrom(line);
    const QString path = line.positional(0);
    const Snapshot was = readSnapshot(line.positional(1));
    const Snapshot is = presentFrom(path, was);
    requireNumbers(tolerances, was, is);
    if (was.key != is.key) {
        writeErrorLine(QStringLiteral("tessel: note: the snapshot is of region '%1', not of '%2'")
                           .arg(was.key, is.key));
    }
    const QVector<SnapshotDifference> differences = differencesBetween(was, is, tolerances);
    if (line.isSet(QStringLiteral("json"))) {
        writeBesideAnswer(jsonOf(was, is, differences));
    } else if (!differences.isEmpty()) {
        writeBesideAnswer(tableOf(differences));
    }
    if (differences.isEmpty()) {
        return ExitCode::Done;
    }
    throw Failure{ExitCode::AnsweredNo,
                  QStringLiteral("%1: %2 of %3 values differ from '%4'")
                      .arg(path, QString::number(differences.size()),
                           QString::number(std::max(was.values.size(), is.values.size())),
                           line.positional(1))};
}

} // namespace

Command compareCommand()
{
    CommandSyntax syntax;
    syntax.name = QStringLiteral("compare");
    syntax.summary = QStringLiteral("Compare the values with those that a snapshot has kept.");
    CommandSyntax::Positional file = fileArgument();
    file.description = QStringLiteral(
        "A process description, a folder of them, or another snapshot.");
    syntax.positionals = {file,
                          {QStringLiteral("SNAPSHOT"),
                           QStringLiteral("What tessel snapshot has written; - is the input.")}};
    syntax.leastPositionals = 2;
    syntax.mostPositionals = 2;
    syntax.options = {{QStringLiteral("tolerance"),
                       QStringLiteral("How far numbers may be apart; as often as it takes."),
                       QStringLiteral("URL=NUMBER")},
                      {QStringLiteral("json"), QStringLiteral("Print a JSON object.")}};
    syntax.examples = QStringLiteral(
        "  tessel compare plant.process.json good.json      the region and a snapshot\n"
        "  tessel compare --tolerance 'pump/*=0.5' plant.process.json good.json\n"
        "  tessel compare --json later.json good.json       two snapshots\n"
        "Exit code 0: they are alike, 1: they differ, and a table shows where.\n");
    return {syntax, run};
}
