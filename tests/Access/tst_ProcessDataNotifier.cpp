#include "Access/ProcessDataNotifier.h"
#include "Access/WatchedRegion.h"
#include "support/LogCapture.h"

#include <QSignalSpy>
#include <QtTest>

namespace {

constexpr int longWait = 60000; // milliseconds

quint64 lastGeneration(const QSignalSpy &spy)
{
    return spy.isEmpty() ? 0 : spy.last().first().toULongLong();
}

bool isAsleep()
{
    return waitFor([] { return FutexCalls::sleepers() == 1; });
}

} // namespace

class tst_ProcessDataNotifier : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void tellsOfTheSetThatIsThere();
    void tellsOfEachSetThatTheLoopHasTimeFor();
    void tellsOfSeveralSetsOnce();
    void leastIntervalKeepsSignalsApart();
    void publisherIsNotWokenWithinTheInterval();
    void negativeIntervalIsNone();
    void goneRegionIsToldOnce();
    void goneRegionIsToldWithinTheInterval_data();
    void goneRegionIsToldWithinTheInterval();
    void goneRegionIsToldBesideNewSets_data();
    void goneRegionIsToldBesideNewSets();
    void singleBufferIsSilent();
    void mayBeDeletedByItsSignal();
};

void tst_ProcessDataNotifier::tellsOfTheSetThatIsThere()
{
    WatchedRegion region;
    QVERIFY(region.publish());
    ProcessDataNotifier notifier(region.manager());
    QSignalSpy published(&notifier, &ProcessDataNotifier::published);

    QVERIFY(notifier.isActive());
    QVERIFY(published.isEmpty());
    QVERIFY(published.wait(longWait));

    QCOMPARE(published.size(), 1);
    QCOMPARE(lastGeneration(published), ProcessDataWatcher(region.manager()).getGeneration());
}

void tst_ProcessDataNotifier::tellsOfEachSetThatTheLoopHasTimeFor()
{
    WatchedRegion region;
    ProcessDataNotifier notifier(region.manager());
    QSignalSpy published(&notifier, &ProcessDataNotifier::published);
    QVERIFY(published.wait(longWait));
    const quint64 begin = lastGeneration(published);

    for (int i = 1; i <= 20; ++i) {
        QVERIFY(region.publish(i));
        QVERIFY(published.wait(longWait));
        QCOMPARE(lastGeneration(published), begin + static_cast<quint64>(i));
    }

    QCOMPARE(published.size(), 21);
}

void tst_ProcessDataNotifier::tellsOfSeveralSetsOnce()
{
    WatchedRegion region;
    ProcessDataNotifier notifier(region.manager());
    QSignalSpy published(&notifier, &ProcessDataNotifier::published);
    QVERIFY(published.wait(longWait));
    const quint64 begin = lastGeneration(published);
    QVERIFY(isAsleep());

    for (int i = 0; i < 5; ++i) {
        QVERIFY(region.publish(i)); // outside the loop
    }
    QVERIFY(published.wait(longWait));

    QCOMPARE(published.size(), 2);
    QCOMPARE(lastGeneration(published), begin + 5);
}

void tst_ProcessDataNotifier::leastIntervalKeepsSignalsApart()
{
    constexpr int interval = 40;
    WatchedRegion region;
    ProcessDataNotifier notifier(region.manager());
    notifier.setLeastInterval(interval);
    QSignalSpy published(&notifier, &ProcessDataNotifier::published);
    connect(&notifier, &ProcessDataNotifier::published, this, [&] {
        region.publish(); // at once, so that there is always another set
    });
    QElapsedTimer timer;
    timer.start();

    while (published.size() < 6) {
        QVERIFY(published.wait(longWait));
    }

    QCOMPARE(notifier.getLeastInterval(), interval);
    // All together: from one to the next this thread may see less, having been late for the first of them.
    QVERIFY2(timer.elapsed() >= 5 * (interval - 1), qPrintable(QString::number(timer.elapsed())));
}

void tst_ProcessDataNotifier::publisherIsNotWokenWithinTheInterval()
{
    WatchedRegion region;
    ProcessDataNotifier notifier(region.manager());
    QSignalSpy published(&notifier, &ProcessDataNotifier::published);
    QVERIFY(published.wait(longWait));
    QVERIFY(isAsleep());
    notifier.setLeastInterval(longWait);
    const int wakes = FutexCalls::wakes();

    for (int i = 0; i < 100; ++i) {
        QVERIFY(region.publish(i));
        QCoreApplication::processEvents();
    }

    QCOMPARE(FutexCalls::wakes(), wakes + 1);
    QCOMPARE(published.size(), 1);
}

void tst_ProcessDataNotifier::negativeIntervalIsNone()
{
    WatchedRegion region;
    ProcessDataNotifier notifier(region.manager());

    notifier.setLeastInterval(-5);

    QCOMPARE(notifier.getLeastInterval(), 0);
}

void tst_ProcessDataNotifier::goneRegionIsToldOnce()
{
    WatchedRegion region;
    ProcessDataNotifier notifier(region.manager());
    QSignalSpy published(&notifier, &ProcessDataNotifier::published);
    QSignalSpy gone(&notifier, &ProcessDataNotifier::regionGone);
    QVERIFY(published.wait(longWait));

    QVERIFY(region.description.segment.remove());
    QVERIFY(gone.wait(longWait));
    QVERIFY(!notifier.isActive());
    QVERIFY(region.publish());
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QCoreApplication::processEvents();

    QCOMPARE(gone.size(), 1);
    QCOMPARE(published.size(), 1);
}

void tst_ProcessDataNotifier::goneRegionIsToldWithinTheInterval_data()
{
    QTest::addColumn<bool>("isSetHeldBack");

    QTest::newRow("told is everything") << false;
    QTest::newRow("a set is held back") << true;
}

/// Nobody has to wait for an hour because he wants a set an hour.
void tst_ProcessDataNotifier::goneRegionIsToldWithinTheInterval()
{
    QFETCH(bool, isSetHeldBack);
    WatchedRegion region;
    ProcessDataNotifier notifier(region.manager());
    notifier.setLeastInterval(10 * longWait);
    QSignalSpy published(&notifier, &ProcessDataNotifier::published);
    QSignalSpy gone(&notifier, &ProcessDataNotifier::regionGone);
    QVERIFY(published.wait(longWait));
    QVERIFY(isAsleep());
    if (isSetHeldBack) {
        QVERIFY(region.publish());
    }

    QVERIFY(region.description.segment.remove());
    QVERIFY(gone.wait(longWait));

    QVERIFY(!notifier.isActive());
    QCOMPARE(lastGeneration(published), ProcessDataWatcher(region.manager()).getGeneration());
}

void tst_ProcessDataNotifier::goneRegionIsToldBesideNewSets_data()
{
    QTest::addColumn<int>("interval");

    QTest::newRow("as often as the loop comes") << 0;
    QTest::newRow("sets are held back") << 10 * longWait;
}

void tst_ProcessDataNotifier::goneRegionIsToldBesideNewSets()
{
    QFETCH(int, interval);
    WatchedRegion region;
    ProcessDataNotifier notifier(region.manager());
    notifier.setLeastInterval(interval);
    QSignalSpy published(&notifier, &ProcessDataNotifier::published);
    QSignalSpy gone(&notifier, &ProcessDataNotifier::regionGone);
    QVERIFY(published.wait(longWait));
    QVERIFY(region.description.segment.remove());
    bool isPublishing = true;
    const auto publishAndTell = [&] {
        isPublishing = isPublishing && region.publish();
        QCoreApplication::processEvents();
    };

    QVERIFY(waitFor([&] {
        publishAndTell();
        return !gone.isEmpty();
    }));
    const int told = published.size();
    publishAndTell();

    QVERIFY(isPublishing);
    QVERIFY(!notifier.isActive());
    QCOMPARE(gone.size(), 1);
    QCOMPARE(published.size(), told);
    if (interval > 0) {
        QCOMPARE(told, 2); // the first one, and the one that was held back
    }
}

void tst_ProcessDataNotifier::singleBufferIsSilent()
{
    WatchedRegion region(false);
    LogCapture log;
    const ProcessDataNotifier notifier(region.manager());
    COMPARE_LOG(log,
                warning(QStringLiteral(
                    "Waiting for sets needs a double buffer, and a watcher of this process.")));
    QSignalSpy published(&notifier, &ProcessDataNotifier::published);

    QVERIFY(!notifier.isActive());
    QVERIFY(region.publish());
    QCoreApplication::processEvents();

    QVERIFY(published.isEmpty());
}

void tst_ProcessDataNotifier::mayBeDeletedByItsSignal()
{
    WatchedRegion region;
    auto *const notifier = new ProcessDataNotifier(region.manager());
    QSignalSpy destroyed(notifier, &QObject::destroyed);
    connect(notifier, &ProcessDataNotifier::published, notifier, &QObject::deleteLater);

    QVERIFY(destroyed.wait(longWait));
    QVERIFY(region.publish());
}

QTEST_GUILESS_MAIN(tst_ProcessDataNotifier)
#include "tst_ProcessDataNotifier.moc"
