#include "InspectedRegion.h"
#include "support/ChildProcess.h"
#include "support/HeapWatch.h"
#include "support/ResourceLimit.h"

#include <limits>

namespace {

using Buffer = RegionInspection::Buffer;

constexpr int blockSize = 512;

/// As somebody left it, with a management block of this format or without.
bool makeRegion(const TwoNumbers &description, int size, bool hasBlock)
{
    if (!description.segment.make(QByteArray(size, 'x'))) {
        return false;
    }
    MappedRegion region(description.segment);
    if (hasBlock && region.attach()) {
        region.management()->format = PingPongBufferHandler::formatWord();
        region.management()->swapCount = 0;
    }
    return true;
}

/// Bytes of both leaves in both buffers.
QByteArray allBytes(const RegionInspection &region)
{
    QByteArray bytes;
    for (const auto &url : {QStringLiteral("a"), QStringLiteral("b")}) {
        for (const auto buffer : {Buffer::First, Buffer::Second}) {
            bytes += region.getValueBytes(url, buffer) + region.getErrorStateBytes(url, buffer);
        }
    }
    return bytes;
}

/// In bytes, of this process.
rlim_t usedAddresses()
{
    QFile sizes(QStringLiteral("/proc/self/statm"));
    if (!sizes.open(QIODevice::ReadOnly)) {
        qFatal("no sizes of this process");
    }
    const qulonglong pages = sizes.readAll().split(' ').first().toULongLong();
    return static_cast<rlim_t>(pages) * static_cast<rlim_t>(sysconf(_SC_PAGESIZE));
}

} // namespace

/// Where an inspection takes bytes from, and where it takes none.
class tst_RegionBytes : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void regionOfAnotherKindOrSizeShowsNoBytes_data();
    void regionOfAnotherKindOrSizeShowsNoBytes();
    void regionOfTheDescriptionShowsItsBytes();
    void regionThatGrowsShowsNoBytesAnyMore();
    void missingRegionHasNoReadBuffer();
    void bufferOfMoreThanARegionCanHaveIsUnknown();
    void bufferSizeIsThatOfOneMoment();
    void descriptionWithoutLeavesShowsNothing();
    void valueThatNoMemoryCanHoldIsNotShown();
    void valueForWhichNoMemoryIsLeftIsNotShown();
};

void tst_RegionBytes::regionOfAnotherKindOrSizeShowsNoBytes_data()
{
    QTest::addColumn<bool>("isDouble");
    QTest::addColumn<int>("described");
    QTest::addColumn<int>("size");
    QTest::addColumn<bool>("hasBlock");
    QTest::newRow("double, block of another format") << true << 16 << blockSize + 32 << false;
    QTest::newRow("double, a buffer alone") << true << 16 << 16 << false;
    QTest::newRow("double, smaller buffers") << true << 16 << blockSize + 16 << true;
    QTest::newRow("double, buffers of no whole size") << true << 16 << blockSize + 31 << true;
    QTest::newRow("double, larger buffers") << true << 16 << blockSize + 64 << true;
    QTest::newRow("double, block alone") << true << 16 << blockSize << true;
    QTest::newRow("single, two buffers of that size")
        << false << blockSize + 32 << blockSize + 32 << true;
    QTest::newRow("single, smaller buffer") << false << 16 << 15 << false;
    QTest::newRow("single, larger buffer") << false << 16 << 17 << false;
}

void tst_RegionBytes::regionOfAnotherKindOrSizeShowsNoBytes()
{
    QFETCH(bool, isDouble);
    QFETCH(int, described);
    QFETCH(int, size);
    QFETCH(bool, hasBlock);
    TwoNumbers description(isDouble);
    description.size = described;
    QVERIFY(makeRegion(description, size, hasBlock));

    const RegionInspection region = description.inspectDescribed();

    QVERIFY(region.isReadable());
    QCOMPARE(allBytes(region), QByteArray());
    QVERIFY(region.hasLayoutOfDescription() != true);
}

void tst_RegionBytes::regionOfTheDescriptionShowsItsBytes()
{
    const TwoNumbers twice(true);
    QVERIFY(makeRegion(twice, blockSize + 32, true));
    QCOMPARE(allBytes(twice.inspectDescribed()), QByteArray(32, 'x'));

    const TwoNumbers once(false);
    QVERIFY(makeRegion(once, 16, false));
    QCOMPARE(allBytes(once.inspectDescribed()), QByteArray(16, 'x'));
}

void tst_RegionBytes::regionThatGrowsShowsNoBytesAnyMore()
{
    const TwoNumbers description;
    QVERIFY(makeRegion(description, blockSize + 32, true));
    const RegionInspection region = description.inspectDescribed();
    QCOMPARE(allBytes(region).size(), 32);

    QVERIFY(QFile::resize(description.segment.path(), blockSize + 48));

    QCOMPARE(allBytes(region), QByteArray());
}

void tst_RegionBytes::missingRegionHasNoReadBuffer()
{
    const TwoNumbers description(false);

    QVERIFY(!description.inspectDescribed().getReadBuffer());
}

void tst_RegionBytes::bufferOfMoreThanARegionCanHaveIsUnknown()
{
    const TwoNumbers twice(true);
    QVERIFY(makeRegion(twice, blockSize + 32, true));
    const TwoNumbers once(false);
    QVERIFY(makeRegion(once, 16, false));
    const RegionInspection twoBuffers = twice.inspect();
    const RegionInspection oneBuffer = once.inspectDescribed();
    QVERIFY(twoBuffers.getBufferSize() == 16U);
    QVERIFY(oneBuffer.getBufferSize() == 16U);

    constexpr qint64 tooMuch = 3 * (qint64{1} << 32);
    QVERIFY(QFile::resize(twice.segment.path(), tooMuch));
    QVERIFY(QFile::resize(once.segment.path(), tooMuch));

    QVERIFY(!twoBuffers.getBufferSize());
    QVERIFY(!oneBuffer.getBufferSize());
    QCOMPARE(twoBuffers.getSize(), tooMuch);
}

void tst_RegionBytes::bufferSizeIsThatOfOneMoment()
{
    const TwoNumbers description;
    QVERIFY(makeRegion(description, blockSize + 32, true));
    const RegionInspection region = description.inspectDescribed();
    ChildProcess child([&description](const ChildSide &side) {
        const QByteArray path = description.segment.path().toLocal8Bit();
        side.say();
        while (!side.hasWord()) {
            CHILD_VERIFY(truncate(path.constData(), 100) == 0);
            CHILD_VERIFY(truncate(path.constData(), blockSize + 32) == 0);
        }
        return 0;
    });
    QVERIFY(child.waitUntilReady());

    QSet<quint32> sizes;
    for (int i = 0; i < 100000; ++i) {
        sizes.insert(region.getBufferSize().value_or(16));
    }

    child.tell();
    QCOMPARE(child.waitForExit(), 0);
    QCOMPARE(sizes, QSet<quint32>{16});
}

void tst_RegionBytes::descriptionWithoutLeavesShowsNothing()
{
    TwoNumbers description;
    description.leaves.clear();
    QVERIFY(makeRegion(description, blockSize + 32, true));

    const RegionInspection region = description.inspectDescribed();

    QCOMPARE(allBytes(region), QByteArray());
    QCOMPARE(region.getValueBytes(QString(), Buffer::First), QByteArray());
    QVERIFY(region.hasLayoutOfDescription() == false);
    QCOMPARE(region.findFirstDifference(), QString());
}

void tst_RegionBytes::valueThatNoMemoryCanHoldIsNotShown()
{
    constexpr int most = std::numeric_limits<int>::max();
    TwoNumbers description(false);
    description.size = most;
    SlotDescription huge = int32Slot(0);
    huge.sizeValue = most;
    description.leaves.insert(QStringLiteral("a"), huge);
    QVERIFY(description.segment.makeSparse(most));

    const RegionInspection region = description.inspectDescribed();

    QVERIFY(region.getBufferSize() == quint32{most});
    QCOMPARE(region.getValueBytes(QStringLiteral("a"), Buffer::First), QByteArray());
    QCOMPARE(region.getValueBytes(QStringLiteral("b"), Buffer::First), QByteArray(4, '\0'));
}

/// As one that the region has room for and this process has not.
void tst_RegionBytes::valueForWhichNoMemoryIsLeftIsNotShown()
{
    if (!HeapWatch::canWatch()) {
        QSKIP("the sanitizer has a heap of its own, and ends a program for which it has no room");
    }
    constexpr int size = 128 * 1024 * 1024;
    TwoNumbers description(false);
    description.size = size;
    SlotDescription large = int32Slot(0);
    large.sizeValue = size;
    description.leaves.insert(QStringLiteral("a"), large);
    QVERIFY(description.segment.makeSparse(size));
    const RegionInspection region = description.inspectDescribed();

    {
        const ResourceLimit little(RLIMIT_AS, usedAddresses() + size / 4);
        QCOMPARE(region.getValueBytes(QStringLiteral("a"), Buffer::First), QByteArray());
        QCOMPARE(region.getValueBytes(QStringLiteral("b"), Buffer::First), QByteArray(4, '\0'));
    }

    QCOMPARE(region.getValueBytes(QStringLiteral("a"), Buffer::First).size(), size);
}

QTEST_GUILESS_MAIN(tst_RegionBytes)

#include "tst_RegionBytes.moc"
