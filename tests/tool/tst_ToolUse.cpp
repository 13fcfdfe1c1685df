#include "ToolProcess.h"

#include <QtTest>

namespace {

const QStringList subcommands{QStringLiteral("info"),  QStringLiteral("hold"),
                              QStringLiteral("get"),   QStringLiteral("set"),
                              QStringLiteral("watch"), QStringLiteral("wait")};

} // namespace

/// What the tool says about itself, and how it answers a command line that makes no sense.
class tst_ToolUse : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void versionsAreALineEach();
    void helpNamesEverySubcommandAndExitCode();
    void everySubcommandHasHelpWithExamples_data();
    void everySubcommandHasHelpWithExamples();
    void helpHasItsTextsInOneColumn_data();
    void helpHasItsTextsInOneColumn();
    void subcommandWithoutArgumentsHasHelpWithoutThem();
    void helpNeedsNoOtherArgument();
    void wrongUseIsOneLineWithExitCode2_data();
    void wrongUseIsOneLineWithExitCode2();
    void verboseIsTakenBeforeAndBehindTheSubcommand();
};

void tst_ToolUse::versionsAreALineEach()
{
    const ToolResult result = runTool({QStringLiteral("--version")});

    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.output, QStringLiteral("tessel " TESSEL_VERSION "\n"
                                           "Qt %1\n"
                                           "description format 1\n"
                                           "memory format 2\n")
                                .arg(QLatin1String(qVersion())));
    QCOMPARE(result.error, QString());
}

void tst_ToolUse::helpNamesEverySubcommandAndExitCode()
{
    const ToolResult result = runTool({QStringLiteral("--help")});

    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.error, QString());
    for (const auto &subcommand : subcommands) {
        QVERIFY2(result.output.contains(QStringLiteral("\n  %1 ").arg(subcommand)),
                 qPrintable(subcommand));
    }
    for (int code = 0; code <= 10; ++code) {
        QVERIFY2(
            result.output.contains(QRegularExpression(QStringLiteral("\\s%1 [a-zU]").arg(code))),
            qPrintable(QString::number(code)));
    }
}

void tst_ToolUse::everySubcommandHasHelpWithExamples_data()
{
    QTest::addColumn<QString>("subcommand");
    for (const auto &subcommand : subcommands) {
        QTest::newRow(qPrintable(subcommand)) << subcommand;
    }
}

void tst_ToolUse::everySubcommandHasHelpWithExamples()
{
    QFETCH(QString, subcommand);

    const ToolResult result = runTool({subcommand, QStringLiteral("--help")});

    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.error, QString());
    QVERIFY(result.output.startsWith(
        QStringLiteral("Usage: tessel %1 [OPTION...] FILE").arg(subcommand)));
    QVERIFY(result.output.contains(QStringLiteral("\nExamples:\n  tessel %1 ").arg(subcommand)));
    QVERIFY(result.output.contains(QStringLiteral("-v, --verbose")));
    const auto lines = result.output.split(QLatin1Char('\n'));
    for (const auto &line : lines) {
        QVERIFY2(line.size() <= 100, qPrintable(line));
    }
}

void tst_ToolUse::helpHasItsTextsInOneColumn_data()
{
    QTest::addColumn<QString>("subcommand");
    const QString all = runTool({QStringLiteral("--help")}).output;
    const QString listed =
        all.section(QStringLiteral("\nSubcommands:\n"), 1).section(QStringLiteral("\n\n"), 0, 0);
    for (const auto &line : listed.split(QLatin1Char('\n'))) {
        const QString subcommand = line.trimmed().section(QLatin1Char(' '), 0, 0);
        QTest::newRow(qPrintable(subcommand)) << subcommand;
    }
}

void tst_ToolUse::helpHasItsTextsInOneColumn()
{
    QFETCH(QString, subcommand);
    const QString help = runTool({subcommand, QStringLiteral("--help")}).output;
    const QRegularExpression line(QStringLiteral("^  ((?:\\S| (?! ))+ +)\\S"),
                                  QRegularExpression::MultilineOption);
    QSet<int> widths;

    auto matches = line.globalMatch(help.section(QStringLiteral("\nExamples:\n"), 0, 0));
    while (matches.hasNext()) {
        widths.insert(matches.next().capturedLength(1));
    }

    QCOMPARE(widths.size(), 1);
    QVERIFY(*widths.cbegin() >= 20);
}

void tst_ToolUse::subcommandWithoutArgumentsHasHelpWithoutThem()
{
    const ToolResult result = runTool({QStringLiteral("regions"), QStringLiteral("--help")});

    QCOMPARE(result.exitCode, 0);
    QVERIFY(result.output.startsWith(QStringLiteral("Usage: tessel regions [OPTION...]\n")));
    QVERIFY(!result.output.contains(QStringLiteral("Arguments:")));
    QVERIFY(result.output.contains(QStringLiteral("\nExamples:\n  tessel regions ")));
}

void tst_ToolUse::helpNeedsNoOtherArgument()
{
    QCOMPARE(runTool({QStringLiteral("set"), QStringLiteral("-h")}).exitCode, 0);
}

void tst_ToolUse::wrongUseIsOneLineWithExitCode2_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("line");
    const QString see = QStringLiteral("; see 'tessel --help'");
    QTest::newRow("nothing") << QStringList() << QStringLiteral("no subcommand") + see;
    QTest::newRow("typo") << QStringList{QStringLiteral("wacth")}
                          << QStringLiteral("unknown subcommand 'wacth' (did you mean 'watch'?)")
                                 + see;
    QTest::newRow("nothing like it") << QStringList{QStringLiteral("frobnicate")}
                                     << QStringLiteral("unknown subcommand 'frobnicate'") + see;
    QTest::newRow("line break in a word")
        << QStringList{QStringLiteral("frobn\nicate")}
        << QStringLiteral("unknown subcommand 'frobn\\nicate'") + see;
    QTest::newRow("general option")
        << QStringList{QStringLiteral("--vesion")}
        << QStringLiteral("unknown option '--vesion' (did you mean '--version'?)") + see;
    QTest::newRow("option") << QStringList{QStringLiteral("get"), QStringLiteral("--jsno"),
                                           QStringLiteral("f")}
                            << QStringLiteral("get: unknown option '--jsno' (did you mean "
                                              "'--json'?); see 'tessel get --help'");
    QTest::newRow("option of another subcommand")
        << QStringList{QStringLiteral("hold"), QStringLiteral("--interval"), QStringLiteral("5"),
                       QStringLiteral("f")}
        << QStringLiteral("hold: unknown option '--interval'; see 'tessel hold --help'");
    QTest::newRow("no file") << QStringList{QStringLiteral("get")}
                             << QStringLiteral("get: FILE is missing; see 'tessel get --help'");
    QTest::newRow("no URL") << QStringList{QStringLiteral("set"), QStringLiteral("f")}
                            << QStringLiteral("set: URL is missing; see 'tessel set --help'");
    QTest::newRow("no value") << QStringList{QStringLiteral("set"), QStringLiteral("f"),
                                             QStringLiteral("u")}
                              << QStringLiteral("set: VALUE is missing; see 'tessel set --help'");
    QTest::newRow("value and error")
        << QStringList{QStringLiteral("set"), QStringLiteral("f"),       QStringLiteral("u"),
                       QStringLiteral("-1"),  QStringLiteral("--error"), QStringLiteral("2")}
        << QStringLiteral("set: give VALUE or --error STATE, not both; see 'tessel set --help'");
    QTest::newRow("one too many")
        << QStringList{QStringLiteral("info"), QStringLiteral("f"), QStringLiteral("g")}
        << QStringLiteral("info: 'g' is one argument too many; see 'tessel info --help'");
    QTest::newRow("valid as an error")
        << QStringList{QStringLiteral("set"), QStringLiteral("f"), QStringLiteral("u"),
                       QStringLiteral("--error"), QStringLiteral("0")}
        << QStringLiteral(
               "set: 'valid' is no error; give a VALUE instead; see 'tessel set --help'");
    QTest::newRow("unknown state")
        << QStringList{QStringLiteral("set"), QStringLiteral("f"), QStringLiteral("u"),
                       QStringLiteral("--error"), QStringLiteral("overange")}
        << QStringLiteral("'overange' is no error state (did you mean 'overrange'?); use a number "
                          "from 1 to 9 or one of underrange, overrange, no-input, "
                          "division-by-zero, incorrect-mathematic, invalid-temperature, "
                          "sensor-short-circuit, sensor-breakage, timeout");
    QTest::newRow("count of nothing")
        << QStringList{QStringLiteral("watch"), QStringLiteral("--count"), QStringLiteral("0"),
                       QStringLiteral("f")}
        << QStringLiteral("watch: --count takes a whole number from 1 to 2147483647, not '0'; see "
                          "'tessel watch --help'");
    QTest::newRow("interval below zero")
        << QStringList{QStringLiteral("watch"), QStringLiteral("--interval"), QStringLiteral("-5"),
                       QStringLiteral("f")}
        << QStringLiteral("watch: --interval takes a whole number from 1 to 3600000, not '-5'; see "
                          "'tessel watch --help'");
    QTest::newRow("file for all regions")
        << QStringList{QStringLiteral("regions"), QStringLiteral("f")}
        << QStringLiteral("regions: 'f' is one argument too many; see 'tessel regions --help'");
    QTest::newRow("option of regions")
        << QStringList{QStringLiteral("regions"), QStringLiteral("--jsn")}
        << QStringLiteral("regions: unknown option '--jsn' (did you mean '--json'?); see 'tessel "
                          "regions --help'");
    QTest::newRow("wait for nothing")
        << QStringList{QStringLiteral("wait")}
        << QStringLiteral("wait: FILE is missing; see 'tessel wait --help'");
    QTest::newRow("wait for two")
        << QStringList{QStringLiteral("wait"), QStringLiteral("f"), QStringLiteral("g")}
        << QStringLiteral("wait: 'g' is one argument too many; see 'tessel wait --help'");
    QTest::newRow("time below zero")
        << QStringList{QStringLiteral("wait"), QStringLiteral("--timeout"), QStringLiteral("-1"),
                       QStringLiteral("f")}
        << QStringLiteral("wait: --timeout takes a whole number from 0 to 86400, not '-1'; see "
                          "'tessel wait --help'");
    QTest::newRow("time without a number")
        << QStringList{QStringLiteral("wait"), QStringLiteral("--timeout"), QStringLiteral("soon"),
                       QStringLiteral("f")}
        << QStringLiteral("wait: --timeout takes a whole number from 0 to 86400, not 'soon'; see "
                          "'tessel wait --help'");
    QTest::newRow("option without its value")
        << QStringList{QStringLiteral("watch"), QStringLiteral("f"), QStringLiteral("--count")}
        << QStringLiteral("watch: Missing value after '--count'; see 'tessel watch --help'");
}

void tst_ToolUse::wrongUseIsOneLineWithExitCode2()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, line);

    const ToolResult result = runTool(arguments);

    QCOMPARE(result.exitCode, 2);
    QCOMPARE(result.output, QString());
    QCOMPARE(result.error, QStringLiteral("tessel: %1\n").arg(line));
}

void tst_ToolUse::verboseIsTakenBeforeAndBehindTheSubcommand()
{
    const QStringList missing{QStringLiteral("get"), QStringLiteral("/no/such.process.json")};

    QCOMPARE(runTool(QStringList(QStringLiteral("-v")) + missing).exitCode, 3);
    QCOMPARE(runTool(missing + QStringList(QStringLiteral("--verbose"))).exitCode, 3);
}

QTEST_GUILESS_MAIN(tst_ToolUse)
#include "tst_ToolUse.moc"
