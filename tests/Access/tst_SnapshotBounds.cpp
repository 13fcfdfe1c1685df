#include "Access/NumberRegion.h"
#include "Access/ProcessDataSnapshot.h"
#include "ProcessData/Linux/SlotAccess_p.h"
#include "support/LogCapture.h"

#include <QtTest>

/// Leaves that a description lets reach over the end of the buffer: a leaf without metadata is bound by where
/// it begins.
class tst_SnapshotBounds : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void leafOverTheEndIsInNoCopy();
};

void tst_SnapshotBounds::leafOverTheEndIsInNoCopy()
{
    ProcessDescription description(16, true);
    SlotDescription inside;
    inside.type = QStringLiteral("double");
    inside.sizeValue = 8;
    SlotDescription over = inside;
    over.offset = 12;
    description.leaves.insert(QStringLiteral("inside"), inside);
    description.leaves.insert(QStringLiteral("over"), over);
    LiveRegion region(description);
    const auto leaf = region.leaf(QStringLiteral("over"));
    QVERIFY(SlotAccess::isBound(*leaf));
    ProcessDataSnapshot first;
    ProcessDataSnapshot second;
    QVERIFY(first.take(region.manager));
    QVERIFY(second.take(region.manager));
    LogCapture log;

    QVERIFY(first.isDifferent(*leaf, second));

    QVERIFY(!first.isDifferent(*region.leaf(QStringLiteral("inside")), second));
    COMPARE_LOG(log);
}

QTEST_GUILESS_MAIN(tst_SnapshotBounds)
#include "tst_SnapshotBounds.moc"
