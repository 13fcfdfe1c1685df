#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Companion/SystemVSemaphoreBaseClass.h"
#include "Inspection/RegionInspection.h"
#include "commands/Commands.h"
#include "descriptions/DescriptionSource.h"
#include "live/MirrorNote.h"
#include "text/Failure.h"
#include "text/JsonText.h"
#include "text/Output.h"
#include "text/Table.h"
#include "values/SizeOnlyBuffer.h"
#include "values/SlotRanges.h"

#include <QFileInfo>

namespace {

using Definitions = ConfigurationAndProcessDataDefinitions;

/// What is wrong with the slots, a line each.
QStringList findProblems(const DescriptionSource &description)
{
    SizeOnlyBuffer buffer(description.bufferSize());
    QStringList problems;
    for (const auto &leaf : description.leaves()) {
        leaf.element->setBufferHandlerInterface(&buffer, false);
        const QString problem = slotProblem(leaf, description.bufferSize());
        if (!problem.isEmpty()) {
            problems.append(QStringLiteral("'%1': %2").arg(leaf.url, problem));
        }
    }
    return problems + SlotRanges(description.leaves()).overlaps();
}

QString semaphoreKeyText(const DescriptionSource &description)
{
    const auto key = static_cast<quint32>(
        SystemVSemaphoreBaseClass::systemVKey(description.semaphoreName()));
    return QStringLiteral("0x%1").arg(key, 8, 16, QLatin1Char('0'));
}

QString regionText(const DescriptionSource &description)
{
    const RegionInspection region(description.root());
    if (!region.exists()) {
        return QStringLiteral("does not exist now");
    }
    if (!region.isReadable()) {
        return QStringLiteral("exists, cannot be opened: %1").arg(region.getErrorString());
    }
    if (region.getSize() != description.regionSize()) {
        return QStringLiteral("exists with %1 bytes: made from another description")
            .arg(region.getSize());
    }
    if (region.hasLayoutOfDescription() == false) {
        return QStringLiteral("exists: made from another description");
    }
    return QStringLiteral("exists");
}

QString fact(const QString &name, const QString &text)
{
    return QStringLiteral("%1  %2\n").arg(name, -10).arg(printable(text));
}

void printFacts(const DescriptionSource &description)
{
    const bool isFolder = QFileInfo(description.path()).isDir();
    QString facts = fact(isFolder ? QStringLiteral("Folder") : QStringLiteral("File"),
                         description.path());
    if (description.bufferSize() == 0) {
        facts += fact(QStringLiteral("Memory"), QStringLiteral("none described"));
    } else {
        facts += fact(QStringLiteral("Key"), description.key());
        facts += fact(QStringLiteral("Buffer"),
                      QStringLiteral("%1, %2 bytes")
                          .arg(description.isDoubleBuffered() ? QStringLiteral("double")
                                                              : QStringLiteral("single"))
                          .arg(description.bufferSize()));
        facts += fact(QStringLiteral("Region"),
                      QStringLiteral("%1, %2 bytes; %3")
                          .arg(description.segmentName(), QString::number(description.regionSize()),
                               regionText(description)));
        facts += fact(QStringLiteral("Semaphores"), semaphoreKeyText(description));
        if (const auto mirror = MirrorNote::find(description.key())) {
            facts += fact(QStringLiteral("Mirror"), mirror->text());
        }
    }
    facts += fact(QStringLiteral("Leaves"), QString::number(description.leaves().size()));
    writeOutput(facts + QLatin1Char('\n'));
}

void printLeaves(const DescriptionSource &description)
{
    Table table({{QStringLiteral("URL"), Table::Alignment::Left},
                 {QStringLiteral("TYPE"), Table::Alignment::Left},
                 {QStringLiteral("OFFSET"), Table::Alignment::Right},
                 {QStringLiteral("SIZE"), Table::Alignment::Right},
                 {QStringLiteral("METADATA"), Table::Alignment::Right},
                 {QStringLiteral("ACCESS"), Table::Alignment::Left},
                 {QStringLiteral("UNIT"), Table::Alignment::Left}});
    for (const auto &leaf : description.leaves()) {
        const LeafSlot slot = slotOf(leaf);
        table.addRow({leaf.url, typeText(slot), QString::number(slot.offset),
                      QString::number(slot.size),
                      slot.hasMetadata() ? QStringLiteral("at %1").arg(slot.stateBegin())
                                         : QStringLiteral("-"),
                      slot.isReadOnly ? QStringLiteral("read-only") : QStringLiteral("read-write"),
                      textProperty(leaf, Definitions::getKeyDataPropertyUnit())});
    }
    writeOutput(table.lines().join(QLatin1Char('\n')) + QLatin1Char('\n'));
}

QString jsonOf(const Leaf &leaf)
{
    const LeafSlot slot = slotOf(leaf);
    return jsonObject({
        {QStringLiteral("url"), jsonString(leaf.url)},
        {QStringLiteral("type"), jsonString(slot.type)},
        {QStringLiteral("offset"), QString::number(slot.offset)},
        {QStringLiteral("size"), QString::number(slot.size)},
        {QStringLiteral("relativeOffsetMetadata"), QString::number(slot.relativeOffsetMetadata)},
        {QStringLiteral("sizeMetadata"), QString::number(slot.sizeMetadata)},
        {QStringLiteral("bitmask"), QString::number(slot.bitmask)},
        {QStringLiteral("readOnly"), jsonBool(slot.isReadOnly)},
        {QStringLiteral("unit"),
         jsonString(textProperty(leaf, Definitions::getKeyDataPropertyUnit()))},
    });
}

void printJson(const DescriptionSource &description)
{
    QStringList leaves;
    for (const auto &leaf : description.leaves()) {
        leaves.append(jsonOf(leaf));
    }
    const QString head = jsonObject({
        {QStringLiteral("file"), jsonString(description.path())},
        {QStringLiteral("key"), jsonString(description.key())},
        {QStringLiteral("bufferSize"), QString::number(description.bufferSize())},
        {QStringLiteral("doubleBuffer"), jsonBool(description.isDoubleBuffered())},
        {QStringLiteral("regionSize"), QString::number(description.regionSize())},
        {QStringLiteral("regionExists"), jsonBool(RegionInspection(description.key()).exists())},
        {QStringLiteral("segment"), jsonString(description.segmentName())},
        {QStringLiteral("semaphoreKey"), jsonString(semaphoreKeyText(description))},
        {QStringLiteral("mirror"), mirrorJson(description.key())},
        {QStringLiteral("leaves"), jsonArray(leaves)},
    });
    writeOutput(head + QLatin1Char('\n'));
}

void printUrls(const DescriptionSource &description)
{
    QString lines;
    for (const auto &leaf : description.leaves()) {
        lines += printable(leaf.url) + QLatin1Char('\n');
    }
    writeOutput(lines);
}

ExitCode run(const CommandLine &line)
{
    const bool isJsonAsked = line.isSet(QStringLiteral("json"));
    const bool areUrlsAsked = line.isSet(QStringLiteral("urls"));
    if (isJsonAsked && areUrlsAsked) {
        throw Failure{ExitCode::WrongUse, QStringLiteral("info: give --json or --urls, not both; "
                                                         "see 'tessel info --help'")};
    }
    const DescriptionSource description(line.positional(0));
    if (isJsonAsked) {
        printJson(description);
    } else if (areUrlsAsked) {
        printUrls(description);
    } else {
        printFacts(description);
        printLeaves(description);
    }
    const QStringList problems = description.bufferSize() == 0 ? QStringList()
                                                               : findProblems(description);
    if (!problems.isEmpty()) {
        throw Failure{
            ExitCode::InputOutputFile,
            QStringLiteral("%1: %2").arg(description.path(), problems.join(QStringLiteral("; ")))};
    }
    return ExitCode::Done;
}

} // namespace

Command infoCommand()
{
    CommandSyntax syntax;
    syntax.name = QStringLiteral("info");
    syntax.summary = QStringLiteral("Show what a description says: leaves, slots, region.");
    syntax.positionals = {fileArgument()};
    syntax.leastPositionals = 1;
    syntax.mostPositionals = 1;
    syntax.options = {{QStringLiteral("json"), QStringLiteral("Print a JSON object.")},
                      {QStringLiteral("urls"),
                       QStringLiteral("Print the URLs of the leaves alone, one a line.")}};
    syntax.examples = QStringLiteral("  tessel info plant.process.json           for the eye\n"
                                     "  tessel info --json plant.process.json    for programs\n"
                                     "  tessel info --urls plant.process.json    for a loop\n"
                                     "  tessel info device                       a folder\n");
    return {syntax, run};
}
