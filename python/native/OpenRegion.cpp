// Life of a region, and its waits.

#include "native/OpenRegion.h"

#include "Companion/SystemVSemaphoreBaseClass.h"
#include "native/Failure.h"
#include "native/LibraryMessages.h"
#include "native/SetWait.h"
#include "native/TakenSet.h"

#include <QFileInfo>

#include <algorithm>
#include <cerrno>

namespace {

/// A wait for a lock counts its slices in whole milliseconds, and may end so much too early.
constexpr qint64 lockWaitRounding = 10;

/// A description would answer for a management block that is not there.
bool hasOtherFormat(const RegionInspection &region)
{
    const RegionInspection alone(region.getKey());
    return alone.isDoubleBuffer() == true && !alone.getSwapCount();
}

[[noreturn]] void refuse(Failure::Kind kind, const QString &path, const QString &reason)
{
    throw Failure{kind, QStringLiteral("%1: %2").arg(path, reason)};
}

} // namespace

OpenRegion::OpenRegion(const QString &path, Opening opening, const QString &prefix)
    : m_path(path)
    , m_opening(opening)
{
    if (opening == Opening::Create) {
        create(prefix);
    } else {
        attach();
    }
    m_leaves = m_tree.leaves();
    checkSlots();
}

OpenRegion::~OpenRegion()
{
    if (m_fork.isInChild()) {
        // Its locks may be held by threads that are not here; the parent ends it.
        static_cast<void>(m_manager.release());
        return;
    }
    close();
}

void OpenRegion::attach()
{
    m_tree = DescriptionTree::read(m_path);
    // Before the manager attaches: of a region that is replaced in between, requireCurrent() tells.
    m_region.emplace(m_tree.key);
    requireMatchingRegion();
    LibraryReasons::take();
    m_manager = std::make_unique<ProcessDataManager>();
    if (m_opening == Opening::AttachReadOnly) {
        m_manager->setAccessMode(SharedMemory::ReadOnly);
    }
    if (!m_manager->createProcessData(m_tree.root,
                                      ProcessDataManager::InitTypeSharedMemoryAttach)) {
        refuse(
            Failure::Kind::Access, m_path,
            LibraryReasons::behind(QStringLiteral("cannot attach to region '%1'").arg(m_tree.key)));
    }
    requireCurrent();
}

void OpenRegion::create(const QString &prefix)
{
    const bool isFolder = QFileInfo(m_path).isDir();
    if (!isFolder && !prefix.isEmpty()) {
        refuse(Failure::Kind::Use, m_path,
               QStringLiteral("a prefix goes with a folder, a file has its key"));
    }
    constexpr auto type = ProcessDataManager::InitTypeSharedMemoryCreate;
    const QString wayOut = QStringLiteral("cannot create its region");
    m_manager = std::make_unique<ProcessDataManager>();
    if (isFolder) {
        DescriptionTree::requireReadable(m_path);
        const auto root = m_manager->createProcessDataFromDir(
            prefix.isEmpty() ? QStringLiteral("tessel") : prefix,
            QFileInfo(m_path).canonicalFilePath(), type);
        if (!root) {
            refuse(Failure::Kind::File, m_path, LibraryReasons::behind(wayOut));
        }
        m_tree = DescriptionTree::of(root, m_path);
    } else {
        m_tree = DescriptionTree::read(m_path);
        if (!m_manager->createProcessData(m_tree.root, type)) {
            refuse(Failure::Kind::Access, m_path, LibraryReasons::behind(wayOut));
        }
    }
    m_region.emplace(m_tree.key);
    // Nobody could write into a region without a lock.
    if (m_region->getLock().state == RegionLock::State::Unknown) {
        refuse(Failure::Kind::Access, m_path,
               LibraryReasons::behind(QStringLiteral("no lock on region '%1'").arg(m_tree.key)));
    }
}

void OpenRegion::requireMatchingRegion() const
{
    const RegionInspection region(m_tree.root);
    // A name that no region can have is not there either, but no creator would help.
    if (!region.exists() && region.getError() == ENOENT) {
        refuse(Failure::Kind::Missing, m_path,
               QStringLiteral("no region '%1'; start the process that creates it, or 'tessel hold'")
                   .arg(m_tree.key));
    }
    if (!region.isReadable()) {
        refuse(Failure::Kind::Access, m_path,
               QStringLiteral("cannot attach to region '%1': %2")
                   .arg(m_tree.key, region.getErrorString()));
    }
    const bool isOtherSize = region.getSize() != m_tree.regionSize;
    const bool isOtherLayout = isOtherSize || region.hasLayoutOfDescription() == false;
    if (!isOtherLayout) {
        return;
    }
    // It may differ for that reason alone.
    if (hasOtherFormat(region)) {
        refuse(Failure::Kind::Access, m_path,
               QStringLiteral("cannot attach to region '%1': it has another version of the memory "
                              "format; run all programs with one version of the library")
                   .arg(m_tree.key));
    }
    const QString first = region.findFirstDifference();
    refuse(Failure::Kind::LayoutMismatch, m_path,
           isOtherSize ? QStringLiteral("region '%1' has %2 bytes where the description asks for "
                                        "%3; its creator uses another description")
                             .arg(m_tree.key, QString::number(region.getSize()),
                                  QString::number(m_tree.regionSize))
                       : QStringLiteral("region '%1' has another layout%2; its creator uses "
                                        "another description")
                             .arg(m_tree.key, first.isEmpty()
                                                  ? QString()
                                                  : QStringLiteral(", from '%1' on").arg(first)));
}

void OpenRegion::requireWritable() const
{
    if (m_opening == Opening::AttachReadOnly) {
        refuse(Failure::Kind::Access, m_path,
               QStringLiteral("its region was attached for reading alone; attach without read_only "
                              "to write"));
    }
}

void OpenRegion::requireCurrent() const
{
    switch (m_region->getName()) {
    case RegionInspection::Name::Current: return;
    case RegionInspection::Name::Replaced:
        refuse(Failure::Kind::LayoutMismatch, m_path,
               QStringLiteral("the region '%1' was replaced by a new one; attach again")
                   .arg(m_tree.key));
    case RegionInspection::Name::Removed: break;
    }
    refuse(Failure::Kind::Missing, m_path,
           QStringLiteral("the region '%1' has gone, its creator has ended").arg(m_tree.key));
}

void OpenRegion::checkSlots()
{
    for (auto &leaf : m_leaves) {
        LibraryReasons::take();
        if (!leaf.element->isObjectValid()) {
            leaf.slotProblem = LibraryReasons::take();
            qWarning() << "No usable slot, left out:" << leaf.url << leaf.slotProblem;
        }
    }
}

bool OpenRegion::isOpen() const
{
    m_fork.requireOwnProcess();
    const std::lock_guard<std::mutex> lock(m_mutex);
    return !m_isClosed;
}

void OpenRegion::requireOpen() const
{
    if (m_isClosed) {
        refuse(Failure::Kind::Closed, m_path,
               QStringLiteral("its region was closed; attach again"));
    }
}

void OpenRegion::refuseLock(qint64 waitedMilliseconds) const
{
    const qint64 waited = waitedMilliseconds + lockWaitRounding;
    if (waited >= SystemVSemaphoreBaseClass::sm_lockWaitBound.count()) {
        refuse(Failure::Kind::TimedOut, m_path,
               QStringLiteral("another process has held the lock of region '%1' for more than %2 s")
                   .arg(m_tree.key, QString::number(waited / 1000)));
    }
    refuse(Failure::Kind::Access, m_path,
           LibraryReasons::behind(QStringLiteral("no lock on region '%1'").arg(m_tree.key)));
}

void OpenRegion::exclusively(const std::function<void()> &action)
{
    m_fork.requireOwnProcess();
    const std::lock_guard<std::mutex> lock(m_mutex);
    action();
}

std::shared_ptr<SetWait> OpenRegion::makeWait()
{
    m_fork.requireOwnProcess();
    const std::lock_guard<std::mutex> lock(m_mutex);
    requireOpen();
    if (!m_tree.isDoubleBuffered) {
        refuse(Failure::Kind::Use, m_path,
               QStringLiteral("a region with a single buffer tells nobody of its sets; read it now "
                              "and then"));
    }
    auto wait = std::make_shared<SetWait>(shared_from_this(), *m_manager);
    const auto isGone = [](const std::weak_ptr<SetWait> &former) { return former.expired(); };
    m_waits.erase(std::remove_if(m_waits.begin(), m_waits.end(), isGone), m_waits.end());
    m_waits.push_back(wait);
    return wait;
}

void OpenRegion::close()
{
    m_fork.requireOwnProcess();
    std::vector<std::weak_ptr<SetWait>> waits;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        // From now on nobody makes another one.
        m_isClosed = true;
        waits.swap(m_waits);
    }
    // Before the manager ends, and without the lock, which who waits may need to come out.
    for (const auto &known : waits) {
        if (const auto wait = known.lock()) {
            wait->end();
        }
    }
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_manager) {
        return;
    }
    {
        const std::lock_guard<std::mutex> setsLock(m_setsMutex);
        for (auto *const set : m_sets) {
            set->decodeAll();
        }
        m_sets.clear();
    }
    for (auto &leaf : m_leaves) {
        leaf.element.reset();
    }
    m_tree.root.reset();
    m_manager.reset();
}

void OpenRegion::forget(TakenSet *set)
{
    if (m_fork.isInChild()) {
        return;
    }
    const std::lock_guard<std::mutex> lock(m_setsMutex);
    m_sets.erase(set);
}
