#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "ProcessDataManagement/LayoutFingerprint.h"
#include "commands/Commands.h"
#include "commands/Recorder.h"
#include "commands/ResultFile.h"
#include "expressions/Duration.h"
#include "text/CountText.h"
#include "text/Failure.h"
#include "text/JsonText.h"
#include "text/Output.h"
#include "text/WrittenJson.h"
#include "text/WrongUse.h"

#include <QDateTime>
#include <QSet>

namespace {

using Time = RecorderOptions::Time;

constexpr auto command = "record";
constexpr std::chrono::hours longestTime{24 * 30};
constexpr int mostSets = 1000000000;

std::optional<Time> timeFrom(const CommandLine &line, const QString &option)
{
    if (!line.isSet(option)) {
        return {};
    }
    const auto time = durationFromOption(line.value(option));
    if (!time || *time < std::chrono::milliseconds(1) || *time > longestTime) {
        refuseUse(command,
                  QStringLiteral("--%1 takes a time such as 500ms, 10s, 2min or 1h, from 1ms up to "
                                 "30 days, not '%2'")
                      .arg(option, line.value(option)));
    }
    return time;
}

void checkTogether(const CommandLine &line)
{
    const auto needs = [&line](const char *option, const char *other) {
        if (line.isSet(QLatin1String(option)) && !line.isSet(QLatin1String(other))) {
            refuseUse(command, QStringLiteral("--%1 goes with --%2")
                                   .arg(QLatin1String(option), QLatin1String(other)));
        }
    };
    needs("on", "ring");
    needs("after", "on");
    needs("triggers", "on");
    if (line.isSet(QStringLiteral("append")) && line.isSet(QStringLiteral("force"))) {
        refuseUse(command, QStringLiteral("--append does not go with --force"));
    }
}

RecorderOptions optionsFrom(const CommandLine &line)
{
    checkTogether(line);
    RecorderOptions options;
    options.interval = timeFrom(line, QStringLiteral("interval"));
    options.ring = timeFrom(line, QStringLiteral("ring"));
    options.after =
        timeFrom(line, QStringLiteral("after")).value_or(options.ring.value_or(Time(0)));
    options.time = timeFrom(line, QStringLiteral("for"));
    options.sets = static_cast<quint64>(line.number(QStringLiteral("sets"), 1, mostSets, 0));
    options.episodes = static_cast<quint64>(
        line.number(QStringLiteral("triggers"), 1, mostSets, 0));
    return options;
}

void addTriggers(RecorderOptions &options, const CommandLine &line,
                 const DescriptionSource &description)
{
    const QStringList texts = line.values(QStringLiteral("on"));
    for (const auto &text : texts) {
        options.triggers.push_back(RecordTrigger::fromText(text, description));
        if (options.interval && options.triggers.back()->needsEverySet()) {
            refuseUse(command, QStringLiteral("--on '%1' does not go with --interval").arg(text));
        }
    }
}

RecordingWriter::Existing existingFrom(const CommandLine &line)
{
    using Existing = RecordingWriter::Existing;
    return line.isSet(QStringLiteral("append"))  ? Existing::Continued
           : line.isSet(QStringLiteral("force")) ? Existing::Replaced
                                                 : Existing::Refused;
}

/// A file for the recording: there may be one, or a folder for it.
QString outputFrom(const CommandLine &line)
{
    const QString option = QStringLiteral("output");
    if (!line.isSet(option)) {
        refuseUse(command, QStringLiteral("--output is missing"));
    }
    const QString path = line.value(option);
    if (path.isEmpty()) {
        refuseUse(command, QStringLiteral("--output is empty; name a file"));
    }
    if (path == QLatin1String("-")) {
        refuseUse(command, QStringLiteral("a recording goes into a file, not to standard output"));
    }
    return ResultFile(QStringLiteral("record"), option, path).path();
}

/// A folder becomes one description of all of it.
QByteArray carriedDescription(const DescriptionSource &description)
{
    const ConfigurationAndProcessDataParser parser;
    QByteArray text;
    const bool isFramed = parser.frameToByteArray(description.root(), text, QJsonDocument::Compact);
    text = WrittenJson::withEscapedMarks(text);
    const auto root = isFramed ? parser.parseFromByteArray(text, QStringLiteral("process.json"))
                               : nullptr;
    if (!root
        || LayoutFingerprint(root).getValue() != LayoutFingerprint(description.root()).getValue()) {
        throw Failure{ExitCode::InputOutputFile,
                      QStringLiteral("%1: cannot be carried in a recording; 'tessel validate' may "
                                     "tell why")
                          .arg(description.path())};
    }
    return text;
}

RecordingHead headFor(const DescriptionSource &description, const QVector<Leaf> &leaves,
                      const QStringList &urls, const RecorderOptions &options)
{
    RecordingHead head;
    head.key = description.key();
    head.fingerprint = QStringLiteral("0x%1").arg(LayoutFingerprint(description.root()).getValue(),
                                                  16, 16, QLatin1Char('0'));
    head.started = QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs);
    head.urls = urls;
    head.interval = options.interval;
    for (const auto &leaf : leaves) {
        head.values.append(recordedValueOf(leaf, slotOf(leaf)));
    }
    head.description = carriedDescription(description);
    return head;
}

/// Two URLs may lead to one leaf.
QVector<Leaf> eachOnce(const QVector<Leaf> &leaves)
{
    QSet<const ProcessDataValue *> known;
    QVector<Leaf> once;
    for (const auto &leaf : leaves) {
        if (!known.contains(leaf.element.data())) {
            known.insert(leaf.element.data());
            once.append(leaf);
        }
    }
    return once;
}

QString valuesText(const RecordingHead &head)
{
    return countText(static_cast<quint64>(head.values.size()), QStringLiteral("value"));
}

QString reportJson(const RecordingHead &head, const RecordingWriter &writer,
                   const Recorder &recorder)
{
    const double seconds = std::chrono::duration<double>(recorder.time()).count();
    return jsonObject({{QStringLiteral("file"), jsonString(writer.path())},
                       {QStringLiteral("key"), jsonString(head.key)},
                       {QStringLiteral("values"), QString::number(head.values.size())},
                       {QStringLiteral("sets"), QString::number(writer.sets())},
                       {QStringLiteral("dropped"), QString::number(writer.dropped())},
                       {QStringLiteral("triggers"), QString::number(recorder.triggered())},
                       {QStringLiteral("seconds"), QString::number(seconds, 'f', 3)},
                       {QStringLiteral("bytes"), QString::number(writer.bytes())}});
}

void report(const CommandLine &line, const RecordingHead &head, const RecordingWriter &writer,
            const Recorder &recorder)
{
    if (recorder.wasRingFull()) {
        writeErrorLine(QStringLiteral("tessel: note: the ring was full at %1 MiB and reached less "
                                      "far back")
                           .arg(Recorder::sm_mostRingBytes / (1024 * 1024)));
    }
    if (line.isSet(QStringLiteral("json"))) {
        writeOutput(reportJson(head, writer, recorder) + QLatin1Char('\n'));
        return;
    }
    writeErrorLine(QStringLiteral("tessel: note: recorded %1 of %2, %3 dropped, %4 bytes, in %5")
                       .arg(countText(writer.sets(), QStringLiteral("set")), valuesText(head),
                            QString::number(writer.dropped()), QString::number(writer.bytes()),
                            writer.path()));
}

/// What was written is told however it ends.
void record(const CommandLine &line, const RecordingHead &head, RecordingWriter &writer,
            Recorder &recorder, LiveRegion &region, SignalWait &signals)
{
    Recorder::End end{};
    writer.begin();
    try {
        end = recorder.run(signals);
    } catch (const Failure &) {
        report(line, head, writer, recorder);
        throw;
    }
    report(line, head, writer, recorder);
    if (end == Recorder::End::RegionGone) {
        region.requireCurrent();
    }
}

ExitCode run(const CommandLine &line)
{
    RecorderOptions options = optionsFrom(line);
    const QString output = outputFrom(line);
    const DescriptionSource description(line.positional(0));
    description.requireMemory();
    if (!description.isDoubleBuffered()) {
        refuseUse(command, QStringLiteral("'%1' describes a single buffer, which counts no sets")
                               .arg(description.path()));
    }
    const QStringList urls = line.positionalsFrom(1);
    QVector<Leaf> leaves = eachOnce(description.leavesAt(urls));
    addTriggers(options, line, description);
    SignalWait signals(SignalWait::Signals::Ending);
    LiveRegion region(description, LiveRegion::Opening::Read);
    // A value without a byte is none of a recording.
    leaves = withTextsFrom(1, region.readable(leaves, urls), urls, description);
    for (const auto &trigger : options.triggers) {
        region.requireUsable(trigger->leaves());
    }
    const RecordingHead head = headFor(description, leaves, urls, options);
    if (ImageLayout(head.values).size() > ImageLayout::sm_mostBytes) {
        refuseUse(command, QStringLiteral("a set of %1 values takes more than %2 bytes")
                               .arg(leaves.size())
                               .arg(ImageLayout::sm_mostBytes));
    }
    RecordingWriter writer(output, existingFrom(line), head);
    if (line.isSet(QStringLiteral("dry-run"))) {
        const QString text = QStringLiteral("%1 of '%2', not recorded into %3")
                                 .arg(valuesText(head), printable(description.key()),
                                      printable(output));
        const QString json = jsonObject(
            {{QStringLiteral("file"), jsonString(output)},
             {QStringLiteral("key"), jsonString(description.key())},
             {QStringLiteral("values"), QString::number(leaves.size())}});
        writeOutput((line.isSet(QStringLiteral("json")) ? json : text) + QLatin1Char('\n'));
        return ExitCode::Done;
    }
    Recorder recorder(region, leaves, head.values, options, writer);
    record(line, head, writer, recorder, region, signals);
    return ExitCode::Done;
}

QList<QCommandLineOption> recordOptions()
{
    const auto timed = [](const char *name, const char *text) {
        return QCommandLineOption(QLatin1String(name), QLatin1String(text), QStringLiteral("TIME"));
    };
    const QString count = QStringLiteral("N");
    return {
        {{QStringLiteral("o"), QStringLiteral("output")},
         QStringLiteral("The file of the recording."),
         QStringLiteral("OUT")},
        {QStringLiteral("append"), QStringLiteral("Go on in a recording of the same values.")},
        {QStringLiteral("force"), QStringLiteral("Replace a recording that is there.")},
        timed("interval", "A set each TIME, not every one."),
        timed("for", "End it after TIME."),
        {QStringLiteral("sets"), QStringLiteral("End it after N sets."), count},
        timed("ring", "Keep the last TIME in memory until a trigger, or the end."),
        {QStringLiteral("on"),
         QStringLiteral("The trigger: 'state != valid: URL', 'gap > 500ms' or an expression."),
         QStringLiteral("TRIGGER")},
        timed("after", "How long to go on after a trigger (as --ring)."),
        {QStringLiteral("triggers"), QStringLiteral("End it after N triggers are saved."), count},
        {QStringLiteral("dry-run"), QStringLiteral("Check everything, but record nothing.")},
        {QStringLiteral("json"), QStringLiteral("Print the closing report as JSON.")}};
}

} // namespace

Command recordCommand()
{
    CommandSyntax syntax;
    syntax.name = QStringLiteral("record");
    syntax.summary = QStringLiteral("Record the sets of a region, for replay and export.");
    syntax.positionals = {fileArgument(), urlsArgument()};
    syntax.leastPositionals = 1;
    syntax.mostPositionals = -1;
    syntax.options = recordOptions();
    syntax.examples = QStringLiteral(
        "  tessel record plant.process.json -o plant.rec --for 500ms   every set, half a second "
        "long\n"
        "  tessel record host.process.json 'cpu/*' -o cpu.rec --interval 10ms --sets 1   some "
        "values\n"
        "  tessel record host.process.json -o faults.rec --ring 120s --on 'state != valid: **' "
        "--for 100ms   what was\n"
        "      before and after a fault\n");
    return {syntax, run};
}
