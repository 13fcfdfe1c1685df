#include "torture/StepMode.h"

// What the others find beside a process that stands still, and after its death.

namespace Torture {

namespace {

/// Nobody is inside: a lock is a matter of microseconds. Long, for a busy machine, and shorter than
/// the bound after which a lock fails.
constexpr qint64 promptly = 4 * second;

} // namespace

void StepMode::checkBesideStopped(Scene scene, SteppedProcess &process)
{
    if (scene == Scene::Reader) {
        checkReaderBesideWriter(process);
        return;
    }
    int number = 0;
    if (isLeaseScene(scene)) {
        checkLeaseBesideStopped(scene);
    }
    if (region().isDoubleBuffer() && m_isFirstInside && scene != Scene::GivingBack) {
        expect(isReadable(number), "refused: a read beside a process that stands still");
        expect(number == m_sets.newest, "back in time: a read beside a process that stands still");
    }
    expect(process.goOn(), "crash: it does not come to its end after a stop");
    if (scene == Scene::Writer || scene == Scene::Recovery) {
        expect(m_stage->result == 1, "refused: the swap of a writer that stood still");
        expect(region().published() == 4, "lost: the set of a writer that stood still");
    }
    look();
    m_sets.finished = 0;
}

/// Others publish meanwhile. What the reader then accepts is one whole set that is not too old.
void StepMode::checkReaderBesideWriter(SteppedProcess &process)
{
    const int oldest = m_sets.newest;
    const int count = static_cast<int>(random(4));
    for (int i = 0; i < count; ++i) {
        expect(m_first.ask(Act::Finish, m_current, 5 + i) == 1, "refused: a lock beside a reader");
        if (i + 1 < count || random(2) == 0) {
            expect(m_first.ask(Act::Swap, m_current) == 1, "refused: a swap beside a reader");
        }
    }
    expect(process.goOn(), "crash: a reader does not come to its end after a stop");
    const qint64 read = m_stage->result;
    expect(read != NamedRegion::sm_mixed, "mixed set: accepted by a reader that stood still");
    expect(read == -2 || read >= oldest, "back in time: accepted by a reader that stood still");
    m_sets.newest = region().published();
    m_sets.finished = 0;
}

void StepMode::noteSets(Scene scene, bool hasDied)
{
    const bool isWriting = scene <= Scene::SwapRecovery
                           || (isLeaseScene(scene) && scene != Scene::Closing);
    if (!hasDied && isWriting && m_stage->result == 1) {
        m_sets.finished = 0;
    } else if (hasDied && isWriting && m_stage->step == Step::Swapping && scene != Scene::SwapInside
               && scene != Scene::SwapRecovery && scene != Scene::GivingBack) {
        // Its lock was given back: the set is finished.
        m_sets.finished = m_number;
    }
}

void StepMode::checkAfterwards()
{
    if (hasFailed()) {
        return;
    }
    if (m_isFirstInside && region().isDoubleBuffer()) {
        checkDoubleBuffer();
    } else if (m_isFirstInside) {
        checkSingleBuffer();
    }
    checkUsers();
    leaveAll();
}

bool StepMode::isReadable(int &number)
{
    number = static_cast<int>(m_first.ask(Act::Read, m_current));
    return number >= 0;
}

void StepMode::checkDoubleBuffer()
{
    int number = 0;
    expect(isReadable(number), "refused: a read after a death");
    expect(number >= m_sets.newest, "back in time: a read after a death");
    expect(m_second.ask(Act::Attach, m_current) == 1, "hangs: an attachment after a death");
    const qint64 begin = steadyNow();
    const auto found = static_cast<int>(m_second.ask(Act::Rescue, m_current, 9));
    expect(found != -1 && found != Actor::sm_noAnswer && steadyNow() - begin < promptly,
           "locked out: the next writer after a death");
    expect(found != NamedRegion::sm_mixed, "mixed set: half a set of a dead writer is kept");
    checkLoss(found);
    expect(m_second.ask(Act::Swap, m_current) == 1, "refused: the next swap after a death");
    expect(isReadable(number) && number == 9, "lost: the next set after a death");
    if (m_sets.finished == 2) {
        // Its own set is long overtaken.
        expect(m_first.ask(Act::Swap, m_current) == 1, "refused: a swap after all");
        expect(isReadable(number) && number == 9, "back in time: a swap brings an old set back");
    }
    m_second.ask(Act::Leave, m_current);
}

void StepMode::checkLoss(int found)
{
    const int kept = std::max(found, m_sets.newest);
    if (m_sets.finished > kept) {
        expect(m_stage->lossWarnings > 0, "lost without a warning: a finished set");
    }
}

void StepMode::checkSingleBuffer()
{
    expect(m_second.ask(Act::Attach, m_current) == 1, "hangs: an attachment after a death");
    const qint64 begin = steadyNow();
    expect(m_second.ask(Act::Finish, m_current, 9) == 1 && steadyNow() - begin < promptly,
           "locked out: the next writer of a single buffer after a death");
    int number = 0;
    expect(isReadable(number) && number == 9, "lost: the next value after a death");
    m_second.ask(Act::Leave, m_current);
}

/// Somebody who comes anew is let in, whoever has left or died.
void StepMode::checkUsers()
{
    Actor &newcomer = m_scene == Scene::LeavingOthers ? *m_stranger : m_second;
    const bool isCreator = m_scene == Scene::Creation && random(2) == 0;
    const Act join = isCreator ? Act::Create : Act::Attach;
    expect(newcomer.ask(join, m_current) == 1, "hangs: one that comes anew");
    expect(newcomer.ask(Act::Finish, m_current, 10) == 1,
           "refused: the lock of one that comes anew");
    if (m_isFirstInside) {
        expect(m_first.ask(Act::Finish, m_current, 11) == 1,
               "refused: the lock of one that was there all the time");
    }
    newcomer.ask(Act::Leave, m_current);
}

void StepMode::leaveAll()
{
    if (m_isFirstInside) {
        m_first.ask(Act::Leave, m_current);
    }
    if (isPlanted(Plant::Semaphores) && m_scene == Scene::Leaving) {
        region().semaphores().make({1});
    }
    if (m_scene == Scene::LeavingOthers) {
        // Nobody of its users may remove it.
        region().semaphores().remove();
    }
    expect(!region().semaphores().exists(), "left behind: a set of semaphores");
    expect(region().segment().exists(), "left without: the name of the region");
}

} // namespace Torture
