#include "torture/WaitJudge.h"

#include <QtTest>

#include <functional>

using namespace Torture;

namespace {

constexpr int waiter = 0;
constexpr int holder = 1;
constexpr int other = 2;
constexpr qint64 tick = 10 * millisecond;

/// Ten seconds of samples, each as @p change leaves it.
WaitJudge judgeAfter(const std::function<void(Sample &)> &change)
{
    WaitJudge judge;
    for (qint64 time = 0; time <= 10 * second; time += tick) {
        Sample sample;
        sample.time = time;
        sample.holder = holder;
        change(sample);
        judge.add(sample);
    }
    return judge;
}

/// The same moments for every test: the wait is from second 2 to second 7.
qint64 unexplained(const WaitJudge &judge, Excuse excuse = Excuse::AnyStop)
{
    return judge.unexplained(waiter, 2 * second, 7 * second, excuse);
}

bool isBetween(qint64 time, qint64 begin, qint64 end)
{
    return time >= begin && time <= end;
}

} // namespace

class tst_WaitJudge : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void nothingExplainsAWaitForARunningHolder();
    void aStoppedHolderExplainsAsLongAsItStandsStill();
    void aStoppedHolderIsNoExcuseForABound();
    void theOwnStopExplainsAlways();
    void theStopOfABystanderExplainsNothing();
    void whatTheHolderLackedExplains();
    void whatTheWaiterLackedExplains();
    void whatABystanderLackedExplainsNothing();
    void aLackThatIsCountedLateExplainsTheWholeWait();
    void aLateWatchdogExplains();
    void aWatchdogThatIsHardlyLateExplainsNothing();
    void whatWasBeforeAndAfterExplainsNothing();
};

void tst_WaitJudge::nothingExplainsAWaitForARunningHolder()
{
    QCOMPARE(unexplained(judgeAfter([](Sample &) {})), 5 * second);
}

void tst_WaitJudge::aStoppedHolderExplainsAsLongAsItStandsStill()
{
    const WaitJudge judge = judgeAfter([](Sample &sample) {
        sample.isHolderStopped = isBetween(sample.time, 3 * second, 5 * second);
    });

    // One interval more on each side: it may have been stopped anywhere in it.
    QCOMPARE(unexplained(judge), 3 * second - 2 * tick);
}

void tst_WaitJudge::aStoppedHolderIsNoExcuseForABound()
{
    const WaitJudge judge = judgeAfter([](Sample &sample) { sample.isHolderStopped = true; });

    QCOMPARE(unexplained(judge), 0);
    QCOMPARE(unexplained(judge, Excuse::OwnStop), 5 * second);
}

void tst_WaitJudge::theOwnStopExplainsAlways()
{
    const WaitJudge judge = judgeAfter([](Sample &sample) { sample.isStopped[waiter] = true; });

    QCOMPARE(unexplained(judge), 0);
    QCOMPARE(unexplained(judge, Excuse::OwnStop), 0);
}

void tst_WaitJudge::theStopOfABystanderExplainsNothing()
{
    const WaitJudge judge = judgeAfter([](Sample &sample) { sample.isStopped[other] = true; });

    QCOMPARE(unexplained(judge), 5 * second);
}

void tst_WaitJudge::whatTheHolderLackedExplains()
{
    const WaitJudge judge = judgeAfter(
        [](Sample &sample) { sample.starved[holder] = sample.time / 2; });

    QCOMPARE(unexplained(judge), 5 * second / 2);
}

void tst_WaitJudge::whatTheWaiterLackedExplains()
{
    const WaitJudge judge = judgeAfter([](Sample &sample) {
        sample.holder = -1;
        sample.starved[waiter] = sample.time / 5;
    });

    QCOMPARE(unexplained(judge), 4 * second);
}

void tst_WaitJudge::whatABystanderLackedExplainsNothing()
{
    const WaitJudge judge = judgeAfter([](Sample &sample) { sample.starved[other] = sample.time; });

    QCOMPARE(unexplained(judge), 5 * second);
}

void tst_WaitJudge::aLackThatIsCountedLateExplainsTheWholeWait()
{
    const WaitJudge judge = judgeAfter(
        [](Sample &sample) { sample.starved[holder] = sample.time < 6 * second ? 0 : 6 * second; });

    QCOMPARE(unexplained(judge), 0);
}

void tst_WaitJudge::aLateWatchdogExplains()
{
    const WaitJudge judge = judgeAfter(
        [](Sample &sample) { sample.overslept = sample.time == 4 * second ? 2 * second : 0; });

    QCOMPARE(unexplained(judge), 3 * second);
}

void tst_WaitJudge::aWatchdogThatIsHardlyLateExplainsNothing()
{
    const WaitJudge judge = judgeAfter([](Sample &sample) { sample.overslept = 5 * millisecond; });

    QCOMPARE(unexplained(judge), 5 * second);
}

void tst_WaitJudge::whatWasBeforeAndAfterExplainsNothing()
{
    const WaitJudge judge = judgeAfter([](Sample &sample) {
        sample.isHolderStopped = isBetween(sample.time, 0, 2 * second - tick)
                                 || isBetween(sample.time, 7 * second + tick, 10 * second);
        sample.starved[holder] = qMin(sample.time, 2 * second);
    });

    QCOMPARE(unexplained(judge), 5 * second);
}

QTEST_APPLESS_MAIN(tst_WaitJudge)

#include "tst_WaitJudge.moc"
