#include "Access/NumberRegion.h"
#include "Access/ProcessBulkReader.h"
#include "Access/ProcessDataGuards.h"
#include "ProcessDataManagement/ManagedHandler.h"
#include "support/ChildProcess.h"
#include "support/LogCapture.h"

#include <QtTest>

#include <algorithm>
#include <vector>

using namespace ProcessDataDefinitions;

namespace {

/// What a reader fills, with values in it that no leaf has.
struct Arrays
{
    explicit Arrays(int count)
        : values(static_cast<std::size_t>(count), -4.5)
        , states(static_cast<std::size_t>(count), PROCESS_VALUE_ERROR_TYPE_TIMEOUT)
    {
    }

    bool isUntouched() const { return *this == Arrays(static_cast<int>(values.size())); }
    bool operator==(const Arrays &other) const
    {
        return values == other.values && states == other.states;
    }

    std::vector<double> values;
    std::vector<ErrorTypes> states;
};

constexpr int counterCount = 1000;

struct CounterDescription : ProcessDescription
{
    CounterDescription() : ProcessDescription(8 * counterCount, true)
    {
        for (int i = 0; i < counterCount; ++i) {
            leaves.insert(QStringLiteral("counter%1").arg(i),
                          int32Slot(static_cast<quint32>(8 * i)));
        }
    }
};

QVector<ProcessDataValueSharedPointer> leavesOf(const LiveRegion &region, const QStringList &urls)
{
    QVector<ProcessDataValueSharedPointer> leaves;
    for (const auto &url : urls) {
        leaves.append(region.leaf(url));
    }
    return leaves;
}

bool publishCount(LiveRegion &region, const QVector<ProcessDataValueSharedPointer> &leaves,
                  int number)
{
    const ProcessValue value(QVariant(number), PROCESS_VALUE_ERROR_TYPE_VALID);
    ProcessDataWriteGuard guard(region.manager);
    for (const auto &leaf : leaves) {
        leaf->setValueNoLock(value);
    }
    return guard.publish();
}

} // namespace

class tst_ProcessBulkReader : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void agreesWithGetValueOnAnyBytes_data();
    void agreesWithGetValueOnAnyBytes();
    void leavesAndUrlsGiveTheSame();
    void refusedLeavesKeepTheirPlaces();
    void leafOfAnotherMemoryIsRefused();
    void withoutMemoryNothingIsRead();
    void noLeavesAreReadAsWell();
    void staysInsideAReadLock();
    void memoryThatWentAwayIsNotRead();
    void memoryThatIsSmallerThanBeforeIsNotRead();
    void failedLockReadsNothing();
    void setsAreWholeBesideAWriter();
    void stoppedAndKilledWriterDisturbsNobody();
};

void tst_ProcessBulkReader::agreesWithGetValueOnAnyBytes_data()
{
    QTest::addColumn<bool>("hasDoubleBuffer");
    QTest::newRow("double buffer") << true;
    QTest::newRow("single buffer") << false;
}

void tst_ProcessBulkReader::agreesWithGetValueOnAnyBytes()
{
    QFETCH(bool, hasDoubleBuffer);
    const NumberRegion numbers(hasDoubleBuffer);
    LiveRegion region(numbers.description);
    QRandomGenerator random(11);
    QStringList urls = numbers.urls();

    for (int round = 0; round < 20; ++round) {
        std::shuffle(urls.begin(), urls.end(), random);
        ProcessBulkReader reader(&region.manager, region.root, urls);
        QVERIFY(reader.isComplete());
        QCOMPARE(reader.getCount(), urls.size());
        Arrays arrays(urls.size());
        region.publishBytes(random);
        QVERIFY(reader.read(arrays.values.data(), arrays.states.data()));
        for (int i = 0; i < urls.size(); ++i) {
            const auto place = static_cast<std::size_t>(i);
            QVERIFY2(agreesWithGetValue(*region.leaf(urls[i]), arrays.values[place],
                                        arrays.states[place]),
                     qPrintable(urls[i]));
        }
    }
}

void tst_ProcessBulkReader::leavesAndUrlsGiveTheSame()
{
    const CounterDescription description;
    LiveRegion region(description);
    const QStringList urls = description.leaves.keys();
    QVERIFY(publishCount(region, leavesOf(region, urls), 17));
    Arrays byUrl(urls.size());
    Arrays byLeaf(urls.size());

    ProcessBulkReader urlReader(&region.manager, region.root, urls);
    ProcessBulkReader leafReader(&region.manager, leavesOf(region, urls));
    QVERIFY(urlReader.read(byUrl.values.data(), byUrl.states.data()));
    QVERIFY(leafReader.read(byLeaf.values.data(), byLeaf.states.data()));

    QVERIFY(byUrl == byLeaf);
    QCOMPARE(byUrl.values.back(), 17.0);
}

void tst_ProcessBulkReader::refusedLeavesKeepTheirPlaces()
{
    ProcessDescription description(16, true);
    description.leaves.insert(QStringLiteral("level"), int32Slot(0));
    SlotDescription text;
    text.type = QStringLiteral("string");
    text.sizeValue = 8;
    description.leaves.insert(QStringLiteral("name"), text);
    description.leaves.insert(QStringLiteral("beyond"), int32Slot(12));
    LiveRegion region(description);
    QVERIFY(publishCount(region, leavesOf(region, {QStringLiteral("level")}), 17));
    LogCapture log;

    ProcessBulkReader reader(&region.manager, region.root,
                             {QStringLiteral("nowhere"), QStringLiteral("level"),
                              QStringLiteral("name"), QStringLiteral("beyond")});
    COMPARE_LOG(log, warning(QStringLiteral("No process value at \"nowhere\"")),
                warning(QStringLiteral("Process value is no number: \"name\"")),
                warning(QStringLiteral("Process value lies outside the buffer: \"beyond\"")));
    QVERIFY(!reader.isComplete());
    Arrays arrays(4);
    QVERIFY(reader.read(arrays.values.data(), arrays.states.data()));

    const std::vector<double> values{0.0, 17.0, 0.0, 0.0};
    const std::vector<ErrorTypes> states{PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE,
                                         PROCESS_VALUE_ERROR_TYPE_VALID,
                                         PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE,
                                         PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE};
    QVERIFY(arrays.values == values);
    QVERIFY(arrays.states == states);
    COMPARE_LOG(log);
}

void tst_ProcessBulkReader::leafOfAnotherMemoryIsRefused()
{
    ProcessDescription description(8, true);
    description.leaves.insert(QStringLiteral("level"), int32Slot(0));
    ProcessDescription otherDescription(8, true);
    otherDescription.leaves = description.leaves;
    LiveRegion region(description);
    const LiveRegion other(otherDescription);
    LogCapture log;

    const ProcessBulkReader reader(&region.manager, {other.leaf(QStringLiteral("level"))});

    QVERIFY(!reader.isComplete());
    COMPARE_LOG(log,
                warning(QStringLiteral("Process value belongs to another memory: \"place 0\"")));
}

void tst_ProcessBulkReader::withoutMemoryNothingIsRead()
{
    ProcessDescription description(8, true);
    description.leaves.insert(QStringLiteral("level"), int32Slot(0));
    const auto tree = description.parse();
    ProcessDataManager empty;
    for (ProcessDataManager *manager : {static_cast<ProcessDataManager *>(nullptr), &empty}) {
        LogCapture log;
        ProcessBulkReader reader(manager, tree, {QStringLiteral("level")});
        COMPARE_LOG(log, warning(QStringLiteral("No process data memory to read from.")));
        QCOMPARE(reader.getCount(), 1);
        QVERIFY(!reader.isComplete());
        Arrays arrays(1);
        QVERIFY(!reader.read(arrays.values.data(), arrays.states.data()));
        QVERIFY(arrays.isUntouched());
    }
}

void tst_ProcessBulkReader::noLeavesAreReadAsWell()
{
    const ProcessDescription description(8, true);
    LiveRegion region(description);
    ProcessBulkReader reader(&region.manager, region.root, {});
    QCOMPARE(reader.getCount(), 0);
    QVERIFY(reader.isComplete());
    QVERIFY(reader.read(nullptr, nullptr));
}

void tst_ProcessBulkReader::staysInsideAReadLock()
{
    ProcessDescription description(8, true);
    description.leaves.insert(QStringLiteral("level"), int32Slot(0));
    LiveRegion region(description);
    const auto leaves = leavesOf(region, {QStringLiteral("level")});
    QVERIFY(publishCount(region, leaves, 1));
    ProcessBulkReader reader(&region.manager, leaves);
    Arrays arrays(1);
    LogCapture log;

    ProcessDataReadGuard guard(region.manager);
    leaves.first()->setValue(ProcessValue(QVariant(2), PROCESS_VALUE_ERROR_TYPE_VALID));
    QVERIFY(region.manager.swapReadAndWriteBuffer());
    QVERIFY(reader.read(arrays.values.data(), arrays.states.data()));
    QCOMPARE(arrays.values.front(), 1.0);
    QVERIFY(guard.unlock());

    QVERIFY(reader.read(arrays.values.data(), arrays.states.data()));
    QCOMPARE(arrays.values.front(), 2.0);
    COMPARE_LOG(log);
}

void tst_ProcessBulkReader::memoryThatWentAwayIsNotRead()
{
    ProcessDescription description(64, true);
    description.leaves.insert(QStringLiteral("level"), int32Slot(56));
    LiveRegion region(description);
    ProcessBulkReader reader(&region.manager, region.root, {QStringLiteral("level")});
    QVERIFY(reader.isComplete());
    Arrays arrays(1);

    // A description without memory takes the handler away.
    const ProcessDescription without(0);
    QVERIFY(region.manager.createProcessData(without.parse(),
                                             ProcessDataManager::InitTypeSharedMemoryCreate));
    QVERIFY(!reader.read(arrays.values.data(), arrays.states.data()));

    QVERIFY(arrays.isUntouched());
}

void tst_ProcessBulkReader::memoryThatIsSmallerThanBeforeIsNotRead()
{
    ProcessDescription description(64, true);
    description.leaves.insert(QStringLiteral("level"), int32Slot(56));
    LiveRegion region(description);
    ProcessBulkReader reader(&region.manager, region.root, {QStringLiteral("level")});
    ManagerInternals(region.manager)
        .setBufferHandler(QSharedPointer<FakeBufferHandler>::create(63));
    Arrays arrays(1);
    LogCapture log;

    QVERIFY(!reader.read(arrays.values.data(), arrays.states.data()));

    QVERIFY(arrays.isUntouched());
    COMPARE_LOG(log, warning(QStringLiteral(
                         "The process data memory is smaller than when the reader was made.")));
}

void tst_ProcessBulkReader::failedLockReadsNothing()
{
    ProcessDescription description(8, true);
    description.leaves.insert(QStringLiteral("level"), int32Slot(0));
    LiveRegion region(description);
    ProcessBulkReader reader(&region.manager, region.root, {QStringLiteral("level")});
    const auto handler = QSharedPointer<FakeBufferHandler>::create(8);
    handler->readLocks.enqueue(false);
    ManagerInternals(region.manager).setBufferHandler(handler);
    Arrays arrays(1);
    LogCapture log;

    QVERIFY(!reader.read(arrays.values.data(), arrays.states.data()));

    QVERIFY(arrays.isUntouched());
    COMPARE_LOG(log, warning(QStringLiteral("Can't lock the process data for reading.")));
}

void tst_ProcessBulkReader::setsAreWholeBesideAWriter()
{
    const CounterDescription description;
    LiveRegion region(description);
    const QStringList urls = description.leaves.keys();
    QVERIFY(publishCount(region, leavesOf(region, urls), 1));
    ProcessBulkReader reader(&region.manager, region.root, urls);
    ChildProcess writer([&](const ChildSide &parent) {
        LiveRegion attached(description, ProcessDataManager::InitTypeSharedMemoryAttach);
        const auto leaves = leavesOf(attached, urls);
        parent.say();
        for (int number = 2; number < 2000 || !parent.hasWord(); ++number) {
            publishCount(attached, leaves, number);
            if (number == 1999) {
                parent.say();
            }
        }
        return 0;
    });
    QVERIFY(writer.waitUntilReady());
    Arrays arrays(urls.size());
    double last = 0;
    int mostAttempts = 0;
    LogCapture log;

    do {
        QVERIFY(reader.read(arrays.values.data(), arrays.states.data()));
        QCOMPARE(std::count(arrays.values.cbegin(), arrays.values.cend(), arrays.values.front()),
                 std::ptrdiff_t{counterCount});
        QVERIFY(arrays.values.front() >= last);
        last = arrays.values.front();
        int attempts = 0;
        QVERIFY(readConsistently(region.manager, [&] { ++attempts; }));
        mostAttempts = std::max(mostAttempts, attempts);
    } while (!writer.hasSpoken() && !writer.hasEnded());
    writer.tell();

    QCOMPARE(writer.waitForExit(), 0);
    QVERIFY(mostAttempts >= 1 && mostAttempts <= 3);
    COMPARE_LOG(log);
}

void tst_ProcessBulkReader::stoppedAndKilledWriterDisturbsNobody()
{
    const CounterDescription description;
    LiveRegion region(description);
    const QStringList urls = description.leaves.keys();
    QVERIFY(publishCount(region, leavesOf(region, urls), 1));
    ProcessBulkReader reader(&region.manager, region.root, urls);
    const Arrays expected = [&] {
        Arrays arrays(urls.size());
        reader.read(arrays.values.data(), arrays.states.data());
        return arrays;
    }();
    ChildProcess writer([&](const ChildSide &parent) {
        LiveRegion attached(description, ProcessDataManager::InitTypeSharedMemoryAttach);
        const ProcessDataWriteGuard guard(attached.manager);
        attached.leaf(urls.first())
            ->setValueNoLock(ProcessValue(QVariant(2), PROCESS_VALUE_ERROR_TYPE_VALID));
        parent.say();
        parent.waitForWord();
        return 0;
    });
    QVERIFY(writer.waitUntilReady());
    Arrays arrays(urls.size());

    QVERIFY(writer.stop());
    QVERIFY(reader.read(arrays.values.data(), arrays.states.data()));
    QVERIFY(arrays == expected);
    QVERIFY(writer.kill());
    QVERIFY(reader.read(arrays.values.data(), arrays.states.data()));
    QVERIFY(arrays == expected);
}

QTEST_GUILESS_MAIN(tst_ProcessBulkReader)

#include "tst_ProcessBulkReader.moc"
