// The kernel calls the first set of semaphores that is made behind a start, or in a namespace of its own, number 0.
// The functions of the system library are replaced in this program, and call the set of the test so.

#include "support/DoubleBuffer.h"
#include "support/LeaseWords.h"

#include <QtTest>

#include <cstdarg>
#include <functional>

#include <dlfcn.h>

namespace {

/// The set that is shown as number 0; none yet.
int shownAsZero = -1;
/// Called before each operation that wants the lease semaphore free.
std::function<void()> beforeLeaseIsWantedFree;

template <class Function>
Function original(const char *name)
{
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

int realNumber(int shown)
{
    return shown == 0 && shownAsZero >= 0 ? shownAsZero : shown;
}

void tell(const sembuf *operations, std::size_t count)
{
    if (count == 1 && operations[0].sem_num == SemaphoreSet::Names::SemaphoreLease
        && operations[0].sem_op == 0 && beforeLeaseIsWantedFree) {
        beforeLeaseIsWantedFree();
    }
}

} // namespace

#define REPLACED extern "C" Q_DECL_EXPORT

REPLACED int semget(key_t key, int count, int flags) noexcept
{
    const int found = original<int (*)(key_t, int, int)>("semget")(key, count, flags);
    if (found >= 0 && shownAsZero < 0) {
        shownAsZero = found;
    }
    return found >= 0 && found == shownAsZero ? 0 : found;
}

REPLACED int semctl(int id, int number, int command, ...) noexcept
{
    va_list arguments;
    va_start(arguments, command);
    void *const argument = va_arg(arguments, void *);
    va_end(arguments);
    return original<int (*)(int, int, int, ...)>("semctl")(realNumber(id), number, command,
                                                           argument);
}

REPLACED int semop(int id, sembuf *operations, size_t count) noexcept
{
    tell(operations, count);
    return original<int (*)(int, sembuf *, size_t)>("semop")(realNumber(id), operations, count);
}

REPLACED int semtimedop(int id, sembuf *operations, size_t count, const timespec *bound) noexcept
{
    tell(operations, count);
    return original<int (*)(int, sembuf *, size_t, const timespec *)>("semtimedop")(
        realNumber(id), operations, count, bound);
}

class tst_SetNumberZero : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { shownAsZero = -1; }
    void cleanup() { beforeLeaseIsWantedFree = nullptr; }
    void lockIsTakenAndStays();
    void writersOfOneSetExcludeEachOther();
    void creatorOfTheNextRegionWaitsForTheOwnerInside();
};

void tst_SetNumberZero::lockIsTakenAndStays()
{
    const DoubleBuffer buffer;
    const auto handler = buffer.create();
    QCOMPARE(buffer.semaphores.id(), 0);

    QVERIFY(publishSet(*handler, 3));
    QVERIFY(isPublished(*handler, 3));
    QVERIFY(becomeOwner(*handler, buffer.management()));
    QVERIFY(buffer.semaphores.isKept());
    QVERIFY(publishSet(*handler, 4));
    QVERIFY(isPublished(*handler, 4));
    QVERIFY(buffer.semaphores.isKept());
}

void tst_SetNumberZero::writersOfOneSetExcludeEachOther()
{
    const DoubleBuffer buffer;
    const auto first = buffer.create();
    const auto second = buffer.attach();
    QCOMPARE(buffer.semaphores.id(), 0);
    QVERIFY(becomeOwner(*first, buffer.management()));

    QVERIFY(publishSet(*second, 5));

    QVERIFY(!buffer.semaphores.isKept());
    QVERIFY(isPublished(*first, 5));
    unsigned char *const locked = second->lockForWrite();
    QVERIFY(buffer.semaphores.isWriteLocked());
    QVERIFY(second->unlockForWrite(locked));
    QVERIFY(!buffer.semaphores.isWriteLocked());
}

void tst_SetNumberZero::creatorOfTheNextRegionWaitsForTheOwnerInside()
{
    const DoubleBuffer buffer;
    const auto owner = buffer.create();
    QCOMPARE(buffer.semaphores.id(), 0);
    QVERIFY(becomeOwner(*owner, buffer.management()));
    unsigned char *locked = owner->lockForWrite();
    QVERIFY(LeaseWords(buffer.management()).isInside());
    int waits = 0;
    beforeLeaseIsWantedFree = [&] {
        ++waits;
        owner->unlockForWrite(locked);
    };

    PingPongBufferHandler::closeFormerRegion(*buffer.management(), buffer.semaphores.key());

    QCOMPARE(waits, 1);
    QVERIFY(!buffer.semaphores.isKept());
    QCOMPARE(LeaseWords(buffer.management()).words.wanted.load(), quint32{LeaseWords::Closed});
}

QTEST_GUILESS_MAIN(tst_SetNumberZero)
#include "tst_SetNumberZero.moc"
