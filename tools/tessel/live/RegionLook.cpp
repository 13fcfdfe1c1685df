#include "live/RegionLook.h"

#include "Inspection/RegionUsers.h"
#include "live/LiveRegion.h"

#include <QFileInfo>

#include <algorithm>
#include <chrono>
#include <thread>

namespace {

using Buffer = RegionInspection::Buffer;
using Fit = RegionLook::Fit;

Fit fitOf(const RegionInspection &region)
{
    if (!region.exists()) {
        return Fit::Missing;
    }
    if (!region.isReadable()) {
        return Fit::Unreadable;
    }
    return hasOtherFormat(region) ? Fit::OtherFormat : Fit::Fits;
}

Fit fitOf(const RegionInspection &region, const DescriptionSource &description)
{
    const Fit fit = fitOf(region);
    if (fit != Fit::Fits) {
        return fit;
    }
    if (region.getSize() != description.regionSize()) {
        return Fit::OtherSize;
    }
    return region.hasLayoutOfDescription() == false ? Fit::OtherLayout : Fit::Fits;
}

/// Writes into mapped memory do not count: the memory was changed last when it got its size.
QDateTime timeOfCreation(const QString &key)
{
    return QFileInfo(QStringLiteral("/dev/shm/%1SharedMemory").arg(key)).lastModified();
}

BufferedSlot slotIn(const RegionInspection &region, Buffer buffer, const Leaf &leaf, bool isRead)
{
    BufferedSlot slot;
    slot.buffer = buffer;
    slot.isRead = isRead;
    slot.bytes = {region.getValueBytes(leaf.url, buffer),
                  region.getErrorStateBytes(leaf.url, buffer)};
    slot.value = slot.bytes.decoded(slotOf(leaf));
    return slot;
}

} // namespace

RegionLook::RegionLook(const DescriptionSource &description)
    : m_region(description.root())
    , m_fit(fitOf(m_region, description))
{
    look();
}

RegionLook::RegionLook(const QString &key) : m_region(key), m_fit(fitOf(m_region))
{
    look();
}

void RegionLook::look()
{
    if (m_fit == Fit::Missing) {
        return;
    }
    m_creator = m_region.getCreator();
    watchLock();
    const RegionUsers users;
    m_users = users.getUsersOf(m_region);
    m_areUsersComplete = users.isComplete();
    m_made = timeOfCreation(m_region.getKey());
    m_swapCount = m_region.getSwapCount();
    m_lastSwap = m_region.getLastSwap();
    m_time = QDateTime::currentDateTimeUtc();
}

/// A writer is inside for microseconds.
void RegionLook::watchLock()
{
    using Clock = std::chrono::steady_clock;
    constexpr std::chrono::milliseconds pause{20};
    m_lock = m_region.getLock();
    const auto holder = m_lock.holder;
    const auto swapCount = m_region.getSwapCount();
    const Clock::time_point deadline = Clock::now() + std::chrono::seconds(1);
    const auto isSame = [&] {
        return m_lock.state == RegionLock::State::Held && m_lock.holder == holder
               && m_region.getSwapCount() == swapCount;
    };
    while (isSame() && Clock::now() < deadline) {
        std::this_thread::sleep_for(pause);
        m_lock = m_region.getLock();
    }
    m_isLockStuck = isSame();
}

std::optional<qint64> RegionLook::silence() const
{
    return m_lastSwap ? std::make_optional(m_lastSwap->msecsTo(m_time)) : std::nullopt;
}

std::optional<double> RegionLook::usualInterval() const
{
    // The creator publishes the first one when it makes the region.
    constexpr quint64 fewestSets = 10;
    if (!m_swapCount || *m_swapCount < fewestSets || !m_lastSwap || !m_made.isValid()) {
        return {};
    }
    const qint64 time = m_made.msecsTo(*m_lastSwap);
    return time > 0 ? std::make_optional(static_cast<double>(time)
                                         / static_cast<double>(*m_swapCount - 1))
                    : std::nullopt;
}

QVector<BufferedSlot> RegionLook::slotsOf(const Leaf &leaf) const
{
    if (m_fit != Fit::Fits) {
        return {};
    }
    constexpr int mostAttempts = 11;
    QVector<BufferedSlot> found;
    std::optional<quint64> before;
    for (int attempt = 0; attempt < mostAttempts; ++attempt) {
        before = m_region.getSwapCount();
        const Buffer read = m_region.getReadBuffer().value_or(Buffer::First);
        found = {slotIn(m_region, read, leaf, true)};
        if (m_region.isDoubleBuffer() != false) {
            const Buffer written = read == Buffer::First ? Buffer::Second : Buffer::First;
            found.append(slotIn(m_region, written, leaf, false));
        }
        // cppcheck-suppress knownConditionTrueFalse ; others swap meanwhile
        if (m_region.getSwapCount() == before) {
            break;
        }
    }
    return found;
}

QString RegionLook::nameOf(qint64 pid) const
{
    const auto user = std::find_if(
        m_users.cbegin(), m_users.cend(),
        [pid](const RegionUser &candidate) { return candidate.pid == pid; });
    return user == m_users.cend() || user->program.isEmpty()
               ? QStringLiteral("process %1").arg(pid)
               : QStringLiteral("%1 %2").arg(user->program, QString::number(pid));
}
