#include "torture/RegionsMode.h"

namespace Torture {

namespace {

constexpr quint32 bufferSize = 40;
/// A lock in vain takes its whole bound, so only every so many rounds has one.
constexpr quint64 roundsOfPatience = 100;

} // namespace

RegionsMode::RegionsMode(const Options &options)
    : TortureMode(options)
    , m_fates(static_cast<std::size_t>(options.regions))
{
    for (int i = 0; i < count(); ++i) {
        m_owned.push_back(
            std::make_unique<NamedRegion>(QStringLiteral("%1Region%2").arg(m_key).arg(i), true));
        m_regions.push_back(m_owned.back().get());
    }
    m_first = std::make_unique<Actor>(*m_stage, 0, m_regions);
    m_second = std::make_unique<Actor>(*m_stage, 1, m_regions);
}

void RegionsMode::playRound()
{
    chooseFates();
    finishSets();
    meetFates();
    swapAll();
    readAll();
    leaveAll();
}

void RegionsMode::chooseFates()
{
    for (Fate &fate : m_fates) {
        fate = static_cast<Fate>(random(3));
    }
    if (m_rounds % roundsOfPatience == 0) {
        m_fates.back() = Fate::TakenBackInVain;
    }
    for (const Fate fate : m_fates) {
        ++m_fateCounts[static_cast<int>(fate)];
    }
}

/// Set 1 is published everywhere, set 2 finished.
void RegionsMode::finishSets()
{
    for (int i = 0; i < count(); ++i) {
        m_regions[static_cast<std::size_t>(i)]->reset(bufferSize);
        m_first->ask(Act::Create, i);
        m_second->ask(Act::Attach, i);
        expect(m_first->ask(Act::Finish, i, 1) == 1, "refused: the first write lock", i);
        expect(m_first->ask(Act::Swap, i) == 1, "refused: the first swap", i);
    }
    for (int i = 0; i < count(); ++i) {
        expect(m_first->ask(Act::Finish, i, 2) == 1, "refused: a write lock", i);
    }
}

void RegionsMode::meetFates()
{
    Actor mortal(*m_stage, 2, m_regions);
    const auto isTakenBack = [this](int region) {
        return m_fates[static_cast<std::size_t>(region)] >= Fate::TakenBack;
    };
    for (int i = 0; i < count(); ++i) {
        if (isTakenBack(i)) {
            mortal.ask(Act::Attach, i);
            expect(mortal.ask(Act::LockWrite, i) == 1, "refused: a lock of one that is to die", i);
            mortal.ask(Act::FillHalf, i, 3);
        }
    }
    mortal.kill();
    for (int i = 0; i < count(); ++i) {
        if (isTakenBack(i)) {
            expect(m_second->ask(Act::Swap, i) == 0, "a swap over a half set says true", i);
        } else if (m_fates[static_cast<std::size_t>(i)] == Fate::Overtaken) {
            expect(m_second->ask(Act::Finish, i, 4) == 1, "refused: another writer", i);
            expect(m_second->ask(Act::Swap, i) == 1, "refused: another writer's swap", i);
        }
        if (m_fates[static_cast<std::size_t>(i)] == Fate::TakenBackInVain) {
            tryInVain(i);
        }
    }
}

void RegionsMode::tryInVain(int region)
{
    const SemaphoreSet &semaphores = m_regions[static_cast<std::size_t>(region)]->semaphores();
    semaphores.setValue(SemaphoreSet::Names::SemaphoreWriteLock, 1);
    expect(m_first->ask(Act::LockWrite, region) == 0, "a lock that somebody has is given", region);
    semaphores.setValue(SemaphoreSet::Names::SemaphoreWriteLock, 0);
}

void RegionsMode::swapAll()
{
    for (int i = 0; i < count(); ++i) {
        const Fate fate = m_fates[static_cast<std::size_t>(i)];
        const bool isSwapped = m_first->ask(Act::Swap, i) == 1 || isPlanted(Plant::Forgotten);
        if (isPlanted(Plant::Backward) && fate == Fate::Overtaken) {
            m_regions[static_cast<std::size_t>(i)]->management()->swapCount.fetch_add(1);
        }
        const qint64 number = m_first->ask(Act::Read, i);
        switch (fate) {
        case Fate::Kept:
            expect(isSwapped, "refused: a swap", i);
            expect(number == 2, "lost: a finished set", i);
            break;
        case Fate::Overtaken:
            expect(isSwapped, "refused: a swap after another one", i);
            expect(number == 4, "back in time: a swap brings an old set back", i);
            break;
        case Fate::TakenBack:
            expect(!isSwapped, "a swap says true although its set was taken back", i);
            break;
        case Fate::TakenBackInVain:
            expect(!isSwapped,
                   "a swap says true although its set was taken back, after a lock in vain", i);
            break;
        }
    }
}

/// Writers come to the buffer that is read in every second region.
void RegionsMode::readAll()
{
    for (int i = 0; i < count(); ++i) {
        expect(m_second->ask(Act::LockRead, i) == 1, "refused: a read lock", i);
    }
    for (int i = 1; i < count(); i += 2) {
        m_first->ask(Act::Finish, i, 6);
        m_first->ask(Act::Swap, i);
        m_first->ask(Act::Finish, i, 7);
    }
    const int begin = static_cast<int>(random(static_cast<quint64>(count())));
    for (int step = 0; step < count(); ++step) {
        const int i = (begin + step) % count();
        const bool isRepeated = m_second->ask(Act::UnlockRead, i) == -1
                                && !isPlanted(Plant::Accepted);
        expect(isRepeated == (i % 2 == 1),
               isRepeated ? "repeated without a reason" : "mixed set: a torn read is accepted", i);
    }
}

void RegionsMode::leaveAll()
{
    for (int i = 0; i < count(); ++i) {
        m_first->ask(Act::Leave, i);
        m_second->ask(Act::Leave, i);
        const SemaphoreSet &semaphores = m_regions[static_cast<std::size_t>(i)]->semaphores();
        if (isPlanted(Plant::Semaphores)) {
            semaphores.make({1});
        }
        expect(!semaphores.exists(), "left behind: a set of semaphores", i);
    }
}

void RegionsMode::expect(bool isTrue, const char *text, int region)
{
    if (!isTrue) {
        fail(QStringLiteral("%1 (region %2 of %3)")
                 .arg(QLatin1String(text))
                 .arg(region + 1)
                 .arg(count()));
    }
}

QString RegionsMode::figures() const
{
    return QStringLiteral(
               "%1 rounds with %2 regions: %3 sets published, %4 overtaken, %5 taken back, "
               "%6 after a lock in vain")
        .arg(m_rounds)
        .arg(count())
        .arg(m_fateCounts[0])
        .arg(m_fateCounts[1])
        .arg(m_fateCounts[2] + m_fateCounts[3])
        .arg(m_fateCounts[3]);
}

} // namespace Torture
