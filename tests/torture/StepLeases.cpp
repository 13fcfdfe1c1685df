#include "support/LeaseWords.h"
#include "torture/StepMode.h"

#include <sys/sem.h>
#include <unistd.h>

// A write lock that stays with its writer: who keeps it, who takes it away, and who waits.

namespace Torture {

namespace {

/// Locks that a process takes alone before the next one makes it the owner.
constexpr int locksBeforeTheLast = 16;
/// Far more than that.
constexpr int enoughLocks = 60;
/// Nobody is inside: a lock is a matter of microseconds.
constexpr qint64 promptly = 4 * second;
constexpr quint64 longestWait = 2500; // instructions
constexpr quint64 lastPlace = 2500;

void writeSet(const NamedRegion &region, BufferHandlerInterface &handler, int number)
{
    unsigned char *const buffer = handler.lockForWrite();
    fillBuffer(buffer, region.size(), number);
    handler.unlockForWrite(buffer);
}

} // namespace

bool StepMode::isLeaseScene(Scene scene)
{
    return scene >= Scene::LeaseOwner && scene <= Scene::Closing;
}

bool StepMode::isWordIn(quint64 state) const
{
    const LeaseWords lease(region().management());
    return state == LeaseWords::Idle ? lease.isIdle() : lease.isInside();
}

/// Where the process that is led comes to an owner, the first actor is that.
void StepMode::arrangeLease(Scene scene)
{
    if (scene != Scene::Revoker && scene != Scene::LeaseWaiter && scene != Scene::Closing) {
        return;
    }
    for (int i = 0; i < enoughLocks && !isWordIn(LeaseWords::Idle); ++i) {
        expect(m_first.ask(Act::Finish, m_current, 2) == 1, "refused: the lock of one alone");
    }
    expect(isWordIn(LeaseWords::Idle), "lost: a lock does not stay");
    m_sets.finished = 2;
    m_isFirstLocked = scene == Scene::LeaseWaiter;
    if (m_isFirstLocked) {
        expect(m_first.ask(Act::LockWrite, m_current) == 1, "refused: the lock of an owner");
        expect(isWordIn(LeaseWords::Inside), "lost: an owner goes in without its lease");
        m_first.ask(Act::FillHalf, m_current, 2);
        m_stepsToUnlock = random(longestWait);
    }
}

/// In the child, before it is led: publishes the set before its own and takes the lock so often as the scene needs.
void StepMode::performWarming(Scene scene, BufferHandlerInterface &handler)
{
    if (scene != Scene::LeaseOwner && scene != Scene::LeaseMaker && scene != Scene::GivingBack) {
        return;
    }
    for (int i = 1; i < locksBeforeTheLast; ++i) {
        writeSet(region(), handler, m_number - 1);
    }
    handler.swapBuffers();
    if (scene == Scene::LeaseMaker) {
        return;
    }
    while (!isWordIn(LeaseWords::Idle)) {
        handler.unlockForWrite(handler.lockForWrite());
    }
    handler.swapBuffers();
    if (scene == Scene::GivingBack) {
        handler.lockForWrite();
    }
}

/// The end of a lock that somebody waits for.
void StepMode::performGivingBack(BufferHandlerInterface &handler)
{
    unsigned char *const buffer = handler.writeBufferPointer();
    m_stage->step = Step::Inside;
    fillBuffer(buffer, region().size(), m_number);
    m_stage->step = Step::Leaving;
    handler.unlockForWrite(buffer);
    m_stage->step = Step::Swapping;
    m_stage->result = handler.swapBuffers() ? 1 : 0;
}

/// What others do while the process is led.
void StepMode::beginBeside(Scene scene)
{
    if (hasFailed()) {
        return;
    }
    m_isLeaseLeftOver = scene == Scene::LeaseMaker && random(2) == 0;
    if (m_isLeaseLeftOver) {
        leaveLeaseOver();
    }
    if (scene != Scene::GivingBack) {
        return;
    }
    m_first.begin(Act::Rescue, m_current, 5);
    expect(region().semaphores().waitUntilBlocked(SemaphoreSet::Names::SemaphoreLease, 1),
           "let in: a writer beside the owner");
}

/// What a process leaves that dies over taking a lease away: the word is cleared, and the former owner
/// does not know of it.
void StepMode::leaveLeaseOver()
{
    region().semaphores().setValue(SemaphoreSet::Names::SemaphoreLease, 1);
    if (isPlanted(Plant::LeftOver)) {
        LeaseWords lease(region().management());
        lease.words.word = LeaseWords::make(region().semaphores().id(), 1, LeaseWords::Inside);
    }
}

/// Whether nobody has changed it since.
bool StepMode::isLeaseLeftOver() const
{
    const int set = region().semaphores().id();
    return region().semaphores().isKept()
           && semctl(set, SemaphoreSet::Names::SemaphoreLease, GETPID) == getpid();
}

/// Before each instruction.
void StepMode::lookBeside()
{
    if (m_isLeaseLeftOver && isWordIn(LeaseWords::Inside)) {
        expect(!isLeaseLeftOver(), "left over: a lease begins beside the semaphore of another one");
        m_isLeaseLeftOver = false;
        if (isPlanted(Plant::LeftOver)) {
            // Nobody shall wait for what is only told.
            LeaseWords(region().management()).words.word = 0;
            region().semaphores().setValue(SemaphoreSet::Names::SemaphoreLease, 0);
        }
    }
    if (m_isFirstLocked && m_stepsToUnlock-- == 0) {
        endBeside(Scene::LeaseWaiter);
    }
}

void StepMode::checkLeaseBesideStopped(Scene scene)
{
    const qint64 begin = steadyNow();
    if (scene == Scene::LeaseWaiter) {
        endBeside(scene);
    }
    if (scene == Scene::GivingBack && isWordIn(LeaseWords::Idle)) {
        // It stands between its leaving and its look whether somebody waits.
        while (!m_first.isAnswered() && steadyNow() - begin < promptly) {
            sleepFor(millisecond);
        }
        expect(m_first.isAnswered(), "locked out: a writer behind an owner that stands outside");
        return;
    }
    if (scene != Scene::LeaseOwner || !isWordIn(LeaseWords::Idle)) {
        return;
    }
    expect(m_first.ask(Act::Finish, m_current, m_number) == 1 && steadyNow() - begin < promptly,
           "locked out: a writer beside an owner that stands outside");
}

void StepMode::endBeside(Scene scene)
{
    if (m_isFirstLocked) {
        m_isFirstLocked = false;
        m_first.ask(Act::Fill, m_current, 2);
        expect(m_first.ask(Act::UnlockWrite, m_current) == 1, "refused: the unlock of an owner");
    }
    if (scene == Scene::GivingBack) {
        const qint64 found = m_first.await();
        expect(found != -1 && found != Actor::sm_noAnswer,
               "locked out: a writer for whom the owner gives back");
        expect(found != NamedRegion::sm_mixed, "mixed set: found behind an owner");
        m_sets.finished = region().published() == 5 ? 0 : 5;
    }
}

/// Another process comes to what a dead one has left, and dies as well.
void StepMode::dieAgain(Scene scene)
{
    constexpr Scene seconds[] = {Scene::Writer, Scene::LeaseOwner, Scene::LeaseMaker};
    const Scene next = seconds[random(std::size(seconds))];
    if (hasFailed() || scene == Scene::Closing) {
        return;
    }
    m_number = 6;
    m_stage->step = Step::Before;
    m_stage->result = 0;
    SteppedProcess process([this, next] { perform(next); });
    expect(process.isAlive(), "locked out: the second one after a death");
    const quint64 place = random(lastPlace);
    quint64 steps = 0;
    const bool stands = process.lead([this, &steps, place] {
        return look() && m_stage->step != Step::Ended && steps++ < place;
    });
    expect(stands, "hangs or dies at a single instruction, as the second one");
    process.kill();
    const bool hasDied = m_stage->step != Step::Ended;
    m_secondDeaths += hasDied ? 1 : 0;
    if (isPlanted(Plant::Twice) && hasDied) {
        plantOwnerWithoutLife();
    }
    noteSets(next, hasDied);
}

/// The lock is free, and its former owner goes on without hearing of that.
void StepMode::checkRevocation()
{
    if (isPlanted(Plant::Uncleared)) {
        region().semaphores().setValue(SemaphoreSet::Names::SemaphoreLease, 1);
    }
    expect(!region().semaphores().isKept(), "left behind: a lease that was taken away");
}

/// What a death without undo would leave.
void StepMode::plantOwnerWithoutLife()
{
    LeaseWords lease(region().management());
    lease.words.word = LeaseWords::make(region().semaphores().id(), 1, LeaseWords::Inside);
    region().semaphores().setValue(SemaphoreSet::Names::SemaphoreLease, 1);
}

} // namespace Torture
