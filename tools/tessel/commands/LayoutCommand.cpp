#include "commands/BufferLayout.h"
#include "commands/Commands.h"
#include "commands/ResultFile.h"
#include "text/Counted.h"
#include "text/Failure.h"
#include "text/JsonText.h"
#include "text/Output.h"
#include "text/Table.h"

#include <QMap>

#include <optional>

namespace {

using Piece = BufferMap::Piece;
using What = BufferMap::What;

constexpr auto jsonOption = "json";
constexpr auto svgOption = "svg";
constexpr auto dryRunOption = "dry-run";

/// What the leaves of one type take.
struct TypeTotal
{
    int leaves = 0;
    /// A byte that single bits share counts once.
    quint64 bytes = 0;
    quint64 stateBytes = 0;
};

QMap<QString, TypeTotal> totalsOf(const BufferLayout &layout)
{
    QMap<QString, TypeTotal> totals;
    constexpr quint64 nowhere = ~quint64(0);
    quint64 bitByte = nowhere;
    for (const Piece &piece : layout.map().pieces()) {
        if (piece.what == What::Hole || !layout.isShown(piece)) {
            continue;
        }
        TypeTotal &total = totals[layout.slotOf(piece).type];
        if (piece.what == What::State) {
            total.stateBytes += piece.size();
            continue;
        }
        ++total.leaves;
        total.bytes += piece.isBit && piece.begin == bitByte ? 0 : piece.size();
        bitByte = piece.isBit ? piece.begin : bitByte;
    }
    return totals;
}

QStringList rowOf(const BufferLayout &layout, const Piece &piece)
{
    const bool isHole = piece.what == What::Hole;
    return {QString::number(piece.begin),
            QString::number(piece.size()),
            whatText(piece.what),
            isHole ? QString() : layout.urlOf(piece),
            piece.what == What::Value ? typeText(layout.slotOf(piece)) : QString(),
            layout.notesOf(piece).join(QStringLiteral("; "))};
}

void printSlots(const BufferLayout &layout, LongOutput &output)
{
    Table table({{QStringLiteral("OFFSET"), Table::Alignment::Right},
                 {QStringLiteral("SIZE"), Table::Alignment::Right},
                 {QStringLiteral("WHAT"), Table::Alignment::Left},
                 {QStringLiteral("URL"), Table::Alignment::Left},
                 {QStringLiteral("TYPE"), Table::Alignment::Left},
                 {QStringLiteral("NOTE"), Table::Alignment::Left}});
    for (const Piece &piece : layout.map().pieces()) {
        if (layout.isShown(piece)) {
            table.makeRoomFor(rowOf(layout, piece));
        }
    }
    output.add(table.titleLine() + QLatin1Char('\n'));
    for (const Piece &piece : layout.map().pieces()) {
        if (layout.isShown(piece)) {
            output.add(table.lineOf(rowOf(layout, piece)) + QLatin1Char('\n'));
        }
    }
}

void printTypes(const BufferLayout &layout, LongOutput &output)
{
    Table table({{QStringLiteral("TYPE"), Table::Alignment::Left},
                 {QStringLiteral("LEAVES"), Table::Alignment::Right},
                 {QStringLiteral("BYTES"), Table::Alignment::Right},
                 {QStringLiteral("STATES"), Table::Alignment::Right}});
    const auto totals = totalsOf(layout);
    for (auto total = totals.cbegin(); total != totals.cend(); ++total) {
        table.addRow({total.key(), QString::number(total->leaves), QString::number(total->bytes),
                      QString::number(total->stateBytes)});
    }
    output.add(QLatin1Char('\n') + table.lines().join(QLatin1Char('\n')) + QLatin1Char('\n'));
}

QString fact(const char *name, const QString &text)
{
    return QStringLiteral("%1  %2\n").arg(QLatin1String(name), -11).arg(printable(text));
}

void printTotals(const BufferLayout &layout, LongOutput &output)
{
    const BufferMap &map = layout.map();
    output.add(QLatin1Char('\n') + fact("Key", layout.description().key())
               + fact("Buffer", bufferText(layout))
               + fact("Used", QStringLiteral("%1 bytes").arg(map.used()))
               + fact("Holes", QStringLiteral("%1 bytes in ").arg(map.free())
                                   + counted(quint64(map.holeCount()), QStringLiteral("place"),
                                             QStringLiteral("places")))
               + fact("Overlapping", QStringLiteral("%1 bytes").arg(map.overlapping()))
               + fact("Crossings", QString::number(layout.crossingCount())));
}

QString sharedJson(const BufferLayout &layout, const Piece &piece)
{
    if (piece.sharedWith == BufferMap::sm_none) {
        return QStringLiteral("null");
    }
    const BufferMap &map = layout.map();
    const Piece &other = map.pieces()[static_cast<std::size_t>(piece.sharedWith)];
    return jsonObject({
        {QStringLiteral("url"), jsonString(layout.urlOf(other))},
        {QStringLiteral("what"), jsonString(whatText(other.what))},
        {QStringLiteral("byte"), QString::number(map.sharedByte(piece))},
    });
}

QString slotJson(const BufferLayout &layout, const Piece &piece)
{
    const bool isHole = piece.what == What::Hole;
    const CacheLines::Crossing crossing = layout.crossingOf(piece);
    QStringList crossed;
    if (crossing.inFirst) {
        crossed.append(QStringLiteral("1"));
    }
    if (crossing.inSecond) {
        crossed.append(QStringLiteral("2"));
    }
    return jsonObject({
        {QStringLiteral("offset"), QString::number(piece.begin)},
        {QStringLiteral("size"), QString::number(piece.size())},
        {QStringLiteral("what"), jsonString(whatText(piece.what))},
        {QStringLiteral("url"), jsonString(isHole ? QString() : layout.urlOf(piece))},
        {QStringLiteral("type"), jsonString(isHole ? QString() : layout.slotOf(piece).type)},
        {QStringLiteral("bitmask"), QString::number(piece.bits)},
        {QStringLiteral("sharesWith"), sharedJson(layout, piece)},
        {QStringLiteral("isOutside"), jsonBool(layout.map().isOutside(piece))},
        {QStringLiteral("crossesLineInBuffers"),
         QLatin1Char('[') + crossed.join(QStringLiteral(", ")) + QLatin1Char(']')},
    });
}

QString typesJson(const BufferLayout &layout)
{
    QStringList types;
    const auto totals = totalsOf(layout);
    for (auto total = totals.cbegin(); total != totals.cend(); ++total) {
        types.append(jsonObject({
            {QStringLiteral("type"), jsonString(total.key())},
            {QStringLiteral("leaves"), QString::number(total->leaves)},
            {QStringLiteral("bytes"), QString::number(total->bytes)},
            {QStringLiteral("stateBytes"), QString::number(total->stateBytes)},
        }));
    }
    return jsonArray(types);
}

/// One object, its slots a line each.
void printJson(const BufferLayout &layout, LongOutput &output)
{
    const DescriptionSource &description = layout.description();
    const BufferMap &map = layout.map();
    const QString head = jsonObject({
        {QStringLiteral("file"), jsonString(description.path())},
        {QStringLiteral("key"), jsonString(description.key())},
        {QStringLiteral("bufferSize"), QString::number(description.bufferSize())},
        {QStringLiteral("doubleBuffer"), jsonBool(description.isDoubleBuffered())},
        {QStringLiteral("isAsWritten"), jsonBool(description.isAsWritten())},
        {QStringLiteral("used"), QString::number(map.used())},
        {QStringLiteral("holes"), QString::number(map.free())},
        {QStringLiteral("holeCount"), QString::number(map.holeCount())},
        {QStringLiteral("overlapping"), QString::number(map.overlapping())},
        {QStringLiteral("crossings"), QString::number(layout.crossingCount())},
        {QStringLiteral("types"), typesJson(layout)},
    });
    output.add(head.chopped(1) + QStringLiteral(", \"slots\": ["));
    QString before = QStringLiteral("\n  ");
    for (const Piece &piece : map.pieces()) {
        if (layout.isShown(piece)) {
            output.add(before + slotJson(layout, piece));
            before = QStringLiteral(",\n  ");
        }
    }
    output.add(QStringLiteral("\n]}\n"));
}

void requireOneOutput(const CommandLine &line)
{
    const auto refuse = [](const QString &reason) {
        throw Failure{ExitCode::WrongUse,
                      QStringLiteral("layout: %1; see 'tessel layout --help'").arg(reason)};
    };
    const bool isPictureAsked = line.isSet(QLatin1String(svgOption));
    if (isPictureAsked && line.isSet(QLatin1String(jsonOption))) {
        refuse(QStringLiteral("give --json or --svg, not both"));
    }
    if (!isPictureAsked && line.isSet(QLatin1String(dryRunOption))) {
        refuse(QStringLiteral("--dry-run goes with --svg"));
    }
}

void printList(const BufferLayout &layout, bool isJson)
{
    LongOutput output;
    if (isJson) {
        printJson(layout, output);
    } else {
        printSlots(layout, output);
        printTypes(layout, output);
        printTotals(layout, output);
    }
    output.finish();
}

void draw(const BufferLayout &layout, const ResultFile &file, bool isDryRun)
{
    const QByteArray picture = layoutPicture(layout);
    if (isDryRun) {
        writeOutput(QStringLiteral("%1 bytes, not written to %2\n")
                        .arg(picture.size())
                        .arg(printable(file.path())));
        return;
    }
    file.write(QString::fromUtf8(picture));
}

ExitCode run(const CommandLine &line)
{
    requireOneOutput(line);
    std::optional<ResultFile> file;
    if (line.isSet(QLatin1String(svgOption))) {
        file.emplace(QStringLiteral("layout"), QLatin1String(svgOption),
                     line.value(QLatin1String(svgOption)));
    }
    const DescriptionSource description(line.positional(0), DescriptionSource::Layout::ByBuild);
    const BufferLayout layout(description, line.positionalsFrom(1));
    if (!description.isAsWritten()) {
        writeErrorLine(
            QStringLiteral("tessel: note: %1: this is what a build makes of it; its files "
                           "still have another layout")
                .arg(description.path()));
    }
    if (file) {
        draw(layout, *file, line.isSet(QLatin1String(dryRunOption)));
    } else {
        printList(layout, line.isSet(QLatin1String(jsonOption)));
    }
    return ExitCode::Done;
}

} // namespace

Command layoutCommand()
{
    CommandSyntax syntax;
    syntax.name = QStringLiteral("layout");
    syntax.summary = QStringLiteral("Show what lies where in the buffer of a description.");
    syntax.positionals = {fileArgument(), urlsArgument()};
    syntax.leastPositionals = 1;
    syntax.mostPositionals = -1;
    syntax.options = {
        {QLatin1String(jsonOption), QStringLiteral("Print a JSON object.")},
        {QLatin1String(svgOption),
         QStringLiteral("Draw it into a file instead; - is standard output."),
         QStringLiteral("OUT")},
        {QLatin1String(dryRunOption), QStringLiteral("Draw for --svg, but write nothing.")}};
    syntax.examples = QStringLiteral(
        "  tessel layout plant.process.json                    every byte, holes included\n"
        "  tessel layout device 'inputs/**'                    these leaves of a folder\n"
        "  tessel layout --svg plant.svg plant.process.json    a picture\n");
    return {syntax, run};
}
