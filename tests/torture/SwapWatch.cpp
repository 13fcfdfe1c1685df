#include "torture/SwapWatch.h"

#include "Companion/PingPongBufferHandler.h"

#include <algorithm>
#include <limits>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Torture {

namespace {

using Management = PingPongBufferHandler::ManagementBuffer;

/// Whoever still waits in an older one hears within a second that it is gone.
constexpr std::size_t mostRegions = 8;

/// Null if there is another memory behind the name than the one of number @p inode.
const void *mapBlock(const QString &path, quint64 inode)
{
    const int file = open(qPrintable(path), O_RDONLY | O_CLOEXEC);
    struct stat status
    {
    };
    const void *start = MAP_FAILED;
    if (file >= 0 && fstat(file, &status) == 0 && status.st_ino == inode
        && status.st_size >= static_cast<qint64>(sizeof(Management))) {
        start = mmap(nullptr, sizeof(Management), PROT_READ, MAP_SHARED, file, 0);
    }
    if (file >= 0) {
        close(file);
    }
    return start == MAP_FAILED ? nullptr : start;
}

} // namespace

SwapWatch::~SwapWatch()
{
    std::for_each(m_regions.cbegin(), m_regions.cend(), unmap);
}

void SwapWatch::look()
{
    mapNewest();
    for (Region &region : m_regions) {
        // The time behind the look: a set is noted late rather than early.
        const quint64 count = swapCount(region);
        region.history.add(steadyNow(), count);
    }
}

std::optional<qint64> SwapWatch::firstBeyond(quint64 generation, quint64 seen) const
{
    const Region *const region = find(generation);
    return region == nullptr ? std::nullopt : region->history.firstBeyond(seen);
}

quint64 SwapWatch::swapsSoFar(quint64 generation) const
{
    const Region *const region = find(generation);
    return region == nullptr ? std::numeric_limits<quint64>::max() : swapCount(*region);
}

void SwapWatch::mapNewest()
{
    const quint64 generation = m_ledger.generation;
    if (generation == 0 || generation % 2 != 0 || find(generation) != nullptr) {
        return;
    }
    const void *const start = mapBlock(m_path, m_ledger.region(generation).inode);
    if (start == nullptr) {
        return;
    }
    m_regions.push_back({generation, start, {}});
    if (m_regions.size() > mostRegions) {
        unmap(m_regions.front());
        m_regions.pop_front();
    }
}

void SwapWatch::unmap(const Region &region)
{
    munmap(const_cast<void *>(region.start), sizeof(Management));
}

quint64 SwapWatch::swapCount(const Region &region)
{
    return static_cast<const Management *>(region.start)->swapCount.load(std::memory_order_acquire);
}

const SwapWatch::Region *SwapWatch::find(quint64 generation) const
{
    const auto found = std::find_if(
        m_regions.cbegin(), m_regions.cend(),
        [generation](const Region &region) { return region.generation == generation; });
    return found == m_regions.cend() ? nullptr : &*found;
}

} // namespace Torture
