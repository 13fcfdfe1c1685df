#include "mirror/MirroredRegion.h"

#include "Access/ProcessDataGuards.h"
#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "service/Refusal.h"
#include "service/ServiceLog.h"

#include <chrono>
#include <cstring>
#include <utility>

namespace {

/// Others who write without an end do not keep the source from being shown.
constexpr int mostRounds = 8;
/// For the lock. Who is at work inside leaves sooner.
constexpr std::chrono::milliseconds longestWait{20};
constexpr std::chrono::milliseconds noWait{0};

QString reasonOf(const LibraryReasons &reasons)
{
    const QString text = reasons.text();
    return text.isEmpty()
               ? QStringLiteral("a process stays inside its lock, which 'tessel doctor' names")
               : text;
}

} // namespace

MirroredRegion::MirroredRegion(const QString &path, const QString &key,
                               const UrlChoice &withoutState)
    : m_path(path)
    , m_tree(DescriptionTree::read(path))
    , m_key(key.isEmpty() ? m_tree.key : key)
    , m_layout(SlotLayout::of(m_tree))
    , m_order(m_layout)
    , m_manager(std::make_unique<ProcessDataManager>())
{
    if (!m_tree.isDoubleBuffered) {
        throw Refusal{ExitCode::InputOutputFile,
                      QStringLiteral("%1: has a single buffer, which has no whole sets; a mirror "
                                     "needs 'doubleBuffer'")
                          .arg(path)};
    }
    refuseLeavesWithoutState(withoutState);
    refuseRegionInUse();
    m_tree.root->setProperty(ConfigurationAndProcessDataDefinitions::getStrKeyProcessDataMemory(),
                             m_key);
    const LibraryReasons reasons;
    if (m_manager->createProcessData(m_tree.root, ProcessDataManager::InitTypeSharedMemoryCreate)
            .isNull()) {
        throw Refusal{ExitCode::NoAccess,
                      QStringLiteral("region '%1' cannot be made: %2").arg(m_key, reasons.text())};
    }
    m_inspection.emplace(m_key);
    showTimeout();
}

MirroredRegion::~MirroredRegion()
{
    // Whoever stays attached keeps the memory.
    if (m_manager) {
        showTimeout();
    }
}

void MirroredRegion::refuseLeavesWithoutState(const UrlChoice &withoutState) const
{
    QStringList unnamed;
    const QStringList urls = m_layout.withoutState();
    for (const auto &url : urls) {
        if (!withoutState.leadsTo(url)) {
            unnamed.append(url);
        }
    }
    if (!unnamed.isEmpty()) {
        throw Refusal{ExitCode::InputOutputFile,
                      QStringLiteral("%1: these leaves cannot show that their source has gone, as "
                                     "their slots hold no error state: %2; give them one, or name "
                                     "them with --without-state")
                          .arg(m_path, unnamed.join(QLatin1String(", ")))};
    }
}

void MirroredRegion::refuseRegionInUse() const
{
    const RegionInspection region(m_key);
    if (region.exists() && region.getCreator().isAlive == true) {
        throw Refusal{ExitCode::NoAccess,
                      QStringLiteral("region '%1' is there already and its creator lives; where "
                                     "source and mirror stand on one machine give the mirror "
                                     "another key with --as")
                          .arg(m_key)};
    }
}

/// What lies in the buffer before it is filled may be of somebody else who has not published it yet: it
/// would be lost with the filling. It is published first and looked at.
/// @p fill: gets the buffer that is written into.
template <typename Fill>
bool MirroredRegion::publish(const Fill &fill)
{
    for (int round = 0; round < mostRounds; ++round) {
        // All other regions of this program wait as well. Once somebody stayed inside he is not waited for.
        ProcessDataWriteGuard guard(*m_manager, m_isHeldUp ? noWait : longestWait);
        unsigned char *const buffer = guard.isLocked() ? m_manager->getPointerWriteBuffer()
                                                       : nullptr;
        m_isHeldUp = buffer == nullptr;
        if (m_isHeldUp) {
            return false;
        }
        const bool isLast = round + 1 == mostRounds;
        const bool isOther = m_writes && !isLast && m_writes->isOther(buffer);
        if (!isOther) {
            fill(buffer);
        }
        // Inside the lock: behind it the published set could be another one already, and somebody could be
        // inside who stays there.
        if (!m_manager->swapReadAndWriteBuffer()) {
            return false;
        }
        if (!m_writes) {
            return true;
        }
        if (!isOther) {
            m_writes->noteShown();
            return true;
        }
        m_writes->look();
    }
    return false;
}

bool MirroredRegion::show(const unsigned char *bytes, ByteOrder::Order order)
{
    const LibraryReasons reasons;
    const bool isShown = publish([&](unsigned char *buffer) {
        std::memcpy(buffer, bytes, m_layout.bufferSize);
        if (order != ByteOrder::ofThisMachine()) {
            m_order.turn(buffer);
        }
    });
    if (isShown) {
        m_isTimeoutDue = m_isUnpublishedTold = false;
    } else {
        tellUnpublished(reasons);
    }
    return isShown;
}

bool MirroredRegion::showTimeout()
{
    const LibraryReasons reasons;
    const ProcessValue timeout(ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
    const bool isShown = publish([&](unsigned char *) {
        for (const auto &leaf : std::as_const(m_tree.leaves)) {
            // One without a usable slot shows nothing at any time.
            leaf.element->setValueNoLock(timeout);
        }
    });
    if (!isShown && !m_isTimeoutDue) {
        ServiceLog::error(
            QStringLiteral("the loss of the source of region '%1' cannot be shown: %2; "
                           "it is tried again each second while this program runs")
                .arg(m_key, reasonOf(reasons)));
    }
    m_isTimeoutDue = !isShown;
    return isShown;
}

void MirroredRegion::lookAfter()
{
    if (m_isTimeoutDue) {
        showTimeout();
    }
    if (!m_isTakenTold && m_inspection->getName() != RegionInspection::Name::Current) {
        m_isTakenTold = true;
        ServiceLog::error(
            QStringLiteral("region '%1' was removed or made anew by another process: nobody who "
                           "attaches now sees what is shown here; end this program, and start it "
                           "again unless the other one goes on")
                .arg(m_key));
    }
}

bool MirroredRegion::showAgain()
{
    if (!m_writes || m_writes->shown() == nullptr) {
        return false;
    }
    const LibraryReasons reasons;
    const QByteArray shown(reinterpret_cast<const char *>(m_writes->shown()),
                           static_cast<int>(m_layout.bufferSize));
    const bool isShown = publish([&](unsigned char *buffer) {
        std::memcpy(buffer, shown.constData(), m_layout.bufferSize);
    });
    if (!isShown) {
        tellUnpublished(reasons);
    }
    return isShown;
}

void MirroredRegion::watchWrites()
{
    m_writes = std::make_unique<LocalWrites>(*m_manager, m_tree.leaves);
}

/// Of those in a row once: each set of the source would be a line.
void MirroredRegion::tellUnpublished(const LibraryReasons &reasons)
{
    if (!std::exchange(m_isUnpublishedTold, true)) {
        ServiceLog::warning(
            QStringLiteral("a set of region '%1' was not published: %2; the next one is tried")
                .arg(m_key, reasonOf(reasons)));
    }
}
