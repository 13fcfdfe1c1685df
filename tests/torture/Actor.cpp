#include "torture/Actor.h"

#include "torture/CaughtSignal.h"

namespace Torture {

namespace {

/// The process behind an actor.
class Player
{
public:
    Player(Desk &desk, const std::vector<const NamedRegion *> &regions)
        : m_desk(desk)
        , m_regions(regions)
        , m_handlers(regions.size())
        , m_locked(regions.size())
    {
    }

    [[noreturn]] void play(const ChildSide &parent)
    {
        m_desk.process = getpid();
        for (;;) {
            parent.waitForWord();
            m_desk.isBegun = true;
            m_desk.answer = perform(static_cast<Act>(m_desk.act.load()));
            parent.say();
        }
    }

private:
    using Pointer = BufferHandlerInterface::BufferPointer;

    std::size_t index() const { return m_desk.region; }
    const NamedRegion &region() const { return *m_regions[index()]; }
    BufferHandlerInterface &handler() const { return *m_handlers[index()]; }

    qint64 join(SystemVSemaphoreBaseClass::CreationType type)
    {
        m_handlers[index()] = region().makeHandler(type);
        return 1;
    }

    qint64 perform(Act act)
    {
        switch (act) {
        case Act::Create: return join(SystemVSemaphoreBaseClass::CreationTypeCreate);
        case Act::Attach: return join(SystemVSemaphoreBaseClass::CreationTypeAttach);
        case Act::Leave: m_handlers[index()].reset(); return 1;
        case Act::LockRead: return handler().lockForRead() != nullptr ? 1 : 0;
        case Act::UnlockRead: return unlockRead();
        case Act::LockWrite: m_locked[index()] = handler().lockForWrite(); return isLocked();
        case Act::Fill: return fill(false);
        case Act::FillHalf: return fill(true);
        case Act::UnlockWrite: return handler().unlockForWrite(m_locked[index()]) ? 1 : 0;
        case Act::Swap: return handler().swapBuffers() ? 1 : 0;
        case Act::Read: return read();
        case Act::Finish: return rescue() == -1 ? 0 : 1;
        case Act::Rescue: return rescue();
        }
        return 0;
    }

    qint64 isLocked() const { return m_locked[index()] != nullptr ? 1 : 0; }

    qint64 fill(bool isHalf)
    {
        fillBuffer(m_locked[index()], region().size(), static_cast<int>(m_desk.argument), isHalf);
        return 1;
    }

    qint64 unlockRead()
    {
        bool repeat = false;
        if (!handler().unlockForRead(handler().readBufferPointer(), repeat)) {
            return 0;
        }
        return repeat ? -1 : 1;
    }

    qint64 read()
    {
        const Pointer buffer = handler().lockForRead();
        if (buffer == nullptr) {
            return -1;
        }
        const int number = region().numberIn(buffer);
        bool repeat = false;
        if (!handler().unlockForRead(buffer, repeat)) {
            return -1;
        }
        return repeat ? -2 : number;
    }

    qint64 rescue()
    {
        m_locked[index()] = handler().lockForWrite();
        if (isLocked() == 0) {
            return -1;
        }
        const int number = region().numberIn(m_locked[index()]);
        fill(false);
        return handler().unlockForWrite(m_locked[index()]) ? number : -1;
    }

    Desk &m_desk;
    const std::vector<const NamedRegion *> &m_regions;
    std::vector<NamedRegion::Handler> m_handlers;
    std::vector<Pointer> m_locked;
};

} // namespace

Actor::Actor(Stage &stage, int desk, const std::vector<const NamedRegion *> &regions, uid_t user)
    : m_desk(stage.desks[desk])
    , m_child([&stage, &regions, user, this](const ChildSide &parent) -> int {
        ignoreSignals();
        tellStage(stage);
        if (user != 0) {
            if (setgid(user) != 0 || setuid(user) != 0) {
                return 1;
            }
            // The kernel forgets this with the former user.
            prctl(PR_SET_PDEATHSIG, SIGKILL);
        }
        Player(m_desk, regions).play(parent);
    })
{
}

qint64 Actor::ask(Act act, int region, qint64 argument)
{
    begin(act, region, argument);
    return await();
}

void Actor::begin(Act act, int region, qint64 argument)
{
    m_desk.act = static_cast<quint32>(act);
    m_desk.region = static_cast<quint32>(region);
    m_desk.argument = argument;
    m_desk.isBegun = false;
    m_child.tell();
}

bool Actor::isWaiting() const
{
    const qint64 deadline = steadyNow() + sm_bound;
    while (!m_desk.isBegun && steadyNow() < deadline) {
        sleepFor(millisecond / 50);
    }
    return m_child.waitUntilAsleep() && !m_child.hasSpoken();
}

qint64 Actor::await(qint64 bound)
{
    const qint64 deadline = steadyNow() + bound;
    while (!m_child.hasSpoken()) {
        if (m_child.hasEnded() || steadyNow() > deadline) {
            return sm_noAnswer;
        }
        sleepFor(millisecond / 50);
    }
    return m_child.waitUntilReady() ? m_desk.answer.load() : sm_noAnswer;
}

} // namespace Torture
