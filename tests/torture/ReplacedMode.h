#pragma once

#include "torture/Actor.h"
#include "torture/SteppedProcess.h"
#include "torture/TortureMode.h"

#include <memory>
#include <vector>

namespace Torture {

/// Users of one region whose semaphores appear, are replaced or are removed under them.
///
/// Every round they take and give back locks in a random order. Whoever holds a place in the set
/// that there is now must be alone with it, or among readers; and in the end all of them are in the
/// newest set. With Mode::Early a creator comes when the others are there already, and stands still
/// or dies on its way.
class ReplacedMode : public TortureMode
{
public:
    explicit ReplacedMode(const Options &options);

private:
    static constexpr int sm_noSet = -1;

    /// What the driver knows of an actor.
    struct User
    {
        std::unique_ptr<Actor> actor;
        bool hasJoined = false;
        int reads = 0;
        bool isWriting = false;
        int readingSet = sm_noSet; ///< in which it holds a reader's place
        int writingSet = sm_noSet;
        bool isPending = false;
        Act pending = Act::Leave;
    };

    void playRound() override;
    QString figures() const override;

    void beginAnew();
    void playEarly();
    void endWriting();
    void play(int moves);
    void move();
    void chooseAct(User &user);
    void removeSet();
    void begin(User &user, Act act);
    void settle();
    void take(User &user, bool isGranted);
    void notePlaces(const std::vector<User *> &readers);
    int writingSetOf(const User &user) const;
    void checkWriter(const User &writer);
    void checkReader(const User &reader);
    void endLocks();
    void endRound();
    bool isAnyPending(Act act) const;
    void expect(bool isTrue, const char *text);
    const NamedRegion &region() const { return *m_regions[static_cast<std::size_t>(m_current)]; }
    int set() const { return region().semaphores().id(); }

    NamedRegion m_single;
    NamedRegion m_double;
    std::vector<const NamedRegion *> m_regions;
    std::vector<User> m_users;
    int m_current = 0;
    quint64 m_locks = 0;
    quint64 m_replacements = 0;
    quint64 m_upgrades = 0;
    quint64 m_creatorLength = 0;
};

} // namespace Torture
