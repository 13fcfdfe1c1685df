#include "torture/TortureDriver.h"

#include "torture/CaughtSignal.h"

#include <algorithm>

#include <sys/sem.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Torture {

namespace {

constexpr qint64 tickLength = 10 * millisecond;
/// What nothing explains must stay below.
constexpr qint64 waitBound = second;
/// What the library promises behind a stopped holder, with a second for the rest of the call.
constexpr qint64 lockBound = 6 * second;
constexpr qint64 readBound = 2 * second;
/// In a call that is not over the kernel does not count yet what it lacked, so this is longer.
constexpr qint64 hangBound = 9 * second;
constexpr qint64 endBound = 10 * second;
/// How much longer a run may last in which too little happened.
constexpr qint64 longestExtension = 300 * second;

QString seconds(qint64 nanoseconds)
{
    return QString::number(static_cast<double>(nanoseconds) / second, 'f', 3) + QLatin1String(" s");
}

} // namespace

TortureDriver::TortureDriver(const Options &options)
    : m_options(options)
    , m_key(QStringLiteral("tesselTorture%1").arg(getpid()))
    , m_semaphores(m_key + QLatin1String("Semaphore"))
    , m_segment(m_key + QLatin1String("SharedMemory"))
    , m_random(options.seed)
    , m_swaps(*m_ledger, m_segment.path())
    , m_begin(steadyNow())
{
    const Role others[] = {Role::BulkWriter,   Role::BulkReader, Role::SingleWriter,
                           Role::SingleReader, Role::BulkWriter, Role::BulkReader,
                           Role::BulkWriter};
    m_ledger->plant = options.plant;
    m_ledger->peerCount = options.processes;
    m_ledger->slotCount = options.slotCount();
    m_ledger->roles[0] = Role::Creator;
    std::copy(std::begin(others), std::end(others), m_ledger->roles + 1);
    for (int slot = options.processes; slot < maximumSlots; ++slot) {
        const bool isEven = (slot - options.processes) % 2 == 0;
        m_ledger->roles[slot] = isEven ? Role::Poller : Role::Waiter;
    }
}

int TortureDriver::run()
{
    catchSignals();
    for (int slot = 0; slot < slotCount(); ++slot) {
        start(slot);
    }
    runUntil(m_begin + m_options.seconds * second);
    if (!hasFailed()) {
        endAll();
    }
    cleanUp();
    report();
    if (hasFailed()) {
        return 1;
    }
    return caughtSignal() != 0 ? 128 + caughtSignal() : 0;
}

void TortureDriver::runUntil(qint64 deadline)
{
    while (isTimeLeft(deadline) && caughtSignal() == 0 && !hasFailed()) {
        tick();
        startDue();
        if (m_options.plant == Plant::None) {
            disturb();
        }
        plant();
    }
}

/// A run that has not killed, stopped and started anybody again, or in which nothing was written,
/// shows nothing. On a busy machine a short one goes on until it has.
bool TortureDriver::isTimeLeft(qint64 deadline) const
{
    const qint64 now = steadyNow();
    if (now < deadline || m_options.plant != Plant::None) {
        return now < deadline;
    }
    const bool isIdle = (m_options.isKilling && m_figures.kills == 0) || m_figures.stops == 0
                        || m_figures.restarts == 0 || sum(&PeerEntry::setsWritten) == 0
                        || (slotCount() > m_options.processes
                            && (sum(&WaitEntry::sleeps) == 0 || sum(&WaitEntry::setsAwaited) == 0
                                || sum(&WaitEntry::setsPolled) == 0
                                || sum(&WaitEntry::waitsBesides) == 0));
    return isIdle && now < deadline + longestExtension;
}

/// The faults on purpose that are not a matter of the processes.
void TortureDriver::plant()
{
    if (steadyNow() < m_begin + second) {
        return;
    }
    if (m_options.plant == Plant::Refused) {
        m_semaphores.remove();
    }
    if (m_options.plant == Plant::Beyond && !m_ledger->isHolderCaught) {
        const int slot = catchHolder();
        m_ledger->isHolderCaught = slot >= 0;
        takeSample(0);
    }
}

void TortureDriver::tick()
{
    const qint64 before = steadyNow();
    sleepFor(tickLength);
    collectEnds();
    takeSample(std::max(steadyNow() - before - tickLength, qint64{0}));
    judgeCalls();
    judgeWaits();
    showProgress();
}

void TortureDriver::start(int slot)
{
    PeerEntry &entry = m_ledger->peers[slot];
    entry.isAskedToEnd = false;
    entry.phase = Phase::Outside;
    entry.callBegin = 0;
    entry.wait.begin = 0;
    Child &child = m_children[slot];
    child.startAt = 0;
    child.resumeAt = 0;
    child.askedToEndAt = 0;
    child.regionsAtStart = entry.regions;
    child.process.start({QStringLiteral("--peer"), QString::number(slot),
                         QString::number(m_random()), QString::number(m_ledger.fd()),
                         QString::number(m_options.isDoubleBuffer ? 1 : 0), m_key});
}

void TortureDriver::startDue()
{
    const qint64 now = steadyNow();
    for (int slot = 0; slot < slotCount(); ++slot) {
        const Child &child = m_children[slot];
        if (!child.process.isAlive() && child.startAt != 0 && child.startAt <= now) {
            start(slot);
            ++m_figures.restarts;
        } else if (child.resumeAt != 0 && child.resumeAt <= now) {
            resume(slot);
        }
    }
}

void TortureDriver::collectEnds()
{
    for (int slot = 0; slot < slotCount(); ++slot) {
        if (const std::optional<int> end = m_children[slot].process.collectEnd()) {
            judgeEnd(slot, *end);
        }
    }
}

void TortureDriver::judgeEnd(int slot, int status)
{
    Child &child = m_children[slot];
    const PeerEntry &entry = m_ledger->peers[slot];
    if (entry.hasFailed) {
        fail(slot, QString::fromUtf8(entry.failure));
    } else if (WIFSIGNALED(status)) {
        fail(slot,
             QStringLiteral("crash: died by signal %1, which nobody sent").arg(WTERMSIG(status)));
    } else if (WEXITSTATUS(status) != 0 || (child.askedToEndAt == 0 && !m_isEnding)) {
        fail(slot,
             QStringLiteral("crash: ended unasked with exit code %1").arg(WEXITSTATUS(status)));
    }
    if (!m_isEnding) {
        ++m_figures.cleanEnds;
        scheduleStart(slot);
    }
    child.resumeAt = 0;
    child.askedToEndAt = 0;
}

void TortureDriver::takeSample(qint64 overslept)
{
    m_swaps.look();
    Sample sample;
    sample.time = steadyNow();
    m_lastSample = sample.time;
    sample.overslept = overslept;
    sample.holder = findHolder();
    for (int slot = 0; slot < slotCount(); ++slot) {
        PeerProcess &process = m_children[slot].process;
        sample.starved[slot] = process.starved();
        sample.isStopped[slot] = process.isStopped();
    }
    sample.isHolderStopped = (sample.holder >= 0 && sample.isStopped[sample.holder])
                             || (!m_options.isDoubleBuffer && isReaderStopped());
    m_judge.add(sample);
}

/// Asked of the kernel, not of the ledger: a process may be given the lock while it sleeps, and a
/// reader takes it without saying so. As long as the semaphore is 1, the process that changed it
/// last is inside. Where the lock stays with a process, that one alone tells whether it is inside.
int TortureDriver::findHolder() const
{
    const int id = m_semaphores.id();
    if (id < 0) {
        return -1;
    }
    const int writer = m_semaphores.isWriteLocked()
                           ? findLastUser(id, SemaphoreSet::Names::SemaphoreWriteLock)
                           : -1;
    const int owner = m_semaphores.isKept() ? findLastUser(id, SemaphoreSet::Names::SemaphoreLease)
                                            : -1;
    // Whoever waits for an owner inside takes the write semaphore now and then, to look.
    const bool isWriterStopped = writer >= 0 && m_children[writer].process.isStopped();
    return owner < 0 || isWriterStopped || m_ledger->peers[owner].phase == Phase::Outside ? writer
                                                                                          : owner;
}

int TortureDriver::findLastUser(int set, int semaphore) const
{
    const pid_t user = semctl(set, semaphore, GETPID);
    for (int slot = 0; slot < slotCount(); ++slot) {
        if (m_children[slot].process.pid() == user) {
            return slot;
        }
    }
    return -1;
}

/// Readers of a single buffer hold writers off, and the kernel does not tell which they are.
bool TortureDriver::isReaderStopped() const
{
    if (m_semaphores.readers() <= 0) {
        return false;
    }
    for (int slot = 0; slot < slotCount(); ++slot) {
        const Phase phase = m_ledger->peers[slot].phase;
        if (m_children[slot].process.isStopped()
            && (phase == Phase::Reading || phase == Phase::Calling)) {
            return true;
        }
    }
    return false;
}

void TortureDriver::judgeCalls()
{
    for (int slot = 0; slot < slotCount(); ++slot) {
        const PeerEntry &entry = m_ledger->peers[slot];
        Child &child = m_children[slot];
        const quint32 count = entry.callCount;
        for (; child.seenCalls != count; ++child.seenCalls) {
            // What was overwritten is lost; the ring holds more than a second of such calls.
            if (count - child.seenCalls <= callCapacity) {
                judgeCall(slot, entry.calls[child.seenCalls % callCapacity]);
            }
        }
        judgeOpenCall(slot);
        judgeSlowEnd(slot);
    }
}

void TortureDriver::judgeCall(int slot, const LongCall &call)
{
    const qint64 length = call.end - call.begin;
    const qint64 unexplained = m_judge.unexplained(slot, call.begin, call.end);
    m_figures.longestWait = std::max(m_figures.longestWait, length);
    m_figures.longestUnexplained = std::max(m_figures.longestUnexplained, unexplained);
    if (unexplained > waitBound) {
        fail(slot, QStringLiteral("wait without a reason: a call took %1, and %2 of that remain "
                                  "unexplained")
                       .arg(seconds(length), seconds(unexplained)));
    }
    const bool isShort = m_options.isDoubleBuffer
                         && call.phase == static_cast<quint32>(Phase::Reading);
    const qint64 bound = isShort ? readBound : lockBound;
    const qint64 own = m_judge.unexplained(slot, call.begin, call.end, Excuse::OwnStop);
    if (own > bound) {
        fail(slot, QStringLiteral("wait beyond the bound: a call took %1, and %2 of that count")
                       .arg(seconds(length), seconds(own)));
    }
}

void TortureDriver::judgeOpenCall(int slot)
{
    const qint64 begin = m_ledger->peers[slot].callBegin;
    if (!m_children[slot].process.isAlive() || begin == 0) {
        return;
    }
    const qint64 unexplained = m_judge.unexplained(slot, begin, steadyNow(), Excuse::OwnStop);
    if (unexplained > hangBound) {
        fail(slot,
             QStringLiteral("hangs: a call has not come back for %1").arg(seconds(unexplained)));
    }
}

void TortureDriver::judgeSlowEnd(int slot)
{
    const Child &child = m_children[slot];
    if (!child.process.isAlive() || child.askedToEndAt == 0) {
        return;
    }
    // Behind a stopped holder a last call may take its whole bound.
    const qint64 slow = m_judge.unexplained(slot, child.askedToEndAt, steadyNow());
    if (slow > endBound) {
        fail(slot,
             QStringLiteral("does not end although it was asked to %1 ago").arg(seconds(slow)));
    }
}

/// The segment's name is the creator's to remove. One that died needs a successor, and that one has to
/// come so far that the region is its own.
void TortureDriver::awaitCreator()
{
    const Child &creator = m_children[0];
    const qint64 deadline = steadyNow() + endBound;
    while (
        !hasFailed() && steadyNow() < deadline
        && (!creator.process.isAlive() || m_ledger->peers[0].regions == creator.regionsAtStart)) {
        if (!creator.process.isAlive()) {
            start(0);
        }
        tick();
    }
}

void TortureDriver::endAll()
{
    for (int slot = 0; slot < slotCount(); ++slot) {
        if (m_children[slot].process.isStopped()) {
            resume(slot);
        }
    }
    awaitCreator();
    m_isEnding = true;
    m_ledger->isEnding = true;
    for (Child &child : m_children) {
        child.askedToEndAt = steadyNow();
    }
    while (isAnybodyAlive() && !hasFailed()) {
        tick();
    }
    if (m_options.plant == Plant::Semaphores) {
        m_semaphores.make({1});
    }
    if (!hasFailed()) {
        checkNothingLeft();
    }
}

bool TortureDriver::isAnybodyAlive() const
{
    return std::any_of(std::begin(m_children), std::end(m_children),
                       [](const Child &child) { return child.process.isAlive(); });
}

void TortureDriver::checkNothingLeft()
{
    if (m_segment.exists()) {
        fail(-1, QStringLiteral("left behind: ") + m_segment.path());
    }
    if (m_semaphores.exists()) {
        fail(-1, QStringLiteral("left behind: a set of semaphores with key %1")
                     .arg(SystemVSemaphoreBaseClass::systemVKey(m_semaphores.key())));
    }
}

void TortureDriver::cleanUp()
{
    for (Child &child : m_children) {
        if (child.process.isAlive()) {
            child.process.kill();
        }
    }
    m_segment.remove();
    m_semaphores.remove();
}

void TortureDriver::fail(int slot, const QString &text)
{
    // The first thing that goes wrong is the one to look at.
    if (hasFailed()) {
        return;
    }
    m_failure = text;
    m_failedSlot = slot;
    m_failedProcess = slot < 0 ? -1 : m_children[slot].process.pid();
}

} // namespace Torture
