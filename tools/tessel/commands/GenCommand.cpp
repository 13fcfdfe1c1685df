#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "ProcessDataManagement/LayoutFingerprint.h"
#include "commands/Commands.h"
#include "commands/ResultFile.h"
#include "descriptions/DescriptionSource.h"
#include "generation/CppAccessors.h"
#include "generation/CppNames.h"
#include "text/Counted.h"
#include "text/Failure.h"
#include "text/JsonText.h"
#include "text/Output.h"
#include "text/Suggestion.h"

#include <QDir>
#include <QFileInfo>

namespace {

using Definitions = ConfigurationAndProcessDataDefinitions;

constexpr auto outputOption = "output";
constexpr auto namespaceOption = "namespace";
constexpr auto dryRunOption = "dry-run";
constexpr auto jsonOption = "json";

[[noreturn]] void refuseUse(const QString &reason)
{
    throw Failure{ExitCode::WrongUse,
                  QStringLiteral("gen: %1; see 'tessel gen --help'").arg(reason)};
}

void checkLanguage(const QString &language)
{
    const QString known = QStringLiteral("cpp");
    if (language != known) {
        refuseUse(QStringLiteral("there is no language '%1'%2; cpp is")
                      .arg(language, suggestion(language, {known})));
    }
}

/// The last name of a path, also of "." and of one with a slash at its end.
QString fileName(const QString &path)
{
    return QFileInfo(QDir::cleanPath(QFileInfo(path).absoluteFilePath())).fileName();
}

QString namespaceOf(const CommandLine &line)
{
    const QString option = QLatin1String(namespaceOption);
    if (!line.isSet(option)) {
        return CppNames::namespaceOf(fileName(line.positional(1)).section(QLatin1Char('.'), 0, 0));
    }
    QString name = line.value(option);
    if (!CppNames::isNamespace(name)) {
        refuseUse(
            QStringLiteral("--namespace takes a name of C++ such as plant or plant::tank, not "
                           "'%1'")
                .arg(name));
    }
    return name;
}

QString jsonOf(const CppAccessor &accessor)
{
    return jsonObject({
        {QStringLiteral("url"), jsonString(accessor.leaf.url)},
        {QStringLiteral("name"), jsonString(accessor.name)},
        {QStringLiteral("type"),
         jsonString(textProperty(accessor.leaf, Definitions::getKeyDataPropertyType()))},
        {QStringLiteral("class"), jsonString(accessor.className)},
    });
}

QString jsonOf(const CppDescription &description, const CppHeader &header, const QString &path)
{
    constexpr int digits = 16;
    QStringList accessors;
    QStringList leftOut;
    for (const auto &accessor : header.accessors) {
        if (accessor.className.isEmpty()) {
            leftOut.append(jsonString(accessor.leaf.url));
        } else {
            accessors.append(jsonOf(accessor));
        }
    }
    return jsonObject({
        {QStringLiteral("file"), jsonString(path)},
        {QStringLiteral("namespace"), jsonString(description.nameSpace)},
        {QStringLiteral("fingerprint"),
         jsonString(
             QStringLiteral("0x%1").arg(description.fingerprint, digits, 16, QLatin1Char('0')))},
        {QStringLiteral("accessors"), jsonArray(accessors)},
        {QStringLiteral("leftOut"),
         QLatin1Char('[') + leftOut.join(QStringLiteral(", ")) + QLatin1Char(']')},
    });
}

/// What a dry run says for people.
QString dryText(const CppDescription &description, const QString &path)
{
    return QStringLiteral("%1 in namespace %2, not written to %3")
        .arg(counted(quint64(description.leaves.size()), QStringLiteral("value"),
                     QStringLiteral("values")),
             description.nameSpace, printable(path));
}

/// Two things on one standard output could not be told apart.
void checkOutputs(bool isJson, bool isDryRun, const QString &path)
{
    if (isJson && !isDryRun && path == QLatin1String("-")) {
        refuseUse(QStringLiteral("--json and the header would both go to standard output; name a "
                                 "file with --output"));
    }
}

ExitCode run(const CommandLine &line)
{
    checkLanguage(line.positional(0));
    const QString option = QLatin1String(outputOption);
    const QString path = line.isSet(option) ? line.value(option) : QStringLiteral("-");
    const bool isJson = line.isSet(QLatin1String(jsonOption));
    const bool isDryRun = line.isSet(QLatin1String(dryRunOption));
    checkOutputs(isJson, isDryRun, path);
    CppDescription described;
    described.nameSpace = namespaceOf(line);
    const ResultFile result(QStringLiteral("gen"), option, path);
    const DescriptionSource description(line.positional(1));
    description.requireMemory();
    described.fileName = fileName(description.path());
    described.fingerprint = LayoutFingerprint(description.root()).getValue();
    described.leaves = description.leavesAt(line.positionalsFrom(2));
    const CppHeader header = cppHeader(described);
    if (!isDryRun) {
        result.write(header.text);
    }
    if (isJson) {
        writeOutput(jsonOf(described, header, result.path()) + QLatin1Char('\n'));
    } else if (isDryRun) {
        writeOutput(dryText(described, result.path()) + QLatin1Char('\n'));
    }
    return ExitCode::Done;
}

} // namespace

Command genCommand()
{
    CommandSyntax syntax;
    syntax.name = QStringLiteral("gen");
    syntax.summary = QStringLiteral("Make typed accessors for the values of a description.");
    syntax.positionals = {
        {QStringLiteral("LANGUAGE"), QStringLiteral("cpp.")}, fileArgument(), urlsArgument()};
    syntax.leastPositionals = 2;
    syntax.mostPositionals = -1;
    syntax.options = {
        {{QStringLiteral("o"), QLatin1String(outputOption)},
         QStringLiteral("The header to write; - is standard output, as without it."),
         QStringLiteral("HEADER")},
        {QLatin1String(namespaceOption),
         QStringLiteral("In which it stands (the name of the file up to its first dot)."),
         QStringLiteral("NAME")},
        {QLatin1String(jsonOption),
         QStringLiteral("Print what was written as JSON; goes with --output.")},
        {QLatin1String(dryRunOption), QStringLiteral("Look everything over, but write nothing.")}};
    syntax.examples = QStringLiteral(
        "  tessel gen cpp plant.process.json -o plant.hpp       read values->pump.speed\n"
        "  tessel gen cpp plant.process.json --namespace my::plant   on standard output\n");
    return {syntax, run};
}
