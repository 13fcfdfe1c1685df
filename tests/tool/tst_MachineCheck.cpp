#include "Companion/SystemVSemaphoreBaseClass.h"
#include "checks/MachineCheck.h"

#include <QDir>
#include <QTemporaryDir>
#include <QtTest>

#include <pwd.h>
#include <sys/stat.h>

namespace {

/// A machine on which all is well and little is in use.
MachineFacts wellMachine()
{
    MachineFacts facts;
    facts.memory = Fill{1000, 1000000};
    facts.files = Fill{3, 1000};
    facts.semaphoreLimits = MachineFacts::SemaphoreLimits{250, 32000, 32, 128};
    facts.semaphores = SemaphoreTable();
    facts.removedIpc = RemovedIpc{true, QStringLiteral("/etc/systemd/logind.conf")};
    facts.hasSessions = true;
    facts.lastSystemUser = 999;
    return facts;
}

/// As the kernel lists so many sets.
SemaphoreTable tableOf(int sets, int semaphores)
{
    QByteArray text =
        "       key      semid perms      nsems   uid   gid  cuid  cgid  otime  ctime\n";
    for (int i = 0; i < sets; ++i) {
        text += QByteArray::number(i + 1) + " " + QByteArray::number(i) + " 666 "
                + QByteArray::number(semaphores) + " 0 0 0 0 1795362403 1795362403\n";
    }
    return SemaphoreTable::parse(text).value_or(SemaphoreTable());
}

QString textOf(const Finding &finding)
{
    const char *const levels[] = {"error", "warning", "unknown"};
    return QStringLiteral("%1 %2 %3: %4; %5")
        .arg(QLatin1String(levels[static_cast<int>(finding.level)]), finding.rule, finding.place,
             finding.text, finding.cure);
}

QStringList textsOf(const Findings &findings)
{
    QStringList texts;
    for (const auto &finding : findings) {
        texts.append(textOf(finding));
    }
    return texts;
}

QMap<uid_t, QStringList> ownedBy(uid_t user)
{
    return {{user, {QStringLiteral("tesselA"), QStringLiteral("tesselB")}}};
}

/// One that has no name on any machine.
constexpr uid_t nameless = 3999999;

} // namespace

/// What is said of the machine, by what was found out about it.
class tst_MachineCheck : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void roomIsNotFullBelowNineTenths();
    void memoryIsFullFromNineTenthsOn_data();
    void memoryIsFullFromNineTenthsOn();
    void namesAreFullFromNineTenthsOn();
    void memoryWithoutLimitIsNeverFull();
    void memoryThatIsReadOnlyIsAnError();
    void modeOfTheMemoryIsThatOfATemporaryFolder_data();
    void modeOfTheMemoryIsThatOfATemporaryFolder();
    void setsAreFullFromNineTenthsOn_data();
    void setsAreFullFromNineTenthsOn();
    void semaphoresAreFullFromNineTenthsOn();
    void limitsThatNoRegionFitsAreAnError();
    void whatCouldNotBeSeenIsUnknown();
    void removalOfAUsersRegionsIsAWarning();
    void removalIsNoneWhereNobodyRemoves_data();
    void removalIsNoneWhereNobodyRemoves();
    void removalThatCouldNotBeReadIsUnknown();
    void regionsOfAUserWhoStaysAreKept();
    void factsAreThoseOfTheFiles();
    void filesThatAreMissingLeaveFactsOpen();
    void tableIsRead();
    void otherTextIsNoTable_data();
    void otherTextIsNoTable();
};

void tst_MachineCheck::roomIsNotFullBelowNineTenths()
{
    MachineFacts facts = wellMachine();
    QCOMPARE(textsOf(findingsOf(facts)), QStringList());

    facts.memory = Fill{899999, 1000000};
    facts.files = Fill{899, 1000};
    facts.semaphoreLimits->sets = 10;
    facts.semaphores = tableOf(8, 9);

    QCOMPARE(textsOf(findingsOf(facts)), QStringList());
}

void tst_MachineCheck::memoryIsFullFromNineTenthsOn_data()
{
    QTest::addColumn<quint64>("taken");
    QTest::addColumn<QString>("begin");
    QTest::newRow("nine tenths") << quint64{900000}
                                 << QStringLiteral("warning shm-full /dev/shm: 900000 of 1000000 "
                                                   "(90 %) bytes are taken");
    QTest::newRow("nearly all") << quint64{999999}
                                << QStringLiteral("warning shm-full /dev/shm: 999999 of 1000000 "
                                                  "(99 %) bytes are taken");
    QTest::newRow("all") << quint64{1000000}
                         << QStringLiteral("error shm-full /dev/shm: 1000000 of 1000000 (100 %) "
                                           "bytes are taken");
}

void tst_MachineCheck::memoryIsFullFromNineTenthsOn()
{
    QFETCH(quint64, taken);
    QFETCH(QString, begin);
    MachineFacts facts = wellMachine();
    facts.memory->taken = taken;

    QCOMPARE(textsOf(findingsOf(facts)),
             QStringList{begin
                         + QStringLiteral(": new regions find no room; remove what nobody uses "
                                          "(tessel regions, tessel rm KEY), or: mount -o "
                                          "remount,size=2000000 /dev/shm")});
}

void tst_MachineCheck::namesAreFullFromNineTenthsOn()
{
    MachineFacts facts = wellMachine();
    facts.files->taken = 900;

    QCOMPARE(textsOf(findingsOf(facts)),
             QStringList{QStringLiteral("warning shm-full /dev/shm: 900 of 1000 (90 %) files are "
                                        "taken: new regions find no name; remove what nobody uses "
                                        "(tessel regions, tessel rm KEY), or: mount -o "
                                        "remount,nr_inodes=2000 /dev/shm")});
}

void tst_MachineCheck::memoryWithoutLimitIsNeverFull()
{
    MachineFacts facts = wellMachine();
    facts.memory = Fill{0, 0};
    facts.files = Fill{0, 0};

    QCOMPARE(textsOf(findingsOf(facts)), QStringList());
}

void tst_MachineCheck::memoryThatIsReadOnlyIsAnError()
{
    MachineFacts facts = wellMachine();
    facts.isMemoryReadOnly = true;

    QCOMPARE(textsOf(findingsOf(facts)),
             QStringList(QStringLiteral("error shm-read-only /dev/shm: it is mounted read-only: no "
                                        "region can be made; mount -o remount,rw /dev/shm")));
}

void tst_MachineCheck::modeOfTheMemoryIsThatOfATemporaryFolder_data()
{
    QTest::addColumn<uint>("mode");
    QTest::addColumn<QString>("text");
    const QString closed = QStringLiteral("it keeps users from making or reaching regions");
    QTest::newRow("usual") << 01777U << QString();
    QTest::newRow("with the group of the folder") << 03777U << QString();
    QTest::newRow("for its owner") << 0700U << QStringLiteral("700 in place of 1777: ") + closed;
    QTest::newRow("to be looked at")
        << 01755U << QStringLiteral("1755 in place of 1777: ") + closed;
    QTest::newRow("for nobody") << 0U << QStringLiteral("000 in place of 1777: ") + closed;
    QTest::newRow("to be cleared")
        << 0777U << QStringLiteral("777 in place of 1777: users can remove the regions of others");
}

void tst_MachineCheck::modeOfTheMemoryIsThatOfATemporaryFolder()
{
    QFETCH(uint, mode);
    QFETCH(QString, text);
    MachineFacts facts = wellMachine();
    facts.memoryMode = mode;

    const QString line = QStringLiteral("warning shm-mode /dev/shm: it has mode %1; chmod 1777 "
                                        "/dev/shm")
                             .arg(text);
    QCOMPARE(textsOf(findingsOf(facts)), text.isEmpty() ? QStringList() : QStringList(line));
}

void tst_MachineCheck::setsAreFullFromNineTenthsOn_data()
{
    QTest::addColumn<int>("sets");
    QTest::addColumn<QString>("begin");
    QTest::newRow("nine tenths") << 9
                                 << QStringLiteral(
                                        "warning semaphores-full kernel.sem: 9 of 10 (90 %)");
    QTest::newRow("all") << 10
                         << QStringLiteral("error semaphores-full kernel.sem: 10 of 10 (100 %)");
}

void tst_MachineCheck::setsAreFullFromNineTenthsOn()
{
    QFETCH(int, sets);
    QFETCH(QString, begin);
    MachineFacts facts = wellMachine();
    facts.semaphoreLimits->sets = 10;
    facts.semaphores = tableOf(sets, 9);

    QCOMPARE(textsOf(findingsOf(facts)),
             QStringList{begin
                         + QStringLiteral(" sets of semaphores are taken: new regions find none; "
                                          "sysctl -w kernel.sem='250 32000 32 20'")});
}

void tst_MachineCheck::semaphoresAreFullFromNineTenthsOn()
{
    MachineFacts facts = wellMachine();
    facts.semaphoreLimits->all = 100;
    facts.semaphores = tableOf(10, 9);

    QCOMPARE(textsOf(findingsOf(facts)),
             QStringList{QStringLiteral("warning semaphores-full kernel.sem: 90 of 100 (90 %) "
                                        "semaphores are taken: new regions find none; sysctl -w "
                                        "kernel.sem='250 200 32 128'")});
}

void tst_MachineCheck::limitsThatNoRegionFitsAreAnError()
{
    MachineFacts facts = wellMachine();
    facts.semaphoreLimits->perSet = 8;
    facts.semaphoreLimits->operations = 5;

    QCOMPARE(textsOf(findingsOf(facts)),
             QStringList{QStringLiteral("error semaphores-small kernel.sem: it allows 8 semaphores "
                                        "a set and 5 operations a call; a region needs 9 and 5; "
                                        "sysctl -w kernel.sem='9 32000 5 128'")});
    facts.semaphoreLimits->perSet = 9;
    QCOMPARE(textsOf(findingsOf(facts)), QStringList());
    facts.semaphoreLimits->operations = 4;
    QCOMPARE(findingsOf(facts).size(), 1);
}

void tst_MachineCheck::whatCouldNotBeSeenIsUnknown()
{
    MachineFacts facts = wellMachine();
    facts.memory.reset();
    facts.semaphoreLimits.reset();

    QCOMPARE(textsOf(findingsOf(facts)),
             (QStringList{QStringLiteral("unknown shm-unseen /dev/shm: how full it is could not be "
                                         "seen; mount a tmpfs there"),
                          QStringLiteral("unknown semaphores-unseen kernel.sem: how many "
                                         "semaphores there are and may be could not be seen; look "
                                         "at ipcs -s -u and ipcs -s -l")}));
    facts = wellMachine();
    facts.semaphores.reset();
    QCOMPARE(findingsOf(facts).size(), 1);
}

void tst_MachineCheck::removalOfAUsersRegionsIsAWarning()
{
    const QStringList expected{
        QStringLiteral("warning remove-ipc /etc/systemd/logind.conf: RemoveIPC is on: when the "
                       "last session of user 3999999 ends, these regions and their semaphores are "
                       "removed: tesselA, tesselB; run it as a system user, or set RemoveIPC=no in "
                       "[Login], or: loginctl enable-linger 3999999")};

    QCOMPARE(textsOf(removalFindings(wellMachine(), ownedBy(nameless))), expected);
}

void tst_MachineCheck::removalIsNoneWhereNobodyRemoves_data()
{
    QTest::addColumn<uint>("user");
    QTest::addColumn<bool>("isOn");
    QTest::addColumn<bool>("hasSessions");
    QTest::newRow("root") << 0U << true << true;
    QTest::newRow("last system user") << 999U << true << true;
    QTest::newRow("switched off") << nameless << false << true;
    QTest::newRow("nobody looks after sessions") << nameless << true << false;
}

void tst_MachineCheck::removalIsNoneWhereNobodyRemoves()
{
    QFETCH(uint, user);
    QFETCH(bool, isOn);
    QFETCH(bool, hasSessions);
    MachineFacts facts = wellMachine();
    facts.removedIpc->isOn = isOn;
    facts.hasSessions = hasSessions;

    QCOMPARE(textsOf(removalFindings(facts, ownedBy(user))), QStringList());
}

void tst_MachineCheck::removalThatCouldNotBeReadIsUnknown()
{
    MachineFacts facts = wellMachine();
    facts.removedIpc.reset();

    QCOMPARE(textsOf(removalFindings(facts, ownedBy(nameless))),
             QStringList{QStringLiteral("unknown remove-ipc RemoveIPC: whether the regions of user "
                                        "3999999 go with his last session could not be read: "
                                        "tesselA, tesselB; look as root")});
}

void tst_MachineCheck::regionsOfAUserWhoStaysAreKept()
{
    const passwd *const nobody = ::getpwnam("nobody");
    if (nobody == nullptr) {
        QSKIP("There is no user but root");
    }
    const QTemporaryDir root;
    const QString folder = root.path() + QStringLiteral("/var/lib/systemd/linger");
    QVERIFY(QDir().mkpath(folder));
    const auto found = [&] {
        return removalFindings(wellMachine(), ownedBy(nobody->pw_uid), root.path()).size();
    };
    QCOMPARE(found(), 1);
    // The folder is there for a user without a name as well.
    QCOMPARE(removalFindings(wellMachine(), ownedBy(nameless), root.path()).size(), 1);

    QFile mark(folder + QStringLiteral("/nobody"));
    QVERIFY(mark.open(QIODevice::WriteOnly));

    QCOMPARE(found(), 0);
}

void tst_MachineCheck::factsAreThoseOfTheFiles()
{
    const QTemporaryDir root;
    const auto write = [&root](const QString &name, const QByteArray &text) {
        QFile file(root.path() + name);
        return QDir().mkpath(QFileInfo(file).path()) && file.open(QIODevice::WriteOnly)
               && file.write(text) == text.size();
    };
    QVERIFY(write(QStringLiteral("/proc/sys/kernel/sem"), "250\t32000\t32\t128\n"));
    QVERIFY(
        write(QStringLiteral("/proc/sysvipc/sem"), " key semid perms nsems uid\n-5 7 600 3 8\n"));
    QVERIFY(write(QStringLiteral("/etc/systemd/logind.conf"), "[Login]\nRemoveIPC=no\n"));
    QVERIFY(write(QStringLiteral("/etc/login.defs"), "SYS_UID_MAX 499\n"));
    QVERIFY(QDir().mkpath(root.path() + QStringLiteral("/run/systemd/users")));
    QVERIFY(!MachineFacts::of(root.path()).hasSessions);
    QVERIFY(QDir().mkpath(root.path() + QStringLiteral("/run/systemd/system")));
    QVERIFY(QDir().mkpath(root.path() + QStringLiteral("/dev/shm")));
    QCOMPARE(chmod(QFile::encodeName(root.path() + QStringLiteral("/dev/shm")).constData(), 01750),
             0);

    const MachineFacts facts = MachineFacts::of(root.path());

    QVERIFY(facts.memory && facts.memory->most > 0 && facts.memory->taken <= facts.memory->most);
    QVERIFY(facts.files);
    QVERIFY(!facts.isMemoryReadOnly);
    QCOMPARE(facts.memoryMode, std::optional<mode_t>(01750));
    QCOMPARE(facts.semaphoreLimits->perSet, 250);
    QCOMPARE(facts.semaphoreLimits->all, 32000);
    QCOMPARE(facts.semaphoreLimits->operations, 32);
    QCOMPARE(facts.semaphoreLimits->sets, 128);
    QCOMPARE(facts.semaphores->sets().size(), 1);
    QVERIFY(facts.hasSessions);
    QCOMPARE(facts.removedIpc->isOn, false);
    QCOMPARE(facts.lastSystemUser, 499U);
}

void tst_MachineCheck::filesThatAreMissingLeaveFactsOpen()
{
    const QTemporaryDir root;

    const MachineFacts facts = MachineFacts::of(root.path());

    QVERIFY(!facts.memory && !facts.files && !facts.semaphoreLimits && !facts.semaphores);
    QVERIFY(!facts.isMemoryReadOnly && !facts.memoryMode);
    QVERIFY(!facts.hasSessions);
}

void tst_MachineCheck::tableIsRead()
{
    const QString memoryKey = QStringLiteral("tesselTank");
    const key_t key = SystemVSemaphoreBaseClass::systemVKey(QStringLiteral("tesselTankSemaphore"));
    const QByteArray text =
        "       key      semid perms      nsems   uid   gid  cuid  cgid      otime      ctime\n"
        "         0          4   600          1  1000     0     0     0          0 1795362403\n"
        + QByteArray::number(key) + " 1391263752   666          9     7     0     0     0 0 0\n";

    const auto table = SemaphoreTable::parse(text);

    QVERIFY(table);
    QCOMPARE(table->sets().size(), 2);
    QCOMPARE(table->count(), 10);
    QCOMPARE(table->sets()[0].mode, 0600);
    QCOMPARE(table->sets()[0].owner, 1000U);
    const auto *const set = table->setOf(memoryKey);
    QVERIFY(set != nullptr);
    QCOMPARE(set->id, 1391263752);
    QCOMPARE(set->count, 9);
    QCOMPARE(table->setOf(QStringLiteral("tesselOther")), nullptr);
}

void tst_MachineCheck::otherTextIsNoTable_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::newRow("nothing") << QByteArray();
    QTest::newRow("no title") << QByteArray("0 4 600 1 0\n");
    QTest::newRow("no number") << QByteArray("key semid perms nsems uid\n0 4 600 many 0\n");
    QTest::newRow("too few fields") << QByteArray("key semid perms nsems uid\n0 4 600\n");
}

void tst_MachineCheck::otherTextIsNoTable()
{
    QFETCH(QByteArray, text);

    QVERIFY(!SemaphoreTable::parse(text));
}

QTEST_GUILESS_MAIN(tst_MachineCheck)
#include "tst_MachineCheck.moc"
