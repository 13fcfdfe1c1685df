#include "ProcessDataManagement/LayoutFingerprint.h"
#include "commands/Commands.h"
#include "commands/ResultFile.h"
#include "descriptions/DescriptionSource.h"
#include "generation/CppAccessors.h"
#include "generation/CppNames.h"
#include "text/Failure.h"
#include "text/Output.h"
#include "text/Suggestion.h"

#include <QDir>
#include <QFileInfo>

namespace {

constexpr auto outputOption = "output";
constexpr auto namespaceOption = "namespace";
constexpr auto dryRunOption = "dry-run";

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

ExitCode run(const CommandLine &line)
{
    checkLanguage(line.positional(0));
    const QString nameSpace = namespaceOf(line);
    const QString option = QLatin1String(outputOption);
    const ResultFile result(QStringLiteral("gen"), option,
                            line.isSet(option) ? line.value(option) : QStringLiteral("-"));
    const DescriptionSource description(line.positional(1));
    description.requireMemory();
    const QVector<Leaf> leaves = description.leavesAt(line.positionalsFrom(2));
    const QString text = cppAccessors({fileName(description.path()), nameSpace,
                                       LayoutFingerprint(description.root()).getValue(), leaves});
    if (line.isSet(QLatin1String(dryRunOption))) {
        writeOutput(QStringLiteral("%1 values in namespace %2, not written to %3\n")
                        .arg(leaves.size())
                        .arg(nameSpace, printable(result.path())));
        return ExitCode::Done;
    }
    result.write(text);
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
        {QLatin1String(dryRunOption), QStringLiteral("Look everything over, but write nothing.")}};
    syntax.examples = QStringLiteral(
        "  tessel gen cpp plant.process.json -o plant.hpp       read values->pump.speed\n"
        "  tessel gen cpp plant.process.json --namespace my::plant   on standard output\n");
    return {syntax, run};
}
