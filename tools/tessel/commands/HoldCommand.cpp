#include "commands/BuiltFolder.h"
#include "commands/Commands.h"
#include "descriptions/DirectoryBuild.h"
#include "live/LiveRegion.h"
#include "text/Counted.h"
#include "text/JsonText.h"
#include "text/Output.h"
#include "text/SignalWait.h"

#include <QFileInfo>

#include <cerrno>

namespace {

void noteReplacement(const DescriptionSource &description)
{
    writeErrorLine(QStringLiteral("tessel: note: replaced the region '%1' that was there; who was "
                                  "attached to it must attach again")
                       .arg(description.key()));
}

/// What is to be held, or would be.
struct Holding
{
    const DescriptionSource &description;
    /// Empty where only a build would make one.
    QString key;
    bool isReplacing = false;
};

QString leavesText(const DescriptionSource &description)
{
    return counted(quint64(description.leaves().size()), QStringLiteral("leaf"),
                   QStringLiteral("leaves"));
}

QString jsonLine(const Holding &holding, bool isCreated)
{
    const DescriptionSource &description = holding.description;
    return jsonObject({{QStringLiteral("key"),
                        holding.key.isEmpty() ? QStringLiteral("null") : jsonString(holding.key)},
                       {QStringLiteral("leaves"), QString::number(description.leaves().size())},
                       {QStringLiteral("doubleBuffer"), jsonBool(description.isDoubleBuffered())},
                       {QStringLiteral("regionSize"), QString::number(description.regionSize())},
                       {QStringLiteral("replaced"), jsonBool(holding.isReplacing)},
                       {QStringLiteral("created"), jsonBool(isCreated)}})
           + QLatin1Char('\n');
}

QString readyLine(const DescriptionSource &description)
{
    return QStringLiteral("holding %1: %2, %3 buffer, %4 bytes; SIGINT or SIGTERM ends it\n")
        .arg(printable(description.key()), leavesText(description),
             description.isDoubleBuffered() ? QStringLiteral("double") : QStringLiteral("single"),
             QString::number(description.regionSize()));
}

/// The key that a build leaves in the files of a folder. Says which of them it would rewrite.
QString keyAfterBuild(const CommandLine &line, const DescriptionSource &description)
{
    if (!QFileInfo(line.positional(0)).isDir()) {
        return description.key();
    }
    const DescriptionFolder folder(line.positional(0));
    const DirectoryBuild plan = planFolder(folder, keyPrefixFrom(line));
    if (plan.failure || plan.remaining) {
        throw Failure(plan.failure ? *plan.failure : *plan.remaining);
    }
    QStringList names;
    for (const auto &file : plan.rewritten) {
        names.append(folder.relativePath(file));
    }
    if (!names.isEmpty()) {
        writeErrorLine(QStringLiteral("tessel: note: a build would rewrite %1")
                           .arg(names.join(QStringLiteral(", "))));
    }
    return plan.isKeyNew ? QString() : plan.key;
}

/// Refuses a key that no region can have.
bool isThere(const DescriptionSource &description, const QString &key)
{
    const RegionInspection region(key);
    if (!region.exists() && region.getError() != ENOENT) {
        throw Failure{ExitCode::NoAccess,
                      QStringLiteral("%1: no region for key '%2': %3")
                          .arg(description.path(), key, region.getErrorString())};
    }
    return region.exists();
}

ExitCode tryHold(const CommandLine &line)
{
    refusePrefixOfFile(line, QStringLiteral("hold"));
    const DescriptionSource description(line.positional(0), DescriptionSource::Layout::ByBuild);
    Holding holding{description, keyAfterBuild(line, description)};
    if (!QFileInfo(line.positional(0)).isDir()) {
        description.requireMemory();
    }
    holding.isReplacing = !holding.key.isEmpty() && isThere(description, holding.key);
    if (line.isSet(QStringLiteral("json"))) {
        writeOutput(jsonLine(holding, false));
        return ExitCode::Done;
    }
    if (holding.isReplacing) {
        writeErrorLine(
            QStringLiteral("tessel: note: the region '%1' is there and would be replaced")
                .arg(holding.key));
    }
    writeOutput(
        QStringLiteral("would hold %1: %2, %3 buffer, %4 bytes\n")
            .arg(holding.key.isEmpty() ? QStringLiteral("a new key") : printable(holding.key),
                 leavesText(description),
                 description.isDoubleBuffered() ? QStringLiteral("double")
                                                : QStringLiteral("single"),
                 QString::number(description.regionSize())));
    return ExitCode::Done;
}

ExitCode run(const CommandLine &line)
{
    if (line.isSet(QStringLiteral("dry-run"))) {
        return tryHold(line);
    }
    buildIfFolder(line, QStringLiteral("hold"));
    const DescriptionSource description(line.positional(0));
    description.requireMemory();
    SignalWait signals(SignalWait::Signals::Ending);
    const bool wasThere = RegionInspection(description.key()).exists();
    const LiveRegion region(description, LiveRegion::Opening::Create);
    if (wasThere) {
        noteReplacement(description);
    }
    region.usable(description.leaves());
    writeOutput(line.isSet(QStringLiteral("json"))
                    ? jsonLine({description, description.key(), wasThere}, true)
                    : readyLine(description));
    while (signals.wait() != SignalWait::Event::End) { }
    return ExitCode::Done;
}

} // namespace

Command holdCommand()
{
    CommandSyntax syntax;
    syntax.name = QStringLiteral("hold");
    syntax.summary = QStringLiteral("Create the region and keep it until SIGINT or SIGTERM.");
    syntax.positionals = {fileArgument()};
    syntax.leastPositionals = 1;
    syntax.mostPositionals = 1;
    syntax.options = {
        prefixOption(),
        {QStringLiteral("dry-run"),
         QStringLiteral("Create and build nothing, and say what would be.")},
        {QStringLiteral("json"), QStringLiteral("Print a JSON object when it is there.")}};
    syntax.examples = QStringLiteral(
        "  tessel hold plant.process.json       until Ctrl-C; then nothing of it is left\n"
        "  tessel hold --dry-run plant.process.json   only look\n"
        "  tessel hold plant.process.json &     beside other work; end it by kill %1\n"
        "  tessel hold device                   builds the folder first, see tessel build\n");
    return {syntax, run};
}
