#include "support/LogCapture.h"
#include "support/SemaphoreRefusals.h"
#include "support/SemaphoreSet.h"

#include <QCryptographicHash>
#include <QtTest>

#include <cerrno>
#include <cstring>
#include <memory>
#include <utility>
#include <vector>

namespace {

using namespace SemaphoreRefusals;
using Semaphores = SystemVSemaphoreBaseClass;
using Names = SemaphoreSet::Names;

constexpr auto create = Semaphores::CreationTypeCreate;
constexpr auto attach = Semaphores::CreationTypeAttach;

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

} // namespace

/// What makes and opens sets, and leaves them again, while others come between and the system refuses calls.
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
    void lastUserButOneThatLeavesMeanwhileLeavesTheSetToGo();
    void userWhoseSetIsGoneEndsQuietly();
    void fingerprintHasNoZero();
    void init() { forget(); }
    void cleanup() { refuse = nullptr; }
};

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
