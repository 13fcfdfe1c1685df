#include "ToolProcess.h"
#include "support/SegmentFile.h"

#include <QtTest>

namespace {

/// Exit code of a shell that could not try what it was there for.
constexpr int cannotTry = 77;

/// The tool below a shell that sets the scene by @p script and then replaces itself with `"$0" "$@"`.
ToolResult runBelowShell(const QString &script, const QStringList &arguments)
{
    QProcess shell;
    shell.start(QStringLiteral("/bin/sh"),
                QStringList{QStringLiteral("-c"), script, QStringLiteral(TESSEL_TOOL)} + arguments);
    if (!shell.waitForFinished(60 * 1000)) {
        qFatal("The shell does not end");
    }
    return {shell.exitCode(), QString::fromUtf8(shell.readAllStandardOutput()),
            QString::fromUtf8(shell.readAllStandardError())};
}

/// As somebody else than root, where @p scene was set for the tool alone.
QString asSomebody(const QString &scene)
{
    return QStringLiteral(
               "unshare --mount setpriv --version >/dev/null 2>&1 || exit 77\n"
               "exec unshare --mount /bin/sh -c '%1 || exit 77\n"
               "set -- setpriv --reuid=65534 --regid=65534 --clear-groups \"$0\" \"$@\"\n"
               "\"$1\" \"$2\" \"$3\" \"$4\" \"$5\" --version >/dev/null 2>&1 || exit 77\n"
               "exec \"$@\"' \"$0\" \"$@\"")
        .arg(scene);
}

} // namespace

/// `tessel regions` where it cannot look for them.
class tst_ToolRegionsRefused : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void fewDescriptorsGiveNoFalseList_data() { outputs(); }
    void fewDescriptorsGiveNoFalseList();
    void folderThatMayNotBeReadIsTold_data() { outputs(); }
    void folderThatMayNotBeReadIsTold();
    void missingFolderIsTold_data() { outputs(); }
    void missingFolderIsTold();
    void emptyFolderIsNoFailure();
    void fullOutputIsAFailure_data() { outputs(); }
    void fullOutputIsAFailure();

private:
    static void outputs()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::newRow("table") << QStringList{QStringLiteral("regions")};
        QTest::newRow("json") << QStringList{QStringLiteral("regions"), QStringLiteral("--json")};
    }
};

/// How many the loader and the toolkit take is their own affair.
void tst_ToolRegionsRefused::fewDescriptorsGiveNoFalseList()
{
    QFETCH(QStringList, arguments);
    if (qstrlen(TESSEL_SANITIZE) > 0) {
        QSKIP("needs all descriptors, and the sanitizers take some to look at memory", );
    }
    const QString key = SemaphoreSet::uniqueKey(QStringLiteral("few"));
    const SegmentFile segment(key + QStringLiteral("SharedMemory"));
    QVERIFY(segment.make("seven b"));
    constexpr int fewest = 4;
    constexpr int enough = 32;
    int refused = 0;
    ToolResult result{0, {}, {}};
    for (int limit = fewest; limit <= enough && (limit == fewest || result.exitCode != 0);
         ++limit) {
        result = runBelowShell(QStringLiteral("ulimit -n %1; exec \"$0\" \"$@\"").arg(limit),
                               arguments);
        if (result.exitCode == 4) {
            ++refused;
            QCOMPARE(result.output, QString());
            QCOMPARE(result.error,
                     QStringLiteral("tessel: cannot look for regions in /dev/shm: Too many open "
                                    "files; allow more of them with 'ulimit -n'\n"));
        }
    }

    QVERIFY(refused > 0);
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.error, QString());
    QVERIFY2(result.output.contains(key), qPrintable(result.output));
}

void tst_ToolRegionsRefused::folderThatMayNotBeReadIsTold()
{
    QFETCH(QStringList, arguments);

    const ToolResult result = runBelowShell(
        asSomebody(QStringLiteral("mount -t tmpfs -o mode=0311 tmpfs /dev/shm")), arguments);
    if (result.exitCode == cannotTry) {
        QSKIP("needs the right to mount a folder and to become somebody else", );
    }

    QCOMPARE(result.error,
             QStringLiteral("tessel: cannot look for regions in /dev/shm: Permission denied; run "
                            "it as a user who may read that folder\n"));
    QCOMPARE(result.exitCode, 4);
    QCOMPARE(result.output, QString());
}

void tst_ToolRegionsRefused::missingFolderIsTold()
{
    QFETCH(QStringList, arguments);

    // A /dev without it.
    const ToolResult result = runBelowShell(
        asSomebody(QStringLiteral("mount -t tmpfs -o mode=0755 tmpfs /dev 2>&1 && "
                                  "mknod -m 666 /dev/null c 1 3 2>&1")),
        arguments);
    if (result.exitCode == cannotTry) {
        QSKIP("needs the right to mount a folder and to become somebody else", );
    }

    QCOMPARE(result.error,
             QStringLiteral("tessel: cannot look for regions in /dev/shm: No such file or "
                            "directory; mount a tmpfs there\n"));
    QCOMPARE(result.exitCode, 4);
    QCOMPARE(result.output, QString());
}

void tst_ToolRegionsRefused::emptyFolderIsNoFailure()
{
    const ToolResult result = runBelowShell(
        asSomebody(QStringLiteral("mount -t tmpfs -o mode=1777 tmpfs /dev/shm")),
        {QStringLiteral("regions"), QStringLiteral("--json")});
    if (result.exitCode == cannotTry) {
        QSKIP("needs the right to mount a folder and to become somebody else", );
    }

    QCOMPARE(result.error, QString());
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.output, QStringLiteral("[]\n"));
}

void tst_ToolRegionsRefused::fullOutputIsAFailure()
{
    QFETCH(QStringList, arguments);

    const ToolResult result = runBelowShell(QStringLiteral("exec \"$0\" \"$@\" >/dev/full"),
                                            arguments);

    QCOMPARE(result.exitCode, 9);
    QCOMPARE(result.error, QStringLiteral("tessel: standard output: No space left on device\n"));
}

QTEST_GUILESS_MAIN(tst_ToolRegionsRefused)
#include "tst_ToolRegionsRefused.moc"
