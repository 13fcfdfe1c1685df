#include "torture/SleepNote.h"
#include "torture/SwapHistory.h"

#include <QtTest>

using namespace Torture;

namespace {

constexpr qint64 begin = 5 * second;

/// A set every second, from number 11 at second 1 on.
SwapHistory history()
{
    SwapHistory history;
    for (int i = 1; i <= 10; ++i) {
        history.add(i * second, 10 + static_cast<quint64>(i));
    }
    return history;
}

} // namespace

/// When a set came that a waiter should have heard of, and when a publisher was done with it.
class tst_LateWaiters : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void theFirstNewerSetCounts();
    void aSetThatWasSeenCannotBeMissed();
    void whatIsSeenAgainKeepsItsTime();
    void nothingIsKnownOfNoRegion();
    void setsBeforeTheLastMinuteAreForgotten();
    void theNewestSetIsKeptForEver();
    void noteTellsThatSomebodyWasDone();
    void noteOfTheLastMomentIsNoLoss();
    void firstNoteStays();
    void noteOfAFormerSleepIsDropped();
    void nothingIsNotedOnceTheSleepIsOver();
    void setsBehindTheSwapOfASleepAreDue();
    void noSetIsDueInARest();
    void restThatIsArmedBecomesASleep();
    void sleepThatIsOverIsNotArmed();
};

void tst_LateWaiters::theFirstNewerSetCounts()
{
    QCOMPARE(history().firstBeyond(13), std::make_optional(4 * second));
    QCOMPARE(history().firstBeyond(2), std::make_optional(1 * second));
}

void tst_LateWaiters::aSetThatWasSeenCannotBeMissed()
{
    QVERIFY(!history().firstBeyond(20));
    QVERIFY(!history().firstBeyond(99));
}

void tst_LateWaiters::whatIsSeenAgainKeepsItsTime()
{
    SwapHistory watched = history();

    watched.add(11 * second, 20);

    QCOMPARE(watched.firstBeyond(19), std::make_optional(10 * second));
    QCOMPARE(watched.newest(), quint64{20});
}

void tst_LateWaiters::nothingIsKnownOfNoRegion()
{
    QVERIFY(!SwapHistory().firstBeyond(0));
    QCOMPARE(SwapHistory().newest(), quint64{0});
}

void tst_LateWaiters::setsBeforeTheLastMinuteAreForgotten()
{
    SwapHistory watched = history();

    watched.add(65 * second, 21);

    QCOMPARE(watched.firstBeyond(10), std::make_optional(5 * second));
}

void tst_LateWaiters::theNewestSetIsKeptForEver()
{
    SwapHistory watched = history();

    watched.add(1000 * second, 20);

    QCOMPARE(watched.firstBeyond(19), std::make_optional(10 * second));
}

void tst_LateWaiters::noteTellsThatSomebodyWasDone()
{
    std::atomic<quint64> word{0};
    SleepNote sleep(word);
    sleep.begin();
    const quint64 current = sleep.current();
    QVERIFY(SleepNote::isOpen(current));
    QVERIFY(!sleep.isPublishedBefore(begin + second));

    sleep.note(current, begin);

    QVERIFY(!SleepNote::isOpen(sleep.current()));
    QVERIFY(sleep.isPublishedBefore(begin + second));
}

void tst_LateWaiters::noteOfTheLastMomentIsNoLoss()
{
    std::atomic<quint64> word{0};
    SleepNote sleep(word);
    sleep.begin();

    sleep.note(sleep.current(), begin);

    QVERIFY(!sleep.isPublishedBefore(begin));
    QVERIFY(!sleep.isPublishedBefore(begin - second));
}

void tst_LateWaiters::firstNoteStays()
{
    std::atomic<quint64> word{0};
    SleepNote sleep(word);
    sleep.begin();
    const quint64 current = sleep.current();
    sleep.note(current, begin);

    sleep.note(current, begin + 10 * second);

    QVERIFY(sleep.isPublishedBefore(begin + second));
}

void tst_LateWaiters::noteOfAFormerSleepIsDropped()
{
    std::atomic<quint64> word{0};
    SleepNote sleep(word);
    sleep.begin();
    const quint64 former = sleep.current();
    sleep.end();
    sleep.begin();

    sleep.note(former, begin);

    QVERIFY(SleepNote::isOpen(sleep.current()));
    QVERIFY(!sleep.isPublishedBefore(begin + second));
}

void tst_LateWaiters::nothingIsNotedOnceTheSleepIsOver()
{
    std::atomic<quint64> word{0};
    SleepNote sleep(word);
    sleep.begin();
    const quint64 current = sleep.current();

    sleep.end();
    sleep.note(current, begin);

    QVERIFY(!SleepNote::isOpen(sleep.current()));
    QVERIFY(!sleep.isPublishedBefore(begin + second));
}

void tst_LateWaiters::setsBehindTheSwapOfASleepAreDue()
{
    std::atomic<quint64> word{0};
    WakeDue due(word);
    QVERIFY(!due.swapOf(0));

    due.begin(7, 41);

    QCOMPARE(due.swapOf(7), std::make_optional(quint32{41}));
    QVERIFY(!due.swapOf(6));
}

void tst_LateWaiters::noSetIsDueInARest()
{
    std::atomic<quint64> word{0};
    WakeDue due(word);

    due.beginRest(7);

    QVERIFY(!due.swapOf(7));
}

void tst_LateWaiters::restThatIsArmedBecomesASleep()
{
    std::atomic<quint64> word{0};
    WakeDue due(word);
    due.beginRest(7);

    due.arm(7, 43);

    QCOMPARE(due.swapOf(7), std::make_optional(quint32{43}));
}

void tst_LateWaiters::sleepThatIsOverIsNotArmed()
{
    std::atomic<quint64> word{0};
    WakeDue due(word);
    due.beginRest(8);

    due.arm(7, 43);

    QVERIFY(!due.swapOf(7));
    QVERIFY(!due.swapOf(8));
}

QTEST_APPLESS_MAIN(tst_LateWaiters)

#include "tst_LateWaiters.moc"
