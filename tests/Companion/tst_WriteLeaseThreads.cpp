#include "support/ChildProcess.h"
#include "support/CountedSets.h"
#include "support/DoubleBuffer.h"
#include "support/LeaseWords.h"
#include "support/RunTogether.h"

#include <QtTest>

#include <memory>

namespace {

constexpr int writerCount = 3;
constexpr int rounds = 40;
/// Enough for the lock to stay.
constexpr int setsAlone = 40;
constexpr int setsTogether = 5;

/// Each of them writes alone for a while, and then all at once.
class TakingTurns
{
public:
    /// True if every lock was had.
    bool write(BufferHandlerInterface &handler, int number)
    {
        bool isWritten = true;
        for (int round = 0; round < rounds; ++round) {
            const int turn = round * writerCount + number;
            while (m_turn.load(std::memory_order_relaxed) < turn) {
                std::this_thread::yield();
            }
            isWritten = publishSets(handler, setsAlone) && isWritten;
            // The next one comes while this one goes on.
            m_turn.store(turn + 1, std::memory_order_relaxed);
            isWritten = publishSets(handler, setsTogether) && isWritten;
        }
        return isWritten;
    }

private:
    std::atomic<int> m_turn{0};
};

constexpr quint64 setCount = quint64{writerCount} * rounds * (setsAlone + setsTogether);

/// The number of the last set that was published; 0 if it is none.
quint64 lastSet(BufferHandlerInterface &handler)
{
    ReadFindings findings;
    for (int attempt = 0; attempt < 3 && !readSet(handler, findings); ++attempt) { }
    return findings.areSound() ? findings.last : 0;
}

} // namespace

/// Threads and processes that come to a lock which stays with one of them.
class tst_WriteLeaseThreads : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void threadsExcludeEachOther_data();
    void threadsExcludeEachOther();
    void processesExcludeEachOther();
};

void tst_WriteLeaseThreads::threadsExcludeEachOther_data()
{
    QTest::addColumn<bool>("areOwn");

    QTest::newRow("with one handler") << false;
    QTest::newRow("with a handler each") << true;
}

void tst_WriteLeaseThreads::threadsExcludeEachOther()
{
    QFETCH(bool, areOwn);
    const DoubleBuffer buffer(countedSetSize);
    const auto common = buffer.create();
    std::vector<DoubleBuffer::Handler> own;
    std::vector<std::function<void()>> bodies;
    std::atomic<int> failures{0};
    std::atomic<int> writersLeft{writerCount};
    ReadFindings findings;
    TakingTurns turns;
    for (int number = 0; number < writerCount; ++number) {
        own.push_back(areOwn ? buffer.attach() : nullptr);
        BufferHandlerInterface &handler = areOwn ? *own.back() : *common;
        bodies.emplace_back([&, number] {
            failures += turns.write(handler, number) ? 0 : 1;
            --writersLeft;
        });
    }
    bodies.emplace_back([&] { readSets(*common, writersLeft, findings); });

    runTogether(bodies);

    QCOMPARE(failures.load(), 0);
    QVERIFY(findings.areSound());
    QCOMPARE(lastSet(*common), setCount);
    // Leases were made, and numbers were not only given to those who lock.
    const quint32 expected = areOwn ? rounds : 1;
    QVERIFY(LeaseWords(buffer.management()).words.lastNumber > expected);
    QVERIFY(!buffer.semaphores.isWriteLocked());
}

void tst_WriteLeaseThreads::processesExcludeEachOther()
{
    const DoubleBuffer buffer(countedSetSize);
    const SharedMapping mapping(sizeof(TakingTurns));
    auto *const turns = new (mapping.start()) TakingTurns;
    const auto handler = buffer.create();
    std::vector<std::unique_ptr<ChildProcess>> children;
    for (int number = 0; number < writerCount; ++number) {
        // Every second one with the handler that it has inherited.
        children.push_back(std::make_unique<ChildProcess>([&, number](const ChildSide &) {
            const auto own = number % 2 == 0 ? buffer.attach() : nullptr;
            BufferHandlerInterface &used = own ? *own : *handler;
            return turns->write(used, number) ? 0 : 1;
        }));
    }

    for (const auto &child : children) {
        QCOMPARE(child->waitForExit(), 0);
    }

    QCOMPARE(lastSet(*handler), setCount);
    QVERIFY(LeaseWords(buffer.management()).words.lastNumber > rounds);
    QVERIFY(!buffer.semaphores.isWriteLocked());
}

QTEST_GUILESS_MAIN(tst_WriteLeaseThreads)
#include "tst_WriteLeaseThreads.moc"
