#include "ProcessDataManagement/ProcessDataBuilder.h"
#include "commands/Commands.h"
#include "descriptions/DescriptionFile.h"
#include "descriptions/FormerTexts.h"
#include "text/Failure.h"
#include "text/LogCollector.h"
#include "text/Output.h"

#include <QFileInfo>

namespace {

[[noreturn]] void refuseMerge(ExitCode code, const QString &rootPath, const QString &reason)
{
    const QString reasons = LogCollector::takeReasons();
    refusePath(code, rootPath,
               reasons.isEmpty() ? reason : QStringLiteral("%1: %2").arg(reason, reasons));
}

void checkName(const QString &name)
{
    if (name.isEmpty() || name.contains(QLatin1Char('/'))) {
        throw Failure{ExitCode::WrongUse,
                      QStringLiteral("merge: NAME is one piece of a URL, not '%1'; see 'tessel "
                                     "merge --help'")
                          .arg(name)};
    }
}

void requireWritable(const QString &path)
{
    const QFileInfo file(path);
    const QFileInfo place(QFileInfo(file.canonicalFilePath()).path());
    if (!file.isWritable() || !place.isWritable()) {
        refusePath(ExitCode::NoAccess, path, QStringLiteral("no permission to write it"));
    }
}

/// Parses a file before anything happens. Tells whether it has a child of that name.
bool hasChild(const QString &path, const QString &name)
{
    LogCollector::takeReasons();
    const auto root = ConfigurationAndProcessDataParser().parseFromFile(path);
    if (!root) {
        refusePath(ExitCode::InputOutputFile, path,
                   QStringLiteral("cannot be parsed: %1").arg(parseProblem(path)));
    }
    return root->getChildMap().contains(name);
}

/// The library's result does not tell of every failure to write; the file does.
void requireWritten(const FormerTexts &former, const QString &rootPath, bool isMerged)
{
    const FormerTexts::Restoration restoration = former.restoreCutOff();
    const QString restored = restorationText(restoration);
    if (!restored.isEmpty()) {
        refuseMerge(ExitCode::InputOutputFile, rootPath, restored);
    }
    if (!isMerged || former.rewritten().isEmpty()) {
        refuseMerge(ExitCode::InputOutputFile, rootPath, QStringLiteral("nothing was merged"));
    }
}

void note(const QString &text)
{
    writeErrorLine(QStringLiteral("tessel: note: ") + text);
}

ExitCode run(const CommandLine &line)
{
    const QString rootPath = line.positional(0);
    const QString partPath = line.positional(1);
    const QString name = line.positional(2);
    checkName(name);
    requireDescriptionFile(rootPath);
    requireDescriptionFile(partPath);
    requireWritable(rootPath);
    const bool isReplaced = hasChild(rootPath, name);
    hasChild(partPath, name);

    const FormerTexts former({rootPath});
    LogCollector::takeReasons();
    int size = 0;
    int offset = 0;
    const bool isMerged = ProcessDataBuilder().buildProcessDataFromFiles(rootPath, partPath, name,
                                                                         size, offset);
    requireWritten(former, rootPath, isMerged);
    const QString reasons = LogCollector::takeReasons();
    if (!reasons.isEmpty()) {
        note(QStringLiteral("%1: %2").arg(partPath, reasons));
    }
    if (isReplaced) {
        note(QStringLiteral("%1: '%2' was there and is replaced; its bytes stay counted")
                 .arg(rootPath, name));
    }
    writeOutput(QStringLiteral("merged '%1' at offset %2, %3 bytes\n")
                    .arg(printable(name), QString::number(offset), QString::number(size)));
    return ExitCode::Done;
}

QVector<CommandSyntax::Positional> positionals()
{
    return {
        {QStringLiteral("ROOTFILE"), QStringLiteral("The process description that takes it in.")},
        {QStringLiteral("PARTFILE"), QStringLiteral("The process description of the part.")},
        {QStringLiteral("NAME"), QStringLiteral("The part's name in the tree.")}};
}

} // namespace

Command mergeCommand()
{
    CommandSyntax syntax;
    syntax.name = QStringLiteral("merge");
    syntax.summary = QStringLiteral("Hang one process description into another.");
    syntax.positionals = positionals();
    syntax.leastPositionals = 3;
    syntax.mostPositionals = 3;
    syntax.examples = QStringLiteral("  tessel merge plant.process.json pump.process.json pump\n");
    return {syntax, run};
}
