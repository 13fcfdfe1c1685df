#include "Companion/Exchange/LockNotes_p.h"
#include "support/DoubleBuffer.h"

#include <QtTest>

#include <algorithm>
#include <memory>
#include <numeric>
#include <thread>
#include <vector>

namespace {

unsigned char places[64];

ReadLockNote note(quint64 handler, int place, int depth = 0)
{
    return {handler, places + place, static_cast<quint64>(100 + depth), depth, depth % 2 != 0};
}

std::vector<quint64> newHandlers(int count)
{
    std::vector<quint64> handlers(static_cast<std::size_t>(count));
    std::generate(handlers.begin(), handlers.end(), LockNotes::newHandlerNumber);
    return handlers;
}

/// The order in which a test takes notes back.
enum class Order { NewestFirst, OldestFirst, FromTheMiddle };

std::vector<int> inOrder(int count, Order order)
{
    std::vector<int> indices(static_cast<std::size_t>(count));
    std::iota(indices.begin(), indices.end(), 0);
    if (order == Order::NewestFirst) {
        std::reverse(indices.begin(), indices.end());
    } else if (order == Order::FromTheMiddle) {
        // Each number once, since 7 has no factor in common with the counts of these tests.
        for (int i = 0; i < count; ++i) {
            indices[static_cast<std::size_t>(i)] = (count / 2 + i * 7) % count;
        }
    }
    return indices;
}

} // namespace

class tst_LockNotes : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void handlerNumbersNeverComeBack();
    void noteComesBackAsItWasAdded();
    void nothingIsTakenThatWasNotAdded();
    void newestNoteOfABufferIsTakenFirst();
    void manyNotesAreTakenBackInAnyOrder_data() { addOrders(); }
    void manyNotesAreTakenBackInAnyOrder();
    void manyNotesOfOneBufferAreTakenNewestFirst();
    void forgottenHandlerLeavesTheOthersAlone();
    void notesBelongToTheirThread();
    void summaryFollowsTheNotes();
    void streaksAreCountedApart();
    void manyStreaksAreAllKept();
    void forgottenHandlersOfManyStreaksLeaveTheOthersAlone();
    void forgottenStreaksNoLongerKeepTheThreadBusy();
    void streaksOfAThreadDoNotFillTheMemory();
    void locksOfManyHandlersEndInAnyOrder_data() { addOrders(); }
    void locksOfManyHandlersEndInAnyOrder();

private:
    static void addOrders();
};

void tst_LockNotes::handlerNumbersNeverComeBack()
{
    std::vector<quint64> numbers = newHandlers(1000);
    std::sort(numbers.begin(), numbers.end());

    QVERIFY(std::adjacent_find(numbers.cbegin(), numbers.cend()) == numbers.cend());
    QVERIFY(numbers.front() != 0);
}

void tst_LockNotes::noteComesBackAsItWasAdded()
{
    const quint64 handler = LockNotes::newHandlerNumber();
    LockNotes::add({handler, places + 3, 77, 5, true});
    QCOMPARE(LockNotes::count(handler), 1);

    const auto taken = LockNotes::take(handler, places + 3);

    QVERIFY(taken);
    QCOMPARE(taken->handler, handler);
    QCOMPARE(taken->buffer, static_cast<const unsigned char *>(places + 3));
    QCOMPARE(taken->epoch, quint64{77});
    QCOMPARE(taken->depth, 5);
    QVERIFY(taken->holdsSemaphore);
    QCOMPARE(LockNotes::count(handler), 0);
    QVERIFY(!LockNotes::take(handler, places + 3));
}

void tst_LockNotes::nothingIsTakenThatWasNotAdded()
{
    const std::vector<quint64> handlers = newHandlers(2);
    QVERIFY(!LockNotes::take(handlers[0], places));
    LockNotes::add(note(handlers[0], 0));

    QVERIFY(!LockNotes::take(handlers[1], places));
    QVERIFY(!LockNotes::take(handlers[0], places + 1));
    QVERIFY(!LockNotes::take(handlers[0], nullptr));

    QCOMPARE(LockNotes::count(handlers[0]), 1);
    QCOMPARE(LockNotes::count(handlers[1]), 0);
    QVERIFY(LockNotes::take(handlers[0], places));
}

void tst_LockNotes::newestNoteOfABufferIsTakenFirst()
{
    const quint64 handler = LockNotes::newHandlerNumber();
    LockNotes::add(note(handler, 0, 0));
    LockNotes::add(note(handler, 1, 1));
    LockNotes::add(note(handler, 0, 2));

    QCOMPARE(LockNotes::take(handler, places)->depth, 2);
    QCOMPARE(LockNotes::take(handler, places)->depth, 0);
    QCOMPARE(LockNotes::take(handler, places + 1)->depth, 1);
}

void tst_LockNotes::addOrders()
{
    QTest::addColumn<int>("order");
    QTest::addColumn<int>("count");

    for (const int count : {1, 2, 8, 9, 10, 16, 17, 30}) {
        QTest::addRow("%d, newest first", count) << int(Order::NewestFirst) << count;
        QTest::addRow("%d, oldest first", count) << int(Order::OldestFirst) << count;
        QTest::addRow("%d, from the middle", count) << int(Order::FromTheMiddle) << count;
    }
}

void tst_LockNotes::manyNotesAreTakenBackInAnyOrder()
{
    QFETCH(int, order);
    QFETCH(int, count);
    const std::vector<quint64> handlers = newHandlers(3);
    const auto handlerOf = [&handlers](int i) { return handlers[static_cast<std::size_t>(i % 3)]; };
    for (int i = 0; i < count; ++i) {
        LockNotes::add(note(handlerOf(i), i, i));
    }

    for (const int i : inOrder(count, static_cast<Order>(order))) {
        const int before = LockNotes::count(handlerOf(i));
        const auto taken = LockNotes::take(handlerOf(i), places + i);

        QVERIFY(taken);
        QCOMPARE(taken->depth, i);
        QCOMPARE(taken->epoch, static_cast<quint64>(100 + i));
        QCOMPARE(LockNotes::count(handlerOf(i)), before - 1);
        QVERIFY(!LockNotes::take(handlerOf(i), places + i));
    }
    for (const quint64 handler : handlers) {
        QCOMPARE(LockNotes::count(handler), 0);
    }
}

void tst_LockNotes::manyNotesOfOneBufferAreTakenNewestFirst()
{
    const std::vector<quint64> handlers = newHandlers(2);
    for (int depth = 0; depth < 20; ++depth) {
        LockNotes::add(note(handlers[0], 0, depth));
        LockNotes::add(note(handlers[1], 0, depth));
        QCOMPARE(LockNotes::count(handlers[0]), depth + 1);
    }

    // One handler's notes go first and leave gaps before those of the other.
    for (const quint64 handler : handlers) {
        for (int depth = 19; depth >= 0; --depth) {
            QCOMPARE(LockNotes::take(handler, places)->depth, depth);
        }
    }
}

void tst_LockNotes::forgottenHandlerLeavesTheOthersAlone()
{
    const std::vector<quint64> handlers = newHandlers(2);
    for (int i = 0; i < 15; ++i) {
        LockNotes::add(note(handlers[0], i, i));
        LockNotes::add(note(handlers[1], i, i));
    }
    for (const quint64 handler : handlers) {
        LockNotes::noteOutcome(handler, 0, true);
        LockNotes::noteOutcome(handler, 1, true);
    }

    LockNotes::forget(handlers[0]);

    QCOMPARE(LockNotes::count(handlers[0]), 0);
    QVERIFY(!LockNotes::take(handlers[0], places));
    QCOMPARE(LockNotes::repeatsInARow(handlers[0], 0), 0);
    QCOMPARE(LockNotes::repeatsInARow(handlers[0], 1), 0);
    QCOMPARE(LockNotes::count(handlers[1]), 15);
    QCOMPARE(LockNotes::repeatsInARow(handlers[1], 0), 1);
    QCOMPARE(LockNotes::repeatsInARow(handlers[1], 1), 1);
    for (int i = 14; i >= 0; --i) {
        QCOMPARE(LockNotes::take(handlers[1], places + i)->depth, i);
    }
    LockNotes::forget(handlers[1]);
    QCOMPARE(LockNotes::repeatsInARow(handlers[1], 0), 0);
}

void tst_LockNotes::notesBelongToTheirThread()
{
    const quint64 handler = LockNotes::newHandlerNumber();
    LockNotes::add(note(handler, 0));
    LockNotes::noteOutcome(handler, 1, true);
    int otherCount = -1;
    int otherRepeats = -1;
    bool otherTook = true;

    std::thread([&] {
        otherCount = LockNotes::count(handler);
        otherRepeats = LockNotes::repeatsInARow(handler, 1);
        otherTook = LockNotes::take(handler, places).has_value();
        for (int i = 0; i < 20; ++i) {
            LockNotes::add(note(handler, i));
        }
    }).join();

    QCOMPARE(otherCount, 0);
    QCOMPARE(otherRepeats, 0);
    QVERIFY(!otherTook);
    QCOMPARE(LockNotes::count(handler), 1);
    QVERIFY(LockNotes::take(handler, places));
    LockNotes::forget(handler);
}

void tst_LockNotes::summaryFollowsTheNotes()
{
    const auto handlers = newHandlers(2);
    constexpr int count = 20; // more than fit beside each other
    QVERIFY(LockNotes::isIdle());

    for (int i = 0; i < count; ++i) {
        const quint64 handler = handlers[static_cast<std::size_t>(i % 2)];
        LockNotes::add(note(handler, i));
        QVERIFY(!LockNotes::isIdle());
        QCOMPARE(LockNotes::summary.newestHandler, handler);
        QCOMPARE(LockNotes::newestBuffer(handler), places + i);
        QCOMPARE(LockNotes::newestBuffer(handlers[static_cast<std::size_t>(1 - i % 2)]),
                 i == 0 ? nullptr : places + i - 1);
    }
    for (int i = count - 1; i >= 0; --i) {
        QVERIFY(LockNotes::take(handlers[static_cast<std::size_t>(i % 2)], places + i));
        QCOMPARE(LockNotes::summary.newestBuffer, i == 0 ? nullptr : places + i - 1);
    }
    QVERIFY(LockNotes::isIdle());

    LockNotes::noteOutcome(handlers[0], 0, true);
    QVERIFY(!LockNotes::isIdle());
    LockNotes::noteOutcome(handlers[0], 0, false);
    QVERIFY(LockNotes::isIdle());
    LockNotes::add(note(handlers[0], 1));
    LockNotes::noteOutcome(handlers[0], 0, true);
    LockNotes::forget(handlers[0]);
    QVERIFY(LockNotes::isIdle());
    QCOMPARE(LockNotes::newestBuffer(handlers[0]), nullptr);
}

void tst_LockNotes::streaksAreCountedApart()
{
    const std::vector<quint64> handlers = newHandlers(2);
    for (int i = 0; i < 3; ++i) {
        LockNotes::noteOutcome(handlers[0], 0, true);
    }
    LockNotes::noteOutcome(handlers[0], 1, true);
    LockNotes::noteOutcome(handlers[1], 0, true);
    LockNotes::noteOutcome(handlers[1], 1, false);

    QCOMPARE(LockNotes::repeatsInARow(handlers[0], 0), 3);
    QCOMPARE(LockNotes::repeatsInARow(handlers[0], 1), 1);
    QCOMPARE(LockNotes::repeatsInARow(handlers[1], 0), 1);
    QCOMPARE(LockNotes::repeatsInARow(handlers[1], 1), 0);

    LockNotes::noteOutcome(handlers[0], 0, false);
    QCOMPARE(LockNotes::repeatsInARow(handlers[0], 0), 0);
    QCOMPARE(LockNotes::repeatsInARow(handlers[0], 1), 1);
    LockNotes::forget(handlers[0]);
    LockNotes::forget(handlers[1]);
}

void tst_LockNotes::manyStreaksAreAllKept()
{
    const std::vector<quint64> handlers = newHandlers(30);
    for (int round = 1; round <= 3; ++round) {
        for (const quint64 handler : handlers) {
            LockNotes::noteOutcome(handler, 0, true);
        }
        for (const quint64 handler : handlers) {
            QCOMPARE(LockNotes::repeatsInARow(handler, 0), round);
        }
    }

    for (std::size_t i = 0; i < handlers.size(); ++i) {
        LockNotes::noteOutcome(handlers[i], 0, false);

        for (std::size_t other = 0; other < handlers.size(); ++other) {
            QCOMPARE(LockNotes::repeatsInARow(handlers[other], 0), other <= i ? 0 : 3);
        }
    }
}

void tst_LockNotes::forgottenHandlersOfManyStreaksLeaveTheOthersAlone()
{
    const std::vector<quint64> handlers = newHandlers(20);
    for (const quint64 handler : handlers) {
        LockNotes::noteOutcome(handler, 0, true);
        LockNotes::noteOutcome(handler, 1, true);
    }

    for (std::size_t i = 0; i < handlers.size(); i += 2) {
        LockNotes::forget(handlers[i]);
    }

    for (std::size_t i = 0; i < handlers.size(); ++i) {
        const int expected = i % 2 == 0 ? 0 : 1;
        QCOMPARE(LockNotes::repeatsInARow(handlers[i], 0), expected);
        QCOMPARE(LockNotes::repeatsInARow(handlers[i], 1), expected);
        LockNotes::forget(handlers[i]);
        QCOMPARE(LockNotes::repeatsInARow(handlers[i], 1), 0);
    }
}

void tst_LockNotes::forgottenStreaksNoLongerKeepTheThreadBusy()
{
    const std::vector<quint64> handlers = newHandlers(20);
    QVERIFY(LockNotes::isIdle());
    for (const quint64 handler : handlers) {
        LockNotes::noteOutcome(handler, 0, true);
        LockNotes::noteOutcome(handler, 1, true);
    }

    // The youngest first, which are the ones that did not fit beside the others.
    for (int left = 19; left >= 0; --left) {
        LockNotes::forget(handlers[static_cast<std::size_t>(left)]);

        QCOMPARE(LockNotes::summary.streakCount, 2 * left);
    }

    QVERIFY(LockNotes::isIdle());
}

void tst_LockNotes::streaksOfAThreadDoNotFillTheMemory()
{
    const int many = 3000;
    const std::vector<quint64> handlers = newHandlers(many);
    for (const quint64 handler : handlers) {
        LockNotes::noteOutcome(handler, 0, true);
        LockNotes::noteOutcome(handler, 0, true);

        // Whatever went, the reader at work keeps its own.
        QCOMPARE(LockNotes::repeatsInARow(handler, 0), 2);
    }

    const auto isKept = [](quint64 handler) { return LockNotes::repeatsInARow(handler, 0) != 0; };
    QCOMPARE(std::count_if(handlers.cbegin(), handlers.cend(), isKept), 8 + 1024);
    for (const quint64 handler : handlers) {
        LockNotes::forget(handler);
    }
    QCOMPARE(std::count_if(handlers.cbegin(), handlers.cend(), isKept), 0);
}

void tst_LockNotes::locksOfManyHandlersEndInAnyOrder()
{
    QFETCH(int, order);
    QFETCH(int, count);
    struct Region
    {
        std::unique_ptr<DoubleBuffer> buffer = std::make_unique<DoubleBuffer>();
        DoubleBuffer::Handler handler = buffer->create();
        unsigned char *locked = handler->lockForRead();
    };
    std::vector<Region> regions(static_cast<std::size_t>(count));
    // Every second one is written into while it is read.
    for (std::size_t i = 0; i < regions.size(); i += 2) {
        QVERIFY(regions[i].handler->swapBuffers());
        QVERIFY(writeSet(*regions[i].handler, 1));
    }

    for (const int i : inOrder(count, static_cast<Order>(order))) {
        Region &region = regions[static_cast<std::size_t>(i)];
        const ReadResult expected = i % 2 == 0 ? ReadResult::Repeat : ReadResult::Reliable;
        QCOMPARE(finishRead(*region.handler, region.locked), expected);
        QCOMPARE(finishRead(*region.handler, region.locked), ReadResult::Failed);
    }
}

QTEST_GUILESS_MAIN(tst_LockNotes)
#include "tst_LockNotes.moc"
