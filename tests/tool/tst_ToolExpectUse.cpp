#include "ExpectedRegion.h"

#include <QtTest>

#include <memory>

using Metadata = ToolDescription::Metadata;

/// What `tessel expect` refuses.
class tst_ToolExpectUse : public ExpectedRegion
{
    Q_OBJECT

private Q_SLOTS:
    void init() { prepare(); }
    void cleanup() { clear(); }

    void errorIsMarkedInTheExpression_data();
    void errorIsMarkedInTheExpression();
    void slotAtFaultIsRefused();
    void missingRegionIsTold();
    void otherLayoutIsRefused();
    void wrongUseIsRefused_data();
    void wrongUseIsRefused();
    void closedPipeDoesNotMakeItHold();
    void fullOutputIsAFailure();
};

void tst_ToolExpectUse::errorIsMarkedInTheExpression_data()
{
    QTest::addColumn<QString>("marks");
    QTest::addColumn<QString>("reason");
    QTest::addColumn<int>("exitCode");
    const auto add = [](const char *expression, const char *marks, const char *reason,
                        int exitCode) {
        QTest::newRow(expression) << QString::fromLatin1(marks) << QString::fromLatin1(reason)
                                  << exitCode;
    };
    add("pump/on and pump/sped > 20", "            ^~~~~~~~~",
        "column 13: FILE: no element at 'pump/sped' (did you mean 'pump/speed'?)", 3);
    add("pump > 20", "^~~~",
        "column 1: FILE: 'pump' is a tree node and has no value; all(pump) and any(pump) speak of "
        "several values",
        3);
    add("pump/spee* > 20", "^~~~~~~~~~",
        "column 1: FILE: no element at 'pump/spee*' (did you mean 'pump/speed'?); all(pump/spee*) "
        "and "
        "any(pump/spee*) speak of several values",
        3);
    add("all(x/**) valid", "^~~~~~~~~", "column 1: FILE: no element at 'x/**'", 3);
    add("tag > 5", "^~~~~~~",
        "column 1: 'tag' is a text and the other side is a number, which cannot be compared", 2);
    add("tag < 'x'", "^~~~~~~~~",
        "column 1: texts and truth values are == or !=, and none is larger than another", 2);
    add("pump/on == 1", "^~~~~~~~~~~~",
        "column 1: 'pump/on' is true or false and the other side is a number, which cannot be "
        "compared",
        2);
    add("all(pump) > 5", "^~~~~~~~~~~~~",
        "column 1: 'pump/on' is true or false and the other side is a number, which cannot be "
        "compared",
        2);
    add("count", "^~~~~", "column 1: 'count' is a number and has to be compared", 2);
    add("1 < 2", "^~~~~", "column 1: a comparison has a URL or 'age' on one side", 2);
    add("all(pump/s*) < any(count)", "               ^~~~~~~~~~",
        "column 16: all() and any() stand on one side of a comparison", 2);
    add("age < 5", "^~~~~~~",
        "column 1: 'age' is a time and the other side is a number, which cannot be compared", 2);
    add("5 < age", "^~~~~~~",
        "column 1: the other side is a number and 'age' is a time, which cannot be compared", 2);
    add("age == 'x'", "^~~~~~~~~~",
        "column 1: 'age' is a time and the other side is a text, which cannot be compared", 2);
    add("count > age", "^~~~~~~~~~~",
        "column 1: 'count' is a number and 'age' is a time, which cannot be compared", 2);
    add("count > 5s", "^~~~~~~~~~",
        "column 1: 'count' is a number and the other side is a time, which cannot be compared", 2);
    add("count > 5 nd", "          ^~",
        "column 11: 'and', 'or', ')' or the end is expected here (did you mean 'and'?)", 2);
}

void tst_ToolExpectUse::errorIsMarkedInTheExpression()
{
    QFETCH(QString, marks);
    QFETCH(QString, reason);
    QFETCH(int, exitCode);
    const QString expression = QString::fromUtf8(QTest::currentDataTag());
    const QString help = exitCode == 2 ? QStringLiteral("; see 'tessel expect --help'") : QString();
    // It is looked over before anything is waited for.
    m_region.reset();

    const ToolResult result = expect(expression, {QStringLiteral("--timeout=60s")});

    QCOMPARE(result.error, QStringLiteral("  %1\n  %2\ntessel: expect: %3%4\n")
                               .arg(expression, marks, reason.replace("FILE", m_file), help));
    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, exitCode);
}

void tst_ToolExpectUse::slotAtFaultIsRefused()
{
    m_region.reset();
    m_description->add(QStringLiteral("outside"), QStringLiteral("int32"), Metadata::None, 4,
                       {{QStringLiteral("offsetSharedMemory"), 100000}});
    m_file = m_description->write();
    m_region = std::make_unique<HeldRegion>(m_file);

    const ToolResult result = expect(QStringLiteral("outside > 1"));

    QVERIFY(result.error.startsWith(
        QStringLiteral("tessel: %1: 'outside' has no usable slot: ").arg(m_file)));
    QCOMPARE(result.exitCode, 9);
}

void tst_ToolExpectUse::missingRegionIsTold()
{
    m_region.reset();

    for (const auto &options : {QStringList(), QStringList{QStringLiteral("--for=1s")}}) {
        const ToolResult result = expect(QStringLiteral("count > 1"), options);

        QCOMPARE(result.error, QStringLiteral("tessel: %1: no region '%2'; start the process that "
                                              "creates it, or 'tessel hold'\n")
                                   .arg(m_file, m_description->key()));
        QCOMPARE(result.output, QString());
        QCOMPARE(result.exitCode, 3);
    }
}

void tst_ToolExpectUse::otherLayoutIsRefused()
{
    m_description->add(QStringLiteral("more"), QStringLiteral("int32"), Metadata::None, 4);
    m_file = m_description->write();

    for (const auto &options : {QStringList(), QStringList{QStringLiteral("--timeout=60s")}}) {
        const ToolResult result = expect(QStringLiteral("count > 1"), options);

        QVERIFY(result.error.endsWith(QStringLiteral("; its creator uses another description\n")));
        QCOMPARE(result.exitCode, 8);
    }
}

void tst_ToolExpectUse::wrongUseIsRefused_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("reason");
    const QString time = QStringLiteral("--%1 takes a time from 0s to 24h such as 500ms, 10s or "
                                        "2min, not '%2'");
    const auto add = [](const char *name, const QStringList &arguments, const QString &reason) {
        QTest::newRow(name) << arguments << reason;
    };
    add("no file", {}, QStringLiteral("FILE is missing"));
    add("no expression", {"f.process.json"}, QStringLiteral("EXPRESSION is missing"));
    add("words without quotes", {"f.process.json", "a", ">", "5"},
        QStringLiteral("'>' is one argument too many"));
    add("unknown option", {"--timout=5", "f.process.json", "a"},
        QStringLiteral("unknown option '--timout' (did you mean '--timeout'?)"));
    add("no time", {"--for", "x", "f.process.json", "a"},
        time.arg(QStringLiteral("for"), QStringLiteral("x")));
    add("empty time", {"--timeout=", "f.process.json", "a"},
        time.arg(QStringLiteral("timeout"), QString()));
    add("negative time", {"--timeout=-5", "f.process.json", "a"},
        time.arg(QStringLiteral("timeout"), QStringLiteral("-5")));
    add("more than a day", {"--timeout=25h", "f.process.json", "a"},
        time.arg(QStringLiteral("timeout"), QStringLiteral("25h")));
    add("no room for it", {"--for=10s", "--timeout=10", "f.process.json", "a"},
        QStringLiteral("--for takes less time than --timeout"));
}

void tst_ToolExpectUse::wrongUseIsRefused()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, reason);

    const ToolResult result = runTool(QStringList(QStringLiteral("expect")) + arguments);

    QCOMPARE(result.error,
             QStringLiteral("tessel: expect: %1; see 'tessel expect --help'\n").arg(reason));
    QCOMPARE(result.exitCode, 2);
}

void tst_ToolExpectUse::closedPipeDoesNotMakeItHold()
{
    QCOMPARE(exitCodeWithoutReader({QStringLiteral("expect"), m_file, QStringLiteral("count < 1")}),
             1);
    QCOMPARE(exitCodeWithoutReader({QStringLiteral("expect"), QStringLiteral("--json"), m_file,
                                    QStringLiteral("count > 1")}),
             0);
}

void tst_ToolExpectUse::fullOutputIsAFailure()
{
    QProcess tool;
    tool.setStandardOutputFile(QStringLiteral("/dev/full"));
    tool.start(QStringLiteral(TESSEL_TOOL),
               {QStringLiteral("expect"), m_file, QStringLiteral("count < 1")});
    QVERIFY(tool.waitForFinished(60000));

    QCOMPARE(tool.exitCode(), 9);
    QVERIFY(tool.readAllStandardError().contains("standard output: No space left on device"));
}

QTEST_GUILESS_MAIN(tst_ToolExpectUse)
#include "tst_ToolExpectUse.moc"
