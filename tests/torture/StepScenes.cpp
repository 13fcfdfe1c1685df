#include "torture/StepMode.h"

#include <QDebug>

#include <unistd.h>

// What the process does that is led.

namespace Torture {

namespace {

constexpr uid_t nobody = 65534;
constexpr quint32 sizes[] = {24, 29, 36, 64, 67, 100};
constexpr auto attach = SystemVSemaphoreBaseClass::CreationTypeAttach;
constexpr auto create = SystemVSemaphoreBaseClass::CreationTypeCreate;

bool readOnce(BufferHandlerInterface &handler)
{
    bool repeat = false;
    return handler.unlockForRead(handler.lockForRead(), repeat);
}

/// Two reads that have to be repeated, so that the next one holds writers off.
void readInVain(const NamedRegion &region, BufferHandlerInterface &reader)
{
    const NamedRegion::Handler writer = region.makeHandler(attach);
    for (int i = 0; i < 2; ++i) {
        unsigned char *const read = reader.lockForRead();
        for (int set = 0; set < 2; ++set) {
            unsigned char *const written = writer->lockForWrite();
            fillBuffer(written, region.size(), 1);
            writer->unlockForWrite(written);
            writer->swapBuffers();
        }
        bool repeat = false;
        reader.unlockForRead(read, repeat);
    }
}

} // namespace

/// Set 1 is published. With luck somebody has finished set 2 beside that.
void StepMode::arrange(Scene scene)
{
    m_current = scene >= Scene::SingleWriter ? 1 : 0;
    m_isFirstLocked = false;
    m_number = 4;
    m_sets = {};
    m_stage->lossWarnings = 0;
    m_stage->step = Step::Before;
    m_stage->result = 0;
    region().reset(sizes[random(std::size(sizes))]);
    m_isFirstInside = !(scene == Scene::LeavingOthers
                        || (scene == Scene::Leaving && random(2) == 0));
    if (scene == Scene::LeavingOthers) {
        // Whoever made the set died, so that nobody in it may remove it.
        Actor maker(*m_stage, deskCount - 1, m_regions);
        maker.ask(Act::Create, m_current);
        maker.kill();
        return;
    }
    if (!m_isFirstInside) {
        return;
    }
    expect(m_first.ask(Act::Create, m_current) == 1, "the region cannot be made");
    arrangeSets(scene);
}

void StepMode::arrangeSets(Scene scene)
{
    expect(m_first.ask(Act::Finish, m_current, 1) == 1, "refused: the first write lock");
    expect(m_first.ask(Act::Swap, m_current) == 1, "refused: the first swap");
    m_sets.newest = 1;
    const bool isWriting = scene <= Scene::SwapRecovery || scene == Scene::LeaseOwner
                           || scene == Scene::LeaseMaker;
    if (isWriting && random(2) == 0) {
        expect(m_first.ask(Act::Finish, m_current, 2) == 1, "refused: the second write lock");
        m_sets.finished = 2;
    }
    if (scene == Scene::Recovery || scene == Scene::SwapRecovery) {
        killWriter();
    }
    arrangeLease(scene);
}

void StepMode::killWriter()
{
    Actor writer(*m_stage, deskCount - 1, m_regions);
    writer.ask(Act::Attach, m_current);
    expect(writer.ask(Act::LockWrite, m_current) == 1, "refused: the lock of one that is to die");
    writer.ask(Act::FillHalf, m_current, 3);
    writer.kill();
}

/// In the child. Everything up to awaitSteps() is not led.
void StepMode::perform(Scene scene)
{
    if (scene == Scene::LeavingOthers && (setgid(nobody) != 0 || setuid(nobody) != 0)) {
        _exit(1);
    }
    NamedRegion::Handler handler;
    if (scene != Scene::Creation && scene != Scene::Attachment && scene != Scene::Closing) {
        handler = region().makeHandler(attach);
    }
    if (scene == Scene::HeldReader) {
        readInVain(region(), *handler);
    }
    if (isLeaseScene(scene) && handler) {
        performWarming(scene, *handler);
    }
    SteppedProcess::awaitSteps();
    switch (scene) {
    case Scene::Writer:
    case Scene::Recovery:
    case Scene::LeaseOwner:
    case Scene::LeaseMaker:
    case Scene::Revoker:
    case Scene::LeaseWaiter:
    case Scene::SingleWriter: performWriting(*handler, false); break;
    case Scene::SwapInside: performWriting(*handler, true); break;
    case Scene::GivingBack: performGivingBack(*handler); break;
    case Scene::SwapRecovery:
        m_stage->step = Step::Swapping;
        m_stage->result = handler->swapBuffers() ? 1 : 0;
        break;
    case Scene::Reader:
    case Scene::HeldReader:
    case Scene::SingleReader: performReading(*handler); break;
    case Scene::SingleUpgrade: performUpgrade(*handler); break;
    case Scene::Leaving:
    case Scene::LeavingOthers:
        m_stage->step = Step::Leaving;
        handler.reset();
        break;
    case Scene::Closing:
        m_stage->step = Step::Joining;
        PingPongBufferHandler::closeFormerRegion(*region().management(),
                                                 region().semaphores().key());
        handler = region().makeHandler(create);
        readOnce(*handler);
        break;
    case Scene::Creation:
    case Scene::Attachment:
        m_stage->step = Step::Joining;
        handler = region().makeHandler(scene == Scene::Creation ? create : attach);
        readOnce(*handler);
        break;
    }
    m_stage->step = Step::Ended;
    // Whether it ends or not, it does so without leaving.
    _exit(0);
}

void StepMode::performWriting(BufferHandlerInterface &handler, bool swapsInside)
{
    m_stage->step = Step::Entering;
    unsigned char *buffer = handler.lockForWrite();
    m_stage->step = Step::Inside;
    if (isPlanted(Plant::Mixed)) {
        region().buffer(region().management()->swapCount)[1] ^= 4;
    }
    if (isPlanted(Plant::Halved)) {
        // What is not aligned is written in two stores.
        fillBuffer(buffer + 1, region().size() / 2, 4);
    }
    fillBuffer(buffer, region().size(), m_number);
    if (swapsInside) {
        m_stage->step = Step::Swapping;
        handler.swapBuffers();
        m_stage->step = Step::Inside;
        fillBuffer(handler.writeBufferPointer(), region().size(), 5);
    }
    m_stage->step = Step::Leaving;
    handler.unlockForWrite(buffer);
    m_stage->step = Step::Swapping;
    m_stage->result = handler.swapBuffers() ? 1 : 0;
}

void StepMode::performReading(BufferHandlerInterface &handler)
{
    m_stage->step = Step::Entering;
    unsigned char *const buffer = handler.lockForRead();
    m_stage->step = Step::Inside;
    const volatile unsigned char *const bytes = buffer;
    const unsigned char first = bytes[0];
    bool isWhole = true;
    for (quint32 i = 1; i < region().size(); ++i) {
        isWhole = bytes[i] == first && isWhole;
    }
    m_stage->step = Step::Leaving;
    bool repeat = false;
    handler.unlockForRead(buffer, repeat);
    if (repeat && !isPlanted(Plant::Accepted)) {
        m_stage->result = -2;
        return;
    }
    m_stage->result = isWhole ? first : NamedRegion::sm_mixed;
}

void StepMode::performUpgrade(BufferHandlerInterface &handler)
{
    m_stage->step = Step::Entering;
    unsigned char *const buffer = handler.lockForRead();
    handler.lockForWrite();
    m_stage->step = Step::Inside;
    fillBuffer(buffer, region().size(), 4);
    m_stage->step = Step::Leaving;
    handler.unlockForWrite(buffer);
    bool repeat = false;
    handler.unlockForRead(buffer, repeat);
}

/// The first call of a function is looked up by thousands of instructions of the system. They are
/// done once, here, and inherited by all that are led.
void StepMode::warmUp() const
{
    for (const NamedRegion *region : m_regions) {
        region->reset(sizes[0]);
        const NamedRegion::Handler handler = region->makeHandler(create);
        handler->unlockForWrite(handler->lockForWrite());
        handler->swapBuffers();
        readOnce(*handler);
    }
    qWarning() << "Warnings go their way once";
    copyText(m_stage->lastMessage, QString());
}

bool StepMode::isPossible(Scene scene) const
{
    return scene != Scene::LeavingOthers || m_stranger != nullptr;
}

} // namespace Torture
