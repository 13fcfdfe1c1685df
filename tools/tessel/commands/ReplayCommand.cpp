#include "ProcessDataManagement/LayoutFingerprint.h"
#include "commands/Commands.h"
#include "commands/Replay.h"
#include "descriptions/DescriptionFile.h"
#include "recordings/SlotCopies.h"
#include "text/CountText.h"
#include "text/Failure.h"
#include "text/JsonText.h"
#include "text/Output.h"
#include "text/WrongUse.h"

#include <utility>

namespace {

constexpr auto command = "replay";

double speedFrom(const CommandLine &line)
{
    constexpr double least = 0.001;
    constexpr double most = 1000000;
    const QString option = QStringLiteral("speed");
    if (!line.isSet(option)) {
        return 1;
    }
    bool ok = false;
    const double speed = line.value(option).toDouble(&ok);
    // NaN is beyond both.
    if (!ok || !(speed >= least && speed <= most)) {
        refuseUse(command, QStringLiteral("--speed takes a number from 0.001 to 1000000, not '%1'")
                               .arg(line.value(option)));
    }
    return speed;
}

/// Of --into, or the one that the recording carries.
DescriptionSource descriptionFor(const CommandLine &line, const RecordingReader &reader)
{
    DescriptionSource carried(reader.path(), reader.head().description);
    if (!line.isSet(QStringLiteral("into"))) {
        return carried;
    }
    DescriptionSource into(line.value(QStringLiteral("into")));
    const LayoutFingerprint recorded(carried.root());
    const LayoutFingerprint described(into.root());
    if (recorded.getValue() != described.getValue()) {
        const quint32 size = into.bufferSize();
        const QString first = described.findFirstDifference(recorded.getParts(size), size);
        throw Failure{
            ExitCode::LayoutMismatch,
            QStringLiteral("%1: was recorded with another layout than that of %2%3")
                .arg(reader.path(), into.path(),
                     first.isEmpty() ? QString() : QStringLiteral(", from '%1' on").arg(first))};
    }
    return into;
}

QVector<Leaf> leavesFor(const DescriptionSource &description, const RecordingReader &reader)
{
    QVector<Leaf> leaves;
    for (const auto &value : reader.head().values) {
        const Leaf leaf = description.leafAt(value.url);
        if (!(recordedValueOf(leaf, slotOf(leaf)) == value)) {
            refusePath(ExitCode::InputOutputFile, reader.path(),
                       QStringLiteral("'%1' was recorded in another form than its description has")
                           .arg(value.url));
        }
        leaves.append(leaf);
    }
    return leaves;
}

/// Only a creator writes these; the others are left.
void leaveOutReadOnly(QVector<Leaf> &leaves)
{
    for (auto &leaf : leaves) {
        if (slotOf(leaf).isReadOnly) {
            writeErrorLine(
                QStringLiteral("tessel: note: '%1' is left out: it is read-only").arg(leaf.url));
            leaf.element.clear();
        }
    }
}

void refuseExisting(const CommandLine &line, const DescriptionSource &description)
{
    if (!RegionInspection(description.key()).exists()) {
        return;
    }
    if (!line.isSet(QStringLiteral("force"))) {
        throw Failure{ExitCode::Refused,
                      QStringLiteral("%1: region '%2' is there already; --into FILE writes into "
                                     "it, --force replaces it")
                          .arg(description.path(), description.key())};
    }
    if (!line.isSet(QStringLiteral("dry-run"))) {
        writeErrorLine(QStringLiteral("tessel: note: replaced the region '%1' that was there; who "
                                      "was attached to it must attach again")
                           .arg(description.key()));
    }
}

quint64 setsOf(RecordingReader &reader)
{
    RecordedSet set;
    quint64 sets = 0;
    while (reader.next(set)) {
        ++sets;
    }
    return sets;
}

QString setsText(quint64 sets, const RecordingReader &reader)
{
    return QStringLiteral("%1 of %2")
        .arg(countText(sets, QStringLiteral("set")),
             countText(static_cast<quint64>(reader.head().values.size()), QStringLiteral("value")));
}

void report(const CommandLine &line, const QString &key, const RecordingReader &reader,
            const Replay &replay)
{
    const auto seconds = [](std::chrono::microseconds time) {
        return std::chrono::duration<double>(time).count();
    };
    if (line.isSet(QStringLiteral("json"))) {
        writeOutput(
            jsonObject(
                {{QStringLiteral("file"), jsonString(reader.path())},
                 {QStringLiteral("key"), jsonString(key)},
                 {QStringLiteral("values"), QString::number(reader.head().values.size())},
                 {QStringLiteral("sets"), QString::number(replay.sets())},
                 {QStringLiteral("dropped"), QString::number(replay.dropped())},
                 {QStringLiteral("seconds"), QString::number(seconds(replay.time()), 'f', 3)},
                 {QStringLiteral("lag"), QString::number(seconds(replay.lag()), 'f', 3)}})
            + QLatin1Char('\n'));
        return;
    }
    writeErrorLine(QStringLiteral("tessel: note: replayed %1 into region '%2', %3 when it was "
                                  "recorded")
                       .arg(setsText(replay.sets(), reader), key,
                            countText(replay.dropped(), QStringLiteral("was dropped"),
                                      QStringLiteral("were dropped"))));
}

ExitCode dryRun(const CommandLine &line, RecordingReader &reader, const QString &key)
{
    const quint64 sets = setsOf(reader);
    const QString values = QString::number(reader.head().values.size());
    const QString text = QStringLiteral("%1, not replayed into region '%2'")
                             .arg(setsText(sets, reader), printable(key));
    const QString json = jsonObject({{QStringLiteral("file"), jsonString(reader.path())},
                                     {QStringLiteral("key"), jsonString(key)},
                                     {QStringLiteral("values"), values},
                                     {QStringLiteral("sets"), QString::number(sets)}});
    writeOutput((line.isSet(QStringLiteral("json")) ? json : text) + QLatin1Char('\n'));
    requireWhole(reader);
    return ExitCode::Done;
}

ExitCode replayInto(const CommandLine &line, RecordingReader &reader, LiveRegion &region,
                    const QString &key, const QVector<Leaf> &leaves, SignalWait &signals)
{
    if (!line.isSet(QStringLiteral("json"))) {
        writeOutput(
            QStringLiteral("replaying into %1; SIGINT or SIGTERM ends it\n").arg(printable(key)));
    }
    Replay replay(reader, region, leaves, speedFrom(line));
    Replay::End end{};
    try {
        end = replay.run(signals);
    } catch (const Failure &) {
        report(line, key, reader, replay);
        throw;
    }
    report(line, key, reader, replay);
    while (end == Replay::End::Whole && line.isSet(QStringLiteral("hold"))
           && signals.wait() != SignalWait::Event::End) { }
    if (end == Replay::End::Whole) {
        requireWhole(reader);
    }
    return ExitCode::Done;
}

ExitCode run(const CommandLine &line)
{
    speedFrom(line);
    const bool isInto = line.isSet(QStringLiteral("into"));
    if (isInto && (line.isSet(QStringLiteral("force")) || line.isSet(QStringLiteral("hold")))) {
        refuseUse(command, QStringLiteral("--into does not go with --force or --hold"));
    }
    RecordingReader reader(line.positional(0));
    const DescriptionSource description = descriptionFor(line, reader);
    description.requireMemory();
    QVector<Leaf> leaves = leavesFor(description, reader);
    if (!isInto) {
        refuseExisting(line, description);
    }
    if (isInto) {
        requireMatchingRegion(RegionInspection(description.root()), description);
        leaveOutReadOnly(leaves);
    }
    if (line.isSet(QStringLiteral("dry-run"))) {
        return dryRun(line, reader, description.key());
    }
    SignalWait signals(SignalWait::Signals::Ending);
    LiveRegion region(description,
                      isInto ? LiveRegion::Opening::Attach : LiveRegion::Opening::Create);
    for (const auto &leaf : std::as_const(leaves)) {
        if (leaf.element) {
            region.requireUsable({leaf});
        }
    }
    return replayInto(line, reader, region, description.key(), leaves, signals);
}

} // namespace

Command replayCommand()
{
    CommandSyntax syntax;
    syntax.name = QStringLiteral("replay");
    syntax.summary = QStringLiteral("Publish the sets of a recording again.");
    syntax.positionals = {recordingArgument()};
    syntax.leastPositionals = 1;
    syntax.mostPositionals = 1;
    syntax.options = {
        {QStringLiteral("into"),
         QStringLiteral("Into the region of this description, which is there."),
         QStringLiteral("FILE")},
        {QStringLiteral("force"), QStringLiteral("Replace the region, if there is one.")},
        {QStringLiteral("speed"), QStringLiteral("So many times as fast (1)."),
         QStringLiteral("X")},
        {QStringLiteral("hold"), QStringLiteral("Keep its own region at the end until Ctrl-C.")},
        {QStringLiteral("dry-run"), QStringLiteral("Check everything, but publish nothing.")},
        {QStringLiteral("json"), QStringLiteral("Print the closing report as JSON.")}};
    syntax.examples = QStringLiteral(
        "  tessel replay plant.rec     into a region of its own, which goes with it\n"
        "  tessel replay --speed 10 --into plant.process.json plant.rec   ten times as fast\n");
    return {syntax, run};
}
