#include "Companion/PingPongBufferHandler.h"
#include "support/LogCapture.h"
#include "support/SemaphoreSet.h"
#include "support/SharedRegion.h"

#include <csignal>

#include <sys/mman.h>
#include <unistd.h>

namespace {

using ManagementBuffer = PingPongBufferHandler::ManagementBuffer;

/// The words of the management block at the moment of a store into a buffer.
struct Words
{
    int stores = 0;
    quint64 swapCount = 0;
    quint64 writeEpoch[2] = {0, 0};
    quint32 writerPid = 0;
};

/// Stops the first store into a page and looks at the management block: what a reader sees, or finds
/// after a death, just then.
class StoreWatch
{
public:
    StoreWatch(const ManagementBuffer *management, unsigned char *page)
    {
        sm_management = management;
        sm_page = page;
        sm_words = {};
        struct sigaction action = {};
        action.sa_sigaction = look;
        action.sa_flags = SA_SIGINFO;
        sigaction(SIGSEGV, &action, &m_former);
        mprotect(page, pageSize(), PROT_READ);
    }
    ~StoreWatch()
    {
        allow();
        sigaction(SIGSEGV, &m_former, nullptr);
    }

    StoreWatch(const StoreWatch &) = delete;
    StoreWatch &operator=(const StoreWatch &) = delete;

    const Words &words() const { return sm_words; }

    static std::size_t pageSize() { return static_cast<std::size_t>(sysconf(_SC_PAGESIZE)); }

private:
    static void allow() { mprotect(sm_page, pageSize(), PROT_READ | PROT_WRITE); }

    static void look(int, siginfo_t *info, void *)
    {
        const auto *const address = static_cast<unsigned char *>(info->si_addr);
        if (address < sm_page || address >= sm_page + pageSize()) {
            signal(SIGSEGV, SIG_DFL);
            return;
        }
        ++sm_words.stores;
        sm_words.swapCount = sm_management->swapCount;
        sm_words.writeEpoch[0] = sm_management->writeEpoch[0];
        sm_words.writeEpoch[1] = sm_management->writeEpoch[1];
        sm_words.writerPid = sm_management->writerPid;
        allow();
    }

    static const ManagementBuffer *sm_management;
    static unsigned char *sm_page;
    static Words sm_words;

    struct sigaction m_former = {};
};

const ManagementBuffer *StoreWatch::sm_management = nullptr;
unsigned char *StoreWatch::sm_page = nullptr;
Words StoreWatch::sm_words;

/// A double buffer whose buffers are two pages each.
struct PagedBuffer
{
    PagedBuffer()
        : semaphores(SemaphoreSet::uniqueKey(QStringLiteral("pages")))
        , mapping(5 * StoreWatch::pageSize())
        , management(reinterpret_cast<ManagementBuffer *>(mapping.start()))
        , first(mapping.start() + StoreWatch::pageSize())
        , second(first + size())
        , handler(management, first, second, SystemVSemaphoreBaseClass::CreationTypeCreate, size(),
                  semaphores.key())
    {
    }

    static quint32 size() { return static_cast<quint32>(2 * StoreWatch::pageSize()); }

    bool publish(unsigned char value)
    {
        unsigned char *const locked = handler.lockForWrite();
        fillBuffer(locked, size(), value);
        return handler.unlockForWrite(locked) && handler.swapBuffers();
    }

    SemaphoreSet semaphores;
    SharedMapping mapping;
    ManagementBuffer *management;
    unsigned char *first;
    unsigned char *second;
    PingPongBufferHandler handler;
};

/// Where a copy is watched.
quint32 offsetOfPage(bool isLast)
{
    return isLast ? static_cast<quint32>(StoreWatch::pageSize()) : 0;
}

void addPages()
{
    QTest::addColumn<bool>("isLastPage");

    QTest::newRow("first store") << false;
    QTest::newRow("in the middle") << true;
}

} // namespace

class tst_PingPongStoreOrder : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void catchingUpIsAnnouncedBeforeTheFirstStore_data() { addPages(); }
    void catchingUpIsAnnouncedBeforeTheFirstStore();
    void catchingUpAfterASwapInsideALockIsAnnouncedToo_data() { addPages(); }
    void catchingUpAfterASwapInsideALockIsAnnouncedToo();
    void takingBackIsAnnouncedAndUnfinishedUntilItsEnd_data() { addPages(); }
    void takingBackIsAnnouncedAndUnfinishedUntilItsEnd();
    void swapOfAHalfSetPublishesAfterTakingBack_data() { addPages(); }
    void swapOfAHalfSetPublishesAfterTakingBack();
};

void tst_PingPongStoreOrder::catchingUpIsAnnouncedBeforeTheFirstStore()
{
    QFETCH(bool, isLastPage);
    PagedBuffer buffer;
    QVERIFY(buffer.publish(1));
    const StoreWatch watch(buffer.management, buffer.first + offsetOfPage(isLastPage));

    QCOMPARE(buffer.handler.lockForWrite(), buffer.first);

    QCOMPARE(watch.words().stores, 1);
    QCOMPARE(watch.words().writeEpoch[0], quint64{1});
    QCOMPARE(watch.words().writerPid, static_cast<quint32>(getpid()));
    QVERIFY(isFilledWith(buffer.first, PagedBuffer::size(), 1));
}

void tst_PingPongStoreOrder::catchingUpAfterASwapInsideALockIsAnnouncedToo()
{
    QFETCH(bool, isLastPage);
    PagedBuffer buffer;
    fillBuffer(buffer.handler.lockForWrite(), PagedBuffer::size(), 1);
    const StoreWatch watch(buffer.management, buffer.first + offsetOfPage(isLastPage));

    QVERIFY(buffer.handler.swapBuffers());

    QCOMPARE(watch.words().stores, 1);
    QCOMPARE(watch.words().swapCount, quint64{1});
    QCOMPARE(watch.words().writeEpoch[0], quint64{1});
    QCOMPARE(watch.words().writerPid, static_cast<quint32>(getpid()));
}

void tst_PingPongStoreOrder::takingBackIsAnnouncedAndUnfinishedUntilItsEnd()
{
    QFETCH(bool, isLastPage);
    LogCapture log;
    PagedBuffer buffer;
    QVERIFY(buffer.publish(1));
    buffer.management->writerPid = 4711;
    const StoreWatch watch(buffer.management, buffer.first + offsetOfPage(isLastPage));

    QCOMPARE(buffer.handler.lockForWrite(), buffer.first);

    QCOMPARE(watch.words().stores, 1);
    QCOMPARE(watch.words().writeEpoch[0], quint64{1});
    QVERIFY(watch.words().writerPid != 0);
    QVERIFY(isFilledWith(buffer.first, PagedBuffer::size(), 1));
    QCOMPARE(log.take(), QList<LogLine>());
}

void tst_PingPongStoreOrder::swapOfAHalfSetPublishesAfterTakingBack()
{
    QFETCH(bool, isLastPage);
    LogCapture log;
    PagedBuffer buffer;
    QVERIFY(buffer.publish(1));
    buffer.management->writerPid = 4711;
    const StoreWatch watch(buffer.management, buffer.first + offsetOfPage(isLastPage));

    QVERIFY(buffer.handler.swapBuffers());

    QCOMPARE(watch.words().stores, 1);
    QCOMPARE(watch.words().swapCount, quint64{1});
    QCOMPARE(watch.words().writeEpoch[0], quint64{1});
    QVERIFY(watch.words().writerPid != 0);
    QCOMPARE(buffer.management->swapCount.load(), quint64{2});
    QCOMPARE(buffer.management->writerPid.load(), 0U);
    QCOMPARE(log.take(), QList<LogLine>());
}

QTEST_GUILESS_MAIN(tst_PingPongStoreOrder)
#include "tst_PingPongStoreOrder.moc"
