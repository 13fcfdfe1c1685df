#include "live/RegionFollower.h"

#include "text/Failure.h"
#include "text/LogCollector.h"

#include <utility>

RegionFollower::RegionFollower(const DescriptionSource &description) : m_description(description)
{
    attach();
}

int RegionFollower::descriptor()
{
    return m_watcher && isThere() ? m_watcher->getDescriptor() : -1;
}

bool RegionFollower::take()
{
    if (!isThere()) {
        return false;
    }
    if (m_watcher) {
        switch (m_watcher->acknowledge(m_seen)) {
        case ProcessDataWatcher::Result::NewSet: m_isOwed = true; break;
        case ProcessDataWatcher::Result::TimedOut: break;
        default: lose(); return false;
        }
    }
    if (m_watcher && !m_isOwed) {
        return false;
    }
    m_isOwed = !copy();
    return !m_isOwed;
}

void RegionFollower::look()
{
    if (!isThere()) {
        attachAgain();
    } else if (!m_region->isCurrent()) {
        lose();
    }
}

std::optional<QDateTime> RegionFollower::lastSwap() const
{
    return m_region ? m_region->inspection().getLastSwap() : std::nullopt;
}

RegionCreator RegionFollower::creator() const
{
    return m_region ? m_region->inspection().getCreator() : RegionCreator{};
}

void RegionFollower::attach()
{
    m_region.emplace(m_description, LiveRegion::Opening::Read);
    m_seen = 0;
    m_isOwed = true;
    if (m_description.isDoubleBuffered()) {
        m_watcher.emplace(m_region->manager());
        m_region->descriptorOf(*m_watcher);
    }
    m_absence.clear();
    m_hindrance.clear();
    ++m_attachments;
}

void RegionFollower::attachAgain()
{
    const RegionInspection found(m_description.key());
    if (!found.exists()) {
        m_absence = QStringLiteral("the region has gone, its creator has ended");
        return;
    }
    try {
        requireMatchingRegion(RegionInspection(m_description.root()), m_description);
        // The former one stays until then, and its values with it.
        m_watcher.reset();
        m_region.reset();
        m_set = {};
        attach();
    } catch (const Failure &failure) {
        m_watcher.reset();
        m_absence = failure.reason;
    }
    LogCollector::takeReasons();
}

void RegionFollower::lose()
{
    try {
        m_region->requireCurrent();
        m_absence = QStringLiteral("the region has gone");
    } catch (const Failure &failure) {
        m_absence = failure.code == ExitCode::LayoutMismatch
                        ? QStringLiteral("the region was replaced by a new one")
                        : QStringLiteral("the region has gone, its creator has ended");
    }
    m_hindrance.clear();
}

bool RegionFollower::isWriterInside() const
{
    return m_region->inspection().getLock().state == RegionLock::State::Held;
}

/// One attempt, and never a third in a row, for which a reader waits until a set begins.
bool RegionFollower::copy()
{
    // Of a single buffer a reader waits for the writer.
    if (!m_watcher && isWriterInside()) {
        m_hindrance = QStringLiteral("a writer is inside the lock");
        return false;
    }
    ProcessDataManager &manager = m_region->manager();
    bool isRepeated = false;
    manager.lockReadBuffer();
    const bool isTaken = m_next.take(manager);
    const bool isUnlocked = manager.unlockReadBuffer(isRepeated);
    LogCollector::takeReasons();
    if (isTaken && isUnlocked && !isRepeated) {
        std::swap(m_set, m_next);
        m_hindrance.clear();
        return true;
    }
    if (isRepeated) {
        // Nothing is so short that somebody would come in between.
        manager.lockReadBuffer();
        manager.unlockReadBuffer(isRepeated);
    }
    m_hindrance = QStringLiteral("no consistent set, writers are too fast");
    return false;
}
