#include "support/ChildProcess.h"
#include "support/CountedSets.h"
#include "support/DoubleBuffer.h"
#include "support/RunTogether.h"
#include "support/SingleBuffer.h"

#include <QtTest>

#include <memory>

namespace {

constexpr int setsOfAProcess = 1000;
constexpr int childCount = 2;

/// One writer and one reader on a handler of the child.
template <class Buffer>
ChildProcess::Body publishesAndReads(const Buffer &buffer)
{
    return [&buffer](const ChildSide &parent) {
        parent.waitForWord();
        const auto handler = buffer.attach();
        std::atomic<int> writersLeft{1};
        ReadFindings findings;
        bool published = false;
        runTogether({[&] {
                         published = publishSets(*handler, setsOfAProcess);
                         --writersLeft;
                     },
                     [&] { readSets(*handler, writersLeft, findings); }});
        CHILD_VERIFY(published);
        CHILD_VERIFY(findings.areSound());
        CHILD_VERIFY(findings.last >= quint64(setsOfAProcess));
        return 0;
    };
}

/// A region and the children that wait for the word to use it.
template <class Buffer>
struct Family
{
    Buffer buffer{countedSetSize};
    ChildProcess children[childCount] = {ChildProcess(publishesAndReads(buffer)),
                                         ChildProcess(publishesAndReads(buffer))};
};

std::unique_ptr<Family<DoubleBuffer>> doubleFamily;
std::unique_ptr<Family<SingleBuffer>> singleFamily;

/// The threads of the parent and those of the children use the region at once.
template <class Buffer>
void exchangeWithin(Family<Buffer> &family)
{
    const auto handler = family.buffer.create();
    const auto secondHandler = family.buffer.attach();
    std::atomic<int> writersLeft{1 + childCount};
    ReadFindings first;
    ReadFindings second;
    bool published = false;
    int exitCodes[childCount] = {-1, -1};
    for (ChildProcess &child : family.children) {
        child.tell();
    }

    runTogether({[&] {
                     published = publishSets(*handler, setsOfAProcess);
                     --writersLeft;
                 },
                 [&] {
                     for (int i = 0; i < childCount; ++i) {
                         exitCodes[i] = family.children[i].waitForExit();
                         --writersLeft;
                     }
                 },
                 [&] { readSets(*handler, writersLeft, first); },
                 [&] { readSets(*secondHandler, writersLeft, second); }});

    QVERIFY(published);
    QCOMPARE(exitCodes[0], 0);
    QCOMPARE(exitCodes[1], 0);
    QVERIFY(first.areSound());
    QVERIFY(second.areSound());
    QCOMPARE(first.last, quint64((1 + childCount) * setsOfAProcess));
    QCOMPARE(second.last, quint64((1 + childCount) * setsOfAProcess));
    QCOMPARE(family.buffer.semaphores.users(), 2);
    QVERIFY(!family.buffer.semaphores.isWriteLocked());
    QCOMPARE(family.buffer.semaphores.readers(), 0);
}

} // namespace

class tst_HandlerForks : public QObject
{
    Q_OBJECT

public:
    /// Forks while there is one thread only, before Qt Test starts its own: the thread sanitizer is
    /// blind in the child of a process with several threads, and lets it start none.
    static void initMain();

private Q_SLOTS:
    void processesWithThreadsLoseNoSetOfADoubleBuffer();
    void processesWithThreadsLoseNoSetOfASingleBuffer();
    void cleanupTestCase();
};

void tst_HandlerForks::initMain()
{
    doubleFamily = std::make_unique<Family<DoubleBuffer>>();
    singleFamily = std::make_unique<Family<SingleBuffer>>();
}

void tst_HandlerForks::processesWithThreadsLoseNoSetOfADoubleBuffer()
{
    exchangeWithin(*doubleFamily);
}

void tst_HandlerForks::processesWithThreadsLoseNoSetOfASingleBuffer()
{
    exchangeWithin(*singleFamily);
}

void tst_HandlerForks::cleanupTestCase()
{
    doubleFamily.reset();
    singleFamily.reset();
}

QTEST_GUILESS_MAIN(tst_HandlerForks)
#include "tst_HandlerForks.moc"
