// What becomes of a set between two calls, and what the system refuses: other processes remove and make sets
// while one opens them. The functions of the system library that open sets are replaced in this program.

#include "support/LogCapture.h"
#include "support/SemaphoreSet.h"

#include <QCryptographicHash>
#include <QtTest>

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include <dlfcn.h>

namespace {

using Semaphores = SystemVSemaphoreBaseClass;
using Names = SemaphoreSet::Names;

constexpr auto create = Semaphores::CreationTypeCreate;
constexpr auto attach = Semaphores::CreationTypeAttach;
constexpr auto join = Semaphores::CreationTypeJoin;

/// Joins a set later, as the locks of a region do.
class LaterJoiner : public Semaphores
{
public:
    using Semaphores::joinAgain;
    using Semaphores::Semaphores;
};

enum class Call { Make, Find, Status, Values, FillIn, Remove, Operate, Wait };

/// Asked before each call: its errno if it is to be refused, otherwise 0. The calls that it makes itself are
/// not told.
std::function<int(Call)> refuse;
int refusedCalls = 0;
int pauses = 0;

bool isRefused(Call call)
{
    if (!refuse) {
        return false;
    }
    const auto asked = std::exchange(refuse, nullptr);
    const int error = asked(call);
    refuse = asked;
    refusedCalls += error != 0 ? 1 : 0;
    errno = error;
    return error != 0;
}

/// Refuses so many of these calls, and no more.
void refuseFirst(Call refused, int error, int times = 1)
{
    refuse = [refused, error, times](Call call) mutable {
        return call == refused && times-- > 0 ? error : 0;
    };
}

/// Ends what is refused, and says how often it was.
int takeRefusedCalls()
{
    refuse = nullptr;
    return std::exchange(refusedCalls, 0);
}

template <class Function>
Function original(const char *name)
{
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

Call callOf(int command)
{
    switch (command) {
    case IPC_STAT: return Call::Status;
    case GETALL: return Call::Values;
    case SETALL: return Call::FillIn;
    default: return Call::Remove;
    }
}

QString newKey()
{
    return SemaphoreSet::uniqueKey(QStringLiteral("refusals"));
}

QString systemText(int error)
{
    return QString::fromLocal8Bit(strerror(error));
}

LogLine belongsToOthers(const QString &key)
{
    return warning(QStringLiteral("The semaphores of \"%1\" can't be used: System V key %2 belongs "
                                  "to somebody else (ipcs -s). Choose another memory key.")
                       .arg(key)
                       .arg(Semaphores::systemVKey(key)));
}

LogLine missingRights(const QString &key, int error)
{
    return warning(
        QStringLiteral(
            "Can't join the semaphores of \"%1\" \"%2\" , and without them a single buffer "
            "cannot be read reliably: run as a user who may alter them (ipcs -s shows "
            "owner and mode).")
            .arg(key, systemText(error)));
}

} // namespace

#define REPLACED extern "C" Q_DECL_EXPORT

REPLACED int semget(key_t key, int count, int flags) noexcept
{
    if (isRefused((flags & IPC_CREAT) != 0 ? Call::Make : Call::Find)) {
        return -1;
    }
    return original<int (*)(key_t, int, int)>("semget")(key, count, flags);
}

REPLACED int semctl(int id, int number, int command, ...) noexcept
{
    va_list arguments;
    va_start(arguments, command);
    void *const argument = va_arg(arguments, void *);
    va_end(arguments);
    const bool isOfOpening = command == IPC_STAT || command == GETALL || command == SETALL
                             || command == IPC_RMID;
    if (isOfOpening && isRefused(callOf(command))) {
        return -1;
    }
    return original<int (*)(int, int, int, ...)>("semctl")(id, number, command, argument);
}

REPLACED int semop(int id, sembuf *operations, size_t count) noexcept
{
    if (isRefused(Call::Operate)) {
        return -1;
    }
    return original<int (*)(int, sembuf *, size_t)>("semop")(id, operations, count);
}

REPLACED int semtimedop(int id, sembuf *operations, size_t count, const timespec *bound) noexcept
{
    if (isRefused(Call::Wait)) {
        return -1;
    }
    return original<int (*)(int, sembuf *, size_t, const timespec *)>("semtimedop")(id, operations,
                                                                                    count, bound);
}

REPLACED int nanosleep(const timespec * /*time*/, timespec * /*left*/)
{
    ++pauses;
    return 0;
}

class tst_SemaphoreRefusals : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void setThatIsReplacedMeanwhileIsOpenedAnew_data();
    void setThatIsReplacedMeanwhileIsOpenedAnew();
    void setThatGoesBeforeItIsFilledInIsMadeAnew();
    void refusedCallIsToldWithTheReason_data();
    void refusedCallIsToldWithTheReason();
    void formerSetThatCannotBeReadIsSomebodyElses();
    void creatorThatMayNotRemoveTheSetGivesItsLockBack();
    void creatorThatMayNotRemoveTheSetLeavesAStoppedWriterItsLock();
    void setThatSomebodyElseRemovesFirstIsReplaced();
    void interruptedWaitForTheFormerWriterGoesOn();
    void joinerWithoutASetGoesOnWithoutOne();
    void joinerLeavesAnUnfinishedSetAlone();
    void joinerTriesAgainIfTheSetGoes_data();
    void joinerTriesAgainIfTheSetGoes();
    void joinerIsToldWhatItMayNotDo_data();
    void joinerIsToldWhatItMayNotDo();
    void joinsLaterWhereThatIsWanted();
    void leavesAgainWhereJoiningIsNotWantedAnyMore();
    void closedSetIsNotJoinedLater();
    void lastUserButOneThatLeavesMeanwhileLeavesTheSetToGo();
    void userWhoseSetIsGoneEndsQuietly();
    void fingerprintHasNoZero();
    void init();
    void cleanup();
};

void tst_SemaphoreRefusals::init()
{
    pauses = 0;
    refusedCalls = 0;
}

void tst_SemaphoreRefusals::cleanup()
{
    refuse = nullptr;
}

void tst_SemaphoreRefusals::setThatIsReplacedMeanwhileIsOpenedAnew_data()
{
    QTest::addColumn<int>("call");
    QTest::addColumn<int>("error");
    const auto add = [](const char *name, Call call, int error) {
        QTest::newRow(name) << static_cast<int>(call) << error;
    };
    add("gone before it is found", Call::Find, ENOENT);
    add("removed before it is looked at", Call::Status, EIDRM);
    add("gone before it is looked at", Call::Status, EINVAL);
    add("removed before its values are read", Call::Values, EIDRM);
    add("gone before its values are read", Call::Values, EINVAL);
    add("removed before it is joined", Call::Operate, EIDRM);
    add("gone before it is joined", Call::Operate, EINVAL);
}

void tst_SemaphoreRefusals::setThatIsReplacedMeanwhileIsOpenedAnew()
{
    QFETCH(int, call);
    QFETCH(int, error);
    const SemaphoreSet set(newKey());
    const Semaphores first(set.key(), attach);
    const int id = set.id();
    LogCapture log;
    refuseFirst(static_cast<Call>(call), error);

    const Semaphores second(set.key(), attach);

    QCOMPARE(takeRefusedCalls(), 1);
    QVERIFY(second.isValid());
    QCOMPARE(set.id(), id);
    QCOMPARE(set.users(), 2);
    COMPARE_LOG(log);
}

void tst_SemaphoreRefusals::setThatGoesBeforeItIsFilledInIsMadeAnew()
{
    const SemaphoreSet set(newKey());
    LogCapture log;
    refuse = [&set, isOver = false](Call call) mutable {
        if (call != Call::FillIn || std::exchange(isOver, true)) {
            return 0;
        }
        return set.remove() ? EIDRM : 0;
    };

    const Semaphores maker(set.key(), attach);

    QCOMPARE(takeRefusedCalls(), 1);
    QVERIFY(maker.isValid());
    QCOMPARE(set.users(), 1);
    COMPARE_LOG(log);
}

void tst_SemaphoreRefusals::refusedCallIsToldWithTheReason_data()
{
    QTest::addColumn<int>("call");
    QTest::addColumn<int>("error");
    QTest::addColumn<QString>("text");
    const auto add = [](const char *name, Call call, int error, const QString &text) {
        QTest::newRow(name) << static_cast<int>(call) << error << text;
    };
    const QString others = belongsToOthers(QStringLiteral("KEY")).text;
    add("may not be made", Call::Make, EACCES,
        QStringLiteral("Can't make the semaphores of \"KEY\" \"%1\" (limits: /proc/sys/kernel/sem, "
                       "sets in use: "
                       "ipcs -s)")
            .arg(systemText(EACCES)));
    add("may not be found", Call::Find, EACCES,
        QStringLiteral("Can't open the semaphores of \"KEY\" \"%1\"").arg(systemText(EACCES)));
    add("may not be looked at", Call::Status, EACCES, QString());
    add("values may not be read", Call::Values, EACCES, QString());
    add("may not be joined", Call::Operate, EACCES,
        QStringLiteral("Can't join the semaphores of \"KEY\" \"%1\"").arg(systemText(EACCES)));
}

void tst_SemaphoreRefusals::refusedCallIsToldWithTheReason()
{
    QFETCH(int, call);
    QFETCH(int, error);
    QFETCH(QString, text);
    const SemaphoreSet set(newKey());
    const Semaphores first(set.key(), attach);
    const int id = set.id();
    LogCapture log;
    refuseFirst(static_cast<Call>(call), error);

    const Semaphores second(set.key(), attach);

    QCOMPARE(takeRefusedCalls(), 1);
    QVERIFY(!second.isValid());
    COMPARE_LOG(log, text.isEmpty() ? belongsToOthers(set.key())
                                    : warning(text.replace(QLatin1String("KEY"), set.key())));
    QCOMPARE(set.id(), id);
    QCOMPARE(set.users(), 1);
}

void tst_SemaphoreRefusals::formerSetThatCannotBeReadIsSomebodyElses()
{
    const SemaphoreSet set(newKey());
    const int id = set.make(std::vector<unsigned short>(8, 0));
    QVERIFY(id >= 0);
    LogCapture log;
    refuseFirst(Call::Values, EACCES);

    const Semaphores attacher(set.key(), attach);

    QCOMPARE(takeRefusedCalls(), 1);
    QVERIFY(!attacher.isValid());
    COMPARE_LOG(log, belongsToOthers(set.key()));
    QCOMPARE(set.id(), id);
}

void tst_SemaphoreRefusals::creatorThatMayNotRemoveTheSetGivesItsLockBack()
{
    const SemaphoreSet set(newKey());
    const Semaphores first(set.key(), attach);
    const int id = set.id();
    LogCapture log;
    refuseFirst(Call::Remove, EPERM);

    const Semaphores creator(set.key(), create);

    QCOMPARE(takeRefusedCalls(), 1);
    QVERIFY(!creator.isValid());
    COMPARE_LOG(log, warning(QStringLiteral("Can't remove the former semaphores of \"%1\" \"%2\"")
                                 .arg(set.key(), systemText(EPERM))));
    QCOMPARE(set.id(), id);
    QCOMPARE(set.users(), 1);
    QVERIFY(!set.isWriteLocked());
}

void tst_SemaphoreRefusals::creatorThatMayNotRemoveTheSetLeavesAStoppedWriterItsLock()
{
    const SemaphoreSet set(newKey());
    const Semaphores first(set.key(), attach);
    QVERIFY(set.setValue(Names::SemaphoreWriteLock, 1));
    LogCapture log;
    refuse = [](Call call) {
        return call == Call::Wait ? EAGAIN : call == Call::Remove ? EPERM : 0;
    };

    const Semaphores creator(set.key(), create);

    QCOMPARE(takeRefusedCalls(), 2);
    QVERIFY(!creator.isValid());
    COMPARE_LOG(log, warning(QStringLiteral("Can't remove the former semaphores of \"%1\" \"%2\"")
                                 .arg(set.key(), systemText(EPERM))));
    QVERIFY(set.isWriteLocked());
}

void tst_SemaphoreRefusals::setThatSomebodyElseRemovesFirstIsReplaced()
{
    const SemaphoreSet set(newKey());
    const Semaphores first(set.key(), attach);
    const int id = set.id();
    LogCapture log;
    refuse = [&set, isOver = false](Call call) mutable {
        if (call != Call::Remove || std::exchange(isOver, true)) {
            return 0;
        }
        return set.remove() ? EINVAL : 0;
    };

    const Semaphores creator(set.key(), create);

    QCOMPARE(takeRefusedCalls(), 1);
    QVERIFY(creator.isValid());
    QVERIFY(set.id() != id);
    QCOMPARE(set.users(), 1);
    COMPARE_LOG(log);
}

void tst_SemaphoreRefusals::interruptedWaitForTheFormerWriterGoesOn()
{
    const SemaphoreSet set(newKey());
    const Semaphores first(set.key(), attach);
    const int id = set.id();
    QVERIFY(set.setValue(Names::SemaphoreWriteLock, 1));
    int waits = 0;
    bool isKeptWhileWaiting = true;
    refuse = [&](Call call) {
        if (call != Call::Wait) {
            return 0;
        }
        isKeptWhileWaiting = isKeptWhileWaiting && set.id() == id;
        if (++waits < 3) {
            return EINTR;
        }
        // The writer is done.
        set.setValue(Names::SemaphoreWriteLock, 0);
        return 0;
    };
    LogCapture log;

    const Semaphores creator(set.key(), create);

    refuse = nullptr;
    QCOMPARE(waits, 3);
    QVERIFY(isKeptWhileWaiting);
    QVERIFY(creator.isValid());
    QVERIFY(set.id() != id);
    COMPARE_LOG(log);
}

void tst_SemaphoreRefusals::joinerWithoutASetGoesOnWithoutOne()
{
    const SemaphoreSet set(newKey());
    LogCapture log;

    const Semaphores joiner(set.key(), join);

    QVERIFY(!joiner.isValid());
    QVERIFY(!set.exists());
    QCOMPARE(pauses, 0);
    COMPARE_LOG(log);
}

void tst_SemaphoreRefusals::joinerLeavesAnUnfinishedSetAlone()
{
    const SemaphoreSet set(newKey());
    const int unfinished = set.make(std::vector<unsigned short>(Names::SemaphoreCount, 0));
    QVERIFY(unfinished >= 0);
    LogCapture log;

    const Semaphores joiner(set.key(), join);

    QVERIFY(!joiner.isValid());
    QCOMPARE(set.id(), unfinished);
    QCOMPARE(set.users(), 0);
    QCOMPARE(pauses, 98);
    COMPARE_LOG(log);
}

void tst_SemaphoreRefusals::joinerTriesAgainIfTheSetGoes_data()
{
    QTest::addColumn<int>("call");
    QTest::newRow("before it is looked at") << static_cast<int>(Call::Values);
    QTest::newRow("before it is joined") << static_cast<int>(Call::Operate);
}

void tst_SemaphoreRefusals::joinerTriesAgainIfTheSetGoes()
{
    QFETCH(int, call);
    const SemaphoreSet set(newKey());
    const Semaphores first(set.key(), attach);
    LogCapture log;
    refuseFirst(static_cast<Call>(call), EIDRM, 3);

    const Semaphores joiner(set.key(), join);

    QCOMPARE(takeRefusedCalls(), 3);
    QVERIFY(joiner.isValid());
    QCOMPARE(set.users(), 2);
    QCOMPARE(pauses, 2);
    COMPARE_LOG(log);
}

void tst_SemaphoreRefusals::joinerIsToldWhatItMayNotDo_data()
{
    QTest::addColumn<int>("call");
    QTest::newRow("look at it") << static_cast<int>(Call::Status);
    QTest::newRow("join it") << static_cast<int>(Call::Operate);
}

void tst_SemaphoreRefusals::joinerIsToldWhatItMayNotDo()
{
    QFETCH(int, call);
    const SemaphoreSet set(newKey());
    const Semaphores first(set.key(), attach);
    LogCapture log;
    refuseFirst(static_cast<Call>(call), EACCES);

    const Semaphores joiner(set.key(), join);

    QCOMPARE(takeRefusedCalls(), 1);
    QVERIFY(!joiner.isValid());
    QCOMPARE(set.users(), 1);
    COMPARE_LOG(log, missingRights(set.key(), EACCES));
}

void tst_SemaphoreRefusals::joinsLaterWhereThatIsWanted()
{
    const SemaphoreSet set(newKey());
    LogCapture log;
    LaterJoiner joiner(set.key(), join);
    QVERIFY(!joiner.joinAgain(set.key(), [] { return true; }));
    QVERIFY(!joiner.isValid());
    const Semaphores maker(set.key(), attach);

    QVERIFY(joiner.joinAgain(set.key(), [&set] { return set.users() == 2; }));

    QVERIFY(joiner.isValid());
    QCOMPARE(set.users(), 2);
    COMPARE_LOG(log);
}

void tst_SemaphoreRefusals::leavesAgainWhereJoiningIsNotWantedAnyMore()
{
    const SemaphoreSet set(newKey());
    LogCapture log;
    LaterJoiner joiner(set.key(), join);
    const Semaphores maker(set.key(), attach);
    int usersWhenAsked = 0;

    QVERIFY(!joiner.joinAgain(set.key(), [&] {
        usersWhenAsked = set.users();
        return false;
    }));

    QCOMPARE(usersWhenAsked, 2);
    QCOMPARE(set.users(), 1);
    QVERIFY(!joiner.isValid());
    COMPARE_LOG(log);
}

void tst_SemaphoreRefusals::closedSetIsNotJoinedLater()
{
    const SemaphoreSet set(newKey());
    LogCapture log;
    LaterJoiner joiner(set.key(), join);
    const Semaphores maker(set.key(), attach);
    QVERIFY(set.setValue(Names::SemaphoreClosed, 1));
    bool isAsked = false;

    QVERIFY(!joiner.joinAgain(set.key(), [&isAsked] { return isAsked = true; }));

    QVERIFY(!isAsked);
    QVERIFY(!joiner.isValid());
    QCOMPARE(set.users(), 1);
    QVERIFY(set.setValue(Names::SemaphoreClosed, 0));
    COMPARE_LOG(log);
}

void tst_SemaphoreRefusals::lastUserButOneThatLeavesMeanwhileLeavesTheSetToGo()
{
    const SemaphoreSet set(newKey());
    auto first = std::make_unique<Semaphores>(set.key(), attach);
    auto second = std::make_unique<Semaphores>(set.key(), attach);
    LogCapture log;
    int operations = 0;
    refuse = [&](Call call) {
        // The second finds that it is not the last one, and the first leaves before it says so.
        if (call == Call::Operate && ++operations == 2) {
            first.reset();
        }
        return 0;
    };

    second.reset();

    refuse = nullptr;
    QVERIFY(!first);
    QCOMPARE(operations, 3);
    QVERIFY(!set.exists());
    COMPARE_LOG(log);
}

void tst_SemaphoreRefusals::userWhoseSetIsGoneEndsQuietly()
{
    const SemaphoreSet set(newKey());
    auto user = std::make_unique<Semaphores>(set.key(), attach);
    LogCapture log;
    QVERIFY(set.remove());
    int operations = 0;
    refuse = [&operations](Call call) {
        operations += call == Call::Operate ? 1 : 0;
        return 0;
    };

    user.reset();

    refuse = nullptr;
    QCOMPARE(operations, 1);
    COMPARE_LOG(log);
}

/// A zero would say that nobody has filled the set in.
void tst_SemaphoreRefusals::fingerprintHasNoZero()
{
    const QString stem = newKey();
    const auto fingerprint = [](const QString &text) {
        const QByteArray hash = QCryptographicHash::hash(text.toUtf8(), QCryptographicHash::Sha256);
        return static_cast<unsigned int>(static_cast<unsigned char>(hash[4]) << 8
                                         | static_cast<unsigned char>(hash[5]))
               & 0x7FFFU;
    };
    int number = 0;
    while (fingerprint(stem + QString::number(number)) != 0) {
        ++number;
    }
    const SemaphoreSet set(stem + QString::number(number));

    const Semaphores maker(set.key(), attach);

    QVERIFY(maker.isValid());
    QCOMPARE(set.value(Names::SemaphoreLease + 1), 1);
    const Semaphores second(set.key(), attach);
    QVERIFY(second.isValid());
    QCOMPARE(set.users(), 2);
}

QTEST_GUILESS_MAIN(tst_SemaphoreRefusals)
#include "tst_SemaphoreRefusals.moc"
