#include "Companion/PingPongBufferHandler.h"
#include "Companion/SystemVSemaphoreBaseClass.h"
#include "support/ChildProcess.h"
#include "support/DoubleBuffer.h"
#include "support/LogCapture.h"
#include "support/SemaphoreSet.h"

#include <QHash>
#include <QSet>

#include <algorithm>
#include <array>
#include <fstream>
#include <memory>

#include <sched.h>

namespace {

using Semaphores = SystemVSemaphoreBaseClass;
constexpr auto create = Semaphores::CreationTypeCreate;
constexpr auto attach = Semaphores::CreationTypeAttach;

QString newKey()
{
    return SemaphoreSet::uniqueKey(QStringLiteral("set"));
}

/// In a process of its own: takes part until it is told to end.
ChildProcess::Body takesPart(const QString &key, Semaphores::CreationType type)
{
    return [key, type](const ChildSide &parent) {
        const Semaphores semaphores(key, type);
        CHILD_VERIFY(semaphores.isValid());
        parent.say();
        parent.waitForWord();
        return 0;
    };
}

/// Waits on, whatever wakes it in between.
template <std::size_t Count>
bool operate(int id, sembuf (&operations)[Count])
{
    int result = -1;
    do {
        result = semop(id, operations, Count);
    } while (result != 0 && errno == EINTR);
    return result == 0;
}

bool writeFile(const char *path, const char *text)
{
    std::ofstream file(path);
    file << text;
    file.close();
    return file.good();
}

/// From here on this process sees no semaphores but its own, and may have none.
bool enterPlaceWithoutSemaphores()
{
    const bool isAlone = unshare(CLONE_NEWIPC) == 0 || unshare(CLONE_NEWUSER | CLONE_NEWIPC) == 0;
    return isAlone && writeFile("/proc/sys/kernel/sem", "32000 1024000000 500 0\n");
}

} // namespace

class tst_SystemVSemaphores : public QObject
{
    Q_OBJECT

private Q_SLOTS:

    void lastUserRemovesTheSet_data();
    void lastUserRemovesTheSet();
    void lastUserLeavesAndClosesInOneStep();
    void threeUsersOfOneProcessEndInAnyOrder_data() { addOrders(); }
    void threeUsersOfOneProcessEndInAnyOrder();
    void threeProcessesEndInAnyOrder_data() { addOrders(); }
    void threeProcessesEndInAnyOrder();
    void forkedChildDoesNotLeaveForItsParent();

    void creatorBeginsWithANewSet();
    void creatorReplacesWhatAKilledOneLeft();
    void attacherGoesOnWithWhatAKilledCreatorLeft();
    void killedAttacherIsNotCounted();
    void closedSetIsReplaced_data();
    void closedSetIsReplaced();
    void lastUserWhoMayNotRemoveTheSetLeavesItUsable();

    void fullUserCountIsRefusedWithTheReason();
    void missingSetsAreReportedWithTheReason();
    void processesThatStartAtOnceShareOneSet();
    void usersThatComeAndGoNeverMeetARemovedSet();

private:
    static void addOrders();
};

void tst_SystemVSemaphores::lastUserRemovesTheSet_data()
{
    QTest::addColumn<bool>("isCreatorFirst");

    QTest::newRow("creator ends first") << true;
    QTest::newRow("attacher ends first") << false;
}

void tst_SystemVSemaphores::lastUserRemovesTheSet()
{
    QFETCH(bool, isCreatorFirst);
    const SemaphoreSet set(newKey());
    LogCapture log;
    auto creator = std::make_unique<Semaphores>(set.key(), create);
    const int id = set.id();
    auto attacher = std::make_unique<Semaphores>(set.key(), attach);
    QVERIFY(creator->isValid() && attacher->isValid());
    QCOMPARE(set.users(), 2);

    (isCreatorFirst ? creator : attacher).reset();

    QCOMPARE(set.id(), id);
    QCOMPARE(set.users(), 1);
    (isCreatorFirst ? attacher : creator).reset();
    QVERIFY(!set.exists());
    QCOMPARE(log.take(), QList<LogLine>());
}

void tst_SystemVSemaphores::lastUserLeavesAndClosesInOneStep()
{
    using Names = SemaphoreSet::Names;
    const SemaphoreSet set(newKey());
    auto semaphores = std::make_unique<Semaphores>(set.key(), create);
    const int id = set.id();
    // Asleep in the kernel they see every step: a set that is closed, and one that has no user and
    // is open, which somebody could join in vain.
    ChildProcess seesItClosed([id](const ChildSide &) {
        sembuf closed[] = {{Names::SemaphoreUsers, 0, 0},
                           {Names::SemaphoreClosed, -1, 0},
                           {Names::SemaphoreClosed, 1, 0}};
        CHILD_VERIFY(operate(id, closed));
        return 0;
    });
    ChildProcess seesItDeserted([id](const ChildSide &) {
        sembuf deserted[] = {{Names::SemaphoreUsers, 0, 0}, {Names::SemaphoreClosed, 0, 0}};
        CHILD_VERIFY(!operate(id, deserted) && errno == EIDRM);
        return 0;
    });
    QVERIFY(set.waitUntilBlocked(Names::SemaphoreUsers, 2));

    semaphores.reset();

    QCOMPARE(seesItClosed.waitForExit(), 0);
    QCOMPARE(seesItDeserted.waitForExit(), 0);
    QVERIFY(!set.exists());
}

void tst_SystemVSemaphores::addOrders()
{
    QTest::addColumn<int>("one");
    QTest::addColumn<int>("two");
    QTest::addColumn<int>("three");

    std::array<int, 3> order{0, 1, 2};
    do {
        QTest::addRow("%d %d %d", order[0], order[1], order[2]) << order[0] << order[1] << order[2];
    } while (std::next_permutation(order.begin(), order.end()));
}

void tst_SystemVSemaphores::threeUsersOfOneProcessEndInAnyOrder()
{
    QFETCH(int, one);
    QFETCH(int, two);
    QFETCH(int, three);
    const SemaphoreSet set(newKey());
    std::array<std::unique_ptr<Semaphores>, 3> users;
    // The second one finds no set to begin with and makes it, as the creator does.
    users[1] = std::make_unique<Semaphores>(set.key(), attach);
    users[0] = std::make_unique<Semaphores>(set.key(), attach);
    users[2] = std::make_unique<Semaphores>(set.key(), attach);
    const int id = set.id();
    QVERIFY(id >= 0);
    QCOMPARE(set.users(), 3);

    users[static_cast<std::size_t>(one)].reset();
    QCOMPARE(set.users(), 2);
    users[static_cast<std::size_t>(two)].reset();
    QCOMPARE(set.users(), 1);
    QCOMPARE(set.id(), id);
    users[static_cast<std::size_t>(three)].reset();

    QVERIFY(!set.exists());
}

void tst_SystemVSemaphores::threeProcessesEndInAnyOrder()
{
    QFETCH(int, one);
    QFETCH(int, two);
    QFETCH(int, three);
    const SemaphoreSet set(newKey());
    ChildProcess creator(takesPart(set.key(), create));
    QVERIFY(creator.waitUntilReady());
    ChildProcess second(takesPart(set.key(), attach));
    ChildProcess third(takesPart(set.key(), attach));
    QVERIFY(second.waitUntilReady());
    QVERIFY(third.waitUntilReady());
    QCOMPARE(set.users(), 3);
    const std::array<ChildProcess *, 3> users{&creator, &second, &third};

    int left = 3;
    for (const int user : {one, two, three}) {
        QCOMPARE(set.users(), left--);
        users[static_cast<std::size_t>(user)]->tell();
        QCOMPARE(users[static_cast<std::size_t>(user)]->waitForExit(), 0);
    }

    QVERIFY(!set.exists());
}

void tst_SystemVSemaphores::forkedChildDoesNotLeaveForItsParent()
{
    const SemaphoreSet set(newKey());
    auto semaphores = std::make_unique<Semaphores>(set.key(), create);
    const int id = set.id();

    ChildProcess child([&semaphores](const ChildSide &) {
        semaphores.reset();
        return 0;
    });

    QCOMPARE(child.waitForExit(), 0);
    QCOMPARE(set.id(), id);
    QCOMPARE(set.users(), 1);
    semaphores.reset();
    QVERIFY(!set.exists());
}

void tst_SystemVSemaphores::creatorBeginsWithANewSet()
{
    const SemaphoreSet set(newKey());
    LogCapture log;
    auto former = std::make_unique<Semaphores>(set.key(), create);
    const int formerId = set.id();

    auto newer = std::make_unique<Semaphores>(set.key(), create);

    QVERIFY(newer->isValid());
    QVERIFY(set.exists());
    QVERIFY(set.id() != formerId);
    QCOMPARE(set.users(), 1);
    former.reset();
    QCOMPARE(set.users(), 1);
    newer.reset();
    QVERIFY(!set.exists());
    QCOMPARE(log.take(), QList<LogLine>());
}

void tst_SystemVSemaphores::creatorReplacesWhatAKilledOneLeft()
{
    const SemaphoreSet set(newKey());
    ChildProcess killed(takesPart(set.key(), create));
    QVERIFY(killed.waitUntilReady());
    QVERIFY(killed.kill());
    const int formerId = set.id();
    QVERIFY(formerId >= 0);

    auto creator = std::make_unique<Semaphores>(set.key(), create);

    QVERIFY(creator->isValid());
    QVERIFY(set.id() != formerId);
    QCOMPARE(set.users(), 1);
    creator.reset();
    QVERIFY(!set.exists());
}

void tst_SystemVSemaphores::attacherGoesOnWithWhatAKilledCreatorLeft()
{
    const SemaphoreSet set(newKey());
    ChildProcess killed(takesPart(set.key(), create));
    QVERIFY(killed.waitUntilReady());
    QVERIFY(killed.kill());
    const int formerId = set.id();
    QCOMPARE(set.users(), 0);

    auto attacher = std::make_unique<Semaphores>(set.key(), attach);

    QVERIFY(attacher->isValid());
    QCOMPARE(set.id(), formerId);
    QCOMPARE(set.users(), 1);
    attacher.reset();
    QVERIFY(!set.exists());
}

void tst_SystemVSemaphores::killedAttacherIsNotCounted()
{
    const SemaphoreSet set(newKey());
    auto creator = std::make_unique<Semaphores>(set.key(), create);
    ChildProcess killed(takesPart(set.key(), attach));
    QVERIFY(killed.waitUntilReady());
    QCOMPARE(set.users(), 2);

    QVERIFY(killed.kill());

    QCOMPARE(set.users(), 1);
    creator.reset();
    QVERIFY(!set.exists());
}

void tst_SystemVSemaphores::closedSetIsReplaced_data()
{
    QTest::addColumn<bool>("isCreator");

    QTest::newRow("by a creator") << true;
    QTest::newRow("by an attacher") << false;
}

void tst_SystemVSemaphores::closedSetIsReplaced()
{
    QFETCH(bool, isCreator);
    const SemaphoreSet set(newKey());
    LogCapture log;
    ChildProcess killed(takesPart(set.key(), create));
    QVERIFY(killed.waitUntilReady());
    QVERIFY(killed.kill());
    const int formerId = set.id();
    QVERIFY(set.setValue(SemaphoreSet::Names::SemaphoreClosed, 1));

    auto next = std::make_unique<Semaphores>(set.key(), isCreator ? create : attach);

    QVERIFY(next->isValid());
    QVERIFY(set.id() != formerId);
    QCOMPARE(set.users(), 1);
    QCOMPARE(set.value(SemaphoreSet::Names::SemaphoreClosed), 0);
    next.reset();
    QVERIFY(!set.exists());
    QCOMPARE(log.take(), QList<LogLine>());
}

void tst_SystemVSemaphores::lastUserWhoMayNotRemoveTheSetLeavesItUsable()
{
    const SemaphoreSet set(newKey());
    auto creator = std::make_unique<Semaphores>(set.key(), create);
    const int id = set.id();
    ChildProcess other([&set](const ChildSide &parent) {
        const bool isOther = setuid(65534) == 0;
        auto attacher = std::make_unique<Semaphores>(set.key(), attach);
        CHILD_VERIFY(attacher->isValid());
        parent.say();
        parent.waitForWord();
        attacher.reset();
        const Semaphores again(set.key(), attach);
        CHILD_VERIFY(again.isValid());
        return isOther ? 0 : ChildProcess::sm_cannotTry;
    });
    QVERIFY(other.waitUntilReady());
    creator.reset();

    other.tell();

    COMPARE_EXIT(other.waitForExit(), "the right to become another user");
    QCOMPARE(set.id(), id);
    creator = std::make_unique<Semaphores>(set.key(), attach);
    QVERIFY(creator->isValid());
    creator.reset();
    QVERIFY(!set.exists());
}

void tst_SystemVSemaphores::fullUserCountIsRefusedWithTheReason()
{
    const SemaphoreSet set(newKey());
    const Semaphores creator(set.key(), create);
    const int id = set.id();
    QVERIFY(set.setValue(SemaphoreSet::Names::SemaphoreUsers, 32767));
    LogCapture log;

    const Semaphores attacher(set.key(), attach);

    QVERIFY(!attacher.isValid());
    COMPARE_LOG(log, warning(QStringLiteral("Can't join the semaphores of \"%1\" \"%2\"")
                                 .arg(set.key(), QString::fromLocal8Bit(strerror(ERANGE)))));
    QCOMPARE(set.id(), id);
    QCOMPARE(set.users(), 32767);
    QVERIFY(set.setValue(SemaphoreSet::Names::SemaphoreUsers, 1));
}

void tst_SystemVSemaphores::missingSetsAreReportedWithTheReason()
{
    const QString key = newKey();
    ChildProcess child([&key](const ChildSide &) {
        if (!enterPlaceWithoutSemaphores()) {
            return ChildProcess::sm_cannotTry;
        }
        LogCapture log;
        const Semaphores semaphores(key, create);
        CHILD_VERIFY(!semaphores.isValid());
        CHILD_VERIFY(log.take()
                     == (QList<LogLine>{warning(
                         QStringLiteral("Can't make the semaphores of \"%1\" \"%2\" (limits: "
                                        "/proc/sys/kernel/sem, sets in use: ipcs -s)")
                             .arg(key, QString::fromLocal8Bit(strerror(ENOSPC))))}));
        return 0;
    });

    COMPARE_EXIT(child.waitForExit(), "a place without semaphores");
}

void tst_SystemVSemaphores::processesThatStartAtOnceShareOneSet()
{
    for (int round = 0; round < 20; ++round) {
        const SemaphoreSet set(newKey());
        const auto startsWhenTold = [&set](const ChildSide &parent) {
            parent.say();
            parent.waitForWord();
            return takesPart(set.key(), attach)(parent);
        };
        ChildProcess one(startsWhenTold);
        ChildProcess two(startsWhenTold);
        ChildProcess three(startsWhenTold);
        const std::array<ChildProcess *, 3> children{&one, &two, &three};
        for (const ChildProcess *const child : children) {
            QVERIFY(child->waitUntilReady());
        }

        for (const ChildProcess *const child : children) {
            child->tell();
        }

        for (const ChildProcess *const child : children) {
            QVERIFY(child->waitUntilReady());
        }
        QCOMPARE(set.users(), 3);
        for (ChildProcess *const child : children) {
            child->tell();
            QCOMPARE(child->waitForExit(), 0);
        }
        QVERIFY(!set.exists());
    }
}

void tst_SystemVSemaphores::usersThatComeAndGoNeverMeetARemovedSet()
{
    const DoubleBuffer buffer;
    const auto comesAndGoes = [&buffer](const ChildSide &) {
        for (int i = 0; i < 2000; ++i) {
            const auto handler = buffer.attach();
            CHILD_VERIFY(writeSet(*handler, 1));
        }
        return 0;
    };
    ChildProcess one(comesAndGoes);
    ChildProcess two(comesAndGoes);
    ChildProcess three(comesAndGoes);

    QCOMPARE(one.waitForExit(), 0);
    QCOMPARE(two.waitForExit(), 0);
    QCOMPARE(three.waitForExit(), 0);
    QVERIFY(!buffer.semaphores.exists());
}

QTEST_GUILESS_MAIN(tst_SystemVSemaphores)
#include "tst_SystemVSemaphores.moc"
