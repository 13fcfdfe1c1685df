#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "commands/Commands.h"
#include "commands/ConfigurationExplanation.h"
#include "commands/Explanation.h"
#include "live/LiveRegion.h"
#include "live/MirrorNote.h"
#include "live/RegionText.h"
#include "text/Failure.h"
#include "text/JsonText.h"
#include "text/Output.h"
#include "text/WrappedText.h"
#include "values/StateName.h"
#include "values/ValueText.h"

namespace {

using Definitions = ConfigurationAndProcessDataDefinitions;

/// Of all @p leaves, in their order.
QVector<Explanation> explanationsOf(const QVector<Leaf> &leaves, const RegionLook &look,
                                    const DescriptionSource &description)
{
    QStringList urls;
    for (const auto &leaf : leaves) {
        urls.append(leaf.url);
    }
    const auto places = DescriptionPlaces::findAll(description.path(), urls,
                                                   DescriptionPlaces::Kind::Process);
    const QVector<Suspicion> ofRegion = suspicionsOf(look, description);
    const SlotRanges ranges(description.leaves());
    QVector<Explanation> explanations;
    for (int i = 0; i < leaves.size(); ++i) {
        const QVector<BufferedSlot> buffers = look.slotsOf(leaves.at(i));
        explanations.append(
            {leaves.at(i), slotOf(leaves.at(i)), places.at(i), buffers,
             ofRegion + suspicionsOf(leaves.at(i), buffers, look, description, ranges)});
    }
    return explanations;
}

QString stateOf(const ProcessValue &value)
{
    return stateName(value.getErrorType());
}

/// An erroneous value has no content, but what lies beside its state may tell something.
QString contentOf(const ProcessValue &value)
{
    return valueText({value.getValue(), ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID});
}

QString headline(const Explanation &explanation)
{
    const auto value = explanation.value();
    QString text = explanation.leaf.url + QStringLiteral(": ");
    if (!value) {
        text += QStringLiteral("no value to be read");
    } else if (value->getErrorType() != ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID) {
        text += QStringLiteral("no value, ") + stateOf(*value);
    } else {
        text += contentOf(*value) + QLatin1Char(' ') + explanation.unit();
        text = text.trimmed() + QStringLiteral(", valid");
    }
    return wrappedText({}, text);
}

QString suspicionLines(const QVector<Suspicion> &suspicions)
{
    if (suspicions.isEmpty()) {
        return QStringLiteral("nothing is suspicious\n");
    }
    QString lines;
    for (const auto &suspicion : suspicions) {
        lines += wrappedText(QStringLiteral("! "), suspicion.text);
    }
    return lines;
}

QString rangeText(const Explanation &explanation, const QString &name, const QString &from,
                  const QString &to)
{
    const QString least = explanation.text(from);
    const QString most = explanation.text(to);
    if (least.isEmpty() && most.isEmpty()) {
        return {};
    }
    const QString text = least.isEmpty()  ? QStringLiteral("up to ") + most
                         : most.isEmpty() ? QStringLiteral("from ") + least
                                          : QStringLiteral("%1 to %2").arg(least, most);
    return QStringLiteral("; %1 %2").arg(name, text);
}

QString typeText(const Explanation &explanation)
{
    const LeafSlot &slot = explanation.slot;
    QString text = slot.type;
    if (slot.isBit()) {
        text += QStringLiteral(" 0x%1").arg(slot.bitmask, 2, 16, QLatin1Char('0'));
    }
    if (!explanation.unit().isEmpty()) {
        text += QStringLiteral(" in ") + explanation.unit();
    }
    text += rangeText(explanation, QStringLiteral("limits"),
                      Definitions::getKeyDataPropertyMinLimit(),
                      Definitions::getKeyDataPropertyMaxLimit());
    text += rangeText(explanation, QStringLiteral("view"),
                      Definitions::getKeyDataPropertyViewStart(),
                      Definitions::getKeyDataPropertyViewEnd());
    return text
           + (slot.isReadOnly ? QStringLiteral("; read-only: its creator alone writes it")
                              : QStringLiteral("; read-write"));
}

QString bytesText(quint64 begin, quint64 size)
{
    return size == 1 ? QStringLiteral("byte %1").arg(begin)
                     : QStringLiteral("bytes %1 to %2").arg(begin).arg(begin + size - 1);
}

QString slotText(const LeafSlot &slot, quint32 bufferSize)
{
    constexpr quint64 stateSize = 4;
    const QString state =
        slot.hasMetadata()
            ? QStringLiteral("error state in %1")
                  .arg(bytesText(quint64(slot.offset) + slot.relativeOffsetMetadata, stateSize))
            : QStringLiteral("no metadata");
    return QStringLiteral("%1 of %2, %3")
        .arg(bytesText(slot.offset, slot.isBit() ? 1 : qMax(slot.size, 1U)))
        .arg(bufferSize)
        .arg(state);
}

QString descriptionFacts(const Explanation &explanation, const DescriptionSource &description)
{
    const auto &place = explanation.place;
    const QString label = explanation.text(Definitions::getKeyDataPropertyLabelTextId());
    QString facts = factLine(
        QStringLiteral("Description"),
        place ? QStringLiteral("%1:%2:%3")
                    .arg(place->file, QString::number(place->line), QString::number(place->column))
              : description.path());
    facts += factLine(QStringLiteral("Type"), typeText(explanation));
    if (!label.isEmpty()) {
        facts += factLine(QStringLiteral("Label"), label);
    }
    return facts
           + factLine(QStringLiteral("Slot"), slotText(explanation.slot, description.bufferSize()));
}

QString bufferFacts(const Explanation &explanation)
{
    QString facts;
    for (const auto &buffer : explanation.buffers) {
        const QString name = explanation.buffers.size() == 1 ? QStringLiteral("Buffer")
                             : buffer.isRead                 ? QStringLiteral("Read buffer")
                                                             : QStringLiteral("Write buffer");
        const bool isKnown = buffer.value.getValue().isValid();
        facts += factLine(name, isKnown ? QStringLiteral("%1  %2  %3")
                                              .arg(hexText(buffer.bytes), contentOf(buffer.value),
                                                   stateOf(buffer.value))
                                        : QStringLiteral("no bytes of it can be read"));
    }
    if (const auto value = explanation.value()) {
        const StateMeaning meaning = stateMeaning(value->getErrorType());
        const QString letter = getNamurStateTypeAsString(meaning.namurState).trimmed();
        facts += factLine(QStringLiteral("State"),
                          QStringLiteral("%1: %2; %3")
                              .arg(stateOf(*value), meaning.text,
                                   letter.isEmpty() ? QStringLiteral("no NAMUR signal")
                                                    : QStringLiteral("NAMUR signal ") + letter));
    }
    return facts;
}

QString setText(const RegionLook &look, bool isDoubleBuffered)
{
    if (!look.swapCount()) {
        // A double buffer of another memory format, or of a creator without a lock, does not say it.
        return isDoubleBuffered ? QStringLiteral("unknown")
                                : QStringLiteral("not counted in a single buffer");
    }
    QString text = QStringLiteral("number %1").arg(*look.swapCount());
    if (look.lastSwap()) {
        text += QStringLiteral(", published %1 ago, at %2")
                    .arg(ageText(look.lastSwap()), look.lastSwap()->toString(Qt::ISODateWithMs));
    }
    return text;
}

QString lockText(const RegionLook &look)
{
    const RegionLock &lock = look.lock();
    const QString who = lock.holder ? look.nameOf(*lock.holder)
                                    : QStringLiteral("a process that cannot be seen");
    QString text;
    switch (lock.state) {
    case RegionLock::State::Unknown: return QStringLiteral("-");
    case RegionLock::State::Free: text = QStringLiteral("free"); break;
    case RegionLock::State::Kept:
        text = QStringLiteral("free, kept by %1 for its next write").arg(who);
        break;
    case RegionLock::State::Held: text = QStringLiteral("held by %1").arg(who); break;
    }
    if (lock.readers > 0) {
        text += QStringLiteral(", %1 readers inside").arg(lock.readers);
    }
    return lock.waiters > 0 ? text + QStringLiteral(", %1 wait").arg(lock.waiters) : text;
}

QString regionFacts(const RegionLook &look, const DescriptionSource &description)
{
    QString text = QStringLiteral("%1, %2 buffer")
                       .arg(description.segmentName(), description.isDoubleBuffered()
                                                           ? QStringLiteral("double")
                                                           : QStringLiteral("single"));
    if (look.fit() == RegionLook::Fit::Missing) {
        return factLine(QStringLiteral("Region"), text + QStringLiteral("; does not exist now"));
    }
    if (look.region().isReadable()) {
        text += QStringLiteral(", %1 bytes").arg(look.region().getSize());
    }
    const auto mirror = MirrorNote::find(description.key());
    return factLine(QStringLiteral("Region"), text)
           + (mirror ? factLine(QStringLiteral("Mirror"), mirror->text()) : QString())
           + factLine(QStringLiteral("Set"), setText(look, description.isDoubleBuffered()))
           + factLine(QStringLiteral("Creator"), creatorText(look.creator()))
           + factLine(QStringLiteral("Attached"), usersText(look.users(), look.areUsersComplete()))
           + factLine(QStringLiteral("Lock"), lockText(look));
}

QString screenOf(const Explanation &explanation, const RegionLook &look,
                 const DescriptionSource &description)
{
    return headline(explanation) + suspicionLines(explanation.suspicions) + QLatin1Char('\n')
           + descriptionFacts(explanation, description) + bufferFacts(explanation)
           + regionFacts(look, description);
}

/// Leads somebody who asks for a configuration value to where it is explained.
[[noreturn]] void refuseWithHint(Failure failure, const QString &path, const QString &url)
{
    if (isConfigurationValue(path, url)) {
        const int guess = failure.reason.lastIndexOf(QLatin1String(" (did you mean "));
        const QString hint = QStringLiteral("; it is a configuration value, which 'tessel explain "
                                            "--config' explains");
        // In front of what resembles it, which is known not to be meant.
        failure.reason.insert(guess < 0 ? failure.reason.size() : guess, hint);
    }
    throw failure;
}

DescriptionSource descriptionOf(const CommandLine &line)
{
    try {
        return DescriptionSource(line.positional(0));
    } catch (const Failure &failure) {
        refuseWithHint(failure, line.positional(0), line.positional(1));
    }
}

QVector<Leaf> leavesOf(const CommandLine &line, const DescriptionSource &description)
{
    const QStringList urls = line.positionalsFrom(1);
    for (const auto &url : urls) {
        try {
            description.leavesAt({url});
        } catch (const Failure &failure) {
            refuseWithHint(failure, description.path(), url);
        }
    }
    return description.leavesAt(urls);
}

ExitCode explainProcessValues(const CommandLine &line)
{
    const bool isJson = line.isSet(QStringLiteral("json"));
    const DescriptionSource description = descriptionOf(line);
    const QVector<Leaf> leaves = leavesOf(line, description);
    description.requireMemory();
    const RegionLook look(description);
    QStringList texts;
    const QVector<Explanation> explanations = explanationsOf(leaves, look, description);
    for (const auto &explanation : explanations) {
        texts.append(isJson ? explanationJson(explanation, look, description)
                            : screenOf(explanation, look, description));
    }
    writeOutput(isJson ? jsonArray(texts) + QLatin1Char('\n') : texts.join(QLatin1Char('\n')));
    if (look.fit() == RegionLook::Fit::OtherFormat) {
        refuseFormat(description);
    }
    requireMatchingRegion(look.region(), description);
    return ExitCode::Done;
}

ExitCode run(const CommandLine &line)
{
    if (line.isSet(QLatin1String(ExplainOption::config))) {
        return explainConfiguration(line);
    }
    if (line.isSet(QLatin1String(ExplainOption::value))) {
        throw Failure{ExitCode::WrongUse,
                      QStringLiteral("explain: --value goes with --config; see 'tessel explain "
                                     "--help'")};
    }
    return explainProcessValues(line);
}

} // namespace

Command explainCommand()
{
    CommandSyntax syntax;
    syntax.name = QStringLiteral("explain");
    syntax.summary = QStringLiteral("Tell all about a value, and what is suspicious about it.");
    syntax.positionals = {
        {QStringLiteral("FILE"),
         QStringLiteral("A process description, or a folder; with --config a configuration."),
         true},
        {QStringLiteral("URL..."),
         QStringLiteral("Leaves, or nodes for all leaves below; * and ** stand for any names.")}};
    syntax.leastPositionals = 2;
    syntax.mostPositionals = -1;
    syntax.options = {
        {QLatin1String(ExplainOption::config),
         QStringLiteral("Of configuration values; FILE is one, or an instance directory.")},
        {QLatin1String(ExplainOption::value),
         QStringLiteral("With --config: what a write of it would answer. Nothing is written."),
         QStringLiteral("TEXT")},
        {QLatin1String(ExplainOption::json), QStringLiteral("Print a JSON array.")}};
    syntax.examples = QStringLiteral(
        "  tessel explain host.process.json cpu/usage           why is this number wrong?\n"
        "  tessel explain --json host.process.json cpu/usage    for programs\n"
        "  tessel explain --config device inputs/channel1/filter    where from, who changed it\n"
        "  tessel explain --config device inputs/channel1/filter --value 61    may it be 61?\n");
    return {syntax, run};
}
