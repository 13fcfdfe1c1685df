// The moments in which a set is there and is of no use: not filled in yet by its maker, or left by its last
// user and about to go. The functions of the system library that decide on them are replaced in this program.

#include "support/ChildProcess.h"
#include "support/LogCapture.h"
#include "support/SemaphoreSet.h"

#include <QtTest>

#include <cerrno>
#include <cstdarg>
#include <functional>
#include <memory>
#include <vector>

#include <dlfcn.h>

namespace {

using Semaphores = SystemVSemaphoreBaseClass;
using Names = SemaphoreSet::Names;

/// Called in place of the removal of a set, and gives its errno.
std::function<int()> insteadOfRemoval;
/// Called in place of a pause.
std::function<void()> insteadOfPause;

QString newKey()
{
    return SemaphoreSet::uniqueKey(QStringLiteral("closing"));
}

template <class Function>
Function original(const char *name)
{
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

} // namespace

#define REPLACED extern "C" Q_DECL_EXPORT

REPLACED int semctl(int id, int number, int command, ...) noexcept
{
    va_list arguments;
    va_start(arguments, command);
    void *const argument = va_arg(arguments, void *);
    va_end(arguments);
    if (command == IPC_RMID && insteadOfRemoval) {
        errno = insteadOfRemoval();
        return -1;
    }
    return original<int (*)(int, int, int, ...)>("semctl")(id, number, command, argument);
}

REPLACED int nanosleep(const timespec *time, timespec *left)
{
    if (insteadOfPause) {
        insteadOfPause();
        return 0;
    }
    return original<int (*)(const timespec *, timespec *)>("nanosleep")(time, left);
}

class tst_SemaphoreClosing : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void lastUserThatDiesWhileClosingLeavesAnOpenSet();
    void lastUserThatMayNotRemoveTheSetOpensItAgain();
    void openerWaitsForAClosedSetToOpenAgain();
    void setThatStaysClosedIsRefused();
    void attacherWaitsForTheMakerToFillTheSetIn();
    void setThatNobodyFillsInIsReplaced();
    void cleanup();

private:
    /// Makes a set as its maker has it before it fills it in. Gives the values that it would fill in.
    static std::vector<unsigned short> makeUnfinished(const SemaphoreSet &set);
};

void tst_SemaphoreClosing::cleanup()
{
    insteadOfRemoval = nullptr;
    insteadOfPause = nullptr;
}

void tst_SemaphoreClosing::lastUserThatDiesWhileClosingLeavesAnOpenSet()
{
    const SemaphoreSet set(newKey());
    LogCapture log;
    ChildProcess last([&set](const ChildSide &) {
        auto semaphores = std::make_unique<Semaphores>(set.key(), Semaphores::CreationTypeAttach);
        CHILD_VERIFY(semaphores->isValid());
        insteadOfRemoval = [&set] {
            // As it is seen by others in this moment.
            if (set.value(Names::SemaphoreClosed) == 1 && set.users() == 0) {
                raise(SIGKILL);
            }
            return EPERM;
        };
        semaphores.reset();
        return 1;
    });
    QCOMPARE(last.waitForExit(), -SIGKILL);
    const int id = set.id();
    QVERIFY(id >= 0);

    QCOMPARE(set.value(Names::SemaphoreClosed), 0);

    QCOMPARE(set.users(), 0);
    auto next = std::make_unique<Semaphores>(set.key(), Semaphores::CreationTypeAttach);
    QVERIFY(next->isValid());
    QCOMPARE(set.id(), id);
    next.reset();
    QVERIFY(!set.exists());
    COMPARE_LOG(log);
}

void tst_SemaphoreClosing::lastUserThatMayNotRemoveTheSetOpensItAgain()
{
    const SemaphoreSet set(newKey());
    ChildProcess last([&set](const ChildSide &) {
        auto semaphores = std::make_unique<Semaphores>(set.key(), Semaphores::CreationTypeAttach);
        insteadOfRemoval = [] { return EPERM; };
        semaphores.reset();
        CHILD_VERIFY(set.value(Names::SemaphoreClosed) == 0);
        CHILD_VERIFY(set.users() == 0);
        return 0;
    });

    QCOMPARE(last.waitForExit(), 0);

    // Nor does its end change anything.
    QCOMPARE(set.value(Names::SemaphoreClosed), 0);
    QCOMPARE(set.users(), 0);
}

void tst_SemaphoreClosing::openerWaitsForAClosedSetToOpenAgain()
{
    const SemaphoreSet set(newKey());
    LogCapture log;
    const auto first = std::make_unique<Semaphores>(set.key(), Semaphores::CreationTypeAttach);
    const int id = set.id();
    QVERIFY(set.setValue(Names::SemaphoreClosed, 1));
    insteadOfRemoval = [] { return EPERM; };
    int pauses = 0;
    insteadOfPause = [&] {
        ++pauses;
        set.setValue(Names::SemaphoreClosed, pauses < 90 ? 1 : 0);
    };

    const auto opener = std::make_unique<Semaphores>(set.key(), Semaphores::CreationTypeAttach);

    cleanup();
    QVERIFY(opener->isValid());
    QCOMPARE(pauses, 90);
    QCOMPARE(set.id(), id);
    COMPARE_LOG(log);
}

void tst_SemaphoreClosing::setThatStaysClosedIsRefused()
{
    const SemaphoreSet set(newKey());
    const Semaphores first(set.key(), Semaphores::CreationTypeAttach);
    QVERIFY(set.setValue(Names::SemaphoreClosed, 1));
    insteadOfRemoval = [] { return EPERM; };
    LogCapture log;

    const Semaphores opener(set.key(), Semaphores::CreationTypeAttach);

    cleanup();
    QVERIFY(!opener.isValid());
    COMPARE_LOG(
        log,
        warning(
            QStringLiteral("The semaphores are removed again and again: \"%1\"").arg(set.key())));
    QVERIFY(set.setValue(Names::SemaphoreClosed, 0));
}

std::vector<unsigned short> tst_SemaphoreClosing::makeUnfinished(const SemaphoreSet &set)
{
    auto semaphores = std::make_unique<Semaphores>(set.key(), Semaphores::CreationTypeCreate);
    std::vector<unsigned short> values = set.values();
    values[Names::SemaphoreUsers] = 0;
    semaphores.reset();
    set.make(std::vector<unsigned short>(values.size(), 0));
    return values;
}

void tst_SemaphoreClosing::attacherWaitsForTheMakerToFillTheSetIn()
{
    const SemaphoreSet set(newKey());
    LogCapture log;
    const std::vector<unsigned short> values = makeUnfinished(set);
    const int id = set.id();
    QVERIFY(id >= 0);
    // Long enough for a maker that is at work on a machine that has much else to do.
    int pauses = 0;
    insteadOfPause = [&] {
        if (++pauses == 900) {
            SemaphoreSet::setValues(id, values);
        }
    };

    auto attacher = std::make_unique<Semaphores>(set.key(), Semaphores::CreationTypeAttach);

    cleanup();
    QVERIFY(attacher->isValid());
    QCOMPARE(pauses, 900);
    QCOMPARE(set.id(), id);
    QCOMPARE(set.users(), 1);
    attacher.reset();
    QVERIFY(!set.exists());
    COMPARE_LOG(log);
}

/// Its maker died over it.
void tst_SemaphoreClosing::setThatNobodyFillsInIsReplaced()
{
    const SemaphoreSet set(newKey());
    makeUnfinished(set);
    const int id = set.id();
    QVERIFY(id >= 0);
    insteadOfPause = [] {};

    const Semaphores attacher(set.key(), Semaphores::CreationTypeAttach);

    cleanup();
    QVERIFY(attacher.isValid());
    QVERIFY(set.id() != id);
    QCOMPARE(set.users(), 1);
}

QTEST_GUILESS_MAIN(tst_SemaphoreClosing)
#include "tst_SemaphoreClosing.moc"
