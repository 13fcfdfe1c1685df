#include "Companion/Exchange/MappedName_p.h"
#include "support/MappedRegion.h"
#include "support/WithoutMainThread.h"

namespace {

/// What is known of a memory with a name and of the same memory without it.
ChildProcess::Body looking(const SegmentFile &segment)
{
    return [&segment](const ChildSide & /*side*/) {
        MappedRegion region(segment);
        CHILD_VERIFY(region.create());
        const void *address = region.management();
        const MappedName name(address);
        CHILD_VERIFY(hasMappedName(address));
        CHILD_VERIFY(name.isCurrent());
        CHILD_VERIFY(name.memory().second == segment.inode());
        CHILD_VERIFY(segment.remove());
        CHILD_VERIFY(!hasMappedName(address));
        CHILD_VERIFY(!name.isCurrent());
        return 0;
    };
}

} // namespace

/// Whether a memory that is mapped still has its name.
class tst_MappedName : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void nameIsSeenUntilItIsRemoved();
    void nameIsSeenWithoutMainThread();
    void memoryWithoutAFileHasNone();
};

void tst_MappedName::nameIsSeenUntilItIsRemoved()
{
    const SegmentFile segment;
    ChildProcess child(looking(segment));

    QCOMPARE(child.waitForExit(), 0);
}

/// Whose own table of mappings is empty then.
void tst_MappedName::nameIsSeenWithoutMainThread()
{
    const SegmentFile segment;
    ChildProcess child(withoutMainThread(looking(segment)));

    QCOMPARE(child.waitForExit(), 0);
}

void tst_MappedName::memoryWithoutAFileHasNone()
{
    const int number = 0;

    QVERIFY(!hasMappedName(&number));
    QVERIFY(!hasMappedName(nullptr));
}

QTEST_GUILESS_MAIN(tst_MappedName)
#include "tst_MappedName.moc"
