#include "Access/StandingWriters.h"
#include "support/SemaphoreCalls.h"
#include "support/SemaphoreSet.h"

#include <memory>

using std::chrono::milliseconds;

namespace {

/// Of every wait between processes.
constexpr milliseconds usualBound{5000};
constexpr milliseconds shortBound{20};

/// Finishes a set that nobody publishes.
int finishSet(const ReadPlant &plant)
{
    ChildProcess child([&plant](const ChildSide & /*parent*/) {
        LogCapture log;
        LiveRegion writer(plant, attach);
        const ProcessDataWriteGuard guard(writer.manager);
        CHILD_VERIFY(guard.isLocked());
        CHILD_VERIFY(writer.leaf(number)->setValueNoLock(valid(7)));
        return 0;
    });
    return child.waitForExit();
}

/// Reads, and ends that when it is told to.
ChildProcess::Body keepsReading(const ReadPlant &plant)
{
    return [&plant](const ChildSide &parent) {
        LogCapture log;
        LiveRegion reader(plant, attach);
        ProcessDataReadGuard guard(reader.manager);
        CHILD_VERIFY(guard.isLocked());
        parent.say();
        parent.waitForWord();
        CHILD_VERIFY(guard.unlock());
        return 0;
    };
}

/// Who writes what is logged into process data.
std::function<void()> atMessage;
void handleMessage(QtMsgType /*type*/, const QMessageLogContext & /*context*/,
                   const QString & /*text*/)
{
    if (atMessage) {
        atMessage();
    }
}

} // namespace

/// Write guards that do not wait for long: how long they do is told by the waits that they ask the system for.
class tst_WriteGuardWaits : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void nobodyIsWaitedForWithoutABound_data();
    void nobodyIsWaitedForWithoutABound();
    void readersOfASingleBufferAreNotWaitedForWithoutABound();
    void whoStaysInsideIsWaitedForUntilTheBound_data() { addBuffers(); }
    void whoStaysInsideIsWaitedForUntilTheBound();
    void whoLeavesInTimeLetsTheGuardIn_data() { addBuffers(); }
    void whoLeavesInTimeLetsTheGuardIn();
    void theBoundIsOfThatGuardAlone();
    void theBoundEndsWithAGuardThatLocksNothing();
    void publishingWaitsForNobodyEither_data() { addBuffers(); }
    void publishingWaitsForNobodyEither();
    void theBoundIsNotOfWhatItsLockLogs_data() { addBuffers(); }
    void theBoundIsNotOfWhatItsLockLogs();
    void noBoundIsLongerThanTheUsualOne();
    void freeLockIsHadWithoutABound_data() { addBuffers(); }
    void freeLockIsHadWithoutABound();
    void innerGuardNeedsNoBound();
};

void tst_WriteGuardWaits::nobodyIsWaitedForWithoutABound_data()
{
    QTest::addColumn<bool>("hasDoubleBuffer");
    QTest::addColumn<qint64>("bound");
    for (const bool hasDoubleBuffer : {true, false}) {
        const QByteArray buffers = hasDoubleBuffer ? "double" : "single";
        QTest::newRow(buffers + ", 0") << hasDoubleBuffer << qint64{0};
        QTest::newRow(buffers + ", below 0") << hasDoubleBuffer << qint64{-1};
        QTest::newRow(buffers + ", far below 0")
            << hasDoubleBuffer << std::numeric_limits<qint64>::min();
    }
}

void tst_WriteGuardWaits::nobodyIsWaitedForWithoutABound()
{
    QFETCH(bool, hasDoubleBuffer);
    QFETCH(qint64, bound);
    const ReadPlant plant(hasDoubleBuffer);
    LiveRegion own(plant);
    QVERIFY(publish(own, 1));
    StoppedProcess writer(staysInside(plant));
    QVERIFY(writer.isStopped());

    const auto allowed = SemaphoreCalls::sumOfBounds();
    LogCapture log;
    for (int i = 0; i < 3; ++i) {
        ProcessDataWriteGuard guard(own.manager, milliseconds(bound));
        QVERIFY(!guard.isLocked());
        QVERIFY(own.manager.getPointerWriteBuffer() == nullptr);
        QVERIFY(!guard.publish());
    }
    QCOMPARE(SemaphoreCalls::sumOfBounds(), allowed);
    QVERIFY(log.take().isEmpty());

    QCOMPARE(writer.goOn(), 0);
    ProcessDataWriteGuard guard(own.manager, milliseconds(bound));
    QVERIFY(guard.isLocked());
    QVERIFY(own.leaf(number)->setValueNoLock(valid(3)));
    QVERIFY(guard.publish());
    QCOMPARE(numberIn(own), 3);
}

void tst_WriteGuardWaits::readersOfASingleBufferAreNotWaitedForWithoutABound()
{
    const ReadPlant plant(false);
    LiveRegion own(plant);
    QVERIFY(publish(own, 1));
    StoppedProcess reader(keepsReading(plant));
    QVERIFY(reader.isStopped());

    const auto allowed = SemaphoreCalls::sumOfBounds();
    {
        const ProcessDataWriteGuard guard(own.manager, milliseconds(0));
        QVERIFY(!guard.isLocked());
    }
    QCOMPARE(SemaphoreCalls::sumOfBounds(), allowed);
    QCOMPARE(reader.goOn(), 0);
    QVERIFY(publish(own, 2));
    QCOMPARE(numberIn(own), 2);
}

void tst_WriteGuardWaits::whoStaysInsideIsWaitedForUntilTheBound()
{
    QFETCH(bool, hasDoubleBuffer);
    const ReadPlant plant(hasDoubleBuffer);
    LiveRegion own(plant);
    QVERIFY(publish(own, 1));
    StoppedProcess writer(staysInside(plant));
    QVERIFY(writer.isStopped());

    const auto before = SemaphoreCalls::sumOfBounds();
    const auto begin = std::chrono::steady_clock::now();
    const ProcessDataWriteGuard guard(own.manager, shortBound);
    QVERIFY(!guard.isLocked());
    QVERIFY(std::chrono::steady_clock::now() - begin >= shortBound);
    const auto allowed = SemaphoreCalls::sumOfBounds() - before;
    QVERIFY(allowed > milliseconds(0));
    QVERIFY(allowed <= shortBound);
    QVERIFY(writer.die());
}

void tst_WriteGuardWaits::whoLeavesInTimeLetsTheGuardIn()
{
    QFETCH(bool, hasDoubleBuffer);
    const ReadPlant plant(hasDoubleBuffer);
    LiveRegion own(plant);
    QVERIFY(publish(own, 1));
    StoppedProcess writer(staysInside(plant));
    QVERIFY(writer.isStopped());

    const SemaphoreCalls::PatientWaits patience;
    int result = -1;
    SemaphoreCalls::before = [&](const SemaphoreCalls::Call &call) {
        if (call.mayWait && result < 0) {
            result = writer.goOn();
        }
    };
    ProcessDataWriteGuard guard(own.manager, shortBound);
    SemaphoreCalls::before = nullptr;
    QCOMPARE(result, 0);
    QVERIFY(guard.isLocked());
    QVERIFY(guard.publish());
}

void tst_WriteGuardWaits::theBoundIsOfThatGuardAlone()
{
    const ReadPlant plant(true);
    LiveRegion own(plant);
    QVERIFY(publish(own, 1));
    StoppedProcess writer(staysInside(plant));
    QVERIFY(writer.isStopped());

    const ProcessDataWriteGuard refused(own.manager, shortBound);
    QVERIFY(!refused.isLocked());
    const auto before = SemaphoreCalls::sumOfBounds();
    const ProcessDataWriteGuard usual(own.manager);
    QVERIFY(!usual.isLocked());
    QVERIFY(SemaphoreCalls::sumOfBounds() - before > shortBound);
    QVERIFY(writer.die());
}

void tst_WriteGuardWaits::theBoundEndsWithAGuardThatLocksNothing()
{
    ProcessDataManager empty;
    const ReadPlant plant(true);
    LiveRegion own(plant);
    QVERIFY(publish(own, 1));
    StoppedProcess writer(staysInside(plant));
    QVERIFY(writer.isStopped());
    {
        ProcessDataWriteGuard guard(empty, milliseconds(0));
        QVERIFY(guard.isLocked());
        QVERIFY(guard.publish());
    }

    const SemaphoreCalls::PatientWaits patience;
    int result = -1;
    SemaphoreCalls::before = [&](const SemaphoreCalls::Call &call) {
        if (call.mayWait && result < 0) {
            result = writer.goOn();
        }
    };
    const ProcessDataWriteGuard usual(own.manager);
    SemaphoreCalls::before = nullptr;
    QCOMPARE(result, 0);
    QVERIFY(usual.isLocked());
}

/// Somebody comes in right behind the lock, and stays there.
void tst_WriteGuardWaits::publishingWaitsForNobodyEither()
{
    QFETCH(bool, hasDoubleBuffer);
    const ReadPlant plant(hasDoubleBuffer);
    LiveRegion own(plant);
    QVERIFY(publish(own, 1));
    ProcessDataWriteGuard guard(own.manager, milliseconds(0));
    QVERIFY(guard.isLocked());
    QVERIFY(own.leaf(number)->setValueNoLock(valid(5)));

    const auto allowed = SemaphoreCalls::sumOfBounds();
    std::unique_ptr<StoppedProcess> writer;
    SemaphoreCalls::after = [&](const SemaphoreCalls::Call &call) {
        if (call.changes(SemaphoreSet::Names::SemaphoreWriteLock, -1) && !writer) {
            writer = std::make_unique<StoppedProcess>(staysInside(plant));
        }
    };
    const bool isPublished = guard.publish();
    SemaphoreCalls::after = nullptr;
    QVERIFY(isPublished);
    QVERIFY(writer && writer->isStopped());
    QCOMPARE(SemaphoreCalls::sumOfBounds(), allowed);
    QVERIFY(writer->die());
    if (hasDoubleBuffer) {
        QCOMPARE(numberIn(own), 5);
    }
}

/// The lock finds a set that somebody had finished and says that it is lost. Who gets that into a region of his
/// waits for the writer there as ever.
void tst_WriteGuardWaits::theBoundIsNotOfWhatItsLockLogs()
{
    QFETCH(bool, hasDoubleBuffer);
    const ReadPlant plant(true);
    LiveRegion own(plant);
    QVERIFY(publish(own, 1));
    QCOMPARE(finishSet(plant), 0);
    StoppedProcess dying(staysInside(plant));
    QVERIFY(dying.die());
    const ReadPlant plantOfLog(hasDoubleBuffer);
    LiveRegion logged(plantOfLog);
    QVERIFY(publish(logged, 1));
    StoppedProcess writer(staysInside(plantOfLog));
    QVERIFY(writer.isStopped());

    const SemaphoreCalls::PatientWaits patience;
    int result = -1;
    SemaphoreCalls::before = [&](const SemaphoreCalls::Call &call) {
        if (call.mayWait && result < 0) {
            result = writer.goOn();
        }
    };
    QList<bool> isWritten;
    atMessage = [&] { isWritten.append(logged.leaf(number)->setValue(valid(3))); };
    const QtMessageHandler former = qInstallMessageHandler(handleMessage);
    const ProcessDataWriteGuard guard(own.manager, milliseconds(0));
    qInstallMessageHandler(former);
    atMessage = nullptr;
    SemaphoreCalls::before = nullptr;
    QVERIFY(guard.isLocked());
    QCOMPARE(isWritten, QList<bool>{true});
    QCOMPARE(result, 0);
}

void tst_WriteGuardWaits::noBoundIsLongerThanTheUsualOne()
{
    const ReadPlant plant(true);
    LiveRegion own(plant);
    QVERIFY(publish(own, 1));
    StoppedProcess writer(staysInside(plant));
    QVERIFY(writer.isStopped());

    const auto before = SemaphoreCalls::sumOfBounds();
    const ProcessDataWriteGuard guard(own.manager, milliseconds::max());
    QVERIFY(!guard.isLocked());
    QVERIFY(SemaphoreCalls::sumOfBounds() - before <= usualBound);
    QVERIFY(writer.die());
}

void tst_WriteGuardWaits::freeLockIsHadWithoutABound()
{
    QFETCH(bool, hasDoubleBuffer);
    const ReadPlant plant(hasDoubleBuffer);
    LiveRegion own(plant);
    // As often as makes the lock stay with this process, and once more for another one.
    for (int i = 0; i < 100; ++i) {
        ProcessDataWriteGuard guard(own.manager, milliseconds(0));
        QVERIFY(guard.isLocked());
        QVERIFY(own.leaf(number)->setValueNoLock(valid(i)));
        QVERIFY(guard.publish());
    }
    QCOMPARE(numberIn(own), 99);
    ChildProcess child([&plant](const ChildSide & /*parent*/) {
        LogCapture log;
        LiveRegion other(plant, attach);
        const ProcessDataWriteGuard guard(other.manager, milliseconds(0));
        CHILD_VERIFY(guard.isLocked());
        return 0;
    });
    QCOMPARE(child.waitForExit(), 0);
}

void tst_WriteGuardWaits::innerGuardNeedsNoBound()
{
    const ReadPlant plant(true);
    LiveRegion own(plant);
    ProcessDataWriteGuard outer(own.manager);
    {
        ProcessDataWriteGuard inner(own.manager, milliseconds(0));
        QVERIFY(inner.isLocked());
        QVERIFY(!inner.publish());
    }
    QVERIFY(outer.publish());
}

QTEST_GUILESS_MAIN(tst_WriteGuardWaits)

#include "tst_WriteGuardWaits.moc"
