#include "Access/NumberRegion.h"
#include "Access/ProcessDataGuards.h"
#include "Access/ProcessDataSnapshot.h"
#include "Access/ProcessDataWatcher.h"
#include "Companion/Exchange/SharedBytes_p.h"
#include "support/LogCapture.h"

#include <QtTest>

#include <limits>
#include <thread>

using namespace ProcessDataDefinitions;

namespace {

SlotDescription slotOf(const char *type, quint32 offset, quint32 size, quint32 mask = 0)
{
    SlotDescription slot;
    slot.type = QString::fromLatin1(type);
    slot.offset = offset;
    slot.sizeValue = size;
    slot.bitmask = mask;
    return slot;
}

/// A number, two bits of one byte, a text and a float, none of them with metadata.
struct MixedDescription : ProcessDescription
{
    MixedDescription() : ProcessDescription(40, true)
    {
        leaves.insert(QStringLiteral("big"), slotOf("int64", 0, 8));
        leaves.insert(QStringLiteral("first"), slotOf("bit", 8, 1, 1));
        leaves.insert(QStringLiteral("second"), slotOf("bit", 8, 1, 2));
        leaves.insert(QStringLiteral("text"), slotOf("string", 10, 20));
        leaves.insert(QStringLiteral("level"), slotOf("double", 32, 8));
    }
};

bool publish(LiveRegion &region, const QString &url, const QVariant &content)
{
    ProcessDataWriteGuard guard(region.manager);
    return region.leaf(url)->setValueNoLock(ProcessValue(content, PROCESS_VALUE_ERROR_TYPE_VALID))
           && guard.publish();
}

QStringList differentUrls(const LiveRegion &region, const ProcessDescription &description,
                          const ProcessDataSnapshot &left, const ProcessDataSnapshot &right)
{
    QStringList urls;
    for (const auto &url : description.leaves.keys()) {
        if (left.isDifferent(*region.leaf(url), right)) {
            urls.append(url);
        }
    }
    return urls;
}

QVariant contentOf(const ProcessDataSnapshot &snapshot, const ProcessDataValue &leaf)
{
    ProcessValue value(PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
    return snapshot.getValue(leaf, value) ? value.getValue() : QVariant();
}

bool isSameValue(const ProcessValue &left, const ProcessValue &right)
{
    const QVariant leftValue = left.getValue();
    const QVariant rightValue = right.getValue();
    const bool isNumber = leftValue.type() == QVariant::Double
                          || leftValue.userType() == QMetaType::Float;
    return left.getErrorType() == right.getErrorType()
           && leftValue.userType() == rightValue.userType()
           && (isNumber ? isSameNumber(leftValue.toDouble(), rightValue.toDouble())
                        : leftValue == rightValue);
}

} // namespace

class tst_ProcessDataSnapshot : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void beginsEmpty();
    void decodesAsTheLeavesDo_data();
    void decodesAsTheLeavesDo();
    void wideIntegersAreExact();
    void textsAreDecoded();
    void keepsItsSet();
    void takesTheSetOfAReadLock();
    void generationIsThatOfTheSet();
    void differencesAreThoseOfTheLeaves();
    void equalNotANumbersAreNoDifference();
    void whatLiesBehindATextIsNoDifference();
    void stateAloneIsADifference();
    void withoutMemoryNothingIsTaken();
    void bytesOfEachMemoryAreAllItsOwn();
    void leafOfAnotherMemoryIsRefused();
    void leafThatIsNotValidIsRefused();
    void setsAreWholeBesideAWriter();
};

void tst_ProcessDataSnapshot::beginsEmpty()
{
    const ProcessDataSnapshot snapshot;

    QVERIFY(snapshot.isEmpty());
    QCOMPARE(snapshot.getSize(), 0U);
    QCOMPARE(snapshot.getGeneration(), quint64{0});
}

void tst_ProcessDataSnapshot::decodesAsTheLeavesDo_data()
{
    QTest::addColumn<bool>("hasDoubleBuffer");
    QTest::newRow("double buffer") << true;
    QTest::newRow("single buffer") << false;
}

void tst_ProcessDataSnapshot::decodesAsTheLeavesDo()
{
    QFETCH(bool, hasDoubleBuffer);
    const NumberRegion numbers(hasDoubleBuffer);
    LiveRegion region(numbers.description);
    QRandomGenerator random(5);
    ProcessDataSnapshot snapshot;

    for (int round = 0; round < 20; ++round) {
        region.publishBytes(random);
        QVERIFY(snapshot.take(region.manager));
        QCOMPARE(snapshot.getSize(), region.manager.getSizeBuffer());
        for (const auto &url : numbers.urls()) {
            for (const bool keepValueOnError : {false, true}) {
                ProcessValue expected(PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
                ProcessValue decoded(PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
                region.leaf(url)->getValue(expected, keepValueOnError);
                QVERIFY(snapshot.getValue(*region.leaf(url), decoded, keepValueOnError));
                QVERIFY2(isSameValue(decoded, expected), qPrintable(url));
            }
        }
    }
}

void tst_ProcessDataSnapshot::wideIntegersAreExact()
{
    const MixedDescription description;
    LiveRegion region(description);
    const qlonglong wide = (1LL << 53) + 1; // no double holds it
    QVERIFY(publish(region, QStringLiteral("big"), QVariant(wide)));
    ProcessDataSnapshot snapshot;
    QVERIFY(snapshot.take(region.manager));

    QCOMPARE(contentOf(snapshot, *region.leaf(QStringLiteral("big"))), QVariant(wide));
}

void tst_ProcessDataSnapshot::textsAreDecoded()
{
    const MixedDescription description;
    LiveRegion region(description);
    const QVariant text = QStringLiteral("\u00b5m/s");
    QVERIFY(publish(region, QStringLiteral("text"), text));
    ProcessDataSnapshot snapshot;
    QVERIFY(snapshot.take(region.manager));

    QCOMPARE(contentOf(snapshot, *region.leaf(QStringLiteral("text"))), text);
}

void tst_ProcessDataSnapshot::keepsItsSet()
{
    const MixedDescription description;
    LiveRegion region(description);
    const auto leaf = region.leaf(QStringLiteral("level"));
    QVERIFY(publish(region, QStringLiteral("level"), 1.5));
    ProcessDataSnapshot snapshot;
    QVERIFY(snapshot.take(region.manager));
    const ProcessDataSnapshot copy = snapshot;

    QVERIFY(publish(region, QStringLiteral("level"), 2.5));

    QCOMPARE(contentOf(snapshot, *leaf), QVariant(1.5));
    QVERIFY(snapshot.take(region.manager));
    QCOMPARE(contentOf(snapshot, *leaf), QVariant(2.5));
    QCOMPARE(contentOf(copy, *leaf), QVariant(1.5));
}

void tst_ProcessDataSnapshot::takesTheSetOfAReadLock()
{
    const MixedDescription description;
    LiveRegion region(description);
    LiveRegion writer(description, ProcessDataManager::InitTypeSharedMemoryAttach);
    const auto leaf = region.leaf(QStringLiteral("level"));
    QVERIFY(publish(region, QStringLiteral("level"), 1.5));
    const quint64 generation = ProcessDataWatcher(region.manager).getGeneration();
    ProcessDataSnapshot snapshot;

    ProcessDataReadGuard guard(region.manager);
    QVERIFY(publish(writer, QStringLiteral("level"), 2.5));
    QVERIFY(snapshot.take(region.manager));

    QVERIFY(guard.unlock()); // no writer has begun on what was read
    QCOMPARE(contentOf(snapshot, *leaf), QVariant(1.5));
    QCOMPARE(snapshot.getGeneration(), generation);
}

void tst_ProcessDataSnapshot::generationIsThatOfTheSet()
{
    const MixedDescription description;
    LiveRegion region(description);
    const ProcessDataWatcher watcher(region.manager);
    ProcessDataSnapshot snapshot;

    for (int i = 0; i < 3; ++i) {
        QVERIFY(publish(region, QStringLiteral("big"), i));
        QVERIFY(snapshot.take(region.manager));
        QCOMPARE(snapshot.getGeneration(), watcher.getGeneration());
    }
}

void tst_ProcessDataSnapshot::differencesAreThoseOfTheLeaves()
{
    const MixedDescription description;
    LiveRegion region(description);
    ProcessDataSnapshot former;
    ProcessDataSnapshot later;
    QVERIFY(former.take(region.manager));

    for (const auto &[url, content] :
         {std::make_pair(QStringLiteral("big"), QVariant(7)),
          std::make_pair(QStringLiteral("second"), QVariant(true)),
          std::make_pair(QStringLiteral("text"), QVariant(QStringLiteral("m"))),
          std::make_pair(QStringLiteral("level"), QVariant(0.5))}) {
        QVERIFY(publish(region, url, content));
        QVERIFY(later.take(region.manager));
        QCOMPARE(differentUrls(region, description, later, former), QStringList{url});
        const QVector<ProcessDataValueSharedPointer> leaves{
            region.leaf(QStringLiteral("first")), region.leaf(url), {}};
        QCOMPARE(later.getDifferent(leaves, former),
                 QVector<ProcessDataValueSharedPointer>{region.leaf(url)});
        former = later;
    }
    QCOMPARE(differentUrls(region, description, later, ProcessDataSnapshot()),
             QStringList(description.leaves.keys()));
}

void tst_ProcessDataSnapshot::equalNotANumbersAreNoDifference()
{
    const MixedDescription description;
    LiveRegion region(description);
    const auto leaf = region.leaf(QStringLiteral("level"));
    QVERIFY(publish(region, QStringLiteral("level"), std::numeric_limits<double>::quiet_NaN()));
    ProcessDataSnapshot former;
    ProcessDataSnapshot later;
    QVERIFY(former.take(region.manager));
    QVERIFY(publish(region, QStringLiteral("big"), 1));
    QVERIFY(later.take(region.manager));
    QVERIFY(!later.isDifferent(*leaf, former));

    QVERIFY(publish(region, QStringLiteral("level"), 0.0));
    QVERIFY(former.take(region.manager));
    QVERIFY(publish(region, QStringLiteral("level"), -0.0));
    QVERIFY(later.take(region.manager));
    QVERIFY(later.isDifferent(*leaf, former));
}

void tst_ProcessDataSnapshot::whatLiesBehindATextIsNoDifference()
{
    const MixedDescription description;
    LiveRegion region(description);
    QVERIFY(publish(region, QStringLiteral("text"), QStringLiteral("m/s")));
    QVERIFY(publish(region, QStringLiteral("text"), QStringLiteral("m")));
    ProcessDataSnapshot former;
    QVERIFY(former.take(region.manager));
    QVERIFY(publish(region, QStringLiteral("text"), QStringLiteral("kilometres").left(9)));
    QVERIFY(publish(region, QStringLiteral("text"), QStringLiteral("m")));
    ProcessDataSnapshot later;
    QVERIFY(later.take(region.manager));

    QVERIFY(std::memcmp(former.getBytes(), later.getBytes(), later.getSize()) != 0);
    QVERIFY(!later.isDifferent(*region.leaf(QStringLiteral("text")), former));
}

void tst_ProcessDataSnapshot::stateAloneIsADifference()
{
    ProcessDescription description(8, true);
    description.leaves.insert(QStringLiteral("number"), int32Slot(0));
    LiveRegion region(description);
    const auto leaf = region.leaf(QStringLiteral("number"));
    QVERIFY(publish(region, QStringLiteral("number"), 0));
    ProcessDataSnapshot former;
    QVERIFY(former.take(region.manager));
    QVERIFY(leaf->setValue(ProcessValue(PROCESS_VALUE_ERROR_TYPE_TIMEOUT)));
    QVERIFY(region.manager.swapReadAndWriteBuffer());
    ProcessDataSnapshot later;
    QVERIFY(later.take(region.manager));

    QVERIFY(later.isDifferent(*leaf, former));
}

void tst_ProcessDataSnapshot::withoutMemoryNothingIsTaken()
{
    const MixedDescription description;
    LiveRegion region(description);
    ProcessDataManager empty;
    ProcessDataSnapshot snapshot;
    QVERIFY(snapshot.take(region.manager));
    LogCapture log;

    QVERIFY(!snapshot.take(empty));

    COMPARE_LOG(log, warning(QStringLiteral("No process data memory to read from.")));
    QVERIFY(snapshot.isEmpty());
    QCOMPARE(snapshot.getGeneration(), quint64{0});
}

void tst_ProcessDataSnapshot::bytesOfEachMemoryAreAllItsOwn()
{
    const ProcessDescription small(8, true);
    const ProcessDescription large(4096, true);
    LiveRegion smallRegion(small);
    LiveRegion largeRegion(large);
    QRandomGenerator random(7);
    ProcessDataSnapshot snapshot;

    for (LiveRegion *region : {&smallRegion, &largeRegion, &smallRegion, &largeRegion}) {
        region->publishBytes(random);
        QVERIFY(snapshot.take(region->manager));

        ProcessDataReadGuard guard(region->manager);
        QCOMPARE(snapshot.getSize(), region->manager.getSizeBuffer());
        QVERIFY(std::memcmp(snapshot.getBytes(), region->manager.getPointerReadBuffer(),
                            snapshot.getSize())
                == 0);
        QVERIFY(guard.unlock());
    }
}

void tst_ProcessDataSnapshot::leafOfAnotherMemoryIsRefused()
{
    const MixedDescription description;
    const MixedDescription otherDescription;
    LiveRegion region(description);
    const LiveRegion other(otherDescription);
    ProcessDataSnapshot snapshot;
    QVERIFY(snapshot.take(region.manager));
    ProcessValue value(PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
    LogCapture log;

    QVERIFY(!snapshot.getValue(*other.leaf(QStringLiteral("big")), value));

    COMPARE_LOG(log,
                warning(QStringLiteral("Process value is not of the memory that was copied.")));
    QCOMPARE(value.getErrorType(), PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
    QVERIFY(snapshot.isDifferent(*other.leaf(QStringLiteral("big")), snapshot));
}

/// Bound to the memory that was copied, with a slot of the wrong size: nobody knows what is there.
void tst_ProcessDataSnapshot::leafThatIsNotValidIsRefused()
{
    MixedDescription description;
    description.leaves.insert(QStringLiteral("short"), slotOf("int64", 0, 4));
    LogCapture log;
    LiveRegion region(description);
    ProcessDataSnapshot snapshot;
    QVERIFY(snapshot.take(region.manager));
    ProcessValue value(PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
    log.take();

    QVERIFY(!snapshot.getValue(*region.leaf(QStringLiteral("short")), value));

    COMPARE_LOG(log,
                warning(QStringLiteral("Process value is not of the memory that was copied.")));
    QCOMPARE(value.getErrorType(), PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
    QVERIFY(snapshot.isDifferent(*region.leaf(QStringLiteral("short")), snapshot));
}

void tst_ProcessDataSnapshot::setsAreWholeBesideAWriter()
{
    constexpr int count = 1000;
    constexpr int sets = 2000;
    ProcessDescription description(4 * count, true);
    LiveRegion region(description);
    LiveRegion reader(description, ProcessDataManager::InitTypeSharedMemoryAttach);
    const quint64 begin = ProcessDataWatcher(region.manager).getGeneration();
    std::thread writer([&] {
        for (int set = 1; set <= sets; ++set) {
            ProcessDataWriteGuard guard(region.manager);
            unsigned char *const buffer = region.manager.getPointerWriteBuffer();
            for (int i = 0; i < count; ++i) {
                storeShared(buffer + 4 * i, set);
            }
            guard.publish();
        }
    });

    ProcessDataSnapshot snapshot;
    bool isWhole = true;
    quint64 generation = begin;
    while (isWhole && generation < begin + sets) {
        isWhole = snapshot.take(reader.manager) && snapshot.getGeneration() >= generation;
        generation = snapshot.getGeneration();
        for (int i = 0; isWhole && generation > begin && i < count; ++i) {
            int number = 0;
            std::memcpy(&number, snapshot.getBytes() + 4 * i, sizeof number);
            isWhole = static_cast<quint64>(number) == generation - begin;
        }
    }
    writer.join();

    QVERIFY(isWhole);
}

QTEST_GUILESS_MAIN(tst_ProcessDataSnapshot)
#include "tst_ProcessDataSnapshot.moc"
