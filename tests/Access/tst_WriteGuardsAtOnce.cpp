#include "Access/StandingWriters.h"
#include "support/SemaphoreCalls.h"
#include "support/SemaphoreSet.h"

using std::chrono::milliseconds;

/// Write guards that wait for nobody, beside those who keep the lock, have died inside, or have lost it.
class tst_WriteGuardsAtOnce : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void ownerOfTheLockDelaysNobodyFromOutside();
    void ownerOfTheLockIsNotWaitedForWithoutABound();
    void whoDiedInsideDelaysNobody_data() { addBuffers(); }
    void whoDiedInsideDelaysNobody();
    void removedSemaphoresAreJoinedAnewWithoutABound_data() { addBuffers(); }
    void removedSemaphoresAreJoinedAnewWithoutABound();
};

void tst_WriteGuardsAtOnce::ownerOfTheLockDelaysNobodyFromOutside()
{
    const ReadPlant plant(true);
    LiveRegion own(plant);
    const SemaphoreSet semaphores(plant.key + QStringLiteral("Semaphore"));
    StoppedProcess writer(keepsTheLock(plant, false));
    QVERIFY(writer.isStopped());
    QVERIFY(semaphores.isKept());

    ProcessDataWriteGuard guard(own.manager, milliseconds(0));
    QVERIFY(guard.isLocked());
    QVERIFY(!semaphores.isKept());
    QVERIFY(guard.publish());
    QCOMPARE(writer.goOn(), 0);
}

void tst_WriteGuardsAtOnce::ownerOfTheLockIsNotWaitedForWithoutABound()
{
    const ReadPlant plant(true);
    LiveRegion own(plant);
    const SemaphoreSet semaphores(plant.key + QStringLiteral("Semaphore"));
    StoppedProcess writer(keepsTheLock(plant, true));
    QVERIFY(writer.isStopped());
    QVERIFY(semaphores.isKept());

    const auto allowed = SemaphoreCalls::sumOfBounds();
    for (int i = 0; i < 3; ++i) {
        const ProcessDataWriteGuard guard(own.manager, milliseconds(0));
        QVERIFY(!guard.isLocked());
        QVERIFY(!semaphores.isWriteLocked());
        QVERIFY(semaphores.isKept());
    }
    QCOMPARE(SemaphoreCalls::sumOfBounds(), allowed);
    QCOMPARE(numberIn(own), 1);

    // Told that somebody waits, though nobody does any more, it gives the lock back.
    QCOMPARE(writer.goOn(), 0);
    QVERIFY(!semaphores.isKept());
    QCOMPARE(numberIn(own), 2);
    const ProcessDataWriteGuard guard(own.manager, milliseconds(0));
    QVERIFY(guard.isLocked());
}

void tst_WriteGuardsAtOnce::whoDiedInsideDelaysNobody()
{
    QFETCH(bool, hasDoubleBuffer);
    const ReadPlant plant(hasDoubleBuffer);
    LiveRegion own(plant);
    QVERIFY(publish(own, 1));
    StoppedProcess writer(staysInside(plant));
    QVERIFY(writer.isStopped());
    {
        const ProcessDataWriteGuard refused(own.manager, milliseconds(0));
        QVERIFY(!refused.isLocked());
    }
    QVERIFY(writer.die());

    const auto allowed = SemaphoreCalls::sumOfBounds();
    ProcessDataWriteGuard guard(own.manager, milliseconds(0));
    QVERIFY(guard.isLocked());
    QVERIFY(guard.publish());
    QCOMPARE(SemaphoreCalls::sumOfBounds(), allowed);
    // Half a set is nobody's, but for a single buffer.
    QCOMPARE(numberIn(own), hasDoubleBuffer ? 1 : 2);
}

void tst_WriteGuardsAtOnce::removedSemaphoresAreJoinedAnewWithoutABound()
{
    QFETCH(bool, hasDoubleBuffer);
    const ReadPlant plant(hasDoubleBuffer);
    LiveRegion own(plant);
    QVERIFY(publish(own, 1));
    const SemaphoreSet semaphores(plant.key + QStringLiteral("Semaphore"));
    QVERIFY(semaphores.remove());
    LiveRegion other(plant, attach);
    QCOMPARE(semaphores.users(), 1);

    LogCapture log;
    ProcessDataWriteGuard guard(own.manager, milliseconds(0));
    QVERIFY(guard.isLocked());
    QCOMPARE(semaphores.users(), 2);
    QVERIFY(semaphores.isWriteLocked());
    QVERIFY(guard.publish());
    QVERIFY(!semaphores.isWriteLocked());
    QVERIFY(log.take().isEmpty());
}

QTEST_GUILESS_MAIN(tst_WriteGuardsAtOnce)

#include "tst_WriteGuardsAtOnce.moc"
