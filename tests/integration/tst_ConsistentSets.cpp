#include "ProcessData/Linux/ProcessDataValue.h"
#include "ProcessDataManagement/ProcessDataManager.h"

#include <QElapsedTimer>
#include <QJsonDocument>
#include <QJsonObject>
#include <QVector>
#include <QtTest>

#include <algorithm>
#include <atomic>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int leafCount = 1000;
constexpr int readerCount = 2;

/// What the readers found, in memory that they share with the test.
struct ReaderReport
{
    std::atomic<quint64> acceptedSets;
    quint64 mixedSets;
    quint64 repeatedAttempts;
    quint64 longestStreak; ///< attempts for one set
    quint64 backwardSteps; ///< a set older than the one before
};

QByteArray description(const QString &key)
{
    QJsonObject children;
    for (int i = 0; i < leafCount; ++i) {
        children.insert(QStringLiteral("counter%1").arg(i),
                        QJsonObject{{QStringLiteral("type"), QStringLiteral("uint64")},
                                    {QStringLiteral("offsetSharedMemory"), 12 * i},
                                    {QStringLiteral("sizeValue"), 8},
                                    {QStringLiteral("sizeMetadata"), 4},
                                    {QStringLiteral("relativeOffsetMetadata"), 8},
                                    {QStringLiteral("displayPosition"), i}});
    }
    const QJsonObject root{{QStringLiteral("type"), QStringLiteral("treenode")},
                           {QStringLiteral("keyProcessDataMemory"), key},
                           {QStringLiteral("doubleBuffer"), true},
                           {QStringLiteral("sizeOfSharedMemory"), 12 * leafCount},
                           {QStringLiteral("value"), children}};
    return QJsonDocument(root).toJson();
}

/// A description that is live in this process, with its leaves at hand.
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

    bool publish(quint64 number)
    {
        const ProcessValue value(number, ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID);
        bool written = m_manager.lockWriteBuffer();
        for (const auto &leaf : qAsConst(m_leaves)) {
            written = leaf->setValueNoLock(value) && written;
        }
        return m_manager.unlockWriteBuffer() && written && m_manager.swapReadAndWriteBuffer();
    }

    /// One attempt at a whole set. Empty if it has to be repeated.
    QVector<quint64> readSet()
    {
        QVector<quint64> numbers;
        numbers.reserve(leafCount);
        ProcessValue value(ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID);
        m_manager.lockReadBuffer();
        for (const auto &leaf : qAsConst(m_leaves)) {
            leaf->getValueNoLock(value);
            numbers.append(value.getValue().toULongLong());
        }
        bool repeat = false;
        const bool unlocked = m_manager.unlockReadBuffer(repeat);
        return repeat || !unlocked ? QVector<quint64>() : numbers;
    }

private:
    ProcessDataManager m_manager;
    ProcessDataManager::BaseClassSharedPointer m_root;
    QVector<ProcessDataValueSharedPointer> m_leaves;
};

void readUntilTold(const QByteArray &json, int readyDescriptor, int stopDescriptor,
                   ReaderReport &report)
{
    LiveCounters counters(json, ProcessDataManager::InitTypeSharedMemoryAttach);
    if (write(readyDescriptor, "r", 1) != 1) {
        return;
    }
    quint64 attempts = 0;
    quint64 last = 0;
    char byte = 0;
    // The pipe does not block: it says "try again" until its writing end is closed.
    while (read(stopDescriptor, &byte, 1) != 0) {
        const QVector<quint64> numbers = counters.readSet();
        ++attempts;
        report.longestStreak = qMax(report.longestStreak, attempts);
        if (numbers.isEmpty()) {
            ++report.repeatedAttempts;
            continue;
        }
        attempts = 0;
        ++report.acceptedSets;
        report.mixedSets += numbers.count(numbers.first()) == leafCount ? 0 : 1;
        report.backwardSteps += numbers.first() < last ? 1 : 0;
        last = numbers.first();
    }
}

bool haveAllRead(const ReaderReport *reports)
{
    return std::all_of(reports, reports + readerCount,
                       [](const ReaderReport &report) { return report.acceptedSets > 0; });
}

int stressSeconds()
{
    bool ok = false;
    const int seconds = qEnvironmentVariableIntValue("TESSEL_STRESS_SECONDS", &ok);
    return ok && seconds > 0 ? seconds : 1;
}

/// Waits until every reader has attached: on a busy machine that may take longer than the stress.
bool areReadersReady(int readyDescriptor)
{
    char byte = 0;
    for (int i = 0; i < readerCount; ++i) {
        if (read(readyDescriptor, &byte, 1) != 1) {
            return false;
        }
    }
    return true;
}

/// Publishes sets for the time of the stress, and until every reader has accepted one, counting on
/// from @p number.
bool publishUnderStress(LiveCounters &counters, const ReaderReport *reports, quint64 &number)
{
    QElapsedTimer timer;
    timer.start();
    bool allPublished = true;
    // On a busy machine a reader may get no time at all in a short stress.
    constexpr int longestWait = 60000;
    while (timer.elapsed() < stressSeconds() * 1000
           || (!haveAllRead(reports) && timer.elapsed() < longestWait)) {
        allPublished = counters.publish(++number) && allPublished;
    }
    return allPublished;
}

} // namespace

class tst_ConsistentSets : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void bulkReadersAcceptOnlyWholeSetsWithinThreeAttempts();
};

void tst_ConsistentSets::bulkReadersAcceptOnlyWholeSetsWithinThreeAttempts()
{
    const QByteArray json = description(QStringLiteral("tesselSets%1").arg(getpid()));
    auto *reports = static_cast<ReaderReport *>(mmap(nullptr, readerCount * sizeof(ReaderReport),
                                                     PROT_READ | PROT_WRITE,
                                                     MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    QVERIFY(reports != MAP_FAILED);
    int readyPipe[2];
    int stopPipe[2];
    QCOMPARE(pipe(readyPipe), 0);
    QCOMPARE(pipe2(stopPipe, O_NONBLOCK), 0);

    auto counters = std::make_unique<LiveCounters>(json,
                                                   ProcessDataManager::InitTypeSharedMemoryCreate);
    QVERIFY(counters->publish(1));
    pid_t readers[readerCount];
    for (int i = 0; i < readerCount; ++i) {
        readers[i] = fork();
        QVERIFY(readers[i] >= 0);
        if (readers[i] == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            close(stopPipe[1]);
            readUntilTold(json, readyPipe[1], stopPipe[0], reports[i]);
            _exit(0);
        }
    }
    close(readyPipe[1]);

    quint64 number = 1;
    QVERIFY(areReadersReady(readyPipe[0]));
    const bool allPublished = publishUnderStress(*counters, reports, number);
    close(readyPipe[0]);
    close(stopPipe[1]);

    for (const pid_t reader : readers) {
        int status = 0;
        QCOMPARE(waitpid(reader, &status, 0), reader);
        QCOMPARE(status, 0);
    }
    close(stopPipe[0]);
    QVERIFY(allPublished);
    for (int i = 0; i < readerCount; ++i) {
        const ReaderReport &report = reports[i];
        qInfo("reader %d: %llu sets of %llu published, %llu attempts repeated, at most %llu for a "
              "set",
              i, report.acceptedSets.load(), number, report.repeatedAttempts, report.longestStreak);
        QVERIFY(report.acceptedSets > 0);
        QCOMPARE(report.mixedSets, quint64(0));
        QCOMPARE(report.backwardSteps, quint64(0));
        QVERIFY(report.longestStreak <= 3);
    }
    munmap(reports, readerCount * sizeof(ReaderReport));
}

QTEST_GUILESS_MAIN(tst_ConsistentSets)

#include "tst_ConsistentSets.moc"
