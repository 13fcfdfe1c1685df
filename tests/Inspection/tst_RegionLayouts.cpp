#include "InspectedRegion.h"
#include "Inspection/RegionUsers.h"
#include "support/WithoutMainThread.h"

#include <cerrno>
#include <cstdarg>
#include <string>

#include <dlfcn.h>
#include <fcntl.h>
#include <sched.h>

namespace {

/// Which file finds no descriptor; empty: none.
std::string refusedFile;

} // namespace

/// In the place of the function that Qt calls.
extern "C" Q_DECL_EXPORT int open64(const char *path, int flags, ...)
{
    static const auto call = reinterpret_cast<int (*)(const char *, int, ...)>(
        dlsym(RTLD_NEXT, "open64"));
    if (path == refusedFile) {
        errno = EMFILE;
        return -1;
    }
    va_list arguments;
    va_start(arguments, flags);
    const int mode = va_arg(arguments, int);
    va_end(arguments);
    return call(path, flags, mode);
}

namespace {

/// Of the same region, with a leaf as another type.
struct OtherNumbers : TwoNumbers
{
    explicit OtherNumbers(const TwoNumbers &description)
    {
        key = description.key;
        leaves[QStringLiteral("b")].type = QStringLiteral("uint32");
    }
};

/// Has a region attached until it is told to end.
ChildProcess::Body attaching(const ProcessDescription &description)
{
    return [&description](const ChildSide &side) {
        const QuietManager manager(description, attach);
        CHILD_VERIFY(manager.isValid());
        side.say();
        side.waitForWord();
        return 0;
    };
}

/// What <sched.h> calls CLONE_NEWTIME where it knows it.
constexpr int newTime = 0x80;

/// Below a process that stays in the time of this one.
ChildProcess::Body inOtherTime(const ChildProcess::Body &body)
{
    return [body](const ChildSide &side) {
        const std::string later = "boottime 100000 0\n";
        if (unshare(newTime) != 0) {
            return ChildProcess::sm_cannotTry;
        }
        const int offsets = open("/proc/self/timens_offsets", O_WRONLY | O_CLOEXEC);
        if (write(offsets, later.data(), later.size()) != static_cast<ssize_t>(later.size())) {
            return ChildProcess::sm_cannotTry;
        }
        close(offsets);
        const pid_t inside = fork();
        if (inside == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            _exit(body(side));
        }
        int status = 0;
        CHILD_VERIFY(waitpid(inside, &status, 0) == inside && WIFEXITED(status));
        return WEXITSTATUS(status);
    };
}

/// The one process beside this one; fails if there is none or are several.
RegionUser userBeside(const RegionInspection &region)
{
    QVector<RegionUser> users = region.getUsers();
    users.erase(std::remove_if(users.begin(), users.end(),
                               [](const RegionUser &user) { return user.pid == getpid(); }),
                users.end());
    if (users.size() != 1) {
        qFatal("%d processes", users.size());
    }
    return users[0];
}

/// What is said of it.
std::optional<bool> layoutBeside(const RegionInspection &region)
{
    return userBeside(region).hasOtherLayout;
}

/// What is said of this process.
std::optional<bool> ownLayout(const RegionInspection &region)
{
    for (const auto &user : region.getUsers()) {
        if (user.pid == getpid()) {
            return user.hasOtherLayout;
        }
    }
    qFatal("This process is not there");
}

/// In the upper half of a word that a process leaves of itself.
constexpr quint64 pidUnit = quint64{1} << 32;

} // namespace

/// What an inspection says of the layouts of processes, and where it cannot know.
class tst_RegionLayouts : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void notedProcessHasAnotherLayoutAndNobodyElse();
    void forkedChildOfANotedProcessIsUnknown();
    void processThatAttachedBeforeTheFingerprintIsUnknown();
    void descriptionWithASingleBufferIsAnotherLayout();
    void processBesideAFullListIsUnknown();
    void noteOfAFormerProcessOfTheIdCountsNothing();
    void processWhoseTimeIsNotToBeHadIsUnknown();
    void processInAnotherTimeIsUnknownWhereItsNumberIsNoted();
    void noteWithoutAStartIsUnknown();
    void processWhoseStartIsNotToBeHadIsUnknown();
    void processWhoseOwnNumberIsNotToBeHadIsUnknown();
    void creatorWithoutANumberIsNoProcess();
    void withoutAFingerprintAllAreUnknown();
    void singleBufferSaysNothing();
    void blockOfAnotherFormatSaysNothing();
    void formerRegionSaysNothing();
};

void tst_RegionLayouts::notedProcessHasAnotherLayoutAndNobodyElse()
{
    const TwoNumbers description;
    const OtherNumbers other(description);
    const QuietManager creator(description, create);
    ChildProcess child(attaching(other));
    QVERIFY(child.waitUntilReady());

    QVERIFY(layoutBeside(description.inspect()) == true);
    QVERIFY(ownLayout(description.inspect()) == false);
}

/// It has the memory of its parent, whether that one still runs or not, and no start of its own noted.
void tst_RegionLayouts::forkedChildOfANotedProcessIsUnknown()
{
    const TwoNumbers description;
    const OtherNumbers other(description);
    const QuietManager creator(description, create);
    ChildProcess child([&other](const ChildSide &side) {
        const QuietManager manager(other, attach);
        CHILD_VERIFY(manager.isValid());
        const pid_t inside = fork();
        if (inside == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            side.say();
            side.waitForWord();
            _exit(0);
        }
        int status = 0;
        CHILD_VERIFY(waitpid(inside, &status, 0) == inside && status == 0);
        return 0;
    });
    QVERIFY(child.waitUntilReady());

    std::vector<std::optional<bool>> found;
    for (const auto &user : description.inspect().getUsers()) {
        found.push_back(user.hasOtherLayout);
    }

    QCOMPARE(found.size(), std::size_t{3});
    QCOMPARE(std::count(found.cbegin(), found.cend(), std::optional<bool>(true)), 1);
    QCOMPARE(std::count(found.cbegin(), found.cend(), std::nullopt), 1);
    QVERIFY(ownLayout(description.inspect()) == false);
    child.tell();
    QCOMPARE(child.waitForExit(), 0);
}

/// Nobody has compared.
void tst_RegionLayouts::processThatAttachedBeforeTheFingerprintIsUnknown()
{
    const TwoNumbers description;
    const OtherNumbers other(description);
    const QuietManager creator(description, create);
    MappedRegion block(description.segment);
    QVERIFY(block.attach());
    const quint64 fingerprint = block.management()->fingerprint.exchange(0);
    ChildProcess child(attaching(other));
    QVERIFY(child.waitUntilReady());

    block.management()->fingerprint = fingerprint;

    QVERIFY(!layoutBeside(description.inspect()).has_value());
    QVERIFY(ownLayout(description.inspect()) == false);
}

/// Its leaves lie elsewhere though they have the same offsets.
void tst_RegionLayouts::descriptionWithASingleBufferIsAnotherLayout()
{
    const TwoNumbers description;
    TwoNumbers single(false);
    single.key = description.key;
    const QuietManager creator(description, create);
    ChildProcess child(attaching(single));
    QVERIFY(child.waitUntilReady());

    QVERIFY(layoutBeside(description.inspect()) == true);
}

/// Nobody who came later could have noted himself.
void tst_RegionLayouts::processBesideAFullListIsUnknown()
{
    const TwoNumbers description;
    const OtherNumbers other(description);
    const QuietManager creator(description, create);
    ChildProcess child(attaching(other));
    QVERIFY(child.waitUntilReady());
    MappedRegion block(description.segment);
    QVERIFY(block.attach());
    auto &places = block.management()->otherLayouts;
    std::fill(std::begin(places) + 1, std::end(places), quint64{1});

    QVERIFY(layoutBeside(description.inspect()) == true);
    QVERIFY(!ownLayout(description.inspect()).has_value());

    places[7] = 0;
    QVERIFY(ownLayout(description.inspect()) == false);
}

void tst_RegionLayouts::noteOfAFormerProcessOfTheIdCountsNothing()
{
    const TwoNumbers description;
    const OtherNumbers other(description);
    const QuietManager creator(description, create);
    const QuietManager own(other, attach);
    MappedRegion block(description.segment);
    QVERIFY(block.attach());
    QVERIFY(ownLayout(description.inspect()) == true);

    block.management()->otherLayouts[0].fetch_sub(1);

    QVERIFY(ownLayout(description.inspect()) == false);
}

/// As that of a process whose main thread has ended.
void tst_RegionLayouts::processWhoseTimeIsNotToBeHadIsUnknown()
{
    const TwoNumbers description;
    const OtherNumbers other(description);
    const QuietManager creator(description, create);
    MappedRegion block(description.segment);
    QVERIFY(block.attach());
    ChildProcess child(withoutMainThread(attaching(other)));
    QVERIFY(child.waitUntilReady());
    const auto pid = static_cast<pid_t>(userBeside(description.inspect()).pid);
    if (QFile::exists(QStringLiteral("/proc/%1/ns/time").arg(pid))
        || !QFile::exists(QStringLiteral("/proc/self/ns/time"))) {
        QSKIP("needs a kernel with times of their own, which hides them of such a process", );
    }
    QVERIFY(layoutBeside(description.inspect()) == true);

    block.management()->otherLayouts[0].fetch_sub(1);
    QVERIFY(!layoutBeside(description.inspect()).has_value());
    block.management()->otherLayouts[0] = 0;
    QVERIFY(layoutBeside(description.inspect()) == false);

    child.tell();
    QCOMPARE(child.waitForExit(), 0);
}

/// The start that it noted of itself is not the one that is told here.
void tst_RegionLayouts::processInAnotherTimeIsUnknownWhereItsNumberIsNoted()
{
    const TwoNumbers description;
    const OtherNumbers other(description);
    const QuietManager creator(description, create);
    MappedRegion block(description.segment);
    QVERIFY(block.attach());
    ChildProcess child(inOtherTime(attaching(other)));
    if (!child.waitUntilReady()) {
        COMPARE_EXIT(child.waitForExit(), "the right to make a time");
    }
    auto &place = block.management()->otherLayouts[0];
    const auto inside = static_cast<qint64>(place / pidUnit);
    QVERIFY(inside != 0 && inside != getpid());

    const QVector<RegionUser> users = description.inspect().getUsers();

    // The one in between has inherited the memory.
    QCOMPARE(users.size(), 3);
    for (const auto &user : users) {
        const std::optional<bool> hasOther = user.hasOtherLayout;
        QVERIFY(user.pid == inside ? !hasOther.has_value() : hasOther == false);
    }
    place = 0;
    const QVector<RegionUser> later = description.inspect().getUsers();
    QVERIFY(std::all_of(later.cbegin(), later.cend(),
                        [](const RegionUser &user) { return user.hasOtherLayout == false; }));
    child.tell();
    QCOMPARE(child.waitForExit(), 0);
}

void tst_RegionLayouts::noteWithoutAStartIsUnknown()
{
    const TwoNumbers description;
    const OtherNumbers other(description);
    const QuietManager creator(description, create);
    const QuietManager own(other, attach);
    MappedRegion block(description.segment);
    QVERIFY(block.attach());

    block.management()->otherLayouts[0].fetch_and(~(pidUnit - 1));

    QVERIFY(!ownLayout(description.inspect()).has_value());
}

void tst_RegionLayouts::processWhoseStartIsNotToBeHadIsUnknown()
{
    const TwoNumbers description;
    const OtherNumbers other(description);
    const QuietManager creator(description, create);
    const QuietManager own(other, attach);
    const RegionInspection region = description.inspect();
    QVERIFY(ownLayout(region) == true);

    refusedFile = "/proc/" + std::to_string(getpid()) + "/stat";
    const std::optional<bool> found = ownLayout(region);
    refusedFile.clear();

    QVERIFY(!found.has_value());
}

void tst_RegionLayouts::processWhoseOwnNumberIsNotToBeHadIsUnknown()
{
    const TwoNumbers description;
    const OtherNumbers other(description);
    const QuietManager creator(description, create);
    const QuietManager own(other, attach);
    MappedRegion block(description.segment);
    QVERIFY(block.attach());
    auto &place = block.management()->otherLayouts[0];
    place += pidUnit + 1;
    const RegionInspection region = description.inspect();
    QVERIFY(ownLayout(region) == false);

    place -= 1;
    refusedFile = "/proc/" + std::to_string(getpid()) + "/status";
    const std::optional<bool> found = ownLayout(region);
    place += 1;
    const std::optional<bool> ofAnotherStart = ownLayout(region);
    refusedFile.clear();

    QVERIFY(!found.has_value());
    QVERIFY(ofAnotherStart == false);
}

/// Not one either whose own number is not to be had: that may have been forked by the noted one.
void tst_RegionLayouts::creatorWithoutANumberIsNoProcess()
{
    const TwoNumbers description;
    const OtherNumbers other(description);
    const QuietManager creator(description, create);
    const QuietManager own(other, attach);
    MappedRegion block(description.segment);
    QVERIFY(block.attach());
    block.management()->otherLayouts[0] += pidUnit - 1;
    block.management()->creatorPid = 0;
    const RegionInspection region = description.inspect();

    refusedFile = "/proc/" + std::to_string(getpid()) + "/status";
    const std::optional<bool> found = ownLayout(region);
    refusedFile.clear();

    QVERIFY(!found.has_value());
}

/// Whoever attaches has nothing to compare his own with.
void tst_RegionLayouts::withoutAFingerprintAllAreUnknown()
{
    const TwoNumbers description;
    const OtherNumbers other(description);
    const QuietManager creator(description, create);
    MappedRegion block(description.segment);
    QVERIFY(block.attach());
    block.management()->fingerprint = 0;
    ChildProcess child(attaching(other));
    QVERIFY(child.waitUntilReady());

    QVERIFY(!layoutBeside(description.inspect()).has_value());
    QVERIFY(!ownLayout(description.inspect()).has_value());
}

void tst_RegionLayouts::singleBufferSaysNothing()
{
    const TwoNumbers description(false);
    const QuietManager creator(description, create);

    QVERIFY(!ownLayout(description.inspect()).has_value());
    QVERIFY(!ownLayout(description.inspectDescribed()).has_value());
}

void tst_RegionLayouts::blockOfAnotherFormatSaysNothing()
{
    const TwoNumbers description;
    const QuietManager creator(description, create);
    MappedRegion block(description.segment);
    QVERIFY(block.attach());

    block.management()->format.fetch_add(1);

    QVERIFY(!ownLayout(description.inspect()).has_value());
}

/// What a process has done with other memory is not written in this one.
void tst_RegionLayouts::formerRegionSaysNothing()
{
    const TwoNumbers description;
    const QuietManager former(description, create);
    const RegionInspection before = description.inspect();
    QVERIFY(ownLayout(before) == false);

    QVERIFY(description.segment.remove());

    QVERIFY(ownLayout(before) == false);
    QVERIFY(!ownLayout(description.inspect()).has_value());
}

QTEST_GUILESS_MAIN(tst_RegionLayouts)

#include "tst_RegionLayouts.moc"
