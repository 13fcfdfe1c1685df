#include "mirror/SendingPlan.h"
#include "mirror/SilenceWatch.h"

#include <QtTest>

namespace {

using Answer = SendingPlan::Answer;
using std::chrono::milliseconds;

constexpr milliseconds interval{400};
constexpr milliseconds again{1000};
constexpr milliseconds room{5};
constexpr milliseconds bound{300};

/// So many milliseconds after the beginning.
SendingPlan::Clock::time_point at(int time)
{
    return SendingPlan::Clock::time_point(std::chrono::hours(1)) + milliseconds(time);
}

/// One that has said set 1 at the beginning.
SendingPlan begun()
{
    SendingPlan plan(interval);
    plan.beginRegion();
    plan.take(1, at(0));
    plan.noteSaid(true, at(0));
    return plan;
}

} // namespace

/// What is said of a region and when, and when its publisher counts as silent, without a clock and an engine.
class tst_SendingPlan : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void eachSetIsSaidOnce();
    void regionThatIsMadeAnewBeginsAgain();
    void setThatWaitedForItsTurnEndsNoSilence();
    void newerSetEndsTheSilence();
    void silenceIsNotToldBehindANewerSet();
    void regionThatIsMadeAnewEndsTheSilence();
    void setWaitsForItsTurn();
    void whatIsSaidAgainTakesATurn();
    void whatIsNoSetTakesNone();
    void whatFoundNoRoomTakesNone();
    void newestIsSaidAgain();
    void setThatWaitsGoesBeforeTheFormerOneIsSaidAgain();
    void stateIsSaidAgainWhateverWaits();
    void whatFoundNoRoomIsSaidAgainSoon();
    void onlyTheNewestWasReadAtItsTime();
    void silenceBeginsWithTheLook();
    void setThatWasHeardOfBeginsItThen();
    void setThatNobodyHeardOfBeginsItWithTheLookThatFoundIt();
    void lastMomentBelongsToTheSilence();
};

void tst_SendingPlan::eachSetIsSaidOnce()
{
    SendingPlan plan(interval);
    QVERIFY(plan.state() == SourceState::CreatorGone);
    plan.beginRegion();

    QVERIFY(plan.take(5, at(0)) == Answer::Say);
    QVERIFY(plan.state() == SourceState::Live);
    QCOMPARE(plan.generation(), quint64(5));
    QVERIFY(plan.take(5, at(1)) == Answer::Leave);
    QVERIFY(plan.take(7, at(2)) == Answer::Say);
    QCOMPARE(plan.generation(), quint64(7));
}

void tst_SendingPlan::regionThatIsMadeAnewBeginsAgain()
{
    SendingPlan plan = begun();
    plan.take(900, at(1));
    QCOMPARE(plan.attachment(), 1U);

    plan.beginRegion();

    QCOMPARE(plan.attachment(), 2U);
    QCOMPARE(plan.generation(), quint64(0));
    QVERIFY(plan.take(1, at(2)) == Answer::Say);
}

void tst_SendingPlan::setThatWaitedForItsTurnEndsNoSilence()
{
    SendingPlan plan = begun();

    // Set 2 came, and waits, as the publisher falls silent.
    QVERIFY(plan.tellSilent(2));

    QVERIFY(plan.take(2, at(400)) == Answer::Leave);
    QVERIFY(plan.state() == SourceState::Silent);
    QCOMPARE(plan.generation(), quint64(1));
    QVERIFY(plan.take(3, at(800)) == Answer::Revive);
}

void tst_SendingPlan::newerSetEndsTheSilence()
{
    SendingPlan plan = begun();
    plan.tellSilent(1);

    QVERIFY(plan.take(2, at(900)) == Answer::Revive);

    QVERIFY(plan.state() == SourceState::Live);
    QCOMPARE(plan.generation(), quint64(2));
    QVERIFY(plan.take(3, at(1300)) == Answer::Say);
}

void tst_SendingPlan::silenceIsNotToldBehindANewerSet()
{
    SendingPlan plan = begun();
    plan.take(2, at(400));

    QVERIFY(!plan.tellSilent(1));

    QVERIFY(plan.state() == SourceState::Live);
    QVERIFY(plan.take(3, at(800)) == Answer::Say);
}

void tst_SendingPlan::regionThatIsMadeAnewEndsTheSilence()
{
    SendingPlan plan = begun();
    plan.tellSilent(900);

    plan.beginRegion();

    QVERIFY(plan.take(1, at(1)) == Answer::Revive);
}

void tst_SendingPlan::setWaitsForItsTurn()
{
    const SendingPlan plan = begun();

    QVERIFY(plan.nextTurn({}) == at(0) + interval);
    // Whoever was late rests all the same.
    QVERIFY(plan.nextTurn(at(50)) == at(50) + interval);
    QVERIFY(plan.nextTurn(at(-50)) == at(0) + interval);
}

void tst_SendingPlan::whatIsSaidAgainTakesATurn()
{
    SendingPlan plan = begun();

    plan.noteSaid(true, at(1000));

    QVERIFY(plan.nextTurn({}) == at(1000) + interval);
}

void tst_SendingPlan::whatIsNoSetTakesNone()
{
    SendingPlan plan = begun();

    plan.tell(SourceState::RegionReplaced);
    plan.noteSaid(true, at(300));

    QVERIFY(plan.nextTurn({}) == at(0) + interval);
}

void tst_SendingPlan::whatFoundNoRoomTakesNone()
{
    SendingPlan plan = begun();
    plan.take(2, at(400));

    plan.noteSaid(false, at(400));

    QVERIFY(plan.nextTurn({}) == at(0) + interval);
}

void tst_SendingPlan::newestIsSaidAgain()
{
    const SendingPlan plan = begun();

    QVERIFY(plan.nextAgain(1) == at(0) + again);
}

void tst_SendingPlan::setThatWaitsGoesBeforeTheFormerOneIsSaidAgain()
{
    const SendingPlan plan = begun();

    // By then it is said, unless something keeps its thread.
    QVERIFY(plan.nextAgain(2) == at(0) + again + interval);
}

void tst_SendingPlan::stateIsSaidAgainWhateverWaits()
{
    SendingPlan plan = begun();
    plan.tellSilent(2);
    plan.noteSaid(true, at(300));

    QVERIFY(plan.nextAgain(2) == at(300) + again);
}

void tst_SendingPlan::whatFoundNoRoomIsSaidAgainSoon()
{
    SendingPlan plan = begun();
    plan.take(2, at(400));
    plan.noteSaid(false, at(400));

    QVERIFY(plan.nextAgain(2) == at(400) + room);
    QVERIFY(plan.nextAgain(3) == at(400) + room);
    plan.noteSaid(true, at(405));
    QVERIFY(plan.nextAgain(2) == at(405) + again);
    QVERIFY(plan.nextTurn({}) == at(405) + interval);
}

void tst_SendingPlan::onlyTheNewestWasReadAtItsTime()
{
    SendingPlan plan = begun();
    plan.take(3, at(20));

    QVERIFY(plan.readAt(3) == at(20));
    QVERIFY(!plan.readAt(1));
    QVERIFY(!plan.readAt(4));
    plan.take(3, at(30));
    QVERIFY(plan.readAt(3) == at(20));
}

void tst_SendingPlan::silenceBeginsWithTheLook()
{
    SilenceWatch watch;
    watch.begin(7, at(0));

    QVERIFY(watch.look(7, at(-1000), at(100), bound) == milliseconds(200));
    QVERIFY(watch.look(7, {}, at(299), bound) == milliseconds(1));
    QVERIFY(!watch.look(7, {}, at(300), bound));
}

void tst_SendingPlan::setThatWasHeardOfBeginsItThen()
{
    SilenceWatch watch;
    watch.begin(7, at(0));

    QVERIFY(watch.look(9, at(250), at(300), bound) == milliseconds(250));
    // A later look at the same set changes nothing.
    QVERIFY(watch.look(9, at(310), at(549), bound) == milliseconds(1));
    QVERIFY(!watch.look(9, at(250), at(550), bound));
}

void tst_SendingPlan::setThatNobodyHeardOfBeginsItWithTheLookThatFoundIt()
{
    SilenceWatch watch;
    watch.begin(7, at(0));

    QVERIFY(watch.look(8, {}, at(300), bound) == bound);
    QVERIFY(!watch.look(8, {}, at(600), bound));
}

void tst_SendingPlan::lastMomentBelongsToTheSilence()
{
    SilenceWatch watch;
    watch.begin(7, at(0));

    const auto nearly = at(300) - std::chrono::microseconds(1);

    QVERIFY(watch.look(7, {}, nearly, bound) == milliseconds(1));
}

QTEST_APPLESS_MAIN(tst_SendingPlan)
#include "tst_SendingPlan.moc"
