#include "ProcessDataManagement/ProcessDataBufferHandler.h"
#include "commands/Commands.h"
#include "descriptions/DirectoryBuild.h"
#include "text/Output.h"
#include "text/Table.h"

namespace {

constexpr auto checkOption = "check";

QString rewrittenText()
{
    return QStringLiteral("rewritten");
}

void printFiles(const DescriptionFolder &folder, const DirectoryBuild &build,
                const QString &rewrittenText)
{
    Table table({{QStringLiteral("FILE"), Table::Alignment::Left},
                 {QStringLiteral("BUILD"), Table::Alignment::Left}});
    for (const auto &file : folder.filePaths()) {
        table.addRow({folder.relativePath(file),
                      build.rewritten.contains(file) ? rewrittenText : QStringLiteral("left")});
    }
    writeOutput(table.lines().join(QLatin1Char('\n')) + QLatin1Char('\n'));
}

void printRegion(const DirectoryBuild &build)
{
    const ProcessDataBufferHandler layout(build.isDoubleBuffered);
    const auto bufferSize = static_cast<quint32>(build.bufferSize);
    writeOutput(
        QStringLiteral("\nKey     %1\nBuffer  %2, %3 bytes\nRegion  %4 bytes\n")
            .arg(printable(build.key),
                 build.isDoubleBuffered ? QStringLiteral("double") : QStringLiteral("single"),
                 QString::number(bufferSize),
                 QString::number(bufferSize == 0 ? 0
                                                 : layout.calculateSizeSharedMemory(bufferSize))));
}

ExitCode check(const DescriptionFolder &folder, const QString &keyPrefix)
{
    const DirectoryBuild plan = planFolder(folder, keyPrefix);
    if (plan.failure) {
        throw Failure(*plan.failure);
    }
    printBesideAnswer([&] { printFiles(folder, plan, QStringLiteral("would be rewritten")); });
    if (!plan.rewritten.isEmpty()) {
        return ExitCode::AnsweredNo;
    }
    printRegion(plan);
    return ExitCode::Done;
}

/// A standard output that cannot be written does not hide what went wrong before.
[[noreturn]] void fail(const DescriptionFolder &folder, const DirectoryBuild &build)
{
    if (!build.rewritten.isEmpty()) {
        try {
            printFiles(folder, build, rewrittenText());
        } catch (const Failure &) {
        } catch (const OutputClosed &) {
        }
    }
    throw Failure(*build.failure);
}

ExitCode build(const DescriptionFolder &folder, const QString &keyPrefix)
{
    const DirectoryBuild build = buildFolder(folder, keyPrefix);
    if (build.failure) {
        fail(folder, build);
    }
    printFiles(folder, build, rewrittenText());
    printRegion(build);
    return ExitCode::Done;
}

ExitCode run(const CommandLine &line)
{
    const QString keyPrefix = keyPrefixFrom(line);
    const DescriptionFolder folder(line.positional(0));
    return line.isSet(QLatin1String(checkOption)) ? check(folder, keyPrefix)
                                                  : build(folder, keyPrefix);
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
    syntax.options = {prefixOption(),
                      {QLatin1String(checkOption),
                       QStringLiteral("Write nothing; exit code 1 if a build would.")}};
    syntax.examples = QStringLiteral(
        "  tessel build device                 offsets, size and key, only where they change\n"
        "  tessel build --check device         for a device's continuous integration\n"
        "  tessel build --prefix acme device   a key that begins with acme\n");
    return {syntax, run};
}
