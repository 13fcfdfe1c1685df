#include "commands/Recorder.h"

#include "text/CountText.h"
#include "text/Failure.h"
#include "text/LogCollector.h"
#include "text/Output.h"
#include "text/WrittenJson.h"

#include <QDateTime>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>

namespace {

using std::chrono::duration_cast;
using std::chrono::microseconds;

constexpr std::chrono::seconds tellInterval{1};
constexpr std::chrono::seconds lookInterval{1};
constexpr int usualChanges = 4096;

QString now()
{
    return QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs);
}

QByteArray json(const QJsonObject &object)
{
    return WrittenJson::withEscapedMarks(QJsonDocument(object).toJson(QJsonDocument::Compact));
}

QString endText(Recorder::End end)
{
    switch (end) {
    case Recorder::End::Interrupted: return QStringLiteral("interrupted");
    case Recorder::End::Time: return QStringLiteral("time");
    case Recorder::End::Sets: return QStringLiteral("sets");
    case Recorder::End::Triggers: return QStringLiteral("triggers");
    case Recorder::End::RegionGone: break;
    }
    return QStringLiteral("region gone");
}

} // namespace

Recorder::Recorder(LiveRegion &region, const QVector<Leaf> &leaves,
                   const QVector<RecordedValue> &values, const RecorderOptions &options,
                   RecordingWriter &writer)
    : m_region(region)
    , m_options(options)
    , m_writer(writer)
    , m_watcher(region.manager())
    , m_layout(values)
    , m_copies(slotsOf(leaves), m_layout)
{
    // Else what is emptied gives its memory away.
    m_changes.reserve(usualChanges);
    if (options.ring) {
        m_ring.emplace(m_layout, *options.ring, sm_mostRingBytes);
    }
    if (options.time) {
        m_end = m_begin + *options.time;
    }
    if (!options.interval) {
        region.descriptorOf(m_watcher);
    }
}

Recorder::End Recorder::run(SignalWait &signals)
{
    std::optional<End> end;
    while (!end) {
        end = step(signals);
    }
    if (*end == End::Interrupted || *end == End::Time) {
        takeLast();
        // A watcher looks for that once a second.
        end = m_region.isCurrent() ? end : End::RegionGone;
    }
    finish(*end);
    return *end;
}

/// What it ends with, if it does.
std::optional<Recorder::End> Recorder::step(SignalWait &signals)
{
    // The interval has no descriptor to wait for.
    const int descriptor = m_options.interval ? -1 : m_watcher.getDescriptor();
    const SignalWait::Event event = signals.waitUntilReadable(descriptor, nextDeadline());
    std::optional<End> end;
    if (event == SignalWait::Event::End) {
        return End::Interrupted;
    }
    if (event == SignalWait::Event::Readable) {
        end = acknowledge();
    } else if (m_options.interval && Clock::now() >= m_nextTick) {
        end = tick();
    }
    return end ? end : due();
}

std::optional<Recorder::End> Recorder::acknowledge()
{
    const ProcessDataWatcher::Result result = m_watcher.acknowledge(m_seen);
    if (result == ProcessDataWatcher::Result::NewSet) {
        take();
        return {};
    }
    return result == ProcessDataWatcher::Result::TimedOut ? std::optional<End>() : End::RegionGone;
}

std::optional<Recorder::End> Recorder::tick()
{
    m_nextTick += *m_options.interval;
    // What was missed is not made up for.
    if (m_nextTick <= Clock::now()) {
        m_nextTick = Clock::now() + *m_options.interval;
    }
    if (!m_region.isCurrent()) {
        return End::RegionGone;
    }
    if (m_watcher.getGeneration() != m_generation) {
        take();
    }
    return {};
}

/// What was published before the end belongs to it, though it was not told of in time.
void Recorder::takeLast()
{
    if (!m_options.interval && m_watcher.getGeneration() != m_generation) {
        take();
    }
}

void Recorder::take()
{
    // One that could not be had whole is missing in the generations, and so it is counted.
    if (!m_set.take(m_region.manager())) {
        LogCollector::takeReasons();
        return;
    }
    if (m_set.getGeneration() == m_generation) {
        return;
    }
    const Clock::time_point now = Clock::now();
    const SetFacts facts = factsOf(now);
    std::vector<const RecordTrigger *> triggers;
    for (const auto &trigger : m_options.triggers) {
        if (trigger->comesWith(m_set, now, facts.dropped == 0)) {
            triggers.push_back(trigger.get());
        }
    }
    m_generation = facts.generation;
    m_dropped += facts.dropped;
    m_untold += facts.dropped;
    m_changes.resize(0);
    m_copies.take(m_set.getBytes(), m_changes);
    ++m_taken;
    keep(facts, triggers);
}

SetFacts Recorder::factsOf(Clock::time_point now) const
{
    const bool isCounted = m_generation != 0 && !m_options.interval;
    const auto wall = std::chrono::system_clock::now().time_since_epoch();
    const quint64 generation = m_set.getGeneration();
    return {generation, isCounted ? generation - m_generation - 1 : 0,
            duration_cast<microseconds>(wall).count(),
            static_cast<quint64>(duration_cast<microseconds>(now - m_begin).count())};
}

void Recorder::keep(const SetFacts &facts, const std::vector<const RecordTrigger *> &triggers)
{
    save(triggers);
    if (m_ring && !m_saveUntil) {
        m_ring->add(facts, m_changes, m_copies.image());
        return;
    }
    if (m_isWholeDue) {
        if (!m_ring) {
            beginRun({});
        }
        m_writer.addWholeSet(facts, m_copies.image());
        m_isWholeDue = false;
    } else {
        m_writer.addChangedSet(facts, m_changes);
    }
}

/// What was before the triggers, and the triggers.
void Recorder::save(const std::vector<const RecordTrigger *> &triggers)
{
    if (triggers.empty()) {
        return;
    }
    if (!m_saveUntil) {
        beginRun(triggers.front()->text());
        m_isWholeDue = m_ring->isEmpty();
        m_ring->moveTo(m_writer);
    }
    for (const RecordTrigger *const trigger : triggers) {
        m_writer.addJson(RecordingFormat::Trigger, json({{QStringLiteral("on"), trigger->text()},
                                                         {QStringLiteral("time"), now()}}));
        ++m_triggered;
    }
    m_saveUntil = Clock::now() + m_options.after;
}

void Recorder::beginRun(const QString &on)
{
    m_writer.addJson(RecordingFormat::Run,
                     json({{QStringLiteral("time"), now()},
                           {QStringLiteral("on"),
                            on.isEmpty() ? QJsonValue(QJsonValue::Null) : QJsonValue(on)}}));
}

void Recorder::lookAtGaps()
{
    const Clock::time_point now = Clock::now();
    std::vector<const RecordTrigger *> triggers;
    for (const auto &trigger : m_options.triggers) {
        const auto deadline = trigger->deadline();
        // A set that is there already is late here alone.
        if (deadline && now > *deadline && m_watcher.getGeneration() == m_generation
            && trigger->comesWithoutSet(now)) {
            triggers.push_back(trigger.get());
        }
    }
    save(triggers);
}

std::optional<Recorder::End> Recorder::due()
{
    lookAtGaps();
    const Clock::time_point now = Clock::now();
    if (now >= m_nextTelling) {
        tellDropped();
    }
    if (now >= m_nextLook) {
        // A ring writes nothing for long.
        m_writer.requireUntouched();
        m_nextLook = now + lookInterval;
    }
    if (m_saveUntil && now >= *m_saveUntil) {
        m_saveUntil.reset();
        ++m_saved;
    }
    if (m_options.episodes != 0 && m_saved >= m_options.episodes) {
        return End::Triggers;
    }
    if (m_options.sets != 0 && m_taken >= m_options.sets) {
        return End::Sets;
    }
    return now >= m_end ? std::make_optional(End::Time) : std::nullopt;
}

Recorder::Clock::time_point Recorder::nextDeadline() const
{
    // The kernel counts them in milliseconds, and an hour is far enough.
    Clock::time_point next = std::min(m_end, Clock::now() + std::chrono::hours(1));
    if (m_options.interval) {
        next = std::min(next, m_nextTick);
    }
    if (m_saveUntil) {
        next = std::min(next, *m_saveUntil);
    }
    if (m_untold != 0) {
        next = std::min(next, m_nextTelling);
    }
    for (const auto &trigger : m_options.triggers) {
        // One that waits for a gap comes behind it.
        next = std::min(next, trigger->deadline().value_or(next) + microseconds(1));
    }
    return next;
}

void Recorder::tellDropped()
{
    if (m_untold != 0) {
        writeErrorLine(QStringLiteral("tessel: note: dropped %1 up to generation %2, %3 so far")
                           .arg(countText(m_untold, QStringLiteral("set")))
                           .arg(m_generation)
                           .arg(m_dropped));
        m_untold = 0;
        m_nextTelling = Clock::now() + tellInterval;
    }
}

void Recorder::finish(End end)
{
    // Without a trigger the end is what is waited for.
    if (m_ring && m_options.triggers.empty() && !m_ring->isEmpty()) {
        beginRun({});
        m_ring->moveTo(m_writer);
    }
    m_writer.addJson(RecordingFormat::End,
                     json({{QStringLiteral("time"), now()},
                           {QStringLiteral("reason"), endText(end)},
                           {QStringLiteral("sets"), static_cast<double>(m_writer.sets())},
                           {QStringLiteral("dropped"), static_cast<double>(m_writer.dropped())}}));
    tellDropped();
}

microseconds Recorder::time() const
{
    return duration_cast<microseconds>(Clock::now() - m_begin);
}
