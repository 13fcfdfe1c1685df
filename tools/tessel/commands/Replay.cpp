#include "commands/Replay.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "text/Output.h"

#include <algorithm>

namespace {

using std::chrono::microseconds;

/// How often it is looked whether the region is still there.
constexpr std::chrono::milliseconds lookInterval{200};
/// Farther away than any recorder goes on; a broken time is no reason to wait for ever.
constexpr double longestWait = 30.0 * 24 * 3600 * 1e6;

} // namespace

Replay::Replay(RecordingReader &reader, LiveRegion &region, const QVector<Leaf> &leaves,
               double speed)
    : m_reader(reader)
    , m_region(region)
    , m_leaves(leaves)
    , m_speed(speed)
    , m_values(reader.head(), reader.layout())
{
}

Replay::End Replay::run(SignalWait &signals)
{
    RecordedSet set;
    while (m_reader.next(set)) {
        if (!waitFor(set, signals)) {
            return End::Interrupted;
        }
        publish(set);
    }
    return End::Whole;
}

/// False if somebody ends it meanwhile.
bool Replay::waitFor(const RecordedSet &set, SignalWait &signals)
{
    if (set.beginsRun) {
        m_runBegin = Clock::now();
        m_runElapsed = set.facts.elapsed;
    }
    const double passed = set.facts.elapsed < m_runElapsed
                              ? 0
                              : static_cast<double>(set.facts.elapsed - m_runElapsed);
    const microseconds wait(static_cast<qint64>(std::min(passed / m_speed, longestWait)));
    const Clock::time_point due = m_runBegin + wait;
    while (true) {
        const Clock::time_point now = Clock::now();
        if (now >= m_nextLook) {
            m_region.requireCurrent();
            m_nextLook = now + lookInterval;
        }
        // Signals count also where there is no time to wait.
        if (signals.waitUntil(std::min(due, m_nextLook)) == SignalWait::Event::End) {
            return false;
        }
        if (Clock::now() >= due) {
            break;
        }
    }
    m_lag = std::max(m_lag, std::chrono::duration_cast<microseconds>(Clock::now() - due));
    return true;
}

void Replay::publish(const RecordedSet &set)
{
    m_values.show(set.image);
    m_writes.clear();
    for (const int changed : set.changed) {
        const Leaf &leaf = m_leaves[changed];
        if (leaf.element) {
            append(changed);
        }
    }
    m_region.write(m_writes);
    ++m_sets;
    m_dropped += set.facts.dropped;
}

void Replay::append(int index)
{
    const Leaf &leaf = m_leaves[index];
    const ProcessValue value = m_values.value(index);
    const RecordedValue &recorded = m_reader.head().values[index];
    if (recorded.type != ConfigurationAndProcessDataDefinitions::getKeyDataTypeString()) {
        m_writes.append({leaf, value});
        return;
    }
    const auto units = static_cast<int>(recorded.size / sizeof(ushort));
    const QString text = value.getValue().toString();
    if (units == 0) {
        noteOnce(leaf, QStringLiteral("is left out: a text of %1 bytes").arg(recorded.size));
    } else if (text.size() < units) {
        m_writes.append({leaf, value});
    } else {
        noteOnce(leaf, QStringLiteral("is cut: its text filled the slot without a closing zero, "
                                      "which is written in the place of the last character"));
        m_writes.append({leaf, {text.left(units - 1), value.getErrorType()}});
    }
}

void Replay::noteOnce(const Leaf &leaf, const QString &what)
{
    if (!m_noted.contains(leaf.url)) {
        m_noted.insert(leaf.url);
        writeErrorLine(QStringLiteral("tessel: note: '%1' %2").arg(leaf.url, what));
    }
}

microseconds Replay::time() const
{
    return std::chrono::duration_cast<microseconds>(Clock::now() - m_begin);
}
