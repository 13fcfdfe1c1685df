#include "soak/SoakPeer.h"

#include "Access/ProcessDataWatcher.h"

#include <chrono>
#include <cstdio>
#include <thread>

#include <poll.h>

namespace Soak {

namespace {

constexpr int exitFailed = 3;
constexpr int exitUsage = 2;
/// What a process does before it leaves a region that it comes to again.
constexpr int roundsOfStay = 50;
/// Bounds how late a watcher hears that the end has come; nothing depends on it.
constexpr std::chrono::milliseconds waitBound{200};
constexpr quint64 secondBack = 1000000;
/// A fault comes when everybody has read good sets.
constexpr quint64 roundsBeforePlant = 20;

bool isReadable(int descriptor)
{
    pollfd polled{descriptor, POLLIN, 0};
    return poll(&polled, 1, static_cast<int>(waitBound.count())) > 0;
}

} // namespace

const SoakPeer::Role SoakPeer::sm_roles[] = {
    {"owner", &SoakPeer::own},   {"creator", &SoakPeer::create}, {"writer", &SoakPeer::write},
    {"reader", &SoakPeer::read}, {"visitor", &SoakPeer::visit},  {"watcher", &SoakPeer::watch},
};

SoakPeer::SoakPeer(const Start &start)
    : m_start(start)
    , m_board(start.board, start.slot)
    , m_leaks(start.plants, start.region.key)
    , m_random(static_cast<quint64>(start.slot))
{
}

int SoakPeer::run()
{
    for (const Role &role : sm_roles) {
        if (m_start.role == QLatin1String(role.name)) {
            while (canGoOn()) {
                (this->*role.work)();
            }
            if (m_fault.isEmpty()) {
                return 0;
            }
            std::fprintf(stderr, "%s\n", qPrintable(m_fault));
            return exitFailed;
        }
    }
    std::fprintf(stderr, "soak: no role '%s'\n", qPrintable(m_start.role));
    return exitUsage;
}

bool SoakPeer::canGoOn() const
{
    return m_fault.isEmpty() && !m_board.isEnding();
}

/// Publishes in a region that stays.
void SoakPeer::own()
{
    const auto region = SoakRegion::create(m_start.region, m_fault);
    while (region && canGoOn()) {
        publishOnce(*region);
        rest();
    }
}

/// Publishes in a region that goes and comes back.
void SoakPeer::create()
{
    const auto region = SoakRegion::create(m_start.region, m_fault);
    for (int round = 0; region && canGoOn() && round < roundsOfStay; ++round) {
        publishOnce(*region);
        rest();
    }
}

void SoakPeer::write()
{
    const auto region = attached();
    while (region && canGoOn() && !region->isReplaced()) {
        publishOnce(*region);
        rest();
    }
}

void SoakPeer::read()
{
    const auto region = attached();
    while (region && canGoOn() && !region->isReplaced()) {
        readOnce(*region);
        rest();
    }
}

/// Comes, reads one set and leaves.
void SoakPeer::visit()
{
    if (const auto region = attached()) {
        readOnce(*region);
    }
    rest();
}

/// Waits for sets by a call and by a descriptor, with a new watcher each time.
void SoakPeer::watch()
{
    const auto region = attached();
    while (region && canGoOn() && !region->isReplaced()) {
        ProcessDataWatcher watcher(region->manager());
        quint64 seen = watcher.getGeneration();
        bool isThere = true;
        for (int round = 0; isThere && canGoOn() && round < roundsOfStay; ++round) {
            isThere = watchOnce(watcher, seen);
            readOnce(*region);
        }
    }
}

/// False once the region is gone.
bool SoakPeer::watchOnce(ProcessDataWatcher &watcher, quint64 &seen)
{
    using Result = ProcessDataWatcher::Result;
    Result result = Result::TimedOut;
    if (m_random() % 2 == 0) {
        result = watcher.wait(seen, waitBound);
    } else {
        const int descriptor = watcher.getDescriptor();
        if (descriptor < 0) {
            m_fault = QStringLiteral("a watcher has no descriptor");
        } else if (isReadable(descriptor)) {
            result = watcher.acknowledge(seen);
        }
    }
    if (result == Result::NotSupported || result == Result::Stopped) {
        m_fault = QStringLiteral("a watcher ends a wait with %1").arg(static_cast<int>(result));
    }
    return result != Result::RegionGone;
}

/// Null if there is no region at the moment, or behind a fault.
std::unique_ptr<SoakRegion> SoakPeer::attached()
{
    auto region = SoakRegion::attach(m_start.region, m_fault);
    if (!region) {
        rest();
    }
    return region;
}

void SoakPeer::publishOnce(SoakRegion &region)
{
    const bool isDue = m_rounds >= roundsBeforePlant;
    // Each by itself is as good as any other: it is in between newer ones that it is older.
    const bool isOlder = isDue && m_rounds % 2 == 0
                         && m_start.plants.contains(QLatin1String("older"));
    const bool isTorn = isDue && m_start.plants.contains(QLatin1String("torn"));
    if (region.publish(m_start.slot, m_fault, isOlder ? secondBack : 0, isTorn)
        == SoakRegion::Outcome::Done) {
        noteRound();
    }
}

void SoakPeer::readOnce(SoakRegion &region)
{
    if (region.read(m_fault) == SoakRegion::Outcome::Done) {
        noteRound();
    }
}

void SoakPeer::noteRound()
{
    ++m_rounds;
    m_board.noteRound();
    m_leaks.leak(m_board.period());
}

/// So that the others come to their turn as well; nothing depends on how long.
void SoakPeer::rest()
{
    std::this_thread::sleep_for(std::chrono::microseconds(m_random() % 4000));
}

} // namespace Soak
