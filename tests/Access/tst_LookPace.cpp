#include "Access/LookPace_p.h"

#include <QtTest>

#include <optional>

using namespace std::chrono_literals;
using std::chrono::duration_cast;
using std::chrono::microseconds;

/// From one look for a new set to the next.
class tst_LookPace : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void pauseIsAnEighthOfTheAge_data();
    void pauseIsAnEighthOfTheAge();
    void looksAreCloserWhereASetIsDue_data();
    void looksAreCloserWhereASetIsDue();
    void setsThatWereMissedShareTheTime();
    void countThatBeginsAnewLeavesTheIntervalAsItIs();
    void steadySetsAreFoundSoon_data();
    void steadySetsAreFoundSoon();

private:
    const LookPace::Clock::time_point m_begin{1h};
};

void tst_LookPace::pauseIsAnEighthOfTheAge_data()
{
    QTest::addColumn<int>("age");
    QTest::addColumn<int>("pause");
    // Microseconds.
    QTest::newRow("at once") << 0 << 200;
    QTest::newRow("still the shortest") << 1600 << 200;
    QTest::newRow("longer") << 1608 << 201;
    QTest::newRow("a tenth of a second") << 100000 << 12500;
    QTest::newRow("still not the longest") << 159992 << 19999;
    QTest::newRow("the longest") << 160000 << 20000;
    QTest::newRow("an hour") << 2000000000 << 20000;
}

void tst_LookPace::pauseIsAnEighthOfTheAge()
{
    QFETCH(int, age);
    QFETCH(int, pause);
    LookPace pace(m_begin - 5s);
    pace.note(7, m_begin);
    // The same set seen again is no younger.
    pace.note(7, m_begin + microseconds(age));

    QCOMPARE(duration_cast<microseconds>(pace.pause(m_begin + microseconds(age))).count(),
             qint64{pause});
}

void tst_LookPace::looksAreCloserWhereASetIsDue_data()
{
    QTest::addColumn<int>("age");
    QTest::addColumn<int>("pause");
    // Microseconds, of sets every 80 milliseconds.
    QTest::newRow("far before") << 40000 << 5000;
    QTest::newRow("half of the way") << 70000 << 5000;
    QTest::newRow("just before") << 79000 << 500;
    QTest::newRow("due") << 80000 << 200;
    QTest::newRow("just behind") << 81000 << 500;
    QTest::newRow("far behind") << 160000 << 20000;
}

void tst_LookPace::looksAreCloserWhereASetIsDue()
{
    QFETCH(int, age);
    QFETCH(int, pause);
    LookPace pace(m_begin - 5s);
    pace.note(7, m_begin - 80ms);
    pace.note(8, m_begin);

    QCOMPARE(duration_cast<microseconds>(pace.pause(m_begin + microseconds(age))).count(),
             qint64{pause});
}

void tst_LookPace::setsThatWereMissedShareTheTime()
{
    LookPace pace(m_begin - 5s);
    pace.note(7, m_begin - 320ms);
    pace.note(11, m_begin);

    QCOMPARE(duration_cast<microseconds>(pace.pause(m_begin + 79ms)).count(), qint64{500});
}

void tst_LookPace::countThatBeginsAnewLeavesTheIntervalAsItIs()
{
    LookPace pace(m_begin - 5s);
    pace.note(7, m_begin - 80ms);
    pace.note(8, m_begin - 1s);
    pace.note(9, m_begin - 920ms);
    pace.note(1, m_begin);

    QCOMPARE(duration_cast<microseconds>(pace.pause(m_begin + 79ms)).count(), qint64{500});
}

void tst_LookPace::steadySetsAreFoundSoon_data()
{
    QTest::addColumn<int>("interval");
    QTest::newRow("1 ms") << 1;
    QTest::newRow("10 ms") << 10;
    QTest::newRow("100 ms") << 100;
    QTest::newRow("1 s") << 1000;
}

/// With a clock of its own: how late the looks are once the interval is known, and how many it takes.
void tst_LookPace::steadySetsAreFoundSoon()
{
    QFETCH(int, interval);
    const auto distance = std::chrono::milliseconds(interval);
    LookPace pace(m_begin);
    pace.note(0, m_begin);
    auto now = m_begin;
    auto latest = LookPace::Nanoseconds::zero();
    int looks = 0;
    quint64 seen = 0;

    while (seen < 20) {
        now += pace.pause(now);
        ++looks;
        const auto newest = static_cast<quint64>((now - m_begin) / distance);
        if (newest > seen && seen > 6) {
            latest = std::max<LookPace::Nanoseconds>(latest, (now - m_begin) % distance);
        }
        seen = newest;
        pace.note(newest, now);
    }

    QVERIFY2(latest <= 400us, qPrintable(QString::number(latest.count())));
    QVERIFY2(looks <= 20 * 100, qPrintable(QString::number(looks)));
}

QTEST_APPLESS_MAIN(tst_LookPace)
#include "tst_LookPace.moc"
