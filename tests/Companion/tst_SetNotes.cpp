#include "Companion/Exchange/LockNotes_p.h"
#include "support/ChildProcess.h"

#include <QtTest>

#include <algorithm>
#include <thread>
#include <vector>

namespace {

using Kind = SetNote::Kind;

unsigned char place = 0;

SetNote finishedIn(quint64 epoch)
{
    return {Kind::Finished, epoch};
}

std::vector<quint64> newHandlers(int count)
{
    std::vector<quint64> handlers(static_cast<std::size_t>(count));
    std::generate(handlers.begin(), handlers.end(), LockNotes::newHandlerNumber);
    return handlers;
}

} // namespace

/// What a thread notes of the sets that it writes, and the life of its notes.
class tst_SetNotes : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void setNotesOfManyHandlersAreAllKept();
    void setNotesOfOlderHandlersAreFoundBehindThoseOfYoungerOnes();
    void setNoteIsTakenOnce();
    void setsOfHandlersThatAreGoneDoNotFillTheMemory();
    void bareWriteLeavesASetOfItsEpochAlone();
    void takenSetIsNoLongerNotedAsWritten();
    void notesGoWithTheirThread();
    void notesCanBeTakenAfterTheEndOfTheThread();
    void childOfAForkBeginsWithoutNotes();
};

void tst_SetNotes::setNotesOfManyHandlersAreAllKept()
{
    const std::vector<quint64> handlers = newHandlers(3000);
    for (const quint64 handler : handlers) {
        LockNotes::noteSet(handler, finishedIn(handler + 7));
    }

    for (auto handler = handlers.crbegin(); handler != handlers.crend(); ++handler) {
        QCOMPARE(LockNotes::setNote(*handler).kind, Kind::Finished);
        QCOMPARE(LockNotes::takeSetNote(*handler).epoch, *handler + 7);
        LockNotes::forget(*handler);
    }
}

/// A thread may write through the handler first that was made last.
void tst_SetNotes::setNotesOfOlderHandlersAreFoundBehindThoseOfYoungerOnes()
{
    const std::vector<quint64> handlers = newHandlers(300);
    std::for_each(handlers.crbegin(), handlers.crend(),
                  [](quint64 handler) { LockNotes::noteSet(handler, finishedIn(handler + 7)); });

    for (const quint64 handler : handlers) {
        QCOMPARE(LockNotes::setNote(handler).kind, Kind::Finished);
        QCOMPARE(LockNotes::takeSetNote(handler).epoch, handler + 7);
        LockNotes::forget(handler);
    }
}

void tst_SetNotes::setNoteIsTakenOnce()
{
    const std::vector<quint64> handlers = newHandlers(2);
    LockNotes::noteSet(handlers[0], finishedIn(5));
    LockNotes::noteSet(handlers[1], finishedIn(6));

    QCOMPARE(LockNotes::takeSetNote(handlers[0]).epoch, quint64{5});
    QCOMPARE(LockNotes::takeSetNote(handlers[0]).kind, Kind::None);
    QCOMPARE(LockNotes::setNote(handlers[0]).kind, Kind::None);

    QCOMPARE(LockNotes::takeSetNote(handlers[1]).epoch, quint64{6});
}

void tst_SetNotes::setsOfHandlersThatAreGoneDoNotFillTheMemory()
{
    std::size_t capacity = 0;
    quint64 kept = 0;
    // The handlers come from other threads, and go there.
    std::thread([&] {
        kept = LockNotes::newHandlerNumber();
        LockNotes::noteSet(kept, finishedIn(1));
        for (int i = 0; i < 3000; ++i) {
            quint64 handler = 0;
            std::thread([&] { handler = LockNotes::newHandlerNumber(); }).join();
            LockNotes::noteSet(handler, finishedIn(2));
            std::thread([&] { LockNotes::forget(handler); }).join();
        }
        capacity = LockNotes::setCapacity();
        kept = LockNotes::takeSetNote(kept).epoch;
    }).join();

    QVERIFY(capacity > 0);
    QVERIFY(capacity <= 16);
    QCOMPARE(kept, quint64{1});
}

void tst_SetNotes::bareWriteLeavesASetOfItsEpochAlone()
{
    const quint64 handler = LockNotes::newHandlerNumber();
    LockNotes::noteSet(handler, finishedIn(4));

    LockNotes::noteBareWrite(handler, 4);
    QCOMPARE(LockNotes::setNote(handler).kind, Kind::Finished);
    QVERIFY(!LockNotes::isNotedAsWritten(handler));
    LockNotes::noteBareWrite(handler, 5);
    QCOMPARE(LockNotes::setNote(handler).kind, Kind::Written);
    QVERIFY(LockNotes::isNotedAsWritten(handler));

    LockNotes::noteSet(handler, {Kind::Refused, 0});
    QVERIFY(!LockNotes::isNotedAsWritten(handler));
    LockNotes::noteBareWrite(handler, 5);
    QCOMPARE(LockNotes::setNote(handler).kind, Kind::Written);
    LockNotes::forget(handler);
    QVERIFY(!LockNotes::isNotedAsWritten(handler));
}

void tst_SetNotes::takenSetIsNoLongerNotedAsWritten()
{
    const std::vector<quint64> handlers = newHandlers(2);
    LockNotes::noteBareWrite(handlers[0], 1);
    LockNotes::noteBareWrite(handlers[1], 1);

    QCOMPARE(LockNotes::takeSetNote(handlers[0]).kind, Kind::Written);
    QVERIFY(LockNotes::isNotedAsWritten(handlers[1]));
    QCOMPARE(LockNotes::takeSetNote(handlers[1]).kind, Kind::Written);
    QVERIFY(!LockNotes::isNotedAsWritten(handlers[1]));
}

void tst_SetNotes::notesGoWithTheirThread()
{
    const std::vector<quint64> handlers = newHandlers(100);
    // The sanitizer looks whether all of it is given back.
    std::thread([&] {
        for (const quint64 handler : handlers) {
            LockNotes::noteSet(handler, finishedIn(1));
            LockNotes::add({handler, &place, 0, 0, false});
        }
    }).join();
    std::size_t capacity = 1;
    bool isIdle = false;
    std::thread([&] {
        capacity = LockNotes::setCapacity();
        isIdle = LockNotes::isIdle();
    }).join();

    QCOMPARE(capacity, std::size_t{0});
    QVERIFY(isIdle);
    QCOMPARE(LockNotes::setNote(handlers[0]).kind, Kind::None);
}

void tst_SetNotes::notesCanBeTakenAfterTheEndOfTheThread()
{
    static quint64 handler = 0;
    static quint64 found = 0;
    handler = LockNotes::newHandlerNumber();
    struct Latest
    {
        ~Latest()
        {
            // Its notes are gone already, and come back empty.
            found = LockNotes::setNote(handler).epoch;
            LockNotes::noteSet(handler, finishedIn(8));
            found += LockNotes::takeSetNote(handler).epoch;
        }
    };

    std::thread([] {
        // Made before the first note, so that it goes after the last.
        thread_local const Latest latest;
        [[maybe_unused]] const auto *const isMade = &latest;
        LockNotes::noteSet(handler, finishedIn(3));
    }).join();

    QCOMPARE(found, quint64{8});
}

void tst_SetNotes::childOfAForkBeginsWithoutNotes()
{
    const quint64 handler = LockNotes::newHandlerNumber();
    LockNotes::noteSet(handler, finishedIn(3));
    LockNotes::noteSet(LockNotes::newHandlerNumber(), {Kind::Written, 0});
    LockNotes::add({handler, &place, 0, 0, false});

    ChildProcess child([handler](const ChildSide &) {
        CHILD_VERIFY(LockNotes::isIdle());
        CHILD_VERIFY(LockNotes::summary.writtenHandler == 0);
        CHILD_VERIFY(LockNotes::setNote(handler).kind == Kind::None);
        // And goes on as any process does.
        const quint64 own = LockNotes::newHandlerNumber();
        LockNotes::noteSet(own, finishedIn(9));
        CHILD_VERIFY(LockNotes::takeSetNote(own).epoch == 9);
        LockNotes::forget(own);
        return 0;
    });

    QCOMPARE(child.waitForExit(), 0);
    QCOMPARE(LockNotes::takeSetNote(handler).epoch, quint64{3});
    LockNotes::forget(handler);
}

QTEST_GUILESS_MAIN(tst_SetNotes)
#include "tst_SetNotes.moc"
