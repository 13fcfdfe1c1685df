#include "commands/Commands.h"
#include "commands/TakenSnapshot.h"
#include "descriptions/DescriptionFile.h"
#include "descriptions/ReplacedFile.h"
#include "text/Failure.h"
#include "text/Output.h"

#include <QFileInfo>

#include <cerrno>

namespace {

const QLatin1String standardOutput("-");

/// A device or a FIFO would be put out of its place by the file.
void requireReplaceable(const QString &path)
{
    const QFileInfo file(path);
    if (path.isEmpty() || (file.exists() && !file.isFile())) {
        refusePath(ExitCode::InputOutputFile, path, QStringLiteral("is no regular file"));
    }
}

void write(const QString &path, const QString &text)
{
    if (path == standardOutput) {
        writeOutput(text);
        return;
    }
    errno = 0;
    if (!replaceFile(path, text.toUtf8())) {
        const int error = errno;
        refusePath(ExitCode::InputOutputFile, path,
                   error == 0
                       ? QStringLiteral("cannot be written")
                       : QStringLiteral("cannot be written: %1").arg(qt_error_string(error)));
    }
}

ExitCode run(const CommandLine &line)
{
    const QString path = line.value(QStringLiteral("output"));
    if (!line.isSet(QStringLiteral("output"))) {
        throw Failure{
            ExitCode::WrongUse,
            QStringLiteral("snapshot: --output is missing; see 'tessel snapshot --help'")};
    }
    if (path != standardOutput) {
        requireReplaceable(path);
    }
    const DescriptionSource description(line.positional(0));
    const Snapshot snapshot = takeSnapshot(description, line.positionalsFrom(1));
    if (line.isSet(QStringLiteral("dry-run"))) {
        writeOutput(QStringLiteral("%1 values, not written to %2\n")
                        .arg(snapshot.values.size())
                        .arg(printable(path)));
        return ExitCode::Done;
    }
    write(path, snapshotText(snapshot));
    return ExitCode::Done;
}

} // namespace

Command snapshotCommand()
{
    CommandSyntax syntax;
    syntax.name = QStringLiteral("snapshot");
    syntax.summary = QStringLiteral("Keep one consistent set in a file, for compare.");
    syntax.positionals = {fileArgument(), urlsArgument()};
    syntax.leastPositionals = 1;
    syntax.mostPositionals = -1;
    syntax.options = {
        {{QStringLiteral("o"), QStringLiteral("output")},
         QStringLiteral("The JSON file to write; - is standard output."),
         QStringLiteral("SNAPSHOT")},
        {QStringLiteral("dry-run"), QStringLiteral("Read the set, but write nothing.")}};
    syntax.examples = QStringLiteral(
        "  tessel snapshot plant.process.json -o good.json          all values\n"
        "  tessel snapshot plant.process.json 'pump/*' -o some.json   some of them\n"
        "  tessel snapshot host.process.json cpu -o -   on standard output\n");
    return {syntax, run};
}
