#include "Companion/PingPongBufferHandler.h"
#include "ProcessData/Linux/SharedMemory.h"
#include "integration/HostileDescription.h"
#include "support/ChildProcess.h"
#include "support/ResourceLimit.h"

#include <csignal>
#include <cstring>
#include <limits>

namespace {

using ManagementBuffer = PingPongBufferHandler::ManagementBuffer;

constexpr quint64 largestWord = std::numeric_limits<quint64>::max();

/// A region as a stranger sees it, who may write wherever he likes.
class Stranger
{
public:
    explicit Stranger(const ProcessDescription &description)
    {
        m_memory.setKey(description.segment.name());
        m_memory.attach(SharedMemory::ReadWrite);
    }

    ManagementBuffer *management() { return static_cast<ManagementBuffer *>(m_memory.data()); }
    QByteArray content() const
    {
        return {static_cast<const char *>(m_memory.data()), m_memory.size()};
    }
    void fill(char byte)
    {
        std::memset(m_memory.data(), byte, static_cast<std::size_t>(m_memory.size()));
    }

private:
    SharedMemory m_memory;
};

LogLine tooSmall(const QString &key, int size, int needed)
{
    return warning(QStringLiteral("Shared memory \"%1\" is too small: it has %2 bytes, the process "
                                  "description needs %3 . Start the creating process anew with the "
                                  "same description.")
                       .arg(key)
                       .arg(size)
                       .arg(needed));
}

} // namespace

/// Regions that other processes laid out differently, filled with nonsense or cut off.
class tst_HostileNeighboursMemory : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void epochInTheFutureEndsAfterElevenAttempts();
    void epochInTheFutureIsLeftBehindByWriting();
    void lastEpochIsPassed();
    void writerThatNeverWasIsTakenBack();
    void blockOfNonsenseIsSurvived();
    void smallerRegionIsRefused();
    void doubleBufferOnASmallSingleBufferIsRefused();
    void doubleBufferOnALargeSingleBufferStaysInside();
    void singleBufferOnADoubleBufferStaysInside();
    void slotsOfAnotherDescriptionStayInside();
    void shrunkSegmentEndsTheProcessThatTouchesIt();
    void segmentThatGrowsIsOfNoMatter();
};

void tst_HostileNeighboursMemory::epochInTheFutureEndsAfterElevenAttempts()
{
    const HostileDescription description;
    HostileUser user(description, hostileCreate);
    QVERIFY(user.publish(4));
    QVERIFY(user.publish(4));
    Stranger stranger(description);
    stranger.management()->writeEpoch[0] = 1000;
    stranger.management()->writeEpoch[1] = 1000;
    LogCapture log;
    ProcessValue value(1, HostileUser::valid);

    user.a->getValue(value);

    QVERIFY(!value.getValue().isValid());
    COMPARE_LOG(log, warning(QStringLiteral("Reading does not work.")));
    // It holds nobody up afterwards.
    QVERIFY(!description.semaphores.isWriteLocked());
}

void tst_HostileNeighboursMemory::epochInTheFutureIsLeftBehindByWriting()
{
    const HostileDescription description;
    HostileUser user(description, hostileCreate);
    QVERIFY(user.publish(4));
    Stranger stranger(description);
    stranger.management()->writeEpoch[0] = largestWord;
    stranger.management()->writeEpoch[1] = largestWord;

    QVERIFY(user.publish(5));
    QVERIFY(user.publish(6));

    LogCapture log;
    QCOMPARE(user.read(), 6);
    COMPARE_LOG(log);
}

void tst_HostileNeighboursMemory::lastEpochIsPassed()
{
    const HostileDescription description;
    HostileUser user(description, hostileCreate);
    QVERIFY(user.publish(4));
    Stranger stranger(description);
    stranger.management()->swapCount = largestWord - 1;
    LogCapture log;

    for (int value = 10; value < 16; ++value) {
        QVERIFY(user.publish(value));
    }

    QCOMPARE(user.read(), 15);
    COMPARE_LOG(log);
}

void tst_HostileNeighboursMemory::writerThatNeverWasIsTakenBack()
{
    const HostileDescription description;
    HostileUser user(description, hostileCreate);
    QVERIFY(user.publish(4));
    Stranger stranger(description);
    stranger.management()->writerPid = std::numeric_limits<quint32>::max();
    LogCapture log;

    QVERIFY(user.publish(5));

    QCOMPARE(user.read(), 5);
    QCOMPARE(stranger.management()->writerPid.load(), 0U);
    COMPARE_LOG(log);
}

void tst_HostileNeighboursMemory::blockOfNonsenseIsSurvived()
{
    const HostileDescription description;
    HostileUser user(description, hostileCreate);
    Stranger stranger(description);
    LogCapture log;
    for (const char byte : {'\xFF', '\x55', '\x01', '\x80'}) {
        stranger.fill(byte);
        log.take();

        user.read();
        user.write(7);
        user.manager.swapReadAndWriteBuffer();

        QVERIFY(!description.semaphores.isWriteLocked());
    }
    // A swap or two later the block is what the library made of it, whatever it was.
    for (int value = 1; value < 4; ++value) {
        QVERIFY(user.publish(value));
    }
    log.take();
    QCOMPARE(user.read(), 3);
    COMPARE_LOG(log);
}

void tst_HostileNeighboursMemory::smallerRegionIsRefused()
{
    const HostileDescription made(true, 16);
    HostileDescription needed(true, 24);
    needed.key = made.key;
    const HostileUser creator(made, hostileCreate);
    LogCapture log;

    QVERIFY(!HostileUser(needed, hostileAttach).isAttached());

    COMPARE_LOG(log, tooSmall(made.key, 544, 560),
                warning(QStringLiteral("Can not initialize shared memory.")),
                warning(QStringLiteral("Can not create process data memory.")));
    QCOMPARE(made.semaphores.users(), 1);
}

void tst_HostileNeighboursMemory::doubleBufferOnASmallSingleBufferIsRefused()
{
    const HostileDescription made(false, 16);
    HostileDescription needed(true, 16);
    needed.key = made.key;
    const HostileUser creator(made, hostileCreate);
    LogCapture log;

    QVERIFY(!HostileUser(needed, hostileAttach).isAttached());

    COMPARE_LOG(log, tooSmall(made.key, 16, 544),
                warning(QStringLiteral("Can not initialize shared memory.")),
                warning(QStringLiteral("Can not create process data memory.")));
}

void tst_HostileNeighboursMemory::doubleBufferOnALargeSingleBufferStaysInside()
{
    const HostileDescription made(false, 600);
    HostileDescription other(true, 16);
    other.key = made.key;
    const HostileUser creator(made, hostileCreate);
    HostileUser attacher(other, hostileAttach);
    const QByteArray behind = Stranger(made).content().mid(544);

    QVERIFY(attacher.isAttached());
    QVERIFY(attacher.publish(4));

    QCOMPARE(attacher.read(), 4);
    QCOMPARE(Stranger(made).content().mid(544), behind);
}

void tst_HostileNeighboursMemory::singleBufferOnADoubleBufferStaysInside()
{
    const HostileDescription made(true, 16);
    HostileDescription other(false, 16);
    other.key = made.key;
    HostileUser creator(made, hostileCreate);
    QVERIFY(creator.publish(4));
    const HostileUser attacher(other, hostileAttach);
    const QByteArray behind = Stranger(made).content().mid(16);

    QVERIFY(attacher.write(1));

    QCOMPARE(attacher.read(), 1);
    QCOMPARE(Stranger(made).content().mid(16), behind);
}

void tst_HostileNeighboursMemory::slotsOfAnotherDescriptionStayInside()
{
    const HostileDescription made(true, 16);
    HostileUser creator(made, hostileCreate);
    HostileDescription other(true, 16);
    other.key = made.key;
    SlotDescription text;
    text.type = QStringLiteral("string");
    text.sizeValue = 0xFFFFFFFFU;
    text.offset = 8;
    other.leaves.insert(QStringLiteral("text"), text);
    SlotDescription far = int32Slot(0);
    far.relativeOffsetMetadata = 0xFFFFFFF0U;
    other.leaves.insert(QStringLiteral("far"), far);
    SlotDescription wrapped = int32Slot(0xFFFFFFFCU);
    other.leaves.insert(QStringLiteral("wrapped"), wrapped);
    const HostileUser attacher(other, hostileAttach);
    const QByteArray before = Stranger(made).content();
    LogCapture log;
    ProcessValue value(1, HostileUser::valid);

    for (const char *const url : {"text", "far", "wrapped"}) {
        const auto leaf = attacher.root->getLeafProcessDataValue(QString::fromLatin1(url));
        leaf->getValueNoLock(value);
        QVERIFY(!leaf->setValueNoLock({QString(40, QLatin1Char('7')), HostileUser::valid}));
    }

    QCOMPARE(value.getValue(), QVariant(1));
    const auto outside = [](const QString &what, const QString &type, quint64 offset,
                            quint64 size) {
        return warning(QStringLiteral("%1 lies outside the buffer: \"%2\" at offset %3 with %4 "
                                      "bytes, buffer size 16")
                           .arg(what, type)
                           .arg(offset)
                           .arg(size));
    };
    const QString number = QStringLiteral("int32");
    const LogLine farLine = outside(QStringLiteral("Metadata"), number, 0xFFFFFFF0U, 4);
    const LogLine wrappedLine = outside(QStringLiteral("Value"), number, 0xFFFFFFFCU, 4);
    COMPARE_LOG(log, outside(QStringLiteral("Value"), QStringLiteral("string"), 8, 0xFFFFFFFFU),
                outside(QStringLiteral("Value"), QStringLiteral("string"), 8, 82), farLine, farLine,
                wrappedLine, wrappedLine);
    QCOMPARE(Stranger(made).content(), before);
}

void tst_HostileNeighboursMemory::shrunkSegmentEndsTheProcessThatTouchesIt()
{
    // Nobody can hold the pages of a file that somebody with the right to write it cuts off.
    const HostileDescription description;
    ChildProcess child([&description](const ChildSide &parent) {
        const ResourceLimit noCore(RLIMIT_CORE, 0);
        signal(SIGBUS, SIG_DFL);
        const LogCapture log;
        const HostileUser user(description, hostileCreate);
        parent.say();
        parent.waitForWord();
        user.read();
        return 0;
    });
    QVERIFY(child.waitUntilReady());

    QVERIFY(QFile::resize(description.segment.path(), 0));
    child.tell();

    QCOMPARE(child.waitForExit(), -SIGBUS);
    // Nobody is locked out by it, and the next creator makes all well.
    HostileUser creator(description, hostileCreate);
    QVERIFY(creator.publish(4));
    QCOMPARE(creator.read(), 4);
}

void tst_HostileNeighboursMemory::segmentThatGrowsIsOfNoMatter()
{
    const HostileDescription description;
    HostileUser user(description, hostileCreate);
    QVERIFY(user.publish(4));

    QVERIFY(QFile::resize(description.segment.path(), 100000));

    HostileUser attacher(description, hostileAttach);
    QVERIFY(attacher.publish(5));
    QCOMPARE(user.read(), 5);
}

QTEST_GUILESS_MAIN(tst_HostileNeighboursMemory)
#include "tst_HostileNeighboursMemory.moc"
