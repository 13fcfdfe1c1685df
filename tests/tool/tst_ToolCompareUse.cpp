#include "ComparedRegion.h"

#include <QtTest>

#include <sys/stat.h>

namespace {

/// A snapshot with these entries.
QByteArray snapshotOf(const QByteArray &values)
{
    return R"({"format": "tessel-snapshot", "version": 1, "key": "k", "values": [)" + values + "]}";
}

} // namespace

/// What `tessel compare` refuses.
class tst_ToolCompareUse : public ComparedRegion
{
    Q_OBJECT

private Q_SLOTS:
    void init() { prepare(); }
    void cleanup() { clear(); }

    void fileIsNoSnapshot_data();
    void fileIsNoSnapshot();
    void whatIsNoFileIsNotOpened();
    void missingFilesAndRegionsAreTold();
    void toleranceIsAtFault_data();
    void toleranceIsAtFault();
    void wrongUseIsRefused_data();
    void wrongUseIsRefused();
    void closedPipeDoesNotMakeThemAlike();
    void fullOutputIsAFailure();
};

void tst_ToolCompareUse::fileIsNoSnapshot_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QString>("reason");
    const auto add = [](const char *name, const QByteArray &text, const char *reason) {
        QTest::newRow(name) << text << QString::fromLatin1(reason);
    };
    const auto entry = [](const char *members) {
        return snapshotOf(QByteArray("{") + members + "}");
    };
    add("nothing", "", "line 1, column ");
    add("no JSON", "{\n x}", "line 2, column 2: ");
    add("deep", QByteArray(100000, '['), "line 1, column ");
    add("another object", "{}", "is no snapshot; 'tessel snapshot' writes them");
    add("list", "[1]", "is no snapshot; 'tessel snapshot' writes them");
    add("another version", R"({"format": "tessel-snapshot", "version": 2, "values": []})",
        "is a snapshot of another version than 1");
    add("no values", R"({"format": "tessel-snapshot", "version": 1})", "has no array \"values\"");
    add("values twice",
        R"({"format": "tessel-snapshot", "version": 1, "values": [], "values": []})",
        "'values' is given twice");
    add("number as an entry", snapshotOf("5"),
        "entry 1 of the values has no \"url\" or no \"type\"");
    add("no type", entry(R"("url": "a", "state": 0, "value": 1)"),
        "entry 1 of the values has no \"url\" or no \"type\"");
    add("no state", entry(R"("url": "a", "type": "int8", "value": 1)"),
        "entry 1 of the values has no \"state\" that is a number");
    add("half a state", entry(R"("url": "a", "type": "int8", "value": 1, "state": 0.5)"),
        "entry 1 of the values has no \"state\" that is a number");
    add("huge state", entry(R"("url": "a", "type": "int8", "value": 1, "state": 1e300)"),
        "entry 1 of the values has no \"state\" that is a number");
    add("unknown type", entry(R"("url": "a", "type": "int9", "value": 1, "state": 0)"),
        "entry 1 of the values has no \"value\" of its type 'int9'");
    add("huge number", entry(R"("url": "a", "type": "int64", "value": 1e300, "state": 0)"),
        "entry 1 of the values has no \"value\" of its type 'int64'");
    add("long number",
        entry(R"("url": "a", "type": "uint64", "value": 18446744073709551616, "state": 0)"),
        "entry 1 of the values has no \"value\" of its type 'uint64'");
    add("negative number", entry(R"("url": "a", "type": "uint64", "value": -1, "state": 0)"),
        "entry 1 of the values has no \"value\" of its type 'uint64'");
    add("fraction", entry(R"("url": "a", "type": "int8", "value": 1.5, "state": 0)"),
        "entry 1 of the values has no \"value\" of its type 'int8'");
    add("text as a number", entry(R"("url": "a", "type": "double", "value": "x", "state": 0)"),
        "entry 1 of the values has no \"value\" of its type 'double'");
    add("number as a text", entry(R"("url": "a", "type": "string", "value": 5, "state": 0)"),
        "entry 1 of the values has no \"value\" of its type 'string'");
    add("once more", snapshotOf(R"({"url": "a", "type": "int8", "value": 1, "state": 0},
                      {"url": "a", "type": "int8", "value": 2, "state": 0})"),
        "entry 2 of the values is 'a' once more");
}

void tst_ToolCompareUse::fileIsNoSnapshot()
{
    QFETCH(QByteArray, text);
    QFETCH(QString, reason);
    m_description->write(QStringLiteral("s.json"), text);

    const ToolResult result = compare();

    QVERIFY2(result.error.startsWith(QStringLiteral("tessel: %1: %2").arg(kept(), reason)),
             qPrintable(result.error));
    QCOMPARE(result.error.count(QLatin1Char('\n')), 1);
    QCOMPARE(result.exitCode, 9);
}

void tst_ToolCompareUse::whatIsNoFileIsNotOpened()
{
    const QString fifo = m_description->path(QStringLiteral("fifo"));
    QCOMPARE(mkfifo(fifo.toLocal8Bit().constData(), 0600), 0);
    for (const auto &path : {fifo, QStringLiteral("/dev/zero"), QStringLiteral("/")}) {
        const ToolResult result = runTool({QStringLiteral("compare"), m_file, path});

        QCOMPARE(result.error, QStringLiteral("tessel: %1: is no regular file\n").arg(path));
        QCOMPARE(result.exitCode, 9);
    }
}

void tst_ToolCompareUse::missingFilesAndRegionsAreTold()
{
    const ToolResult noFile = compare();
    QCOMPARE(noFile.error, QStringLiteral("tessel: %1: No such file or directory\n").arg(kept()));
    QCOMPARE(noFile.exitCode, 3);
    QCOMPARE(take().exitCode, 0);
    m_region.reset();

    const ToolResult noRegion = compare();

    QVERIFY(noRegion.error.contains(QStringLiteral("no region '%1'").arg(m_description->key())));
    QCOMPARE(noRegion.exitCode, 3);
}

void tst_ToolCompareUse::toleranceIsAtFault_data()
{
    QTest::addColumn<QString>("tolerance");
    QTest::addColumn<QString>("reason");
    QTest::addColumn<int>("exitCode");
    const QString shape = QStringLiteral("takes URL=NUMBER, where the number is not negative, not "
                                         "'%1'; see 'tessel compare --help'");
    for (const char *text : {"0.5", "n/level", "n/level=", "=5", "n/level=x", "n/level=-1",
                             "n/level=nan", "n/level=1e400"}) {
        QTest::newRow(text) << QString::fromLatin1(text) << shape.arg(QLatin1String(text)) << 2;
    }
    QTest::newRow("unknown") << "n/levl=1"
                             << "is about no value at 'n/levl' (did you mean 'n/level'?)" << 3;
    QTest::newRow("text") << "tag=1"
                          << "is about numbers, and 'tag' is none; see 'tessel compare --help'"
                          << 2;
}

void tst_ToolCompareUse::toleranceIsAtFault()
{
    QFETCH(QString, tolerance);
    QFETCH(QString, reason);
    QFETCH(int, exitCode);
    QCOMPARE(take().exitCode, 0);

    const ToolResult result = compare({QStringLiteral("--tolerance"), tolerance});

    QCOMPARE(result.error, QStringLiteral("tessel: compare: --tolerance %1\n").arg(reason));
    QCOMPARE(result.exitCode, exitCode);
}

void tst_ToolCompareUse::wrongUseIsRefused_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("reason");
    QTest::newRow("no file") << QStringList() << "FILE is missing";
    QTest::newRow("no snapshot") << QStringList{"f.process.json"} << "SNAPSHOT is missing";
    QTest::newRow("too many") << QStringList{"f.process.json", "a", "b"}
                              << "'b' is one argument too many";
    QTest::newRow("unknown option") << QStringList{"--tolernce=a=1", "f", "s"}
                                    << "unknown option '--tolernce' (did you mean '--tolerance'?)";
}

void tst_ToolCompareUse::wrongUseIsRefused()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, reason);

    const ToolResult result = runTool(QStringList(QStringLiteral("compare")) + arguments);

    QCOMPARE(result.error,
             QStringLiteral("tessel: compare: %1; see 'tessel compare --help'\n").arg(reason));
    QCOMPARE(result.exitCode, 2);
}

void tst_ToolCompareUse::closedPipeDoesNotMakeThemAlike()
{
    QCOMPARE(take().exitCode, 0);
    QVERIFY(m_region->publish(QStringLiteral("count"), validValue(quint64(1))));

    QCOMPARE(exitCodeWithoutReader({QStringLiteral("compare"), m_file, kept()}), 1);
}

void tst_ToolCompareUse::fullOutputIsAFailure()
{
    QCOMPARE(take().exitCode, 0);
    QVERIFY(m_region->publish(QStringLiteral("count"), validValue(quint64(1))));
    QProcess tool;
    tool.setStandardOutputFile(QStringLiteral("/dev/full"));
    tool.start(QStringLiteral(TESSEL_TOOL), {QStringLiteral("compare"), m_file, kept()});
    QVERIFY(tool.waitForFinished(60000));

    QCOMPARE(tool.exitCode(), 9);
}

QTEST_GUILESS_MAIN(tst_ToolCompareUse)
#include "tst_ToolCompareUse.moc"
