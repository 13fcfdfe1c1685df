#include "ProcessDataManagement/ProcessDataBuilder.h"
#include "commands/Commands.h"
#include "descriptions/DescriptionFile.h"
#include "descriptions/FormerTexts.h"
#include "text/Failure.h"
#include "text/JsonText.h"
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

/// What a merge asks for, and what came of it.
struct Merge
{
    QString rootPath;
    QString partPath;
    QString name;
    bool isReplaced = false;
    int size = 0;
    int offset = 0;
};

void writeMerge(Merge &merge)
{
    const FormerTexts former({merge.rootPath});
    LogCollector::takeReasons();
    const bool isMerged = ProcessDataBuilder().buildProcessDataFromFiles(
        merge.rootPath, merge.partPath, merge.name, merge.size, merge.offset);
    requireWritten(former, merge.rootPath, isMerged);
}

/// The same on the trees alone.
void tryMerge(Merge &merge)
{
    const ConfigurationAndProcessDataParser parser;
    auto root = parser.parseFromFile(merge.rootPath);
    auto part = parser.parseFromFile(merge.partPath);
    LogCollector::takeReasons();
    if (!ProcessDataBuilder().buildProcessData(root, part, merge.name, merge.size, merge.offset)) {
        refuseMerge(ExitCode::InputOutputFile, merge.rootPath,
                    QStringLiteral("nothing would be merged"));
    }
}

void noteWhatIsOdd(const Merge &merge, bool isDryRun)
{
    const QString reasons = LogCollector::takeReasons();
    if (!reasons.isEmpty()) {
        note(QStringLiteral("%1: %2").arg(merge.partPath, reasons));
    }
    if (merge.isReplaced) {
        note(QStringLiteral("%1: '%2' was there and %3; its bytes stay counted")
                 .arg(merge.rootPath, merge.name,
                      isDryRun ? QStringLiteral("would be replaced")
                               : QStringLiteral("is replaced")));
    }
}

QString jsonOf(const Merge &merge, bool isDryRun)
{
    return jsonObject({{QStringLiteral("name"), jsonString(merge.name)},
                       {QStringLiteral("offset"), QString::number(merge.offset)},
                       {QStringLiteral("size"), QString::number(merge.size)},
                       {QStringLiteral("replaced"), jsonBool(merge.isReplaced)},
                       {QStringLiteral("written"), jsonBool(!isDryRun)}});
}

QString textOf(const Merge &merge, bool isDryRun)
{
    return QStringLiteral("%1 '%2' at offset %3, %4 bytes")
        .arg(isDryRun ? QStringLiteral("would merge") : QStringLiteral("merged"),
             printable(merge.name), QString::number(merge.offset), QString::number(merge.size));
}

ExitCode run(const CommandLine &line)
{
    const bool isDryRun = line.isSet(QStringLiteral("dry-run"));
    Merge merge{line.positional(0), line.positional(1), line.positional(2)};
    checkName(merge.name);
    requireDescriptionFile(merge.rootPath);
    requireDescriptionFile(merge.partPath);
    requireWritable(merge.rootPath);
    merge.isReplaced = hasChild(merge.rootPath, merge.name);
    hasChild(merge.partPath, merge.name);

    if (isDryRun) {
        tryMerge(merge);
    } else {
        writeMerge(merge);
    }
    noteWhatIsOdd(merge, isDryRun);
    writeOutput(
        (line.isSet(QStringLiteral("json")) ? jsonOf(merge, isDryRun) : textOf(merge, isDryRun))
        + QLatin1Char('\n'));
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
    syntax.options = {
        {QStringLiteral("dry-run"), QStringLiteral("Look everything over, but write nothing.")},
        {QStringLiteral("json"), QStringLiteral("Print a JSON object.")}};
    syntax.examples = QStringLiteral(
        "  tessel merge --dry-run plant.process.json pump.process.json pump   only look\n"
        "  tessel merge plant.process.json pump.process.json pump\n");
    return {syntax, run};
}
