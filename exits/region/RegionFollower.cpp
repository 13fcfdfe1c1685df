#include "region/RegionFollower.h"

#include "Access/ProcessDataNotifier.h"
#include "service/Refusal.h"
#include "service/ServiceLog.h"

#include <QFileInfo>

#include <chrono>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;

/// From one look at a single buffer to the next, unless somebody wants them more rarely.
constexpr int pollInterval = 100;
/// Looks at a lock that is held, a millisecond apart. Who is at work inside leaves sooner.
constexpr int mostLooksAtLock = 50;
/// Who holds the lock for so long was stopped, and is worth a line.
constexpr int longestHold = 1000;
/// Until a set was looked at without another one in between.
constexpr int mostTakes = 11;

} // namespace

RegionFollower::RegionFollower(const QString &path, int leastInterval, Use use, QObject *parent)
    : QObject(parent)
    , m_path(path)
    , m_leastInterval(leastInterval)
    , m_use(use)
    , m_stamp(DescriptionTree::stampOf(path))
    , m_tree(DescriptionTree::read(path))
    , m_timer(this)
    , m_poll(this)
{
    m_timer.setSingleShot(true);
    connect(&m_timer, &QTimer::timeout, this, &RegionFollower::look);
    m_poll.setInterval(leastInterval > 0 ? leastInterval : pollInterval);
    connect(&m_poll, &QTimer::timeout, this, &RegionFollower::handlePublished);
    look();
}

RegionFollower::~RegionFollower()
{
    delete m_notifier;
}

QStringList RegionFollower::devices() const
{
    QStringList names;
    for (const auto &leaf : m_tree.leaves) {
        if (!names.contains(leaf.device)) {
            names.append(leaf.device);
        }
    }
    return names;
}

bool RegionFollower::takeSet()
{
    m_set = {};
    m_setTime.reset();
    return isUp() && (m_tree.isDoubleBuffered || isLockFree(Access::Reading)) && takeSetWithTime();
}

/// Count and time are no part of the copy: they belong to it if no other set came until they were read.
bool RegionFollower::takeSetWithTime()
{
    for (int i = 0; i < mostTakes; ++i) {
        if (!m_set.take(*m_manager)) {
            return false;
        }
        const auto time = m_region->getLastSwap();
        const auto count = m_region->getSwapCount();
        if (!count || *count == m_set.getGeneration()) {
            m_setTime = count ? time : std::nullopt;
            break;
        }
    }
    return true;
}

std::optional<quint64> RegionFollower::setCount() const
{
    return m_tree.isDoubleBuffered && !m_set.isEmpty() ? std::make_optional(m_set.getGeneration())
                                                       : std::nullopt;
}

bool RegionFollower::isLockFree(Access access)
{
    const auto isFreeNow = [&] {
        const RegionLock lock = m_region->getLock();
        return lock.state != RegionLock::State::Held
               && (access == Access::Reading || lock.readers == 0);
    };
    bool isFree = isFreeNow();
    // Once it was too long nobody is waited for, however often somebody asks.
    const int most = m_sinceLockHeld.isValid() ? 1 : mostLooksAtLock;
    for (int looks = 1; !isFree && looks < most; ++looks) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        isFree = isFreeNow();
    }
    noteLock(isFree);
    return isFree;
}

void RegionFollower::noteLock(bool isFree)
{
    if (isFree) {
        m_sinceLockHeld.invalidate();
        if (m_isLockTold) {
            ServiceLog::notice(
                QStringLiteral("the lock of region '%1' is free again").arg(m_tree.key));
        }
        m_isLockTold = false;
        return;
    }
    if (!m_sinceLockHeld.isValid()) {
        m_sinceLockHeld.start();
    } else if (!m_isLockTold && m_sinceLockHeld.hasExpired(longestHold)) {
        m_isLockTold = true;
        ServiceLog::warning(lockProblem());
    }
}

QString RegionFollower::lockProblem() const
{
    const std::optional<qint64> holder = m_region->getLock().holder;
    return QStringLiteral(
               "%1 holds the lock of region '%2' and does not leave it; have it go on, or end it: "
               "'tessel doctor' looks at the region")
        .arg(holder ? QStringLiteral("process %1").arg(*holder) : QStringLiteral("another process"),
             m_tree.key);
}

ProcessValue RegionFollower::value(int leaf) const
{
    ProcessValue value(ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE);
    const auto &element = m_tree.leaves[leaf].element;
    if (isUp() && element && !m_set.isEmpty()) {
        m_set.getValue(*element, value);
    }
    return value;
}

std::optional<quint64> RegionFollower::swapCount() const
{
    return m_region ? m_region->getSwapCount() : std::nullopt;
}

std::optional<QDateTime> RegionFollower::lastSwap() const
{
    return m_region ? m_region->getLastSwap() : std::nullopt;
}

void RegionFollower::lookNow()
{
    // A region that is not there is looked for at its own pace, however often somebody asks.
    if (m_manager) {
        look();
    }
}

void RegionFollower::look()
{
    if (m_manager) {
        lookAfterRegion();
    } else {
        lookForRegion();
    }
    m_timer.start(intervalOfLooks(m_manager != nullptr, m_failures));
}

void RegionFollower::lookForRegion()
{
    // Read again when it was written since, and before each attachment: a tree is bound once.
    const QString stamp = DescriptionTree::stampOf(m_path);
    if ((stamp != m_stamp || m_isBound) && !readAgain()) {
        return;
    }
    const RegionInspection look(m_tree.key);
    if (DescribedRegion::isMissing(look, m_tree.key)) {
        m_failures = 0;
        tellMissing();
        return;
    }
    if (!m_tree.isPublished(look)) {
        m_failures = 0;
        tellAbsence(unpublishedText());
        return;
    }
    // Of the region that is compared here it is told later whether its name leads to it still.
    const RegionInspection region(m_tree.root);
    const QString problem = m_tree.problemOf(region);
    if (problem.isEmpty()) {
        m_region.emplace(region);
        attach();
    } else if (!DescribedRegion::isMissing(region, m_tree.key)) {
        ++m_failures;
        tellAbsence(problem);
    }
}

QString RegionFollower::unpublishedText() const
{
    return m_tree.isDoubleBuffered
               ? QStringLiteral(
                     "region '%1' is there, but holds no set that could be read by %2: its "
                     "creator is about to make it, or has another description")
                     .arg(m_tree.key, m_path)
               : QStringLiteral(
                     "region '%1' is there, but its semaphores are not, or are not for this "
                     "user: its creator is about to make them, or has to be started again")
                     .arg(m_tree.key);
}

bool RegionFollower::readAgain()
{
    try {
        const QString stamp = DescriptionTree::stampOf(m_path);
        m_tree = DescriptionTree::read(m_path);
        m_stamp = stamp;
        m_isBound = false;
    } catch (const Refusal &refusal) {
        ++m_failures;
        tellAbsence(refusal.text);
        return false;
    }
    Q_EMIT leavesChanged();
    return true;
}

void RegionFollower::attach()
{
    const LibraryReasons reasons;
    m_isBound = true;
    m_manager = std::make_unique<ProcessDataManager>();
    if (m_use == Use::Reading || (m_use == Use::Watching && !mayBeWoken())) {
        m_manager->setAccessMode(SharedMemory::ReadOnly);
    }
    const bool isAttached =
        !m_manager->createProcessData(m_tree.root, ProcessDataManager::InitTypeSharedMemoryAttach)
             .isNull();
    // It may have been replaced between the look and the attachment.
    if (!isAttached || m_region->getName() != RegionInspection::Name::Current) {
        m_manager.reset();
        m_region.reset();
        ++m_failures;
        tellAbsence(QStringLiteral("region '%1' cannot be attached: %2; trying again")
                        .arg(m_tree.key, isAttached ? QStringLiteral("it was replaced meanwhile")
                                                    : reasons.text()));
        return;
    }
    checkSlots();
    m_failures = 0;
    m_creator.start(isCreatorDead(), swapCount().value_or(0), Clock::now());
    watch();
    if (m_creator.isLeft()) {
        tellAbsence(QStringLiteral("the creator of region '%1' has died; waiting for a new one")
                        .arg(m_tree.key));
        return;
    }
    m_absence.clear();
    ServiceLog::notice(QStringLiteral("attached to region '%1' of %2").arg(m_tree.key, m_path));
    Q_EMIT upChanged(true);
}

bool RegionFollower::mayBeWoken() const
{
    return QFileInfo(QStringLiteral("/dev/shm/%1SharedMemory").arg(m_tree.key)).isWritable();
}

void RegionFollower::checkSlots()
{
    for (auto &leaf : m_tree.leaves) {
        const LibraryReasons reasons;
        if (!leaf.element->isObjectValid()) {
            ServiceLog::warning(QStringLiteral("'%1' of %2 has no usable slot: %3; 'tessel "
                                               "validate' shows where")
                                    .arg(leaf.url, m_path, reasons.text()));
            leaf.element.reset();
        }
    }
}

void RegionFollower::watch()
{
    if (!m_tree.isDoubleBuffered) {
        m_poll.start();
        return;
    }
    m_notifier = new ProcessDataNotifier(*m_manager, this);
    m_notifier->setLeastInterval(m_leastInterval);
    connect(m_notifier, &ProcessDataNotifier::published, this, &RegionFollower::handlePublished);
    connect(m_notifier, &ProcessDataNotifier::regionGone, this, [this] {
        // The notifier is the sender, and goes with the region.
        QTimer::singleShot(0, this, &RegionFollower::look);
    });
}

void RegionFollower::handlePublished()
{
    if (m_creator.isLeft()) {
        m_creator.handleSet(isCreatorDead(), swapCount().value_or(0), Clock::now());
        if (!m_creator.isLeft()) {
            tellReturn();
        }
    }
    if (isUp()) {
        Q_EMIT setPublished();
    }
}

void RegionFollower::lookAfterRegion()
{
    switch (m_region->getName()) {
    case RegionInspection::Name::Current: break;
    case RegionInspection::Name::Replaced:
        detach(
            QStringLiteral("region '%1' was replaced; attaching to the new one").arg(m_tree.key));
        lookForRegion();
        return;
    case RegionInspection::Name::Removed:
        detach(QStringLiteral("region '%1' has gone, its creator has ended; waiting for it to come "
                              "back")
                   .arg(m_tree.key));
        m_isMissingTold = true;
        return;
    }
    lookAfterCreator();
}

bool RegionFollower::isCreatorDead() const
{
    return m_region->getCreator().isAlive == false;
}

void RegionFollower::lookAfterCreator()
{
    const bool wasLeft = m_creator.isLeft();
    m_creator.look(isCreatorDead(), swapCount().value_or(0), Clock::now());
    if (wasLeft && !m_creator.isLeft()) {
        tellReturn();
    } else if (!wasLeft && m_creator.isLeft()) {
        m_set = {};
        m_setTime.reset();
        tellAbsence(QStringLiteral("the creator of region '%1' has died; waiting for a new one")
                        .arg(m_tree.key));
        Q_EMIT upChanged(false);
    }
}

void RegionFollower::tellReturn()
{
    m_absence.clear();
    ServiceLog::notice(
        QStringLiteral("region '%1' of %2 is published into again").arg(m_tree.key, m_path));
    Q_EMIT upChanged(true);
}

void RegionFollower::detach(const QString &why)
{
    const bool wasUp = isUp();
    Q_EMIT aboutToDetach();
    if (m_notifier != nullptr) {
        m_notifier->disconnect(this);
        delete m_notifier;
        m_notifier = nullptr;
    }
    m_poll.stop();
    m_sinceLockHeld.invalidate();
    m_isLockTold = false;
    m_set = {};
    m_setTime.reset();
    for (auto &leaf : m_tree.leaves) {
        leaf.element.reset();
    }
    m_tree.root.reset();
    m_manager.reset();
    m_region.reset();
    m_creator = {};
    tellAbsence(why);
    if (wasUp) {
        Q_EMIT upChanged(false);
    }
}

void RegionFollower::tellMissing()
{
    // Of one that has gone it was told already.
    if (!m_isMissingTold) {
        tellAbsence(QStringLiteral("no region '%1' is there; waiting for the process that creates "
                                   "it")
                        .arg(m_tree.key));
        m_isMissingTold = true;
    }
}

void RegionFollower::tellAbsence(const QString &why)
{
    m_isMissingTold = false;
    if (why != m_absence) {
        m_absence = why;
        ServiceLog::warning(why);
        Q_EMIT absenceChanged();
    }
}
