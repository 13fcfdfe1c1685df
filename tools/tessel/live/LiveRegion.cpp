#include "live/LiveRegion.h"

#include "Access/ProcessDataSnapshot.h"
#include "Companion/SystemVSemaphoreBaseClass.h"
#include "live/ConsistentRead.h"
#include "text/DescriptorCure.h"
#include "text/Failure.h"
#include "text/LogCollector.h"
#include "text/Output.h"

#include <QElapsedTimer>

#include <cerrno>
#include <csignal>

namespace {

QString withReasons(const QString &text)
{
    const QString reasons = LogCollector::takeReasons();
    return reasons.isEmpty() ? text : QStringLiteral("%1: %2").arg(text, reasons);
}

QString fromFirstLeaf(const RegionInspection &region)
{
    const QString first = region.findFirstDifference();
    return first.isEmpty() ? QString() : QStringLiteral(", from '%1' on").arg(first);
}

/// Ctrl-C and the like come behind a set that is being written: of a single buffer, which readers see at
/// once, a part would stay.
class HeldSignals
{
public:
    HeldSignals()
    {
        sigset_t held;
        sigemptyset(&held);
        for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
            sigaddset(&held, number);
        }
        pthread_sigmask(SIG_BLOCK, &held, &m_former);
    }
    ~HeldSignals() { pthread_sigmask(SIG_SETMASK, &m_former, nullptr); }

    HeldSignals(const HeldSignals &) = delete;
    HeldSignals &operator=(const HeldSignals &) = delete;

private:
    sigset_t m_former;
};

[[noreturn]] void refuseSlot(const DescriptionSource &description, const Leaf &leaf,
                             const QString &problem)
{
    throw Failure{ExitCode::InputOutputFile, QStringLiteral("%1: '%2' has no usable slot: %3")
                                                 .arg(description.path(), leaf.url, problem)};
}

void noteLeftOut(const DescriptionSource &description, const Leaf &leaf, const QString &problem)
{
    writeErrorLine(QStringLiteral("tessel: note: '%1' of %2 is left out: %3")
                       .arg(leaf.url, description.path(), problem));
}

} // namespace

LiveRegion::LiveRegion(const DescriptionSource &description, Opening opening)
    : m_description(description)
{
    m_description.requireMemory();
    if (opening != Opening::Create) {
        // Before the manager attaches: of a region that is replaced in between, requireCurrent() hears.
        m_region.emplace(description.key());
        // One that knows the description holds the URLs of all leaves, and is needed only here.
        requireMatchingRegion(RegionInspection(description.root()), description);
    }
    LogCollector::takeReasons();
    if (opening == Opening::Read) {
        m_manager.setAccessMode(SharedMemory::ReadOnly);
    }
    const auto root = m_manager.createProcessData(
        m_description.root(), opening == Opening::Create
                                  ? ProcessDataManager::InitTypeSharedMemoryCreate
                                  : ProcessDataManager::InitTypeSharedMemoryAttach);
    if (!root) {
        throw Failure{ExitCode::NoAccess,
                      withReasons(QStringLiteral("%1: no region for key '%2'")
                                      .arg(m_description.path(), m_description.key()))};
    }
    if (opening == Opening::Create) {
        requireLock();
    }
}

/// Nobody could write into a region without one, and its creator has not published anything.
void LiveRegion::requireLock() const
{
    if (RegionInspection(m_description.key()).getLock().state == RegionLock::State::Unknown) {
        refuseLock(0);
    }
}

QVector<Leaf> withTextsFrom(quint32 leastBytes, const QVector<Leaf> &leaves,
                            const QStringList &urls, const DescriptionSource &description)
{
    QVector<Leaf> roomy;
    for (const auto &leaf : leaves) {
        const LeafSlot slot = slotOf(leaf);
        if (slot.metaType != QMetaType::QString || slot.size >= leastBytes) {
            roomy.append(leaf);
            continue;
        }
        const QString problem = QStringLiteral("a text of %1 bytes").arg(slot.size);
        if (!urls.isEmpty()) {
            refuseSlot(description, leaf, problem);
        }
        noteLeftOut(description, leaf, problem);
    }
    return roomy;
}

QVector<Leaf> LiveRegion::readable(const QVector<Leaf> &leaves, const QStringList &urls) const
{
    if (urls.isEmpty()) {
        return usable(leaves);
    }
    requireUsable(leaves);
    return leaves;
}

QVector<Leaf> LiveRegion::usable(const QVector<Leaf> &leaves) const
{
    QVector<Leaf> usable;
    for (const auto &leaf : leaves) {
        const QString problem = slotProblem(leaf, m_manager.getSizeBuffer());
        if (problem.isEmpty()) {
            usable.append(leaf);
        } else {
            noteLeftOut(m_description, leaf, problem);
        }
    }
    return usable;
}

void LiveRegion::requireUsable(const QVector<Leaf> &leaves) const
{
    for (const auto &leaf : leaves) {
        const QString problem = slotProblem(leaf, m_manager.getSizeBuffer());
        if (!problem.isEmpty()) {
            refuseSlot(m_description, leaf, problem);
        }
    }
}

QVector<ProcessValue> LiveRegion::read(const QVector<Leaf> &leaves)
{
    quint64 generation = 0;
    return read(leaves, generation);
}

QVector<ProcessValue> LiveRegion::read(const QVector<Leaf> &leaves, quint64 &generation)
{
    // Decoded behind the lock: the shorter it is, the fewer writers come in between.
    ProcessDataSnapshot set;
    readInLock([&] { set.take(m_manager); });
    if (set.isEmpty()) {
        refuseOvertaken();
    }
    generation = set.getGeneration();
    QVector<ProcessValue> values;
    values.reserve(leaves.size());
    for (const auto &leaf : leaves) {
        ProcessValue value(ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID);
        set.getValue(*leaf.element, value);
        values.append(value);
    }
    return values;
}

/// Until @p take has run without a writer in between.
void LiveRegion::readInLock(const std::function<void()> &take)
{
    LogCollector::takeReasons();
    QElapsedTimer timer;
    timer.start();
    const ReadOutcome outcome = readConsistently(m_manager, take);
    if (outcome == ReadOutcome::NotLocked) {
        refuseLock(timer.elapsed());
    }
    if (outcome == ReadOutcome::Overtaken) {
        refuseOvertaken();
    }
}

QVector<ProcessValue> LiveRegion::write(const QVector<LeafWrite> &writes)
{
    LogCollector::takeReasons();
    QElapsedTimer timer;
    timer.start();
    m_manager.lockWriteBuffer();
    if (m_manager.getPointerWriteBuffer() == nullptr) {
        m_manager.unlockWriteBuffer();
        refuseLock(timer.elapsed());
    }
    const HeldSignals held;
    QVector<ProcessValue> formerValues;
    const Leaf *refused = nullptr;
    for (const auto &write : writes) {
        // Nobody publishes in between, so it is one set.
        ProcessValue former(ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID);
        write.leaf.element->getValueNoLock(former);
        formerValues.append(former);
        if (refused == nullptr && !write.leaf.element->setValueNoLock(write.value)) {
            refused = &write.leaf;
        }
    }
    m_manager.unlockWriteBuffer();
    if (refused != nullptr) {
        throw Failure{ExitCode::Refused, withReasons(QStringLiteral("%1: '%2' was not written")
                                                         .arg(m_description.path(), refused->url))};
    }
    if (!m_manager.swapReadAndWriteBuffer()) {
        refuseLock(timer.elapsed());
    }
    return formerValues;
}

int LiveRegion::descriptorOf(ProcessDataWatcher &watcher) const
{
    LogCollector::takeReasons();
    const int descriptor = watcher.getDescriptor();
    if (descriptor >= 0) {
        return descriptor;
    }
    // Its errno is only in its words.
    const QString reasons = LogCollector::takeReasons();
    QString cure;
    for (const int error : {EMFILE, ENFILE}) {
        cure += reasons.contains(qt_error_string(error))
                    ? QStringLiteral("; ") + descriptorCure(error)
                    : QString();
    }
    throw Failure{ExitCode::NoAccess,
                  QStringLiteral("%1: cannot attach to region '%2': %3%4")
                      .arg(m_description.path(), m_description.key(), reasons, cure)};
}

bool LiveRegion::isPublished() const
{
    return m_region->getSwapCount() != quint64{0};
}

void LiveRegion::requirePublished(quint64 generation) const
{
    if (generation == 0) {
        throw Failure{ExitCode::NotReliable,
                      QStringLiteral("%1: nothing was published in region '%2' yet")
                          .arg(m_description.path(), m_description.key())};
    }
}

bool LiveRegion::isCurrent() const
{
    return !m_region || m_region->getName() == RegionInspection::Name::Current;
}

void LiveRegion::requireCurrent() const
{
    switch (m_region ? m_region->getName() : RegionInspection::Name::Current) {
    case RegionInspection::Name::Current: return;
    case RegionInspection::Name::Replaced:
        throw Failure{ExitCode::LayoutMismatch,
                      QStringLiteral("%1: the region '%2' was replaced by a new one; start again")
                          .arg(m_description.path(), m_description.key())};
    case RegionInspection::Name::Removed: break;
    }
    throw Failure{ExitCode::NotFound,
                  QStringLiteral("%1: the region '%2' has gone, its creator has ended")
                      .arg(m_description.path(), m_description.key())};
}

void LiveRegion::refuseOvertaken() const
{
    throw Failure{ExitCode::NotReliable,
                  QStringLiteral("%1: no consistent set in %2 attempts, writers are too fast")
                      .arg(m_description.path(), QString::number(mostReadAttempts))};
}

void LiveRegion::refuseLock(qint64 waitedMilliseconds) const
{
    if (waitedMilliseconds >= SystemVSemaphoreBaseClass::sm_lockWaitBound.count()) {
        throw Failure{ExitCode::TimedOut,
                      QStringLiteral("%1: another process has held the lock of region '%2' for "
                                     "more than %3 s")
                          .arg(m_description.path(), m_description.key(),
                               QString::number(waitedMilliseconds / 1000))};
    }
    throw Failure{ExitCode::NoAccess,
                  withReasons(QStringLiteral("%1: no lock on region '%2'")
                                  .arg(m_description.path(), m_description.key()))};
}

bool hasOtherFormat(const RegionInspection &region)
{
    // A description would answer for a block that is not there yet.
    const RegionInspection alone(region.getKey());
    return alone.isDoubleBuffer() == true && !alone.getSwapCount();
}

void refuseFormat(const DescriptionSource &description)
{
    throw Failure{ExitCode::NoAccess,
                  QStringLiteral("%1: cannot attach to region '%2': it has another version of the "
                                 "memory format; run all programs with one version of the library")
                      .arg(description.path(), description.key())};
}

void requireMatchingRegion(const RegionInspection &region, const DescriptionSource &description)
{
    // A name that no region can have is not there either, but no creator would help.
    if (!region.exists() && region.getError() == ENOENT) {
        throw Failure{ExitCode::NotFound,
                      QStringLiteral("%1: no region '%2'; start the process that creates it, or "
                                     "'tessel hold'")
                          .arg(description.path(), description.key())};
    }
    if (!region.isReadable()) {
        throw Failure{ExitCode::NoAccess,
                      QStringLiteral("%1: cannot attach to region '%2': %3")
                          .arg(description.path(), description.key(), region.getErrorString())};
    }
    const bool isOtherSize = region.getSize() != description.regionSize();
    const bool isOtherLayout = isOtherSize || region.hasLayoutOfDescription() == false;
    // It may differ for that reason alone.
    if (isOtherLayout && hasOtherFormat(region)) {
        refuseFormat(description);
    }
    if (isOtherSize) {
        throw Failure{ExitCode::LayoutMismatch,
                      QStringLiteral("%1: region '%2' has %3 bytes where the description asks for "
                                     "%4; its creator uses another description")
                          .arg(description.path(), description.key(),
                               QString::number(region.getSize()),
                               QString::number(description.regionSize()))};
    }
    if (isOtherLayout) {
        throw Failure{
            ExitCode::LayoutMismatch,
            QStringLiteral("%1: region '%2' has another layout%3; its creator uses another "
                           "description")
                .arg(description.path(), description.key(), fromFirstLeaf(region))};
    }
}
