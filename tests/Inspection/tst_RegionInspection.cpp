#include "InspectedRegion.h"
#include "ProcessDataManagement/LayoutFingerprint.h"

#include <QTemporaryDir>

#include <cstring>

#include <sys/stat.h>

namespace {

using Buffer = RegionInspection::Buffer;
using Name = RegionInspection::Name;

template <class Number>
QByteArray bytesOf(Number number)
{
    QByteArray bytes(sizeof number, Qt::Uninitialized);
    std::memcpy(bytes.data(), &number, sizeof number);
    return bytes;
}

bool writeFile(const QString &path, const QByteArray &text)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(text) == text.size();
}

} // namespace

/// What an inspection says of the memory itself.
class tst_RegionInspection : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void doubleBufferTellsItsFacts();
    void singleBufferHasNoBlock();
    void singleBufferIsKnownByItsSemaphores();
    void blockOfAnotherVersionIsDoubleAndUnknown();
    void blockOfAnotherVersionIsNoSingleBuffer();
    void missingRegionIsNotThere();
    void descriptionWithoutKeyIsNoRegion();
    void whatIsNoRegionIsNotReadable_data();
    void whatIsNoRegionIsNotReadable();
    void strangersFileHasASizeAlone();
    void blockOfZerosIsUnknown();
    void lastSwapIsTheOneOfTheBlock();
    void nameTellsWhatBecameOfIt();
    void assignedOneLooksAtTheOthersMemory();
    void layoutIsComparedWithTheDescription();
    void layoutOfAnotherSizeIsAnother();
    void withoutADescriptionThereIsNoDifference();
    void bytesOfBothBuffersAreShown();
    void bytesOutsideTheBufferAreNotShown();
    void shortenedMemoryIsSurvived();
    void fileAndDirectoryAreDescriptions();
    void nothingChanges();
};

void tst_RegionInspection::doubleBufferTellsItsFacts()
{
    const TwoNumbers description;
    QuietManager creator(description, create);
    QVERIFY(creator.publish("a", 5));

    const RegionInspection region = description.inspect();

    QCOMPARE(region.getKey(), description.key);
    QVERIFY(region.exists());
    QVERIFY(region.isReadable());
    QCOMPARE(region.getError(), 0);
    QCOMPARE(region.getErrorString(), QString());
    QCOMPARE(region.getSize(), qint64{512 + 32});
    QVERIFY(region.isDoubleBuffer() == true);
    QVERIFY(region.getBufferSize() == 16U);
    QVERIFY(region.getSwapCount() == quint64{2});
    QVERIFY(region.getReadBuffer() == Buffer::First);
    QVERIFY(region.getFingerprint() == LayoutFingerprint(description.parse()).getValue());
    QVERIFY(!region.hasLayoutOfDescription());
    QVERIFY(creator.publish("a", 6));
    QVERIFY(region.getSwapCount() == quint64{3});
    QVERIFY(region.getReadBuffer() == Buffer::Second);
}

void tst_RegionInspection::singleBufferHasNoBlock()
{
    const TwoNumbers description(false);
    QuietManager creator(description, create);
    QVERIFY(creator.write("a", 5));

    const RegionInspection region = description.inspectDescribed();

    QVERIFY(region.isReadable());
    QCOMPARE(region.getSize(), qint64{16});
    QVERIFY(region.isDoubleBuffer() == false);
    QVERIFY(region.getBufferSize() == 16U);
    QVERIFY(!region.getSwapCount());
    QVERIFY(!region.getLastSwap());
    QVERIFY(!region.getFingerprint());
    QVERIFY(!region.getCreator().pid);
    QVERIFY(!region.getCreator().isAlive);
    QVERIFY(!region.hasLayoutOfDescription());
    QCOMPARE(region.findFirstDifference(), QString());
    QVERIFY(region.getReadBuffer() == Buffer::First);
    QCOMPARE(region.getValueBytes(QStringLiteral("a"), Buffer::First), bytesOf(qint32{5}));
    QCOMPARE(region.getValueBytes(QStringLiteral("a"), Buffer::Second), QByteArray());
}

void tst_RegionInspection::singleBufferIsKnownByItsSemaphores()
{
    const TwoNumbers description(false);
    const QuietManager creator(description, create);

    QVERIFY(description.inspect().isDoubleBuffer() == false);
    QVERIFY(description.semaphores.remove());
    QVERIFY(!description.inspect().isDoubleBuffer());
    QVERIFY(!description.inspect().getBufferSize());
}

void tst_RegionInspection::blockOfAnotherVersionIsDoubleAndUnknown()
{
    const TwoNumbers description;
    const QuietManager creator(description, create);
    MappedRegion block(description.segment);
    QVERIFY(block.attach());
    block.management()->format += 1;

    for (const auto &region : {description.inspect(), description.inspectDescribed()}) {
        QVERIFY(region.isDoubleBuffer() == true);
        QVERIFY(!region.getBufferSize());
        QVERIFY(!region.getSwapCount());
        QVERIFY(!region.getReadBuffer());
        QVERIFY(!region.getCreator().pid);
        QVERIFY(!region.hasLayoutOfDescription());
        QCOMPARE(region.getValueBytes(QStringLiteral("a"), Buffer::First), QByteArray());
    }
}

/// Though it has the size of one.
void tst_RegionInspection::blockOfAnotherVersionIsNoSingleBuffer()
{
    TwoNumbers description(false);
    description.size = 544;
    TwoNumbers other;
    other.key = description.key;
    const QuietManager creator(other, create);
    MappedRegion block(description.segment);
    QVERIFY(block.attach());
    block.management()->format += 1;

    const RegionInspection region = description.inspectDescribed();

    QCOMPARE(region.getSize(), qint64{544});
    QVERIFY(region.isDoubleBuffer() == true);
    QVERIFY(region.hasLayoutOfDescription() == false);
    QCOMPARE(region.getValueBytes(QStringLiteral("a"), Buffer::First), QByteArray());
}

void tst_RegionInspection::missingRegionIsNotThere()
{
    const TwoNumbers description;

    const RegionInspection region = description.inspectDescribed();

    QVERIFY(!region.exists());
    QVERIFY(!region.isReadable());
    QCOMPARE(region.getError(), ENOENT);
    QCOMPARE(region.getErrorString(), QStringLiteral("No such file or directory"));
    QCOMPARE(region.getSize(), qint64{0});
    QVERIFY(region.isDoubleBuffer() == true);
    QVERIFY(!region.getBufferSize());
    QVERIFY(!region.getSwapCount());
    QVERIFY(!region.getReadBuffer());
    QVERIFY(!region.hasLayoutOfDescription());
    QVERIFY(region.getName() == Name::Removed);
    QCOMPARE(region.getValueBytes(QStringLiteral("a"), Buffer::First), QByteArray());
}

void tst_RegionInspection::descriptionWithoutKeyIsNoRegion()
{
    TwoNumbers description;
    description.key.clear();

    QVERIFY(!description.inspectDescribed().exists());
    QVERIFY(!RegionInspection(ProcessDescription::Root()).exists());
    QVERIFY(!RegionInspection(QString()).exists());
    QCOMPARE(RegionInspection(QString()).getKey(), QString());
}

void tst_RegionInspection::whatIsNoRegionIsNotReadable_data()
{
    QTest::addColumn<mode_t>("type");
    QTest::newRow("empty file") << mode_t{S_IFREG};
    QTest::newRow("pipe") << mode_t{S_IFIFO};
}

void tst_RegionInspection::whatIsNoRegionIsNotReadable()
{
    QFETCH(mode_t, type);
    const TwoNumbers description;
    QCOMPARE(mknod(qPrintable(description.segment.path()), type | 0600, 0), 0);

    const RegionInspection region = description.inspect();

    QVERIFY(region.exists());
    QVERIFY(!region.isReadable());
    QCOMPARE(region.getError(), EINVAL);
    QCOMPARE(region.getErrorString(), QStringLiteral("Invalid argument"));
    QCOMPARE(region.getSize(), qint64{0});
}

void tst_RegionInspection::strangersFileHasASizeAlone()
{
    const TwoNumbers description;
    QVERIFY(description.segment.make(QByteArray(1000, 'x')));

    const RegionInspection region = description.inspect();

    QVERIFY(region.isReadable());
    QCOMPARE(region.getSize(), qint64{1000});
    QVERIFY(!region.isDoubleBuffer());
    QVERIFY(!region.getSwapCount());
    QVERIFY(!region.getCreator().pid);
}

void tst_RegionInspection::blockOfZerosIsUnknown()
{
    const TwoNumbers description;
    const QuietManager creator(description, create);
    MappedRegion block(description.segment);
    QVERIFY(block.attach());
    block.management()->fingerprint = 0;
    block.management()->creatorPid = 0;
    block.management()->lastSwap = 0;

    const RegionInspection region = description.inspectDescribed();

    QVERIFY(!region.getFingerprint());
    QVERIFY(!region.getCreator().pid);
    QVERIFY(!region.getCreator().isAlive);
    QVERIFY(!region.getLastSwap());
    QVERIFY(!region.hasLayoutOfDescription());
    QCOMPARE(region.findFirstDifference(), QString());
}

void tst_RegionInspection::lastSwapIsTheOneOfTheBlock()
{
    const TwoNumbers description;
    const QuietManager creator(description, create);
    MappedRegion block(description.segment);
    QVERIFY(block.attach());
    block.management()->lastSwap = 1767604364031000000;

    QVERIFY(description.inspect().getLastSwap()
            == QDateTime(QDate(2026, 1, 5), QTime(9, 12, 44, 31), Qt::UTC));
}

void tst_RegionInspection::nameTellsWhatBecameOfIt()
{
    const TwoNumbers description;
    auto creator = std::make_unique<QuietManager>(description, create);
    const RegionInspection former = description.inspect();
    QVERIFY(former.getName() == Name::Current);

    auto later = std::make_unique<QuietManager>(description, create);
    QVERIFY(former.getName() == Name::Replaced);
    QVERIFY(description.inspect().getName() == Name::Current);

    later.reset();
    creator.reset();
    QVERIFY(former.getName() == Name::Removed);
}

void tst_RegionInspection::assignedOneLooksAtTheOthersMemory()
{
    const TwoNumbers first;
    const TwoNumbers second(false);
    auto firstCreator = std::make_unique<QuietManager>(first, create);
    const QuietManager secondCreator(second, create);
    RegionInspection region = first.inspect();
    const RegionInspection copied(region);

    region = second.inspect();

    QCOMPARE(region.getKey(), second.key);
    QCOMPARE(copied.getKey(), first.key);
    firstCreator.reset();
    QVERIFY(region.getName() == Name::Current);
    QVERIFY(copied.getName() == Name::Removed);
    region = copied;
    QCOMPARE(region.getKey(), first.key);
    QVERIFY(region.getName() == Name::Removed);
}

void tst_RegionInspection::layoutIsComparedWithTheDescription()
{
    const TwoNumbers description;
    TwoNumbers other;
    other.key = description.key;
    other.leaves[QStringLiteral("b")].type = QStringLiteral("uint32");
    const QuietManager creator(description, create);

    QVERIFY(description.inspectDescribed().hasLayoutOfDescription() == true);
    QCOMPARE(description.inspectDescribed().findFirstDifference(), QString());
    QVERIFY(other.inspectDescribed().hasLayoutOfDescription() == false);
    QCOMPARE(other.inspectDescribed().findFirstDifference(), QStringLiteral("b"));
}

void tst_RegionInspection::layoutOfAnotherSizeIsAnother()
{
    const TwoNumbers description;
    TwoNumbers other;
    other.key = description.key;
    other.size = 24;
    const QuietManager creator(description, create);
    QVERIFY(other.inspectDescribed().hasLayoutOfDescription() == false);
    other.size = 16;
    other.doubleBuffer = false;
    QVERIFY(other.inspectDescribed().hasLayoutOfDescription() == false);
}

void tst_RegionInspection::withoutADescriptionThereIsNoDifference()
{
    const TwoNumbers description;
    const QuietManager creator(description, create);
    const RegionInspection region = description.inspect();
    QVERIFY(region.getFingerprint());

    QVERIFY(!region.hasLayoutOfDescription());
    QCOMPARE(region.findFirstDifference(), QString());
}

void tst_RegionInspection::bytesOfBothBuffersAreShown()
{
    const TwoNumbers description;
    QuietManager creator(description, create);
    QVERIFY(creator.publish("b", 5));
    QVERIFY(creator.write("b", 6));

    const RegionInspection region = description.inspectDescribed();

    const QString url = QStringLiteral("b");
    QVERIFY(region.getReadBuffer() == Buffer::First);
    QCOMPARE(region.getValueBytes(url, Buffer::First), bytesOf(qint32{5}));
    QCOMPARE(region.getValueBytes(url, Buffer::Second), bytesOf(qint32{6}));
    QCOMPARE(region.getErrorStateBytes(url, Buffer::First), bytesOf(quint32{0}));
    QCOMPARE(region.getErrorStateBytes(QStringLiteral("a"), Buffer::First), bytesOf(quint32{3}));
    QCOMPARE(region.getValueBytes(QStringLiteral("c"), Buffer::First), QByteArray());
    QCOMPARE(description.inspect().getValueBytes(url, Buffer::First), QByteArray());
}

void tst_RegionInspection::bytesOutsideTheBufferAreNotShown()
{
    TwoNumbers description;
    description.leaves[QStringLiteral("a")].offset = 13;
    description.leaves[QStringLiteral("b")].relativeOffsetMetadata = 0xFFFFFFFF;
    SlotDescription huge = int32Slot(0);
    huge.sizeValue = 0x7FFFFFFF;
    description.leaves.insert(QStringLiteral("c"), huge);
    const QuietManager creator(description, create);

    const RegionInspection region = description.inspectDescribed();

    QCOMPARE(region.getValueBytes(QStringLiteral("a"), Buffer::First), QByteArray());
    QCOMPARE(region.getErrorStateBytes(QStringLiteral("b"), Buffer::First), QByteArray());
    QCOMPARE(region.getValueBytes(QStringLiteral("c"), Buffer::First), QByteArray());
}

void tst_RegionInspection::shortenedMemoryIsSurvived()
{
    const TwoNumbers description;
    QVERIFY(description.segment.make(QByteArray(544, '\0')));
    {
        MappedRegion block(description.segment);
        QVERIFY(block.attach());
        block.management()->format = PingPongBufferHandler::formatWord();
    }
    const RegionInspection region = description.inspectDescribed();
    QVERIFY(region.getSwapCount() == quint64{0});

    QVERIFY(QFile::resize(description.segment.path(), 520));
    QCOMPARE(region.getValueBytes(QStringLiteral("b"), Buffer::First), QByteArray());
    QVERIFY(region.getSwapCount() == quint64{0});

    QVERIFY(QFile::resize(description.segment.path(), 0));
    QVERIFY(!region.getSwapCount());
    QVERIFY(!region.getFingerprint());
    QVERIFY(region.hasLayoutOfDescription() == false);
    QCOMPARE(region.getSize(), qint64{0});
}

void tst_RegionInspection::fileAndDirectoryAreDescriptions()
{
    const TwoNumbers description;
    const QuietManager creator(description, create);
    const QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("plant.process.json"));
    QVERIFY(writeFile(path, description.toByteArray()));
    const LogCapture log;

    const RegionInspection file = RegionInspection::fromFile(path);
    const RegionInspection directory = RegionInspection::fromDirectory(folder.path());

    QCOMPARE(file.getKey(), description.key);
    QVERIFY(file.hasLayoutOfDescription() == true);
    QCOMPARE(directory.getKey(), description.key);
    // There every URL begins with the name of the file.
    QVERIFY(directory.hasLayoutOfDescription() == false);
    QCOMPARE(directory.getValueBytes(QStringLiteral("plant/a"), Buffer::Second).size(), 4);
    QVERIFY(
        !RegionInspection::fromFile(folder.filePath(QStringLiteral("none.process.json"))).exists());
}

void tst_RegionInspection::nothingChanges()
{
    const TwoNumbers description;
    QuietManager creator(description, create);
    QVERIFY(creator.publish("a", 5));
    const QByteArray memory = description.segment.content();
    const std::vector<unsigned short> values = description.semaphores.values();
    LogCapture log;

    const RegionInspection region = description.inspectDescribed();
    region.getBufferSize();
    region.getCreator();
    region.getLock();
    region.getUsers();
    region.getName();
    region.hasLayoutOfDescription();
    region.getValueBytes(QStringLiteral("a"), Buffer::Second);

    QCOMPARE(description.segment.content(), memory);
    QCOMPARE(description.semaphores.values(), values);
    QCOMPARE(description.segment.mappings().size(), 1);
    COMPARE_LOG(log);
}

QTEST_GUILESS_MAIN(tst_RegionInspection)

#include "tst_RegionInspection.moc"
