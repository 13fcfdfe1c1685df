#include "ProcessData/Linux/ProcessDataValue.h"
#include "ProcessDataManagement/ProcessDataManager.h"
#include "ProcessDataManagement/ProcessDescription.h"
#include "support/LogCapture.h"
#include "support/RunTogether.h"

#include <QtTest>

#include <atomic>
#include <functional>
#include <optional>
#include <vector>

namespace {

constexpr int leafCount = 8;
constexpr int setsOfAWriter = 500;
constexpr int writesOfAnElement = 300;
constexpr int attachmentsOfAThread = 40;

/// Numbers one behind the other.
struct Counters : ProcessDescription
{
    explicit Counters(bool hasDoubleBuffer) : ProcessDescription(8 * leafCount, hasDoubleBuffer)
    {
        for (int i = 0; i < leafCount; ++i) {
            leaves.insert(QStringLiteral("counter%1").arg(i),
                          int32Slot(static_cast<quint32>(8 * i)));
        }
    }
};

ProcessValue validNumber(int number)
{
    return {number, ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID};
}

/// What an element holds, or -1 if that is not valid.
int numberOf(const ProcessValue &value)
{
    return value.getErrorType() == ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID
               ? value.getValue().toInt()
               : -1;
}

/// The counters as one manager sees them.
class LiveCounters
{
public:
    LiveCounters(const QByteArray &json, ProcessDataManager::InitTypeSharedMemory type)
        : m_root(m_manager.createProcessDataFromJson(json, QStringLiteral("process.json"), type))
    {
        ConfigurationAndProcessDataBase::ListElements elements;
        m_root->collectElements(elements, true);
        for (const auto &element : qAsConst(elements)) {
            m_leaves.append(element.dynamicCast<ProcessDataValue>());
        }
    }

    ProcessDataManager &manager() { return m_manager; }
    ProcessDataValue &leaf(int index) { return *m_leaves[index]; }

    bool publish(const std::function<int()> &nextNumber)
    {
        bool written = m_manager.lockWriteBuffer();
        const ProcessValue value = validNumber(nextNumber());
        for (const auto &leaf : qAsConst(m_leaves)) {
            written = leaf->setValueNoLock(value) && written;
        }
        return m_manager.unlockWriteBuffer() && written && m_manager.swapReadAndWriteBuffer();
    }

    /// The number of a set, 0 before the first, or -1 if it is a mixture. Nothing if it has to be
    /// read again.
    std::optional<int> readSet()
    {
        ProcessValue value(ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID);
        m_manager.lockReadBuffer();
        m_leaves.first()->getValueNoLock(value);
        int number = numberOf(value);
        for (const auto &leaf : qAsConst(m_leaves)) {
            leaf->getValueNoLock(value);
            number = numberOf(value) == number ? number : -1;
        }
        bool repeat = false;
        const bool unlocked = m_manager.unlockReadBuffer(repeat);
        return unlocked && !repeat ? std::make_optional(number) : std::nullopt;
    }

private:
    ProcessDataManager m_manager;
    ProcessDataManager::BaseClassSharedPointer m_root;
    QVector<ProcessDataValueSharedPointer> m_leaves;
};

/// Reads sets while others write them; counts mixtures and steps backwards.
void readSets(LiveCounters &counters, const std::atomic<int> &writersLeft, int &last, int &faults)
{
    while (writersLeft.load() > 0) {
        const std::optional<int> number = counters.readSet();
        if (number) {
            faults += *number < last ? 1 : 0;
            last = *number;
        }
    }
    last = counters.readSet().value_or(-1);
}

void addKinds()
{
    QTest::addColumn<bool>("hasDoubleBuffer");

    QTest::newRow("double buffer") << true;
    QTest::newRow("single buffer") << false;
}

} // namespace

class tst_ProcessDataManagerSharing : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void threadsShareAManagerAndItsElements_data() { addKinds(); }
    void threadsShareAManagerAndItsElements();
    void threadsUseElementsOfTheirOwn_data() { addKinds(); }
    void threadsUseElementsOfTheirOwn();
    void managersComeAndGoBesideOthers_data() { addKinds(); }
    void managersComeAndGoBesideOthers();
};

void tst_ProcessDataManagerSharing::threadsShareAManagerAndItsElements()
{
    QFETCH(bool, hasDoubleBuffer);
    const Counters description(hasDoubleBuffer);
    LiveCounters counters(description.toByteArray(),
                          ProcessDataManager::InitTypeSharedMemoryCreate);
    int number = 0; // changed only inside the write lock, so that it shows whether that excludes
    QVERIFY(counters.publish([&] { return number; }));
    std::atomic<int> writersLeft{2};
    std::atomic<int> failures{0};
    int last[2] = {0, 0};
    int faults[2] = {0, 0};
    const auto write = [&] {
        for (int i = 0; i < setsOfAWriter; ++i) {
            failures += counters.publish([&] { return ++number; }) ? 0 : 1;
        }
        --writersLeft;
    };

    runTogether({write, write, [&] { readSets(counters, writersLeft, last[0], faults[0]); },
                 [&] { readSets(counters, writersLeft, last[1], faults[1]); }});

    QCOMPARE(failures.load(), 0);
    QCOMPARE(faults[0], 0);
    QCOMPARE(faults[1], 0);
    QCOMPARE(last[0], 2 * setsOfAWriter);
    QCOMPARE(last[1], 2 * setsOfAWriter);
}

void tst_ProcessDataManagerSharing::threadsUseElementsOfTheirOwn()
{
    QFETCH(bool, hasDoubleBuffer);
    const Counters description(hasDoubleBuffer);
    LiveCounters counters(description.toByteArray(),
                          ProcessDataManager::InitTypeSharedMemoryCreate);
    std::atomic<int> failures{0};
    std::vector<std::function<void()>> bodies;
    for (int i = 0; i < 4; ++i) {
        bodies.emplace_back([&counters, &failures, i] {
            ProcessDataValue &leaf = counters.leaf(i);
            ProcessValue value(ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID);
            for (int written = 1; written <= writesOfAnElement; ++written) {
                const bool isPublished = leaf.setValue(validNumber(written))
                                         && counters.manager().swapReadAndWriteBuffer();
                leaf.getValue(value);
                failures += isPublished && numberOf(value) == written ? 0 : 1;
            }
        });
    }

    runTogether(bodies);

    QCOMPARE(failures.load(), 0);
}

void tst_ProcessDataManagerSharing::managersComeAndGoBesideOthers()
{
    QFETCH(bool, hasDoubleBuffer);
    const Counters description(hasDoubleBuffer);
    const QByteArray json = description.toByteArray();
    LiveCounters counters(json, ProcessDataManager::InitTypeSharedMemoryCreate);
    int number = 0;
    QVERIFY(counters.publish([&] { return number; }));
    std::atomic<int> writersLeft{1};
    std::atomic<int> failures{0};
    int last = 0;
    int faults = 0;
    const auto attachAndRead = [&] {
        for (int i = 0; i < attachmentsOfAThread; ++i) {
            LiveCounters own(json, ProcessDataManager::InitTypeSharedMemoryAttach);
            std::optional<int> seen = own.readSet();
            while (!seen) {
                seen = own.readSet();
            }
            failures += *seen >= 0 ? 0 : 1;
        }
    };
    const auto write = [&] {
        for (int i = 0; i < setsOfAWriter; ++i) {
            failures += counters.publish([&] { return ++number; }) ? 0 : 1;
        }
        --writersLeft;
    };
    LogCapture log;

    runTogether({write, attachAndRead, attachAndRead,
                 [&] { readSets(counters, writersLeft, last, faults); }});

    const LogLine attached = debugLine(
        QStringLiteral("Attach: Key for shared memory ( \"%1\" )!").arg(description.key));
    const QList<LogLine> lines = log.take();
    QCOMPARE(lines.count(attached), 2 * attachmentsOfAThread);
    QCOMPARE(lines.size(), 2 * attachmentsOfAThread);
    QCOMPARE(failures.load(), 0);
    QCOMPARE(faults, 0);
    QCOMPARE(last, setsOfAWriter);
    QCOMPARE(description.semaphores.users(), 1);
}

QTEST_GUILESS_MAIN(tst_ProcessDataManagerSharing)

#include "tst_ProcessDataManagerSharing.moc"
