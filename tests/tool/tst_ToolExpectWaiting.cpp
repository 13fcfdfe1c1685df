#include "HeldRegion.h"
#include "ToolProcess.h"
#include "support/LogCapture.h"
#include "support/LookingReader.h"
#include "support/SemaphoreSet.h"

#include <QElapsedTimer>
#include <QtTest>

#include <csignal>
#include <memory>

using namespace ProcessDataDefinitions;
using Metadata = ToolDescription::Metadata;

namespace {

const QString url = QStringLiteral("n/level");

} // namespace

/// `tessel expect` while it waits: for a value, for some time, for a region.
class tst_ToolExpectWaiting : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void nextSetEndsIt();
    void singleBufferEndsItAsWell();
    void timeoutIsToldWithWhatFailed();
    void timeoutOfNothingLooksOnce();
    void whatHoldsLongEnoughEndsIt();
    void breakEndsIt();
    void breakBeginsTheTimeAnew();
    void timeoutEndsWhatHolds();
    void timeoutEndsTheWaitForALock_data();
    void timeoutEndsTheWaitForALock();
    void lockThatIsGivenBackInTimeIsWaitedFor();
    void setThatGrowsOldBreaksIt();
    void regionThatComesLaterIsLookedAt();
    void missingRegionTakesTheWholeTime();
    void newRegionIsFollowed();
    void newRegionEndsItWithoutATimeout();
    void regionThatGoesEndsItWithoutATimeout();
    void regionThatGoesIsWaitedFor();
    void signalIsNoAnswer();

private:
    std::unique_ptr<ToolProcess> start(const QStringList &options, const QString &expression)
    {
        return std::make_unique<ToolProcess>(QStringList(QStringLiteral("expect")) + options
                                             + QStringList{m_file, expression});
    }
    void useSingleBuffer()
    {
        m_region.reset();
        m_description->setRoot(QStringLiteral("doubleBuffer"), false);
        m_file = m_description->write();
        m_region = std::make_unique<HeldRegion>(m_file);
    }
    bool publish(double level) { return m_region->publish(url, validValue(level)); }

    std::unique_ptr<LogCapture> m_log;
    std::unique_ptr<ToolDescription> m_description;
    QString m_file;
    std::unique_ptr<HeldRegion> m_region;
};

void tst_ToolExpectWaiting::init()
{
    m_log = std::make_unique<LogCapture>();
    m_description = std::make_unique<ToolDescription>();
    m_description->add(url, QStringLiteral("double"), Metadata::ErrorState, 8);
    m_file = m_description->write();
    m_region = std::make_unique<HeldRegion>(m_file);
    QVERIFY(publish(1));
}

void tst_ToolExpectWaiting::cleanup()
{
    m_region.reset();
    m_description.reset();
    m_log.reset();
}

void tst_ToolExpectWaiting::nextSetEndsIt()
{
    const auto expect = start({QStringLiteral("--timeout=10min")}, QStringLiteral("n/level > 2"));
    QVERIFY(LookingReader::waitUntilSeen(m_description->key()));
    QVERIFY(publish(1.5));
    QVERIFY(publish(2.5));

    const ToolResult result = expect->finish();

    QCOMPARE(result.error, QString());
    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolExpectWaiting::singleBufferEndsItAsWell()
{
    useSingleBuffer();
    const auto expect = start({QStringLiteral("--timeout=10min")}, QStringLiteral("n/level > 2"));
    QVERIFY(m_region->write(url, validValue(2.5)));

    QCOMPARE(expect->finish().exitCode, 0);
}

void tst_ToolExpectWaiting::timeoutIsToldWithWhatFailed()
{
    QElapsedTimer timer;
    timer.start();

    const ToolResult result =
        start({QStringLiteral("--timeout=500ms")}, QStringLiteral("n/level > 2"))->finish();

    QVERIFY(timer.elapsed() >= 500);
    QCOMPARE(result.error,
             QStringLiteral("tessel: %1: it did not hold within 500 ms\n").arg(m_file));
    QCOMPARE(result.output, QStringLiteral("FAILED       URL      VALUE  UNIT  STATE\n"
                                           "n/level > 2  n/level      1        valid\n"));
    QCOMPARE(result.exitCode, 6);
}

void tst_ToolExpectWaiting::timeoutOfNothingLooksOnce()
{
    QCOMPARE(
        start({QStringLiteral("--timeout=0")}, QStringLiteral("n/level == 1"))->finish().exitCode,
        0);
    QCOMPARE(
        start({QStringLiteral("--timeout=0")}, QStringLiteral("n/level == 2"))->finish().exitCode,
        6);
}

void tst_ToolExpectWaiting::whatHoldsLongEnoughEndsIt()
{
    QElapsedTimer timer;
    timer.start();

    const ToolResult result = start({QStringLiteral("--for=400ms"), QStringLiteral("--json")},
                                    QStringLiteral("n/level == 1"))
                                  ->finish();

    QVERIFY(timer.elapsed() >= 400);
    QCOMPARE(result.error, QString());
    QVERIFY(result.output.startsWith(QStringLiteral("{\"met\": true, \"holds\": true, ")));
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolExpectWaiting::breakEndsIt()
{
    const auto expect = start({QStringLiteral("--for=1h")}, QStringLiteral("n/level < 2"));
    QVERIFY(LookingReader::waitUntilSeen(m_description->key()));
    QVERIFY(m_region->publish(url, ProcessValue(PROCESS_VALUE_ERROR_TYPE_TIMEOUT)));

    const ToolResult result = expect->finish();

    const QRegularExpression reason(QStringLiteral("^tessel: %1: it held for [0-9.]+ (ms|s|min), "
                                                   "not for 60 min\n$")
                                        .arg(QRegularExpression::escape(m_file)));
    QVERIFY2(reason.match(result.error).hasMatch(), qPrintable(result.error));
    QCOMPARE(result.output, QStringLiteral("FAILED       URL      VALUE  UNIT  STATE\n"
                                           "n/level < 2  n/level               timeout\n"));
    QCOMPARE(result.exitCode, 1);
}

void tst_ToolExpectWaiting::breakBeginsTheTimeAnew()
{
    const auto expect = start({QStringLiteral("--for=300ms"), QStringLiteral("--timeout=10min")},
                              QStringLiteral("n/level > 2"));
    QVERIFY(LookingReader::waitUntilSeen(m_description->key()));
    QElapsedTimer timer;
    timer.start();
    QVERIFY(publish(3));

    const ToolResult result = expect->finish();

    QVERIFY(timer.elapsed() >= 300);
    QCOMPARE(result.error, QString());
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolExpectWaiting::timeoutEndsWhatHolds()
{
    const auto expect = start({QStringLiteral("--for=2s"), QStringLiteral("--timeout=2.1s")},
                              QStringLiteral("n/level > 2"));

    const ToolResult result = expect->finish();

    QCOMPARE(result.error,
             QStringLiteral("tessel: %1: it did not hold for 2 s within 2.1 s\n").arg(m_file));
    QCOMPARE(result.exitCode, 6);
}

/// Nobody publishes any more, and nobody wakes it.
void tst_ToolExpectWaiting::timeoutEndsTheWaitForALock_data()
{
    QTest::addColumn<QString>("timeout");
    QTest::addColumn<QString>("told");
    QTest::newRow("none") << "0s"
                          << "0 s";
    QTest::newRow("short") << "300ms"
                           << "300 ms";
}

void tst_ToolExpectWaiting::timeoutEndsTheWaitForALock()
{
    QFETCH(QString, timeout);
    QFETCH(QString, told);
    useSingleBuffer();
    QVERIFY(m_region->manager().lockWriteBuffer());

    const ToolResult result =
        start({QStringLiteral("--timeout"), timeout}, QStringLiteral("n/level > 2"))->finish();

    QCOMPARE(result.error,
             QStringLiteral("tessel: %1: another process has held the lock of region '%2' until "
                            "the end of %3\n")
                 .arg(m_file, m_description->key(), told));
    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, 6);
    QVERIFY(m_region->manager().unlockWriteBuffer());
}

void tst_ToolExpectWaiting::lockThatIsGivenBackInTimeIsWaitedFor()
{
    useSingleBuffer();
    QVERIFY(m_region->write(url, validValue(2.5)));
    QVERIFY(m_region->manager().lockWriteBuffer());
    const auto expect = start({QStringLiteral("--timeout=10min")}, QStringLiteral("n/level > 2"));
    const SemaphoreSet semaphores(m_description->key() + QStringLiteral("Semaphore"));
    QTRY_COMPARE_WITH_TIMEOUT(semaphores.users(), 2, 60000);
    QVERIFY(m_region->manager().unlockWriteBuffer());

    QCOMPARE(expect->finish().exitCode, 0);
}

void tst_ToolExpectWaiting::setThatGrowsOldBreaksIt()
{
    const auto expect = start({QStringLiteral("--for=1h")}, QStringLiteral("age < 3s"));

    const ToolResult result = expect->finish();

    QCOMPARE(result.exitCode, 1);
    QVERIFY(
        result.output.contains(QRegularExpression(QStringLiteral("age < 3s  age +[0-9]{4,}  ms"))));
}

void tst_ToolExpectWaiting::regionThatComesLaterIsLookedAt()
{
    m_region.reset();
    const auto expect = start({QStringLiteral("--timeout=10min")}, QStringLiteral("n/level == 7"));
    m_region = std::make_unique<HeldRegion>(m_file);
    QVERIFY(publish(7));

    const ToolResult result = expect->finish();

    QCOMPARE(result.error, QString());
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolExpectWaiting::missingRegionTakesTheWholeTime()
{
    m_region.reset();
    QElapsedTimer timer;
    timer.start();

    const ToolResult result =
        start({QStringLiteral("--timeout=1s")}, QStringLiteral("n/level == 7"))->finish();

    QVERIFY(timer.elapsed() >= 1000);
    QCOMPARE(result.error, QStringLiteral("tessel: %1: no region '%2' within 1 s\n")
                               .arg(m_file, m_description->key()));
    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, 6);
}

void tst_ToolExpectWaiting::newRegionIsFollowed()
{
    const auto expect = start({QStringLiteral("--timeout=10min")}, QStringLiteral("n/level == 7"));
    QVERIFY(LookingReader::waitUntilSeen(m_description->key()));

    m_region = std::make_unique<HeldRegion>(m_file);
    QVERIFY(publish(7));

    const ToolResult result = expect->finish();
    QCOMPARE(result.error, QString());
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolExpectWaiting::newRegionEndsItWithoutATimeout()
{
    const auto expect = start({QStringLiteral("--for=1h")}, QStringLiteral("n/level == 1"));
    QVERIFY(LookingReader::waitUntilSeen(m_description->key()));

    const HeldRegion later(m_file);

    const ToolResult result = expect->finish();
    QCOMPARE(result.error, QStringLiteral("tessel: %1: the region '%2' was replaced by a new one; "
                                          "start again\n")
                               .arg(m_file, m_description->key()));
    QCOMPARE(result.exitCode, 8);
}

void tst_ToolExpectWaiting::regionThatGoesEndsItWithoutATimeout()
{
    const auto expect = start({QStringLiteral("--for=1h")}, QStringLiteral("n/level == 1"));
    QVERIFY(LookingReader::waitUntilSeen(m_description->key()));

    m_region.reset();

    const ToolResult result = expect->finish();
    QCOMPARE(result.error,
             QStringLiteral("tessel: %1: the region '%2' has gone, its creator has ended\n")
                 .arg(m_file, m_description->key()));
    QCOMPARE(result.exitCode, 3);
}

void tst_ToolExpectWaiting::regionThatGoesIsWaitedFor()
{
    const auto expect = start({QStringLiteral("--timeout=10min")}, QStringLiteral("n/level == 7"));
    QVERIFY(LookingReader::waitUntilSeen(m_description->key()));
    m_region.reset();
    m_region = std::make_unique<HeldRegion>(m_file);
    QVERIFY(publish(7));

    const ToolResult result = expect->finish();

    QCOMPARE(result.error, QString());
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolExpectWaiting::signalIsNoAnswer()
{
    const auto expect = start({QStringLiteral("--timeout=10min")}, QStringLiteral("n/level > 2"));
    QVERIFY(LookingReader::waitUntilSeen(m_description->key()));

    // Not SIGINT, which whoever runs the tests in the background ignores.
    expect->signal(SIGTERM);

    const ToolResult result = expect->finish();
    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, -1);
    // Nothing of it hinders the publisher.
    QVERIFY(publish(5));
}

QTEST_GUILESS_MAIN(tst_ToolExpectWaiting)
#include "tst_ToolExpectWaiting.moc"
