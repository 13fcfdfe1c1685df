#include "ToolProcess.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

/// Programs called tessel-NAME are subcommands.
class tst_ToolOtherPrograms : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void takesTheRestOfTheLine();
    void endsAsTheProgramDoes();
    void standsInTheHelpAndTheCompletion();
    void doesNotReplaceASubcommand();
    void isSuggested();
    void whatCannotBeRunIsReported();
    void namesWithASlashAreNoPrograms();
    void inheritsNoIgnoredSignals();

private:
    /// Puts a shell script on the path.
    void install(const QString &name, const QByteArray &script) const;
    QStringList path() const
    {
        return {QStringLiteral("PATH=%1:/usr/bin:/bin").arg(m_folder.path())};
    }

    QTemporaryDir m_folder;
};

void tst_ToolOtherPrograms::install(const QString &name, const QByteArray &script) const
{
    QFile file(m_folder.filePath(name));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("#!/bin/sh\n" + script + "\n");
    file.close();
    QVERIFY(file.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
}

void tst_ToolOtherPrograms::takesTheRestOfTheLine()
{
    install(QStringLiteral("tessel-show"), "printf '<%s>' \"$@\"");

    const ToolResult result = runTool({QStringLiteral("show"), QStringLiteral("--help"),
                                       QStringLiteral("a b"), QString(), QStringLiteral("-5")},
                                      path());

    QCOMPARE(result.output, QStringLiteral("<--help><a b><><-5>"));
    QCOMPARE(result.error, QString());
}

void tst_ToolOtherPrograms::endsAsTheProgramDoes()
{
    install(QStringLiteral("tessel-end"), "exit 77");

    QCOMPARE(runTool({QStringLiteral("end")}, path()).exitCode, 77);
}

void tst_ToolOtherPrograms::standsInTheHelpAndTheCompletion()
{
    const QString without = runTool({QStringLiteral("--help")}, path()).output;
    install(QStringLiteral("tessel-own"), "true");
    QFile::setPermissions(m_folder.filePath(QStringLiteral("tessel-end")), QFile::ReadOwner);

    const QString help = runTool({QStringLiteral("--help")}, path()).output;
    const QString words =
        runTool({QStringLiteral("complete"), QStringLiteral("--"), QStringLiteral("ow")}, path())
            .output;

    QVERIFY(!without.contains(QStringLiteral("  own\n")));
    QVERIFY2(help.contains(QStringLiteral("\n\nSubcommands that are programs of their own:\n")),
             qPrintable(help));
    QVERIFY(help.contains(QStringLiteral("\n  own\n")));
    QVERIFY(!help.contains(QStringLiteral("  end\n"))); // cannot be run any more
    QCOMPARE(words, QStringLiteral("own\tA program of its own.\n"));
}

void tst_ToolOtherPrograms::doesNotReplaceASubcommand()
{
    install(QStringLiteral("tessel-get"), "echo another");

    QCOMPARE(runTool({QStringLiteral("get")}, path()).exitCode, 2);
}

void tst_ToolOtherPrograms::isSuggested()
{
    install(QStringLiteral("tessel-telegraph"), "true");

    const ToolResult result = runTool({QStringLiteral("telegrap")}, path());

    QCOMPARE(result.error,
             QStringLiteral("tessel: unknown subcommand 'telegrap' (did you mean 'telegraph'?); "
                            "see 'tessel --help'\n"));
    QCOMPARE(result.exitCode, 2);
}

void tst_ToolOtherPrograms::whatCannotBeRunIsReported()
{
    const QString program = m_folder.filePath(QStringLiteral("tessel-odd"));
    QFile file(program);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("#!/nowhere/interpreter\n");
    file.close();
    QVERIFY(file.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));

    const ToolResult result = runTool({QStringLiteral("odd")}, path());

    QCOMPARE(result.error,
             QStringLiteral("tessel: %1: cannot be run: No such file or directory\n").arg(program));
    QCOMPARE(result.exitCode, 4);
}

void tst_ToolOtherPrograms::namesWithASlashAreNoPrograms()
{
    QVERIFY(QDir(m_folder.path()).mkdir(QStringLiteral("tessel-x")));
    install(QStringLiteral("tessel-x/y"), "echo inside");

    QCOMPARE(runTool({QStringLiteral("x/y")}, path()).exitCode, 2);
}

void tst_ToolOtherPrograms::inheritsNoIgnoredSignals()
{
    install(QStringLiteral("tessel-signals"), "grep SigIgn /proc/self/status");

    const ToolResult result = runTool({QStringLiteral("signals")}, path());

    const quint64 ignored =
        result.output.section(QLatin1Char('\t'), 1).trimmed().toULongLong(nullptr, 16);
    constexpr quint64 brokenPipe = 1ULL << (13 - 1);
    constexpr quint64 fileTooLarge = 1ULL << (25 - 1);
    QVERIFY(result.output.startsWith(QStringLiteral("SigIgn")));
    QCOMPARE(ignored & (brokenPipe | fileTooLarge), 0ULL);
}

QTEST_GUILESS_MAIN(tst_ToolOtherPrograms)
#include "tst_ToolOtherPrograms.moc"
