#include "support/ChildProcess.h"
#include "support/DoubleBuffer.h"
#include "support/LogCapture.h"
#include "support/MappedRegion.h"

#include <QtTest>

#include <atomic>
#include <thread>

/// A child that is forked while another thread of its parent looks for later semaphores.
class tst_ForkedWhileFollowing : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void childFailsAtOnceAndDoesNotHang();
};

void tst_ForkedWhileFollowing::childFailsAtOnceAndDoesNotHang()
{
    constexpr int childCount = 40;
    constexpr unsigned int secondsOfAChild = 60;
    LogCapture log;
    const SegmentFile segment;
    const SemaphoreSet semaphores(SemaphoreSet::uniqueKey(QStringLiteral("following")));
    MappedRegion memory(segment);
    QVERIFY(memory.create());
    const auto handler = memory.handler(SystemVSemaphoreBaseClass::CreationTypeCreate,
                                        semaphores.key());
    QVERIFY(semaphores.remove());
    // Said here once, it is said in no child, where the log of another thread may be locked.
    QCOMPARE(handler->lockForWrite(), nullptr);
    std::atomic<bool> isOver{false};
    std::atomic<int> attempts{0};
    std::thread follower([&] {
        while (!isOver) {
            handler->lockForWrite();
            ++attempts;
        }
    });
    QList<int> exitCodes;
    for (int i = 0; i < childCount; ++i) {
        const int before = attempts;
        while (attempts == before) {
            std::this_thread::yield();
        }
        ChildProcess child([&](const ChildSide &) {
            alarm(secondsOfAChild);
            CHILD_VERIFY(handler->lockForWrite() == nullptr);
            return 0;
        });
        exitCodes.append(child.waitForExit());
        if (exitCodes.last() != 0) {
            break;
        }
    }
    isOver = true;
    follower.join();

    QCOMPARE(exitCodes, QVector<int>(childCount, 0).toList());
}

QTEST_GUILESS_MAIN(tst_ForkedWhileFollowing)
#include "tst_ForkedWhileFollowing.moc"
