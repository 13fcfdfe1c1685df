#include "ProcessDataManagement/ProcessStart_p.h"
#include "support/ChildProcess.h"

#include <QtTest>

#include <grp.h>
#include <sys/stat.h>

// What /proc tells of a process, and who of them is taken for one that runs.

namespace {

constexpr uid_t somebody = 65534;

/// From here on /proc hides what links to the namespaces of others.
bool becomeSomebody()
{
    return geteuid() != 0
           || (setgroups(0, nullptr) == 0 && setresgid(somebody, somebody, somebody) == 0
               && setresuid(somebody, somebody, somebody) == 0);
}

bool showsNamespace(pid_t process)
{
    struct stat status = {};
    const QByteArray path = "/proc/" + QByteArray::number(process) + "/ns/pid";
    return stat(path.constData(), &status) == 0;
}

/// Where /proc is that of another namespace, the number of this process is somebody else's there, or nobody's.
bool isProcOfThisNamespace()
{
    const quint64 ticks = ProcessStart::own().ticks;
    return ticks != 0 && ProcessStart::of(getpid()).ticks == ticks;
}

} // namespace

class tst_ProcessStart : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void aForkedChildHasOneThread();
    void nobodyHasNothing();
    void whoRuns_data();
    void whoRuns();
    void namespaceOfAnotherUsersProcess();
};

void tst_ProcessStart::aForkedChildHasOneThread()
{
    ChildProcess child([](const ChildSide &) {
        const ProcessStart own = ProcessStart::own();
        CHILD_VERIFY(own.ticks != 0);
        CHILD_VERIFY(own.state == 'R');
        CHILD_VERIFY(own.threads == 1);
        CHILD_VERIFY(own.isRunning());
        return 0;
    });
    QCOMPARE(child.waitForExit(), 0);
}

void tst_ProcessStart::nobodyHasNothing()
{
    const ProcessStart nobody = ProcessStart::of(-1);
    QCOMPARE(nobody.ticks, quint64{0});
    QCOMPARE(nobody.state, '\0');
    QCOMPARE(nobody.threads, 0);
    QVERIFY(!nobody.isRunning());
    QVERIFY(!ProcessStart::isNamed(-1));
    QCOMPARE(ProcessStart::namespaceOf(-1), quint64{0});
    QCOMPARE(ProcessStart::ownPid(-1), 0);
}

void tst_ProcessStart::whoRuns_data()
{
    QTest::addColumn<quint64>("ticks");
    QTest::addColumn<char>("state");
    QTest::addColumn<int>("threads");
    QTest::addColumn<bool>("isRunning");

    QTest::newRow("asleep") << quint64{1} << 'S' << 1 << true;
    QTest::newRow("without a start") << quint64{0} << 'S' << 1 << false;
    QTest::newRow("ended, and nobody has waited for it") << quint64{1} << 'Z' << 1 << false;
    QTest::newRow("just going") << quint64{1} << 'X' << 1 << false;
    QTest::newRow("ended, but for one more thread") << quint64{1} << 'Z' << 2 << true;
    QTest::newRow("going, but for one more thread") << quint64{1} << 'X' << 2 << true;
    QTest::newRow("without a start, but with threads") << quint64{0} << 'Z' << 2 << false;
}

void tst_ProcessStart::whoRuns()
{
    QFETCH(quint64, ticks);
    QFETCH(char, state);
    QFETCH(int, threads);
    QFETCH(bool, isRunning);
    QCOMPARE((ProcessStart{ticks, state, threads}.isRunning()), isRunning);
}

/// Where /proc hides the namespace, its numbers tell: with one alone the process lives where /proc was mounted.
void tst_ProcessStart::namespaceOfAnotherUsersProcess()
{
    const pid_t parent = getpid();
    ChildProcess child([parent](const ChildSide &) {
        if (!becomeSomebody() || showsNamespace(parent) || !ProcessStart::isNamed(parent)
            || !isProcOfThisNamespace()) {
            return ChildProcess::sm_cannotTry;
        }
        CHILD_VERIFY(ProcessStart::ownNamespace() != 0);
        CHILD_VERIFY(ProcessStart::namespaceOf(parent) == ProcessStart::ownNamespace());
        return 0;
    });
    COMPARE_EXIT(child.waitForExit(), "the rights to become another user");
}

QTEST_GUILESS_MAIN(tst_ProcessStart)

#include "tst_ProcessStart.moc"
