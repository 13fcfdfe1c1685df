#include "InspectedRegion.h"
#include "support/ChildProcess.h"

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <dirent.h>
#include <dlfcn.h>

namespace {

/// How often somebody walked over all processes.
int walks = 0;
/// What happens when a walk begins.
std::function<void()> atWalk;

/// No namespace has this number: those of the kernel begin far above.
constexpr quint64 strangeNamespace = 12345;

} // namespace

/// In the place of the function that the library calls.
extern "C" Q_DECL_EXPORT DIR *opendir(const char *path)
{
    using Open = DIR *(*)(const char *);
    static const auto original = reinterpret_cast<Open>(dlsym(RTLD_NEXT, "opendir"));
    const std::string folder(path);
    if (folder == "/proc" || folder == "/proc/") {
        ++walks;
        if (const auto call = std::exchange(atWalk, nullptr)) {
            call();
        }
    }
    return original(path);
}

namespace {

/// A region whose management block tells of a creator that has ended.
class RegionOfTheDead
{
public:
    explicit RegionOfTheDead(quint64 pidNamespace)
        : m_creator(m_description, create)
        , m_block(m_description.segment)
    {
        if (m_creator.isValid() && m_block.attach()) {
            m_block.management()->creatorStart.fetch_sub(1);
            m_block.management()->creatorNamespace = pidNamespace;
        }
    }

    RegionInspection inspect() const { return m_description.inspect(); }
    /// The creator of another region instead.
    void note(const PingPongBufferHandler::ManagementBuffer &other)
    {
        m_block.management()->creatorPid = other.creatorPid.load();
        m_block.management()->creatorStart = other.creatorStart.load();
        m_block.management()->creatorNamespace = other.creatorNamespace.load();
    }

private:
    TwoNumbers m_description;
    QuietManager m_creator;
    MappedRegion m_block;
};

/// The creator of a region, as the first process of a namespace of its own.
ChildProcess::Body creatingInANamespace(const TwoNumbers &description)
{
    return [&description](const ChildSide &side) {
        if (unshare(CLONE_NEWPID) != 0) {
            return ChildProcess::sm_cannotTry;
        }
        const pid_t creator = fork();
        if (creator == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            const QuietManager manager(description, create);
            side.say();
            side.waitForWord();
            _exit(manager.isValid() ? 0 : 1);
        }
        int status = 0;
        CHILD_VERIFY(waitpid(creator, &status, 0) == creator && WIFEXITED(status));
        return WEXITSTATUS(status);
    };
}

} // namespace

/// What an inspection says of who made a region, whatever its management block holds.
class tst_RegionCreators : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void idThatNoProcessCanHaveIsUnknown_data();
    void idThatNoProcessCanHaveIsUnknown();
    void deadOfTheOwnNamespaceNeedNoWalk();
    void deadOfOtherNamespacesNeedOneWalk();
    void creatorThatComesAfterAWalkIsFound();
    void creatorThatIsNotedLaterIsFound();
    void processThatIsForkedDuringAWalkMakesItsOwn();
};

void tst_RegionCreators::idThatNoProcessCanHaveIsUnknown_data()
{
    QTest::addColumn<quint32>("pid");
    QTest::newRow("none") << 0U;
    QTest::newRow("the lowest below zero") << 0x80000000U;
    QTest::newRow("a group of this process") << quint32(-getpgrp());
    QTest::newRow("all that may be told") << 0xFFFFFFFFU;
}

void tst_RegionCreators::idThatNoProcessCanHaveIsUnknown()
{
    QFETCH(quint32, pid);
    const TwoNumbers description;
    const QuietManager creator(description, create);
    MappedRegion block(description.segment);
    QVERIFY(block.attach());
    block.management()->creatorPid = pid;

    QVERIFY(!description.inspect().getCreator().pid);
    QVERIFY(!description.inspect().getCreator().isAlive);
}

void tst_RegionCreators::deadOfTheOwnNamespaceNeedNoWalk()
{
    const TwoNumbers description;
    {
        ChildProcess child([&description](const ChildSide &side) {
            const QuietManager manager(description, create);
            side.say();
            side.waitForWord();
            return manager.isValid() ? 0 : 1;
        });
        QVERIFY(child.waitUntilReady());
        QVERIFY(child.kill());
    }
    const RegionInspection region = description.inspect();
    walks = 0;

    const RegionCreator creator = region.getCreator();

    QVERIFY(creator.isAlive == false);
    QCOMPARE(walks, 0);
}

void tst_RegionCreators::deadOfOtherNamespacesNeedOneWalk()
{
    constexpr int count = 20;
    std::vector<std::unique_ptr<RegionOfTheDead>> regions;
    std::vector<RegionInspection> inspections;
    for (int i = 0; i < count; ++i) {
        regions.push_back(std::make_unique<RegionOfTheDead>(strangeNamespace));
        inspections.push_back(regions.back()->inspect());
    }
    walks = 0;

    int alive = 0;
    for (const auto &region : inspections) {
        alive += region.getCreator().isAlive == true ? 1 : 0;
    }

    QCOMPARE(alive, 0);
    QCOMPARE(walks, 1);
}

void tst_RegionCreators::creatorThatComesAfterAWalkIsFound()
{
    const RegionOfTheDead other(strangeNamespace);
    walks = 0;
    QVERIFY(other.inspect().getCreator().isAlive != true);
    QCOMPARE(walks, 1);
    const TwoNumbers description;
    ChildProcess child(creatingInANamespace(description));
    if (!child.waitUntilReady()) {
        COMPARE_EXIT(child.waitForExit(), "the right to make a namespace");
    }
    const RegionInspection region = description.inspect();

    QVERIFY(region.getCreator().isAlive == true);

    child.tell();
    QCOMPARE(child.waitForExit(), 0);
    QVERIFY(region.getCreator().isAlive != true);
}

/// After the inspection was made, and after a walk over all processes as well.
void tst_RegionCreators::creatorThatIsNotedLaterIsFound()
{
    RegionOfTheDead early(strangeNamespace);
    const RegionInspection region = early.inspect();
    QVERIFY(region.getCreator().isAlive != true);
    const TwoNumbers description;
    ChildProcess child(creatingInANamespace(description));
    if (!child.waitUntilReady()) {
        COMPARE_EXIT(child.waitForExit(), "the right to make a namespace");
    }
    MappedRegion others(description.segment);
    QVERIFY(others.attach());

    early.note(*others.management());

    QVERIFY(region.getCreator().isAlive == true);
    child.tell();
    QCOMPARE(child.waitForExit(), 0);
}

/// It never gets what another thread held when it was forked.
void tst_RegionCreators::processThatIsForkedDuringAWalkMakesItsOwn()
{
    const RegionOfTheDead dead(strangeNamespace);
    const RegionInspection region = dead.inspect();
    int exitCode = -1;
    atWalk = [&] {
        walks = 0;
        ChildProcess child([&](const ChildSide & /*side*/) {
            for (int i = 1; i <= 2; ++i) {
                CHILD_VERIFY(region.getCreator().isAlive != true);
                CHILD_VERIFY(walks == i);
            }
            return 0;
        });
        exitCode = child.waitForExit();
    };

    QVERIFY(region.getCreator().isAlive != true);

    QCOMPARE(exitCode, 0);
}

QTEST_GUILESS_MAIN(tst_RegionCreators)

#include "tst_RegionCreators.moc"
