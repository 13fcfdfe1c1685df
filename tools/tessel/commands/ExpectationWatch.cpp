#include "commands/ExpectationWatch.h"

#include "Access/ProcessDataWatcher.h"
#include "expressions/Duration.h"
#include "live/ConsistentRead.h"
#include "live/RegionWait.h"
#include "text/Failure.h"

#include <QDateTime>

#include <algorithm>
#include <thread>

namespace {

using End = ExpectationOutcome::End;
using std::chrono::microseconds;
using std::chrono::milliseconds;

/// A single buffer tells of no sets, and time passes without any.
constexpr milliseconds pollInterval{20};

/// A writer is inside for microseconds.
constexpr milliseconds lockInterval{1};
constexpr milliseconds shortestLockWait{100};

/// From the clock of the machine; nothing where that went back since.
std::optional<microseconds> timeSince(const std::optional<QDateTime> &moment)
{
    const qint64 passed = moment ? moment->msecsTo(QDateTime::currentDateTimeUtc()) : -1;
    return passed < 0 ? std::nullopt : std::make_optional<microseconds>(milliseconds(passed));
}

} // namespace

ExpectationWatch::ExpectationWatch(const DescriptionSource &description,
                                   const Expectation &expectation, const ExpectationBounds &bounds)
    : m_description(description)
    , m_expectation(expectation)
    , m_bounds(bounds)
    , m_isPolled(expectation.usesAge() || !description.isDoubleBuffered())
    , m_deadline(bounds.timeout ? Clock::now() + *bounds.timeout : Clock::time_point::max())
{
}

ExpectationOutcome ExpectationWatch::run()
{
    while (true) {
        awaitRegion();
        try {
            LiveRegion region(m_description, LiveRegion::Opening::Read);
            region.requireUsable(m_expectation.leaves());
            if (const auto outcome = follow(region)) {
                return *outcome;
            }
        } catch (const Failure &failure) {
            if (!mayHaveVanished(failure.code)) {
                throw;
            }
        }
        m_holdsSince.reset();
        m_publishedAfter.reset();
        m_generation = 0;
        std::this_thread::sleep_for(pollInterval);
    }
}

/// A region may go, or be taken away for a new one, at any moment of an attachment or a read.
bool ExpectationWatch::mayHaveVanished(ExitCode code) const
{
    return m_bounds.timeout && Clock::now() < m_deadline
           && (code == ExitCode::NotFound || code == ExitCode::NoAccess);
}

void ExpectationWatch::awaitRegion() const
{
    if (!m_bounds.timeout) {
        return;
    }
    const QString within = durationText(*m_bounds.timeout);
    switch (waitUntilPublished(m_description, m_deadline)) {
    case RegionProgress::Published: return;
    case RegionProgress::Silent:
        throw Failure{ExitCode::TimedOut,
                      QStringLiteral("%1: nothing was published in region '%2' within %3")
                          .arg(m_description.path(), m_description.key(), within)};
    case RegionProgress::Missing: break;
    }
    throw Failure{ExitCode::TimedOut, QStringLiteral("%1: no region '%2' within %3")
                                          .arg(m_description.path(), m_description.key(), within)};
}

/// Nothing if the region has gone or was replaced, or has no set yet, and may be waited for.
std::optional<ExpectationOutcome> ExpectationWatch::follow(LiveRegion &region)
{
    ProcessDataWatcher watcher(region.manager());
    while (true) {
        ExpectationOutcome seen = look(region);
        // What holds in memory that nobody else sees any more says nothing.
        if (m_bounds.timeout && !region.isCurrent()) {
            return {};
        }
        region.requireCurrent();
        if (seen.generation == quint64{0}) {
            if (m_bounds.timeout) {
                return {};
            }
            region.requirePublished(0);
        }
        if (isEnd(seen)) {
            return seen;
        }
        const auto left = std::chrono::ceil<milliseconds>(nextLook() - Clock::now());
        const milliseconds bound = std::max(left, milliseconds(0));
        quint64 generation = m_generation;
        if (watcher.wait(generation, bound) == ProcessDataWatcher::Result::NotSupported) {
            std::this_thread::sleep_for(bound);
        }
    }
}

ExpectationOutcome ExpectationWatch::look(LiveRegion &region)
{
    ExpectationOutcome seen{};
    const Clock::time_point formerLook = m_lookBegan;
    m_lookBegan = Clock::now();
    if (m_description.isDoubleBuffered()) {
        readWithAge(region, seen.set, formerLook);
        seen.generation = m_generation;
    } else {
        awaitLock(region);
        seen.set.values = region.read(m_expectation.leaves());
    }
    seen.result = m_expectation.resultOf(seen.set);
    return seen;
}

/// A read of a single buffer would sleep as long as the library lets it, whatever the timeout. Who takes the
/// lock between this look and the read still makes it sleep.
void ExpectationWatch::awaitLock(const LiveRegion &region) const
{
    if (!m_bounds.timeout) {
        return;
    }
    // Also at the end of the time a writer gets as long as writing takes.
    const Clock::time_point end = std::max(m_deadline, Clock::now() + shortestLockWait);
    while (region.inspection().getLock().state == RegionLock::State::Held) {
        if (Clock::now() >= end) {
            throw Failure{ExitCode::TimedOut,
                          QStringLiteral("%1: another process has held the lock of region '%2' "
                                         "until the end of %3")
                              .arg(m_description.path(), m_description.key(),
                                   durationText(*m_bounds.timeout))};
        }
        std::this_thread::sleep_for(lockInterval);
    }
}

/// The time of publication is that of the newest set, which has to be the one that was read.
void ExpectationWatch::readWithAge(LiveRegion &region, ExpectedSet &set,
                                   Clock::time_point formerLook)
{
    for (int attempt = 0; attempt < mostReadAttempts; ++attempt) {
        quint64 generation = 0;
        set.values = region.read(m_expectation.leaves(), generation);
        if (m_generation != 0 && generation != m_generation) {
            m_publishedAfter = formerLook;
        }
        m_generation = generation;
        const std::optional<QDateTime> published = region.inspection().getLastSwap();
        set.age = timeSince(published);
        if (region.inspection().getSwapCount() == generation) {
            break;
        }
    }
    // It is noted a little behind the set, so it may still be that of the one before.
    if (set.age && m_publishedAfter) {
        const auto most = std::chrono::duration_cast<microseconds>(Clock::now()
                                                                   - *m_publishedAfter);
        set.age = std::min(*set.age, most);
    }
}

bool ExpectationWatch::isEnd(ExpectationOutcome &seen)
{
    const Clock::time_point now = Clock::now();
    const bool holds = seen.result.holds();
    // From the end of the first look to the beginning of this one: that much it has held for certain.
    if (m_holdsSince && m_lookBegan > *m_holdsSince) {
        seen.held = std::chrono::duration_cast<microseconds>(m_lookBegan - *m_holdsSince);
    }
    m_holdsSince = holds ? m_holdsSince.value_or(now) : std::optional<Clock::time_point>();
    if (holds && seen.held >= m_bounds.hold) {
        seen.end = End::Met;
        return true;
    }
    if (!holds && !m_bounds.timeout) {
        seen.end = End::NotMet;
        return true;
    }
    seen.end = End::TimedOut;
    return now >= m_deadline;
}

ExpectationWatch::Clock::time_point ExpectationWatch::nextLook() const
{
    Clock::time_point next = m_deadline;
    if (m_holdsSince) {
        next = std::min(next, *m_holdsSince + m_bounds.hold);
    }
    return m_isPolled ? std::min(next, Clock::now() + pollInterval) : next;
}
