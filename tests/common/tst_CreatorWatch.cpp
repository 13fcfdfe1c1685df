#include "regions/CreatorWatch.h"

#include <QtTest>

using namespace std::chrono_literals;

namespace {

const CreatorWatch::Time begin{};
constexpr bool dead = true;
constexpr bool alive = false;

} // namespace

class tst_CreatorWatch : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void regionOfALivingCreatorIsNeverLeft();
    void regionWhoseCreatorDiesIsLeftOnceNobodyPublishes();
    void regionThatIsFoundDeadIsLeftAtOnce();
    void setOfBeforeIsNoReturn();
    void newSetIsAReturn();
    void newCreatorIsAReturn();
    void slowPublisherOfADeadRegionIsGivenAMinute();
    void minuteBeginsWithEachSet();
    void setsBetweenLooksCount();
    void nextRegionBeginsAnew();
};

void tst_CreatorWatch::regionOfALivingCreatorIsNeverLeft()
{
    CreatorWatch watch;
    watch.start(alive, 5, begin);
    QVERIFY(!watch.isLeft());

    watch.look(alive, 5, begin + 1h);

    QVERIFY(!watch.isLeft());
}

void tst_CreatorWatch::regionWhoseCreatorDiesIsLeftOnceNobodyPublishes()
{
    CreatorWatch watch;
    watch.start(alive, 5, begin);

    watch.look(dead, 6, begin + 1s);
    QVERIFY(!watch.isLeft());
    watch.look(dead, 6, begin + 2s);
    QVERIFY(watch.isLeft());
}

void tst_CreatorWatch::regionThatIsFoundDeadIsLeftAtOnce()
{
    CreatorWatch watch;

    watch.start(dead, 5, begin);

    QVERIFY(watch.isLeft());
    watch.look(dead, 5, begin + 1s);
    QVERIFY(watch.isLeft());
}

void tst_CreatorWatch::setOfBeforeIsNoReturn()
{
    CreatorWatch watch;
    watch.start(dead, 5, begin);

    watch.handleSet(dead, 5, begin);

    QVERIFY(watch.isLeft());
}

void tst_CreatorWatch::newSetIsAReturn()
{
    CreatorWatch watch;
    watch.start(dead, 5, begin);

    watch.handleSet(dead, 6, begin + 10ms);

    QVERIFY(!watch.isLeft());
}

void tst_CreatorWatch::newCreatorIsAReturn()
{
    CreatorWatch watch;
    watch.start(dead, 5, begin);

    watch.look(alive, 5, begin + 1s);
    QVERIFY(!watch.isLeft());

    // That one dies as well, and has no minute.
    watch.look(dead, 5, begin + 2s);
    QVERIFY(watch.isLeft());
}

void tst_CreatorWatch::slowPublisherOfADeadRegionIsGivenAMinute()
{
    CreatorWatch watch;
    watch.start(dead, 5, begin);
    watch.handleSet(dead, 6, begin + 10s);
    watch.look(dead, 6, begin + 11s); // the count is another one than at the last look

    watch.look(dead, 6, begin + 71s);
    QVERIFY(!watch.isLeft());
    watch.look(dead, 6, begin + 71s + 1ms);
    QVERIFY(watch.isLeft());
}

void tst_CreatorWatch::minuteBeginsWithEachSet()
{
    CreatorWatch watch;
    watch.start(dead, 5, begin);
    for (int minute = 0; minute < 10; ++minute) {
        watch.look(dead, 6 + static_cast<quint64>(minute), begin + minute * 1min);
        watch.look(dead, 6 + static_cast<quint64>(minute), begin + minute * 1min + 59s);

        QVERIFY(!watch.isLeft());
    }
}

void tst_CreatorWatch::setsBetweenLooksCount()
{
    CreatorWatch watch;
    watch.start(dead, 5, begin);
    // Woken by the first and by none of the next, which a look finds.
    watch.handleSet(dead, 6, begin);
    watch.look(dead, 9, begin + 30s);

    watch.look(dead, 9, begin + 90s);
    QVERIFY(!watch.isLeft());
    watch.look(dead, 9, begin + 91s);
    QVERIFY(watch.isLeft());
}

void tst_CreatorWatch::nextRegionBeginsAnew()
{
    CreatorWatch watch;
    watch.start(dead, 5, begin);
    watch.handleSet(dead, 6, begin);
    QVERIFY(!watch.isLeft());

    watch.start(alive, 1, begin);
    watch.look(dead, 1, begin + 1s);

    QVERIFY(watch.isLeft()); // nobody else has published into this one
}

QTEST_GUILESS_MAIN(tst_CreatorWatch)
#include "tst_CreatorWatch.moc"
