#include "Companion/Exchange/ShortWait_p.h"
#include "support/ChildProcess.h"

#include <QtTest>

#include <dlfcn.h>
#include <unistd.h>

namespace {

using Nanoseconds = ShortWait::Nanoseconds;

/// What the system is said to have; 0 leaves it to the system.
long processors = 0;

int looksOf(ShortWait &wait)
{
    int count = 0;
    while (wait.passOn()) {
        ++count;
    }
    return count;
}

} // namespace

extern "C" Q_DECL_EXPORT long sysconf(int name) noexcept
{
    static const auto original = reinterpret_cast<long (*)(int)>(dlsym(RTLD_NEXT, "sysconf"));
    return name == _SC_NPROCESSORS_ONLN && processors != 0 ? processors : original(name);
}

/// How often somebody looks, and how long, before it is time to sleep.
class tst_ShortWait : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void oneProcessorIsNotWaitedOn();
    void pausesDoubleUpToTheLongest_data();
    void pausesDoubleUpToTheLongest();
    void timeIsPassed();
};

/// In a process of its own, as the number is asked for once. So it has to be the first one.
void tst_ShortWait::oneProcessorIsNotWaitedOn()
{
    ChildProcess child([](const ChildSide &) {
        processors = 1;
        ShortWait wait(Nanoseconds(1), Nanoseconds(1), Nanoseconds(1000));
        CHILD_VERIFY(!wait.passOn());
        return 0;
    });

    QCOMPARE(child.waitForExit(), 0);
}

void tst_ShortWait::pausesDoubleUpToTheLongest_data()
{
    QTest::addColumn<int>("shortest");
    QTest::addColumn<int>("longest");
    QTest::addColumn<int>("bound");
    QTest::addColumn<int>("looks");

    QTest::newRow("no time") << 10 << 10 << 9 << 0;
    QTest::newRow("one look") << 10 << 10 << 10 << 1;
    QTest::newRow("all alike") << 10 << 10 << 109 << 10;
    QTest::newRow("doubling") << 10 << 1000 << 70 << 3;
    QTest::newRow("not doubled once more") << 10 << 1000 << 149 << 3;
    QTest::newRow("up to the longest") << 10 << 20 << 110 << 6;
}

void tst_ShortWait::pausesDoubleUpToTheLongest()
{
    QFETCH(int, shortest);
    QFETCH(int, longest);
    QFETCH(int, bound);
    QFETCH(int, looks);
    processors = 2;
    ShortWait wait{Nanoseconds(shortest), Nanoseconds(longest), Nanoseconds(bound)};

    QCOMPARE(looksOf(wait), looks);
    QVERIFY(!wait.passOn());
}

void tst_ShortWait::timeIsPassed()
{
    processors = 2;
    ShortWait wait(Nanoseconds(1000), Nanoseconds(4000), Nanoseconds(15000));
    const auto begin = std::chrono::steady_clock::now();

    QCOMPARE(looksOf(wait), 5);

    QVERIFY(std::chrono::steady_clock::now() - begin >= Nanoseconds(15000));
}

QTEST_GUILESS_MAIN(tst_ShortWait)
#include "tst_ShortWait.moc"
