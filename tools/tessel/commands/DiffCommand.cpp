#include "Companion/FileSearch.h"
#include "Companion/PropertyManagerConst.h"
#include "commands/Commands.h"
#include "configuration/ConfigurationDifferences.h"
#include "descriptions/DescriptionFile.h"
#include "descriptions/ProcessDifferences.h"
#include "text/Failure.h"
#include "text/JsonText.h"
#include "text/Output.h"
#include "text/Table.h"
#include "values/ValueText.h"

#include <QFileInfo>

#include <algorithm>
#include <array>

namespace {

constexpr auto jsonOption = "json";

/// What a path holds of each kind.
struct Kinds
{
    bool process = false;
    bool configuration = false;
};

bool holds(const QString &folder, const QString &extension)
{
    QFileInfoList files;
    searchFilesOnPathRecursive(folder, {QStringLiteral("*.") + extension}, files);
    return !files.isEmpty();
}

Kinds kindsAt(const QString &path)
{
    const QFileInfo info(path);
    const QString process = PropertyManagerConst::getProcessDataDescriptionFileExtension();
    const QString configuration = PropertyManagerConst::getConfigFileExtension();
    if (info.isDir()) {
        if (!info.isReadable() || !info.isExecutable()) {
            refusePath(ExitCode::NoAccess, path, QStringLiteral("no permission to read it"));
        }
        const Kinds kinds{holds(path, process), holds(path, configuration)};
        if (!kinds.process && !kinds.configuration) {
            refusePath(ExitCode::InputOutputFile, path,
                       QStringLiteral("holds no description; their names end in .%1 or .%2")
                           .arg(process, configuration));
        }
        return kinds;
    }
    if (!info.exists()) {
        refusePath(ExitCode::NotFound, path, QStringLiteral("no such file or folder"));
    }
    const Kinds kinds{path.endsWith(QLatin1Char('.') + process),
                      path.endsWith(QLatin1Char('.') + configuration)};
    if (!kinds.process && !kinds.configuration) {
        refusePath(ExitCode::InputOutputFile, path,
                   QStringLiteral("no description; its name must end in .%1 or .%2")
                       .arg(process, configuration));
    }
    return kinds;
}

/// What both hold. Refuses what cannot be compared.
Kinds comparedKinds(const QString &former, const QString &now)
{
    const Kinds left = kindsAt(former);
    const Kinds right = kindsAt(now);
    const Kinds both{left.process && right.process, left.configuration && right.configuration};
    const bool areFolders = QFileInfo(former).isDir() && QFileInfo(now).isDir();
    const bool isOneSided = left.process != right.process
                            || left.configuration != right.configuration;
    if ((!both.process && !both.configuration) || (areFolders && isOneSided)) {
        throw Failure{ExitCode::WrongUse,
                      QStringLiteral("diff: %1 and %2 hold descriptions of different kinds; "
                                     "see 'tessel diff --help'")
                          .arg(former, now)};
    }
    return both;
}

QString verdictText(Verdict verdict)
{
    switch (verdict) {
    case Verdict::Compatible: return QStringLiteral("compatible");
    case Verdict::Attach: return QStringLiteral("attach");
    default: return QStringLiteral("breaking");
    }
}

QString kindText(Difference::Kind kind)
{
    return kind == Difference::Kind::Process ? QStringLiteral("process") : QStringLiteral("config");
}

/// For the eye: a table of an array would fill the screen.
QString shownValue(const QVariant &value)
{
    if (!value.isValid()) {
        return {};
    }
    const QVariantList rows = value.toList();
    const bool isTable = value.userType() == QMetaType::QVariantList && !rows.isEmpty()
                         && rows.constFirst().userType() == QMetaType::QVariantList;
    return isTable ? QStringLiteral("%1 rows").arg(rows.size()) : nestedJson(value);
}

QString summary(const QVector<Difference> &differences)
{
    std::array<int, 3> counts{};
    for (const Difference &difference : differences) {
        ++counts[static_cast<std::size_t>(difference.verdict())];
    }
    return QStringLiteral("%1 breaking, %2 attach, %3 compatible\n")
        .arg(counts[2])
        .arg(counts[1])
        .arg(counts[0]);
}

QStringList rowOf(const Difference &difference, const Change &change)
{
    return {verdictText(change.verdict), kindText(difference.kind), difference.url, change.what,
            shownValue(change.former),   shownValue(change.now),    change.reason};
}

void printTable(const QVector<Difference> &differences)
{
    Table table({{QStringLiteral("VERDICT"), Table::Alignment::Left},
                 {QStringLiteral("KIND"), Table::Alignment::Left},
                 {QStringLiteral("URL"), Table::Alignment::Left},
                 {QStringLiteral("WHAT"), Table::Alignment::Left},
                 {QStringLiteral("OLD"), Table::Alignment::Left},
                 {QStringLiteral("NEW"), Table::Alignment::Left},
                 {QStringLiteral("REASON"), Table::Alignment::Left}});
    const auto forChanges = [&differences](const auto &take) {
        for (const Difference &difference : differences) {
            for (const Change &change : difference.changes) {
                take(rowOf(difference, change));
            }
        }
    };
    LongOutput output;
    if (!differences.isEmpty()) {
        forChanges([&table](const QStringList &row) { table.makeRoomFor(row); });
        output.add(table.titleLine() + QLatin1Char('\n'));
        forChanges(
            [&](const QStringList &row) { output.add(table.lineOf(row) + QLatin1Char('\n')); });
        output.add(QStringLiteral("\n"));
    }
    output.add(summary(differences));
    output.finish();
}

QString changeJson(const Change &change)
{
    return jsonObject({
        {QStringLiteral("what"), jsonString(change.what)},
        {QStringLiteral("old"), nestedJson(change.former)},
        {QStringLiteral("new"), nestedJson(change.now)},
        {QStringLiteral("verdict"), jsonString(verdictText(change.verdict))},
        {QStringLiteral("reason"), jsonString(change.reason)},
    });
}

void printJson(const QVector<Difference> &differences)
{
    LongOutput output;
    output.add(QStringLiteral("["));
    QString before = QStringLiteral("\n  ");
    for (const Difference &difference : differences) {
        QStringList changes;
        for (const Change &change : difference.changes) {
            changes.append(changeJson(change));
        }
        output.add(before
                   + jsonObject({
                       {QStringLiteral("kind"), jsonString(kindText(difference.kind))},
                       {QStringLiteral("url"), jsonString(difference.url)},
                       {QStringLiteral("verdict"), jsonString(verdictText(difference.verdict()))},
                       {QStringLiteral("changes"),
                        QLatin1Char('[') + changes.join(QStringLiteral(", ")) + QLatin1Char(']')},
                   }));
        before = QStringLiteral(",\n  ");
    }
    output.add(differences.isEmpty() ? QStringLiteral("]\n") : QStringLiteral("\n]\n"));
    output.finish();
}

ExitCode run(const CommandLine &line)
{
    const QString former = line.positional(0);
    const QString now = line.positional(1);
    const Kinds kinds = comparedKinds(former, now);
    QVector<Difference> differences;
    if (kinds.process) {
        const DescriptionSource left(former, DescriptionSource::Layout::ByBuild);
        const DescriptionSource right(now, DescriptionSource::Layout::ByBuild);
        differences += processDifferences(left, right);
    }
    if (kinds.configuration) {
        differences += configurationDifferences(ConfigurationSource(former),
                                                ConfigurationSource(now));
    }
    std::stable_sort(
        differences.begin(), differences.end(),
        [](const Difference &left, const Difference &right) { return left.url < right.url; });
    const bool isJson = line.isSet(QLatin1String(jsonOption));
    printBesideAnswer([&] { isJson ? printJson(differences) : printTable(differences); });
    const bool isBroken = std::any_of(
        differences.cbegin(), differences.cend(),
        [](const Difference &difference) { return difference.verdict() == Verdict::Breaking; });
    return isBroken ? ExitCode::AnsweredNo : ExitCode::Done;
}

} // namespace

Command diffCommand()
{
    CommandSyntax syntax;
    syntax.name = QStringLiteral("diff");
    syntax.summary = QStringLiteral(
        "Tell what a new description means to programs of the old one.");
    syntax.positionals = {
        {QStringLiteral("OLD"),
         QStringLiteral("A description, *.process.json or *.config.json, or a folder of them.")},
        {QStringLiteral("NEW"), QStringLiteral("The same of another time.")}};
    syntax.leastPositionals = 2;
    syntax.mostPositionals = 2;
    syntax.options = {{QLatin1String(jsonOption), QStringLiteral("Print a JSON array.")}};
    syntax.examples = QStringLiteral(
        "  tessel diff plant.process.json plant-new.process.json    exit code 1 if something "
        "breaks\n"
        "  tessel diff --json device device-new                     folders, for programs\n");
    return {syntax, run};
}
