#include "torture/StepMode.h"

#include <cstdio>
#include <numeric>

#include <sys/sem.h>
#include <unistd.h>

namespace Torture {

namespace {

constexpr uid_t nobody = 65534;

const char *const sceneNames[sceneCount] = {"writer",
                                            "writer that swaps inside",
                                            "recovery after a dead writer",
                                            "swap as recovery",
                                            "reader",
                                            "reader that holds writers off",
                                            "leaving",
                                            "leaving somebody's set",
                                            "creation over a set",
                                            "attachment",
                                            "owner of the lock",
                                            "lock that begins to stay",
                                            "lock of an owner outside",
                                            "lock of an owner inside",
                                            "owner that gives back",
                                            "creation over an owner",
                                            "single buffer: writer",
                                            "single buffer: reader",
                                            "single buffer: reader that writes"};

const char *const stepNames[stepCount] = {"before",   "entering", "inside", "leaving",
                                          "swapping", "joining",  "ended"};

} // namespace

StepMode::StepMode(const Options &options)
    : TortureMode(options)
    , m_double(m_key + QLatin1String("Double"), true)
    , m_single(m_key + QLatin1String("Single"), false)
    , m_regions{&m_double, &m_single}
    , m_first(*m_stage, 0, m_regions)
    , m_second(*m_stage, 1, m_regions)
{
    warmUp();
    if (geteuid() == 0) {
        m_stranger = std::make_unique<Actor>(*m_stage, 2, m_regions, nobody);
    }
}

/// All in turn; of the faults that need one scene and luck in it, that scene.
Scene StepMode::nextScene() const
{
    if (isPlanted(Plant::Twice)) {
        return Scene::LeaseOwner;
    }
    if (isPlanted(Plant::LeftOver)) {
        return Scene::LeaseMaker;
    }
    return isPlanted(Plant::Uncleared) ? Scene::Revoker : static_cast<Scene>(m_rounds % sceneCount);
}

void StepMode::playRound()
{
    const Scene scene = nextScene();
    m_scene = scene;
    if (!isPossible(scene)) {
        return;
    }
    arrange(scene);
    SteppedProcess process([this, scene] { perform(scene); });
    if (process.isRefused()) {
        fail(QStringLiteral("this system does not let one process lead another (ptrace): run it as "
                            "root, in a container with --cap-add=SYS_PTRACE"));
        return;
    }
    expect(process.isAlive(), "the process that is to be led has ended");
    beginBeside(scene);
    lead(scene, process);
    const bool hasEnded = m_stage->step == Step::Ended;
    Record &record = m_records[static_cast<int>(scene)];
    if (!hasEnded && random(3) == 0) {
        ++record.stops;
        checkBesideStopped(scene, process);
    } else if (!hasEnded) {
        ++record.deaths[static_cast<int>(m_stage->step.load())];
    }
    process.kill();
    endBeside(scene);
    const bool hasDied = m_stage->step != Step::Ended;
    noteSets(scene, hasDied);
    if (scene == Scene::Revoker && !hasDied) {
        checkRevocation();
    }
    if (isLeaseScene(scene) && hasDied && random(2) == 0) {
        dieAgain(scene);
    }
    plant(scene);
    checkAfterwards();
}

/// Up to the instruction of this round, or to the end.
void StepMode::lead(Scene scene, SteppedProcess &process)
{
    Record &record = m_records[static_cast<int>(scene)];
    const quint64 place = choosePlace(record);
    quint64 steps = 0;
    const bool stands = process.lead([this, &steps, place] {
        return look() && m_stage->step != Step::Ended && steps++ < place;
    });
    expect(stands, "hangs or dies at a single instruction");
    if (m_stage->step == Step::Ended) {
        record.length = steps;
    }
}

/// Spread over all instructions, and different ones each time they are gone through.
quint64 StepMode::choosePlace(Record &record)
{
    if (record.length == 0) {
        return ~quint64{0};
    }
    constexpr double goldenSection = 0.6180339887498949;
    const auto step = static_cast<quint64>(static_cast<double>(record.length) * goldenSection) | 1U;
    record.place = (record.place + step + random(2)) % (record.length + 1);
    return record.place;
}

/// What anybody could see at this moment. False if that ends the round.
bool StepMode::look()
{
    lookBeside();
    if (!region().isEveryValueWhole()) {
        fail(
            QStringLiteral("half a value: an aligned value of eight bytes is written in two parts, "
                           "%1, in %2, size %3")
                .arg(QLatin1String(stepNames[static_cast<int>(m_stage->step.load())]),
                     QLatin1String(sceneNames[static_cast<int>(m_scene)]))
                .arg(region().size()));
        return false;
    }
    if (!region().isDoubleBuffer()) {
        return true;
    }
    const int number = region().published();
    expect(number != NamedRegion::sm_mixed, "mixed set: readers see two sets");
    expect(number >= m_sets.newest, "back in time: readers see an older set");
    m_sets.newest = number;
    return !hasFailed();
}

void StepMode::plant(Scene scene)
{
    if (isPlanted(Plant::Backward) && scene == Scene::Writer && m_sets.newest > 1) {
        region().management()->swapCount.fetch_sub(1);
    }
    if (isPlanted(Plant::Locked) && scene == Scene::SingleReader) {
        region().semaphores().setValue(SemaphoreSet::Names::SemaphoreReaders, 1);
    }
    if (isPlanted(Plant::Kept) && scene == Scene::LeaseOwner) {
        plantOwnerWithoutLife();
    }
    if (isPlanted(Plant::Refused) && scene == Scene::Attachment) {
        region().semaphores().setValue(SemaphoreSet::Names::SemaphoreWriteLock, 1);
    }
}

void StepMode::expect(bool isTrue, const char *text)
{
    if (!isTrue) {
        fail(QStringLiteral("%1 (%2, %3, size %4)")
                 .arg(QLatin1String(text), QLatin1String(sceneNames[static_cast<int>(m_scene)]),
                      QLatin1String(stepNames[static_cast<int>(m_stage->step.load())]))
                 .arg(region().size()));
    }
}

QString StepMode::figures() const
{
    quint64 deaths = 0;
    quint64 stops = 0;
    for (const Record &record : m_records) {
        deaths += std::accumulate(std::begin(record.deaths), std::end(record.deaths), quint64{0});
        stops += record.stops;
    }
    return QStringLiteral(
               "%1 rounds, %2 deaths, %3 second ones and %4 stops at single instructions")
        .arg(m_rounds)
        .arg(deaths)
        .arg(m_secondDeaths)
        .arg(stops);
}

void StepMode::tellMore() const
{
    for (int scene = 0; scene < sceneCount; ++scene) {
        const Record &record = m_records[scene];
        if (!isPossible(static_cast<Scene>(scene))) {
            std::printf("  %-34s needs root\n", sceneNames[scene]);
            continue;
        }
        std::printf("  %-34s %6llu instructions, %5llu stops, deaths:", sceneNames[scene],
                    record.length, record.stops);
        for (int step = 0; step < stepCount; ++step) {
            if (record.deaths[step] != 0) {
                std::printf(" %s %llu", stepNames[step], record.deaths[step]);
            }
        }
        std::printf("\n");
    }
}

} // namespace Torture
