#include "Access/ProcessDataNotifier.h"
#include "TesselModels/LeafWriting_p.h"
#include "TesselModels/RegionWorker_p.h"

#include <algorithm>
#include <chrono>
#include <utility>

using Clock = std::chrono::steady_clock;

RegionWorker::RegionWorker(std::shared_ptr<SetMailbox> mailbox)
    : m_mailbox(std::move(mailbox))
    , m_timer(this)
    , m_pollTimer(this)
    , m_delivered(std::make_shared<ShownSet>())
    , m_shown(m_delivered)
{
    m_timer.setSingleShot(true);
    connect(&m_timer, &QTimer::timeout, this, &RegionWorker::look);
    connect(&m_pollTimer, &QTimer::timeout, this, &RegionWorker::showNewest);
}

RegionWorker::~RegionWorker()
{
    detach();
}

void RegionWorker::setPath(const QString &path)
{
    detach();
    m_path = path;
    m_stamp.clear();
    m_reading = {};
    m_description.reset();
    m_isBound = false;
    m_failures = 0;
    m_hasGone = false;
    m_timer.stop();
    showAbsence({});
    if (!m_path.isEmpty()) {
        look();
    }
}

void RegionWorker::setEnabled(bool isEnabled)
{
    m_isEnabled = isEnabled;
    if (isEnabled && !m_path.isEmpty()) {
        look();
    } else if (!isEnabled) {
        m_timer.stop();
        detach();
        showAbsence({});
    }
}

void RegionWorker::setUpdateInterval(int milliseconds)
{
    m_updateInterval = milliseconds;
    m_pollTimer.setInterval(std::max(milliseconds, 1));
    if (m_notifier != nullptr) {
        m_notifier->setLeastInterval(milliseconds);
    }
}

void RegionWorker::look()
{
    if (!m_isEnabled) {
        return;
    }
    if (m_manager) {
        lookAfterRegion();
    } else {
        lookForRegion();
    }
    m_timer.start(intervalOfLooks(m_manager != nullptr, m_failures));
}

void RegionWorker::lookForRegion()
{
    // Read again when it was written since, and before each attachment: a tree is bound once.
    const QString stamp = DescribedRegion::stampOf(m_path);
    if ((stamp != m_stamp || m_isBound || !m_reading.problem.isEmpty()) && !readAgain()) {
        return;
    }
    const RegionInspection look(m_reading.key);
    if (DescribedRegion::isMissing(look, m_reading.key) || !m_reading.isPublished(look)) {
        m_failures = 0;
        showMissing();
        return;
    }
    // Of the region that is compared here it is told later whether its name leads to it still.
    const RegionInspection region(m_reading.root);
    const QString problem = m_reading.problemOf(region);
    if (problem.isEmpty()) {
        m_region.emplace(region);
        attach();
    } else if (!DescribedRegion::isMissing(region, m_reading.key)) {
        ++m_failures;
        showAbsence(problem);
    }
}

/// That a region has gone stays said, however often somebody looks for another one.
void RegionWorker::showMissing()
{
    const QString text =
        m_hasGone ? QStringLiteral("region '%1' has gone; start the program that creates it")
                  : QStringLiteral("no region '%1' is there; start the program that creates it");
    showAbsence(text.arg(m_reading.key));
}

bool RegionWorker::readAgain()
{
    m_stamp = DescribedRegion::stampOf(m_path);
    m_isBound = false;
    m_reading = DescriptionReading::read(m_path);
    if (!m_reading.problem.isEmpty()) {
        ++m_failures;
        showAbsence(m_reading.problem);
        return false;
    }
    // Models that show the same leaves as before keep their rows.
    if (!m_description || m_description->leaves != m_reading.description->leaves) {
        m_description = m_reading.description;
    }
    return true;
}

void RegionWorker::attach()
{
    m_isBound = true;
    m_manager = std::make_unique<ProcessDataManager>();
    const bool isAttached = !m_manager
                                 ->createProcessData(m_reading.root,
                                                     ProcessDataManager::InitTypeSharedMemoryAttach)
                                 .isNull();
    // It may have been replaced between the look and the attachment.
    if (!isAttached || m_region->getName() != RegionInspection::Name::Current) {
        detach();
        ++m_failures;
        showAbsence(QStringLiteral("region '%1' cannot be attached, the log has the reason; trying "
                                   "again")
                        .arg(m_reading.key));
        return;
    }
    for (auto &element : m_reading.elements) {
        if (!element->isObjectValid()) {
            element.reset();
        }
    }
    m_failures = 0;
    m_hasGone = false;
    m_creator.start(isCreatorDead(), m_region->getSwapCount().value_or(0), Clock::now());
    showChangedCreator();
    watch();
}

void RegionWorker::watch()
{
    if (!m_reading.isDoubleBuffered) {
        m_pollTimer.start(std::max(m_updateInterval, 1));
        return;
    }
    m_notifier = new ProcessDataNotifier(*m_manager, this);
    m_notifier->setLeastInterval(m_updateInterval);
    connect(m_notifier, &ProcessDataNotifier::published, this, &RegionWorker::handlePublished);
    connect(m_notifier, &ProcessDataNotifier::regionGone, this, [this] {
        // The notifier is the sender, and goes with the region.
        QTimer::singleShot(0, this, &RegionWorker::look);
    });
}

void RegionWorker::handlePublished()
{
    if (m_creator.isLeft()) {
        m_creator.handleSet(isCreatorDead(), m_region->getSwapCount().value_or(0), Clock::now());
    }
    showNewest();
}

void RegionWorker::lookAfterRegion()
{
    switch (m_region->getName()) {
    case RegionInspection::Name::Current: lookAfterCreator(); return;
    case RegionInspection::Name::Replaced:
        detach();
        lookForRegion();
        return;
    case RegionInspection::Name::Removed: break;
    }
    detach();
    m_hasGone = true;
    showMissing();
}

bool RegionWorker::isCreatorDead() const
{
    return m_region->getCreator().isAlive == false;
}

void RegionWorker::lookAfterCreator()
{
    const bool wasLeft = m_creator.isLeft();
    m_creator.look(isCreatorDead(), m_region->getSwapCount().value_or(0), Clock::now());
    if (m_creator.isLeft() != wasLeft) {
        showChangedCreator();
    }
}

void RegionWorker::showChangedCreator()
{
    if (m_creator.isLeft()) {
        showAbsence(QStringLiteral("the creator of region '%1' has died; start it again")
                        .arg(m_reading.key));
    } else {
        showNewest();
    }
}

void RegionWorker::detach()
{
    m_pollTimer.stop();
    delete m_notifier;
    m_notifier = nullptr;
    m_snapshot = {};
    m_decoded.reset();
    if (m_isBound) {
        m_reading.elements.clear();
        m_reading.root.reset();
    }
    m_manager.reset();
    m_region.reset();
    m_creator = {};
}

void RegionWorker::write(const QString &url, const QVariant &value)
{
    const auto refuse = [&](const WriteProblem &problem) {
        Q_EMIT writeFailed(url, static_cast<int>(problem.code), problem.text);
    };
    // Nobody reads any more what is written into a region that has lost its name.
    if (m_manager && m_region->getName() != RegionInspection::Name::Current) {
        look();
    }
    const int leaf = m_description ? m_description->find(url) : -1;
    if (m_description && leaf < 0) {
        refuse({TesselModels::WriteError::NoSuchValue,
                QStringLiteral("'%1': %2 describes no such value").arg(url, m_path)});
        return;
    }
    if (!isUp() || !m_reading.elements[leaf]) {
        refuse({TesselModels::WriteError::NotConnected,
                QStringLiteral("'%1': its region is away, or it has no usable slot").arg(url)});
        return;
    }
    const LeafWriting writing{m_description->leaves[static_cast<std::size_t>(leaf)],
                              *m_reading.elements[leaf]};
    if (const auto problem = writing.publish(*m_manager, value)) {
        refuse(*problem);
    }
}

void RegionWorker::showNewest()
{
    ProcessDataSnapshot snapshot;
    if (!isUp() || !snapshot.take(*m_manager)) {
        return;
    }
    const auto set = std::make_shared<ShownSet>(m_description);
    set->decode(m_reading.elements, snapshot, m_snapshot, m_decoded.get());
    m_snapshot = std::move(snapshot);
    const auto former = std::exchange(m_decoded, set);
    if (former && !m_reading.isDoubleBuffered) {
        set->compareWith(*former);
        if (set->changes.leaves.empty()) {
            return;
        }
    }
    deliver(set);
}

void RegionWorker::showAbsence(const QString &why)
{
    const auto set = std::make_shared<ShownSet>(m_description);
    set->errorText = why;
    m_decoded.reset();
    if (m_delivered->description != set->description || m_delivered->isConnected
        || m_delivered->errorText != why) {
        deliver(set);
    }
}

void RegionWorker::deliver(const std::shared_ptr<ShownSet> &set)
{
    // What was not taken was not shown either.
    if (!m_mailbox->take()) {
        m_shown = m_delivered;
    }
    set->compareWith(*m_shown);
    m_delivered = set;
    if (m_mailbox->put(set)) {
        Q_EMIT delivered();
    }
}
