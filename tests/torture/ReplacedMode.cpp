#include "torture/ReplacedMode.h"

#include <algorithm>

#include <sys/sem.h>

namespace Torture {

namespace {

constexpr int userCount = 3;
constexpr quint32 bufferSize = 40;
constexpr auto create = SystemVSemaphoreBaseClass::CreationTypeCreate;

} // namespace

ReplacedMode::ReplacedMode(const Options &options)
    : TortureMode(options)
    , m_single(m_key + QLatin1String("Single"), false)
    , m_double(m_key + QLatin1String("Double"), true)
    , m_regions{&m_single, &m_double}
    , m_users(userCount)
{
    int desk = 0;
    for (User &user : m_users) {
        user.actor = std::make_unique<Actor>(*m_stage, desk++, m_regions);
    }
}

void ReplacedMode::playRound()
{
    beginAnew();
    if (m_options.mode == Mode::Early) {
        playEarly();
    } else {
        play(static_cast<int>(10 + random(20)));
    }
    endLocks();
    endRound();
}

void ReplacedMode::beginAnew()
{
    // There are no readers' places in a double buffer: that is only disturbed by early attachers.
    m_current = m_options.mode == Mode::Early && m_rounds % 4 == 3 ? 1 : 0;
    region().reset(bufferSize);
    for (User &user : m_users) {
        user.hasJoined = false;
    }
}

/// A creator comes between, which has made the memory and is about to make the semaphores.
void ReplacedMode::playEarly()
{
    play(static_cast<int>(random(8)));
    SteppedProcess creator([this] {
        SteppedProcess::awaitSteps();
        m_stage->step = Step::Joining;
        NamedRegion::Handler handler = region().makeHandler(create);
        unsigned char *const buffer = handler->lockForWrite();
        handler->unlockForWrite(buffer);
        handler->swapBuffers();
        m_stage->step = Step::Ended;
        handler.reset();
    });
    if (creator.isRefused()) {
        fail(QStringLiteral("this system does not let one process lead another (ptrace): run it as "
                            "root, in a container with --cap-add=SYS_PTRACE"));
        return;
    }
    m_stage->step = Step::Before;
    // A creator waits a second for a writer inside.
    endWriting();
    quint64 steps = 0;
    const quint64 place = m_creatorLength == 0 ? ~quint64{0} : random(m_creatorLength);
    creator.lead([this, &steps, place] { return m_stage->step != Step::Ended && steps++ < place; });
    if (m_stage->step == Step::Ended) {
        m_creatorLength = steps;
    }
    ++m_replacements;
    settle();
    play(static_cast<int>(random(6)));
    if (random(8) != 0) {
        endWriting();
    }
    if (random(4) == 0) {
        creator.kill();
    } else {
        expect(creator.goOn(), "crash: a creator does not come to its end");
    }
    settle();
    play(static_cast<int>(4 + random(10)));
}

void ReplacedMode::endWriting()
{
    for (User &user : m_users) {
        if (user.isWriting) {
            begin(user, Act::UnlockWrite);
        }
    }
}

void ReplacedMode::play(int moves)
{
    for (int i = 0; i < moves && !hasFailed(); ++i) {
        move();
    }
}

void ReplacedMode::move()
{
    if (m_options.mode == Mode::Replaced && random(6) == 0) {
        removeSet();
        return;
    }
    User &user = m_users[random(m_users.size())];
    if (user.isPending) {
        return;
    }
    chooseAct(user);
    if (isPlanted(Plant::Shared)) {
        region().semaphores().setValue(SemaphoreSet::Names::SemaphoreReaders, 0);
    }
}

void ReplacedMode::removeSet()
{
    region().semaphores().remove();
    ++m_replacements;
    settle();
}

void ReplacedMode::chooseAct(User &user)
{
    if (!user.hasJoined) {
        begin(user, Act::Attach);
    } else if (user.isWriting) {
        begin(user, Act::UnlockWrite);
    } else if (user.reads > 0) {
        // Two that wait for each other's end would wait for their whole bound.
        const bool mayWrite = !isAnyPending(Act::LockWrite);
        const quint64 choice = random(4);
        begin(user, choice < 2 && mayWrite ? Act::LockWrite
                    : choice == 2          ? Act::LockRead
                                           : Act::UnlockRead);
    } else if (random(8) == 0) {
        begin(user, Act::Leave);
    } else {
        begin(user, random(2) == 0 ? Act::LockRead : Act::LockWrite);
    }
}

void ReplacedMode::begin(User &user, Act act)
{
    if (act == Act::LockWrite && user.reads > 0) {
        ++m_upgrades;
    }
    user.isPending = true;
    user.pending = act;
    // What is given back may be somebody else's before the answer comes.
    if (act == Act::UnlockWrite) {
        user.isWriting = false;
    } else if (act == Act::UnlockRead && --user.reads == 0) {
        user.readingSet = sm_noSet;
    }
    user.actor->begin(act, m_current);
    settle();
}

/// Takes the answers of all that do not wait for somebody.
void ReplacedMode::settle()
{
    std::vector<User *> readers;
    for (User &user : m_users) {
        if (!user.isPending || user.actor->isWaiting()) {
            continue;
        }
        const bool isFirstRead = user.pending == Act::LockRead && user.reads == 0;
        const qint64 answer = user.actor->await();
        expect(answer != Actor::sm_noAnswer, "hangs or dies: a user of the region");
        take(user, answer != 0);
        if (isFirstRead && user.reads > 0) {
            readers.push_back(&user);
        }
    }
    if (!readers.empty()) {
        notePlaces(readers);
    }
}

void ReplacedMode::take(User &user, bool isGranted)
{
    user.isPending = false;
    switch (user.pending) {
    case Act::Attach: user.hasJoined = true; break;
    case Act::Leave: user.hasJoined = false; break;
    case Act::LockRead: user.reads += isGranted ? 1 : 0; break;
    case Act::LockWrite:
        user.isWriting = isGranted;
        user.writingSet = isGranted ? writingSetOf(user) : sm_noSet;
        m_locks += isGranted ? 1U : 0U;
        checkWriter(user);
        break;
    default: break;
    }
}

/// Asks the kernel whether they hold places: who came while the semaphores were gone holds none.
void ReplacedMode::notePlaces(const std::vector<User *> &readers)
{
    const int current = set();
    const auto known = std::count_if(m_users.cbegin(), m_users.cend(), [current](const User &user) {
        return current != sm_noSet && user.reads > 0 && user.readingSet == current;
    });
    const auto added = region().semaphores().readers() - known;
    if (current == sm_noSet || added < static_cast<qint64>(readers.size())) {
        return;
    }
    for (User *user : readers) {
        user->readingSet = current;
        checkReader(*user);
    }
}

/// The set that there is now, if the lock that was taken last in it is the user's.
int ReplacedMode::writingSetOf(const User &user) const
{
    const int current = set();
    const bool isInside = region().semaphores().isWriteLocked()
                          && semctl(current, SemaphoreSet::Names::SemaphoreWriteLock, GETPID)
                                 == user.actor->process();
    return isInside ? current : sm_noSet;
}

void ReplacedMode::checkWriter(const User &writer)
{
    for (const User &user : m_users) {
        if (!writer.isWriting || writer.writingSet == sm_noSet || &user == &writer) {
            continue;
        }
        expect(user.reads == 0 || user.readingSet != writer.writingSet,
               "let in: a writer beside a reader");
        expect(!user.isWriting || user.writingSet != writer.writingSet,
               "let in: a writer beside a writer");
    }
}

void ReplacedMode::checkReader(const User &reader)
{
    for (const User &user : m_users) {
        expect(&user == &reader || !user.isWriting || user.writingSet != reader.readingSet,
               "let in: a reader beside a writer");
    }
}

bool ReplacedMode::isAnyPending(Act act) const
{
    return std::any_of(m_users.cbegin(), m_users.cend(),
                       [act](const User &user) { return user.isPending && user.pending == act; });
}

/// Gives everything back, until nobody waits for anything.
void ReplacedMode::endLocks()
{
    const auto isBusy = [](const User &user) {
        return user.isPending || user.isWriting || user.reads > 0;
    };
    const qint64 deadline = steadyNow() + 2 * Actor::sm_bound;
    while (!hasFailed() && std::any_of(m_users.cbegin(), m_users.cend(), isBusy)) {
        for (User &user : m_users) {
            if (!user.isPending && isBusy(user)) {
                begin(user, user.isWriting ? Act::UnlockWrite : Act::UnlockRead);
            }
        }
        settle();
        expect(steadyNow() < deadline, "hangs: a lock is not given although nobody is inside");
    }
}

/// Whoever comes now makes a set if there is none, and all the others follow to it.
void ReplacedMode::endRound()
{
    User &last = m_users.back();
    if (hasFailed()) {
        return;
    }
    if (last.hasJoined) {
        begin(last, Act::Leave);
    }
    begin(last, Act::Attach);
    // A set that its maker did not come to fill in is given some time before it is replaced.
    const qint64 deadline = steadyNow() + Actor::sm_bound;
    while (last.isPending && steadyNow() < deadline) {
        settle();
    }
    if (isPlanted(Plant::Locked)) {
        region().semaphores().setValue(SemaphoreSet::Names::SemaphoreReaders, 1);
    }
    const bool isOpen = region().semaphores().readers() == 0
                        && !region().semaphores().isWriteLocked();
    expect(isOpen, "locked out: a place is taken although nobody is inside");
    for (User &user : m_users) {
        expect(hasFailed() || !user.hasJoined || user.actor->ask(Act::Finish, m_current, 1) == 1,
               "refused: the lock of one that has to follow to the new semaphores");
    }
    for (User &user : m_users) {
        if (user.hasJoined) {
            begin(user, Act::Leave);
        }
    }
    if (isPlanted(Plant::Semaphores)) {
        region().semaphores().make({1});
    }
    expect(!region().semaphores().exists(), "left behind: a set of semaphores");
}

void ReplacedMode::expect(bool isTrue, const char *text)
{
    if (!isTrue) {
        fail(QStringLiteral("%1 (%2 buffer)")
                 .arg(QLatin1String(text),
                      QLatin1String(region().isDoubleBuffer() ? "double" : "single")));
    }
}

QString ReplacedMode::figures() const
{
    return QStringLiteral(
               "%1 rounds: semaphores made or removed %2 times under their users, %3 write "
               "locks, %4 of them inside a read lock")
        .arg(m_rounds)
        .arg(m_replacements)
        .arg(m_locks)
        .arg(m_upgrades);
}

} // namespace Torture
