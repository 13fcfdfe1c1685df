#include "DoctoredPlant.h"
#include "Inspection/RegionUsers.h"
#include "support/ChildProcess.h"

#include <QtTest>

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>

namespace {

/// Whether this process alone gets an empty /dev/shm and no semaphores.
bool becomeAlone()
{
    return ::unshare(CLONE_NEWNS | CLONE_NEWIPC) == 0
           && ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0
           && ::mount("none", "/dev/shm", "tmpfs", 0, "size=1m") == 0;
}

bool isFault(const QJsonValue &finding)
{
    return finding.toObject().value(QStringLiteral("level")) != QStringLiteral("unknown");
}

/// The tool with @p output as its standard output. Comes back when it runs.
pid_t startDoctor(int output)
{
    int closedByExec[2] = {-1, -1};
    if (::pipe2(closedByExec, O_CLOEXEC) != 0) {
        return -1;
    }
    const pid_t child = ::fork();
    if (child == 0) {
        ::dup2(output, STDOUT_FILENO);
        // Whoever runs the tests in the background may have them ignore it.
        std::signal(SIGINT, SIG_DFL);
        ::execl(TESSEL_TOOL, TESSEL_TOOL, "doctor", "--json", nullptr);
        ::_exit(127);
    }
    ::close(closedByExec[1]);
    char byte = 0;
    while (::read(closedByExec[0], &byte, 1) < 0 && errno == EINTR) { }
    ::close(closedByExec[0]);
    return child;
}

} // namespace

/// How `tessel doctor` is called, what it prints and how it ends.
class tst_ToolDoctorUse : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void emptyMachineIsWell();
    void somethingWrongIsExitCodeOne();
    void lineHasLevelRulePlaceTextAndCure();
    void objectHasTheDocumentedKeys();
    void worstComesFirst();
    void severalDescriptionsAreLookedOver();
    void folderIsLookedOver();
    void environmentNamesTheDescription();
    void wrongUse_data();
    void wrongUse();
    void closedPipeLeavesTheAnswer();
    void fullOutputIsAFailure();
    void interruptEndsIt();
};

void tst_ToolDoctorUse::emptyMachineIsWell()
{
    ChildProcess child([](const ChildSide &) {
        if (!becomeAlone()) {
            return ChildProcess::sm_cannotTry;
        }
        const ToolResult result = doctor({});
        CHILD_VERIFY(result.exitCode == 0 && result.error.isEmpty());
        const QString expected = RegionUsers().isComplete()
                                     ? QStringLiteral("all is well\n")
                                     : QStringLiteral("unknown processes-hidden processes: not all "
                                                      "processes could be looked at: others may "
                                                      "have regions that were replaced, or another "
                                                      "layout; cure: look as root, outside of "
                                                      "containers\n"
                                                      "nothing wrong was found in what could be "
                                                      "looked at\n");
        if (result.output != expected) {
            std::fprintf(stderr, "%s", qPrintable(result.output));
        }
        CHILD_VERIFY(result.output == expected);
        return 0;
    });

    COMPARE_EXIT(child.waitForExit(), "the right to mount a /dev/shm of its own");
}

void tst_ToolDoctorUse::somethingWrongIsExitCodeOne()
{
    DoctoredPlant plant;

    QCOMPARE(doctor({plant.file}).exitCode, 1);
    QCOMPARE(doctor({QStringLiteral("--json"), plant.file}).exitCode, 1);

    // What the machine has is told as well.
    RunningTool hold(RunningTool::hold(plant.file));
    QVERIFY(hold.isReady());
    const QJsonArray all = allFindings({plant.file});
    const bool isMachineWell = std::none_of(all.begin(), all.end(), isFault);
    QCOMPARE(doctor({plant.file}).exitCode, isMachineWell ? 0 : 1);
    QCOMPARE(hold.end(), 0);
}

void tst_ToolDoctorUse::lineHasLevelRulePlaceTextAndCure()
{
    const DoctoredPlant plant;

    const ToolResult result = doctor({plant.file});

    QCOMPARE(result.error, QString());
    QCOMPARE(result.output.section(QLatin1Char('\n'), 0, 0),
             QStringLiteral("error no-region %1: there is no region '%1': the process that creates "
                            "it does not run, or has another description; cure: start its creator")
                 .arg(plant.key()));
}

void tst_ToolDoctorUse::objectHasTheDocumentedKeys()
{
    const DoctoredPlant plant;
    const qint64 creator = plant.leaveRegion();
    QVERIFY(creator > 0);

    QCOMPARE(
        allFindings({plant.file}).first().toObject(),
        (QJsonObject{{QStringLiteral("level"), QStringLiteral("error")},
                     {QStringLiteral("rule"), QStringLiteral("creator-dead")},
                     {QStringLiteral("key"), plant.key()},
                     {QStringLiteral("place"), plant.key()},
                     {QStringLiteral("pid"), creator},
                     {QStringLiteral("text"), QStringLiteral("the creator, process %1, has ended "
                                                             "without removing the region")
                                                  .arg(creator)},
                     {QStringLiteral("cure"),
                      QStringLiteral("start it again; if it is not needed any more: tessel rm %1")
                          .arg(plant.key())}}));
}

void tst_ToolDoctorUse::worstComesFirst()
{
    // A warning of the first, and an error of the second.
    DoctoredPlant mode;
    const DoctoredPlant missing;
    RunningTool hold(RunningTool::hold(mode.file));
    QVERIFY(hold.isReady());
    QVERIFY(QFile::setPermissions(mode.segment().path(), QFile::ReadOwner | QFile::WriteOwner));

    const QJsonArray all = allFindings({mode.file, missing.file});

    const QStringList order{QStringLiteral("error"), QStringLiteral("warning"),
                            QStringLiteral("unknown")};
    QVector<int> levels;
    QStringList rules;
    for (const auto &finding : all) {
        const QJsonObject object = finding.toObject();
        levels.append(order.indexOf(object.value(QStringLiteral("level")).toString()));
        if (!object.value(QStringLiteral("key")).isNull()) {
            rules.append(object.value(QStringLiteral("rule")).toString());
        }
    }
    QVERIFY(std::is_sorted(levels.cbegin(), levels.cend()));
    QVERIFY(!levels.contains(-1));
    QCOMPARE(rules, (QStringList{QStringLiteral("no-region"), QStringLiteral("mode")}));
    QCOMPARE(hold.end(), 0);
}

void tst_ToolDoctorUse::severalDescriptionsAreLookedOver()
{
    const DoctoredPlant one;
    const DoctoredPlant other;
    const DoctoredPlant unnamed;
    QVERIFY(unnamed.leaveRegion() > 0);
    const QStringList files{one.file, other.file};

    QCOMPARE(faultsOf(one.key(), files).size(), 1);
    QCOMPARE(faultsOf(other.key(), files).size(), 1);
    QCOMPARE(faultsOf(unnamed.key(), files), QStringList());
}

void tst_ToolDoctorUse::folderIsLookedOver()
{
    const DoctoredPlant plant;

    const QStringList found = faultsOf(plant.key(), {QFileInfo(plant.file).path()});

    QCOMPARE(found.size(), 1);
    QVERIFY(found[0].startsWith(QStringLiteral("error no-region: ")));
}

void tst_ToolDoctorUse::environmentNamesTheDescription()
{
    const DoctoredPlant plant;

    const ToolResult result = doctor({}, {QStringLiteral("TESSEL_DIR=") + plant.file});

    QVERIFY(result.output.startsWith(QStringLiteral("error no-region %1: ").arg(plant.key())));
    QCOMPARE(result.exitCode, 1);
}

void tst_ToolDoctorUse::wrongUse_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("error");
    QTest::newRow("option") << QStringList{QStringLiteral("--jsn")} << 2
                            << QStringLiteral("tessel: doctor: unknown option '--jsn' (did you "
                                              "mean '--json'?); see 'tessel doctor --help'\n");
    QTest::newRow("file") << QStringList{QStringLiteral("nowhere/plant.process.json")} << 3
                          << QStringLiteral("tessel: nowhere/plant.process.json: no such file\n");
    QTest::newRow("no description") << QStringList{QStringLiteral("/dev/null")} << 9 << QString();
}

void tst_ToolDoctorUse::wrongUse()
{
    QFETCH(QStringList, arguments);
    QFETCH(int, exitCode);
    QFETCH(QString, error);

    const ToolResult result = doctor(arguments);

    QCOMPARE(result.output, QString());
    if (error.isEmpty()) {
        QVERIFY(result.error.startsWith(QStringLiteral("tessel: /dev/null: ")));
    } else {
        QCOMPARE(result.error, error);
    }
    QCOMPARE(result.exitCode, exitCode);
}

void tst_ToolDoctorUse::closedPipeLeavesTheAnswer()
{
    const DoctoredPlant plant;

    for (const QStringList &options : {QStringList(), QStringList(QStringLiteral("--json"))}) {
        QCOMPARE(exitCodeWithoutReader(QStringList(QStringLiteral("doctor")) + options
                                       + QStringList(plant.file)),
                 1);
    }
}

void tst_ToolDoctorUse::fullOutputIsAFailure()
{
    const DoctoredPlant plant;
    QProcess shell;
    shell.start(QStringLiteral("/bin/sh"),
                {QStringLiteral("-c"), QStringLiteral("exec \"$0\" doctor \"$1\" >/dev/full"),
                 QStringLiteral(TESSEL_TOOL), plant.file});
    QVERIFY(shell.waitForFinished(60000));

    QCOMPARE(QString::fromUtf8(shell.readAllStandardError()),
             QStringLiteral("tessel: standard output: No space left on device\n"));
    QCOMPARE(shell.exitCode(), 9);
}

/// It waits for somebody who reads, so that it cannot have ended before.
void tst_ToolDoctorUse::interruptEndsIt()
{
    int ends[2] = {-1, -1};
    QCOMPARE(::pipe2(ends, O_NONBLOCK | O_CLOEXEC), 0);
    const char byte = 0;
    while (::write(ends[1], &byte, 1) == 1) { }
    QCOMPARE(::fcntl(ends[1], F_SETFL, 0), 0);
    const pid_t child = startDoctor(ends[1]);

    ::kill(child, SIGINT);

    int status = 0;
    QCOMPARE(::waitpid(child, &status, 0), child);
    QVERIFY(WIFSIGNALED(status));
    QCOMPARE(WTERMSIG(status), SIGINT);
    ::close(ends[0]);
    ::close(ends[1]);
}

QTEST_GUILESS_MAIN(tst_ToolDoctorUse)
#include "tst_ToolDoctorUse.moc"
