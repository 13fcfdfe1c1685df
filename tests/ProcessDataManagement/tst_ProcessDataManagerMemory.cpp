#include "ProcessDataManagement/ProcessDataManager.h"
#include "support/HeapWatch.h"

#include <QtTest>

/// What managers take from the heap.
class tst_ProcessDataManagerMemory : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void managersThatHaveGoneHoldNothing();
};

void tst_ProcessDataManagerMemory::managersThatHaveGoneHoldNothing()
{
    if (!HeapWatch::canWatch()) {
        QSKIP("needs a heap that can be watched");
    }
    constexpr int managers = 1000;
    const HeapWatch heap;

    for (int i = 0; i < managers; ++i) {
        const ProcessDataManager manager;
    }

    QVERIFY(heap.takenBytes() > managers);
    // The room of a few of them.
    QVERIFY2(heap.peakBytes() < 4096, qPrintable(QString::number(heap.peakBytes())));
}

QTEST_GUILESS_MAIN(tst_ProcessDataManagerMemory)

#include "tst_ProcessDataManagerMemory.moc"
