#include "ProcessDataManagement/ProcessDataBufferHandler.h"
#include "commands/Commands.h"
#include "descriptions/DirectoryBuild.h"
#include "text/JsonText.h"
#include "text/Output.h"
#include "text/Table.h"

namespace {

constexpr auto checkOption = "check";
constexpr auto dryRunOption = "dry-run";
constexpr auto jsonOption = "json";

QString rewrittenText()
{
    return QStringLiteral("rewritten");
}

void printFiles(const DescriptionFolder &folder, const DirectoryBuild &build,
                const QString &rewrittenText)
{
    Table table({{QStringLiteral("FILE"), Table::Alignment::Left},
                 {QStringLiteral("BUILD"), Table::Alignment::Left}});
    const QStringList paths = folder.filePaths();
    for (const auto &file : paths) {
        table.addRow({folder.relativePath(file),
                      build.rewritten.contains(file) ? rewrittenText : QStringLiteral("left")});
    }
    writeOutput(table.lines().join(QLatin1Char('\n')) + QLatin1Char('\n'));
}

quint32 regionSizeOf(const DirectoryBuild &build)
{
    const auto bufferSize = static_cast<quint32>(build.bufferSize);
    return bufferSize == 0 ? 0
                           : ProcessDataBufferHandler(build.isDoubleBuffered)
                                 .calculateSizeSharedMemory(bufferSize);
}

void printRegion(const DirectoryBuild &build)
{
    const QString key = build.isKeyNew ? QStringLiteral("a new one") : printable(build.key);
    writeOutput(
        QStringLiteral("\nKey     %1\nBuffer  %2, %3 bytes\nRegion  %4 bytes\n")
            .arg(key, build.isDoubleBuffered ? QStringLiteral("double") : QStringLiteral("single"),
                 QString::number(build.bufferSize), QString::number(regionSizeOf(build))));
}

QString jsonOf(const DescriptionFolder &folder, const DirectoryBuild &build, bool isWritten)
{
    QStringList files;
    const QStringList paths = folder.filePaths();
    for (const auto &file : paths) {
        files.append(
            jsonObject({{QStringLiteral("file"), jsonString(folder.relativePath(file))},
                        {QStringLiteral("rewritten"), jsonBool(build.rewritten.contains(file))}}));
    }
    const QString key = build.isKeyNew ? QStringLiteral("null") : jsonString(build.key);
    return jsonObject({{QStringLiteral("files"),
                        QLatin1Char('[') + files.join(QStringLiteral(", ")) + QLatin1Char(']')},
                       {QStringLiteral("written"), jsonBool(isWritten)},
                       {QStringLiteral("key"), key},
                       {QStringLiteral("doubleBuffer"), jsonBool(build.isDoubleBuffered)},
                       {QStringLiteral("bufferSize"), QString::number(build.bufferSize)},
                       {QStringLiteral("regionSize"), QString::number(regionSizeOf(build))}})
           + QLatin1Char('\n');
}

/// With --check its exit code is the answer.
ExitCode plan(const CommandLine &line, const DescriptionFolder &folder, const QString &keyPrefix)
{
    const bool isCheck = line.isSet(QLatin1String(checkOption));
    const DirectoryBuild plan = planFolder(folder, keyPrefix);
    if (plan.failure) {
        throw Failure(*plan.failure);
    }
    if (plan.remaining && !isCheck) {
        throw Failure(*plan.remaining);
    }
    const bool isAnsweredNo = isCheck && !plan.rewritten.isEmpty();
    const auto print = [&] {
        if (line.isSet(QLatin1String(jsonOption))) {
            writeOutput(jsonOf(folder, plan, false));
            return;
        }
        printFiles(folder, plan, QStringLiteral("would be rewritten"));
        if (!isAnsweredNo) {
            printRegion(plan);
        }
    };
    if (isAnsweredNo) {
        printBesideAnswer(print);
        return ExitCode::AnsweredNo;
    }
    print();
    return ExitCode::Done;
}

/// A standard output that cannot be written does not hide what went wrong before.
[[noreturn]] void fail(const CommandLine &line, const DescriptionFolder &folder,
                       const DirectoryBuild &build)
{
    if (!build.rewritten.isEmpty() && !line.isSet(QLatin1String(jsonOption))) {
        try {
            printFiles(folder, build, rewrittenText());
        } catch (const Failure &) {
        } catch (const OutputClosed &) {
        }
    }
    throw Failure(*build.failure);
}

ExitCode build(const CommandLine &line, const DescriptionFolder &folder, const QString &keyPrefix)
{
    const DirectoryBuild build = buildFolder(folder, keyPrefix);
    if (build.failure) {
        fail(line, folder, build);
    }
    if (line.isSet(QLatin1String(jsonOption))) {
        writeOutput(jsonOf(folder, build, true));
        return ExitCode::Done;
    }
    printFiles(folder, build, rewrittenText());
    printRegion(build);
    return ExitCode::Done;
}

ExitCode run(const CommandLine &line)
{
    const QString keyPrefix = keyPrefixFrom(line);
    const DescriptionFolder folder(line.positional(0));
    const bool isPlan = line.isSet(QLatin1String(checkOption))
                        || line.isSet(QLatin1String(dryRunOption));
    return isPlan ? plan(line, folder, keyPrefix) : build(line, folder, keyPrefix);
}

} // namespace

Command buildCommand()
{
    CommandSyntax syntax;
    syntax.name = QStringLiteral("build");
    syntax.summary = QStringLiteral("Give the process descriptions of a folder one layout.");
    syntax.positionals = {{QStringLiteral("DIR"),
                           QStringLiteral("A folder with process descriptions at any depth.")}};
    syntax.leastPositionals = 1;
    syntax.mostPositionals = 1;
    syntax.options = {
        prefixOption(),
        {QLatin1String(checkOption),
         QStringLiteral("Write nothing; exit code 1 if a build would.")},
        {QLatin1String(dryRunOption), QStringLiteral("Write nothing, and say what would be.")},
        {QLatin1String(jsonOption), QStringLiteral("Print a JSON object.")}};
    syntax.examples = QStringLiteral(
        "  tessel build device                 offsets, size and key, only where they change\n"
        "  tessel build --dry-run device       only look\n"
        "  tessel build --check device         for a device's continuous integration\n"
        "  tessel build --prefix acme device   a key that begins with acme\n");
    return {syntax, run};
}
