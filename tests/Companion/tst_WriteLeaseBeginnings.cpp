#include "support/DoubleBuffer.h"
#include "support/ExchangeMessages.h"
#include "support/LeaseWords.h"
#include "support/LogCapture.h"

#include <QtTest>

namespace {

bool isKeptAfterALock(PingPongBufferHandler &handler, const DoubleBuffer &buffer)
{
    return handler.unlockForWrite(handler.lockForWrite()) && buffer.semaphores.isKept();
}

/// How many locks in a row it takes until the process keeps the lock; the limit if that never comes.
int lockUntilKept(int limit)
{
    const DoubleBuffer buffer;
    const auto handler = buffer.create();
    int count = 1;
    while (!isKeptAfterALock(*handler, buffer) && count < limit) {
        ++count;
    }
    return count;
}

} // namespace

/// The lock that a process is about to keep, and the set of semaphores is gone by then.
class tst_WriteLeaseBeginnings : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void setThatGoesInTheLastLockBeforeItIsKept();
};

void tst_WriteLeaseBeginnings::setThatGoesInTheLastLockBeforeItIsKept()
{
    constexpr int limit = 1000;
    const int needed = lockUntilKept(limit);
    QVERIFY(needed > 1 && needed < limit);
    const DoubleBuffer buffer;
    const auto handler = buffer.create();
    for (int i = 1; i < needed; ++i) {
        QVERIFY(!isKeptAfterALock(*handler, buffer));
    }
    unsigned char *const locked = handler->lockForWrite();
    QVERIFY(locked != nullptr);
    QVERIFY(buffer.semaphores.remove());
    LogCapture log;

    QVERIFY(handler->unlockForWrite(locked));

    QVERIFY(LeaseWords(buffer.management()).isNone());
    COMPARE_LOG(log, removedWarning());
    QVERIFY(handler->lockForWrite() == nullptr);
    COMPARE_LOG(log);
}

QTEST_GUILESS_MAIN(tst_WriteLeaseBeginnings)
#include "tst_WriteLeaseBeginnings.moc"
