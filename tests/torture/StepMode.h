#pragma once

#include "torture/Actor.h"
#include "torture/NamedRegion.h"
#include "torture/SteppedProcess.h"
#include "torture/TortureMode.h"

#include <memory>
#include <vector>

namespace Torture {

/// What a process is at when it dies or stands still.
enum class Scene {
    Writer,
    SwapInside,   ///< a writer that swaps inside its lock
    Recovery,     ///< a writer that comes after one that died
    SwapRecovery, ///< a swap after one that died
    Reader,
    HeldReader, ///< the third attempt, which holds writers off
    Leaving,
    LeavingOthers, ///< the last user of a set that somebody else made
    Creation,
    Attachment,
    // A write lock that stays with its writer (StepLeases.cpp).
    LeaseOwner,  ///< a writer that keeps it
    LeaseMaker,  ///< a writer with whom it stays from now on
    Revoker,     ///< a writer that comes to an owner outside
    LeaseWaiter, ///< one that comes to an owner inside
    GivingBack,  ///< an owner inside for whom somebody waits
    Closing,     ///< a creator that takes an owner's region away
    SingleWriter,
    SingleReader,
    SingleUpgrade ///< a writer inside its own read lock
};
constexpr int sceneCount = 19;

/// Processes die or stand still at single instructions, which a debugger's means lead them to.
///
/// In every round one process is led through a scene up to an instruction. Looked at from outside
/// before each instruction, the published set is whole and never goes back. Then the process dies,
/// or others work beside it before it goes on; and they have to find what the library promises.
class StepMode : public TortureMode
{
public:
    explicit StepMode(const Options &options);

private:
    /// What was done in a scene.
    struct Record
    {
        quint64 length = 0; ///< in instructions; 0: not known yet
        quint64 place = 0;
        quint64 deaths[stepCount] = {};
        quint64 stops = 0;
    };
    /// What one process did and the others know of it.
    struct Sets
    {
        int newest = 0;   ///< that readers have seen
        int finished = 0; ///< whole and not published by its writer
    };

    void playRound() override;
    Scene nextScene() const;
    QString figures() const override;
    void tellMore() const override;
    quint64 leastRounds() const override { return 2 * sceneCount; }

    // Scenes (StepScenes.cpp).
    void warmUp() const;
    bool isPossible(Scene scene) const;
    void arrange(Scene scene);
    void arrangeSets(Scene scene);
    void killWriter();
    void perform(Scene scene);
    void performWriting(BufferHandlerInterface &handler, bool swapsInside);
    void performReading(BufferHandlerInterface &handler);
    void performUpgrade(BufferHandlerInterface &handler);
    const NamedRegion &region() const { return *m_regions[static_cast<std::size_t>(m_current)]; }

    void lead(Scene scene, SteppedProcess &process);
    quint64 choosePlace(Record &record);
    bool look();
    void plant(Scene scene);
    void plantOwnerWithoutLife();

    // The lock that stays (StepLeases.cpp).
    static bool isLeaseScene(Scene scene);
    void arrangeLease(Scene scene);
    void performWarming(Scene scene, BufferHandlerInterface &handler);
    void performGivingBack(BufferHandlerInterface &handler);
    void beginBeside(Scene scene);
    void lookBeside();
    void checkLeaseBesideStopped(Scene scene);
    void endBeside(Scene scene);
    void dieAgain(Scene scene);
    void checkRevocation();
    bool isWordIn(quint64 state) const;
    void leaveLeaseOver();
    bool isLeaseLeftOver() const;

    // What the others find (StepChecks.cpp).
    void checkBesideStopped(Scene scene, SteppedProcess &process);
    void checkReaderBesideWriter(SteppedProcess &process);
    void noteSets(Scene scene, bool hasDied);
    void checkAfterwards();
    void checkDoubleBuffer();
    void checkLoss(int found);
    void checkSingleBuffer();
    void checkUsers();
    void leaveAll();
    void expect(bool isTrue, const char *text);
    bool isReadable(int &number);

    NamedRegion m_double;
    NamedRegion m_single;
    std::vector<const NamedRegion *> m_regions;
    Actor m_first;
    Actor m_second;
    std::unique_ptr<Actor> m_stranger; ///< another user; only root can have one
    int m_current = 0;
    Record m_records[sceneCount];
    Sets m_sets;
    Scene m_scene = Scene::Writer;
    bool m_isFirstInside = false;
    bool m_isFirstLocked = false;   ///< the first actor is inside as the owner of a lease
    bool m_isLeaseLeftOver = false; ///< in the semaphores, of nobody
    quint64 m_stepsToUnlock = 0;    ///< until it goes out
    int m_number = 4;               ///< of the set that the process writes which is led
    quint64 m_secondDeaths = 0;
};

} // namespace Torture
