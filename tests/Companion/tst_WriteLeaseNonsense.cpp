#include "support/DoubleBuffer.h"
#include "support/LeaseWords.h"
#include "support/LogCapture.h"
#include "support/SemaphoreCalls.h"

#include <QtTest>

#include <atomic>
#include <random>
#include <thread>

namespace {

using Names = SemaphoreSet::Names;

/// Nonsense, some of which looks like sense.
class Nonsense
{
public:
    explicit Nonsense(int set) : m_set(set) { }

    void fill(LeaseWords::Words &words)
    {
        words.word = word();
        words.wanted = number();
        words.lastLocker = number();
        words.lastNumber = number();
        words.set = pick(2) == 0 ? static_cast<quint32>(m_set) + 1 : number();
    }
    quint64 word()
    {
        switch (pick(4)) {
        case 0: return m_numbers();
        case 1: return LeaseWords::make(m_set, static_cast<quint32>(m_numbers()), pick(4));
        case 2: return LeaseWords::make(m_set + 1, static_cast<quint32>(m_numbers()), pick(4));
        default: return m_numbers() >> pick(64);
        }
    }
    quint64 pick(quint64 bound) { return m_numbers() % bound; }

private:
    quint32 number() { return static_cast<quint32>(pick(2) == 0 ? pick(4) : m_numbers()); }

    int m_set;
    std::mt19937_64 m_numbers{20};
};

} // namespace

/// Words of the write lock that say what nobody has written, and semaphores that somebody has set.
class tst_WriteLeaseNonsense : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void anyWordsLetAWriterInAtOnce();
    void anyWordsUnderAnOwnerLeaveNoLockBehind();
    void wordsThatChangeAllTheTimeEndNoBound();
    void leaseOfNobodyMakesWritersFailWithinTheBound();
    void wordOfAnotherSetKeepsNobodyOut_data();
    void wordOfAnotherSetKeepsNobodyOut();
    void semaphoreWithoutAWordBelongsToNobody();
};

void tst_WriteLeaseNonsense::anyWordsLetAWriterInAtOnce()
{
    constexpr int rounds = 20000;
    const DoubleBuffer buffer;
    LeaseWords lease(buffer.management());
    const auto handler = buffer.create();
    Nonsense nonsense(buffer.semaphores.id());
    const auto before = SemaphoreCalls::sumOfBounds();

    for (int i = 0; i < rounds; ++i) {
        nonsense.fill(lease.words);
        QVERIFY(publishSet(*handler, static_cast<unsigned char>(1 + i % 255)));
        QVERIFY(!buffer.semaphores.isWriteLocked());
    }

    QVERIFY(isPublished(*handler, static_cast<unsigned char>(1 + (rounds - 1) % 255)));
    // No single one may have waited for its bound.
    QVERIFY(SemaphoreCalls::sumOfBounds() - before < SystemVSemaphoreBaseClass::sm_lockWaitBound);
}

void tst_WriteLeaseNonsense::anyWordsUnderAnOwnerLeaveNoLockBehind()
{
    constexpr int rounds = 3000;
    const DoubleBuffer buffer;
    LeaseWords lease(buffer.management());
    const auto handler = buffer.create();
    const auto other = buffer.attach();
    Nonsense nonsense(buffer.semaphores.id());

    for (int i = 0; i < rounds; ++i) {
        lease.words.wanted = 0;
        lease.words.set = static_cast<quint32>(buffer.semaphores.id()) + 1;
        QVERIFY(becomeOwner(*handler, buffer.management()));
        const bool isInside = nonsense.pick(2) == 0;
        unsigned char *const locked = isInside ? handler->lockForWrite() : nullptr;
        nonsense.fill(lease.words);
        // With garbage that says "inside" and the semaphore of a living owner, others have to wait.
        lease.words.wanted = 1;
        const bool saysInside = lease.isInside();
        if (isInside) {
            QVERIFY(handler->unlockForWrite(locked));
        } else if (saysInside) {
            lease.words.word = nonsense.pick(2);
        }
        QVERIFY(publishSet(*other, 7));
        QVERIFY(publishSet(*handler, 8));
        QVERIFY(!buffer.semaphores.isWriteLocked());
    }

    QVERIFY(isPublished(*handler, 8));
}

void tst_WriteLeaseNonsense::wordsThatChangeAllTheTimeEndNoBound()
{
    constexpr int rounds = 2000;
    const DoubleBuffer buffer;
    LeaseWords lease(buffer.management());
    const auto handler = buffer.create();
    std::atomic<bool> isOver{false};
    std::thread hostile([&] {
        Nonsense nonsense(buffer.semaphores.id());
        while (!isOver) {
            lease.words.word.store(nonsense.word(), std::memory_order_relaxed);
            lease.words.wanted.store(static_cast<quint32>(nonsense.pick(4)),
                                     std::memory_order_relaxed);
        }
    });
    std::chrono::nanoseconds longest{};

    for (int i = 0; i < rounds; ++i) {
        const auto before = SemaphoreCalls::sumOfBounds();
        unsigned char *const locked = handler->lockForWrite();
        if (locked != nullptr) {
            handler->unlockForWrite(locked);
        }
        longest = std::max(longest, SemaphoreCalls::sumOfBounds() - before);
    }

    isOver = true;
    hostile.join();
    QVERIFY(longest < 2 * SystemVSemaphoreBaseClass::sm_lockWaitBound);
    lease.words.word = 0;
    QVERIFY(!buffer.semaphores.isWriteLocked());
    QVERIFY(publishSet(*handler, 9));
    QVERIFY(isPublished(*handler, 9));
}

void tst_WriteLeaseNonsense::leaseOfNobodyMakesWritersFailWithinTheBound()
{
    const DoubleBuffer buffer;
    LeaseWords lease(buffer.management());
    const auto handler = buffer.create();
    QVERIFY(buffer.semaphores.setValue(Names::SemaphoreLease, 1));
    lease.words.word = LeaseWords::make(buffer.semaphores.id(), 5, LeaseWords::Inside);
    const auto before = SemaphoreCalls::sumOfBounds();

    QCOMPARE(handler->lockForWrite(), nullptr);

    QVERIFY(SemaphoreCalls::sumOfBounds() - before
            < 2 * SystemVSemaphoreBaseClass::sm_lockWaitBound);
    QVERIFY(!buffer.semaphores.isWriteLocked());
    // As for a write lock that nobody holds, the hand that has set it makes it well.
    QVERIFY(buffer.semaphores.setValue(Names::SemaphoreLease, 0));
    QVERIFY(publishSet(*handler, 4));
    QVERIFY(isPublished(*handler, 4));
}

void tst_WriteLeaseNonsense::wordOfAnotherSetKeepsNobodyOut_data()
{
    QTest::addColumn<quint64>("state");

    QTest::newRow("owner outside") << quint64{LeaseWords::Idle};
    QTest::newRow("owner inside") << quint64{LeaseWords::Inside};
}

void tst_WriteLeaseNonsense::wordOfAnotherSetKeepsNobodyOut()
{
    QFETCH(quint64, state);
    const DoubleBuffer buffer;
    LeaseWords lease(buffer.management());
    const auto handler = buffer.create();
    QVERIFY(buffer.semaphores.setValue(Names::SemaphoreLease, 1));
    lease.words.word = LeaseWords::make(buffer.semaphores.id() + 1, 5, state);

    QVERIFY(publishSet(*handler, 4));

    QVERIFY(lease.isNone());
    QVERIFY(isPublished(*handler, 4));
}

void tst_WriteLeaseNonsense::semaphoreWithoutAWordBelongsToNobody()
{
    const DoubleBuffer buffer;
    LeaseWords lease(buffer.management());
    const auto handler = buffer.create();
    const auto other = buffer.attach();
    QVERIFY(buffer.semaphores.setValue(Names::SemaphoreLease, 77));

    QVERIFY(becomeOwner(*handler, buffer.management()));

    QCOMPARE(buffer.semaphores.value(Names::SemaphoreLease), 1);
    QVERIFY(publishSet(*other, 4));
    QCOMPARE(buffer.semaphores.value(Names::SemaphoreLease), 0);
}

QTEST_GUILESS_MAIN(tst_WriteLeaseNonsense)
#include "tst_WriteLeaseNonsense.moc"
