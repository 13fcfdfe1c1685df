#include "torture/TorturePeer.h"

#include <QDebug>

#include <algorithm>
#include <cstring>

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Torture {

namespace {

constexpr int exitFailed = 3;
/// A lock that was waited for that long may be refused: its bound is five seconds.
constexpr qint64 longRefusal = 4900 * millisecond;

PeerEntry *entryForMessages = nullptr;

void copyText(char (&target)[textCapacity], const QString &text)
{
    const QByteArray bytes = text.toUtf8().left(textCapacity - 1);
    std::memcpy(target, bytes.constData(), static_cast<std::size_t>(bytes.size()) + 1);
}

/// What the library says is expected in masses here: only the last warning is kept.
void keepMessage(QtMsgType type, const QMessageLogContext & /*context*/, const QString &text)
{
    if (type != QtDebugMsg && type != QtInfoMsg) {
        copyText(entryForMessages->lastMessage, text);
    }
}

quint64 increase(std::atomic<quint64> &counter)
{
    return counter.fetch_add(1, std::memory_order_relaxed) + 1;
}

} // namespace

TorturePeer::TorturePeer(Ledger &ledger, const Start &start)
    : m_ledger(ledger)
    , m_entry(ledger.peers[start.slot])
    , m_start(start)
    , m_role(ledger.roles[start.slot])
    , m_random(start.seed)
{
    entryForMessages = &m_entry;
    qInstallMessageHandler(keepMessage);
}

int TorturePeer::run()
{
    prepareWaiting();
    while (!isAskedToEnd()) {
        if (m_role == Role::Creator) {
            createRegion();
        } else {
            attachToRegion();
        }
        if (m_region) {
            work();
        }
        if (m_role == Role::Creator && m_region) {
            if (isPlanted(Plant::Segment)) {
                _exit(0);
            }
            // Nobody shall attach to a region whose name is about to go.
            increase(m_ledger.generation);
        }
        m_region.reset();
    }
    while (isPlanted(Plant::Stubborn) && m_role == Role::BulkReader) {
        sleepFor(second);
    }
    return 0;
}

bool TorturePeer::isAskedToEnd() const
{
    return m_ledger.isEnding || m_entry.isAskedToEnd;
}

bool TorturePeer::isReplaced() const
{
    const quint64 generation = m_ledger.generation;
    return generation != m_region->generation && generation % 2 == 0;
}

bool TorturePeer::isDisturbed() const
{
    return m_ledger.generation != m_region->generation;
}

void TorturePeer::createRegion()
{
    // A creator that was killed at its work left an odd number.
    const quint64 former = m_ledger.generation;
    const quint64 creating = former % 2 == 0 ? former + 1 : former + 2;
    RegionEntry &entry = m_ledger.region(creating + 1);
    entry.isIncomplete[0] = false;
    entry.isIncomplete[1] = false;
    entry.brokenThrough = 0;
    m_ledger.generation = creating;

    auto region = std::make_unique<Region>();
    region->root = region->manager.createProcessDataFromJson(
        SetCodec::description(m_start.key, m_start.isDoubleBuffer), QStringLiteral("process.json"),
        ProcessDataManager::InitTypeSharedMemoryCreate);
    if (region->root.isNull()) {
        fail(QStringLiteral("a region cannot be made"));
    }
    region->codec = std::make_unique<SetCodec>(region->root);
    if (!region->codec->isComplete()) {
        fail(QStringLiteral("a region lacks leaves"));
    }
    entry.inode = memoryNumber();
    join(std::move(region), creating + 1);
    m_ledger.generation = creating + 1;
}

void TorturePeer::attachToRegion()
{
    const quint64 generation = m_ledger.generation;
    if (generation == 0 || generation % 2 != 0) {
        sleepFor(millisecond);
        return;
    }
    auto region = std::make_unique<Region>();
    if (isPlanted(Plant::Detached)) {
        shm_unlink(qPrintable(m_start.key + QStringLiteral("SharedMemory")));
    }
    region->root = region->manager.createProcessDataFromJson(
        SetCodec::description(m_start.key, m_start.isDoubleBuffer), QStringLiteral("process.json"),
        ProcessDataManager::InitTypeSharedMemoryAttach);
    // A creator that came in between may have given the memory of one region and the semaphores of
    // another, which only somebody outside the library can tell.
    if (m_ledger.generation != generation) {
        return;
    }
    if (region->root.isNull()) {
        fail(QStringLiteral("attaching fails although the region is whole"));
    }
    region->codec = std::make_unique<SetCodec>(region->root);
    join(std::move(region), generation);
}

void TorturePeer::join(std::unique_ptr<Region> region, quint64 generation)
{
    region->generation = generation;
    region->watcher = std::make_unique<ProcessDataWatcher>(region->manager);
    if (m_role == Role::Poller) {
        beginPolling(*region);
    }
    m_region = std::move(region);
    increase(m_entry.regions);
}

/// Of what the name of the region leads to.
quint64 TorturePeer::memoryNumber() const
{
    struct stat status
    {
    };
    const QString path = QStringLiteral("/dev/shm/%1SharedMemory").arg(m_start.key);
    return stat(qPrintable(path), &status) == 0 ? status.st_ino : 0;
}

void TorturePeer::work()
{
    while (!isAskedToEnd() && !isReplaced()) {
        ++m_rounds;
        plantOutside();
        leaveAlone();
        workOnce();
        if (isWriter() && random(32) == 0) {
            workAlone();
        }
        // Bursts and pauses in turn, so that the others get to their places as well.
        if (random(4) != 0) {
            sleepFor(static_cast<qint64>(random(2 * millisecond)));
        }
    }
}

bool TorturePeer::isWriter() const
{
    return m_role == Role::BulkWriter || m_role == Role::SingleWriter;
}

/// Often enough that the write lock stays with this process for some time.
void TorturePeer::workAlone()
{
    constexpr int times = 40;
    constexpr qint64 longest = 10 * millisecond;
    m_ledger.lonelySlot = m_start.slot;
    m_ledger.aloneUntil = steadyNow() + longest;
    for (int i = 0; i < times && !isAskedToEnd() && !isReplaced(); ++i) {
        workOnce();
    }
    m_ledger.aloneUntil = 0;
    increase(m_entry.phasesAlone);
}

void TorturePeer::leaveAlone() const
{
    while ((isWriter() || m_role == Role::Creator) && m_ledger.lonelySlot != m_start.slot
           && steadyNow() < m_ledger.aloneUntil && !isAskedToEnd()) {
        sleepFor(millisecond / 5);
    }
}

void TorturePeer::workOnce()
{
    switch (m_role) {
    case Role::Creator:
        if (random(2) == 0) {
            writeSet();
            return;
        }
        readSet();
        return;
    case Role::BulkWriter: writeSet(); return;
    case Role::SingleWriter: writeSingleValue(); return;
    case Role::BulkReader: readSet(); return;
    case Role::SingleReader: readSingleValue(); return;
    case Role::Waiter: waitForSet(); return;
    case Role::Poller: pollForSet(); return;
    }
}

void TorturePeer::noteRefusal(const char *what, qint64 begin, std::atomic<quint64> &counter)
{
    increase(counter);
    if (!isDisturbed() && steadyNow() - begin < longRefusal) {
        fail(QStringLiteral("refused without a reason: %1").arg(QLatin1String(what)));
    }
}

void TorturePeer::readSet()
{
    GroupValues values[2];
    bool isIncomplete[2] = {false, false};
    bool repeat = false;
    quint64 attempts = 0;
    // Writers come in between again and again.
    m_isReadingSlowly = random(16) == 0;
    const qint64 begin = steadyNow();
    do {
        if (!tryReadSet(values, repeat, isIncomplete)) {
            noteRefusal("a read lock", begin, m_entry.refusedLocks);
            return;
        }
        ++attempts;
        repeat = repeat || (isPlanted(Plant::Starved) && attempts < 5);
    } while (repeat && !isAskedToEnd());
    noteAttempts(attempts, begin);
    if (!repeat) {
        increase(m_entry.setsRead);
        checkSet(values, isIncomplete);
    }
}

void TorturePeer::noteAttempts(quint64 attempts, qint64 begin)
{
    m_entry.repeats.fetch_add(attempts - 1, std::memory_order_relaxed);
    m_entry.longestStreak = std::max(m_entry.longestStreak.load(), attempts);
    // The third attempt holds writers off. Only after a wait of one second, for somebody who stands
    // still inside, does it go on without; whether that wait had a reason is judged by the driver.
    if (attempts > 3 && steadyNow() - begin < second && !isDisturbed()) {
        fail(QStringLiteral("starved: %1 attempts for one set").arg(attempts));
    }
}

bool TorturePeer::tryReadSet(GroupValues (&values)[2], bool &repeat, bool (&isIncomplete)[2])
{
    ProcessDataManager &manager = m_region->manager;
    timed(Phase::Reading, [&manager] { return manager.lockReadBuffer(); });
    const bool isLocked = manager.getPointerReadBuffer() != nullptr;
    if (isLocked) {
        m_entry.phase = Phase::Reading;
        for (int group = FirstGroup; group <= SecondGroup; ++group) {
            m_region->codec->readGroup(static_cast<Group>(group), values[group]);
            if (m_isReadingSlowly) {
                sleepFor(static_cast<qint64>(random(5 * millisecond)));
            }
            isIncomplete[group] = m_ledger.region(m_region->generation).isIncomplete[group];
        }
    }
    manager.unlockReadBuffer(repeat);
    m_entry.phase = Phase::Outside;
    return isLocked;
}

void TorturePeer::checkSet(const GroupValues (&values)[2], const bool (&isIncomplete)[2])
{
    quint64 numbers[2] = {0, 0};
    for (int group = FirstGroup; group <= SecondGroup; ++group) {
        if (!m_start.isDoubleBuffer && isIncomplete[group]) {
            // A writer died here; in a single buffer its half set stays.
            return;
        }
        if (!checkGroup(static_cast<Group>(group), values[group], numbers[group])) {
            return;
        }
    }
    // Who wrote both groups wrote them in one set: the other one is from there or newer.
    for (int group = FirstGroup; group <= SecondGroup; ++group) {
        const quint64 other = numbers[1 - group];
        if (numbers[group] != 0 && SetNumber::content(numbers[group]) == Content::Both
            && other < numbers[group]) {
            fail(QStringLiteral("mixed set: one group is of set %1, the other still of %2")
                     .arg(numbers[group])
                     .arg(other));
        }
    }
}

bool TorturePeer::checkGroup(Group group, const GroupValues &values, quint64 &number)
{
    if (!SetCodec::numberOf(values, number) || (number != 0 && !isWritten(number, group))) {
        fail(QStringLiteral("nobody wrote set %1 (%2 sets were begun)")
                 .arg(number)
                 .arg(m_ledger.setCount));
    }
    const QString foreign = m_region->codec->findForeign(group, values, number);
    if (!foreign.isEmpty()) {
        fail(QStringLiteral("mixed set: ") + foreign);
    }
    checkOrder("set", number, m_region->newestGroup[group]);
    return true;
}

void TorturePeer::checkOrder(const char *what, quint64 number, quint64 &newest)
{
    if (number < newest) {
        fail(QStringLiteral("back in time: %1 %2 after %3 in region %4")
                 .arg(QLatin1String(what))
                 .arg(number)
                 .arg(newest)
                 .arg(m_region->generation));
    }
    newest = number;
}

bool TorturePeer::isWritten(quint64 number, Group group) const
{
    const int slot = SetNumber::slot(number);
    if (slot >= m_ledger.peerCount || SetNumber::count(number) > m_ledger.setCount) {
        return false;
    }
    const Role role = m_ledger.roles[slot];
    const bool isBulk = role == Role::BulkWriter || role == Role::Creator;
    switch (SetNumber::content(number)) {
    case Content::Both: return isBulk && group != SingleValues;
    case Content::First: return isBulk && group == FirstGroup;
    case Content::Second: return isBulk && group == SecondGroup;
    case Content::Single: return role == Role::SingleWriter && group == SingleValues;
    }
    return false;
}

void TorturePeer::fail(const QString &text)
{
    copyText(m_entry.failure, text);
    m_entry.hasFailed = true;
    // Not through the destructors: the region stays as it is for whoever looks at it.
    _exit(exitFailed);
}

} // namespace Torture
