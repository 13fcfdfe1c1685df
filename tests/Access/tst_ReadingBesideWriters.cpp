#include "Access/ReadPlant.h"
#include "Companion/PingPongBufferHandler.h"

#include <atomic>
#include <chrono>
#include <thread>

#if defined(__has_feature)
# if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#  define SLOW_COPIES
# endif
#endif

using namespace ProcessDataDefinitions;

namespace {

#ifdef SLOW_COPIES
/// A copy takes the sanitizer longer than a publisher that never rests takes for a set.
constexpr std::chrono::milliseconds restOfPublisher{1};
#else
constexpr std::chrono::milliseconds restOfPublisher{0};
#endif

} // namespace

/// Who reads alone beside writers that are slow, stopped, dead or never rest.
class tst_ReadingBesideWriters : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void writerOfASingleBufferIsWaitedFor();
    void readerOfASingleBufferIsWaitedFor();
    void setOfADeadWriterIsNotSeen();
    void stoppedWriterDelaysNobody();
    void readThatWasOvertakenTwiceAwaitsASwap();
    void hurryingPublisherIsReadConsistently();
};

void tst_ReadingBesideWriters::writerOfASingleBufferIsWaitedFor()
{
    const ReadPlant plant(false);
    LiveRegion creator(plant);
    QVERIFY(publish(creator, 7));
    ReadingRegion reader(plant);
    creator.manager.lockWriteBuffer();
    std::atomic<int> read{0};

    std::thread thread([&] { read = reader.number(number); });
    const bool isBlocked = plant.semaphores.waitUntilBlockedByWriter();
    const int readBefore = read;
    creator.leaf(number)->setValueNoLock(valid(8));
    creator.manager.unlockWriteBuffer();
    thread.join();

    QVERIFY(isBlocked);
    QCOMPARE(readBefore, 0);
    QCOMPARE(read.load(), 8);
}

void tst_ReadingBesideWriters::readerOfASingleBufferIsWaitedFor()
{
    const ReadPlant plant(false);
    LiveRegion creator(plant);
    QVERIFY(publish(creator, 7));
    ReadingRegion reader(plant);
    reader.manager().lockReadBuffer();
    std::atomic<bool> isWritten{false};

    std::thread thread([&] { isWritten = creator.leaf(number)->setValue(valid(8)); });
    const bool isBlocked = plant.semaphores.waitUntilBlockedByReaders();
    const bool wasWritten = isWritten;
    bool repeat = true;
    reader.manager().unlockReadBuffer(repeat);
    thread.join();

    QVERIFY(isBlocked && !wasWritten && !repeat);
    QVERIFY(isWritten);
}

void tst_ReadingBesideWriters::setOfADeadWriterIsNotSeen()
{
    const ReadPlant plant(true);
    LiveRegion creator(plant);
    QVERIFY(publish(creator, 7));
    ReadingRegion reader(plant);
    ChildProcess writer([&plant](const ChildSide &parent) {
        LiveRegion other(plant, attach);
        other.manager.lockWriteBuffer();
        other.leaf(number)->setValueNoLock(valid(9));
        parent.say();
        parent.waitForWord();
        return 0;
    });
    QVERIFY(writer.waitUntilReady() && writer.kill());
    const QByteArray memory = plant.segment.content();

    QCOMPARE(wrongWay(reader, 7), QString());
    // What the dead one left is for the next writer to take back.
    QCOMPARE(plant.segment.content(), memory);
    QVERIFY(publish(creator, 10));
    QCOMPARE(wrongWay(reader, 10), QString());
}

void tst_ReadingBesideWriters::stoppedWriterDelaysNobody()
{
    const ReadPlant plant(true);
    LiveRegion creator(plant);
    QVERIFY(publish(creator, 7));
    ReadingRegion reader(plant);
    ChildProcess writer([&plant](const ChildSide &parent) {
        LiveRegion other(plant, attach);
        CHILD_VERIFY(publish(other, 8) && publish(other, 9));
        other.manager.lockWriteBuffer();
        other.leaf(number)->setValueNoLock(valid(10));
        parent.say();
        parent.waitForWord();
        return 0;
    });
    QVERIFY(writer.waitUntilReady() && writer.stop());

    QCOMPARE(wrongWay(reader, 9), QString());
}

void tst_ReadingBesideWriters::readThatWasOvertakenTwiceAwaitsASwap()
{
    constexpr qint64 bound = 20;
    const ReadPlant plant(true);
    LiveRegion creator(plant);
    ReadingRegion reader(plant);
    bool repeat = false;
    for (int attempt = 0; attempt < 2; ++attempt) {
        reader.manager().lockReadBuffer();
        QVERIFY(publish(creator, 7) && publish(creator, 8));
        QVERIFY(reader.manager().unlockReadBuffer(repeat));
        QVERIFY(repeat);
    }
    QElapsedTimer timer;
    timer.start();

    reader.manager().lockReadBuffer();

    QVERIFY(timer.elapsed() >= bound);
    QVERIFY(reader.manager().getPointerReadBuffer() != nullptr);
    QVERIFY(reader.manager().unlockReadBuffer(repeat));
    QVERIFY(!repeat);
    QCOMPARE(wrongWay(reader, 8), QString());
}

void tst_ReadingBesideWriters::hurryingPublisherIsReadConsistently()
{
    constexpr int sets = 500;
    constexpr qint64 longest = 120000; // milliseconds
    const ReadPlant plant(true, 64 * 1024);
    LiveRegion creator(plant);
    ReadingRegion reader(plant);
    ChildProcess publisher([&plant](const ChildSide &parent) {
        LiveRegion other(plant, attach);
        parent.say();
        for (int content = 1; !parent.hasWord(); ++content) {
            CHILD_VERIFY(publish(other, content));
            std::this_thread::sleep_for(restOfPublisher);
        }
        return 0;
    });
    QVERIFY(publisher.waitUntilReady());
    ProcessValue value(PROCESS_VALUE_ERROR_TYPE_VALID);
    ProcessValue real(PROCESS_VALUE_ERROR_TYPE_VALID);
    int taken = 0;
    int mixed = 0;
    QElapsedTimer timer;
    timer.start();

    // Who may not write holds nobody off: how often it is overtaken is left to the two processors.
    while (taken < sets && timer.elapsed() < longest) {
        ProcessDataSnapshot set;
        if (!set.take(reader.manager())) {
            continue;
        }
        ++taken;
        set.getValue(*reader.leaf(number), value);
        set.getValue(*reader.leaf(QStringLiteral("real")), real);
        const bool isOne = value.getErrorType() != PROCESS_VALUE_ERROR_TYPE_VALID
                           || value.getValue().toInt() + 0.5 == real.getValue().toDouble();
        mixed += isOne ? 0 : 1;
    }

    publisher.tell();
    QCOMPARE(publisher.waitForExit(), 0);
    QCOMPARE(taken, sets);
    QCOMPARE(mixed, 0);
}

QTEST_GUILESS_MAIN(tst_ReadingBesideWriters)
#include "tst_ReadingBesideWriters.moc"
