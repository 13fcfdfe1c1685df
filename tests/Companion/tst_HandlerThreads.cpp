#include "support/CountedSets.h"
#include "support/DoubleBuffer.h"
#include "support/RunTogether.h"
#include "support/SingleBuffer.h"

#include <QtTest>

#include <functional>
#include <memory>

namespace {

using Handler = std::unique_ptr<BufferHandlerInterface>;
using Body = std::function<void()>;

constexpr int setsOfAWriter = 1000;

/// A double buffer, or a single one, for handlers of either kind.
class Region
{
public:
    enum class Kind { Double, Single };

    Region(Kind kind, quint32 size)
    {
        if (kind == Kind::Double) {
            m_double = std::make_unique<DoubleBuffer>(size);
        } else {
            m_single = std::make_unique<SingleBuffer>(size);
        }
    }

    Handler attach() const
    {
        if (m_double) {
            return m_double->attach();
        }
        return m_single->attach();
    }
    const SemaphoreSet &semaphores() const
    {
        return m_double ? m_double->semaphores : m_single->semaphores;
    }

private:
    std::unique_ptr<DoubleBuffer> m_double;
    std::unique_ptr<SingleBuffer> m_single;
};

/// What each thread of a test uses: one handler of all of them, or one of its own.
class Handlers
{
public:
    Handlers(const Region &region, bool areOwn)
        : m_region(region)
        , m_areOwn(areOwn)
        , m_common(region.attach())
    {
    }

    BufferHandlerInterface &next()
    {
        if (!m_areOwn) {
            return *m_common;
        }
        m_own.push_back(m_region.attach());
        return *m_own.back();
    }

private:
    const Region &m_region;
    bool m_areOwn;
    Handler m_common;
    std::vector<Handler> m_own;
};

/// A thread that publishes sets with @p publishNext; it is one of those that @p writersLeft counts.
template <class Publish>
Body writer(BufferHandlerInterface &handler, std::atomic<int> &writersLeft,
            std::atomic<int> &failures, const Publish &publishNext)
{
    return [&handler, &writersLeft, &failures, publishNext] {
        for (int i = 0; i < setsOfAWriter; ++i) {
            failures += publishNext(handler) ? 0 : 1;
        }
        --writersLeft;
    };
}

Body reader(BufferHandlerInterface &handler, const std::atomic<int> &writersLeft,
            ReadFindings &findings)
{
    return [&handler, &writersLeft, &findings] { readSets(handler, writersLeft, findings); };
}

/// Writes one half of the next set inside an outer lock and the other half inside an inner one.
bool publishInNestedLocks(BufferHandlerInterface &handler)
{
    unsigned char *const outer = handler.lockForWrite();
    if (outer == nullptr) {
        return false;
    }
    const quint64 next = loadShared<quint64>(outer) + 1;
    storeWords(outer, 0, countedWords / 2, next);
    unsigned char *const seen = handler.lockForRead();
    unsigned char *const inner = handler.lockForWrite();
    storeWords(inner, countedWords / 2, countedWords, next);
    const bool isInnerUnlocked = handler.unlockForWrite(inner);
    bool repeat = false;
    const bool isReadUnlocked = handler.unlockForRead(seen, repeat);
    return inner == outer && handler.unlockForWrite(outer) && isInnerUnlocked && isReadUnlocked
           && handler.swapBuffers();
}

/// Publishes one set from inside its lock and goes on with the next.
bool publishTwoInOneLock(BufferHandlerInterface &handler)
{
    unsigned char *const first = handler.lockForWrite();
    if (first == nullptr) {
        return false;
    }
    storeWords(first, 0, countedWords, loadShared<quint64>(first) + 1);
    const bool isSwapped = handler.swapBuffers();
    unsigned char *const second = handler.writeBufferPointer();
    storeWords(second, 0, countedWords, loadShared<quint64>(second) + 1);
    return handler.unlockForWrite(second) && isSwapped && handler.swapBuffers();
}

} // namespace

Q_DECLARE_METATYPE(Region::Kind)

class tst_HandlerThreads : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void noSetIsMixedOrLost_data();
    void noSetIsMixedOrLost();
    void nestedLocksOfThreadsStayTheirOwn_data();
    void nestedLocksOfThreadsStayTheirOwn();
    void swapsInsideLocksLoseNoSet();
    void swapsOfOthersMixNoSet();
    void handlersComeAndGoBesideOthers_data();
    void handlersComeAndGoBesideOthers();
};

void tst_HandlerThreads::noSetIsMixedOrLost_data()
{
    QTest::addColumn<Region::Kind>("kind");
    QTest::addColumn<quint32>("size");
    QTest::addColumn<bool>("areOwn");

    // An odd size puts the second buffer at an odd address, where no word can be had at once.
    for (const bool areOwn : {false, true}) {
        const char *const whose = areOwn ? "own handlers" : "one handler";
        QTest::addRow("double, %s", whose) << Region::Kind::Double << countedSetSize << areOwn;
        QTest::addRow("double, odd, %s", whose)
            << Region::Kind::Double << countedSetSize + 1 << areOwn;
        QTest::addRow("single, %s", whose) << Region::Kind::Single << countedSetSize << areOwn;
    }
}

void tst_HandlerThreads::noSetIsMixedOrLost()
{
    QFETCH(Region::Kind, kind);
    QFETCH(quint32, size);
    QFETCH(bool, areOwn);
    const Region region(kind, size);
    Handlers handlers(region, areOwn);
    std::atomic<int> writersLeft{2};
    std::atomic<int> failures{0};
    ReadFindings first;
    ReadFindings second;

    runTogether({writer(handlers.next(), writersLeft, failures, publishNextSet),
                 writer(handlers.next(), writersLeft, failures, publishNextSet),
                 reader(handlers.next(), writersLeft, first),
                 reader(handlers.next(), writersLeft, second)});

    QCOMPARE(failures.load(), 0);
    QVERIFY(first.areSound());
    QVERIFY(second.areSound());
    QCOMPARE(first.last, quint64(2 * setsOfAWriter));
    QCOMPARE(second.last, quint64(2 * setsOfAWriter));
    QVERIFY(!region.semaphores().isWriteLocked());
    QCOMPARE(region.semaphores().readers(), 0);
}

void tst_HandlerThreads::nestedLocksOfThreadsStayTheirOwn_data()
{
    noSetIsMixedOrLost_data();
}

void tst_HandlerThreads::nestedLocksOfThreadsStayTheirOwn()
{
    QFETCH(Region::Kind, kind);
    QFETCH(quint32, size);
    QFETCH(bool, areOwn);
    const Region region(kind, size);
    Handlers handlers(region, areOwn);
    std::atomic<int> writersLeft{2};
    std::atomic<int> failures{0};
    ReadFindings findings;

    runTogether({writer(handlers.next(), writersLeft, failures, publishInNestedLocks),
                 writer(handlers.next(), writersLeft, failures, publishInNestedLocks),
                 reader(handlers.next(), writersLeft, findings)});

    QCOMPARE(failures.load(), 0);
    QVERIFY(findings.areSound());
    QCOMPARE(findings.last, quint64(2 * setsOfAWriter));
    QVERIFY(!region.semaphores().isWriteLocked());
    QCOMPARE(region.semaphores().readers(), 0);
}

void tst_HandlerThreads::swapsInsideLocksLoseNoSet()
{
    const Region region(Region::Kind::Double, countedSetSize);
    const Handler handler = region.attach();
    std::atomic<int> writersLeft{2};
    std::atomic<int> failures{0};
    ReadFindings findings;

    runTogether({writer(*handler, writersLeft, failures, publishTwoInOneLock),
                 writer(*handler, writersLeft, failures, publishNextSet),
                 reader(*handler, writersLeft, findings)});

    QCOMPARE(failures.load(), 0);
    QVERIFY(findings.areSound());
    QCOMPARE(findings.last, quint64(3 * setsOfAWriter));
}

void tst_HandlerThreads::swapsOfOthersMixNoSet()
{
    const Region region(Region::Kind::Double, countedSetSize);
    const Handler handler = region.attach();
    std::atomic<int> writersLeft{3};
    std::atomic<int> failures{0};
    ReadFindings first;
    ReadFindings second;

    // A swap of somebody who has written nothing brings the set from before back: the numbers may
    // go backwards.
    runTogether({writer(*handler, writersLeft, failures, publishNextSet),
                 writer(*handler, writersLeft, failures, writeNextSet),
                 writer(*handler, writersLeft, failures,
                        [](BufferHandlerInterface &used) { return used.swapBuffers(); }),
                 reader(*handler, writersLeft, first), reader(*handler, writersLeft, second)});

    QCOMPARE(failures.load(), 0);
    QCOMPARE(first.mixed + first.failed, 0);
    QCOMPARE(second.mixed + second.failed, 0);
    QCOMPARE(first.last, second.last);
    QVERIFY(first.last <= quint64(2 * setsOfAWriter));
}

void tst_HandlerThreads::handlersComeAndGoBesideOthers_data()
{
    QTest::addColumn<Region::Kind>("kind");

    QTest::newRow("double") << Region::Kind::Double;
    QTest::newRow("single") << Region::Kind::Single;
}

void tst_HandlerThreads::handlersComeAndGoBesideOthers()
{
    QFETCH(Region::Kind, kind);
    const Region region(kind, countedSetSize);
    const Handler handler = region.attach();
    std::atomic<int> writersLeft{3};
    std::atomic<int> failures{0};
    ReadFindings findings;
    const auto publishWithANewHandler = [&region](BufferHandlerInterface &) {
        const Handler own = region.attach();
        ReadFindings seen;
        readSet(*own, seen);
        return publishNextSet(*own) && seen.areSound();
    };

    runTogether({writer(*handler, writersLeft, failures, publishNextSet),
                 writer(*handler, writersLeft, failures, publishWithANewHandler),
                 writer(*handler, writersLeft, failures, publishWithANewHandler),
                 reader(*handler, writersLeft, findings)});

    QCOMPARE(failures.load(), 0);
    QVERIFY(findings.areSound());
    QCOMPARE(findings.last, quint64(3 * setsOfAWriter));
    QCOMPARE(region.semaphores().users(), 1);
}

QTEST_GUILESS_MAIN(tst_HandlerThreads)
#include "tst_HandlerThreads.moc"
