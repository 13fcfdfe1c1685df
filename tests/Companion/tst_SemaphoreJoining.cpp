#include "support/LogCapture.h"
#include "support/SemaphoreRefusals.h"
#include "support/SemaphoreSet.h"

#include <QtTest>

#include <cerrno>
#include <cstring>
#include <vector>

namespace {

using namespace SemaphoreRefusals;
using Semaphores = SystemVSemaphoreBaseClass;
using Names = SemaphoreSet::Names;

constexpr auto attach = Semaphores::CreationTypeAttach;
constexpr auto join = Semaphores::CreationTypeJoin;

/// Joins a set later, as the locks of a region do.
class LaterJoiner : public Semaphores
{
public:
    using Semaphores::joinAgain;
    using Semaphores::Semaphores;
};

QString newKey()
{
    return SemaphoreSet::uniqueKey(QStringLiteral("refusals"));
}

LogLine missingRights(const QString &key, int error)
{
    return warning(
        QStringLiteral(
            "Can't join the semaphores of \"%1\" \"%2\" , and without them a single buffer "
            "cannot be read reliably: run as a user who may alter them (ipcs -s shows "
            "owner and mode).")
            .arg(key, QString::fromLocal8Bit(strerror(error))));
}

} // namespace

/// What joins a set that somebody else makes, now or later, and makes none itself.
class tst_SemaphoreJoining : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void joinerWithoutASetGoesOnWithoutOne();
    void joinerLeavesAnUnfinishedSetAlone();
    void joinerTriesAgainIfTheSetGoes_data();
    void joinerTriesAgainIfTheSetGoes();
    void joinerIsToldWhatItMayNotDo_data();
    void joinerIsToldWhatItMayNotDo();
    void joinsLaterWhereThatIsWanted();
    void leavesAgainWhereJoiningIsNotWantedAnyMore();
    void closedSetIsNotJoinedLater();
    void init() { forget(); }
    void cleanup() { refuse = nullptr; }
};

void tst_SemaphoreJoining::joinerWithoutASetGoesOnWithoutOne()
{
    const SemaphoreSet set(newKey());
    LogCapture log;

    const Semaphores joiner(set.key(), join);

    QVERIFY(!joiner.isValid());
    QVERIFY(!set.exists());
    QCOMPARE(pauses, 0);
    COMPARE_LOG(log);
}

void tst_SemaphoreJoining::joinerLeavesAnUnfinishedSetAlone()
{
    const SemaphoreSet set(newKey());
    const int unfinished = set.make(std::vector<unsigned short>(Names::SemaphoreCount, 0));
    QVERIFY(unfinished >= 0);
    LogCapture log;

    const Semaphores joiner(set.key(), join);

    QVERIFY(!joiner.isValid());
    QCOMPARE(set.id(), unfinished);
    QCOMPARE(set.users(), 0);
    QCOMPARE(pauses, 98);
    COMPARE_LOG(log);
}

void tst_SemaphoreJoining::joinerTriesAgainIfTheSetGoes_data()
{
    QTest::addColumn<int>("call");
    QTest::newRow("before it is looked at") << static_cast<int>(Call::Values);
    QTest::newRow("before it is joined") << static_cast<int>(Call::Operate);
}

void tst_SemaphoreJoining::joinerTriesAgainIfTheSetGoes()
{
    QFETCH(int, call);
    const SemaphoreSet set(newKey());
    const Semaphores first(set.key(), attach);
    LogCapture log;
    refuseFirst(static_cast<Call>(call), EIDRM, 3);

    const Semaphores joiner(set.key(), join);

    QCOMPARE(takeRefusedCalls(), 3);
    QVERIFY(joiner.isValid());
    QCOMPARE(set.users(), 2);
    QCOMPARE(pauses, 2);
    COMPARE_LOG(log);
}

void tst_SemaphoreJoining::joinerIsToldWhatItMayNotDo_data()
{
    QTest::addColumn<int>("call");
    QTest::newRow("look at it") << static_cast<int>(Call::Status);
    QTest::newRow("join it") << static_cast<int>(Call::Operate);
}

void tst_SemaphoreJoining::joinerIsToldWhatItMayNotDo()
{
    QFETCH(int, call);
    const SemaphoreSet set(newKey());
    const Semaphores first(set.key(), attach);
    LogCapture log;
    refuseFirst(static_cast<Call>(call), EACCES);

    const Semaphores joiner(set.key(), join);

    QCOMPARE(takeRefusedCalls(), 1);
    QVERIFY(!joiner.isValid());
    QCOMPARE(set.users(), 1);
    COMPARE_LOG(log, missingRights(set.key(), EACCES));
}

void tst_SemaphoreJoining::joinsLaterWhereThatIsWanted()
{
    const SemaphoreSet set(newKey());
    LogCapture log;
    LaterJoiner joiner(set.key(), join);
    QVERIFY(!joiner.joinAgain(set.key(), [] { return true; }));
    QVERIFY(!joiner.isValid());
    const Semaphores maker(set.key(), attach);

    QVERIFY(joiner.joinAgain(set.key(), [&set] { return set.users() == 2; }));

    QVERIFY(joiner.isValid());
    QCOMPARE(set.users(), 2);
    COMPARE_LOG(log);
}

void tst_SemaphoreJoining::leavesAgainWhereJoiningIsNotWantedAnyMore()
{
    const SemaphoreSet set(newKey());
    LogCapture log;
    LaterJoiner joiner(set.key(), join);
    const Semaphores maker(set.key(), attach);
    int usersWhenAsked = 0;

    QVERIFY(!joiner.joinAgain(set.key(), [&] {
        usersWhenAsked = set.users();
        return false;
    }));

    QCOMPARE(usersWhenAsked, 2);
    QCOMPARE(set.users(), 1);
    QVERIFY(!joiner.isValid());
    COMPARE_LOG(log);
}

void tst_SemaphoreJoining::closedSetIsNotJoinedLater()
{
    const SemaphoreSet set(newKey());
    LogCapture log;
    LaterJoiner joiner(set.key(), join);
    const Semaphores maker(set.key(), attach);
    QVERIFY(set.setValue(Names::SemaphoreClosed, 1));
    bool isAsked = false;

    QVERIFY(!joiner.joinAgain(set.key(), [&isAsked] { return isAsked = true; }));

    QVERIFY(!isAsked);
    QVERIFY(!joiner.isValid());
    QCOMPARE(set.users(), 1);
    QVERIFY(set.setValue(Names::SemaphoreClosed, 0));
    COMPARE_LOG(log);
}

QTEST_GUILESS_MAIN(tst_SemaphoreJoining)
#include "tst_SemaphoreJoining.moc"
